#include "gf2_jump.h"

#include <emmintrin.h>

#include <cstring>

namespace qor::rng::gf2 {

int degree(const uint64_t *p, int words) {
  for (int w = words - 1; w >= 0; --w)
    if (p[w]) return w * 64 + 63 - __builtin_clzll(p[w]);
  return -1;
}

namespace {

// Bits q .. q+63 of a packed sequence (the array is padded with zero words).
inline uint64_t bits_at(const uint64_t *p, long q) {
  const long w = q >> 6;
  const int s = int(q & 63);
  if (s == 0) return p[w];
  return (p[w] >> s) | (p[w + 1] << (64 - s));
}

// dst ^= src * x^shift, src having src_words words; dst must be long enough.
void xor_shifted(uint64_t *dst, const uint64_t *src, int src_words, long shift) {
  const long ws = shift >> 6;
  const int bs = int(shift & 63);
  if (bs == 0) {
    for (int i = 0; i < src_words; ++i) dst[ws + i] ^= src[i];
    return;
  }
  uint64_t carry = 0;
  for (int i = 0; i < src_words; ++i) {
    dst[ws + i] ^= (src[i] << bs) | carry;
    carry = src[i] >> (64 - bs);
  }
  dst[ws + src_words] ^= carry;
}

// Spreads the 32 bits of x over the even bit positions of a 64-bit word:
// squaring a polynomial over GF(2) is exactly this.
inline uint64_t spread32(uint64_t x) {
  x = (x | (x << 16)) & 0x0000FFFF0000FFFFull;
  x = (x | (x << 8)) & 0x00FF00FF00FF00FFull;
  x = (x | (x << 4)) & 0x0F0F0F0F0F0F0F0Full;
  x = (x | (x << 2)) & 0x3333333333333333ull;
  x = (x | (x << 1)) & 0x5555555555555555ull;
  return x;
}

}  // namespace

std::size_t bm_scratch_words(int len) {
  const std::size_t seq = std::size_t(words_for_bits(len)) + 2;
  const std::size_t poly = std::size_t(words_for_bits(len + 1)) + 2;
  return seq + 3 * poly;
}

int berlekamp_massey(const uint64_t *s, int len, uint64_t *out, uint64_t *scratch) {
  const int seq_words = words_for_bits(len) + 2;
  const int poly_words = words_for_bits(len + 1) + 2;
  uint64_t *rev = scratch;  // rev_k = s_{len-1-k}: the discrepancy is then a
                            // dot product of C with a contiguous bit run.
  uint64_t *C = rev + seq_words;
  uint64_t *B = C + poly_words;
  uint64_t *T = B + poly_words;
  std::memset(scratch, 0, bm_scratch_words(len) * sizeof(uint64_t));
  for (int k = 0; k < len; ++k)
    if (get_bit(s, len - 1 - k)) flip_bit(rev, k);
  C[0] = B[0] = 1;
  int L = 0, degB = 0, m = 1;
  for (int n = 0; n < len; ++n) {
    const long off = long(len) - 1 - n;
    uint64_t acc = 0;
    const int cw = words_for_bits(L + 1);
    for (int k = 0; k < cw; ++k) acc ^= C[k] & bits_at(rev, off + 64L * k);
    if (!__builtin_parityll(acc)) {
      ++m;
      continue;
    }
    if (2 * L <= n) {
      std::memcpy(T, C, sizeof(uint64_t) * cw);
      const int old_cw = cw;
      xor_shifted(C, B, words_for_bits(degB + 1), m);
      const int oldL = L;
      L = n + 1 - L;
      std::memset(B, 0, sizeof(uint64_t) * poly_words);
      std::memcpy(B, T, sizeof(uint64_t) * old_cw);
      degB = oldL;
      m = 1;
    } else {
      xor_shifted(C, B, words_for_bits(degB + 1), m);
      ++m;
    }
  }
  // Reverse C (degree <= L) into the characteristic orientation.
  std::memset(out, 0, sizeof(uint64_t) * words_for_bits(len + 1));
  for (int i = 0; i <= L; ++i)
    if (get_bit(C, L - i)) flip_bit(out, i);
  return L;
}

std::size_t modulus_storage_words(int deg) {
  const std::size_t rw = std::size_t(words_for_bits(deg));
  // low (64 rows), tables (8 * 256 rows), M_i = x^(deg+i) mod f for
  // i < E - deg + 64 (at most 127 rows).
  return 64 * rw + 8 * 256 * rw + 128 * (rw + 1);
}

void modulus_init(Modulus &m, const uint64_t *f, int deg, uint64_t *storage) {
  m.deg = deg;
  m.rw = words_for_bits(deg);
  m.top = m.rw;  // E = 64 * rw is the first multiple of 64 at or above deg
  const int rw = m.rw, E = 64 * rw;
  std::memset(storage, 0, modulus_storage_words(deg) * sizeof(uint64_t));
  uint64_t *low = storage;
  uint64_t *tab = low + 64 * rw;
  uint64_t *M = tab + std::size_t(8) * 256 * rw;
  const int mw = rw + 1, count = E - deg + 64;
  for (int i = 0; i < deg; ++i)
    if (get_bit(f, i)) flip_bit(M, i);
  for (int i = 1; i < count; ++i) {
    const uint64_t *prev = M + (i - 1) * mw;
    uint64_t *cur = M + i * mw;
    const int top = get_bit(prev, deg - 1);
    uint64_t carry = 0;
    for (int k = 0; k < rw; ++k) {
      cur[k] = (prev[k] << 1) | carry;
      carry = prev[k] >> 63;
    }
    if (deg & 63) cur[deg >> 6] &= ~(uint64_t{1} << (deg & 63));
    if (top)
      for (int k = 0; k < rw; ++k) cur[k] ^= M[k];
  }
  for (int i = 0; i < 64 && i < count; ++i)
    std::memcpy(low + i * rw, M + i * mw, sizeof(uint64_t) * rw);
  for (int j = 0; j < 8; ++j) {
    uint64_t *tj = tab + std::size_t(j) * 256 * rw;
    for (int v = 1; v < 256; ++v) {
      const int k = __builtin_ctz(unsigned(v));
      const uint64_t *mk = M + (E - deg + 8 * j + k) * mw;  // x^(E + 8j + k) mod f
      const uint64_t *base = tj + std::size_t(v & (v - 1)) * rw;
      uint64_t *dst = tj + std::size_t(v) * rw;
      for (int w = 0; w < rw; ++w) dst[w] = base[w] ^ mk[w];
    }
  }
  m.low = low;
  m.tab = tab;
}

void reduce(const Modulus &m, uint64_t *p, int words) {
  const int rw = m.rw;
  const std::size_t plane = std::size_t(256) * rw;
  for (int w = words - 1; w >= m.top; --w) {
    const uint64_t x = p[w];
    if (!x) continue;
    p[w] = 0;
    const uint64_t *r[8];
    for (int j = 0; j < 8; ++j) r[j] = m.tab + j * plane + std::size_t((x >> (8 * j)) & 255u) * rw;
    uint64_t *d = p + (w - m.top);
    int k = 0;
    for (; k + 2 <= rw; k += 2) {
      __m128i acc = _mm_loadu_si128(reinterpret_cast<const __m128i *>(d + k));
      for (int j = 0; j < 8; ++j)
        acc = _mm_xor_si128(acc, _mm_loadu_si128(reinterpret_cast<const __m128i *>(r[j] + k)));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(d + k), acc);
    }
    for (; k < rw; ++k) d[k] ^= r[0][k] ^ r[1][k] ^ r[2][k] ^ r[3][k] ^ r[4][k] ^ r[5][k] ^ r[6][k] ^ r[7][k];
  }
  // Bits deg .. E-1 (fewer than 64, none when deg is a multiple of 64).
  const int E = 64 * m.top;
  for (int b = E - 1; b >= m.deg; --b) {
    if (b >= 64 * words || !get_bit(p, b)) continue;
    flip_bit(p, b);
    const uint64_t *l = m.low + std::size_t(b - m.deg) * rw;
    for (int k = 0; k < rw; ++k) p[k] ^= l[k];
  }
}

