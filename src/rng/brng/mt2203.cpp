// MT2203: a set of 6024 Mersenne twisters with period 2^2203 - 1 (69 words of
// 32 bits, 5 low bits of the first word unused, middle offset 34).  Members
// differ in the twisting word and the two tempering masks, which seeding
// copies from the parameter table into the stream; generation reads them from
// the stream only.  The family supports neither skip-ahead nor leapfrog.
#include <emmintrin.h>

#include "twister_common.h"
#include "twisters.h"

namespace qor::rng::twister {
namespace {

constexpr int kN = 69, kM = 34;
constexpr uint32_t kUpper = 0xFFFFFFE0u;  // the 27 bits of the first word that count

inline uint32_t twist(uint32_t x0, uint32_t x1, uint32_t a) {
  const uint32_t y = (x0 & kUpper) | (x1 & ~kUpper);
  return (y >> 1) ^ ((y & 1u) ? a : 0u);
}

inline __m128i load(const uint32_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}
inline void store(uint32_t *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }

inline __m128i twist4(__m128i x0, __m128i x1, __m128i a) {
  const __m128i upper = _mm_set1_epi32(int32_t(kUpper));
  const __m128i y = _mm_or_si128(_mm_and_si128(x0, upper), _mm_andnot_si128(upper, x1));
  const __m128i odd = _mm_sub_epi32(_mm_setzero_si128(), _mm_and_si128(y, _mm_set1_epi32(1)));
  return _mm_xor_si128(_mm_srli_epi32(y, 1), _mm_and_si128(odd, a));
}

// Same lane-independence argument as for MT19937: words i + 1 .. i + 4 and
// i + 34 .. are still old in the first part, and words read in the second
// part were rewritten 35 words earlier.
void regenerate(Mt2203State *s) {
  uint32_t *x = s->x;
  const uint32_t a = s->a;
  const __m128i va = _mm_set1_epi32(int32_t(a));
  int i = 0;
  for (; i + 4 <= kN - kM; i += 4)  // 0 .. 31
    store(x + i, _mm_xor_si128(load(x + i + kM), twist4(load(x + i), load(x + i + 1), va)));
  for (; i < kN - kM; ++i) x[i] = x[i + kM] ^ twist(x[i], x[i + 1], a);  // 32 .. 34
  for (; i + 4 <= kN - 1; i += 4)  // 35 .. 66
    store(x + i, _mm_xor_si128(load(x + i + kM - kN), twist4(load(x + i), load(x + i + 1), va)));
  for (; i < kN - 1; ++i) x[i] = x[i + kM - kN] ^ twist(x[i], x[i + 1], a);
  x[kN - 1] = x[kM - 1] ^ twist(x[kN - 1], x[0], a);
}

void fill(Mt2203State *s, uint32_t *r, int n) {
  const __m128i vb = _mm_set1_epi32(int32_t(s->b)), vc = _mm_set1_epi32(int32_t(s->c));
  const uint32_t b = s->b, c = s->c;
  while (n > 0) {
    if (s->pos >= uint32_t(kN)) {
      regenerate(s);
      s->pos = 0;
    }
    int k = kN - int(s->pos);
    if (k > n) k = n;
    const uint32_t *src = s->x + s->pos;
    int i = 0;
    for (; i + 4 <= k; i += 4) {
      __m128i y = load(src + i);
      y = _mm_xor_si128(y, _mm_srli_epi32(y, 12));
      y = _mm_xor_si128(y, _mm_and_si128(_mm_slli_epi32(y, 7), vb));
      y = _mm_xor_si128(y, _mm_and_si128(_mm_slli_epi32(y, 15), vc));
      store(r + i, _mm_xor_si128(y, _mm_srli_epi32(y, 18)));
    }
    for (; i < k; ++i) {
      uint32_t y = src[i];
      y ^= y >> 12;
      y ^= (y << 7) & b;
      y ^= (y << 15) & c;
      r[i] = y ^ (y >> 18);
    }
    s->pos += uint32_t(k);
    r += k;
    n -= k;
  }
}

int32_t seed(void *stream, int n, const uint32_t *key) {
  const int32_t id = stream_brng(stream);
  // Members are addressed by the current identifier scheme only.
  const int32_t member = id >= 0x100000 ? (id & 0xFFFFF) : 0;
  if (member >= kMt2203Members || kMt2203Params[member][0] == 0) return kErrBadBrng;
  auto *s = state_of<Mt2203State>(stream);
  static const uint32_t kDefaultKey[1] = {1};
  if (n < 1) {
    n = 1;
    key = kDefaultKey;
  }
  uint32_t *x = s->x;
  x[0] = 19650218u;
  for (int i = 1; i < kN; ++i) x[i] = 1812433253u * (x[i - 1] ^ (x[i - 1] >> 30)) + uint32_t(i);
  int i = 1, j = 0;
  for (int k = (kN > n ? kN : n); k > 0; --k) {
    x[i] = (x[i] ^ ((x[i - 1] ^ (x[i - 1] >> 30)) * 1664525u)) + key[j] + uint32_t(j);
    if (++i >= kN) {
      x[0] = x[kN - 1];
      i = 1;
    }
    if (++j >= n) j = 0;
  }
  for (int k = kN - 1; k > 0; --k) {
    x[i] = (x[i] ^ ((x[i - 1] ^ (x[i - 1] >> 30)) * 1566083941u)) - uint32_t(i);
    if (++i >= kN) {
      x[0] = x[kN - 1];
      i = 1;
    }
  }
  x[0] = 0x80000000u;
  s->pos = kN;
  s->a = kMt2203Params[member][0];
  s->b = kMt2203Params[member][1];
  s->c = kMt2203Params[member][2];
  return kOk;
}

}  // namespace

// Rows not yet produced by the parameter search stay zero and are refused.
const uint32_t kMt2203Params[kMt2203Members][3] = {
#include "mt2203_params.inc"
};

}  // namespace qor::rng::twister

using namespace qor::rng::twister;

extern "C" {

QOR_API int32_t __rixBRngMT2203InitStream(int32_t method, void *stream, int32_t n,
                                          const uint32_t *params) {
  switch (method) {
    case kMethodSeed:
      return seed(stream, n, params);
    case kMethodLeapfrog:
      return kErrNoLeapfrog;
    case kMethodSkip:
      return kErrNoSkip;
    case kMethodSkipMulti:
      return kErrNoSkipMulti;
    default:
      return kErrBadMethod;
  }
}

QOR_API int32_t __rixiBRngMT2203(void *stream, int32_t n, void *r) {
  if (n > 0) fill(state_of<Mt2203State>(stream), static_cast<uint32_t *>(r), n);
  return kOk;
}

QOR_API int32_t __rixsBRngMT2203(void *stream, int32_t n, float *r, float a, float b) {
  auto *s = state_of<Mt2203State>(stream);
  generate_float([s](uint32_t *u, int k) { fill(s, u, k); }, n, r, a, b);
  return kOk;
}

QOR_API int32_t __rixdBRngMT2203(void *stream, int32_t n, double *r, double a, double b) {
  auto *s = state_of<Mt2203State>(stream);
  generate_double([s](uint32_t *u, int k) { fill(s, u, k); }, n, r, a, b);
  return kOk;
}

}  // extern "C"
