// Per-element complex routines, namespace qor::vm::elem::cplx.
//
// Method: evaluate in std::complex<long double> (the C library's extended
// complex functions, which take care of branch cuts, signed zeros and the
// clog-near-unit-circle cancellation) and round each component once.
// Multiplication and division keep their cross products exact (fmal) so that
// cancellation in ac - bd costs nothing.
//
// Codes: a NaN component from non-NaN input is a domain error (1); the
// function's genuine poles (log of 0, atanh(+-1), atan(+-i), division by 0,
// 0 to a power with negative real part) report 2; an infinite component from
// finite input elsewhere is an overflow (3).  Underflow of a single component
// is not reported for complex results: a tiny component beside a normal one is
// ordinary.
#pragma once

#include <complex>
#include <type_traits>

#include "vm/kernels/elem/detail.h"

namespace qor::vm::elem::cplx {

namespace detail {

using elem::detail::ExtendedPrecision;
using elem::detail::ld;
using CL = std::complex<ld>;

template <class T>
inline bool has_nan(std::complex<T> z) {
  return std::isnan(z.real()) || std::isnan(z.imag());
}
template <class T>
inline bool all_finite(std::complex<T> z) {
  return std::isfinite(z.real()) && std::isfinite(z.imag());
}

template <class T>
inline std::complex<T> fin(CL v, int &code, bool finite_in, bool nan_in) {
  const std::complex<T> r(static_cast<T>(v.real()), static_cast<T>(v.imag()));
  if (has_nan(r)) {
    if (!nan_in) code = kCodeDomain;
  } else if (!all_finite(r)) {
    if (finite_in) code = kCodeOverflow;
  }
  return r;
}

template <class T>
inline CL widen(std::complex<T> z) {
  return CL(z.real(), z.imag());
}

template <class T, class F>
inline std::complex<T> unary(std::complex<T> a, int &code, F f) {
  ExtendedPrecision g;
  return fin<T>(f(widen(a)), code, all_finite(a), has_nan(a));
}

// Exact-cross-product multiply of finite operands; infinities and NaNs go to
// the compiler's Annex G multiplication.
inline CL mul(CL a, CL b) {
  if (!std::isfinite(a.real()) || !std::isfinite(a.imag()) || !std::isfinite(b.real()) ||
      !std::isfinite(b.imag()))
    return a * b;
  using elem::detail::dot2;
  return CL(dot2(a.real(), b.real(), -a.imag(), b.imag()),
            dot2(a.real(), b.imag(), a.imag(), b.real()));
}

// Division by |b|^2 scaling is unnecessary: the extended exponent range holds
// the squares of any double.
inline CL div(CL a, CL b) {
  const ld den = b.real() * b.real() + b.imag() * b.imag();
  if (!std::isfinite(a.real()) || !std::isfinite(a.imag()) || !std::isfinite(den) || den == 0)
    return a / b;
  using elem::detail::dot2;
  return CL(dot2(a.real(), b.real(), a.imag(), b.imag()) / den,
            dot2(a.imag(), b.real(), -a.real(), b.imag()) / den);
}


// ---- complex double power with a 113-bit logarithm ----------------------------
// exp(b log a) amplifies the absolute error of log a by |b|; with an extended
// logarithm the phase of a large power is off by |b log a| 2^-64, which the
// smaller component of the result cannot absorb.  Here log a is refined in
// binary128 arithmetic (the compiler's software quad type; no library):
// with L0 the extended logarithm, a e^-L0 = 1 + E and log a = L0 + E to
// ~2^-103, and b log a is formed in binary128 before the final exponential.
using elem::detail::Q;
using elem::detail::q_exp;
using elem::detail::q_sincos;
using elem::detail::split;

// The extended path leaves an absolute phase error of about |b| |log a| 2^-64;
// the smaller nonzero component absorbs it only if it is not much smaller
// than the modulus.  (A zero component comes from an exactly zero phase.)
inline bool needs_quad_log(CL v, ld bl) {
  const ld re = std::fabs(v.real()), im = std::fabs(v.imag());
  if (!std::isfinite(re) || !std::isfinite(im)) return false;
  const ld mn = re == 0 ? im : im == 0 ? re : std::min(re, im);
  if (mn == 0) return false;
  return (bl + 1) * std::max(re, im) > 0x1p6L * mn;
}

// a, b finite, a != 0.
inline CL pow_q(CL a, CL b) {
  const CL l0 = std::log(a);
  if (!std::isfinite(l0.real()) || !std::isfinite(l0.imag())) return std::exp(b * l0);
  Q s, c;
  q_sincos(static_cast<Q>(l0.imag()), s, c);
  const Q m = q_exp(-static_cast<Q>(l0.real()));
  const Q ar = static_cast<Q>(a.real()), ai = static_cast<Q>(a.imag());
  // (ar + i ai)(c - i s) m - 1
  const Q er = (ar * c + ai * s) * m - 1;
  const Q ei = (ai * c - ar * s) * m;
  const Q lr = static_cast<Q>(l0.real()) + er - (er * er - ei * ei) / 2;
  const Q li = static_cast<Q>(l0.imag()) + ei - er * ei;
  const Q br = static_cast<Q>(b.real()), bi = static_cast<Q>(b.imag());
  const Q wr = br * lr - bi * li, wi = br * li + bi * lr;
  ld rh, rl, ih, il;
  split(wr, rh, rl);
  split(wi, ih, il);
  const ld mag = std::exp(rh) * (1 + rl);
  const ld sn = std::sin(ih), cs = std::cos(ih);
  return CL(mag * (cs - sn * il), mag * (sn + cs * il));
}

}  // namespace detail

#define QOR_CPLX_UNARY(Name, expr)                                              \
  struct Name {                                                                 \
    template <class T, int S>                                                   \
    static std::complex<T> eval(std::complex<T> a, int &code) {                 \
      return detail::unary<T>(a, code, [](detail::CL z) { return expr; });     \
    }                                                                           \
  }

QOR_CPLX_UNARY(Acos, std::acos(z));
QOR_CPLX_UNARY(Acosh, std::acosh(z));
QOR_CPLX_UNARY(Asin, std::asin(z));
QOR_CPLX_UNARY(Asinh, std::asinh(z));
QOR_CPLX_UNARY(Cos, std::cos(z));
QOR_CPLX_UNARY(Cosh, std::cosh(z));
QOR_CPLX_UNARY(Exp, std::exp(z));
QOR_CPLX_UNARY(Sin, std::sin(z));
QOR_CPLX_UNARY(Sinh, std::sinh(z));
QOR_CPLX_UNARY(Sqrt, std::sqrt(z));
QOR_CPLX_UNARY(Tan, std::tan(z));
QOR_CPLX_UNARY(Tanh, std::tanh(z));

struct Ln {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, int &code) {
    const std::complex<T> r = detail::unary<T>(a, code, [](detail::CL z) { return std::log(z); });
    if (a.real() == 0 && a.imag() == 0) code = kCodePole;
    return r;
  }
};

