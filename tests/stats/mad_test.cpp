// Absolute deviation estimators: entry-point statuses in order, the status
// rule for combined requests, selection, layouts, and agreement with an
// independent computation (sorting-based median, long double weighted mean).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "qor/stats.h"
#include "stats/estimators.h"

namespace {

constexpr uint64_t kMed = QOR_SS_MAD_MEDIAN, kMean = QOR_SS_MAD_MEAN;

template <class T>
int32_t new_task(qor_ss_task *t, const void *p, const void *n, const void *s, const T *x,
                 const T *w, const void *idx, int wide);
template <>
int32_t new_task<double>(qor_ss_task *t, const void *p, const void *n, const void *s,
                         const double *x, const double *w, const void *idx, int wide) {
  return __rixdSSNewTask(t, p, n, s, x, w, idx, wide);
}
template <>
int32_t new_task<float>(qor_ss_task *t, const void *p, const void *n, const void *s,
                        const float *x, const float *w, const void *idx, int wide) {
  return __rixsSSNewTask(t, p, n, s, x, w, idx, wide);
}
int32_t edit(qor_ss_task t, int id, double *v) { return __rixdSSEditTask(t, id, v); }
int32_t edit(qor_ss_task t, int id, float *v) { return __rixsSSEditTask(t, id, v); }
int32_t run(qor_ss_task t, uint64_t e, uint64_t m, const qor_ss_service_fn *s, double) {
  return _rixdSSMAD(t, e, m, s);
}
int32_t run(qor_ss_task t, uint64_t e, uint64_t m, const qor_ss_service_fn *s, float) {
  return _rixsSSMAD(t, e, m, s);
}

// Independent reference: full sort, mean of the two middle values for an even
// count; weighted means in long double.
template <class T>
long double ref_median(std::vector<T> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? static_cast<long double>(v[n / 2])
               : (static_cast<long double>(v[n / 2 - 1]) + static_cast<long double>(v[n / 2])) / 2;
}
template <class T>
long double ref_mad(const std::vector<T> &v) {
  const T med = static_cast<T>(ref_median(v));
  std::vector<T> d(v.size());
  for (size_t i = 0; i < v.size(); ++i) d[i] = std::fabs(v[i] - med);
  return ref_median(d);
}
template <class T>
long double ref_mean(const std::vector<T> &v, const T *w) {
  long double s = 0, sw = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    const long double wi = w ? w[i] : 1;
    s += wi * v[i];
    sw += wi;
  }
  return s / sw;
}
template <class T>
long double ref_meanad(const std::vector<T> &v, const T *w, const T *caller_mean = nullptr) {
  const long double m = caller_mean ? *caller_mean : ref_mean(v, w);
  long double s = 0, sw = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    const long double wi = w ? w[i] : 1;
    s += wi * std::fabs(v[i] - m);
    sw += wi;
  }
  return s / sw;
}

// ---- statuses -----------------------------------------------------------------

class MadStatus : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(__rixdSSNewTask(&t_, &p_, &n_, &storage_, x_, nullptr, nullptr, 0), 0);
    qor_ss_default_services(services_);
  }
  void TearDown() override { __rixSSDeleteTask(&t_); }
  int32_t mad(uint64_t e, uint64_t m) { return _rixdSSMAD(t_, e, m, services_); }
  int32_t p_ = 2, n_ = 4, storage_ = 0x10000;
  double x_[8] = {1, 2, 3, 10, 5, 5, 5, 9};
  double mdad_[2] = {-1, -1}, mnad_[2] = {-1, -1}, means_[2] = {0, 0};
  qor_ss_task t_ = nullptr;
  qor_ss_service_fn services_[QOR_SS_SERVICE_TABLE_SIZE];
};

