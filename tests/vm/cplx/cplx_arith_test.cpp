// Complex arithmetic kernels (Mul, MulByConj, Div, Abs, Add, Sub for c and z):
// accuracy of every slot and form against MPFR, on random operands and on
// hard ones (cancellation in ac - bd, operands next to the overflow and
// underflow thresholds, zeros), special values with their codes, vectors
// mixing fast and special elements (only the special ones reported, with
// their own index, in both layouts), and independence of an element's result
// from n and from its position.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <mpfr.h>

#include "harness.h"
#include "vm/vm_test_util.h"

using namespace qor::vm::test;

QOR_TEST_TABLES(cMul)
QOR_TEST_TABLES(zMul)
QOR_TEST_TABLES(cMulByConj)
QOR_TEST_TABLES(zMulByConj)
QOR_TEST_TABLES(cDiv)
QOR_TEST_TABLES(zDiv)
QOR_TEST_TABLES(cAbs)
QOR_TEST_TABLES(zAbs)
QOR_TEST_TABLES(cAdd)
QOR_TEST_TABLES(zAdd)
QOR_TEST_TABLES(cSub)
QOR_TEST_TABLES(zSub)

namespace {

enum class Fn { Mul, MulByConj, Div, Abs, Add, Sub };
const Fn kAll[] = {Fn::Mul, Fn::MulByConj, Fn::Div, Fn::Abs, Fn::Add, Fn::Sub};
const char *fn_name(Fn f) {
  switch (f) {
    case Fn::Mul: return "Mul";
    case Fn::MulByConj: return "MulByConj";
    case Fn::Div: return "Div";
    case Fn::Abs: return "Abs";
    case Fn::Add: return "Add";
    default: return "Sub";
  }
}

template <class T>
const QorPexKernelTable &table(Fn f, bool strided) {
  constexpr bool c = sizeof(T) == 4;
#define QOR_PICK(F)                                                            \
  return c ? (strided ? qor_pex_kernel_c##F##I_ttab : qor_pex_kernel_c##F##_ttab) \
           : (strided ? qor_pex_kernel_z##F##I_ttab : qor_pex_kernel_z##F##_ttab)
  switch (f) {
    case Fn::Mul: QOR_PICK(Mul);
    case Fn::MulByConj: QOR_PICK(MulByConj);
    case Fn::Div: QOR_PICK(Div);
    case Fn::Abs: QOR_PICK(Abs);
    case Fn::Add: QOR_PICK(Add);
    default: QOR_PICK(Sub);
  }
#undef QOR_PICK
}

template <class T>
double bound(int slot) {
  if (slot == 1) return 1.0;
  if (slot == 0) return 4.0;
  return sizeof(T) == 4 ? 8192.0 : 134217728.0;
}

template <class T>
using C = std::complex<T>;

// Runs one slot over n elements, increment inc for every vector (1: the
// contiguous form).  Abs writes n reals (at r[i * inc].real() position, i.e.
// the real result vector is taken as T* with increment inc).
template <class T>
void run(Fn f, int slot, int n, const C<T> *a, const C<T> *b, C<T> *r, int inc = 1) {
  const void *k = table<T>(f, inc != 1).kernel[slot];
  const T *pa = reinterpret_cast<const T *>(a), *pb = reinterpret_cast<const T *>(b);
  T *pr = reinterpret_cast<T *>(r);
  if (f == Fn::Abs) {
    if (inc == 1)
      reinterpret_cast<void (*)(int32_t, const T *, T *)>(k)(n, pa, pr);
    else
      reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(k)(n, pa, inc, pr,
                                                                                inc);
    return;
  }
  if (inc == 1)
    reinterpret_cast<void (*)(int32_t, const T *, const T *, T *)>(k)(n, pa, pb, pr);
  else
    reinterpret_cast<void (*)(int32_t, const T *, int32_t, const T *, int32_t, T *, int32_t)>(k)(
        n, pa, inc, pb, inc, pr, inc);
}

// Exact (or 600-bit) value of f(a, b): re, im (im unused for Abs).
struct Exact {
  mpfr_t re, im;
  Exact() { mpfr_inits2(600, re, im, (mpfr_ptr)0); }
  ~Exact() { mpfr_clears(re, im, (mpfr_ptr)0); }
};

template <class T>
void exact(Fn f, C<T> a, C<T> b, Exact &x) {
  mpfr_t ar, ai, br, bi, t, u, d;
  mpfr_inits2(600, ar, ai, br, bi, t, u, d, (mpfr_ptr)0);
  mpfr_set_d(ar, a.real(), MPFR_RNDN);
  mpfr_set_d(ai, a.imag(), MPFR_RNDN);
  mpfr_set_d(br, b.real(), MPFR_RNDN);
  mpfr_set_d(bi, b.imag(), MPFR_RNDN);
  if (f == Fn::MulByConj) mpfr_neg(bi, bi, MPFR_RNDN);
  switch (f) {
    case Fn::Mul:
    case Fn::MulByConj:
      mpfr_mul(t, ar, br, MPFR_RNDN);
      mpfr_mul(u, ai, bi, MPFR_RNDN);
      mpfr_sub(x.re, t, u, MPFR_RNDN);
      mpfr_mul(t, ar, bi, MPFR_RNDN);
      mpfr_mul(u, ai, br, MPFR_RNDN);
      mpfr_add(x.im, t, u, MPFR_RNDN);
      break;
    case Fn::Div:
      mpfr_mul(t, br, br, MPFR_RNDN);
      mpfr_mul(u, bi, bi, MPFR_RNDN);
      mpfr_add(d, t, u, MPFR_RNDN);
      mpfr_mul(t, ar, br, MPFR_RNDN);
      mpfr_mul(u, ai, bi, MPFR_RNDN);
      mpfr_add(x.re, t, u, MPFR_RNDN);
      mpfr_div(x.re, x.re, d, MPFR_RNDN);
      mpfr_mul(t, ai, br, MPFR_RNDN);
      mpfr_mul(u, ar, bi, MPFR_RNDN);
      mpfr_sub(x.im, t, u, MPFR_RNDN);
      mpfr_div(x.im, x.im, d, MPFR_RNDN);
      break;
    case Fn::Abs:
      mpfr_hypot(x.re, ar, ai, MPFR_RNDN);
      mpfr_set_zero(x.im, 1);
      break;
    case Fn::Add:
      mpfr_add(x.re, ar, br, MPFR_RNDN);
      mpfr_add(x.im, ai, bi, MPFR_RNDN);
      break;
    case Fn::Sub:
      mpfr_sub(x.re, ar, br, MPFR_RNDN);
      mpfr_sub(x.im, ai, bi, MPFR_RNDN);
      break;
  }
  mpfr_clears(ar, ai, br, bi, t, u, d, (mpfr_ptr)0);
}

// Error of one component in ulps of T, where the unit is taken from the
// component or, when that is below 2^-digits of the modulus, from the modulus
// (a component much smaller than its partner only carries the partner's
// absolute accuracy).  Exponents are floored at the subnormal threshold.
template <class T>
double comp_err(T got, mpfr_srcptr e, mpfr_srcptr mod) {
  if (std::isnan(got)) return 1e30;
  const int digits = sizeof(T) == 4 ? 24 : 53;
  const long emin = sizeof(T) == 4 ? -125 : -1021;
  long ex = mpfr_zero_p(e) ? emin - 1000 : mpfr_get_exp(e);
  const long em = mpfr_zero_p(mod) ? emin - 1000 : mpfr_get_exp(mod) - digits;
  if (ex < em) ex = em;
  if (ex < emin) ex = emin;
  if (std::isinf(got)) return 1e30;
  mpfr_t dd;
  mpfr_init2(dd, 700);
  mpfr_sub_d(dd, e, double(got), MPFR_RNDN);
  mpfr_mul_2si(dd, dd, digits - ex, MPFR_RNDN);
  const double u = std::fabs(mpfr_get_d(dd, MPFR_RNDN));
  mpfr_clear(dd);
  return u;
}

// Max component error of a computed result.
template <class T>
double error(Fn f, C<T> a, C<T> b, C<T> got) {
  Exact x;
  exact<T>(f, a, b, x);
  if (f == Fn::Abs) return comp_err<T>(got.real(), x.re, x.re);
  mpfr_t mod;
  mpfr_init2(mod, 600);
  mpfr_hypot(mod, x.re, x.im, MPFR_RNDN);
  const double e = std::max(comp_err<T>(got.real(), x.re, mod), comp_err<T>(got.imag(), x.im, mod));
  mpfr_clear(mod);
  return e;
}

// Results per element of the kernel: Abs results are written as reals.
template <class T>
std::vector<C<T>> compute(Fn f, int slot, const std::vector<C<T>> &a, const std::vector<C<T>> &b,
                          int inc = 1) {
  const int n = int(a.size());
  std::vector<C<T>> A(size_t(n) * inc), B(size_t(n) * inc), R(size_t(n) * inc + 1);
  for (int i = 0; i < n; ++i) {
    A[size_t(i) * inc] = a[i];
    B[size_t(i) * inc] = b[i];
  }
  std::vector<T> RA(size_t(n) * inc + 1);
  if (f == Fn::Abs) {
    const void *k = table<T>(f, inc != 1).kernel[slot];
    const T *pa = reinterpret_cast<const T *>(A.data());
    if (inc == 1)
      reinterpret_cast<void (*)(int32_t, const T *, T *)>(k)(n, pa, RA.data());
    else
      reinterpret_cast<void (*)(int32_t, const T *, int32_t, T *, int32_t)>(k)(n, pa, inc,
                                                                                RA.data(), inc);
  } else {
    run<T>(f, slot, n, A.data(), B.data(), R.data(), inc);
  }
  std::vector<C<T>> out(n);
  for (int i = 0; i < n; ++i)
    out[i] = f == Fn::Abs ? C<T>(RA[size_t(i) * inc], T(0)) : R[size_t(i) * inc];
  return out;
}

template <class T>
T rnd_component(std::mt19937_64 &g, int lo, int hi) {
  std::uniform_real_distribution<double> u(1, 2);
  std::uniform_int_distribution<int> e(lo, hi);
  const T v = T(std::ldexp(u(g), e(g)));
  return g() & 1 ? -v : v;
}

// Hard operands: ac close to bd (and ad close to -bc), components near the
// top and the bottom of the range, zeros, mixed magnitudes.
template <class T>
void hard_cases(Fn f, std::vector<C<T>> &a, std::vector<C<T>> &b, std::mt19937_64 &g) {
  using L = std::numeric_limits<T>;
  const int emax = L::max_exponent, emin = L::min_exponent;
  for (int i = 0; i < 400; ++i) {
    // cancellation: b = (x, y), a = (y', x') with y'/x' close to y/x
    const T x = rnd_component<T>(g, -3, 3), y = rnd_component<T>(g, -3, 3);
    const T s = rnd_component<T>(g, -3, 3);
    T ar = x * s, ai = y * s;
    for (int k = int(g() % 4); k > 0; --k) ar = std::nextafter(ar, T(0));
    if (f == Fn::MulByConj || f == Fn::Div) ai = -ai;  // ac + bd cancels for Div
    a.push_back({ar, ai});
    b.push_back({y, x});
    // the same scaled toward both ends of the range (kept inside the range the
    // result can take)
    const int sh = emax / 2 - 10;
    a.push_back({std::ldexp(ar, sh), std::ldexp(ai, sh)});
    b.push_back({std::ldexp(y, sh), std::ldexp(x, sh)});
    const int shl = f == Fn::Div ? emin / 2 + 4 : emin / 2 + 8;
    a.push_back({std::ldexp(ar, shl), std::ldexp(ai, shl)});
    b.push_back({std::ldexp(y, f == Fn::Div ? -shl : shl), std::ldexp(x, f == Fn::Div ? -shl : shl)});
    // magnitudes far apart in one operand
    a.push_back({rnd_component<T>(g, -2, 2), rnd_component<T>(g, emin / 3, emin / 4)});
    b.push_back({rnd_component<T>(g, emax / 3, emax / 2 - 2), rnd_component<T>(g, -3, 3)});
    // zeros
    a.push_back({T(0), rnd_component<T>(g, -5, 5)});
    b.push_back({rnd_component<T>(g, -5, 5), g() & 1 ? T(0) : -T(0)});
    a.push_back({T(0), T(0)});
    b.push_back({rnd_component<T>(g, -5, 5), rnd_component<T>(g, -5, 5)});
  }
  // near overflow of the result (still finite) and the whole exponent range
  for (int i = 0; i < 200; ++i) {
    if (f == Fn::Div) {
      a.push_back({rnd_component<T>(g, emax - 4, emax - 2), rnd_component<T>(g, emax - 4, emax - 2)});
      b.push_back({rnd_component<T>(g, 0, 1), rnd_component<T>(g, 0, 1)});
      a.push_back({rnd_component<T>(g, emin, emin + 4), rnd_component<T>(g, emin, emin + 4)});
      b.push_back({rnd_component<T>(g, emax - 8, emax - 2), rnd_component<T>(g, -3, 3)});
    } else {
      a.push_back({rnd_component<T>(g, emax / 2, emax / 2 + 1), rnd_component<T>(g, -2, 2)});
      b.push_back({rnd_component<T>(g, emax / 2 - 6, emax / 2 - 5), rnd_component<T>(g, -2, 2)});
      a.push_back({rnd_component<T>(g, emin / 2, emin / 2 + 2), rnd_component<T>(g, emin / 2, emin / 2 + 2)});
      b.push_back({rnd_component<T>(g, emin / 2 - 10, emin / 2), rnd_component<T>(g, -2, 2)});
    }
    a.push_back({rnd_component<T>(g, emin / 2 + 4, emax / 2 - 4), rnd_component<T>(g, emin / 2 + 4, emax / 2 - 4)});
    b.push_back({rnd_component<T>(g, emin / 2 + 4, emax / 2 - 4), rnd_component<T>(g, emin / 2 + 4, emax / 2 - 4)});
  }
}

struct Case {
  Fn f;
  char type;
  int slot;
  bool strided;
};
void PrintTo(const Case &c, std::ostream *os) {
  *os << fn_name(c.f) << " " << c.type << " " << slot_name(c.slot) << (c.strided ? " I" : "");
}
std::vector<Case> cases() {
  std::vector<Case> v;
  for (Fn f : kAll)
    for (char t : {'c', 'z'})
      for (int s = 0; s < 3; ++s)
        for (bool st : {false, true}) v.push_back({f, t, s, st});
  return v;
}
std::string case_name(const ::testing::TestParamInfo<Case> &i) {
  return std::string(fn_name(i.param.f)) + "_" + i.param.type + "_" + slot_name(i.param.slot) +
         (i.param.strided ? "_I" : "");
}

// ---- accuracy -------------------------------------------------------------------

class CplxArithAccuracy : public ::testing::TestWithParam<Case> {};

template <class T>
void check_hard(const Case &c) {
  std::mt19937_64 g(0xC0FFEEULL + c.slot * 31 + c.type + (c.strided ? 7 : 0) + int(c.f) * 1009);
  std::vector<C<T>> a, b;
  hard_cases<T>(c.f, a, b, g);
  Recorder rec;
  const auto r = compute<T>(c.f, c.slot, a, b, c.strided ? 3 : 1);
  double worst = 0;
  size_t wi = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const double e = error<T>(c.f, a[i], b[i], r[i]);
    if (e > worst) worst = e, wi = i;
  }
  EXPECT_LE(worst, bound<T>(c.slot))
      << "a = (" << a[wi].real() << ", " << a[wi].imag() << ") b = (" << b[wi].real() << ", "
      << b[wi].imag() << ") got (" << r[wi].real() << ", " << r[wi].imag() << ")";
  // every result here is finite: nothing to report
  EXPECT_TRUE(Recorder::reports().empty()) << Recorder::reports().size() << " reports, first index "
                                           << Recorder::reports()[0].index;
}

TEST_P(CplxArithAccuracy, HardOperandsWithinSlotBound) {
  const Case &c = GetParam();
  if (c.type == 'c')
    check_hard<float>(c);
  else
    check_hard<double>(c);
}

TEST_P(CplxArithAccuracy, LibraryHarnessWithinSlotBound) {
  const Case &c = GetParam();
  const auto *info = qor::accuracy::find_function(fn_name(c.f));
  ASSERT_NE(info, nullptr);
  qor::accuracy::Options o;
  o.type = c.type;
  o.slot = c.slot;
  o.library = true;
  o.library_path = QOR_SHARED_LIBRARY;
  o.strided = c.strided;
  o.samples = 20000;
  o.quiet = true;
  o.seed = 0x51A7ULL * (c.slot + 1) + uint64_t(c.type) + (c.strided ? 17 : 0) + int(c.f) * 131;
  const auto r = qor::accuracy::measure(*info, o);
  ASSERT_TRUE(r.error.empty()) << r.error;
  EXPECT_EQ(r.special_mismatch, 0) << qor::accuracy::format_report(*info, r, true);
  EXPECT_EQ(r.layout_damage, 0) << qor::accuracy::format_report(*info, r, true);
  EXPECT_LE(r.max_ulp, r.bound()) << qor::accuracy::format_report(*info, r, true);
}

INSTANTIATE_TEST_SUITE_P(All, CplxArithAccuracy, ::testing::ValuesIn(cases()), case_name);

// ---- special values, codes, mixed vectors ----------------------------------------

// What an element must give, judged from the operands alone.
struct Special {
  const char *what;
  double ar, ai, br, bi;
  Fn only;        // the row applies to this function (or to all with kAny)
  int code;       // expected report (0: none)
  int want;       // 0: some component infinite, 1: both NaN, 2: a NaN component
};
constexpr Fn kAny = Fn(-1);

template <class T>
std::vector<Special> specials() {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double big = double(std::numeric_limits<T>::max());
  return {
      {"zero divisor", 1.5, -2.0, 0.0, 0.0, Fn::Div, 2, 0},
      {"zero divisor -0", -3.0, 0.0, -0.0, 0.0, Fn::Div, 2, 0},
      {"overflow Mul", big, big, 4.0, 4.0, Fn::Mul, 3, 0},
      {"overflow MulByConj", big, -big, 4.0, 4.0, Fn::MulByConj, 3, 0},
      {"overflow Div", big, big, 0.125, 0.0, Fn::Div, 3, 0},
      {"overflow Add", big, 1.0, big, 1.0, Fn::Add, 3, 0},
      {"overflow Sub", big, 1.0, -big, 1.0, Fn::Sub, 3, 0},
      {"overflow Abs", big, big, 0, 0, Fn::Abs, 3, 0},
      {"infinite operand Mul", inf, 1.0, 2.0, 3.0, Fn::Mul, 0, 0},
      {"infinite operand Div", inf, 1.0, 2.0, 3.0, Fn::Div, 0, 0},
      {"infinite operand Abs", 1.0, -inf, 0, 0, Fn::Abs, 0, 0},
      {"infinite beside NaN Abs", nan, inf, 0, 0, Fn::Abs, 0, 0},
      {"NaN operand Mul", nan, 1.0, 2.0, 3.0, Fn::Mul, 0, 2},
      {"NaN operand MulByConj", 1.0, 1.0, nan, 3.0, Fn::MulByConj, 0, 2},
      {"NaN operand Div", 1.0, nan, 2.0, 3.0, Fn::Div, 0, 2},
      {"NaN operand Add", 1.0, nan, 2.0, 3.0, Fn::Add, 0, 2},
      {"NaN operand Abs", nan, 1.0, 0, 0, Fn::Abs, 0, 2},
      {"inf - inf", inf, 0.0, inf, 0.0, Fn::Sub, 0, 2},
  };
}

template <class T>
bool judge(const Special &s, C<T> r) {
  switch (s.want) {
    case 0: return std::isinf(r.real()) || std::isinf(r.imag());
    case 1: return std::isnan(r.real()) && std::isnan(r.imag());
    default: return std::isnan(r.real()) || std::isnan(r.imag());
  }
}

class CplxArithSpecial : public ::testing::TestWithParam<Case> {};

// Random ordinary operands with special ones spliced in at chosen positions;
// for several n and both layouts only the special elements are reported, each
// with its own index and code, and the ordinary elements are within bound.
template <class T>
void check_mixed(const Case &c) {
  std::mt19937_64 g(0xBADC0DEULL + c.slot + int(c.f) * 17 + c.type);
  std::vector<Special> sp;
  for (const Special &s : specials<T>())
    if (s.only == c.f) sp.push_back(s);
  ASSERT_FALSE(sp.empty());
  for (int n : {1, 2, 3, 5, 8, 13, 37}) {
    for (size_t si = 0; si < sp.size(); ++si) {
      std::vector<C<T>> a(n), b(n);
      for (int i = 0; i < n; ++i) {
        a[i] = {rnd_component<T>(g, -10, 10), rnd_component<T>(g, -10, 10)};
        b[i] = {rnd_component<T>(g, -10, 10), rnd_component<T>(g, -10, 10)};
      }
      // special elements at i = pos, pos + 3, ...
      std::vector<int> at;
      for (int i = int(si % 3) % n; i < n; i += 3) at.push_back(i);
      for (int i : at) {
        const Special &s = sp[(si + size_t(i)) % sp.size()];
        a[i] = {T(s.ar), T(s.ai)};
        b[i] = {T(s.br), T(s.bi)};
      }
      Recorder rec;
      const auto r = compute<T>(c.f, c.slot, a, b, c.strided ? 2 : 1);
      std::vector<int> want_idx;
      for (int i : at)
        if (sp[(si + size_t(i)) % sp.size()].code) want_idx.push_back(i);
      std::vector<int> got_idx;
      for (const auto &rp : Recorder::reports()) got_idx.push_back(rp.index);
      EXPECT_EQ(got_idx, want_idx) << "n = " << n;
      for (const auto &rp : Recorder::reports()) {
        if (rp.index < 0 || rp.index >= n) continue;
        EXPECT_EQ(rp.code, sp[(si + size_t(rp.index)) % sp.size()].code)
            << sp[(si + size_t(rp.index)) % sp.size()].what;
      }
      size_t k = 0;
      for (int i = 0; i < n; ++i) {
        if (k < at.size() && at[k] == i) {
          const Special &s = sp[(si + size_t(i)) % sp.size()];
          EXPECT_TRUE(judge<T>(s, r[i])) << s.what << ": (" << r[i].real() << ", " << r[i].imag() << ")";
          ++k;
        } else {
          EXPECT_LE(error<T>(c.f, a[i], b[i], r[i]), bound<T>(c.slot)) << "n = " << n << " i = " << i;
        }
      }
    }
  }
}

TEST_P(CplxArithSpecial, OnlySpecialElementsReported) {
  const Case &c = GetParam();
  if (c.type == 'c')
    check_mixed<float>(c);
  else
    check_mixed<double>(c);
}

// An element's bits do not depend on n or on where it falls: every element of
// a 23-element vector (body and tail of the blocks) equals the same element
// computed alone and at every offset of a short vector.
template <class T>
void check_position(const Case &c) {
  std::mt19937_64 g(0x9051710ULL + c.slot + int(c.f) * 3 + c.type);
  const int n = 23;
  std::vector<C<T>> a(n), b(n);
  for (int i = 0; i < n; ++i) {
    a[i] = {rnd_component<T>(g, -40, 40), rnd_component<T>(g, -40, 40)};
    b[i] = {rnd_component<T>(g, -40, 40), rnd_component<T>(g, -40, 40)};
  }
  const int inc = c.strided ? 2 : 1;
  const auto full = compute<T>(c.f, c.slot, a, b, inc);
  for (int i = 0; i < n; ++i) {
    for (int m = 1; m <= 5; ++m) {
      for (int off = 0; off < m; ++off) {
        std::vector<C<T>> a1(m), b1(m);
        for (int j = 0; j < m; ++j) {
          a1[j] = a[(i + j - off + n) % n];
          b1[j] = b[(i + j - off + n) % n];
        }
        const auto r1 = compute<T>(c.f, c.slot, a1, b1, inc);
        EXPECT_EQ(bits(r1[off].real()), bits(full[i].real())) << "i = " << i << " m = " << m;
        EXPECT_EQ(bits(r1[off].imag()), bits(full[i].imag())) << "i = " << i << " m = " << m;
      }
    }
  }
}

TEST_P(CplxArithSpecial, ResultIndependentOfPosition) {
  const Case &c = GetParam();
  if (c.type == 'c')
    check_position<float>(c);
  else
    check_position<double>(c);
}

INSTANTIATE_TEST_SUITE_P(All, CplxArithSpecial, ::testing::ValuesIn(cases()), case_name);

// In place: the result vector may be the first argument, also when lanes of a
// block take the per-element path.
template <class T>
void check_in_place(Fn f) {
  const double big = double(std::numeric_limits<T>::max());
  std::vector<C<T>> a = {{1, 2}, {T(big), T(big)}, {3, -1}, {T(0.5), 4}, {-2, T(0.25)},
                         {T(big), 1}, {7, 7}};
  std::vector<C<T>> b = {{2, -1}, {4, 4}, {T(0.5), 2}, {0, 0}, {3, 3}, {T(big), 1}, {-1, 2}};
  const auto want = compute<T>(f, 1, a, b);
  std::vector<C<T>> x = a;
  Recorder rec;
  run<T>(f, 1, int(x.size()), x.data(), b.data(), x.data());
  for (size_t i = 0; i < x.size(); ++i) {
    EXPECT_EQ(bits(x[i].real()), bits(want[i].real())) << fn_name(f) << " i = " << i;
    EXPECT_EQ(bits(x[i].imag()), bits(want[i].imag())) << fn_name(f) << " i = " << i;
  }
}

TEST(CplxArith, InPlace) {
  for (Fn f : {Fn::Mul, Fn::MulByConj, Fn::Div, Fn::Add, Fn::Sub}) {
    check_in_place<float>(f);
    check_in_place<double>(f);
  }
}

}  // namespace
