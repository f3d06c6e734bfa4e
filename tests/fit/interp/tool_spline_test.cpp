// `qor fit spline`: coefficients and values from files, malformed input
// refused with exit status 2.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>
#include "support/tool_run.h"

namespace {

using Result = qor_test::ToolRun;

Result run_spline(const std::string &args) {
  return qor_test::run_tool("fit spline " + args, false);
}

std::string write_file(const std::string &name, const std::string &text) {
  const std::string path = ::testing::TempDir() + "qor_spline_" + name;
  std::ofstream(path) << text;
  return path;
}

std::vector<std::vector<double>> rows(const std::string &text) {
  std::vector<std::vector<double>> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream w(line);
    std::vector<double> r;
    std::string tok;
    while (w >> tok) r.push_back(std::strtod(tok.c_str(), nullptr));
    out.push_back(r);
  }
  return out;
}

const std::string kX = "0 1 2 3 4 5";

// Data sampled from a line: every kind reproduces it, so coefficients and
// values are known exactly.
TEST(FitSplineTool, EveryKindReproducesALine) {
  const std::string x = write_file("x.txt", kX), y = write_file("y.txt", "1 3 5 7 9 11");
  const std::string at = write_file("at.txt", "0.5 5 -1 7.25");
  for (const char *kind : {"linear", "natural", "default", "akima", "bessel", "hyman"}) {
    SCOPED_TRACE(kind);
    Result r = run_spline("--x " + x + " --y " + y + " --kind " + kind);
    ASSERT_EQ(r.status, 0);
    const auto c = rows(r.out);
    ASSERT_EQ(c.size(), 5u);
    for (size_t i = 0; i < c.size(); ++i) {
      ASSERT_GE(c[i].size(), 4u);
      EXPECT_DOUBLE_EQ(c[i][0], double(i));
      EXPECT_DOUBLE_EQ(c[i][1], double(i + 1));
      EXPECT_NEAR(c[i][2], 1 + 2.0 * i, 1e-12);
      EXPECT_NEAR(c[i][3], 2, 1e-12);
      for (size_t k = 4; k < c[i].size(); ++k) EXPECT_NEAR(c[i][k], 0, 1e-12);
    }
    r = run_spline("--x " + x + " --y " + y + " --kind " + kind + " --at " + at + " --der 1");
    ASSERT_EQ(r.status, 0);
    const auto v = rows(r.out);
    ASSERT_EQ(v.size(), 4u);
    for (const auto &row : v) {
      ASSERT_EQ(row.size(), 3u);
      EXPECT_NEAR(row[1], 1 + 2 * row[0], 1e-11);
      EXPECT_NEAR(row[2], 2, 1e-11);
    }
  }
  Result q = run_spline("--x " + x + " --y " + y + " --kind quadratic --bc slope:2 --at " + at);
  ASSERT_EQ(q.status, 0);
  for (const auto &row : rows(q.out)) EXPECT_NEAR(row[1], 1 + 2 * row[0], 1e-11);
}

// Boundary conditions reach the constructor: clamped slopes are the end
// derivatives.
TEST(FitSplineTool, BoundaryConditionsAreApplied) {
  const std::string x = write_file("bx.txt", kX), y = write_file("by.txt", "0 1 0 1 0 1");
  const std::string at = write_file("bat.txt", "0 5");
  const Result r = run_spline("--x " + x + " --y " + y + " --kind natural --bc first:0.5,-3 --at " + at +
                              " --der 1");
  ASSERT_EQ(r.status, 0);
  const auto v = rows(r.out);
  ASSERT_EQ(v.size(), 2u);
  EXPECT_NEAR(v[0][2], 0.5, 1e-12);
  EXPECT_NEAR(v[1][2], -3, 1e-12);
  const Result s = run_spline("--x " + x + " --y " + y + " --kind natural --bc second:2,4 --at " + at +
                              " --der 2");
  ASSERT_EQ(s.status, 0);
  const auto w = rows(s.out);
  EXPECT_NEAR(w[0][3], 2, 1e-11);
  EXPECT_NEAR(w[1][3], 4, 1e-11);
}

TEST(FitSplineTool, MalformedInputExitsWithTwo) {
  const std::string x = write_file("mx.txt", kX), y = write_file("my.txt", "0 1 0 1 0 1");
  const std::string shortx = write_file("msx.txt", "0 1 2 3"), bad = write_file("mb.txt", "0 1 x");
  const std::string desc = write_file("md.txt", "0 2 1 3 4 5"), inf = write_file("mi.txt", "0 1 inf 1 0 1");
  const std::string base = "--x " + x + " --y " + y;
  const std::string cases[] = {
      "",
      "--x " + x + " --kind natural",
      base,
      base + " --kind cubic",
      base + " --kind natural --bogus 1",
      base + " --kind natural --bc",
      base + " --kind natural --bc first:1",
      base + " --kind natural --bc first:1,2,3",
      base + " --kind natural --bc free:1",
      base + " --kind natural --bc clamped",
      base + " --kind natural --bc slope:1",
      base + " --kind quadratic",
      base + " --kind linear --bc periodic",
      base + " --kind natural --bc akima",
      base + " --kind natural --der 1",
      base + " --kind natural --at " + y + " --der 4",
      "--x " + shortx + " --y " + shortx + " --kind akima",
      "--x " + x + " --y " + shortx + " --kind natural",
      "--x " + x + " --y " + bad + " --kind natural",
      "--x " + desc + " --y " + y + " --kind natural",
      "--x " + x + " --y " + inf + " --kind natural",
      "--x /nonexistent/x --y " + y + " --kind natural",
      base + " --kind natural --at " + bad,
  };
  for (const std::string &c : cases) {
    const Result r = run_spline(c);
    EXPECT_EQ(r.status, 2) << c;
    EXPECT_EQ(r.out, "") << c;
  }
}

}  // namespace
