// Interpolation and integration through the exported entry points.  The
// reference side finds cells by its own scan, evaluates the stored
// coefficients by its own power sums in long double, and integrates with
// Gauss-Legendre quadrature per piece (exact for the degrees involved).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "qor/fit.h"
#include "qor/fit_construct.h"
#include "qor/fit_interp.h"
#include "fit/task.h"

namespace {

using Ctor = int32_t (*)(qor_df_task_t *, qor_df_threader_fn, const void *, int32_t);

template <typename T>
struct Api;
template <>
struct Api<double> {
  static constexpr auto interp = qor_df_kernel_dDFInterpolate1D;
  static constexpr auto integ = qor_df_kernel_dDFIntegrate1D;
  static int32_t make(qor_df_task_t **t, int64_t nx, const double *x, int64_t xh, int64_t ny,
                      const double *y, int64_t yh, uint32_t w) {
    return qor_df_kernel_dNewTask1D(t, nx, x, xh, ny, y, yh, w);
  }
  static int32_t edit(qor_df_task_t *t, int64_t o, int64_t ty, int64_t bt, const double *bc,
                      int64_t it, const double *ic, double *c) {
    return qor_df_kernel_dEditPPSpline1D(t, o, ty, bt, bc, it, ic, c, 0);
  }
};
template <>
struct Api<float> {
  static constexpr auto interp = qor_df_kernel_sDFInterpolate1D;
  static constexpr auto integ = qor_df_kernel_sDFIntegrate1D;
  static int32_t make(qor_df_task_t **t, int64_t nx, const float *x, int64_t xh, int64_t ny,
                      const float *y, int64_t yh, uint32_t w) {
    return qor_df_kernel_sNewTask1D(t, nx, x, xh, ny, y, yh, w);
  }
  static int32_t edit(qor_df_task_t *t, int64_t o, int64_t ty, int64_t bt, const float *bc,
                      int64_t it, const float *ic, float *c) {
    return qor_df_kernel_sEditPPSpline1D(t, o, ty, bt, bc, it, ic, c, 0);
  }
};

enum class Kind { kLinear, kQuadratic, kQuadraticKnots, kNatural, kAkima, kHyman };

struct KindInfo {
  Kind kind;
  const char *name;
  int order;
};
const KindInfo kKinds[] = {
    {Kind::kLinear, "linear", 2},     {Kind::kQuadratic, "quadratic", 3},
    {Kind::kQuadraticKnots, "knots", 3}, {Kind::kNatural, "natural", 4},
    {Kind::kAkima, "akima", 4},       {Kind::kHyman, "hyman", 4},
};

// A constructed spline with its data; ny functions stored one after another.
template <typename T>
struct Spline {
  qor_df_task_t *task = nullptr;
  std::vector<T> x, y, coeff, ic, bc{T(0.25), T(-0.5)};
  int64_t nx = 0, ny = 0, order = 0;
  bool knotted = false, uniform = false;
  ~Spline() {
    if (task) qor_df_kernel_DeleteTask(&task);
  }

