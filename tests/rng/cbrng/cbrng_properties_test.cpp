// Properties that ARS5 and Philox4x32-10 share: seeding, buffering of a partly
// used block across calls, skip-ahead (one- and multi-word counts) against
// generating and dropping, refused methods and the scaling of the float and
// double routines.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "cbrng_test_util.h"

namespace {

using cbrng_test::Generator;
using cbrng_test::kArs5;
using cbrng_test::kPhilox;
using cbrng_test::Stream;
using u128 = unsigned __int128;

// The block of counter c under the seeded key, from the block functions.
std::array<uint32_t, 4> block_at(const Generator &g, const std::vector<uint32_t> &key, u128 c) {
  std::array<uint32_t, 4> out;
  if (&g == &kArs5) {
    const uint64_t ctr[2] = {static_cast<uint64_t>(c), static_cast<uint64_t>(c >> 64)};
    qor::rng::ars5_block(key.data(), ctr, out.data());
  } else {
    const uint32_t ctr[4] = {static_cast<uint32_t>(c), static_cast<uint32_t>(c >> 32),
                             static_cast<uint32_t>(c >> 64), static_cast<uint32_t>(c >> 96)};
    qor::rng::philox4x32_10_block(key.data(), ctr, out.data());
  }
  return out;
}

int key_words(const Generator &g) { return &g == &kArs5 ? 4 : 2; }

std::vector<uint32_t> seed_for(const Generator &g, const std::vector<uint32_t> &key, u128 ctr) {
  std::vector<uint32_t> s(key.begin(), key.end());
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<uint32_t>(ctr >> (32 * i)));
  (void)g;
  return s;
}

class CounterBased : public ::testing::TestWithParam<const Generator *> {
 protected:
  void SetUp() override {
    if (GetParam() == &kArs5 && !qor::rng::cpu_has_aes()) GTEST_SKIP() << "processor without AES";
  }
  const Generator &g() const { return *GetParam(); }
  std::vector<uint32_t> key() const {
    return key_words(g()) == 4
               ? std::vector<uint32_t>{0x243F6A88, 0x85A308D3, 0x13198A2E, 0x03707344}
               : std::vector<uint32_t>{0xA4093822, 0x299F31D0};
  }
  Stream make(u128 ctr) { return Stream(g(), seed_for(g(), key(), ctr)); }
};

TEST_P(CounterBased, MissingSeedWordsAreZeroAndExtraOnesIgnored) {
  Stream none(g(), {});
  Stream zeros(g(), std::vector<uint32_t>(8, 0));
  EXPECT_EQ(none.words(11), zeros.words(11));

  std::vector<uint32_t> partial = {7, 9, 11};  // counter and key words beyond these are 0
  Stream short_seed(g(), partial);
  partial.resize(8, 0);
  Stream padded(g(), partial);
  EXPECT_EQ(short_seed.words(9), padded.words(9));

  auto full = seed_for(g(), key(), 0x1234);
  Stream exact(g(), full);
  full.insert(full.end(), {1, 2, 3, 4, 5});
  Stream longer(g(), full);
  EXPECT_EQ(exact.words(13), longer.words(13));
}

TEST_P(CounterBased, SeedingClearsTheBufferedBlock) {
  Stream s = make(5);  // the helper fills the state with 0xCD before seeding
  const int remaining = &g() == &kArs5 ? s.state<qor::rng::Ars5State>().remaining
                                       : s.state<qor::rng::PhiloxState>().remaining;
  EXPECT_EQ(remaining, 0);
  // First words come from the seeded counter, not from the stale buffer.
  const auto w = s.words(4);
  const auto b = block_at(g(), key(), 5);
  EXPECT_EQ(w, std::vector<uint32_t>(b.begin(), b.end()));
}

