// Philox4x32-10: ten rounds of two 32x32->64 multiplications per block, key
// bumped by the Weyl increments between rounds.  Bulk output computes four
// blocks at a time with the blocks spread across the lanes of SSE registers
// (word j of four consecutive blocks in one register), two such groups in
// flight to hide the multiplier latency.
#include <smmintrin.h>

#include <cstring>

#include "rng/brng/cbrng.h"
#include "rng/brng/cbrng_driver.h"

namespace qor::rng {
namespace {

constexpr uint32_t kMul0 = 0xD2511F53u;
constexpr uint32_t kMul1 = 0xCD9E8D57u;
constexpr uint32_t kBump0 = 0x9E3779B9u;
constexpr uint32_t kBump1 = 0xBB67AE85u;
constexpr int kRounds = 10;

inline void ctr_add(uint32_t c[4], uint64_t k) {
  const uint64_t lo = (static_cast<uint64_t>(c[1]) << 32 | c[0]) + k;
  const bool carry = lo < k;
  c[0] = static_cast<uint32_t>(lo);
  c[1] = static_cast<uint32_t>(lo >> 32);
  if (carry && ++c[2] == 0) ++c[3];
}

inline void ctr_add128(uint32_t c[4], const uint64_t q[2]) {
  uint64_t lo = static_cast<uint64_t>(c[1]) << 32 | c[0];
  uint64_t hi = static_cast<uint64_t>(c[3]) << 32 | c[2];
  lo += q[0];
  hi += q[1] + (lo < q[0]);
  c[0] = static_cast<uint32_t>(lo);
  c[1] = static_cast<uint32_t>(lo >> 32);
  c[2] = static_cast<uint32_t>(hi);
  c[3] = static_cast<uint32_t>(hi >> 32);
}

// Lanes 1 and 2 exchanged.
inline __m128i swap12(__m128i x) { return _mm_shuffle_epi32(x, _MM_SHUFFLE(3, 1, 2, 0)); }

// High halves of the lane-wise products x * m (m in every lane), delivered
// with lanes 1 and 2 exchanged: the 32x32->64 multiplier serves lanes 0, 2
// and, after one shuffle, lanes 1, 3, and a single two-source shuffle picks
// the four high halves in that order.  The exchange is harmless because the
// round XORs them only with words kept in the same exchanged order (below).
inline __m128i mulhi4_swapped(__m128i x, __m128i m) {
  const __m128i pe = _mm_mul_epu32(x, m);
  const __m128i po = _mm_mul_epu32(_mm_shuffle_epi32(x, _MM_SHUFFLE(3, 3, 1, 1)), m);
  return _mm_castps_si128(
      _mm_shuffle_ps(_mm_castsi128_ps(pe), _mm_castsi128_ps(po), _MM_SHUFFLE(3, 1, 3, 1)));
}

struct Group {
  __m128i x0, x1, x2, x3;  // word j of the group's four blocks
};

// One round.  Lane order alternates between rounds: x0 and x2 are in some
// order s, x1 and x3 in s with lanes 1, 2 exchanged.  The high products of x0
// and x2 come out exchanged, matching x1 and x3; the low products (a plain
// 32-bit multiply) keep order s and become the new x1 and x3, while the new
// x0 and x2 carry the exchanged order: the invariant holds with s exchanged.
// An even number of rounds brings s back to where it started.
inline void round4(Group &g, __m128i m0, __m128i m1, __m128i k0, __m128i k1) {
  const __m128i hi0 = mulhi4_swapped(g.x0, m0);
  const __m128i hi1 = mulhi4_swapped(g.x2, m1);
  const __m128i lo0 = _mm_mullo_epi32(g.x0, m0);
  const __m128i lo1 = _mm_mullo_epi32(g.x2, m1);
  // x1 ^ k0 and x3 ^ k1 do not wait for the multiplier; the empty asm keeps
  // the compiler from reassociating the key XOR onto the multiply's path.
  __m128i t0 = _mm_xor_si128(g.x1, k0);
  __m128i t1 = _mm_xor_si128(g.x3, k1);
  __asm__("" : "+x"(t0), "+x"(t1));
  g.x0 = _mm_xor_si128(hi1, t0);
  g.x1 = lo1;
  g.x2 = _mm_xor_si128(hi0, t1);
  g.x3 = lo0;
}
static_assert(kRounds % 2 == 0, "the rounds' lane order must return to the start");

// Loads the counters c, c+1, c+2, c+3 into a group.
inline Group load_counters(const uint32_t c[4]) {
  Group g;
  if (c[0] <= 0xFFFFFFFFu - 3) {
    g.x0 = _mm_add_epi32(_mm_set1_epi32(static_cast<int>(c[0])), _mm_setr_epi32(0, 1, 2, 3));
    g.x1 = _mm_set1_epi32(static_cast<int>(c[1]));
    g.x2 = _mm_set1_epi32(static_cast<int>(c[2]));
    g.x3 = _mm_set1_epi32(static_cast<int>(c[3]));
    return g;  // splats look the same in every lane order
  }
  // A carry out of word 0 inside the group: build the counters one by one.
  alignas(16) uint32_t w[4][4];
  uint32_t t[4] = {c[0], c[1], c[2], c[3]};
  for (int b = 0; b < 4; ++b) {
    for (int j = 0; j < 4; ++j) w[j][b] = t[j];
    ctr_add(t, 1);
  }
  g.x0 = _mm_load_si128(reinterpret_cast<const __m128i *>(w[0]));
  g.x1 = _mm_load_si128(reinterpret_cast<const __m128i *>(w[1]));
  g.x2 = _mm_load_si128(reinterpret_cast<const __m128i *>(w[2]));
  g.x3 = _mm_load_si128(reinterpret_cast<const __m128i *>(w[3]));
  g.x1 = swap12(g.x1);  // the rounds expect x1 and x3 exchanged
  g.x3 = swap12(g.x3);
  return g;
}

// Writes the group's four blocks in delivery order (a 4x4 transpose).
inline void store_group(Group g, uint32_t *out) {
  g.x1 = swap12(g.x1);  // back from the rounds' lane order
  g.x3 = swap12(g.x3);
  const __m128i t0 = _mm_unpacklo_epi32(g.x0, g.x1);  // b0w0 b0w1 b1w0 b1w1
  const __m128i t1 = _mm_unpacklo_epi32(g.x2, g.x3);  // b0w2 b0w3 b1w2 b1w3
  const __m128i t2 = _mm_unpackhi_epi32(g.x0, g.x1);
  const __m128i t3 = _mm_unpackhi_epi32(g.x2, g.x3);
  __m128i *o = reinterpret_cast<__m128i *>(out);
  _mm_storeu_si128(o + 0, _mm_unpacklo_epi64(t0, t1));
  _mm_storeu_si128(o + 1, _mm_unpackhi_epi64(t0, t1));
  _mm_storeu_si128(o + 2, _mm_unpacklo_epi64(t2, t3));
  _mm_storeu_si128(o + 3, _mm_unpackhi_epi64(t2, t3));
}

struct RoundKeys {
  __m128i k0[kRounds], k1[kRounds];
};

inline void make_round_keys(const uint32_t key[2], RoundKeys &rk) {
  uint32_t a = key[0], b = key[1];
  for (int i = 0; i < kRounds; ++i) {
    rk.k0[i] = _mm_set1_epi32(static_cast<int>(a));
    rk.k1[i] = _mm_set1_epi32(static_cast<int>(b));
    a += kBump0;
    b += kBump1;
  }
}

struct PhiloxGen {
  using State = PhiloxState;
  static void next_block(State &s, uint32_t out[4]) {
    uint32_t blk[4];
    philox4x32_10_block(s.key, s.ctr, blk);
    std::memcpy(out, blk, sizeof blk);
    ctr_add(s.ctr, 1);
  }
  static void bulk(State &s, uint64_t n, uint32_t *out) {
    philox4x32_10_blocks(s.key, s.ctr, n, out);
  }
};

}  // namespace

void philox4x32_10_block(const uint32_t key[2], const uint32_t ctr[4], uint32_t out[4]) {
  uint32_t x0 = ctr[0], x1 = ctr[1], x2 = ctr[2], x3 = ctr[3];
  uint32_t k0 = key[0], k1 = key[1];
  for (int i = 0; i < kRounds; ++i) {
    const uint64_t p0 = static_cast<uint64_t>(kMul0) * x0;
    const uint64_t p1 = static_cast<uint64_t>(kMul1) * x2;
    x0 = static_cast<uint32_t>(p1 >> 32) ^ x1 ^ k0;
    x1 = static_cast<uint32_t>(p1);
    x2 = static_cast<uint32_t>(p0 >> 32) ^ x3 ^ k1;
    x3 = static_cast<uint32_t>(p0);
    k0 += kBump0;
    k1 += kBump1;
  }
  out[0] = x0;
  out[1] = x1;
  out[2] = x2;
  out[3] = x3;
}

void philox4x32_10_blocks(const uint32_t key[2], uint32_t ctr[4], uint64_t n, uint32_t *out) {
  RoundKeys rk;
  make_round_keys(key, rk);
  const __m128i m0 = _mm_set1_epi32(static_cast<int>(kMul0));
  const __m128i m1 = _mm_set1_epi32(static_cast<int>(kMul1));
  // Two groups (eight blocks) in flight keep the multipliers busy while each
  // round waits on the previous one; more run out of registers.
  for (; n >= 8; n -= 8, out += 32) {
    Group g[2];
    g[0] = load_counters(ctr);
    ctr_add(ctr, 4);
    g[1] = load_counters(ctr);
    ctr_add(ctr, 4);
    // Fully unrolled the rounds need fewer register moves (measured faster).
#pragma GCC unroll 10
    for (int i = 0; i < kRounds; ++i) {
#pragma GCC unroll 2
      for (int j = 0; j < 2; ++j) round4(g[j], m0, m1, rk.k0[i], rk.k1[i]);
    }
    store_group(g[0], out);
    store_group(g[1], out + 16);
  }
  for (; n >= 4; n -= 4, out += 16) {
    Group a = load_counters(ctr);
    ctr_add(ctr, 4);
    for (int i = 0; i < kRounds; ++i) round4(a, m0, m1, rk.k0[i], rk.k1[i]);
    store_group(a, out);
  }
  for (; n > 0; --n, out += 4) {
    philox4x32_10_block(key, ctr, out);
    ctr_add(ctr, 1);
  }
}

}  // namespace qor::rng

