// `qor rng DIST ...`: output equal to the library's own draw, and clear
// refusals (exit status 2) for unknown distributions and bad parameters.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "../helpers.h"
#include "qor/rng.h"
#include "support/tool_run.h"

namespace {

using qor_test::ToolRun;
using qor_test::run_tool;

std::vector<double> numbers(const std::string &s) {
  std::istringstream in(s);
  std::vector<double> v;
  double x;
  while (in >> x) v.push_back(x);
  return v;
}

TEST(RngToolDist, PrintsTheLibrarysVariates) {
  const ToolRun r = run_tool("rng lognormal --brng MCG31M1 --seed 9 -n 5 0.1 0.5 -1 2");
  ASSERT_EQ(r.status, 0) << r.out;
  qor_test::Stream s(QOR_BRNG_MCG31, {9});
  double want[5];
  ASSERT_EQ(_rixdRngLognormal(0, s.get(), 5, want, 0.1, 0.5, -1, 2), 0);
  const auto got = numbers(r.out);
  ASSERT_EQ(got.size(), 5u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(got[static_cast<size_t>(i)], want[i]);

  const ToolRun g = run_tool("rng gaussian --brng MCG31M1 --seed 9 -n 3 --method 2 -1.5 2");
  ASSERT_EQ(g.status, 0) << g.out;
  qor_test::Stream s2(QOR_BRNG_MCG31, {9});
  ASSERT_EQ(_rixdRngGaussian(2, s2.get(), 3, want, -1.5, 2), 0);
  const auto got2 = numbers(g.out);
  ASSERT_EQ(got2.size(), 3u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(got2[static_cast<size_t>(i)], want[i]);
}

TEST(RngToolDist, IntegerMembers) {
  const ToolRun u = run_tool("rng uniform-int --brng MCG31M1 --seed 4 -n 6 -3 2");
  ASSERT_EQ(u.status, 0) << u.out;
  qor_test::Stream s(QOR_BRNG_MCG31, {4});
  int32_t want[6];
  ASSERT_EQ(_rixiRngUniform(0, s.get(), 6, want, -3, 2), 0);
  const auto got = numbers(u.out);
  ASSERT_EQ(got.size(), 6u);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(got[size_t(i)], want[i]);

  const ToolRun b = run_tool("rng bits64 --brng MCG59 --seed 3 -n 1");
  ASSERT_EQ(b.status, 0) << b.out;
  // Two native words 3 and 3a (mod 2^59), each reduced to its top 32 bits.
  const uint64_t a = 302875106592253ull, m59 = (1ull << 59) - 1;
  const uint64_t lo = 3 >> 27, hi = ((3 * a) & m59) >> 27;
  EXPECT_EQ(b.out, std::to_string(lo | (hi << 32)) + "\n");

  const ToolRun r = run_tool("rng bits32 --brng MRG32K3A -n 1");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("status -1014"), std::string::npos) << r.out;
}

TEST(RngToolDist, RefusesBadRequests) {
  const struct {
    const char *args;
    const char *message;
  } cases[] = {
      {"rng poisson --brng MCG31M1 3", "unknown subcommand 'poisson'"},
      {"rng gaussian --brng MCG31M1 0", "gaussian takes 2 parameters, got 1"},
      {"rng weibull --brng MCG31M1 1 2 3 4", "weibull takes 3 parameters, got 4"},
      {"rng exponential --brng MCG31M1 0 -1", "beta must be positive"},
      {"rng weibull --brng MCG31M1 0 0 1", "alpha must be positive"},
      {"rng flat --brng MCG31M1 2 1", "a must be below b"},
      {"rng gaussian --brng MCG31M1 --method 3 0 1", "method 3 is not 0, 1 or 2"},
      {"rng laplace --brng MCG31M1 --method 1 0 1", "method 1 is not 0"},
      {"rng cauchy --brng MCG31M1 0 x", "bad parameter 'x'"},
      {"rng rayleigh --brng NOPE 0 1", "unknown generator 'NOPE'"},
      {"rng gumbel 0 1", "--brng NAME is required"},
      {"rng uniform-int --brng MCG31M1 5 5", "a must be below b"},
      {"rng uniform-int --brng MCG31M1 0 1.5", "bounds must be 32-bit integers"},
      {"rng bernoulli --brng MCG31M1 1.5", "p must lie in [0, 1]"},
      {"rng bits32 --brng MCG31M1 7", "bits32 takes 0 parameters, got 1"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.args);
    const ToolRun r = run_tool(c.args);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.out.find(c.message), std::string::npos) << r.out;
  }
}

}  // namespace