TEST_F(MadStatus, TaskChecksInOrder) {
  int32_t zero = 0, bad_storage = 0x30000;
  EXPECT_EQ(_rixdSSMAD(nullptr, kMed, 1, services_), -4031);
  // Bad p is reported before a bad n and before missing result arrays.
  ASSERT_EQ(__rixiSSEditTask(t_, 1, &zero), 0);
  ASSERT_EQ(__rixiSSEditTask(t_, 2, &zero), 0);
  EXPECT_EQ(mad(kMed | kMean, 1), -4001);
  ASSERT_EQ(__rixiSSEditTask(t_, 1, &p_), 0);
  EXPECT_EQ(mad(kMed | kMean, 1), -4002);
  ASSERT_EQ(__rixiSSEditTask(t_, 2, &n_), 0);
  ASSERT_EQ(__rixiSSEditTask(t_, 4, &bad_storage), 0);
  EXPECT_EQ(mad(kMed | kMean, 1), -4003);
  // A null storage pointer: -4044 (a task created without data has none).
  qor_ss_task nod = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&nod, &p_, &n_, nullptr, nullptr, nullptr, nullptr, 0), 0);
  EXPECT_EQ(_rixdSSMAD(nod, kMed, 1, services_), -4044);
  __rixSSDeleteTask(&nod);
  ASSERT_EQ(__rixiSSEditTask(t_, 4, &storage_), 0);
  // Missing result arrays, then methods.
  EXPECT_EQ(mad(kMed | kMean, 1), -4082);
  ASSERT_EQ(edit(t_, 76, mdad_), 0);
  EXPECT_EQ(mad(kMed | kMean, 1), -4083);
  ASSERT_EQ(edit(t_, 77, mnad_), 0);
  EXPECT_EQ(mad(kMean, 0x2), -4029);
  EXPECT_EQ(mad(kMean, 0x100), -4006);
  EXPECT_EQ(mad(kMed | kMean, 1), 0);
  EXPECT_DOUBLE_EQ(mdad_[0], 1.0);  // median 2.5, deviations 1.5 .5 .5 7.5
  EXPECT_DOUBLE_EQ(mdad_[1], 0.0);
  EXPECT_DOUBLE_EQ(mnad_[0], 3.0);  // mean 4: 3 2 1 6
  EXPECT_DOUBLE_EQ(mnad_[1], 1.5);  // mean 6: 1 1 1 3
}

TEST_F(MadStatus, NoRequestedEstimateIsANoOp) {
  EXPECT_EQ(mad(0, 0), 0);
  EXPECT_EQ(mad(0x1, 0x1), 0);  // other estimators' bits are not ours
}

TEST_F(MadStatus, MedianOnlyWithCallerMeansMethodIsRefusedAndWritesNothing) {
  ASSERT_EQ(edit(t_, 76, mdad_), 0);
  EXPECT_EQ(mad(kMed, 0x100), -4029);
  EXPECT_EQ(mdad_[0], -1);
  EXPECT_EQ(mdad_[1], -1);
}

TEST_F(MadStatus, CombinedRequestReportsOnlyTheMeanPass) {
  ASSERT_EQ(edit(t_, 76, mdad_), 0);
  ASSERT_EQ(edit(t_, 77, mnad_), 0);
  ASSERT_EQ(edit(t_, 7, means_), 0);
  means_[0] = 0;
  means_[1] = 6;
  EXPECT_EQ(mad(kMed | kMean, 0x100), 0);
  EXPECT_EQ(mdad_[0], -1);              // median pass refused ...
  EXPECT_DOUBLE_EQ(mnad_[0], 4.0);      // ... mean pass about the caller's means
  EXPECT_DOUBLE_EQ(mnad_[1], 1.5);
}

