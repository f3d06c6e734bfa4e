// Task record layout, NewTask checks, the identifier table, the specialised
// editors and DeleteTask.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qor/stats.h"
#include "stats/task.h"

namespace {

using qor::stats::TaskRecord;

const TaskRecord &rec(qor_ss_task t) { return *static_cast<const TaskRecord *>(t); }
uint64_t addr(const void *p) { return reinterpret_cast<uintptr_t>(p); }

// Identifier -> (integer kind?, record field, null status), written out
// independently of the library's table so that any drift is caught.
struct Row {
  int id;
  bool integer;
  int field;
  int status;
};
const Row kRows[] = {
    {1, 1, 2, -4001},   {2, 1, 3, -4002},   {3, 0, 5, -4032},   {4, 1, 8, -4044},
    {5, 1, 4, -4004},   {6, 0, 6, -4005},   {7, 0, 11, -4006},  {8, 0, 12, -4007},
    {9, 0, 13, -4008},  {10, 0, 14, -4009}, {11, 0, 15, -4010}, {12, 0, 16, -4011},
    {13, 0, 17, -4012}, {14, 0, 25, -4013}, {15, 0, 26, -4014}, {16, 0, 28, -4015},
    {17, 0, 29, -4016}, {18, 0, 27, -4017}, {19, 0, 31, -4018}, {20, 1, 30, -4044},
    {21, 0, 33, -4019}, {22, 1, 32, -4044}, {23, 0, 7, -4020},  {24, 1, 44, -4022},
    {25, 0, 45, -4021}, {26, 0, 46, -4023}, {27, 0, 47, -4024}, {28, 1, 36, -4038},
    {29, 1, 43, -4044}, {30, 0, 41, -4035}, {31, 0, 42, -4034}, {32, 1, 37, -4038},
    {33, 0, 38, -4037}, {34, 1, 40, -4044}, {35, 0, 39, -4036}, {36, 1, 61, -4044},
    {37, 1, 57, -4043}, {38, 0, 58, -4042}, {39, 0, 59, -4028}, {40, 0, 60, -4027},
    {41, 1, 62, -4040}, {42, 0, 63, -4039}, {43, 0, 64, -4041}, {44, 1, 48, -4044},
    {45, 1, 65, -4045}, {46, 0, 66, -4046}, {47, 1, 67, -4044}, {48, 0, 68, -4047},
    {49, 1, 69, -4044}, {50, 1, 70, -4049}, {51, 0, 71, -4048}, {52, 1, 72, -4052},
    {53, 0, 73, -4053}, {54, 1, 76, -4055}, {55, 0, 77, -4054}, {56, 1, 78, -4056},
    {57, 0, 79, -4057}, {58, 1, 74, -4061}, {59, 0, 75, -4062}, {60, 0, 9, -4071},
    {61, 1, 10, -4044}, {62, 1, 53, -4066}, {63, 0, 54, -4065}, {64, 1, 49, -4069},
    {65, 0, 50, -4068}, {66, 0, 51, -4070}, {67, 0, 18, -4006}, {68, 0, 19, -4075},
    {69, 0, 20, -4076}, {70, 0, 21, -4077}, {71, 0, 22, -4078}, {72, 0, 23, -4079},
    {73, 0, 24, -4080}, {74, 0, 35, -4081}, {75, 1, 34, -4044}, {76, 0, 56, -4082},
    {77, 0, 55, -4083}, {78, 0, 90, -4084}, {79, 1, 91, -4044},
};

class TaskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(__rixdSSNewTask(&task_, &p_, &n_, &storage_, x_, w_, idx_, 0), 0);
  }
  void TearDown() override {
    if (task_) {
      EXPECT_EQ(__rixSSDeleteTask(&task_), 0);
    }
  }
  TaskRecord snapshot() const { return rec(task_); }
  void expect_unchanged(const TaskRecord &before) const {
    EXPECT_EQ(std::memcmp(&before, task_, sizeof before), 0);
  }
  int32_t p_ = 3, n_ = 4, storage_ = 0x20000, idx_[3] = {1, 0, 1};
  double x_[12] = {}, w_[4] = {1, 1, 1, 1};
  qor_ss_task task_ = nullptr;
};

