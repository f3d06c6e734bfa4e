// Registry rows, identifier mapping, validity and user registration.
#include <gtest/gtest.h>

#include <cstring>

#include "helpers.h"

namespace {

struct RowCase {
  int32_t brng;
  int32_t stateSize, seedCount, zeroIncluded, wordSize, bitCount;
};

const RowCase kRows[] = {
    {0x100000, 24, 1, 0, 4, 31},      {0x200000, 1024, 252, 1, 4, 32},
    {0x300000, 40, 6, 1, 4, 32},      {0x400000, 32, 1, 0, 8, 59},
    {0x500000, 48, 4, 1, 16, 24},     {0x600000, 11712, 2604, 0, 4, 32},
    {0x700000, 84288, 10498, 0, 4, 32}, {0x800000, 2520, 625, 1, 4, 32},
    {0x900000, 312, 70, 1, 4, 32},    {0xA00000, 48, 0, 1, 4, 32},
    {0xB00000, 64, 0, 1, 4, 32},      {0xC00000, 56, 0, 1, 4, 32},
    {0xD00000, 2536, 625, 1, 4, 32},  {0xE00000, 24, 1, 1, 4, 32},
    {0xF00000, 72, 8, 1, 4, 32},      {0x1000000, 64, 8, 1, 4, 32},
    // legacy identifiers
    {0, 24, 1, 0, 4, 31},             {1, 1024, 252, 1, 4, 32},
    {2, 40, 6, 1, 4, 32},             {3, 32, 1, 0, 8, 59},
    {4, 48, 4, 1, 16, 24},            {276, 48, 4, 1, 16, 24},
    {277, 11712, 2604, 0, 4, 32},     {278, 84288, 10498, 0, 4, 32},
    {279, 0, 0, 0, 0, 0},             {280, 0, 0, 0, 0, 0},
    // members of sets report the set's row
    {0x500000 + 272, 48, 4, 1, 16, 24}, {0x900000 + 6023, 312, 70, 1, 4, 32},
};

TEST(Registry, BuiltInRowsReportTheirProperties) {
  for (const RowCase &c : kRows) {
    GeneratorRecord r;
    std::memset(&r, 0x5A, sizeof r);
    ASSERT_EQ(__rixGetBrngProperties(c.brng, &r), 0) << std::hex << c.brng;
    EXPECT_EQ(r.stateSize, c.stateSize) << std::hex << c.brng;
    EXPECT_EQ(r.seedCount, c.seedCount) << std::hex << c.brng;
    EXPECT_EQ(r.zeroIncluded, c.zeroIncluded) << std::hex << c.brng;
    EXPECT_EQ(r.wordSize, c.wordSize) << std::hex << c.brng;
    EXPECT_EQ(r.bitCount, c.bitCount) << std::hex << c.brng;
    EXPECT_EQ(r.initStream == nullptr, c.stateSize == 0) << std::hex << c.brng;
  }
}

TEST(Registry, InvalidIdentifiersAreRefusedAndWriteNothing) {
  for (int32_t brng : {0x500000 + 273, 0x900000 + 6024, 281, 511, 0x1100000, 0x7FF00000,
                       -1, -5, 0x100000 + 1, 0x300000 + 1}) {
    GeneratorRecord r;
    std::memset(&r, 0x5A, sizeof r);
    EXPECT_EQ(__rixGetBrngProperties(brng, &r), QOR_RNG_ERROR_INVALID_BRNG) << std::hex << brng;
    const unsigned char *b = reinterpret_cast<const unsigned char *>(&r);
    for (size_t i = 0; i < sizeof r; ++i) ASSERT_EQ(b[i], 0x5A);
  }
}

TEST(Registry, IdentifierMapping) {
  struct Map {
    int32_t brng;
    const GeneratorRecord *table;
    int32_t row, member;
  } const maps[] = {
      {0x100000, __RegBrngsNew, 0, 0},   {0x500000 + 17, __RegBrngsNew, 4, 17},
      {0x900123, __RegBrngsNew, 8, 0x123}, {0x1100000, __RegBrngsNew, 16, 0},
      {0, __RegBrngs, 0, 0},             {3, __RegBrngs, 3, 0},
      {4, __RegBrngs, 4, 0},             {100, __RegBrngs, 4, 96},
      {276, __RegBrngs, 4, 272},         {277, __RegBrngs, 277, 0},
      {0xFFFFF, __RegBrngs, 0xFFFFF, 0},
  };
  for (const Map &m : maps) {
    int32_t row = -7, member = -7;
    EXPECT_EQ(__rixGetBrngBaseOffset(m.brng, &row, &member), m.table) << m.brng;
    EXPECT_EQ(row, m.row) << m.brng;
    EXPECT_EQ(member, m.member) << m.brng;
  }
}

TEST(Registry, Validity) {
  EXPECT_EQ(__rixIsBrngValid(__RegBrngs, 280, 12345), 0);  // legacy ignores the member
  EXPECT_EQ(__rixIsBrngValid(__RegBrngs, 281, 0), QOR_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(__rixIsBrngValid(__RegBrngs, -1, 0), QOR_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(__rixIsBrngValid(__RegBrngsNew, 4, 272), 0);
  EXPECT_EQ(__rixIsBrngValid(__RegBrngsNew, 4, 273), QOR_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(__rixIsBrngValid(__RegBrngsNew, 8, 6023), 0);
  EXPECT_EQ(__rixIsBrngValid(__RegBrngsNew, 0, 1), QOR_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(__rixIsBrngValid(__RegBrngsNew, __rixGetNumRegBrngs(), 0),
            QOR_RNG_ERROR_INVALID_BRNG);
}

// A user generator: a Weyl sequence x += 0x9E3779B9, enough to check that the
// stream functions reach a registered row.
int32_t weyl_init(int32_t method, void *s, int32_t n, const uint32_t *p) {
  uint32_t *x = reinterpret_cast<uint32_t *>(static_cast<char *>(s) + 16);
  if (method != 0) return QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED;
  *x = n > 0 ? p[0] : 0;
  return 0;
}
int32_t weyl_i(void *s, int32_t n, void *r) {
  uint32_t *x = reinterpret_cast<uint32_t *>(static_cast<char *>(s) + 16);
  for (int32_t i = 0; i < n; ++i) static_cast<uint32_t *>(r)[i] = *x += 0x9E3779B9u;
  return 0;
}
int32_t weyl_d(void *, int32_t, double *, double, double) { return -99; }
int32_t weyl_s(void *, int32_t, float *, float, float) { return -98; }

// Registration is for the life of the process, so everything about it runs
// in this one test, in order.
TEST(Registry, UserRegistration) {
  const GeneratorRecord good{20, 1, 1, 4, 32, 0, weyl_init, weyl_s, weyl_d, weyl_i};
  struct Bad {
    GeneratorRecord rec;
    int32_t status;
  };
  auto with = [&](auto edit) {
    GeneratorRecord r = good;
    edit(r);
    return r;
  };
  const Bad bad[] = {
      {with([](auto &r) { r.stateSize = -1; r.wordSize = 12; }), QOR_RNG_ERROR_BAD_STREAM_STATE_SIZE},
      {with([](auto &r) { r.wordSize = 12; r.seedCount = 0; }), QOR_RNG_ERROR_BAD_WORD_SIZE},
      {with([](auto &r) { r.seedCount = 0; r.bitCount = 0; }), QOR_RNG_ERROR_BAD_NSEEDS},
      {with([](auto &r) { r.bitCount = 0; r.initStream = nullptr; }), QOR_RNG_ERROR_BAD_NBITS},
      {with([](auto &r) { r.generateD = nullptr; }), QOR_RNG_ERROR_NULL_PTR},
      {with([](auto &r) { r.generateS = nullptr; }), QOR_RNG_ERROR_NULL_PTR},
      {with([](auto &r) { r.generateI = nullptr; }), QOR_RNG_ERROR_NULL_PTR},
      {with([](auto &r) { r.initStream = nullptr; }), QOR_RNG_ERROR_NULL_PTR},
  };
  const int32_t before = __rixGetNumRegBrngs();
  ASSERT_EQ(before, 16);
  for (const Bad &b : bad) EXPECT_EQ(__rixRegisterBrng(&b.rec), b.status);
  EXPECT_EQ(__rixGetNumRegBrngs(), before);

  GeneratorRecord props;
  EXPECT_EQ(__rixGetBrngProperties(0x1100000, &props), QOR_RNG_ERROR_INVALID_BRNG);
  void *s = nullptr;
  EXPECT_EQ(__rixNewStreamEx(&s, 0x1100000, 0, nullptr), QOR_RNG_ERROR_INVALID_BRNG);
  EXPECT_EQ(s, nullptr);

  ASSERT_EQ(__rixRegisterBrng(&good), 0x1100000);
  EXPECT_EQ(__rixGetNumRegBrngs(), 17);
  ASSERT_EQ(__rixGetBrngProperties(0x1100000, &props), 0);
  EXPECT_EQ(std::memcmp(&props, &good, sizeof props), 0);
  EXPECT_EQ(__rixGetBrngProperties(0x1100001, &props), QOR_RNG_ERROR_INVALID_BRNG);

  const uint32_t seed = 5;
  ASSERT_EQ(__rixNewStreamEx(&s, 0x1100000, 1, &seed), 0);
  uint32_t out[3];
  ASSERT_EQ(qor_test::row_of(s).generateI(s, 3, out), 0);
  EXPECT_EQ(out[0], 5u + 0x9E3779B9u);
  EXPECT_EQ(out[2], 5u + 3u * 0x9E3779B9u);
  EXPECT_EQ(__rixLeapfrogStream(s, 0, 2), QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED);
  __rixDeleteStream(&s);

  // stateSize 0 is a legal registration; the stream still gets a header.
  GeneratorRecord tiny = good;
  tiny.stateSize = 0;
  tiny.initStream = [](int32_t, void *, int32_t, const uint32_t *) { return 0; };
  ASSERT_EQ(__rixRegisterBrng(&tiny), 0x1200000);
  ASSERT_EQ(__rixNewStreamEx(&s, 0x1200000, 0, nullptr), 0);
  EXPECT_EQ(__rixGetStreamStateBrng(s), 0x1200000);
  __rixDeleteStream(&s);

  // Fill the table: the row after the 512th is refused rather than written.
  int32_t last = 0;
  while (__rixGetNumRegBrngs() < QOR_RNG_REGISTRY_CAPACITY) last = __rixRegisterBrng(&good);
  EXPECT_EQ(last, QOR_RNG_REGISTRY_CAPACITY << 20);
  EXPECT_EQ(__rixRegisterBrng(&good), QOR_RNG_ERROR_REGISTRY_FULL);
  EXPECT_EQ(__rixGetNumRegBrngs(), QOR_RNG_REGISTRY_CAPACITY);
  EXPECT_EQ(__rixGetBrngProperties(QOR_RNG_REGISTRY_CAPACITY << 20, &props), 0);
  EXPECT_EQ(__rixGetBrngProperties((QOR_RNG_REGISTRY_CAPACITY + 1) << 20, &props),
            QOR_RNG_ERROR_INVALID_BRNG);
}

}  // namespace
