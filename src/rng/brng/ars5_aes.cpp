// ARS5: the block is five AES rounds of the 128-bit counter under round keys
// that follow a Weyl sequence, k(i) = key + i * W lane-wise modulo 2^64.
// Bulk output keeps eight independent blocks in flight so that the AES unit
// is kept busy despite the latency of each round.
//
// This file is compiled with -maes: every path that reaches an AES
// instruction is behind cpu_has_aes(), and the routines return -1140 without
// the instruction.
#include <smmintrin.h>
#include <wmmintrin.h>

#include <cstring>

#include "rng/brng/cbrng.h"
#include "rng/brng/cbrng_driver.h"

namespace qor::rng {
namespace {

constexpr uint64_t kWeylLo = 0x9E3779B97F4A7C15ull;
constexpr uint64_t kWeylHi = 0xBB67AE8584CAA73Bull;
constexpr int kBatch = 8;

struct RoundKeys {
  __m128i k[6];
};

inline RoundKeys make_round_keys(const uint32_t key[4]) {
  RoundKeys rk;
  const __m128i w =
      _mm_set_epi64x(static_cast<long long>(kWeylHi), static_cast<long long>(kWeylLo));
  rk.k[0] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(key));
  for (int i = 1; i < 6; ++i) rk.k[i] = _mm_add_epi64(rk.k[i - 1], w);
  return rk;
}

inline __m128i counter_vec(const uint64_t c[2]) {
  return _mm_set_epi64x(static_cast<long long>(c[1]), static_cast<long long>(c[0]));
}

inline void ctr_add(uint64_t c[2], uint64_t k) {
  c[0] += k;
  c[1] += (c[0] < k);
}

inline __m128i encrypt(__m128i v, const RoundKeys &rk) {
  v = _mm_xor_si128(v, rk.k[0]);
  v = _mm_aesenc_si128(v, rk.k[1]);
  v = _mm_aesenc_si128(v, rk.k[2]);
  v = _mm_aesenc_si128(v, rk.k[3]);
  v = _mm_aesenc_si128(v, rk.k[4]);
  return _mm_aesenclast_si128(v, rk.k[5]);
}

struct Ars5Gen {
  using State = Ars5State;
  static void next_block(State &s, uint32_t out[4]) {
    const RoundKeys rk = make_round_keys(s.key);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), encrypt(counter_vec(s.ctr), rk));
    ctr_add(s.ctr, 1);
  }
  static void bulk(State &s, uint64_t n, uint32_t *out) {
    const RoundKeys rk = make_round_keys(s.key);
    __m128i *o = reinterpret_cast<__m128i *>(out);
    __m128i step[kBatch];
    for (int j = 0; j < kBatch; ++j) step[j] = _mm_set_epi64x(0, j);
    for (; n >= kBatch; n -= kBatch, o += kBatch) {
      __m128i v[kBatch];
      if (s.ctr[0] <= ~uint64_t{0} - (kBatch - 1)) {
        // No carry into the high half inside the batch: lane-wise adds suffice.
        const __m128i c = counter_vec(s.ctr);
#pragma GCC unroll 8
        for (int j = 0; j < kBatch; ++j) v[j] = _mm_xor_si128(_mm_add_epi64(c, step[j]), rk.k[0]);
        ctr_add(s.ctr, kBatch);
      } else {
        for (int j = 0; j < kBatch; ++j) {
          v[j] = _mm_xor_si128(counter_vec(s.ctr), rk.k[0]);
          ctr_add(s.ctr, 1);
        }
      }
      for (int r = 1; r < 5; ++r) {
#pragma GCC unroll 8
        for (int j = 0; j < kBatch; ++j) v[j] = _mm_aesenc_si128(v[j], rk.k[r]);
      }
#pragma GCC unroll 8
      for (int j = 0; j < kBatch; ++j) _mm_storeu_si128(o + j, _mm_aesenclast_si128(v[j], rk.k[5]));
    }
    for (; n > 0; --n, ++o) {
      _mm_storeu_si128(o, encrypt(counter_vec(s.ctr), rk));
      ctr_add(s.ctr, 1);
    }
  }
};

}  // namespace

void ars5_block(const uint32_t key[4], const uint64_t ctr[2], uint32_t out[4]) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(out),
                   encrypt(counter_vec(ctr), make_round_keys(key)));
}

}  // namespace qor::rng

using qor::rng::Ars5State;
using qor::rng::state_of;

extern "C" {

QOR_API int32_t __rixBRngARS5InitStream(int32_t method, void *stream, int32_t n,
                                        const uint32_t *params) {
  using namespace qor::rng;
  Ars5State &s = *state_of<Ars5State>(stream);
  switch (method) {
    case 0: {
      // Seed words 0-3 are the key, 4-7 the counter (word 4 least
      // significant); missing words are 0.  Seeding needs no AES.
      uint32_t w[8] = {0, 0, 0, 0, 0, 0, 0, 0};
      for (int i = 0; i < n && i < 8 && params; ++i) w[i] = params[i];
      std::memcpy(s.key, w, sizeof s.key);
      s.ctr[0] = static_cast<uint64_t>(w[5]) << 32 | w[4];
      s.ctr[1] = static_cast<uint64_t>(w[7]) << 32 | w[6];
      s.remaining = 0;
      std::memset(s.buf, 0, sizeof s.buf);
      return kStatusOk;
    }
    case 1:
      return kStatusNoLeapfrog;
    case 2:
    case 3: {
      if (!cpu_has_aes()) return kStatusNoAes;
      const SkipCount k = method == 2 ? skip_count_single(params) : skip_count_multi(n, params);
      const uint32_t rem = s.remaining > 4 ? 4 : s.remaining;
      const SkipSplit sp = split_skip(k, rem);
      if (sp.within) {
        s.remaining = rem - static_cast<uint32_t>(k.w[0]);
        return kStatusOk;
      }
      // d = k - remaining words past the buffer: floor(d / 4) whole blocks are
      // dropped and d mod 4 words of the next one; that block is buffered with
      // 4 - (d mod 4) words left (all four when 4 divides d).
      s.remaining = 4 - sp.d_mod4;
      s.ctr[0] += sp.q[0];
      s.ctr[1] += sp.q[1] + (s.ctr[0] < sp.q[0]);
      Ars5Gen::next_block(s, s.buf);
      return kStatusOk;
    }
    default:
      return kStatusBadMethod;
  }
}

QOR_API int32_t __rixiBRngARS5(void *stream, int32_t n, void *out) {
  if (!qor::rng::cpu_has_aes()) return qor::rng::kStatusNoAes;
  qor::rng::cb_fill_words<qor::rng::Ars5Gen>(*state_of<Ars5State>(stream), n,
                                             static_cast<uint32_t *>(out));
  return 0;
}

QOR_API int32_t __rixsBRngARS5(void *stream, int32_t n, float *r, float a, float b) {
  if (!qor::rng::cpu_has_aes()) return qor::rng::kStatusNoAes;
  qor::rng::cb_fill_scaled<qor::rng::Ars5Gen>(*state_of<Ars5State>(stream), n, r, a, b,
                                              qor::rng::scale_u32_to_float);
  return 0;
}

QOR_API int32_t __rixdBRngARS5(void *stream, int32_t n, double *r, double a, double b) {
  if (!qor::rng::cpu_has_aes()) return qor::rng::kStatusNoAes;
  qor::rng::cb_fill_scaled<qor::rng::Ars5Gen>(*state_of<Ars5State>(stream), n, r, a, b,
                                              qor::rng::scale_u32_to_double);
  return 0;
}

}  // extern "C"
