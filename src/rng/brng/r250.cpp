// R250: Kirkpatrick and Stoll's generalized feedback shift register,
// x(n) = x(n-250) XOR x(n-147), on a circular register of 250 words with the
// two read positions i (oldest word) and j = i + 103.
//
// A call of at least 250 words is computed straight into the output: every
// output depends on words 250 and 147 places back, so four consecutive
// outputs are independent and one XOR of two vectors produces them.  The
// register is then rewritten in order with i = 0 and j = 103, which describes
// the same sequence as the circular form.
#include "rng/brng/common.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

constexpr int kLen = 250;
constexpr int kLag = 103;

struct State {
  uint32_t x[kLen];
  uint32_t i, j;
};
static_assert(sizeof(State) + 16 == 1024);

inline void xor_block(uint32_t *dst, const uint32_t *a, const uint32_t *b, int n) {
  int t = 0;
  for (; t + 4 <= n; t += 4) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a + t));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + t));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + t), _mm_xor_si128(va, vb));
  }
  for (; t < n; ++t) dst[t] = a[t] ^ b[t];
}

void run(State &s, int32_t n, uint32_t *r) {
  if (n <= 0) return;
  uint32_t i = s.i % kLen, j = s.j % kLen;
  if (n < kLen || (j + kLen - i) % kLen != kLag) {
    // Short calls (and registers with unusual positions) step one word at a
    // time on the circular register.
    for (int32_t t = 0; t < n; ++t) {
      const uint32_t v = s.x[i] ^ s.x[j];
      s.x[i] = v;
      r[t] = v;
      if (++i == kLen) i = 0;
      if (++j == kLen) j = 0;
    }
    s.i = i;
    s.j = j;
    return;
  }
  // Register in sequence order: lin[q] = x(q - 250).
  uint32_t lin[kLen];
  for (int q = 0; q < kLen; ++q) lin[q] = s.x[(i + q) % kLen];
  constexpr int kNear = kLen - kLag;                   // 147
  xor_block(r, lin, lin + kLag, kNear);                // both operands in the register
  xor_block(r + kNear, lin + kNear, r, kLen - kNear);  // x(t-147) already produced
  // From here on both operands are outputs 250 and 147 places back; a block
  // of four never reads the words it writes because 147 > 4.
  xor_block(r + kLen, r, r + kLag, n - kLen);
  std::memcpy(s.x, r + n - kLen, sizeof s.x);
  s.i = 0;
  s.j = kLag;
}

constexpr double kScale = 2.3283064365386963e-10;  // 2^-32

}  // namespace

extern "C" {

QOR_API int32_t __rixBRngR250InitStream(int32_t method, void *stream, int32_t n,
                                        const uint32_t *params) {
  State &s = *state<State>(stream);
  switch (method) {
    case QOR_RNG_INIT_SEED:
      if (n >= kLen) {
        std::memcpy(s.x, params, sizeof s.x);
      } else {
        uint32_t seed = n >= 1 ? params[0] : 1u;
        if (seed == 0) seed = 1;
        for (int k = 0; k < kLen; ++k) {
          seed *= 69069u;
          s.x[k] = seed;
        }
        // Force a triangular pattern of leading bits into 32 words so that
        // the register spans all 32 bit positions.
        uint32_t msb = 0x80000000u, mask = 0xFFFFFFFFu;
        for (int k = 0; k < 32; ++k) {
          uint32_t &w = s.x[3 + 7 * k];
          w = (w & mask) | msb;
          msb >>= 1;
          mask >>= 1;
        }
      }
      s.i = 0;
      s.j = kLag;
      return QOR_RNG_OK;
    case QOR_RNG_INIT_LEAPFROG: return QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case QOR_RNG_INIT_SKIPAHEAD: return QOR_RNG_ERROR_SKIPAHEAD_UNSUPPORTED;
    case QOR_RNG_INIT_SKIPAHEADEX: return QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

QOR_API int32_t __rixiBRngR250(void *stream, int32_t n, void *r) {
  run(*state<State>(stream), n, static_cast<uint32_t *>(r));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngR250(void *stream, int32_t n, double *r, double a, double b) {
  return generate_real(stream, n, r, a, (b - a) * kScale, [](void *st, int m, uint32_t *u) {
    run(*state<State>(st), m, u);
  });
}

QOR_API int32_t __rixsBRngR250(void *stream, int32_t n, float *r, float a, float b) {
  return generate_real(stream, n, r, a, (b - a) * static_cast<float>(kScale),
                       [](void *st, int m, uint32_t *u) { run(*state<State>(st), m, u); });
}

}  // extern "C"