TEST_F(TaskTest, NewTaskFillsPinnedFields) {
  const TaskRecord &t = rec(task_);
  EXPECT_EQ(sizeof(TaskRecord), 93u * 8u);
  EXPECT_EQ(addr(task_) % 128, 0u);
  EXPECT_EQ(t.f[0], uint64_t{2} << 32);  // width flag 0, then 2
  EXPECT_EQ(t.f[1], 1u);
  EXPECT_EQ(t.f[2], addr(&p_));
  EXPECT_EQ(t.f[3], addr(&n_));
  EXPECT_EQ(t.f[4], addr(idx_));
  EXPECT_EQ(t.f[5], addr(x_));
  EXPECT_EQ(t.f[6], addr(w_));
  EXPECT_EQ(t.f[7], 0u);
  EXPECT_EQ(t.f[8], addr(&storage_));
  for (int f = 9; f < 93; ++f) EXPECT_EQ(t.f[f], 0u) << "field " << f;
}

TEST(NewTask, WidthFlagSelectsIntegerWidth) {
  // 2^32 + 3 reads as 3 through a 32-bit view (low half first) and as a
  // large positive count through a 64-bit one; 2^32 reads as 0 when narrow.
  int64_t p = (int64_t{1} << 32), n = 5, storage = 0x10000;
  double x[5] = {};
  qor_ss_task t = nullptr;
  EXPECT_EQ(__rixdSSNewTask(&t, &p, &n, &storage, x, nullptr, nullptr, 0), -4001);
  ASSERT_EQ(__rixdSSNewTask(&t, &p, &n, &storage, x, nullptr, nullptr, 1), 0);
  EXPECT_EQ(rec(t).f[0], 1u | (uint64_t{2} << 32));
  EXPECT_EQ(__rixSSDeleteTask(&t), 0);
  // A 64-bit storage word 0x10000 with a non-zero high half is a bad format
  // when read wide, and fine when read narrow.
  int64_t storage_hi = 0x10000 | (int64_t{1} << 40), p1 = 1;
  EXPECT_EQ(__rixsSSNewTask(&t, &p1, &n, &storage_hi, reinterpret_cast<float *>(x), nullptr,
                            nullptr, 1),
            -4003);
  ASSERT_EQ(__rixsSSNewTask(&t, &p1, &n, &storage_hi, reinterpret_cast<float *>(x), nullptr,
                            nullptr, 0),
            0);
  EXPECT_EQ(__rixSSDeleteTask(&t), 0);
}

TEST(NewTask, ChecksInDocumentedOrder) {
  int32_t p = 2, p0 = 0, n = 3, n0 = 0, good = 0x20000, bad = 0x30000;
  double x[6] = {};
  qor_ss_task t = nullptr;
  struct Case {
    const void *p, *n, *storage;
    const double *x;
    int32_t status;
  } cases[] = {
      {nullptr, nullptr, nullptr, x, -4001},  // p before everything
      {&p0, &n, &good, x, -4001},
      {&p, nullptr, nullptr, x, -4044},       // storage pointer before n
      {&p, nullptr, &bad, x, -4003},          // storage word before n
      {&p, nullptr, &good, x, -4002},
      {&p, &n0, &good, x, -4002},
      {&p, nullptr, nullptr, nullptr, 0},     // no data: n and storage unexamined
      {&p, &n0, &bad, nullptr, 0},
      {&p, &n, &good, x, 0},
  };
  for (const Case &c : cases) {
    t = nullptr;
    EXPECT_EQ(__rixdSSNewTask(&t, c.p, c.n, c.storage, c.x, nullptr, nullptr, 0), c.status);
    if (c.status == 0) {
      ASSERT_NE(t, nullptr);
      EXPECT_EQ(__rixSSDeleteTask(&t), 0);
      EXPECT_EQ(t, nullptr);
    } else {
      EXPECT_EQ(t, nullptr) << "a failed NewTask must not hand out a task";
    }
  }
  EXPECT_EQ(__rixdSSNewTask(nullptr, &p, &n, &good, x, nullptr, nullptr, 0), -4031);
}