void square_mod(const Modulus &m, const uint64_t *a, uint64_t *out) {
  const int rw = m.rw;
  for (int i = 0; i < rw; ++i) {
    out[2 * i] = spread32(a[i] & 0xFFFFFFFFu);
    out[2 * i + 1] = spread32(a[i] >> 32);
  }
  out[2 * rw] = 0;
  reduce(m, out, 2 * rw);
}

void x_power_mod(const Modulus &m, unsigned __int128 e, uint64_t *out, uint64_t *work) {
  const int rw = m.rw, deg = m.deg;
  std::memset(out, 0, sizeof(uint64_t) * rw);
  if (e < (unsigned __int128)deg) {
    flip_bit(out, long(e));
    return;
  }
  int top = 127;
  while (!((e >> top) & 1)) --top;
  // Start from the leading bits of e that already form an exponent below deg.
  int bit = top;
  unsigned long start = 0;
  while (bit >= 0 && ((start << 1) | unsigned((e >> bit) & 1)) < (unsigned long)deg) {
    start = (start << 1) | unsigned((e >> bit) & 1);
    --bit;
  }
  flip_bit(out, long(start));
  for (; bit >= 0; --bit) {
    square_mod(m, out, work);
    std::memcpy(out, work, sizeof(uint64_t) * rw);
    if ((e >> bit) & 1) {
      const int carry_top = get_bit(out, deg - 1);
      uint64_t carry = 0;
      for (int k = 0; k < rw; ++k) {
        const uint64_t nx = out[k] >> 63;
        out[k] = (out[k] << 1) | carry;
        carry = nx;
      }
      if (deg & 63) out[deg >> 6] &= ~(uint64_t{1} << (deg & 63));
      if (carry_top)
        for (int k = 0; k < rw; ++k) out[k] ^= m.low[k];
    }
  }
}

}  // namespace qor::rng::gf2
