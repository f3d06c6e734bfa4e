// Helpers shared by the construction tests: a dense long-double solver and
// evaluation of one polynomial piece.
#pragma once

#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace qor::fit::testing {

struct Dense {
  explicit Dense(size_t n) : a(n, std::vector<long double>(n, 0.0L)), b(n, 0.0L) {}
  std::vector<std::vector<long double>> a;
  std::vector<long double> b;

  // Gaussian elimination with partial pivoting.
  std::vector<long double> solve() const {
    auto m = a;
    auto r = b;
    const size_t n = r.size();
    for (size_t k = 0; k < n; ++k) {
      size_t p = k;
      for (size_t i = k + 1; i < n; ++i)
        if (std::fabs(m[i][k]) > std::fabs(m[p][k])) p = i;
      std::swap(m[k], m[p]);
      std::swap(r[k], r[p]);
      for (size_t i = k + 1; i < n; ++i) {
        const long double f = m[i][k] / m[k][k];
        if (f == 0) continue;
        for (size_t j = k; j < n; ++j) m[i][j] -= f * m[k][j];
        r[i] -= f * r[k];
      }
    }
    std::vector<long double> x(n);
    for (size_t i = n; i-- > 0;) {
      long double s = r[i];
      for (size_t j = i + 1; j < n; ++j) s -= m[i][j] * x[j];
      x[i] = s / m[i][i];
    }
    return x;
  }
};

// Derivative `der` (0..3) at local u of c[0] + c[1] u + c[2] u^2 + c[3] u^3.
template <typename T>
double eval_cubic(const T *c, double u, int der) {
  const double a = c[0], b = c[1], q = c[2], e = c[3];
  switch (der) {
    case 0: return a + u * (b + u * (q + u * e));
    case 1: return b + u * (2 * q + 3 * u * e);
    case 2: return 2 * q + 6 * u * e;
    default: return 6 * e;
  }
}

// Akima (1970) transcribed: extended slope table m[-2..n+1] built first.
inline std::vector<double> akima_reference(const std::vector<double> &x, const std::vector<double> &y, bool periodic) {
  const int n = int(x.size()) - 1;
  std::vector<double> m(n + 4);
  auto M = [&](int k) -> double & { return m[k + 2]; };
  for (int k = 0; k < n; ++k) M(k) = (y[k + 1] - y[k]) / (x[k + 1] - x[k]);
  if (periodic) {
    M(-1) = M(n - 1), M(-2) = M(n - 2), M(n) = M(0), M(n + 1) = M(1);
  } else {
    M(-1) = 2 * M(0) - M(1);
    M(-2) = 2 * M(-1) - M(0);
    M(n) = 2 * M(n - 1) - M(n - 2);
    M(n + 1) = 2 * M(n) - M(n - 1);
  }
  std::vector<double> t(n + 1);
  for (int i = 0; i <= n; ++i) {
    const double w1 = std::fabs(M(i + 1) - M(i)), w2 = std::fabs(M(i - 1) - M(i - 2));
    t[i] = (w1 + w2 == 0) ? (M(i - 1) + M(i)) / 2 : (w1 * M(i - 1) + w2 * M(i)) / (w1 + w2);
  }
  if (periodic) t[n] = t[0];
  return t;
}

// Derivative at x1 of the Lagrange parabola through three points.
inline double parabola_slope(double x0, double x1, double x2, double y0, double y1, double y2) {
  return y0 * (x1 - x2) / ((x0 - x1) * (x0 - x2)) + y1 * (2 * x1 - x0 - x2) / ((x1 - x0) * (x1 - x2)) +
         y2 * (x1 - x0) / ((x2 - x0) * (x2 - x1));
}

}  // namespace qor::fit::testing
