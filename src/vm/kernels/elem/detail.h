// Shared machinery of the per-element routines: extended-precision guard,
// result classification and the hand-written special-function algorithms that
// the C library does not provide (or does not provide accurately enough).
//
// Method in one sentence: every routine evaluates in x87 extended precision
// (64-bit significand), which leaves 11 guard bits for double and 40 for float,
// and rounds once to the element type.  The double rounding (exact -> long
// double -> T) costs at most 2^-11 ulp beyond the half ulp of a correctly
// rounded result.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

namespace qor::vm::elem {

// Table slot order of the kernel tables.
inline constexpr int kLA = 0;
inline constexpr int kHA = 1;
inline constexpr int kEP = 2;

// Codes an element routine reports; 0 for an ordinary element.
inline constexpr int kCodeOk = 0;
inline constexpr int kCodeDomain = 1;
inline constexpr int kCodePole = 2;
inline constexpr int kCodeOverflow = 3;
inline constexpr int kCodeUnderflow = 4;

namespace detail {

using ld = long double;

inline constexpr ld kPi = 3.14159265358979323846264338327950288L;
inline constexpr ld kSqrtPi = 1.77245385090551602729816748334114518L;
inline constexpr ld kTwoOverSqrtPi = 1.12837916709551257389615890312154517L;
inline constexpr ld kSqrt2 = 1.41421356237309504880168872420969808L;
inline constexpr ld kInvSqrt2 = 0.707106781186547524400844362104849039L;
inline constexpr ld kEuler = 0.577215664901532860606512090082402431L;
inline constexpr ld kLn10 = 2.30258509299404568401799145468436421L;

// The x87 unit must run with 64-bit precision and round-to-nearest for the
// guard bits to exist.  Linux starts threads that way, but a caller may have
// changed the control word; only then do we pay for two control-word loads.
class ExtendedPrecision {
 public:
  ExtendedPrecision() {
    __asm__ volatile("fnstcw %0" : "=m"(saved_));
    changed_ = (saved_ & 0xF00) != 0x300;
    if (changed_) {
      unsigned short cw = static_cast<unsigned short>((saved_ & ~0xF00) | 0x300);
      __asm__ volatile("fldcw %0" : : "m"(cw));
    }
  }
  ~ExtendedPrecision() {
    if (changed_) __asm__ volatile("fldcw %0" : : "m"(saved_));
  }
  ExtendedPrecision(const ExtendedPrecision &) = delete;
  ExtendedPrecision &operator=(const ExtendedPrecision &) = delete;