TEST_F(MadStatus, EngineFailureIsPassedOn) {
  // With a well-formed task the per-variable routines cannot make the
  // internal estimators fail, so their statuses are checked directly, in the
  // order the estimators test them.
  qor::stats::TaskRecord t;
  qor::stats::LocalInts ints;
  qor::stats::init_local_task(&t, &ints, 4, x_, nullptr);
  double out;
  const double bad_order = 1.5;
  EXPECT_EQ(qor::stats::quantiles<double>(&t, 0x10000, 1, nullptr), -4022);
  t.set_ptr(qor::stats::kFieldQuantCount, &ints.quant_count);
  EXPECT_EQ(qor::stats::quantiles<double>(&t, 0x10000, 1, nullptr), -4021);
  t.set_ptr(qor::stats::kFieldQuantOrders, &bad_order);
  EXPECT_EQ(qor::stats::quantiles<double>(&t, 0x10000, 1, nullptr), -4023);
  t.set_ptr(qor::stats::kFieldQuants, &out);
  EXPECT_EQ(qor::stats::quantiles<double>(&t, 0x10000, 1, nullptr), -4021);
  EXPECT_EQ(qor::stats::quantiles<double>(&t, 0x10000, 2, nullptr), -4029);
  EXPECT_EQ(qor::stats::basic<double>(&t, 0x1, 1), -4006);
  t.set_ptr(qor::stats::kFieldMeans, &out);
  EXPECT_EQ(qor::stats::basic<double>(&t, 0x1, 1), 0);
  EXPECT_DOUBLE_EQ(out, 4.0);
  EXPECT_EQ(qor::stats::basic<double>(&t, 0x2, 1), -4007);
}

// The parallel-for is asked for min(query, work items) threads, is not used
// when the query answers 1, and a null table runs serially with the same
// results.
struct Recorder {
  static inline int calls = 0, last_threads = 0;
  static inline int64_t last_count = 0;
  static void parallel_for(int64_t count, int threads, void *ctx, qor_threader_routine r) {
    ++calls;
    last_threads = threads;
    last_count = count;
    for (int64_t i = count - 1; i >= 0; --i) r(i, static_cast<int>(i % threads), ctx);
  }
  static int many(int64_t, int64_t, int, const void *) { return 1000; }
  static int one(int64_t, int64_t, int, const void *) { return 1; }
  static int negative(int64_t, int64_t, int, const void *) { return -5; }
};

TEST_F(MadStatus, ServiceTableContract) {
  ASSERT_EQ(edit(t_, 76, mdad_), 0);
  ASSERT_EQ(edit(t_, 77, mnad_), 0);
  qor_ss_service_fn table[5] = {reinterpret_cast<qor_ss_service_fn>(&Recorder::parallel_for),
                                nullptr, nullptr, nullptr,
                                reinterpret_cast<qor_ss_service_fn>(&Recorder::many)};
  Recorder::calls = 0;
  ASSERT_EQ(_rixdSSMAD(t_, kMed | kMean, 1, table), 0);
  EXPECT_EQ(Recorder::calls, 2);
  EXPECT_EQ(Recorder::last_threads, 2);  // capped by p = 2
  EXPECT_EQ(Recorder::last_count, 2);
  const double md0 = mdad_[0], mn1 = mnad_[1];
  table[4] = reinterpret_cast<qor_ss_service_fn>(&Recorder::one);
  Recorder::calls = 0;
  mdad_[0] = mnad_[1] = -1;
  ASSERT_EQ(_rixdSSMAD(t_, kMed | kMean, 1, table), 0);
  EXPECT_EQ(Recorder::calls, 0);
  EXPECT_EQ(mdad_[0], md0);
  EXPECT_EQ(mnad_[1], mn1);
  table[4] = reinterpret_cast<qor_ss_service_fn>(&Recorder::negative);
  mdad_[0] = mnad_[1] = -1;
  ASSERT_EQ(_rixdSSMAD(t_, kMed | kMean, 1, table), 0);
  EXPECT_EQ(mdad_[0], md0);
  mdad_[0] = mnad_[1] = -1;
  ASSERT_EQ(_rixdSSMAD(t_, kMed | kMean, 1, nullptr), 0);
  EXPECT_EQ(mdad_[0], md0);
  EXPECT_EQ(mnad_[1], mn1);
}

