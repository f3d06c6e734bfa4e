// SIMD kernels of the complex arithmetic (catalogue impl `cvec`, namespace
// qor::vm::cvec): Mul, MulByConj, Div, Abs, Add, Sub for `c` and `z`.
//
// The complex shapes (shapes.h CB, CR) run these through `cloop`: a block
// of E elements (4 complex floats, 2 complex doubles: 32 bytes) is read from
// memory, computed in registers, and the lanes the operation flags are
// recomputed by the per-element routine of elem/cplx.h, which also gives the
// error code and the C99 Annex G results for infinities and NaNs.  Tails and
// strided vectors go through a local block whose unused lanes repeat the
// first element, so an element's bits never depend on n or its position.
//
// Methods.
//   c (float): widened to double.  A product of two floats is exact in
//     double, so ac - bd and ad + bc carry one rounding in double and one to
//     float (error <= 0.5 ulp + 2^-29).  Division: (ac + bd, bc - ad) times
//     1/(c^2 + d^2), all in double; float operands cannot over- or underflow
//     there.  Abs: sqrt(a^2 + b^2) in double.  One kernel serves every slot.
//   z (double), HA (also the LA slot): the cross products are formed exactly
//     with Veltkamp splitting and Dekker's product (no FMA on this target),
//     each component is the two-sum of its products plus the sum of their
//     errors, so the error is 0.5 ulp plus ~2^-100 of the modulus.  Division:
//     numerators and |b|^2 as such unevaluated pairs, the quotient q0 = N/D
//     corrected by the exactly formed residual (N - q0 D)/D (one
//     reciprocal per block, no division per component).  Abs: the sum of
//     squares as a pair, its root corrected once with the exact square.
//   z EP: the schoolbook formulas in double (Div with one reciprocal); a
//     block where a component's two terms cancel to below 2^-20 of their
//     size (the plain result could then miss 26 correct bits) is redone by
//     the HA method.
// Operand ranges the exact products need (components within 2^+-480 or an
// operand exactly 0, for Div the divisor nonzero) are checked per lane; a lane
// outside them, or whose result is not finite, is flagged.
#pragma once

#include <immintrin.h>

#include <complex>
#include <cstdint>
#include <type_traits>

#include "vm/kernels/core/simd.h"
#include "vm/kernels/elem/cplx.h"

// Forced inline: in the table translation units, which hold hundreds of
// kernels, the compiler's growth budget otherwise leaves helpers as calls
// with their blocks passed through memory.
#define QOR_CV_INLINE [[gnu::always_inline]] inline

namespace qor::vm::cvec {

namespace k {

using D = __m128d;
using F = __m128;

QOR_CV_INLINE D abs(D x) { return _mm_andnot_pd(_mm_set1_pd(-0.0), x); }
QOR_CV_INLINE F absf(F x) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), x); }
// All-ones where x is infinite or NaN.
QOR_CV_INLINE D nonfinite(D x) { return _mm_cmpnlt_pd(abs(x), _mm_set1_pd(__builtin_inf())); }
QOR_CV_INLINE F nonfinitef(F x) { return _mm_cmpnlt_ps(absf(x), _mm_set1_ps(__builtin_inff())); }
// Lanes where re or im is infinite or NaN (x - x is NaN exactly there).
QOR_CV_INLINE D nonfinite2(D re, D im) {
  const D t = _mm_add_pd(_mm_sub_pd(re, re), _mm_sub_pd(im, im));
  return _mm_cmpunord_pd(t, t);
}
QOR_CV_INLINE F nonfinite2f(F re, F im) {
  const F t = _mm_add_ps(_mm_sub_ps(re, re), _mm_sub_ps(im, im));
  return _mm_cmpunord_ps(t, t);
}

