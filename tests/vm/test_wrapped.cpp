// Functions without a SIMD kernel yet run their per-element routine inside
// the driver: every argument shape, both layouts, all three entry suffixes,
// and the reports with the function's own name.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <functional>

#include "vm_test_util.h"

using namespace qor::vm::test;

extern "C" {
void _pexsLn(int32_t, const float *, float *);
void _pexdExp_50(int32_t, const double *, double *);
void _pexdExpI_26(int32_t, const double *, int32_t, double *, int32_t);
void _pexsPow_11(int32_t, const float *, const float *, float *);
void _pexdPowI(int32_t, const double *, int32_t, const double *, int32_t, double *, int32_t);
void _pexsPowx(int32_t, const float *, float, float *);
void _pexsPowxI(int32_t, const float *, int32_t, float, float *, int32_t);
void _pexdSinCos(int32_t, const double *, double *, double *);
void _pexdSinCosI(int32_t, const double *, int32_t, double *, int32_t, double *, int32_t);
void _pexdJn(int32_t, const double *, int32_t, double *);
void _pexdYnI(int32_t, const double *, int32_t, int32_t, double *, int32_t);
void _pexcExp(int32_t, const float *, float *);
void _pexzMulI_50(int32_t, const double *, int32_t, const double *, int32_t, double *, int32_t);
void _pexcPowx(int32_t, const float *, QorComplex8, float *);
void _pexzPowx(int32_t, const double *, const QorComplex16 *, double *);
void _pexzPowxI_26(int32_t, const double *, int32_t, const QorComplex16 *, double *, int32_t);
void _pexcAbs(int32_t, const float *, float *);
void _pexzAbsI(int32_t, const double *, int32_t, double *, int32_t);
void _pexzCIS(int32_t, const double *, double *);
void _pexzLn(int32_t, const double *, double *);
void _pexsAcos_21(int32_t, const float *, float *);
}

namespace {

// Complex vectors as the kernels see them: (re, im) pairs.
template <class T>
T *raw(std::complex<T> *p) {
  return reinterpret_cast<T *>(p);
}

TEST(VmWrapped, RealShapes) {
  Recorder rec(PEX_ERRMODE_IGNORE);
  double a[5] = {0.5, 1, 2.25, -3, 10}, b[5] = {2, 0.5, 3, 2, -1};
  double r[5], r2[5], rs[10], rs2[15];
  _pexdExp_50(5, a, r);
  _pexdExpI_26(5, a, 1, rs, 2);
  for (int i = 0; i < 5; ++i) {
    EXPECT_NEAR(r[i], std::exp(a[i]), 4 * std::exp(a[i]) * 0x1p-52) << i;
    EXPECT_NEAR(rs[2 * i], std::exp(a[i]), std::exp(a[i]) * 0x1p-26) << i;
  }
  _pexdPowI(5, a, 1, b, 1, rs, 2);
  for (int i = 0; i < 5; ++i) {
    if (a[i] < 0) continue;
    EXPECT_NEAR(rs[2 * i], std::pow(a[i], b[i]), std::fabs(std::pow(a[i], b[i])) * 0x1p-51) << i;
  }
  _pexdSinCos(5, a, r, r2);
  _pexdSinCosI(5, a, 1, rs, 2, rs2, 3);
  for (int i = 0; i < 5; ++i) {
    EXPECT_NEAR(r[i], std::sin(a[i]), 1e-15) << i;
    EXPECT_NEAR(r2[i], std::cos(a[i]), 1e-15) << i;
    EXPECT_EQ(dbits(rs[2 * i]), dbits(r[i]));
    EXPECT_EQ(dbits(rs2[3 * i]), dbits(r2[i]));
  }
  // Jn and Yn: order after the vector (and its increment)
  _pexdJn(5, a, 3, r);
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(r[i], jn(3, a[i]), 1e-15) << i;
  double pos[3] = {0.5, 1, 7};
  _pexdYnI(3, pos, 1, 2, rs, 3);
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(rs[3 * i], yn(2, pos[i]), std::fabs(yn(2, pos[i])) * 1e-14) << i;
  float fa[5] = {1, 2, 4, 9, 0.25f}, fr[5], frs[10];
  _pexsPowx(5, fa, 0.5f, fr);
  _pexsPowxI(5, fa, 1, 0.5f, frs, 2);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(fr[i], std::sqrt(fa[i])) << i;
    EXPECT_EQ(frs[2 * i], fr[i]) << i;
  }
  float fb[5] = {2, 2, 0.5f, 0.5f, 3};
  _pexsPow_11(5, fa, fb, fr);
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(fr[i], std::pow(fa[i], fb[i]), 1e-3 * fr[i]) << i;
}

