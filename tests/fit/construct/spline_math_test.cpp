// The construction mathematics on plain arrays, against references written
// here: the C2 splines against a dense solve of their defining conditions on
// all 4(nx-1) coefficients, the local methods against direct transcriptions
// of the published slope formulas, and the boundary conditions of every kind
// checked on the resulting polynomials.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "fit/construct/spline_math.h"
#include "spline_test_util.h"

namespace {

using namespace qor::fit;
using namespace qor::fit::testing;

// Dense reference for the C2 cubic: unknowns a_i, b_i, c_i, e_i of
// a + b u + c u^2 + e u^3 on every cell, conditions written out directly.
std::vector<long double> dense_c2_cubic(const std::vector<double> &x, const std::vector<double> &y,
                                        int kind, bool default_flavour, const double *bc) {
  const size_t n = x.size() - 1, N = 4 * n;
  Dense A(N);
  size_t r = 0;
  auto h = [&](size_t i) { return (long double)x[i + 1] - x[i]; };
  // value, first, second, third derivative of cell i at local u
  auto put = [&](size_t row, size_t cell, int der, long double u, long double f) {
    const long double coef[4][4] = {{1, u, u * u, u * u * u}, {0, 1, 2 * u, 3 * u * u},
                                    {0, 0, 2, 6 * u}, {0, 0, 0, 6}};
    for (int k = 0; k < 4; ++k) A.a[row][4 * cell + k] += f * coef[der][k];
  };
  for (size_t i = 0; i < n; ++i) {
    put(r, i, 0, 0, 1), A.b[r++] = y[i];
    put(r, i, 0, h(i), 1), A.b[r++] = y[i + 1];
  }
  for (size_t i = 0; i + 1 < n; ++i)
    for (int der = 1; der <= 2; ++der) put(r, i, der, h(i), 1), put(r, i + 1, der, 0, -1), ++r;
  const size_t L = n - 1;
  const bool runout = (kind == kFreeEnd && default_flavour) || (kind == kNotAKnot && n == 2);
  if (runout) {
    put(r++, 0, 3, 0, 1);
    put(r++, L, 3, 0, 1);
  } else if (kind == kNotAKnot) {
    put(r, 0, 3, 0, 1), put(r++, 1, 3, 0, -1);
    put(r, L - 1, 3, 0, 1), put(r++, L, 3, 0, -1);
  } else if (kind == kPeriodic) {
    for (int der = 1; der <= 2; ++der) put(r, L, der, h(L), 1), put(r, 0, der, 0, -1), ++r;
  } else {
    const bool lf = kind == kFirstBoth || kind == kFirstLeftSecondRight;
    const bool rf = kind == kFirstBoth || kind == kSecondLeftFirstRight;
    const long double v0 = kind == kFreeEnd ? 0 : bc[0], v1 = kind == kFreeEnd ? 0 : bc[1];
    put(r, 0, lf ? 1 : 2, 0, 1), A.b[r++] = v0;
    put(r, L, rf ? 1 : 2, h(L), 1), A.b[r++] = v1;
  }
  EXPECT_EQ(r, N);
  return A.solve();
}

struct Grid {
  std::vector<double> x, y;
  bool uniform;
};

Grid make_grid(size_t nx, bool uniform, bool periodic, unsigned seed) {
  std::mt19937_64 g(seed);
  std::uniform_real_distribution<double> u(0.3, 1.7), v(-2, 2);
  Grid gr;
  gr.uniform = uniform;
  gr.x.resize(nx);
  gr.x[0] = -1.25;
  for (size_t i = 1; i < nx; ++i) gr.x[i] = gr.x[i - 1] + (uniform ? 0.375 : u(g));
  gr.y.resize(nx);
  for (size_t i = 0; i < nx; ++i) gr.y[i] = std::sin(gr.x[i]) + 0.3 * v(g);
  if (periodic) gr.y[nx - 1] = gr.y[0];
  return gr;
}

struct C2Case {
  int kind;
  bool default_flavour;
  size_t nx;
  bool uniform;
};

TEST(C2Cubic, MatchesDenseSolveOfItsConditions) {
  const double bc[2] = {0.7, -1.3};
  std::vector<C2Case> cases;
  for (int kind = 0; kind <= 6; ++kind)
    for (bool def : {false, true})
      for (size_t nx : {2, 3, 4, 5, 9, 23})
        for (bool uni : {false, true}) {
          if (nx == 2 && (def || kind == kNotAKnot)) continue;  // refused by the entry points
          cases.push_back({kind, def, nx, uni});
        }
  unsigned seed = 1;
  for (const C2Case &c : cases) {
    SCOPED_TRACE(::testing::Message() << "kind " << c.kind << " default " << c.default_flavour
                                      << " nx " << c.nx << " uniform " << c.uniform);
    Grid gr = make_grid(c.nx, c.uniform, c.kind == kPeriodic, seed++);
    Geometry<double> g;
    ASSERT_EQ(g.init(int64_t(c.nx), gr.x.data(), c.uniform), 0);
    CubicSystem<double> sys;
    ASSERT_EQ(sys.prepare(g, c.kind, c.default_flavour ? CubicFlavour::kDefault : CubicFlavour::kNatural), 0);
    std::vector<double> s(c.nx), coef(4 * (c.nx - 1));
    ASSERT_EQ(sys.slopes(Values<double>{gr.y.data(), 1}, bc, s.data()), 0);
    write_cubic(g, Values<double>{gr.y.data(), 1}, s.data(), coef.data());
    if (c.kind == kPeriodic && c.nx == 2) {
      // One periodic cell: the straight line through the two values.
      EXPECT_NEAR(coef[1], (gr.y[1] - gr.y[0]) / (gr.x[1] - gr.x[0]), 1e-14);
      EXPECT_NEAR(coef[2], 0, 1e-13);
      continue;
    }
    std::vector<long double> ref = dense_c2_cubic(gr.x, gr.y, c.kind, c.default_flavour, bc);
    for (size_t k = 0; k < coef.size(); ++k)
      EXPECT_NEAR(coef[k], double(ref[k]), 1e-11 * (1 + std::fabs(double(ref[k])))) << "coef " << k;
  }
}

// ---- local methods ---------------------------------------------------------

std::vector<double> local(LocalMethod m, const Grid &gr, int kind, const double *bc, const double *ic) {
  Geometry<double> g;
  EXPECT_EQ(g.init(int64_t(gr.x.size()), gr.x.data(), gr.uniform), 0);
  std::vector<double> s(gr.x.size());
  local_slopes(m, g, Values<double>{gr.y.data(), 1}, kind, bc, ic, s.data());
  return s;
}

TEST(LocalSlopes, AkimaMatchesPublishedFormula) {
  for (bool uni : {false, true})
    for (int kind : {kAkimaEnds, kPeriodic})
      for (size_t nx : {5, 6, 12}) {
        Grid gr = make_grid(nx, uni, kind == kPeriodic, unsigned(nx) + 11);
        // A flat stretch makes both Akima weights vanish at some nodes.
        gr.y[2] = gr.y[1];
        gr.y[3] = gr.y[1];
        std::vector<double> s = local(LocalMethod::kAkima, gr, kind, nullptr, nullptr);
        std::vector<double> ref = akima_reference(gr.x, gr.y, kind == kPeriodic);
        for (size_t i = 0; i < nx; ++i) EXPECT_NEAR(s[i], ref[i], 1e-13 * (1 + std::fabs(ref[i]))) << nx << " " << i;
      }
}

TEST(LocalSlopes, BesselIsTheThreePointParabolaSlope) {
  Grid gr = make_grid(11, false, true, 3);
  std::vector<double> s = local(LocalMethod::kBessel, gr, kPeriodic, nullptr, nullptr);
  for (size_t i = 1; i + 1 < gr.x.size(); ++i)
    EXPECT_NEAR(s[i], parabola_slope(gr.x[i - 1], gr.x[i], gr.x[i + 1], gr.y[i - 1], gr.y[i], gr.y[i + 1]), 1e-13);
  // Periodic: the node x[0] = x[n] sits between the last and the first cell.
  const size_t n = gr.x.size() - 1;
  const double period = gr.x[n] - gr.x[0];
  EXPECT_NEAR(s[0], parabola_slope(gr.x[n - 1] - period, gr.x[0], gr.x[1], gr.y[n - 1], gr.y[0], gr.y[1]), 1e-13);
  EXPECT_EQ(s[0], s[n]);
}

TEST(LocalSlopes, HymanFilterKeepsMonotoneDataMonotone) {
  // Steps of very different size make unfiltered cubics overshoot.
  std::vector<double> x = {0, 1, 2, 2.5, 4, 5, 6, 7.5, 8};
  std::vector<double> y = {0, 0.01, 0.02, 3, 3.01, 3.02, 7, 7, 7.5};
  Grid gr{x, y, false};
  Geometry<double> g;
  ASSERT_EQ(g.init(int64_t(x.size()), x.data(), false), 0);
  for (int kind : {kNotAKnot, kFreeEnd, kFirstBoth, kSecondBoth}) {
    const double bc[2] = {5.0, -1.0};  // end values the filter must tame
    std::vector<double> s = local(LocalMethod::kHyman, gr, kind, bc, nullptr);
    std::vector<double> c(4 * (x.size() - 1));
    write_cubic(g, Values<double>{y.data(), 1}, s.data(), c.data());
    double prev = -1e300;
    for (size_t i = 0; i + 1 < x.size(); ++i)
      for (int k = 0; k <= 200; ++k) {
        const double u = (x[i + 1] - x[i]) * k / 200;
        const double v = eval_cubic(c.data() + 4 * i, u, 0);
        EXPECT_GE(v, prev - 1e-12) << kind << " cell " << i << " k " << k;
        prev = v;
      }
    // Without the filter the Bessel slopes on the same data overshoot.
    std::vector<double> sb = local(LocalMethod::kBessel, gr, kind, bc, nullptr);
    bool any_changed = false;
    for (size_t i = 0; i < x.size(); ++i) any_changed |= sb[i] != s[i];
    EXPECT_TRUE(any_changed);
  }
}

TEST(LocalSlopes, HymanFilterRule) {
  struct Row {
    double s, dl, dr, want;
  };
  const Row rows[] = {
      {1.0, 1.0, 2.0, 1.0},   {5.0, 1.0, 2.0, 3.0},   {-1.0, 1.0, 2.0, 0.0}, {-1.0, -1.0, -2.0, -1.0},
      {-9.0, -1.0, -2.0, -3.0}, {1.0, -1.0, -2.0, 0.0}, {1.0, -1.0, 2.0, 0.0}, {1.0, 0.0, 2.0, 0.0},
  };
  for (const Row &r : rows) EXPECT_EQ(hyman_filter(r.s, r.dl, r.dr), r.want) << r.s << " " << r.dl << " " << r.dr;
}

TEST(LocalSlopes, EndConditionsOfEveryKindHold) {
  const double bc[2] = {0.75, -0.5};
  for (LocalMethod m : {LocalMethod::kAkima, LocalMethod::kBessel, LocalMethod::kHermite})
    for (int kind = kNotAKnot; kind <= kSecondBoth; ++kind)
      for (size_t nx : {5, 8}) {
        SCOPED_TRACE(::testing::Message() << "method " << int(m) << " kind " << kind << " nx " << nx);
        Grid gr = make_grid(nx, false, false, unsigned(kind * 10 + nx));
        std::vector<double> ic(nx - 2);
        for (size_t i = 0; i < ic.size(); ++i) ic[i] = 0.1 * double(i) - 0.2;
        std::vector<double> s = local(m, gr, kind, bc, ic.data());
        Geometry<double> g;
        ASSERT_EQ(g.init(int64_t(nx), gr.x.data(), false), 0);
        std::vector<double> c(4 * (nx - 1));
        write_cubic(g, Values<double>{gr.y.data(), 1}, s.data(), c.data());
        const size_t L = nx - 2;
        const double hl = gr.x[nx - 1] - gr.x[nx - 2];
        const double *c0 = c.data(), *cl = c.data() + 4 * L;
        switch (kind) {
          case kNotAKnot:
            EXPECT_NEAR(eval_cubic(c0, 0, 3), eval_cubic(c0 + 4, 0, 3), 1e-9);
            EXPECT_NEAR(eval_cubic(cl, 0, 3), eval_cubic(cl - 4, 0, 3), 1e-9);
            break;
          case kFreeEnd:
            EXPECT_NEAR(eval_cubic(c0, 0, 2), 0, 1e-11);
            EXPECT_NEAR(eval_cubic(cl, hl, 2), 0, 1e-11);
            break;
          default: {
            const bool lf = kind == kFirstBoth || kind == kFirstLeftSecondRight;
            const bool rf = kind == kFirstBoth || kind == kSecondLeftFirstRight;
            EXPECT_NEAR(eval_cubic(c0, 0, lf ? 1 : 2), bc[0], 1e-11);
            EXPECT_NEAR(eval_cubic(cl, hl, rf ? 1 : 2), bc[1], 1e-11);
          }
        }
        // Interpolation and C1 at every breakpoint.
        for (size_t i = 0; i + 1 < nx; ++i) {
          const double h = gr.x[i + 1] - gr.x[i];
          EXPECT_NEAR(eval_cubic(c.data() + 4 * i, 0, 0), gr.y[i], 1e-13);
          EXPECT_NEAR(eval_cubic(c.data() + 4 * i, h, 0), gr.y[i + 1], 1e-12);
          EXPECT_NEAR(eval_cubic(c.data() + 4 * i, h, 1), s[i + 1], 1e-11);
        }
      }
}

}  // namespace