// ---- selection, layouts and NaN ----------------------------------------------------

TEST_F(MadStatus, PassedOverVariablesKeepTheirResults) {
  for (int wide : {0, 1}) {
    SCOPED_TRACE(wide);
    // Entry j is read at j (32-bit) or as the low half of 64-bit entry j.
    int32_t sel32[2] = {0, 1};
    int64_t sel64[2] = {int64_t{1} << 32, 1};  // low half 0: skip variable 0
    int64_t p64 = 2, n64 = 4, s64 = 0x10000;
    qor_ss_task t = nullptr;
    const int32_t st = wide ? __rixdSSNewTask(&t, &p64, &n64, &s64, x_, nullptr, sel64, 1)
                            : __rixdSSNewTask(&t, &p_, &n_, &storage_, x_, nullptr, sel32, 0);
    ASSERT_EQ(st, 0);
    double md[2] = {-7, -7}, mn[2] = {-7, -7};
    ASSERT_EQ(edit(t, 76, md), 0);
    ASSERT_EQ(edit(t, 77, mn), 0);
    EXPECT_EQ(_rixdSSMAD(t, kMed | kMean, 1, services_), 0);
    EXPECT_EQ(md[0], -7);
    EXPECT_EQ(mn[0], -7);
    EXPECT_DOUBLE_EQ(md[1], 0.0);
    EXPECT_DOUBLE_EQ(mn[1], 1.5);
    __rixSSDeleteTask(&t);
  }
}

TEST(MadLayout, SingleVariableIsAlwaysContiguous) {
  int32_t p = 1, n = 5, rows = 0x20000;
  double x[5] = {4, 1, 9, 1, 3}, md = 0, mn = 0;
  qor_ss_task t = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&t, &p, &n, &rows, x, nullptr, nullptr, 0), 0);
  ASSERT_EQ(__rixdSSEditTask(t, 76, &md), 0);
  ASSERT_EQ(__rixdSSEditTask(t, 77, &mn), 0);
  ASSERT_EQ(_rixdSSMAD(t, kMed | kMean, 1, nullptr), 0);
  EXPECT_DOUBLE_EQ(md, 2.0);    // median 3: deviations 1 2 6 2 0
  EXPECT_DOUBLE_EQ(mn, 2.32);   // mean 3.6: .4 2.6 5.4 2.6 .6
  __rixSSDeleteTask(&t);
}

TEST(MadNaN, NaNMakesOnlyItsVariableNaN) {
  // Variable 0 holds a NaN, variable 1 does not (row-major, p = 2).
  const double nan = std::numeric_limits<double>::quiet_NaN();
  int32_t p = 2, n = 3, rows = 0x20000;
  double x[6] = {1, 1, nan, 2, 3, 4}, md[2], mn[2];
  qor_ss_task t = nullptr;
  ASSERT_EQ(__rixdSSNewTask(&t, &p, &n, &rows, x, nullptr, nullptr, 0), 0);
  ASSERT_EQ(__rixdSSEditTask(t, 76, md), 0);
  ASSERT_EQ(__rixdSSEditTask(t, 77, mn), 0);
  ASSERT_EQ(_rixdSSMAD(t, kMed | kMean, 1, nullptr), 0);
  EXPECT_TRUE(std::isnan(md[0]));
  EXPECT_TRUE(std::isnan(mn[0]));
  EXPECT_DOUBLE_EQ(md[1], 1.0);
  EXPECT_DOUBLE_EQ(mn[1], 10.0 / 9.0);  // {1, 2, 4}: mean 7/3
  // A NaN weight poisons every variable's mean absolute deviation.
  double w[3] = {1, nan, 1};
  ASSERT_EQ(__rixdSSEditTask(t, 6, w), 0);
  ASSERT_EQ(_rixdSSMAD(t, kMean, 1, nullptr), 0);
  EXPECT_TRUE(std::isnan(mn[1]));
  __rixSSDeleteTask(&t);
}

