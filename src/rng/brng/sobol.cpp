// Sobol quasi-random sequence (Gray-code order) with the Joe-Kuo primitive
// polynomials and initial direction numbers.
//
// Direction numbers of one coordinate with primitive polynomial
// x^s + a_1 x^(s-1) + ... + a_(s-1) x + 1 and initial odd numbers m_1..m_s
// (m_k < 2^k) follow Bratley and Fox's recurrence
//   m_k = 2 a_1 m_(k-1) ^ 4 a_2 m_(k-2) ^ ... ^ 2^(s-1) a_(s-1) m_(k-s+1)
//         ^ 2^s m_(k-s) ^ m_(k-s),
// and column c (index bit c) is v_c = m_(c+1) 2^(31-c).  Degree 0 stands for
// the first coordinate, m_k = 1 for all k: the van der Corput sequence.
//
// Seeds: word 0 is the dimension (absent or 0: 1; at most 78, which is what
// the state holds).  Word 1 selects where the direction numbers come from:
//   absent or 0  the built-in table (further words ignored);
//   1            the caller's polynomials: for each dimension in turn the
//                words s, a, m_1 .. m_s (s <= 32, a < 2^(s-1), m_k odd and
//                below 2^k), and nothing after the last dimension;
//   2            the caller's 32 columns per dimension (32 words each, column
//                c first-to-last), each v_c having its lowest set bit at
//                2^(31-c), as m 2^(31-c) with m odd does.
// Anything else, or data that breaks these rules, gives -3 and leaves the
// stream untouched.
#include "rng/brng/qrng.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

struct SobolPoly {
  uint8_t s;
  uint16_t a;
  uint16_t m[9];
};

#include "rng/brng/sobol_directions.inc"

constexpr int32_t kSeedCount = 2604;
constexpr int32_t kMaxDim = qrng::max_dim(kSeedCount);
static_assert(kMaxDim == QOR_SOBOL_MAX_DIM && kSobolTableDims == kMaxDim);
static_assert(qrng::kHeaderWords + qrng::kWordsPerDim * kMaxDim <= kSeedCount);

// The 32 columns of one coordinate from its polynomial and initial numbers.
void columns(uint32_t s, uint32_t a, const uint32_t *m_init, uint32_t *col) {
  uint64_t m[qrng::kBits + 1];
  for (int k = 1; k <= qrng::kBits; ++k) {
    if (s == 0) {
      m[k] = 1;
    } else if (static_cast<uint32_t>(k) <= s) {
      m[k] = m_init[k - 1];
    } else {
      uint64_t x = m[k - s] ^ (m[k - s] << s);
      for (uint32_t i = 1; i < s; ++i)
        if (a >> (s - 1 - i) & 1u) x ^= m[k - i] << i;
      m[k] = x;
    }
    col[k - 1] = static_cast<uint32_t>(m[k] << (qrng::kBits - k));
  }
}

// Sobol columns are m 2^(31-c) with m odd: the lowest set bit of column c is
// bit 31 - c (the matrix is unit triangular, so every 2^m block of points
// holds one point in each dyadic interval of length 2^-m, per coordinate).
bool sobol_columns_valid(const uint32_t *col) {
  for (int c = 0; c < qrng::kBits; ++c)
    if (static_cast<uint32_t>(col[c] << c) != 0x80000000u) return false;
  return true;
}

void set_columns(void *stream, uint32_t k, const uint32_t *col) {
  const uint32_t dim = qrng::head(stream).dim;
  uint32_t *v = qrng::dirs(stream);
  for (int c = 0; c < qrng::kBits; ++c) v[static_cast<size_t>(c) * dim + k] = col[c];
}

int32_t seed_builtin(void *stream, uint32_t dim) {
  qrng::head(stream).dim = dim;
  for (uint32_t k = 0; k < dim; ++k) {
    const SobolPoly &p = kSobolTable[k];
    uint32_t m[9], col[qrng::kBits];
    for (int i = 0; i < p.s; ++i) m[i] = p.m[i];
    columns(p.s, p.a, m, col);
    set_columns(stream, k, col);
  }
  qrng::start(stream);
  return QOR_RNG_OK;
}

// Seed format 1; walks the words twice: once to validate, once to build.
int32_t seed_polynomials(void *stream, uint32_t dim, int32_t n, const uint32_t *params) {
  const uint32_t end = static_cast<uint32_t>(n);
  uint32_t w = 2;
  for (uint32_t k = 0; k < dim; ++k) {
    if (end - w < 2) return QOR_RNG_ERROR_BAD_ARG;
    const uint32_t s = params[w], a = params[w + 1];
    if (s > 32 || (s > 0 && (a >> (s - 1)) != 0) || (s == 0 && a != 0))
      return QOR_RNG_ERROR_BAD_ARG;
    w += 2;
    if (end - w < s) return QOR_RNG_ERROR_BAD_ARG;
    for (uint32_t i = 0; i < s; ++i) {
      const uint64_t m = params[w + i];
      if (!(m & 1u) || m >= (uint64_t{1} << (i + 1))) return QOR_RNG_ERROR_BAD_ARG;
    }
    w += s;
  }
  if (w != end) return QOR_RNG_ERROR_BAD_ARG;
  qrng::head(stream).dim = dim;
  w = 2;
  for (uint32_t k = 0; k < dim; ++k) {
    const uint32_t s = params[w], a = params[w + 1];
    uint32_t col[qrng::kBits];
    columns(s, a, params + w + 2, col);
    set_columns(stream, k, col);
    w += 2 + s;
  }
  qrng::start(stream);
  return QOR_RNG_OK;
}

}  // namespace

namespace qor::rng::brng::sobol {
// Visible to the tests (the library itself hides it).
void direction_columns(uint32_t s, uint32_t a, const uint32_t *m, uint32_t *col) {
  columns(s, a, m, col);
}
int32_t max_dimension() { return kMaxDim; }
}  // namespace qor::rng::brng::sobol

extern "C" {

QOR_API int32_t __rixBRngSobolInitStream(int32_t method, void *stream, int32_t n,
                                         const uint32_t *params) {
  if (method != QOR_RNG_INIT_SEED) return qrng::stream_method(method, stream, n, params);
  uint32_t dim = 1;
  if (const int32_t st = qrng::seed_dim(n, params, kMaxDim, dim); st != QOR_RNG_OK) return st;
  const uint32_t format = n >= 2 ? params[1] : qrng::kSeedDefault;
  switch (format) {
    case qrng::kSeedDefault: return seed_builtin(stream, dim);
    case qrng::kSeedPolynomials: return seed_polynomials(stream, dim, n, params);
    case qrng::kSeedDirections:
      return qrng::seed_directions(stream, dim, n, params, sobol_columns_valid);
    default: return QOR_RNG_ERROR_BAD_ARG;
  }
}

QOR_API int32_t __rixiBRngSobol(void *stream, int32_t n, void *r) {
  qrng::generate(stream, n, static_cast<uint32_t *>(r));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngSobol(void *stream, int32_t n, double *r, double a, double b) {
  return qrng::generate_real(stream, n, r, a, b);
}

QOR_API int32_t __rixsBRngSobol(void *stream, int32_t n, float *r, float a, float b) {
  return qrng::generate_real(stream, n, r, a, b);
}

}  // extern "C"
