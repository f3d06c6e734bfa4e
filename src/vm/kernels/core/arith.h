// Arithmetic, root, rounding and comparison-like operations for the shared
// driver.  Each operation is written once for float and double over the
// simd::V traits; S is the accuracy slot (0 LA, 1 HA, 2 EP) where the slots
// differ.
#pragma once

#include <cmath>
#include <limits>

#include "vm/kernels/core/driver.h"

namespace qor::vm::ops {

using frame::Kind;
using simd::V;
template <class T>
using R = typename V<T>::reg;

// Lanes whose value is +0 or -0.
template <class T>
inline R<T> is_zero(R<T> x) {
  return V<T>::eq(x, V<T>::zero());
}
// Lanes that are infinite or NaN.
template <class T>
inline R<T> is_nonfinite(R<T> x) {
  using W = V<T>;
  auto e = W::as_int(W::and_(x, W::as_fp(W::iset1(W::exp_mask))));
  return W::as_fp(W::ieq(e, W::iset1(W::exp_mask)));
}
template <class T>
inline bool nonfinite(T x) {
  return (simd::bits_of(x) & V<T>::exp_mask) == V<T>::exp_mask;
}

// ---- plain arithmetic: one packed instruction, scalar tail ------------------

struct Add {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) { return V<T>::add(a, b); }
  template <class T, int S> static T scalar(T a, T b) { return a + b; }
};
struct Sub {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) { return V<T>::sub(a, b); }
  template <class T, int S> static T scalar(T a, T b) { return a - b; }
};
struct Mul {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) { return V<T>::mul(a, b); }
  template <class T, int S> static T scalar(T a, T b) { return a * b; }
};
struct Sqr {
  template <class T, int S> static R<T> vec(R<T> a) { return V<T>::mul(a, a); }
  template <class T, int S> static T scalar(T a) { return a * a; }
};
// Sign bit cleared; touches no floating-point state.
struct Abs {
  template <class T, int S> static constexpr Kind frame() { return Kind::None; }
  template <class T, int S> static R<T> vec(R<T> a) { return V<T>::and_(a, V<T>::absmask()); }
};

// ---- division and reciprocal ----------------------------------------------

// a / b with code 2 for a zero divisor under a finite dividend (0/0 too);
// infinite or NaN dividends divide silently.
template <class T>
inline T div_fix(T a, T b, int &code) {
  T q = a / b;
  if (!nonfinite(a) && b == T(0)) code = 2;
  return q;
}

struct DivHA;
struct Div {
  // the high-accuracy single-precision kernel is the element-wise one below
  template <class T, int S>
  using pick = std::conditional_t<std::is_same_v<T, float> && S == 1, DivHA, Div>;
  // The packed divide is correctly rounded and, on the processors of this
  // class, at least as fast as a refined reciprocal approximation (measured
  // with bench_vm), so the LA and EP kernels use it as well.
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) { return V<T>::div(a, b); }
  template <class T, int S> static int special(R<T> a, R<T> b, R<T>) {
    return V<T>::movemask(V<T>::andnot(is_nonfinite<T>(a), is_zero<T>(b)));
  }
  template <class T, int S> static T fix(T a, T b, int &code) { return div_fix(a, b, code); }
};

// The high-accuracy single-precision divide: element by element under the
// fixed frame, never reading the mode.
struct DivHA {
  template <class T, int S> static constexpr Kind frame() { return Kind::Fixed; }
  template <class T, int S> static T elem(T a, T b, int &code) {
    if (nonfinite(a)) return a / b;
    if (nonfinite(b)) return a / b;
    T q = a / b;
    if ((simd::bits_of(b) & ~V<T>::sign_bit) == 0) code = 2;
    return q;
  }
};

struct Inv {
  // Exact reciprocal in every slot, for the reason given at Div.
  template <class T, int S> static R<T> vec(R<T> a) { return V<T>::div(V<T>::set1(T(1)), a); }
  template <class T, int S> static int special(R<T> a, R<T>) {
    return V<T>::movemask(is_zero<T>(a));
  }
  template <class T, int S> static T fix(T a, int &code) {
    code = 2;
    return T(1) / a;
  }
};

