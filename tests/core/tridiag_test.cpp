// Tridiagonal factor/solve checked against a dense elimination with partial
// pivoting in long double, over random diagonally dominant systems.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "qor/tridiag.h"

namespace {

template <typename T>
struct Tri {
  std::vector<T> dl, d, du;
};

template <typename T>
Tri<T> random_dominant(int64_t n, std::mt19937_64 &g) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  Tri<T> t;
  t.dl.resize(n > 1 ? n - 1 : 0);
  t.du.resize(n > 1 ? n - 1 : 0);
  t.d.resize(n);
  for (auto &v : t.dl) v = T(u(g));
  for (auto &v : t.du) v = T(u(g));
  for (int64_t i = 0; i < n; ++i) {
    double off = (i > 0 ? std::fabs(double(t.dl[i - 1])) : 0) + (i + 1 < n ? std::fabs(double(t.du[i])) : 0);
    double s = u(g) < 0 ? -1.0 : 1.0;
    t.d[i] = T(s * (off + 0.25 + std::fabs(u(g))));
  }
  return t;
}

// Dense reference: Gaussian elimination with partial pivoting.
template <typename T>
std::vector<long double> dense_solve(const Tri<T> &t, const std::vector<T> &b) {
  const size_t n = t.d.size();
  std::vector<std::vector<long double>> a(n, std::vector<long double>(n + 1, 0.0L));
  for (size_t i = 0; i < n; ++i) {
    a[i][i] = t.d[i];
    if (i > 0) a[i][i - 1] = t.dl[i - 1];
    if (i + 1 < n) a[i][i + 1] = t.du[i];
    a[i][n] = b[i];
  }
  for (size_t k = 0; k < n; ++k) {
    size_t p = k;
    for (size_t i = k + 1; i < n; ++i)
      if (std::fabs(a[i][k]) > std::fabs(a[p][k])) p = i;
    std::swap(a[k], a[p]);
    for (size_t i = k + 1; i < n; ++i) {
      long double f = a[i][k] / a[k][k];
      if (f == 0) continue;
      for (size_t j = k; j <= n; ++j) a[i][j] -= f * a[k][j];
    }
  }
  std::vector<long double> x(n);
  for (size_t i = n; i-- > 0;) {
    long double s = a[i][n];
    for (size_t j = i + 1; j < n; ++j) s -= a[i][j] * x[j];
    x[i] = s / a[i][i];
  }
  return x;
}

int factor(int64_t n, float *a, float *b, float *c) { return sdttrfb_4dfl(n, a, b, c); }
int factor(int64_t n, double *a, double *b, double *c) { return ddttrfb_4dfl(n, a, b, c); }
int solve(int64_t n, const float *a, const float *b, const float *c, float *r) { return sdttrsb_4dfl(n, a, b, c, r); }
int solve(int64_t n, const double *a, const double *b, const double *c, double *r) { return ddttrsb_4dfl(n, a, b, c, r); }
int both(int64_t n, float *a, float *b, float *c, float *r) { return sdtsvb_4dfl(n, a, b, c, r); }
int both(int64_t n, double *a, double *b, double *c, double *r) { return ddtsvb_4dfl(n, a, b, c, r); }

template <typename T>
class Tridiag : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Tridiag, Precisions);

TYPED_TEST(Tridiag, FactorThenSolveMatchesDenseSolve) {
  using T = TypeParam;
  const double tol = sizeof(T) == 4 ? 2e-5 : 1e-13;
  std::mt19937_64 g(7);
  for (int64_t n : {1, 2, 3, 5, 17, 200}) {
    Tri<T> t = random_dominant<T>(n, g);
    Tri<T> f = t;
    ASSERT_EQ(factor(n, f.dl.data(), f.d.data(), f.du.data()), 0) << n;
    // Several right-hand sides against one factor.
    for (int rep = 0; rep < 3; ++rep) {
      std::uniform_real_distribution<double> u(-10, 10);
      std::vector<T> b(n);
      for (auto &v : b) v = T(u(g));
      std::vector<long double> ref = dense_solve(t, b);
      std::vector<T> x = b;
      ASSERT_EQ(solve(n, f.dl.data(), f.d.data(), f.du.data(), x.data()), 0);
      for (int64_t i = 0; i < n; ++i)
        EXPECT_NEAR(double(x[i]), double(ref[i]), tol * (1 + std::fabs(double(ref[i])))) << n << " " << i;
      // The combined call gives the same answer from the original matrix.
      Tri<T> c = t;
      std::vector<T> y = b;
      ASSERT_EQ(both(n, c.dl.data(), c.d.data(), c.du.data(), y.data()), 0);
      for (int64_t i = 0; i < n; ++i) EXPECT_EQ(x[i], y[i]) << n << " " << i;
    }
  }
}