using qor::rng::PhiloxState;
using qor::rng::state_of;

extern "C" {

QOR_API int32_t __rixBRngPHILOX4X32X10InitStream(int32_t method, void *stream, int32_t n,
                                                 const uint32_t *params) {
  using namespace qor::rng;
  PhiloxState &s = *state_of<PhiloxState>(stream);
  switch (method) {
    case 0: {
      // Seed words 0-1 are the key, 2-5 the counter; missing words are 0.
      uint32_t w[6] = {0, 0, 0, 0, 0, 0};
      for (int i = 0; i < n && i < 6 && params; ++i) w[i] = params[i];
      s.key[0] = w[0];
      s.key[1] = w[1];
      for (int i = 0; i < 4; ++i) s.ctr[i] = w[2 + i];
      s.remaining = 0;
      std::memset(s.buf, 0, sizeof s.buf);
      return kStatusOk;
    }
    case 1:
      return kStatusNoLeapfrog;
    case 2:
    case 3: {
      const SkipCount k = method == 2 ? skip_count_single(params) : skip_count_multi(n, params);
      const uint32_t rem = s.remaining > 4 ? 4 : s.remaining;
      const SkipSplit sp = split_skip(k, rem);
      if (sp.within) {
        s.remaining = rem - static_cast<uint32_t>(k.w[0]);
        return kStatusOk;
      }
      // The word that ends the skip lies in block floor((d - 1) / 4) after the
      // buffered one; that block is buffered with (remaining - k) mod 4 of its
      // words left, and the counter moves past it as after any block.
      s.remaining = (4 - sp.d_mod4) & 3;
      ctr_add128(s.ctr, sp.qm1);
      PhiloxGen::next_block(s, s.buf);
      return kStatusOk;
    }
    default:
      return kStatusBadMethod;
  }
}

QOR_API int32_t __rixiBRngPHILOX4X32X10(void *stream, int32_t n, void *out) {
  qor::rng::cb_fill_words<qor::rng::PhiloxGen>(*state_of<PhiloxState>(stream), n,
                                               static_cast<uint32_t *>(out));
  return 0;
}

QOR_API int32_t __rixsBRngPHILOX4X32X10(void *stream, int32_t n, float *r, float a, float b) {
  qor::rng::cb_fill_scaled<qor::rng::PhiloxGen>(*state_of<PhiloxState>(stream), n, r, a, b,
                                                qor::rng::scale_u32_to_float);
  return 0;
}

QOR_API int32_t __rixdBRngPHILOX4X32X10(void *stream, int32_t n, double *r, double a, double b) {
  qor::rng::cb_fill_scaled<qor::rng::PhiloxGen>(*state_of<PhiloxState>(stream), n, r, a, b,
                                                qor::rng::scale_u32_to_double);
  return 0;
}

}  // extern "C"
