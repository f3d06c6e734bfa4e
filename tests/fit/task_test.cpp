// Task record: creation order of checks, editors, queries, pointer tables,
// the live mark and the cell-index table.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "fit/task.h"
#include "qor/fit.h"

namespace {

using qor::fit::Task;

Task *rec(qor_df_task_t *t) { return reinterpret_cast<Task *>(t); }

struct TaskGuard {
  qor_df_task_t *t = nullptr;
  ~TaskGuard() {
    if (t) qor_df_kernel_DeleteTask(&t);
  }
};

template <class T>
int32_t new_task(qor_df_task_t **out, int64_t nx, const T *x, int64_t xh, int64_t ny, const T *y,
                 int64_t yh, uint32_t f) {
  if constexpr (sizeof(T) == 8) return qor_df_kernel_dNewTask1D(out, nx, x, xh, ny, y, yh, f);
  else return qor_df_kernel_sNewTask1D(out, nx, x, xh, ny, y, yh, f);
}

template <class T>
class FitTask : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FitTask, Precisions);

// Each row breaks its own check and every later one, so the status shows
// that the checks run in the documented order.
TYPED_TEST(FitTask, CreationChecksInOrder) {
  using T = TypeParam;
  T x[4] = {0, 1, 2, 3}, y[8] = {};
  struct Row {
    int64_t nx;
    const T *x;
    int64_t xh, ny;
    const T *y;
    int64_t yh;
    bool out;
    int32_t want;
  } rows[] = {
      {1, nullptr, 3, 0, y, 5, false, -1004},  {-7, x, 0, 1, y, 0, true, -1004},
      {2, nullptr, 3, 0, y, 5, false, -1005},  {4, x, 3, 0, y, 5, false, -1006},
      {4, x, 5, 0, y, 5, false, -1006},        {4, x, -1, 0, y, 5, false, -1006},
      {4, x, 4, 0, y, 5, false, -1007},        {4, x, 1, 2, nullptr, 5, false, -1008},
      {4, x, 2, 2, y, 5, false, -1009},        {4, x, 2, 2, y, 8, false, -1009},
      {4, x, 2, 2, y, 64, false, -1009},       {4, x, 2, 2, y, 16, false, -1000},
  };
  for (const Row &r : rows) {
    qor_df_task_t *t = reinterpret_cast<qor_df_task_t *>(0x1);
    const int32_t st = new_task<T>(r.out ? &t : nullptr, r.nx, r.x, r.xh, r.ny, r.y, r.yh, 0);
    EXPECT_EQ(st, r.want) << "nx " << r.nx << " xh " << r.xh << " yh " << r.yh;
    if (r.out) {
      EXPECT_EQ(t, reinterpret_cast<qor_df_task_t *>(0x1)) << "out pointer touched";
    }
  }
  for (int64_t yh : {0, 16, 32, 128}) {
    TaskGuard g;
    ASSERT_EQ(new_task<T>(&g.t, 4, x, 0, 2, y, yh, 1), 0) << yh;
    EXPECT_EQ(rec(g.t)->live, 1);
    EXPECT_EQ(rec(g.t)->tag, 4);
    EXPECT_EQ(rec(g.t)->precision, sizeof(T) == 8 ? 1 : 0);
  }
}

TEST(FitTaskHint, RotateRuleAdmitsExactlyFourValues) {
  std::vector<int64_t> admitted;
  for (int64_t v = -300; v <= 5000; ++v)
    if (qor::fit::hint_admitted(v)) admitted.push_back(v);
  for (int64_t v : {INT64_MIN, INT64_MAX, int64_t{1} << 36, int64_t{16} | (int64_t{1} << 60)})
    if (qor::fit::hint_admitted(v)) admitted.push_back(v);
  EXPECT_EQ(admitted, (std::vector<int64_t>{0, 16, 32, 128}));
}

