// The estimate request check: method word rules, requirement columns and the
// lowest-unmet-bit-first order.
#include <gtest/gtest.h>

#include "qor/stats.h"
#include "stats/task.h"

namespace {

using qor::stats::check_estimate_request;
using qor::stats::TaskRecord;

// Requirement bit -> parameter identifier of its result array.
const int kReqId[20] = {7, 8, 9, 10, 11, 12, 13, 19, 21, 14, 15, 18, 67, 68, 69, 70, 71, 72, 73, 74};
const int kReqStatus[21] = {-4006, -4007, -4008, -4009, -4010, -4011, -4012,
                            -4018, -4019, -4013, -4014, -4017, -4074, -4075,
                            -4076, -4077, -4078, -4079, -4080, -4081, -4029};

class RequestCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(__rixdSSNewTask(&task_, &p_, &n_, &storage_, x_, nullptr, nullptr, 0), 0);
  }
  void TearDown() override { __rixSSDeleteTask(&task_); }
  void attach(int id) { ASSERT_EQ(__rixdSSEditTask(task_, id, buf_), 0); }
  // Attaches every array of the requirement set except those in `missing`.
  void attach_all_but(uint32_t missing) {
    for (int b = 0; b < 20; ++b)
      if (!(missing & (1u << b))) attach(kReqId[b]);
  }
  int32_t check(uint64_t est, uint64_t method) {
    return check_estimate_request(static_cast<const TaskRecord *>(task_), est, method);
  }
  int32_t p_ = 2, n_ = 3, storage_ = 0x10000;
  double x_[6] = {}, buf_[8] = {};
  qor_ss_task task_ = nullptr;
};

TEST_F(RequestCheck, MethodWordRules) {
  attach_all_but(0);
  struct {
    uint64_t method;
    int32_t status;
  } cases[] = {
      {0x1, 0},     {0x2, 0},      {0x100, 0},   {0x200, 0},         {0x400, 0},
      {0x0, -4029}, {0x3, -4029},  {0x101, -4029}, {0x102, -4029},   {0x1 | 0x200, 0},
      {0x800, -4029}, {0x103, -4029}, {0x600, 0},
  };
  for (auto &c : cases) EXPECT_EQ(check(0x1, c.method), c.status) << std::hex << c.method;
}

// Each estimate under each column needs exactly its requirement set: with all
// arrays present the check passes (bit 20 aside), and removing any one array
// of the set makes it report that array's status.
struct Column {
  uint64_t method;
  int index;
};
struct EstimateRow {
  uint64_t est;
  uint32_t need[3];
};
const EstimateRow kTable[] = {
    {0x1, {0x1, 0x1, 0x1001}},          {0x2, {0x2, 0x2, 0x2002}},
    {0x4, {0x4, 0x4, 0x4004}},          {0x8, {0x8, 0x8, 0x8008}},
    {0x10, {0x13, 0x13, 0x10010}},      {0x20, {0x27, 0x27, 0x20020}},
    {0x40, {0x4f, 0x4f, 0x40040}},      {0x1000, {0x81, 0x81, 0x80080}},
    {0x2000, {0x101, 0x101, 0x80100}},  {0x80, {0x25f, 0x25f, 0x251}},
    {0x100, {0x437, 0x437, 0x431}},     {0x200, {0x813, 0x813, 0x811}},
    {0x2000000, {0x1000, 0x1000, 0x100000}},   {0x4000000, {0x2000, 0x2000, 0x100000}},
    {0x8000000, {0x4000, 0x4000, 0x100000}},   {0x10000000, {0x8000, 0x8000, 0x100000}},
    {0x20000000, {0x10001, 0x10003, 0x100000}}, {0x40000000, {0x20001, 0x20007, 0x100000}},
    {0x80000000, {0x40001, 0x4000f, 0x100000}}, {0x100000000, {0x80001, 0x80001, 0x100000}},
};

