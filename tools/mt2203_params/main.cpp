// mt2203_params: searches parameter sets for the MT2203 family of Mersenne
// twisters (word size 32, 69 words, 5 low bits of the first word unused,
// middle offset 34, so the state has 69 * 32 - 5 = 2203 bits).
//
// Member `id` gets the twisting word a = 0x80000000 | (r << 16) | id with r a
// 15-bit value drawn from a generator seeded by the id: the id in the low half
// makes the recurrences of different members distinct, and r is redrawn until
// the recurrence's characteristic polynomial is primitive.  Because 2^2203 - 1
// is a Mersenne prime, primitive is the same as irreducible, which is tested
// by x^(2^2203) = x (mod phi) after a cheap sieve by small factors.  The
// characteristic polynomial is obtained as the minimal polynomial (by
// Berlekamp-Massey) of one output bit: if it has degree 2203 it is the
// characteristic polynomial itself.
//
// The search itself avoids Berlekamp-Massey: the twisting word enters the
// transition matrix as one rank-one term, so the characteristic polynomial is
// an affine function of the bits of a, phi_a = F + sum_k a_k P_k.  (All
// twisting words here have the top bit set, which keeps the matrix
// invertible; F absorbs that bit and the model ranges over bits 0 .. 30.)  F and the
// P_k are measured once (and the affine model re-verified at random points);
// a candidate's residues modulo every irreducible polynomial of degree <= 16
// then cost two table lookups each, and only candidates without a small
// factor reach the full test, which also drops factors of degree 17 .. 256
// early (see irreducible_barrett).  The check mode recomputes each row's
// polynomial independently by Berlekamp-Massey.
//
// Usage:
//   mt2203_params search BEGIN END      rows "id a b c" (hex) for BEGIN <= id < END
//   mt2203_params check FILE            re-verifies every row of FILE
//   mt2203_params emit FILE             prints the rows as a C++ initialiser
// The search is deterministic: the same range always yields the same rows.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <smmintrin.h>
#include <wmmintrin.h>

#include "gf2_jump.h"

