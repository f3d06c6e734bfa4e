// MPFR references; see reference.h.  Formulas here are chosen to avoid
// cancellation where that is cheap; where it is not, the harness's precision
// escalation covers it.
#include "reference.h"

#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>

#include "vm/kernels/elem/detail.h"

namespace qor::accuracy {
namespace {

constexpr mpfr_rnd_t N = MPFR_RNDN;

// The constant 1/2 as an MPFR number.
mpfr_srcptr Half() {
  static mpfr_t h;
  static bool init = [] {
    mpfr_init2(h, 8);
    mpfr_set_d(h, 0.5, MPFR_RNDN);
    return true;
  }();
  (void)init;
  return h;
}

// Scratch number at a given precision.
struct Tmp {
  mpfr_t v;
  explicit Tmp(mpfr_prec_t p) { mpfr_init2(v, p); }
  ~Tmp() { mpfr_clear(v); }
  Tmp(const Tmp &) = delete;
  Tmp &operator=(const Tmp &) = delete;
  operator mpfr_ptr() { return v; }
};

mpfr_prec_t wp(mpfr_srcptr out) { return mpfr_get_prec(out) + 32; }

// Exact square of an input (inputs carry at most 64 significant bits).
void square_exact(mpfr_ptr r, mpfr_srcptr x) {
  mpfr_set_prec(r, 2 * mpfr_get_prec(x) + 2);
  mpfr_sqr(r, x, N);
}

// ---- real ------------------------------------------------------------------

#define UNARY(Name, fn) \
  void r_##Name(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) { fn(o, in[0], N); }
UNARY(Exp, mpfr_exp)
UNARY(Exp2, mpfr_exp2)
UNARY(Exp10, mpfr_exp10)
UNARY(Expm1, mpfr_expm1)
UNARY(Ln, mpfr_log)
UNARY(Log2, mpfr_log2)
UNARY(Log10, mpfr_log10)
UNARY(Log1p, mpfr_log1p)
UNARY(Sin, mpfr_sin)
UNARY(Cos, mpfr_cos)
UNARY(Tan, mpfr_tan)
UNARY(Sinpi, mpfr_sinpi)
UNARY(Cospi, mpfr_cospi)
UNARY(Tanpi, mpfr_tanpi)
UNARY(Asin, mpfr_asin)
UNARY(Acos, mpfr_acos)
UNARY(Atan, mpfr_atan)
UNARY(Asinpi, mpfr_asinpi)
UNARY(Acospi, mpfr_acospi)
UNARY(Atanpi, mpfr_atanpi)
UNARY(Sinh, mpfr_sinh)
UNARY(Cosh, mpfr_cosh)
UNARY(Tanh, mpfr_tanh)
UNARY(Asinh, mpfr_asinh)
UNARY(Acosh, mpfr_acosh)
UNARY(Atanh, mpfr_atanh)
UNARY(Erf, mpfr_erf)
UNARY(Erfc, mpfr_erfc)
UNARY(TGamma, mpfr_gamma)
UNARY(J0, mpfr_j0)
UNARY(J1, mpfr_j1)
UNARY(Y0, mpfr_y0)
UNARY(Y1, mpfr_y1)
#undef UNARY

#define DEGREES(Name, fn) \
  void r_##Name(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) { fn(o, in[0], 360, N); }
DEGREES(Sind, mpfr_sinu)
DEGREES(Cosd, mpfr_cosu)
DEGREES(Tand, mpfr_tanu)
#undef DEGREES

#define BINARY(Name, fn) \
  void r_##Name(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) { fn(o, in[0], in[1], N); }
BINARY(Atan2, mpfr_atan2)
BINARY(Atan2pi, mpfr_atan2pi)
BINARY(Hypot, mpfr_hypot)
BINARY(Pow, mpfr_pow)
BINARY(Powx, mpfr_pow)
BINARY(Powr, mpfr_powr)
#undef BINARY

void r_SinCos(mpfr_ptr o0, mpfr_ptr o1, mpfr_srcptr const *in, long) { mpfr_sin_cos(o0, o1, in[0], N); }
void r_SinCospi(mpfr_ptr o0, mpfr_ptr o1, mpfr_srcptr const *in, long) {
  mpfr_sinpi(o0, in[0], N);
  mpfr_cospi(o1, in[0], N);
}
void r_Jn(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long n) { mpfr_jn(o, n, in[0], N); }
void r_Yn(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long n) { mpfr_yn(o, n, in[0], N); }

void r_LGamma(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  int sign;
  mpfr_lgamma(o, &sign, in[0], N);
}

// logb: the unbiased exponent, exact.
void r_Logb(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  mpfr_srcptr x = in[0];
  if (mpfr_nan_p(x)) return mpfr_set_nan(o);
  if (mpfr_inf_p(x)) return mpfr_set_inf(o, 1);
  if (mpfr_zero_p(x)) return mpfr_set_inf(o, -1);
  mpfr_set_si(o, mpfr_get_exp(x) - 1, N);
}

// x^(2/3) = cbrt(x^2) with the square exact; x^(3/2) for x >= 0.
void r_Pow2o3(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  Tmp t(2);
  square_exact(t, in[0]);
  mpfr_rootn_ui(o, t, 3, N);
}
void r_Pow3o2(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  Tmp e(8);
  mpfr_set_d(e, 1.5, N);
  if (mpfr_sgn(in[0]) < 0) return mpfr_set_nan(o);
  mpfr_pow(o, in[0], e, N);
}
void r_InvCbrt(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  Tmp t(wp(o));
  mpfr_cbrt(t, in[0], N);
  mpfr_ui_div(o, 1, t, N);
}

// Phi(x) = erfc(-x/sqrt2)/2.
void r_CdfNorm(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  Tmp t(wp(o)), s(wp(o));
  mpfr_sqrt_ui(s, 2, N);
  mpfr_div(t, in[0], s, N);
  mpfr_neg(t, t, N);
  mpfr_erfc(o, t, N);
  mpfr_div_2ui(o, o, 1, N);
}

// erfcx(x) = exp(x^2) erfc(x); the asymptotic series beyond 2^26 (its first
// neglected term is below 2^-150 relative there).
void r_Erfcx(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  mpfr_srcptr x = in[0];
  if (mpfr_nan_p(x)) return mpfr_set_nan(o);
  if (mpfr_inf_p(x)) return mpfr_sgn(x) > 0 ? mpfr_set_zero(o, 1) : mpfr_set_inf(o, 1);
  const mpfr_prec_t p = wp(o);
  if (mpfr_cmp_d(x, 0x1p26) > 0) {
    Tmp z(p), term(p), sum(p), sp(p);
    mpfr_sqr(z, x, N);
    mpfr_mul_2ui(z, z, 1, N);  // 2x^2
    mpfr_set_ui(term, 1, N);
    mpfr_set_ui(sum, 1, N);
    for (int k = 1; k < 8; ++k) {
      mpfr_mul_si(term, term, -(2 * k - 1), N);
      mpfr_div(term, term, z, N);
      mpfr_add(sum, sum, term, N);
    }
    mpfr_const_pi(sp, N);
    mpfr_sqrt(sp, sp, N);
    mpfr_mul(sp, sp, x, N);
    mpfr_div(o, sum, sp, N);
    return;
  }
  Tmp sq(2), e(p), c(p);
  square_exact(sq, x);
  mpfr_exp(e, sq, N);
  mpfr_erfc(c, x, N);
  mpfr_mul(o, e, c, N);
}

// Newton on erf or erfc.  The start comes from the extended-precision
// estimate; convergence is quadratic and every step is checked against the
// forward function at the working precision, so the start only affects speed.
// centre: solve erf(x) = t (|t| <= 1/2); otherwise erfc(x) = y (0 < y <= 1/2).
void newton_erf(mpfr_ptr o, mpfr_srcptr target, bool centre) {
  const mpfr_prec_t p = mpfr_get_prec(o) + 16;
  Tmp x(p), f(p), d(p), c(p), dx(p);
  const long double tl = mpfr_get_ld(target, N);
  const long double start = centre ? (tl < 0 ? -qor::vm::elem::detail::erfinv_centre(-tl)
                                             : qor::vm::elem::detail::erfinv_centre(tl))
                                   : qor::vm::elem::detail::erfcinv_tail(tl);
  mpfr_set_ld(x, start, N);
  if (centre && start == 0) mpfr_set(x, target, N);  // underflowed start: erfinv(t) ~ t
  mpfr_const_pi(c, N);
  mpfr_sqrt(c, c, N);
  mpfr_ui_div(c, 2, c, N);  // 2/sqrt(pi)
  for (int i = 0; i < 60; ++i) {
    if (centre) {
      mpfr_erf(f, x, N);
      mpfr_sub(f, f, target, N);  // erf(x) - t
    } else {
      mpfr_erfc(f, x, N);
      mpfr_sub(f, target, f, N);  // -(erfc(x) - y)
    }
    mpfr_sqr(d, x, N);
    mpfr_neg(d, d, N);
    mpfr_exp(d, d, N);
    mpfr_mul(d, d, c, N);  // |derivative|
    mpfr_div(dx, f, d, N);
    mpfr_sub(x, x, dx, N);
    if (mpfr_zero_p(dx) || mpfr_get_exp(dx) < mpfr_get_exp(x) - static_cast<long>(p) + 2) break;
  }
  mpfr_set(o, x, N);
}

// erfcinv(y) for 0 < y < 2.
void erfcinv_mp(mpfr_ptr o, mpfr_srcptr y) {
  Tmp t(mpfr_get_prec(y) + 2);
  if (mpfr_cmp_ui(y, 1) > 0) {
    mpfr_ui_sub(t, 2, y, N);  // exact
    erfcinv_mp(o, t);
    mpfr_neg(o, o, N);
    return;
  }
  if (mpfr_cmp_d(y, 0.5) >= 0) {
    mpfr_ui_sub(t, 1, y, N);  // exact
    newton_erf(o, t, true);
  } else {
    newton_erf(o, y, false);
  }
}

void r_ErfcInv(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  mpfr_srcptr y = in[0];
  if (mpfr_nan_p(y) || mpfr_sgn(y) < 0 || mpfr_cmp_ui(y, 2) > 0) return mpfr_set_nan(o);
  if (mpfr_zero_p(y)) return mpfr_set_inf(o, 1);
  if (mpfr_cmp_ui(y, 2) == 0) return mpfr_set_inf(o, -1);
  erfcinv_mp(o, y);
}

void r_ErfInv(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  mpfr_srcptr y = in[0];
  if (mpfr_nan_p(y) || mpfr_cmpabs_ui(y, 1) > 0) return mpfr_set_nan(o);
  if (mpfr_cmpabs_ui(y, 1) == 0) return mpfr_set_inf(o, mpfr_sgn(y));
  if (mpfr_zero_p(y)) {
    mpfr_set(o, y, N);
    return;
  }
  if (mpfr_cmpabs(y, Half()) <= 0) return newton_erf(o, y, true);
  Tmp t(mpfr_get_prec(y) + 2);
  mpfr_abs(t, y, N);
  mpfr_ui_sub(t, 1, t, N);  // exact for |y| > 1/2
  newton_erf(o, t, false);
  if (mpfr_sgn(y) < 0) mpfr_neg(o, o, N);
}

void r_CdfNormInv(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  mpfr_srcptr p = in[0];
  if (mpfr_nan_p(p) || mpfr_sgn(p) < 0 || mpfr_cmp_ui(p, 1) > 0) return mpfr_set_nan(o);
  if (mpfr_zero_p(p)) return mpfr_set_inf(o, -1);
  if (mpfr_cmp_ui(p, 1) == 0) return mpfr_set_inf(o, 1);
  Tmp t(mpfr_get_prec(p) + 2), r(mpfr_get_prec(o) + 16), s(mpfr_get_prec(o) + 16);
  mpfr_mul_2ui(t, p, 1, N);
  erfcinv_mp(r, t);
  mpfr_sqrt_ui(s, 2, N);
  mpfr_mul(o, r, s, N);
  mpfr_neg(o, o, N);
  if (mpfr_zero_p(o)) mpfr_set_zero(o, 1);  // Phi^-1(1/2) = +0
}

// E1(x) = -Ei(-x); MPFR's eint returns -E1(-x) for negative arguments.
void r_ExpInt1(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) {
  mpfr_srcptr x = in[0];
  if (mpfr_nan_p(x) || mpfr_sgn(x) < 0) return mpfr_set_nan(o);
  if (mpfr_zero_p(x)) return mpfr_set_inf(o, 1);
  if (mpfr_inf_p(x)) return mpfr_set_zero(o, 1);
  Tmp t(mpfr_get_prec(x));
  mpfr_neg(t, x, N);
  mpfr_eint(o, t, N);
  mpfr_neg(o, o, N);
}

// I0, I1: ascending series, all terms positive.  Beyond 800 both exceed the
// double range by far.
void bessel_i_mp(mpfr_ptr o, mpfr_srcptr xin, int nu) {
  if (mpfr_nan_p(xin)) return mpfr_set_nan(o);
  if (nu == 1 && mpfr_zero_p(xin)) {
    mpfr_set(o, xin, N);  // odd: keeps the sign of zero
    return;
  }
  const int sign = (nu == 1 && mpfr_sgn(xin) < 0) ? -1 : 1;
  if (mpfr_inf_p(xin) || mpfr_cmpabs_ui(xin, 800) > 0) return mpfr_set_inf(o, sign);
  const mpfr_prec_t p = wp(o) + 32;
  Tmp x(p), q(p), t(p), sum(p);
  mpfr_abs(x, xin, N);
  mpfr_sqr(q, x, N);
  mpfr_div_2ui(q, q, 2, N);
  if (nu == 0) mpfr_set_ui(t, 1, N);
  else mpfr_div_2ui(t, x, 1, N);
  mpfr_set(sum, t, N);
  if (!mpfr_zero_p(t)) {
    for (long k = 1; k < 100000; ++k) {
      mpfr_mul(t, t, q, N);
      mpfr_div_ui(t, t, static_cast<unsigned long>(k * (k + nu)), N);
      mpfr_add(sum, sum, t, N);
      if (mpfr_zero_p(t) || mpfr_get_exp(t) < mpfr_get_exp(sum) - static_cast<long>(p)) break;
    }
  }
  mpfr_set(o, sum, N);
  if (sign < 0) mpfr_neg(o, o, N);
}
void r_I0(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) { bessel_i_mp(o, in[0], 0); }
void r_I1(mpfr_ptr o, mpfr_ptr, mpfr_srcptr const *in, long) { bessel_i_mp(o, in[0], 1); }

// ---- complex -----------------------------------------------------------------
// Inputs are finite (the harness tests non-finite complex inputs by table).

struct C {
  mpfr_t re, im;
  explicit C(mpfr_prec_t p) {
    mpfr_init2(re, p);
    mpfr_init2(im, p);
  }
  ~C() {
    mpfr_clear(re);
    mpfr_clear(im);
  }
  C(const C &) = delete;
  C &operator=(const C &) = delete;
};

// log of x + iy at precision of r.
void c_log(C &r, mpfr_srcptr x, mpfr_srcptr y) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp h(p);
  mpfr_hypot(h, x, y, N);
  if (mpfr_cmp_d(h, 0.7) > 0 && mpfr_cmp_d(h, 1.4) < 0) {
    // log|z| = log1p(x^2 + y^2 - 1) / 2, the sum rounded once.
    Tmp x2(2), y2(2), one(2), s(p);
    square_exact(x2, x);
    square_exact(y2, y);
    mpfr_set_si(one, -1, N);
    mpfr_ptr terms[3] = {x2, y2, one};
    mpfr_sum(s, terms, 3, N);
    mpfr_log1p(s, s, N);
    mpfr_div_2ui(r.re, s, 1, N);
  } else {
    mpfr_log(r.re, h, N);
  }
  mpfr_atan2(r.im, y, x, N);
}

void c_exp(C &r, mpfr_srcptr x, mpfr_srcptr y) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp e(p), s(p), c(p);
  mpfr_exp(e, x, N);
  mpfr_sin_cos(s, c, y, N);
  mpfr_mul(r.re, e, c, N);
  mpfr_mul(r.im, e, s, N);
}