  void build(Kind kind, int64_t n, int64_t functions, bool uni, uint32_t int64_results = 1,
             uint64_t seed = 7) {
    nx = n, ny = functions, uniform = uni;
    std::mt19937_64 g(seed);
    std::uniform_real_distribution<double> step(0.3, 1.7), val(-2.0, 2.0);
    x.resize(nx);
    x[0] = T(-1.5);
    for (int64_t i = 1; i < nx; ++i) x[i] = uni ? T(-1.5 + 0.75 * i) : T(x[i - 1] + step(g));
    y.resize(nx * ny);
    for (auto &v : y) v = T(val(g));
    Ctor ctor = nullptr;
    int64_t bt = QOR_DF_BC_FREE_END, type = 0, ict = 0;
    const T *icp = nullptr;
    const bool dbl = sizeof(T) == 8;
    switch (kind) {
      case Kind::kLinear:
        order = 2, bt = 0;
        ctor = dbl ? qor_df_kernel_dDFLinearSpline1D : qor_df_kernel_sDFLinearSpline1D;
        break;
      case Kind::kQuadratic:
        order = 3, bt = QOR_DF_BC_QUADRATIC_LEFT_SLOPE;
        ctor = dbl ? qor_df_kernel_dDFQuadraticSpline1D : qor_df_kernel_sDFQuadraticSpline1D;
        break;
      case Kind::kQuadraticKnots:
        order = 3, type = 1, ict = QOR_DF_IC_KNOTS, knotted = true;
        ic.resize(nx - 1);
        for (int64_t i = 0; i + 1 < nx; ++i) ic[i] = T(x[i] + (x[i + 1] - x[i]) * 0.4);
        icp = ic.data();
        ctor = dbl ? qor_df_kernel_dDFQuadraticSpline1D : qor_df_kernel_sDFQuadraticSpline1D;
        break;
      case Kind::kNatural:
        order = 4;
        ctor = dbl ? qor_df_kernel_dDFNaturalCubicSpline1D : qor_df_kernel_sDFNaturalCubicSpline1D;
        break;
      case Kind::kAkima:
        order = 4, bt = 0;
        ctor = dbl ? qor_df_kernel_dDFAkimaCubicSpline1D : qor_df_kernel_sDFAkimaCubicSpline1D;
        break;
      case Kind::kHyman:
        order = 4;
        ctor = dbl ? qor_df_kernel_dDFHymanCubicSpline1D : qor_df_kernel_sDFHymanCubicSpline1D;
        break;
    }
    const int64_t pieces = knotted ? nx : nx - 1;
    coeff.assign(pieces * order * ny, T(0));
    ASSERT_EQ(Api<T>::make(&task, nx, x.data(), uni ? QOR_DF_UNIFORM_PARTITION : QOR_DF_NO_HINT, ny,
                           y.data(), QOR_DF_STORAGE_ROWS, int64_results),
              0);
    ASSERT_EQ(Api<T>::edit(task, order, type, bt, bc.data(), ict, icp, coeff.data()), 0);
    ASSERT_EQ(ctor(task, nullptr, nullptr, 1), 0);
  }

  int64_t pieces() const { return knotted ? nx : nx - 1; }
  // Reference cell index (the table of qor/fit.h), by a plain scan.
  int64_t ref_cell(T t) const {
    if (std::isnan(t) || t < x[0]) return 0;
    if (t == x[nx - 1]) return nx - 1;
    int64_t k = 0;
    while (k < nx && x[k] <= t) ++k;
    return k;
  }
  int64_t ref_piece(T t) const {
    if (knotted) {
      int64_t k = 0;
      while (k < nx - 1 && ic[k] <= t) ++k;
      return k;
    }
    return std::clamp<int64_t>(ref_cell(t) - 1, 0, nx - 2);
  }
  long double origin(int64_t k) const {
    if (uniform) return (long double)x[0] + k * (((long double)x[nx - 1] - x[0]) / (nx - 1));
    return x[k];
  }
  // Derivative der of piece k of function j at t, by the power sum.
  long double eval(int64_t j, int64_t k, long double t, int der) const {
    const T *c = coeff.data() + j * pieces() * order + k * order;
    const long double u = t - (long double)(T)origin(k);
    long double s = 0;
    for (int m = der; m < order; ++m) {
      long double f = 1;
      for (int q = 0; q < der; ++q) f *= m - q;
      s += f * c[m] * std::pow(u, m - der);
    }
    return s;
  }
  long double ref(int64_t j, T t, int der) const { return eval(j, ref_piece(t), t, der); }

