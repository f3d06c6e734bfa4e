// MT19937: the 32-bit Mersenne twister with period 2^19937 - 1.
//
// The stream keeps the 624-word block and the number of its words already
// delivered.  Output words are the tempered block words in order; a used-up
// block is regenerated in one pass, four lanes at a time.
//
// Skip-ahead: small counts simply regenerate the blocks in between; above
// 2097151 the new block is obtained by GF(2) polynomial jump-ahead: with phi
// the characteristic polynomial of the one-word transition A, A^J v = q(A) v
// for q = x^J mod phi, and q(A) v is evaluated by Horner's rule on a circular
// copy of the state.
#include <emmintrin.h>

#include <cstring>

#include "gf2_jump.h"
#include "qor/core.h"
#include "twister_common.h"
#include "twisters.h"

namespace qor::rng::twister {
namespace {

constexpr int kN = 624, kM = 397;
constexpr uint32_t kMatrixA = 0x9908b0dfu;
constexpr uint32_t kUpper = 0x80000000u, kLower = 0x7fffffffu;
constexpr int kDegree = 19937;
constexpr uint64_t kRecurrenceLimit = 2097151;  // above: polynomial jump

inline uint32_t twist(uint32_t x0, uint32_t x1) {
  const uint32_t y = (x0 & kUpper) | (x1 & kLower);
  return (y >> 1) ^ ((y & 1u) ? kMatrixA : 0u);
}

inline __m128i twist4(__m128i x0, __m128i x1) {
  const __m128i upper = _mm_set1_epi32(int32_t(kUpper));
  const __m128i y = _mm_or_si128(_mm_and_si128(x0, upper), _mm_andnot_si128(upper, x1));
  // Low bit of y spread to a full-lane mask selects the matrix word.
  const __m128i odd = _mm_sub_epi32(_mm_setzero_si128(),
                                    _mm_and_si128(y, _mm_set1_epi32(1)));
  return _mm_xor_si128(_mm_srli_epi32(y, 1), _mm_and_si128(odd, _mm_set1_epi32(int32_t(kMatrixA))));
}

inline __m128i load(const uint32_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}
inline void store(uint32_t *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }

// Replaces the block by the next 624 words of the sequence.  Every group of
// four reads words that are either not yet overwritten (i + 1 .. i + 4 and
// i + 397 ..) or overwritten at least 227 words earlier, so the lanes are
// independent.
void regenerate(uint32_t *x) {
  int i = 0;
  for (; i + 4 <= kN - kM; i += 4)  // 0 .. 223
    store(x + i, _mm_xor_si128(load(x + i + kM), twist4(load(x + i), load(x + i + 1))));
  for (; i < kN - kM; ++i) x[i] = x[i + kM] ^ twist(x[i], x[i + 1]);  // 224 .. 226
  for (; i + 4 <= kN - 1; i += 4)  // 227 .. 622
    store(x + i, _mm_xor_si128(load(x + i + kM - kN), twist4(load(x + i), load(x + i + 1))));
  for (; i < kN - 1; ++i) x[i] = x[i + kM - kN] ^ twist(x[i], x[i + 1]);
  x[kN - 1] = x[kM - 1] ^ twist(x[kN - 1], x[0]);
}

inline uint32_t temper(uint32_t y) {
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680u;
  y ^= (y << 15) & 0xefc60000u;
  y ^= y >> 18;
  return y;
}

inline __m128i temper4(__m128i y) {
  y = _mm_xor_si128(y, _mm_srli_epi32(y, 11));
  y = _mm_xor_si128(y, _mm_and_si128(_mm_slli_epi32(y, 7), _mm_set1_epi32(int32_t(0x9d2c5680u))));
  y = _mm_xor_si128(y, _mm_and_si128(_mm_slli_epi32(y, 15), _mm_set1_epi32(int32_t(0xefc60000u))));
  return _mm_xor_si128(y, _mm_srli_epi32(y, 18));
}

void fill(Mt19937State *s, uint32_t *r, int n) {
  while (n > 0) {
    if (s->pos >= uint32_t(kN)) {
      regenerate(s->x);
      s->pos = 0;
    }
    int k = kN - int(s->pos);
    if (k > n) k = n;
    const uint32_t *src = s->x + s->pos;
    int i = 0;
    for (; i + 4 <= k; i += 4) store(r + i, temper4(load(src + i)));
    for (; i < k; ++i) r[i] = temper(src[i]);
    s->pos += uint32_t(k);
    r += k;
    n -= k;
  }
}

void seed(Mt19937State *s, int n, const uint32_t *key) {
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
}

// ---- polynomial jump-ahead -------------------------------------------------

// The characteristic polynomial of the one-word transition and the reduction
// tables modulo it.  Built on first use and kept for the life of the process
// (about 5 MB from the core allocator); later jumps only read them.
struct JumpTables {
  bool ok = false;
  uint64_t phi[gf2::words_for_bits(kDegree + 1)] = {};
  gf2::Modulus mod;
  uint64_t *storage = nullptr;

