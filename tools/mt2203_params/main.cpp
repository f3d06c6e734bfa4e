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
#include <map>
#include <vector>

#include "gf2_jump.h"

namespace {

namespace gf2 = qor::rng::gf2;

constexpr int kN = 69, kM = 34, kR = 5, kP = 2203;
constexpr uint32_t kUpper = ~((1u << kR) - 1), kLower = (1u << kR) - 1;
// Tempering masks: the published 32-bit twister's pair, which suits the
// shifts (7, 15) that the family uses.
constexpr uint32_t kMaskB = 0x9d2c5680u, kMaskC = 0xefc60000u;

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
    Searcher s;
    const auto t0 = std::chrono::steady_clock::now();
    for (long id = begin; id < end; ++id) {
      const uint32_t aw = s.search(uint32_t(id));
      std::printf("%ld %08x %08x %08x\n", id, aw, kMaskB, kMaskC);
      std::fflush(stdout);
    }
    const double sec =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::fprintf(stderr, "# %ld members in %.1f s (%ld full irreducibility tests)\n",
                 end - begin, sec, s.full_tests);
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
    std::printf("// Generated by tools/mt2203_params (emit); do not edit.\n");
    std::printf("// Rows: twisting word, tempering mask b, tempering mask c.\n");
    for (auto &[id, r] : rows)
      std::printf("{0x%08xu, 0x%08xu, 0x%08xu},  // %u\n", r[0], r[1], r[2], id);
    return 0;
  }
  return usage();
}
