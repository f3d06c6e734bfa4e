// Pieces shared by the basic generators: modular arithmetic for leapfrog and
// skip-ahead, method dispatch and the vectorised mapping of integer output
// to [a, b).
#pragma once

#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "rng/core/internal.h"

namespace qor::rng::brng {

// Number of outputs produced per pass into scratch storage by the float and
// double routines (the scratch lives on the stack).
constexpr int kChunk = 4096;

inline uint64_t mulmod(uint64_t a, uint64_t b, uint64_t m) {
  return static_cast<uint64_t>((static_cast<unsigned __int128>(a) * b) % m);
}

// a^e mod m by square and multiply over the bits of e.
inline uint64_t powmod(uint64_t a, uint64_t e, uint64_t m) {
  uint64_t r = 1 % m;
  a %= m;
  while (e) {
    if (e & 1) r = mulmod(r, a, m);
    a = mulmod(a, a, m);
    e >>= 1;
  }
  return r;
}

// a^e mod 2^59 (the MCG59 modulus); wrapping 64-bit products suffice.
inline uint64_t powmod59(uint64_t a, uint64_t e) {
  constexpr uint64_t mask = (uint64_t{1} << 59) - 1;
  uint64_t r = 1;
  while (e) {
    if (e & 1) r = (r * a) & mask;
    a = (a * a) & mask;
    e >>= 1;
  }
  return r;
}

inline uint64_t skip_count(const uint32_t *params) {
  uint64_t k;
  std::memcpy(&k, params, sizeof k);
  return k;
}

// Unsigned 32-bit lanes to doubles, exactly.
inline void u32_to_pd(__m128i v, __m128d &lo, __m128d &hi) {
  const __m128i flip = _mm_set1_epi32(static_cast<int>(0x80000000u));
  const __m128d bias = _mm_set1_pd(2147483648.0);
  const __m128i s = _mm_xor_si128(v, flip);
  lo = _mm_add_pd(_mm_cvtepi32_pd(s), bias);
  hi = _mm_add_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(s, 0x4E)), bias);
}

// Unsigned 32-bit lanes to floats with one rounding, as (float)u does: the
// two 16-bit halves convert exactly and only the final sum rounds.
inline __m128 u32_to_ps(__m128i v) {
  const __m128 hi = _mm_cvtepi32_ps(_mm_srli_epi32(v, 16));
  const __m128 lo = _mm_cvtepi32_ps(_mm_and_si128(v, _mm_set1_epi32(0xFFFF)));
  return _mm_add_ps(_mm_mul_ps(hi, _mm_set1_ps(65536.0f)), lo);
}

// r[i] = a + u[i] * f for 32-bit unsigned integers u.
inline void scale_u32(const uint32_t *u, int n, double *r, double a, double f) {
  const __m128d va = _mm_set1_pd(a), vf = _mm_set1_pd(f);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    __m128d lo, hi;
    u32_to_pd(_mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i)), lo, hi);
    _mm_storeu_pd(r + i, _mm_add_pd(va, _mm_mul_pd(lo, vf)));
    _mm_storeu_pd(r + i + 2, _mm_add_pd(va, _mm_mul_pd(hi, vf)));
  }
  for (; i < n; ++i) r[i] = a + static_cast<double>(u[i]) * f;
}

inline void scale_u32(const uint32_t *u, int n, float *r, float a, float f) {
  const __m128 va = _mm_set1_ps(a), vf = _mm_set1_ps(f);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128 x = u32_to_ps(_mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i)));
    _mm_storeu_ps(r + i, _mm_add_ps(va, _mm_mul_ps(x, vf)));
  }
  for (; i < n; ++i) r[i] = a + static_cast<float>(u[i]) * f;
}

// Float and double output through a generator's 32-bit integer kernel, one
// stack chunk at a time.
template <class Real, class Kernel>
int32_t generate_real(void *stream, int32_t n, Real *r, Real a, Real f, Kernel kernel) {
  alignas(16) uint32_t buf[kChunk];
  for (int32_t done = 0; done < n;) {
    const int m = n - done < kChunk ? n - done : kChunk;
    kernel(stream, m, buf);
    scale_u32(buf, m, r + done, a, f);
    done += m;
  }
  return QOR_RNG_OK;
}

}  // namespace qor::rng::brng