  JumpTables() {
    // phi is the minimal polynomial of the top bit of the sequence from any
    // non-zero state: phi is irreducible, so no proper factor can annihilate
    // a non-zero sequence.  2 * degree terms determine it.
    const int len = 2 * kDegree;
    const std::size_t seq_words = gf2::words_for_bits(len) + 2;
    const std::size_t bm_words = gf2::bm_scratch_words(len);
    const std::size_t out_words = gf2::words_for_bits(len + 1) + 2;
    auto *work = static_cast<uint64_t *>(
        qor_serv_allocate((seq_words + bm_words + out_words) * sizeof(uint64_t), 64));
    if (!work) return;
    uint64_t *seq = work, *bm = work + seq_words, *out = bm + bm_words;
    std::memset(seq, 0, seq_words * sizeof(uint64_t));
    Mt19937State st;
    const uint32_t one = 1;
    seed(&st, 1, &one);
    for (int t = 0; t < len; t += kN) {
      regenerate(st.x);
      for (int k = 0; k < kN && t + k < len; ++k)
        if (st.x[k] >> 31) gf2::flip_bit(seq, t + k);
    }
    const int deg = gf2::berlekamp_massey(seq, len, out, bm);
    if (deg == kDegree) std::memcpy(phi, out, sizeof phi);
    qor_serv_deallocate(work);
    if (deg != kDegree) return;
    storage = static_cast<uint64_t *>(
        qor_serv_allocate(gf2::modulus_storage_words(kDegree) * sizeof(uint64_t), 64));
    if (!storage) return;
    gf2::modulus_init(mod, phi, kDegree, storage);
    ok = true;
  }
};

const JumpTables &jump_tables() {
  static const JumpTables tables;
  return tables;
}

// Window of 624 consecutive sequence words kept circularly: word j of the
// window is w[(o + j) % 624].
struct Window {
  uint32_t w[kN];
  int o = 0;