// A table that cannot be allocated (a negative slot count from the low 32
// bits of ny) fails with -1001 after the record was handed out.
TEST(FitTaskCreate, PartlyBuiltRecordIsHandedOutAndDeletable) {
  double x[3] = {0, 1, 2}, y[3] = {};
  qor_df_task_t *t = nullptr;
  EXPECT_EQ(qor_df_kernel_dNewTask1D(&t, 3, x, 0, -1, y, 0, 0), -1001);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(rec(t)->cell_table, nullptr);
  EXPECT_EQ(rec(t)->y_table, nullptr);
  EXPECT_EQ(rec(t)->nx, 3);
  EXPECT_EQ(rec(t)->x, x);
  EXPECT_EQ(rec(t)->ny, 0);
  EXPECT_EQ(rec(t)->live, 0);  // the live mark comes after the tables
  EXPECT_EQ(qor_df_kernel_DeleteTask(&t), 0);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(qor_df_kernel_DeleteTask(&t), -1000);
  EXPECT_EQ(qor_df_kernel_DeleteTask(nullptr), -1000);
}

TYPED_TEST(FitTask, FunctionPointerTableFollowsTheYHint) {
  using T = TypeParam;
  T x[5] = {0, 1, 2, 3, 4};
  std::vector<T> y(5 * 3), other(5);
  T *p = nullptr;
  auto qidx = [&](qor_df_task_t *t, int64_t id, int64_t i, T **out) {
    if constexpr (sizeof(T) == 8) return qor_df_kernel_dQueryIdxPtr(t, id, i, out);
    else return qor_df_kernel_sQueryIdxPtr(t, id, i, out);
  };
  auto eidx = [&](qor_df_task_t *t, int64_t id, int64_t i, const T *v) {
    if constexpr (sizeof(T) == 8) return qor_df_kernel_dEditIdxPtr(t, id, i, v);
    else return qor_df_kernel_sEditIdxPtr(t, id, i, v);
  };
  for (int64_t yh : {0, 16}) {
    TaskGuard g;
    ASSERT_EQ(new_task<T>(&g.t, 5, x, 0, 3, y.data(), yh, 0), 0);
    for (int64_t i = 0; i < 3; ++i) {
      ASSERT_EQ(qidx(g.t, 2, i, &p), 0);
      EXPECT_EQ(p, y.data() + 5 * i);
    }
    EXPECT_EQ(qidx(g.t, 2, 3, &p), 0);  // index ny accepted, reads no slot
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(qidx(g.t, 2, 4, &p), -1020);
    EXPECT_EQ(qidx(g.t, 2, -1, &p), -1020);
    EXPECT_EQ(eidx(g.t, 2, 3, other.data()), -1020);
    EXPECT_EQ(eidx(g.t, 2, 2, other.data()), 0);
    ASSERT_EQ(qidx(g.t, 2, 2, &p), 0);
    EXPECT_EQ(p, other.data());
  }
  {
    TaskGuard g;
    ASSERT_EQ(new_task<T>(&g.t, 5, x, 0, 3, y.data(), 32, 0), 0);
    EXPECT_EQ(rec(g.t)->y_slots, 1);
    EXPECT_EQ(qidx(g.t, 2, 0, &p), -1009);
    EXPECT_EQ(eidx(g.t, 2, 0, other.data()), -1009);
    EXPECT_EQ(eidx(g.t, 2, 0, nullptr), -1008);
    if constexpr (sizeof(T) == 8) EXPECT_EQ(qor_df_kernel_dQueryPtr(g.t, 2, &p), 0);
    else EXPECT_EQ(qor_df_kernel_sQueryPtr(g.t, 2, &p), 0);
    EXPECT_EQ(p, y.data());
  }
  {
    TaskGuard g;
    ASSERT_EQ(new_task<T>(&g.t, 5, x, 0, 3, y.data(), 128, 0), 0);
    ASSERT_EQ(qidx(g.t, 2, 0, &p), 0);
    EXPECT_EQ(p, y.data());
    ASSERT_EQ(qidx(g.t, 2, 1, &p), 0);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(eidx(g.t, 2, 1, other.data()), 0);
    ASSERT_EQ(qidx(g.t, 2, 1, &p), 0);
    EXPECT_EQ(p, other.data());
    EXPECT_EQ(qidx(g.t, 7, 1, &p), -1019);
    EXPECT_EQ(eidx(g.t, 7, 1, other.data()), -1019);
  }
}

