// The `qor fit search` subcommand: indices printed, malformed input refused
// with exit status 2.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>
#include "support/tool_run.h"

namespace {

using Result = qor_test::ToolRun;

Result run_tool(const std::string &args) { return qor_test::run_tool("fit " + args, false); }

std::string write_file(const std::string &name, const std::string &text) {
  const std::string path = ::testing::TempDir() + "qor_fit_" + name;
  std::ofstream(path) << text;
  return path;
}

TEST(FitTool, SearchPrintsCellIndicesForEveryMethod) {
  const std::string x = write_file("x.txt", "0 0.5 1  # comment\n4 4.25 9 16\n");
  const std::string s = write_file("s.txt", "-1 0 0.75 1 4.1 8.999 16 20\n");
  const std::string want = "0\n1\n2\n3\n4\n5\n6\n7\n";
  for (const char *m : {"auto", "quasi-uniform", "sorted", "peak", "hybrid"}) {
    const Result r = run_tool("search --x " + x + " --sites " + s + " --method " + m);
    EXPECT_EQ(r.status, 0) << m;
    EXPECT_EQ(r.out, want) << m;
  }
  const std::string u = write_file("u.txt", "2 4 6 8");
  const std::string us = write_file("us.txt", "1 2 3 4 7.5 8 9 nan");
  const Result r = run_tool("search --x " + u + " --sites " + us + " --method uniform");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "0\n1\n1\n2\n3\n3\n4\n0\n");
}

TEST(FitTool, MalformedInputExitsWithTwo) {
  const std::string x = write_file("gx.txt", "0 1 2 3");
  const std::string s = write_file("gs.txt", "0.5 2.5");
  const struct {
    std::string args;
  } rows[] = {
      {"frobnicate"},
      {"search --x " + x},
      {"search --sites " + s},
      {"search --x " + x + " --sites " + s + " --method bogus"},
      {"search --x " + x + " --sites " + s + " --color"},
      {"search --x " + x + " --sites " + s + " --peak -2 --method peak"},
      {"search --x " + x + " --sites"},
      {"search --x /nonexistent/qor --sites " + s},
      {"search --x " + write_file("b1.txt", "0 1 two 3") + " --sites " + s},
      {"search --x " + write_file("b2.txt", "0 2 1 3") + " --sites " + s},
      {"search --x " + write_file("b3.txt", "0 1 1 3") + " --sites " + s},
      {"search --x " + write_file("b4.txt", "5") + " --sites " + s},
      {"search --x " + write_file("b5.txt", "0 1 inf") + " --sites " + s},
      {"search --x " + x + " --sites " + write_file("b6.txt", "1 0.5") + " --method sorted"},
      {"search --x " + x + " --sites " + write_file("b7.txt", "1 2x")},
  };
  for (const auto &r : rows) {
    const Result res = run_tool(r.args);
    EXPECT_EQ(res.status, 2) << r.args;
    EXPECT_EQ(res.out, "") << r.args;
  }
}

TEST(FitTool, DemoRuns) {
  const Result r = run_tool("");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("hybrid"), std::string::npos);
}

}  // namespace