TEST(VmWrapped, ComplexShapes) {
  Recorder rec(PEX_ERRMODE_IGNORE);
  using Z = std::complex<double>;
  Z a[3] = {{1, 2}, {-0.5, 0.25}, {3, -4}}, b[3] = {{2, -1}, {0, 1}, {1, 1}};
  Z r[3], rs[6];
  _pexzMulI_50(3, raw(a), 1, raw(b), 1, raw(rs), 2);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(rs[2 * i], a[i] * b[i]) << i;
  // z Powx: scalar by address; c Powx: by value
  QorComplex16 e{2, 0};
  _pexzPowx(3, raw(a), &e, raw(r));
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(std::abs(r[i] - a[i] * a[i]), 0, 1e-14) << i;
  _pexzPowxI_26(3, raw(a), 1, &e, raw(rs), 2);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(std::abs(rs[2 * i] - a[i] * a[i]), 0, 1e-6) << i;
  std::complex<float> ca[2] = {{1, 1}, {0, 2}}, cr[2];
  _pexcPowx(2, raw(ca), QorComplex8{2, 0}, raw(cr));
  EXPECT_NEAR(std::abs(cr[0] - std::complex<float>(0, 2)), 0, 1e-6);
  EXPECT_NEAR(std::abs(cr[1] - std::complex<float>(-4, 0)), 0, 1e-5);
  _pexcExp(2, raw(ca), raw(cr));
  EXPECT_NEAR(std::abs(cr[0] - std::exp(ca[0])), 0, 1e-6);
  // complex argument, real result; real argument, complex result
  float abs_r[3] = {-1, -1, -1};
  _pexcAbs(2, raw(ca), abs_r);
  EXPECT_FLOAT_EQ(abs_r[0], std::sqrt(2.0f));
  EXPECT_EQ(abs_r[1], 2.0f);
  EXPECT_EQ(abs_r[2], -1.0f) << "real result vector written past n";
  double zabs[6] = {-1, -1, -1, -1, -1, -1};
  _pexzAbsI(3, raw(a), 1, zabs, 2);
  EXPECT_EQ(zabs[4], 5.0);
  EXPECT_EQ(zabs[5], -1.0);
  double t[2] = {0, 0.5};
  Z cis[2];
  _pexzCIS(2, t, raw(cis));
  EXPECT_EQ(cis[0], Z(1, 0));
  EXPECT_NEAR(std::abs(cis[1] - std::polar(1.0, 0.5)), 0, 1e-16);
}

struct NameCase {
  const char *what;
  std::function<void()> run;
  int code, index;
  const char *name;
};

TEST(VmWrapped, ReportsCarryCodeIndexAndName) {
  const float big = 1e30f;
  NameCase cases[] = {
      {"sLn(0)", [] { float a[3] = {1, 0, 2}, r[3]; _pexsLn(3, a, r); }, 2, 1, "vsLn"},
      {"sLn(-1)", [] { float a[3] = {1, 2, -1}, r[3]; _pexsLn(3, a, r); }, 1, 2, "vsLn"},
      {"sAcos(2) LA", [] { float a[2] = {2, 0}, r[2]; _pexsAcos_21(2, a, r); }, 1, 0, "vsAcos"},
      {"dExp overflow", [] { double a[2] = {0, 1000}, r[2]; _pexdExp_50(2, a, r); }, 3, 1,
       "vdExp"},
      {"sPowx overflow", [=] { float a[2] = {1, big}, r[2]; _pexsPowx(2, a, 2.0f, r); }, 3, 1,
       "vsPowx"},
      {"zLn(0)", [] { double a[4] = {1, 0, 0, 0}, r[4]; _pexzLn(2, a, r); }, 2, 1, "vzLn"},
      {"cAbs overflow", [] { float a[4] = {3e38f, 3e38f, 1, 1}, r[2]; _pexcAbs(2, a, r); }, 3, 0,
       "vcAbs"},
  };
  for (auto &c : cases) {
    Recorder rec;
    c.run();
    auto &rep = Recorder::reports();
    ASSERT_EQ(rep.size(), 1u) << c.what;
    EXPECT_EQ(rep[0].code, c.code) << c.what;
    EXPECT_EQ(rep[0].index, c.index) << c.what;
    EXPECT_EQ(rep[0].name, c.name) << c.what;
  }
}

// The callback's edit of res1 reaches a real result vector of a complex
// function without touching the next element.
TEST(VmWrapped, CallbackEditOfRealResultOfComplexFunction) {
  auto cb = [](PexErrorContext *c) -> int32_t {
    c->res1 = 42;
    c->res1_im = 99;
    return 0;
  };
  uint32_t m = qor_pex_kernel_SetMode(PEX_ERRMODE_CALLBACK);
  auto old = qor_pex_kernel_SetErrorCallBack(cb);
  float a[4] = {3e38f, 3e38f, 3, 4}, r[3] = {0, 0, -7};
  _pexcAbs(2, a, r);
  EXPECT_EQ(r[0], 42.0f);
  EXPECT_EQ(r[1], 5.0f);
  EXPECT_EQ(r[2], -7.0f);
  qor_pex_kernel_SetErrorCallBack(old);
  qor_pex_kernel_SetMode(m);
  qor_pex_kernel_ClearErrStatus();
}

}  // namespace