TEST(FitTaskCreate, SlotCountComesFromLow32BitsOfNy) {
  double x[3] = {0, 1, 2}, y[6] = {};
  TaskGuard g;
  const int64_t ny = (int64_t{1} << 32) + 2;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 3, x, 0, ny, y, 16, 0), 0);
  EXPECT_EQ(rec(g.t)->y_slots, 2);
  double *p;
  ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 1, &p), 0);
  EXPECT_EQ(p, y + 3);
  ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 5, &p), 0);  // beyond the table: null
  EXPECT_EQ(p, nullptr);
  // Setting a slot past the table grows it instead of writing outside it.
  EXPECT_EQ(qor_df_kernel_dEditIdxPtr(g.t, 2, 5, y), 0);
  ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 5, &p), 0);
  EXPECT_EQ(p, y);
  ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 1, &p), 0);
  EXPECT_EQ(p, y + 3);
}

TEST(FitTaskEdit, ValueEditorsCheckAndStore) {
  double x[4] = {0, 1, 2, 3}, y[4] = {};
  struct Row {
    int64_t id, bad, good;
    int32_t want;
  } rows[] = {
      {14, 1, 3, -1004},    {15, 3, 2, -1006},   {15, 5, 0, -1006},   {16, 0, 7, -1007},
      {17, 64, 128, -1009}, {18, -1, 6, -1010},  {19, 6, 9, -1011},   {19, -1, 5, -1011},
      {20, 3, 2, -1012},    {20, 4, 8, -1012},   {20, 5, 13, -1012},  {21, -2, 48, -1014},
      {22, 1, 32, -1017},   {23, 2, 1, -1036},   {23, -1, 0, -1036},  {24, 0, 0, -1019},
      {13, 0, 0, -1019},
  };
  for (const Row &r : rows) {
    TaskGuard g;
    ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 4, x, 0, 1, y, 0, 1), 0);
    const Task before = *rec(g.t);
    EXPECT_EQ(qor_df_kernel_iEditVal(g.t, r.id, r.bad), r.want) << "id " << r.id;
    EXPECT_EQ(std::memcmp(&before, rec(g.t), sizeof(Task)), 0) << "failed edit changed id " << r.id;
    if (r.want == -1019) continue;
    ASSERT_EQ(qor_df_kernel_iEditVal(g.t, r.id, r.good), 0) << "id " << r.id;
    int64_t v = -99;
    ASSERT_EQ(qor_df_kernel_iQueryVal(g.t, r.id, &v), 0);
    EXPECT_EQ(v, r.good) << "id " << r.id;
  }
}

TEST(FitTaskQuery, WidthFlagSelectsResultSize) {
  double x[4] = {0, 1, 2, 3};
  for (uint32_t flag : {0u, 1u}) {
    TaskGuard g;
    ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 4, x, 0, 0, nullptr, 0, flag), 0);
    ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 21, (int64_t{5} << 32) | 7), 0);
    ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 23, 1), 0);
    unsigned char buf[8];
    std::memset(buf, 0xAA, sizeof buf);
    ASSERT_EQ(qor_df_kernel_iQueryVal(g.t, 21, buf), 0);
    int64_t v64;
    int32_t v32;
    if (flag) {
      std::memcpy(&v64, buf, 8);
      EXPECT_EQ(v64, (int64_t{5} << 32) | 7);
    } else {
      std::memcpy(&v32, buf, 4);
      EXPECT_EQ(v32, 7);
      for (int i = 4; i < 8; ++i) EXPECT_EQ(buf[i], 0xAA) << "byte " << i << " written";
    }
    ASSERT_EQ(qor_df_kernel_iQueryVal(g.t, 23, buf), 0);
    if (flag) {
      std::memcpy(&v64, buf, 8);
      EXPECT_EQ(v64, 1);
    }
  }
}