  // Integral from a to b by 3-point Gauss-Legendre on every piece overlap.
  long double ref_integral(int64_t j, long double a, long double b) const {
    if (b < a) return -ref_integral(j, b, a);
    std::vector<long double> cuts{a};
    for (int64_t k = 0; k + 1 < pieces(); ++k) {
      const long double e = knotted ? (long double)ic[k] : (long double)(T)origin(k + 1);
      if (e > a && e < b) cuts.push_back(e);
    }
    cuts.push_back(b);
    const long double gx[3] = {-std::sqrt(0.6L), 0.0L, std::sqrt(0.6L)};
    const long double gw[3] = {5.0L / 9, 8.0L / 9, 5.0L / 9};
    long double s = 0;
    for (size_t q = 0; q + 1 < cuts.size(); ++q) {
      const long double lo = cuts[q], hi = cuts[q + 1], mid = (lo + hi) / 2, half = (hi - lo) / 2;
      const int64_t k = ref_piece(T(mid));
      for (int g = 0; g < 3; ++g) s += half * gw[g] * eval(j, k, mid + half * gx[g], 0);
    }
    return s;
  }
};

template <typename T>
std::vector<T> test_sites(const Spline<T> &s, int64_t extra, uint64_t seed) {
  std::vector<T> t(s.x.begin(), s.x.end());  // every breakpoint
  if (s.knotted) t.insert(t.end(), s.ic.begin(), s.ic.end());
  std::mt19937_64 g(seed);
  std::uniform_real_distribution<double> u(s.x[0] - 2.0, s.x[s.nx - 1] + 2.0);
  for (int64_t i = 0; i < extra; ++i) t.push_back(T(u(g)));
  t.push_back(T(s.x[0] - 10));
  t.push_back(T(s.x[s.nx - 1] + 10));
  std::shuffle(t.begin(), t.end(), g);
  return t;
}

template <typename T>
double tol() {
  return sizeof(T) == 8 ? 1e-11 : 2e-4;
}

template <typename T>
class Interp : public ::testing::Test {};
using Types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Interp, Types);