// Long systems and rows of wildly different scale: checked by the residual
// |A x - b| relative to |A| |x| + |b|, computed in long double.
TYPED_TEST(Tridiag, LongAndBadlyScaledSystemsHaveSmallResiduals) {
  using T = TypeParam;
  const double eps = sizeof(T) == 4 ? 1.2e-7 : 2.3e-16;
  std::mt19937_64 g(11);
  struct Shape {
    int64_t n;
    // Rows scaled by up to 10^(+-spread), alternating in blocks; neighbouring
    // rows may differ by 10^(2 spread), which must stay representable.
    double spread;
  };
  const Shape shapes[] = {{20000, 0}, {3000, sizeof(T) == 4 ? 8 : 60}, {3000, sizeof(T) == 4 ? 15 : 120}};
  for (const Shape &sh : shapes) {
    Tri<T> t = random_dominant<T>(sh.n, g);
    if (sh.spread > 0) {
      for (int64_t i = 0; i < sh.n; ++i) {
        const T f = T(std::pow(10.0, ((i / 7) % 2 ? 1 : -1) * sh.spread * double(i % 5) / 4));
        t.d[i] *= f;
        if (i > 0) t.dl[i - 1] *= f;
        if (i + 1 < sh.n) t.du[i] *= f;
      }
    }
    std::vector<T> b(sh.n);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int64_t i = 0; i < sh.n; ++i) b[i] = T(u(g)) * std::fabs(t.d[i]);
    Tri<T> f = t;
    std::vector<T> x = b;
    ASSERT_EQ(both(sh.n, f.dl.data(), f.d.data(), f.du.data(), x.data()), 0) << sh.n << " " << sh.spread;
    double worst = 0;
    for (int64_t i = 0; i < sh.n; ++i) {
      long double r = (long double)t.d[i] * x[i] - b[i];
      long double m = std::fabs((long double)t.d[i] * x[i]) + std::fabs((long double)b[i]);
      if (i > 0) r += (long double)t.dl[i - 1] * x[i - 1], m += std::fabs((long double)t.dl[i - 1] * x[i - 1]);
      if (i + 1 < sh.n) r += (long double)t.du[i] * x[i + 1], m += std::fabs((long double)t.du[i] * x[i + 1]);
      ASSERT_TRUE(std::isfinite(double(x[i]))) << i;
      worst = std::max(worst, double(std::fabs(r) / m));
    }
    EXPECT_LT(worst, 50 * eps) << sh.n << " " << sh.spread;
  }
}

TYPED_TEST(Tridiag, ZeroPivotReportsItsRow) {
  using T = TypeParam;
  struct Case {
    std::vector<T> dl, d, du;
    int row;
  };
  std::vector<Case> cases = {
      {{}, {0}, {}, 1},
      {{1, 1}, {0, 4, 4}, {1, 1}, 1},
      // second pivot 1 - 1*1/1 = 0
      {{1, 1}, {1, 1, 4}, {1, 1}, 2},
      // third pivot: 2 - 1*(1/1) = 1; 1 - 1*1/1 = 0
      {{1, 1, 1}, {1, 2, 1, 3}, {1, 1, 1}, 3},
  };
  // Long systems are eliminated from both ends towards the middle row: a
  // zero pivot in either chain, or in the middle row, is still found.
  auto base = [](int64_t n) {
    return Case{std::vector<T>(n - 1, T(1)), std::vector<T>(n, T(4)), std::vector<T>(n - 1, T(1)), 0};
  };
  {
    Case c = base(40);  // last row's own pivot
    c.d[39] = 0;
    c.row = 40;
    cases.push_back(c);
  }
  {
    Case c = base(40);  // upward chain: r_31 = 1, r_30 = 1 - 1 * 1 / 1
    c.du[31] = 0;
    c.d[31] = 1;
    c.d[30] = 1;
    c.row = 31;
    cases.push_back(c);
  }
  {
    Case c = base(41);  // middle row k = 20 decoupled with a zero diagonal
    c.du[19] = 0;
    c.dl[20] = 0;
    c.d[20] = 0;
    c.row = 21;
    cases.push_back(c);
  }
  {
    Case c = base(40);  // downward chain: p_2 = 1, p_3 = 1 - 1 * 1 / 1
    c.dl[1] = 0;
    c.d[2] = 1;
    c.d[3] = 1;
    c.row = 4;
    cases.push_back(c);
  }
  for (const Case &c0 : cases) {
    Case c = c0;
    const int64_t n = int64_t(c.d.size());
    EXPECT_EQ(factor(n, c.dl.data(), c.d.data(), c.du.data()), c.row);
    Case e = c0;
    std::vector<T> b(n, T(1));
    EXPECT_EQ(both(n, e.dl.data(), e.d.data(), e.du.data(), b.data()), c.row);
  }
}

TYPED_TEST(Tridiag, InvalidArgumentsAndQuickReturn) {
  using T = TypeParam;
  std::vector<T> dl(2, 1), d(3, 4), du(2, 1), b(3, 1);
  EXPECT_EQ(factor(-1, dl.data(), d.data(), du.data()), -1);
  EXPECT_EQ(factor(3, nullptr, d.data(), du.data()), -2);
  EXPECT_EQ(factor(3, dl.data(), nullptr, du.data()), -3);
  EXPECT_EQ(factor(3, dl.data(), d.data(), nullptr), -4);
  EXPECT_EQ(solve(3, dl.data(), d.data(), du.data(), nullptr), -5);
  EXPECT_EQ(both(3, dl.data(), d.data(), du.data(), nullptr), -5);
  EXPECT_EQ(factor(0, (T *)nullptr, (T *)nullptr, (T *)nullptr), 0);
  EXPECT_EQ(solve(0, (const T *)nullptr, (const T *)nullptr, (const T *)nullptr, (T *)nullptr), 0);
  // A 1x1 system needs no off-diagonals.
  T dd = 4, bb = 2;
  EXPECT_EQ(both(1, (T *)nullptr, &dd, (T *)nullptr, &bb), 0);
  EXPECT_EQ(bb, T(0.5));
}

}  // namespace