 private:
  unsigned short saved_;
  bool changed_;
};

// Rounds the extended result to T and classifies it:
//  - NaN out of non-NaN input: domain error;
//  - infinity out of finite input: overflow (callers mark poles themselves);
//  - a nonzero exact value that lands below the normal range: underflow.
// `nonzero` says the exact value is known to be nonzero even when the
// extended evaluation itself underflowed to zero.
template <class T>
inline T fin(ld v, int &code, bool finite_in, bool nonzero = false, bool nan_in = false) {
  const T r = static_cast<T>(v);
  if (std::isnan(r)) {
    if (!nan_in) code = kCodeDomain;
  } else if (std::isinf(r)) {
    if (finite_in) code = kCodeOverflow;
  } else if (r == 0) {
    if (v != 0 || (nonzero && finite_in)) code = kCodeUnderflow;
  } else if (std::fabs(r) < std::numeric_limits<T>::min()) {
    code = kCodeUnderflow;
  }
  return r;
}

template <class T>
inline T pole(T value, int &code) {
  code = kCodePole;
  return value;
}

template <class T>
inline T domain(int &code) {
  code = kCodeDomain;
  return std::numeric_limits<T>::quiet_NaN();
}

// a*b + c*d with the two products kept exactly (fmal recovers the low part),
// so that cancellation between them costs nothing.  Used by complex
// multiplication and division of doubles; for floats the products are exact
// in long double already.
inline ld dot2(ld a, ld b, ld c, ld d) {
  const ld p = a * b, q = c * d;
  const ld ep = std::fma(a, b, -p), eq = std::fma(c, d, -q);
  const ld s = p + q;
  const ld bb = s - p;
  const ld t = (p - (s - bb)) + (q - bb);
  return s + (t + (ep + eq));
}

// ---------------------------------------------------------------------------
// Binary128 helpers (the compiler's software quad type; arithmetic only, no
// library) for the few places where 64 bits are not enough.
using Q = __float128;

// 1/n! for n < 32, computed once.
inline const Q *q_inv_factorials() {
  static const struct Table {
    Q v[32];
    Table() {
      v[0] = 1;
      for (int n = 1; n < 32; ++n) v[n] = v[n - 1] / n;
    }
  } table;
  return table.v;
}

inline Q q_exp(Q v) {  // |v| <= ~12000
  const ld kLn2Hi = 0.6931471805599453094286905L, kLn2Lo = -1.14583527267987328109353e-20L;
  const ld k = std::nearbyint(static_cast<ld>(v) / kLn2Hi);
  const Q r = v - static_cast<Q>(k) * static_cast<Q>(kLn2Hi) - static_cast<Q>(k) * static_cast<Q>(kLn2Lo);
  // |r| <= 0.35: 26 terms reach 2^-118.
  const Q *f = q_inv_factorials();
  Q sum = f[26];
  for (int n = 25; n >= 0; --n) sum = sum * r + f[n];
  return sum * static_cast<Q>(std::ldexp(1.0L, static_cast<int>(k)));
}

// sin and cos of |v| <= ~4, reduced by quarter turns to |r| <= pi/4.
inline void q_sincos(Q v, Q &s, Q &c) {
  const ld kPio2Hi = 1.570796326794896619256404L, kPio2Lo = -2.508278806334166011778664e-20L;
  const ld k = std::nearbyint(static_cast<ld>(v) / kPio2Hi);
  const Q r = v - static_cast<Q>(k) * static_cast<Q>(kPio2Hi) - static_cast<Q>(k) * static_cast<Q>(kPio2Lo);
  const Q r2 = r * r;
  const Q *f = q_inv_factorials();
  // |r| <= 0.79: terms up to r^29 / 29! are below 2^-118.
  Q cs = f[28], sn = f[29];
  for (int n = 26; n >= 0; n -= 2) cs = -cs * r2 + f[n];
  for (int n = 27; n >= 1; n -= 2) sn = -sn * r2 + f[n];
  sn *= r;
  switch (static_cast<int>(k) & 3) {
    case 0: s = sn; c = cs; break;
    case 1: s = cs; c = -sn; break;
    case 2: s = -sn; c = -cs; break;
    default: s = -cs; c = sn; break;
  }
}

// Splits a binary128 value into an extended-precision head and tail.
inline void split(Q v, ld &hi, ld &lo) {
  hi = static_cast<ld>(v);
  lo = static_cast<ld>(v - static_cast<Q>(hi));
}

// ---------------------------------------------------------------------------
// Inverse error function family.  Newton/Halley refinement against erfl and
// erfcl in extended precision, started from a series (centre) or from the
// tail asymptotics.  Two to five steps reach the 64-bit working precision.

// erfinv(t) for 0 <= t <= 0.5: Halley on erf(x) - t.
inline ld erfinv_centre(ld t) {
  if (t == 0) return t;
  const ld t2 = t * t;
  // Maclaurin series of erfinv, enough terms for ~1e-4 at t = 0.5.
  ld x = 0.5L * kSqrtPi * t *
         (1 + t2 * (kPi / 12 + t2 * (7 * kPi * kPi / 480 + t2 * (127 * kPi * kPi * kPi / 40320))));
  for (int i = 0; i < 4; ++i) {
    const ld f = std::erf(x) - t;
    const ld fp = kTwoOverSqrtPi * std::exp(-x * x);
    const ld r = f / fp;
    const ld dx = r / (1 + x * r);
    x -= dx;
    // Cubic convergence: after a step of 2^-24 the error is below 2^-70.
    if (std::fabs(dx) <= std::fabs(x) * 0x1p-24L) break;
  }
  return x;
}

// erfcinv(y) for 0 < y <= 0.5 (x >= 0.47): Newton on log(erfc(x)) - log(y),
// which is close to linear in x^2 and so converges from the asymptotic start.
inline ld erfcinv_tail(ld y) {
  const ld ly = std::log(y);
  const ld L = -ly;
  ld x = std::sqrt(L);
  for (int i = 0; i < 3; ++i) {
    const ld u = L - std::log(x * kSqrtPi);
    x = std::sqrt(u > 0.2L ? u : 0.2L);
  }
  for (int i = 0; i < 40; ++i) {
    const ld e = std::erfc(x);
    const ld h = std::log(e) - ly;
    const ld hp = -kTwoOverSqrtPi * std::exp(-x * x) / e;
    const ld dx = h / hp;
    x -= dx;
    // Quadratic convergence with a curvature below x: after a step of 2^-36
    // relative the error is below 2^-66.  (Waiting for the step itself to
    // vanish would spin on the last bit of the extended format.)
    if (std::fabs(dx) <= x * 0x1p-36L) break;
  }
  return x;
}

// erfcinv(y) for y in (0, 2) (callers handle the end points).
inline ld erfcinv(ld y) {
  if (y > 1) return -erfcinv(2 - y);  // exact: Sterbenz
  if (y >= 0.5L) return erfinv_centre(1 - y);
  return erfcinv_tail(y);
}

// erfinv(t) for t in (-1, 1).
inline ld erfinv(ld t) {
  if (t == 0) return t;  // keeps the sign of zero
  const ld a = std::fabs(t);
  const ld x = a <= 0.5L ? erfinv_centre(a) : erfcinv_tail(1 - a);
  return t < 0 ? -x : x;
}

// ---------------------------------------------------------------------------
// Exponential integral E1(x), x > 0.  Power series (alternating, at most ~7
// bits of cancellation for x <= 1.5) below 1.5, modified Lentz continued
// fraction above.
inline ld expint1(ld x) {
  if (x <= 1.5L) {
    ld sum = 0, term = 1;
    for (int k = 1; k < 60; ++k) {
      term *= -x / k;
      const ld add = term / k;
      sum += add;
      if (std::fabs(add) < std::fabs(sum) * 0x1p-68L) break;
    }
    return -kEuler - std::log(x) - sum;
  }
  // E1(x) = e^-x / (x + 1 - 1/(x + 3 - 4/(x + 5 - ...)))
  const ld tiny = 1e-4000L;
  ld b = x + 1, c = 1 / tiny, d = 1 / b, h = d;
  for (int i = 1; i < 400; ++i) {
    const ld an = -static_cast<ld>(i) * i;
    b += 2;
    d = 1 / (an * d + b);
    c = b + an / c;
    if (std::fabs(c) < tiny) c = tiny;
    const ld del = c * d;
    h *= del;
    if (std::fabs(del - 1) < 0x1p-66L) break;
  }
  return h * std::exp(-x);
}

// ---------------------------------------------------------------------------
// Modified Bessel functions I0, I1 for x >= 0.  Ascending series (positive
// terms, no cancellation) up to 30, Hankel asymptotic expansion above (the
// smallest term there is below 1e-25 relative).
inline ld bessel_i(int nu, ld x) {
  if (std::isinf(x)) return x;
  if (x <= 30) {
    ld t = nu == 0 ? 1.0L : 0.5L * x;
    ld sum = t;
    const ld q = 0.25L * x * x;
    for (int k = 1; k < 200; ++k) {
      t *= q / (static_cast<ld>(k) * (k + nu));
      sum += t;
      if (t < sum * 0x1p-68L) break;
    }
    return sum;
  }
  const ld mu = 4.0L * nu * nu;
  ld term = 1, sum = 1;
  for (int k = 1; k < 60; ++k) {
    const ld odd = 2.0L * k - 1;
    term *= -(mu - odd * odd) / (8.0L * k * x);
    sum += term;
    if (std::fabs(term) < sum * 0x1p-68L) break;
  }
  // e^x / sqrt(2 pi x), split so that e^x alone may exceed the range of T.
  return std::exp(x) / std::sqrt(2 * kPi * x) * sum;
}

// ---------------------------------------------------------------------------
// erfcx(x) = exp(x^2) erfc(x).  x^2 is split into hi + lo (fmal) because the
// exponential amplifies the absolute error of x^2, which reaches 1e4 here.
inline ld erfcx(ld x) {
  if (x >= 100) {
    // Asymptotic series 1/(x sqrt(pi)) * sum (-1)^k (2k-1)!! / (2x^2)^k.
    const ld z = 1 / (2 * x * x);
    ld term = 1, sum = 1;
    for (int k = 1; k < 12; ++k) {
      term *= -(2.0L * k - 1) * z;
      sum += term;
    }
    return sum / (x * kSqrtPi);
  }
  const ld hi = x * x;
  const ld lo = std::fma(x, x, -hi);
  return std::erfc(x) * std::exp(hi) * (1 + lo);
}

// Phi(x) = erfc(-x / sqrt 2) / 2, with the rounding error of the scaled
// argument fed back through the derivative (it matters in the far tail where
// the relative sensitivity is x^2).
inline ld cdfnorm(ld x) {
  if (std::isinf(x)) return x > 0 ? 1.0L : 0.0L;
  const ld t = -x * kInvSqrt2;
  // Low part of -x/sqrt2: exact residual of the product plus the constant's tail.
  const ld c_lo = 1.895032558893257079655062e-20L;  // 1/sqrt2 - kInvSqrt2
  const ld delta = std::fma(-x, kInvSqrt2, -t) - x * c_lo;
  const ld e = std::erfc(t);
  return 0.5L * (e - kTwoOverSqrtPi * std::exp(-t * t) * delta);
}

}  // namespace detail
}  // namespace qor::vm::elem