void c_sqrt(C &r, mpfr_srcptr x, mpfr_srcptr y) {
  if (mpfr_zero_p(x) && mpfr_zero_p(y)) {
    mpfr_set_zero(r.re, 1);
    mpfr_set(r.im, y, N);
    return;
  }
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp h(p), t(p);
  mpfr_hypot(h, x, y, N);
  mpfr_abs(t, x, N);
  mpfr_add(t, t, h, N);
  mpfr_div_2ui(t, t, 1, N);
  mpfr_sqrt(t, t, N);  // t = sqrt((|x| + |z|)/2)
  Tmp q(p);
  mpfr_div(q, y, t, N);
  mpfr_div_2ui(q, q, 1, N);  // y / 2t
  if (mpfr_sgn(x) >= 0) {
    mpfr_set(r.re, t, N);
    mpfr_set(r.im, q, N);
  } else {
    mpfr_abs(r.re, q, N);
    mpfr_setsign(r.im, t, mpfr_signbit(y), N);
  }
}

// sin, cos, sinh, cosh of x + iy from real parts (no cancellation).
void c_trig(C &r, mpfr_srcptr x, mpfr_srcptr y, int which) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp s(p), c(p), sh(p), ch(p);
  switch (which) {
    case 0:  // sin: sin x cosh y + i cos x sinh y
    case 1:  // cos: cos x cosh y - i sin x sinh y
      mpfr_sin_cos(s, c, x, N);
      mpfr_sinh_cosh(sh, ch, y, N);
      break;
    default:  // sinh, cosh: roles swapped
      mpfr_sin_cos(s, c, y, N);
      mpfr_sinh_cosh(sh, ch, x, N);
  }
  switch (which) {
    case 0:
      mpfr_mul(r.re, s, ch, N);
      mpfr_mul(r.im, c, sh, N);
      break;
    case 1:
      mpfr_mul(r.re, c, ch, N);
      mpfr_mul(r.im, s, sh, N);
      mpfr_neg(r.im, r.im, N);
      break;
    case 2:  // sinh: sinh x cos y + i cosh x sin y
      mpfr_mul(r.re, sh, c, N);
      mpfr_mul(r.im, ch, s, N);
      break;
    default:  // cosh: cosh x cos y + i sinh x sin y
      mpfr_mul(r.re, ch, c, N);
      mpfr_mul(r.im, sh, s, N);
  }
}

