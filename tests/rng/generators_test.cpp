// The five congruential and lagged generators against independent reference
// recurrences and the published MRG32k3a output, and the stream properties
// that every one of them must have.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "helpers.h"
#include "reference.h"

namespace {

using qor_test::Stream;
using qor_test::words;

#include "rng/brng/wh_tables.inc"

// Lengths that cross every blocking threshold of the kernels (8- and
// 16-lane blocks, the 250-word register, the 8192-output segment split).
const int32_t kLengths[] = {1, 3, 7, 8, 15, 16, 17, 33, 249, 250, 251, 1000, 8191, 8192, 20011};

TEST(Mcg31m1, MatchesReferenceRecurrence) {
  for (uint32_t seed : {1u, 7u, 123456789u, 2147483646u, 4000000000u}) {
    for (int32_t n : kLengths) {
      Stream s(QOR_BRNG_MCG31, {seed});
      ASSERT_EQ(s.status(), 0);
      qor_test::RefMcg31 ref(seed);
      const auto got = words(s.get(), n);
      for (int32_t i = 0; i < n; ++i) ASSERT_EQ(got[i], ref.next()) << "seed " << seed << " i " << i;
      EXPECT_EQ(words(s.get(), 1)[0], ref.next()) << "state after a call of " << n;
    }
  }
}

TEST(Mcg31m1, ZeroAndModulusSeedsStartAtOne) {
  for (uint32_t seed : {0u, 2147483647u}) {
    Stream s(QOR_BRNG_MCG31, {seed});
    EXPECT_EQ(words(s.get(), 1)[0], 1u);
    Stream d(QOR_BRNG_MCG31, {seed});
    EXPECT_EQ(qor_test::doubles(d.get(), 1, 2.0, 5.0)[0], 2.0 + 3.0 * 4.656612875245797e-10);
  }
  Stream none(QOR_BRNG_MCG31, {});
  EXPECT_EQ(words(none.get(), 1)[0], 1u);
}

TEST(Mcg59, MatchesReferenceRecurrence) {
  for (uint64_t seed : {1ull, 5ull, 0x123456789ABCDull, (1ull << 59) - 1}) {
    for (int32_t n : kLengths) {
      Stream s(QOR_BRNG_MCG59,
               {static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32)});
      qor_test::RefMcg59 ref(seed);
      const auto got = words(s.get(), n);
      for (int32_t i = 0; i < n; ++i) {
        const uint64_t v = got[2 * i] | (uint64_t{got[2 * i + 1]} << 32);
        ASSERT_EQ(v, ref.next()) << "i " << i;
      }
    }
  }
}

TEST(Mcg59, SeedingRules) {
  Stream one(QOR_BRNG_MCG59, {5});
  Stream two(QOR_BRNG_MCG59, {5, 0});
  EXPECT_EQ(words(one.get(), 100), words(two.get(), 100));
  Stream masked(QOR_BRNG_MCG59, {0, 1u << 27});  // 2^59 masks to 0, so x = 1
  Stream unit(QOR_BRNG_MCG59, {1});
  EXPECT_EQ(words(masked.get(), 50), words(unit.get(), 50));
}

TEST(Mrg32k3a, MatchesPublishedSequence) {
  std::ifstream in(std::string(QOR_KAT_DIR) + "/mrg32k3a_state_12345x6.txt");
  ASSERT_TRUE(in) << "known-answer file missing";
  std::vector<uint32_t> expect;
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] != '#') expect.push_back(static_cast<uint32_t>(std::stoul(line)));
  ASSERT_EQ(expect.size(), 1000u);
  Stream s(QOR_BRNG_MRG32K3A, {12345, 12345, 12345, 12345, 12345, 12345});
  const auto got = words(s.get(), 1000);
  for (size_t i = 0; i < expect.size(); ++i) {
    // The file writes a zero output as m1; our integer output keeps it 0.
    ASSERT_EQ(got[i] == 0 ? 4294967087u : got[i], expect[i]) << "i " << i;
  }
}

