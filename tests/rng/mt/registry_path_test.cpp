// The twisters reached the way the rest of the system reaches them: through
// registry rows 7, 8 and 12 and the stream functions.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "../../../src/rng/brng/twisters.h"
#include "rng/helpers.h"
#include "support/tool_run.h"

namespace {

using qor_test::Stream;
using qor_test::words;

TEST(TwisterRows, RowsServeTheGenerators) {
  // First published outputs of each generator for its reference key.
  Stream mt(QOR_BRNG_MT19937, {0x123, 0x234, 0x345, 0x456});
  ASSERT_EQ(mt.status(), 0);
  EXPECT_EQ(words(mt.get(), 3), (std::vector<uint32_t>{1067595299u, 955945823u, 477289528u}));
  Stream sf(QOR_BRNG_SFMT19937, {0x1234, 0x5678, 0x9abc, 0xdef0});
  ASSERT_EQ(sf.status(), 0);
  EXPECT_EQ(words(sf.get(), 3), (std::vector<uint32_t>{2920711183u, 3885745737u, 3501893680u}));
  Stream m2(QOR_BRNG_MT2203, {1});
  ASSERT_EQ(m2.status(), 0);
  EXPECT_EQ(words(m2.get(), 1).size(), 1u);
}

TEST(TwisterRows, StreamMethodsAnswerAsDocumented) {
  struct Case {
    int32_t brng;
    int32_t skip, leap, skip_ex;
  };
  for (const Case c : {Case{QOR_BRNG_MT19937, 0, -1002, -1004},
                       Case{QOR_BRNG_SFMT19937, 0, -1002, -1004},
                       Case{QOR_BRNG_MT2203, -1003, -1002, -1004}}) {
    Stream s(c.brng, {7});
    ASSERT_EQ(s.status(), 0);
    EXPECT_EQ(__rixSkipAheadStream(s.get(), 12345), c.skip) << c.brng;
    EXPECT_EQ(__rixLeapfrogStream(s.get(), 0, 2), c.leap) << c.brng;
    const uint64_t n[2] = {1, 1};
    EXPECT_EQ(__rixSkipAheadStreamEx(s.get(), 2, n), c.skip_ex) << c.brng;
  }
}

TEST(TwisterRows, CopiesContinueTheSource) {
  for (int32_t brng : {QOR_BRNG_MT19937, QOR_BRNG_SFMT19937, QOR_BRNG_MT2203 + 3}) {
    Stream src(brng, {11, 12});
    ASSERT_EQ(src.status(), 0);
    words(src.get(), 1000);
    Stream copy;
    ASSERT_EQ(__rixCopyStream(copy.out(), src.get()), 0);
    // The state copy moves only seedCount words into another stream of the
    // same generator (and member).
    Stream other(brng, {99});
    ASSERT_EQ(__rixCopyStreamState(other.get(), src.get()), 0);
    const auto expect = words(src.get(), 3000);
    EXPECT_EQ(words(copy.get(), 3000), expect) << brng;
    EXPECT_EQ(words(other.get(), 3000), expect) << brng;
  }
}

TEST(TwisterRows, SfmtStateCopyKeepsPositionAfterHugeSkips) {
  // After skipping past 2^32 words the position still travels with the 625
  // words that a state copy moves.
  Stream src(QOR_BRNG_SFMT19937, {5});
  ASSERT_EQ(__rixSkipAheadStream(src.get(), (1ull << 33) + 17), 0);
  Stream other(QOR_BRNG_SFMT19937, {6});
  words(other.get(), 100);
  ASSERT_EQ(__rixCopyStreamState(other.get(), src.get()), 0);
  EXPECT_EQ(words(other.get(), 2000), words(src.get(), 2000));
}

TEST(TwisterRows, Mt2203MembersThroughIdentifiers) {
  Stream first(QOR_BRNG_MT2203, {3});
  ASSERT_EQ(first.status(), 0);
  int last = qor::rng::twister::kMt2203Members - 1;
  while (last > 0 && qor::rng::twister::kMt2203Params[last][0] == 0) --last;
  Stream other(QOR_BRNG_MT2203 + last, {3});
  ASSERT_EQ(other.status(), 0);
  EXPECT_NE(words(first.get(), 50), words(other.get(), 50));
  Stream beyond;
  EXPECT_EQ(__rixNewStreamEx(beyond.out(), QOR_BRNG_MT2203 + 6024, 0, nullptr), -1000);
}

}  // namespace

namespace {

std::string run_qor(const std::string &args, int *status) {
  const qor_test::ToolRun r = qor_test::run_tool(args);
  *status = r.status;
  return r.out;
}

TEST(TwisterRows, ToolAcceptsTheNames) {
  int st = -1;
  EXPECT_EQ(run_qor("rng bits --brng MT19937 --seed 0x123,0x234,0x345,0x456 -n 2", &st),
            "1067595299\n955945823\n");
  EXPECT_EQ(st, 0);
  EXPECT_EQ(run_qor("rng bits --brng SFMT19937 --seed 0x1234,0x5678,0x9abc,0xdef0 -n 2", &st),
            "2920711183\n3885745737\n");
  EXPECT_EQ(st, 0);
  run_qor("rng bits --brng MT2203:1 -n 2", &st);
  EXPECT_EQ(st, 0);
}

}  // namespace
