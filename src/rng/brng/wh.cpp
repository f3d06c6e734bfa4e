// WH: the set of 273 Wichmann-Hill combined generators.  Member m combines
// four multiplicative congruential generators x(i) = a(i) x(i) mod m(i) from
// row m of the moduli and multiplier tables; the uniform output is the
// fractional part of x1/m1 + x2/m2 + x3/m3 + x4/m4 after the step, and the
// integer output is the four values themselves (x1 in the lowest word).
//
// Generation advances four consecutive steps per pass: for each component,
// two double-precision vectors hold x a^1, x a^2 and x a^3, x a^4, and all of
// them step by a^4.  Products stay below 2^48 and are reduced exactly with a
// floor of p * (1/m): for a residue that is not 0, p/m is at least 1/m away
// from an integer, far more than the rounding error of p * (1/m), so the
// floor is the true quotient.
#include <emmintrin.h>

#include "rng/brng/common.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

#include "rng/brng/wh_tables.inc"

constexpr int32_t kMembers = 273;

struct State {
  uint32_t x[4];
  uint32_t a[4];
};
static_assert(sizeof(State) + 16 == 48);

struct Consts {
  double m[4];
  double inv[4];
};

Consts consts_for(int32_t member) {
  Consts c;
  for (int i = 0; i < 4; ++i) {
    c.m[i] = kWhModuli[member][i];
    c.inv[i] = 1.0 / c.m[i];
  }
  return c;
}

// The combination, in a fixed order, as the vector path computes it.
inline double combine(const uint32_t x[4], const Consts &c) {
  const double s = ((x[0] * c.inv[0] + x[1] * c.inv[1]) + x[2] * c.inv[2]) + x[3] * c.inv[3];
  return s - __builtin_floor(s);
}

inline __m128d combine(const __m128d v[4], const Consts &c) {
  __m128d s = _mm_add_pd(_mm_mul_pd(v[0], _mm_set1_pd(c.inv[0])),
                         _mm_mul_pd(v[1], _mm_set1_pd(c.inv[1])));
  s = _mm_add_pd(s, _mm_mul_pd(v[2], _mm_set1_pd(c.inv[2])));
  s = _mm_add_pd(s, _mm_mul_pd(v[3], _mm_set1_pd(c.inv[3])));
  return _mm_sub_pd(s, _mm_floor_pd(s));
}

inline __m128d mulmod_pd(__m128d x, __m128d a, __m128d m, __m128d inv) {
  const __m128d p = _mm_mul_pd(x, a);
  return _mm_sub_pd(p, _mm_mul_pd(_mm_floor_pd(_mm_mul_pd(p, inv)), m));
}

// sink.block(t, lo, hi): lo[i] holds component i for outputs t, t+1 and
// hi[i] for t+2, t+3.  sink.one(t, x) takes the four values of output t.
template <class Sink>
void run(State &s, int32_t n, const Consts &c, const Sink &sink) {
  int32_t t = 0;
  if (n >= 8) {
    __m128d lo[4], hi[4], step[4], m[4], inv[4];
    for (int i = 0; i < 4; ++i) {
      const uint64_t mi = static_cast<uint64_t>(c.m[i]);
      uint64_t p[4];
      p[0] = uint64_t{s.x[i]} * s.a[i] % mi;
      for (int k = 1; k < 4; ++k) p[k] = p[k - 1] * s.a[i] % mi;
      lo[i] = _mm_set_pd(static_cast<double>(p[1]), static_cast<double>(p[0]));
      hi[i] = _mm_set_pd(static_cast<double>(p[3]), static_cast<double>(p[2]));
      step[i] = _mm_set1_pd(static_cast<double>(powmod(s.a[i], 4, mi)));
      m[i] = _mm_set1_pd(c.m[i]);
      inv[i] = _mm_set1_pd(c.inv[i]);
    }
    for (;;) {
      sink.block(t, lo, hi, c);
      t += 4;
      if (t + 4 > n) break;
      for (int i = 0; i < 4; ++i) {
        lo[i] = mulmod_pd(lo[i], step[i], m[i], inv[i]);
        hi[i] = mulmod_pd(hi[i], step[i], m[i], inv[i]);
      }
    }
    // The last value delivered is the new state.
    for (int i = 0; i < 4; ++i)
      s.x[i] = static_cast<uint32_t>(_mm_cvtsd_f64(_mm_unpackhi_pd(hi[i], hi[i])));
  }
  for (; t < n; ++t) {
    for (int i = 0; i < 4; ++i)
      s.x[i] = static_cast<uint32_t>(uint64_t{s.x[i]} * s.a[i] % static_cast<uint64_t>(c.m[i]));
    sink.one(t, s.x, c);
  }
}