// Calls of sizes 1..9 (and empty ones) in any mix concatenate to one call.
TEST_P(CounterBased, SplitCallsEqualOneCall) {
  std::mt19937 rng(31337);
  for (u128 start : {u128{0}, u128{0xFFFFFFF0u}, (u128{1} << 64) - 9, ~u128{0} - 20}) {
    Stream one = make(start);
    const auto expected = one.words(700);
    for (int trial = 0; trial < 20; ++trial) {
      Stream s = make(start);
      std::vector<uint32_t> got;
      while (got.size() < expected.size()) {
        const int n = std::min<int>(static_cast<int>(rng() % 11) - 1,  // -1..9
                                    static_cast<int>(expected.size() - got.size()));
        const auto part = s.words(n);
        got.insert(got.end(), part.begin(), part.end());
      }
      ASSERT_EQ(got, expected) << "trial " << trial;
    }
  }
  // The pair of calls from the generator's own description.
  Stream a = make(0), b = make(0);
  auto w = a.words(3);
  const auto w5 = a.words(5);
  w.insert(w.end(), w5.begin(), w5.end());
  EXPECT_EQ(w, b.words(8));
}

// Skip by k from every buffer state equals drawing k words and dropping them,
// for one-word counts (method 2) and the same count as 1, 3 or 5 words
// (method 3; words beyond the third are ignored).
TEST_P(CounterBased, SkipAheadEqualsGenerateAndDrop) {
  for (u128 start : {u128{3}, u128{0xFFFFFFFEu}, (u128{1} << 64) - 2, ~u128{0} - 1}) {
    for (int prefix = 0; prefix < 8; ++prefix) {
      for (uint64_t k : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 12u, 13u, 31u, 64u, 100u, 1001u}) {
        Stream ref = make(start);
        ref.words(prefix);
        ref.words(static_cast<int>(k));
        const auto expected = ref.words(19);
        const std::vector<std::vector<uint64_t>> forms = {
            {k}, {k, 0, 0}, {k, 0, 0, 0xFFFF, 0xFFFFFFFF}};
        for (int form = -1; form < 3; ++form) {
          Stream s = make(start);
          s.words(prefix);
          ASSERT_EQ(form < 0 ? s.skip(k) : s.skip_ex(forms[form]), 0);
          ASSERT_EQ(s.words(19), expected) << "prefix " << prefix << " k " << k << " form " << form;
        }
      }
    }
  }
}

TEST_P(CounterBased, SkipOfZeroWordsOrNoCountChangesNothing) {
  Stream a = make(77), b = make(77);
  a.words(3);
  b.words(3);
  EXPECT_EQ(a.skip_ex({}), 0);
  EXPECT_EQ(a.skip(0), 0);
  EXPECT_EQ(a.words(10), b.words(10));
}

// Where generating is out of reach, the position model decides: the word at
// position p of a stream is word p mod 4 of the block of counter p / 4, and
// skipping k moves p to p + k (modulo 2^130, the counter wrapping at 2^128).
TEST_P(CounterBased, MultiWordSkipMatchesThePositionModel) {
  const uint64_t M = ~uint64_t{0};
  const std::vector<std::vector<uint64_t>> counts = {
      {uint64_t{1} << 32},
      {(uint64_t{1} << 32) + 5},
      {M},
      {M - 2},
      {0, 1},
      {3, 1},
      {M, M},
      {M - 1, M, 0},
      {12345, 0, 1},
      {7, M, M},
      {M, M, M},
      {0x0123456789ABCDEFull, 0xFEDCBA9876543210ull, 0x55},
      // Whole-block distances whose block count has a zero low word, so that
      // "one block less" borrows across 64-bit words.
      {0, 4},
      {1, 4},
      {2, 4},
      {3, 4},
      {0, 0, 1},
      {3, 0, 2}};
  for (u128 start : {u128{0}, u128{0xFFFFFFFFu}, (u128{1} << 64) - 1, ~u128{0}}) {
    for (int prefix = 0; prefix < 5; ++prefix) {
      for (const auto &k : counts) {
        Stream s = make(start);
        s.words(prefix);
        ASSERT_EQ(s.skip_ex(k), 0);
        const auto got = s.words(10);
        // Position after the prefix: block start + prefix/4, offset prefix%4;
        // then add the 192-bit count.
        u128 block = start + prefix / 4;
        const u128 low = (u128{k.size() > 1 ? k[1] : 0} << 64) | k[0];
        const u128 sum = low + static_cast<unsigned>(prefix % 4);
        const uint64_t top = (k.size() > 2 ? k[2] : 0) + (sum < low ? 1 : 0);
        block += (sum >> 2) | (u128{top} << 126);
        unsigned off = static_cast<unsigned>(sum & 3);
        std::vector<uint32_t> expected;
        while (expected.size() < 10) {
          const auto b = block_at(g(), key(), block);
          for (; off < 4 && expected.size() < 10; ++off) expected.push_back(b[off]);
          off = 0;
          ++block;
        }
        ASSERT_EQ(got, expected) << "prefix " << prefix << " count words " << k.size() << " k0 "
                                 << k[0];
      }
    }
  }
}

