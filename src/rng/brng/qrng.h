// Engine shared by the two quasi-random generators (Sobol and Niederreiter
// base 2).  Both are digital sequences in base 2: coordinate k of point i is
// the GF(2) product of a 32x32 generator matrix with the digits of i, stored
// as 32 "direction numbers" (the matrix columns as 32-bit words, the most
// significant bit being the weight 1/2).  Points are taken in Gray-code order
// (Antonov and Saleev), so point i+1 follows from point i by one xor per
// coordinate with the direction number of the lowest zero bit of i.
//
// Stream state, in 32-bit words after the stream header:
//   [0] dim      number of coordinates per point, 1 .. max_dim
//   [1] leap     the coordinate a leapfrogged stream delivers, kNoLeap if none
//   [2] index    Gray-code index of the current point, 1 .. 2^32 - 1
//   [3] coord    next coordinate of the current point to deliver, 0 .. dim-1
//   [4 .. 4+dim)                 the current point
//   [4+dim .. 4+dim+32 dim)      direction numbers, bit-major: v[c * dim + k]
// Everything lives inside the registry's seedCount words, so copying the state
// words copies the whole generator.  The point with index 0 (the origin) is
// never delivered: the sequence runs over the indices 1 .. 2^32 - 1 and then
// starts again at 1, so its period is 2^32 - 1 points.
#pragma once

#include <smmintrin.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "rng/brng/common.h"

namespace qor::rng::brng::qrng {

constexpr int kBits = 32;
constexpr int kHeaderWords = 4;
constexpr int kWordsPerDim = 1 + kBits;
constexpr uint32_t kNoLeap = 0xFFFFFFFFu;
constexpr uint64_t kPeriod = 0xFFFFFFFFull;  // points per period

// Largest dimension whose state fits in seed_count words.
constexpr int32_t max_dim(int32_t seed_count) {
  return (seed_count - kHeaderWords) / kWordsPerDim;
}

// Seed format codes (seed word 1).
constexpr uint32_t kSeedDefault = QOR_QRNG_SEED_DEFAULT;
constexpr uint32_t kSeedPolynomials = QOR_QRNG_SEED_POLYNOMIALS;
constexpr uint32_t kSeedDirections = QOR_QRNG_SEED_DIRECTIONS;

struct Header {
  uint32_t dim;
  uint32_t leap;
  uint32_t index;
  uint32_t coord;
};

inline Header &head(void *stream) { return *state<Header>(stream); }
inline uint32_t *point(void *stream) { return state<uint32_t>(stream) + kHeaderWords; }
inline uint32_t *dirs(void *stream) { return point(stream) + head(stream).dim; }

// Point with Gray-code index i, computed directly from the bits of gray(i).
inline void point_at(const uint32_t *v, uint32_t dim, uint32_t i, uint32_t *x) {
  const uint32_t g = i ^ (i >> 1);
  for (uint32_t k = 0; k < dim; ++k) x[k] = 0;
  for (int c = 0; c < kBits; ++c)
    if (g >> c & 1u) {
      const uint32_t *row = v + static_cast<size_t>(c) * dim;
      for (uint32_t k = 0; k < dim; ++k) x[k] ^= row[k];
    }
}

inline uint32_t coordinate_at(const uint32_t *v, uint32_t dim, uint32_t k, uint32_t i) {
  const uint32_t g = i ^ (i >> 1);
  uint32_t x = 0;
  for (int c = 0; c < kBits; ++c)
    if (g >> c & 1u) x ^= v[static_cast<size_t>(c) * dim + k];
  return x;
}

// Finishes seeding once the direction numbers are in place: the stream starts
// at point 1 (the first point after the origin).
inline void start(void *stream) {
  Header &h = head(stream);
  h.leap = kNoLeap;
  h.index = 1;
  h.coord = 0;
  point_at(dirs(stream), h.dim, 1, point(stream));
}

// Moves the stream to Gray-code index i (1 .. 2^32 - 1).
inline void move_to(void *stream, uint32_t i) {
  Header &h = head(stream);
  h.index = i;
  if (h.leap != kNoLeap)
    point(stream)[h.leap] = coordinate_at(dirs(stream), h.dim, h.leap, i);
  else
    point_at(dirs(stream), h.dim, i, point(stream));
}

// Position of the next number in the stream's own output sequence: numbers
// for an interleaved stream, points for a leapfrogged one.  The period in the
// same unit is returned through period.
inline uint64_t position(void *stream, uint64_t &period) {
  const Header &h = head(stream);
  if (h.leap != kNoLeap) {
    period = kPeriod;
    return h.index - 1u;
  }
  period = kPeriod * h.dim;
  return (uint64_t{h.index} - 1u) * h.dim + h.coord;
}

inline void set_position(void *stream, uint64_t pos) {
  Header &h = head(stream);
  if (h.leap != kNoLeap) {
    move_to(stream, static_cast<uint32_t>(pos + 1));
  } else {
    h.coord = static_cast<uint32_t>(pos % h.dim);
    move_to(stream, static_cast<uint32_t>(pos / h.dim + 1));
  }
}

// Skip-ahead by a count of numbers given as nwords little-endian 64-bit words
// (read bytewise: the caller's array may be only 4-byte aligned).  The count
// is reduced modulo the period by Horner's scheme in 128-bit arithmetic, then
// the new point is formed directly from its index.
inline int32_t skip(void *stream, int32_t nwords, const void *count) {
  uint64_t period = 0;
  const uint64_t pos = position(stream, period);
  unsigned __int128 r = 0;
  for (int32_t w = nwords - 1; w >= 0; --w) {
    uint64_t word;
    std::memcpy(&word, static_cast<const unsigned char *>(count) + 8 * w, sizeof word);
    r = ((r << 64) | word) % period;
  }
  set_position(stream, static_cast<uint64_t>((r + pos) % period));
  return QOR_RNG_OK;
}

// Leapfrog: the stream becomes coordinate k of its points (stream k of the
// nstreams = dim interleaved streams).  It continues from the first point
// whose coordinate k it has not delivered yet.
inline int32_t leapfrog(void *stream, uint32_t k, int32_t nstreams) {
  Header &h = head(stream);
  if (nstreams < 0 || static_cast<uint32_t>(nstreams) != h.dim || k >= h.dim)
    return QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED;
  uint32_t i = h.index;
  if (h.leap == kNoLeap && h.coord > k) i = i == kPeriod ? 1u : i + 1u;
  h.leap = k;
  h.coord = 0;
  move_to(stream, i);
  return QOR_RNG_OK;
}

// Steps every coordinate from index i to index i + 1 (the Gray code flips the
// lowest zero bit of i); from the last index of a period back to index 1.
inline uint32_t step_all(uint32_t *x, const uint32_t *v, uint32_t dim, uint32_t i) {
  if (i == kPeriod) {
    std::memcpy(x, v, sizeof(uint32_t) * dim);
    return 1;
  }
  const uint32_t *row = v + static_cast<size_t>(__builtin_ctz(~i)) * dim;
  uint32_t k = 0;
  for (; k + 4 <= dim; k += 4) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(x + k));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + k));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(x + k), _mm_xor_si128(a, b));
  }
  for (; k < dim; ++k) x[k] ^= row[k];
  return i + 1;
}