namespace {

namespace gf2 = qor::rng::gf2;

constexpr int kN = 69, kM = 34, kR = 5, kP = 2203;
constexpr uint32_t kUpper = ~((1u << kR) - 1), kLower = (1u << kR) - 1;
// Tempering masks: the published 32-bit twister's pair, which suits the
// shifts (7, 15) that the family uses.
constexpr uint32_t kMaskB = 0x9d2c5680u, kMaskC = 0xefc60000u;
// Candidates are sieved by all irreducible factors up to this degree.
constexpr int kSieveDegree = 16;

uint64_t splitmix(uint64_t &s) {
  uint64_t z = (s += 0x9e3779b97f4a7c15ull);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

// Small irreducible polynomials (degree 1..10) for the sieve.
std::vector<uint32_t> small_irreducibles() {
  std::vector<uint32_t> out;
  for (uint32_t g = 2; g < (1u << 11); ++g) {
    const int d = 31 - __builtin_clz(g);
    bool irreducible = true;
    for (uint32_t h : out) {
      const int e = 31 - __builtin_clz(h);
      if (2 * e > d) break;
      uint32_t r = g;
      for (int i = d; i >= e; --i)
        if (r >> i & 1) r ^= h << (i - e);
      if (r == 0) { irreducible = false; break; }
    }
    if (irreducible) out.push_back(g);
  }
  return out;
}

bool has_small_factor(const uint64_t *phi, const std::vector<uint32_t> &irr) {
  for (uint32_t g : irr) {
    const int d = 31 - __builtin_clz(g);
    uint32_t r = 0;
    for (int i = kP; i >= 0; --i) {
      r = (r << 1) | uint32_t(gf2::get_bit(phi, i));
      if (r >> d & 1) r ^= g;
    }
    if (r == 0) return true;
  }
  return false;
}

struct Searcher {
  std::vector<uint32_t> irr = small_irreducibles();
  std::vector<uint64_t> seq = std::vector<uint64_t>(gf2::words_for_bits(2 * kP) + 2);
  std::vector<uint64_t> phi = std::vector<uint64_t>(gf2::words_for_bits(2 * kP + 1) + 2);
  std::vector<uint64_t> bm = std::vector<uint64_t>(gf2::bm_scratch_words(2 * kP));
  std::vector<uint64_t> mod = std::vector<uint64_t>(gf2::modulus_storage_words(kP));
  std::vector<uint64_t> a = std::vector<uint64_t>(gf2::words_for_bits(kP) + 1);
  std::vector<uint64_t> w = std::vector<uint64_t>(2 * gf2::words_for_bits(kP) + 2);
  long full_tests = 0;

  // Minimal polynomial of the top output bit of the recurrence with twisting
  // word aw; returns its degree and leaves it in phi.
  int min_poly(uint32_t aw) {
    uint32_t x[2 * kP + kN];
    uint64_t s = 0x2203;
    for (int i = 0; i < kN; ++i) x[i] = uint32_t(splitmix(s));
    std::fill(seq.begin(), seq.end(), 0);
    for (int k = 0; k < 2 * kP; ++k) {
      const uint32_t y = (x[k] & kUpper) | (x[k + 1] & kLower);
      x[k + kN] = x[k + kM] ^ (y >> 1) ^ ((y & 1u) ? aw : 0u);
      if (x[k + kN] >> 31) gf2::flip_bit(seq.data(), k);
    }
    return gf2::berlekamp_massey(seq.data(), 2 * kP, phi.data(), bm.data());
  }

  // phi irreducible of degree kP  <=>  x^(2^kP) = x mod phi (kP is prime).
  bool irreducible() {
    ++full_tests;
    gf2::Modulus m;
    gf2::modulus_init(m, phi.data(), kP, mod.data());
    std::fill(a.begin(), a.end(), 0);
    a[0] = 2;
    for (int i = 0; i < kP; ++i) {
      gf2::square_mod(m, a.data(), w.data());
      std::copy(w.begin(), w.begin() + m.rw, a.begin());
    }
    if (a[0] != 2) return false;
    for (int i = 1; i < m.rw; ++i)
      if (a[i]) return false;
    return true;
  }

  // The same test with Barrett reduction on carry-less multiplication
  // (PCLMULQDQ; this offline tool is not bound to the library's instruction
  // set).  About four times faster than the table reduction.
  // Words kmin .. kmax of the carry-less product a * b (the other words of
  // out are left incomplete).  b must be readable one word past nb.  Products
  // are accumulated in two arrays of 128-bit lanes, one starting at an even
  // word and one at an odd word, so no lane ever has to be split.
  static void clmul(const uint64_t *a, int na, const uint64_t *b, int nb, uint64_t *out,
                    int kmin, int kmax) {
    constexpr int kMax = 80;
    __m128i even[kMax / 2 + 2], odd[kMax / 2 + 2];
    const int lanes = (na + nb) / 2 + 2;
    for (int m = 0; m < lanes; ++m) even[m] = odd[m] = _mm_setzero_si128();
    for (int i = 0; i < na; ++i) {
      if (!a[i]) continue;
      const __m128i ai = _mm_cvtsi64_si128(int64_t(a[i]));
      int jlo = kmin - i - 1;
      if (jlo < 0) jlo = 0;
      jlo &= ~1;
      int jhi = kmax - i;
      if (jhi > nb - 1) jhi = nb - 1;
      if (i & 1) {
        for (int j = jlo; j <= jhi; j += 2) {
          const __m128i bb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + j));
          const int k = i + j;
          odd[(k - 1) / 2] = _mm_xor_si128(odd[(k - 1) / 2], _mm_clmulepi64_si128(ai, bb, 0x00));
          even[(k + 1) / 2] = _mm_xor_si128(even[(k + 1) / 2], _mm_clmulepi64_si128(ai, bb, 0x10));
        }
      } else {
        for (int j = jlo; j <= jhi; j += 2) {
          const __m128i bb = _mm_loadu_si128(reinterpret_cast<const __m128i *>(b + j));
          const int k = i + j;
          even[k / 2] = _mm_xor_si128(even[k / 2], _mm_clmulepi64_si128(ai, bb, 0x00));
          odd[k / 2] = _mm_xor_si128(odd[k / 2], _mm_clmulepi64_si128(ai, bb, 0x10));
        }
      }
    }
    const uint64_t *E = reinterpret_cast<const uint64_t *>(even);
    const uint64_t *O = reinterpret_cast<const uint64_t *>(odd);
    for (int w = 0; w < na + nb; ++w) out[w] = E[w] ^ (w ? O[w - 1] : 0);
  }
  // dst = src >> sh (in bits), dst_words words.
  static void shift_down(const uint64_t *src, int src_words, long sh, uint64_t *dst, int dst_words) {
    const long ws = sh >> 6;
    const int bs = int(sh & 63);
    for (int i = 0; i < dst_words; ++i) {
      const long k = ws + i;
      uint64_t lo = k < src_words ? src[k] : 0, hi = k + 1 < src_words ? src[k + 1] : 0;
      dst[i] = bs ? (lo >> bs) | (hi << (64 - bs)) : lo;
    }
  }

