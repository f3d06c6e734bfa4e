// ErfInv kernels (s, d; every slot; contiguous and strided) against MPFR:
// special values with their bits and codes, accuracy over each region of
// the piecewise approximation (including the piece boundaries and the
// approach to +-1, which uniform sampling hardly reaches), and mixed vectors
// whose special lanes alone are reported, with their own indices.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "reference.h"
#include "vm/vm_test_util.h"

using namespace qor::vm::test;

extern "C" const QorPexKernelTable qor_pex_kernel_sErfInv_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_sErfInvI_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dErfInv_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dErfInvI_ttab;

namespace {

template <class T>
const QorPexKernelTable &contig_tab() {
  return sizeof(T) == 4 ? qor_pex_kernel_sErfInv_ttab : qor_pex_kernel_dErfInv_ttab;
}
template <class T>
const QorPexKernelTable &strided_tab() {
  return sizeof(T) == 4 ? qor_pex_kernel_sErfInvI_ttab : qor_pex_kernel_dErfInvI_ttab;
}
template <class T>
void run(int slot, int n, const T *a, T *r) {
  reinterpret_cast<void (*)(int32_t, const T *, T *)>(contig_tab<T>().kernel[slot])(n, a, r);
}
template <class T>
void run_strided(int slot, int n, const T *a, int inca, T *r, int incr) {
  reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(
      strided_tab<T>().kernel[slot])(n, a, inca, r, incr);
}

double bound(int slot, bool is_float) {
  if (slot == 1) return 1;
  if (slot == 0) return 4;
  return is_float ? 8192 : 134217728;  // 11 / 26 correct bits
}

// erfinv(x) from MPFR at 256 bits (the reference function of the accuracy
// tool), rounded to double.  Its error at that precision is far below the
// rounding to T that the ulp distance then sees.
double exact(double x) {
  static bool init = (qor::accuracy::init_reference(), true);
  (void)init;
  static const auto ref = qor::accuracy::find_reference("ErfInv", false);
  mpfr_t in, out, dummy;
  mpfr_inits2(256, in, out, dummy, (mpfr_ptr)0);
  mpfr_set_d(in, x, MPFR_RNDN);
  mpfr_srcptr args[4] = {in, in, in, in};
  ref(out, dummy, args, 0);
  double v = mpfr_get_d(out, MPFR_RNDN);
  mpfr_clears(in, out, dummy, (mpfr_ptr)0);
  return v;
}

// Error of got in ulps of T against erfinv(x) from MPFR kept at 256 bits
// (fractional: exact() rounds to double, which for double results hides
// everything below one ulp).
template <class T>
double frac_ulps(T got, double x) {
  static bool init = (qor::accuracy::init_reference(), true);
  (void)init;
  static const auto ref = qor::accuracy::find_reference("ErfInv", false);
  if (!std::isfinite(got)) return 1e30;
  mpfr_t in, out, dummy, d;
  mpfr_inits2(256, in, out, dummy, d, (mpfr_ptr)0);
  mpfr_set_d(in, x, MPFR_RNDN);
  mpfr_srcptr args[4] = {in, in, in, in};
  ref(out, dummy, args, 0);
  mpfr_set_d(d, double(got), MPFR_RNDN);
  mpfr_sub(d, d, out, MPFR_RNDN);
  // ulp of the exact value in T (normal results only here)
  const long e = mpfr_get_exp(out);  // out = m 2^e, 1/2 <= |m| < 1
  mpfr_mul_2si(d, d, (sizeof(T) == 4 ? 24 : 53) - e, MPFR_RNDN);
  const double u = std::fabs(mpfr_get_d(d, MPFR_RNDN));
  mpfr_clears(in, out, dummy, d, (mpfr_ptr)0);
  return u;
}

// Max ulp error of slot over the inputs, run as one vector (so every input
// goes through the vector path with its neighbours) and again strided.
template <class T>
double max_err(int slot, const std::vector<T> &xs, T *worst_x) {
  std::vector<T> r(xs.size()), rs(2 * xs.size(), T(-7));
  Recorder rec(PEX_ERRMODE_IGNORE);
  run<T>(slot, int(xs.size()), xs.data(), r.data());
  run_strided<T>(slot, int(xs.size()), xs.data(), 1, rs.data(), 2);
  double worst = 0;
  for (size_t i = 0; i < xs.size(); ++i) {
    EXPECT_EQ(bits(r[i]), bits(rs[2 * i])) << "strided differs at x = " << xs[i];
    EXPECT_EQ(rs[2 * i + 1], T(-7)) << "gap element written";
    double e = ulps<T>(r[i], exact(double(xs[i])));
    if (e > worst) worst = e, *worst_x = xs[i];
  }
  return worst;
}

template <class T>
std::vector<T> region_inputs() {
  std::mt19937_64 g(42);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<T> v;
  auto add = [&](double x) {
    T t = T(x);
    if (std::fabs(t) < 1) v.push_back(t), v.push_back(-t);
  };
  // the central region and its boundary at 1/2
  for (int i = 0; i < 2000; ++i) add(0.5 * u(g));
  for (T x : {T(0.5), std::nextafter(T(0.5), T(0)), std::nextafter(T(0.5), T(1))}) add(x);
  // the tail pieces: w = -ln(1 - x^2) at 2^e and 1.5 2^e, with neighbours
  for (int e = -2; e <= 5; ++e)
    for (double m : {1.0, 1.5}) {
      double w = std::ldexp(m, e);
      T x = T(std::sqrt(-std::expm1(-w)));
      if (!(x < 1)) continue;
      for (int k = -3; k <= 3; ++k) {
        T y = x;
        for (int j = 0; j < std::abs(k); ++j) y = std::nextafter(y, k < 0 ? T(0) : T(1));
        add(y);
      }
    }
  // towards +-1: 1 - 2^-k (1 + f), every binade of 1 - x
  const int kmax = sizeof(T) == 4 ? 24 : 53;
  for (int k = 1; k <= kmax; ++k)
    for (int i = 0; i < 200; ++i) add(1 - std::ldexp(1 + u(g), -k - 1));
  add(std::nextafter(T(1), T(0)));
  // uniform over (-1, 1) and tiny magnitudes
  for (int i = 0; i < 4000; ++i) add(2 * u(g) - 1);
  for (int i = 0; i < 200; ++i) add(std::ldexp(1 + u(g), -int(1 + u(g) * (sizeof(T) == 4 ? 124 : 1019))));
  return v;
}

template <class T>
void accuracy_all_slots() {
  const auto xs = region_inputs<T>();
  for (int slot = 0; slot < 3; ++slot) {
    T wx = 0;
    double e = max_err<T>(slot, xs, &wx);
    EXPECT_LE(e, bound(slot, sizeof(T) == 4)) << "slot " << slot << " worst at x = " << wx;
  }
}

TEST(VmErfInv, AccuracyOverRegionsFloat) { accuracy_all_slots<float>(); }

// The central polynomial ends at |x| = 0.85 (a double; float inputs are
// compared after widening): both sides of the bound, densely around it, and
// over the whole stretch where its correction terms are largest.
template <class T>
void accuracy_central_bound() {
  std::mt19937_64 g(7);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<T> xs;
  auto add = [&](T t) { xs.push_back(t), xs.push_back(-t); };
  const T b = T(0.85);
  for (T x : {b, std::nextafter(b, T(0)), std::nextafter(b, T(1))}) {
    T lo = x, hi = x;
    for (int k = 0; k < 8; ++k) {
      add(lo), add(hi);
      lo = std::nextafter(lo, T(0)), hi = std::nextafter(hi, T(1));
    }
  }
  for (int i = 0; i < 3000; ++i) add(T(0.84 + 0.02 * u(g)));
  for (int i = 0; i < 3000; ++i) add(T(0.5 + 0.35 * u(g)));
  for (int slot = 0; slot < 3; ++slot) {
    T wx = 0;
    double e = max_err<T>(slot, xs, &wx);
    EXPECT_LE(e, bound(slot, sizeof(T) == 4)) << "slot " << slot << " worst at x = " << wx;
  }
}

TEST(VmErfInv, AccuracyAroundCentralBoundFloat) { accuracy_central_bound<float>(); }
TEST(VmErfInv, AccuracyAroundCentralBoundDouble) { accuracy_central_bound<double>(); }

// Registers whose lanes are all central take a shorter path than those with a
// lane beyond the bound; an element's bits must not depend on which it was
// in.  Each probe value is placed at every position of an 8-element vector
// whose other elements are all central, all in the tail, or alternate, and
// compared with the value computed alone, contiguous and strided.
template <class T>
void check_neighbour_independence() {
  const std::vector<T> probes = {T(0.1),  T(-0.37), T(0.5),  T(0.7),   T(-0.8), T(0.849),
                                 T(0.85), T(-0.851), T(0.9), T(0.999), T(-1e-3), T(0.6180339)};
  const T fill[3][2] = {{T(0.25), T(-0.6)}, {T(0.95), T(-0.999)}, {T(0.3), T(0.97)}};
  for (int slot = 0; slot < 3; ++slot)
    for (T p : probes) {
      T alone;
      {
        Recorder quiet(PEX_ERRMODE_IGNORE);
        run<T>(slot, 1, &p, &alone);
      }
      for (int f = 0; f < 3; ++f)
        for (int pos = 0; pos < 8; ++pos) {
          std::vector<T> a(8), r(8), rs(16);
          for (int i = 0; i < 8; ++i) a[i] = fill[f][i % 2];
          a[pos] = p;
          Recorder quiet(PEX_ERRMODE_IGNORE);
          run<T>(slot, 8, a.data(), r.data());
          run_strided<T>(slot, 8, a.data(), 1, rs.data(), 2);
          EXPECT_EQ(bits(r[pos]), bits(alone))
              << "slot " << slot << " x = " << p << " fill " << f << " pos " << pos;
          EXPECT_EQ(bits(rs[2 * pos]), bits(alone))
              << "strided, slot " << slot << " x = " << p << " fill " << f << " pos " << pos;
        }
    }
  // Many central values: alone (every register central) against interleaved
  // with tail values (every register mixed).  The two regions' polynomials
  // differ by up to 2^-35 in the low-accuracy slots, so with 65536 values
  // a wrong choice would also show after rounding to float.
  std::mt19937_64 g(11);
  std::uniform_real_distribution<double> u(-0.85, 0.85);
  const int n = 1 << 16;
  std::vector<T> v(n), mixed(2 * n), rv(n), rm(2 * n);
  for (int i = 0; i < n; ++i) v[i] = T(u(g)), mixed[2 * i] = v[i], mixed[2 * i + 1] = T(0.97);
  for (int slot = 0; slot < 3; ++slot) {
    Recorder quiet(PEX_ERRMODE_IGNORE);
    run<T>(slot, n, v.data(), rv.data());
    run<T>(slot, 2 * n, mixed.data(), rm.data());
    int diff = 0;
    for (int i = 0; i < n; ++i) diff += bits(rv[i]) != bits(rm[2 * i]);
    EXPECT_EQ(diff, 0) << "slot " << slot;
  }
}

TEST(VmErfInv, ResultIndependentOfNeighboursFloat) { check_neighbour_independence<float>(); }
TEST(VmErfInv, ResultIndependentOfNeighboursDouble) { check_neighbour_independence<double>(); }
TEST(VmErfInv, AccuracyOverRegionsDouble) { accuracy_all_slots<double>(); }

// ---- special values -----------------------------------------------------------

struct Special {
  double x;
  double want;  // NaN: any NaN
  int code;
};

template <class T>
void check_specials() {
  const double inf = INFINITY, nan = NAN;
  const T sub = std::numeric_limits<T>::denorm_min() * 5;
  const T minn = std::numeric_limits<T>::min();
  const std::vector<Special> cases = {
      {0.0, 0.0, 0},          {-0.0, -0.0, 0},       {1.0, inf, 2},
      {-1.0, -inf, 2},        {1.5, nan, 1},         {-1.0000001, nan, 1},
      {inf, nan, 1},          {-inf, nan, 1},        {nan, nan, 0},
      {double(sub), exact(double(sub)), 4},          {-double(sub), exact(-double(sub)), 4},
      {double(minn), exact(double(minn)), 4},  // 0.886 * smallest normal is subnormal
      {double(2 * minn), exact(double(2 * minn)), 0},
  };
  for (int slot = 0; slot < 3; ++slot)
    for (const auto &c : cases) {
      SCOPED_TRACE("slot " + std::to_string(slot) + " x " + std::to_string(c.x));
      Recorder rec;
      // the special element among ordinary ones, at an index that lands in
      // the body and one in the tail of the vector loop
      for (int where : {1, 4}) {
        Recorder::reports().clear();
        T a[5] = {T(0.25), T(-0.75), T(0.999), T(0.1), T(-0.3)}, r[5];
        a[where] = T(c.x);
        run<T>(slot, 5, a, r);
        if (std::isnan(c.want)) {
          EXPECT_TRUE(std::isnan(r[where]));
        } else if (std::isinf(c.want) || c.want == 0) {
          EXPECT_EQ(bits(r[where]), bits(T(c.want)));
        } else {
          EXPECT_LE(ulps<T>(r[where], c.want), 1.0);
        }
        auto &rep = Recorder::reports();
        if (c.code) {
          ASSERT_EQ(rep.size(), 1u);
          EXPECT_EQ(rep[0].code, c.code);
          EXPECT_EQ(rep[0].index, where);
          EXPECT_EQ(rep[0].name, sizeof(T) == 4 ? "vsErfInv" : "vdErfInv");
        } else {
          EXPECT_TRUE(rep.empty());
        }
      }
    }
  // a quiet NaN keeps its payload
  T q = std::numeric_limits<T>::quiet_NaN();
  auto qb = bits(q) | 0x5;
  std::memcpy(&q, &qb, sizeof q);
  T r = 0;
  run<T>(1, 1, &q, &r);
  EXPECT_EQ(bits(r), qb);
}

TEST(VmErfInv, SpecialValuesFloat) { check_specials<float>(); }
TEST(VmErfInv, SpecialValuesDouble) { check_specials<double>(); }

// ---- mixed vectors --------------------------------------------------------------

// Ordinary lanes of a long vector give the same bits as the same values
// computed alone; the special lanes are reported with their own indices,
// contiguous and strided.
template <class T>
void check_mixed() {
  const int n = 23;
  std::vector<T> a(n);
  for (int i = 0; i < n; ++i) a[i] = T(-0.95 + 0.085 * i);
  a[3] = T(1);       // pole
  a[10] = T(-2);     // domain
  a[17] = T(NAN);    // quiet, unreported
  a[22] = T(-1);     // pole, in the tail
  for (int slot = 0; slot < 3; ++slot) {
    for (int inc : {1, 3}) {
      SCOPED_TRACE("slot " + std::to_string(slot) + " inc " + std::to_string(inc));
      std::vector<T> src(n * inc, T(0.5)), dst(n * inc, T(-9));
      for (int i = 0; i < n; ++i) src[i * inc] = a[i];
      Recorder rec;
      if (inc == 1)
        run<T>(slot, n, src.data(), dst.data());
      else
        run_strided<T>(slot, n, src.data(), inc, dst.data(), inc);
      auto &rep = Recorder::reports();
      ASSERT_EQ(rep.size(), 3u);
      EXPECT_EQ(rep[0].index, 3);
      EXPECT_EQ(rep[0].code, 2);
      EXPECT_EQ(rep[1].index, 10);
      EXPECT_EQ(rep[1].code, 1);
      EXPECT_EQ(rep[2].index, 22);
      EXPECT_EQ(rep[2].code, 2);
      for (int i = 0; i < n; ++i) {
        T one;
        {
          Recorder quiet(PEX_ERRMODE_IGNORE);
          run<T>(slot, 1, &a[i], &one);
        }
        if (std::isnan(one))
          EXPECT_TRUE(std::isnan(dst[i * inc])) << i;
        else
          EXPECT_EQ(bits(dst[i * inc]), bits(one)) << i;
        for (int j = 1; j < inc; ++j) EXPECT_EQ(dst[i * inc + j], T(-9));
      }
    }
  }
}

TEST(VmErfInv, MixedVectorReportsOnlySpecialLanesFloat) { check_mixed<float>(); }
TEST(VmErfInv, MixedVectorReportsOnlySpecialLanesDouble) { check_mixed<double>(); }

// Double lanes beyond the central region are collected over runs of the
// array and evaluated after it, two to a register and two registers at a
// time: over a long array whose regions and special values fall at random,
// across several runs and with an odd tail, every element still gets the
// bits it gets alone, in its own place, contiguous and strided.
TEST(VmErfInv, LongArrayOfMixedRegionsMatchesElementsAlone) {
  std::mt19937_64 g(20261124);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  const int n = 2000 + 37;
  std::vector<double> a(n);
  for (int i = 0; i < n; ++i) {
    const double v = u(g);
    const int pick = static_cast<int>(g() % 16);
    a[i] = pick == 0 ? std::copysign(1 - std::ldexp(1.0, -20 - static_cast<int>(g() % 30)), v)
           : pick == 1 ? (g() % 2 ? NAN : std::copysign(1.0, v))
           : pick == 2 ? std::copysign(0.85 + 0.15 * std::fabs(v), v)
                       : v;
  }
  for (int slot = 0; slot < 3; ++slot) {
    std::vector<double> r(n), rs(2 * n), one(n);
    Recorder quiet(PEX_ERRMODE_IGNORE);
    run<double>(slot, n, a.data(), r.data());
    run_strided<double>(slot, n, a.data(), 1, rs.data(), 2);
    int wrong = 0, first = -1;
    for (int i = 0; i < n; ++i) {
      run<double>(slot, 1, &a[i], &one[i]);
      const bool same = std::isnan(one[i]) ? std::isnan(r[i]) && std::isnan(rs[2 * i])
                                           : bits(r[i]) == bits(one[i]) && bits(rs[2 * i]) == bits(one[i]);
      if (!same && first < 0) first = i;
      wrong += !same;
    }
    EXPECT_EQ(wrong, 0) << "slot " << slot << ", first at " << first << " x = " << a[first < 0 ? 0 : first];
  }
}

// ---- region switch points -------------------------------------------------------

// The double kernels switch from the central polynomial to the middle one at
// |x| = 0.85 and from the middle one to the per-lane pieces where w =
// -ln(1 - x^2) passes 6.25 (|x| = 0.99903...).  Each switch point is probed
// at 0 .. 40 steps of a double on either side, both signs, alone and with a
// neighbour from every other region in the other lane of the register, in
// both lane positions: the result must be within the slot's bound of MPFR
// and bit-identical whatever the neighbour.  Double LA and HA are held to
// 0.8 ulp here, tighter than the general 1 / 4 ulp bounds.
double tight_bound(int slot, bool is_float) { return !is_float && slot < 2 ? 0.8 : bound(slot, is_float); }

// The largest x whose w = -ln(1 - x^2) is below w, in long double.
double x_of_w(long double w) {
  return double(std::sqrt(-std::expm1(-w)));
}

template <class T>
void check_switch_points() {
  const double switches[] = {0.85, x_of_w(6.25L)};
  // one neighbour from each region: central, middle, per-lane pieces, and
  // the far end
  const T others[] = {T(0.3), T(-0.6), T(0.93), T(-0.995), T(0.99995), T(-0.9999999)};
  for (int slot = 0; slot < 3; ++slot)
    for (double sw : switches)
      for (int k = -40; k <= 40; ++k) {
        T x = T(sw);
        for (int j = 0; j < std::abs(k); ++j) x = std::nextafter(x, k < 0 ? T(0) : T(1));
        for (T v : {x, T(-x)}) {
          SCOPED_TRACE("slot " + std::to_string(slot) + " k " + std::to_string(k));
          Recorder quiet(PEX_ERRMODE_IGNORE);
          T alone;
          run<T>(slot, 1, &v, &alone);
          const double e = frac_ulps<T>(alone, double(v));
          EXPECT_LE(e, tight_bound(slot, sizeof(T) == 4)) << "x = " << double(v);
          for (T o : others)
            for (int pos = 0; pos < 2; ++pos) {
              T a[2] = {o, o}, r[2];
              a[pos] = v;
              run<T>(slot, 2, a, r);
              EXPECT_EQ(bits(r[pos]), bits(alone)) << "x = " << double(v) << " beside " << double(o);
            }
        }
      }
}

TEST(VmErfInv, SwitchPointsDouble) { check_switch_points<double>(); }
TEST(VmErfInv, SwitchPointsFloat) { check_switch_points<float>(); }

// The middle region, densely: uniform over 0.85 < |x| <= 0.99903, uniform in
// w over the same stretch (which weighs its upper end), and pairs mixing it
// with central values so that every register takes both polynomials.  Double
// LA and HA are held to 0.8 ulp over the central values too.
template <class T>
void accuracy_middle_region() {
  std::mt19937_64 g(23);
  std::uniform_real_distribution<double> u(0, 1);
  const double lo = 0.85, hi = x_of_w(6.25L);
  const long double w0 = -std::log1p(-0.85L * 0.85L);
  std::vector<T> xs;
  for (int i = 0; i < 15000; ++i) {
    // the central partner lies in the upper fifth of its region half the
    // time, where the central polynomial's correction terms are largest
    const double cu = u(g);
    const T m = T(lo + (hi - lo) * u(g)), c = T(i & 2 ? 0.85 * (2 * cu - 1) : 0.68 + 0.17 * cu);
    xs.push_back(i & 1 ? -m : m);
    xs.push_back(c);
    xs.push_back(T(x_of_w(w0 + (6.25L - w0) * u(g))));
  }
  for (int slot = 0; slot < 3; ++slot) {
    T wx = 0;
    double worst = 0;
    std::vector<T> r(xs.size()), rs(xs.size());
    {
      Recorder quiet(PEX_ERRMODE_IGNORE);
      run<T>(slot, int(xs.size()), xs.data(), r.data());
      run_strided<T>(slot, int(xs.size()), xs.data(), 1, rs.data(), 1);
    }
    for (size_t i = 0; i < xs.size(); ++i) {
      EXPECT_EQ(bits(r[i]), bits(rs[i])) << "strided differs at x = " << xs[i];
      const double e = frac_ulps<T>(r[i], double(xs[i]));
      if (e > worst) worst = e, wx = xs[i];
    }
    EXPECT_LE(worst, tight_bound(slot, sizeof(T) == 4)) << "slot " << slot << " worst at x = " << wx;
    std::printf("middle region with central partners, %s slot %d: max %.3f ulp at %.17g\n",
                sizeof(T) == 4 ? "float" : "double", slot, worst, double(wx));
  }
}

TEST(VmErfInv, AccuracyOverMiddleRegionDouble) { accuracy_middle_region<double>(); }
TEST(VmErfInv, AccuracyOverMiddleRegionFloat) { accuracy_middle_region<float>(); }

}  // namespace