// Veltkamp split: x = hi + lo, each with at most 26 significant bits.
struct Split {
  D hi, lo;
};
QOR_CV_INLINE Split split(D x) {
  const D t = _mm_mul_pd(x, _mm_set1_pd(134217729.0));
  const D hi = _mm_sub_pd(t, _mm_sub_pd(t, x));
  return {hi, _mm_sub_pd(x, hi)};
}
// Dekker: the rounding error of x*y (p = fl(x*y)), exact while the partial
// products neither overflow nor underflow.
QOR_CV_INLINE D prod_err(D p, const Split &x, const Split &y) {
  D e = _mm_sub_pd(_mm_mul_pd(x.hi, y.hi), p);
  e = _mm_add_pd(e, _mm_mul_pd(x.hi, y.lo));
  e = _mm_add_pd(e, _mm_mul_pd(x.lo, y.hi));
  return _mm_add_pd(e, _mm_mul_pd(x.lo, y.lo));
}
// p + q + (ep + eq) with p + q formed by two-sum: the sum of two exact
// products, one final rounding plus ~2^-105 of max(|p|, |q|).  Where the
// sum is exactly zero the plain p + q stands, so a zero keeps the sign the
// schoolbook formula gives it.
struct Pair {
  D hi, lo;
};
QOR_CV_INLINE Pair two_sum(D a, D b) {
  const D s = _mm_add_pd(a, b);
  const D bb = _mm_sub_pd(s, a);
  const D t = _mm_add_pd(_mm_sub_pd(a, _mm_sub_pd(s, bb)), _mm_sub_pd(b, bb));
  return {s, t};
}
QOR_CV_INLINE Pair dot_pair(D p, D ep, D q, D eq) {
  const Pair s = two_sum(p, q);
  return {s.hi, _mm_add_pd(s.lo, _mm_add_pd(ep, eq))};
}
QOR_CV_INLINE D dot(D p, D ep, D q, D eq) {
  const Pair s = dot_pair(p, ep, q, eq);
  const D r = _mm_add_pd(s.hi, s.lo);
  return _mm_blendv_pd(r, s.hi, _mm_cmpeq_pd(r, _mm_setzero_pd()));
}

// max(|re|, |im|) outside [2^-480, 2^480] and not 0 (NaN included).
QOR_CV_INLINE D out_of_range(D re, D im) {
  const D m = _mm_max_pd(abs(re), abs(im));
  const D big = _mm_cmpnle_pd(m, _mm_set1_pd(0x1p480));
  const D tiny = _mm_and_pd(_mm_cmplt_pd(m, _mm_set1_pd(0x1p-480)),
                            _mm_cmpneq_pd(m, _mm_setzero_pd()));
  return _mm_or_pd(big, tiny);
}

// ---- blocks ------------------------------------------------------------------
// A block of E complex elements in struct-of-arrays form.
struct ZBlk {  // 2 complex doubles
  D re, im;
};
QOR_CV_INLINE ZBlk zload(const double *p) {
  const D a0 = _mm_loadu_pd(p), a1 = _mm_loadu_pd(p + 2);
  return {_mm_unpacklo_pd(a0, a1), _mm_unpackhi_pd(a0, a1)};
}
QOR_CV_INLINE void zstore(double *p, const ZBlk &r) {
  _mm_storeu_pd(p, _mm_unpacklo_pd(r.re, r.im));
  _mm_storeu_pd(p + 2, _mm_unpackhi_pd(r.re, r.im));
}
// Flag bits per element from a per-lane mask.
QOR_CV_INLINE int zmask(D m) { return _mm_movemask_pd(m); }

struct CBlk {  // 4 complex floats, widened: lanes 0,1 in *0, lanes 2,3 in *1
  D re0, im0, re1, im1;
};
QOR_CV_INLINE CBlk cload(const float *p) {
  const F a0 = _mm_loadu_ps(p), a1 = _mm_loadu_ps(p + 4);
  const F re = _mm_shuffle_ps(a0, a1, _MM_SHUFFLE(2, 0, 2, 0));
  const F im = _mm_shuffle_ps(a0, a1, _MM_SHUFFLE(3, 1, 3, 1));
  return {_mm_cvtps_pd(re), _mm_cvtps_pd(im), _mm_cvtps_pd(_mm_movehl_ps(re, re)),
          _mm_cvtps_pd(_mm_movehl_ps(im, im))};
}
QOR_CV_INLINE F narrow(D lo, D hi) { return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi)); }
// Stores the rounded block; returns the elements with a non-finite component.
QOR_CV_INLINE int cstore(float *p, D re0, D im0, D re1, D im1) {
  const F re = narrow(re0, re1), im = narrow(im0, im1);
  _mm_storeu_ps(p, _mm_unpacklo_ps(re, im));
  _mm_storeu_ps(p + 4, _mm_unpackhi_ps(re, im));
  return _mm_movemask_ps(nonfinite2f(re, im));
}