// ---- roots ----------------------------------------------------------------

struct Sqrt {
  // The packed square root is correctly rounded and faster here than an
  // approximate reciprocal root with Newton refinement (bench_vm), so every
  // slot uses it.
  template <class T, int S> static R<T> vec(R<T> a) { return V<T>::sqrt(a); }
  template <class T, int S> static int special(R<T> a, R<T>) {
    return V<T>::movemask(V<T>::lt(a, V<T>::zero()));
  }
  template <class T, int S> static T fix(T a, int &code) {
    code = 1;
    return std::sqrt(a);
  }
};

// 1/sqrt(a): code 1 for a negative argument, 2 for a zero one (pole).
struct InvSqrt {
  template <class T, int S> static R<T> vec(R<T> a) {
    using W = V<T>;
    if constexpr (std::is_same_v<T, float>) {
      if constexpr (S == 2) {
        auto ok = W::and_(W::ge(a, W::set1(0x1p-124f)), W::le(a, W::set1(0x1p126f)));
        auto y = W::rsqrt(a);
        auto hx = W::mul(W::set1(0.5f), a);
        y = W::mul(y, W::sub(W::set1(1.5f), W::mul(hx, W::mul(y, y))));
        if (W::movemask(ok) == 0xF) return y;
        return W::blend(W::div(W::set1(1.0f), W::sqrt(a)), y, ok);
      } else {
        // In double: one rounding to float at the end, well inside 1 ulp.
        __m128d lo = _mm_cvtps_pd(a);
        __m128d hi = _mm_cvtps_pd(_mm_movehl_ps(a, a));
        lo = _mm_div_pd(_mm_set1_pd(1.0), _mm_sqrt_pd(lo));
        hi = _mm_div_pd(_mm_set1_pd(1.0), _mm_sqrt_pd(hi));
        return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
      }
    } else {
      return W::div(W::set1(T(1)), W::sqrt(a));
    }
  }
  template <class T, int S> static int special(R<T> a, R<T>) {
    return V<T>::movemask(V<T>::le(a, V<T>::zero()));
  }
  template <class T, int S> static T fix(T a, int &code) {
    code = a == T(0) ? 2 : 1;
    return T(1) / std::sqrt(a);
  }
};

// Cube root.  Float: SIMD in double precision, a first guess from the
// exponent divided by three (about 5 correct bits), then three Newton steps
// (each doubles them: 10, 20, 40), one rounding to float.  Double: the C library's
// root corrected by one Newton step in x87 extended precision (the library
// alone is off by up to 2 ulp).
struct Cbrt {
  static __m128d cbrt_pd(__m128d x) {
    const __m128d sign = _mm_set1_pd(-0.0);
    __m128d ax = _mm_andnot_pd(sign, x);
    // exponent / 3: bits/3 + 2/3 * bias in the exponent field
    __m128i bits = _mm_castpd_si128(ax);
    alignas(16) uint64_t b[2];
    _mm_store_si128(reinterpret_cast<__m128i *>(b), bits);
    b[0] = b[0] / 3 + 0x2A9F7893782DA1CEull;
    b[1] = b[1] / 3 + 0x2A9F7893782DA1CEull;
    __m128d y = _mm_castsi128_pd(_mm_load_si128(reinterpret_cast<const __m128i *>(b)));
    const __m128d third = _mm_set1_pd(1.0 / 3.0), two = _mm_set1_pd(2.0);
    for (int k = 0; k < 3; ++k)
      y = _mm_mul_pd(third, _mm_add_pd(_mm_mul_pd(two, y), _mm_div_pd(ax, _mm_mul_pd(y, y))));
    // zero, infinity and NaN pass through unchanged
    __m128d plain = _mm_or_pd(_mm_cmpeq_pd(ax, _mm_setzero_pd()),
                              _mm_or_pd(_mm_cmpunord_pd(ax, ax),
                                        _mm_cmpeq_pd(ax, _mm_set1_pd(INFINITY))));
    y = _mm_blendv_pd(y, ax, plain);
    return _mm_or_pd(y, _mm_and_pd(x, sign));
  }
  template <class T, int S> static R<T> vec(R<T> a) {
    if constexpr (std::is_same_v<T, float>) {
      __m128d lo = cbrt_pd(_mm_cvtps_pd(a));
      __m128d hi = cbrt_pd(_mm_cvtps_pd(_mm_movehl_ps(a, a)));
      return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
    } else {
      alignas(16) double x[2];
      _mm_store_pd(x, a);
      for (double &v : x) {
        double y = std::cbrt(v);
        if (std::isfinite(y) && y != 0) {
          long double r = y;
          r = r - (r * r * r - v) / (3 * r * r);
          y = double(r);
        }
        v = y;
      }
      return _mm_load_pd(x);
    }
  }
};

