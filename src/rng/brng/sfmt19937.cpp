// SFMT19937: the SIMD-oriented fast Mersenne twister with exponent 19937.
//
// The state is 156 groups of 128 bits; group t + 156 of the sequence is
//   w_t ^ (w_t <<128 8) ^ ((w_{t+122} >>32 11) & MSK) ^ (w_{t+154} >>128 8)
//       ^ (w_{t+155} <<32 18)
// (<<128 / >>128 shift the whole 128-bit group, >>32 / <<32 each 32-bit lane),
// which maps directly onto SSE2 instructions.  Output words are the state
// words in order, untempered.  The 64-bit position counts the words delivered
// since seeding; whenever it is a multiple of 624 the block is used up (or
// still the seeded one) and is regenerated before the next word.
//
// Seeding ends with the published period certification, which makes the
// state's component in the invariant subspace of period 2^19937 - 1 non-zero
// (it flips one bit when needed), so every seeded stream has the full period.
//
// Skip-ahead: counts up to 19967 regenerate the blocks in between (stepping
// the recurrence is Horner's scheme for the jump polynomial x^k, which for
// such k is not reduced); larger counts use q = x^J mod phi, phi being the
// degree-19968 characteristic polynomial of the one-group transition.
#include <emmintrin.h>

#include <cstring>

#include "gf2_jump.h"
#include "qor/core.h"
#include "twister_common.h"
#include "twisters.h"

namespace qor::rng::twister {
namespace {

constexpr int kN = 156;   // 128-bit groups
constexpr int kN32 = 624; // 32-bit words
constexpr int kPos1 = 122;
constexpr int kSL1 = 18, kSL2 = 1, kSR1 = 11, kSR2 = 1;
constexpr uint32_t kMsk[4] = {0xdfffffefu, 0xddfecb7fu, 0xbffaffffu, 0xbffffff6u};
constexpr uint32_t kParity[4] = {0x00000001u, 0x00000000u, 0x00000000u, 0x13c9e684u};
constexpr int kDegree = 19968;
constexpr uint64_t kHornerLimit = 19967;
// Only the position modulo 624 matters, so it is kept below this multiple of
// 624 that fits in 32 bits: the stream core copies a state as 625 words
// (the block and one more word), which then carries the whole position.
constexpr uint64_t kPosModulus = (uint64_t{0xFFFFFFFFu} / kN32) * kN32;

inline __m128i recursion(__m128i a, __m128i b, __m128i c, __m128i d, __m128i mask) {
  const __m128i x = _mm_slli_si128(a, kSL2);
  const __m128i y = _mm_srli_si128(c, kSR2);
  const __m128i z = _mm_and_si128(_mm_srli_epi32(b, kSR1), mask);
  const __m128i v = _mm_slli_epi32(d, kSL1);
  return _mm_xor_si128(_mm_xor_si128(_mm_xor_si128(a, x), _mm_xor_si128(z, y)), v);
}

inline __m128i mask_vector() {
  return _mm_set_epi32(int32_t(kMsk[3]), int32_t(kMsk[2]), int32_t(kMsk[1]), int32_t(kMsk[0]));
}

void regenerate(uint32_t *x32) {
  __m128i *w = reinterpret_cast<__m128i *>(x32);
  const __m128i mask = mask_vector();
  __m128i r1 = _mm_load_si128(w + kN - 2), r2 = _mm_load_si128(w + kN - 1);
  int i = 0;
  for (; i < kN - kPos1; ++i) {
    const __m128i r = recursion(_mm_load_si128(w + i), _mm_load_si128(w + i + kPos1), r1, r2, mask);
    _mm_store_si128(w + i, r);
    r1 = r2;
    r2 = r;
  }
  for (; i < kN; ++i) {
    const __m128i r =
        recursion(_mm_load_si128(w + i), _mm_load_si128(w + i + kPos1 - kN), r1, r2, mask);
    _mm_store_si128(w + i, r);
    r1 = r2;
    r2 = r;
  }
}

// Generates `blocks` whole blocks straight into the caller's array (which
// need not be aligned): each group is computed from groups already written
// there, so the output is read back only from cache, and the state receives
// the last block at the end.
void generate_blocks(uint32_t *x32, uint32_t *out32, int blocks) {
  const __m128i *st = reinterpret_cast<const __m128i *>(x32);
  auto at = [out32](int t) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(out32 + 4 * t)); };
  auto put = [out32](int t, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(out32 + 4 * t), v); };
  const __m128i mask = mask_vector();
  __m128i r1 = _mm_load_si128(st + kN - 2), r2 = _mm_load_si128(st + kN - 1);
  int t = 0;
  for (; t < kN - kPos1; ++t) {
    const __m128i v = recursion(_mm_load_si128(st + t), _mm_load_si128(st + t + kPos1), r1, r2, mask);
    put(t, v);
    r1 = r2;
    r2 = v;
  }
  for (; t < kN; ++t) {
    const __m128i v = recursion(_mm_load_si128(st + t), at(t + kPos1 - kN), r1, r2, mask);
    put(t, v);
    r1 = r2;
    r2 = v;
  }
  const int total = blocks * kN;
  for (; t < total; ++t) {
    const __m128i v = recursion(at(t - kN), at(t - kN + kPos1), r1, r2, mask);
    put(t, v);
    r1 = r2;
    r2 = v;
  }
  std::memcpy(x32, out32 + 4 * (total - kN), sizeof(uint32_t) * kN32);
}

