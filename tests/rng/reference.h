// Straightforward reference implementations of the published recurrences,
// written independently of the library's lane-blocked kernels: one step at a
// time, textbook arithmetic.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace qor_test {

struct RefMcg31 {
  uint64_t x, a = 1132489760u;
  static constexpr uint64_t m = 2147483647u;
  explicit RefMcg31(uint32_t seed) : x(seed % m ? seed % m : 1) {}
  uint32_t next() {
    const uint32_t out = static_cast<uint32_t>(x);
    x = x * a % m;
    return out;
  }
};

struct RefMcg59 {
  unsigned __int128 x;
  static constexpr uint64_t a = 302875106592253ull;
  static constexpr unsigned __int128 m = static_cast<unsigned __int128>(1) << 59;
  explicit RefMcg59(uint64_t seed) : x(seed % m ? seed % m : 1) {}
  uint64_t next() {
    const uint64_t out = static_cast<uint64_t>(x);
    x = x * a % m;
    return out;
  }
};

// MRG32k3a with signed 64-bit arithmetic and the % operator, as in the
// recurrence's definition.
struct RefMrg {
  int64_t x1[3], x2[3];  // oldest first
  static constexpr int64_t m1 = 4294967087ll, m2 = 4294944443ll;
  RefMrg(const uint32_t s[6]) {
    for (int i = 0; i < 3; ++i) x1[i] = s[i], x2[i] = s[3 + i];
  }
  uint32_t next() {
    int64_t p1 = (1403580ll * x1[1] - 810728ll * x1[0]) % m1;
    if (p1 < 0) p1 += m1;
    int64_t p2 = (527612ll * x2[2] - 1370589ll * x2[0]) % m2;
    if (p2 < 0) p2 += m2;
    x1[0] = x1[1], x1[1] = x1[2], x1[2] = p1;
    x2[0] = x2[1], x2[1] = x2[2], x2[2] = p2;
    return static_cast<uint32_t>(((p1 - p2) % m1 + m1) % m1);
  }
};

// R250 as Kirkpatrick and Stoll wrote it: circular buffer, index i, partner
// 103 places ahead.
struct RefR250 {
  uint32_t buf[250];
  int i = 0;
  explicit RefR250(uint32_t seed) {
    uint32_t s = seed ? seed : 1;
    for (int k = 0; k < 250; ++k) buf[k] = s = s * 69069u;
    for (int k = 0; k < 32; ++k) {
      const uint32_t bit = 0x80000000u >> k;
      buf[3 + 7 * k] = (buf[3 + 7 * k] & (bit | (bit - 1))) | bit;
    }
  }
  uint32_t next() {
    const int j = i >= 147 ? i - 147 : i + 103;
    const uint32_t v = buf[i] ^= buf[j];
    i = i == 249 ? 0 : i + 1;
    return v;
  }
};

struct RefWh {
  uint64_t x[4], a[4], m[4];
  RefWh(const uint32_t mod[4], const uint8_t mult[4], const std::vector<uint32_t> &seed) {
    for (int k = 0; k < 4; ++k) {
      m[k] = mod[k];
      a[k] = mult[k];
      x[k] = k < static_cast<int>(seed.size()) ? seed[k] % m[k] : 1;
      if (x[k] == 0) x[k] = 1;
    }
  }
  void step() {
    for (int k = 0; k < 4; ++k) x[k] = x[k] * a[k] % m[k];
  }
  // The combination in the library's documented order, with reciprocals.
  double fraction() const {
    const double s = ((x[0] * (1.0 / m[0]) + x[1] * (1.0 / m[1])) + x[2] * (1.0 / m[2])) +
                     x[3] * (1.0 / m[3]);
    return s - std::floor(s);
  }
};

}  // namespace qor_test
