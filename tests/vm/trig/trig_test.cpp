// Sin, Cos, SinCos and Tan kernels: accuracy against MPFR in every slot and
// form, special values with their error codes, mixed vectors where only the
// off-fast-path elements are reported (with their own indices), independence
// from where an element falls, in-place operation, and SinCos against the
// single functions.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "harness.h"
#include "vm/vm_test_util.h"

#include <mpfr.h>

using namespace qor::vm::test;

QOR_TEST_TABLES(sSin)
QOR_TEST_TABLES(dSin)
QOR_TEST_TABLES(sCos)
QOR_TEST_TABLES(dCos)
QOR_TEST_TABLES(sTan)
QOR_TEST_TABLES(dTan)
QOR_TEST_TABLES(sSinCos)
QOR_TEST_TABLES(dSinCos)

namespace {

enum class Fn { Sin, Cos, Tan, SinCos };
const char *fn_name(Fn f) {
  switch (f) {
    case Fn::Sin: return "Sin";
    case Fn::Cos: return "Cos";
    case Fn::Tan: return "Tan";
    default: return "SinCos";
  }
}

template <class T>
const QorPexKernelTable &table(Fn f, bool strided) {
  constexpr bool s = sizeof(T) == 4;
  switch (f) {
    case Fn::Sin:
      return s ? (strided ? qor_pex_kernel_sSinI_ttab : qor_pex_kernel_sSin_ttab)
               : (strided ? qor_pex_kernel_dSinI_ttab : qor_pex_kernel_dSin_ttab);
    case Fn::Cos:
      return s ? (strided ? qor_pex_kernel_sCosI_ttab : qor_pex_kernel_sCos_ttab)
               : (strided ? qor_pex_kernel_dCosI_ttab : qor_pex_kernel_dCos_ttab);
    case Fn::Tan:
      return s ? (strided ? qor_pex_kernel_sTanI_ttab : qor_pex_kernel_sTan_ttab)
               : (strided ? qor_pex_kernel_dTanI_ttab : qor_pex_kernel_dTan_ttab);
    default:
      return s ? (strided ? qor_pex_kernel_sSinCosI_ttab : qor_pex_kernel_sSinCos_ttab)
               : (strided ? qor_pex_kernel_dSinCosI_ttab : qor_pex_kernel_dSinCos_ttab);
  }
}

template <class T>
double bound(int slot) {
  if (slot == 1) return 1.0;
  if (slot == 0) return 4.0;
  return sizeof(T) == 4 ? 8192.0 : 134217728.0;
}

// Runs one slot over n elements with increment inc (1: contiguous form).
// r2 is used by SinCos only.  Buffers must hold (n - 1) * inc + 1 elements.
template <class T>
void run(Fn f, int slot, int n, const T *a, T *r1, T *r2, int inc = 1) {
  const void *k = table<T>(f, inc != 1).kernel[slot];
  if (f == Fn::SinCos) {
    if (inc == 1)
      reinterpret_cast<void (*)(int32_t, const T *, T *, T *)>(k)(n, a, r1, r2);
    else
      reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t, T *, int32_t)>(k)(
          n, a, inc, r1, inc, r2, inc);
  } else {
    if (inc == 1)
      reinterpret_cast<void (*)(int32_t, const T *, T *)>(k)(n, a, r1);
    else
      reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(k)(n, a, inc, r1,
                                                                                inc);
  }
}

// Error of `got` in ulps of T against the value of the function at x, from a
// 256-bit MPFR evaluation.  `second` selects cos for SinCos.
template <class T>
double ulp_error(Fn f, bool second, T x, T got) {
  if (std::isnan(got)) return 1e30;
  mpfr_t X, Y, D;
  mpfr_inits2(256, X, Y, D, (mpfr_ptr)0);
  mpfr_set_d(X, double(x), MPFR_RNDN);
  if (f == Fn::Sin || (f == Fn::SinCos && !second))
    mpfr_sin(Y, X, MPFR_RNDN);
  else if (f == Fn::Cos || f == Fn::SinCos)
    mpfr_cos(Y, X, MPFR_RNDN);
  else
    mpfr_tan(Y, X, MPFR_RNDN);
  mpfr_sub_d(D, Y, double(got), MPFR_RNDN);
  const int digits = sizeof(T) == 4 ? 24 : 53;
  const long emin = sizeof(T) == 4 ? -125 : -1021;
  long e = mpfr_zero_p(Y) ? emin : mpfr_get_exp(Y);  // Y = m 2^e, 0.5 <= m < 1
  if (e < emin) e = emin;
  mpfr_mul_2si(D, D, digits - e, MPFR_RNDN);
  double u = std::fabs(mpfr_get_d(D, MPFR_RNDN));
  mpfr_clears(X, Y, D, (mpfr_ptr)0);
  return u;
}

// ---- accuracy of the exported entry points, every slot and form ---------------

struct AccCase {
  const char *fn;
  char type;
  int slot;
  bool strided;
};