TEST(FitTaskQuery, ChecksRunInOrder) {
  double x[4] = {0, 1, 2, 3}, y[8] = {};
  TaskGuard g;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 4, x, 0, 2, y, 0, 1), 0);
  int64_t v;
  double *p;
  EXPECT_EQ(qor_df_kernel_iQueryVal(nullptr, 99, nullptr), -1000);
  EXPECT_EQ(qor_df_kernel_iQueryVal(g.t, 99, nullptr), -1037);
  EXPECT_EQ(qor_df_kernel_iQueryVal(g.t, 99, &v), -1019);
  EXPECT_EQ(qor_df_kernel_iQueryVal(g.t, 0, &v), -1019);
  EXPECT_EQ(qor_df_kernel_dQueryPtr(nullptr, 9, nullptr), -1000);
  EXPECT_EQ(qor_df_kernel_dQueryPtr(g.t, 9, nullptr), -1037);
  EXPECT_EQ(qor_df_kernel_dQueryPtr(g.t, 9, &p), -1019);
  EXPECT_EQ(qor_df_kernel_dQueryPtr(g.t, 0, &p), -1019);
  EXPECT_EQ(qor_df_kernel_dQueryIdxPtr(nullptr, 9, -5, nullptr), -1000);
  EXPECT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 9, -5, nullptr), -1037);
  EXPECT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 9, -5, &p), -1020);
  EXPECT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 9, 2, &p), -1019);
  ASSERT_EQ(qor_df_kernel_dQueryPtr(g.t, 1, &p), 0);
  EXPECT_EQ(p, x);
  // A dead record: index is still checked first, then nothing happens.
  rec(g.t)->live = 0;
  p = reinterpret_cast<double *>(0x10);
  EXPECT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 3, &p), -1020);
  EXPECT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 1, &p), 0);
  EXPECT_EQ(p, reinterpret_cast<double *>(0x10));
  rec(g.t)->live = 1;
}

TEST(FitTaskEdit, PointerEditorsCheckEachId) {
  double x[4] = {0, 1, 2, 3}, y[8] = {}, a[8] = {};
  TaskGuard g;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 4, x, 0, 0, nullptr, 0, 1), 0);
  EXPECT_EQ(qor_df_kernel_dEditPtr(nullptr, 1, a), -1000);
  struct Row {
    int64_t id;
    int32_t null_status;
  } rows[] = {{1, -1005}, {2, -1008}, {3, -1013}, {4, -1015}, {5, -1016}};
  for (const Row &r : rows) EXPECT_EQ(qor_df_kernel_dEditPtr(g.t, r.id, nullptr), r.null_status);
  EXPECT_EQ(qor_df_kernel_dEditPtr(g.t, 6, a), -1019);
  EXPECT_EQ(qor_df_kernel_dEditPtr(g.t, 0, a), -1019);
  EXPECT_EQ(qor_df_kernel_dEditPtr(g.t, 5, a), -1007);  // no functions yet
  EXPECT_EQ(qor_df_kernel_dEditPtr(g.t, 2, a), -1007);
  EXPECT_EQ(qor_df_kernel_dEditIdxPtr(g.t, 5, 0, nullptr), -1016);
  EXPECT_EQ(qor_df_kernel_dEditIdxPtr(g.t, 5, 0, a), -1020);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 16, 2), 0);
  ASSERT_EQ(qor_df_kernel_dEditPtr(g.t, 2, y), 0);
  double *p;
  ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 2, 1, &p), 0);
  EXPECT_EQ(p, y + 4);
  for (int64_t id : {3, 4}) {
    ASSERT_EQ(qor_df_kernel_dEditPtr(g.t, id, a + id), 0);
    ASSERT_EQ(qor_df_kernel_dQueryPtr(g.t, id, &p), 0);
    EXPECT_EQ(p, a + id);
  }
  // Editing x and nx keeps the old cell-index table.
  int64_t *table = rec(g.t)->cell_table;
  double x2[6] = {0, 1, 2, 3, 4, 5};
  ASSERT_EQ(qor_df_kernel_dEditPtr(g.t, 1, x2), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 14, 6), 0);
  EXPECT_EQ(rec(g.t)->cell_table, table);
  EXPECT_EQ(rec(g.t)->x, x2);
}

