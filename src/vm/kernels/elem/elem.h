// Per-element routines of the vector math functions that have no SIMD kernel
// yet.  The vector kernels call `F::eval<T, S>(...)` once per element; T is
// float or double, S the table slot (kLA, kHA, kEP).  `code` is left alone for
// an ordinary element and set to 1 (domain), 2 (pole), 3 (overflow) or
// 4 (underflow: subnormal result, or zero from a nonzero exact value);
// the return value is the IEEE result to store.
//
// Accuracy: every slot currently runs the high-accuracy algorithm (a slot may
// always use a more accurate one).  Each routine evaluates in x87 extended
// precision and rounds once; see detail.h for why that is within 1 ulp, and
// docs/vm-accuracy.md / tools/accuracy for the measured maxima.  Where the C library's
// extended functions are used their error (a few extended ulps) is 2^-11 of a
// double ulp; the routines the C library lacks (erfinv family, E1, erfcx,
// I0/I1, the pi- and degree-scaled trigonometry) are written in detail.h and
// below.
//
// Complex functions live in namespace cplx; see cplx.h.
//
// Measured maximum error in ulps, HA slot (qor-accuracy, 10^4 random samples
// plus special values and hard points per function; see docs/vm-accuracy.md):
//   real (float / double):
//     Acos 0.5/0.5; Acosh 0.5/0.5; Acospi 0.5/0.5; Asin 0.5/0.5; Asinh 0.5/0.5; Asinpi 0.5/0.5;
//     Atan 0.5/0.5; Atan2 0.5/0.5; Atan2pi 0.5/0.5; Atanh 0.5/0.5; Atanpi 0.5/0.5;
//     CdfNorm 0.499/0.5; CdfNormInv 0.5/0.5; Cos 0.5/0.5; Cosd 0.5/0.5; Cosh 0.5/0.5;
//     Cospi 0.5/0.5; Erf 0.5/0.5; ErfInv 0.5/0.5; Erfc 0.5/0.5; ErfcInv 0.5/0.5; Erfcx 0.5/0.5;
//     Exp 0.5/0.5; Exp10 0.5/0.5; Exp2 0.5/0.5; ExpInt1 0.5/0.509; Expm1 0.5/0.5; Hypot 0.5/0.5;
//     I0 0.5/0.501; I1 0.5/0.502; InvCbrt 0.5/0.5; J0 0.5/0.501; J1 0.5/0.502; Jn 0.5/1.8e+13;
//     LGamma 0.5/0.5; Ln 0.5/0.5; Log10 0.5/0.5; Log1p 0.5/0.5; Log2 0.5/0.5; Logb 0/0;
//     Pow 0.5/0.5; Pow2o3 0.5/0.5; Pow3o2 0.5/0.5; Powr 0.5/0.5; Powx 0.5/0.5; Sin 0.5/0.5;
//     SinCos 0.5/0.5; SinCospi 0.5/0.5; Sind 0.5/0.5; Sinh 0.5/0.5; Sinpi 0.5/0.5; TGamma 0.5/0.5;
//     Tan 0.5/0.5; Tand 0.5/0.5; Tanh 0.5/0.5; Tanpi 0.5/0.5; Y0 0.5/0.5; Y1 0.5/0.502;
//     Yn 0.5/4.91;
//   complex (cplx::, complex float / complex double):
//     Abs 0.5/0.5; Acos 0.5/0.5; Acosh 0.5/0.5; Add 0.5/0.5; Arg 0.5/0.5; Asin 0.5/0.5;
//     Asinh 0.5/0.5; Atan 0.5/0.5; Atanh 0.5/0.5; CIS 0.5/0.5; Conj 0/0; Cos 0.5/0.501;
//     Cosh 0.5/0.5; Div 0.5/0.5; Exp 0.5/0.5; Ln 0.5/0.5; Log10 0.5/0.5; Mul 0.5/0.5;
//     MulByConj 0.5/0.5; Pow 0.5/0.521; Powx 0.5/0.509; Sin 0.5/0.501; Sinh 0.5/0.501; Sqrt 0.5/0.5;
//     Sub 0.5/0.5; Tan 0.5/0.5; Tanh 0.5/0.5;
//   Over-bound entries are the documented limit: Jn/Yn next to zeros of order
//   >= 2 (three-term recurrence).
#pragma once