// n integer outputs: interleaved coordinates, or one coordinate when
// leapfrogged.
inline void generate(void *stream, int32_t n, uint32_t *r) {
  Header &h = head(stream);
  uint32_t *x = point(stream);
  const uint32_t *v = dirs(stream);
  const uint32_t dim = h.dim;
  uint32_t i = h.index;
  if (h.leap != kNoLeap || dim == 1) {
    // One coordinate per point: a running xor with the column of the lowest
    // zero bit of the index.
    const uint32_t k = dim == 1 ? 0 : h.leap;
    const uint32_t *col = v + k;
    uint32_t y = x[k];
    for (int32_t t = 0; t < n; ++t) {
      r[t] = y;
      if (i == kPeriod) {
        y = col[0];
        i = 1;
      } else {
        y ^= col[static_cast<size_t>(__builtin_ctz(~i)) * dim];
        ++i;
      }
    }
    x[k] = y;
    h.index = i;
    return;
  }
  uint32_t c = h.coord;
  int32_t t = 0;
  while (t < n) {
    const uint32_t take = static_cast<uint32_t>(n - t) < dim - c ? static_cast<uint32_t>(n - t)
                                                                  : dim - c;
    std::memcpy(r + t, x + c, sizeof(uint32_t) * take);
    t += static_cast<int32_t>(take);
    c += take;
    if (c == dim) {
      i = step_all(x, v, dim, i);
      c = 0;
    }
  }
  h.index = i;
  h.coord = c;
}

// r[t] = min(a + u[t] f, top) for the float and double forms.
inline void scale_clamp(const uint32_t *u, int n, double *r, double a, double f, double top) {
  const __m128d va = _mm_set1_pd(a), vf = _mm_set1_pd(f), vt = _mm_set1_pd(top);
  int t = 0;
  for (; t + 4 <= n; t += 4) {
    __m128d lo, hi;
    u32_to_pd(_mm_loadu_si128(reinterpret_cast<const __m128i *>(u + t)), lo, hi);
    _mm_storeu_pd(r + t, _mm_min_pd(_mm_add_pd(va, _mm_mul_pd(lo, vf)), vt));
    _mm_storeu_pd(r + t + 2, _mm_min_pd(_mm_add_pd(va, _mm_mul_pd(hi, vf)), vt));
  }
  for (; t < n; ++t) {
    const double x = a + static_cast<double>(u[t]) * f;
    r[t] = x < top ? x : top;
  }
}

