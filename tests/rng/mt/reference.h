// Plain scalar twisters written straight from the published recurrences, used
// as the reference the library's vectorised generators are checked against.
// Deliberately naive: one word at a time, modular indexing, no SIMD.
#ifndef QOR_TESTS_RNG_MT_REFERENCE_H
#define QOR_TESTS_RNG_MT_REFERENCE_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace mt_test {

// Generic 32-bit Mersenne twister of n words, middle offset m, r unused low
// bits of the first word, twisting word a and tempering (u, s, b, t, c, l).
struct RefTwister {
  int n, m;
  uint32_t upper, a, b, c;
  int u, s, t, l;
  std::vector<uint32_t> x;
  int i;

  RefTwister(int n_, int m_, int r, uint32_t a_, int u_, int s_, uint32_t b_, int t_,
             uint32_t c_, int l_)
      : n(n_), m(m_), upper(~((1u << r) - 1)), a(a_), b(b_), c(c_), u(u_), s(s_), t(t_),
        l(l_), x(n_), i(n_) {}

  void seed_by_array(const std::vector<uint32_t> &key_in) {
    std::vector<uint32_t> key = key_in.empty() ? std::vector<uint32_t>{1} : key_in;
    x[0] = 19650218u;
    for (int k = 1; k < n; ++k) x[k] = 1812433253u * (x[k - 1] ^ (x[k - 1] >> 30)) + k;
    int p = 1, q = 0;
    const int klen = int(key.size());
    for (int k = std::max(n, klen); k; --k) {
      x[p] = (x[p] ^ ((x[p - 1] ^ (x[p - 1] >> 30)) * 1664525u)) + key[q] + q;
      ++p;
      ++q;
      if (p >= n) { x[0] = x[n - 1]; p = 1; }
      if (q >= klen) q = 0;
    }
    for (int k = n - 1; k; --k) {
      x[p] = (x[p] ^ ((x[p - 1] ^ (x[p - 1] >> 30)) * 1566083941u)) - p;
      ++p;
      if (p >= n) { x[0] = x[n - 1]; p = 1; }
    }
    x[0] = 0x80000000u;
    i = n;
  }

  uint32_t next() {
    if (i >= n) {
      for (int k = 0; k < n; ++k) {
        const uint32_t y = (x[k] & upper) | (x[(k + 1) % n] & ~upper);
        x[k] = x[(k + m) % n] ^ (y >> 1) ^ ((y & 1) ? a : 0);
      }
      i = 0;
    }
    uint32_t y = x[i++];
    y ^= y >> u;
    y ^= (y << s) & b;
    y ^= (y << t) & c;
    return y ^ (y >> l);
  }
};

inline RefTwister ref_mt19937() {
  return RefTwister(624, 397, 31, 0x9908b0dfu, 11, 7, 0x9d2c5680u, 15, 0xefc60000u, 18);
}
inline RefTwister ref_mt2203(uint32_t a, uint32_t b, uint32_t c) {
  return RefTwister(69, 34, 5, a, 12, 7, b, 15, c, 18);
}

// SFMT19937 written word by word over 32-bit lanes.
struct RefSfmt {
  uint32_t x[624];
  int idx = 624;

  static uint32_t f1(uint32_t v) { return (v ^ (v >> 27)) * 1664525u; }
  static uint32_t f2(uint32_t v) { return (v ^ (v >> 27)) * 1566083941u; }

  void seed_by_array(const std::vector<uint32_t> &key_in) {
    std::vector<uint32_t> key = key_in.empty() ? std::vector<uint32_t>{1} : key_in;
    const int size = 624, lag = 11, mid = 306, len = int(key.size());
    std::memset(x, 0x8b, sizeof x);
    int count = std::max(len + 1, size);
    uint32_t r = f1(x[0] ^ x[mid] ^ x[size - 1]);
    x[mid] += r;
    r += len;
    x[mid + lag] += r;
    x[0] = r;
    --count;
    int p = 1;
    for (int j = 0; j < count; ++j) {
      r = f1(x[p] ^ x[(p + mid) % size] ^ x[(p + size - 1) % size]);
      x[(p + mid) % size] += r;
      r += (j < len ? key[j] : 0) + p;
      x[(p + mid + lag) % size] += r;
      x[p] = r;
      p = (p + 1) % size;
    }
    for (int j = 0; j < size; ++j) {
      r = f2(x[p] + x[(p + mid) % size] + x[(p + size - 1) % size]);
      x[(p + mid) % size] ^= r;
      r -= p;
      x[(p + mid + lag) % size] ^= r;
      x[p] = r;
      p = (p + 1) % size;
    }
    const uint32_t parity[4] = {1u, 0u, 0u, 0x13c9e684u};
    uint32_t inner = 0;
    for (int k = 0; k < 4; ++k) inner ^= x[k] & parity[k];
    for (int sh = 16; sh > 0; sh >>= 1) inner ^= inner >> sh;
    if (!(inner & 1)) {
      bool done = false;
      for (int k = 0; k < 4 && !done; ++k)
        for (int bit = 0; bit < 32 && !done; ++bit)
          if (parity[k] & (1u << bit)) { x[k] ^= 1u << bit; done = true; }
    }
    idx = 624;
  }

  // 128-bit shifts by whole bytes on four little-endian words.
  static void lshift8(const uint32_t *in, uint32_t *out) {
    const uint64_t hi = (uint64_t(in[3]) << 32) | in[2], lo = (uint64_t(in[1]) << 32) | in[0];
    const uint64_t ohi = (hi << 8) | (lo >> 56), olo = lo << 8;
    out[0] = uint32_t(olo); out[1] = uint32_t(olo >> 32);
    out[2] = uint32_t(ohi); out[3] = uint32_t(ohi >> 32);
  }
  static void rshift8(const uint32_t *in, uint32_t *out) {
    const uint64_t hi = (uint64_t(in[3]) << 32) | in[2], lo = (uint64_t(in[1]) << 32) | in[0];
    const uint64_t olo = (lo >> 8) | (hi << 56), ohi = hi >> 8;
    out[0] = uint32_t(olo); out[1] = uint32_t(olo >> 32);
    out[2] = uint32_t(ohi); out[3] = uint32_t(ohi >> 32);
  }

  void regenerate() {
    const uint32_t msk[4] = {0xdfffffefu, 0xddfecb7fu, 0xbffaffffu, 0xbffffff6u};
    for (int g = 0; g < 156; ++g) {
      const uint32_t *a = x + 4 * g, *b = x + 4 * ((g + 122) % 156);
      const uint32_t *c = x + 4 * ((g + 154) % 156), *d = x + 4 * ((g + 155) % 156);
      uint32_t xs[4], ys[4], r[4];
      lshift8(a, xs);
      rshift8(c, ys);
      for (int k = 0; k < 4; ++k)
        r[k] = a[k] ^ xs[k] ^ ((b[k] >> 11) & msk[k]) ^ ys[k] ^ (d[k] << 18);
      std::memcpy(x + 4 * g, r, sizeof r);
    }
  }

  uint32_t next() {
    if (idx >= 624) {
      regenerate();
      idx = 0;
    }
    return x[idx++];
  }
};

inline std::vector<uint32_t> read_kat(const std::string &name) {
  std::ifstream in(std::string(QOR_KAT_DIR) + "/" + name);
  std::vector<uint32_t> out;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    out.push_back(uint32_t(std::stoul(line)));
  }
  return out;
}

}  // namespace mt_test

#endif