TEST(Mrg32k3a, MatchesReferenceRecurrence) {
  const uint32_t seeds[][6] = {{1, 2, 3, 4, 5, 6},
                               {4294967086u, 0, 0, 4294944442u, 0, 0},
                               {0, 0, 0, 0, 0, 1},
                               {987654321, 123456789, 555, 42, 4000000000u, 7}};
  for (const auto &seed : seeds) {
    for (int32_t n : kLengths) {
      Stream s(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
      uint32_t start[6];
      std::memcpy(start, seed, sizeof start);
      if ((start[0] | start[1] | start[2]) == 0) start[0] = 1;  // an all-zero component starts at 1
      if ((start[3] | start[4] | start[5]) == 0) start[3] = 1;
      qor_test::RefMrg ref(start);
      const auto got = words(s.get(), n);
      for (int32_t i = 0; i < n; ++i) ASSERT_EQ(got[i], ref.next()) << "n " << n << " i " << i;
      EXPECT_EQ(words(s.get(), 1)[0], ref.next());
    }
  }
}

TEST(Mrg32k3a, SeedingReducesAndDefaults) {
  // All bits set: 2^32-1 lowered by m gives 208 and 22852.
  Stream s(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(6, 0xFFFFFFFFu));
  const uint32_t *st = reinterpret_cast<const uint32_t *>(static_cast<char *>(s.get()) + 16);
  EXPECT_EQ(std::vector<uint32_t>(st, st + 6),
            (std::vector<uint32_t>{208, 208, 208, 22852, 22852, 22852}));
  Stream partial(QOR_BRNG_MRG32K3A, {9, 8});
  const uint32_t *p = reinterpret_cast<const uint32_t *>(static_cast<char *>(partial.get()) + 16);
  EXPECT_EQ(std::vector<uint32_t>(p, p + 6), (std::vector<uint32_t>{9, 8, 1, 1, 1, 1}));
  Stream zeros(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(6, 0));
  const uint32_t *z = reinterpret_cast<const uint32_t *>(static_cast<char *>(zeros.get()) + 16);
  EXPECT_EQ(std::vector<uint32_t>(z, z + 6), (std::vector<uint32_t>{1, 0, 0, 1, 0, 0}));
}

TEST(R250, MatchesReferenceRecurrence) {
  for (uint32_t seed : {0u, 1u, 777u, 0xFFFFFFFFu}) {
    for (int32_t n : kLengths) {
      Stream s(QOR_BRNG_R250, {seed});
      qor_test::RefR250 ref(seed);
      const auto got = words(s.get(), n);
      for (int32_t i = 0; i < n; ++i) ASSERT_EQ(got[i], ref.next()) << "n " << n << " i " << i;
      // A following short call continues from the rewritten register.
      const auto more = words(s.get(), 300);
      for (int32_t i = 0; i < 300; ++i) ASSERT_EQ(more[i], ref.next()) << "after n " << n;
    }
  }
}

TEST(R250, FullSeedIsTakenAsIs) {
  std::vector<uint32_t> seed(260);
  for (size_t i = 0; i < seed.size(); ++i) seed[i] = static_cast<uint32_t>(i * 2654435761u);
  Stream s(QOR_BRNG_R250, seed);
  const uint32_t *reg = reinterpret_cast<const uint32_t *>(static_cast<char *>(s.get()) + 16);
  for (int k = 0; k < 250; ++k) ASSERT_EQ(reg[k], seed[k]);  // no bit fixing
  EXPECT_EQ(reg[250], 0u);
  EXPECT_EQ(reg[251], 103u);
  Stream fixed(QOR_BRNG_R250, {1});
  const uint32_t *f = reinterpret_cast<const uint32_t *>(static_cast<char *>(fixed.get()) + 16);
  EXPECT_EQ(f[220], 1u);
  EXPECT_EQ(f[3] >> 31, 1u);
}

TEST(Wh, MatchesReferenceForSeveralMembers) {
  for (int32_t member : {0, 1, 100, 271, 272}) {
    for (int32_t n : kLengths) {
      const std::vector<uint32_t> seed = {123456789, 987654321, 5, 0};
      Stream s(QOR_BRNG_WH + member, seed);
      Stream d(QOR_BRNG_WH + member, seed);
      ASSERT_EQ(s.status(), 0);
      qor_test::RefWh ref(kWhModuli[member], kWhMultipliers[member], seed);
      const auto got = words(s.get(), n);
      const auto dv = qor_test::doubles(d.get(), n, -1.0, 3.0);
      ASSERT_EQ(got.size(), static_cast<size_t>(4 * n));
      for (int32_t i = 0; i < n; ++i) {
        ref.step();
        for (int k = 0; k < 4; ++k) ASSERT_EQ(got[4 * i + k], ref.x[k]) << "member " << member;
        ASSERT_EQ(dv[i], -1.0 + 4.0 * ref.fraction()) << "member " << member << " i " << i;
      }
    }
  }
}

TEST(Wh, LegacyAndCurrentIdentifiersShareTheMember) {
  Stream legacy(276, {11, 22, 33, 44});
  Stream current(QOR_BRNG_WH + 272, {11, 22, 33, 44});
  ASSERT_EQ(legacy.status(), 0);
  EXPECT_EQ(words(legacy.get(), 64), words(current.get(), 64));
  Stream other(QOR_BRNG_WH + 271, {11, 22, 33, 44});
  EXPECT_NE(words(other.get(), 64), words(Stream(276, {11, 22, 33, 44}).get(), 64));
}

TEST(Wh, SeedingDefaults) {
  Stream none(QOR_BRNG_WH, {});
  Stream ones(QOR_BRNG_WH, {1, 1, 1, 1});
  Stream zeros(QOR_BRNG_WH, {0, 16770643, 0});  // zero residues become 1
  const auto a = words(none.get(), 20);
  EXPECT_EQ(a, words(ones.get(), 20));
  EXPECT_EQ(a, words(zeros.get(), 20));
}

// ---- properties shared by every generator ---------------------------------

struct GenCase {
  const char *name;
  int32_t brng;
  std::vector<uint32_t> seed;
  bool leapfrog, skip, skip_multi;
};

// Printed by name: GoogleTest's fallback dumps the raw bytes, padding
// included, which reads uninitialised memory.
void PrintTo(const GenCase &g, std::ostream *os) { *os << g.name; }

class AllGenerators : public ::testing::TestWithParam<GenCase> {};

const GenCase kGens[] = {
    {"MCG31M1", QOR_BRNG_MCG31, {42}, true, true, false},
    {"MCG59", QOR_BRNG_MCG59, {42, 7}, true, true, false},
    {"MRG32K3A", QOR_BRNG_MRG32K3A, {1, 2, 3, 4, 5, 6}, false, true, true},
    {"R250", QOR_BRNG_R250, {42}, false, false, false},
    {"WH", QOR_BRNG_WH + 17, {42, 43, 44, 45}, true, true, false},
};

INSTANTIATE_TEST_SUITE_P(Rng, AllGenerators, ::testing::ValuesIn(kGens),
                         [](const auto &info) { return std::string(info.param.name); });

TEST_P(AllGenerators, SplitCallsEqualOneCall) {
  const GenCase &g = GetParam();
  std::mt19937 pick(12345);
  for (int trial = 0; trial < 4; ++trial) {
    Stream whole(g.brng, g.seed), parts(g.brng, g.seed), dw(g.brng, g.seed), dp(g.brng, g.seed),
        fw(g.brng, g.seed), fp(g.brng, g.seed);
    const int32_t total = 30000;
    const auto expect = words(whole.get(), total);
    const auto dexp = qor_test::doubles(dw.get(), total, 0.0, 1.0);
    const auto fexp = qor_test::floats(fw.get(), total, 0.0f, 1.0f);
    std::vector<uint32_t> got;
    std::vector<double> dgot;
    std::vector<float> fgot;
    for (int32_t done = 0; done < total;) {
      const int32_t m = std::min<int32_t>(total - done,
          trial == 0 ? 1 : static_cast<int32_t>(pick() % (trial == 3 ? 12000 : 700)));
      const auto w = words(parts.get(), m);
      got.insert(got.end(), w.begin(), w.end());
      const auto d = qor_test::doubles(dp.get(), m, 0.0, 1.0);
      dgot.insert(dgot.end(), d.begin(), d.end());
      const auto f = qor_test::floats(fp.get(), m, 0.0f, 1.0f);
      fgot.insert(fgot.end(), f.begin(), f.end());
      done += m;
      if (trial == 0 && done >= 600) {  // one-at-a-time is slow: finish in one call
        const int32_t rest = total - done;
        const auto w2 = words(parts.get(), rest);
        got.insert(got.end(), w2.begin(), w2.end());
        const auto d2 = qor_test::doubles(dp.get(), rest, 0.0, 1.0);
        dgot.insert(dgot.end(), d2.begin(), d2.end());
        const auto f2 = qor_test::floats(fp.get(), rest, 0.0f, 1.0f);
        fgot.insert(fgot.end(), f2.begin(), f2.end());
        done = total;
      }
    }
    ASSERT_EQ(got, expect) << "trial " << trial;
    ASSERT_EQ(dgot, dexp) << "trial " << trial;
    ASSERT_EQ(fgot, fexp) << "trial " << trial;
  }
}

TEST_P(AllGenerators, RealOutputIsScaledIntegerOutput) {
  const GenCase &g = GetParam();
  if (g.brng >= QOR_BRNG_WH && g.brng < QOR_BRNG_WH + 273) {
    // WH maps its combined fraction f: the double output on [0, 1) is f
    // itself, and every other interval is a + (b - a) f.
    Stream d(g.brng, g.seed), f(g.brng, g.seed), d2(g.brng, g.seed);
    const auto unit = qor_test::doubles(d.get(), 5000, 0.0, 1.0);
    const auto fv = qor_test::floats(f.get(), 5000, 1.0f, 3.0f);
    const auto dv = qor_test::doubles(d2.get(), 5000, -2.0, 6.0);
    for (int k = 0; k < 5000; ++k) {
      ASSERT_GE(unit[k], 0.0);
      ASSERT_LT(unit[k], 1.0);
      ASSERT_EQ(fv[k], 1.0f + 2.0f * static_cast<float>(unit[k])) << k;
      ASSERT_EQ(dv[k], -2.0 + 8.0 * unit[k]) << k;
    }
    return;
  }
  const double scale = g.brng == QOR_BRNG_MCG31 ? 4.656612875245797e-10
                       : g.brng == QOR_BRNG_MCG59 ? 1.734723475976807e-18
                       : g.brng == QOR_BRNG_MRG32K3A ? 2.328306549837829e-10
                                                    : 2.3283064365386963e-10;
  for (int32_t n : {5, 1000, 20000}) {
    Stream i(g.brng, g.seed), d(g.brng, g.seed), f(g.brng, g.seed);
    const auto w = words(i.get(), n);
    const auto dv = qor_test::doubles(d.get(), n, -2.0, 6.0);
    const auto fv = qor_test::floats(f.get(), n, 1.0f, 3.0f);
    const int per = g.brng == QOR_BRNG_MCG59 ? 2 : 1;
    const double dfac = 8.0 * scale;
    const float ffac = 2.0f * static_cast<float>(scale);
    for (int32_t k = 0; k < n; ++k) {
      uint64_t u = w[per * k];
      if (per == 2) u |= uint64_t{w[per * k + 1]} << 32;
      ASSERT_EQ(dv[k], -2.0 + static_cast<double>(u) * dfac) << k;
      ASSERT_EQ(fv[k], 1.0f + static_cast<float>(u) * ffac) << k;
      ASSERT_GE(dv[k], -2.0);
      ASSERT_LE(dv[k], 6.0);
    }
  }
}

TEST_P(AllGenerators, SkipAheadEqualsGenerateAndDrop) {
  const GenCase &g = GetParam();
  const uint64_t counts[] = {0, 1, 2, 3, 7, 16, 250, 1000, 65537, 1000003};
  for (uint64_t k : counts) {
    Stream skipped(g.brng, g.seed), walked(g.brng, g.seed);
    const int32_t st = __rixSkipAheadStream(skipped.get(), k);
    if (!g.skip) {
      EXPECT_EQ(st, QOR_RNG_ERROR_SKIPAHEAD_UNSUPPORTED);
      return;
    }
    ASSERT_EQ(st, 0);
    if (k) words(walked.get(), static_cast<int32_t>(k));
    ASSERT_EQ(words(skipped.get(), 100), words(walked.get(), 100)) << "k " << k;
  }
}

TEST_P(AllGenerators, MultiWordSkipAhead) {
  const GenCase &g = GetParam();
  Stream a(g.brng, g.seed);
  const uint64_t one[1] = {5};
  const int32_t st = __rixSkipAheadStreamEx(a.get(), 1, one);
  if (!g.skip_multi) {
    EXPECT_EQ(st, QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED);
    return;
  }
  ASSERT_EQ(st, 0);
  Stream b(g.brng, g.seed);
  words(b.get(), 5);
  EXPECT_EQ(words(a.get(), 50), words(b.get(), 50));
}

TEST_P(AllGenerators, LeapfrogInterleaves) {
  const GenCase &g = GetParam();
  const int32_t nstreams = 5, len = 400;
  Stream base(g.brng, g.seed);
  const auto all = words(base.get(), nstreams * (len + 1));
  const int per = static_cast<int>(all.size()) / (nstreams * (len + 1));
  // The multiplicative generators deliver x before the step, so stream k of
  // N starts at element k.  WH delivers the value after the step, and the
  // same state change (x a^k, multiplier a^N) makes stream k start at
  // element k + N - 1: the N streams still partition the sequence, from
  // element N - 1 on.
  const bool after_step = g.brng >= QOR_BRNG_WH && g.brng < QOR_BRNG_WH + 273;
  const int32_t offset = after_step ? nstreams - 1 : 0;
  for (int32_t k = 0; k < nstreams; ++k) {
    Stream s(g.brng, g.seed);
    const int32_t st = __rixLeapfrogStream(s.get(), k, nstreams);
    if (!g.leapfrog) {
      EXPECT_EQ(st, QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
      return;
    }
    ASSERT_EQ(st, 0);
    const auto got = words(s.get(), len);
    for (int32_t i = 0; i < len; ++i)
      for (int w = 0; w < per; ++w)
        ASSERT_EQ(got[per * i + w], all[per * (offset + i * nstreams + k) + w])
            << "k " << k << " i " << i;
    // A skip-ahead after a leapfrog steps through the leapfrogged sequence.
    Stream t(g.brng, g.seed);
    ASSERT_EQ(__rixLeapfrogStream(t.get(), k, nstreams), 0);
    ASSERT_EQ(__rixSkipAheadStream(t.get(), 10), 0);
    const auto after = words(t.get(), 1);
    for (int w = 0; w < per; ++w) EXPECT_EQ(after[w], all[per * (offset + 10 * nstreams + k) + w]);
  }
}

TEST_P(AllGenerators, CopyContinuesTheSequence) {
  const GenCase &g = GetParam();
  Stream src(g.brng, g.seed);
  words(src.get(), 1234);
  Stream copy;
  ASSERT_EQ(__rixCopyStream(copy.out(), src.get()), 0);
  EXPECT_EQ(words(copy.get(), 5000), words(src.get(), 5000));
  // Copying only the state into a fresh stream continues the same way.
  Stream fresh(g.brng, {99});
  ASSERT_EQ(__rixCopyStreamState(fresh.get(), src.get()), 0);
  EXPECT_EQ(words(fresh.get(), 777), words(src.get(), 777));
}

TEST_P(AllGenerators, UnknownMethodIsRefused) {
  const GenCase &g = GetParam();
  Stream s(g.brng, g.seed);
  EXPECT_EQ(qor_test::row_of(s.get()).initStream(4, s.get(), 0, nullptr), QOR_RNG_ERROR_BAD_METHOD);
  EXPECT_EQ(qor_test::row_of(s.get()).initStream(-1, s.get(), 0, nullptr), QOR_RNG_ERROR_BAD_METHOD);
}

TEST(Mrg32k3a, LongSkipAheadCounts) {
  // Multi-word counts: 2^64 + r done as two 2^63 skips plus r, and a 4-word
  // count whose high words are zero, and the period-sized jump structure.
  const uint32_t seed[6] = {1, 2, 3, 4, 5, 6};
  Stream a(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
  Stream b(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
  const uint64_t big[2] = {12345, 1};  // 2^64 + 12345
  ASSERT_EQ(__rixSkipAheadStreamEx(a.get(), 2, big), 0);
  ASSERT_EQ(__rixSkipAheadStream(b.get(), 1ull << 63), 0);
  ASSERT_EQ(__rixSkipAheadStream(b.get(), 1ull << 63), 0);
  ASSERT_EQ(__rixSkipAheadStream(b.get(), 12345), 0);
  EXPECT_EQ(words(a.get(), 20), words(b.get(), 20));

  Stream c(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
  Stream d(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
  const uint64_t padded[5] = {777, 0, 0, 0, 0};
  ASSERT_EQ(__rixSkipAheadStreamEx(c.get(), 5, padded), 0);
  words(d.get(), 777);
  EXPECT_EQ(words(c.get(), 20), words(d.get(), 20));

  // 2^192 (beyond the tables) equals 2^191 twice; and 2^200 = 2^199 twice.
  for (int bit : {192, 200}) {
    Stream e(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
    Stream f(QOR_BRNG_MRG32K3A, std::vector<uint32_t>(seed, seed + 6));
    uint64_t w1[4] = {0, 0, 0, 0}, w2[4] = {0, 0, 0, 0};
    w1[bit / 64] = 1ull << (bit % 64);
    w2[(bit - 1) / 64] = 1ull << ((bit - 1) % 64);
    ASSERT_EQ(__rixSkipAheadStreamEx(e.get(), 4, w1), 0);
    ASSERT_EQ(__rixSkipAheadStreamEx(f.get(), 4, w2), 0);
    ASSERT_EQ(__rixSkipAheadStreamEx(f.get(), 4, w2), 0);
    EXPECT_EQ(words(e.get(), 10), words(f.get(), 10)) << bit;
  }
}

TEST(Generators, EveryBuiltInRowServes) {
  // Every row of the built-in table has its generator: a default-seeded
  // stream produces words, and its integer output is not all zero.
  for (int32_t brng : {QOR_BRNG_MCG31, QOR_BRNG_R250, QOR_BRNG_MRG32K3A, QOR_BRNG_MCG59,
                       QOR_BRNG_WH, QOR_BRNG_SOBOL, QOR_BRNG_NIEDERR, QOR_BRNG_MT19937,
                       QOR_BRNG_MT2203, QOR_BRNG_SFMT19937, QOR_BRNG_ARS5,
                       QOR_BRNG_PHILOX4X32X10}) {
    void *s = nullptr;
    ASSERT_EQ(__rixNewStreamEx(&s, brng, 0, nullptr), 0) << brng;
    const GeneratorRecord &r = qor_test::row_of(s);
    uint32_t u[16] = {};
    ASSERT_EQ(r.generateI(s, 4, u), 0) << brng;
    uint32_t any = 0;
    for (uint32_t w : u) any |= w;
    EXPECT_NE(any, 0u) << brng;
    EXPECT_EQ(__rixDeleteStream(&s), 0);
  }
}

}  // namespace

namespace {

TEST_P(AllGenerators, EmptyAndNegativeCountsWriteNothing) {
  const GenCase &g = GetParam();
  Stream s(g.brng, g.seed), ref(g.brng, g.seed);
  const GeneratorRecord &row = qor_test::row_of(s.get());
  uint32_t u[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  double d[2] = {-7.0, -7.0};
  float f[2] = {-7.0f, -7.0f};
  for (int32_t n : {0, -1, -100000}) {
    EXPECT_EQ(row.generateI(s.get(), n, u), 0);
    EXPECT_EQ(row.generateD(s.get(), n, d, 0.0, 1.0), 0);
    EXPECT_EQ(row.generateS(s.get(), n, f, 0.0f, 1.0f), 0);
  }
  EXPECT_EQ(u[0], 1u);
  EXPECT_EQ(d[0], -7.0);
  EXPECT_EQ(f[0], -7.0f);
  EXPECT_EQ(words(s.get(), 40), words(ref.get(), 40));
}

}  // namespace