#include "vm/kernels/elem/bessel.h"
#include "vm/kernels/elem/detail.h"

namespace qor::vm::elem {

namespace detail {

// Unary functions whose extended-precision C library routine is accurate
// everywhere and whose only exceptional cases follow from the generic
// classification (NaN from non-NaN -> domain, inf from finite -> overflow,
// tiny -> underflow).
template <class T, class F>
inline T unary(T a, int &code, F f, bool nonzero = false) {
  ExtendedPrecision g;
  if (std::isnan(a)) return a + a;
  return fin<T>(f(static_cast<ld>(a)), code, std::isfinite(a), nonzero);
}

// Quadrant-reduced sine, cosine and tangent of pi*x and of x degrees.
// reduce_half_turns: x >= 0 given in units of half turns (x = 2 means 2 pi
// radians for the pi-scaled functions); returns q = round(2x) mod 4 and the
// exact remainder f = x - round(2x)/2 in [-1/4, 1/4].
struct Quadrant {
  int q;
  ld f;
};

inline Quadrant reduce_pi(ld x) {
  // Every float >= 2^23 and double >= 2^52 is an integer; 2^62 keeps 2x
  // exactly representable and its low bits meaningful.
  if (x >= 0x1p62L) return {0, 0};
  const ld n = std::nearbyint(2 * x);
  const ld f = x - n * 0.5L;  // exact
  const auto ni = static_cast<unsigned long long>(n);
  return {static_cast<int>(ni & 3), f};
}

// Degrees: reduce modulo 360 (fmod is exact), then to the nearest multiple of 90.
inline Quadrant reduce_deg(ld x) {
  const ld r = std::fmod(x, 360.0L);
  const ld n = std::nearbyint(r / 90);
  const ld f = r - 90 * n;  // exact: r and 90n are within a factor of two
  return {static_cast<int>(n) & 3, f};
}

inline constexpr ld kRadPerDeg = 0.0174532925199432957692369076848861271L;

// sin of a reduced argument, zero signs chosen so that sin(+k*half turn) = +0.
inline ld sin_q(Quadrant r, ld scale) {
  if (r.f == 0) return (r.q & 1) ? (r.q == 1 ? 1.0L : -1.0L) : 0.0L;
  const ld t = r.f * scale;
  switch (r.q) {
    case 0: return std::sin(t);
    case 1: return std::cos(t);
    case 2: return -std::sin(t);
    default: return -std::cos(t);
  }
}

// cos of a reduced argument; cos at odd quarter turns is +0.
inline ld cos_q(Quadrant r, ld scale) {
  if (r.f == 0) return (r.q & 1) ? 0.0L : (r.q == 0 ? 1.0L : -1.0L);
  const ld t = r.f * scale;
  switch (r.q) {
    case 0: return std::cos(t);
    case 1: return -std::sin(t);
    case 2: return -std::cos(t);
    default: return std::sin(t);
  }
}

// tan of a reduced argument: +0 at even multiples of a half turn, -0 at odd
// ones; +inf at (2k + 1/2) half turns, -inf at (2k + 3/2) (pole flag set).
inline ld tan_q(Quadrant r, ld scale, bool &is_pole) {
  is_pole = false;
  if (r.f == 0) {
    if (r.q == 0) return 0.0L;
    if (r.q == 2) return -0.0L;
    is_pole = true;
    return r.q == 1 ? HUGE_VALL : -HUGE_VALL;
  }
  const ld t = std::tan(r.f * scale);
  return (r.q & 1) ? -1 / t : t;
}

template <class T>
inline T odd_sign(T a, ld v) {
  return std::signbit(a) ? static_cast<T>(-v) : static_cast<T>(v);
}

}  // namespace detail

#define QOR_ELEM_SIMPLE(Name, expr, nonzero)                                  \
  struct Name {                                                               \
    template <class T, int S>                                                 \
    static T eval(T a, int &code) {                                           \
      return detail::unary<T>(a, code, [](detail::ld x) { return expr; }, nonzero); \
    }                                                                         \
  }

// ---- exponentials and logarithms -------------------------------------------
// Exp family: the exact value of exp(x) is never zero for finite x, so a
// result flushed to zero is an underflow.
QOR_ELEM_SIMPLE(Exp, std::exp(x), true);
QOR_ELEM_SIMPLE(Exp2, std::exp2(x), true);
QOR_ELEM_SIMPLE(Exp10, exp10l(x), true);
QOR_ELEM_SIMPLE(Expm1, std::expm1(x), false);

// Logarithms: zero is a pole, negative arguments a domain error.
#define QOR_ELEM_LOG(Name, fn)                                                \
  struct Name {                                                               \
    template <class T, int S>                                                 \
    static T eval(T a, int &code) {                                           \
      if (a == 0) return detail::pole(-std::numeric_limits<T>::infinity(), code); \
      return detail::unary<T>(a, code, [](detail::ld x) { return fn(x); });   \
    }                                                                         \
  }
QOR_ELEM_LOG(Ln, std::log);
QOR_ELEM_LOG(Log2, std::log2);
QOR_ELEM_LOG(Log10, std::log10);
QOR_ELEM_LOG(Logb, std::logb);
#undef QOR_ELEM_LOG

struct Log1p {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == -1) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    return detail::unary<T>(a, code, [](detail::ld x) { return std::log1p(x); });
  }
};