void PrintTo(const AccCase &c, std::ostream *os) {
  *os << c.fn << " " << c.type << " " << slot_name(c.slot) << (c.strided ? " strided" : "");
}

std::vector<AccCase> acc_cases() {
  std::vector<AccCase> v;
  for (const char *f : {"Sin", "Cos", "SinCos", "Tan"})
    for (char t : {'s', 'd'})
      for (int s = 0; s < 3; ++s)
        for (bool st : {false, true}) v.push_back({f, t, s, st});
  return v;
}

class TrigAccuracy : public ::testing::TestWithParam<AccCase> {};

TEST_P(TrigAccuracy, LibraryWithinSlotBound) {
  const AccCase &c = GetParam();
  const auto *info = qor::accuracy::find_function(c.fn);
  ASSERT_NE(info, nullptr);
  qor::accuracy::Options o;
  o.type = c.type;
  o.slot = c.slot;
  o.library = true;
  o.library_path = QOR_SHARED_LIBRARY;
  o.strided = c.strided;
  o.samples = 20000;
  o.quiet = true;
  o.seed = 0x7219ULL * (c.slot + 1) + uint64_t(c.type) + (c.strided ? 17 : 0);
  const auto r = qor::accuracy::measure(*info, o);
  ASSERT_TRUE(r.error.empty()) << r.error;
  EXPECT_EQ(r.special_mismatch, 0) << qor::accuracy::format_report(*info, r, true);
  EXPECT_EQ(r.layout_damage, 0) << qor::accuracy::format_report(*info, r, true);
  EXPECT_LE(r.max_ulp, r.bound()) << qor::accuracy::format_report(*info, r, true);
}

INSTANTIATE_TEST_SUITE_P(All, TrigAccuracy, ::testing::ValuesIn(acc_cases()),
                         [](const ::testing::TestParamInfo<AccCase> &i) {
                           return std::string(i.param.fn) + "_" + i.param.type + "_" +
                                  slot_name(i.param.slot) + (i.param.strided ? "_I" : "");
                         });

// ---- special values and codes ---------------------------------------------------

// How a result is judged: against MPFR within the slot's bound, or exactly.
enum class Want {
  Mpfr,     // finite value within the bound, no report
  SameBits, // the argument itself (sin, tan of zeros and subnormals)
  One,      // exactly 1 (cos of zeros and subnormals)
  NaN,      // a NaN
  QuietArg, // the argument's NaN, quieted, payload kept
};

struct SpecialRow {
  const char *what;
  double x;  // converted to the element type (exact for every row used)
  Want sin, cos, tan;
  int sin_code, cos_code, tan_code;  // codes reported for the element (0: none)
};

template <class T>
T nan_with_payload(bool negative) {
  if constexpr (sizeof(T) == 4) {
    uint32_t b = 0x7FC12345u | (negative ? 0x80000000u : 0);
    T x;
    std::memcpy(&x, &b, 4);
    return x;
  } else {
    uint64_t b = 0x7FF8000123456789ull | (negative ? 0x8000000000000000ull : 0);
    T x;
    std::memcpy(&x, &b, 8);
    return x;
  }
}
template <class T>
T signalling_nan() {
  if constexpr (sizeof(T) == 4) {
    uint32_t b = 0x7F800ABCu;
    T x;
    std::memcpy(&x, &b, 4);
    return x;
  } else {
    uint64_t b = 0x7FF0000000000ABCull;
    T x;
    std::memcpy(&x, &b, 8);
    return x;
  }
}