struct Log10 {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, int &code) {
    const std::complex<T> r = detail::unary<T>(a, code, [](detail::CL z) {
      const detail::CL l = std::log(z);
      return detail::CL(l.real() / elem::detail::kLn10, l.imag() / elem::detail::kLn10);
    });
    if (a.real() == 0 && a.imag() == 0) code = kCodePole;
    return r;
  }
};

struct Atanh {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, int &code) {
    const std::complex<T> r = detail::unary<T>(a, code, [](detail::CL z) { return std::atanh(z); });
    if (a.imag() == 0 && (a.real() == 1 || a.real() == -1)) code = kCodePole;
    return r;
  }
};

struct Atan {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, int &code) {
    const std::complex<T> r = detail::unary<T>(a, code, [](detail::CL z) { return std::atan(z); });
    if (a.real() == 0 && (a.imag() == 1 || a.imag() == -1)) code = kCodePole;
    return r;
  }
};

struct Conj {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, int &) {
    return std::conj(a);
  }
};

struct Abs {
  template <class T, int S>
  static T eval(std::complex<T> a, int &code) {
    detail::ExtendedPrecision g;
    const detail::ld v = std::hypot(static_cast<detail::ld>(a.real()), static_cast<detail::ld>(a.imag()));
    const T r = static_cast<T>(v);
    if (std::isinf(r) && detail::all_finite(a)) code = kCodeOverflow;
    return r;
  }
};

