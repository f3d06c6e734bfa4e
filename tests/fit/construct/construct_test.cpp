// Spline construction through the exported entry points: every status in its
// order with no coefficient written, every spline kind and boundary kind on
// both partitions and all function storages, and the parallel-for.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "qor/core.h"
#include "qor/fit.h"
#include "qor/fit_construct.h"
#include "fit/task.h"
#include "spline_test_util.h"

namespace {

using qor::fit::testing::akima_reference;
using qor::fit::testing::eval_cubic;
using qor::fit::testing::parabola_slope;

using Ctor = int32_t (*)(qor_df_task_t *, qor_df_threader_fn, const void *, int32_t);

struct Named {
  const char *name;
  Ctor d;
  Ctor s;
};

const Named kCtors[] = {
    {"Linear", qor_df_kernel_dDFLinearSpline1D, qor_df_kernel_sDFLinearSpline1D},
    {"Quadratic", qor_df_kernel_dDFQuadraticSpline1D, qor_df_kernel_sDFQuadraticSpline1D},
    {"Natural", qor_df_kernel_dDFNaturalCubicSpline1D, qor_df_kernel_sDFNaturalCubicSpline1D},
    {"Default", qor_df_kernel_dDFDefaultCubicSpline1D, qor_df_kernel_sDFDefaultCubicSpline1D},
    {"Hermite", qor_df_kernel_dDFHermiteCubicSpline1D, qor_df_kernel_sDFHermiteCubicSpline1D},
    {"Bessel", qor_df_kernel_dDFBesselCubicSpline1D, qor_df_kernel_sDFBesselCubicSpline1D},
    {"Hyman", qor_df_kernel_dDFHymanCubicSpline1D, qor_df_kernel_sDFHymanCubicSpline1D},
    {"Akima", qor_df_kernel_dDFAkimaCubicSpline1D, qor_df_kernel_sDFAkimaCubicSpline1D},
};

Ctor by_name(const std::string &n, bool dbl = true) {
  for (const Named &c : kCtors)
    if (n == c.name) return dbl ? c.d : c.s;
  return nullptr;
}

// A task with its own data, freed on scope exit.
template <typename T>
struct Fixture {
  qor_df_task_t *task = nullptr;
  std::vector<T> x, y, coeff, bc{T(0.5), T(-0.25)}, ic;
  int64_t nx, ny;
  ~Fixture() {
    if (task) qor_df_kernel_DeleteTask(&task);
  }
  Fixture(int64_t nx_, int64_t ny_, int64_t x_hint, int64_t y_hint, int64_t order, int64_t type, int64_t bc_type,
          int64_t ic_type = 0, bool with_bc = true, unsigned seed = 1)
      : nx(nx_), ny(ny_) {
    std::mt19937_64 g(seed);
    std::uniform_real_distribution<double> u(0.4, 1.6), v(-1, 1);
    x.resize(nx);
    x[0] = T(-2);
    for (int64_t i = 1; i < nx; ++i) x[i] = x[i - 1] + T(x_hint == 4 ? 0.5 : u(g));
    y.resize(nx * ny);
    for (int64_t j = 0; j < ny; ++j)
      for (int64_t i = 0; i < nx; ++i) {
        const T val = T(std::cos(double(x[i]) * (1 + 0.3 * j)) + 0.2 * v(g));
        y[y_hint == 32 ? i * ny + j : j * nx + i] = val;
      }
    if (bc_type == 64) {
      for (int64_t j = 0; j < ny; ++j) {
        if (y_hint == 32) y[(nx - 1) * ny + j] = y[j];
        else y[j * nx + nx - 1] = y[j * nx];
      }
    }
    ic.resize(std::max<int64_t>(1, nx * ny));  // Hermite reads (nx-2) ny, knots nx-1
    for (size_t i = 0; i < ic.size(); ++i) ic[i] = T(0.05 * double(i % 7) - 0.1);
    const int64_t stride = (type == 1 ? nx : nx - 1) * order;
    coeff.assign(std::max<int64_t>(1, stride * ny), std::numeric_limits<T>::quiet_NaN());
    int32_t st;
    if constexpr (sizeof(T) == 8) {
      st = qor_df_kernel_dNewTask1D(&task, nx, x.data(), x_hint, ny, y.data(), y_hint, 0);
    } else {
      st = qor_df_kernel_sNewTask1D(&task, nx, x.data(), x_hint, ny, y.data(), y_hint, 0);
    }
    EXPECT_EQ(st, 0);
    if (y_hint == 128) {
      for (int64_t j = 1; j < ny; ++j) {
        if constexpr (sizeof(T) == 8) {
          EXPECT_EQ(qor_df_kernel_dEditIdxPtr(task, 2, j, y.data() + j * nx), 0);
        } else {
          EXPECT_EQ(qor_df_kernel_sEditIdxPtr(task, 2, j, y.data() + j * nx), 0);
        }
      }
    }
    const T *bcp = with_bc ? bc.data() : nullptr;
    const T *icp = ic_type ? ic.data() : nullptr;
    // Without an array the description goes in with a type that needs none;
    // the value editor then sets the real type, which it does not check
    // against the array (the constructors do).
    const int64_t first_type = with_bc ? bc_type : 2;
    if constexpr (sizeof(T) == 8) {
      st = qor_df_kernel_dEditPPSpline1D(task, order, type, first_type, bcp, ic_type, icp, coeff.data(), 0);
    } else {
      st = qor_df_kernel_sEditPPSpline1D(task, order, type, first_type, bcp, ic_type, icp, coeff.data(), 0);
    }
    EXPECT_EQ(st, 0);
    EXPECT_EQ(qor_df_kernel_iEditVal(task, 21, bc_type), 0);
  }
  T yv(int64_t j, int64_t i, int64_t y_hint) const { return y[y_hint == 32 ? i * ny + j : j * nx + i]; }
  bool untouched() const {
    for (T c : coeff)
      if (!std::isnan(c)) return false;
    return true;
  }
};

// Creation and the editors refuse y hints other than 0, 16, 32 and 128, so a
// record carrying one can only come from memory being overwritten behind the
// editors' back; the constructors must refuse it all the same.
void poke_y_hint(qor_df_task_t *task, int64_t hint) { reinterpret_cast<qor::fit::Task *>(task)->y_hint = hint; }

// ---- statuses ------------------------------------------------------------------

struct StatusCase {
  const char *ctor;
  int64_t nx, x_hint, y_hint, order, type, bc_type, ic_type;
  bool with_bc;
  const void *reserved;
  int32_t want;
};

const int kNonNull = 1;

TEST(ConstructStatus, EveryCheckInItsOrderWritesNothing) {
  const int64_t bad_hint = 48;  // edited in after creation; admitted by nothing
  const StatusCase cases[] = {
      // Linear: nx, reserved, y hint
      {"Linear", 2, 0, bad_hint, 2, 0, 0, 0, true, &kNonNull, -1002},
      {"Linear", 2, 0, bad_hint, 2, 0, 0, 0, true, nullptr, -1009},
      {"Linear", 2, 0, 0, 3, 0, 0, 0, true, nullptr, -1010},
      // Quadratic: spline type, boundary type 128, array, y hint
      {"Quadratic", 4, 0, bad_hint, 3, 2, 128, 0, true, nullptr, -1002},
      {"Quadratic", 4, 0, bad_hint, 3, 0, 12, 0, true, nullptr, -1014},
      {"Quadratic", 4, 0, bad_hint, 3, 0, 128, 0, false, nullptr, -1015},
      {"Quadratic", 4, 0, bad_hint, 3, 0, 128, 0, true, nullptr, -1009},
      // Natural: nx (2 with type 1), reserved, y hint, boundary type, array
      {"Natural", 2, 0, bad_hint, 4, 0, 1, 0, true, &kNonNull, -1004},
      {"Natural", 2, 0, bad_hint, 4, 0, 2, 0, true, &kNonNull, -1002},
      {"Natural", 2, 0, bad_hint, 4, 0, 7, 0, true, nullptr, -1009},
      {"Natural", 2, 0, 0, 4, 0, 7, 0, true, nullptr, -1014},
      {"Natural", 2, 0, 0, 4, 0, 0, 0, true, nullptr, -1014},
      {"Natural", 5, 0, 0, 4, 0, 12, 0, false, nullptr, -1015},
      {"Natural", 5, 0, 0, 4, 0, 64, 0, false, nullptr, -1015},
      {"Natural", 5, 0, 0, 4, 3, 64, 0, false, nullptr, -1015},
      {"Natural", 5, 0, 0, 3, 0, 2, 0, true, nullptr, -1010},
      // Default
      {"Default", 2, 0, bad_hint, 4, 0, 7, 0, true, nullptr, -1004},
      {"Default", 3, 0, bad_hint, 4, 0, 7, 0, true, nullptr, -1009},
      {"Default", 3, 0, 16, 4, 0, 7, 0, true, nullptr, -1014},
      // Hermite: nx, boundary range, y hint, classification, array, ic
      {"Hermite", 2, 0, bad_hint, 4, 0, 0, 1, true, nullptr, -1004},
      {"Hermite", 3, 0, bad_hint, 4, 0, 0, 1, true, nullptr, -1014},
      {"Hermite", 3, 0, bad_hint, 4, 0, 65, 1, true, nullptr, -1014},
      {"Hermite", 3, 0, bad_hint, 4, 0, 12, 1, true, nullptr, -1009},
      {"Hermite", 3, 0, 0, 4, 0, 3, 1, true, nullptr, -1014},
      {"Hermite", 3, 0, 0, 4, 0, 48, 1, false, nullptr, -1015},
      {"Hermite", 3, 0, 0, 4, 0, 48, 0, true, nullptr, -1012},
      {"Hermite", 3, 0, 0, 4, 0, 48, 2, true, nullptr, -1012},
      // Bessel and Hyman: nx 4
      {"Bessel", 3, 0, bad_hint, 4, 0, 0, 0, true, nullptr, -1004},
      {"Bessel", 4, 0, bad_hint, 4, 0, 0, 0, true, nullptr, -1014},
      {"Bessel", 4, 0, bad_hint, 4, 0, 2, 0, true, nullptr, -1009},
      {"Hyman", 3, 0, bad_hint, 4, 0, 2, 0, true, nullptr, -1004},
      {"Hyman", 4, 4, 0, 4, 0, 100, 0, true, nullptr, -1014},
      {"Hyman", 4, 4, 0, 4, 0, 36, 0, false, nullptr, -1015},
      // Akima: nx 5, type 0 admitted
      {"Akima", 4, 0, bad_hint, 4, 0, 0, 0, true, nullptr, -1004},
      {"Akima", 5, 0, bad_hint, 4, 0, 0, 0, true, nullptr, -1009},
      {"Akima", 5, 0, 0, 4, 0, 5, 0, true, nullptr, -1014},
      {"Akima", 5, 0, 0, 4, 0, 24, 0, false, nullptr, -1015},
      {"Akima", 5, 0, 0, 2, 0, 0, 0, true, nullptr, -1010},
  };
  for (const StatusCase &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.ctor << " nx " << c.nx << " bc " << c.bc_type << " want " << c.want);
    for (bool dbl : {true, false}) {
      auto check = [&](auto &f) {
        const int32_t st = by_name(c.ctor, dbl)(f.task, nullptr, c.reserved, 1);
        EXPECT_EQ(st, c.want) << (dbl ? "double" : "single");
        EXPECT_TRUE(f.untouched());
      };
      const int64_t create_hint = c.y_hint == bad_hint ? 0 : c.y_hint;
      if (dbl) {
        Fixture<double> f(c.nx, 2, c.x_hint, create_hint, c.order, c.type, c.bc_type, c.ic_type, c.with_bc);
        if (c.y_hint == bad_hint) poke_y_hint(f.task, bad_hint);
        check(f);
      } else {
        Fixture<float> f(c.nx, 2, c.x_hint, create_hint, c.order, c.type, c.bc_type, c.ic_type, c.with_bc);
        if (c.y_hint == bad_hint) poke_y_hint(f.task, bad_hint);
        check(f);
      }
    }
  }
}