// Rows common to both types; each type adds its own thresholds.
template <class T>
std::vector<SpecialRow> special_rows() {
  using L = std::numeric_limits<T>;
  const double inf = L::infinity();
  const double fast_limit = sizeof(T) == 4 ? 0x1p28 : 0x1p21;  // first value off the fast path
  std::vector<SpecialRow> v = {
      {"+0", 0.0, Want::SameBits, Want::One, Want::SameBits, 0, 0, 0},
      {"-0", -0.0, Want::SameBits, Want::One, Want::SameBits, 0, 0, 0},
      {"+inf", inf, Want::NaN, Want::NaN, Want::NaN, 1, 1, 1},
      {"-inf", -inf, Want::NaN, Want::NaN, Want::NaN, 1, 1, 1},
      {"denorm_min", double(L::denorm_min()), Want::SameBits, Want::One, Want::SameBits, 4, 0, 4},
      {"-denorm_min", -double(L::denorm_min()), Want::SameBits, Want::One, Want::SameBits, 4, 0,
       4},
      {"largest subnormal", double(L::min() - L::denorm_min()), Want::SameBits, Want::One,
       Want::SameBits, 4, 0, 4},
      {"min normal", double(L::min()), Want::Mpfr, Want::One, Want::Mpfr, 0, 0, 0},
      {"-min normal", -double(L::min()), Want::Mpfr, Want::One, Want::Mpfr, 0, 0, 0},
      {"tiny 2^-30", 0x1p-30, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"pi/4 neighbour", double(T(0.7853981633974483)), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0,
       0},
      {"near pi/2", double(T(1.5707963267948966)), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"near -pi/2", -double(T(1.5707963267948966)), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"near pi", double(T(3.141592653589793)), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"near 3pi/2", double(T(4.71238898038469)), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"355 (113 pi)", 355.0, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"-710 (226 pi)", -710.0, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"52174 (16609 pi)", 52174.0, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"103993 (33102 pi)", 103993.0, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"last fast", double(std::nextafter(T(fast_limit), T(0))), Want::Mpfr, Want::Mpfr,
       Want::Mpfr, 0, 0, 0},
      {"-last fast", -double(std::nextafter(T(fast_limit), T(0))), Want::Mpfr, Want::Mpfr,
       Want::Mpfr, 0, 0, 0},
      {"first beyond", fast_limit, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"next beyond", double(std::nextafter(T(fast_limit), T(inf))), Want::Mpfr, Want::Mpfr,
       Want::Mpfr, 0, 0, 0},
      {"1e22", double(T(1e22)), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"max", double(L::max()), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
      {"-max", -double(L::max()), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0},
  };
  if constexpr (sizeof(T) == 8) {
    v.push_back({"1e300", 1e300, Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0});
    v.push_back({"FLT_MAX", double(FLT_MAX), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0});
    // the nearest double to a multiple of pi/2 over the whole range
    v.push_back({"6381956970095103 2^797", std::ldexp(6381956970095103.0, 797), Want::Mpfr,
                 Want::Mpfr, Want::Mpfr, 0, 0, 0});
    // doubles closest to k pi/2 inside the fast path
    v.push_back({"near 2^20 pi/2", std::ldexp(1.5707963267948966, 20), Want::Mpfr, Want::Mpfr,
                 Want::Mpfr, 0, 0, 0});
  } else {
    v.push_back({"FLT_MAX / 3", double(FLT_MAX / 3), Want::Mpfr, Want::Mpfr, Want::Mpfr, 0, 0, 0});
  }
  return v;
}

template <class T>
void check_value(Fn f, bool second, Want w, T x, T got, int slot, const std::string &ctx) {
  switch (w) {
    case Want::SameBits:
      EXPECT_EQ(bits(got), bits(x)) << ctx;
      break;
    case Want::One:
      EXPECT_EQ(got, T(1)) << ctx;
      break;
    case Want::NaN:
      EXPECT_TRUE(std::isnan(got)) << ctx;
      break;
    case Want::QuietArg: {
      EXPECT_TRUE(std::isnan(got)) << ctx;
      auto quiet = sizeof(T) == 4 ? uint64_t(0x00400000u) : uint64_t(0x0008000000000000ull);
      EXPECT_EQ(uint64_t(bits(got)), uint64_t(bits(x)) | quiet) << ctx;
      break;
    }
    case Want::Mpfr:
      ASSERT_TRUE(std::isfinite(got)) << ctx;
      EXPECT_LE(ulp_error<T>(f, second, x, got), bound<T>(slot)) << ctx << " got " << got;
      break;
  }
}

template <class T>
void special_values_all_slots() {
  auto rows = special_rows<T>();
  for (Fn f : {Fn::Sin, Fn::Cos, Fn::Tan, Fn::SinCos}) {
    for (int slot = 0; slot < 3; ++slot) {
      for (int inc : {1, 3}) {
        for (const auto &row : rows) {
          const T x = T(row.x);
          std::vector<T> a(size_t(inc), x), r1(size_t(inc), T(-7)), r2(size_t(inc), T(-7));
          Recorder rec;
          run<T>(f, slot, 1, a.data(), r1.data(), r2.data(), inc);
          std::string ctx = std::string(fn_name(f)) + " " + slot_name(slot) + " inc " +
                            std::to_string(inc) + " x = " + row.what;
          int want_code = 0;
          if (f == Fn::Sin) {
            check_value<T>(f, false, row.sin, x, r1[0], slot, ctx);
            want_code = row.sin_code;
          } else if (f == Fn::Cos) {
            check_value<T>(f, false, row.cos, x, r1[0], slot, ctx);
            want_code = row.cos_code;
          } else if (f == Fn::Tan) {
            check_value<T>(f, false, row.tan, x, r1[0], slot, ctx);
            want_code = row.tan_code;
          } else {
            check_value<T>(Fn::SinCos, false, row.sin, x, r1[0], slot, ctx + " (sin)");
            check_value<T>(Fn::SinCos, true, row.cos, x, r2[0], slot, ctx + " (cos)");
            want_code = row.sin_code ? row.sin_code : row.cos_code;
          }
          if (want_code) {
            ASSERT_EQ(Recorder::reports().size(), 1u) << ctx;
            EXPECT_EQ(Recorder::reports()[0].code, want_code) << ctx;
            EXPECT_EQ(Recorder::reports()[0].index, 0) << ctx;
            EXPECT_EQ(Recorder::reports()[0].name, std::string("v") + (sizeof(T) == 4 ? "s" : "d") +
                                                      fn_name(f))
                << ctx;
          } else {
            EXPECT_TRUE(Recorder::reports().empty()) << ctx;
          }
        }
        // NaN arguments: quiet NaN out with the payload kept, no report
        for (T x : {nan_with_payload<T>(false), nan_with_payload<T>(true), signalling_nan<T>()}) {
          T a[1] = {x}, r1[1] = {T(-7)}, r2[1] = {T(-7)};
          Recorder rec;
          run<T>(f, slot, 1, a, r1, r2);
          std::string ctx = std::string(fn_name(f)) + " " + slot_name(slot) + " NaN";
          check_value<T>(f, false, Want::QuietArg, x, r1[0], slot, ctx);
          if (f == Fn::SinCos) check_value<T>(f, true, Want::QuietArg, x, r2[0], slot, ctx);
          EXPECT_TRUE(Recorder::reports().empty()) << ctx;
        }
      }
    }
  }
}

TEST(TrigSpecial, FloatValuesAndCodes) { special_values_all_slots<float>(); }
TEST(TrigSpecial, DoubleValuesAndCodes) { special_values_all_slots<double>(); }

// ---- mixed vectors ----------------------------------------------------------------

// A vector of fast-path values with off-path elements planted at fixed
// positions, the last ones in the tail: only the planted elements that carry
// a code are reported, each with its own index; every result equals the
// result of the same element computed alone.
template <class T>
void mixed_vector(Fn f, int slot, int inc) {
  const int n = 37;  // 9 full float registers + 1 tail element; 18 double ones + 1
  std::vector<T> x(n);
  for (int i = 0; i < n; ++i) x[i] = T(0.37) * T(i - 18) + T(0.001) * T(i);
  const T inf = std::numeric_limits<T>::infinity();
  const T sub = std::numeric_limits<T>::denorm_min() * T(5);
  struct Plant {
    int index;
    T value;
    int sin_code, cos_code;
  };
  const Plant plants[] = {{3, inf, 1, 1},           {10, nan_with_payload<T>(false), 0, 0},
                          {17, sub, 4, 0},          {18, T(1e22), 0, 0},
                          {25, -std::numeric_limits<T>::max(), 0, 0}, {29, -sub, 4, 0},
                          {36, -inf, 1, 1}};
  for (const auto &p : plants) x[p.index] = p.value;

  std::vector<T> a(size_t(n) * inc, T(0)), r1(size_t(n) * inc, T(-3)), r2(size_t(n) * inc, T(-3));
  for (int i = 0; i < n; ++i) a[size_t(i) * inc] = x[i];
  Recorder rec;
  run<T>(f, slot, n, a.data(), r1.data(), r2.data(), inc);
  auto reports = Recorder::reports();

  std::string ctx = std::string(fn_name(f)) + " " + slot_name(slot) + " inc " + std::to_string(inc);
  std::vector<std::pair<int, int>> want;
  for (const auto &p : plants) {
    int c = (f == Fn::Cos) ? p.cos_code : p.sin_code;
    if (f == Fn::SinCos && !c) c = p.cos_code;
    if (c) want.push_back({p.index, c});
  }
  ASSERT_EQ(reports.size(), want.size()) << ctx;
  for (size_t j = 0; j < want.size(); ++j) {
    EXPECT_EQ(reports[j].index, want[j].first) << ctx;
    EXPECT_EQ(reports[j].code, want[j].second) << ctx;
    EXPECT_EQ(bits(T(reports[j].arg1)), bits(x[size_t(want[j].first)])) << ctx;
  }
  // each element alone (n = 1) gives the same bits as inside the vector
  for (int i = 0; i < n; ++i) {
    T s1 = T(-5), s2 = T(-5);
    Recorder quiet;
    run<T>(f, slot, 1, &x[size_t(i)], &s1, &s2);
    EXPECT_EQ(bits(r1[size_t(i) * inc]), bits(s1)) << ctx << " index " << i;
    if (f == Fn::SinCos) {
      EXPECT_EQ(bits(r2[size_t(i) * inc]), bits(s2)) << ctx << " index " << i;
    }
    if (std::isfinite(x[size_t(i)])) {
      EXPECT_LE(ulp_error<T>(f, false, x[size_t(i)], r1[size_t(i) * inc]), bound<T>(slot))
          << ctx << " index " << i;
    }
  }
  // gaps of the strided layout are untouched
  for (size_t j = 0; j < r1.size(); ++j) {
    if (j % size_t(inc) == 0) continue;
    EXPECT_EQ(r1[j], T(-3)) << ctx;
    EXPECT_EQ(r2[j], T(-3)) << ctx;
  }
}

TEST(TrigMixed, OnlyOffPathElementsReportedWithTheirIndices) {
  for (Fn f : {Fn::Sin, Fn::Cos, Fn::Tan, Fn::SinCos})
    for (int slot = 0; slot < 3; ++slot)
      for (int inc : {1, 2, 5}) {
        mixed_vector<float>(f, slot, inc);
        mixed_vector<double>(f, slot, inc);
      }
}

// Every split of a vector into body and tail gives the same bits: n from 1 to
// 9 over the same leading elements.
template <class T>
void tail_independence(Fn f, int slot) {
  std::vector<T> x = {T(0.3), T(-2.9), T(7.5), T(1e3), T(-0.02), T(12.0), T(-1e5), T(0.7), T(4.0)};
  std::vector<T> full1(x.size()), full2(x.size());
  run<T>(f, slot, int(x.size()), x.data(), full1.data(), full2.data());
  for (size_t n = 1; n <= x.size(); ++n) {
    std::vector<T> r1(n), r2(n);
    run<T>(f, slot, int(n), x.data(), r1.data(), r2.data());
    for (size_t i = 0; i < n; ++i) {
      EXPECT_EQ(bits(r1[i]), bits(full1[i])) << fn_name(f) << " n " << n << " i " << i;
      if (f == Fn::SinCos) {
        EXPECT_EQ(bits(r2[i]), bits(full2[i])) << "SinCos cos n " << n;
      }
    }
  }
}

TEST(TrigMixed, ResultIndependentOfBodyTailSplit) {
  for (Fn f : {Fn::Sin, Fn::Cos, Fn::Tan, Fn::SinCos})
    for (int slot = 0; slot < 3; ++slot) {
      tail_independence<float>(f, slot);
      tail_independence<double>(f, slot);
    }
}

// In place: the result vector is the argument vector (SinCos: either result).
template <class T>
void in_place(Fn f, int slot) {
  std::vector<T> x;
  for (int i = 0; i < 23; ++i) x.push_back(T(1.7) * T(i) - T(19));
  x[5] = std::numeric_limits<T>::infinity();
  std::vector<T> want1(x.size()), want2(x.size());
  {
    Recorder q;
    run<T>(f, slot, int(x.size()), x.data(), want1.data(), want2.data());
  }
  std::vector<T> y = x, other(x.size());
  Recorder rec;
  run<T>(f, slot, int(y.size()), y.data(), y.data(), other.data());
  for (size_t i = 0; i < x.size(); ++i) EXPECT_EQ(bits(y[i]), bits(want1[i])) << fn_name(f) << i;
  ASSERT_EQ(Recorder::reports().size(), 1u);
  EXPECT_EQ(Recorder::reports()[0].index, 5);
  if (f == Fn::SinCos) {
    std::vector<T> z = x, first(x.size());
    run<T>(f, slot, int(z.size()), z.data(), first.data(), z.data());
    for (size_t i = 0; i < x.size(); ++i) EXPECT_EQ(bits(z[i]), bits(want2[i])) << "cos " << i;
  }
}

TEST(TrigMixed, InPlace) {
  for (Fn f : {Fn::Sin, Fn::Cos, Fn::Tan, Fn::SinCos})
    for (int slot = 0; slot < 3; ++slot) {
      in_place<float>(f, slot);
      in_place<double>(f, slot);
    }
}

// ---- reduction next to multiples of pi/2 -------------------------------------------

// The element nearest to k pi/2 (and its neighbours) leaves the smallest
// reduced arguments, where a reduction short of bits shows at once.  k runs
// over small multiples and over multiples near the top of the fast path;
// the float list adds the closest approaches found by sweeping every float
// below 2^28 (binades 2^2, 2^7, 2^15, 2^21, 2^25).
template <class T>
std::vector<T> near_multiples() {
  std::vector<T> v;
  mpfr_t P, X;
  mpfr_inits2(256, P, X, (mpfr_ptr)0);
  mpfr_const_pi(P, MPFR_RNDN);
  mpfr_div_2ui(P, P, 1, MPFR_RNDN);
  const double top = sizeof(T) == 4 ? 0x1p28 : 0x1p21;
  std::vector<long> ks;
  for (long k = 1; k <= 400; ++k) ks.push_back(k);
  for (long k = long(top / 1.5707963267948966) - 300; k < long(top / 1.5707963267948966); ++k)
    ks.push_back(k);
  for (long k : ks) {
    mpfr_mul_si(X, P, k, MPFR_RNDN);
    T x = sizeof(T) == 4 ? T(mpfr_get_flt(X, MPFR_RNDN)) : T(mpfr_get_d(X, MPFR_RNDN));
    for (T y : {std::nextafter(x, T(0)), x, std::nextafter(x, T(1e30))}) {
      v.push_back(y);
      v.push_back(-y);
    }
  }
  mpfr_clears(P, X, (mpfr_ptr)0);
  if constexpr (sizeof(T) == 4) {
    for (float y : {4.71238899f, 252.898209f, 52516.4336f, 2709675.5f, 42781604.0f}) {
      v.push_back(y);
      v.push_back(-y);
    }
  }
  return v;
}

// Every element of x within the slot's bound, with no report, for the given
// functions and slots, contiguous and with each given stride.
template <class T>
void within_bound_at(const std::vector<T> &x, std::initializer_list<int> incs = {1},
                     std::initializer_list<Fn> fns = {Fn::Sin, Fn::Cos, Fn::Tan, Fn::SinCos},
                     std::initializer_list<int> slots = {0, 1, 2}) {
  const size_t n = x.size();
  for (Fn f : fns)
    for (int slot : slots)
      for (int inc : incs) {
        std::vector<T> a(n * size_t(inc)), r1(a.size()), r2(a.size());
        for (size_t i = 0; i < n; ++i) a[i * size_t(inc)] = x[i];
        Recorder rec;
        run<T>(f, slot, int(n), a.data(), r1.data(), r2.data(), inc);
        EXPECT_TRUE(Recorder::reports().empty()) << fn_name(f);
        double worst = 0, worst2 = 0;
        T at = 0;
        for (size_t i = 0; i < n; ++i) {
          double e = ulp_error<T>(f, false, x[i], r1[i * size_t(inc)]);
          if (e > worst) worst = e, at = x[i];
          if (f == Fn::SinCos) worst2 = std::max(worst2, ulp_error<T>(f, true, x[i], r2[i * size_t(inc)]));
        }
        EXPECT_LE(worst, bound<T>(slot))
            << fn_name(f) << " " << slot_name(slot) << " inc " << inc << " at " << at;
        EXPECT_LE(worst2, bound<T>(slot)) << "SinCos cos " << slot_name(slot) << " inc " << inc;
      }
}

// The values of T nearest k pi/2 for k from klo to khi, with their two
// neighbours.
template <class T>
std::vector<T> near_k_half_pi(long klo, long khi) {
  std::vector<T> v;
  mpfr_t P, X;
  mpfr_inits2(256, P, X, (mpfr_ptr)0);
  mpfr_const_pi(P, MPFR_RNDN);
  mpfr_div_2ui(P, P, 1, MPFR_RNDN);
  for (long k = klo; k <= khi; ++k) {
    mpfr_mul_si(X, P, k, MPFR_RNDN);
    T x;
    if constexpr (sizeof(T) == 4) x = mpfr_get_flt(X, MPFR_RNDN);
    else x = mpfr_get_d(X, MPFR_RNDN);
    for (T y : {std::nextafter(x, T(0)), x, std::nextafter(x, T(1e30))}) v.push_back(y);
  }
  mpfr_clears(P, X, (mpfr_ptr)0);
  return v;
}

// Elements laid out in registers of mixed kinds, contiguous and with stride
// 2: each result has the bits the element gets alone (and, with
// check_bound, is within the slot's bound).
template <class T>
void same_bits_as_alone(const std::vector<T> &x, std::initializer_list<Fn> fns, bool check_bound) {
  const int n = int(x.size());
  for (Fn f : fns)
    for (int slot = 0; slot < 3; ++slot)
      for (int inc : {1, 2}) {
        std::vector<T> a(size_t(n) * size_t(inc)), r1(a.size()), r2(a.size());
        for (int i = 0; i < n; ++i) a[size_t(i * inc)] = x[size_t(i)];
        run<T>(f, slot, n, a.data(), r1.data(), r2.data(), inc);
        for (int i = 0; i < n; ++i) {
          T one1 = 0, one2 = 0;
          run<T>(f, slot, 1, &x[size_t(i)], &one1, &one2);
          EXPECT_EQ(bits(r1[size_t(i * inc)]), bits(one1))
              << fn_name(f) << " " << slot_name(slot) << " x " << x[size_t(i)];
          if (check_bound) {
            EXPECT_LE(ulp_error<T>(f, false, x[size_t(i)], r1[size_t(i * inc)]), bound<T>(slot))
                << fn_name(f) << " " << slot_name(slot) << " x " << x[size_t(i)];
          }
          if (f == Fn::SinCos) {
            EXPECT_EQ(bits(r2[size_t(i * inc)]), bits(one2)) << "SinCos cos x " << x[size_t(i)];
          }
        }
      }
}

TEST(TrigReduction, NearestToMultiplesOfHalfPiFloat) { within_bound_at(near_multiples<float>()); }
TEST(TrigReduction, NearestToMultiplesOfHalfPiDouble) { within_bound_at(near_multiples<double>()); }

// Doubles below the fast-path bound that come closest to a multiple of pi/2
// (|r| from 2^-60.5 to 2^-52.3, found from the continued fraction of pi/2
// scaled to each binade), up to k = 1081409.  Here the reduced argument is
// smaller than the third piece's product k c3, the case where the
// reduction's second Fast2Sum sees its operands in the reverse order and
// relies on the difference being exact.
TEST(TrigReduction, ClosestDoublesToMultiplesOfHalfPi) {
  std::vector<double> x;
  for (double m : {0x1.6c6cbc45dc8dep+0, 0x1.39c6fd67805a7p+0, 0x1.9eb7148f354d6p+0,
                   0x1.921fb54442d18p+0, 0x1.67e57cdd4dc54p+0}) {
    for (int e = 0; e <= 20; ++e) {
      double y = std::ldexp(m, e);
      for (double z : {std::nextafter(y, 0.0), y, std::nextafter(y, 1e300)}) {
        x.push_back(z);
        x.push_back(-z);
      }
    }
  }
  within_bound_at(x);
}

// ---- float fast-path limit ----------------------------------------------------------
// The float LA and EP kernels reduce in float below 2^12 and in double from
// there on, lane by lane.  Elements on both sides of the limit (the floats
// next to it, the nearest ones to k pi/2 around it) must be within the slot's
// bound in both layouts, and each element's result must not depend on
// whether its register holds elements of the other side.
// The values next to 2^12 (steps on each side), the nearest ones to k pi/2
// around it (2607 pi/2 < 2^12 < 2608 pi/2), and their negatives.
template <class T>
std::vector<T> around_limit(int steps, long klo, long khi) {
  std::vector<T> v;
  T lo = 4096, hi = 4096;
  for (int i = 0; i < steps; ++i) {
    lo = std::nextafter(lo, T(0));
    v.push_back(lo);
    v.push_back(hi);
    hi = std::nextafter(hi, T(1e30));
  }
  for (T y : near_k_half_pi<T>(klo, khi)) v.push_back(y);
  const size_t n = v.size();
  for (size_t i = 0; i < n; ++i) v.push_back(-v[i]);
  return v;
}

TEST(TrigFloatLimit, BothSidesWithinBoundInBothLayouts) {
  within_bound_at(around_limit<float>(300, 2595, 2620), {1, 3});
}

TEST(TrigFloatLimit, ResultIndependentOfNeighboursAcrossTheLimit) {
  // small and large elements interleaved in every pattern of a register
  std::vector<float> x;
  const float small[] = {1.0f, 4095.75f, 2.35619450f, 4094.0f};
  const float large[] = {4096.0f, 4097.5f, 8192.0f, 100000.0f};
  for (int pat = 0; pat < 16; ++pat)
    for (int l = 0; l < 4; ++l) x.push_back(((pat >> l) & 1) ? large[(pat + l) % 4] : small[(pat + l) % 4]);
  same_bits_as_alone(x, {Fn::Sin, Fn::Cos, Fn::Tan, Fn::SinCos}, false);
}

// ---- double reduction limit 2^12 ---------------------------------------------------
// The double HA Sin, Cos and SinCos reduce with three pieces of pi/2 below
// 2^12 and with four from there on, lane by lane.  Probed: the doubles on
// both sides of 2^12 and the nearest ones to k pi/2 around it, both signs,
// every slot, both layouts; the doubles nearest every multiple of pi/2 below
// the limit, where the reduced argument is smallest; and elements of both
// sides sharing a register, whose results must be their own.
TEST(TrigDoubleLimit, BothSidesWithinBoundInBothLayouts) {
  within_bound_at(around_limit<double>(64, 2600, 2616), {1, 3});
}

// Every k from 1 to 2608 (the largest below 2^12): the double nearest k pi/2
// and its two neighbours, both signs.  The three-piece reduction's error
// bound rests on |r| >= 2^-60.5 for all of them.
TEST(TrigDoubleLimit, NearestToEveryMultipleOfHalfPiBelowTheLimit) {
  std::vector<double> x;
  for (double z : near_k_half_pi<double>(1, 2608)) {
    x.push_back(z);
    x.push_back(-z);
  }
  within_bound_at(x, {1}, {Fn::Sin, Fn::Cos, Fn::SinCos}, {1});
}

TEST(TrigDoubleLimit, ResultIndependentOfNeighbourAcrossTheLimit) {
  // one element below and one at or above 2^12 in every order, both signs,
  // and the pairs shifted by one so that each lane position sees both
  const double small[] = {0.5, 2.356194490192345, 4095.999999999999, -3.0, 6.283185307179586,
                          -4095.5};
  const double large[] = {4096.0, -4096.000000000001, 5000.25, 1e6, -2097151.5, 7.0e5};
  std::vector<double> x;
  for (int i = 0; i < 6; ++i) {
    x.push_back(small[i]);
    x.push_back(large[i]);
    x.push_back(large[(i + 1) % 6]);
    x.push_back(small[(i + 2) % 6]);
  }
  x.insert(x.begin(), 1.0);  // the same pairs again, one lane over
  const size_t half = x.size();
  for (size_t i = 1; i < half; ++i) x.push_back(x[i]);
  same_bits_as_alone(x, {Fn::Sin, Fn::Cos, Fn::SinCos}, true);
}

// The double HA sine reduces x itself and sends zeros to the per-element
// routine (the vector sum would turn -0 into +0): zeros keep their sign and
// are not reported whatever their neighbour, in every slot and layout, and
// the neighbours (subnormals, which are reported, and normal values on
// either side of the reduction limit) keep their own results.
TEST(TrigDoubleZero, SignKeptNextToOtherLanes) {
  const double zeros[] = {0.0, -0.0};
  const double others[] = {1.0, -2.5, 5000.0, -1e-300, 4.9e-324, -2.2250738585072014e-308};
  std::vector<double> x;
  for (double z : zeros)
    for (double o : others) x.insert(x.end(), {z, o, o, z});
  const int n = int(x.size());
  for (Fn f : {Fn::Sin, Fn::SinCos, Fn::Cos})
    for (int slot = 0; slot < 3; ++slot)
      for (int inc : {1, 2}) {
        std::vector<double> a(size_t(n) * size_t(inc)), r1(a.size()), r2(a.size());
        for (int i = 0; i < n; ++i) a[size_t(i * inc)] = x[size_t(i)];
        Recorder rec;
        run<double>(f, slot, n, a.data(), r1.data(), r2.data(), inc);
        for (const auto &rep : Recorder::reports())
          EXPECT_NE(x[size_t(rep.index)], 0.0) << fn_name(f) << " reported a zero at " << rep.index;
        for (int i = 0; i < n; ++i) {
          const double xi = x[size_t(i)], y = r1[size_t(i * inc)];
          if (xi == 0.0) {
            if (f == Fn::Cos)
              EXPECT_EQ(bits(y), bits(1.0)) << slot_name(slot);
            else
              EXPECT_EQ(bits(y), bits(xi)) << fn_name(f) << " " << slot_name(slot) << " inc " << inc;
          } else {
            EXPECT_LE(ulp_error<double>(f, false, xi, y), bound<double>(slot))
                << fn_name(f) << " " << slot_name(slot) << " x " << xi;
          }
        }
      }
}

// ---- SinCos against Sin and Cos ----------------------------------------------------

template <class T>
void sincos_matches_single(int slot) {
  std::vector<T> x;
  uint32_t s = 12345;
  for (int i = 0; i < 4000; ++i) {
    s = s * 1664525u + 1013904223u;
    double u = double(s) / 4294967296.0;
    // spread over several binades, both signs, inside and beyond the fast path
    double mag = std::ldexp(0.5 + u, int(s % 40) - 12);
    x.push_back(T((s & 1) ? -mag : mag));
  }
  const int n = int(x.size());
  std::vector<T> s1(x.size()), c1(x.size()), s2(x.size()), c2(x.size());
  run<T>(Fn::Sin, slot, n, x.data(), s1.data(), nullptr);
  run<T>(Fn::Cos, slot, n, x.data(), c1.data(), nullptr);
  run<T>(Fn::SinCos, slot, n, x.data(), s2.data(), c2.data());
  for (int i = 0; i < n; ++i) {
    // both within the slot's bound of the exact value, so within twice of each other
    EXPECT_LE(ulp_error<T>(Fn::Sin, false, x[size_t(i)], s2[size_t(i)]), bound<T>(slot)) << x[size_t(i)];
    EXPECT_LE(ulp_error<T>(Fn::Cos, false, x[size_t(i)], c2[size_t(i)]), bound<T>(slot)) << x[size_t(i)];
    EXPECT_LE(ulps<T>(s2[size_t(i)], double(s1[size_t(i)])), 2 * bound<T>(slot)) << x[size_t(i)];
    EXPECT_LE(ulps<T>(c2[size_t(i)], double(c1[size_t(i)])), 2 * bound<T>(slot)) << x[size_t(i)];
    // the double HA pair evaluates the single kernels' formulas in their order
    if (sizeof(T) == 8 && slot == 1 && std::fabs(double(x[size_t(i)])) < 0x1p21) {
      EXPECT_EQ(bits(s2[size_t(i)]), bits(s1[size_t(i)])) << x[size_t(i)];
      EXPECT_EQ(bits(c2[size_t(i)]), bits(c1[size_t(i)])) << x[size_t(i)];
    }
  }
}

TEST(TrigSinCos, AgreesWithSinAndCosInEverySlot) {
  for (int slot = 0; slot < 3; ++slot) {
    sincos_matches_single<float>(slot);
    sincos_matches_single<double>(slot);
  }
}

// With denormals-are-zero requested, a subnormal argument still goes to the
// per-element path and reports underflow (a floating-point comparison would
// see zero and take the fast path silently); the result is flushed.
TEST(TrigSpecial, SubnormalReportedUnderFtzDaz) {
  ModeScope m(PEX_FTZDAZ_ON | PEX_HA);
  for (int slot = 0; slot < 3; ++slot) {
    float xs[5] = {0.5f, 1e-40f, 2.0f, 3.0f, -1e-41f}, rs[5];
    Recorder rec;
    qor_pex_kernel_SetMode(qor_pex_kernel_GetMode() | PEX_FTZDAZ_ON);
    run<float>(Fn::Sin, slot, 5, xs, rs, nullptr);
    ASSERT_EQ(Recorder::reports().size(), 2u);
    EXPECT_EQ(Recorder::reports()[0].index, 1);
    EXPECT_EQ(Recorder::reports()[1].index, 4);
    EXPECT_EQ(Recorder::reports()[0].code, 4);
    EXPECT_EQ(Recorder::reports()[1].code, 4);
    EXPECT_EQ(rs[1], 0.0f);
    EXPECT_LE(ulp_error<float>(Fn::Sin, false, xs[2], rs[2]), bound<float>(slot));
  }
}

}  // namespace
