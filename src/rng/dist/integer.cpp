// Integer-valued members: the integer uniform distribution on [a, b), the
// Bernoulli distribution, and the generator's raw bits as native, 32-bit and
// 64-bit words.
#include <smmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "qor/export.h"
#include "rng/dist/common.h"

namespace qor::rng::dist {
namespace {

constexpr int32_t kIntBlock = 1024;   // doubles per integer-uniform round
constexpr int32_t kBitsBlock = 2048;  // 64-bit scratch words for extraction
constexpr int32_t kCannotServe = QOR_RNG_ERROR_NO_UNIFORM_BITS;

// The registry row of a stream's generator, or null if the identifier names
// none.
const GeneratorRecord *row_of_stream(void *stream, int32_t *row) {
  int32_t member = 0;
  const GeneratorRecord *table =
      __rixGetBrngBaseOffset(*static_cast<const int32_t *>(stream), row, &member);
  if (*row < 0 || *row >= QOR_RNG_REGISTRY_CAPACITY) return nullptr;
  return table + *row;
}

// How a row hands out 32-bit or 64-bit words of uniform bits.
enum class Bits : uint8_t {
  None,     // cannot serve: -1014
  Native,   // native words are already 32 uniform bits
  Top59,    // native 64-bit words with 59 significant bits: keep the top 32
  Doubled,  // two native 32-bit words per result
};

// Selection by registry row, 32 entries per width.
constexpr Bits N = Bits::None, V = Bits::Native, T = Bits::Top59, D = Bits::Doubled;
constexpr Bits kBits32[32] = {N, N, N, T, N, N, N, V, V, N, N, N, V, V, V, V,
                              N, N, N, T, N, N, N, D, D, N, N, N, D, D, D, D};
constexpr Bits kBits64[32] = {N, N, N, T, N, N, N, D, D, N, N, N, D, D, D, D,
                              N, N, N, N, N, N, N, N, N, N, N, N, N, N, N, N};

// Native words of the generator, shifted right by 27: the top 32 of 59 bits.
// `count` 32-bit results go to out, drawn in rounds of at most 2048 words.
int32_t top59(const GeneratorRecord &g, void *stream, int64_t count, uint32_t *out) {
  alignas(16) uint64_t w[kBitsBlock];
  int32_t st = 0;
  for (int64_t done = 0; done < count;) {
    const int32_t m = static_cast<int32_t>(std::min<int64_t>(count - done, kBitsBlock));
    st = g.generateI(stream, m, w);
    if (st < 0) return st;
    for (int32_t i = 0; i < m; ++i) out[done + i] = static_cast<uint32_t>(w[i] >> 27);
    done += m;
  }
  return st;
}

// The integer uniform on [a, b): floor of a double uniform on
// [double(a), double(b)).
int32_t int_uniform(void *stream, int32_t n, int32_t *r, int32_t a, int32_t b) {
  if (n < 1) return 0;
  alignas(16) double u[kIntBlock];
  int32_t st = 0;
  for (int32_t done = 0; done < n;) {
    const int32_t m = std::min(n - done, kIntBlock);
    st = uniform(stream, m, u, static_cast<double>(a), static_cast<double>(b));
    if (st < 0) return st;
    // A double on [a, b) can round up to b itself when b - a is large; such
    // a value is taken as b - 1 so that every result stays below b.
    const __m128i top = _mm_set1_epi32(b - 1);
    int32_t i = 0;
    for (; i + 2 <= m; i += 2) {
      const __m128d f = _mm_floor_pd(_mm_load_pd(u + i));
      const __m128i k = _mm_min_epi32(_mm_cvttpd_epi32(f), top);
      _mm_storel_epi64(reinterpret_cast<__m128i *>(r + done + i), k);
    }
    for (; i < m; ++i) r[done + i] = std::min(static_cast<int32_t>(std::floor(u[i])), b - 1);
    done += m;
  }
  return st;
}

// 1 where the uniform is below p, compared as the bit patterns of two
// non-negative floats (their order as signed integers is their order as
// numbers).
int32_t bernoulli(void *stream, int32_t n, uint32_t *r, double p) {
  float *u = reinterpret_cast<float *>(r);
  const int32_t st = uniform(stream, n, u, 0.0f, 1.0f);
  if (st < 0 || n < 1) return st;
  const float pf = static_cast<float>(p);
  int32_t pbits;
  std::memcpy(&pbits, &pf, 4);
  const __m128i pv = _mm_set1_epi32(pbits);
  const __m128i one = _mm_set1_epi32(1);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    auto *q = reinterpret_cast<__m128i *>(r + i);
    const __m128i x = _mm_loadu_si128(q);  // the uniforms' bit patterns
    _mm_storeu_si128(q, _mm_and_si128(_mm_cmplt_epi32(x, pv), one));
  }
  for (; i < n; ++i) {
    int32_t x;
    std::memcpy(&x, r + i, 4);
    r[i] = x < pbits ? 1u : 0u;
  }
  return st;
}

int32_t uniform_bits(void *stream, int32_t n, uint32_t *r) {
  int32_t row = 0;
  const GeneratorRecord *g = row_of_stream(stream, &row);
  if (!g || !g->generateI) return QOR_RNG_ERROR_INVALID_BRNG;
  return g->generateI(stream, n > 0 ? n : 0, r);
}

int32_t uniform_bits_n(void *stream, int32_t n, uint32_t *r, const Bits (&table)[32], int width) {
  int32_t row = 0;
  const GeneratorRecord *g = row_of_stream(stream, &row);
  if (!g) return QOR_RNG_ERROR_INVALID_BRNG;
  const Bits how = row < 32 ? table[row] : Bits::None;
  // The extraction is only defined for the word width it expects; a
  // registered row of another width is refused like a row that cannot serve.
  const int32_t want_size = how == Bits::Top59 ? 8 : 4;
  if (how == Bits::None || !g->generateI || g->wordSize != want_size) return kCannotServe;
  if (n < 1) return g->generateI(stream, 0, r);
  const int64_t words = width == 64 ? 2 * int64_t{n} : n;  // 32-bit words of r
  switch (how) {
    case Bits::Native:
      return g->generateI(stream, n, r);
    case Bits::Top59:
      return top59(*g, stream, words, r);
    case Bits::Doubled:
      if (width == 64) {
        // 2n native words are exactly the 2n 32-bit halves of r, low first.
        if (words > INT32_MAX) return QOR_RNG_ERROR_BAD_ARG;
        return g->generateI(stream, static_cast<int32_t>(words), r);
      } else {
        // Two native words per 32-bit result: drawing 2n of them straight
        // into r would write past its n words, so they go through scratch
        // and the first (low) word of each pair is kept.
        alignas(16) uint32_t w[2 * kBitsBlock];
        int32_t st = 0;
        for (int32_t done = 0; done < n;) {
          const int32_t m = std::min(n - done, kBitsBlock);
          st = g->generateI(stream, 2 * m, w);
          if (st < 0) return st;
          for (int32_t i = 0; i < m; ++i) r[done + i] = w[2 * i];
          done += m;
        }
        return st;
      }
    case Bits::None:
      break;
  }
  return kCannotServe;
}

}  // namespace
}  // namespace qor::rng::dist

using namespace qor::rng::dist;

extern "C" {

QOR_API int32_t _rixiRngUniform(uint32_t, void *stream, int32_t n, int32_t *r, int32_t a,
                                int32_t b) {
  return int_uniform(stream, n, r, a, b);
}

QOR_API int32_t _rixiRngBernoulli(uint32_t, void *stream, int32_t n, uint32_t *r, double p) {
  return bernoulli(stream, n, r, p);
}

QOR_API int32_t _rixiRngUniformBits(uint32_t, void *stream, int32_t n, uint32_t *r) {
  return uniform_bits(stream, n, r);
}

QOR_API int32_t _rixiRngUniformBits32(uint32_t, void *stream, int32_t n, uint32_t *r) {
  return uniform_bits_n(stream, n, r, kBits32, 32);
}

QOR_API int32_t _rixiRngUniformBits64(uint32_t, void *stream, int32_t n, uint32_t *r) {
  return uniform_bits_n(stream, n, r, kBits64, 64);
}

}  // extern "C"