struct IntSink {
  uint32_t *r;
  void block(int32_t t, const __m128d lo[4], const __m128d hi[4], const Consts &) const {
    store2(t, lo);
    store2(t + 2, hi);
  }
  void store2(int32_t t, const __m128d v[4]) const {
    const __m128i c01 = _mm_unpacklo_epi32(_mm_cvttpd_epi32(v[0]), _mm_cvttpd_epi32(v[1]));
    const __m128i c23 = _mm_unpacklo_epi32(_mm_cvttpd_epi32(v[2]), _mm_cvttpd_epi32(v[3]));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(r + 4 * t), _mm_unpacklo_epi64(c01, c23));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(r + 4 * t + 4), _mm_unpackhi_epi64(c01, c23));
  }
  void one(int32_t t, const uint32_t x[4], const Consts &) const {
    for (int i = 0; i < 4; ++i) r[4 * t + i] = x[i];
  }
};

struct DoubleSink {
  double *r;
  double a, w;
  void block(int32_t t, const __m128d lo[4], const __m128d hi[4], const Consts &c) const {
    const __m128d va = _mm_set1_pd(a), vw = _mm_set1_pd(w);
    _mm_storeu_pd(r + t, _mm_add_pd(va, _mm_mul_pd(vw, combine(lo, c))));
    _mm_storeu_pd(r + t + 2, _mm_add_pd(va, _mm_mul_pd(vw, combine(hi, c))));
  }
  void one(int32_t t, const uint32_t x[4], const Consts &c) const { r[t] = a + w * combine(x, c); }
};

struct FloatSink {
  float *r;
  float a, w;
  void block(int32_t t, const __m128d lo[4], const __m128d hi[4], const Consts &c) const {
    const __m128 f = _mm_movelh_ps(_mm_cvtpd_ps(combine(lo, c)), _mm_cvtpd_ps(combine(hi, c)));
    _mm_storeu_ps(r + t, _mm_add_ps(_mm_set1_ps(a), _mm_mul_ps(_mm_set1_ps(w), f)));
  }
  void one(int32_t t, const uint32_t x[4], const Consts &c) const {
    r[t] = a + w * static_cast<float>(combine(x, c));
  }
};

int32_t member_checked(void *stream) {
  const int32_t m = member_of(header(stream)->brng);
  return (m >= 0 && m < kMembers) ? m : -1;
}

}  // namespace

extern "C" {

QOR_API int32_t __rixBRngWHInitStream(int32_t method, void *stream, int32_t n,
                                      const uint32_t *params) {
  const int32_t member = member_checked(stream);
  if (member < 0) return QOR_RNG_ERROR_INVALID_BRNG;
  State &s = *state<State>(stream);
  const uint32_t *mod = kWhModuli[member];
  switch (method) {
    case QOR_RNG_INIT_SEED:
      for (int i = 0; i < 4; ++i) {
        uint32_t x = i < n ? params[i] % mod[i] : 1u;
        s.x[i] = x == 0 ? 1u : x;
        s.a[i] = kWhMultipliers[member][i];
      }
      return QOR_RNG_OK;
    case QOR_RNG_INIT_LEAPFROG:
      for (int i = 0; i < 4; ++i) {
        s.x[i] = static_cast<uint32_t>(mulmod(s.x[i], powmod(s.a[i], params[0], mod[i]), mod[i]));
        s.a[i] = static_cast<uint32_t>(powmod(s.a[i], static_cast<uint32_t>(n), mod[i]));
      }
      return QOR_RNG_OK;
    case QOR_RNG_INIT_SKIPAHEAD: {
      const uint64_t k = skip_count(params);
      for (int i = 0; i < 4; ++i)
        s.x[i] = static_cast<uint32_t>(mulmod(s.x[i], powmod(s.a[i], k, mod[i]), mod[i]));
      return QOR_RNG_OK;
    }
    case QOR_RNG_INIT_SKIPAHEADEX: return QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

QOR_API int32_t __rixiBRngWH(void *stream, int32_t n, void *r) {
  const int32_t member = member_checked(stream);
  if (member < 0) return QOR_RNG_ERROR_INVALID_BRNG;
  run(*state<State>(stream), n, consts_for(member), IntSink{static_cast<uint32_t *>(r)});
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngWH(void *stream, int32_t n, double *r, double a, double b) {
  const int32_t member = member_checked(stream);
  if (member < 0) return QOR_RNG_ERROR_INVALID_BRNG;
  run(*state<State>(stream), n, consts_for(member), DoubleSink{r, a, b - a});
  return QOR_RNG_OK;
}

QOR_API int32_t __rixsBRngWH(void *stream, int32_t n, float *r, float a, float b) {
  const int32_t member = member_checked(stream);
  if (member < 0) return QOR_RNG_ERROR_INVALID_BRNG;
  run(*state<State>(stream), n, consts_for(member), FloatSink{r, a, b - a});
  return QOR_RNG_OK;
}

}  // extern "C"