// ---- trigonometric ------------------------------------------------------------
// The extended C library routines reduce huge arguments exactly
// (Payne-Hanek), so no special care is needed beyond infinity -> domain.
QOR_ELEM_SIMPLE(Sin, std::sin(x), false);
QOR_ELEM_SIMPLE(Cos, std::cos(x), false);
QOR_ELEM_SIMPLE(Tan, std::tan(x), false);

struct SinCos {
  template <class T, int S>
  static void eval(T a, T &r1, T &r2, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) {
      r1 = r2 = a + a;
      return;
    }
    const detail::ld x = a;
    r1 = detail::fin<T>(std::sin(x), code, std::isfinite(a));
    r2 = detail::fin<T>(std::cos(x), code, std::isfinite(a));
  }
};

// pi-scaled: reduction to [-1/4, 1/4] half turns is exact, so results are
// exact at every multiple of 1/2 and rounded once elsewhere.
struct Sinpi {
  template <class T, int S>
  static T eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return detail::domain<T>(code);
    const auto r = detail::reduce_pi(std::fabs(static_cast<detail::ld>(a)));
    const detail::ld v = detail::sin_q(r, detail::kPi);
    return detail::fin<T>(std::signbit(a) ? -v : v, code, true);
  }
};

struct Cospi {
  template <class T, int S>
  static T eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return detail::domain<T>(code);
    const auto r = detail::reduce_pi(std::fabs(static_cast<detail::ld>(a)));
    return detail::fin<T>(detail::cos_q(r, detail::kPi), code, true);
  }
};

struct Tanpi {
  template <class T, int S>
  static T eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return detail::domain<T>(code);
    const auto r = detail::reduce_pi(std::fabs(static_cast<detail::ld>(a)));
    bool is_pole;
    const detail::ld v = detail::tan_q(r, detail::kPi, is_pole);
    const T out = detail::fin<T>(std::signbit(a) ? -v : v, code, true);
    if (is_pole) code = kCodePole;
    return out;
  }
};

struct SinCospi {
  template <class T, int S>
  static void eval(T a, T &r1, T &r2, int &code) {
    r1 = Sinpi::eval<T, S>(a, code);
    r2 = Cospi::eval<T, S>(a, code);
  }
};

// Degrees: exact reduction modulo 360 and to the nearest multiple of 90, so
// sind(30) = 0.5, cosd(60) = 0.5, tand(45) = 1 and multiples of 90 are exact.
struct Sind {
  template <class T, int S>
  static T eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return detail::domain<T>(code);
    const auto r = detail::reduce_deg(std::fabs(static_cast<detail::ld>(a)));
    const detail::ld v = detail::sin_q(r, detail::kRadPerDeg);
    return detail::fin<T>(std::signbit(a) ? -v : v, code, true);
  }
};