// |r| < 2^-20 (|p| + |q|): r = p -+ q cancelled more than the plain formula
// of the EP kernels can afford.
QOR_CV_INLINE D cancels(D r, D p, D q) {
  return _mm_cmplt_pd(abs(r), _mm_mul_pd(_mm_set1_pd(0x1p-20), _mm_add_pd(abs(p), abs(q))));
}

// a * b with exact cross products (b already conjugated for MulByConj).
QOR_CV_INLINE ZBlk mul_exact(const ZBlk &a, const ZBlk &b) {
  const Split ar = split(a.re), ai = split(a.im), br = split(b.re), bi = split(b.im);
  const D p1 = _mm_mul_pd(a.re, b.re), p2 = _mm_mul_pd(a.im, b.im);
  const D p3 = _mm_mul_pd(a.re, b.im), p4 = _mm_mul_pd(a.im, b.re);
  const D e1 = prod_err(p1, ar, br), e2 = prod_err(p2, ai, bi);
  const D e3 = prod_err(p3, ar, bi), e4 = prod_err(p4, ai, br);
  const D neg = _mm_set1_pd(-0.0);
  return {dot(p1, e1, _mm_xor_pd(p2, neg), _mm_xor_pd(e2, neg)), dot(p3, e3, p4, e4)};
}

// a / b for operands within out_of_range's bounds, b != 0: numerators and
// |b|^2 as unevaluated pairs, the quotient corrected once by its residual.
QOR_CV_INLINE ZBlk div_exact(const ZBlk &a, const ZBlk &b) {
  const Split ar = split(a.re), ai = split(a.im), br = split(b.re), bi = split(b.im);
  const D neg = _mm_set1_pd(-0.0);
  const D q1 = _mm_mul_pd(b.re, b.re), q2 = _mm_mul_pd(b.im, b.im);
  const Pair den = dot_pair(q1, prod_err(q1, br, br), q2, prod_err(q2, bi, bi));
  const D dh = _mm_add_pd(den.hi, den.lo);
  const D dl = _mm_sub_pd(den.lo, _mm_sub_pd(dh, den.hi));
  const Split ds = split(dh);
  const D p1 = _mm_mul_pd(a.re, b.re), p2 = _mm_mul_pd(a.im, b.im);
  const D p3 = _mm_mul_pd(a.im, b.re), p4 = _mm_mul_pd(a.re, b.im);
  const Pair nre = dot_pair(p1, prod_err(p1, ar, br), p2, prod_err(p2, ai, bi));
  const Pair nim = dot_pair(p3, prod_err(p3, ai, br), _mm_xor_pd(p4, neg),
                            _mm_xor_pd(prod_err(p4, ar, bi), neg));
  // One division per block: q0 = n/d through the reciprocal is within ~2 ulps,
  // and the residual correction below makes up for that.
  const D inv = _mm_div_pd(_mm_set1_pd(1.0), dh);
  auto quot = [&](const Pair &n0) {
    // After cancellation the products' errors can outweigh their rounded
    // sum: renormalise, so that q0 starts from the rounded numerator.
    const Pair n = two_sum(n0.hi, n0.lo);
    const D q0 = _mm_mul_pd(n.hi, inv);
    const D p = _mm_mul_pd(q0, dh);
    // n.hi - p is exact (p is within a few ulps of n.hi); with the product's
    // own error this is the residual of q0 to ~2^-104.
    D rem = _mm_sub_pd(_mm_sub_pd(n.hi, p), prod_err(p, split(q0), ds));
    rem = _mm_sub_pd(_mm_add_pd(rem, n.lo), _mm_mul_pd(q0, dl));
    const D q = _mm_add_pd(q0, _mm_mul_pd(rem, inv));
    return _mm_blendv_pd(q, q0, _mm_cmpeq_pd(q, _mm_setzero_pd()));
  };
  return {quot(nre), quot(nim)};
}

}  // namespace k

