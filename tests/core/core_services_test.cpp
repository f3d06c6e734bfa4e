// The companion core library's services: allocation, copies, locks,
// environment, messages, processor query and the parallel-for.
#include <cpuid.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "qor/core.h"

namespace {

TEST(CoreAllocate, HonoursEveryPowerOfTwoAlignment) {
  for (int align : {0, 1, 2, 8, 16, 32, 64, 128, 256, 4096}) {
    std::vector<void *> blocks;
    for (size_t size : {1u, 7u, 100u, 4097u}) {
      void *p = qor_serv_allocate(size, align);
      ASSERT_NE(p, nullptr) << "align " << align << " size " << size;
      if (align > 1) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % align, 0u) << align;
      }
      std::memset(p, 0xA5, size);  // the whole block is writable
      blocks.push_back(p);
    }
    for (void *p : blocks) qor_serv_deallocate(p);
  }
}

TEST(CoreAllocate, RefusesWhatCannotBeHad) {
  EXPECT_EQ(qor_serv_allocate(0, 128), nullptr);
  EXPECT_EQ(qor_serv_allocate(64, 48), nullptr);  // not a power of two
  EXPECT_EQ(qor_serv_allocate(SIZE_MAX - 8, 128), nullptr);
  qor_serv_deallocate(nullptr);  // harmless
}

TEST(CoreMemcpyS, CopiesOnlyWhatFits) {
  char dst[8];
  std::memset(dst, 'x', sizeof dst);
  EXPECT_EQ(qor_serv_memcpy_s(dst, sizeof dst, "abcdef", 6), 0);
  EXPECT_EQ(std::memcmp(dst, "abcdef", 6), 0);
  EXPECT_EQ(dst[6], 'x');
  EXPECT_NE(qor_serv_memcpy_s(dst, 4, "abcdefgh", 8), 0);
  EXPECT_EQ(std::memcmp(dst, "\0\0\0\0", 4), 0) << "an oversized copy clears the destination";
  EXPECT_EQ(dst[4], 'e') << "bytes beyond dst_size are never touched";
  EXPECT_NE(qor_serv_memcpy_s(nullptr, 4, "ab", 2), 0);
  EXPECT_NE(qor_serv_memcpy_s(dst, 4, nullptr, 2), 0);
  EXPECT_EQ(qor_serv_memcpy_s(dst, 4, nullptr, 0), 0);
}

TEST(CoreLock, ExcludesConcurrentHolders) {
  static qor_lock_t lock = QOR_LOCK_INITIALIZER;
  long counter = 0;  // deliberately not atomic: only the lock protects it
  std::atomic<int> inside{0};
  std::atomic<bool> overlap{false};
  constexpr int kThreads = 4, kRounds = 20000;
  std::vector<std::thread> ts;
  for (int t = 0; t < kThreads; ++t)
    ts.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        qor_serv_lock(&lock);
        if (inside.fetch_add(1) != 0) overlap = true;
        long v = counter;
        if (i % 97 == 0) std::this_thread::yield();
        counter = v + 1;
        inside.fetch_sub(1);
        qor_serv_unlock(&lock);
      }
    });
  for (auto &t : ts) t.join();
  EXPECT_FALSE(overlap.load());
  EXPECT_EQ(counter, long{kThreads} * kRounds);
  EXPECT_EQ(lock.word, 0);
}

TEST(CoreGetenv, ReturnsCopiedLengthAndTruncates) {
  char buf[8];
  ::setenv("QOR_TEST_VALUE", "hello", 1);
  EXPECT_EQ(qor_serv_getenv("QOR_TEST_VALUE", buf, sizeof buf), 5);
  EXPECT_STREQ(buf, "hello");
  ::setenv("QOR_TEST_VALUE", "0123456789", 1);
  EXPECT_EQ(qor_serv_getenv("QOR_TEST_VALUE", buf, sizeof buf), 7);
  EXPECT_STREQ(buf, "0123456");
  ::setenv("QOR_TEST_VALUE", "", 1);
  EXPECT_LT(qor_serv_getenv("QOR_TEST_VALUE", buf, sizeof buf), 1);
  ::unsetenv("QOR_TEST_VALUE");
  EXPECT_LT(qor_serv_getenv("QOR_TEST_VALUE", buf, sizeof buf), 1);
}