struct Cosd {
  template <class T, int S>
  static T eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return detail::domain<T>(code);
    const auto r = detail::reduce_deg(std::fabs(static_cast<detail::ld>(a)));
    return detail::fin<T>(detail::cos_q(r, detail::kRadPerDeg), code, true);
  }
};

struct Tand {
  template <class T, int S>
  static T eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return detail::domain<T>(code);
    const auto r = detail::reduce_deg(std::fabs(static_cast<detail::ld>(a)));
    bool is_pole;
    const detail::ld v = detail::tan_q(r, detail::kRadPerDeg, is_pole);
    const T out = detail::fin<T>(std::signbit(a) ? -v : v, code, true);
    if (is_pole) code = kCodePole;
    return out;
  }
};

// ---- inverse trigonometric ------------------------------------------------------
QOR_ELEM_SIMPLE(Asin, std::asin(x), false);
QOR_ELEM_SIMPLE(Acos, std::acos(x), false);
QOR_ELEM_SIMPLE(Atan, std::atan(x), false);
QOR_ELEM_SIMPLE(Asinpi, std::asin(x) / detail::kPi, false);
QOR_ELEM_SIMPLE(Acospi, std::acos(x) / detail::kPi, false);
QOR_ELEM_SIMPLE(Atanpi, std::atan(x) / detail::kPi, false);

struct Atan2 {
  template <class T, int S>
  static T eval(T a, T b, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a) || std::isnan(b)) return a + b;
    return detail::fin<T>(std::atan2(static_cast<detail::ld>(a), static_cast<detail::ld>(b)), code,
                          true);
  }
};

struct Atan2pi {
  template <class T, int S>
  static T eval(T a, T b, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a) || std::isnan(b)) return a + b;
    return detail::fin<T>(
        std::atan2(static_cast<detail::ld>(a), static_cast<detail::ld>(b)) / detail::kPi, code, true);
  }
};

// ---- hyperbolic -------------------------------------------------------------------
QOR_ELEM_SIMPLE(Sinh, std::sinh(x), false);
QOR_ELEM_SIMPLE(Cosh, std::cosh(x), false);
QOR_ELEM_SIMPLE(Tanh, std::tanh(x), false);
QOR_ELEM_SIMPLE(Asinh, std::asinh(x), false);
QOR_ELEM_SIMPLE(Acosh, std::acosh(x), false);

struct Atanh {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 1) return detail::pole(std::numeric_limits<T>::infinity(), code);
    if (a == -1) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    return detail::unary<T>(a, code, [](detail::ld x) { return std::atanh(x); });
  }
};

// ---- powers and roots ----------------------------------------------------------------
struct Pow {
  template <class T, int S>
  static T eval(T a, T b, int &code) {
    detail::ExtendedPrecision g;
    const bool nan_in = std::isnan(a) || std::isnan(b);
    const detail::ld v = std::pow(static_cast<detail::ld>(a), static_cast<detail::ld>(b));
    // 0 raised to a negative power: the exact limit is infinite.
    if (a == 0 && b < 0 && std::isfinite(b)) return detail::pole(static_cast<T>(v), code);
    const bool finite_in = std::isfinite(a) && std::isfinite(b);
    return detail::fin<T>(v, code, finite_in, a != 0, nan_in);
  }
};

// Powx: the exponent is one scalar for the whole vector; per element it is Pow.
struct Powx {
  template <class T, int S>
  static T eval(T a, T b, int &code) {
    return Pow::eval<T, S>(a, b, code);
  }
};

