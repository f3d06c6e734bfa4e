// Sobol and Niederreiter points against independent references: SciPy's
// Sobol generator (same Joe-Kuo data), GSL's base-2 Niederreiter generator,
// the van der Corput sequence, and a direct natural-order construction
// written here from the published recurrences.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "../helpers.h"
#include "qor/rng.h"

namespace {
#include "gsl_niederreiter_ref.inc"
#include "scipy_sobol_ref.inc"
}  // namespace

namespace qor::rng::brng::niederr {
const uint32_t *default_polynomials();
bool is_irreducible(uint32_t p);
int32_t max_dimension();
}  // namespace qor::rng::brng::niederr
namespace qor::rng::brng::sobol {
int32_t max_dimension();
}

using qor_test::Stream;
using qor_test::words;

namespace {

uint32_t gray(uint32_t i) { return i ^ (i >> 1); }

uint32_t bit_reverse(uint32_t x) {
  uint32_t r = 0;
  for (int b = 0; b < 32; ++b) r |= (x >> b & 1u) << (31 - b);
  return r;
}

// The delivered sequence starts at Gray-code index 1: number t of a stream of
// dimension d is coordinate t % d of the point with index t / d + 1.
TEST(QrngReference, DimensionOneIsVanDerCorputInGrayOrder) {
  for (int32_t brng : {QOR_BRNG_SOBOL, QOR_BRNG_NIEDERR}) {
    Stream s(brng, {});
    ASSERT_EQ(s.status(), 0);
    const std::vector<uint32_t> w = words(s.get(), 5000);
    for (uint32_t t = 0; t < w.size(); ++t)
      ASSERT_EQ(w[t], bit_reverse(gray(t + 1))) << brng << " number " << t;
    // The same numbers in natural order: each dyadic block is a permutation
    // of the van der Corput block.
    EXPECT_EQ(w[0], 0x80000000u);
    EXPECT_EQ(w[1], 0xC0000000u);
    EXPECT_EQ(w[2], 0x40000000u);
  }
}

TEST(QrngReference, SobolMatchesScipyInAllBuiltInDimensions) {
  ASSERT_EQ(kScipySobolDim, qor::rng::brng::sobol::max_dimension());
  Stream s(QOR_BRNG_SOBOL, {static_cast<uint32_t>(kScipySobolDim)});
  ASSERT_EQ(s.status(), 0);
  const std::vector<uint32_t> w = words(s.get(), (kScipySobolPoints - 1) * kScipySobolDim);
  for (int p = 1; p < kScipySobolPoints; ++p)
    for (int k = 0; k < kScipySobolDim; ++k)
      ASSERT_EQ(w[(p - 1) * kScipySobolDim + k], kScipySobol[p][k]) << "point " << p << " dim " << k;

  // Far into the sequence, reached by skip-ahead.
  Stream f(QOR_BRNG_SOBOL, {static_cast<uint32_t>(kScipySobolDim)});
  ASSERT_EQ(__rixSkipAheadStream(f.get(), uint64_t{kScipySobolFarIndex - 1} * kScipySobolDim), 0);
  const std::vector<uint32_t> far = words(f.get(), kScipySobolFarPoints * kScipySobolDim);
  for (int p = 0; p < kScipySobolFarPoints; ++p)
    for (int k = 0; k < kScipySobolDim; ++k)
      ASSERT_EQ(far[p * kScipySobolDim + k], kScipySobolFar[p][k]) << "far point " << p;
}

// Natural-order Sobol point i from Joe and Kuo's published first entries,
// with the direction recurrence written out independently of the library.
TEST(QrngReference, SobolMatchesDirectConstructionOfPublishedNumbers) {
  struct Dim {
    int s;
    uint32_t a;
    std::vector<uint32_t> m;
  };
  const std::vector<Dim> dims = {
      {0, 0, {}},  {1, 0, {1}},      {2, 1, {1, 3}},     {3, 1, {1, 3, 1}},
      {3, 2, {1, 1, 1}}, {4, 1, {1, 1, 3, 3}}, {4, 4, {1, 3, 5, 13}},
  };
  const uint32_t d = static_cast<uint32_t>(dims.size());
  std::vector<std::vector<uint32_t>> v(d, std::vector<uint32_t>(32));
  for (uint32_t k = 0; k < d; ++k) {
    std::vector<uint64_t> m(33, 1);
    const int s = dims[k].s;
    for (int j = 1; j <= 32; ++j) {
      if (s == 0) {
        m[j] = 1;
      } else if (j <= s) {
        m[j] = dims[k].m[j - 1];
      } else {
        // m_j = 2^s m_(j-s) xor m_(j-s) xor sum of 2^i a_i m_(j-i).
        uint64_t x = (m[j - s] << s) ^ m[j - s];
        for (int i = 1; i < s; ++i)
          if ((dims[k].a >> (s - 1 - i)) & 1u) x ^= m[j - i] << i;
        m[j] = x;
      }
      v[k][j - 1] = static_cast<uint32_t>(m[j] << (32 - j));
    }
  }
  Stream s(QOR_BRNG_SOBOL, {d});
  const int points = 3000;
  const std::vector<uint32_t> w = words(s.get(), points * static_cast<int32_t>(d));
  for (uint32_t p = 0; p < static_cast<uint32_t>(points); ++p) {
    const uint32_t g = gray(p + 1);  // natural-order index of delivered point p
    for (uint32_t k = 0; k < d; ++k) {
      uint32_t x = 0;
      for (int c = 0; c < 32; ++c)
        if (g >> c & 1u) x ^= v[k][c];
      ASSERT_EQ(w[p * d + k], x) << "point " << p << " dim " << k;
    }
  }
}

TEST(QrngReference, NiederreiterMatchesGslInItsDimensions) {
  Stream s(QOR_BRNG_NIEDERR, {static_cast<uint32_t>(kGslNiedDim)});
  ASSERT_EQ(s.status(), 0);
  const std::vector<uint32_t> w = words(s.get(), (kGslNiedPoints - 1) * kGslNiedDim);
  // GSL keeps 31 bits and starts at the origin (its point 0).
  for (int p = 1; p < kGslNiedPoints; ++p)
    for (int k = 0; k < kGslNiedDim; ++k)
      ASSERT_EQ(w[(p - 1) * kGslNiedDim + k] >> 1, kGslNied[p][k]) << "point " << p << " dim " << k;
}

TEST(QrngReference, NiederreiterPolynomialsAreTheIrreducibleOnesInOrder) {
  const uint32_t *p = qor::rng::brng::niederr::default_polynomials();
  // x, x+1, x^2+x+1, x^3+x+1, x^3+x^2+1, then the three of degree 4.
  const uint32_t first[] = {2, 3, 7, 11, 13, 19, 25, 31};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(p[i], first[i]) << i;
  // Counts of irreducible polynomials by degree (Gauss's formula):
  // 2, 1, 2, 3, 6, 9, 18, 30, 56, 99, and the first 92 of the 186 of degree 11.
  const int by_degree[] = {0, 2, 1, 2, 3, 6, 9, 18, 30, 56, 99, 92};
  const int n = qor::rng::brng::niederr::max_dimension();
  ASSERT_EQ(n, 318);
  int counts[12] = {};
  for (int i = 0; i < n; ++i) {
    ASSERT_LT(p[i], 4096u);
    ++counts[31 - __builtin_clz(p[i])];
    if (i) {
      ASSERT_LT(p[i - 1], p[i]);
    }
  }
  for (int e = 1; e < 12; ++e) EXPECT_EQ(counts[e], by_degree[e]) << e;
  // The skipped values must be reducible: spot-check by trial division.
  for (uint32_t q = 2; q < 600; ++q) {
    bool reducible = false;
    for (uint32_t f = 2; f < q && !reducible; ++f) {
      const int df = 31 - __builtin_clz(f), dq = 31 - __builtin_clz(q);
      if (df == 0 || df >= dq) continue;
      uint32_t r = q;  // r = q mod f
      while (r && 31 - __builtin_clz(r) >= df) r ^= f << ((31 - __builtin_clz(r)) - df);
      reducible = r == 0;
    }
    EXPECT_EQ(qor::rng::brng::niederr::is_irreducible(q), !reducible) << q;
  }
}

}  // namespace
