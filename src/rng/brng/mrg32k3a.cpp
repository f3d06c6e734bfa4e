// MRG32K3A: L'Ecuyer's combined multiple recursive generator.
//   x1(n) = (1403580 x1(n-2) - 810728 x1(n-3)) mod m1,  m1 = 2^32 - 209
//   x2(n) = (527612 x2(n-1) - 1370589 x2(n-3)) mod m2,  m2 = 2^32 - 22853
//   u(n)  = (x1(n) - x2(n)) mod m1
// State per component: (x(n-3), x(n-2), x(n-1)), oldest first.
//
// The second component depends on its previous value, so one sequence has a
// long dependency chain.  Long calls are therefore cut into eight segments;
// each segment's starting state comes from a jump by matrix powers, and the
// eight segments advance together in 64-bit vector lanes.  Every output lands
// at its sequential position, so the result equals the sequential sequence.
#include <array>

#include "rng/brng/common.h"

namespace {

using namespace qor::rng;
using namespace qor::rng::brng;

constexpr uint64_t kM1 = 4294967087u;
constexpr uint64_t kM2 = 4294944443u;
constexpr uint64_t kA12 = 1403580, kA13 = 810728;
constexpr uint64_t kA21 = 527612, kA23 = 1370589;

struct State {
  uint32_t x1[3];
  uint32_t x2[3];
};
static_assert(sizeof(State) + 16 == 40);

using Mat = std::array<std::array<uint64_t, 3>, 3>;

constexpr Mat matmul(const Mat &a, const Mat &b, uint64_t m) {
  Mat c{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      uint64_t s = 0;
      for (int k = 0; k < 3; ++k) s = (s + (a[i][k] * b[k][j]) % m) % m;
      c[i][j] = s;
    }
  return c;
}

constexpr int kTableBits = 192;

// Transition matrices acting on (x(n-3), x(n-2), x(n-1)).
constexpr Mat kA1{{{0, 1, 0}, {0, 0, 1}, {kM1 - kA13, kA12, 0}}};
constexpr Mat kA2{{{0, 1, 0}, {0, 0, 1}, {kM2 - kA23, 0, kA21}}};

// Powers A^(2^i) for i < 192: counts of up to three 64-bit words jump with at
// most 192 matrix-vector products.
constexpr std::array<Mat, kTableBits> power_table(const Mat &a, uint64_t m) {
  std::array<Mat, kTableBits> t{};
  t[0] = a;
  for (int i = 1; i < kTableBits; ++i) t[i] = matmul(t[i - 1], t[i - 1], m);
  return t;
}

constexpr std::array<Mat, kTableBits> kPow1 = power_table(kA1, kM1);
constexpr std::array<Mat, kTableBits> kPow2 = power_table(kA2, kM2);

void apply(const Mat &a, uint32_t v[3], uint64_t m) {
  uint64_t r[3];
  for (int i = 0; i < 3; ++i) {
    uint64_t s = 0;
    for (int k = 0; k < 3; ++k) s = (s + mulmod(a[i][k], v[k], m)) % m;
    r[i] = s;
  }
  for (int i = 0; i < 3; ++i) v[i] = static_cast<uint32_t>(r[i]);
}

// Advances the state by the count held in `words` 64-bit words (least
// significant first).
void jump(State &s, const uint64_t *words, int nwords) {
  while (nwords > 0 && words[nwords - 1] == 0) --nwords;
  Mat beyond1{}, beyond2{};  // A^(2^i) for i >= 192, formed by squaring
  for (int w = 0; w < nwords; ++w) {
    for (int b = 0; b < 64; ++b) {
      const int bit = w * 64 + b;
      if (bit >= kTableBits) {
        beyond1 = bit == kTableBits ? matmul(kPow1[kTableBits - 1], kPow1[kTableBits - 1], kM1)
                                    : matmul(beyond1, beyond1, kM1);
        beyond2 = bit == kTableBits ? matmul(kPow2[kTableBits - 1], kPow2[kTableBits - 1], kM2)
                                    : matmul(beyond2, beyond2, kM2);
      }
      if (!((words[w] >> b) & 1)) continue;
      apply(bit < kTableBits ? kPow1[bit] : beyond1, s.x1, kM1);
      apply(bit < kTableBits ? kPow2[bit] : beyond2, s.x2, kM2);
    }
  }
}

// One scalar step; returns the output.
inline uint32_t step(State &s) {
  uint64_t t = kA12 * s.x1[1] + kA13 * (kM1 - s.x1[0]);
  t = (t & 0xFFFFFFFFu) + (t >> 32) * 209;
  if (t >= kM1) t -= kM1;
  uint64_t q = kA21 * s.x2[2] + kA23 * (kM2 - s.x2[0]);
  q = (q & 0xFFFFFFFFu) + (q >> 32) * 22853;
  q = (q & 0xFFFFFFFFu) + (q >> 32) * 22853;
  if (q >= kM2) q -= kM2;
  s.x1[0] = s.x1[1], s.x1[1] = s.x1[2], s.x1[2] = static_cast<uint32_t>(t);
  s.x2[0] = s.x2[1], s.x2[1] = s.x2[2], s.x2[2] = static_cast<uint32_t>(q);
  return static_cast<uint32_t>(t >= q ? t - q : t + kM1 - q);
}

// The same step on two independent states held in the 64-bit lanes.
struct Pair {
  __m128i x1[3], x2[3];
};

inline __m128i step_pair(Pair &p) {
  const __m128i lo32 = _mm_set1_epi64x(0xFFFFFFFFll);
  const __m128i m1 = _mm_set1_epi64x(static_cast<long long>(kM1));
  const __m128i m2 = _mm_set1_epi64x(static_cast<long long>(kM2));
  __m128i t = _mm_add_epi64(_mm_mul_epu32(p.x1[1], _mm_set1_epi64x(kA12)),
                            _mm_mul_epu32(_mm_sub_epi64(m1, p.x1[0]), _mm_set1_epi64x(kA13)));
  t = _mm_add_epi64(_mm_and_si128(t, lo32),
                    _mm_mul_epu32(_mm_srli_epi64(t, 32), _mm_set1_epi64x(209)));
  t = _mm_sub_epi64(t, _mm_and_si128(_mm_cmpgt_epi64(t, _mm_sub_epi64(m1, _mm_set1_epi64x(1))), m1));
  __m128i q = _mm_add_epi64(_mm_mul_epu32(p.x2[2], _mm_set1_epi64x(kA21)),
                            _mm_mul_epu32(_mm_sub_epi64(m2, p.x2[0]), _mm_set1_epi64x(kA23)));
  q = _mm_add_epi64(_mm_and_si128(q, lo32),
                    _mm_mul_epu32(_mm_srli_epi64(q, 32), _mm_set1_epi64x(22853)));
  q = _mm_add_epi64(_mm_and_si128(q, lo32),
                    _mm_mul_epu32(_mm_srli_epi64(q, 32), _mm_set1_epi64x(22853)));
  q = _mm_sub_epi64(q, _mm_and_si128(_mm_cmpgt_epi64(q, _mm_sub_epi64(m2, _mm_set1_epi64x(1))), m2));
  p.x1[0] = p.x1[1], p.x1[1] = p.x1[2], p.x1[2] = t;
  p.x2[0] = p.x2[1], p.x2[1] = p.x2[2], p.x2[2] = q;
  const __m128i d = _mm_sub_epi64(t, q);
  return _mm_add_epi64(d, _mm_and_si128(_mm_cmpgt_epi64(_mm_setzero_si128(), d), m1));
}

constexpr int kLanes = 8;
constexpr int32_t kSegmentMin = 1024;  // shorter segments do not repay the jumps

// A^k for one 64-bit count, from the table of powers.
Mat power(const std::array<Mat, kTableBits> &t, uint64_t k, uint64_t m) {
  Mat r{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  for (int b = 0; b < 64; ++b)
    if ((k >> b) & 1) r = matmul(r, t[b], m);
  return r;
}

// Starting states of the eight segments of a call, `seg` outputs apart.
void make_pairs(const State &s, int32_t seg, Pair p[kLanes / 2]) {
  State lane[kLanes];
  lane[0] = s;
  const Mat j1 = power(kPow1, static_cast<uint64_t>(seg), kM1);
  const Mat j2 = power(kPow2, static_cast<uint64_t>(seg), kM2);
  for (int l = 1; l < kLanes; ++l) {
    lane[l] = lane[l - 1];
    apply(j1, lane[l].x1, kM1);
    apply(j2, lane[l].x2, kM2);
  }
  for (int k = 0; k < kLanes / 2; ++k)
    for (int j = 0; j < 3; ++j) {
      p[k].x1[j] = _mm_set_epi64x(lane[2 * k + 1].x1[j], lane[2 * k].x1[j]);
      p[k].x2[j] = _mm_set_epi64x(lane[2 * k + 1].x2[j], lane[2 * k].x2[j]);
    }
}

// The last lane ends where the whole call's segments end.
void take_last(const Pair p[kLanes / 2], State &s) {
  for (int j = 0; j < 3; ++j) {
    s.x1[j] = static_cast<uint32_t>(_mm_extract_epi64(p[kLanes / 2 - 1].x1[j], 1));
    s.x2[j] = static_cast<uint32_t>(_mm_extract_epi64(p[kLanes / 2 - 1].x2[j], 1));
  }
}

// `count` steps of all lanes; lane l's j-th output goes to out[l * stride + j].
inline void step_lanes(Pair p[kLanes / 2], int32_t count, uint32_t *out, int32_t stride) {
  for (int32_t j = 0; j < count; ++j)
    for (int k = 0; k < kLanes / 2; ++k) {
      const __m128i d = step_pair(p[k]);
      out[2 * k * stride + j] = static_cast<uint32_t>(_mm_cvtsi128_si32(d));
      out[(2 * k + 1) * stride + j] = static_cast<uint32_t>(_mm_extract_epi32(d, 2));
    }
}

void run_int(State &s, int32_t n, uint32_t *r) {
  int32_t i = 0;
  if (n >= kLanes * kSegmentMin) {
    const int32_t seg = n / kLanes;
    Pair p[kLanes / 2];
    make_pairs(s, seg, p);
    step_lanes(p, seg, r, seg);
    take_last(p, s);
    i = kLanes * seg;
  }
  for (; i < n; ++i) r[i] = step(s);
}

// Real output: the lanes write short runs of integers to scratch, which are
// then scaled into their segments in bulk.
template <class Real>
void run_real(State &s, int32_t n, Real *r, Real a, Real f) {
  int32_t i = 0;
  if (n >= kLanes * kSegmentMin) {
    constexpr int32_t kRun = 256;
    alignas(16) uint32_t tmp[kLanes * kRun];
    const int32_t seg = n / kLanes;
    Pair p[kLanes / 2];
    make_pairs(s, seg, p);
    for (int32_t off = 0; off < seg; off += kRun) {
      const int32_t c = seg - off < kRun ? seg - off : kRun;
      step_lanes(p, c, tmp, kRun);
      for (int l = 0; l < kLanes; ++l) scale_u32(tmp + l * kRun, c, r + l * seg + off, a, f);
    }
    take_last(p, s);
    i = kLanes * seg;
  }
  for (; i < n; ++i) r[i] = a + static_cast<Real>(step(s)) * f;
}

constexpr double kScale = 2.328306549837829e-10;  // 1 / m1

}  // namespace

extern "C" {

QOR_API int32_t __rixBRngMRG32K3AInitStream(int32_t method, void *stream, int32_t n,
                                            const uint32_t *params) {
  State &s = *state<State>(stream);
  switch (method) {
    case QOR_RNG_INIT_SEED: {
      uint32_t w[6] = {1, 1, 1, 1, 1, 1};
      for (int i = 0; i < n && i < 6; ++i) w[i] = params[i];
      for (int i = 0; i < 3; ++i) {
        // Lowering by m is adding 2^32 - m modulo 2^32.
        s.x1[i] = w[i] >= kM1 ? w[i] + 209u : w[i];
        s.x2[i] = w[3 + i] >= kM2 ? w[3 + i] + 22853u : w[3 + i];
      }
      if (s.x1[0] == 0 && s.x1[1] == 0 && s.x1[2] == 0) s.x1[0] = 1;
      if (s.x2[0] == 0 && s.x2[1] == 0 && s.x2[2] == 0) s.x2[0] = 1;
      return QOR_RNG_OK;
    }
    case QOR_RNG_INIT_LEAPFROG: return QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case QOR_RNG_INIT_SKIPAHEAD: {
      const uint64_t k = skip_count(params);
      jump(s, &k, 1);
      return QOR_RNG_OK;
    }
    case QOR_RNG_INIT_SKIPAHEADEX:
      if (n > 0) jump(s, reinterpret_cast<const uint64_t *>(params), n);
      return QOR_RNG_OK;
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

QOR_API int32_t __rixiBRngMRG32K3A(void *stream, int32_t n, void *r) {
  run_int(*state<State>(stream), n, static_cast<uint32_t *>(r));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixdBRngMRG32K3A(void *stream, int32_t n, double *r, double a, double b) {
  run_real(*state<State>(stream), n, r, a, (b - a) * kScale);
  return QOR_RNG_OK;
}

QOR_API int32_t __rixsBRngMRG32K3A(void *stream, int32_t n, float *r, float a, float b) {
  run_real(*state<State>(stream), n, r, a, (b - a) * static_cast<float>(kScale));
  return QOR_RNG_OK;
}

}  // extern "C"