// ---- agreement with the reference on random data -------------------------------------

struct RandomCase {
  int64_t p, n;
  bool rows;
  bool weights;
  bool ties;
  bool wide;
  bool caller_means;
  bool select = false;  // pass over every third variable
};

int four_threads(int64_t, int64_t, int, const void *) { return 4; }

template <class T>
class MadRandom : public ::testing::Test {};
using Precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(MadRandom, Precisions);

TYPED_TEST(MadRandom, AgreesWithSortAndLongDoubleReference) {
  using T = TypeParam;
  const RandomCase cases[] = {
      {5, 1001, false, false, false, false, false}, {5, 1000, true, false, false, true, false},
      {7, 2000, false, true, true, false, false},   {7, 1999, true, true, true, true, false},
      {3, 64, true, true, false, false, true},      {1, 4097, true, false, true, false, false},
      {16, 3000, false, true, false, true, true},   {2, 1, false, false, false, false, false},
      {9, 2, true, true, true, false, false},
      {20, 777, true, true, false, false, false, true},  // row groups of 8 / 16, last partial
      {37, 300, true, false, true, true, true, true},
      {12, 5000, false, true, true, true, false, true},
  };
  // The core pool's parallel-for with a query that always asks for four
  // threads, so that even small cases run with several buffers.
  qor_ss_service_fn services[QOR_SS_SERVICE_TABLE_SIZE];
  qor_ss_default_services(services);
  services[QOR_SS_SERVICE_THREAD_COUNT] = reinterpret_cast<qor_ss_service_fn>(four_threads);
  std::mt19937_64 rng(20261122);
  for (const RandomCase &c : cases) {
    SCOPED_TRACE(::testing::Message() << "p=" << c.p << " n=" << c.n << " rows=" << c.rows
                                      << " w=" << c.weights << " ties=" << c.ties);
    std::vector<std::vector<T>> vars(c.p, std::vector<T>(c.n));
    std::normal_distribution<double> gauss(3.0, 10.0);
    std::uniform_int_distribution<int> small(-6, 6);
    for (auto &v : vars)
      for (auto &e : v) e = c.ties ? static_cast<T>(small(rng)) : static_cast<T>(gauss(rng));
    std::vector<T> x(c.p * c.n), w(c.n), means(c.p);
    for (int64_t j = 0; j < c.p; ++j)
      for (int64_t k = 0; k < c.n; ++k)
        x[c.rows ? j + k * c.p : j * c.n + k] = vars[j][k];
    std::uniform_real_distribution<double> uw(0.1, 3.0);
    for (auto &e : w) e = static_cast<T>(uw(rng));
    for (int64_t j = 0; j < c.p; ++j) means[j] = static_cast<T>(j - 1.5);
    const int64_t p64 = c.p, n64 = c.n, s64 = c.rows ? 0x20000 : 0x10000;
    const int32_t p32 = c.p, n32 = c.n, s32 = s64;
    qor_ss_task t = nullptr;
    const T *wp = c.weights ? w.data() : nullptr;
    std::vector<int64_t> sel64(c.p);
    std::vector<int32_t> sel32(c.p);
    for (int64_t j = 0; j < c.p; ++j) sel64[j] = sel32[j] = j % 3 != 1;
    const void *sel = !c.select ? nullptr : c.wide ? static_cast<const void *>(sel64.data())
                                                   : static_cast<const void *>(sel32.data());
    const int32_t st = c.wide ? new_task<T>(&t, &p64, &n64, &s64, x.data(), wp, sel, 1)
                              : new_task<T>(&t, &p32, &n32, &s32, x.data(), wp, sel, 0);
    ASSERT_EQ(st, 0);
    std::vector<T> md(c.p, -1), mn(c.p, -1);
    ASSERT_EQ(edit(t, 76, md.data()), 0);
    ASSERT_EQ(edit(t, 77, mn.data()), 0);
    ASSERT_EQ(edit(t, 7, means.data()), 0);
    ASSERT_EQ(run(t, kMed, 1, services, T{}), 0);
    ASSERT_EQ(run(t, kMean, c.caller_means ? 0x100 : 0x1, services, T{}), 0);
    const double tol = std::is_same_v<T, float> ? 2e-6 : 1e-13;
    for (int64_t j = 0; j < c.p; ++j) {
      if (c.select && j % 3 == 1) {
        EXPECT_EQ(md[j], -1) << j;
        EXPECT_EQ(mn[j], -1) << j;
        continue;
      }
      const long double want_md = ref_mad(vars[j]);
      const long double want_mn = ref_meanad(vars[j], wp, c.caller_means ? &means[j] : nullptr);
      EXPECT_NEAR(md[j], want_md, tol * (1 + std::fabs(static_cast<double>(want_md)))) << j;
      EXPECT_NEAR(mn[j], want_mn, 4 * tol * (1 + std::fabs(static_cast<double>(want_mn)))) << j;
    }
    __rixSSDeleteTask(&t);
  }
}

