// The uniform-bits members against an identical twin stream: the twisters and
// ARS5 (32-bit native words), the quasi-random rows (refused for fixed
// widths), and generators registered by the caller into rows 16 to 31.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "../helpers.h"
#include "qor/rng.h"

namespace {

constexpr uint32_t kGuard = 0xA5A5A5A5u;

// Rows whose native words are 32 uniform bits: the twin's words are the
// 32-bit results one for one, and its consecutive pairs (first word low) are
// the 64-bit results.
struct NativeCase {
  const char *name;
  int32_t brng;
  std::vector<uint32_t> seed;
};

const NativeCase kNative[] = {
    {"MT19937", QOR_BRNG_MT19937, {5489}},
    {"MT19937 long seed", QOR_BRNG_MT19937, {0x123, 0x234, 0x345, 0x456}},
    {"MT2203 member 0", QOR_BRNG_MT2203, {11}},
    {"MT2203 member 1", QOR_BRNG_MT2203 + 1, {11}},
    {"MT2203 member 2999", QOR_BRNG_MT2203 + 2999, {12, 13}},
    {"MT2203 member 6023", QOR_BRNG_MT2203 + 6023, {14}},
    {"SFMT19937", QOR_BRNG_SFMT19937, {1234}},
    {"SFMT19937 long seed", QOR_BRNG_SFMT19937, {1, 2, 3, 4, 5}},
    {"ARS5", QOR_BRNG_ARS5, {7, 8}},
    {"Philox4x32-10", QOR_BRNG_PHILOX4X32X10, {9}},
};

bool needs_aes(int32_t brng) { return brng == QOR_BRNG_ARS5; }

// Sizes that cross the twisters' state blocks (624 words, 351 for MT2203,
// 624 for SFMT) and the extraction's 2048-word rounds.
struct Draws {
  int32_t native, bits32, bits64;
};
const Draws kDraws[] = {{1, 1, 1}, {5, 700, 1000}, {623, 2049, 1025}, {0, 3, 2500}};

TEST(DistBitsTwin, NativeRowsMatchTwinWords) {
  for (const NativeCase &c : kNative) {
    if (needs_aes(c.brng) && !__rixCPUisAES()) continue;
    for (const Draws &d : kDraws) {
      SCOPED_TRACE(std::string(c.name) + " draws " + std::to_string(d.native) + "/" +
                   std::to_string(d.bits32) + "/" + std::to_string(d.bits64));
      qor_test::Stream s(c.brng, c.seed), twin(c.brng, c.seed);
      ASSERT_EQ(s.status(), 0);
      ASSERT_EQ(twin.status(), 0);
      const auto w = qor_test::words(twin.get(), d.native + d.bits32 + 2 * d.bits64);
      size_t k = 0;  // next twin word

      std::vector<uint32_t> r(static_cast<size_t>(d.native) + 1, kGuard);
      ASSERT_EQ(_rixiRngUniformBits(0, s.get(), d.native, r.data()), 0);
      EXPECT_EQ(r.back(), kGuard);
      for (int32_t i = 0; i < d.native; ++i, ++k) ASSERT_EQ(r[size_t(i)], w[k]) << "native " << i;

      std::vector<uint32_t> r32(static_cast<size_t>(d.bits32) + 1, kGuard);
      ASSERT_EQ(_rixiRngUniformBits32(0, s.get(), d.bits32, r32.data()), 0);
      EXPECT_EQ(r32.back(), kGuard);
      for (int32_t i = 0; i < d.bits32; ++i, ++k) ASSERT_EQ(r32[size_t(i)], w[k]) << "32-bit " << i;

      std::vector<uint32_t> r64(2 * static_cast<size_t>(d.bits64) + 1, kGuard);
      ASSERT_EQ(_rixiRngUniformBits64(0, s.get(), d.bits64, r64.data()), 0);
      EXPECT_EQ(r64.back(), kGuard);
      for (int32_t i = 0; i < d.bits64; ++i, k += 2) {
        const uint64_t got = r64[2 * size_t(i)] | uint64_t{r64[2 * size_t(i) + 1]} << 32;
        const uint64_t want = w[k] | uint64_t{w[k + 1]} << 32;
        ASSERT_EQ(got, want) << "64-bit " << i;
      }
      // Both streams now stand at the same place.
      EXPECT_EQ(qor_test::words(s.get(), 7), qor_test::words(twin.get(), 7));
    }
  }
}

// The quasi-random rows deliver their native words through the plain member
// but have no entry for fixed widths: -1014, nothing written, nothing drawn.
TEST(DistBitsTwin, QuasiRandomRowsRefuseFixedWidths) {
  const struct {
    const char *name;
    int32_t brng;
    std::vector<uint32_t> params;
  } rows[] = {{"Sobol 1 dim", QOR_BRNG_SOBOL, {}},
              {"Sobol 5 dims", QOR_BRNG_SOBOL, {5}},
              {"Niederreiter 1 dim", QOR_BRNG_NIEDERR, {}},
              {"Niederreiter 7 dims", QOR_BRNG_NIEDERR, {7}}};
  using Member = int32_t (*)(uint32_t, void *, int32_t, uint32_t *);
  const struct {
    const char *name;
    Member f;
  } members[] = {{"32", _rixiRngUniformBits32}, {"64", _rixiRngUniformBits64}};
  for (const auto &row : rows) {
    for (const auto &m : members) {
      SCOPED_TRACE(std::string(row.name) + " width " + m.name);
      qor_test::Stream s(row.brng, row.params), twin(row.brng, row.params);
      ASSERT_EQ(s.status(), 0);
      std::vector<uint32_t> r(9, kGuard);
      EXPECT_EQ(m.f(0, s.get(), 4, r.data()), QOR_RNG_ERROR_NO_UNIFORM_BITS);
      EXPECT_EQ(r, std::vector<uint32_t>(9, kGuard));
      // The plain member still hands out the native words, from the start.
      const auto want = qor_test::words(twin.get(), 13);
      std::vector<uint32_t> native(14, kGuard);
      ASSERT_EQ(_rixiRngUniformBits(0, s.get(), 13, native.data()), 0);
      EXPECT_EQ(native.back(), kGuard);
      native.pop_back();
      EXPECT_EQ(native, want);
    }
  }
}

// ---- generators registered by the caller ----------------------------------

// Generator state after the 16-byte stream header.
uint64_t &state_of(void *s) {
  return *reinterpret_cast<uint64_t *>(static_cast<char *>(s) + 16);
}
int32_t user_init(int32_t, void *s, int32_t n, const uint32_t *p) {
  state_of(s) = n > 0 ? p[0] | 1u : 1u;
  return 0;
}
int32_t user_d(void *, int32_t, double *, double, double) { return -99; }
int32_t user_s(void *, int32_t, float *, float, float) { return -98; }

// 32-bit words: a xorshift on the low half of the state.
int32_t user_i32(void *s, int32_t n, void *r) {
  uint64_t &x = state_of(s);
  for (int32_t i = 0; i < n; ++i) {
    uint32_t y = static_cast<uint32_t>(x);
    y ^= y << 13;
    y ^= y >> 17;
    y ^= y << 5;
    x = y;
    static_cast<uint32_t *>(r)[i] = y;
  }
  return 0;
}
// 64-bit words with 59 significant bits, delivered before each step of
// x = 13^13 x mod 2^59.
int32_t user_i64(void *s, int32_t n, void *r) {
  uint64_t &x = state_of(s);
  for (int32_t i = 0; i < n; ++i) {
    static_cast<uint64_t *>(r)[i] = x;
    x = (x * 302875106592253ull) & ((uint64_t{1} << 59) - 1);
  }
  return 0;
}
// 128-bit words: two 64-bit steps of the generator above.
int32_t user_i128(void *s, int32_t n, void *r) { return user_i64(s, 2 * n, r); }

enum class Kind { W32, W64, W128 };

GeneratorRecord record_of(Kind k) {
  switch (k) {
    case Kind::W32:
      return {24, 2, 1, 4, 32, 0, user_init, user_s, user_d, user_i32};
    case Kind::W64:
      return {24, 1, 0, 8, 59, 0, user_init, user_s, user_d, user_i64};
    case Kind::W128:
      break;
  }
  return {24, 1, 0, 16, 59, 0, user_init, user_s, user_d, user_i128};
}

// What the fixed-width members do for a registered row, stated independently
// of the library: the 32-bit member keeps the top 32 of 59 bits at row 19
// (64-bit words only) and the first of each pair of native words at rows 23,
// 24 and 28-31 (32-bit words only); the 64-bit member serves no row above 15.
enum class Expect { Refuse, Top59, FirstOfPair };

Expect expect32(int32_t row, Kind k) {
  if (row == 19) return k == Kind::W64 ? Expect::Top59 : Expect::Refuse;
  const bool doubled = row == 23 || row == 24 || (row >= 28 && row <= 31);
  return doubled && k == Kind::W32 ? Expect::FirstOfPair : Expect::Refuse;
}

#define CHILD_CHECK(cond, ...)                \
  do {                                        \
    if (!(cond)) {                            \
      std::fprintf(stderr, __VA_ARGS__);      \
      std::fprintf(stderr, " [%s]\n", #cond); \
      return 1;                               \
    }                                         \
  } while (0)

// One registered row: a 32-bit draw of n results, a 64-bit draw, the plain
// member, each against the twin.
int check_row(int32_t row, Kind kind, int32_t n) {
  const int32_t id = (row + 1) << 20;
  const int32_t wsize = record_of(kind).wordSize / 4;  // 32-bit words per native word
  qor_test::Stream s(id, {0x2468ACE1u}), twin(id, {0x2468ACE1u});
  CHILD_CHECK(s.status() == 0 && twin.status() == 0, "row %d: stream", row);

  std::vector<uint32_t> r(static_cast<size_t>(n) + 1, kGuard);
  const int32_t st = _rixiRngUniformBits32(0, s.get(), n, r.data());
  CHILD_CHECK(r.back() == kGuard, "row %d: 32-bit draw wrote past n", row);
  switch (expect32(row, kind)) {
    case Expect::Refuse: {
      CHILD_CHECK(st == QOR_RNG_ERROR_NO_UNIFORM_BITS, "row %d: 32-bit status %d", row, st);
      for (uint32_t x : r) CHILD_CHECK(x == kGuard, "row %d: refused draw wrote", row);
      break;
    }
    case Expect::Top59: {
      CHILD_CHECK(st == 0, "row %d: 32-bit status %d", row, st);
      const auto w = qor_test::words(twin.get(), n);  // n 64-bit words as pairs
      for (int32_t i = 0; i < n; ++i) {
        const uint64_t x = w[2 * size_t(i)] | uint64_t{w[2 * size_t(i) + 1]} << 32;
        CHILD_CHECK(r[size_t(i)] == static_cast<uint32_t>(x >> 27),
                    "row %d: top-59 result %d is %08x", row, i, r[size_t(i)]);
      }
      break;
    }
    case Expect::FirstOfPair: {
      CHILD_CHECK(st == 0, "row %d: 32-bit status %d", row, st);
      const auto w = qor_test::words(twin.get(), 2 * n);
      for (int32_t i = 0; i < n; ++i)
        CHILD_CHECK(r[size_t(i)] == w[2 * size_t(i)], "row %d: paired result %d is %08x", row,
                    i, r[size_t(i)]);
      break;
    }
  }
  // Whatever was drawn, both streams now stand at the same place.
  CHILD_CHECK(qor_test::words(s.get(), 5) == qor_test::words(twin.get(), 5),
              "row %d: streams apart after the 32-bit draw", row);

  std::vector<uint32_t> r64(2 * static_cast<size_t>(n), kGuard);
  const int32_t st64 = _rixiRngUniformBits64(0, s.get(), n, r64.data());
  CHILD_CHECK(st64 == QOR_RNG_ERROR_NO_UNIFORM_BITS, "row %d: 64-bit status %d", row, st64);
  for (uint32_t x : r64) CHILD_CHECK(x == kGuard, "row %d: refused 64-bit draw wrote", row);

  std::vector<uint32_t> native(static_cast<size_t>(9 * wsize) + 1, kGuard);
  CHILD_CHECK(_rixiRngUniformBits(0, s.get(), 9, native.data()) == 0, "row %d: native", row);
  CHILD_CHECK(native.back() == kGuard, "row %d: native draw wrote past n", row);
  native.pop_back();
  CHILD_CHECK(native == qor_test::words(twin.get(), 9), "row %d: native words differ", row);
  return 0;
}

// Registers one generator per row from 16 on, in the order given, then checks
// every row. Registration lasts for the life of the process, so this runs in
// a child.
int registered_rows(const std::vector<Kind> &kinds, int32_t n) {
  CHILD_CHECK(__rixGetNumRegBrngs() == 16, "registry holds %d rows", __rixGetNumRegBrngs());
  for (size_t i = 0; i < kinds.size(); ++i) {
    const GeneratorRecord rec = record_of(kinds[i]);
    const int32_t id = __rixRegisterBrng(&rec);
    CHILD_CHECK(id == static_cast<int32_t>(17 + i) << 20, "registration %zu gave %d", i, id);
  }
  for (size_t i = 0; i < kinds.size(); ++i)
    if (int bad = check_row(static_cast<int32_t>(16 + i), kinds[i], n)) return bad;
  return 0;
}

constexpr Kind A = Kind::W32, B = Kind::W64, C = Kind::W128;

// Layouts of rows 16..31. "fitting": each served row gets the word size its
// extraction expects; "misfit": every served row gets another size; the rows
// without an entry get all three sizes across the two layouts.
const struct Layout {
  const char *name;
  std::vector<Kind> kinds;
  int32_t n;
} kLayouts[] = {
    //          16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31
    {"fitting", {A, B, C, B, A, B, C, A, A, A, B, C, A, A, A, A}, 2049},
    {"fitting small", {A, B, C, B, A, B, C, A, A, A, B, C, A, A, A, A}, 3},
    {"misfit", {B, C, A, A, C, A, B, B, C, C, A, B, B, C, B, C}, 2049},
};

TEST(DistBitsTwinDeathTest, RegisteredRowsFollowTheirTableEntries) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const Layout &l : kLayouts) {
    SCOPED_TRACE(l.name);
    EXPECT_EXIT(std::exit(registered_rows(l.kinds, l.n)), ::testing::ExitedWithCode(0), "");
  }
}

}  // namespace
