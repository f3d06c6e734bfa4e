// Pow and Powx: x^y through exp(y ln x).
//
// Fast path (all lanes, branch-free): x positive, finite and normal, y finite
// with |y| < 2^64, and y ln x inside the range where the result is a normal
// number.  Every other lane (x <= 0, subnormal x, infinities, NaNs, results
// that overflow or underflow) gets a NaN from the vector code, is flagged by
// `special` and recomputed by the per-element routine, which carries the
// C99 special cases and the error codes (pole 2 for 0^negative, domain 1 for
// negative^non-integer, overflow 3, underflow 4).  |y| >= 2^64 is never an
// ordinary case: with x != 1 normal, |y ln x| > 2^11 over- or underflows.
//
// Double, LA and HA: ln x as a double-double (lx::log_dd, ~2^-68 relative),
// y ln x as an exact product plus y lo, exp of that double-double with a
// degree-5 polynomial: the error before the final rounding is far below
// 2^-60, so results are within 0.5 ulp + a tiny fraction.  EP: ln x in double
// and a degree-3 exponential polynomial (relative error ~2^-38 |y ln x|,
// well inside 26 correct bits).
//
// Float (every slot): the lanes are widened to double and computed with the
// double-precision logarithm and the degree-3 exponential, then rounded once
// to float: the error before that rounding is below 2^-35, so results are
// within 0.5 ulp + 2^-11 ulp.
//
// Powx passes the scalar exponent as a broadcast register through the same
// code.
#pragma once

#include <cmath>
#include <limits>

#include "vm/kernels/core/driver.h"
#include "vm/kernels/elem/elem.h"
#include "vm/kernels/pow/logexp.h"

namespace qor::vm::vec {

struct Pow {
  template <class T, int S>
  static typename simd::V<T>::reg vec(typename simd::V<T>::reg x, typename simd::V<T>::reg y) {
    using lx::c;
    if constexpr (std::is_same_v<T, double>) {
      __m128d e;
      __m128d ok;
      if constexpr (S == 2) {
        __m128d l = lx::log_d(x);
        __m128d p = _mm_mul_pd(y, l);
        ok = _mm_and_pd(_mm_cmpgt_pd(p, c(-708.0)), _mm_cmplt_pd(p, c(709.0)));
        e = lx::exp_dd<3>(p, _mm_setzero_pd());
      } else {
        lx::DD l = lx::log_dd(x);
        __m128d pl;
        __m128d ph = lx::two_prod(y, l.hi, pl);
        pl = _mm_add_pd(pl, _mm_mul_pd(y, l.lo));
        ok = _mm_and_pd(_mm_cmpgt_pd(ph, c(-708.0)), _mm_cmplt_pd(ph, c(709.0)));
        e = lx::exp_dd<5>(ph, pl);
      }
      ok = _mm_and_pd(ok, _mm_and_pd(_mm_cmpge_pd(x, c(0x1p-1022)),
                                     _mm_cmple_pd(x, c(std::numeric_limits<double>::max()))));
      ok = _mm_and_pd(ok, _mm_cmplt_pd(_mm_andnot_pd(c(-0.0), y), c(0x1p64)));
      return _mm_blendv_pd(c(std::numeric_limits<double>::quiet_NaN()), e, ok);
    } else {
      auto half = [](__m128d xd, __m128d yd) {
        __m128d p = _mm_mul_pd(yd, lx::log_d(xd));
        __m128d ok = _mm_and_pd(_mm_cmpgt_pd(p, c(-87.33)), _mm_cmplt_pd(p, c(88.72)));
        __m128d e = lx::exp_dd<3>(p, _mm_setzero_pd());
        return _mm_cvtpd_ps(_mm_blendv_pd(c(std::numeric_limits<double>::quiet_NaN()), e, ok));
      };
      __m128 lo = half(_mm_cvtps_pd(x), _mm_cvtps_pd(y));
      __m128 hi = half(_mm_cvtps_pd(_mm_movehl_ps(x, x)), _mm_cvtps_pd(_mm_movehl_ps(y, y)));
      __m128 r = _mm_movelh_ps(lo, hi);
      __m128 ok = _mm_and_ps(_mm_cmpge_ps(x, _mm_set1_ps(0x1p-126f)),
                             _mm_cmple_ps(x, _mm_set1_ps(std::numeric_limits<float>::max())));
      ok = _mm_and_ps(ok, _mm_cmple_ps(_mm_andnot_ps(_mm_set1_ps(-0.0f), y),
                                       _mm_set1_ps(std::numeric_limits<float>::max())));
      return _mm_blendv_ps(_mm_set1_ps(std::numeric_limits<float>::quiet_NaN()), r, ok);
    }
  }
  // The vector code leaves NaN in exactly the lanes it does not handle (and
  // in lanes with a NaN operand, which the per-element routine also takes).
  template <class T, int S>
  static int special(typename simd::V<T>::reg, typename simd::V<T>::reg,
                     typename simd::V<T>::reg r) {
    return simd::V<T>::movemask(simd::V<T>::unord(r, r));
  }
  template <class T, int S>
  static T fix(T x, T y, int &code) {
    return elem::Pow::eval<T, S>(x, y, code);
  }
};

// One op serves the vector-scalar shape: the driver broadcasts the scalar.
struct Powx : Pow {};

}  // namespace qor::vm::vec