// tan(x + iy) = (sin x cos x + i sinh y cosh y) / (cos^2 x + sinh^2 y).
// For tanh the roles of the parts swap.
void c_tan(C &r, mpfr_srcptr x, mpfr_srcptr y, bool hyperbolic) {
  mpfr_srcptr circ = hyperbolic ? y : x;  // argument of sin/cos
  mpfr_srcptr hyp = hyperbolic ? x : y;   // argument of sinh/cosh
  mpfr_ptr circ_out = hyperbolic ? r.im : r.re;
  mpfr_ptr hyp_out = hyperbolic ? r.re : r.im;
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp s(p), c(p), sh(p), ch(p), den(p), t(p);
  mpfr_sin_cos(s, c, circ, N);
  if (mpfr_cmpabs_ui(hyp, 20000) > 0) {
    // cosh^2 and sinh^2 overflow MPFR; the result is (4 s c e^-2|h|, +-1).
    mpfr_abs(t, hyp, N);
    mpfr_mul_si(t, t, -2, N);
    mpfr_exp(t, t, N);
    mpfr_mul(den, s, c, N);
    mpfr_mul(circ_out, den, t, N);
    mpfr_mul_2ui(circ_out, circ_out, 2, N);
    mpfr_set_si(hyp_out, mpfr_sgn(hyp) < 0 ? -1 : 1, N);
    return;
  }
  mpfr_sinh_cosh(sh, ch, hyp, N);
  mpfr_sqr(den, c, N);
  mpfr_sqr(t, sh, N);
  mpfr_add(den, den, t, N);
  mpfr_mul(t, s, c, N);
  mpfr_div(circ_out, t, den, N);
  mpfr_mul(t, sh, ch, N);
  mpfr_div(hyp_out, t, den, N);
}