// Powr(x, y) = exp(y log x): defined for x >= 0 only, without Pow's
// integer-exponent special cases; 0^0, inf^0 and 1^inf are invalid.
struct Powr {
  template <class T, int S>
  static T eval(T a, T b, int &code) {
    detail::ExtendedPrecision g;
    constexpr T inf = std::numeric_limits<T>::infinity();
    // A NaN operand gives NaN, except that 1 to any power is 1.
    if (std::isnan(b) && a == 1) return T(1);
    if (std::isnan(a) || std::isnan(b)) return a + b;
    if (a < 0) return detail::domain<T>(code);
    if (a == 0) {
      if (b == 0) return detail::domain<T>(code);
      if (b < 0) return std::isinf(b) ? inf : detail::pole(inf, code);
      return T(0);
    }
    if (std::isinf(a)) {
      if (b == 0) return detail::domain<T>(code);
      return b < 0 ? T(0) : inf;
    }
    if (a == 1) return std::isinf(b) ? detail::domain<T>(code) : T(1);
    const detail::ld v = std::pow(static_cast<detail::ld>(a), static_cast<detail::ld>(b));
    return detail::fin<T>(v, code, std::isfinite(b), true);
  }
};

struct Hypot {
  template <class T, int S>
  static T eval(T a, T b, int &code) {
    detail::ExtendedPrecision g;
    const detail::ld v = std::hypot(static_cast<detail::ld>(a), static_cast<detail::ld>(b));
    return detail::fin<T>(v, code, std::isfinite(a) && std::isfinite(b), false,
                          std::isnan(a) || std::isnan(b));
  }
};

// x^(2/3) = cbrt(x^2): the square is exact for float and carries 2^-64
// relative error for double, which the cube root divides by three.
QOR_ELEM_SIMPLE(Pow2o3, std::cbrt(x * x), false);

// x^(3/2) = x sqrt(x), defined for x >= 0.
QOR_ELEM_SIMPLE(Pow3o2, x < 0 ? std::numeric_limits<detail::ld>::quiet_NaN() : x * std::sqrt(x),
                false);

struct InvCbrt {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(std::copysign(std::numeric_limits<T>::infinity(), a), code);
    return detail::unary<T>(a, code, [](detail::ld x) { return 1 / std::cbrt(x); });
  }
};

// ---- error function family ---------------------------------------------------------
QOR_ELEM_SIMPLE(Erf, std::erf(x), false);
QOR_ELEM_SIMPLE(Erfc, std::erfc(x), true);
QOR_ELEM_SIMPLE(Erfcx, x < -107 ? HUGE_VALL : detail::erfcx(x), true);
QOR_ELEM_SIMPLE(CdfNorm, detail::cdfnorm(x), true);

struct ErfInv {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 1) return detail::pole(std::numeric_limits<T>::infinity(), code);
    if (a == -1) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    return detail::unary<T>(a, code, [](detail::ld x) {
      return std::fabs(x) > 1 ? std::numeric_limits<detail::ld>::quiet_NaN() : detail::erfinv(x);
    });
  }
};

struct ErfcInv {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(std::numeric_limits<T>::infinity(), code);
    if (a == 2) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    return detail::unary<T>(a, code, [](detail::ld x) {
      return (x < 0 || x > 2) ? std::numeric_limits<detail::ld>::quiet_NaN() : detail::erfcinv(x);
    });
  }
};

// Phi^-1(p) = -sqrt2 erfcinv(2p); 2p is exact and erfcinv handles both halves.
struct CdfNormInv {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    if (a == 1) return detail::pole(std::numeric_limits<T>::infinity(), code);
    return detail::unary<T>(a, code, [](detail::ld x) {
      return (x < 0 || x > 1) ? std::numeric_limits<detail::ld>::quiet_NaN()
                              : 0 - detail::kSqrt2 * detail::erfcinv(2 * x);  // 0 - v: Phi^-1(1/2) = +0
    });
  }
};

// ---- gamma and exponential integral -------------------------------------------------
struct TGamma {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(std::copysign(std::numeric_limits<T>::infinity(), a), code);
    return detail::unary<T>(a, code, [](detail::ld x) { return std::tgamma(x); }, true);
  }
};

struct LGamma {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a <= 0 && std::isfinite(a) && std::floor(a) == a)
      return detail::pole(std::numeric_limits<T>::infinity(), code);
    return detail::unary<T>(a, code, [](detail::ld x) {
      int sign;
      return lgammal_r(x, &sign);
    });
  }
};