TEST(RequestCheckTable, EveryEstimateNeedsExactlyItsSet) {
  const Column cols[] = {{0x2, 0}, {0x100, 0}, {0x1, 1}, {0x200, 2}, {0x400, 2}};
  int32_t p = 1, n = 1, storage = 0x10000;
  double x = 0, buf[4] = {};
  for (const auto &row : kTable) {
    for (const Column &col : cols) {
      const uint32_t need = row.need[col.index];
      SCOPED_TRACE(::testing::Message() << std::hex << "est 0x" << row.est << " method 0x"
                                        << col.method);
      for (int drop = -1; drop < 20; ++drop) {
        qor_ss_task t = nullptr;
        ASSERT_EQ(__rixdSSNewTask(&t, &p, &n, &storage, &x, nullptr, nullptr, 0), 0);
        for (int b = 0; b < 20; ++b)
          if (b != drop) {
            ASSERT_EQ(__rixdSSEditTask(t, kReqId[b], buf), 0);
          }
        const int32_t st =
            check_estimate_request(static_cast<const TaskRecord *>(t), row.est, col.method);
        int32_t want = 0;
        if (drop >= 0 && (need & (1u << drop))) want = kReqStatus[drop];
        else if (need & (1u << 20)) want = -4029;
        EXPECT_EQ(st, want) << "dropped bit " << drop;
        __rixSSDeleteTask(&t);
      }
    }
  }
}

TEST_F(RequestCheck, LowestUnmetBitReportedFirst) {
  // Kurtosis with method 0x1 needs bits 0-4, 6 and 9: with covariance (7)
  // requested too and both covariance and kurtosis arrays missing, the
  // covariance wins.
  attach_all_but((1u << 7) | (1u << 9));
  EXPECT_EQ(check(0x80 | 0x1000, 0x1), -4018);
  EXPECT_EQ(check(0x80, 0x1), -4013);
  // With nothing attached the means come first.
  qor_ss_task bare = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&bare, &p_, &n_, &storage_, x_, nullptr, nullptr, 0), 0);
  EXPECT_EQ(check_estimate_request(static_cast<const TaskRecord *>(bare), 0x100, 0x2), -4006);
  // A missing sums array reads -4074 here, although the editors say -4006.
  EXPECT_EQ(check_estimate_request(static_cast<const TaskRecord *>(bare), 0x2000000, 0x2),
            -4074);
  EXPECT_EQ(__rixdSSEditTask(bare, 67, nullptr), -4006);
  // Under the sums methods a missing sums array precedes the bit-20 refusal
  // only when it is a lower bit; sums themselves can never be requested.
  EXPECT_EQ(check_estimate_request(static_cast<const TaskRecord *>(bare), 0x2000000, 0x200),
            -4029);
  __rixSSDeleteTask(&bare);
  // Estimate bits outside the table are not examined.
  EXPECT_EQ(check(0x200000000ULL | 0x10000, 0x1), 0);
}

TEST_F(RequestCheck, DataCheckAfterRequest) {
  int64_t p, n;
  bool contiguous;
  auto *t = static_cast<const TaskRecord *>(task_);
  ASSERT_EQ(qor::stats::check_task_data(t, &p, &n, &contiguous), 0);
  EXPECT_EQ(p, 2);
  EXPECT_EQ(n, 3);
  EXPECT_TRUE(contiguous);
  int32_t zero = 0, rows = 0x20000, other = 0x40000;
  ASSERT_EQ(__rixiSSEditTask(task_, 4, &rows), 0);
  ASSERT_EQ(qor::stats::check_task_data(t, &p, &n, &contiguous), 0);
  EXPECT_FALSE(contiguous);
  ASSERT_EQ(__rixiSSEditTask(task_, 4, &other), 0);
  EXPECT_EQ(qor::stats::check_task_data(t, &p, &n, &contiguous), -4003);
  ASSERT_EQ(__rixiSSEditTask(task_, 2, &zero), 0);
  EXPECT_EQ(qor::stats::check_task_data(t, &p, &n, &contiguous), -4002);
  qor_ss_task nodata = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&nodata, &p_, &n_, nullptr, nullptr, nullptr, nullptr, 0), 0);
  EXPECT_EQ(qor::stats::check_task_data(static_cast<const TaskRecord *>(nodata), &p, &n,
                                        &contiguous),
            -4032);
  ASSERT_EQ(__rixdSSEditTask(nodata, 3, x_), 0);
  EXPECT_EQ(qor::stats::check_task_data(static_cast<const TaskRecord *>(nodata), &p, &n,
                                        &contiguous),
            -4044);
  __rixSSDeleteTask(&nodata);
}

}  // namespace