inline void scale_clamp(const uint32_t *u, int n, float *r, float a, float f, float top) {
  const __m128 va = _mm_set1_ps(a), vf = _mm_set1_ps(f), vt = _mm_set1_ps(top);
  int t = 0;
  for (; t + 4 <= n; t += 4) {
    const __m128 x = u32_to_ps(_mm_loadu_si128(reinterpret_cast<const __m128i *>(u + t)));
    _mm_storeu_ps(r + t, _mm_min_ps(_mm_add_ps(va, _mm_mul_ps(x, vf)), vt));
  }
  for (; t < n; ++t) {
    const float x = a + static_cast<float>(u[t]) * f;
    r[t] = x < top ? x : top;
  }
}

// Float and double output: u 2^-32 mapped onto [a, b).  The origin is never
// delivered, so u >= 1; the largest u rounds up to b in single precision (and
// can for unlucky a, b in double), so results are held just below b.  For
// a >= b (which the caller's checks exclude) no clamp is applied.
template <class Real>
inline int32_t generate_real(void *stream, int32_t n, Real *r, Real a, Real b) {
  constexpr Real kScale = static_cast<Real>(2.3283064365386963e-10);  // 2^-32
  const Real f = (b - a) * kScale;
  const Real top = a < b ? std::nextafter(b, a) : std::numeric_limits<Real>::infinity();
  alignas(16) uint32_t buf[kChunk];
  for (int32_t done = 0; done < n;) {
    const int m = n - done < kChunk ? n - done : kChunk;
    generate(stream, m, buf);
    scale_clamp(buf, m, r + done, a, f, top);
    done += m;
  }
  return QOR_RNG_OK;
}

// Reads the dimension from seed word 0 (absent or 0: 1).  Returns 0 when it
// fits, else the status to report.
inline int32_t seed_dim(int32_t n, const uint32_t *params, int32_t limit, uint32_t &dim) {
  dim = n >= 1 ? params[0] : 1u;
  if (dim == 0) dim = 1;
  return dim <= static_cast<uint32_t>(limit) ? QOR_RNG_OK : QOR_RNG_ERROR_BAD_ARG;
}

// Seed format 2: the full direction table, 32 words per dimension in
// dimension-major order (word 2 + 32 k + c is column c of dimension k, the
// image of index bit c).  valid(columns) decides whether one dimension's 32
// columns are acceptable.  Everything is checked before anything is written.
template <class Valid>
inline int32_t seed_directions(void *stream, uint32_t dim, int32_t n, const uint32_t *params,
                               Valid valid) {
  if (static_cast<uint64_t>(n) != 2u + uint64_t{kBits} * dim) return QOR_RNG_ERROR_BAD_ARG;
  const uint32_t *src = params + 2;
  for (uint32_t k = 0; k < dim; ++k)
    if (!valid(src + static_cast<size_t>(k) * kBits)) return QOR_RNG_ERROR_BAD_ARG;
  head(stream).dim = dim;
  uint32_t *v = dirs(stream);
  for (uint32_t k = 0; k < dim; ++k)
    for (int c = 0; c < kBits; ++c) v[static_cast<size_t>(c) * dim + k] = src[k * kBits + c];
  start(stream);
  return QOR_RNG_OK;
}

// One-dimensional quality parameter t of a coordinate given by its 32
// columns (bit 31 = weight 1/2): the least t such that, for every m, each
// block of 2^m consecutive points aligned on 2^m holds 2^t points in every
// dyadic interval of length 2^(t-m).  That holds for m exactly when the top
// m - t rows of the first m columns are linearly independent, so
// t = max over m of (m - rho(m)), rho(m) being the number of leading rows of
// the first m columns that are independent.  Sobol coordinates have t = 0,
// the Niederreiter coordinate of a polynomial of degree e at most e - 1.
inline int one_dim_t(const uint32_t *col) {
  uint32_t row[kBits] = {};  // row j: bit c = digit j of column c
  for (int c = 0; c < kBits; ++c)
    for (int j = 0; j < kBits; ++j) row[j] |= (col[c] >> (kBits - 1 - j) & 1u) << c;
  int t = 0;
  for (int m = 1; m <= kBits; ++m) {
    const uint32_t mask = m == kBits ? 0xFFFFFFFFu : (1u << m) - 1u;
    uint32_t basis[kBits] = {};  // basis[b]: reduced vector with top bit b
    int rho = 0;
    for (; rho < m; ++rho) {
      uint32_t w = row[rho] & mask;
      while (w && basis[31 - __builtin_clz(w)]) w ^= basis[31 - __builtin_clz(w)];
      if (!w) break;
      basis[31 - __builtin_clz(w)] = w;
    }
    if (m - rho > t) t = m - rho;
  }
  return t;
}

// Methods 1 to 3 and the unknown-method answer, common to both generators.
inline int32_t stream_method(int32_t method, void *stream, int32_t n, const uint32_t *params) {
  switch (method) {
    case QOR_RNG_INIT_LEAPFROG: return leapfrog(stream, params[0], n);
    case QOR_RNG_INIT_SKIPAHEAD: return skip(stream, 1, params);
    case QOR_RNG_INIT_SKIPAHEADEX:
      if (n < 0) return QOR_RNG_ERROR_BAD_ARG;
      return skip(stream, n, params);
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

}  // namespace qor::rng::brng::qrng