// Every spline kind, both partitions, both layouts, every derivative subset
// and both index widths: values, derivatives and cells against the reference.
TYPED_TEST(Interp, ValuesDerivativesAndCellsMatchTheCoefficients) {
  using T = TypeParam;
  for (const KindInfo &k : kKinds) {
    for (bool uni : {false, true}) {
      for (uint32_t w64 : {0u, 1u}) {
        SCOPED_TRACE(std::string(k.name) + (uni ? " uniform" : " non-uniform") + (w64 ? " i64" : " i32"));
        Spline<T> s;
        s.build(k.kind, 23, 3, uni, w64);
        const std::vector<T> t = test_sites(s, 600, 11);  // more than two blocks
        const int64_t n = (int64_t)t.size();
        const std::vector<std::vector<int64_t>> orders = {{1}, {0, 1, 1, 1}, {0, 0, 1}, {1, 0, 1, 1}, {0, 0, 0, 1}};
        for (const auto &dord : orders) {
          std::vector<int> want;
          for (size_t q = 0; q < dord.size(); ++q)
            if (dord[q]) want.push_back((int)q);
          const int64_t nd = (int64_t)want.size();
          for (int64_t hint : {int64_t{0}, int64_t{QOR_DF_MATRIX_STORAGE_COLS}}) {
            std::vector<T> r(s.ny * n * nd, T(-777));
            std::vector<int64_t> c64(n, -5);
            std::vector<int32_t> c32(n, -5);
            void *cell = w64 ? (void *)c64.data() : (void *)c32.data();
            ASSERT_EQ(Api<T>::interp(s.task, QOR_DF_INTERP | QOR_DF_CELL, n, t.data(), 0,
                                     (int64_t)dord.size(), dord.data(), nullptr, r.data(), hint,
                                     cell, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
                      0);
            for (int64_t i = 0; i < n; ++i) {
              const int64_t got = w64 ? c64[i] : c32[i];
              ASSERT_EQ(got, s.ref_cell(t[i])) << "site " << t[i];
              for (int64_t j = 0; j < s.ny; ++j)
                for (int64_t q = 0; q < nd; ++q) {
                  const T v = hint ? r[(j * nd + q) * n + i] : r[(j * n + i) * nd + q];
                  const long double e = s.ref(j, t[i], want[q]);
                  ASSERT_NEAR(v, (double)e, tol<T>() * (1 + std::fabs((double)e)))
                      << "site " << t[i] << " function " << j << " derivative " << want[q];
                }
            }
          }
        }
      }
    }
  }
}

// The spline passes through its data at every breakpoint (the site on x[i]
// uses the cell it opens, the right end the last cell).
TYPED_TEST(Interp, BreakpointsGiveTheData) {
  using T = TypeParam;
  for (const KindInfo &k : kKinds) {
    SCOPED_TRACE(k.name);
    Spline<T> s;
    s.build(k.kind, 17, 2, false);
    std::vector<T> r(s.ny * s.nx);
    ASSERT_EQ(Api<T>::interp(s.task, QOR_DF_INTERP, s.nx, s.x.data(), QOR_DF_SITES_SORTED, 1, nullptr,
                             nullptr, r.data(), 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr),
              0);
    for (int64_t j = 0; j < s.ny; ++j)
      for (int64_t i = 0; i < s.nx; ++i)
        EXPECT_NEAR(r[j * s.nx + i], s.y[j * s.nx + i], 10 * tol<T>()) << i;
  }
}

// Every search method the entry point may choose (sorted sites, peak hint,
// quasi-uniform hint, cell table, caller's function) gives the same results.
TYPED_TEST(Interp, SearchChoiceDoesNotChangeResults) {
  using T = TypeParam;
  Spline<T> s;
  s.build(Kind::kNatural, 300, 1, false);
  std::vector<T> t = test_sites(s, 700, 3);
  std::sort(t.begin(), t.end());
  const int64_t n = (int64_t)t.size();
  auto run = [&](int64_t site_hint, const T *data_hint, qor_df_dsearch_fn dfn, qor_df_ssearch_fn sfn) {
    std::vector<T> r(n);
    int32_t st;
    if constexpr (sizeof(T) == 8)
      st = Api<T>::interp(s.task, QOR_DF_INTERP, n, t.data(), site_hint, 1, nullptr, data_hint, r.data(),
                          0, nullptr, nullptr, nullptr, dfn, nullptr, nullptr, nullptr);
    else
      st = Api<T>::interp(s.task, QOR_DF_INTERP, n, t.data(), site_hint, 1, nullptr, data_hint, r.data(),
                          0, nullptr, nullptr, nullptr, sfn, nullptr, nullptr, nullptr);
    EXPECT_EQ(st, 0);
    return r;
  };
  const std::vector<T> base = run(0, nullptr, nullptr, nullptr);
  for (int64_t i = 0; i < n; ++i) ASSERT_NEAR(base[i], (double)s.ref(0, t[i], 0), tol<T>() * 10);
  const T peak[2] = {T(QOR_DF_DATA_PEAK), T(150)};
  EXPECT_EQ(run(QOR_DF_SITES_SORTED, nullptr, nullptr, nullptr), base);
  EXPECT_EQ(run(0, peak, nullptr, nullptr), base);
  // A guess of 0 everywhere: the kernel settles every site by scanning.
  auto zero_d = [](int64_t *m, const double *, int64_t *g, int32_t *, void *, void *) -> int32_t {
    std::fill(g, g + *m, 0);
    return 0;
  };
  auto zero_s = [](int64_t *m, const float *, int64_t *g, int32_t *, void *, void *) -> int32_t {
    std::fill(g, g + *m, 0);
    return 0;
  };
  EXPECT_EQ(run(0, nullptr, zero_d, zero_s), base);
  ASSERT_EQ(qor_df_kernel_iEditVal(s.task, QOR_DF_ID_X_HINT, QOR_DF_QUASI_UNIFORM_PARTITION), 0);
  EXPECT_EQ(run(0, nullptr, nullptr, nullptr), base);
}

// Outside the partition the end cells continue; NaN sites give NaN and cell
// 0; the caller's extrapolation function replaces the continuation.
TYPED_TEST(Interp, ExtrapolationAndNaN) {
  using T = TypeParam;
  Spline<T> s;
  s.build(Kind::kAkima, 9, 2, false);
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const std::vector<T> t = {T(s.x[0] - 1), nan, T(s.x[8] + 0.5), s.x[3], T(s.x[0] - 0.1)};
  const int64_t n = (int64_t)t.size(), dord[3] = {1, 1, 1};
  std::vector<T> r(s.ny * n * 3);
  std::vector<int64_t> cell(n);
  ASSERT_EQ(Api<T>::interp(s.task, 3, n, t.data(), 0, 3, dord, nullptr, r.data(), 0, cell.data(),
                           nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(cell, (std::vector<int64_t>{0, 0, 9, 4, 0}));
  for (int64_t j = 0; j < s.ny; ++j) {
    for (int q = 0; q < 3; ++q) {
      EXPECT_TRUE(std::isnan(r[(j * n + 1) * 3 + q]));
      EXPECT_NEAR(r[(j * n + 0) * 3 + q], (double)s.eval(j, 0, t[0], q), tol<T>() * 10);
      EXPECT_NEAR(r[(j * n + 2) * 3 + q], (double)s.eval(j, 7, t[2], q), tol<T>() * 10);
    }
  }
  using Fn = std::conditional_t<sizeof(T) == 8, qor_df_dextrap_fn, qor_df_sextrap_fn>;
  Fn efn = [](int64_t func, T site, int64_t c, T *d, void *user) -> int32_t {
    ++*static_cast<int *>(user);
    d[0] = T(100 * func + c), d[1] = site, d[2] = T(-1), d[3] = T(7);
    return 0;
  };
  int calls = 0;
  ASSERT_EQ(Api<T>::interp(s.task, QOR_DF_INTERP, n, t.data(), 0, 3, dord, nullptr, r.data(),
                           QOR_DF_MATRIX_STORAGE_COLS, nullptr, efn, &calls, nullptr, nullptr, nullptr,
                           nullptr),
            0);
  EXPECT_EQ(calls, 3 * 2);  // three outside sites (not the NaN), two functions
  EXPECT_EQ(r[(1 * 3 + 0) * n + 2], T(109));
  EXPECT_EQ(r[(0 * 3 + 1) * n + 4], t[4]);
  EXPECT_NEAR(r[(0 * 3 + 0) * n + 3], (double)s.eval(0, 3, t[3], 0), tol<T>() * 10);
  Fn failing = [](int64_t, T, int64_t, T *, void *) -> int32_t { return -42; };
  EXPECT_EQ(Api<T>::interp(s.task, QOR_DF_INTERP, n, t.data(), 0, 1, nullptr, nullptr, r.data(), 0,
                           nullptr, failing, nullptr, nullptr, nullptr, nullptr, nullptr),
            -42);
}

// Integrals against Gauss-Legendre: inside, across many cells (both the
// cell-by-cell sum and the running integral), outside, reversed, empty.
TYPED_TEST(Interp, IntegralsMatchQuadrature) {
  using T = TypeParam;
  for (const KindInfo &k : kKinds) {
    for (bool uni : {false, true}) {
      SCOPED_TRACE(std::string(k.name) + (uni ? " uniform" : ""));
      Spline<T> s;
      s.build(k.kind, 150, 2, uni);
      std::vector<T> a, b;
      std::mt19937_64 g(5);
      std::uniform_real_distribution<double> u(s.x[0] - 3, s.x[s.nx - 1] + 3);
      for (int i = 0; i < 300; ++i) a.push_back(T(u(g))), b.push_back(T(u(g)));
      a.push_back(s.x[0]), b.push_back(s.x[s.nx - 1]);
      a.push_back(s.x[5]), b.push_back(s.x[5]);
      a.push_back(s.x[40]), b.push_back(s.x[2]);
      const int64_t n = (int64_t)a.size();
      for (int64_t hint : {int64_t{0}, int64_t{QOR_DF_MATRIX_STORAGE_COLS}}) {
        std::vector<T> r(n * s.ny);
        ASSERT_EQ(Api<T>::integ(s.task, n, a.data(), 0, b.data(), 0, r.data(), hint, nullptr, nullptr,
                                nullptr),
                  0);
        for (int64_t j = 0; j < s.ny; ++j)
          for (int64_t i = 0; i < n; ++i) {
            const double e = (double)s.ref_integral(j, a[i], b[i]);
            const T v = hint ? r[i * s.ny + j] : r[j * n + i];
            ASSERT_NEAR(v, e, (sizeof(T) == 8 ? 1e-9 : 2e-2) * (1 + std::fabs(e)))
                << "[" << a[i] << ", " << b[i] << "] function " << j;
          }
      }
    }
  }
}

TYPED_TEST(Interp, IntegralOfNaNLimitIsNaN) {
  using T = TypeParam;
  Spline<T> s;
  s.build(Kind::kNatural, 10, 1, false);
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const T a[3] = {nan, s.x[0], nan}, b[3] = {s.x[3], nan, nan};
  T r[3];
  ASSERT_EQ(Api<T>::integ(s.task, 3, a, 0, b, 0, r, 0, nullptr, nullptr, nullptr), 0);
  for (T v : r) EXPECT_TRUE(std::isnan(v));
}

// Every status of both entry points, in check order, nothing written.
TEST(InterpStatus, EveryStatusInOrder) {
  Spline<double> s;
  s.build(Kind::kNatural, 8, 1, false);
  const double t[2] = {0.1, 0.2};
  double r[8] = {-9, -9, -9, -9, -9, -9, -9, -9};
  int64_t cell[2] = {-9, -9};
  const int64_t none[2] = {0, 0}, one = 1;
  struct Case {
    const char *what;
    const qor_df_task_t *task;
    int64_t type, n;
    const double *site;
    int64_t site_hint, nd;
    const int64_t *dord;
    double *r;
    int64_t r_hint;
    void *cell;
    int32_t want;
  };
  qor_df_task_t *st = nullptr;
  const float fx[2] = {0, 1};
  ASSERT_EQ(qor_df_kernel_sNewTask1D(&st, 2, fx, 0, 0, nullptr, 0, 1), 0);
  const Case cases[] = {
      {"null task", nullptr, 1, 2, t, 0, 1, nullptr, r, 0, cell, -1000},
      {"single task", st, 1, 2, t, 0, 1, nullptr, r, 0, cell, -1002},
      {"type 0", s.task, 0, 2, t, 0, 1, nullptr, r, 0, cell, -1018},
      {"type 4", s.task, 4, 2, t, 0, 1, nullptr, r, 0, cell, -1018},
      {"nsite", s.task, 1, -1, t, 0, 1, nullptr, r, 0, cell, -1021},
      {"site", s.task, 1, 2, nullptr, 0, 1, nullptr, r, 0, cell, -1022},
      {"site hint", s.task, 1, 2, t, 2, 1, nullptr, r, 0, cell, -1023},
      {"ndorder 0", s.task, 1, 2, t, 0, 0, nullptr, r, 0, cell, -1024},
      {"ndorder 5", s.task, 1, 2, t, 0, 5, nullptr, r, 0, cell, -1024},
      {"dorder empty", s.task, 1, 2, t, 0, 2, none, r, 0, cell, -1025},
      {"r", s.task, 1, 2, t, 0, 1, &one, nullptr, 0, cell, -1027},
      {"r hint", s.task, 1, 2, t, 0, 1, &one, r, 64, cell, -1028},
      {"cell", s.task, 3, 2, t, 0, 1, &one, r, 0, nullptr, -1029},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(qor_df_kernel_dDFInterpolate1D(c.task, c.type, c.n, c.site, c.site_hint, c.nd, c.dord,
                                             nullptr, c.r, c.r_hint, c.cell, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr),
              c.want)
        << c.what;
  }
  // Cells only: the derivative arguments are not read.
  EXPECT_EQ(qor_df_kernel_dDFInterpolate1D(s.task, QOR_DF_CELL, 2, t, 0, 0, none, nullptr, nullptr, 99,
                                           cell, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(cell[0], 2);
  cell[0] = -9;
  // Spline checks.
  auto interp = [&](qor_df_task_t *task) {
    return qor_df_kernel_dDFInterpolate1D(task, 1, 2, t, 0, 1, nullptr, nullptr, r, 0, nullptr, nullptr,
                                          nullptr, nullptr, nullptr, nullptr, nullptr);
  };
  auto integ = [&](qor_df_task_t *task) {
    return qor_df_kernel_dDFIntegrate1D(task, 2, t, 0, t, 0, r, 0, nullptr, nullptr, nullptr);
  };
  ASSERT_EQ(qor_df_kernel_iEditVal(s.task, QOR_DF_ID_SPLINE_ORDER, 5), 0);
  EXPECT_EQ(interp(s.task), -1010);
  EXPECT_EQ(integ(s.task), -1010);
  ASSERT_EQ(qor_df_kernel_iEditVal(s.task, QOR_DF_ID_SPLINE_ORDER, 0), 0);
  EXPECT_EQ(interp(s.task), -1010);
  ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(s.task, 3, 1, 2, nullptr, 0, nullptr, s.coeff.data(), 0), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(s.task, QOR_DF_ID_IC_TYPE, QOR_DF_IC_KNOTS), 0);
  EXPECT_EQ(interp(s.task), -1013);
  EXPECT_EQ(integ(s.task), -1013);
  // No coefficients; ny raised beyond the coefficient table; a slot unset.
  qor_df_task_t *bare = nullptr;
  ASSERT_EQ(qor_df_kernel_dNewTask1D(&bare, 8, s.x.data(), 0, 1, s.y.data(), 0, 1), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(bare, QOR_DF_ID_SPLINE_ORDER, 4), 0);
  EXPECT_EQ(interp(bare), -1016);
  EXPECT_EQ(integ(bare), -1016);
  ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(bare, 4, 0, 2, nullptr, 0, nullptr, s.coeff.data(), 0), 0);
  ASSERT_EQ(qor_df_kernel_iEditVal(bare, QOR_DF_ID_NY, 3), 0);
  EXPECT_EQ(interp(bare), -1007);
  EXPECT_EQ(integ(bare), -1007);
  ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(bare, 4, 0, 2, nullptr, 0, nullptr, s.coeff.data(), 128), 0);
  EXPECT_EQ(interp(bare), -1016);  // slots 1 and 2 never set
  qor_df_kernel_DeleteTask(&bare);
  ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(s.task, 4, 0, 2, nullptr, 0, nullptr, s.coeff.data(), 0), 0);
  EXPECT_EQ(interp(s.task), 0);
  // Integration argument checks.
  struct ICase {
    const char *what;
    const qor_df_task_t *task;
    int64_t n;
    const double *a;
    int64_t ah;
    const double *b;
    int64_t bh;
    double *r;
    int64_t rh;
    int32_t want;
  };
  const ICase icases[] = {
      {"null task", nullptr, 2, t, 0, t, 0, r, 0, -1000},
      {"single task", st, 2, t, 0, t, 0, r, 0, -1002},
      {"nlim", s.task, -1, t, 0, t, 0, r, 0, -1030},
      {"llim", s.task, 2, nullptr, 0, t, 0, r, 0, -1031},
      {"rlim", s.task, 2, t, 0, nullptr, 0, r, 0, -1032},
      {"llim hint", s.task, 2, t, 3, t, 0, r, 0, -1033},
      {"rlim hint", s.task, 2, t, 0, t, -1, r, 0, -1033},
      {"r", s.task, 2, t, 0, t, 0, nullptr, 0, -1034},
      {"r hint", s.task, 2, t, 0, t, 0, r, 1, -1035},
  };
  r[0] = -9;
  for (const ICase &c : icases)
    EXPECT_EQ(qor_df_kernel_dDFIntegrate1D(c.task, c.n, c.a, c.ah, c.b, c.bh, c.r, c.rh, nullptr,
                                           nullptr, nullptr),
              c.want)
        << c.what;
  EXPECT_EQ(r[0], -9);
  // A record whose live mark is not 1: 0 and nothing done, whatever else is
  // wrong with the call.
  auto *rec = reinterpret_cast<qor::fit::Task *>(s.task);
  rec->live = 0;
  r[0] = -9;
  cell[0] = -9;
  EXPECT_EQ(qor_df_kernel_dDFInterpolate1D(s.task, 3, 2, t, 0, 1, nullptr, nullptr, r, 0, cell, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(qor_df_kernel_dDFInterpolate1D(s.task, 9, -1, nullptr, 0, 1, nullptr, nullptr, r, 0, cell,
                                           nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            0);
  EXPECT_EQ(qor_df_kernel_dDFIntegrate1D(s.task, 2, t, 0, t, 0, r, 0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(r[0], -9);
  EXPECT_EQ(cell[0], -9);
  rec->live = 1;
  qor_df_kernel_DeleteTask(&st);
}

// A negative status of the caller's search function comes back unchanged.
TEST(InterpStatus, SearchFunctionFailurePassesThrough) {
  Spline<double> s;
  s.build(Kind::kLinear, 6, 1, false);
  const double t[3] = {0.0, 1.0, 2.0};
  double r[3];
  auto bad = [](int64_t *, const double *, int64_t *, int32_t *, void *, void *) -> int32_t { return -77; };
  EXPECT_EQ(qor_df_kernel_dDFInterpolate1D(s.task, 1, 3, t, 0, 1, nullptr, nullptr, r, 0, nullptr,
                                           nullptr, nullptr, bad, nullptr, nullptr, nullptr),
            -77);
  EXPECT_EQ(qor_df_kernel_dDFIntegrate1D(s.task, 3, t, 0, t, 0, r, 0, bad, nullptr, nullptr), -77);
}

}  // namespace
