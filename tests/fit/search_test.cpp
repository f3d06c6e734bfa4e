// Cell search: every method in every width form against an independent
// reference rule, over uniform, quasi-uniform and non-uniform partitions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "fit/task.h"
#include "qor/fit.h"

namespace {

using qor::fit::Task;

// Reference: the cell of t is the number of breakpoints not above it, except
// that the right end belongs to the last inner cell.
template <class T>
int64_t reference_cell(const std::vector<T> &x, T t) {
  const int64_t nx = static_cast<int64_t>(x.size());
  if (t == x[nx - 1]) return nx - 1;
  int64_t count = 0;
  int64_t lo = 0, hi = nx;  // count of x[k] <= t by bisection on the predicate
  while (lo < hi) {
    const int64_t mid = lo + (hi - lo) / 2;
    if (x[mid] <= t) lo = mid + 1;
    else hi = mid;
  }
  count = lo;
  return count;
}

enum M { kUniform, kQuasi, kSorted, kPeak, kHybrid, kMethods };

enum F { k32, k64, k64Pack, kGen32, kGen64, kForms };
const char *kForm[] = {"32", "64", "64Pack", "(general,32)", "(general,64)"};

template <class T>
struct Api;

#define QOR_TEST_API(P, T, FN)                                                                   \
  template <>                                                                                    \
  struct Api<T> {                                                                                \
    using F32 = int32_t (*)(int64_t, const T *, int64_t, const T *, int32_t *, T,                \
                            const int64_t *, int32_t *);                                         \
    using F64 = int32_t (*)(int64_t, const T *, int64_t, const T *, int64_t *, T,                \
                            const int64_t *, int64_t *);                                         \
    using FG = int32_t (*)(int64_t, const T *, int64_t, const T *, void *, T, const int64_t *,   \
                           void *, int32_t);                                                     \
    using U32 = int32_t (*)(int64_t, const T *, int64_t, const T *, int32_t *, T,                \
                            const int64_t *, int32_t *, int64_t *, FN, void *, void *, int32_t *); \
    using U64 = int32_t (*)(int64_t, const T *, int64_t, const T *, int64_t *, T,                \
                            const int64_t *, int64_t *, int64_t *, FN, void *, void *, int32_t *); \
    using UG = int32_t (*)(int64_t, const T *, int64_t, const T *, void *, T, const int64_t *,   \
                           void *, int64_t *, FN, void *, void *, int32_t *, int32_t);            \
    using Fn = FN;                                                                               \
    static constexpr F32 m32[] = {                                                               \
        qor_df_kernel_##P##DFUniformSearch1D32, qor_df_kernel_##P##DFQuasiUniformSearch1D32,     \
        qor_df_kernel_##P##DFSortedSearch1D32, qor_df_kernel_##P##DFPeakSearch1D32,              \
        qor_df_kernel_##P##DFHybridSearch1D32};                                                  \
    static constexpr F64 m64[] = {                                                               \
        qor_df_kernel_##P##DFUniformSearch1D64, qor_df_kernel_##P##DFQuasiUniformSearch1D64,     \
        qor_df_kernel_##P##DFSortedSearch1D64, qor_df_kernel_##P##DFPeakSearch1D64,              \
        qor_df_kernel_##P##DFHybridSearch1D64};                                                  \
    static constexpr F64 pack[] = {                                                              \
        qor_df_kernel_##P##DFUniformSearch1D64Pack,                                              \
        qor_df_kernel_##P##DFQuasiUniformSearch1D64Pack,                                         \
        qor_df_kernel_##P##DFSortedSearch1D64Pack, qor_df_kernel_##P##DFPeakSearch1D64Pack,      \
        qor_df_kernel_##P##DFHybridSearch1D64Pack};                                              \
    static constexpr FG gen[] = {                                                                \
        qor_df_kernel_##P##DFUniformSearch1D, qor_df_kernel_##P##DFQuasiUniformSearch1D,         \
        qor_df_kernel_##P##DFSortedSearch1D, qor_df_kernel_##P##DFPeakSearch1D,                  \
        qor_df_kernel_##P##DFHybridSearch1D};                                                    \
    static constexpr U32 user32[] = {qor_df_kernel_##P##DFUserDefSearch1D32,                     \
                                     qor_df_kernel_##P##DFUniUserDefSearch1D32};                 \
    static constexpr U64 user64[] = {qor_df_kernel_##P##DFUserDefSearch1D64,                     \
                                     qor_df_kernel_##P##DFUniUserDefSearch1D64};                 \
    static constexpr UG userg[] = {qor_df_kernel_##P##DFUserDefSearch1D,                         \
                                   qor_df_kernel_##P##DFUniUserDefSearch1D};                     \
    static int32_t new_task(qor_df_task_t **t, int64_t nx, const T *x, int64_t xh, uint32_t f) { \
      return qor_df_kernel_##P##NewTask1D(t, nx, x, xh, 0, nullptr, 0, f);                       \
    }                                                                                            \
    static constexpr auto search = qor_df_kernel_##P##DFSearch1D;                                \
  };

QOR_TEST_API(s, float, qor_df_ssearch_fn)
QOR_TEST_API(d, double, qor_df_dsearch_fn)

// Runs one method in one form; `carried` is the Sorted method's start index.
template <class T>
std::vector<int64_t> run(int m, int f, const std::vector<T> &x, const T *xarg,
                         const std::vector<T> &s, T scale, const int64_t *tab, int64_t carried = 0,
                         int64_t *carried_out = nullptr) {
  using A = Api<T>;
  const int64_t nx = static_cast<int64_t>(x.size()), n = static_cast<int64_t>(s.size());
  std::vector<int64_t> out(n, -77);
  int32_t st;
  if (f == k32 || f == kGen32) {
    std::vector<int32_t> o(n, -77);
    int32_t c = static_cast<int32_t>(carried);
    st = f == k32 ? A::m32[m](nx, xarg, n, s.data(), &c, scale, tab, o.data())
                  : A::gen[m](nx, xarg, n, s.data(), &c, scale, tab, o.data(), 0);
    std::copy(o.begin(), o.end(), out.begin());
    if (carried_out) *carried_out = c;
  } else {
    int64_t c = carried;
    st = f == k64 ? A::m64[m](nx, xarg, n, s.data(), &c, scale, tab, out.data())
         : f == k64Pack ? A::pack[m](nx, xarg, n, s.data(), &c, scale, tab, out.data())
                        : A::gen[m](nx, xarg, n, s.data(), &c, scale, tab, out.data(), 1);
    if (carried_out) *carried_out = c;
  }
  EXPECT_EQ(st, 0);
  return out;
}

// Partitions: 0 uniform (exact binary grid), 1 quasi-uniform, 2 non-uniform.
template <class T>
std::vector<T> partition(int kind, int64_t nx, std::mt19937_64 &rng) {
  std::vector<T> x(nx);
  std::uniform_real_distribution<double> u(0, 1);
  if (kind == 0) {
    // h a power of two and a non-negative left end on the h grid: every
    // breakpoint, the scale 1/h and t - left are exact, so the uniform
    // method's arithmetic sees the same partition as the reference.
    const double h = 0.125;
    const double left = h * std::floor(16 * u(rng));
    for (int64_t i = 0; i < nx; ++i) x[i] = static_cast<T>(left + h * double(i));
    return x;
  }
  double pos = -50 * u(rng);
  for (int64_t i = 0; i < nx; ++i) {
    double w = kind == 1 ? 0.8 + 0.4 * u(rng) : std::exp(10 * u(rng) - 5) * (u(rng) < 0.02 ? 1e3 : 1);
    x[i] = static_cast<T>(pos);
    if (i > 0 && !(x[i] > x[i - 1])) x[i] = std::nextafter(x[i - 1], T(INFINITY));
    pos = double(x[i]) + w;
  }
  return x;
}

template <class T>
std::vector<T> sites_for(const std::vector<T> &x, std::mt19937_64 &rng, int64_t random_count) {
  const int64_t nx = static_cast<int64_t>(x.size());
  const T lo = x[0], hi = x[nx - 1], span = hi - lo;
  std::vector<T> s;
  std::uniform_real_distribution<double> u(-0.1, 1.1);
  for (int64_t i = 0; i < random_count; ++i) s.push_back(static_cast<T>(lo + span * u(rng)));
  const int64_t step = std::max<int64_t>(1, nx / 4000);
  for (int64_t k = 0; k < nx; k += step) {
    s.push_back(x[k]);
    s.push_back(std::nextafter(x[k], T(-INFINITY)));
    s.push_back(std::nextafter(x[k], T(INFINITY)));
  }
  for (T v : {x[0], x[nx - 1], std::nextafter(x[nx - 1], T(-INFINITY)),
              std::nextafter(x[nx - 1], T(INFINITY)), T(lo - span), T(hi + span),
              std::numeric_limits<T>::max(), std::numeric_limits<T>::lowest(),
              std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity()})
    s.push_back(v);
  std::shuffle(s.begin(), s.end(), rng);
  return s;
}

template <class T>
void expect_cells(const std::vector<T> &x, const std::vector<T> &s,
                  const std::vector<int64_t> &got, int64_t nan_cell, const char *what) {
  for (size_t i = 0; i < s.size(); ++i) {
    const int64_t want = std::isnan(s[i]) ? nan_cell : reference_cell(x, s[i]);
    if (got[i] != want) {
      ADD_FAILURE() << what << ": site " << s[i] << " (index " << i << ") got " << got[i]
                    << " want " << want << " nx " << x.size();
      return;
    }
  }
}

template <class T>
class FitSearch : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FitSearch, Precisions);

TYPED_TEST(FitSearch, EveryMethodAndWidthMatchesReference) {
  using T = TypeParam;
  std::mt19937_64 rng(20261122);
  const T kNaN = std::numeric_limits<T>::quiet_NaN();
  for (int kind = 0; kind < 3; ++kind) {
    for (int64_t nx : {2, 3, 4, 5, 7, 33, 64, 271, 1000, 4099, 20000, 100000}) {
      SCOPED_TRACE(::testing::Message() << "kind " << kind << " nx " << nx);
      const std::vector<T> x = partition<T>(kind, nx, rng);
      std::vector<T> s = sites_for(x, rng, 3000);
      s.push_back(kNaN);
      std::swap(s.back(), s[s.size() / 2]);
      qor_df_task_t *task = nullptr;
      ASSERT_EQ(Api<T>::new_task(&task, nx, x.data(), kind == 1 ? 2 : 1, 1), 0);
      const Task *rec = reinterpret_cast<const Task *>(task);
      T cell_scale;
      if constexpr (sizeof(T) == 8) cell_scale = rec->cell_scale.d;
      else cell_scale = rec->cell_scale.s;
      const T index_scale = static_cast<T>(nx - 1) / (x[nx - 1] - x[0]);
      const T ends[2] = {x[0], x[nx - 1]};
      // Scans from a poor guess cost O(nx) a site: fewer sites for those.
      std::vector<T> few(s.begin(), s.begin() + std::min<size_t>(s.size(), 4000000 / nx + 64));
      few.push_back(kNaN);
      std::vector<T> sorted;
      for (T v : s)
        if (!std::isnan(v)) sorted.push_back(v);
      std::sort(sorted.begin(), sorted.end());
      sorted.push_back(kNaN);
      for (int f = 0; f < kForms; ++f) {
        if (kind == 0) {
          auto got = run<T>(kUniform, f, x, ends, s, index_scale, nullptr);
          expect_cells(x, s, got, 0, (std::string("Uniform") + kForm[f]).c_str());
        }
        const std::vector<T> &qs = kind == 2 ? few : s;
        expect_cells(x, qs, run<T>(kQuasi, f, x, x.data(), qs, index_scale, nullptr), 0,
                     (std::string("QuasiUniform") + kForm[f]).c_str());
        expect_cells(x, s, run<T>(kHybrid, f, x, x.data(), s, cell_scale, rec->cell_table), 0,
                     (std::string("Hybrid") + kForm[f]).c_str());
        expect_cells(x, sorted, run<T>(kSorted, f, x, x.data(), sorted, T(0), nullptr), nx,
                     (std::string("Sorted") + kForm[f]).c_str());
        for (int64_t p : {int64_t{0}, nx / 2, nx - 1, nx, nx + 5, int64_t{-3}})
          expect_cells(x, few, run<T>(kPeak, f, x, x.data(), few, static_cast<T>(p), nullptr), 0,
                       (std::string("Peak") + kForm[f]).c_str());
      }
      // The general entry on the task, with every hint it can be given.
      for (uint32_t w : {0u, 1u}) {
        qor_df_task_t *t2 = nullptr;
        ASSERT_EQ(Api<T>::new_task(&t2, nx, x.data(), kind == 0 ? 4 : kind == 1 ? 2 : 1, w), 0);
        const T peak[2] = {T(QOR_DF_DATA_PEAK), static_cast<T>(nx / 3)};
        struct Call {
          const std::vector<T> *sites;
          int64_t site_hint;
          const T *data_hint;
        } calls[] = {{&s, QOR_DF_SITES_NO_INFO, nullptr},
                     {&sorted, QOR_DF_SITES_SORTED, nullptr},
                     {&few, QOR_DF_SITES_NO_INFO, peak}};
        for (const Call &c : calls) {
          const std::vector<T> &cs = *c.sites;
          std::vector<int64_t> got(cs.size());
          if (w) {
            ASSERT_EQ(Api<T>::search(t2, cs.size(), cs.data(), c.site_hint, c.data_hint, got.data(),
                                     nullptr, nullptr, nullptr, nullptr, nullptr),
                      0);
          } else {
            std::vector<int32_t> g32(cs.size());
            ASSERT_EQ(Api<T>::search(t2, cs.size(), cs.data(), c.site_hint, c.data_hint, g32.data(),
                                     nullptr, nullptr, nullptr, nullptr, nullptr),
                      0);
            std::copy(g32.begin(), g32.end(), got.begin());
          }
          expect_cells(x, cs, got, 0, "general entry");
        }
        qor_df_kernel_DeleteTask(&t2);
      }
      qor_df_kernel_DeleteTask(&task);
    }
  }
}

// The hybrid method keeps several groups of sites in flight and the
// quasi-uniform method stages blocks of 32; batch lengths around those sizes
// (and a batch whose sites all lie outside the partition, which must not scan
// a table cell) check that no site is lost, repeated or mixed with its
// neighbour's bracket.
TYPED_TEST(FitSearch, BatchLengthsAroundGroupSizes) {
  using T = TypeParam;
  std::mt19937_64 rng(99);
  const T kNaN = std::numeric_limits<T>::quiet_NaN();
  for (int kind : {1, 2}) {
    const std::vector<T> x = partition<T>(kind, 5000, rng);
    qor_df_task_t *task = nullptr;
    ASSERT_EQ(Api<T>::new_task(&task, 5000, x.data(), 1, 1), 0);
    const Task *rec = reinterpret_cast<const Task *>(task);
    T cell_scale;
    if constexpr (sizeof(T) == 8) cell_scale = rec->cell_scale.d;
    else cell_scale = rec->cell_scale.s;
    const T index_scale = static_cast<T>(x.size() - 1) / (x.back() - x.front());
    std::vector<T> pool = sites_for(x, rng, 600);
    pool[7] = kNaN;
    const T span = x.back() - x.front();
    const std::vector<T> outside = {x.back() + span, x.back(), x.front() - span, kNaN,
                                    std::numeric_limits<T>::infinity()};
    for (size_t n : {1, 15, 16, 17, 31, 32, 33, 95, 96, 97, 111, 250}) {
      SCOPED_TRACE(::testing::Message() << "kind " << kind << " n " << n);
      const std::vector<T> s(pool.begin(), pool.begin() + n);
      std::vector<T> out_only(n);
      for (size_t i = 0; i < n; ++i) out_only[i] = outside[i % outside.size()];
      for (int f = 0; f < kForms; ++f) {
        expect_cells(x, s, run<T>(kHybrid, f, x, x.data(), s, cell_scale, rec->cell_table), 0,
                     (std::string("Hybrid") + kForm[f]).c_str());
        expect_cells(x, out_only,
                     run<T>(kHybrid, f, x, x.data(), out_only, cell_scale, rec->cell_table), 0,
                     (std::string("Hybrid outside") + kForm[f]).c_str());
        expect_cells(x, s, run<T>(kQuasi, f, x, x.data(), s, index_scale, nullptr), 0,
                     (std::string("QuasiUniform") + kForm[f]).c_str());
      }
    }
    qor_df_kernel_DeleteTask(&task);
  }
}

TYPED_TEST(FitSearch, SortedCarriesIndexAcrossCalls) {
  using T = TypeParam;
  std::mt19937_64 rng(7);
  for (int64_t nx : {2, 9, 1000, 30001}) {
    const std::vector<T> x = partition<T>(2, nx, rng);
    std::vector<T> s = sites_for(x, rng, 2000);
    std::sort(s.begin(), s.end());
    for (int f = 0; f < kForms; ++f) {
      int64_t carried = -1;
      const auto whole = run<T>(kSorted, f, x, x.data(), s, T(0), nullptr, 0, &carried);
      const size_t cut = s.size() / 3;
      std::vector<T> a(s.begin(), s.begin() + cut), b(s.begin() + cut, s.end());
      int64_t mid = -1, end = -1;
      auto ra = run<T>(kSorted, f, x, x.data(), a, T(0), nullptr, 0, &mid);
      auto rb = run<T>(kSorted, f, x, x.data(), b, T(0), nullptr, mid, &end);
      ra.insert(ra.end(), rb.begin(), rb.end());
      EXPECT_EQ(ra, whole) << kForm[f];
      EXPECT_EQ(end, carried);
      EXPECT_EQ(carried, nx);  // the largest sites are above the partition
    }
  }
}

TYPED_TEST(FitSearch, SmallPartitionAndNaNRules) {
  using T = TypeParam;
  const std::vector<T> x = {T(1), T(3)};
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const std::vector<T> s = {T(0), T(1), T(2), T(3), T(4), nan};
  const std::vector<int64_t> want = {0, 1, 1, 1, 2, 0};
  for (int f = 0; f < kForms; ++f) {
    EXPECT_EQ(run<T>(kUniform, f, x, x.data(), s, T(0.5), nullptr), want) << kForm[f];
    EXPECT_EQ(run<T>(kQuasi, f, x, x.data(), s, T(0.5), nullptr), want) << kForm[f];
    EXPECT_EQ(run<T>(kPeak, f, x, x.data(), s, T(1), nullptr), want) << kForm[f];
    std::vector<int64_t> sorted_want = want;
    sorted_want.back() = 2;  // the sorted method's NaN rule
    EXPECT_EQ(run<T>(kSorted, f, x, x.data(), s, T(0), nullptr), sorted_want) << kForm[f];
  }
}

// A table cell whose bracket is 41 breakpoints wide is bisected once, one of
// 40 is scanned; both find the same cell.  The table is made by hand.
TYPED_TEST(FitSearch, HybridBracketWidthsAroundTheSwitch) {
  using T = TypeParam;
  const int64_t nx = 300;
  std::vector<T> x(nx);
  for (int64_t i = 0; i < nx; ++i) x[i] = T(i);
  const int64_t m = qor::fit::cell_count_for(nx);  // 18
  for (int64_t width : {40, 41, 42, 299}) {
    std::vector<int64_t> tab(2 * m + 4);
    for (int64_t j = 0; j <= m + 1; ++j) {
      tab[2 * j] = 0;
      tab[2 * j + 1] = std::min<int64_t>(width, nx - 1);
    }
    std::vector<T> s;
    for (int64_t i = 0; i < std::min<int64_t>(width, nx - 1); ++i) {
      s.push_back(T(i));
      s.push_back(T(i) + T(0.5));
    }
    // Scale 0: every site falls in table cell 0.
    for (int f = 0; f < kForms; ++f)
      expect_cells(x, s, run<T>(kHybrid, f, x, x.data(), s, T(0), tab.data()), 0,
                   (std::string("width ") + std::to_string(width)).c_str());
  }
}

// A table that does not belong to the partition (garbage brackets) must not
// take the search outside x: every index stays in [0, nx].
TYPED_TEST(FitSearch, HybridStaysInsideWithForeignTable) {
  using T = TypeParam;
  const int64_t nx = 100;
  std::vector<T> x(nx);
  for (int64_t i = 0; i < nx; ++i) x[i] = T(i);
  const int64_t m = qor::fit::cell_count_for(nx);
  std::vector<int64_t> tab(2 * m + 4);
  for (size_t k = 0; k < tab.size(); ++k) tab[k] = k % 3 == 0 ? -1000000 : k % 3 == 1 ? 1000000 : 7;
  std::vector<T> s;
  for (int i = -10; i < 120; ++i) s.push_back(T(i) + T(0.25));
  for (int f = 0; f < kForms; ++f)
    for (int64_t c : run<T>(kHybrid, f, x, x.data(), s, T(1e6), tab.data())) {
      ASSERT_GE(c, 0);
      ASSERT_LE(c, nx);
    }
}

// ---- user-defined methods -----------------------------------------------

template <class T>
struct UserState {
  const std::vector<T> *x;
  int32_t result;
  int calls;
};

// Guesses: exact for even sites (flagged), wild for odd ones (unflagged).
template <class T>
int32_t guesser(int64_t *n, const T *site, int64_t *guess, int32_t *flags, void *u1, void *u2) {
  auto *st = static_cast<UserState<T> *>(u1);
  (void)u2;
  ++st->calls;
  for (int64_t i = 0; i < *n; ++i) {
    if (i % 2 == 0) {
      guess[i] = reference_cell(*st->x, site[i]);
      flags[i] = 1;
    } else {
      const int64_t wild[] = {-5, 0, 1, static_cast<int64_t>(st->x->size()) + 9, 3 * i};
      guess[i] = wild[i % 5];
      flags[i] = 0;
    }
  }
  return st->result;
}

TYPED_TEST(FitSearch, UserDefinedMethods) {
  using T = TypeParam;
  using A = Api<T>;
  std::mt19937_64 rng(99);
  for (int kind : {0, 2}) {
    for (int64_t nx : {2, 5, 100, 3000}) {
      const std::vector<T> x = partition<T>(kind, nx, rng);
      std::vector<T> s = sites_for(x, rng, 500);
      s.push_back(std::numeric_limits<T>::quiet_NaN());
      const int64_t n = static_cast<int64_t>(s.size());
      const T ends[2] = {x[0], x[nx - 1]};
      const T scale = static_cast<T>(nx - 1) / (x[nx - 1] - x[0]);
      std::vector<int32_t> flags(n);
      std::vector<int64_t> guess(n);
      for (int uni = 0; uni < (kind == 0 ? 2 : 1); ++uni) {
        const T *xa = uni ? ends : x.data();
        for (int32_t result : {0, 7}) {
          UserState<T> st{&x, result, 0};
          std::vector<int64_t> o64(n, -9), o64b(n, -9), og(n, -9);
          std::vector<int32_t> o32(n, -9);
          EXPECT_EQ(A::user64[uni](nx, xa, n, s.data(), nullptr, scale, nullptr, o64.data(), nullptr,
                                   guesser<T>, &st, nullptr, flags.data()),
                    result);
          EXPECT_EQ(A::user64[uni](nx, xa, n, s.data(), nullptr, scale, nullptr, o64b.data(),
                                   guess.data(), guesser<T>, &st, nullptr, flags.data()),
                    result);
          EXPECT_EQ(A::user32[uni](nx, xa, n, s.data(), nullptr, scale, nullptr, o32.data(),
                                   guess.data(), guesser<T>, &st, nullptr, flags.data()),
                    result);
          EXPECT_EQ(A::userg[uni](nx, xa, n, s.data(), nullptr, scale, nullptr, og.data(),
                                  guess.data(), guesser<T>, &st, nullptr, flags.data(), 1),
                    result);
          EXPECT_EQ(st.calls, 4);
          expect_cells(x, s, o64, 0, "UserDef 64, staged in output");
          expect_cells(x, s, o64b, 0, "UserDef 64");
          expect_cells(x, s, og, 0, "UserDef general");
          expect_cells(x, s, std::vector<int64_t>(o32.begin(), o32.end()), 0, "UserDef 32");
        }
        // 1000: every guess final, copied unchanged; UserDef passes 1000 on,
        // UniUserDef reports 0.
        UserState<T> st{&x, 1000, 0};
        std::vector<int32_t> o32(n, -9);
        EXPECT_EQ(A::user32[uni](nx, xa, n, s.data(), nullptr, scale, nullptr, o32.data(), guess.data(),
                                 guesser<T>, &st, nullptr, flags.data()),
                  uni ? 0 : 1000);
        for (int64_t i = 0; i < n; ++i) ASSERT_EQ(o32[i], static_cast<int32_t>(guess[i]));
        EXPECT_EQ(o32[3], static_cast<int32_t>(nx + 9));
        // Negative: returned at once, nothing written.
        st.result = -42;
        std::vector<int64_t> o(n, -9);
        EXPECT_EQ(A::user64[uni](nx, xa, n, s.data(), nullptr, scale, nullptr, o.data(), guess.data(),
                                 guesser<T>, &st, nullptr, flags.data()),
                  -42);
        EXPECT_EQ(o, std::vector<int64_t>(n, -9));
        // The general entry on a task uses the caller's function.
        st.result = 3;
        qor_df_task_t *t = nullptr;
        ASSERT_EQ(A::new_task(&t, nx, x.data(), kind == 0 ? 4 : 1, 1), 0);
        EXPECT_EQ(A::search(t, n, s.data(), 0, nullptr, o.data(), guesser<T>, &st, nullptr, flags.data(),
                            guess.data()),
                  3);
        expect_cells(x, s, o, 0, "general entry with a search function");
        qor_df_kernel_DeleteTask(&t);
      }
    }
  }
}

TEST(FitSearchArgs, GeneralEntryChecks) {
  std::vector<double> x = {0, 1, 2, 3};
  std::vector<float> xf = {0, 1, 2, 3};
  qor_df_task_t *t = nullptr;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&t, 4, x.data(), 0, 0, nullptr, 0, 1), 0);
  double s[2] = {0.5, 2.5};
  float sf[2] = {0.5f, 2.5f};
  int64_t c[2] = {-1, -1};
  EXPECT_EQ(qor_df_kernel_dDFSearch1D(nullptr, 2, s, 0, nullptr, c, nullptr, nullptr, nullptr,
                                      nullptr, nullptr),
            -1000);
  EXPECT_EQ(qor_df_kernel_sDFSearch1D(t, 2, sf, 0, nullptr, c, nullptr, nullptr, nullptr, nullptr,
                                      nullptr),
            -1002);
  EXPECT_EQ(qor_df_kernel_dDFSearch1D(t, 2, s, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr),
            -1037);
  EXPECT_EQ(qor_df_kernel_dDFSearch1D(t, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr),
            0);
  // A stale table (x edited) is not used; the answer follows the new x.
  std::vector<double> x2 = {0, 0.1, 0.2, 3};
  ASSERT_EQ(qor_df_kernel_dEditPtr(t, 1, x2.data()), 0);
  ASSERT_EQ(qor_df_kernel_dDFSearch1D(t, 2, s, 0, nullptr, c, nullptr, nullptr, nullptr, nullptr,
                                      nullptr),
            0);
  EXPECT_EQ(c[0], 3);
  EXPECT_EQ(c[1], 3);
  qor_df_kernel_DeleteTask(&t);
  // Width forms refuse a partition below two points and null arrays.
  int64_t carried = 0;
  EXPECT_EQ(qor_df_kernel_dDFSortedSearch1D64(1, x.data(), 2, s, &carried, 0, nullptr, c), -1004);
  EXPECT_EQ(qor_df_kernel_dDFSortedSearch1D64(4, nullptr, 2, s, &carried, 0, nullptr, c), -1005);
  EXPECT_EQ(qor_df_kernel_dDFSortedSearch1D64(4, x.data(), 2, s, &carried, 0, nullptr, nullptr), -1037);
  EXPECT_EQ(qor_df_kernel_dDFHybridSearch1D64(4, x.data(), 2, s, &carried, 0, nullptr, c), -1002);
  EXPECT_EQ(qor_df_kernel_dDFUserDefSearch1D64(4, x.data(), 2, s, &carried, 0, nullptr, c, nullptr,
                                               nullptr, nullptr, nullptr, nullptr),
            -1002);
  int32_t c32[2];
  EXPECT_EQ(qor_df_kernel_sDFUserDefSearch1D32(4, xf.data(), 2, sf, nullptr, 0, nullptr, c32, nullptr,
                                               guesser<float>, nullptr, nullptr, nullptr),
            -1001);
}

}  // namespace