// ---- rounding -------------------------------------------------------------

template <int Imm>
struct RoundTo {
  template <class T, int S> static R<T> vec(R<T> a) { return V<T>::template round<Imm>(a); }
};
using Floor = RoundTo<1>;
using Ceil = RoundTo<2>;
using Trunc = RoundTo<3>;
using Rint = RoundTo<4>;
using NearbyInt = RoundTo<12>;

// a - trunc(a) carrying the sign of a (so -3.0 gives -0).
struct Frac {
  template <class T, int S> static R<T> vec(R<T> a) {
    using W = V<T>;
    auto f = W::sub(a, W::template round<3>(a));
    return W::or_(f, W::and_(a, W::signmask()));
  }
};

struct Modf {
  template <class T, int S> static void vec2(R<T> a, R<T> &ip, R<T> &fp) {
    using W = V<T>;
    ip = W::template round<3>(a);
    fp = W::or_(W::sub(a, ip), W::and_(a, W::signmask()));
  }
};

// Round half away from zero.
struct Round {
  template <class T, int S> static constexpr Kind frame() {
    return std::is_same_v<T, float> ? Kind::Fixed : Kind::Mode;
  }
  template <class T, int S> static R<T> vec(R<T> a) {
    using W = V<T>;
    auto sign = W::and_(a, W::signmask());
    auto m = W::and_(a, W::absmask());
    if constexpr (std::is_same_v<T, float>) {
      // Without the round instruction and independent of the rounding mode:
      // truncate through the integer conversion (on values clamped below
      // 2^23, where every float is already integral), compare the exact
      // fraction with one half.
      auto big = W::ge(m, W::set1(0x1p23f));  // also false for NaN
      auto c = W::min(m, W::set1(0x1p23f));
      auto t = _mm_cvtepi32_ps(_mm_cvttps_epi32(c));
      auto up = W::and_(W::ge(W::sub(c, t), W::set1(0.5f)), W::set1(1.0f));
      auto r = W::or_(W::add(t, up), sign);
      auto keep = W::or_(big, W::unord(a, a));
      return W::blend(r, a, keep);
    } else {
      auto t = W::template round<0>(m);
      // nearest-even rounded a half down: step up by one
      auto half = W::eq(W::sub(m, t), W::set1(T(0.5)));
      t = W::add(t, W::and_(half, W::set1(T(1))));
      return W::or_(t, sign);
    }
  }
};

// ---- comparison-like ------------------------------------------------------

