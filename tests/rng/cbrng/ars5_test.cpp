// ARS5 blocks against a table-based AES written here from the cipher's
// definition (S-box derived from the field inverse, MixColumns by field
// multiplication), itself checked against the FIPS-197 AES-128 example.
#include <gtest/gtest.h>

#include <array>
#include <random>

#include "cbrng_test_util.h"

namespace {

using cbrng_test::kArs5;
using cbrng_test::Stream;
using Block = std::array<uint8_t, 16>;

uint8_t gmul(uint8_t a, uint8_t b) {
  uint8_t p = 0;
  for (int i = 0; i < 8; ++i) {
    if (b & 1) p ^= a;
    const bool hi = a & 0x80;
    a = static_cast<uint8_t>(a << 1);
    if (hi) a ^= 0x1B;
    b >>= 1;
  }
  return p;
}

struct TableAes {
  uint8_t sbox[256];
  TableAes() {
    for (int x = 0; x < 256; ++x) {
      uint8_t inv = 0;
      for (int y = 1; y < 256 && x; ++y)
        if (gmul(static_cast<uint8_t>(x), static_cast<uint8_t>(y)) == 1)
          inv = static_cast<uint8_t>(y);
      uint8_t s = 0x63;
      for (int r = 0; r < 5; ++r) s ^= static_cast<uint8_t>((inv << r) | (inv >> (8 - r)));
      sbox[x] = s;
    }
  }
  // One encryption round on the column-major state: SubBytes, ShiftRows,
  // MixColumns (skipped in the last round), AddRoundKey.
  Block round(const Block &s, const Block &k, bool last) const {
    Block t;
    for (int c = 0; c < 4; ++c)
      for (int r = 0; r < 4; ++r) t[r + 4 * c] = sbox[s[r + 4 * ((c + r) % 4)]];
    if (!last) {
      for (int c = 0; c < 4; ++c) {
        const uint8_t a0 = t[4 * c], a1 = t[4 * c + 1], a2 = t[4 * c + 2], a3 = t[4 * c + 3];
        t[4 * c] = gmul(a0, 2) ^ gmul(a1, 3) ^ a2 ^ a3;
        t[4 * c + 1] = a0 ^ gmul(a1, 2) ^ gmul(a2, 3) ^ a3;
        t[4 * c + 2] = a0 ^ a1 ^ gmul(a2, 2) ^ gmul(a3, 3);
        t[4 * c + 3] = gmul(a0, 3) ^ a1 ^ a2 ^ gmul(a3, 2);
      }
    }
    for (int i = 0; i < 16; ++i) t[i] ^= k[i];
    return t;
  }
  Block aes128(const Block &key, const Block &pt) const {
    uint8_t w[176];
    for (int i = 0; i < 16; ++i) w[i] = key[i];
    uint8_t rcon = 1;
    for (int i = 4; i < 44; ++i) {
      uint8_t t[4] = {w[4 * i - 4], w[4 * i - 3], w[4 * i - 2], w[4 * i - 1]};
      if (i % 4 == 0) {
        const uint8_t t0 = t[0];
        t[0] = sbox[t[1]] ^ rcon;
        t[1] = sbox[t[2]];
        t[2] = sbox[t[3]];
        t[3] = sbox[t0];
        rcon = gmul(rcon, 2);
      }
      for (int j = 0; j < 4; ++j) w[4 * i + j] = w[4 * i - 16 + j] ^ t[j];
    }
    auto rk = [&](int r) {
      Block b;
      for (int i = 0; i < 16; ++i) b[i] = w[16 * r + i];
      return b;
    };
    Block s;
    for (int i = 0; i < 16; ++i) s[i] = pt[i] ^ w[i];
    for (int r = 1; r < 10; ++r) s = round(s, rk(r), false);
    return round(s, rk(10), true);
  }
};

const TableAes &aes() {
  static const TableAes t;
  return t;
}

Block hex_block(const char *h) {
  Block b;
  for (int i = 0; i < 16; ++i)
    b[i] = static_cast<uint8_t>(std::stoi(std::string(h + 2 * i, 2), nullptr, 16));
  return b;
}

TEST(Ars5Reference, TableAesReproducesFips197Example) {
  EXPECT_EQ(aes().aes128(hex_block("000102030405060708090a0b0c0d0e0f"),
                         hex_block("00112233445566778899aabbccddeeff")),
            hex_block("69c4e0d86a7b0430d8cdb78070b4c55a"));
}

Block le_bytes(uint64_t lo, uint64_t hi) {
  Block b;
  for (int i = 0; i < 8; ++i) {
    b[i] = static_cast<uint8_t>(lo >> (8 * i));
    b[8 + i] = static_cast<uint8_t>(hi >> (8 * i));
  }
  return b;
}

// ARS5 from its definition: round keys key + i * Weyl in two 64-bit lanes.
std::array<uint32_t, 4> ars5_reference(const uint32_t key[4], uint64_t ctr_lo, uint64_t ctr_hi) {
  const uint64_t klo = static_cast<uint64_t>(key[1]) << 32 | key[0];
  const uint64_t khi = static_cast<uint64_t>(key[3]) << 32 | key[2];
  auto round_key = [&](uint64_t i) {
    return le_bytes(klo + i * 0x9E3779B97F4A7C15ull, khi + i * 0xBB67AE8584CAA73Bull);
  };
  Block s = le_bytes(ctr_lo, ctr_hi);
  const Block k0 = round_key(0);
  for (int i = 0; i < 16; ++i) s[i] ^= k0[i];
  for (int r = 1; r <= 4; ++r) s = aes().round(s, round_key(r), false);
  s = aes().round(s, round_key(5), true);
  std::array<uint32_t, 4> out;
  for (int w = 0; w < 4; ++w)
    out[w] = s[4 * w] | s[4 * w + 1] << 8 | s[4 * w + 2] << 16 |
             static_cast<uint32_t>(s[4 * w + 3]) << 24;
  return out;
}

class Ars5Test : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!qor::rng::cpu_has_aes()) GTEST_SKIP() << "processor without AES";
  }
};