TEST(ConstructStatus, TaskChecksAndFailedFactorisation) {
  for (const Named &c : kCtors) {
    EXPECT_EQ(c.d(nullptr, nullptr, nullptr, 1), -1000) << c.name;
    EXPECT_EQ(c.s(nullptr, nullptr, nullptr, 1), -1000) << c.name;
  }
  {
    // A double task handed to a single-precision constructor.
    Fixture<double> f(6, 1, 0, 0, 4, 0, 2);
    EXPECT_EQ(qor_df_kernel_sDFNaturalCubicSpline1D(f.task, nullptr, nullptr, 1), -1002);
    EXPECT_TRUE(f.untouched());
  }
  {
    // A record whose live mark is not 1 is left alone with status 0.
    Fixture<double> f(6, 1, 0, 0, 4, 0, 2);
    reinterpret_cast<qor::fit::Task *>(f.task)->live = 0;
    EXPECT_EQ(qor_df_kernel_dDFNaturalCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    EXPECT_TRUE(f.untouched());
    reinterpret_cast<qor::fit::Task *>(f.task)->live = 1;
  }
  {
    // Coefficients stored apart (hint 128) with only slot 0 set: nothing is
    // written until every function has its array, then the spline is built.
    Fixture<double> f(6, 2, 0, 0, 4, 0, 2);
    ASSERT_EQ(qor_df_kernel_dEditPPSpline1D(f.task, 4, 0, 2, nullptr, 0, nullptr, f.coeff.data(), 128), 0);
    EXPECT_EQ(qor_df_kernel_dDFNaturalCubicSpline1D(f.task, nullptr, nullptr, 1), -1016);
    EXPECT_TRUE(f.untouched());
    std::vector<double> second(4 * 5, std::numeric_limits<double>::quiet_NaN());
    ASSERT_EQ(qor_df_kernel_dEditIdxPtr(f.task, 5, 1, second.data()), 0);
    EXPECT_EQ(qor_df_kernel_dDFNaturalCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    EXPECT_EQ(second[0], f.y[6]);  // function 1 starts with its own first value
    EXPECT_TRUE(std::isnan(f.coeff[20]));  // slot 0's block ends after 5 cells
  }
  {
    // Periodic with spline type 1 needs no boundary array (types 0 and 3
    // do); type 1 keeps one extra cell of stride per function.
    Fixture<double> f(7, 2, 0, 0, 4, 1, 64, 0, false);
    ASSERT_EQ(qor_df_kernel_dDFNaturalCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    for (int64_t j = 0; j < 2; ++j) {
      const double *c = f.coeff.data() + j * 4 * 7;
      EXPECT_NEAR(c[1], eval_cubic(c + 4 * 5, f.x[6] - f.x[5], 1), 1e-10);
      EXPECT_TRUE(std::isnan(c[4 * 6]));  // the extra cell is not written
    }
  }
  {
    // Akima on 5 breakpoints with its own end rule.
    Fixture<double> f(5, 1, 0, 0, 4, 0, 0);
    ASSERT_EQ(qor_df_kernel_dDFAkimaCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    std::vector<double> ref = akima_reference(f.x, f.y, false);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(f.coeff[4 * i + 1], ref[i], 1e-13);
  }
  for (bool dbl : {true, false}) {
    // Breakpoints doubling back (x[2] == x[0]) make the second pivot of the
    // slope system with given end slopes exactly zero: -1500, nothing written.
    auto run = [&](auto &f) {
      f.x[2] = f.x[0];
      EXPECT_EQ(by_name("Natural", dbl)(f.task, nullptr, nullptr, 1), -1500);
      EXPECT_TRUE(f.untouched());
    };
    if (dbl) {
      Fixture<double> f(6, 2, 0, 0, 4, 0, 12);
      f.x = {0, 1, 2, 3, 4, 5};
      reinterpret_cast<qor::fit::Task *>(f.task)->x = f.x.data();
      run(f);
    } else {
      Fixture<float> f(6, 2, 0, 0, 4, 0, 12);
      f.x = {0, 1, 2, 3, 4, 5};
      reinterpret_cast<qor::fit::Task *>(f.task)->x = f.x.data();
      run(f);
    }
  }
}

// ---- spline kinds ----------------------------------------------------------------

// Width of cell i as the kernels see it (uniform: from the ends only).
template <typename T>
double width(const Fixture<T> &f, int64_t i, int64_t x_hint) {
  if (x_hint == 4) return (double(f.x[f.nx - 1]) - double(f.x[0])) / double(f.nx - 1);
  return double(f.x[i + 1]) - double(f.x[i]);
}

struct C2Case {
  const char *ctor;
  int64_t bc_type, x_hint, y_hint;
};

TEST(ConstructC2, InterpolatesIsC2AndMeetsEveryBoundaryCondition) {
  std::vector<C2Case> cases;
  for (const char *ctor : {"Natural", "Default"})
    for (int64_t bct : {1, 2, 12, 36, 24, 48, 64})
      for (int64_t xh : {0, 1, 2, 4})
        for (int64_t yh : {0, 16, 32, 128}) cases.push_back({ctor, bct, xh, yh});
  for (const C2Case &c : cases) {
    SCOPED_TRACE(::testing::Message() << c.ctor << " bc " << c.bc_type << " x hint " << c.x_hint << " y hint "
                                      << c.y_hint);
    const int64_t nx = 11, ny = 3;
    Fixture<double> f(nx, ny, c.x_hint, c.y_hint, 4, 2 /* array not needed for 64 */, c.bc_type);
    ASSERT_EQ(by_name(c.ctor)(f.task, nullptr, nullptr, 1), 0);
    const bool def = std::string(c.ctor) == "Default";
    const double tol = 1e-10;
    for (int64_t j = 0; j < ny; ++j) {
      const double *cf = f.coeff.data() + j * 4 * (nx - 1);
      auto piece = [&](int64_t i) { return cf + 4 * i; };
      for (int64_t i = 0; i + 1 < nx; ++i) {
        const double h = width(f, i, c.x_hint);
        EXPECT_EQ(piece(i)[0], f.yv(j, i, c.y_hint));
        EXPECT_NEAR(eval_cubic(piece(i), h, 0), f.yv(j, i + 1, c.y_hint), tol);
        if (i + 2 < nx) {
          EXPECT_NEAR(eval_cubic(piece(i), h, 1), eval_cubic(piece(i + 1), 0, 1), tol) << "C1 at " << i + 1;
          EXPECT_NEAR(eval_cubic(piece(i), h, 2), eval_cubic(piece(i + 1), 0, 2), 1e-9) << "C2 at " << i + 1;
        }
      }
      const int64_t L = nx - 2;
      const double hl = width(f, L, c.x_hint);
      const double *p0 = piece(0), *pl = piece(L);
      switch (c.bc_type) {
        case 1:
          EXPECT_NEAR(p0[3], piece(1)[3], 1e-9);
          EXPECT_NEAR(pl[3], piece(L - 1)[3], 1e-9);
          break;
        case 2:
          if (def) {
            EXPECT_NEAR(p0[3], 0, 1e-10);
            EXPECT_NEAR(pl[3], 0, 1e-10);
          } else {
            EXPECT_NEAR(eval_cubic(p0, 0, 2), 0, tol);
            EXPECT_NEAR(eval_cubic(pl, hl, 2), 0, tol);
          }
          break;
        case 64:
          EXPECT_NEAR(eval_cubic(p0, 0, 1), eval_cubic(pl, hl, 1), tol);
          EXPECT_NEAR(eval_cubic(p0, 0, 2), eval_cubic(pl, hl, 2), 1e-9);
          break;
        default: {
          const bool lf = c.bc_type == 12 || c.bc_type == 36;
          const bool rf = c.bc_type == 12 || c.bc_type == 24;
          EXPECT_NEAR(eval_cubic(p0, 0, lf ? 1 : 2), f.bc[0], tol);
          EXPECT_NEAR(eval_cubic(pl, hl, rf ? 1 : 2), f.bc[1], tol);
        }
      }
    }
  }
}

TEST(ConstructC2, StoragesPartitionsAndThreadsGiveTheSameCoefficients) {
  for (const char *ctor : {"Natural", "Default", "Akima", "Bessel", "Hyman", "Linear"}) {
    const int64_t nx = 40, ny = 5;
    const int64_t order = std::string(ctor) == "Linear" ? 2 : 4;
    Fixture<double> ref(nx, ny, 0, 0, order, 0, 2);
    ASSERT_EQ(by_name(ctor)(ref.task, nullptr, nullptr, 1), 0) << ctor;
    for (int64_t yh : {16, 32, 128}) {
      Fixture<double> f(nx, ny, 0, yh, order, 0, 2);
      ASSERT_EQ(by_name(ctor)(f.task, qor_rix_serv_threader_for, nullptr, yh == 32 ? 2 : 3), 0);
      for (size_t k = 0; k < ref.coeff.size(); ++k) ASSERT_EQ(f.coeff[k], ref.coeff[k]) << ctor << " " << yh << " " << k;
    }
    // Uniform partition: the kernel reads only the ends; the answer matches
    // the same partition described point by point.
    Fixture<double> u(nx, ny, 4, 0, order, 0, 2), p(nx, ny, 1, 0, order, 0, 2);
    for (int64_t i = 0; i < nx; ++i) p.x[i] = u.x[i];
    for (int64_t i = 1; i + 1 < nx; ++i) u.x[i] = std::numeric_limits<double>::quiet_NaN();
    p.y = u.y;
    ASSERT_EQ(by_name(ctor)(u.task, nullptr, nullptr, 1), 0);
    ASSERT_EQ(by_name(ctor)(p.task, nullptr, nullptr, 1), 0);
    for (size_t k = 0; k < u.coeff.size(); ++k) EXPECT_NEAR(u.coeff[k], p.coeff[k], 1e-11 * (1 + std::fabs(p.coeff[k]))) << ctor << " " << k;
  }
}

TEST(ConstructLocal, AkimaBesselHermiteSlopesMatchTheirFormulas) {
  const int64_t nx = 12, ny = 2;
  for (int64_t bct : {0, 64}) {
    Fixture<double> f(nx, ny, 0, 0, 4, 2, bct);
    ASSERT_EQ(qor_df_kernel_dDFAkimaCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    for (int64_t j = 0; j < ny; ++j) {
      std::vector<double> y(f.y.begin() + j * nx, f.y.begin() + (j + 1) * nx);
      std::vector<double> ref = akima_reference(f.x, y, bct == 64);
      for (int64_t i = 0; i + 1 < nx; ++i) EXPECT_NEAR(f.coeff[j * 4 * (nx - 1) + 4 * i + 1], ref[i], 1e-13) << bct << " " << i;
    }
  }
  {
    Fixture<double> f(nx, ny, 0, 0, 4, 0, 12);
    ASSERT_EQ(qor_df_kernel_dDFBesselCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    for (int64_t j = 0; j < ny; ++j) {
      const double *y = f.y.data() + j * nx, *cf = f.coeff.data() + j * 4 * (nx - 1);
      EXPECT_EQ(cf[1], f.bc[0]);
      for (int64_t i = 1; i + 1 < nx; ++i)
        EXPECT_NEAR(cf[4 * i + 1], parabola_slope(f.x[i - 1], f.x[i], f.x[i + 1], y[i - 1], y[i], y[i + 1]), 1e-13);
      // The right end slope bc[1] shows in the last cell's polynomial.
      EXPECT_NEAR(eval_cubic(cf + 4 * (nx - 2), f.x[nx - 1] - f.x[nx - 2], 1), f.bc[1], 1e-12);
    }
  }
  for (int64_t yh : {0, 32}) {
    Fixture<double> f(nx, ny, 0, yh, 4, 0, 2, 1);
    ASSERT_EQ(qor_df_kernel_dDFHermiteCubicSpline1D(f.task, nullptr, nullptr, 1), 0);
    for (int64_t j = 0; j < ny; ++j)
      for (int64_t i = 1; i + 1 < nx; ++i)
        EXPECT_EQ(f.coeff[j * 4 * (nx - 1) + 4 * i + 1], f.ic[j * (nx - 2) + i - 1]) << yh << " " << j << " " << i;
  }
}

TEST(ConstructLocal, HymanSplineOfMonotoneDataIsMonotone) {
  for (int64_t bct : {1, 2, 12, 48, 64}) {
    for (bool dbl : {true, false}) {
      auto run = [&](auto &f) {
        using T = typename std::decay_t<decltype(f.x)>::value_type;
        const int64_t nx = f.nx;
        // Increasing with long flats and jumps; the periodic case cannot be
        // monotone over the period, so it checks closure instead.
        for (int64_t i = 0; i < nx; ++i) f.y[i] = T((i % 4 == 0) ? i * 2.0 : i * 2.0 - 1.7 * (i % 4 == 1));
        for (int64_t i = 1; i < nx; ++i) f.y[i] = std::max(f.y[i], f.y[i - 1]);
        if (bct == 64) f.y[nx - 1] = f.y[0];
        ASSERT_EQ(by_name("Hyman", dbl)(f.task, nullptr, nullptr, 1), 0);
        double prev = -1e300;
        for (int64_t i = 0; i + 1 < nx; ++i) {
          const double h = double(f.x[i + 1]) - double(f.x[i]);
          for (int k = 0; k <= 64; ++k) {
            const double v = eval_cubic(f.coeff.data() + 4 * i, h * k / 64, 0);
            if (bct != 64) {
              EXPECT_GE(v, prev - 1e-5 * (1 + std::fabs(prev))) << bct << " cell " << i;
              prev = v;
            }
          }
        }
        if (bct == 64) {
          EXPECT_NEAR(double(f.coeff[1]), eval_cubic(f.coeff.data() + 4 * (nx - 2), double(f.x[nx - 1] - f.x[nx - 2]), 1), 1e-4);
        }
      };
      if (dbl) {
        Fixture<double> f(17, 1, 0, 0, 4, 0, bct);
        run(f);
      } else {
        Fixture<float> f(17, 1, 0, 0, 4, 0, bct);
        run(f);
      }
    }
  }
}

TEST(ConstructLowOrder, LinearAndQuadraticInterpolateInBothPrecisions) {
  for (int64_t xh : {0, 4})
    for (bool dbl : {true, false}) {
      auto check = [&](auto &lin, auto &quad) {
        ASSERT_EQ(by_name("Linear", dbl)(lin.task, nullptr, nullptr, 1), 0);
        ASSERT_EQ(by_name("Quadratic", dbl)(quad.task, nullptr, nullptr, 1), 0);
        const double tol = dbl ? 1e-12 : 2e-5;
        for (int64_t j = 0; j < lin.ny; ++j)
          for (int64_t i = 0; i + 1 < lin.nx; ++i) {
            const double h = width(lin, i, xh);
            const auto *l = lin.coeff.data() + j * 2 * (lin.nx - 1) + 2 * i;
            const auto *q = quad.coeff.data() + j * 3 * (quad.nx - 1) + 3 * i;
            EXPECT_NEAR(double(l[0]) + double(l[1]) * h, double(lin.yv(j, i + 1, 0)), tol);
            EXPECT_NEAR(double(q[0]) + double(q[1]) * h + double(q[2]) * h * h, double(quad.yv(j, i + 1, 0)), tol * 10);
            if (i == 0) {
              EXPECT_EQ(double(q[1]), double(quad.bc[0]));
            }
            if (i + 2 < quad.nx) {
              EXPECT_NEAR(double(q[1]) + 2 * double(q[2]) * h, double(q[4]), tol * 100) << "C1";
            }
          }
      };
      if (dbl) {
        Fixture<double> lin(9, 2, xh, 0, 2, 0, 0), quad(9, 2, xh, 0, 3, 0, 128);
        check(lin, quad);
      } else {
        Fixture<float> lin(9, 2, xh, 0, 2, 0, 0), quad(9, 2, xh, 0, 3, 0, 128);
        check(lin, quad);
      }
    }
}

TEST(ConstructC2, SinglePrecisionMatchesDoubleForEveryCubicKind) {
  const char *cubic[] = {"Natural", "Default", "Hermite", "Bessel", "Hyman", "Akima"};
  for (const char *ctor : cubic)
    for (int64_t bct : {1, 2, 12, 36, 24, 48, 64}) {
      Fixture<double> d(14, 2, 0, 0, 4, 0, bct, 1);
      Fixture<float> s(14, 2, 0, 0, 4, 0, bct, 1);
      for (size_t i = 0; i < d.x.size(); ++i) s.x[i] = float(d.x[i]);
      for (size_t i = 0; i < d.y.size(); ++i) s.y[i] = float(d.y[i]);
      for (size_t i = 0; i < d.y.size(); ++i) d.y[i] = s.y[i];
      for (size_t i = 0; i < d.x.size(); ++i) d.x[i] = s.x[i];
      ASSERT_EQ(by_name(ctor, true)(d.task, nullptr, nullptr, 1), 0) << ctor << " " << bct;
      ASSERT_EQ(by_name(ctor, false)(s.task, nullptr, nullptr, 1), 0) << ctor << " " << bct;
      for (size_t k = 0; k < d.coeff.size(); ++k)
        EXPECT_NEAR(s.coeff[k], d.coeff[k], 1e-3 * (1 + std::fabs(d.coeff[k]))) << ctor << " " << bct << " " << k;
    }
}

// Quadratic with a knot inside every cell: every condition that defines it,
// checked on the pieces (the conditions determine the spline uniquely).
template <typename T>
void check_knotted_quadratic(int64_t bct, int64_t xh) {
  SCOPED_TRACE(::testing::Message() << "bc " << bct << " x hint " << xh << " size " << sizeof(T));
  const int64_t nx = 9, ny = 2;
  Fixture<T> f(nx, ny, xh, 0, 3, 1, bct, 8);
  const double tol = sizeof(T) == 8 ? 1e-10 : 2e-3;
  auto X = [&](int64_t i) { return double(f.x[i]); };
  std::vector<T> knots(nx - 1);
  for (int64_t j = 0; j + 1 < nx; ++j) knots[j] = T(X(j) + (0.3 + 0.05 * double(j)) * (X(j + 1) - X(j)));
  f.ic = knots;
  if constexpr (sizeof(T) == 8) {
    ASSERT_EQ(qor_df_kernel_dEditPtr(f.task, 3, f.ic.data()), 0);
  } else {
    ASSERT_EQ(qor_df_kernel_sEditPtr(f.task, 3, f.ic.data()), 0);
  }
  ASSERT_EQ(by_name("Quadratic", sizeof(T) == 8)(f.task, nullptr, nullptr, 1), 0);
  for (int64_t j = 0; j < ny; ++j) {
    const T *c = f.coeff.data() + j * 3 * nx;
    auto P = [&](int64_t piece, double t, int der) {
      const double u = t - X(piece);
      const double a = c[3 * piece], b = c[3 * piece + 1], q = c[3 * piece + 2];
      return der == 0 ? a + u * (b + u * q) : der == 1 ? b + 2 * q * u : 2 * q;
    };
    for (int64_t i = 0; i < nx; ++i) EXPECT_EQ(c[3 * i], f.yv(j, i, 0));
    for (int64_t k = 0; k + 1 < nx; ++k) {
      const double xi = double(knots[k]);
      EXPECT_NEAR(P(k, xi, 0), P(k + 1, xi, 0), tol) << "C0 at knot " << k;
      EXPECT_NEAR(P(k, xi, 1), P(k + 1, xi, 1), tol) << "C1 at knot " << k;
    }
    const int64_t L = nx - 1;
    switch (bct) {
      case 1:
        EXPECT_NEAR(c[2], c[5], tol);
        EXPECT_NEAR(c[3 * L + 2], c[3 * L - 1], tol);
        break;
      case 2:
        EXPECT_NEAR(c[2], 0, tol);
        EXPECT_NEAR(c[3 * L + 2], 0, tol);
        break;
      case 64:
        EXPECT_NEAR(c[1], c[3 * L + 1], tol);  // first derivative closes
        EXPECT_NEAR(c[2], c[3 * L + 2], tol);  // and the second
        break;
      default: {
        const bool lf = bct == 12 || bct == 36, rf = bct == 12 || bct == 24;
        EXPECT_NEAR(P(0, X(0), lf ? 1 : 2), double(f.bc[0]), tol);
        EXPECT_NEAR(P(L, X(L), rf ? 1 : 2), double(f.bc[1]), tol);
      }
    }
  }
}

TEST(ConstructLowOrder, KnottedQuadraticMeetsItsConditions) {
  for (int64_t bct : {1, 2, 12, 36, 24, 48, 64})
    for (int64_t xh : {0, 4}) {
      check_knotted_quadratic<double>(bct, xh);
      check_knotted_quadratic<float>(bct, xh);
    }
}

TEST(ConstructStatus, KnottedQuadraticChecks) {
  {
    Fixture<double> f(5, 1, 0, 0, 3, 1, 2, 0);  // no knot bit
    EXPECT_EQ(qor_df_kernel_dDFQuadraticSpline1D(f.task, nullptr, nullptr, 1), -1012);
    EXPECT_EQ(qor_df_kernel_iEditVal(f.task, 20, 8), 0);  // knots announced, array still null
    EXPECT_EQ(qor_df_kernel_dDFQuadraticSpline1D(f.task, nullptr, nullptr, 1), -1013);
    EXPECT_TRUE(f.untouched());
  }
  struct Row {
    int64_t nx, bct;
    double knot_at;  // fraction of the cell for every knot
    int32_t want;
  };
  const Row rows[] = {
      {5, 7, 0.5, -1014}, {5, 0, 0.5, -1014}, {2, 1, 0.5, -1004}, {2, 64, 0.5, -1004}, {2, 2, 0.5, 0},
      {3, 64, 0.5, 0},
      {5, 2, 0.0, -1012},  {5, 2, 1.0, -1012}, {5, 12, 1.5, -1012}, {5, 48, 0.5, 0},
  };
  for (const Row &r : rows) {
    Fixture<double> f(r.nx, 1, 0, 0, 3, 1, r.bct, 8);
    for (int64_t j = 0; j + 1 < r.nx; ++j) f.ic[j] = f.x[j] + r.knot_at * (f.x[j + 1] - f.x[j]);
    EXPECT_EQ(qor_df_kernel_dDFQuadraticSpline1D(f.task, nullptr, nullptr, 1), r.want) << r.nx << " " << r.bct;
    if (r.want != 0) {
      EXPECT_TRUE(f.untouched());
    }
  }
}

}  // namespace
