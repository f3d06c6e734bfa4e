// Arithmetic, root, rounding and comparison-like kernels: values against the
// C library, error reports, independence from the body/tail split, strided
// and in-place operation.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "vm_test_util.h"

using namespace qor::vm::test;

#define QOR_DECL_BOTH(F) QOR_TEST_TABLES(s##F) QOR_TEST_TABLES(d##F)
#define QOR_UNARY_LIST(X) \
  X(Sqr) X(Abs) X(Inv) X(Sqrt) X(InvSqrt) X(Cbrt) X(Floor) X(Ceil) X(Trunc) X(Rint) X(NearbyInt) \
  X(Round) X(Frac)
#define QOR_BINARY_LIST(X) \
  X(Add) X(Sub) X(Mul) X(Div) X(Fmax) X(Fmin) X(MaxMag) X(MinMag) X(CopySign) X(Fdim) \
  X(NextAfter) X(Fmod) X(Remainder)
QOR_UNARY_LIST(QOR_DECL_BOTH)
QOR_BINARY_LIST(QOR_DECL_BOTH)
QOR_DECL_BOTH(Modf)
QOR_DECL_BOTH(LinearFrac)

namespace {

struct Fn {
  std::string name;
  const QorPexKernelTable *contig[2];  // s, d
  const QorPexKernelTable *strided[2];
  bool binary;
};

std::vector<Fn> functions() {
  std::vector<Fn> v;
#define QOR_U(F)                                                                              \
  v.push_back({#F, {&qor_pex_kernel_s##F##_ttab, &qor_pex_kernel_d##F##_ttab},                 \
               {&qor_pex_kernel_s##F##I_ttab, &qor_pex_kernel_d##F##I_ttab}, false});
#define QOR_B(F)                                                                              \
  v.push_back({#F, {&qor_pex_kernel_s##F##_ttab, &qor_pex_kernel_d##F##_ttab},                 \
               {&qor_pex_kernel_s##F##I_ttab, &qor_pex_kernel_d##F##I_ttab}, true});
  QOR_UNARY_LIST(QOR_U)
  QOR_BINARY_LIST(QOR_B)
  return v;
}

template <class T>
std::vector<T> sample(int n, unsigned seed) {
  const T specials[] = {T(0),  -T(0), T(1),  T(-1), T(0.5), T(-0.5), T(1.5), T(-2.5), T(2.5),
                        T(3),  T(1e-3), std::numeric_limits<T>::infinity(),
                        -std::numeric_limits<T>::infinity(), std::numeric_limits<T>::quiet_NaN(),
                        std::numeric_limits<T>::denorm_min(), std::numeric_limits<T>::max(),
                        std::numeric_limits<T>::min(), T(1) / T(3), T(-7.75), T(1e30)};
  std::vector<T> v(n);
  unsigned s = seed;
  for (int i = 0; i < n; ++i) {
    s = s * 1103515245u + 12345u;
    if (s % 3 == 0)
      v[i] = specials[(s >> 8) % (sizeof specials / sizeof specials[0])];
    else
      v[i] = T((int(s >> 9) % 20001) - 10000) / T(64);
  }
  return v;
}

template <class T>
void call(const Fn &f, int slot, int n, const T *a, const T *b, T *r) {
  int t = sizeof(T) == 4 ? 0 : 1;
  const void *k = f.contig[t]->kernel[slot];
  if (f.binary)
    reinterpret_cast<void (*)(int32_t, const T *, const T *, T *)>(k)(n, a, b, r);
  else
    reinterpret_cast<void (*)(int32_t, const T *, T *)>(k)(n, a, r);
}
template <class T>
void call_strided(const Fn &f, int slot, int n, const T *a, int ia, const T *b, int ib, T *r,
                  int ir) {
  int t = sizeof(T) == 4 ? 0 : 1;
  const void *k = f.strided[t]->kernel[slot];
  if (f.binary)
    reinterpret_cast<void (*)(int32_t, const T *, int32_t, const T *, int32_t, T *, int32_t)>(k)(
        n, a, ia, b, ib, r, ir);
  else
    reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(k)(n, a, ia, r, ir);
}

template <class T>
void check_layouts() {
  Recorder rec(PEX_ERRMODE_IGNORE);
  const int n = 23;
  auto a = sample<T>(n, 7), b = sample<T>(n, 99);
  for (auto &f : functions()) {
    for (int slot = 0; slot < 3; ++slot) {
      std::vector<T> whole(n), single(n), str(3 * n, T(-99)), inplace = a;
      call(f, slot, n, a.data(), b.data(), whole.data());
      for (int i = 0; i < n; ++i) call(f, slot, 1, &a[i], &b[i], &single[i]);
      std::vector<T> a2(2 * n), b2(3 * n);
      for (int i = 0; i < n; ++i) a2[2 * i] = a[i], b2[3 * i] = b[i];
      call_strided(f, slot, n, a2.data(), 2, b2.data(), 3, str.data(), 3);
      call(f, slot, n, inplace.data(), b.data(), inplace.data());
      for (int i = 0; i < n; ++i) {
        SCOPED_TRACE(f.name + " slot " + std::to_string(slot) + " i " + std::to_string(i) +
                     (sizeof(T) == 4 ? " s" : " d"));
        EXPECT_EQ(bits(whole[i]), bits(single[i]));
        EXPECT_EQ(bits(whole[i]), bits(str[3 * i]));
        EXPECT_EQ(bits(whole[i]), bits(inplace[i]));
      }
      for (int i = 0; i < 3 * n; ++i)
        if (i % 3) {
          EXPECT_EQ(str[i], T(-99)) << f.name << " wrote between strided elements";
        }
    }
  }
}

TEST(VmArith, SplitStridedAndInPlaceGiveSameBits) {
  check_layouts<float>();
  check_layouts<double>();
}

// Values against the C library (exact functions) or within the slot's ulp
// bound (roots and reciprocals).
template <class T>
void check_values() {
  Recorder rec(PEX_ERRMODE_IGNORE);
  const int n = 400;
  auto a = sample<T>(n, 3), b = sample<T>(n, 5);
  struct Ref {
    const char *name;
    std::function<double(T, T)> f;
    double bound[3];  // ulps per slot; 0 means exact
  };
  auto sign_frac = [](T x) { return std::copysign(x - std::trunc(x), x); };
  std::vector<Ref> refs = {
      {"Add", [](T x, T y) { return double(T(x + y)); }, {0, 0, 0}},
      {"Sub", [](T x, T y) { return double(T(x - y)); }, {0, 0, 0}},
      {"Mul", [](T x, T y) { return double(T(x * y)); }, {0, 0, 0}},
      {"Sqr", [](T x, T) { return double(T(x * x)); }, {0, 0, 0}},
      {"Div", [](T x, T y) { return double(x) / double(y); }, {4, 0.5, 4}},
      {"Inv", [](T x, T) { return 1.0 / double(x); }, {4, 0.5, 4}},
      {"Sqrt", [](T x, T) { return std::sqrt(double(x)); }, {4, 0.5, 4}},
      {"InvSqrt", [](T x, T) { return double(1.0L / std::sqrt((long double)x)); }, {1, 1, 4}},
      {"Cbrt", [](T x, T) { return double(std::cbrt((long double)x)); }, {1, 1, 1}},
      {"Abs", [](T x, T) { return double(std::fabs(x)); }, {0, 0, 0}},
      {"Floor", [](T x, T) { return double(std::floor(x)); }, {0, 0, 0}},
      {"Ceil", [](T x, T) { return double(std::ceil(x)); }, {0, 0, 0}},
      {"Trunc", [](T x, T) { return double(std::trunc(x)); }, {0, 0, 0}},
      {"Rint", [](T x, T) { return double(std::nearbyint(x)); }, {0, 0, 0}},
      {"NearbyInt", [](T x, T) { return double(std::nearbyint(x)); }, {0, 0, 0}},
      {"Round", [](T x, T) { return double(std::round(x)); }, {0, 0, 0}},
      {"Frac", [=](T x, T) { return double(sign_frac(x)); }, {0, 0, 0}},
      {"Fmax", [](T x, T y) { return double(std::fmax(x, y)); }, {0, 0, 0}},
      {"Fmin", [](T x, T y) { return double(std::fmin(x, y)); }, {0, 0, 0}},
      {"CopySign", [](T x, T y) { return double(std::copysign(x, y)); }, {0, 0, 0}},
      {"Fdim", [](T x, T y) { return double(std::fdim(x, y)); }, {0, 0, 0}},
      {"NextAfter", [](T x, T y) { return double(std::nextafter(x, y)); }, {0, 0, 0}},
      {"Fmod", [](T x, T y) { return double(std::fmod(x, y)); }, {0, 0, 0}},
      {"Remainder", [](T x, T y) { return double(std::remainder(x, y)); }, {0, 0, 0}},
  };
  auto fns = functions();
  for (auto &ref : refs) {
    auto it = std::find_if(fns.begin(), fns.end(), [&](const Fn &f) { return f.name == ref.name; });
    ASSERT_NE(it, fns.end()) << ref.name;
    for (int slot = 0; slot < 3; ++slot) {
      std::vector<T> r(n);
      call(*it, slot, n, a.data(), b.data(), r.data());
      double worst = 0;
      for (int i = 0; i < n; ++i) {
        double want = ref.f(a[i], b[i]);
        if (std::isnan(want)) {
          EXPECT_TRUE(std::isnan(r[i])) << ref.name << " " << a[i] << " " << b[i];
          continue;
        }
        if (ref.bound[slot] == 0) {
          EXPECT_EQ(bits(r[i]), bits(T(want))) << ref.name << " slot " << slot << " a " << a[i]
                                               << " b " << b[i] << " got " << r[i];
        } else {
          // ulp distance to the exact value; subnormal and overflowing
          // results are compared to the rounded value
          double u = ulps<T>(r[i], want);
          if (std::fabs(want) < std::numeric_limits<T>::min() ||
              std::fabs(want) > std::numeric_limits<T>::max())
            u = r[i] == T(want) ? 0 : 1e30;
          worst = std::max(worst, u);
          if (u > ref.bound[slot]) ADD_FAILURE() << ref.name << " slot " << slot << " a " << a[i] << " got " << r[i] << " want " << want;
        }
      }
      if (ref.bound[slot] != 0) {
        EXPECT_LE(worst, ref.bound[slot]) << ref.name << " slot " << slot;
      }
    }
  }
}

TEST(VmArith, ValuesFloat) { check_values<float>(); }
TEST(VmArith, ValuesDouble) { check_values<double>(); }

// Random positive operands: the approximate LA/EP reciprocal paths stay
// within their bounds over the whole normal range.
TEST(VmArith, ReciprocalAndRootAccuracyOverRange) {
  Recorder rec(PEX_ERRMODE_IGNORE);
  const int n = 4096;
  std::vector<float> a(n), b(n), r(n);
  unsigned s = 12345;
  for (int i = 0; i < n; ++i) {
    s = s * 1664525u + 1013904223u;
    a[i] = std::ldexp(1.0f + float(s >> 8) / float(1 << 24), int(s % 240) - 120);
    s = s * 1664525u + 1013904223u;
    b[i] = std::ldexp(1.0f + float(s >> 8) / float(1 << 24), int(s % 240) - 120);
  }
  auto fns = functions();
  auto get = [&](const char *nm) {
    return *std::find_if(fns.begin(), fns.end(), [&](const Fn &f) { return f.name == nm; });
  };
  const double bound[3] = {4, 0.5, 4};
  for (int slot = 0; slot < 3; ++slot) {
    double w_div = 0, w_inv = 0, w_sqrt = 0, w_isq = 0;
    call(get("Div"), slot, n, a.data(), b.data(), r.data());
    for (int i = 0; i < n; ++i) w_div = std::max(w_div, ulps(r[i], double(a[i]) / b[i]));
    call(get("Inv"), slot, n, a.data(), b.data(), r.data());
    for (int i = 0; i < n; ++i) w_inv = std::max(w_inv, ulps(r[i], 1.0 / a[i]));
    call(get("Sqrt"), slot, n, a.data(), b.data(), r.data());
    for (int i = 0; i < n; ++i) w_sqrt = std::max(w_sqrt, ulps(r[i], std::sqrt(double(a[i]))));
    call(get("InvSqrt"), slot, n, a.data(), b.data(), r.data());
    for (int i = 0; i < n; ++i)
      w_isq = std::max(w_isq, ulps(r[i], 1.0 / std::sqrt(double(a[i]))));
    EXPECT_LE(w_div, bound[slot]) << slot;
    EXPECT_LE(w_inv, bound[slot]) << slot;
    EXPECT_LE(w_sqrt, bound[slot]) << slot;
    EXPECT_LE(w_isq, slot == 2 ? 4.0 : 1.0) << slot;
  }
}

// ---- error reports --------------------------------------------------------

struct ErrCase {
  const char *id;  // table id
  int slot;
  double a, b;
  int code;  // 0: no report
  const char *name;
};

const QorPexKernelTable *table_by_id(const std::string &id) {
  for (auto &f : functions())
    for (int t = 0; t < 2; ++t)
      if (std::string(1, "sd"[t]) + f.name == id) return f.contig[t];
  return nullptr;
}

TEST(VmArith, ErrorReports) {
  const double inf = INFINITY, nan = NAN, tiny = std::numeric_limits<float>::denorm_min();
  const ErrCase cases[] = {
      {"sDiv", 1, 1, -0.0, 2, "vsDiv"},      {"sDiv", 1, inf, 0, 0, ""},
      {"sDiv", 1, nan, 0, 0, ""},            {"sDiv", 1, 0, 0, 2, "vsDiv"},
      {"sDiv", 1, 1, inf, 0, ""},            {"sDiv", 0, 1, 0, 2, "vsDiv"},
      {"sDiv", 2, -3, 0, 2, "vsDiv"},        {"sDiv", 2, inf, 0, 0, ""},
      {"dDiv", 1, 5, 0, 2, "vdDiv"},         {"sInv", 0, 0, 0, 2, "vsInv"},
      {"dInv", 1, -0.0, 0, 2, "vdInv"},      {"sSqrt", 1, -1, 0, 1, "vsSqrt"},
      {"sSqrt", 0, -1, 0, 1, "vsSqrt"},      {"dSqrt", 2, -2, 0, 1, "vdSqrt"},
      {"sSqrt", 1, -0.0, 0, 0, ""},          {"sInvSqrt", 1, -4, 0, 1, "vsInvSqrt"},
      {"sInvSqrt", 2, 0, 0, 2, "vsInvSqrt"}, {"dInvSqrt", 1, -0.0, 0, 2, "vdInvSqrt"},
      {"sNextAfter", 1, 3.4028234663852886e38, inf, 3, "vsNextAfter"},
      {"sNextAfter", 1, tiny, 0, 4, "vsNextAfter"},
      {"sNextAfter", 1, 0, -1, 4, "vsNextAfter"},
      {"sNextAfter", 1, 1, 2, 0, ""},        {"dNextAfter", 1, 1, 1, 0, ""},
      {"sFmod", 1, 1, 0, 1, "vsFmod"},       {"dFmod", 1, inf, 2, 1, "vdFmod"},
      {"dFmod", 1, nan, 0, 0, ""},           {"sRemainder", 1, inf, 1, 1, "vsRemainder"},
      {"dRemainder", 1, 3, 0, 1, "vdRemainder"}, {"dRemainder", 1, 3, 2, 0, ""},
  };
  for (const auto &c : cases) {
    const QorPexKernelTable *tab = table_by_id(c.id);
    ASSERT_NE(tab, nullptr) << c.id;
    bool is_float = c.id[0] == 's';
    bool binary = std::string(c.id).find("Sqrt") == std::string::npos &&
                  std::string(c.id).find("Inv") != 1;
    // six elements: the exceptional one at index 5 (in the tail for float)
    for (int where : {0, 5}) {
      Recorder rec;
      SCOPED_TRACE(std::string(c.id) + " slot " + std::to_string(c.slot) + " a " +
                   std::to_string(c.a) + " at " + std::to_string(where));
      if (is_float) {
        float a[6] = {1, 2, 3, 4, 5, 6}, b[6] = {1, 1, 1, 1, 1, 1}, r[6];
        a[where] = float(c.a), b[where] = float(c.b);
        if (binary)
          reinterpret_cast<void (*)(int, const float *, const float *, float *)>(
              tab->kernel[c.slot])(6, a, b, r);
        else
          reinterpret_cast<void (*)(int, const float *, float *)>(tab->kernel[c.slot])(6, a, r);
      } else {
        double a[6] = {1, 2, 3, 4, 5, 6}, b[6] = {1, 1, 1, 1, 1, 1}, r[6];
        a[where] = c.a, b[where] = c.b;
        if (binary)
          reinterpret_cast<void (*)(int, const double *, const double *, double *)>(
              tab->kernel[c.slot])(6, a, b, r);
        else
          reinterpret_cast<void (*)(int, const double *, double *)>(tab->kernel[c.slot])(6, a, r);
      }
      auto &rep = Recorder::reports();
      if (c.code == 0) {
        EXPECT_TRUE(rep.empty());
        EXPECT_EQ(qor_pex_kernel_GetErrStatus(), 0);
      } else {
        ASSERT_EQ(rep.size(), 1u);
        EXPECT_EQ(rep[0].code, c.code);
        EXPECT_EQ(rep[0].index, where);
        EXPECT_EQ(rep[0].name, c.name);
        EXPECT_EQ(qor_pex_kernel_GetErrStatus(), c.code);
      }
    }
  }
}

TEST(VmArith, SDivHaStoresSignedInfinityAndReportsIndex) {
  Recorder rec;
  float a[3] = {2, 1, 7}, b[3] = {4, -0.0f, 7}, r[3];
  _pexsDiv(3, a, b, r);
  EXPECT_EQ(r[0], 0.5f);
  EXPECT_EQ(r[1], -INFINITY);
  EXPECT_EQ(r[2], 1.0f);
  ASSERT_EQ(Recorder::reports().size(), 1u);
  EXPECT_EQ(Recorder::reports()[0].index, 1);
  EXPECT_EQ(Recorder::reports()[0].arg2, 0.0);
}

TEST(VmArith, StridedReportCountsElementsNotMemory) {
  Recorder rec;
  float a[12] = {4, 0, 0, 9, 0, 0, -1, 0, 0, 16, 0, 0}, r[8] = {};
  _pexsSqrtI(4, a, 3, r, 2);
  ASSERT_EQ(Recorder::reports().size(), 1u);
  EXPECT_EQ(Recorder::reports()[0].index, 2);
  EXPECT_EQ(Recorder::reports()[0].arg1, -1.0);
  EXPECT_EQ(r[0], 2.0f);
  EXPECT_EQ(r[2], 3.0f);
  EXPECT_TRUE(std::isnan(r[4]));
  EXPECT_EQ(r[6], 4.0f);
  EXPECT_EQ(r[1], 0.0f);
}

TEST(VmArith, SAddOfFiveUsesBodyAndTail) {
  float a[6] = {1, 2, 3, 4, 5, 100}, b[6] = {10, 20, 30, 40, 50, 100}, r[6] = {0, 0, 0, 0, 0, -1};
  _pexsAdd(5, a, b, r);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(r[i], a[i] + b[i]);
  EXPECT_EQ(r[5], -1.0f) << "element past n untouched";
}

TEST(VmArith, SpecialValueRulesOfTheComparisons) {
  auto fns = functions();
  auto run = [&](const char *nm, float x, float y) {
    auto &f = *std::find_if(fns.begin(), fns.end(), [&](const Fn &g) { return g.name == nm; });
    float r;
    call(f, 1, 1, &x, &y, &r);
    return r;
  };
  struct Case {
    const char *f;
    float a, b, want;
  } cases[] = {
      {"Fmax", NAN, 2, 2},        {"Fmax", 2, NAN, 2},          {"Fmax", 0.0f, -0.0f, 0.0f},
      {"Fmax", -0.0f, 0.0f, 0.0f}, {"Fmin", 0.0f, -0.0f, -0.0f}, {"Fmin", NAN, -3, -3},
      {"MaxMag", -5, 3, -5},      {"MaxMag", 3, -3, 3},         {"MaxMag", NAN, -3, -3},
      {"MinMag", -5, 3, 3},       {"MinMag", 3, -3, -3},        {"MinMag", 1, NAN, 1},
      {"Fdim", 5, 3, 2},          {"Fdim", 3, 5, 0},            {"CopySign", 2, -0.0f, -2},
      {"Fdim", -INFINITY, -INFINITY, 0},
  };
  for (auto &c : cases) {
    float r = run(c.f, c.a, c.b);
    EXPECT_EQ(fbits(r), fbits(c.want)) << c.f << "(" << c.a << ", " << c.b << ") = " << r;
  }
  EXPECT_TRUE(std::isnan(run("Fmax", NAN, NAN)));
  EXPECT_TRUE(std::isnan(run("Fdim", NAN, 1)));
  EXPECT_TRUE(std::isnan(run("MaxMag", NAN, NAN)));
}

// Modf: both results, every layout.
TEST(VmArith, ModfBothResults) {
  const int n = 7;
  double a[n] = {2.5, -2.5, 0.0, -0.0, 1e300, -7.25, 3};
  double ip[n], fp[n], ip2[2 * n], fp2[3 * n];
  using K = void (*)(int, const double *, double *, double *);
  using KI = void (*)(int, const double *, int, double *, int, double *, int);
  reinterpret_cast<K>(qor_pex_kernel_dModf_ttab.kernel[1])(n, a, ip, fp);
  reinterpret_cast<KI>(qor_pex_kernel_dModfI_ttab.kernel[1])(n, a, 1, ip2, 2, fp2, 3);
  for (int i = 0; i < n; ++i) {
    double wi, wf = std::modf(a[i], &wi);
    EXPECT_EQ(dbits(ip[i]), dbits(wi)) << a[i];
    EXPECT_EQ(dbits(fp[i]), dbits(wf)) << a[i];
    EXPECT_EQ(dbits(ip2[2 * i]), dbits(wi));
    EXPECT_EQ(dbits(fp2[3 * i]), dbits(wf));
  }
}

TEST(VmArith, LinearFrac) {
  const int n = 6;
  float a[n] = {1, 2, 3, 4, 5, 6}, b[n] = {1, 0.5f, -1, 2, 3, -0.5f}, r[n], rs[2 * n];
  using K = void (*)(int, const float *, const float *, float, float, float, float, float *);
  using KI = void (*)(int, const float *, int, const float *, int, float, float, float, float,
                      float *, int);
  reinterpret_cast<K>(qor_pex_kernel_sLinearFrac_ttab.kernel[1])(n, a, b, 2, 1, 4, 2, r);
  reinterpret_cast<KI>(qor_pex_kernel_sLinearFracI_ttab.kernel[0])(n, a, 1, b, 1, 2, 1, 4, 2,
                                                                   rs, 2);
  for (int i = 0; i < n; ++i) {
    float want = (2 * a[i] + 1) / (4 * b[i] + 2);
    EXPECT_EQ(r[i], want) << i;
    EXPECT_EQ(rs[2 * i], want) << i;
  }
  double da[2] = {1, 2}, db[2] = {0, 1}, dr[2];
  using DK = void (*)(int, const double *, const double *, double, double, double, double,
                      double *);
  reinterpret_cast<DK>(qor_pex_kernel_dLinearFrac_ttab.kernel[2])(2, da, db, 1, 0, 0, 0, dr);
  EXPECT_EQ(dr[0], INFINITY) << "division by zero is an IEEE result, not a report";
  EXPECT_EQ(dr[1], INFINITY);
}

}  // namespace

extern "C" const QorPexKernelTable qor_pex_kernel_sCbrt_ttab;
TEST(VmArithRange, FloatCubeRootWithinOneUlpOverAllBinades) {
  const int n = 1 << 16;
  std::vector<float> a(n), r(n);
  unsigned s = 777;
  for (int i = 0; i < n; ++i) {
    s = s * 1664525u + 1013904223u;
    uint32_t b = s;  // any bit pattern: every binade, both signs, subnormals
    std::memcpy(&a[i], &b, 4);
  }
  reinterpret_cast<void (*)(int, const float *, float *)>(qor_pex_kernel_sCbrt_ttab.kernel[1])(
      n, a.data(), r.data());
  double worst = 0;
  for (int i = 0; i < n; ++i) {
    if (std::isnan(a[i])) {
      EXPECT_TRUE(std::isnan(r[i]));
      continue;
    }
    worst = std::max(worst, ulps(r[i], double(std::cbrt((long double)a[i]))));
  }
  EXPECT_LE(worst, 0.5001);  // evaluated to ~40 bits, rounded once
}