// asinh(z) = log(z + sqrt(z^2 + 1)) evaluated for Re z >= 0 (odd symmetry).
void c_asinh(C &r, mpfr_srcptr x0, mpfr_srcptr y0) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  const bool neg = mpfr_signbit(x0);
  Tmp x(mpfr_get_prec(x0)), y(mpfr_get_prec(y0));
  mpfr_abs(x, x0, N);
  mpfr_set(y, y0, N);
  if (neg) mpfr_neg(y, y, N);
  {
    // Tiny |z|: asinh z = z - z^3/6 + O(z^5); the logarithm form would lose z.
    Tmp h(p);
    mpfr_hypot(h, x, y, N);
    if (!mpfr_zero_p(h) && mpfr_get_exp(h) < -static_cast<long>(p) / 2) {
      C z2(p), z3(p);
      mpfr_fmms(z2.re, x, x, y, y, N);
      mpfr_mul(z2.im, x, y, N);
      mpfr_mul_2ui(z2.im, z2.im, 1, N);
      mpfr_fmms(z3.re, z2.re, x, z2.im, y, N);
      mpfr_fmma(z3.im, z2.re, y, z2.im, x, N);
      mpfr_div_ui(z3.re, z3.re, 6, N);
      mpfr_div_ui(z3.im, z3.im, 6, N);
      mpfr_sub(r.re, x, z3.re, N);
      mpfr_sub(r.im, y, z3.im, N);
      if (neg) {
        mpfr_neg(r.re, r.re, N);
        mpfr_neg(r.im, r.im, N);
      }
      return;
    }
  }
  // w = z^2 + 1 = (x^2 - y^2 + 1) + i 2xy, real part rounded once.
  Tmp x2(2), y2(2), one(2), wr(p), wi(p);
  square_exact(x2, x);
  square_exact(y2, y);
  mpfr_neg(y2, y2, N);
  mpfr_set_ui(one, 1, N);
  mpfr_ptr terms[3] = {x2, y2, one};
  mpfr_sum(wr, terms, 3, N);
  mpfr_mul(wi, x, y, N);
  mpfr_mul_2ui(wi, wi, 1, N);
  C s(p);
  c_sqrt(s, wr, wi);
  mpfr_add(s.re, s.re, x, N);
  mpfr_add(s.im, s.im, y, N);
  c_log(r, s.re, s.im);
  if (neg) {
    mpfr_neg(r.re, r.re, N);
    mpfr_neg(r.im, r.im, N);
  }
}

