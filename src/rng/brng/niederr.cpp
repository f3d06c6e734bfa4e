// Niederreiter quasi-random sequence in base 2 (Gray-code order), built from
// irreducible polynomials over GF(2) as Bratley, Fox and Niederreiter describe
// (ACM TOMS 18 (1992), "Implementation and tests of low-discrepancy
// sequences").
//
// Coordinate k uses the k-th irreducible polynomial p of degree e in the
// order x, x + 1, x^2 + x + 1, x^3 + x + 1, x^3 + x^2 + 1, ... (by degree,
// then by value).  Row j of its generator matrix (weight 2^-(j+1)), with
// j = q e + u and 0 <= u < e, holds the coefficients w(u), w(u+1), ... of a
// sequence w that satisfies the linear recurrence whose characteristic
// polynomial is b = p^(q+1) (degree m = e (q + 1)):
//   w(t + m) = sum over i < m of b_i w(t + i),
// started with w(0 .. eq-1) = 0 and w(eq .. m-1) = 1.  This is the expansion
// of a rational function with denominator p^(q+1) in powers of 1/x, the
// choice of numerators being the one of the published implementation.
// Column c of the matrix (index bit c) is the direction number v_c.
//
// The t-value of the first s coordinates is the sum of (degree - 1) of their
// polynomials: 0 for s <= 2.
//
// Seeds: word 0 is the dimension (absent or 0: 1; at most 318, what the state
// holds).  Word 1 selects the polynomials:
//   absent or 0  the built-in order above (further words ignored);
//   1            the caller's polynomials, one word per dimension holding the
//                coefficient bits (bit i = coefficient of x^i), each
//                irreducible, of degree 1 to 31, and all distinct;
//   2            the caller's 32 columns per dimension (32 words each, column
//                c first-to-last), each set having a one-dimensional t-value
//                of at most 30 (the worst a polynomial of degree 31 gives).
// Anything else gives -3 and leaves the stream untouched.
#include <mutex>

#include "rng/brng/qrng.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

constexpr int32_t kSeedCount = 10498;
constexpr int32_t kMaxDim = qrng::max_dim(kSeedCount);
static_assert(kMaxDim == QOR_NIEDERR_MAX_DIM);
static_assert(qrng::kHeaderWords + qrng::kWordsPerDim * kMaxDim <= kSeedCount);

// Largest one-dimensional t-value accepted in caller-supplied columns: what
// a caller-supplied polynomial of the largest accepted degree (31) gives.
constexpr int kMaxUserT = 30;

int degree(uint64_t p) { return 63 - __builtin_clzll(p); }

// a * b mod p over GF(2); a, b of degree below deg p <= 31.
uint64_t mulmod2(uint64_t a, uint64_t b, uint64_t p) {
  const int e = degree(p);
  uint64_t r = 0;
  for (int i = degree(b | 1); i >= 0; --i) {
    r <<= 1;
    if (r >> e & 1u) r ^= p;
    if (b >> i & 1u) r ^= a;
  }
  return r;
}

uint64_t gcd2(uint64_t a, uint64_t b) {
  while (b) {
    while (a && degree(a) >= degree(b)) a ^= b << (degree(a) - degree(b));
    const uint64_t t = a;
    a = b;
    b = t;
  }
  return a;
}

// Ben-Or's test: p of degree e is irreducible iff gcd(x^(2^i) - x, p) = 1
// for i = 1 .. e/2.
bool irreducible(uint64_t p) {
  if (p < 2) return false;
  const int e = degree(p);
  if (e == 1) return true;
  if (!(p & 1u)) return false;  // divisible by x
  uint64_t x2i = 2;             // x^(2^i) mod p
  for (int i = 1; i <= e / 2; ++i) {
    x2i = mulmod2(x2i, x2i, p);
    if (gcd2(p, x2i ^ 2u) != 1u) return false;
  }
  return true;
}

// The first kMaxDim irreducible polynomials in the built-in order.
const uint32_t *builtin_polynomials() {
  static uint32_t table[kMaxDim];
  static std::once_flag once;
  std::call_once(once, [] {
    int found = 0;
    for (uint32_t p = 2; found < kMaxDim; ++p)
      if (irreducible(p)) table[found++] = p;
  });
  return table;
}