  void step() {
    const int o1 = o + 1 == kN ? 0 : o + 1;
    const int om = o + kM >= kN ? o + kM - kN : o + kM;
    w[o] = w[om] ^ twist(w[o], w[o1]);
    o = o1;
  }
  static void xor_into(uint32_t *d, const uint32_t *s, int n) {
    int j = 0;
    for (; j + 4 <= n; j += 4) store(d + j, _mm_xor_si128(load(d + j), load(s + j)));
    for (; j < n; ++j) d[j] ^= s[j];
  }
  void add(const uint32_t *v) {
    const int head = kN - o;
    xor_into(w + o, v, head);
    xor_into(w, v + head, kN - head);
  }
};

// Moves the block forward by `blocks` whole blocks (624 words each) with the
// jump polynomial.  Returns 0 or -4.
int32_t jump_blocks(Mt19937State *s, unsigned __int128 blocks) {
  const JumpTables &t = jump_tables();
  if (!t.ok) return kErrNoMemory;
  const int rw = t.mod.rw;
  auto *work = static_cast<uint64_t *>(qor_serv_allocate((3 * rw + 2) * sizeof(uint64_t), 64));
  auto *win = static_cast<Window *>(qor_serv_allocate(sizeof(Window), 64));
  if (!work || !win) {
    qor_serv_deallocate(work);
    qor_serv_deallocate(win);
    return kErrNoMemory;
  }
  uint64_t *q = work, *scratch = work + rw;
  // The low 31 bits of the block's first word never influence later words,
  // so the transition only acts on the other 19937 bits: the polynomial
  // brings those to the window that starts one word before the target block,
  // and one ordinary step then rebuilds the target block in full.
  gf2::x_power_mod(t.mod, blocks * kN - 1, q, scratch);
  uint32_t v[kN];
  std::memcpy(v, s->x, sizeof v);
  v[0] &= kUpper;
  std::memset(win->w, 0, sizeof win->w);
  win->o = 0;
  bool started = false;
  for (int i = gf2::degree(q, rw); i >= 0; --i) {
    if (started) win->step();
    if (gf2::get_bit(q, i)) {
      win->add(v);
      started = true;
    }
  }
  win->step();
  for (int j = 0; j < kN; ++j) s->x[j] = win->w[(win->o + j) % kN];
  qor_serv_deallocate(work);
  qor_serv_deallocate(win);
  return kOk;
}

int32_t skip(Mt19937State *s, uint64_t k) {
  if (k == 0) return kOk;
  const unsigned __int128 total = (unsigned __int128)s->pos + k;
  if (total <= kN) {
    s->pos = uint32_t(total);
    return kOk;
  }
  // Regenerate (or jump over) just enough blocks that the new position lies
  // in 1 .. 624 of the final block.
  const unsigned __int128 blocks = (total - 1) / kN;
  const uint32_t new_pos = uint32_t(total - blocks * kN);
  if (k <= kRecurrenceLimit) {
    for (uint64_t b = 0; b < uint64_t(blocks); ++b) regenerate(s->x);
  } else {
    const int32_t st = jump_blocks(s, blocks);
    if (st != kOk) return st;
  }
  s->pos = new_pos;
  return kOk;
}

}  // namespace
}  // namespace qor::rng::twister

using namespace qor::rng::twister;

extern "C" {

QOR_API int32_t __rixBRngMT19937InitStream(int32_t method, void *stream, int32_t n,
                                           const uint32_t *params) {
  auto *s = state_of<Mt19937State>(stream);
  switch (method) {
    case kMethodSeed:
      seed(s, n, params);
      return kOk;
    case kMethodLeapfrog:
      return kErrNoLeapfrog;
    case kMethodSkip:
      return skip(s, skip_count(params));
    case kMethodSkipMulti:
      return kErrNoSkipMulti;
    default:
      return kErrBadMethod;
  }
}

QOR_API int32_t __rixiBRngMT19937(void *stream, int32_t n, void *r) {
  if (n > 0) fill(state_of<Mt19937State>(stream), static_cast<uint32_t *>(r), n);
  return kOk;
}

QOR_API int32_t __rixsBRngMT19937(void *stream, int32_t n, float *r, float a, float b) {
  auto *s = state_of<Mt19937State>(stream);
  generate_float([s](uint32_t *u, int k) { fill(s, u, k); }, n, r, a, b);
  return kOk;
}

QOR_API int32_t __rixdBRngMT19937(void *stream, int32_t n, double *r, double a, double b) {
  auto *s = state_of<Mt19937State>(stream);
  generate_double([s](uint32_t *u, int k) { fill(s, u, k); }, n, r, a, b);
  return kOk;
}

}  // extern "C"
