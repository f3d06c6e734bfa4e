// Pieces shared by the three twisted generators (MT19937, MT2203, SFMT19937):
// where the state sits in a stream block, the stream-method codes and status
// values they answer with, and the conversion of 32-bit output words to
// floating-point uniforms on [a, b).
#ifndef QOR_RNG_BRNG_TWISTER_COMMON_H
#define QOR_RNG_BRNG_TWISTER_COMMON_H

#include <smmintrin.h>

#include <cstdint>
#include <cstring>

namespace qor::rng::twister {

// Every stream block starts with a 16-byte header (identifier, flags, chunk
// list); the generator's own state follows it.
constexpr std::size_t kHeaderBytes = 16;

template <class State>
inline State *state_of(void *stream) {
  return reinterpret_cast<State *>(static_cast<char *>(stream) + kHeaderBytes);
}

inline int32_t stream_brng(const void *stream) {
  int32_t id;
  std::memcpy(&id, stream, sizeof id);
  return id;
}

enum : int32_t {
  kMethodSeed = 0,
  kMethodLeapfrog = 1,
  kMethodSkip = 2,
  kMethodSkipMulti = 3,
};

enum : int32_t {
  kOk = 0,
  kErrBadMethod = -2,
  kErrNoMemory = -4,
  kErrBadBrng = -1000,
  kErrNoLeapfrog = -1002,
  kErrNoSkip = -1003,
  kErrNoSkipMulti = -1004,
};

// The skip count of method 2 arrives as one unsigned 64-bit word behind the
// 32-bit params pointer.
inline uint64_t skip_count(const uint32_t *params) {
  uint64_t k;
  std::memcpy(&k, params, sizeof k);
  return k;
}

// Number of output words converted per pass: the integer words are produced
// into a stack buffer of this size and then scaled into the caller's array.
constexpr int kScaleChunk = 512;

// r[i] = a + u[i] * f with f = (b - a) * 2^-32 computed by the caller once per
// call.  The product is formed in the output precision.  The formula can round
// up to b itself when u is close to 2^32 (always for float, for double only
// with wide or offset intervals); such results are replaced by the largest
// value below b so that the output stays inside [a, b).
// The mapping is monotone in u, so when the largest word already lands below
// b (the usual case for doubles) the per-element bound check is skipped.
inline void scale_to_float(const uint32_t *u, int n, float *r, float a, float b, float f) {
  const bool clamp = !(a + 4294967296.0f * f < b);
  const __m128 va = _mm_set1_ps(a), vf = _mm_set1_ps(f), vb = _mm_set1_ps(b);
  const float below_b = __builtin_nextafterf(b, a);
  const __m128 vbelow = _mm_set1_ps(below_b);
  const __m128i lo_mask = _mm_set1_epi32(0xFFFF);
  const __m128 two16 = _mm_set1_ps(65536.0f);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i));
    // Exact unsigned conversion: both halves convert exactly, one rounding.
    const __m128 hi = _mm_cvtepi32_ps(_mm_srli_epi32(x, 16));
    const __m128 lo = _mm_cvtepi32_ps(_mm_and_si128(x, lo_mask));
    const __m128 uf = _mm_add_ps(_mm_mul_ps(hi, two16), lo);
    __m128 v = _mm_add_ps(va, _mm_mul_ps(uf, vf));
    if (clamp) {
      const __m128 ge = _mm_cmpge_ps(v, vb);
      v = _mm_or_ps(_mm_andnot_ps(ge, v), _mm_and_ps(ge, vbelow));
    }
    _mm_storeu_ps(r + i, v);
  }
  for (; i < n; ++i) {
    const float uf = float(u[i] >> 16) * 65536.0f + float(u[i] & 0xFFFF);
    const float v = a + uf * f;
    r[i] = v >= b ? below_b : v;
  }
}

inline void scale_to_double(const uint32_t *u, int n, double *r, double a, double b, double f) {
  const bool clamp = !(a + 4294967295.0 * f < b);
  const __m128d va = _mm_set1_pd(a), vf = _mm_set1_pd(f), vb = _mm_set1_pd(b);
  const double below_b = __builtin_nextafter(b, a);
  const __m128d vbelow = _mm_set1_pd(below_b);
  // Exact unsigned conversion without a conversion instruction: a word placed
  // under the exponent of 2^52 is the double 2^52 + u, and subtracting 2^52
  // leaves u exactly.  Four words take one load, two interleaves and two
  // subtractions.
  const __m128i exp52 = _mm_set1_epi32(0x43300000);
  const __m128d two52 = _mm_set1_pd(4503599627370496.0);
  auto finish = [&](__m128d ud, double *out) {
    __m128d v = _mm_add_pd(va, _mm_mul_pd(ud, vf));
    if (clamp) {
      const __m128d ge = _mm_cmpge_pd(v, vb);
      v = _mm_or_pd(_mm_andnot_pd(ge, v), _mm_and_pd(ge, vbelow));
    }
    _mm_storeu_pd(out, v);
  };
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i));
    const __m128d d0 = _mm_sub_pd(_mm_castsi128_pd(_mm_unpacklo_epi32(x, exp52)), two52);
    const __m128d d1 = _mm_sub_pd(_mm_castsi128_pd(_mm_unpackhi_epi32(x, exp52)), two52);
    finish(d0, r + i);
    finish(d1, r + i + 2);
  }
  for (; i < n; ++i) {
    const double v = a + double(u[i]) * f;
    r[i] = v >= b ? below_b : v;
  }
}

// Drives a generator's integer routine `fill(u, k)` through the stack buffer
// and scales each piece.
template <class Fill>
inline void generate_float(Fill fill, int n, float *r, float a, float b) {
  const float f = (b - a) * 2.3283064365386963e-10f;
  alignas(16) uint32_t buf[kScaleChunk];
  for (int done = 0; done < n;) {
    const int k = n - done < kScaleChunk ? n - done : kScaleChunk;
    fill(buf, k);
    scale_to_float(buf, k, r + done, a, b, f);
    done += k;
  }
}

template <class Fill>
inline void generate_double(Fill fill, int n, double *r, double a, double b) {
  const double f = (b - a) * 2.3283064365386963e-10;
  alignas(16) uint32_t buf[kScaleChunk];
  for (int done = 0; done < n;) {
    const int k = n - done < kScaleChunk ? n - done : kScaleChunk;
    fill(buf, k);
    scale_to_double(buf, k, r + done, a, b, f);
    done += k;
  }
}

}  // namespace qor::rng::twister

#endif