// atanh(z): re = log1p(4x / ((1-x)^2 + y^2)) / 4,
//           im = atan2(2y, (1-x)(1+x) - y^2) / 2.
void c_atanh(C &r, mpfr_srcptr x, mpfr_srcptr y) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp omx(mpfr_get_prec(x) + 2200), d(p), y2(2), t(p);
  mpfr_ui_sub(omx, 1, x, N);  // exact at this precision
  square_exact(y2, y);
  Tmp om2(2);
  square_exact(om2, omx);
  mpfr_add(d, om2, y2, N);
  mpfr_mul_2ui(t, x, 2, N);
  mpfr_div(t, t, d, N);
  mpfr_log1p(t, t, N);
  mpfr_div_2ui(r.re, t, 2, N);
  Tmp x2(2), one(2), den(p), num(p);
  square_exact(x2, x);
  mpfr_neg(x2, x2, N);
  mpfr_neg(y2, y2, N);
  mpfr_set_ui(one, 1, N);
  mpfr_ptr terms[3] = {one, x2, y2};
  mpfr_sum(den, terms, 3, N);
  mpfr_mul_2ui(num, y, 1, N);
  mpfr_atan2(t, num, den, N);
  mpfr_div_2ui(r.im, t, 1, N);
}

// acosh(z) = 2 log(sqrt((z+1)/2) + sqrt((z-1)/2)).
void c_acosh(C &r, mpfr_srcptr x, mpfr_srcptr y) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp a(mpfr_get_prec(x) + 2200), hy(p);
  C s1(p), s2(p), w(p);
  mpfr_div_2ui(hy, y, 1, N);
  mpfr_add_ui(a, x, 1, N);
  mpfr_div_2ui(a, a, 1, N);
  c_sqrt(s1, a, hy);
  mpfr_sub_ui(a, x, 1, N);
  mpfr_div_2ui(a, a, 1, N);
  c_sqrt(s2, a, hy);
  mpfr_add(w.re, s1.re, s2.re, N);
  mpfr_add(w.im, s1.im, s2.im, N);
  c_log(r, w.re, w.im);
  mpfr_mul_2ui(r.re, r.re, 1, N);
  mpfr_mul_2ui(r.im, r.im, 1, N);
}

