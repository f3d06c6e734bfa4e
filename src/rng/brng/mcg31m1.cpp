// MCG31M1: x(n+1) = a * x(n) mod (2^31 - 1), a = 1132489760.
//
// Generation runs eight lanes at once: lane l holds x * a^l, and every lane
// steps by a^8, so the lanes together deliver exactly the sequential order.
// Products are formed with pmuludq and reduced by folding twice at bit 31.
#include "rng/brng/common.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

constexpr uint64_t kM = 2147483647u;
constexpr uint32_t kA = 1132489760u;

struct State {
  uint32_t x;
  uint32_t a;
};
static_assert(sizeof(State) + 16 == 24);

// Reduction of a product below 2^62 modulo 2^31 - 1.  For a non-zero residue
// the result is already in [1, m - 1].
inline __m128i fold(__m128i p) {
  const __m128i m = _mm_set1_epi64x(static_cast<long long>(kM));
  p = _mm_add_epi64(_mm_and_si128(p, m), _mm_srli_epi64(p, 31));
  return _mm_add_epi64(_mm_and_si128(p, m), _mm_srli_epi64(p, 31));
}

inline __m128i pack_low(__m128i v0, __m128i v1) {
  return _mm_castps_si128(
      _mm_shuffle_ps(_mm_castsi128_ps(v0), _mm_castsi128_ps(v1), _MM_SHUFFLE(2, 0, 2, 0)));
}

// Produces n outputs; sink.vec(i, four values) and sink.one(i, value).
template <class Sink>
void run(State &s, int32_t n, Sink sink) {
  uint64_t x = s.x;
  const uint64_t a = s.a;
  int32_t i = 0;
  if (n >= 16) {
    uint64_t lane[8];
    lane[0] = x;
    for (int l = 1; l < 8; ++l) lane[l] = lane[l - 1] * a % kM;
    const uint64_t a8 = powmod(a, 8, kM);
    const __m128i m8 = _mm_set1_epi64x(static_cast<long long>(a8));
    __m128i v0 = _mm_set_epi64x(static_cast<long long>(lane[1]), static_cast<long long>(lane[0]));
    __m128i v1 = _mm_set_epi64x(static_cast<long long>(lane[3]), static_cast<long long>(lane[2]));
    __m128i v2 = _mm_set_epi64x(static_cast<long long>(lane[5]), static_cast<long long>(lane[4]));
    __m128i v3 = _mm_set_epi64x(static_cast<long long>(lane[7]), static_cast<long long>(lane[6]));
    for (; i + 8 <= n; i += 8) {
      sink.vec(i, pack_low(v0, v1));
      sink.vec(i + 4, pack_low(v2, v3));
      v0 = fold(_mm_mul_epu32(v0, m8));
      v1 = fold(_mm_mul_epu32(v1, m8));
      v2 = fold(_mm_mul_epu32(v2, m8));
      v3 = fold(_mm_mul_epu32(v3, m8));
    }
    x = static_cast<uint64_t>(_mm_cvtsi128_si64(v0));
  }
  for (; i < n; ++i) {
    sink.one(i, static_cast<uint32_t>(x));
    x = x * a % kM;
  }
  s.x = static_cast<uint32_t>(x);
}

struct IntSink {
  uint32_t *r;
  void vec(int32_t i, __m128i v) const { _mm_storeu_si128(reinterpret_cast<__m128i *>(r + i), v); }
  void one(int32_t i, uint32_t u) const { r[i] = u; }
};

// Values are below 2^31, so the signed conversions are exact.
struct DoubleSink {
  double *r;
  double a, f;
  void vec(int32_t i, __m128i v) const {
    const __m128d va = _mm_set1_pd(a), vf = _mm_set1_pd(f);
    _mm_storeu_pd(r + i, _mm_add_pd(va, _mm_mul_pd(_mm_cvtepi32_pd(v), vf)));
    _mm_storeu_pd(r + i + 2,
                  _mm_add_pd(va, _mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(v, 0x4E)), vf)));
  }
  void one(int32_t i, uint32_t u) const { r[i] = a + static_cast<double>(u) * f; }
};

struct FloatSink {
  float *r;
  float a, f;
  void vec(int32_t i, __m128i v) const {
    _mm_storeu_ps(r + i, _mm_add_ps(_mm_set1_ps(a), _mm_mul_ps(_mm_cvtepi32_ps(v), _mm_set1_ps(f))));
  }
  void one(int32_t i, uint32_t u) const { r[i] = a + static_cast<float>(u) * f; }
};

constexpr double kScale = 4.656612875245797e-10;  // 1 / (2^31 - 1)

}  // namespace

extern "C" {

QOR_API int32_t __rixBRngMCG31M1InitStream(int32_t method, void *stream, int32_t n,
                                           const uint32_t *params) {
  State &s = *state<State>(stream);
  switch (method) {
    case QOR_RNG_INIT_SEED: {
      uint32_t x = n >= 1 ? static_cast<uint32_t>(params[0] % kM) : 1u;
      s.x = x == 0 ? 1u : x;
      s.a = kA;
      return QOR_RNG_OK;
    }
    case QOR_RNG_INIT_LEAPFROG: {
      const uint32_t k = params[0];
      s.x = static_cast<uint32_t>(mulmod(s.x, powmod(s.a, k, kM), kM));
      s.a = static_cast<uint32_t>(powmod(s.a, static_cast<uint32_t>(n), kM));
      return QOR_RNG_OK;
    }
    case QOR_RNG_INIT_SKIPAHEAD:
      s.x = static_cast<uint32_t>(mulmod(s.x, powmod(s.a, skip_count(params), kM), kM));
      return QOR_RNG_OK;
    case QOR_RNG_INIT_SKIPAHEADEX: return QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

QOR_API int32_t __rixiBRngMCG31M1(void *stream, int32_t n, void *r) {
  run(*state<State>(stream), n, IntSink{static_cast<uint32_t *>(r)});
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngMCG31M1(void *stream, int32_t n, double *r, double a, double b) {
  run(*state<State>(stream), n, DoubleSink{r, a, (b - a) * kScale});
  return QOR_RNG_OK;
}

QOR_API int32_t __rixsBRngMCG31M1(void *stream, int32_t n, float *r, float a, float b) {
  run(*state<State>(stream), n, FloatSink{r, a, (b - a) * static_cast<float>(kScale)});
  return QOR_RNG_OK;
}

}  // extern "C"