TEST_F(TaskTest, EditTaskStoresEveryIdentifierInItsField) {
  static double real_target[1];
  static int64_t int_target[1];
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.id);
    const TaskRecord before = snapshot();
    if (r.integer) {
      EXPECT_EQ(__rixiSSEditTask(task_, r.id, int_target), 0);
      EXPECT_EQ(rec(task_).f[r.field], addr(int_target));
      // The other kind's editors refuse it and change nothing.
      const TaskRecord after = snapshot();
      EXPECT_EQ(__rixdSSEditTask(task_, r.id, real_target), -3);
      EXPECT_EQ(__rixsSSEditTask(task_, r.id, reinterpret_cast<float *>(real_target)), -3);
      expect_unchanged(after);
    } else {
      EXPECT_EQ(__rixdSSEditTask(task_, r.id, real_target), 0);
      EXPECT_EQ(rec(task_).f[r.field], addr(real_target));
      float *fp = reinterpret_cast<float *>(int_target);
      EXPECT_EQ(__rixsSSEditTask(task_, r.id, fp), 0);
      EXPECT_EQ(rec(task_).f[r.field], addr(fp));
      const TaskRecord after = snapshot();
      EXPECT_EQ(__rixiSSEditTask(task_, r.id, int_target), -3);
      expect_unchanged(after);
    }
    // Only the identifier's own field moved.
    const TaskRecord &now = rec(task_);
    for (int f = 0; f < 93; ++f)
      if (f != r.field) {
        EXPECT_EQ(now.f[f], before.f[f]) << "field " << f;
      }
  }
}

TEST_F(TaskTest, EditTaskNullPointerGivesTheIdentifiersStatus) {
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.id);
    const TaskRecord before = snapshot();
    const int32_t st = r.integer ? __rixiSSEditTask(task_, r.id, nullptr)
                                 : __rixdSSEditTask(task_, r.id, nullptr);
    EXPECT_EQ(st, r.status);
    if (!r.integer) {
      EXPECT_EQ(__rixsSSEditTask(task_, r.id, nullptr), r.status);
    }
    expect_unchanged(before);
  }
}

TEST_F(TaskTest, EditTaskRejectsUnknownIdentifiersAndNullTask) {
  double v = 0;
  const TaskRecord before = snapshot();
  for (int id : {-1, 0, 80, 1000}) {
    EXPECT_EQ(__rixiSSEditTask(task_, id, &v), -3) << id;
    EXPECT_EQ(__rixdSSEditTask(task_, id, &v), -3) << id;
  }
  // The real editors stop at 78; 79 is integer anyway, and 1, 2, 4, 5 belong
  // to the integer editor, 3 to the real ones.
  for (int id : {1, 2, 4, 5, 79}) EXPECT_EQ(__rixdSSEditTask(task_, id, &v), -3) << id;
  EXPECT_EQ(__rixiSSEditTask(task_, 3, &v), -3);
  expect_unchanged(before);
  EXPECT_EQ(__rixiSSEditTask(nullptr, 1, &v), -4031);
  EXPECT_EQ(__rixdSSEditTask(nullptr, 7, &v), -4031);
  EXPECT_EQ(__rixsSSEditTask(nullptr, 7, reinterpret_cast<float *>(&v)), -4031);
}

// Each specialised editor, called with distinct pointers, must land each in
// the field of the identifier listed for its argument position.
template <class T>
struct EditorCase {
  const char *name;
  std::vector<int> ids;
  int32_t (*call)(qor_ss_task, void *const *);  // args in order
};

