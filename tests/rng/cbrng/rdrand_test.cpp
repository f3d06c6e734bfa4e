// The RDRAND generator: seeding of the retry limit, refused methods, the
// missing-instruction path, and the retry rule driven through a scripted
// instruction so that failures are reproducible.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <optional>

#include "cbrng_test_util.h"

namespace {

using cbrng_test::kTrng;
using cbrng_test::Stream;
using qor::rng::TrngState;

// A scripted instruction: each entry is one attempt, nullopt meaning failure.
struct Script {
  std::deque<std::optional<unsigned long long>> steps;
  int calls64 = 0, calls32 = 0;
} g_script;

int scripted64(unsigned long long *v) {
  ++g_script.calls64;
  if (g_script.steps.empty()) return 0;
  const auto s = g_script.steps.front();
  g_script.steps.pop_front();
  if (!s) return 0;
  *v = *s;
  return 1;
}

int scripted32(unsigned int *v) {
  ++g_script.calls32;
  if (g_script.steps.empty()) return 0;
  const auto s = g_script.steps.front();
  g_script.steps.pop_front();
  if (!s) return 0;
  *v = static_cast<unsigned int>(*s);
  return 1;
}

class TrngScripted : public ::testing::Test {
 protected:
  void SetUp() override {
    g_script = Script{};
    qor::rng::rdrand_set_steps(scripted64, scripted32);
  }
  void TearDown() override { qor::rng::rdrand_set_steps(nullptr, nullptr); }
  static void fail(int times) {
    for (int i = 0; i < times; ++i) g_script.steps.push_back(std::nullopt);
  }
  static void ok(unsigned long long v) { g_script.steps.push_back(v); }
};

TEST(TrngInit, RetryLimitComesFromSeedWordOneOrDefaultsToTen) {
  const struct {
    std::vector<uint32_t> seed;
    uint32_t limit;
  } cases[] = {{{}, 10},    {{5}, 10},       {{5, 0}, 10},
               {{5, 3}, 3}, {{0, 1, 99}, 1}, {{0, 0xFFFFFFFF}, 0xFFFFFFFF}};
  for (const auto &c : cases) {
    Stream s(kTrng, c.seed);
    EXPECT_EQ(s.init_status(), 0);
    EXPECT_EQ(s.state<TrngState>().reserved, 0u);
    EXPECT_EQ(s.state<TrngState>().retry_limit, c.limit) << "seed words " << c.seed.size();
  }
}

TEST(TrngInit, NonReproducibleMethodsAreRefused) {
  Stream s(kTrng, {0, 4});
  uint64_t k = 1;
  const auto *p = reinterpret_cast<const unsigned int *>(&k);
  EXPECT_EQ(__rixBRngTRNGInitStream(1, s.get(), 2, p), -1002);
  EXPECT_EQ(__rixBRngTRNGInitStream(2, s.get(), 2, p), -1003);
  EXPECT_EQ(__rixBRngTRNGInitStream(3, s.get(), 1, p), -1004);
  EXPECT_EQ(__rixBRngTRNGInitStream(4, s.get(), 0, nullptr), -2);
  EXPECT_EQ(s.state<TrngState>().retry_limit, 4u);
}

TEST(TrngNoInstruction, EveryRoutineRefusesWithoutTouchingTheOutput) {
  Stream s(kTrng, {});
  qor::rng::cbrng_pretend_missing(false, true);
  unsigned int w[3] = {7, 7, 7};
  float f[3] = {7, 7, 7};
  double d[3] = {7, 7, 7};
  const int si = __rixiBRngTRNG(s.get(), 3, w);
  const int ss = __rixsBRngTRNG(s.get(), 3, f, 0, 1);
  const int sd = __rixdBRngTRNG(s.get(), 3, d, 0, 1);
  qor::rng::cbrng_pretend_missing(false, false);
  EXPECT_EQ(si, -1130);
  EXPECT_EQ(ss, -1130);
  EXPECT_EQ(sd, -1130);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(w[i], 7u);
    EXPECT_EQ(f[i], 7.0f);
    EXPECT_EQ(d[i], 7.0);
  }
}