using CFn = void (*)(C &r, mpfr_srcptr const *in);

void cf_Exp(C &r, mpfr_srcptr const *in) { c_exp(r, in[0], in[1]); }
void cf_Ln(C &r, mpfr_srcptr const *in) { c_log(r, in[0], in[1]); }
void cf_Log10(C &r, mpfr_srcptr const *in) {
  c_log(r, in[0], in[1]);
  Tmp l(mpfr_get_prec(r.re) + 16);
  mpfr_set_ui(l, 10, N);
  mpfr_log(l, l, N);
  mpfr_div(r.re, r.re, l, N);
  mpfr_div(r.im, r.im, l, N);
}
void cf_Sqrt(C &r, mpfr_srcptr const *in) { c_sqrt(r, in[0], in[1]); }
void cf_Sin(C &r, mpfr_srcptr const *in) { c_trig(r, in[0], in[1], 0); }
void cf_Cos(C &r, mpfr_srcptr const *in) { c_trig(r, in[0], in[1], 1); }
void cf_Sinh(C &r, mpfr_srcptr const *in) { c_trig(r, in[0], in[1], 2); }
void cf_Cosh(C &r, mpfr_srcptr const *in) { c_trig(r, in[0], in[1], 3); }
void cf_Tan(C &r, mpfr_srcptr const *in) { c_tan(r, in[0], in[1], false); }
void cf_Tanh(C &r, mpfr_srcptr const *in) { c_tan(r, in[0], in[1], true); }
void cf_Asinh(C &r, mpfr_srcptr const *in) { c_asinh(r, in[0], in[1]); }
void cf_Atanh(C &r, mpfr_srcptr const *in) { c_atanh(r, in[0], in[1]); }
void cf_Acosh(C &r, mpfr_srcptr const *in) { c_acosh(r, in[0], in[1]); }

