// Properties of the MT2203 parameter table: every row present is distinct,
// carries its member number, and (for a sample) gives a recurrence whose
// characteristic polynomial is primitive of degree 2203.  The primitivity
// check here is deliberately independent of the search tool's: squaring by
// plain shifting and bit-by-bit reduction.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "../../../src/rng/brng/gf2_jump.h"
#include "../../../src/rng/brng/twisters.h"

namespace {

using namespace qor::rng::twister;
namespace gf2 = qor::rng::gf2;

constexpr int kP = 2203;

std::vector<int> present_members() {
  std::vector<int> m;
  for (int i = 0; i < kMt2203Members; ++i)
    if (kMt2203Params[i][0] != 0) m.push_back(i);
  return m;
}

TEST(Mt2203Table, RowsAreDistinctAndCarryTheirMember) {
  const auto members = present_members();
  ASSERT_FALSE(members.empty());
  std::set<uint32_t> seen;
  for (int m : members) {
    const uint32_t a = kMt2203Params[m][0];
    EXPECT_EQ(a & 0xFFFFu, uint32_t(m)) << m;
    EXPECT_NE(a & 0x80000000u, 0u) << m;  // keeps the twist invertible
    EXPECT_TRUE(seen.insert(a).second) << "duplicate twisting word in row " << m;
  }
}

// x^(2^p) == x modulo phi, by naive polynomial arithmetic on bit vectors.
bool irreducible_naive(const std::vector<int> &phi_bits) {
  const int p = kP;
  std::vector<uint8_t> a(std::size_t(2 * p), 0), sq(std::size_t(2 * p), 0);
  a[1] = 1;
  for (int it = 0; it < p; ++it) {
    std::fill(sq.begin(), sq.end(), 0);
    for (int i = 0; i < p; ++i)
      if (a[std::size_t(i)]) sq[std::size_t(2 * i)] = 1;
    for (int i = 2 * p - 1; i >= p; --i) {
      if (!sq[std::size_t(i)]) continue;
      for (int b : phi_bits) sq[std::size_t(i - p + b)] ^= 1;  // phi includes bit p: clears i
    }
    std::copy(sq.begin(), sq.begin() + p, a.begin());
  }
  for (int i = 0; i < p; ++i)
    if (a[std::size_t(i)] != (i == 1)) return false;
  return true;
}

TEST(Mt2203Table, SampledRowsArePrimitive) {
  const auto members = present_members();
  ASSERT_FALSE(members.empty());
  for (int m : {members.front(), members[members.size() / 2], members.back()}) {
    const uint32_t a = kMt2203Params[m][0];
    // Minimal polynomial of the top bit of the raw sequence.
    std::vector<uint32_t> x(2 * kP + 69);
    uint32_t h = 12345;
    for (int i = 0; i < 69; ++i) x[std::size_t(i)] = h = h * 69069u + 1u;
    std::vector<uint64_t> seq(gf2::words_for_bits(2 * kP) + 2, 0);
    for (int k = 0; k < 2 * kP; ++k) {
      const uint32_t y = (x[std::size_t(k)] & 0xFFFFFFE0u) | (x[std::size_t(k + 1)] & 0x1Fu);
      x[std::size_t(k + 69)] = x[std::size_t(k + 34)] ^ (y >> 1) ^ ((y & 1u) ? a : 0u);
      if (x[std::size_t(k + 69)] >> 31) gf2::flip_bit(seq.data(), k);
    }
    std::vector<uint64_t> phi(gf2::words_for_bits(2 * kP + 1) + 2), bm(gf2::bm_scratch_words(2 * kP));
    ASSERT_EQ(gf2::berlekamp_massey(seq.data(), 2 * kP, phi.data(), bm.data()), kP) << m;
    std::vector<int> bits;
    for (int i = 0; i <= kP; ++i)
      if (gf2::get_bit(phi.data(), i)) bits.push_back(i);
    EXPECT_TRUE(irreducible_naive(bits)) << "member " << m;
  }
}

TEST(Gf2, BerlekampMasseyRecoversAKnownRecurrence) {
  // s_{j+5} = s_{j+2} + s_j, i.e. phi = x^5 + x^2 + 1.
  std::vector<uint64_t> s(3, 0);
  int v[64] = {1, 0, 0, 1, 1};
  for (int j = 0; j + 5 < 64; ++j) v[j + 5] = v[j + 2] ^ v[j];
  for (int j = 0; j < 64; ++j)
    if (v[j]) gf2::flip_bit(s.data(), j);
  std::vector<uint64_t> out(gf2::words_for_bits(65) + 2), bm(gf2::bm_scratch_words(64));
  ASSERT_EQ(gf2::berlekamp_massey(s.data(), 64, out.data(), bm.data()), 5);
  EXPECT_EQ(out[0], (1ull << 5) | (1ull << 2) | 1ull);
}

TEST(Gf2, PowerOfXAgreesWithRepeatedMultiplication) {
  // Modulo x^70 + x^9 + x^3 + 1 (any polynomial works): x^e by the tables
  // against e single shifts with reduction.
  const int deg = 70;
  std::vector<uint64_t> f(2, 0);
  for (int b : {0, 3, 9, 70}) gf2::flip_bit(f.data(), b);
  std::vector<uint64_t> storage(gf2::modulus_storage_words(deg));
  gf2::Modulus m;
  gf2::modulus_init(m, f.data(), deg, storage.data());
  for (unsigned e : {0u, 1u, 69u, 70u, 71u, 140u, 1000u, 4097u}) {
    std::vector<uint64_t> got(m.rw), work(2 * m.rw + 2), want(m.rw + 1, 0);
    gf2::x_power_mod(m, e, got.data(), work.data());
    want[0] = 1;
    for (unsigned k = 0; k < e; ++k) {
      const int top = gf2::get_bit(want.data(), deg - 1);
      want[1] = (want[1] << 1) | (want[0] >> 63);
      want[0] <<= 1;
      want[1] &= (1ull << (deg - 64)) - 1;
      if (top)
        for (int b : {0, 3, 9}) gf2::flip_bit(want.data(), b);
    }
    EXPECT_EQ(got[0], want[0]) << e;
    EXPECT_EQ(got[1], want[1]) << e;
  }
}

}  // namespace
