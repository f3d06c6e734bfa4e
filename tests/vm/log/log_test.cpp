// Logarithm kernels (Ln, Log2, Log10, Log1p; float and double; every slot):
// special values with their bits and report codes, accuracy against MPFR in
// the regions the reductions find hardest, reports of mixed vectors with their
// own indices in both layouts, and independence from the body/tail split.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#if QOR_HAVE_MPFR
#include <mpfr.h>
#endif

#include "vm/vm_test_util.h"

using namespace qor::vm::test;

QOR_TEST_TABLES(sLn)
QOR_TEST_TABLES(dLn)
QOR_TEST_TABLES(sLog2)
QOR_TEST_TABLES(dLog2)
QOR_TEST_TABLES(sLog10)
QOR_TEST_TABLES(dLog10)
QOR_TEST_TABLES(sLog1p)
QOR_TEST_TABLES(dLog1p)

namespace {

enum Fn { kLn, kLog2, kLog10, kLog1p };
const char *const kNames[] = {"Ln", "Log2", "Log10", "Log1p"};

const QorPexKernelTable *table(Fn f, char t, bool strided) {
  static const QorPexKernelTable *const tabs[4][2][2] = {
      {{&qor_pex_kernel_sLn_ttab, &qor_pex_kernel_sLnI_ttab},
       {&qor_pex_kernel_dLn_ttab, &qor_pex_kernel_dLnI_ttab}},
      {{&qor_pex_kernel_sLog2_ttab, &qor_pex_kernel_sLog2I_ttab},
       {&qor_pex_kernel_dLog2_ttab, &qor_pex_kernel_dLog2I_ttab}},
      {{&qor_pex_kernel_sLog10_ttab, &qor_pex_kernel_sLog10I_ttab},
       {&qor_pex_kernel_dLog10_ttab, &qor_pex_kernel_dLog10I_ttab}},
      {{&qor_pex_kernel_sLog1p_ttab, &qor_pex_kernel_sLog1pI_ttab},
       {&qor_pex_kernel_dLog1p_ttab, &qor_pex_kernel_dLog1pI_ttab}}};
  return tabs[f][t == 'd'][strided];
}

template <class T>
constexpr char tchar() {
  return sizeof(T) == 4 ? 's' : 'd';
}

template <class T>
void run(Fn f, int slot, int n, const T *a, T *r) {
  auto k = reinterpret_cast<void (*)(int32_t, const T *, T *)>(
      table(f, tchar<T>(), false)->kernel[slot]);
  k(n, a, r);
}
template <class T>
void run_strided(Fn f, int slot, int n, const T *a, int inca, T *r, int incr) {
  auto k = reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(
      table(f, tchar<T>(), true)->kernel[slot]);
  k(n, a, inca, r, incr);
}

std::string report_name(Fn f, char t) { return std::string("v") + t + kNames[f]; }

// Bound in ulps for a function's kernel in a slot.  Kernels shared by all
// slots meet the high-accuracy bound; dLog10's EP slot runs its LA kernel.
template <class T>
double bound(Fn f, int slot) {
  const bool d = sizeof(T) == 8;
  const bool one = (!d && f == kLog2) || (d && (f == kLog2 || f == kLog1p));
  if (one || slot == 1) return 1.0;
  if (slot == 0 || (d && f == kLog10)) return 4.0;
  return d ? 0x1p27 : 8192.0;
}

template <class T>
T from(uint64_t b) {
  if constexpr (sizeof(T) == 4) {
    uint32_t u = uint32_t(b);
    float x;
    std::memcpy(&x, &u, 4);
    return x;
  } else {
    double x;
    std::memcpy(&x, &b, 8);
    return x;
  }
}

// ---- special values ----------------------------------------------------------

constexpr uint64_t kAnyNaN = ~0ull;  // expected result: some NaN, bits not fixed

struct Special {
  Fn f;
  char type;
  uint64_t in;   // argument bits
  uint64_t out;  // result bits, or kAnyNaN
  int code;
};

// Results that the functions fix exactly.  NaN arguments come back quieted
// with their payload and sign; float Ln's domain errors give 0x7FC00000.
const Special kSpecials[] = {
    // float Ln
    {kLn, 's', 0x00000000, 0xFF800000, 2},
    {kLn, 's', 0x80000000, 0xFF800000, 2},
    {kLn, 's', 0x7F800000, 0x7F800000, 0},
    {kLn, 's', 0xFF800000, 0x7FC00000, 1},
    {kLn, 's', 0xBF800000, 0x7FC00000, 1},
    {kLn, 's', 0x80000001, 0x7FC00000, 1},
    {kLn, 's', 0xFF7FFFFF, 0x7FC00000, 1},
    {kLn, 's', 0x7FC00000, 0x7FC00000, 0},
    {kLn, 's', 0x7FA12345, 0x7FE12345, 0},
    {kLn, 's', 0xFFC0ABCD, 0xFFC0ABCD, 0},
    {kLn, 's', 0x3F800000, 0x00000000, 0},
    // double Ln
    {kLn, 'd', 0x0000000000000000, 0xFFF0000000000000, 2},
    {kLn, 'd', 0x8000000000000000, 0xFFF0000000000000, 2},
    {kLn, 'd', 0x7FF0000000000000, 0x7FF0000000000000, 0},
    {kLn, 'd', 0xFFF0000000000000, kAnyNaN, 1},
    {kLn, 'd', 0xBFF0000000000000, kAnyNaN, 1},
    {kLn, 'd', 0x8000000000000001, kAnyNaN, 1},
    {kLn, 'd', 0x7FF4000000000123, 0x7FFC000000000123, 0},
    {kLn, 'd', 0xFFF8000000000042, 0xFFF8000000000042, 0},
    {kLn, 'd', 0x3FF0000000000000, 0x0000000000000000, 0},
    // Log2 and Log10: the same special values; exact at 1, powers of 2 and of 10
    {kLog2, 's', 0x00000000, 0xFF800000, 2},
    {kLog2, 's', 0x80000000, 0xFF800000, 2},
    {kLog2, 's', 0x7F800000, 0x7F800000, 0},
    {kLog2, 's', 0xFF800000, kAnyNaN, 1},
    {kLog2, 's', 0xC0000000, kAnyNaN, 1},
    {kLog2, 's', 0x7FA00001, 0x7FE00001, 0},
    {kLog2, 's', 0x3F800000, 0x00000000, 0},
    {kLog2, 's', 0x00000001, 0xC3150000, 0},  // 2^-149 -> -149
    {kLog2, 's', 0x7F000000, 0x42FE0000, 0},  // 2^127 -> 127
    {kLog2, 'd', 0x0000000000000000, 0xFFF0000000000000, 2},
    {kLog2, 'd', 0xFFF0000000000000, kAnyNaN, 1},
    {kLog2, 'd', 0x7FF0000000000000, 0x7FF0000000000000, 0},
    {kLog2, 'd', 0xFFF4000000000007, 0xFFFC000000000007, 0},
    {kLog2, 'd', 0x0000000000000001, 0xC090C80000000000, 0},  // 2^-1074 -> -1074
    {kLog2, 'd', 0x7FE0000000000000, 0x408FF80000000000, 0},  // 2^1023 -> 1023
    {kLog2, 'd', 0x3FF0000000000000, 0x0000000000000000, 0},
    {kLog10, 's', 0x80000000, 0xFF800000, 2},
    {kLog10, 's', 0x7F800000, 0x7F800000, 0},
    {kLog10, 's', 0xBF800000, kAnyNaN, 1},
    {kLog10, 's', 0x7FC00001, 0x7FC00001, 0},
    {kLog10, 's', 0x41200000, 0x3F800000, 0},  // 10 -> 1
    {kLog10, 's', 0x501502F9, 0x41200000, 0},  // 1e10 -> 10
    {kLog10, 'd', 0x0000000000000000, 0xFFF0000000000000, 2},
    {kLog10, 'd', 0xFFF0000000000000, kAnyNaN, 1},
    {kLog10, 'd', 0x7FF0000000000000, 0x7FF0000000000000, 0},
    {kLog10, 'd', 0x4024000000000000, 0x3FF0000000000000, 0},  // 10 -> 1
    {kLog10, 'd', 0x4059000000000000, 0x4000000000000000, 0},  // 100 -> 2
    // Log1p: pole at -1, domain below, zeros keep their sign, subnormals underflow
    {kLog1p, 's', 0xBF800000, 0xFF800000, 2},
    {kLog1p, 's', 0xBF800001, kAnyNaN, 1},
    {kLog1p, 's', 0xFF800000, kAnyNaN, 1},
    {kLog1p, 's', 0x7F800000, 0x7F800000, 0},
    {kLog1p, 's', 0x00000000, 0x00000000, 0},
    {kLog1p, 's', 0x80000000, 0x80000000, 0},
    {kLog1p, 's', 0x00000001, 0x00000001, 4},
    {kLog1p, 's', 0x807FFFFF, 0x807FFFFF, 4},
    {kLog1p, 's', 0x7FA00003, 0x7FE00003, 0},
    {kLog1p, 'd', 0xBFF0000000000000, 0xFFF0000000000000, 2},
    {kLog1p, 'd', 0xBFF0000000000001, kAnyNaN, 1},
    {kLog1p, 'd', 0xFFF0000000000000, kAnyNaN, 1},
    {kLog1p, 'd', 0x7FF0000000000000, 0x7FF0000000000000, 0},
    {kLog1p, 'd', 0x8000000000000000, 0x8000000000000000, 0},
    {kLog1p, 'd', 0x0000000000000001, 0x0000000000000001, 4},
    {kLog1p, 'd', 0x000FFFFFFFFFFFFF, 0x000FFFFFFFFFFFFF, 4},
    {kLog1p, 'd', 0xFFF8000000000099, 0xFFF8000000000099, 0},
};

template <class T>
void check_special(const Special &s, int slot, bool strided) {
  const T a[3] = {from<T>(s.in), T(0), T(0)};
  T r[3] = {T(7), T(7), T(7)};
  Recorder rec;
  if (strided)
    run_strided<T>(s.f, slot, 1, a, 2, r, 3);
  else
    run<T>(s.f, slot, 1, a, r);
  const std::string where = report_name(s.f, s.type) + " slot " + std::to_string(slot) +
                            (strided ? " strided" : "") + " of 0x" +
                            ([&] { char b[20]; snprintf(b, 20, "%llx", (unsigned long long)s.in); return std::string(b); })();
  if (s.out == kAnyNaN)
    EXPECT_TRUE(std::isnan(r[0])) << where;
  else
    EXPECT_EQ(uint64_t(bits(r[0])), s.out) << where;
  EXPECT_EQ(r[1], T(7)) << where << ": wrote past the element";
  const auto &rep = Recorder::reports();
  if (s.code == 0) {
    EXPECT_TRUE(rep.empty()) << where << " reported code " << rep[0].code;
  } else {
    ASSERT_EQ(rep.size(), 1u) << where;
    EXPECT_EQ(rep[0].code, s.code) << where;
    EXPECT_EQ(rep[0].index, 0) << where;
    EXPECT_EQ(rep[0].name, report_name(s.f, s.type)) << where;
  }
}

TEST(LogSpecial, ValuesAndCodesEverySlotBothLayouts) {
  for (const Special &s : kSpecials)
    for (int slot = 0; slot < 3; ++slot)
      for (bool strided : {false, true}) {
        if (s.type == 's')
          check_special<float>(s, slot, strided);
        else
          check_special<double>(s, slot, strided);
      }
}

// ---- accuracy against MPFR in the hard regions ---------------------------------

#if QOR_HAVE_MPFR
template <class T>
double mpfr_ulps(Fn f, T x, T got) {
  mpfr_t m;
  mpfr_init2(m, 200);
  mpfr_set_d(m, double(x), MPFR_RNDN);
  switch (f) {
    case kLn: mpfr_log(m, m, MPFR_RNDN); break;
    case kLog2: mpfr_log2(m, m, MPFR_RNDN); break;
    case kLog10: mpfr_log10(m, m, MPFR_RNDN); break;
    case kLog1p: mpfr_log1p(m, m, MPFR_RNDN); break;
  }
  double e = 0;
  if (mpfr_zero_p(m)) {
    e = got == 0 ? 0 : 1e30;
  } else {
    const long ex = mpfr_get_exp(m);  // m = 0.1xxx * 2^ex
    const int digits = sizeof(T) == 4 ? 24 : 53;
    const long emin = sizeof(T) == 4 ? -125 : -1021;
    mpfr_t g;
    mpfr_init2(g, 200);
    mpfr_set_d(g, double(got), MPFR_RNDN);
    mpfr_sub(g, g, m, MPFR_RNDN);
    mpfr_mul_2si(g, g, digits - std::max(ex, emin), MPFR_RNDN);
    e = std::fabs(mpfr_get_d(g, MPFR_RNDN));
    mpfr_clear(g);
  }
  mpfr_clear(m);
  return e;
}

template <class T>
T step(T x, int k) {
  for (; k > 0; --k) x = std::nextafter(x, std::numeric_limits<T>::infinity());
  for (; k < 0; ++k) x = std::nextafter(x, -std::numeric_limits<T>::infinity());
  return x;
}

// Arguments near the places where the reductions switch or cancel: 1 and its
// neighbours, 2/3 and 4/3 (float Ln's reduction boundaries), the edges of
// every double table subinterval, powers of two and ten, the extremes of the
// range, and for Log1p the neighbourhood of -1 and of 0 (tiny arguments).
template <class T>
std::vector<T> hard_points(Fn f) {
  std::vector<T> v;
  auto around = [&](T c, int w) {
    for (int k = -w; k <= w; ++k) v.push_back(step(c, k));
  };
  around(T(1), 40);
  around(T(2) / 3, 8);
  around(T(4) / 3, 8);
  around(std::numeric_limits<T>::min(), 4);
  around(std::numeric_limits<T>::max(), 4);
  v.push_back(std::numeric_limits<T>::denorm_min());
  for (int e = -60; e <= 60; e += 3) around(std::ldexp(T(1), e), 2);
  for (T p = T(1e-30); p < T(1e30); p *= T(10)) around(p, 1);
  if constexpr (sizeof(T) == 8) {
    // edges of the 128 subintervals (z = 0.748 .. 1.496 in pattern space)
    const uint64_t off = 0x3FF0000000000000ull - (64ull << 45) - (1ull << 44);
    for (uint64_t i = 0; i <= 128; ++i) around(from<double>(off + (i << 45)), 2);
  }
  if (f == kLog1p) {
    for (T t = T(1e-30); t < T(0.5); t *= T(3.7)) {
      around(t, 1);
      around(-t, 1);
      around(T(-1) + t, 1);
    }
  }
  std::vector<T> out;
  for (T x : v)
    if (std::isfinite(x) && (f == kLog1p ? x > T(-1) : x > 0)) out.push_back(x);
  return out;
}

template <class T>
void check_hard(Fn f) {
  const std::vector<T> x = hard_points<T>(f);
  std::vector<T> r(x.size());
  for (int slot = 0; slot < 3; ++slot) {
    run<T>(f, slot, int(x.size()), x.data(), r.data());
    double worst = 0;
    T wx = 0;
    for (size_t i = 0; i < x.size(); ++i) {
      const double e = mpfr_ulps<T>(f, x[i], r[i]);
      if (e > worst) worst = e, wx = x[i];
    }
    EXPECT_LE(worst, bound<T>(f, slot))
        << report_name(f, tchar<T>()) << " slot " << slot << " worst at " << double(wx);
  }
}

class LogHard : public ::testing::TestWithParam<Fn> {};
TEST_P(LogHard, FloatWithinSlotBound) { check_hard<float>(GetParam()); }
TEST_P(LogHard, DoubleWithinSlotBound) { check_hard<double>(GetParam()); }
INSTANTIATE_TEST_SUITE_P(All, LogHard, ::testing::Values(kLn, kLog2, kLog10, kLog1p),
                         [](const auto &i) { return std::string(kNames[i.param]); });

// ---- the subinterval of 1 in the double core -------------------------------------
// The double HA natural logarithm (Ln and Log1p) cuts z into a high and a
// low part everywhere except in the table's subinterval of 1, where z is
// kept whole.  Probed: both edges of that subinterval and of its
// neighbours, in binades from the smallest normal to the largest, a few
// doubles either side; 1 -/+ 2^-j inside it; in every slot and both
// layouts against MPFR; then each of these next to an element of another
// subinterval in both lane orders, whose result must not change it.
std::vector<double> unit_subinterval_points() {
  std::vector<double> v;
  const uint64_t off = 0x3FF0000000000000ull - (64ull << 45) - (1ull << 44);
  for (uint64_t i : {63u, 64u, 65u, 66u}) {
    const double edge = from<double>(off + (i << 45));
    for (int e : {-1021, -300, -2, -1, 0, 1, 2, 300, 1022})
      for (int k = -3; k <= 3; ++k) {
        const double x = step(std::ldexp(edge, e), k);
        if (std::isfinite(x) && x >= std::numeric_limits<double>::min()) v.push_back(x);
      }
  }
  for (int j = 9; j <= 53; ++j) {
    v.push_back(1.0 - std::ldexp(1.0, -j));
    v.push_back(1.0 + std::ldexp(1.0, -j));
    v.push_back(1.0 - 3 * std::ldexp(1.0, -j - 2));
  }
  return v;
}

TEST(LogUnitSubinterval, EdgesWithinSlotBoundBothLayouts) {
  const std::vector<double> x = unit_subinterval_points();
  const int n = int(x.size());
  for (Fn f : {kLn, kLog2, kLog10})
    for (int slot = 0; slot < 3; ++slot)
      for (int inc : {1, 3}) {
        std::vector<double> a(size_t(n) * inc), r(a.size());
        for (int i = 0; i < n; ++i) a[size_t(i) * inc] = x[size_t(i)];
        if (inc == 1)
          run<double>(f, slot, n, a.data(), r.data());
        else
          run_strided<double>(f, slot, n, a.data(), inc, r.data(), inc);
        double worst = 0, wx = 0;
        for (int i = 0; i < n; ++i) {
          const double e = mpfr_ulps<double>(f, x[size_t(i)], r[size_t(i) * inc]);
          if (e > worst) worst = e, wx = x[size_t(i)];
        }
        EXPECT_LE(worst, bound<double>(f, slot))
            << report_name(f, 'd') << " slot " << slot << " inc " << inc << " worst at " << wx;
      }
  // Log1p reaches the same core through u = 1 + x: x = u - 1 for the points
  // of the binade of 1
  std::vector<double> y;
  for (double u : x)
    if (u > 0.5 && u < 2) y.push_back(u - 1.0);
  std::vector<double> r(y.size());
  for (int slot = 0; slot < 3; ++slot) {
    run<double>(kLog1p, slot, int(y.size()), y.data(), r.data());
    double worst = 0, wx = 0;
    for (size_t i = 0; i < y.size(); ++i) {
      const double e = mpfr_ulps<double>(kLog1p, y[i], r[i]);
      if (e > worst) worst = e, wx = y[i];
    }
    EXPECT_LE(worst, bound<double>(kLog1p, slot)) << "vdLog1p slot " << slot << " worst at " << wx;
  }
}

TEST(LogUnitSubinterval, ResultIndependentOfNeighbour) {
  const std::vector<double> pts = unit_subinterval_points();
  const double others[] = {0.8, 1.3, 3.7, 1e-200};
  std::vector<double> x;
  for (size_t i = 0; i < pts.size(); ++i) {
    const double o = others[i % 4];
    x.insert(x.end(), {pts[i], o, o, pts[i]});  // both lane positions
  }
  const int n = int(x.size());
  std::vector<double> r(x.size());
  for (Fn f : {kLn, kLog2, kLog10})
    for (int slot = 0; slot < 3; ++slot) {
      run<double>(f, slot, n, x.data(), r.data());
      for (int i = 0; i < n; ++i) {
        double one = 0;
        run<double>(f, slot, 1, &x[size_t(i)], &one);
        EXPECT_EQ(bits(r[size_t(i)]), bits(one))
            << report_name(f, 'd') << " slot " << slot << " x " << x[size_t(i)];
      }
    }
}

TEST(LogSpecial, SmallestSubnormalAndLargestFiniteFloatLn) {
  const float a[2] = {std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max()};
  for (int slot = 0; slot < 3; ++slot) {
    float r[2];
    Recorder rec;
    run<float>(kLn, slot, 2, a, r);
    EXPECT_TRUE(Recorder::reports().empty());
    EXPECT_NEAR(r[0], -103.27893f, 1e-4f);
    EXPECT_LE(mpfr_ulps<float>(kLn, a[0], r[0]), 0.5);
    EXPECT_LE(mpfr_ulps<float>(kLn, a[1], r[1]), bound<float>(kLn, slot));
  }
}
#endif

#if QOR_HAVE_MPFR
// The float Log2, Log10 and Log1p kernels (one kernel in every slot, 1 ulp)
// at the edges of their reduction u = 2^k m, m in [sqrt(2)/2, sqrt(2)): u
// next to sqrt(2)/2 2^k and sqrt(2) 2^k for every binade, where |f| =
// |m - 1| is largest and so are the fit's error and the f^2, f^3 terms
// against the result (k = 1 at the lower edge, k = 0 at the upper), and
// next to 2/3 2^k and 4/3 2^k (the reduction of float Ln).  For Log1p
// u = 1 + x, so the arguments are those points minus 1 (and the huge ones
// where e / u is capped).  Both layouts.
void check_float_edges(Fn f) {
  std::vector<float> x;
  auto around = [&](float c, int w) {
    for (int k = -w; k <= w; ++k) x.push_back(step(c, k));
  };
  // (lower, upper) edge pairs: sqrt(2)/2 and sqrt(2) as floats, 2/3 and 4/3
  const float edges[2][2] = {{0.70710677f, 1.4142135f}, {2.0f / 3, 4.0f / 3}};
  for (int e = -126; e <= 127; ++e)
    for (const auto &pair : edges) {
      const float a = std::ldexp(pair[0], e), b = std::ldexp(pair[1], e);
      if (f == kLog1p) {
        if (a - 1 > -1 && std::isfinite(a)) around(a - 1, 3);
        if (std::isfinite(b)) around(b - 1, 3);
      } else {
        if (a >= std::numeric_limits<float>::min() && std::isfinite(a)) around(a, 3);
        if (std::isfinite(b)) around(b, 3);
      }
    }
  if (f == kLog1p) {
    for (float c : {0x1p24f, 0x1p60f, 0x1p100f, 0x1p127f, 9.0072e15f}) around(c, 3);
    // where 1 + x rounds in double (the widened kernel once took x - (u - 1)
    // as u's error there: 262144 ulp)
    for (int e = 50; e <= 70; ++e)
      for (int i = 1; i < 64; i += 3) x.push_back(std::ldexp(1.0f + float(i) / 64, e));
  }
  std::vector<float> in;
  for (float v : x)
    if (std::isfinite(v) && (f == kLog1p ? v > -1 && std::fabs(v) >= std::numeric_limits<float>::min()
                                         : v >= std::numeric_limits<float>::min()))
      in.push_back(v);
  const int n = int(in.size());
  std::vector<float> a(2 * n), r(3 * n);
  for (int i = 0; i < n; ++i) a[2 * i] = in[i];
  for (int slot = 0; slot < 3; ++slot)
    for (bool strided : {false, true}) {
      if (strided)
        run_strided<float>(f, slot, n, a.data(), 2, r.data(), 3);
      else
        run<float>(f, slot, n, in.data(), r.data());
      double worst = 0;
      float wx = 0;
      for (int i = 0; i < n; ++i) {
        const double e = mpfr_ulps<float>(f, in[i], r[strided ? 3 * i : i]);
        if (e > worst) worst = e, wx = in[i];
      }
      EXPECT_LE(worst, 1.0) << report_name(f, 's') << " slot " << slot
                            << (strided ? " strided" : "") << " worst at " << wx;
    }
}
class LogFloatEdges : public ::testing::TestWithParam<Fn> {};
TEST_P(LogFloatEdges, OneUlpEverySlotBothLayouts) { check_float_edges(GetParam()); }
INSTANTIATE_TEST_SUITE_P(FloatOneKernel, LogFloatEdges, ::testing::Values(kLog2, kLog10, kLog1p),
                         [](const auto &i) { return std::string(kNames[i.param]); });
#endif

// ---- mixed vectors: reports, indices, layouts, body and tail -------------------

template <class T>
std::vector<T> mixed(Fn f, std::vector<int> &special_idx, std::vector<int> &codes) {
  const T inf = std::numeric_limits<T>::infinity();
  const T nan = std::numeric_limits<T>::quiet_NaN();
  std::vector<T> v;
  for (int i = 0; i < 37; ++i) v.push_back(T(0.37) + T(i) * T(1.73));
  // (position, value, code)
  struct S {
    int at;
    T x;
    int code;
  };
  std::vector<S> s;
  if (f == kLog1p)
    s = {{0, T(-1), 2}, {5, T(-3), 1}, {9, nan, 0}, {14, inf, 0},
         {22, std::numeric_limits<T>::denorm_min(), 4}, {35, T(-1), 2}, {36, -inf, 1}};
  else
    s = {{0, T(0), 2}, {5, T(-3), 1}, {9, nan, 0}, {14, inf, 0},
         {22, std::numeric_limits<T>::denorm_min(), 0}, {35, -T(0), 2}, {36, -inf, 1}};
  special_idx.clear();
  codes.clear();
  for (auto &e : s) {
    v[e.at] = e.x;
    if (e.code) special_idx.push_back(e.at), codes.push_back(e.code);
  }
  return v;
}

template <class T>
void check_mixed(Fn f) {
  std::vector<int> idx, codes;
  const std::vector<T> x = mixed<T>(f, idx, codes);
  const int n = int(x.size());
  for (int slot = 0; slot < 3; ++slot) {
    // reference: each element alone (n = 1 runs the tail path)
    std::vector<T> ref(n);
    {
      Recorder rec;
      for (int i = 0; i < n; ++i) run<T>(f, slot, 1, &x[i], &ref[i]);
    }
    const std::string what = report_name(f, tchar<T>()) + " slot " + std::to_string(slot);
    auto same = [&](const std::vector<T> &got, int inc, const char *layout) {
      for (int i = 0; i < n; ++i) {
        const T g = got[size_t(i) * inc];
        if (std::isnan(ref[i]))
          EXPECT_TRUE(std::isnan(g)) << what << layout << " element " << i;
        else
          EXPECT_EQ(bits(g), bits(ref[i])) << what << layout << " element " << i;
      }
    };
    auto reported = [&](const char *layout) {
      const auto &rep = Recorder::reports();
      ASSERT_EQ(rep.size(), idx.size()) << what << layout;
      for (size_t j = 0; j < idx.size(); ++j) {
        EXPECT_EQ(rep[j].index, idx[j]) << what << layout;
        EXPECT_EQ(rep[j].code, codes[j]) << what << layout;
      }
    };
    {
      Recorder rec;
      std::vector<T> r(n);
      run<T>(f, slot, n, x.data(), r.data());
      same(r, 1, " contiguous");
      reported(" contiguous");
    }
    {
      Recorder rec;
      std::vector<T> a(size_t(n) * 3), r(size_t(n) * 2, T(5));
      for (int i = 0; i < n; ++i) a[size_t(i) * 3] = x[i];
      run_strided<T>(f, slot, n, a.data(), 3, r.data(), 2);
      same(r, 2, " strided");
      reported(" strided");
      for (int i = 0; i < n; ++i) EXPECT_EQ(r[size_t(i) * 2 + 1], T(5)) << what << " gap " << i;
    }
    {
      Recorder rec;
      std::vector<T> r = x;  // in place
      run<T>(f, slot, n, r.data(), r.data());
      same(r, 1, " in place");
      reported(" in place");
    }
    // every start and length: a result never depends on its position
    Recorder rec;
    for (int start = 0; start < 5; ++start)
      for (int len = 1; start + len <= n; len += 3) {
        std::vector<T> r(len + 1, T(9));
        run<T>(f, slot, len, x.data() + start, r.data());
        for (int i = 0; i < len; ++i) {
          if (std::isnan(ref[start + i]))
            EXPECT_TRUE(std::isnan(r[i]));
          else
            EXPECT_EQ(bits(r[i]), bits(ref[start + i])) << what << " start " << start << " len " << len;
        }
        EXPECT_EQ(r[len], T(9)) << what << " wrote past n";
      }
  }
}

class LogMixed : public ::testing::TestWithParam<Fn> {};
TEST_P(LogMixed, FloatReportsOnlySpecialsWithTheirIndices) { check_mixed<float>(GetParam()); }
TEST_P(LogMixed, DoubleReportsOnlySpecialsWithTheirIndices) { check_mixed<double>(GetParam()); }
INSTANTIATE_TEST_SUITE_P(All, LogMixed, ::testing::Values(kLn, kLog2, kLog10, kLog1p),
                         [](const auto &i) { return std::string(kNames[i.param]); });

// With flush-to-zero and denormals-are-zero on, the special lanes still go
// through the scalar path: float Ln of a subnormal is its true logarithm.
TEST(LogSpecial, SubnormalFloatLnUnderDenormalsAreZero) {
  ModeScope m(PEX_HA | PEX_FTZDAZ_ON | PEX_ERRMODE_CALLBACK);
  const float a[5] = {1e-40f, 2.0f, 3.0f, 4.0f, 1e-45f};
  float r[5];
  run<float>(kLn, 1, 5, a, r);
  EXPECT_NEAR(r[0], std::log(1e-40), 1e-4);
  EXPECT_NEAR(r[4], std::log(double(1e-45f)), 1e-4);
  EXPECT_NEAR(r[1], std::log(2.0), 1e-6);
}

}  // namespace

