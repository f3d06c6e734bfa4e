// Properties of the WH moduli and multiplier tables, checked from scratch
// (trial division and the primitive-root criterion), plus the quoted rows.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace {

#include "rng/brng/wh_tables.inc"

bool prime(uint32_t n) {
  if (n < 2) return false;
  if (n % 2 == 0) return n == 2;
  for (uint32_t d = 3; d * d <= n; d += 2)
    if (n % d == 0) return false;
  return true;
}

uint64_t pw(uint64_t a, uint64_t e, uint64_t m) {
  uint64_t r = 1;
  for (a %= m; e; e >>= 1, a = a * a % m)
    if (e & 1) r = r * a % m;
  return r;
}

// g generates the multiplicative group mod p iff g^((p-1)/q) != 1 for every
// prime q dividing p - 1.
bool primitive_root(uint32_t g, uint32_t p) {
  uint32_t n = p - 1;
  for (uint32_t q = 2; q * q <= n; ++q) {
    if (n % q) continue;
    if (pw(g, (p - 1) / q, p) == 1) return false;
    while (n % q == 0) n /= q;
  }
  return n == 1 || pw(g, (p - 1) / n, p) != 1;
}

TEST(WhTables, QuotedRows) {
  EXPECT_EQ(std::vector<uint32_t>(kWhModuli[0], kWhModuli[0] + 4),
            (std::vector<uint32_t>{16770647, 16770643, 16770623, 16770617}));
  EXPECT_EQ(std::vector<uint32_t>(kWhModuli[272], kWhModuli[272] + 4),
            (std::vector<uint32_t>{16766363, 16766359, 16766327, 16766231}));
  EXPECT_EQ(std::vector<int>(kWhMultipliers[0], kWhMultipliers[0] + 4),
            (std::vector<int>{125, 117, 127, 126}));
  EXPECT_EQ(std::vector<int>(kWhMultipliers[272], kWhMultipliers[272] + 4),
            (std::vector<int>{126, 127, 125, 124}));
}

TEST(WhTables, DistinctPrimesWithPrimitiveRootMultipliers) {
  std::set<uint32_t> moduli;
  std::set<std::vector<uint32_t>> rows;
  for (int r = 0; r < 273; ++r) {
    std::vector<uint32_t> row;
    for (int c = 0; c < 4; ++c) {
      const uint32_t m = kWhModuli[r][c], a = kWhMultipliers[r][c];
      ASSERT_LT(m, 1u << 24) << r;
      ASSERT_TRUE(prime(m)) << "row " << r << " modulus " << m;
      ASSERT_GE(a, 2u);
      ASSERT_TRUE(primitive_root(a, m)) << "row " << r << " multiplier " << a << " mod " << m;
      EXPECT_TRUE(moduli.insert(m).second) << "modulus repeated: " << m;
      row.push_back(m);
      row.push_back(a);
    }
    EXPECT_TRUE(rows.insert(row).second) << "row " << r << " repeats another";
  }
  EXPECT_EQ(moduli.size(), 273u * 4u);
}

}  // namespace