TEST(FitTaskEdit, PPSplineChecksInOrderAndFillsCoefficientTable) {
  double x[5] = {0, 1, 2, 3, 4}, y[10] = {}, bc[2] = {}, ic[2] = {};
  std::vector<double> c(64);
  TaskGuard g;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 5, x, 0, 2, y, 0, 1), 0);
  double *cd = c.data();
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(nullptr, 4, 0, 1, nullptr, 0, nullptr, cd, 0), -1000);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, -1, -1, 12, nullptr, 1, nullptr, cd, 0), -1010);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, -1, 12, nullptr, 1, nullptr, cd, 0), -1011);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, 2, 12, nullptr, 1, nullptr, cd, 0), -1015);
  // Order and type were stored before the boundary test failed.
  EXPECT_EQ(rec(g.t)->order, 4);
  EXPECT_EQ(rec(g.t)->type, 2);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, 2, -3, nullptr, 1, nullptr, cd, 0), -1015);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, 2, 64, nullptr, 1, nullptr, cd, 0), -1013);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, 2, 2, nullptr, 0, ic, cd, 0), -1012);
  EXPECT_EQ(rec(g.t)->coeff_table, nullptr);
  struct Row {
    int64_t type, hint, stride;
    bool slot0_only;
  } rows[] = {{2, 0, 16, false}, {2, 16, 16, false}, {1, 16, 20, false}, {2, 32, 16, false},
              {2, 128, 0, true}};
  for (const Row &r : rows) {
    ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, r.type, 12, bc, 1, ic, cd, r.hint), 0);
    double *p;
    ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 5, 0, &p), 0);
    EXPECT_EQ(p, cd);
    ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 5, 1, &p), 0);
    EXPECT_EQ(p, r.slot0_only ? nullptr : cd + r.stride) << "hint " << r.hint << " type " << r.type;
    int64_t h;
    ASSERT_EQ(qor_df_kernel_iQueryVal(g.t, 22, &h), 0);
    EXPECT_EQ(h, r.hint);
  }
  // Without a coefficient array the hint is still stored, the table kept.
  ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 4, 2, 1, nullptr, 0, nullptr, nullptr, 16), 0);
  double *p;
  ASSERT_EQ(qor_df_kernel_dQueryPtr(g.t, 5, &p), 0);
  EXPECT_EQ(p, cd);
  // EditPtr id 5 rebuilds with the stored order, type and hint.
  ASSERT_EQ(qor_df_kernel_dEditPtr(g.t, 5, cd + 1), 0);
  ASSERT_EQ(qor_df_kernel_dQueryIdxPtr(g.t, 5, 1, &p), 0);
  EXPECT_EQ(p, cd + 17);

  TaskGuard none;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&none.t, 5, x, 0, 0, nullptr, 0, 1), 0);
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(none.t, 4, 2, 1, nullptr, 0, nullptr, cd, 0), -1007);
}