// ---- operations ------------------------------------------------------------
// Each has
//   E<T>                         elements per block
//   blk<T, S>(a, b, r) -> mask   r = op(a, b) for a block in memory (r may
//                                be a local block, never aliases a or b);
//                                the mask flags elements for the fix path
//   fix<T, S>(a, b, code)        the per-element routine
// (one-argument forms for Abs).

template <class T>
constexpr int kE = std::is_same_v<T, float> ? 4 : 2;

// a * b, or a * conj(b) with Conj = true.
template <bool Conj>
struct MulOp {
  template <class T, int S>
  [[gnu::flatten]] static int blk(const T *pa, const T *pb, T *pr) {
    using namespace k;
    if constexpr (std::is_same_v<T, float>) {
      const CBlk a = cload(pa), b = cload(pb);
      auto one = [](D ar, D ai, D br, D bi, D &rr, D &ri) {
        if constexpr (Conj) bi = _mm_xor_pd(bi, _mm_set1_pd(-0.0));
        rr = _mm_sub_pd(_mm_mul_pd(ar, br), _mm_mul_pd(ai, bi));
        ri = _mm_add_pd(_mm_mul_pd(ar, bi), _mm_mul_pd(ai, br));
      };
      D r0, i0, r1, i1;
      one(a.re0, a.im0, b.re0, b.im0, r0, i0);
      one(a.re1, a.im1, b.re1, b.im1, r1, i1);
      return cstore(pr, r0, i0, r1, i1);
    } else {
      const ZBlk a = zload(pa);
      ZBlk b = zload(pb);
      if constexpr (Conj) b.im = _mm_xor_pd(b.im, _mm_set1_pd(-0.0));
      ZBlk r;
      D bad = _mm_setzero_pd();
      if constexpr (S == 2) {
        const D p1 = _mm_mul_pd(a.re, b.re), p2 = _mm_mul_pd(a.im, b.im);
        const D p3 = _mm_mul_pd(a.re, b.im), p4 = _mm_mul_pd(a.im, b.re);
        r.re = _mm_sub_pd(p1, p2);
        r.im = _mm_add_pd(p3, p4);
        // The plain sums lose (|p| + |q|)/|p -+ q| ulps; where that could
        // approach the slot's 2^27 the block is redone with exact products.
        if (_mm_movemask_pd(_mm_or_pd(cancels(r.re, p1, p2), cancels(r.im, p3, p4)))) [[unlikely]] {
          r = mul_exact(a, b);
          bad = _mm_or_pd(out_of_range(a.re, a.im), out_of_range(b.re, b.im));
        }
      } else {
        r = mul_exact(a, b);
        // Products near the bottom of the range lose their exact errors.
        bad = _mm_or_pd(out_of_range(a.re, a.im), out_of_range(b.re, b.im));
      }
      zstore(pr, r);
      return zmask(_mm_or_pd(bad, nonfinite2(r.re, r.im)));
    }
  }
  template <class T, int S>
  static std::complex<T> fix(std::complex<T> a, std::complex<T> b, int &code) {
    if constexpr (Conj)
      return elem::cplx::MulByConj::eval<T, S>(a, b, code);
    else
      return elem::cplx::Mul::eval<T, S>(a, b, code);
  }
};

struct Mul : MulOp<false> {};
struct MulByConj : MulOp<true> {};

