// The `qor rng` subcommand, run as a separate process.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "helpers.h"
#include "reference.h"
#include "support/tool_run.h"

namespace {

using qor_test::ToolRun;
using qor_test::run_tool;

TEST(RngTool, BitsPrintsTheIntegerSequence) {
  const ToolRun r = run_tool("rng bits --brng MRG32K3A --seed 1,2,3,4,5,6 -n 5");
  ASSERT_EQ(r.status, 0) << r.out;
  const uint32_t seed[6] = {1, 2, 3, 4, 5, 6};
  qor_test::RefMrg ref(seed);
  std::string expect;
  for (int i = 0; i < 5; ++i) expect += std::to_string(ref.next()) + "\n";
  EXPECT_EQ(r.out, expect);

  const ToolRun w = run_tool("rng bits --brng wh:272 -n 1");
  EXPECT_EQ(w.out, "126 127 125 124\n");  // x = 1 times the member's multipliers
  const ToolRun m = run_tool("rng bits --brng MCG59 --seed 0x5 -n 2");
  EXPECT_EQ(m.out, "5\n" + std::to_string(5ull * 302875106592253ull % (1ull << 59)) + "\n");
}

TEST(RngTool, UniformPrintsDoubles) {
  const ToolRun r = run_tool("rng uniform --brng MCG31M1 --seed 1 -n 2 --a 2 --b 3");
  ASSERT_EQ(r.status, 0) << r.out;
  char line[64];
  std::snprintf(line, sizeof line, "%.17g\n", 2.0 + 1.0 * 4.656612875245797e-10);
  EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1), line);
}

TEST(RngTool, BadInputIsAOneLineErrorWithStatusTwo) {
  const char *bad[] = {
      "rng bits --brng NOPE",         "rng bits --brng WH:273",  "rng bits --brng WH:x",
      "rng bits --brng R250 -n -1",   "rng bits --brng R250 -n", "rng bits --brng R250 --seed 1,,2",
      "rng bits --brng R250 --seed 4294967296", "rng uniform --brng R250 --a 1 --b 1",
      "rng uniform --brng R250 --a z", "rng bits --brng R250 --a 1", "rng bits",
      "rng bits --brng R250 --frobnicate 1", "rng frob",
  };
  for (const char *args : bad) {
    const ToolRun r = run_tool(args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1) << args << ": " << r.out;
  }
  // A generator that refuses its seed: exit status 1 and the library's status.
  const ToolRun refused = run_tool("rng bits --brng sobol --dim 1000 -n 3");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.out.find("-3"), std::string::npos) << refused.out;
}

}  // namespace