TEST(FitTaskLiveMark, DeadRecordIgnoresEditsAndQueries) {
  double x[4] = {0, 1, 2, 3}, y[8] = {}, a[4] = {};
  TaskGuard g;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 4, x, 0, 2, y, 0, 1), 0);
  rec(g.t)->live = 2;
  const Task before = *rec(g.t);
  for (int64_t id = 14; id <= 23; ++id) EXPECT_EQ(qor_df_kernel_iEditVal(g.t, id, -5), 0);
  EXPECT_EQ(qor_df_kernel_iEditVal(g.t, 15, 1), 0);
  for (int64_t id = 0; id <= 6; ++id) {
    EXPECT_EQ(qor_df_kernel_dEditPtr(g.t, id, nullptr), 0);
    EXPECT_EQ(qor_df_kernel_dEditIdxPtr(g.t, id, 99, nullptr), 0);
  }
  int64_t v = 77;
  double *p = a;
  EXPECT_EQ(qor_df_kernel_iQueryVal(g.t, 99, &v), 0);
  EXPECT_EQ(qor_df_kernel_dQueryPtr(g.t, 99, &p), 0);
  EXPECT_EQ(v, 77);
  EXPECT_EQ(p, a);
  EXPECT_EQ(std::memcmp(&before, rec(g.t), sizeof(Task)), 0);
  std::vector<int64_t> cells(4, -5);
  EXPECT_EQ(qor_df_kernel_dDFSearch1D(g.t, 4, x, 0, nullptr, cells.data(), nullptr, nullptr,
                                      nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(cells, std::vector<int64_t>(4, -5));
  // The spline editor ignores the mark.
  EXPECT_EQ(qor_df_kernel_dEditPPSpline1D(g.t, 3, 1, 1, nullptr, 0, nullptr, nullptr, 0), 0);
  EXPECT_EQ(rec(g.t)->order, 3);
  rec(g.t)->live = 1;
}

// ---- cell-index table ----------------------------------------------------

TEST(FitCellTable, CellCountFromNx) {
  const std::pair<int64_t, int64_t> rows[] = {{2, 16},     {271, 16},    {272, 17},
                                              {1000, 62},  {16383, 1023}, {16384, 1024},
                                              {1 << 20, 1024}};
  for (auto [nx, m] : rows) EXPECT_EQ(qor::fit::cell_count_for(nx), m) << nx;
  std::vector<double> x(272);
  for (size_t i = 0; i < x.size(); ++i) x[i] = double(i);
  TaskGuard g;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 272, x.data(), 0, 0, nullptr, 0, 0), 0);
  EXPECT_EQ(rec(g.t)->cell_count, 17);
}

template <class T>
std::vector<T> make_partition(int kind, int64_t nx, std::mt19937_64 &rng) {
  std::vector<T> x(nx);
  std::uniform_real_distribution<double> u(0, 1);
  double pos = -3.0 + 6 * u(rng);
  for (int64_t i = 0; i < nx; ++i) {
    double w = 1.0;
    if (kind == 1) w = 0.7 + 0.6 * u(rng);
    if (kind == 2) w = std::exp(8 * u(rng) - 4) * (u(rng) < 0.05 ? 300 : 1);
    x[i] = static_cast<T>(pos);
    pos += w;
    if (i > 0 && !(x[i] > x[i - 1])) x[i] = std::nextafter(x[i - 1], T(INFINITY));
  }
  return x;
}

