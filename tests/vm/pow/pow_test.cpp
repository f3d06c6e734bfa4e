// Pow and Powx kernels (s, d; every slot; contiguous and strided) against
// MPFR: the C99 Annex F special cases with bits and codes, negative bases
// with integer exponents, the overflow and underflow thresholds, accuracy
// over the whole range of normal results, exact powers, mixed vectors that
// report only their special lanes, and Powx equal to Pow on a broadcast
// exponent.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vm/vm_test_util.h"

using namespace qor::vm::test;

extern "C" const QorPexKernelTable qor_pex_kernel_sPow_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_sPowI_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dPow_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dPowI_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_sPowx_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_sPowxI_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dPowx_ttab;
extern "C" const QorPexKernelTable qor_pex_kernel_dPowxI_ttab;

namespace {

template <class T>
void pow_c(int slot, int n, const T *a, const T *b, T *r) {
  const auto &t = sizeof(T) == 4 ? qor_pex_kernel_sPow_ttab : qor_pex_kernel_dPow_ttab;
  reinterpret_cast<void (*)(int32_t, const T *, const T *, T *)>(t.kernel[slot])(n, a, b, r);
}
template <class T>
void pow_s(int slot, int n, const T *a, int ia, const T *b, int ib, T *r, int ir) {
  const auto &t = sizeof(T) == 4 ? qor_pex_kernel_sPowI_ttab : qor_pex_kernel_dPowI_ttab;
  reinterpret_cast<void (*)(int32_t, const T *, int32_t, const T *, int32_t, T *, int32_t)>(
      t.kernel[slot])(n, a, ia, b, ib, r, ir);
}
template <class T>
void powx_c(int slot, int n, const T *a, T b, T *r) {
  const auto &t = sizeof(T) == 4 ? qor_pex_kernel_sPowx_ttab : qor_pex_kernel_dPowx_ttab;
  reinterpret_cast<void (*)(int32_t, const T *, T, T *)>(t.kernel[slot])(n, a, b, r);
}
template <class T>
void powx_s(int slot, int n, const T *a, int ia, T b, T *r, int ir) {
  const auto &t = sizeof(T) == 4 ? qor_pex_kernel_sPowxI_ttab : qor_pex_kernel_dPowxI_ttab;
  reinterpret_cast<void (*)(int32_t, const T *, int32_t, T, T *, int32_t)>(t.kernel[slot])(
      n, a, ia, b, r, ir);
}

double bound(int slot, bool is_float) {
  if (slot == 1) return 1;
  if (slot == 0) return 4;
  return is_float ? 8192 : 134217728;
}

// x^y correctly rounded to double by MPFR (then compared in ulps of T).
double exact(double x, double y) {
  mpfr_t a, b, r;
  mpfr_inits2(200, a, b, r, (mpfr_ptr)0);
  mpfr_set_d(a, x, MPFR_RNDN);
  mpfr_set_d(b, y, MPFR_RNDN);
  mpfr_pow(r, a, b, MPFR_RNDN);
  double v = mpfr_get_d(r, MPFR_RNDN);
  mpfr_clears(a, b, r, (mpfr_ptr)0);
  return v;
}

// ---- accuracy -----------------------------------------------------------------------

template <class T>
void accuracy_all_slots() {
  std::mt19937_64 g(7);
  std::uniform_real_distribution<double> u(0, 1);
  const double lnmax = std::log(double(std::numeric_limits<T>::max()));
  const double lnmin = std::log(double(std::numeric_limits<T>::min()));
  const int emax = sizeof(T) == 4 ? 126 : 1022;
  std::vector<T> xs, ys;
  auto add = [&](T x, T y) { xs.push_back(x), ys.push_back(y); };
  for (int i = 0; i < 20000; ++i) {
    // any normal base; an exponent putting x^y anywhere in the normal range
    T x = T(std::ldexp(1 + u(g), int(u(g) * 2 * emax) - emax));
    double lx = std::log(double(x));
    double target = lnmin + (lnmax - lnmin) * u(g);
    if (lx == 0) continue;
    add(x, T(target / lx));
  }
  for (int i = 0; i < 5000; ++i) add(T(1 + (u(g) - 0.5) / 64), T((u(g) - 0.5) * 4000));  // x near 1
  for (int i = 0; i < 5000; ++i) add(T(4 * u(g) + 1e-3), T((u(g) - 0.5) * 120));
  for (int slot = 0; slot < 3; ++slot) {
    std::vector<T> r(xs.size()), rs(xs.size());
    Recorder rec(PEX_ERRMODE_IGNORE);
    pow_c<T>(slot, int(xs.size()), xs.data(), ys.data(), r.data());
    pow_s<T>(slot, int(xs.size()), xs.data(), 1, ys.data(), 1, rs.data(), 1);
    double worst = 0;
    size_t wi = 0;
    for (size_t i = 0; i < xs.size(); ++i) {
      ASSERT_EQ(bits(r[i]), bits(rs[i])) << i;
      double e = ulps<T>(r[i], exact(xs[i], ys[i]));
      if (e > worst) worst = e, wi = i;
    }
    EXPECT_LE(worst, bound(slot, sizeof(T) == 4))
        << "slot " << slot << " worst at " << xs[wi] << " ^ " << ys[wi];
  }
}

TEST(VmPow, AccuracyOverNormalRangeFloat) { accuracy_all_slots<float>(); }
TEST(VmPow, AccuracyOverNormalRangeDouble) { accuracy_all_slots<double>(); }

// Exact powers come out exact in the high-accuracy slot.
template <class T>
void exact_powers() {
  struct P {
    double x, y, want;
  } cases[] = {{2, 10, 1024},     {3, 5, 243},        {10, 7, 1e7},      {0.5, 3, 0.125},
               {4, 0.5, 2},       {16, 0.25, 2},      {9, -0.5, 1.0 / 3}, {1, 12345.5, 1},
               {7, 0, 1},         {7, 1, 7},          {2, -20, std::ldexp(1.0, -20)},
               {1.5, 2, 2.25},    {64, 1.0 / 3, 4}};
  for (const auto &c : cases) {
    T x = T(c.x), y = T(c.y), r;
    pow_c<T>(1, 1, &x, &y, &r);
    EXPECT_LE(ulps<T>(r, exact(x, y)), 0.5) << c.x << " ^ " << c.y;
    if (c.want == double(T(c.want)) && exact(x, y) == c.want) {
      EXPECT_EQ(r, T(c.want)) << c.x << " ^ " << c.y;
    }
  }
}
TEST(VmPow, ExactPowersFloat) { exact_powers<float>(); }
TEST(VmPow, ExactPowersDouble) { exact_powers<double>(); }

// ---- special values ------------------------------------------------------------------

struct Special {
  double x, y;
  int code;
};

// The special results are those of C99 Annex F (the C library's pow); the
// codes: pole 2 for a zero base under a finite negative exponent, domain 1 for
// a finite negative base under a finite non-integer exponent, overflow 3,
// underflow 4 (subnormal or zero result from nonzero operands).
template <class T>
void check_specials() {
  const double inf = INFINITY, nan = NAN;
  const bool f = sizeof(T) == 4;
  const double ovf = f ? 128 : 1024, sub = f ? -140 : -1070, tiny = f ? -150 : -1080,
               lo = f ? -126 : -1022;
  const std::vector<Special> cases = {
      // zero bases
      {0.0, -3, 2}, {-0.0, -3, 2}, {0.0, -2, 2}, {-0.0, -0.5, 2}, {0.0, 3, 0}, {-0.0, 3, 0},
      {-0.0, 2, 0}, {0.0, 0.5, 0}, {0.0, -inf, 0}, {-0.0, inf, 0}, {0.0, 0, 0},
      // one and zero exponents, NaN exceptions
      {1, nan, 0}, {1, inf, 0}, {1, -inf, 0}, {nan, 0, 0}, {nan, -0.0, 0}, {inf, 0, 0},
      {-1, inf, 0}, {-1, -inf, 0}, {nan, 2, 0}, {2, nan, 0},
      // infinite exponents
      {0.5, inf, 0}, {0.5, -inf, 0}, {2, inf, 0}, {2, -inf, 0}, {-0.5, inf, 0}, {-2, -inf, 0},
      // infinite bases
      {inf, 2, 0}, {inf, -1, 0}, {-inf, 3, 0}, {-inf, -3, 0}, {-inf, 2, 0}, {-inf, -2, 0},
      {-inf, 0.5, 0},
      // negative bases: integer exponents are fine, others are domain errors
      {-2, 3, 0}, {-2, -3, 0}, {-0.5, 2, 0}, {-3, 4, 0}, {-3, 0.5, 1}, {-1, 1.5, 1},
      {-2, -0.25, 1},
      // thresholds
      {2, ovf, 3}, {2, ovf - 0.01, 0}, {-2, ovf + 1, 3}, {10, f ? 39 : 309, 3},
      {2, sub, 4}, {2, tiny, 4}, {-2, tiny - 1, 4}, {2, lo, 0}, {0.5, -lo, 0},
      {0.5, -sub, 4},
      // subnormal base
      {double(std::numeric_limits<T>::denorm_min()), 0.5, 0},
      {double(std::numeric_limits<T>::denorm_min()), 1.0, 4},
      {double(std::numeric_limits<T>::denorm_min()), -0.01, 0},
  };
  for (int slot = 0; slot < 3; ++slot)
    for (const auto &c : cases) {
      T x = T(c.x), y = T(c.y);
      SCOPED_TRACE("slot " + std::to_string(slot) + " " + std::to_string(c.x) + " ^ " +
                   std::to_string(c.y));
      T want = std::pow(x, y);
      for (int where : {0, 5}) {
        T a[6] = {1.5, 2.5, 0.75, 3, 1.25, 2}, b[6] = {2, 0.5, -3, 1.5, 7, -1}, r[6];
        a[where] = x, b[where] = y;
        Recorder rec;
        pow_c<T>(slot, 6, a, b, r);
        if (std::isnan(want))
          EXPECT_TRUE(std::isnan(r[where]));
        else if (std::isinf(want) || want == 0 || want == 1)
          EXPECT_EQ(bits(r[where]), bits(want));
        else
          EXPECT_LE(ulps<T>(r[where], exact(x, y)), bound(slot, f));
        auto &rep = Recorder::reports();
        if (c.code) {
          ASSERT_EQ(rep.size(), 1u);
          EXPECT_EQ(rep[0].code, c.code);
          EXPECT_EQ(rep[0].index, where);
          EXPECT_EQ(rep[0].name, f ? "vsPow" : "vdPow");
        } else {
          EXPECT_TRUE(rep.empty()) << "code " << (rep.empty() ? 0 : rep[0].code);
        }
      }
    }
}

TEST(VmPow, SpecialValuesFloat) { check_specials<float>(); }
TEST(VmPow, SpecialValuesDouble) { check_specials<double>(); }

// ---- mixed vectors, Powx ------------------------------------------------------------

template <class T>
std::vector<T> mixed_bases(int n) {
  std::vector<T> a(n);
  for (int i = 0; i < n; ++i) a[i] = T(0.3 + 0.41 * i);
  a[2] = T(0);        // pole under a negative exponent
  a[9] = T(-2.5);     // domain under a non-integer exponent
  a[13] = T(NAN);     // unreported
  a[18] = T(1e30);    // overflow under a large exponent
  return a;
}

template <class T>
void check_mixed() {
  const int n = 21;
  const T y = T(-11.5);
  auto a = mixed_bases<T>(n);
  std::vector<T> b(n, y);
  for (int slot = 0; slot < 3; ++slot)
    for (int inc : {1, 2}) {
      SCOPED_TRACE("slot " + std::to_string(slot) + " inc " + std::to_string(inc));
      std::vector<T> sa(n * inc, T(3)), sb(n * inc, T(3)), r1(n * inc, T(-9)), r2(n * inc, T(-9));
      for (int i = 0; i < n; ++i) sa[i * inc] = a[i], sb[i * inc] = b[i];
      std::vector<Report> rep_pow, rep_powx;
      {
        Recorder rec;
        if (inc == 1)
          pow_c<T>(slot, n, sa.data(), sb.data(), r1.data());
        else
          pow_s<T>(slot, n, sa.data(), inc, sb.data(), inc, r1.data(), inc);
        rep_pow = Recorder::reports();
      }
      {
        Recorder rec;
        if (inc == 1)
          powx_c<T>(slot, n, sa.data(), y, r2.data());
        else
          powx_s<T>(slot, n, sa.data(), inc, y, r2.data(), inc);
        rep_powx = Recorder::reports();
      }
      // x = 1e30 ^ -11.5 underflows for both types
      ASSERT_EQ(rep_pow.size(), 3u);
      EXPECT_EQ(rep_pow[0].index, 2);
      EXPECT_EQ(rep_pow[0].code, 2);
      EXPECT_EQ(rep_pow[1].index, 9);
      EXPECT_EQ(rep_pow[1].code, 1);
      EXPECT_EQ(rep_pow[2].index, 18);
      EXPECT_EQ(rep_pow[2].code, 4);
      ASSERT_EQ(rep_powx.size(), rep_pow.size());
      for (size_t k = 0; k < rep_pow.size(); ++k) {
        EXPECT_EQ(rep_powx[k].index, rep_pow[k].index);
        EXPECT_EQ(rep_powx[k].code, rep_pow[k].code);
        EXPECT_EQ(rep_powx[k].arg2, double(y));
        EXPECT_EQ(rep_powx[k].name, sizeof(T) == 4 ? "vsPowx" : "vdPowx");
      }
      for (int i = 0; i < n * inc; ++i) {
        if (i % inc) {
          EXPECT_EQ(r1[i], T(-9));
          EXPECT_EQ(r2[i], T(-9));
          continue;
        }
        EXPECT_EQ(bits(r1[i]), bits(r2[i])) << "Powx differs from Pow at " << i / inc;
        // the same value as computed alone
        T one;
        {
          Recorder quiet(PEX_ERRMODE_IGNORE);
          pow_c<T>(slot, 1, &a[i / inc], &b[i / inc], &one);
        }
        if (std::isnan(one))
          EXPECT_TRUE(std::isnan(r1[i]));
        else
          EXPECT_EQ(bits(r1[i]), bits(one)) << i / inc;
      }
    }
}

TEST(VmPow, MixedVectorReportsOnlySpecialLanesFloat) { check_mixed<float>(); }
TEST(VmPow, MixedVectorReportsOnlySpecialLanesDouble) { check_mixed<double>(); }

// In place: the result overwrites the base vector.
TEST(VmPow, InPlaceEqualsOutOfPlace) {
  std::vector<double> a(37), b(37), r(37);
  for (int i = 0; i < 37; ++i) a[i] = 0.1 + 0.37 * i, b[i] = -3 + 0.29 * i;
  for (int slot = 0; slot < 3; ++slot) {
    auto c = a;
    pow_c<double>(slot, 37, a.data(), b.data(), r.data());
    pow_c<double>(slot, 37, c.data(), b.data(), c.data());
    for (int i = 0; i < 37; ++i) EXPECT_EQ(dbits(c[i]), dbits(r[i])) << i;
  }
}

}  // namespace
