// Stream behaviour of the quasi-random generators: low-discrepancy
// properties, call splitting, skip-ahead, leapfrog, copies, real output and
// seed validation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "../helpers.h"
#include "qor/rng.h"
#include "rng/brng/qrng.h"

namespace qor::rng::brng::sobol {
void direction_columns(uint32_t s, uint32_t a, const uint32_t *m, uint32_t *col);
}
namespace qor::rng::brng::niederr {
void direction_columns(uint32_t p, uint32_t *col);
const uint32_t *default_polynomials();
}  // namespace qor::rng::brng::niederr

using qor_test::Stream;
using qor_test::words;

namespace {

constexpr uint64_t kPeriod = 0xFFFFFFFFull;

struct Gen {
  const char *name;
  int32_t brng;
  uint32_t max_dim;
};
const Gen kGens[] = {{"sobol", QOR_BRNG_SOBOL, 78}, {"niederr", QOR_BRNG_NIEDERR, 318}};

std::vector<uint32_t> block(int32_t brng, uint32_t d, uint64_t skip, int32_t n) {
  Stream s(brng, {d});
  EXPECT_EQ(s.status(), 0);
  EXPECT_EQ(__rixSkipAheadStream(s.get(), skip), 0);
  return words(s.get(), n);
}

// Calls fn with every composition (a_1..a_d) of total into d parts.
void compositions(int d, int total, std::vector<int> &a, int k,
                  const std::function<void(const std::vector<int> &)> &fn) {
  if (k == d - 1) {
    a[k] = total;
    fn(a);
    return;
  }
  for (int x = 0; x <= total; ++x) {
    a[k] = x;
    compositions(d, total - x, a, k + 1, fn);
  }
}

// The 2^m points with Gray-code indices j 2^m .. (j+1) 2^m - 1 form a
// (t, m, d)-net: every elementary box of volume 2^(t-m) holds 2^t points.
void expect_net(int32_t brng, uint32_t d, int t, int m, uint32_t j) {
  const uint32_t n = 1u << m;
  // Delivered point p has index p + 1, so index j 2^m is point j 2^m - 1.
  const std::vector<uint32_t> w =
      block(brng, d, (uint64_t{j} * n - 1) * d, static_cast<int32_t>(n * d));
  std::vector<int> a(d);
  compositions(static_cast<int>(d), m - t, a, 0, [&](const std::vector<int> &ex) {
    std::map<uint64_t, uint32_t> count;
    for (uint32_t p = 0; p < n; ++p) {
      uint64_t key = 0;
      for (uint32_t k = 0; k < d; ++k)
        key = (key << ex[k]) | (ex[k] ? w[p * d + k] >> (32 - ex[k]) : 0);
      ++count[key];
    }
    const uint64_t boxes = uint64_t{1} << (m - t);
    ASSERT_EQ(count.size(), boxes) << brng << " d=" << d << " m=" << m;
    for (const auto &kv : count) ASSERT_EQ(kv.second, 1u << t) << brng << " d=" << d << " m=" << m;
  });
}

TEST(QrngNets, NiederreiterBlocksAreNetsWithTheConstructionTValue) {
  // t = sum of (degree - 1) over the polynomials x, x+1, x^2+x+1, x^3+x+1.
  const int t_of_dim[] = {0, 0, 0, 1, 3};
  for (uint32_t d = 1; d <= 4; ++d)
    for (int m = t_of_dim[d]; m <= 9; ++m)
      for (uint32_t j : {1u, 3u}) expect_net(QOR_BRNG_NIEDERR, d, t_of_dim[d], m, j);
}

TEST(QrngNets, OneDimensionalTValues) {
  // Niederreiter: at most degree - 1 (the construction's bound) for every
  // built-in polynomial; Sobol: 0.
  const uint32_t *p = qor::rng::brng::niederr::default_polynomials();
  for (int k = 0; k < 318; ++k) {
    uint32_t col[32];
    qor::rng::brng::niederr::direction_columns(p[k], col);
    ASSERT_LE(qor::rng::brng::qrng::one_dim_t(col), 30 - __builtin_clz(p[k])) << k;
  }
  uint32_t col[32];
  const uint32_t m[] = {1, 3, 5, 13};
  qor::rng::brng::sobol::direction_columns(4, 4, m, col);
  EXPECT_EQ(qor::rng::brng::qrng::one_dim_t(col), 0);
  // Without its last column the coordinate ignores index bit 31: a block of
  // 2^32 points takes each of 2^31 values twice, and nothing else changes.
  col[31] = 0;
  EXPECT_EQ(qor::rng::brng::qrng::one_dim_t(col), 1);
}

TEST(QrngNets, SobolBlocksAreNets) {
  // The first two Sobol coordinates form a (0, 2) sequence; every single
  // coordinate of every dimension is a (0, 1) sequence.
  for (int m = 0; m <= 10; ++m) expect_net(QOR_BRNG_SOBOL, 2, 0, m, 1);
  for (int m = 1; m <= 8; ++m) {
    const uint32_t n = 1u << m, d = 78;
    const std::vector<uint32_t> w = block(QOR_BRNG_SOBOL, d, (uint64_t{n} * 5 - 1) * d,
                                          static_cast<int32_t>(n * d));
    for (uint32_t k = 0; k < d; ++k) {
      std::vector<int> seen(n, 0);
      for (uint32_t p = 0; p < n; ++p) ++seen[w[p * d + k] >> (32 - m)];
      for (uint32_t b = 0; b < n; ++b) ASSERT_EQ(seen[b], 1) << "dim " << k << " m " << m;
    }
  }
}

// Mean of a smooth product function over the first 2^14 points, against the
// error that the same number of pseudo-random points (MCG31M1) makes.
TEST(QrngNets, IntegrationErrorFarBelowPseudoRandom) {
  const double pi = 3.14159265358979323846;
  for (const Gen &g : kGens)
    for (uint32_t d : {2u, 5u, 10u}) {
      double err[2];
      for (int32_t brng : {g.brng, static_cast<int32_t>(QOR_BRNG_MCG31)}) {
        const int32_t n = 1 << 14;
        Stream s(brng, {brng == QOR_BRNG_MCG31 ? 12345u : d});
        std::vector<double> x = qor_test::doubles(s.get(), n * static_cast<int32_t>(d), 0.0, 1.0);
        double sum = 0;
        for (int32_t p = 0; p < n; ++p) {
          double f = 1;
          for (uint32_t k = 0; k < d; ++k) f *= 0.5 * pi * std::sin(pi * x[p * d + k]);
          sum += f;
        }
        err[brng == g.brng ? 0 : 1] = std::fabs(sum / n - 1.0);
      }
      // Expected Monte Carlo error: sqrt((pi^2/8)^d - 1) / sqrt(n).
      const double mc = std::sqrt(std::pow(pi * pi / 8, d) - 1) / 128;
      // Measured at 2^14 points: d = 2 about 1e-7 (mc 6e-3), d = 5 below 1e-3
      // (mc 1.1e-2), d = 10 below 4e-3 (mc 2.1e-2).
      const double margin = d == 2 ? 1000 : d == 5 ? 8 : 4;
      EXPECT_LT(err[0], mc / margin) << g.name << " d=" << d << " pseudo-random error " << err[1];
      EXPECT_LT(err[0], err[1]) << g.name << " d=" << d;
    }
}

// The error of a quasi-Monte-Carlo mean falls close to 1/n (times powers of
// log n), a pseudo-random one as 1/sqrt(n).  The least-squares slope of
// log(error) against log(n) over n = 2^8 ... 2^17 tells the two apart; the
// points are sums over a growing prefix of one stream, so the errors at
// successive n are of one sequence, as an integration by the caller would be.
TEST(QrngNets, IntegrationErrorConvergesAtTheQuasiMonteCarloRate) {
  const double pi = 3.14159265358979323846;
  for (const Gen &g : kGens)
    for (uint32_t d : {2u, 5u, 10u}) {
      const int32_t n_max = 1 << 17;
      Stream s(g.brng, {d});
      std::vector<double> x = qor_test::doubles(s.get(), n_max * static_cast<int32_t>(d), 0.0, 1.0);
      double sum = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
      int m = 0;
      for (int32_t p = 0, next = 1 << 8; p < n_max; ++p) {
        double f = 1;
        for (uint32_t k = 0; k < d; ++k) f *= 0.5 * pi * std::sin(pi * x[p * d + k]);
        sum += f;
        if (p + 1 == next) {
          const double lx = std::log2(static_cast<double>(next));
          const double ly = std::log2(std::fabs(sum / next - 1.0));
          sx += lx, sy += ly, sxx += lx * lx, sxy += lx * ly, ++m;
          next *= 2;
        }
      }
      const double slope = (m * sxy - sx * sy) / (m * sxx - sx * sx);
      // Pseudo-random points give -0.5 on average.  Measured: Sobol -1.54,
      // -0.87, -1.36 and Niederreiter -1.54, -1.57, -0.80 for d = 2, 5, 10.
      EXPECT_LT(slope, -0.75) << g.name << " d=" << d;
    }
}

TEST(QrngStreams, SplitCallsEqualOneCall) {
  for (const Gen &g : kGens)
    for (uint32_t d : {1u, 3u, 7u, g.max_dim}) {
      Stream one(g.brng, {d}), parts(g.brng, {d}), dparts(g.brng, {d});
      const int32_t total = 4000;
      const std::vector<uint32_t> all = words(one.get(), total);
      std::vector<uint32_t> got;
      std::vector<double> dgot;
      const int32_t sizes[] = {1, 2, 3, 5, 8, 77, 1, 400, 0, 1000};
      for (int32_t i = 0; static_cast<int32_t>(got.size()) < total; ++i) {
        const int32_t m = std::min(sizes[i % 10], total - static_cast<int32_t>(got.size()));
        const std::vector<uint32_t> w = words(parts.get(), m);
        got.insert(got.end(), w.begin(), w.end());
        const std::vector<double> x = qor_test::doubles(dparts.get(), m, 0.0, 1.0);
        dgot.insert(dgot.end(), x.begin(), x.end());
      }
      ASSERT_EQ(got, all) << g.name << " d=" << d;
      for (int32_t i = 0; i < total; ++i)
        ASSERT_EQ(dgot[i], all[i] * 2.3283064365386963e-10) << g.name << " d=" << d << " " << i;
    }
}

TEST(QrngStreams, SkipAheadEqualsGenerateAndDrop) {
  for (const Gen &g : kGens)
    for (uint32_t d : {1u, 4u, 13u}) {
      Stream ref(g.brng, {d});
      const std::vector<uint32_t> all = words(ref.get(), 30000);
      for (uint64_t skip : std::vector<uint64_t>{0, 1, uint64_t{d} - 1, d, uint64_t{d} + 1, 1000,
                            12345, 29000}) {
        Stream s(g.brng, {d}), e(g.brng, {d});
        words(s.get(), 7);  // skip from a point that is partly delivered
        words(e.get(), 7);
        ASSERT_EQ(__rixSkipAheadStream(s.get(), skip), 0);
        const uint64_t ex[3] = {skip, 0, 0};
        ASSERT_EQ(__rixSkipAheadStreamEx(e.get(), 3, ex), 0);
        const std::vector<uint32_t> w = words(s.get(), 900), we = words(e.get(), 900);
        for (int i = 0; i < 900; ++i) ASSERT_EQ(w[i], all[7 + skip + i]) << g.name << skip;
        ASSERT_EQ(we, w);
      }
    }
}

TEST(QrngStreams, SequenceWrapsAfterTheLastIndexWithoutTheOrigin) {
  for (const Gen &g : kGens) {
    const uint32_t d = 3;
    Stream s(g.brng, {d}), first(g.brng, {d});
    // Two points before the end of the period.
    ASSERT_EQ(__rixSkipAheadStream(s.get(), (kPeriod - 2) * d), 0);
    const std::vector<uint32_t> tail = words(s.get(), 3 * d);
    const std::vector<uint32_t> head = words(first.get(), d);
    for (uint32_t k = 0; k < d; ++k) {
      EXPECT_NE(tail[k] | tail[d + k], 0u);
      EXPECT_EQ(tail[2 * d + k], head[k]) << g.name;  // back to index 1
    }
    // The same through a multi-word count of one period plus 5 numbers.
    const unsigned __int128 c = static_cast<unsigned __int128>(kPeriod) * d * 1000 + 5;
    const uint64_t ex[2] = {static_cast<uint64_t>(c), static_cast<uint64_t>(c >> 64)};
    Stream m(g.brng, {d}), r(g.brng, {d});
    ASSERT_EQ(__rixSkipAheadStreamEx(m.get(), 2, ex), 0);
    ASSERT_EQ(__rixSkipAheadStream(r.get(), 5), 0);
    EXPECT_EQ(words(m.get(), 20), words(r.get(), 20)) << g.name;
  }
}

TEST(QrngStreams, LeapfrogDeliversOneDimension) {
  for (const Gen &g : kGens) {
    const uint32_t d = 5;
    Stream ref(g.brng, {d});
    const std::vector<uint32_t> all = words(ref.get(), 5000);
    for (uint32_t k = 0; k < d; ++k) {
      Stream s(g.brng, {d});
      ASSERT_EQ(__rixLeapfrogStream(s.get(), static_cast<int32_t>(k), static_cast<int32_t>(d)), 0);
      const std::vector<uint32_t> w = words(s.get(), 600);
      for (uint32_t p = 0; p < 600; ++p) ASSERT_EQ(w[p], all[p * d + k]) << g.name << k;
      // Skip-ahead then counts points of the leapfrogged stream.
      ASSERT_EQ(__rixSkipAheadStream(s.get(), 99), 0);
      EXPECT_EQ(words(s.get(), 1)[0], all[(600 + 99) * d + k]);
    }
    // From the middle of a point: coordinate 1 of the current point is still
    // due, coordinate 0 is not.
    for (uint32_t k : {0u, 1u}) {
      Stream s(g.brng, {d});
      words(s.get(), d + 1);
      ASSERT_EQ(__rixLeapfrogStream(s.get(), static_cast<int32_t>(k), static_cast<int32_t>(d)), 0);
      EXPECT_EQ(words(s.get(), 1)[0], all[(k == 1 ? 1 : 2) * d + k]) << g.name << k;
    }
    Stream bad(g.brng, {d});
    const std::vector<uint32_t> before = words(bad.get(), 3);
    EXPECT_EQ(__rixLeapfrogStream(bad.get(), 0, 4), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
    EXPECT_EQ(__rixLeapfrogStream(bad.get(), 5, 5), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
    EXPECT_EQ(__rixLeapfrogStream(bad.get(), -1, 5), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
    EXPECT_EQ(__rixLeapfrogStream(bad.get(), 0, -5), QOR_RNG_ERROR_LEAPFROG_NSTREAMS);
    EXPECT_EQ(words(bad.get(), 3), std::vector<uint32_t>(all.begin() + 3, all.begin() + 6));
  }
}

TEST(QrngStreams, CopiesContinueTheSource) {
  for (const Gen &g : kGens) {
    Stream s(g.brng, {9});
    words(s.get(), 1234);
    Stream c;
    ASSERT_EQ(__rixCopyStream(c.out(), s.get()), 0);
    Stream st(g.brng, {9});
    ASSERT_EQ(__rixCopyStreamState(st.get(), s.get()), 0);
    const std::vector<uint32_t> w = words(s.get(), 3000);
    EXPECT_EQ(words(c.get(), 3000), w) << g.name;
    EXPECT_EQ(words(st.get(), 3000), w) << g.name;
  }
}

TEST(QrngStreams, RealOutputStaysBelowB) {
  for (const Gen &g : kGens) {
    // Gray-code index 0xAAAAAAAA has gray code 0xFFFFFFFF: in dimension 1 its
    // coordinate is 2^32 - 1, which single precision rounds up to 2^32.
    for (int type = 0; type < 2; ++type) {
      Stream s(g.brng, {});
      ASSERT_EQ(__rixSkipAheadStream(s.get(), 0xAAAAAAAAull - 1), 0);
      const GeneratorRecord &row = qor_test::row_of(s.get());
      if (type == 0) {
        float f[2];
        ASSERT_EQ(row.generateS(s.get(), 2, f, 2.0f, 3.0f), 0);
        EXPECT_LT(f[0], 3.0f);
        EXPECT_GE(f[0], std::nextafter(3.0f, 2.0f));
      } else {
        double x[2];
        ASSERT_EQ(row.generateD(s.get(), 2, x, -1.0, 1.0), 0);
        EXPECT_LT(x[0], 1.0);
        EXPECT_EQ(x[0], -1.0 + 2.0 * 4294967295.0 / 4294967296.0);
      }
    }
  }
}

TEST(QrngSeeds, UserDirectionDataReproducesTheBuiltInTables) {
  const uint32_t d = 4;
  // Sobol, format 1: the Joe-Kuo rows of the first four dimensions.
  Stream def(QOR_BRNG_SOBOL, {d});
  Stream poly(QOR_BRNG_SOBOL, {d, 1, 0, 0, 1, 0, 1, 2, 1, 1, 3, 3, 1, 1, 3, 1});
  ASSERT_EQ(poly.status(), 0);
  const std::vector<uint32_t> ref = words(def.get(), 500);
  EXPECT_EQ(words(poly.get(), 500), ref);
  // Sobol, format 2: the same columns written out.
  std::vector<uint32_t> seed = {d, 2};
  const uint32_t m[4][3] = {{0}, {1}, {1, 3}, {1, 3, 1}};
  const uint32_t s_of[4] = {0, 1, 2, 3}, a_of[4] = {0, 0, 1, 1};
  for (uint32_t k = 0; k < d; ++k) {
    uint32_t col[32];
    qor::rng::brng::sobol::direction_columns(s_of[k], a_of[k], m[k], col);
    seed.insert(seed.end(), col, col + 32);
  }
  Stream cols(QOR_BRNG_SOBOL, seed);
  ASSERT_EQ(cols.status(), 0);
  EXPECT_EQ(words(cols.get(), 500), ref);

  // Niederreiter, formats 1 and 2.
  const uint32_t *p = qor::rng::brng::niederr::default_polynomials();
  Stream ndef(QOR_BRNG_NIEDERR, {d});
  Stream npoly(QOR_BRNG_NIEDERR, {d, 1, p[0], p[1], p[2], p[3]});
  ASSERT_EQ(npoly.status(), 0);
  const std::vector<uint32_t> nref = words(ndef.get(), 500);
  EXPECT_EQ(words(npoly.get(), 500), nref);
  std::vector<uint32_t> nseed = {d, 2};
  for (uint32_t k = 0; k < d; ++k) {
    uint32_t col[32];
    qor::rng::brng::niederr::direction_columns(p[k], col);
    nseed.insert(nseed.end(), col, col + 32);
  }
  Stream ncols(QOR_BRNG_NIEDERR, nseed);
  ASSERT_EQ(ncols.status(), 0);
  EXPECT_EQ(words(ncols.get(), 500), nref);
  // Other polynomials give other, still valid, sequences: x^5 + x^2 + 1 alone.
  Stream other(QOR_BRNG_NIEDERR, {1, 1, 37});
  ASSERT_EQ(other.status(), 0);
  EXPECT_NE(words(other.get(), 8), words(Stream(QOR_BRNG_NIEDERR, {}).get(), 8));
}

TEST(QrngSeeds, DefaultsAndBadSeeds) {
  for (const Gen &g : kGens) {
    // No seed, dimension 0 and dimension 1 are the same stream; extra words
    // after format 0 are ignored.
    Stream a(g.brng, {}), b(g.brng, {0}), c(g.brng, {1, 0, 77, 5});
    const std::vector<uint32_t> w = words(a.get(), 64);
    EXPECT_EQ(words(b.get(), 64), w);
    EXPECT_EQ(words(c.get(), 64), w);
    Stream top(g.brng, {g.max_dim});
    EXPECT_EQ(top.status(), 0) << g.name;
    words(top.get(), 10000);
  }
  const std::vector<std::vector<uint32_t>> bad_sobol = {
      {79},                                    // beyond the state
      {0xFFFFFFFFu},                           //
      {1, 3},                                  // unknown format
      {1, 1},                                  // format 1 without data
      {1, 1, 2, 1, 1, 2},                      // m_2 even
      {1, 1, 2, 1, 1, 5},                      // m_2 >= 4
      {1, 1, 2, 2, 1, 3},                      // a needs s - 1 = 1 bit
      {1, 1, 2, 1, 1, 3, 0},                   // trailing word
      {2, 1, 1, 0, 1},                         // second dimension missing
      {1, 1, 33, 0},                           // degree beyond 32
      {1, 2, 0x80000000u},                     // format 2 too short
  };
  for (const auto &seed : bad_sobol) {
    Stream s(QOR_BRNG_SOBOL, seed);
    EXPECT_EQ(s.status(), QOR_RNG_ERROR_BAD_ARG) << seed.size();
  }
  std::vector<uint32_t> cols = {1, 2};
  for (int c = 0; c < 32; ++c) cols.push_back(1u << (31 - c));
  Stream vdc(QOR_BRNG_SOBOL, cols);
  EXPECT_EQ(vdc.status(), 0);
  cols[2 + 5] |= 1u;  // a bit below column 5's lowest allowed bit
  Stream s1(QOR_BRNG_SOBOL, cols);
  EXPECT_EQ(s1.status(), QOR_RNG_ERROR_BAD_ARG);
  cols[2 + 5] = 1u << (31 - 5) | 1u << 31;  // bits above are free
  Stream s2(QOR_BRNG_SOBOL, cols);
  EXPECT_EQ(s2.status(), 0);
  for (int c = 1; c < 32; ++c) cols[2 + c] = 0;  // only column 0: t = 31
  Stream s3(QOR_BRNG_NIEDERR, cols);
  EXPECT_EQ(s3.status(), QOR_RNG_ERROR_BAD_ARG);
  cols[2 + 1] = 1u << 30;  // columns 0 and 1: t = 30, the weakest accepted
  Stream s4(QOR_BRNG_NIEDERR, cols);
  EXPECT_EQ(s4.status(), 0);

  const std::vector<std::vector<uint32_t>> bad_nied = {
      {319}, {2, 7}, {1, 1}, {1, 1, 5},  // x^2 + 1 = (x + 1)^2
      {2, 1, 7, 7},                      // repeated
      {1, 1, 1},                         // constant
      {1, 1, 0},                         //
      {1, 1, 7, 11},                     // one polynomial too many
  };
  for (const auto &seed : bad_nied) {
    Stream s(QOR_BRNG_NIEDERR, seed);
    EXPECT_EQ(s.status(), QOR_RNG_ERROR_BAD_ARG) << seed[0];
  }
  // A failed seeding leaves a stream untouched.
  for (const Gen &g : kGens) {
    Stream s(g.brng, {3});
    const std::vector<uint32_t> ahead = words(Stream(g.brng, {3}).get(), 20);
    words(s.get(), 10);
    const uint32_t bad[] = {1000000};
    EXPECT_EQ(qor_test::row_of(s.get()).initStream(QOR_RNG_INIT_SEED, s.get(), 1, bad),
              QOR_RNG_ERROR_BAD_ARG);
    EXPECT_EQ(words(s.get(), 10), std::vector<uint32_t>(ahead.begin() + 10, ahead.end()));
    EXPECT_EQ(qor_test::row_of(s.get()).initStream(9, s.get(), 0, nullptr),
              QOR_RNG_ERROR_BAD_METHOD);
  }
}

}  // namespace

namespace {

TEST(QrngStreams, LegacyIdentifiersAndFloatOutput) {
  // Legacy rows 277 and 278 are the same generators.
  for (const auto &[legacy, current] : {std::pair<int32_t, int32_t>{277, QOR_BRNG_SOBOL},
                                        std::pair<int32_t, int32_t>{278, QOR_BRNG_NIEDERR}}) {
    Stream l(legacy, {6}), c(current, {6});
    ASSERT_EQ(l.status(), 0);
    const std::vector<uint32_t> w = words(c.get(), 600);
    EXPECT_EQ(words(l.get(), 600), w) << legacy;
    // Single precision: a + u (b - a) 2^-32 in float, continuing the stream.
    Stream f(current, {6});
    std::vector<float> x(600);
    ASSERT_EQ(qor_test::row_of(f.get()).generateS(f.get(), 600, x.data(), -2.0f, 6.0f), 0);
    const float scale = 8.0f * 2.3283064365386963e-10f;
    for (int i = 0; i < 600; ++i) {
      ASSERT_EQ(x[i], -2.0f + static_cast<float>(w[i]) * scale) << i;
      ASSERT_GT(x[i], -2.0f);
    }
  }
}

}  // namespace