// ---- building blocks -------------------------------------------------------------------

TEST(Summation, PairwiseLosesNoAccuracyOverTenMillionValues) {
  // Values near 1 with a large common offset: a naive running sum drifts by
  // roughly n * eps * |sum|; the pairwise sum stays within a few ulps.
  const int64_t n = 10'000'000;
  std::vector<double> x(n);
  std::vector<float> xf(n);
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  long double ref = 0, reff = 0;
  for (int64_t i = 0; i < n; ++i) {
    x[i] = 1e3 + u(rng);
    xf[i] = static_cast<float>(x[i]);
    ref += x[i];
    reff += xf[i];
  }
  const double s = qor::stats::pairwise_sum(x.data(), n);
  EXPECT_LT(std::fabs(s - static_cast<double>(ref)) / static_cast<double>(ref), 4e-16);
  const double sf = qor::stats::pairwise_sum(xf.data(), n);
  EXPECT_LT(std::fabs(sf - static_cast<double>(reff)) / static_cast<double>(reff), 4e-16);
  double swx, sw;
  qor::stats::pairwise_weighted_sum(x.data(), x.data(), n, &swx, &sw);
  long double ref2 = 0;
  for (int64_t i = 0; i < n; ++i) ref2 += static_cast<long double>(x[i]) * x[i];
  EXPECT_LT(std::fabs(swx - static_cast<double>(ref2)) / static_cast<double>(ref2), 1e-15);
  EXPECT_LT(std::fabs(sw - static_cast<double>(ref)) / static_cast<double>(ref), 4e-16);
  // The streaming form used for deviations: block sums combined pairwise.
  qor::stats::PairwiseAccumulator acc, accw;
  for (int64_t k0 = 0; k0 < n; k0 += 512) {
    double a, b;
    qor::stats::block_weighted_sum(xf.data() + k0, static_cast<const float *>(nullptr),
                                   std::min<int64_t>(512, n - k0), &a, &b);
    acc.add(a);
    accw.add(b);
  }
  EXPECT_LT(std::fabs(acc.value() - static_cast<double>(reff)) / static_cast<double>(reff), 4e-16);
  EXPECT_EQ(accw.value(), static_cast<double>(n));
  // A naive running sum in double does measurably worse on the same data,
  // which is what makes the bound above meaningful.
  double naive = 0;
  for (int64_t i = 0; i < n; ++i) naive += x[i];
  EXPECT_GT(std::fabs(naive - static_cast<double>(ref)) / static_cast<double>(ref), 4e-16);
}

}  // namespace