template <class T>
std::vector<EditorCase<T>> editor_cases();

#define QOR_EDITOR_CASES(t, T)                                                                   \
  template <>                                                                                    \
  std::vector<EditorCase<T>> editor_cases<T>() {                                                 \
    return {                                                                                     \
        {"Moments", {7, 8, 9, 10, 11, 12, 13}, [](qor_ss_task k, void *const *a) {               \
           return __rix##t##SSEditMoments(k, (T *)a[0], (T *)a[1], (T *)a[2], (T *)a[3],         \
                                          (T *)a[4], (T *)a[5], (T *)a[6]); }},                  \
        {"Sums", {67, 68, 69, 70, 71, 72, 73}, [](qor_ss_task k, void *const *a) {               \
           return __rix##t##SSEditSums(k, (T *)a[0], (T *)a[1], (T *)a[2], (T *)a[3], (T *)a[4], \
                                       (T *)a[5], (T *)a[6]); }},                                \
        {"CovCor", {7, 19, 20, 21, 22}, [](qor_ss_task k, void *const *a) {                      \
           return __rix##t##SSEditCovCor(k, (T *)a[0], (T *)a[1], a[2], (T *)a[3], a[4]); }},    \
        {"CP", {7, 67, 74, 75}, [](qor_ss_task k, void *const *a) {                              \
           return __rix##t##SSEditCP(k, (T *)a[0], (T *)a[1], (T *)a[2], a[3]); }},              \
        {"Quantiles", {24, 25, 26, 27, 44}, [](qor_ss_task k, void *const *a) {                  \
           return __rix##t##SSEditQuantiles(k, a[0], (T *)a[1], (T *)a[2], (T *)a[3], a[4]); }}, \
        {"StreamQuantiles", {64, 65, 66, 62, 63}, [](qor_ss_task k, void *const *a) {            \
           return __rix##t##SSEditStreamQuantiles(k, a[0], (T *)a[1], (T *)a[2], a[3],           \
                                                  (T *)a[4]); }},                                \
        {"PooledCovariance", {28, 30, 31, 32, 33, 35}, [](qor_ss_task k, void *const *a) {       \
           return __rix##t##SSEditPooledCovariance(k, a[0], (T *)a[1], (T *)a[2], a[3],          \
                                                   (T *)a[4], (T *)a[5]); }},                    \
        {"OutDetect", {41, 42, 43}, [](qor_ss_task k, void *const *a) {                          \
           return __rix##t##SSEditOutDetect(k, a[0], (T *)a[1], (T *)a[2]); }},                  \
        {"MissingVals", {50, 51, 52, 53, 58, 59, 54, 55, 56, 57},                                \
         [](qor_ss_task k, void *const *a) {                                                     \
           return __rix##t##SSEditMissingVals(k, a[0], (T *)a[1], a[2], (T *)a[3], a[4],         \
                                              (T *)a[5], a[6], (T *)a[7], a[8], (T *)a[9]); }},  \
        {"PartialCovCor", {45, 19, 20, 21, 22, 46, 47, 48, 49},                                  \
         [](qor_ss_task k, void *const *a) {                                                     \
           return __rix##t##SSEditPartialCovCor(k, a[0], (T *)a[1], a[2], (T *)a[3], a[4],       \
                                                (T *)a[5], a[6], (T *)a[7], a[8]); }},           \
        {"RCov", {36, 37, 38, 39, 40}, [](qor_ss_task k, void *const *a) {                       \
           return __rix##t##SSEditRCov(k, a[0], a[1], (T *)a[2], (T *)a[3], (T *)a[4]); }},      \
        {"MtxParametrz", {21, 22, 60, 61}, [](qor_ss_task k, void *const *a) {                   \
           return __rix##t##SSEditMtxParametrz(k, (T *)a[0], a[1], (T *)a[2], a[3]); }},         \
    };                                                                                           \
  }
QOR_EDITOR_CASES(d, double)
QOR_EDITOR_CASES(s, float)

int field_of(int id) {
  for (const Row &r : kRows)
    if (r.id == id) return r.field;
  return -1;
}

template <class T>
class SpecialisedEditors : public TaskTest {};
using Precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(SpecialisedEditors, Precisions);

TYPED_TEST(SpecialisedEditors, StoreNonNullAndKeepNull) {
  static char targets[16][8];
  for (const auto &c : editor_cases<TypeParam>()) {
    SCOPED_TRACE(c.name);
    void *args[16] = {};
    // All null: success, nothing changes.
    TaskRecord before = this->snapshot();
    EXPECT_EQ(c.call(this->task_, args), 0);
    this->expect_unchanged(before);
    // Null task: -4031.
    for (size_t i = 0; i < c.ids.size(); ++i) args[i] = targets[i];
    EXPECT_EQ(c.call(nullptr, args), -4031);
    // Every argument set: each lands in its identifier's field.
    EXPECT_EQ(c.call(this->task_, args), 0);
    for (size_t i = 0; i < c.ids.size(); ++i)
      EXPECT_EQ(rec(this->task_).f[field_of(c.ids[i])], addr(targets[i])) << "arg " << i;
    // Only the odd arguments set again, with new pointers: the even ones keep
    // the previous values.
    void *odd[16] = {};
    for (size_t i = 1; i < c.ids.size(); i += 2) odd[i] = targets[i + 1];
    EXPECT_EQ(c.call(this->task_, odd), 0);
    for (size_t i = 0; i < c.ids.size(); ++i)
      EXPECT_EQ(rec(this->task_).f[field_of(c.ids[i])],
                addr(i % 2 ? targets[i + 1] : targets[i]))
          << "arg " << i;
  }
}

// Clean-up hooks see the record, in registration order, after the scratch
// block went back.
std::vector<int> g_hook_calls;
void hook_a(TaskRecord *t) { g_hook_calls.push_back(1 + 10 * (t->f[92] != 0)); }
void hook_b(TaskRecord *) { g_hook_calls.push_back(2); }

TEST(DeleteTask, ReleasesScratchRunsHooksAndClearsHandle) {
  int32_t p = 1;
  qor_ss_task t = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&t, &p, nullptr, nullptr, nullptr, nullptr, nullptr, 0), 0);
  auto *r = static_cast<TaskRecord *>(t);
  r->set_ptr(92, qor_serv_allocate(4096, 128));
  g_hook_calls.clear();
  ASSERT_TRUE(qor::stats::add_cleanup_hook(r, hook_a));
  ASSERT_TRUE(qor::stats::add_cleanup_hook(r, hook_b));
  EXPECT_EQ(r->f[88], 2u);
  EXPECT_EQ(r->f[89], addr(reinterpret_cast<void *>(hook_a)));
  EXPECT_EQ(r->f[90], addr(reinterpret_cast<void *>(hook_b)));
  EXPECT_EQ(__rixSSDeleteTask(&t), 0);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(g_hook_calls, (std::vector<int>{1, 2}));
  EXPECT_EQ(__rixSSDeleteTask(nullptr), -4031);
}

TEST(DeleteTask, HookSlotsAreBounded) {
  int32_t p = 1;
  qor_ss_task t = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&t, &p, nullptr, nullptr, nullptr, nullptr, nullptr, 0), 0);
  auto *r = static_cast<TaskRecord *>(t);
  g_hook_calls.clear();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(qor::stats::add_cleanup_hook(r, hook_b));
  EXPECT_FALSE(qor::stats::add_cleanup_hook(r, hook_b));  // field 92 is the scratch block
  EXPECT_EQ(__rixSSDeleteTask(&t), 0);
  EXPECT_EQ(g_hook_calls.size(), 3u);
}

}  // namespace