TEST_F(TrngScripted, PairsComeLowHalfFirstAndAnOddWordFromA32BitRequest) {
  Stream s(kTrng, {});
  ok(0x1111111122222222ull);
  ok(0x3333333344444444ull);
  ok(0x55555555ull);
  unsigned int w[5] = {};
  ASSERT_EQ(__rixiBRngTRNG(s.get(), 5, w), 0);
  const unsigned int expected[5] = {0x22222222, 0x11111111, 0x44444444, 0x33333333, 0x55555555};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(w[i], expected[i]) << i;
  EXPECT_EQ(g_script.calls64, 2);
  EXPECT_EQ(g_script.calls32, 1);
}

// A value counts when it arrives within the first `limit` attempts.
TEST_F(TrngScripted, RetriesUpToTheLimitThenFails) {
  for (uint32_t limit : {1u, 3u, 10u}) {
    Stream s(kTrng, {0, limit == 10 ? 0u : limit});  // 0 asks for the default of 10
    g_script = Script{};
    fail(static_cast<int>(limit) - 1);
    ok(0xAAAAAAAABBBBBBBBull);      // succeeds on the last allowed attempt
    fail(static_cast<int>(limit));  // then the next value never arrives
    unsigned int w[4] = {9, 9, 9, 9};
    EXPECT_EQ(__rixiBRngTRNG(s.get(), 4, w), -1131) << limit;
    EXPECT_EQ(w[0], 0xBBBBBBBBu);
    EXPECT_EQ(w[1], 0xAAAAAAAAu);
    EXPECT_EQ(w[2], 9u);  // nothing written past the failure
    EXPECT_EQ(w[3], 9u);
    EXPECT_EQ(g_script.calls64, 2 * static_cast<int>(limit)) << "attempts made";
  }
}

TEST_F(TrngScripted, OddTailFailureKeepsTheWordsBeforeIt) {
  Stream s(kTrng, {0, 2});
  ok(0x0000000200000001ull);
  fail(2);
  unsigned int w[3] = {0, 0, 5};
  EXPECT_EQ(__rixiBRngTRNG(s.get(), 3, w), -1131);
  EXPECT_EQ(w[0], 1u);
  EXPECT_EQ(w[1], 2u);
  EXPECT_EQ(w[2], 5u);
  EXPECT_EQ(g_script.calls32, 2);
}

TEST_F(TrngScripted, FloatAndDoubleDeliverScaledWordsUpToAFailure) {
  Stream s(kTrng, {0, 1});
  ok(0x8000000000000000ull);  // words 0, 2^31
  ok(0x00000000C0000000ull);  // words 2^31 + 2^30, 0
  float f[6] = {-1, -1, -1, -1, -1, -1};
  EXPECT_EQ(__rixsBRngTRNG(s.get(), 6, f, 2.0f, 4.0f), -1131);
  EXPECT_EQ(f[0], 2.0f);
  EXPECT_EQ(f[1], 3.0f);
  EXPECT_EQ(f[2], 3.5f);
  EXPECT_EQ(f[3], 2.0f);
  EXPECT_EQ(f[4], -1.0f);
  EXPECT_EQ(f[5], -1.0f);

  ok(0x4000000000000000ull);
  double d[2] = {};
  EXPECT_EQ(__rixdBRngTRNG(s.get(), 2, d, -1.0, 1.0), 0);
  EXPECT_EQ(d[0], -1.0);
  EXPECT_EQ(d[1], -0.5);
}

TEST_F(TrngScripted, EmptyRequestsDrawNothing) {
  Stream s(kTrng, {});
  unsigned int w = 3;
  EXPECT_EQ(__rixiBRngTRNG(s.get(), 0, &w), 0);
  EXPECT_EQ(__rixiBRngTRNG(s.get(), -4, &w), 0);
  EXPECT_EQ(g_script.calls64 + g_script.calls32, 0);
  EXPECT_EQ(w, 3u);
}

// On real hardware (when present) the routines succeed and stay in range.
TEST(TrngHardware, DeliversWordsAndUniformsInRange) {
  if (!qor::rng::cpu_has_rdrand()) GTEST_SKIP() << "processor without RDRAND";
  Stream s(kTrng, {});
  std::vector<unsigned int> w(257, 0);
  ASSERT_EQ(__rixiBRngTRNG(s.get(), 257, w.data()), 0);
  std::sort(w.begin(), w.end());
  EXPECT_GT(std::unique(w.begin(), w.end()) - w.begin(), 250);  // not a constant fill
  std::vector<double> d(101);
  ASSERT_EQ(__rixdBRngTRNG(s.get(), 101, d.data(), -2.0, 3.0), 0);
  for (double x : d) EXPECT_TRUE(x >= -2.0 && x < 3.0) << x;
}

}  // namespace