// Skips compose: a then b equals one skip of a + b, with sums that carry
// from the first 64-bit word into the second and from the second into the third.
TEST_P(CounterBased, SkipsComposeAcrossWordCarries) {
  const uint64_t M = ~uint64_t{0};
  struct Case {
    uint64_t a, b;
    std::vector<uint64_t> sum;
  } cases[] = {{M - 2, 5, {2, 1}}, {M, M, {M - 1, 1}}, {1ull << 63, 1ull << 63, {0, 1}}};
  for (const Case &c : cases) {
    for (int prefix = 0; prefix < 4; ++prefix) {
      Stream two = make(1000), one = make(1000);
      two.words(prefix);
      one.words(prefix);
      ASSERT_EQ(two.skip(c.a), 0);
      ASSERT_EQ(two.skip(c.b), 0);
      ASSERT_EQ(one.skip_ex(c.sum), 0);
      EXPECT_EQ(two.words(9), one.words(9));
    }
  }
  // (2^128 - 1) + 1 + (2^64 - 1) = 2^128 + 2^64 - 1, with multi-word skips only.
  Stream two = make(42), one = make(42);
  ASSERT_EQ(two.skip_ex({M, M, 0}), 0);
  ASSERT_EQ(two.skip_ex({1, 0, 0}), 0);
  ASSERT_EQ(two.skip_ex({M, 0, 0}), 0);
  ASSERT_EQ(one.skip_ex({M, 0, 1}), 0);
  EXPECT_EQ(two.words(9), one.words(9));
}

TEST_P(CounterBased, LeapfrogAndUnknownMethodsAreRefused) {
  Stream s = make(9), t = make(9);
  unsigned int k = 0;
  EXPECT_EQ(g().init(1, s.get(), 4, &k), -1002);
  EXPECT_EQ(g().init(4, s.get(), 0, nullptr), -2);
  EXPECT_EQ(g().init(-1, s.get(), 0, nullptr), -2);
  EXPECT_EQ(s.words(9), t.words(9));  // the refusals left the state alone
}

