// Philox4x32-10 against the published known answers and, for many more
// inputs, against Random123's philox4x32 (an independent implementation).
#include <Random123/philox.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "cbrng_test_util.h"

namespace {

using cbrng_test::kPhilox;
using cbrng_test::Stream;

uint32_t u32(std::mt19937 &r) { return static_cast<uint32_t>(r()); }

struct Kat {
  uint32_t ctr[4], key[2], out[4];
};

std::vector<Kat> load_kats() {
  std::vector<Kat> v;
  std::ifstream in(std::string(QOR_KAT_DIR) + "/philox4x32_10_blocks.txt");
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream s(line);
    Kat k;
    std::string colon;
    s >> std::hex >> k.ctr[0] >> k.ctr[1] >> k.ctr[2] >> k.ctr[3] >> k.key[0] >> k.key[1] >>
        colon >> k.out[0] >> k.out[1] >> k.out[2] >> k.out[3];
    if (s && colon == ":") v.push_back(k);
  }
  return v;
}

TEST(PhiloxKat, BlockFunctionMatchesPublishedVectors) {
  const auto kats = load_kats();
  ASSERT_GE(kats.size(), 3u);
  for (const Kat &k : kats) {
    uint32_t out[4];
    qor::rng::philox4x32_10_block(k.key, k.ctr, out);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(out[i], k.out[i]) << "word " << i;
  }
}

TEST(PhiloxKat, SeededStreamDeliversThePublishedBlock) {
  for (const Kat &k : load_kats()) {
    Stream s(kPhilox, {k.key[0], k.key[1], k.ctr[0], k.ctr[1], k.ctr[2], k.ctr[3]});
    ASSERT_EQ(s.init_status(), 0);
    const auto w = s.words(4);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(w[i], k.out[i]) << "word " << i;
  }
}

TEST(PhiloxKat, UnseededStreamUsesKeyAndCounterZero) {
  const auto kats = load_kats();
  ASSERT_FALSE(kats.empty());
  Stream s(kPhilox, {});
  const auto w = s.words(4);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(w[i], kats[0].out[i]);  // the all-zero vector
}

uint32_t r123_word(const uint32_t key[2], const uint32_t ctr[4], int i) {
  r123::Philox4x32_R<10> g;
  r123::Philox4x32_R<10>::ctr_type c = {{ctr[0], ctr[1], ctr[2], ctr[3]}};
  r123::Philox4x32_R<10>::key_type k = {{key[0], key[1]}};
  return g(c, k)[i];
}

// Bulk output (four-lane groups) equals Random123 block by block, including
// counters whose increments carry through word 0, 1 and 2 inside a group.
TEST(PhiloxKat, BulkBlocksMatchRandom123AcrossCounterCarries) {
  std::mt19937 rng(20261122);
  const uint32_t starts[][4] = {{0, 0, 0, 0},
                                {0xFFFFFFFDu, 0, 0, 0},
                                {0xFFFFFFFAu, 0xFFFFFFFFu, 0, 7},
                                {0xFFFFFFFEu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu},
                                {u32(rng), u32(rng), u32(rng), u32(rng)}};
  for (const auto &start : starts) {
    for (uint64_t nblocks : {1u, 3u, 4u, 7u, 8u, 13u, 33u}) {
      const uint32_t key[2] = {u32(rng), u32(rng)};
      uint32_t ctr[4] = {start[0], start[1], start[2], start[3]};
      std::vector<uint32_t> out(4 * nblocks);
      qor::rng::philox4x32_10_blocks(key, ctr, nblocks, out.data());
      uint32_t c[4] = {start[0], start[1], start[2], start[3]};
      for (uint64_t b = 0; b < nblocks; ++b) {
        for (int i = 0; i < 4; ++i)
          ASSERT_EQ(out[4 * b + i], r123_word(key, c, i)) << "block " << b << " of " << nblocks;
        for (int j = 0; j < 4 && ++c[j] == 0; ++j) {
        }
      }
      EXPECT_EQ(std::vector<uint32_t>(ctr, ctr + 4), std::vector<uint32_t>(c, c + 4))
          << "counter after " << nblocks << " blocks";
    }
  }
}

TEST(PhiloxKat, RandomInputsMatchRandom123) {
  std::mt19937 rng(7);
  for (int t = 0; t < 2000; ++t) {
    const uint32_t key[2] = {u32(rng), u32(rng)};
    const uint32_t ctr[4] = {u32(rng), u32(rng), u32(rng), u32(rng)};
    uint32_t out[4];
    qor::rng::philox4x32_10_block(key, ctr, out);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(out[i], r123_word(key, ctr, i));
  }
}

}  // namespace