// asin z = -i asinh(iz), atan z = -i atanh(iz): with iz = (-y, x) and
// f(iz) = (u, v), the result is (v, -u).
void via_i(C &r, mpfr_srcptr const *in, void (*f)(C &, mpfr_srcptr, mpfr_srcptr)) {
  Tmp ny(mpfr_get_prec(in[1]));
  mpfr_neg(ny, in[1], N);
  C t(mpfr_get_prec(r.re));
  f(t, ny, in[0]);
  mpfr_set(r.re, t.im, N);
  mpfr_neg(r.im, t.re, N);
}
void cf_Asin(C &r, mpfr_srcptr const *in) { via_i(r, in, c_asinh); }
void cf_Atan(C &r, mpfr_srcptr const *in) { via_i(r, in, c_atanh); }
// acos z = pi/2 - asin z.
void cf_Acos(C &r, mpfr_srcptr const *in) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 64;
  C a(p);
  via_i(a, in, c_asinh);
  Tmp h(p);
  mpfr_const_pi(h, N);
  mpfr_div_2ui(h, h, 1, N);
  mpfr_sub(r.re, h, a.re, N);
  mpfr_neg(r.im, a.im, N);
}
void cf_Conj(C &r, mpfr_srcptr const *in) {
  mpfr_set(r.re, in[0], N);
  mpfr_neg(r.im, in[1], N);
}
void cf_Add(C &r, mpfr_srcptr const *in) {
  mpfr_add(r.re, in[0], in[2], N);
  mpfr_add(r.im, in[1], in[3], N);
}
void cf_Sub(C &r, mpfr_srcptr const *in) {
  mpfr_sub(r.re, in[0], in[2], N);
  mpfr_sub(r.im, in[1], in[3], N);
}
void cf_Mul(C &r, mpfr_srcptr const *in) {
  mpfr_fmms(r.re, in[0], in[2], in[1], in[3], N);
  mpfr_fmma(r.im, in[0], in[3], in[1], in[2], N);
}
void cf_MulByConj(C &r, mpfr_srcptr const *in) {
  mpfr_fmma(r.re, in[0], in[2], in[1], in[3], N);
  mpfr_fmms(r.im, in[1], in[2], in[0], in[3], N);
}
void cf_Div(C &r, mpfr_srcptr const *in) {
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 16;
  Tmp den(p), nr(p), ni(p);
  mpfr_fmma(den, in[2], in[2], in[3], in[3], N);
  mpfr_fmma(nr, in[0], in[2], in[1], in[3], N);
  mpfr_fmms(ni, in[1], in[2], in[0], in[3], N);
  mpfr_div(r.re, nr, den, N);
  mpfr_div(r.im, ni, den, N);
}
// a^b = exp(b log a); 0^b = 0 for Re b > 0.
void cf_Pow(C &r, mpfr_srcptr const *in) {
  if (mpfr_zero_p(in[0]) && mpfr_zero_p(in[1])) {
    if (mpfr_sgn(in[2]) > 0) {
      mpfr_set_zero(r.re, 1);
      mpfr_set_zero(r.im, 1);
    } else {
      mpfr_set_nan(r.re);
      mpfr_set_nan(r.im);
    }
    return;
  }
  const mpfr_prec_t p = mpfr_get_prec(r.re) + 64;
  C l(p);
  c_log(l, in[0], in[1]);
  Tmp wr(p), wi(p);
  mpfr_fmms(wr, in[2], l.re, in[3], l.im, N);
  mpfr_fmma(wi, in[2], l.im, in[3], l.re, N);
  c_exp(r, wr, wi);
}
void cf_Abs(C &r, mpfr_srcptr const *in) { mpfr_hypot(r.re, in[0], in[1], N); }
void cf_Arg(C &r, mpfr_srcptr const *in) { mpfr_atan2(r.re, in[1], in[0], N); }
void cf_CIS(C &r, mpfr_srcptr const *in) { mpfr_sin_cos(r.im, r.re, in[0], N); }