struct Div {
  template <class T, int S>
  [[gnu::flatten]] static int blk(const T *pa, const T *pb, T *pr) {
    using namespace k;
    if constexpr (std::is_same_v<T, float>) {
      // A zero divisor gives an infinite or NaN quotient: flagged.
      const CBlk a = cload(pa), b = cload(pb);
      auto one = [](D ar, D ai, D br, D bi, D &rr, D &ri) {
        const D inv = _mm_div_pd(_mm_set1_pd(1.0), _mm_add_pd(_mm_mul_pd(br, br), _mm_mul_pd(bi, bi)));
        rr = _mm_mul_pd(_mm_add_pd(_mm_mul_pd(ar, br), _mm_mul_pd(ai, bi)), inv);
        ri = _mm_mul_pd(_mm_sub_pd(_mm_mul_pd(ai, br), _mm_mul_pd(ar, bi)), inv);
      };
      D r0, i0, r1, i1;
      one(a.re0, a.im0, b.re0, b.im0, r0, i0);
      one(a.re1, a.im1, b.re1, b.im1, r1, i1);
      return cstore(pr, r0, i0, r1, i1);
    } else {
      const ZBlk a = zload(pa), b = zload(pb);
      // Within these ranges |b|^2, the numerators and the quotient are
      // normal and finite; a zero or NaN divisor is out of range too.
      const D zb = _mm_cmpeq_pd(_mm_max_pd(abs(b.re), abs(b.im)), _mm_setzero_pd());
      const D bad = _mm_or_pd(_mm_or_pd(out_of_range(a.re, a.im), out_of_range(b.re, b.im)), zb);
      ZBlk r;
      if constexpr (S == 2) {
        const D inv = _mm_div_pd(_mm_set1_pd(1.0),
                                 _mm_add_pd(_mm_mul_pd(b.re, b.re), _mm_mul_pd(b.im, b.im)));
        const D p1 = _mm_mul_pd(a.re, b.re), p2 = _mm_mul_pd(a.im, b.im);
        const D p3 = _mm_mul_pd(a.im, b.re), p4 = _mm_mul_pd(a.re, b.im);
        const D nre = _mm_add_pd(p1, p2), nim = _mm_sub_pd(p3, p4);
        r.re = _mm_mul_pd(nre, inv);
        r.im = _mm_mul_pd(nim, inv);
        // Cancelling numerators: the block is redone exactly (see Mul).
        if (_mm_movemask_pd(_mm_or_pd(cancels(nre, p1, p2), cancels(nim, p3, p4)))) [[unlikely]]
          r = div_exact(a, b);
      } else {
        r = div_exact(a, b);
      }
      zstore(pr, r);
      return zmask(bad);
    }
  }
  template <class T, int S>
  static std::complex<T> fix(std::complex<T> a, std::complex<T> b, int &code) {
    return elem::cplx::Div::eval<T, S>(a, b, code);
  }
};

// Add and Sub: componentwise, so the pairs need no deinterleaving.  A lane
// whose result is not finite goes to the per-element routine for its code.
template <bool Minus>
struct AddSubOp {
  template <class T, int S>
  [[gnu::flatten]] static int blk(const T *pa, const T *pb, T *pr) {
    using namespace k;
    if constexpr (std::is_same_v<T, float>) {
      const F a0 = _mm_loadu_ps(pa), a1 = _mm_loadu_ps(pa + 4);
      const F b0 = _mm_loadu_ps(pb), b1 = _mm_loadu_ps(pb + 4);
      const F r0 = Minus ? _mm_sub_ps(a0, b0) : _mm_add_ps(a0, b0);
      const F r1 = Minus ? _mm_sub_ps(a1, b1) : _mm_add_ps(a1, b1);
      _mm_storeu_ps(pr, r0);
      _mm_storeu_ps(pr + 4, r1);
      // x - x is NaN exactly where x is infinite or NaN: one test for the
      // block, the elements sorted out only when it fires
      const F t = _mm_add_ps(_mm_sub_ps(r0, r0), _mm_sub_ps(r1, r1));
      if (!_mm_movemask_ps(_mm_cmpunord_ps(t, t))) return 0;
      // floats 2j, 2j+1 belong to element j: fold the pairs, then compress
      int m = _mm_movemask_ps(nonfinitef(r0)) | _mm_movemask_ps(nonfinitef(r1)) << 4;
      m = (m | m >> 1) & 0x55;
      m = (m | m >> 1) & 0x33;
      return (m | m >> 2) & 0xF;
    } else {
      const D a0 = _mm_loadu_pd(pa), a1 = _mm_loadu_pd(pa + 2);
      const D b0 = _mm_loadu_pd(pb), b1 = _mm_loadu_pd(pb + 2);
      const D r0 = Minus ? _mm_sub_pd(a0, b0) : _mm_add_pd(a0, b0);
      const D r1 = Minus ? _mm_sub_pd(a1, b1) : _mm_add_pd(a1, b1);
      _mm_storeu_pd(pr, r0);
      _mm_storeu_pd(pr + 2, r1);
      const D t = _mm_add_pd(_mm_sub_pd(r0, r0), _mm_sub_pd(r1, r1));
      if (!_mm_movemask_pd(_mm_cmpunord_pd(t, t))) return 0;
      return (_mm_movemask_pd(nonfinite(r0)) ? 1 : 0) | (_mm_movemask_pd(nonfinite(r1)) ? 2 : 0);
    }
  }
  template <class T, int S>
  static std::complex<T> fix(std::complex<T> a, std::complex<T> b, int &code) {
    if constexpr (Minus)
      return elem::cplx::Sub::eval<T, S>(a, b, code);
    else
      return elem::cplx::Add::eval<T, S>(a, b, code);
  }
};
struct Add : AddSubOp<false> {};
struct Sub : AddSubOp<true> {};