// Arguments whose result is exact or a quiet special raise no invalid or
// divide-by-zero flag: the vector code also runs on the lanes that the scalar
// path recomputes and must not leave a flag of its own there.
namespace {
template <class T>
void check_no_spurious_flags(Fn f) {
  const T inf = std::numeric_limits<T>::infinity();
  const std::vector<T> x = {inf, std::numeric_limits<T>::quiet_NaN(), T(1), T(2), T(0.5), inf,
                            -std::numeric_limits<T>::quiet_NaN()};
  std::vector<T> r(x.size());
  for (int slot = 0; slot < 3; ++slot)
    for (bool strided : {false, true}) {
      Recorder rec;
      std::feclearexcept(FE_ALL_EXCEPT);
      if (strided)
        run_strided<T>(f, slot, int(x.size()), x.data(), 1, r.data(), 1);
      else
        run<T>(f, slot, int(x.size()), x.data(), r.data());
      EXPECT_FALSE(std::fetestexcept(FE_INVALID))
          << report_name(f, tchar<T>()) << " slot " << slot << (strided ? " strided" : "");
      EXPECT_FALSE(std::fetestexcept(FE_DIVBYZERO))
          << report_name(f, tchar<T>()) << " slot " << slot << (strided ? " strided" : "");
      EXPECT_TRUE(Recorder::reports().empty());
    }
}
class LogFlags : public ::testing::TestWithParam<Fn> {};
TEST_P(LogFlags, FloatQuietArgumentsRaiseNoInvalidOrPoleFlag) {
  check_no_spurious_flags<float>(GetParam());
}
TEST_P(LogFlags, DoubleQuietArgumentsRaiseNoInvalidOrPoleFlag) {
  check_no_spurious_flags<double>(GetParam());
}
INSTANTIATE_TEST_SUITE_P(All, LogFlags, ::testing::Values(kLn, kLog2, kLog10, kLog1p),
                         [](const auto &i) { return std::string(kNames[i.param]); });
}  // namespace
