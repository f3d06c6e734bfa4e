// Allocation failures, injected by wrapping the core library's allocator: this
// program's definition of qor_serv_allocate is the one the statically linked
// kernel code binds to; it forwards to the core library's unless a failure is
// armed.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "qor/stats.h"

namespace {
// Allocations numbered from 0 after arming; those in [g_fail_from,
// g_fail_from + g_fail_count) fail.
int g_fail_from = -1;
int g_fail_count = 0;
int g_allocations = 0;
}  // namespace

extern "C" void *qor_serv_allocate(size_t size, int alignment) {
  using Fn = void *(*)(size_t, int);
  static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "qor_serv_allocate"));
  const int index = g_allocations++;
  if (g_fail_from >= 0 && index >= g_fail_from && index < g_fail_from + g_fail_count)
    return nullptr;
  return real(size, alignment);
}

namespace {

struct FailAllocations {
  FailAllocations(int from, int count) {
    g_allocations = 0;
    g_fail_from = from;
    g_fail_count = count;
  }
  ~FailAllocations() { g_fail_from = -1; }
};
constexpr int kAll = 1 << 30;

TEST(AllocationFailure, NewTaskReportsMemoryAndHandsOutNothing) {
  int32_t p = 2, n = 3, storage = 0x10000;
  double x[6] = {};
  qor_ss_task t = nullptr;
  {
    FailAllocations f(0, kAll);
    EXPECT_EQ(__rixdSSNewTask(&t, &p, &n, &storage, x, nullptr, nullptr, 0), -4000);
    EXPECT_EQ(__rixsSSNewTask(&t, &p, &n, &storage, reinterpret_cast<float *>(x), nullptr,
                              nullptr, 0),
              -4000);
    EXPECT_EQ(g_allocations, 2);
  }
  EXPECT_EQ(t, nullptr);
  // The checks that precede allocation still win.
  FailAllocations f(0, kAll);
  EXPECT_EQ(__rixdSSNewTask(&t, &p, &n, nullptr, x, nullptr, nullptr, 0), -4044);
}

TEST(AllocationFailure, MadBufferFailureLeavesResultsAndReports) {
  int32_t p = 3, n = 10, storage = 0x10000;  // column layout: both passes take buffers
  std::vector<double> x(30);
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i % 7);
  qor_ss_task t = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&t, &p, &n, &storage, x.data(), nullptr, nullptr, 0), 0);
  double md[3] = {-1, -1, -1}, mn[3] = {-1, -1, -1};
  ASSERT_EQ(__rixdSSEditTask(t, 76, md), 0);
  ASSERT_EQ(__rixdSSEditTask(t, 77, mn), 0);
  {
    FailAllocations f(0, kAll);
    EXPECT_EQ(_rixdSSMAD(t, QOR_SS_MAD_MEDIAN, 1, nullptr), -4000);
    EXPECT_EQ(_rixdSSMAD(t, QOR_SS_MAD_MEAN, 1, nullptr), -4000);
  }
  for (int j = 0; j < 3; ++j) {
    EXPECT_EQ(md[j], -1);
    EXPECT_EQ(mn[j], -1);
  }
  // When both are requested and only the median pass's buffer fails, the
  // mean pass's success is what the caller sees.
  {
    FailAllocations f(0, 1);  // the median pass's buffer only
    EXPECT_EQ(_rixdSSMAD(t, QOR_SS_MAD_MEDIAN | QOR_SS_MAD_MEAN, 1, nullptr), 0);
  }
  EXPECT_EQ(md[0], -1);
  EXPECT_DOUBLE_EQ(mn[0], 1.68);  // 0 1 2 3 4 5 6 0 1 2: mean 2.4
  // And with the mean pass's buffer failing as well, its -4000 is returned.
  {
    FailAllocations f(0, kAll);
    EXPECT_EQ(_rixdSSMAD(t, QOR_SS_MAD_MEDIAN | QOR_SS_MAD_MEAN, 1, nullptr), -4000);
  }
  __rixSSDeleteTask(&t);
}

TEST(AllocationFailure, SelectionFallsBackWhenItsSampleCannotBeAllocated) {
  // n large enough for the sampling selection, which allocates its sample
  // after the pass buffer: with that allocation failing the exact full
  // selection runs instead.
  const int32_t p = 1, n = 10001, storage = 0x10000;
  std::vector<float> x(n);
  std::mt19937 rng(1);
  std::uniform_int_distribution<int> d(0, 30);
  for (auto &e : x) e = static_cast<float>(d(rng));
  qor_ss_task t = nullptr;
  ASSERT_EQ(__rixsSSNewTask(&t, &p, &n, &storage, x.data(), nullptr, nullptr, 0), 0);
  float md = -1, md_ok = -1;
  ASSERT_EQ(__rixsSSEditTask(t, 76, &md_ok), 0);
  ASSERT_EQ(_rixsSSMAD(t, QOR_SS_MAD_MEDIAN, 1, nullptr), 0);
  ASSERT_EQ(__rixsSSEditTask(t, 76, &md), 0);
  {
    FailAllocations f(1, kAll);  // the buffer succeeds, every later allocation fails
    ASSERT_EQ(_rixsSSMAD(t, QOR_SS_MAD_MEDIAN, 1, nullptr), 0);
    EXPECT_GE(g_allocations, 3);  // buffer, then a sample for each median
  }
  std::vector<float> s = x;
  std::sort(s.begin(), s.end());
  const float med = s[n / 2];
  for (auto &e : s) e = std::fabs(e - med);
  std::sort(s.begin(), s.end());
  EXPECT_EQ(md, s[n / 2]);
  EXPECT_EQ(md, md_ok);
  __rixSSDeleteTask(&t);
}

}  // namespace