// The 32 columns of the generator matrix of polynomial p.
void columns(uint32_t p, uint32_t *col) {
  const int e = degree(p);
  for (int c = 0; c < qrng::kBits; ++c) col[c] = 0;
  uint64_t b[qrng::kBits + 32] = {};  // coefficients of p^(q+1), degree < 64
  int bdeg = 0;
  b[0] = 1;
  uint8_t w[3 * qrng::kBits + 64];
  for (int j = 0; j < qrng::kBits; ++j) {
    const int u = j % e;
    if (u == 0) {
      // b <- b * p, then restart the recurrence sequence.
      const int prev = bdeg;
      uint64_t nb[qrng::kBits + 32] = {};
      for (int i = 0; i <= bdeg; ++i)
        if (b[i])
          for (int t = 0; t <= e; ++t) nb[i + t] ^= p >> t & 1u;
      bdeg += e;
      for (int i = 0; i <= bdeg; ++i) b[i] = nb[i];
      const int m = bdeg;
      for (int t = 0; t < prev; ++t) w[t] = 0;
      for (int t = prev; t < m; ++t) w[t] = 1;
      for (int t = 0; t + m < qrng::kBits + e; ++t) {
        uint8_t s = 0;
        for (int i = 0; i < m; ++i) s ^= static_cast<uint8_t>(b[i] & w[t + i]);
        w[t + m] = s;
      }
    }
    for (int c = 0; c < qrng::kBits; ++c)
      col[c] |= static_cast<uint32_t>(w[c + u]) << (qrng::kBits - 1 - j);
  }
}

void build(void *stream, uint32_t dim, const uint32_t *polys) {
  qrng::head(stream).dim = dim;
  uint32_t *v = qrng::dirs(stream);
  for (uint32_t k = 0; k < dim; ++k) {
    uint32_t col[qrng::kBits];
    columns(polys[k], col);
    for (int c = 0; c < qrng::kBits; ++c) v[static_cast<size_t>(c) * dim + k] = col[c];
  }
  qrng::start(stream);
}

int32_t seed_polynomials(void *stream, uint32_t dim, int32_t n, const uint32_t *params) {
  if (static_cast<uint64_t>(n) != 2u + dim) return QOR_RNG_ERROR_BAD_ARG;
  const uint32_t *p = params + 2;
  for (uint32_t k = 0; k < dim; ++k) {
    if (!irreducible(p[k]) || degree(p[k]) > 31) return QOR_RNG_ERROR_BAD_ARG;
    for (uint32_t i = 0; i < k; ++i)
      if (p[i] == p[k]) return QOR_RNG_ERROR_BAD_ARG;
  }
  build(stream, dim, p);
  return QOR_RNG_OK;
}

}  // namespace

namespace qor::rng::brng::niederr {
// Visible to the tests (the library itself hides it).
bool is_irreducible(uint32_t p) { return irreducible(p); }
const uint32_t *default_polynomials() { return builtin_polynomials(); }
void direction_columns(uint32_t p, uint32_t *col) { columns(p, col); }
int32_t max_dimension() { return kMaxDim; }
}  // namespace qor::rng::brng::niederr

extern "C" {

QOR_API int32_t __rixBRngNiederrInitStream(int32_t method, void *stream, int32_t n,
                                           const uint32_t *params) {
  if (method != QOR_RNG_INIT_SEED) return qrng::stream_method(method, stream, n, params);
  uint32_t dim = 1;
  if (const int32_t st = qrng::seed_dim(n, params, kMaxDim, dim); st != QOR_RNG_OK) return st;
  const uint32_t format = n >= 2 ? params[1] : qrng::kSeedDefault;
  switch (format) {
    case qrng::kSeedDefault: build(stream, dim, builtin_polynomials()); return QOR_RNG_OK;
    case qrng::kSeedPolynomials: return seed_polynomials(stream, dim, n, params);
    case qrng::kSeedDirections:
      return qrng::seed_directions(stream, dim, n, params, [](const uint32_t *col) {
        return qrng::one_dim_t(col) <= kMaxUserT;
      });
    default: return QOR_RNG_ERROR_BAD_ARG;
  }
}

QOR_API int32_t __rixiBRngNiederr(void *stream, int32_t n, void *r) {
  qrng::generate(stream, n, static_cast<uint32_t *>(r));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngNiederr(void *stream, int32_t n, double *r, double a, double b) {
  return qrng::generate_real(stream, n, r, a, b);
}

QOR_API int32_t __rixsBRngNiederr(void *stream, int32_t n, float *r, float a, float b) {
  return qrng::generate_real(stream, n, r, a, b);
}

}  // extern "C"