namespace {

// The sampling selection against a full sort, on data shapes that stress the
// bracket: heavy ties, two-valued halves, sorted and reversed runs, constants.
TEST(Selection, SamplingBracketMatchesSort) {
  std::mt19937_64 rng(99);
  auto make = [&](int shape, int64_t n) {
    std::vector<double> v(n);
    std::uniform_int_distribution<int> few(0, 3);
    std::normal_distribution<double> g;
    for (int64_t i = 0; i < n; ++i) {
      switch (shape) {
        case 0: v[i] = g(rng); break;
        case 1: v[i] = few(rng); break;
        case 2: v[i] = i < n / 2 ? 0.0 : 1000.0; break;
        case 3: v[i] = static_cast<double>(i); break;
        case 4: v[i] = static_cast<double>(n - i); break;
        case 5: v[i] = 7.0; break;
        default: v[i] = (i % 64 == 0) ? 1e9 : g(rng); break;
      }
    }
    return v;
  };
  for (int shape = 0; shape < 7; ++shape) {
    for (int64_t n : {4096, 5000, 65537, 200000}) {
      const std::vector<double> v = make(shape, n);
      std::vector<double> sorted = v;
      std::sort(sorted.begin(), sorted.end());
      for (int64_t k : {int64_t{0}, n / 2 - 1, n / 2, n - 2, n - 1, n / 7}) {
        for (bool in_place : {false, true}) {
          SCOPED_TRACE(::testing::Message() << "shape " << shape << " n " << n << " k " << k
                                            << " in_place " << in_place);
          std::vector<double> data = v, work(n);
          double a = -1, b = -1;
          ASSERT_TRUE(qor::stats::select_pair(data.data(), in_place ? data.data() : work.data(),
                                              n, k, true, in_place, &a, &b));
          EXPECT_EQ(a, sorted[k]);
          if (k + 1 < n) {
            EXPECT_EQ(b, sorted[k + 1]);
          }
          if (in_place) {
            std::sort(data.begin(), data.end());
            EXPECT_EQ(data, sorted) << "values must be permuted, not lost";
          } else {
            EXPECT_EQ(data, v) << "read-only data must stay untouched";
          }
        }
      }
    }
  }
}

TEST(Selection, NaNAnywhereIsReported) {
  for (int64_t n : {10, 100000}) {
    for (int64_t at : {int64_t{0}, n / 3, n - 1}) {
      std::vector<double> v(n, 1.0), work(n);
      v[at] = std::numeric_limits<double>::quiet_NaN();
      double a, b;
      EXPECT_FALSE(qor::stats::select_pair(v.data(), work.data(), n, n / 2, true, false, &a, &b))
          << n << " " << at;
    }
  }
}

// Several quantile orders on one variable, large enough for the sampling path.
TEST(Quantiles, SeveralOrdersFollowTheLinearRule) {
  const int64_t n = 50001;
  std::vector<float> x(n);
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> d(-50, 50);
  for (auto &e : x) e = static_cast<float>(d(rng)) * 0.25f;
  const std::vector<float> original = x;
  std::vector<float> sorted = x;
  std::sort(sorted.begin(), sorted.end());
  qor::stats::TaskRecord t;
  qor::stats::LocalInts ints;
  qor::stats::init_local_task(&t, &ints, n, x.data(), nullptr);
  const float orders[4] = {0.5f, 0.1f, 0.999f, 1.0f};
  float out[4];
  ints.quant_count = 4;
  t.set_ptr(qor::stats::kFieldQuantCount, &ints.quant_count);
  t.set_ptr(qor::stats::kFieldQuantOrders, orders);
  t.set_ptr(qor::stats::kFieldQuants, out);
  ASSERT_EQ(qor::stats::quantiles<float>(&t, 0x10000, 1, nullptr), 0);
  for (int i = 0; i < 4; ++i) {
    const double h = (n - 1) * static_cast<double>(orders[i]);
    const int64_t lo = static_cast<int64_t>(std::floor(h));
    const double want = lo + 1 < n ? sorted[lo] + (h - lo) * (sorted[lo + 1] - sorted[lo])
                                   : sorted[lo];
    EXPECT_NEAR(out[i], want, 1e-5) << orders[i];
  }
  EXPECT_EQ(x, original) << "the caller's values are only read";
}

}  // namespace