void fill(SfmtState *s, uint32_t *r, int n) {
  while (n > 0) {
    int idx = int(s->pos % kN32);
    if (idx == 0 && n >= kN32) {
      const int blocks = n / kN32;
      generate_blocks(s->x, r, blocks);
      const int k = blocks * kN32;
      s->pos += uint64_t(k);
      if (s->pos >= kPosModulus) s->pos -= kPosModulus;
      r += k;
      n -= k;
      continue;
    }
    if (idx == 0) regenerate(s->x);
    int k = kN32 - idx;
    if (k > n) k = n;
    std::memcpy(r, s->x + idx, sizeof(uint32_t) * std::size_t(k));
    s->pos += uint64_t(k);
    if (s->pos >= kPosModulus) s->pos -= kPosModulus;
    r += k;
    n -= k;
  }
}

// Hands the next n output words to use(words, count) as runs inside the
// block, regenerating the block as it is used up.
template <class Use>
void for_each_run(SfmtState *s, int n, Use use) {
  while (n > 0) {
    const int idx = int(s->pos % kN32);
    if (idx == 0) regenerate(s->x);
    int k = kN32 - idx;
    if (k > n) k = n;
    use(s->x + idx, k);
    s->pos += uint64_t(k);
    if (s->pos >= kPosModulus) s->pos -= kPosModulus;
    n -= k;
  }
}

inline uint32_t mix1(uint32_t x) { return (x ^ (x >> 27)) * 1664525u; }
inline uint32_t mix2(uint32_t x) { return (x ^ (x >> 27)) * 1566083941u; }

void certify(uint32_t *x) {
  uint32_t inner = 0;
  for (int i = 0; i < 4; ++i) inner ^= x[i] & kParity[i];
  inner = uint32_t(__builtin_parity(inner));
  if (inner == 1) return;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 32; ++j) {
      const uint32_t bit = 1u << j;
      if (bit & kParity[i]) {
        x[i] ^= bit;
        return;
      }
    }
  }
}

void seed(SfmtState *s, int n, const uint32_t *key) {
  static const uint32_t kDefaultKey[1] = {1};
  if (n < 1) {
    n = 1;
    key = kDefaultKey;
  }
  uint32_t *x = s->x;
  constexpr int size = kN32, lag = 11, mid = (size - lag) / 2;  // 306
  std::memset(x, 0x8b, sizeof(s->x));
  const int count = n + 1 > size ? n + 1 : size;
  uint32_t r = mix1(x[0] ^ x[mid] ^ x[size - 1]);
  x[mid] += r;
  r += uint32_t(n);
  x[mid + lag] += r;
  x[0] = r;
  int i = 1, j = 0;
  for (; j < count - 1 && j < n; ++j) {
    r = mix1(x[i] ^ x[(i + mid) % size] ^ x[(i + size - 1) % size]);
    x[(i + mid) % size] += r;
    r += key[j] + uint32_t(i);
    x[(i + mid + lag) % size] += r;
    x[i] = r;
    i = (i + 1) % size;
  }
  for (; j < count - 1; ++j) {
    r = mix1(x[i] ^ x[(i + mid) % size] ^ x[(i + size - 1) % size]);
    x[(i + mid) % size] += r;
    r += uint32_t(i);
    x[(i + mid + lag) % size] += r;
    x[i] = r;
    i = (i + 1) % size;
  }
  for (j = 0; j < size; ++j) {
    r = mix2(x[i] + x[(i + mid) % size] + x[(i + size - 1) % size]);
    x[(i + mid) % size] ^= r;
    r -= uint32_t(i);
    x[(i + mid + lag) % size] ^= r;
    x[i] = r;
    i = (i + 1) % size;
  }
  certify(x);
  s->pos = 0;
}

// ---- polynomial jump-ahead -------------------------------------------------

// Window of 156 consecutive groups kept circularly: group j is g[(o + j) % 156].
struct alignas(16) Window {
  __m128i g[kN];
  int o = 0;

  void step(__m128i mask) {
    auto at = [this](int j) { return g[(o + j) % kN]; };
    g[o] = recursion(g[o], at(kPos1), at(kN - 2), at(kN - 1), mask);
    o = o + 1 == kN ? 0 : o + 1;
  }
  void add(const __m128i *v) {
    const int head = kN - o;
    for (int j = 0; j < head; ++j) g[o + j] = _mm_xor_si128(g[o + j], v[j]);
    for (int j = head; j < kN; ++j) g[j - head] = _mm_xor_si128(g[j - head], v[j]);
  }
};

