// Special values and report codes of the per-element routines, table-driven,
// for float and double and every slot.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <complex>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "vm/kernels/elem/elem.h"

namespace {

namespace e = qor::vm::elem;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Calls F for type T in slot S; arguments and result are carried as double.
template <class F, class T, int S>
double call1(double a, int &code) {
  return static_cast<double>(F::template eval<T, S>(static_cast<T>(a), code));
}
template <class F, class T, int S>
double call2(double a, double b, int &code) {
  return static_cast<double>(F::template eval<T, S>(static_cast<T>(a), static_cast<T>(b), code));
}

struct Row {
  std::string name;
  std::function<double(double, double, int &, char, int)> f;  // (a, b, code, type, slot)
  double a, b, expect;
  int code;
  const char *types = "sd";  // element types the row applies to
};

template <class F>
std::function<double(double, double, int &, char, int)> unary() {
  return [](double a, double, int &c, char t, int s) {
    if (t == 's') return s == 0 ? call1<F, float, 0>(a, c) : s == 1 ? call1<F, float, 1>(a, c) : call1<F, float, 2>(a, c);
    return s == 0 ? call1<F, double, 0>(a, c) : s == 1 ? call1<F, double, 1>(a, c) : call1<F, double, 2>(a, c);
  };
}
template <class F>
std::function<double(double, double, int &, char, int)> binary() {
  return [](double a, double b, int &c, char t, int s) {
    if (t == 's')
      return s == 0 ? call2<F, float, 0>(a, b, c) : s == 1 ? call2<F, float, 1>(a, b, c) : call2<F, float, 2>(a, b, c);
    return s == 0 ? call2<F, double, 0>(a, b, c) : s == 1 ? call2<F, double, 1>(a, b, c) : call2<F, double, 2>(a, b, c);
  };
}

#define U(F) #F, unary<e::F>()
#define B(F) #F, binary<e::F>()

// Values exactly representable in both float and double, so one table
// serves both types; zeros are compared with their sign.
const std::vector<Row> &rows() {
  static const std::vector<Row> r = {
      // logarithms: pole at 0, domain below
      {U(Ln), 0, 0, -kInf, 2},        {U(Ln), -0.0, 0, -kInf, 2},     {U(Ln), -1, 0, kNaN, 1},
      {U(Ln), 1, 0, 0, 0},            {U(Ln), kInf, 0, kInf, 0},      {U(Ln), kNaN, 0, kNaN, 0},
      {U(Log2), 8, 0, 3, 0},          {U(Log10), 1000, 0, 3, 0},      {U(Log10), -2, 0, kNaN, 1},
      {U(Log1p), -1, 0, -kInf, 2},    {U(Log1p), -2, 0, kNaN, 1},     {U(Log1p), -0.0, 0, -0.0, 0},
      {U(Logb), 0, 0, -kInf, 2},      {U(Logb), 0.75, 0, -1, 0},      {U(Logb), -kInf, 0, kInf, 0},
      // exponentials: overflow 3, underflow to zero 4, exact limits silent
      {U(Exp), 1000, 0, kInf, 3},     {U(Exp), -1000, 0, 0, 4},       {U(Exp), -kInf, 0, 0, 0},
      {U(Exp), 0, 0, 1, 0},           {U(Exp2), 10, 0, 1024, 0},      {U(Exp2), 2000, 0, kInf, 3},
      {U(Exp10), 2, 0, 100, 0},       {U(Exp10), -400, 0, 0, 4},      {U(Expm1), -kInf, 0, -1, 0},
      {U(Expm1), -0.0, 0, -0.0, 0},   {U(Expm1), 1000, 0, kInf, 3},
      // trigonometric
      {U(Sin), kInf, 0, kNaN, 1},     {U(Cos), -kInf, 0, kNaN, 1},    {U(Tan), -0.0, 0, -0.0, 0},
      {U(Sin), -0.0, 0, -0.0, 0},     {U(Cos), 0, 0, 1, 0},
      {U(Sinpi), 1, 0, 0, 0},         {U(Sinpi), -1, 0, -0.0, 0},     {U(Sinpi), 0.5, 0, 1, 0},
      {U(Sinpi), 1.5, 0, -1, 0},      {U(Sinpi), 0x1p60, 0, 0, 0},    {U(Sinpi), 0.25, 0, std::sqrt(0.5), 0},
      {U(Cospi), 0.5, 0, 0, 0},       {U(Cospi), -1.5, 0, 0, 0},      {U(Cospi), 1, 0, -1, 0},
      {U(Cospi), 1.0 / 3, 0, 0.5, 0, "d"}, {U(Cospi), kInf, 0, kNaN, 1},
      {U(Tanpi), 0.5, 0, kInf, 2},    {U(Tanpi), 1.5, 0, -kInf, 2},   {U(Tanpi), -0.5, 0, -kInf, 2},
      {U(Tanpi), 1, 0, -0.0, 0},      {U(Tanpi), 2, 0, 0, 0},         {U(Tanpi), 0.25, 0, 1, 0},
      {U(Sind), 30, 0, 0.5, 0},       {U(Sind), 180, 0, 0, 0},        {U(Sind), -180, 0, -0.0, 0},
      {U(Sind), 270, 0, -1, 0},       {U(Sind), 360 * 0x1p32, 0, 0, 0},  {U(Sind), 150, 0, 0.5, 0},
      {U(Cosd), 60, 0, 0.5, 0},       {U(Cosd), 90, 0, 0, 0},         {U(Cosd), 180, 0, -1, 0},
      {U(Cosd), -120, 0, -0.5, 0},    {U(Cosd), 3600, 0, 1, 0},
      {U(Tand), 45, 0, 1, 0},         {U(Tand), 135, 0, -1, 0},       {U(Tand), 90, 0, kInf, 2},
      {U(Tand), 270, 0, -kInf, 2},    {U(Tand), -90, 0, -kInf, 2},    {U(Tand), 180, 0, -0.0, 0},
      {U(Tand), kInf, 0, kNaN, 1},
      // inverse trigonometric and hyperbolic
      {U(Acos), 2, 0, kNaN, 1},       {U(Acos), 1, 0, 0, 0},          {U(Asin), -1.5, 0, kNaN, 1},
      {U(Acospi), -1, 0, 1, 0},       {U(Asinpi), 0.5, 0, 1.0 / 6, 0},    {U(Atanpi), kInf, 0, 0.5, 0},
      {U(Atanpi), 1, 0, 0.25, 0},     {U(Acosh), 0.5, 0, kNaN, 1},    {U(Acosh), 1, 0, 0, 0},
      {U(Atanh), 1, 0, kInf, 2},      {U(Atanh), -1, 0, -kInf, 2},    {U(Atanh), 2, 0, kNaN, 1},
      {U(Cosh), 1000, 0, kInf, 3},    {U(Sinh), -1000, 0, -kInf, 3},  {U(Tanh), kInf, 0, 1, 0},
      // powers and roots
      {B(Pow), 0, -1, kInf, 2},       {B(Pow), -0.0, -3, -kInf, 2},   {B(Pow), -2, 0.5, kNaN, 1},
      {B(Pow), 1, kNaN, 1, 0},        {B(Pow), kNaN, 0, 1, 0},        {B(Pow), 2, 10, 1024, 0},
      {B(Pow), 10, 400, kInf, 3},     {B(Pow), 10, -400, 0, 4},       {B(Pow), -2, 3, -8, 0},
      {B(Powx), 0, -2, kInf, 2},      {B(Powx), 4, 0.5, 2, 0},
      {B(Powr), -1, 2, kNaN, 1},      {B(Powr), 0, 0, kNaN, 1},       {B(Powr), kInf, 0, kNaN, 1},
      {B(Powr), 1, kInf, kNaN, 1},    {B(Powr), 0, -1, kInf, 2},      {B(Powr), 4, 0.5, 2, 0},
      {B(Powr), 0, 2, 0, 0},          {B(Powr), kInf, -1, 0, 0},
      {B(Hypot), kInf, kNaN, kInf, 0}, {B(Hypot), 3, 4, 5, 0},        {B(Hypot), 1.5e308, 1.5e308, kInf, 3, "d"},
      {B(Atan2), 0, -1, M_PI, 0},     {B(Atan2), -0.0, 1, -0.0, 0},   {B(Atan2pi), 1, -1, 0.75, 0},
      {B(Atan2pi), -1, 0, -0.5, 0},   {B(Atan2pi), kInf, kInf, 0.25, 0},
      {U(Pow2o3), 8, 0, 4, 0},        {U(Pow2o3), -8, 0, 4, 0},       {U(Pow3o2), 4, 0, 8, 0},
      {U(Pow3o2), -1, 0, kNaN, 1},    {U(InvCbrt), 0, 0, kInf, 2},    {U(InvCbrt), -0.0, 0, -kInf, 2},
      {U(InvCbrt), -8, 0, -0.5, 0},   {U(InvCbrt), kInf, 0, 0, 0},
      // error function family
      {U(Erf), kInf, 0, 1, 0},        {U(Erf), -0.0, 0, -0.0, 0},     {U(Erfc), -kInf, 0, 2, 0},
      {U(Erfc), 1000, 0, 0, 4},       {U(Erfc), kInf, 0, 0, 0},       {U(Erfcx), kInf, 0, 0, 0},
      {U(Erfcx), 0, 0, 1, 0},         {U(Erfcx), -1000, 0, kInf, 3},  {U(CdfNorm), 0, 0, 0.5, 0},
      {U(CdfNorm), kInf, 0, 1, 0},    {U(CdfNorm), -kInf, 0, 0, 0},   {U(CdfNorm), -1000, 0, 0, 4},
      {U(ErfInv), 1, 0, kInf, 2},     {U(ErfInv), -1, 0, -kInf, 2},   {U(ErfInv), 1.5, 0, kNaN, 1},
      {U(ErfInv), -0.0, 0, -0.0, 0},  {U(ErfcInv), 0, 0, kInf, 2},    {U(ErfcInv), 2, 0, -kInf, 2},
      {U(ErfcInv), 1, 0, 0, 0},       {U(ErfcInv), -0.5, 0, kNaN, 1}, {U(CdfNormInv), 0, 0, -kInf, 2},
      {U(CdfNormInv), 1, 0, kInf, 2}, {U(CdfNormInv), 0.5, 0, 0, 0},  {U(CdfNormInv), 2, 0, kNaN, 1},
      // gamma, exponential integral
      {U(TGamma), 0, 0, kInf, 2},     {U(TGamma), -0.0, 0, -kInf, 2}, {U(TGamma), -2, 0, kNaN, 1},
      {U(TGamma), 5, 0, 24, 0},       {U(TGamma), 200, 0, kInf, 3},   {U(TGamma), -kInf, 0, kNaN, 1},
      {U(TGamma), kInf, 0, kInf, 0},  {U(LGamma), 0, 0, kInf, 2},     {U(LGamma), -3, 0, kInf, 2},
      {U(LGamma), 1, 0, 0, 0},        {U(LGamma), 2, 0, 0, 0},        {U(LGamma), -kInf, 0, kInf, 0},
      {U(ExpInt1), 0, 0, kInf, 2},    {U(ExpInt1), -1, 0, kNaN, 1},   {U(ExpInt1), kInf, 0, 0, 0},
      {U(ExpInt1), 1000, 0, 0, 4},
      // Bessel
      {U(J0), 0, 0, 1, 0},            {U(J0), kInf, 0, 0, 0},         {U(J1), -0.0, 0, -0.0, 0},
      {U(Y0), 0, 0, -kInf, 2},        {U(Y0), -1, 0, kNaN, 1},        {U(Y1), 0, 0, -kInf, 2},
      {U(Y1), kInf, 0, 0, 0},         {U(I0), 0, 0, 1, 0},            {U(I0), 1000, 0, kInf, 3},
      {U(I1), -1000, 0, -kInf, 3},    {U(I1), -0.0, 0, -0.0, 0},
  };
  return r;
}

bool same(double got, double want) {
  if (std::isnan(want)) return std::isnan(got);
  return got == want && std::signbit(got) == std::signbit(want);
}

TEST(ElemSpecial, ValuesAndCodesAllTypesAndSlots) {
  for (const Row &r : rows())
    for (char t : {'s', 'd'})
      for (int s = 0; s < 3; ++s) {
        if (!std::strchr(r.types, t)) continue;
        int code = 0;
        const double got = r.f(r.a, r.b, code, t, s);
        // Results that are exact in one type may round in the other: compare in that type.
        const double want = t == 's' ? static_cast<double>(static_cast<float>(r.expect)) : r.expect;
        EXPECT_TRUE(same(got, want)) << r.name << "(" << r.a << ", " << r.b << ") type " << t << " slot " << s
                                     << ": got " << got << ", want " << want;
        EXPECT_EQ(code, r.code) << r.name << "(" << r.a << ", " << r.b << ") type " << t << " slot " << s;
      }
}

// Underflow: a subnormal result reports 4; the value itself stays correct.
TEST(ElemSpecial, SubnormalResultsReportUnderflow) {
  int code = 0;
  const double tiny = 0x1p-1060;
  EXPECT_EQ((e::Sin::eval<double, 1>(tiny, code)), tiny);
  EXPECT_EQ(code, 4);
  code = 0;
  EXPECT_EQ((e::Exp::eval<float, 1>(-100.0f, code)), std::exp(-100.0f));
  EXPECT_EQ(code, 4);
  code = 0;
  EXPECT_EQ((e::Exp::eval<float, 1>(-80.0f, code)), std::exp(-80.0f));  // still normal
  EXPECT_EQ(code, 0);
}

TEST(ElemSpecial, TwoResultsAndIntegerOrder) {
  int code = 0;
  double s, c;
  e::SinCos::eval<double, 1>(0.0, s, c, code);
  EXPECT_EQ(s, 0.0);
  EXPECT_EQ(c, 1.0);
  e::SinCospi::eval<double, 1>(0.5, s, c, code);
  EXPECT_EQ(s, 1.0);
  EXPECT_TRUE(c == 0 && !std::signbit(c));
  EXPECT_EQ(code, 0);
  e::SinCos::eval<double, 1>(kInf, s, c, code);
  EXPECT_TRUE(std::isnan(s) && std::isnan(c));
  EXPECT_EQ(code, 1);
  // Jn/Yn symmetries: J_{-n} = (-1)^n J_n, J_n(-x) = (-1)^n J_n(x)
  code = 0;
  const double j3 = e::Jn::eval<double, 1>(3, 2.5, code);
  EXPECT_EQ((e::Jn::eval<double, 1>(-3, 2.5, code)), -j3);
  EXPECT_EQ((e::Jn::eval<double, 1>(3, -2.5, code)), -j3);
  EXPECT_EQ((e::Jn::eval<double, 1>(2, -2.5, code)), (e::Jn::eval<double, 1>(2, 2.5, code)));
  EXPECT_EQ((e::Jn::eval<double, 1>(0, 2.5, code)), (e::J0::eval<double, 1>(2.5, code)));
  EXPECT_EQ(code, 0);
  EXPECT_EQ((e::Yn::eval<double, 1>(2, 0.0, code)), -kInf);
  EXPECT_EQ(code, 2);
  code = 0;
  EXPECT_TRUE(std::isnan(e::Yn::eval<float, 1>(2, -1.0f, code)));
  EXPECT_EQ(code, 1);
}

// ---- complex ----------------------------------------------------------------

using Z = std::complex<double>;

TEST(ElemComplexSpecial, PolesAndOverflow) {
  int code = 0;
  Z r = e::cplx::Ln::eval<double, 1>(Z(0, 0), code);
  EXPECT_EQ(r.real(), -kInf);
  EXPECT_EQ(code, 2);
  code = 0;
  r = e::cplx::Log10::eval<double, 1>(Z(-0.0, 0), code);
  EXPECT_EQ(r.real(), -kInf);
  EXPECT_EQ(code, 2);
  code = 0;
  e::cplx::Atanh::eval<double, 1>(Z(1, 0), code);
  EXPECT_EQ(code, 2);
  code = 0;
  e::cplx::Atan::eval<double, 1>(Z(0, -1), code);
  EXPECT_EQ(code, 2);
  code = 0;
  e::cplx::Div::eval<double, 1>(Z(1, 1), Z(0, 0), code);
  EXPECT_EQ(code, 2);
  code = 0;
  r = e::cplx::Exp::eval<double, 1>(Z(1000, 0), code);
  EXPECT_EQ(r.real(), kInf);
  EXPECT_EQ(code, 3);
  code = 0;
  EXPECT_EQ((e::cplx::Abs::eval<double, 1>(Z(1.5e308, 1.5e308), code)), kInf);
  EXPECT_EQ(code, 3);
  code = 0;
  const auto c = e::cplx::CIS::eval<float, 1>(kInf, code);
  EXPECT_TRUE(std::isnan(c.real()));
  EXPECT_EQ(code, 1);
  code = 0;
  const Z p = e::cplx::Pow::eval<double, 1>(Z(0, 0), Z(2, 1), code);
  EXPECT_EQ(p, Z(0, 0));
  EXPECT_EQ(code, 0);
  e::cplx::Pow::eval<double, 1>(Z(0, 0), Z(-1, 0), code);
  EXPECT_EQ(code, 2);
}

// Branch cuts: the sign of a zero imaginary part picks the side.
TEST(ElemComplexSpecial, BranchCutsFollowSignedZero) {
  int code = 0;
  EXPECT_EQ((e::cplx::Sqrt::eval<double, 1>(Z(-4, 0.0), code)), Z(0, 2));
  EXPECT_EQ((e::cplx::Sqrt::eval<double, 1>(Z(-4, -0.0), code)), Z(0, -2));
  Z l = e::cplx::Ln::eval<double, 1>(Z(-1, 0.0), code);
  EXPECT_EQ(l.imag(), M_PI);
  l = e::cplx::Ln::eval<double, 1>(Z(-1, -0.0), code);
  EXPECT_EQ(l.imag(), -M_PI);
  const Z up = e::cplx::Asin::eval<double, 1>(Z(2, 0.0), code);
  const Z dn = e::cplx::Asin::eval<double, 1>(Z(2, -0.0), code);
  EXPECT_EQ(up.real(), M_PI / 2);
  EXPECT_GT(up.imag(), 1.3);
  EXPECT_LT(dn.imag(), -1.3);
  const Z ah = e::cplx::Acosh::eval<double, 1>(Z(-2, 0.0), code);
  EXPECT_NEAR(ah.imag(), M_PI, 1e-15);
  EXPECT_EQ(code, 0);
}

// Cancellation inside products: exact cross products keep these exact.
TEST(ElemComplexSpecial, MultiplicationAndDivisionWithoutCancellationLoss) {
  int code = 0;
  const double a = 1 + 0x1p-30, b = 1 - 0x1p-30;
  // (a + i)(b + i) = (ab - 1) + i(a + b) with ab - 1 = -2^-60 exactly
  const Z m = e::cplx::Mul::eval<double, 1>(Z(a, 1), Z(b, 1), code);
  EXPECT_EQ(m.real(), -0x1p-60);
  EXPECT_EQ(m.imag(), 2.0);
  const Z mc = e::cplx::MulByConj::eval<double, 1>(Z(a, 1), Z(b, -1), code);
  EXPECT_EQ(mc, m);
  const Z d = e::cplx::Div::eval<double, 1>(Z(2, 4), Z(1, 1), code);
  EXPECT_EQ(d, Z(3, 1));
  const Z big = e::cplx::Div::eval<double, 1>(Z(1e300, 1e300), Z(1e300, 1e300), code);
  EXPECT_EQ(big, Z(1, 0));
  EXPECT_EQ(code, 0);
  EXPECT_EQ((e::cplx::Conj::eval<float, 1>(std::complex<float>(1, 2), code)), std::complex<float>(1, -2));
  EXPECT_EQ((e::cplx::Add::eval<float, 1>(std::complex<float>(3e38f, 0), std::complex<float>(3e38f, 0), code)).real(),
            std::numeric_limits<float>::infinity());
  EXPECT_EQ(code, 3);
}

// The routines keep working when the caller has put the x87 unit into double
// precision (they need the extended significand).
TEST(ElemSpecial, ExtendedPrecisionRestoredAroundCalls) {
  unsigned short saved, cw;
  __asm__ volatile("fnstcw %0" : "=m"(saved));
  cw = static_cast<unsigned short>((saved & ~0x300) | 0x200);  // 53-bit
  __asm__ volatile("fldcw %0" : : "m"(cw));
  int code = 0;
  const double v = e::Erfcx::eval<double, 1>(20.0, code);
  unsigned short after;
  __asm__ volatile("fnstcw %0" : "=m"(after));
  __asm__ volatile("fldcw %0" : : "m"(saved));
  EXPECT_EQ(after, cw);
  EXPECT_EQ(v, 0.02817434874105132);  // erfcx(20), correctly rounded
}

}  // namespace
