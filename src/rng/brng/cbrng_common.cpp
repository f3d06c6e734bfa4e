// Helpers shared by the counter-based and RDRAND generators: processor
// feature checks, skip-count arithmetic and the scaling of 32-bit words to
// floating-point uniforms.  Plain SSE4.2 code: no AES or RDRAND here.
#include <cpuid.h>
#include <smmintrin.h>

#include <cmath>
#include <cstring>

#include "rng/brng/cbrng.h"

namespace qor::rng {
namespace {

bool cpuid1_ecx_bit(unsigned bit) {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  return (c >> bit) & 1u;
}

bool g_pretend_no_aes = false;
bool g_pretend_no_rdrand = false;

}  // namespace

// Queried once (on first use, so that no static initialisation order
// matters); the answer cannot change while the process runs.
bool cpu_has_aes() {
  static const bool has = cpuid1_ecx_bit(25);
  return has && !g_pretend_no_aes;
}

bool cpu_has_rdrand() {
  static const bool has = cpuid1_ecx_bit(30);
  return has && !g_pretend_no_rdrand;
}

void cbrng_pretend_missing(bool aes_missing, bool rdrand_missing) {
  g_pretend_no_aes = aes_missing;
  g_pretend_no_rdrand = rdrand_missing;
}

SkipCount skip_count_single(const unsigned int *params) {
  SkipCount k{{0, 0, 0}};
  if (params) std::memcpy(&k.w[0], params, sizeof(uint64_t));
  return k;
}

SkipCount skip_count_multi(int n, const unsigned int *params) {
  SkipCount k{{0, 0, 0}};
  const int words = n < 0 ? 0 : (n > 3 ? 3 : n);
  if (params && words > 0) std::memcpy(k.w, params, sizeof(uint64_t) * words);
  return k;
}

SkipSplit split_skip(const SkipCount &k, uint32_t remaining) {
  SkipSplit s{};
  if (k.w[1] == 0 && k.w[2] == 0 && k.w[0] <= remaining) {
    s.within = true;
    return s;
  }
  // d = k - remaining over 192 bits (k > remaining, so d >= 1).
  uint64_t d[3];
  d[0] = k.w[0] - remaining;
  uint64_t borrow = k.w[0] < remaining;
  d[1] = k.w[1] - borrow;
  borrow = k.w[1] < borrow;
  d[2] = k.w[2] - borrow;
  s.d_mod4 = static_cast<uint32_t>(d[0] & 3);
  // floor(d / 4): a 2-bit shift across the words; bits above 2^128 wrap away,
  // as the 128-bit counter itself does.
  s.q[0] = (d[0] >> 2) | (d[1] << 62);
  s.q[1] = (d[1] >> 2) | (d[2] << 62);
  // floor((d - 1) / 4) = floor(d / 4) - 1 when 4 divides d, else floor(d / 4).
  s.qm1[0] = s.q[0];
  s.qm1[1] = s.q[1];
  if (s.d_mod4 == 0) {
    s.qm1[1] -= (s.qm1[0] == 0);
    s.qm1[0] -= 1;
  }
  return s;
}

void scale_u32_to_float(const uint32_t *u, int n, float *r, float a, float b) {
  const float scale = (b - a) * 2.3283064365386963e-10f;
  const float top = std::nextafter(b, -INFINITY);  // largest float below b
  const __m128 va = _mm_set1_ps(a), vs = _mm_set1_ps(scale), vtop = _mm_set1_ps(top);
  const __m128i lo16 = _mm_set1_epi32(0xFFFF);
  const __m128 k65536 = _mm_set1_ps(65536.0f);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i));
    // Exact u -> float conversion with one rounding: hi * 2^16 is exact and the
    // sum with the low half rounds once, as a scalar conversion does.
    const __m128 f = _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(_mm_srli_epi32(w, 16)), k65536),
                                _mm_cvtepi32_ps(_mm_and_si128(w, lo16)));
    _mm_storeu_ps(r + i, _mm_min_ps(_mm_add_ps(va, _mm_mul_ps(f, vs)), vtop));
  }
  for (; i < n; ++i) {
    const float v = a + static_cast<float>(u[i]) * scale;
    r[i] = v < top ? v : top;
  }
}

void scale_u32_to_double(const uint32_t *u, int n, double *r, double a, double b) {
  const double scale = (b - a) * 2.3283064365386963e-10;
  const double top = std::nextafter(b, -INFINITY);
  const __m128d va = _mm_set1_pd(a), vs = _mm_set1_pd(scale), vtop = _mm_set1_pd(top);
  const __m128i flip = _mm_set1_epi32(static_cast<int>(0x80000000u));
  const __m128d k2p31 = _mm_set1_pd(2147483648.0);
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    // Unsigned words via the signed conversion: (u - 2^31) + 2^31, both exact.
    const __m128i w =
        _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(u + i)), flip);
    const __m128d d0 = _mm_add_pd(_mm_cvtepi32_pd(w), k2p31);
    const __m128d d1 = _mm_add_pd(_mm_cvtepi32_pd(_mm_unpackhi_epi64(w, w)), k2p31);
    _mm_storeu_pd(r + i, _mm_min_pd(_mm_add_pd(va, _mm_mul_pd(d0, vs)), vtop));
    _mm_storeu_pd(r + i + 2, _mm_min_pd(_mm_add_pd(va, _mm_mul_pd(d1, vs)), vtop));
  }
  for (; i < n; ++i) {
    const double v = a + static_cast<double>(u[i]) * scale;
    r[i] = v < top ? v : top;
  }
}

}  // namespace qor::rng
