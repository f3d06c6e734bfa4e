// The three generators reached the way distributions and callers reach them:
// through their registry rows and the stream functions.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "cbrng_test_util.h"
#include "qor/rng.h"
#include "support/tool_run.h"

namespace {

struct Row {
  int32_t id;
  int32_t state_size, seed_count;
  QorBrngGenerateI gen_i;
  bool needs_aes;
};

const Row kRows[] = {
    {QOR_BRNG_NONDETERM, 24, 1, __rixiBRngTRNG, false},
    {QOR_BRNG_ARS5, 72, 8, __rixiBRngARS5, true},
    {QOR_BRNG_PHILOX4X32X10, 64, 8, __rixiBRngPHILOX4X32X10, false},
};

TEST(CbrngRegistry, RowsPointAtTheGenerators) {
  for (const Row &row : kRows) {
    GeneratorRecord rec{};
    ASSERT_EQ(__rixGetBrngProperties(row.id, &rec), 0) << std::hex << row.id;
    EXPECT_EQ(rec.stateSize, row.state_size);
    EXPECT_EQ(rec.seedCount, row.seed_count);
    EXPECT_EQ(rec.wordSize, 4);
    EXPECT_EQ(rec.bitCount, 32);
    EXPECT_EQ(rec.generateI, row.gen_i);
  }
}

TEST(CbrngRegistry, StreamFunctionsDriveTheCounterBasedGenerators) {
  for (int32_t id : {QOR_BRNG_ARS5, QOR_BRNG_PHILOX4X32X10}) {
    if (id == QOR_BRNG_ARS5 && !qor::rng::cpu_has_aes()) continue;
    const uint32_t seed[3] = {1, 2, 3};
    void *a = nullptr, *b = nullptr;
    ASSERT_EQ(__rixNewStreamEx(&a, id, 3, seed), 0);
    ASSERT_EQ(__rixNewStreamEx(&b, id, 3, seed), 0);
    GeneratorRecord rec{};
    ASSERT_EQ(__rixGetBrngProperties(id, &rec), 0);

    // Skip 2^64 + 6 words after 3 drawn, through the multi-word entry point,
    // equals the one-word skips 2^63, 2^63 and 6 in sequence.
    uint32_t w[3];
    ASSERT_EQ(rec.generateI(a, 3, w), 0);
    ASSERT_EQ(rec.generateI(b, 3, w), 0);
    const uint64_t big[2] = {6, 1};
    ASSERT_EQ(__rixSkipAheadStreamEx(a, 2, big), 0);
    ASSERT_EQ(__rixSkipAheadStream(b, uint64_t{1} << 63), 0);
    ASSERT_EQ(__rixSkipAheadStream(b, uint64_t{1} << 63), 0);
    ASSERT_EQ(__rixSkipAheadStream(b, 6), 0);
    uint32_t x[9], y[9];
    ASSERT_EQ(rec.generateI(a, 9, x), 0);
    ASSERT_EQ(rec.generateI(b, 9, y), 0);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(x[i], y[i]) << std::hex << id << " word " << i;

    // A copy carries the partly used block: it continues exactly as the source.
    void *c = nullptr;
    ASSERT_EQ(__rixCopyStream(&c, a), 0);
    ASSERT_EQ(rec.generateI(a, 5, x), 0);
    ASSERT_EQ(rec.generateI(c, 5, y), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(x[i], y[i]);

    EXPECT_EQ(__rixLeapfrogStream(a, 0, 2), -1002);
    __rixDeleteStream(&a);
    __rixDeleteStream(&b);
    __rixDeleteStream(&c);
  }
}

TEST(CbrngRegistry, NonDeterministicStreamRefusesToBeReproduced) {
  const uint32_t seed[2] = {0, 0};
  void *s = nullptr;
  ASSERT_EQ(__rixNewStreamEx(&s, QOR_BRNG_NONDETERM, 2, seed), 0);
  const uint64_t k = 5;
  EXPECT_EQ(__rixLeapfrogStream(s, 0, 2), -1002);
  EXPECT_EQ(__rixSkipAheadStream(s, 5), -1003);
  EXPECT_EQ(__rixSkipAheadStreamEx(s, 1, &k), -1004);
  uint32_t w[4];
  const int st = __rixiBRngTRNG(s, 4, w);
  EXPECT_EQ(st, qor::rng::cpu_has_rdrand() ? 0 : -1130);
  __rixDeleteStream(&s);
}

}  // namespace

namespace {

std::string run_tool(const std::string &args) { return qor_test::run_tool(args).out; }

// The tool reaches Philox by name: key 0 and counter 0 give the published
// all-zero block, and lower case is accepted.
TEST(CbrngTool, RngBitsNamesTheCounterBasedGenerators) {
  EXPECT_EQ(run_tool("rng bits --brng philox4x32x10 --seed 0 -n 4"),
            "1713891541\n3781805453\n3159862348\n2600524760\n");  // 6627e8d5 e169c58d ...
  if (qor::rng::cpu_has_aes()) {
    const uint32_t zero_key[4] = {0, 0, 0, 0};
    const uint64_t zero_ctr[2] = {0, 0};
    uint32_t b[4];
    qor::rng::ars5_block(zero_key, zero_ctr, b);
    EXPECT_EQ(run_tool("rng bits --brng ARS5 -n 2"),
              std::to_string(b[0]) + "\n" + std::to_string(b[1]) + "\n");
  }
}

}  // namespace
