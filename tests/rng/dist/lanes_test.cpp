// The SSE elementwise steps of the Box-Muller and inverse-CDF Gaussians
// against plain scalar loops, for every length around the register widths
// (vector body, scalar tail, both, neither), in place where the generators
// use them in place, and with guards after each output.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "rng/dist/lanes.h"

namespace {

namespace lanes = qor::rng::dist::lanes;

template <class T>
std::vector<T> values(int n, int salt) {
  std::vector<T> v(n);
  for (int i = 0; i < n; ++i) v[i] = T(std::sin(0.37 * i + salt) * 3 + 0.001 * salt);
  return v;
}

template <class T>
bool same(const std::vector<T> &a, const std::vector<T> &b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

template <class T>
void check_all() {
  const T guard = T(-777);
  for (int n = 0; n <= 19; ++n) {
    SCOPED_TRACE(n);
    // unpair in place: the first halves move to the front, the second halves
    // are scaled into their own array; the back half of u is left alone
    {
      std::vector<T> u = values<T>(2 * n + 3, 1), want_u = u, second(n + 1, guard), want_s(n + 1, guard);
      for (int k = 0; k < n; ++k) {
        want_s[k] = T(2.5) * want_u[2 * k + 1];
        want_u[k] = want_u[2 * k];
      }
      lanes::unpair(u.data(), n, second.data(), T(2.5));
      EXPECT_TRUE(same(u, want_u));
      EXPECT_TRUE(same(second, want_s));
    }
    // times and affine in place
    {
      std::vector<T> x = values<T>(n + 1, 2), want = x, y = x, want_y = x;
      for (int k = 0; k < n; ++k) want[k] = want[k] * T(-2);
      for (int k = 0; k < n; ++k) want_y[k] = want_y[k] * T(1.75) + T(-0.5);
      lanes::times(x.data(), n, T(-2));
      lanes::affine(y.data(), n, T(1.75), T(-0.5));
      EXPECT_TRUE(same(x, want));
      EXPECT_TRUE(same(y, want_y));
    }
    // radial (one result per angle) and radial_pairs (sine and cosine
    // results interleaved)
    {
      const std::vector<T> rad = values<T>(n, 3), s = values<T>(n, 4), c = values<T>(n, 5);
      std::vector<T> out(n + 1, guard), want(n + 1, guard), pairs(2 * n + 1, guard), want_p(2 * n + 1, guard);
      for (int k = 0; k < n; ++k) {
        want[k] = rad[k] * T(0.3) * s[k] + T(7);
        want_p[2 * k] = rad[k] * s[k];
        want_p[2 * k + 1] = rad[k] * c[k];
      }
      lanes::radial(out.data(), n, rad.data(), s.data(), T(0.3), T(7));
      lanes::radial_pairs(pairs.data(), n, rad.data(), s.data(), c.data());
      EXPECT_TRUE(same(out, want));
      EXPECT_TRUE(same(pairs, want_p));
    }
  }
}

TEST(RngDistLanes, MatchScalarLoopsFloat) { check_all<float>(); }
TEST(RngDistLanes, MatchScalarLoopsDouble) { check_all<double>(); }

}  // namespace