TEST(CorePrint, FormatsCatalogueMessagesAndGuardsArgumentCounts) {
  testing::internal::CaptureStderr();
  qor_serv_print(1, 748, 2, "vsDiv", 17);
  qor_serv_print(1, 760, 2, 3, 2.5);
  qor_serv_print(1, 750, 3, "vsLn", 1, 2);  // wrong count: no va_arg is read
  qor_serv_print(1, 9999, 0);
  const std::string out = testing::internal::GetCapturedStderr();
  EXPECT_NE(out.find("748"), std::string::npos);
  EXPECT_NE(out.find("vsDiv"), std::string::npos);
  EXPECT_NE(out.find("17"), std::string::npos);
  EXPECT_NE(out.find("element 3"), std::string::npos);
  EXPECT_NE(out.find("2.5"), std::string::npos);
  EXPECT_EQ(out.find("vsLn"), std::string::npos);
  EXPECT_NE(out.find("9999"), std::string::npos);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4);
}

TEST(CoreCpu, IcxQueryAgreesWithCpuid) {
  unsigned a, b, c, d;
  bool avx512f = false, vaes = false;
  if (__get_cpuid_max(0, nullptr) >= 7) {
    __cpuid_count(7, 0, a, b, c, d);
    avx512f = b & (1u << 16);
    vaes = c & (1u << 9);
  }
  // The service may also refuse when the OS does not enable the state.
  if (!(avx512f && vaes)) {
    EXPECT_EQ(qor_serv_cpuisicx(), 0);
  }
}

struct ForRecord {
  std::vector<std::atomic<int>> hits;
  std::atomic<int> bad_thread{0};
  int threads = 1;
  explicit ForRecord(size_t n) : hits(n) {}
};

void record_index(int64_t i, int thread, void *ctx) {
  auto *r = static_cast<ForRecord *>(ctx);
  r->hits[static_cast<size_t>(i)].fetch_add(1);
  if (thread < 0 || thread >= r->threads) r->bad_thread.fetch_add(1);
}

TEST(CoreThreaderFor, CoversEveryIndexExactlyOnce) {
  for (int64_t count : {0, 1, 2, 3, 17, 1000, 100000}) {
    for (int threads : {1, 2, 3, 8}) {
      ForRecord r(static_cast<size_t>(count));
      r.threads = threads;
      qor_rix_serv_threader_for(count, threads, &r, record_index);
      for (int64_t i = 0; i < count; ++i)
        ASSERT_EQ(r.hits[static_cast<size_t>(i)].load(), 1)
            << "count " << count << " threads " << threads << " index " << i;
      EXPECT_EQ(r.bad_thread.load(), 0);
    }
  }
}

TEST(CoreThreaderFor, SingleThreadRunsInOrderOnTheCaller) {
  struct Ctx {
    std::thread::id caller;
    std::vector<int64_t> order;
    bool foreign = false;
  } ctx{std::this_thread::get_id(), {}, false};
  qor_rix_serv_threader_for(50, 1, &ctx, [](int64_t i, int, void *p) {
    auto *c = static_cast<Ctx *>(p);
    if (std::this_thread::get_id() != c->caller) c->foreign = true;
    c->order.push_back(i);
  });
  ASSERT_EQ(ctx.order.size(), 50u);
  for (int64_t i = 0; i < 50; ++i) EXPECT_EQ(ctx.order[static_cast<size_t>(i)], i);
  EXPECT_FALSE(ctx.foreign);
}

TEST(CoreThreaderFor, NestedAndConcurrentCallsComplete) {
  struct Outer {
    std::atomic<long> total{0};
  } outer;
  auto inner = [](int64_t, int, void *p) { static_cast<Outer *>(p)->total.fetch_add(1); };
  auto body = [](int64_t, int, void *p) {
    qor_rix_serv_threader_for(10, 4, p, [](int64_t, int, void *q) {
      static_cast<Outer *>(q)->total.fetch_add(1);
    });
  };
  std::thread other([&] {
    for (int k = 0; k < 20; ++k) qor_rix_serv_threader_for(100, 4, &outer, inner);
  });
  for (int k = 0; k < 20; ++k) qor_rix_serv_threader_for(8, 4, &outer, body);
  other.join();
  EXPECT_EQ(outer.total.load(), 20L * 100 + 20L * 8 * 10);
  EXPECT_GE(qor_rix_serv_threader_get_num_threads_limit(), 1);
}

}  // namespace
