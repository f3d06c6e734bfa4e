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

// d[0 .. n) ^= t[0 .. n), two words per SSE2 operation.
inline void xor_words(uint64_t *d, const uint64_t *t, long n) {
  long k = 0;
  for (; k + 4 <= n; k += 4) {
    __m128i *dv = reinterpret_cast<__m128i *>(d + k);
    const __m128i *tv = reinterpret_cast<const __m128i *>(t + k);
    _mm_storeu_si128(dv, _mm_xor_si128(_mm_loadu_si128(dv), _mm_loadu_si128(tv)));
    _mm_storeu_si128(dv + 1, _mm_xor_si128(_mm_loadu_si128(dv + 1), _mm_loadu_si128(tv + 1)));
  }
  for (; k < n; ++k) d[k] ^= t[k];
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
  const std::size_t row = std::size_t(words_for_bits(deg + 72));
  return 8 * rw + 8 * 256 * row + 71 * (rw + 1) + row;
}

void modulus_init(Modulus &m, const uint64_t *f, int deg, uint64_t *storage) {
  m.deg = deg;
  m.rw = words_for_bits(deg);
  m.row_words = words_for_bits(deg + 72);
  const int rw = m.rw, row = m.row_words;
  std::memset(storage, 0, modulus_storage_words(deg) * sizeof(uint64_t));
  uint64_t *low = storage;
  uint64_t *tab = low + 8 * rw;
  uint64_t *M = tab + std::size_t(8) * 256 * row;  // M_i = x^(deg+i) mod f
  uint64_t *U = M + 71 * (rw + 1);
  const int mw = rw + 1;
  // M_0: f without its leading term.
  for (int i = 0; i < deg; ++i)
    if (get_bit(f, i)) flip_bit(M, i);
  for (int i = 1; i < 71; ++i) {
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
  for (int i = 0; i < 8; ++i) {
    std::memcpy(low + i * rw, M + i * mw, sizeof(uint64_t) * rw);
    m.low[i] = low + i * rw;
  }
  for (int j = 0; j < 8; ++j) {
    const int e = (((8 * j - deg) % 64) + 64) % 64;
    uint64_t *tj = tab + std::size_t(j) * 256 * row;
    for (int v = 1; v < 256; ++v) {
      const int k = __builtin_ctz(unsigned(v));
      // U = x^(deg+e+k) + (x^(deg+e+k) mod f): a multiple of f whose only
      // term at or above deg+e is the single bit deg+e+k.
      std::memset(U, 0, sizeof(uint64_t) * row);
      flip_bit(U, deg + e + k);
      const uint64_t *mk = M + (e + k) * mw;
      for (int w = 0; w < rw; ++w) U[w] ^= mk[w];
      const uint64_t *base = tj + std::size_t(v & (v - 1)) * row;
      uint64_t *dst = tj + std::size_t(v) * row;
      for (int w = 0; w < row; ++w) dst[w] = base[w] ^ U[w];
    }
  }
  m.tab = tab;
}

void reduce(const Modulus &m, uint64_t *p, int words) {
  const int deg = m.deg, row = m.row_words;
  for (int w = words - 1; w >= (deg >> 6); --w) {
    for (int j = 7; j >= 0; --j) {
      const long P0 = 64L * w + 8 * j;
      if (P0 < deg) break;
      const unsigned v = unsigned(p[w] >> (8 * j)) & 255u;
      if (!v) continue;
      const int e = (((8 * j - deg) % 64) + 64) % 64;
      const long s = (P0 - deg - e) >> 6;
      const uint64_t *t = m.tab + (std::size_t(j) * 256 + v) * row;
      long n = row;
      if (s + n > words) n = words - s;
      xor_words(p + s, t, n);
    }
  }
  // At most seven bits between deg and the first byte boundary above it.
  const int first_byte = (deg + 7) & ~7;
  for (int i = first_byte - deg - 1; i >= 0; --i) {
    const long b = long(deg) + i;
    if (b >= 64L * words) continue;
    if (get_bit(p, b)) {
      flip_bit(p, b);
      for (int k = 0; k < m.rw; ++k) p[k] ^= m.low[i][k];
    }
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
        for (int k = 0; k < rw; ++k) out[k] ^= m.low[0][k];
    }
  }
}

}  // namespace qor::rng::gf2
