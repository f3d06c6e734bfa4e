// The SIMD exponential kernels (Exp, Exp2, Exp10, Expm1; float and double;
// every slot): special values and thresholds with their report codes,
// reports from vectors that mix fast-path and special elements (contiguous
// and strided), independence of where an element falls, strided gaps and
// in-place operation.  Finite results are checked against the C library's
// long double functions within the slot's bound.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "vm/vm_test_util.h"

using namespace qor::vm::test;

QOR_TEST_TABLES(sExp)
QOR_TEST_TABLES(dExp)
QOR_TEST_TABLES(sExp2)
QOR_TEST_TABLES(dExp2)
QOR_TEST_TABLES(sExp10)
QOR_TEST_TABLES(dExp10)
QOR_TEST_TABLES(sExpm1)
QOR_TEST_TABLES(dExpm1)

namespace {

using ld = long double;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

enum Func { kExp, kExp2, kExp10, kExpm1 };
const char *const kNames[] = {"Exp", "Exp2", "Exp10", "Expm1"};

const QorPexKernelTable *table(Func f, char t, bool strided) {
  static const QorPexKernelTable *const tabs[4][2][2] = {
      {{&qor_pex_kernel_sExp_ttab, &qor_pex_kernel_sExpI_ttab},
       {&qor_pex_kernel_dExp_ttab, &qor_pex_kernel_dExpI_ttab}},
      {{&qor_pex_kernel_sExp2_ttab, &qor_pex_kernel_sExp2I_ttab},
       {&qor_pex_kernel_dExp2_ttab, &qor_pex_kernel_dExp2I_ttab}},
      {{&qor_pex_kernel_sExp10_ttab, &qor_pex_kernel_sExp10I_ttab},
       {&qor_pex_kernel_dExp10_ttab, &qor_pex_kernel_dExp10I_ttab}},
      {{&qor_pex_kernel_sExpm1_ttab, &qor_pex_kernel_sExpm1I_ttab},
       {&qor_pex_kernel_dExpm1_ttab, &qor_pex_kernel_dExpm1I_ttab}}};
  return tabs[f][t == 'd'][strided];
}

ld reference(Func f, ld x) {
  switch (f) {
    case kExp: return expl(x);
    case kExp2: return exp2l(x);
    case kExp10: return exp10l(x);
    default: return expm1l(x);
  }
}

// Slot bounds in ulps: LA 4, HA 1, EP 11 (float) / 26 (double) correct bits.
template <class T>
double bound(int slot) {
  if (slot == 0) return 4;
  if (slot == 1) return 1;
  return sizeof(T) == 4 ? 8192 : 134217728;
}

template <class T>
T from(uint64_t b) {
  T x;
  if constexpr (sizeof(T) == 4) {
    uint32_t v = uint32_t(b);
    std::memcpy(&x, &v, 4);
  } else {
    std::memcpy(&x, &b, 8);
  }
  return x;
}

// Runs one kernel over `in`; strided calls use increments 2 (argument) and 3
// (result) and check that the gaps between results stay untouched.
template <class T>
std::vector<T> run(Func f, int slot, bool strided, const std::vector<T> &in,
                   std::vector<Report> *reports = nullptr) {
  const int n = int(in.size());
  const void *k = table(f, sizeof(T) == 4 ? 's' : 'd', strided)->kernel[slot];
  std::vector<T> out(n);
  Recorder rec;
  if (!strided) {
    reinterpret_cast<void (*)(int32_t, const T *, T *)>(k)(n, in.data(), out.data());
  } else {
    const T fill = T(-12345.5);
    std::vector<T> a(2 * n + 1, fill), r(3 * n + 1, fill);
    for (int i = 0; i < n; ++i) a[2 * i] = in[i];
    reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(k)(n, a.data(), 2,
                                                                               r.data(), 3);
    for (int i = 0; i < 3 * n + 1; ++i) {
      if (i % 3 == 0 && i / 3 < n)
        out[i / 3] = r[i];
      else
        EXPECT_EQ(bits(r[i]), bits(fill)) << "strided gap " << i << " written";
    }
  }
  if (reports) *reports = Recorder::reports();
  return out;
}

// Checks one result against the long double reference: exact for infinite,
// zero and NaN references (the sign of zero included), within the slot bound
// otherwise.
template <class T>
void expect_value(Func f, int slot, T x, T got, const std::string &where) {
  const ld ref = reference(f, ld(x));
  const T rt = T(ref);
  if (std::isnan(ref)) {
    EXPECT_TRUE(std::isnan(got)) << where;
  } else if (std::isinf(rt) || rt == 0) {
    EXPECT_EQ(bits(got), bits(rt)) << where << " got " << got;
  } else {
    EXPECT_LE(ulps<T>(got, double(ref)), bound<T>(slot)) << where << " got " << got;
  }
}

// ---- special values and thresholds ------------------------------------------

struct Row {
  Func f;
  char t;      // 's' or 'd'
  double x;    // argument (exactly representable in the row's type)
  int code;    // expected report code (0: none)
};

float up(float x) { return std::nextafter(x, INFINITY); }
float dn(float x) { return std::nextafter(x, -INFINITY); }
double upd(double x) { return std::nextafter(x, kInf); }
double dnd(double x) { return std::nextafter(x, -kInf); }

std::vector<Row> rows() {
  const float fmin = std::numeric_limits<float>::min(), fden = std::numeric_limits<float>::denorm_min();
  const double dmin = std::numeric_limits<double>::min(), dden = std::numeric_limits<double>::denorm_min();
  const float ovf = 88.72283172607422f, unf = -103.97207641601562f, sub = -87.33654022216797f;
  const double dovf = 709.782712893384, dunf = -745.1332191019411;
  return {
      // sExp: zeros, tiny, infinities, thresholds and their neighbours
      {kExp, 's', 0.0, 0}, {kExp, 's', -0.0, 0}, {kExp, 's', fden, 0}, {kExp, 's', -fden, 0},
      {kExp, 's', 1.0, 0}, {kExp, 's', -1.0, 0}, {kExp, 's', kInf, 0}, {kExp, 's', -kInf, 0},
      {kExp, 's', ovf, 0}, {kExp, 's', dn(ovf), 0}, {kExp, 's', up(ovf), 3},
      {kExp, 's', 88.7229f, 3}, {kExp, 's', 1e30f, 3}, {kExp, 's', 88.0f, 0},
      {kExp, 's', 88.72f, 0}, {kExp, 's', -sub, 0}, {kExp, 's', dn(-sub), 0},
      {kExp, 's', sub, 0}, {kExp, 's', up(sub), 0}, {kExp, 's', dn(sub), 4},
      {kExp, 's', -90.0, 4}, {kExp, 's', unf, 4}, {kExp, 's', dn(unf), 4},
      {kExp, 's', up(unf), 4}, {kExp, 's', -104.0, 4}, {kExp, 's', -1e30f, 4},
      // dExp
      {kExp, 'd', 0.0, 0}, {kExp, 'd', -0.0, 0}, {kExp, 'd', dden, 0}, {kExp, 'd', -dden, 0},
      {kExp, 'd', kInf, 0}, {kExp, 'd', -kInf, 0}, {kExp, 'd', dovf, 0}, {kExp, 'd', upd(dovf), 3},
      {kExp, 'd', 710.0, 3}, {kExp, 'd', 1e300, 3}, {kExp, 'd', 708.3955078125, 0},
      {kExp, 'd', dnd(708.3955078125), 0}, {kExp, 'd', -708.3955078125, 0},
      {kExp, 'd', -708.39, 0}, {kExp, 'd', -708.4, 4}, {kExp, 'd', -720.0, 4},
      {kExp, 'd', dunf, 4}, {kExp, 'd', dnd(dunf), 4}, {kExp, 'd', -746.0, 4},
      {kExp, 'd', -1e300, 4}, {kExp, 'd', 709.7, 0},
      // Exp2
      {kExp2, 's', 0.0, 0}, {kExp2, 's', -0.0, 0}, {kExp2, 's', -kInf, 0}, {kExp2, 's', kInf, 0},
      {kExp2, 's', 125.5, 0}, {kExp2, 's', 126.0, 0}, {kExp2, 's', dn(128.0f), 0},
      {kExp2, 's', 128.0, 3}, {kExp2, 's', -126.0, 0}, {kExp2, 's', up(-126.0f), 0},
      {kExp2, 's', -126.5, 4}, {kExp2, 's', -149.0, 4}, {kExp2, 's', -150.0, 4},
      {kExp2, 's', -151.0, 4}, {kExp2, 's', fden, 0}, {kExp2, 's', -fmin, 0},
      {kExp2, 'd', 0.0, 0}, {kExp2, 'd', -kInf, 0}, {kExp2, 'd', 1022.0, 0},
      {kExp2, 'd', dnd(1024.0), 0}, {kExp2, 'd', 1024.0, 3}, {kExp2, 'd', -1022.0, 0},
      {kExp2, 'd', -1022.5, 4}, {kExp2, 'd', -1074.0, 4}, {kExp2, 'd', -1076.0, 4},
      {kExp2, 'd', dden, 0},
      // Exp10
      {kExp10, 's', 0.0, 0}, {kExp10, 's', -kInf, 0}, {kExp10, 's', kInf, 0},
      {kExp10, 's', 37.5, 0}, {kExp10, 's', 38.2f, 0}, {kExp10, 's', 38.5, 0},
      {kExp10, 's', 38.6f, 3},
      {kExp10, 's', -37.5, 0}, {kExp10, 's', -37.9f, 0}, {kExp10, 's', -38.0, 4},
      {kExp10, 's', -45.0, 4}, {kExp10, 's', -46.0, 4}, {kExp10, 's', 1.0, 0},
      {kExp10, 'd', 0.0, 0}, {kExp10, 'd', -kInf, 0}, {kExp10, 'd', 307.0, 0},
      {kExp10, 'd', 308.25, 0}, {kExp10, 'd', 308.3, 3}, {kExp10, 'd', -307.0, 0},
      {kExp10, 'd', -307.6, 0}, {kExp10, 'd', -308.0, 4}, {kExp10, 'd', -323.5, 4},
      {kExp10, 'd', -325.0, 4}, {kExp10, 'd', 22.0, 0},
      // Expm1: sign of zero, subnormal arguments, saturation at -1
      {kExpm1, 's', 0.0, 0}, {kExpm1, 's', -0.0, 0}, {kExpm1, 's', fden, 4},
      {kExpm1, 's', -fden, 4}, {kExpm1, 's', fmin, 0}, {kExpm1, 's', -fmin, 0},
      {kExpm1, 's', 1e-5f, 0}, {kExpm1, 's', -1e-5f, 0}, {kExpm1, 's', -kInf, 0},
      {kExpm1, 's', kInf, 0}, {kExpm1, 's', -100.0, 0}, {kExpm1, 's', -1e30f, 0},
      {kExpm1, 's', 88.0, 0}, {kExpm1, 's', ovf, 0}, {kExpm1, 's', 88.7229f, 3},
      {kExpm1, 'd', 0.0, 0}, {kExpm1, 'd', -0.0, 0}, {kExpm1, 'd', 1e-310, 4},
      {kExpm1, 'd', -dden, 4}, {kExpm1, 'd', dmin, 0}, {kExpm1, 'd', 1e-9, 0},
      {kExpm1, 'd', -0.004, 0}, {kExpm1, 'd', 0.05, 0}, {kExpm1, 'd', -40.0, 0},
      {kExpm1, 'd', -800.0, 0}, {kExpm1, 'd', -kInf, 0}, {kExpm1, 'd', 709.0, 0},
      {kExpm1, 'd', 710.0, 3},
  };
}

template <class T>
void check_row(const Row &r, int slot, bool strided) {
  const T x = T(r.x);
  std::vector<Report> reps;
  const std::vector<T> y = run<T>(r.f, slot, strided, {x}, &reps);
  const std::string where = std::string(kNames[r.f]) + " " + r.t + " slot " + std::to_string(slot) +
                            (strided ? " strided" : "") + " x=" + std::to_string(r.x);
  expect_value<T>(r.f, slot, x, y[0], where);
  if (r.code == 0) {
    EXPECT_TRUE(reps.empty()) << where << ": reported code " << reps[0].code;
  } else {
    ASSERT_EQ(reps.size(), 1u) << where;
    EXPECT_EQ(reps[0].code, r.code) << where;
    EXPECT_EQ(reps[0].index, 0) << where;
  }
}

TEST(ExpKernels, SpecialValuesAndThresholds) {
  for (const Row &r : rows())
    for (int slot = 0; slot < 3; ++slot)
      for (bool strided : {false, true}) {
        if (r.t == 's')
          check_row<float>(r, slot, strided);
        else
          check_row<double>(r, slot, strided);
      }
}

// NaN arguments come back quiet with their payload and are never reported.
TEST(ExpKernels, NaNPayloadsAreKeptAndQuieted) {
  for (int f = kExp; f <= kExpm1; ++f)
    for (int slot = 0; slot < 3; ++slot) {
      std::vector<Report> reps;
      auto ys = run<float>(Func(f), slot, false,
                           {from<float>(0x7FC01234), from<float>(0x7F801234), from<float>(0xFFC00042)},
                           &reps);
      EXPECT_EQ(bits(ys[0]), 0x7FC01234u) << kNames[f];
      EXPECT_EQ(bits(ys[1]), 0x7FC01234u) << kNames[f];  // signalling: quieted
      EXPECT_EQ(bits(ys[2]), 0xFFC00042u) << kNames[f];
      EXPECT_TRUE(reps.empty()) << kNames[f];
      auto yd = run<double>(Func(f), slot, false,
                            {from<double>(0x7FF8000000001234), from<double>(0x7FF0000000001234)},
                            &reps);
      EXPECT_EQ(bits(yd[0]), 0x7FF8000000001234u) << kNames[f];
      EXPECT_EQ(bits(yd[1]), 0x7FF8000000001234u) << kNames[f];
      EXPECT_TRUE(reps.empty()) << kNames[f];
    }
}

// Expm1 keeps the sign of zero and of tiny arguments.
TEST(ExpKernels, Expm1OfZerosAndTinyKeepsTheSign) {
  for (int slot = 0; slot < 3; ++slot) {
    auto ys = run<float>(kExpm1, slot, false, {-0.0f, 0.0f, -1e-30f, 1e-30f});
    EXPECT_EQ(bits(ys[0]), bits(-0.0f));
    EXPECT_EQ(bits(ys[1]), bits(0.0f));
    EXPECT_EQ(ys[2], -1e-30f);
    EXPECT_EQ(ys[3], 1e-30f);
    auto yd = run<double>(kExpm1, slot, false, {-0.0, 0.0, -1e-300, 1e-200});
    EXPECT_EQ(bits(yd[0]), bits(-0.0));
    EXPECT_EQ(bits(yd[1]), bits(0.0));
    EXPECT_EQ(yd[2], -1e-300);
    EXPECT_EQ(yd[3], 1e-200);
  }
}

// ---- mixed vectors: only the special elements are reported ------------------

template <class T>
void mixed(Func f, int slot, bool strided) {
  // Per function: an overflowing and an underflowing argument (Expm1 has no
  // underflow from large negatives: a subnormal argument instead).
  struct Threshold {
    double x;
    int code;
  };
  const bool s = sizeof(T) == 4;
  std::vector<Threshold> limits;
  switch (f) {
    case kExp: limits = {{s ? 89.0 : 710.0, 3}, {s ? -90.0 : -720.0, 4}, {s ? -200.0 : -800.0, 4}}; break;
    case kExp2: limits = {{s ? 130.0 : 1030.0, 3}, {s ? -130.0 : -1030.0, 4}, {s ? -200.0 : -1200.0, 4}}; break;
    case kExp10: limits = {{s ? 39.0 : 309.0, 3}, {s ? -40.0 : -310.0, 4}, {s ? -50.0 : -400.0, 4}}; break;
    case kExpm1: limits = {{s ? 89.0 : 710.0, 3}, {s ? 1e-40 : 1e-310, 4}, {s ? 100.0 : 800.0, 3}}; break;
  }
  const int n = 29;
  std::vector<T> in(n);
  for (int i = 0; i < n; ++i) in[i] = T(0.37 * i - 4.1);  // fast path
  // unreported off-path values: NaN, -inf, +inf
  in[2] = T(kNaN);
  in[9] = T(-kInf);
  in[17] = T(kInf);
  const int at[] = {5, 6, 13, 20, 27, 28};
  for (int k = 0; k < 6; ++k) in[at[k]] = T(limits[k % limits.size()].x);
  std::vector<Report> reps;
  const std::vector<T> y = run<T>(f, slot, strided, in, &reps);
  const std::string where = std::string(kNames[f]) + (s ? " s" : " d") + " slot " +
                            std::to_string(slot) + (strided ? " strided" : "");
  ASSERT_EQ(reps.size(), 6u) << where;
  const std::string name = std::string("v") + (s ? "s" : "d") + kNames[f];
  for (int k = 0; k < 6; ++k) {
    EXPECT_EQ(reps[k].index, at[k]) << where;
    EXPECT_EQ(reps[k].code, limits[k % limits.size()].code) << where << " index " << at[k];
    EXPECT_EQ(reps[k].name, name) << where;
  }
  for (int i = 0; i < n; ++i) expect_value<T>(f, slot, in[i], y[i], where + " i=" + std::to_string(i));
}

TEST(ExpKernels, MixedVectorsReportOnlySpecialElements) {
  for (int f = kExp; f <= kExpm1; ++f)
    for (int slot = 0; slot < 3; ++slot)
      for (bool strided : {false, true}) {
        mixed<float>(Func(f), slot, strided);
        mixed<double>(Func(f), slot, strided);
      }
}

// ---- the same element gives the same bits wherever it falls -----------------

template <class T>
void position_independent(Func f, int slot) {
  const int n = 37;
  std::vector<T> in(n);
  unsigned s = 12345;
  for (int i = 0; i < n; ++i) {
    s = s * 1103515245u + 12345u;
    in[i] = T((int(s >> 8) % 40001 - 20000) / 1000.0);  // [-20, 20]
  }
  in[7] = T(sizeof(T) == 4 ? -95.0 : -740.0);  // an off-path lane in the body
  in[n - 2] = T(-kInf);                       // and one in the tail
  const std::vector<T> full = run<T>(f, slot, false, in);
  for (int shift = 1; shift < 8; ++shift) {
    std::vector<T> part(in.begin() + shift, in.end());
    const std::vector<T> y = run<T>(f, slot, false, part);
    for (int i = 0; i < int(part.size()); ++i)
      ASSERT_EQ(bits(y[i]), bits(full[i + shift]))
          << kNames[f] << " slot " << slot << " shift " << shift << " i " << i;
  }
  for (int len = 1; len < n; len += 3) {
    std::vector<T> part(in.begin(), in.begin() + len);
    const std::vector<T> y = run<T>(f, slot, false, part);
    for (int i = 0; i < len; ++i)
      ASSERT_EQ(bits(y[i]), bits(full[i])) << kNames[f] << " slot " << slot << " len " << len;
  }
  const std::vector<T> st = run<T>(f, slot, true, in);
  for (int i = 0; i < n; ++i) ASSERT_EQ(bits(st[i]), bits(full[i])) << kNames[f] << " strided";
}

TEST(ExpKernels, ResultsDoNotDependOnPositionOrLayout) {
  for (int f = kExp; f <= kExpm1; ++f)
    for (int slot = 0; slot < 3; ++slot) {
      position_independent<float>(Func(f), slot);
      position_independent<double>(Func(f), slot);
    }
}

// The float Expm1 kernel's region edges, in both layouts and every slot (one
// kernel, so the 1-ulp bound holds in each): the points where
// k = round(x / ln2) changes, (j + 1/2) ln2, with their neighbours (there the
// reduced argument is largest and 2^k - 1 cancels most against 2^k r for
// negative x), the k = 23 .. 27 range where 2^k - 1 stops being exact, the
// clamp at -20, the last lanes below the overflow cut at 88 and tiny
// arguments, where the result is x plus x^2 / 2.
TEST(ExpKernels, FloatExpm1RegionEdgesWithinOneUlp) {
  std::vector<float> x;
  auto around = [&](float c, int w) {
    float lo = c, hi = c;
    for (int i = 0; i < w; ++i) lo = dn(lo), hi = up(hi);
    for (float v = lo; v <= hi; v = up(v)) x.push_back(v);
  };
  for (int j = -31; j <= 126; ++j) around(float((j + 0.5L) * 0.693147180559945309417L), 6);
  for (float c : {-20.0f, 16.6355f, 17.3287f, -16.6355f, -17.3287f, 88.0f, 87.99f}) around(c, 6);
  // across the k = 23 .. 27 intervals (2^k - 1 rounds from k = 25 on; 17.0939
  // was 1.07 ulp off before its rounding error was carried)
  for (int i = 0; i <= 2000; ++i) x.push_back(15.6f + 3.4f * float(i) / 2000);
  around(17.0939f, 6);
  for (int e = -126; e <= -1; e += 5) {
    around(std::ldexp(1.0f, e), 2);
    around(-std::ldexp(1.0f, e), 2);
  }
  x.erase(std::remove_if(x.begin(), x.end(), [](float v) { return !(v < 88.0f); }), x.end());
  for (bool strided : {false, true})
    for (int slot = 0; slot < 3; ++slot) {
      const std::vector<float> r = run<float>(kExpm1, slot, strided, x);
      for (size_t i = 0; i < x.size(); ++i) {
        const ld ref = expm1l(ld(x[i]));
        EXPECT_LE(ulps<float>(r[i], double(ref)), 1.0)
            << "x " << x[i] << " slot " << slot << (strided ? " strided" : "") << " got " << r[i];
      }
    }
}

// In place: the result vector may be the argument vector.
TEST(ExpKernels, InPlace) {
  for (int f = kExp; f <= kExpm1; ++f) {
    std::vector<float> a(21);
    for (int i = 0; i < 21; ++i) a[i] = 0.5f * i - 5;
    const std::vector<float> want = run<float>(Func(f), 1, false, a);
    const void *k = table(Func(f), 's', false)->kernel[1];
    reinterpret_cast<void (*)(int32_t, const float *, float *)>(k)(21, a.data(), a.data());
    for (int i = 0; i < 21; ++i) EXPECT_EQ(bits(a[i]), bits(want[i])) << kNames[f];
  }
}

}  // namespace