TEST_P(CounterBased, FloatAndDoubleAreScaledIntegerWords) {
  const struct {
    double a, b;
  } ranges[] = {{0.0, 1.0}, {-3.0, 5.0}, {1.0, 2.0}, {100.0, 100.5}, {-1e-3, 0.0}};
  for (const auto &rg : ranges) {
    Stream si = make(11), sf = make(11), sd = make(11);
    const auto u = si.words(203);
    std::vector<float> f(203);
    std::vector<double> d(203);
    // Odd splits so that the buffered words feed the float path too.
    ASSERT_EQ(g().gen_s(sf.get(), 5, f.data(), static_cast<float>(rg.a), static_cast<float>(rg.b)),
              0);
    ASSERT_EQ(
        g().gen_s(sf.get(), 198, f.data() + 5, static_cast<float>(rg.a), static_cast<float>(rg.b)),
        0);
    ASSERT_EQ(g().gen_d(sd.get(), 7, d.data(), rg.a, rg.b), 0);
    ASSERT_EQ(g().gen_d(sd.get(), 196, d.data() + 7, rg.a, rg.b), 0);
    for (int i = 0; i < 203; ++i) {
      const long double exact =
          rg.a + static_cast<long double>(u[i]) * (rg.b - rg.a) / 4294967296.0L;
      EXPECT_LE(std::fabs(static_cast<long double>(d[i]) - exact),
                4 * std::ldexp(1.0L, -52) * std::fmax(std::fabs(rg.a), std::fabs(rg.b)))
          << i;
      EXPECT_LE(std::fabs(static_cast<long double>(f[i]) - exact),
                4 * std::ldexp(1.0L, -23) * std::fmax(std::fabs(rg.a), std::fabs(rg.b)))
          << i;
      EXPECT_TRUE(d[i] >= rg.a && d[i] < rg.b) << d[i];
      EXPECT_TRUE(f[i] >= static_cast<float>(rg.a) && f[i] < static_cast<float>(rg.b)) << f[i];
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Generators, CounterBased, ::testing::Values(&kArs5, &kPhilox),
                         [](const auto &info) { return std::string(info.param->name); });

// Scaling at the ends of the word range, for every length around the vector
// width: 0 maps to a, words are monotone, nothing reaches b even when the
// formula rounds up to it.
TEST(CbrngScaling, EndsOfTheRangeStayInsideTheInterval) {
  const uint32_t pattern[] = {0,          1,          0x7FFFFFFF, 0x80000000, 0xFFFFFF7F,
                              0xFFFFFF80, 0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFF};
  for (int n = 1; n <= 9; ++n) {
    float f[9];
    double d[9];
    qor::rng::scale_u32_to_float(pattern, n, f, 1.0f, 2.0f);
    qor::rng::scale_u32_to_double(pattern, n, d, 1e9, 1e9 + 1);
    EXPECT_EQ(f[0], 1.0f);
    EXPECT_EQ(d[0], 1e9);
    for (int i = 0; i < n; ++i) {
      EXPECT_LT(f[i], 2.0f) << i;
      EXPECT_LT(d[i], 1e9 + 1) << i;
      if (i) {
        EXPECT_LE(f[i - 1], f[i]);
        EXPECT_LE(d[i - 1], d[i]);
      }
    }
    if (n >= 8) {
      EXPECT_EQ(f[7], std::nextafter(2.0f, 0.0f));  // (float)0xFFFFFFFF rounds to 2^32
      EXPECT_EQ(f[1], 1.0f + 0x1p-32f * 1.0f);      // small words keep their precision
    }
  }
}

// Without AES every ARS5 routine that would run it refuses with -1140 and
// leaves the state and the output alone; seeding needs no AES.
TEST(Ars5NoAes, RefusesGenerationAndSkipAhead) {
  Stream s(kArs5, {1, 2, 3, 4, 5, 6, 7, 8});
  Stream ref(s);
  qor::rng::cbrng_pretend_missing(true, false);
  uint32_t w[5] = {1, 1, 1, 1, 1};
  float f[5] = {};
  double d[5] = {};
  const int si = __rixiBRngARS5(s.get(), 5, w);
  const int ss = __rixsBRngARS5(s.get(), 5, f, 0, 1);
  const int sd = __rixdBRngARS5(s.get(), 5, d, 0, 1);
  const int k2 = s.skip(3);
  const int k3 = s.skip_ex({3});
  const int seed = __rixBRngARS5InitStream(0, s.get(), 0, nullptr);
  const int leap = __rixBRngARS5InitStream(1, s.get(), 2, nullptr);
  qor::rng::cbrng_pretend_missing(false, false);
  EXPECT_EQ(si, -1140);
  EXPECT_EQ(ss, -1140);
  EXPECT_EQ(sd, -1140);
  EXPECT_EQ(k2, -1140);
  EXPECT_EQ(k3, -1140);
  EXPECT_EQ(seed, 0);
  EXPECT_EQ(leap, -1002);
  EXPECT_EQ(w[0], 1u);
  EXPECT_EQ(f[0], 0.0f);
  if (qor::rng::cpu_has_aes()) {
    Stream fresh(kArs5, {});
    EXPECT_EQ(s.words(6), fresh.words(6));  // only the re-seed took effect
  }
}

}  // namespace