TEST_F(Ars5Test, BlockFunctionMatchesReference) {
  std::mt19937_64 rng(99);
  for (int t = 0; t < 300; ++t) {
    const uint32_t key[4] = {static_cast<uint32_t>(rng()), static_cast<uint32_t>(rng()),
                             static_cast<uint32_t>(rng()), static_cast<uint32_t>(rng())};
    const uint64_t ctr[2] = {rng(), rng()};
    uint32_t out[4];
    qor::rng::ars5_block(key, ctr, out);
    const auto ref = ars5_reference(key, ctr[0], ctr[1]);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(out[i], ref[i]) << "trial " << t << " word " << i;
  }
}

// Whole-stream output, long enough for the eight-block batches, from
// counters where the batch crosses a carry into the high half and wraps the
// whole 128-bit counter.
TEST_F(Ars5Test, StreamOutputMatchesReferenceAcrossCounterCarries) {
  struct Start {
    uint64_t lo, hi;
  } starts[] = {{0, 0},
                {0xFFFFFFFFFFFFFFFDull, 5},
                {0xFFFFFFFFFFFFFFF9ull, 0xFFFFFFFFFFFFFFFFull},
                {0x0123456789ABCDEFull, 0xFEDCBA9876543210ull}};
  const uint32_t key[4] = {0xDEADBEEF, 0x01234567, 0x89ABCDEF, 0xCAFEF00D};
  for (const Start &st : starts) {
    Stream s(kArs5, {key[0], key[1], key[2], key[3], static_cast<uint32_t>(st.lo),
                     static_cast<uint32_t>(st.lo >> 32), static_cast<uint32_t>(st.hi),
                     static_cast<uint32_t>(st.hi >> 32)});
    const int nblocks = 37;
    const auto w = s.words(4 * nblocks);
    uint64_t lo = st.lo, hi = st.hi;
    for (int b = 0; b < nblocks; ++b) {
      const auto ref = ars5_reference(key, lo, hi);
      for (int i = 0; i < 4; ++i) ASSERT_EQ(w[4 * b + i], ref[i]) << "block " << b;
      if (++lo == 0) ++hi;
    }
    EXPECT_EQ(s.state<qor::rng::Ars5State>().ctr[0], lo);
    EXPECT_EQ(s.state<qor::rng::Ars5State>().ctr[1], hi);
  }
}

TEST_F(Ars5Test, UnseededStreamUsesKeyAndCounterZero) {
  Stream s(kArs5, {});
  const uint32_t zero_key[4] = {0, 0, 0, 0};
  const auto ref = ars5_reference(zero_key, 0, 0);
  const auto w = s.words(4);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(w[i], ref[i]);
}

}  // namespace