// fmax/fmin: a NaN operand yields the other one; +0 beats -0 for max and
// -0 beats +0 for min.
struct Fmax {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    auto r = W::max(a, b);                 // b when either is NaN
    r = W::blend(r, a, W::unord(b, b));    // b NaN: a
    return W::blend(r, W::and_(a, b), W::eq(a, b));  // +0 vs -0
  }
};
struct Fmin {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    auto r = W::min(a, b);
    r = W::blend(r, a, W::unord(b, b));
    return W::blend(r, W::or_(a, b), W::eq(a, b));
  }
};
// The operand of larger (smaller) magnitude; equal magnitudes fall back to
// fmax (fmin), NaNs as there.
struct MaxMag {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    auto ma = W::and_(a, W::absmask()), mb = W::and_(b, W::absmask());
    auto r = Fmax::vec<T, S>(a, b);
    r = W::blend(r, a, W::gt(ma, mb));
    return W::blend(r, b, W::gt(mb, ma));
  }
};
struct MinMag {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    auto ma = W::and_(a, W::absmask()), mb = W::and_(b, W::absmask());
    auto r = Fmin::vec<T, S>(a, b);
    r = W::blend(r, a, W::lt(ma, mb));
    return W::blend(r, b, W::lt(mb, ma));
  }
};
struct CopySign {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    return W::or_(W::and_(a, W::absmask()), W::and_(b, W::signmask()));
  }
};
// a - b when a > b, +0 otherwise, NaN when either is NaN.
struct Fdim {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    auto keep = W::or_(W::gt(a, b), W::unord(a, b));
    return W::and_(W::sub(a, b), keep);
  }
};

// nextafter(a, b) on the bit patterns.  Code 3 when a finite a steps to an
// infinity, 4 when the result is subnormal or zero (and differs from a).
struct NextAfter {
  template <class T, int S> static R<T> vec(R<T> a, R<T> b) {
    using W = V<T>;
    auto ia = W::as_int(a);
    auto mag = W::and_(a, W::absmask());
    // step away from zero when |a| should grow: a < b with a >= 0, or a > b with a <= 0
    auto grow = W::or_(W::and_(W::lt(a, b), W::ge(a, W::zero())),
                       W::and_(W::gt(a, b), W::le(a, W::zero())));
    auto one = W::iset1(1);
    auto stepped = W::blend(W::as_fp(W::isub(ia, one)), W::as_fp(W::iadd(ia, one)), grow);
    // from zero: the smallest subnormal with the sign of b
    auto tiny = W::or_(W::as_fp(one), W::and_(b, W::signmask()));
    auto mag_zero = W::as_fp(W::ieq(W::as_int(mag), W::iset1(0)));
    auto r = W::blend(stepped, tiny, mag_zero);
    r = W::blend(r, b, W::eq(a, b));
    return W::blend(r, W::add(a, b), W::unord(a, b));
  }
  template <class T, int S> static int special(R<T> a, R<T> b, R<T> r) {
    using W = V<T>;
    auto rm = W::and_(r, W::absmask());
    auto small = W::lt(rm, W::as_fp(W::iset1(typename W::bits(1) << W::mant_bits)));
    auto moved = W::neq(a, b);
    auto ovf = W::andnot(is_nonfinite<T>(a), is_nonfinite<T>(r));
    return W::movemask(W::or_(W::and_(small, moved), ovf));
  }
  template <class T, int S> static T fix(T a, T b, int &code) {
    T r = std::nextafter(a, b);
    if (nonfinite(r) && !nonfinite(a))
      code = 3;
    else if (a != b && std::fabs(r) < std::numeric_limits<T>::min())
      code = 4;
    return r;
  }
};

// fmod and remainder are exact; one element at a time.  Code 1 for an
// infinite dividend or a zero divisor (when neither operand is NaN).
struct Fmod {
  template <class T, int S> static T elem(T a, T b, int &code) {
    T r = std::fmod(a, b);
    if (!std::isnan(a) && !std::isnan(b) && (std::isinf(a) || b == T(0))) code = 1;
    return r;
  }
};
struct Remainder {
  template <class T, int S> static T elem(T a, T b, int &code) {
    T r = std::remainder(a, b);
    if (!std::isnan(a) && !std::isnan(b) && (std::isinf(a) || b == T(0))) code = 1;
    return r;
  }
};

// (scalea * a + shifta) / (scaleb * b + shiftb); IEEE results, no reports.
struct LinearFrac {
  template <class T, int S> static constexpr Kind frame() {
    return std::is_same_v<T, float> ? Kind::Mode : Kind::Fixed;
  }
};

}  // namespace qor::vm::ops