// The bracket property for every cell: any site whose scaled position is j
// has its first breakpoint above it in (lo, hi].
template <class T>
void check_table(const std::vector<T> &x, int64_t xh, std::mt19937_64 &rng) {
  const int64_t nx = static_cast<int64_t>(x.size());
  TaskGuard g;
  if constexpr (sizeof(T) == 8) ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, nx, x.data(), xh, 0, nullptr, 0, 0), 0);
  else ASSERT_EQ(qor_df_kernel_sNewTask1D(&g.t, nx, x.data(), xh, 0, nullptr, 0, 0), 0);
  const Task *t = rec(g.t);
  const int64_t m = t->cell_count;
  ASSERT_EQ(m, qor::fit::cell_count_for(nx));
  const int64_t *tab = t->cell_table;
  ASSERT_NE(tab, nullptr);
  T scale;
  if constexpr (sizeof(T) == 8) scale = t->cell_scale.d;
  else scale = t->cell_scale.s;
  EXPECT_EQ(scale, static_cast<T>(m) / (x[nx - 1] - x[0]));
  auto position = [&](T v) { return static_cast<int64_t>(static_cast<T>((v - x[0]) * scale)); };
  EXPECT_EQ(tab[0], 0);
  EXPECT_EQ(tab[2 * m], tab[2 * m - 2]);
  EXPECT_EQ(tab[2 * m + 1], tab[2 * m - 1]);
  for (int64_t j = 0; j <= m; ++j) {
    const int64_t lo = tab[2 * j], hi = tab[2 * j + 1];
    ASSERT_GE(lo, 0) << "cell " << j;
    ASSERT_LE(hi, nx - 1) << "cell " << j;
    ASSERT_LT(lo, hi) << "cell " << j;
    const int64_t jj = std::min(j, m - 1);
    EXPECT_TRUE(lo == 0 || position(x[lo]) < jj) << "lo of cell " << j;
    EXPECT_TRUE(hi == nx - 1 || position(x[hi]) > j) << "hi of cell " << j;
  }
  // Sampled sites, breakpoints and their neighbours: the bracket holds.
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<T> sites;
  for (int i = 0; i < 2000; ++i) sites.push_back(static_cast<T>(x[0] + (x[nx - 1] - x[0]) * u(rng)));
  for (int64_t k = 0; k < nx; k += std::max<int64_t>(1, nx / 3000)) {
    sites.push_back(x[k]);
    sites.push_back(std::nextafter(x[k], T(-INFINITY)));
    sites.push_back(std::nextafter(x[k], T(INFINITY)));
  }
  for (T s : sites) {
    if (!(s >= x[0]) || !(s < x[nx - 1])) continue;
    const int64_t q = position(s);
    ASSERT_LE(q, m);
    const int64_t k = std::upper_bound(x.begin(), x.end(), s) - x.begin();
    ASSERT_LT(tab[2 * q], k) << "site " << s;
    ASSERT_LE(k, tab[2 * q + 1]) << "site " << s;
  }
}

TYPED_TEST(FitTask, CellTableBracketsEveryCell) {
  std::mt19937_64 rng(1234);
  for (int kind = 0; kind < 3; ++kind)
    for (int64_t nx : {2, 3, 17, 31, 100, 271, 272, 1000, 5000, 16384, 100000}) {
      SCOPED_TRACE(::testing::Message() << "kind " << kind << " nx " << nx);
      check_table<TypeParam>(make_partition<TypeParam>(kind, nx, rng), kind == 1 ? 2 : 1, rng);
    }
}

TEST(FitCellTable, XHintEditsRebuildOnlyForOne) {
  std::vector<double> x(100);
  for (size_t i = 0; i < x.size(); ++i) x[i] = double(i) * 0.5;
  TaskGuard g;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&g.t, 100, x.data(), 4, 0, nullptr, 0, 0), 0);
  EXPECT_EQ(rec(g.t)->cell_table, nullptr);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 15, 2), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 15, 0), 0);
  EXPECT_EQ(rec(g.t)->cell_table, nullptr);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 15, 1), 0);
  ASSERT_NE(rec(g.t)->cell_table, nullptr);
  EXPECT_EQ(rec(g.t)->cell_table[2 * 16 - 1], 99);
  // A rebuild after editing x and nx uses the current ones.
  std::vector<double> x2(5000);
  for (size_t i = 0; i < x2.size(); ++i) x2[i] = double(i * i);
  ASSERT_EQ(qor_df_kernel_dEditPtr(g.t, 1, x2.data()), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 14, 5000), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(g.t, 15, 1), 0);
  EXPECT_EQ(rec(g.t)->cell_count, 312);
  EXPECT_EQ(rec(g.t)->cell_table[2 * 312 - 1], 4999);
}

}  // namespace
