// The shared read-only data table under concurrent use: several threads add,
// copy and release chunks that share one key.  Lost updates of the reference
// count would free the data early (caught by the sanitizer run) or leave the
// entry behind (caught here).
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "fault_injection.h"
#include "helpers.h"
#include "qor/core.h"

namespace {

TEST(SharedTableThreads, ConcurrentSharingKeepsCountsExact) {
  const long live = qor_test::live_blocks();
  const uint64_t key[2] = {0x7123AD, 99};
  // One long-lived holder keeps the entry alive while the threads churn.
  void *holder = nullptr;
  ASSERT_EQ(__rixNewStreamEx(&holder, QOR_BRNG_MCG31, 0, nullptr), 0);
  void *data = qor_serv_allocate(64, 128);
  std::memset(data, 0x42, 64);
  ASSERT_EQ(__rixAddChunk(holder, 1, key, data, 64), 0);

  constexpr int kThreads = 4, kRounds = 300;
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> pool;
  for (int t = 0; t < kThreads; ++t)
    pool.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        void *s = nullptr;
        if (__rixNewStreamEx(&s, QOR_BRNG_MCG31, 0, nullptr) != 0) ++failures[t];
        // The key is present, so the chunk takes the shared block and the
        // caller keeps its own (null here).
        if (__rixAddChunk(s, 1, key, nullptr, 64) != 0) ++failures[t];
        if (static_cast<unsigned char *>(__rixSearchChunk(s, 1))[63] != 0x42) ++failures[t];
        void *c = nullptr;
        if (__rixCopyStream(&c, s) != 0) ++failures[t];
        __rixDeleteStream(&s);
        __rixDeleteStream(&c);
      }
    });
  for (auto &th : pool) th.join();
  for (int f : failures) EXPECT_EQ(f, 0);
  GlobalDataEntry *e = nullptr;
  ASSERT_EQ(__rixFindGlobRODataTableEntry(&e, key), 0);
  EXPECT_EQ(e->refCount, 1u);
  __rixDeleteStream(&holder);
  EXPECT_EQ(__rixFindGlobRODataTableEntry(&e, key), QOR_RNG_ERROR_NO_SHARED_ENTRY);
  EXPECT_EQ(qor_test::live_blocks(), live);
}

}  // namespace