  static int deg_from(const uint64_t *v, int w) {
    for (int i = w - 1; i >= 0; --i)
      if (v[i]) return i * 64 + 63 - __builtin_clzll(v[i]);
    return -1;
  }

  // dst ^= src * x^shift.
  static void xor_shift(uint64_t *dst, const uint64_t *src, int src_words, int shift) {
    const int ws = shift >> 6, bs = shift & 63;
    if (!bs) {
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

  // True when gcd(x, y) = 1 (both of degree <= kP, W words).
  static bool coprime(const uint64_t *x, const uint64_t *y) {
    constexpr int W = gf2::words_for_bits(kP + 1);
    uint64_t bufa[W + 2] = {}, bufb[W + 2] = {};
    std::memcpy(bufa, x, sizeof(uint64_t) * W);
    std::memcpy(bufb, y, sizeof(uint64_t) * W);
    uint64_t *a = bufa, *b = bufb;
    int da = deg_from(a, W), db = deg_from(b, W);
    while (db >= 0) {
      if (da < db) {
        std::swap(a, b);
        std::swap(da, db);
      }
      xor_shift(a, b, gf2::words_for_bits(db + 1), da - db);
      da = deg_from(a, gf2::words_for_bits(da + 1));
    }
    return da == 0;
  }

  // x^(2^kP) = x (mod phi), with Barrett reduction on carry-less
  // multiplication (PCLMULQDQ; this offline tool is not bound to the
  // library's instruction set).  On the way it rejects polynomials with a
  // factor of degree 17 .. 256 early: the product of x^(2^i) - x over a range
  // of i shares a factor with phi exactly when phi has a factor whose degree
  // divides some i of the range.
  bool irreducible_barrett() {
    ++full_tests;
    constexpr int W = gf2::words_for_bits(kP + 1);  // 35
    const uint64_t *f = phi.data();
    uint64_t fw[W + 2] = {};
    std::memcpy(fw, f, sizeof(uint64_t) * W);
    // mu = floor(x^(2p) / f), degree p.
    uint64_t rem[2 * W + 4] = {}, mu[W + 2] = {};
    gf2::flip_bit(rem, 2 * kP);
    for (int i = 2 * kP; i >= kP; --i) {
      if (!gf2::get_bit(rem, i)) continue;
      gf2::flip_bit(mu, i - kP);
      xor_shift(rem, fw, W, i - kP);
    }
    uint64_t a[W + 2] = {}, sq[2 * W + 2], hi[W + 1], t[2 * W + 4], q[W + 2] = {}, u[2 * W + 4];
    uint64_t acc[W + 2] = {}, d[W + 2] = {}, prod[2 * W + 4];
    auto reduce_into = [&](const uint64_t *full, uint64_t *out) {
      shift_down(full, 2 * W, kP, hi, W);
      clmul(hi, W, mu, W, t, (kP >> 6) - 1, 2 * W - 1);
      shift_down(t, 2 * W, kP, q, W);
      clmul(q, W, fw, W, u, 0, W - 1);
      for (int i = 0; i < W; ++i) out[i] = full[i] ^ u[i];
      out[W - 1] &= (uint64_t{1} << (kP & 63)) - 1;
    };
    a[0] = 2;
    acc[0] = 1;
    auto spread32 = [](uint64_t x) {
      x = (x | (x << 16)) & 0x0000FFFF0000FFFFull;
      x = (x | (x << 8)) & 0x00FF00FF00FF00FFull;
      x = (x | (x << 4)) & 0x0F0F0F0F0F0F0F0Full;
      x = (x | (x << 2)) & 0x3333333333333333ull;
      return (x | (x << 1)) & 0x5555555555555555ull;
    };
    for (int it = 1; it <= kP; ++it) {  // afterwards a = x^(2^it) mod f
      for (int i = 0; i < W; ++i) {
        sq[2 * i] = spread32(a[i] & 0xFFFFFFFFu);
        sq[2 * i + 1] = spread32(a[i] >> 32);
      }
      sq[2 * W] = sq[2 * W + 1] = 0;
      reduce_into(sq, a);
      if (it > kSieveDegree && it <= 256) {
        std::memcpy(d, a, sizeof(uint64_t) * W);
        d[0] ^= 2;  // x^(2^it) - x
        clmul(acc, W, d, W, prod, 0, 2 * W - 1);
        prod[2 * W] = prod[2 * W + 1] = 0;
        reduce_into(prod, acc);
        if (it == 64 || it == 256) {
          if (!coprime(acc, fw)) return false;
          std::memset(acc, 0, sizeof acc);
          acc[0] = 1;
        }
      }
    }
    if (a[0] != 2) return false;
    for (int i = 1; i < W; ++i)
      if (a[i]) return false;
    return true;
  }

  bool primitive(uint32_t aw) {
    if (min_poly(aw) != kP) return false;
    if (has_small_factor(phi.data(), irr)) return false;
    return irreducible();
  }

  uint32_t search(uint32_t id) {
    uint64_t s = 0x4d54323230330000ull ^ (uint64_t(id) << 1);
    for (;;) {
      const uint32_t r = uint32_t(splitmix(s) >> 49);  // 15 bits
      const uint32_t aw = 0x80000000u | (r << 16) | id;
      if (primitive(aw)) return aw;
    }
  }
};

// ---- fast search over the affine model -------------------------------------

constexpr int kPW = gf2::words_for_bits(kP + 1);

struct Poly {
  uint64_t w[kPW];
};

struct FastSearcher {
  Searcher slow;
  Poly F{}, P[32]{};
  std::vector<uint32_t> gs;                // irreducibles of degree 1 .. kSieveDegree
  std::vector<uint16_t> resF, resP;        // residues of F and of P_k modulo each g
  std::vector<uint16_t> lo, hi;            // per member: residue tables for bits 16..23, 24..30

  // Minimal polynomial of aw's sequence, trying several starting states until
  // the degree is full; false if none reaches it.
  bool char_poly(uint32_t aw, Poly &out) {
    for (int t = 0; t < 8; ++t) {
      uint32_t x[2 * kP + kN];
      uint64_t s = 0x5eed0000ull + uint64_t(t);
      for (int i = 0; i < kN; ++i) x[i] = uint32_t(splitmix(s));
      std::fill(slow.seq.begin(), slow.seq.end(), 0);
      for (int k = 0; k < 2 * kP; ++k) {
        const uint32_t y = (x[k] & kUpper) | (x[k + 1] & kLower);
        x[k + kN] = x[k + kM] ^ (y >> 1) ^ ((y & 1u) ? aw : 0u);
        if (x[k + kN] >> 31) gf2::flip_bit(slow.seq.data(), k);
      }
      if (gf2::berlekamp_massey(slow.seq.data(), 2 * kP, slow.phi.data(), slow.bm.data()) == kP) {
        std::copy(slow.phi.begin(), slow.phi.begin() + kPW, out.w);
        return true;
      }
    }
    return false;
  }

  Poly model(uint32_t aw) const {
    Poly r = F;
    for (int k = 0; k < 31; ++k)
      if (aw >> k & 1)
        for (int i = 0; i < kPW; ++i) r.w[i] ^= P[k].w[i];
    return r;
  }

  bool build_model() {
    uint64_t s = 0xaff1e;
    for (int attempt = 0; attempt < 50; ++attempt) {
      const uint32_t a0 = uint32_t(splitmix(s)) | 0x80000000u;
      Poly base, pk[32];
      bool ok = char_poly(a0, base);
      for (int k = 0; ok && k < 31; ++k) ok = char_poly(a0 ^ (1u << k), pk[k]);
      if (!ok) continue;
      F = base;
      for (int k = 0; k < 31; ++k) {
        for (int i = 0; i < kPW; ++i) P[k].w[i] = pk[k].w[i] ^ base.w[i];
        if (a0 >> k & 1)
          for (int i = 0; i < kPW; ++i) F.w[i] ^= P[k].w[i];
      }
      // The model must reproduce independently measured polynomials.
      int verified = 0;
      for (int t = 0; t < 200 && verified < 20; ++t) {
        const uint32_t a = uint32_t(splitmix(s)) | 0x80000000u;
        Poly m;
        if (!char_poly(a, m)) continue;
        const Poly f = model(a);
        if (std::memcmp(f.w, m.w, sizeof f.w) != 0) {
          std::fprintf(stderr, "affine model disagrees at a = %08x\n", a);
          return false;
        }
        ++verified;
      }
      if (verified < 20) return false;
      std::fprintf(stderr, "# affine model verified at %d random twisting words\n", verified);
      return true;
    }
    return false;
  }

  static uint16_t residue(const Poly &p, uint32_t g, const uint32_t *tab) {
    const int d = 31 - __builtin_clz(g);
    uint32_t r = 0;
    for (int byte = (kPW * 8) - 1; byte >= 0; --byte) {
      r = (r << 8) | uint32_t(p.w[byte / 8] >> (8 * (byte % 8)) & 255u);
      r = (r & ((1u << d) - 1)) ^ tab[r >> d];
    }
    return uint16_t(r);
  }

  void build_sieve() {
    // Irreducibles by trial division with the smaller ones.
    for (uint32_t g = 2; g < (1u << (kSieveDegree + 1)); ++g) {
      const int d = 31 - __builtin_clz(g);
      bool irreducible = true;
      for (uint32_t h : gs) {
        const int e = 31 - __builtin_clz(h);
        if (2 * e > d) break;
        uint32_t r = g;
        for (int i = d; i >= e; --i)
          if (r >> i & 1) r ^= h << (i - e);
        if (r == 0) { irreducible = false; break; }
      }
      if (irreducible) gs.push_back(g);
    }
    const std::size_t G = gs.size();
    resF.resize(G);
    resP.resize(G * 32);
    std::vector<uint32_t> tab(1u << 8);
    for (std::size_t j = 0; j < G; ++j) {
      const uint32_t g = gs[j];
      const int d = 31 - __builtin_clz(g);
      // tab[t] = t * x^d mod g for the up to 8 bits that overflow degree d.
      for (uint32_t t = 0; t < 256; ++t) {
        uint32_t r = 0;
        for (int b = 7; b >= 0; --b) {
          r <<= 1;
          if (r >> d & 1) r ^= g;
          if (t >> b & 1) {
            uint32_t xd = g ^ (1u << d);  // x^d mod g
            r ^= xd;
          }
        }
        tab[t] = r;
      }
      resF[j] = residue(F, g, tab.data());
      for (int k = 0; k < 31; ++k) resP[j * 32 + k] = residue(P[k], g, tab.data());
    }
    std::fprintf(stderr, "# sieve: %zu irreducible polynomials of degree <= %d\n", G, kSieveDegree);
  }

  void prepare_member(uint32_t fixed) {
    const std::size_t G = gs.size();
    lo.assign(G * 256, 0);
    hi.assign(G * 128, 0);
    for (std::size_t j = 0; j < G; ++j) {
      uint16_t base = resF[j];
      for (int k = 0; k < 31; ++k)
        if (fixed >> k & 1) base ^= resP[j * 32 + k];
      uint16_t *l = &lo[j * 256], *h = &hi[j * 128];
      l[0] = base;
      for (uint32_t v = 1; v < 256; ++v)
        l[v] = l[v & (v - 1)] ^ resP[j * 32 + 16 + __builtin_ctz(v)];
      h[0] = 0;
      for (uint32_t v = 1; v < 128; ++v)
        h[v] = h[v & (v - 1)] ^ resP[j * 32 + 24 + __builtin_ctz(v)];
    }
  }

  bool survives_sieve(uint32_t r15) const {
    const std::size_t G = gs.size();
    const uint32_t l = r15 & 255u, h = r15 >> 8;
    for (std::size_t j = 0; j < G; ++j)
      if ((lo[j * 256 + l] ^ hi[j * 128 + h]) == 0) return false;
    return true;
  }

  uint32_t search(uint32_t id) {
    const uint32_t fixed = 0x80000000u | id;
    prepare_member(fixed);
    uint64_t s = 0x4d54323230330000ull ^ (uint64_t(id) << 1);
    for (;;) {
      const uint32_t r = uint32_t(splitmix(s) >> 49);  // 15 bits, same draw as the slow search
      if (!survives_sieve(r)) continue;
      const uint32_t aw = fixed | (r << 16);
      const Poly f = model(aw);
      std::fill(slow.phi.begin(), slow.phi.end(), 0);
      std::copy(f.w, f.w + kPW, slow.phi.begin());
      if (slow.irreducible_barrett()) return aw;
    }
  }
};

int usage() {
  std::fprintf(stderr, "usage: mt2203_params search BEGIN END | check FILE | emit FILE\n");
  return 2;
}

bool read_rows(const char *path, std::map<uint32_t, uint32_t[3]> &rows) {
  FILE *f = std::fopen(path, "r");
  if (!f) return false;
  char line[256];
  while (std::fgets(line, sizeof line, f)) {
    if (line[0] == '#') continue;
    unsigned id, a, b, c;
    if (std::sscanf(line, "%u %x %x %x", &id, &a, &b, &c) == 4) {
      rows[id][0] = a;
      rows[id][1] = b;
      rows[id][2] = c;
    }
  }
  std::fclose(f);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) return usage();
  const std::string mode = argv[1];
  if (mode == "search" && argc == 4) {
    const long begin = std::atol(argv[2]), end = std::atol(argv[3]);
    if (begin < 0 || end > 65536 || begin >= end) return usage();
    FastSearcher s;
    if (!s.build_model()) {
      std::fprintf(stderr, "could not establish the affine model of the characteristic polynomial\n");
      return 1;
    }
    s.build_sieve();
    const auto t0 = std::chrono::steady_clock::now();
    for (long id = begin; id < end; ++id) {
      const uint32_t aw = s.search(uint32_t(id));
      std::printf("%ld %08x %08x %08x\n", id, aw, kMaskB, kMaskC);
      std::fflush(stdout);
    }
    const double sec =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::fprintf(stderr, "# %ld members in %.1f s (%ld full irreducibility tests)\n",
                 end - begin, sec, s.slow.full_tests);
    return 0;
  }
  std::map<uint32_t, uint32_t[3]> rows;
  if (!read_rows(argv[2], rows)) {
    std::fprintf(stderr, "cannot read %s\n", argv[2]);
    return 1;
  }
  if (mode == "check") {
    Searcher s;
    long bad = 0;
    std::map<uint32_t, int> seen;
    for (auto &[id, r] : rows) {
      const bool ok = s.primitive(r[0]) && (r[0] & 0xFFFFu) == id && seen[r[0]]++ == 0;
      if (!ok) {
        std::printf("row %u: FAILED\n", id);
        ++bad;
      }
    }
    std::printf("%zu rows checked, %ld failed\n", rows.size(), bad);
    return bad ? 1 : 0;
  }
  if (mode == "emit") {
    // One line per member in member order (the array is positional); members
    // the search has not reached yet are all zero, which the library refuses.
    std::printf("// Generated by tools/mt2203_params (emit); do not edit.\n");
    std::printf("// Rows: twisting word, tempering mask b, tempering mask c; %zu of 6024 present.\n",
                rows.size());
    for (uint32_t id = 0; id < 6024; ++id) {
      const auto it = rows.find(id);
      if (it == rows.end())
        std::printf("{0, 0, 0},\n");
      else
        std::printf("{0x%08xu, 0x%08xu, 0x%08xu},\n", it->second[0], it->second[1], it->second[2]);
    }
    return 0;
  }
  return usage();
}
