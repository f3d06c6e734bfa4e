// MCG59: x(n+1) = a * x(n) mod 2^59, a = 13^13.
//
// There is no 64-bit vector multiply below AVX-512, so the lanes are scalar:
// eight independent lanes x * a^l step by a^8, which keeps the multiplier
// unit busy every cycle; then single steps finish the call.
#include "rng/brng/common.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

constexpr uint64_t kMask = (uint64_t{1} << 59) - 1;
constexpr uint64_t kA = 302875106592253ull;  // 13^13
constexpr double kScale = 1.734723475976807e-18;  // 2^-59

struct State {
  uint64_t x;
  uint64_t a;
};
static_assert(sizeof(State) + 16 == 32);

template <class Emit>
void run(State &s, int32_t n, Emit emit) {
  uint64_t x = s.x;
  const uint64_t a = s.a;
  int32_t i = 0;
  constexpr int L = 8;
  if (n >= 2 * L) {
    // Eight named lanes stay in registers; an array would live in memory.
    uint64_t x0 = x, x1 = (x0 * a) & kMask, x2 = (x1 * a) & kMask, x3 = (x2 * a) & kMask;
    uint64_t x4 = (x3 * a) & kMask, x5 = (x4 * a) & kMask, x6 = (x5 * a) & kMask,
             x7 = (x6 * a) & kMask;
    const uint64_t aL = powmod59(a, L);
    for (; i + L <= n; i += L) {
      emit(i, x0), emit(i + 1, x1), emit(i + 2, x2), emit(i + 3, x3);
      emit(i + 4, x4), emit(i + 5, x5), emit(i + 6, x6), emit(i + 7, x7);
      x0 = (x0 * aL) & kMask, x1 = (x1 * aL) & kMask, x2 = (x2 * aL) & kMask;
      x3 = (x3 * aL) & kMask, x4 = (x4 * aL) & kMask, x5 = (x5 * aL) & kMask;
      x6 = (x6 * aL) & kMask, x7 = (x7 * aL) & kMask;
    }
    x = x0;
  }
  for (; i < n; ++i) {
    emit(i, x);
    x = (x * a) & kMask;
  }
  s.x = x;
}

}  // namespace

extern "C" {

QOR_API int32_t __rixBRngMCG59InitStream(int32_t method, void *stream, int32_t n,
                                         const uint32_t *params) {
  State &s = *state<State>(stream);
  switch (method) {
    case QOR_RNG_INIT_SEED: {
      uint64_t x = 1;
      if (n == 1) x = params[0];
      if (n >= 2) x = (uint64_t{params[0]} + (uint64_t{params[1]} << 32)) & kMask;
      s.x = x == 0 ? 1 : x;
      s.a = kA;
      return QOR_RNG_OK;
    }
    case QOR_RNG_INIT_LEAPFROG:
      s.x = (s.x * powmod59(s.a, params[0])) & kMask;
      s.a = powmod59(s.a, static_cast<uint32_t>(n));
      return QOR_RNG_OK;
    case QOR_RNG_INIT_SKIPAHEAD:
      s.x = (s.x * powmod59(s.a, skip_count(params))) & kMask;
      return QOR_RNG_OK;
    case QOR_RNG_INIT_SKIPAHEADEX: return QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

QOR_API int32_t __rixiBRngMCG59(void *stream, int32_t n, void *r) {
  auto *out = static_cast<uint64_t *>(r);
  run(*state<State>(stream), n, [out](int32_t i, uint64_t u) { out[i] = u; });
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngMCG59(void *stream, int32_t n, double *r, double a, double b) {
  const double f = (b - a) * kScale;
  run(*state<State>(stream), n,
      [=](int32_t i, uint64_t u) { r[i] = a + static_cast<double>(static_cast<int64_t>(u)) * f; });
  return QOR_RNG_OK;
}

QOR_API int32_t __rixsBRngMCG59(void *stream, int32_t n, float *r, float a, float b) {
  const float f = (b - a) * static_cast<float>(kScale);
  run(*state<State>(stream), n,
      [=](int32_t i, uint64_t u) { r[i] = a + static_cast<float>(static_cast<int64_t>(u)) * f; });
  return QOR_RNG_OK;
}

}  // extern "C"