struct ExpInt1 {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(std::numeric_limits<T>::infinity(), code);
    if (a == std::numeric_limits<T>::infinity()) return T(0);
    return detail::unary<T>(a, code, [](detail::ld x) {
      return x < 0 ? std::numeric_limits<detail::ld>::quiet_NaN() : detail::expint1(x);
    }, true);
  }
};

// ---- Bessel functions ------------------------------------------------------------
QOR_ELEM_SIMPLE(J0, std::isinf(x) ? 0.0L : detail::bessel_j0(std::fabs(x)), false);
QOR_ELEM_SIMPLE(J1, std::isinf(x) ? 0.0L : (x < 0 ? -detail::bessel_j1(-x) : detail::bessel_j1(x)), false);
QOR_ELEM_SIMPLE(I0, detail::bessel_i(0, std::fabs(x)), false);
QOR_ELEM_SIMPLE(I1, (x < 0 ? -detail::bessel_i(1, -x) : detail::bessel_i(1, x)), false);

// Y0, Y1, Yn: negative arguments are outside the domain, zero is a pole.
struct Y0 {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    if (a == std::numeric_limits<T>::infinity()) return T(0);
    return detail::unary<T>(a, code, [](detail::ld x) {
      return x < 0 ? std::numeric_limits<detail::ld>::quiet_NaN() : detail::bessel_y0(x);
    });
  }
};

struct Y1 {
  template <class T, int S>
  static T eval(T a, int &code) {
    if (a == 0) return detail::pole(-std::numeric_limits<T>::infinity(), code);
    if (a == std::numeric_limits<T>::infinity()) return T(0);
    return detail::unary<T>(a, code, [](detail::ld x) {
      return x < 0 ? std::numeric_limits<detail::ld>::quiet_NaN() : detail::bessel_y1(x);
    });
  }
};

namespace detail {
// J_n and Y_n for any integer order; orders beyond 1000 (where the
// recurrences would need thousands of steps) use the C library.
inline ld jn_any(int n, ld x) {
  // J_{-n} = (-1)^n J_n and J_n(-x) = (-1)^n J_n(x)
  const bool odd = n & 1;
  const long long an = n < 0 ? -static_cast<long long>(n) : n;
  const bool neg = (n < 0 && odd) != (std::signbit(x) && odd);
  const ld ax = std::fabs(x);
  ld v;
  if (an > 1000) return jnl(n, x);
  if (an == 0) v = bessel_j0(ax);
  else if (an == 1) v = bessel_j1(ax);
  else if (ax == 0) v = 0;
  else v = bessel_jn(static_cast<int>(an), ax);
  return neg ? -v : v;
}
inline ld yn_any(int n, ld x) {  // x > 0
  const long long an = n < 0 ? -static_cast<long long>(n) : n;
  if (an > 1000) return ynl(n, x);
  ld v = an == 0 ? bessel_y0(x) : an == 1 ? bessel_y1(x) : bessel_yn(static_cast<int>(an), x);
  return (n < 0 && (an & 1)) ? -v : v;
}
}  // namespace detail

// Integer order n first, then the argument.
struct Jn {
  template <class T, int S>
  static T eval(int n, T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (std::isinf(a)) return T(0);
    return detail::fin<T>(detail::jn_any(n, static_cast<detail::ld>(a)), code, true);
  }
};

struct Yn {
  template <class T, int S>
  static T eval(int n, T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return a + a;
    if (a < 0) return detail::domain<T>(code);
    if (a == std::numeric_limits<T>::infinity()) return T(0);
    if (a == 0) {
      const bool pos = n < 0 && (n & 1);  // Y_{-n} = (-1)^n Y_n
      return detail::pole(pos ? std::numeric_limits<T>::infinity() : -std::numeric_limits<T>::infinity(),
                          code);
    }
    return detail::fin<T>(detail::yn_any(n, static_cast<detail::ld>(a)), code, true);
  }
};

#undef QOR_ELEM_SIMPLE

}  // namespace qor::vm::elem

#include "vm/kernels/elem/cplx.h"
