// The qor command-line tool, run as a user would.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>
#include "support/tool_run.h"

namespace {

using qor_test::ToolRun;

ToolRun run(const std::string &env, const std::string &args) {
  return qor_test::run_tool(args, true, env);
}

TEST(QorTool, InfoDecodesTheModeFromTheEnvironment) {
  ToolRun r = run("QOR_PEX_MODE=PEX_EP,PEX_ERRMODE_STDERR", "info");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("mode word  0x403"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("EP (table slot 2)"), std::string::npos);
  EXPECT_NE(r.out.find("processor class        5"), std::string::npos);
  EXPECT_NE(r.out.find("libqor_sse42.so"), std::string::npos);

  r = run("QOR_PEX_MODE=PEX_HA,", "info");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("mode word  0x1A02"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("ERRNO|EXCEPT|CALLBACK (DEFAULT)"), std::string::npos);
}

TEST(QorTool, UnknownCommandsAndOptionsExitWithStatus2) {
  for (const char *args : {"frobnicate", "--frobnicate", "info --verbose", ""}) {
    ToolRun r = run("", args);
    EXPECT_EQ(r.status, 2) << args;
  }
  ToolRun h = run("", "--help");
  EXPECT_EQ(h.status, 0);
  EXPECT_NE(h.out.find("info"), std::string::npos);
}

}  // namespace