struct Arg {
  template <class T, int S>
  static T eval(std::complex<T> a, int &) {
    detail::ExtendedPrecision g;
    return static_cast<T>(
        std::atan2(static_cast<detail::ld>(a.imag()), static_cast<detail::ld>(a.real())));
  }
};

// cos x + i sin x of a real argument.
struct CIS {
  template <class T, int S>
  static std::complex<T> eval(T a, int &code) {
    detail::ExtendedPrecision g;
    if (std::isnan(a)) return {a + a, a + a};
    if (std::isinf(a)) {
      code = kCodeDomain;
      const T nan = std::numeric_limits<T>::quiet_NaN();
      return {nan, nan};
    }
    const detail::ld x = a;
    return {static_cast<T>(std::cos(x)), static_cast<T>(std::sin(x))};
  }
};

struct Add {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    const std::complex<T> r(a.real() + b.real(), a.imag() + b.imag());
    if (!detail::all_finite(r) && !detail::has_nan(r) && detail::all_finite(a) && detail::all_finite(b))
      code = kCodeOverflow;
    return r;
  }
};

struct Sub {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    const std::complex<T> r(a.real() - b.real(), a.imag() - b.imag());
    if (!detail::all_finite(r) && !detail::has_nan(r) && detail::all_finite(a) && detail::all_finite(b))
      code = kCodeOverflow;
    return r;
  }
};

struct Mul {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    detail::ExtendedPrecision g;
    return detail::fin<T>(detail::mul(detail::widen(a), detail::widen(b)), code,
                          detail::all_finite(a) && detail::all_finite(b),
                          detail::has_nan(a) || detail::has_nan(b));
  }
};

// a * conj(b)
struct MulByConj {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    return Mul::eval<T, S>(a, std::conj(b), code);
  }
};

struct Div {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    detail::ExtendedPrecision g;
    const std::complex<T> r = detail::fin<T>(detail::div(detail::widen(a), detail::widen(b)), code,
                                             detail::all_finite(a) && detail::all_finite(b),
                                             detail::has_nan(a) || detail::has_nan(b));
    if (b.real() == 0 && b.imag() == 0 && !detail::has_nan(a) && (a.real() != 0 || a.imag() != 0))
      code = kCodePole;
    return r;
  }
};

// a^b = exp(b log a); 0^b is 0 for Re b > 0, a pole for Re b < 0 and invalid
// otherwise.
struct Pow {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    detail::ExtendedPrecision g;
    const bool nan_in = detail::has_nan(a) || detail::has_nan(b);
    if (!nan_in && a.real() == 0 && a.imag() == 0) {
      if (b.real() > 0) return {T(0), T(0)};
      const T inf = std::numeric_limits<T>::infinity();
      if (b.real() < 0 && b.imag() == 0) return elem::detail::pole(std::complex<T>(inf, T(0)), code);
      code = kCodeDomain;
      const T nan = std::numeric_limits<T>::quiet_NaN();
      return {nan, nan};
    }
    if (!nan_in && b.real() == 0 && b.imag() == 0) return {T(1), T(0)};
    const bool finite_in = detail::all_finite(a) && detail::all_finite(b);
    // Float results have 40 guard bits in extended precision; doubles need the
    // binary128 logarithm (see pow_q).
    const detail::CL l = std::log(detail::widen(a));
    detail::CL v = std::exp(detail::mul(detail::widen(b), l));
    if (std::is_same_v<T, double> && finite_in && detail::needs_quad_log(v, std::abs(detail::widen(b)) * std::abs(l)))
      v = detail::pow_q(detail::widen(a), detail::widen(b));
    return detail::fin<T>(v, code, finite_in, nan_in);
  }
};

struct Powx {
  template <class T, int S>
  static std::complex<T> eval(std::complex<T> a, std::complex<T> b, int &code) {
    return Pow::eval<T, S>(a, b, code);
  }
};

#undef QOR_CPLX_UNARY

}  // namespace qor::vm::elem::cplx
