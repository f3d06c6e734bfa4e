// Polynomial arithmetic over GF(2) for the jump-ahead of the twisted
// generators (and for the offline MT2203 parameter search).
//
// A polynomial is an array of 64-bit words, bit i of the array being the
// coefficient of x^i.  Nothing here allocates: callers hand in the storage,
// so the library can take it from the core allocator and the offline tool
// from the standard library.
#ifndef QOR_RNG_BRNG_GF2_JUMP_H
#define QOR_RNG_BRNG_GF2_JUMP_H

#include <cstddef>
#include <cstdint>

namespace qor::rng::gf2 {

constexpr int words_for_bits(int bits) { return (bits + 63) / 64; }

inline int get_bit(const uint64_t *p, long i) { return int((p[i >> 6] >> (i & 63)) & 1u); }
inline void flip_bit(uint64_t *p, long i) { p[i >> 6] ^= uint64_t{1} << (i & 63); }

// Degree of a polynomial of `words` words; -1 for the zero polynomial.
int degree(const uint64_t *p, int words);

// Minimal polynomial of a bit sequence s[0 .. len) (packed, s_0 in bit 0 of
// word 0) by the Berlekamp-Massey algorithm.  The result is monic, written in
// the "characteristic" orientation: with phi(x) = sum phi_i x^i of degree L,
// sum_i phi_i s_{j+i} = 0 for every j.  out needs words_for_bits(len + 1)
// words; scratch needs bm_scratch_words(len) words.  Returns L.
std::size_t bm_scratch_words(int len);
int berlekamp_massey(const uint64_t *s, int len, uint64_t *out, uint64_t *scratch);

// Reduction modulo a fixed polynomial f of degree `deg`, a whole 64-bit word
// at a time.  With E the first multiple of 64 at or above deg, table j holds
// v * x^(E + 8j) mod f for the 256 byte values v: a word at or above bit E is
// replaced by the sum of eight rows, all chosen from the word's original
// bytes (every row lands strictly below that word, so the eight look-ups are
// independent and the rows are summed in one pass).  The few bits between
// deg and E are then reduced one by one.  The tables cost 8 * 256 * rw words.
struct Modulus {
  int deg = 0;        // degree of f
  int rw = 0;         // words of a reduced residue: words_for_bits(deg)
  int top = 0;        // E / 64: first word reduced by the tables
  const uint64_t *low = nullptr;  // x^(deg + i) mod f for i < 64 (rw words each)
  const uint64_t *tab = nullptr;  // [8][256][rw]
};

std::size_t modulus_storage_words(int deg);
// f has deg + 1 bits (its top coefficient is 1); storage as sized above.
void modulus_init(Modulus &m, const uint64_t *f, int deg, uint64_t *storage);

// Reduces p (words words, any degree below 64 * words) in place; afterwards
// only the low m.rw words can be non-zero.
void reduce(const Modulus &m, uint64_t *p, int words);

// out = a^2 mod f.  a has m.rw words; out needs 2 * m.rw + 1 words.
void square_mod(const Modulus &m, const uint64_t *a, uint64_t *out);

// out = x^e mod f for an exponent of up to 128 bits.  out needs m.rw words and
// work 2 * m.rw + 2 words.
void x_power_mod(const Modulus &m, unsigned __int128 e, uint64_t *out, uint64_t *work);

}  // namespace qor::rng::gf2

#endif