// |a|: real results, E per block.
struct Abs {
  template <class T, int S>
  [[gnu::flatten]] static int blk_r(const T *pa, T *pr) {
    using namespace k;
    if constexpr (std::is_same_v<T, float>) {
      const CBlk a = cload(pa);
      const D s0 = _mm_sqrt_pd(_mm_add_pd(_mm_mul_pd(a.re0, a.re0), _mm_mul_pd(a.im0, a.im0)));
      const D s1 = _mm_sqrt_pd(_mm_add_pd(_mm_mul_pd(a.re1, a.re1), _mm_mul_pd(a.im1, a.im1)));
      const F r = narrow(s0, s1);
      _mm_storeu_ps(pr, r);
      return _mm_movemask_ps(nonfinitef(r));
    } else {
      const ZBlk a = zload(pa);
      const D bad = out_of_range(a.re, a.im);
      D r;
      if constexpr (S == 2) {
        r = _mm_sqrt_pd(_mm_add_pd(_mm_mul_pd(a.re, a.re), _mm_mul_pd(a.im, a.im)));
      } else {
        const Split ar = split(a.re), ai = split(a.im);
        const D q1 = _mm_mul_pd(a.re, a.re), q2 = _mm_mul_pd(a.im, a.im);
        const Pair s = dot_pair(q1, prod_err(q1, ar, ar), q2, prod_err(q2, ai, ai));
        const D sh = _mm_add_pd(s.hi, s.lo);
        const D sl = _mm_sub_pd(s.lo, _mm_sub_pd(sh, s.hi));
        const D r0 = _mm_sqrt_pd(sh);
        // r = r0 + (sh + sl - r0^2) / (2 r0), r0^2 exact by Dekker.
        const D p = _mm_mul_pd(r0, r0);
        const Split rs = split(r0);
        D rem = _mm_sub_pd(_mm_sub_pd(sh, p), prod_err(p, rs, rs));
        rem = _mm_add_pd(rem, sl);
        const D c = _mm_div_pd(rem, _mm_add_pd(r0, r0));
        // 0 stays 0 (0/0 in the correction).
        r = _mm_blendv_pd(_mm_add_pd(r0, c), r0, _mm_cmpeq_pd(r0, _mm_setzero_pd()));
      }
      _mm_storeu_pd(pr, r);
      return _mm_movemask_pd(bad);
    }
  }
  template <class T, int S>
  static T fix_r(std::complex<T> a, int &code) {
    return elem::cplx::Abs::eval<T, S>(a, code);
  }
};

}  // namespace qor::vm::cvec

#undef QOR_CV_INLINE