// Adapter from the C-record form to RefFn.
template <CFn F>
void cref(mpfr_ptr o0, mpfr_ptr o1, mpfr_srcptr const *in, long) {
  C r(mpfr_get_prec(o0));
  F(r, in);
  mpfr_set(o0, r.re, N);
  mpfr_set(o1, r.im, N);
}

struct Entry {
  RefFn fn;
  bool exact;
};

const std::unordered_map<std::string, Entry> &real_table() {
  static const std::unordered_map<std::string, Entry> t = {
#define E(Name) {#Name, {r_##Name, true}}
#define A(Name) {#Name, {r_##Name, false}}
      E(Exp), E(Exp2), E(Exp10), E(Expm1), E(Ln), E(Log2), E(Log10), E(Log1p), E(Logb),
      E(Sin), E(Cos), E(Tan), E(Sinpi), E(Cospi), E(Tanpi), E(Sind), E(Cosd), E(Tand),
      E(Asin), E(Acos), E(Atan), E(Asinpi), E(Acospi), E(Atanpi), E(Atan2), E(Atan2pi),
      E(Sinh), E(Cosh), E(Tanh), E(Asinh), E(Acosh), E(Atanh), E(Erf), E(Erfc),
      E(TGamma), E(LGamma), E(J0), E(J1), E(Y0), E(Y1), E(Jn), E(Yn), E(Hypot), E(Pow),
      E(Powx), E(Powr), E(SinCos), E(SinCospi), E(Pow2o3), E(Pow3o2), E(ExpInt1),
      A(InvCbrt), A(CdfNorm), A(Erfcx), A(ErfInv), A(ErfcInv), A(CdfNormInv), A(I0), A(I1),
#undef E
#undef A
  };
  return t;
}

const std::unordered_map<std::string, Entry> &complex_table() {
  static const std::unordered_map<std::string, Entry> t = {
#define E(Name) {#Name, {cref<cf_##Name>, true}}
#define A(Name) {#Name, {cref<cf_##Name>, false}}
      E(Conj), E(Add), E(Sub), E(Mul), E(MulByConj), E(Abs), E(Arg), E(CIS),
      A(Div), A(Exp), A(Ln), A(Log10), A(Sqrt), A(Sin), A(Cos), A(Sinh), A(Cosh),
      A(Tan), A(Tanh), A(Asin), A(Acos), A(Atan), A(Asinh), A(Acosh), A(Atanh), A(Pow),
      {"Powx", {cref<cf_Pow>, false}},
#undef E
#undef A
  };
  return t;
}

}  // namespace

RefFn find_reference(const char *name, bool complex) {
  const auto &t = complex ? complex_table() : real_table();
  auto it = t.find(name);
  return it == t.end() ? nullptr : it->second.fn;
}

bool reference_is_exact(const char *name, bool complex) {
  const auto &t = complex ? complex_table() : real_table();
  auto it = t.find(name);
  return it != t.end() && it->second.exact;
}

void init_reference() {
  mpfr_set_emax(mpfr_get_emax_max());
  mpfr_set_emin(mpfr_get_emin_min());
}

}  // namespace qor::accuracy
