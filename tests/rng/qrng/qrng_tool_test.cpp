// `qor rng` with the quasi-random generators, run as a separate process.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>
#include "support/tool_run.h"

namespace {

using qor_test::ToolRun;
using qor_test::run_tool;

TEST(QrngTool, DimensionSelectsPointsInterleaved) {
  // Points 1..2 of the two-dimensional Sobol sequence: (1/2, 1/2), (3/4, 1/4).
  const ToolRun s = run_tool("rng bits --brng sobol --dim 2 -n 4");
  ASSERT_EQ(s.status, 0) << s.out;
  EXPECT_EQ(s.out, "2147483648\n2147483648\n3221225472\n1073741824\n");
  const ToolRun n = run_tool("rng uniform --brng Niederreiter --dim 3 -n 3");
  ASSERT_EQ(n.status, 0) << n.out;
  EXPECT_EQ(n.out, "0.5\n0.5\n0.75\n");  // x^2 + x + 1 gives 3/4 first
  // --seed words follow the dimension: format 0 and an ignored word.
  EXPECT_EQ(run_tool("rng bits --brng sobol --dim 2 --seed 0,9 -n 4").out, s.out);
}

TEST(QrngTool, BadDimensions) {
  const ToolRun other = run_tool("rng bits --brng MCG31M1 --dim 2");
  EXPECT_EQ(other.status, 2) << other.out;
  for (const char *arg : {"--dim 0", "--dim x", "--dim -1", "--dim"}) {
    const ToolRun r = run_tool(std::string("rng bits --brng sobol ") + arg);
    EXPECT_EQ(r.status, 2) << arg << ": " << r.out;
  }
  const ToolRun big = run_tool("rng bits --brng sobol --dim 79");
  EXPECT_EQ(big.status, 1);
  EXPECT_NE(big.out.find("status -3"), std::string::npos) << big.out;
  EXPECT_EQ(run_tool("rng bits --brng niederreiter --dim 318 -n 1").status, 0);
  EXPECT_EQ(run_tool("rng bits --brng niederreiter --dim 319 -n 1").status, 1);
}

}  // namespace