// Characteristic polynomial of the one-group transition (as the minimal
// polynomial of one output bit from a state whose sequence needs all 19968
// dimensions) and the reduction tables; built once and kept for the life of
// the process (about 5 MB from the core allocator).
struct JumpTables {
  bool ok = false;
  uint64_t phi[gf2::words_for_bits(kDegree + 1)] = {};
  gf2::Modulus mod;
  uint64_t *storage = nullptr;

  JumpTables() {
    const int len = 2 * kDegree;
    const std::size_t seq_words = gf2::words_for_bits(len) + 2;
    const std::size_t bm_words = gf2::bm_scratch_words(len);
    const std::size_t out_words = gf2::words_for_bits(len + 1) + 2;
    auto *work = static_cast<uint64_t *>(
        qor_serv_allocate((seq_words + bm_words + out_words) * sizeof(uint64_t), 64));
    auto *st = static_cast<SfmtState *>(qor_serv_allocate(sizeof(SfmtState), 64));
    int deg = -1;
    if (work && st) {
      uint64_t *seq = work, *bm = work + seq_words, *out = bm + bm_words;
      // A state with components everywhere: no certification, so that the
      // sequence also exercises the small invariant subspace.  Words of a
      // fixed integer hash are as good as any.
      for (uint32_t tries = 0; tries < 4 && deg != kDegree; ++tries) {
        uint32_t h = 0x9e3779b9u * (tries + 1);
        for (int i = 0; i < kN32; ++i) {
          h ^= h << 13;
          h ^= h >> 17;
          h ^= h << 5;
          st->x[i] = h;
        }
        std::memset(seq, 0, seq_words * sizeof(uint64_t));
        for (int t = 0; t < len; t += kN) {
          regenerate(st->x);
          for (int k = 0; k < kN && t + k < len; ++k)
            if (st->x[4 * k] & 1u) gf2::flip_bit(seq, t + k);
        }
        deg = gf2::berlekamp_massey(seq, len, out, bm);
        if (deg == kDegree) std::memcpy(phi, out, sizeof phi);
      }
    }
    qor_serv_deallocate(work);
    qor_serv_deallocate(st);
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

int32_t jump_groups(SfmtState *s, unsigned __int128 groups) {
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
  gf2::x_power_mod(t.mod, groups, q, scratch);
  const __m128i *v = reinterpret_cast<const __m128i *>(s->x);
  std::memset(win->g, 0, sizeof win->g);
  win->o = 0;
  const __m128i mask = mask_vector();
  bool started = false;
  for (int i = gf2::degree(q, rw); i >= 0; --i) {
    if (started) win->step(mask);
    if (gf2::get_bit(q, i)) {
      win->add(v);
      started = true;
    }
  }
  __m128i *dst = reinterpret_cast<__m128i *>(s->x);
  for (int j = 0; j < kN; ++j) dst[j] = win->g[(win->o + j) % kN];
  qor_serv_deallocate(work);
  qor_serv_deallocate(win);
  return kOk;
}

// Number of blocks regenerated once p words have been delivered.
inline unsigned __int128 blocks_for(unsigned __int128 p) { return (p + kN32 - 1) / kN32; }

int32_t skip(SfmtState *s, uint64_t k) {
  if (k == 0) return kOk;
  const unsigned __int128 p0 = s->pos, p1 = p0 + k;
  const unsigned __int128 blocks = blocks_for(p1) - blocks_for(p0);
  if (k <= kHornerLimit) {
    for (int b = 0; b < int(blocks); ++b) regenerate(s->x);
  } else if (blocks > 0) {
    const int32_t st = jump_groups(s, blocks * kN);
    if (st != kOk) return st;
  }
  s->pos = uint64_t(p1 % kPosModulus);
  return kOk;
}

}  // namespace
}  // namespace qor::rng::twister

using namespace qor::rng::twister;

extern "C" {

QOR_API int32_t __rixBRngSFMT19937InitStream(int32_t method, void *stream, int32_t n,
                                             const uint32_t *params) {
  auto *s = state_of<SfmtState>(stream);
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

QOR_API int32_t __rixiBRngSFMT19937(void *stream, int32_t n, void *r) {
  if (n > 0) fill(state_of<SfmtState>(stream), static_cast<uint32_t *>(r), n);
  return kOk;
}

QOR_API int32_t __rixsBRngSFMT19937(void *stream, int32_t n, float *r, float a, float b) {
  // Output words are the state words themselves, so they are scaled
  // straight from the block.
  auto *s = state_of<SfmtState>(stream);
  const float f = (b - a) * 2.3283064365386963e-10f;
  for_each_run(s, n, [&](const uint32_t *u, int k) { scale_to_float(u, k, r, a, b, f); r += k; });
  return kOk;
}

QOR_API int32_t __rixdBRngSFMT19937(void *stream, int32_t n, double *r, double a, double b) {
  auto *s = state_of<SfmtState>(stream);
  const double f = (b - a) * 2.3283064365386963e-10;
  for_each_run(s, n, [&](const uint32_t *u, int k) { scale_to_double(u, k, r, a, b, f); r += k; });
  return kOk;
}

}  // extern "C"
