// Sine, cosine, their pair and tangent: SIMD kernels in the driver's protocol.
//
// Method (all types and slots):
//   1. k = nearest integer to |x| * 2/pi, found by adding the shifter
//      1.5 * 2^52 so that k also sits in the low bits of the sum's pattern.
//   2. r = |x| - k * pi/2 by Cody-Waite with pi/2 cut into four pieces: the
//      first three short enough that k times each is exact on the fast path,
//      the fourth a full double.  |x| - k * c1 is then exact, and each further
//      subtraction is either exact (Sterbenz: the pieces cancel) or loses at
//      most half an ulp of a value already close to r.  The double HA
//      kernels (and the double LA tangent) keep the rounding errors
//      (Fast2Sum, exact on the fast path: see reduce) and carry r as a pair
//      r + rr, and recover the rounding of 1 - z/2, the largest error of cos
//      otherwise; the tangents also square r exactly (Dekker), the HA sine,
//      cosine and pair do not (z's rounding costs them <= 0.25 ulp).  The
//      double HA sine, cosine and pair need only three pieces below 2^12
//      (see "a shorter reduction below 2^12") and evaluate their six-term
//      polynomials in Estrin pairs (see estrin6).
//   3. sin r = r + r z P(z) and cos r = 1 - z/2 + z^2 Q(z), z = r^2, with
//      P and Q minimax on |r| <= 0.786 (a little beyond pi/4 since k may be
//      rounded from a product).  Degrees by slot, relative error of the
//      polynomial alone:
//         double HA, LA  P 6 terms 2^-57, Q 6 terms 2^-62
//         double EP      P 3 terms 2^-27, Q 3 terms 2^-32
//         float HA, LA   P 3 terms 2^-27, Q 3 terms 2^-32
//         float EP       P 2 terms 2^-18, Q 1 term  2^-14
//      The float HA kernels run the whole computation in double on two
//      halves of the register and round once at the end; float LA and EP
//      (tangent included) reduce in float below |x| = 2^12 and in double
//      above, lane by lane, and evaluate the polynomials on four float
//      lanes (see "float LA and EP below 2^12").
//   4. The quadrant k & 3 picks sin or cos and the sign by bit tricks on k's
//      low bits (the double HA Sin and Cos evaluate only the polynomial each
//      lane needs, with per-lane coefficients: see sin_cos_ha); sin and tan
//      are computed for |x| and given x's sign, so
//      sin(-0) = -0 without special care.  Tan is sin/cos on even k and
//      -cos/sin on odd k; the double HA tangent divides the unrounded pairs
//      and corrects the quotient with an exact residual.
//   5. Sin LA/EP and Cos LA reduce by pi instead and evaluate one odd
//      polynomial per lane (see "reduction by pi" below).
//
// Lanes off the fast path (|x| >= 2^21 for double, 2^28 for float,
// infinities, NaNs, and subnormals of the odd functions, which underflow) are
// recomputed by the per-element routines, which reduce exactly and give the
// special values and error codes.
#pragma once

#include <smmintrin.h>

#include <cstdint>
#include <type_traits>

#include "vm/kernels/core/driver.h"
#include "vm/kernels/elem/elem.h"

namespace qor::vm::vec {

namespace trig_detail {

using simd::V;
using D = __m128d;
template <class T>
using Rg = typename V<T>::reg;

// pi/2 in pieces.  Double: 32-bit pieces, so k * c_i is exact for k < 2^21;
// the fast path |x| < 2^21 keeps k <= 2^21 * 2/pi.  Float: 24-bit pieces,
// exact for k < 2^29, fast path |x| < 2^28.  Both splits carry well over 120
// bits of pi/2, enough for the nearest approaches of the arguments in range
// to a multiple of pi/2.
struct Split32 {
  static constexpr double c1 = 0x1.921fb544p+0;
  static constexpr double c2 = 0x1.0b4611a6p-34;
  static constexpr double c3 = 0x1.3198a2ep-69;
  static constexpr double c4 = 0x1.b839a252049c1p-104;
};
struct Split24 {
  static constexpr double c1 = 0x1.921fb6p+0;
  static constexpr double c2 = -0x1.777a5cp-25;
  static constexpr double c3 = -0x1.ee59dap-50;
  static constexpr double c4 = 0x1.98a2e03707345p-77;
};

// Minimax coefficients (see the table at the top), P(z) then Q(z).
constexpr double kSin2[] = {-0x1.5541bc472963cp-3, 0x1.0b1a05787d0c8p-7};
constexpr double kSin3[] = {-0x1.55554529e5080p-3, 0x1.1106b27b775c2p-7, -0x1.99045a829c7cdp-13};
constexpr double kSin6[] = {-0x1.555555555554cp-3, 0x1.111111110fb25p-7, -0x1.a01a019c2a957p-13,
                            0x1.71de3569b05f0p-19, -0x1.ae5e479d56b53p-26, 0x1.5d860a73f86f4p-33};
constexpr double kCos1[] = {0x1.4e619694ef5b5p-5};
constexpr double kCos3[] = {0x1.55554eda6f2fcp-5, -0x1.6c0e7213aa4c2p-10, 0x1.9a6d2bedcc03ep-16};
constexpr double kCos6[] = {0x1.5555555555553p-5, -0x1.6c16c16c1611ep-10, 0x1.a01a019e21dbfp-16,
                            -0x1.27e4f90128d36p-22, 0x1.1eea86fed8f8ep-29, -0x1.8ff872e8e4fc7p-37};

// What a (type, slot) pair computes with.
template <class T, int S>
struct Cfg {
  static constexpr bool is_float = std::is_same_v<T, float>;
  // pairs r + rr and compensated sums: the double high-accuracy kernels
  static constexpr bool acc = !is_float && S == 1;
  // exact z and the compensated 1 - z/2 in cos; the corrected quotient in
  // the tangent: the double high-accuracy kernels
  static constexpr bool exact_sq = acc;
  static constexpr bool hq = acc;
  // the three-piece reduction below 2^12 (the double HA Sin, Cos, SinCos)
  static constexpr bool short_split = false;
  using Split = std::conditional_t<is_float, Split24, Split32>;
  static constexpr int ns = is_float ? (S == 2 ? 2 : 3) : (S == 2 ? 3 : 6);
  static constexpr int nc = is_float ? (S == 2 ? 1 : 3) : (S == 2 ? 3 : 6);
  static constexpr const double *sin_c() {
    return ns == 2 ? kSin2 : ns == 3 ? kSin3 : kSin6;
  }
  static constexpr const double *cos_c() {
    return nc == 1 ? kCos1 : nc == 3 ? kCos3 : kCos6;
  }
};

// The double LA tangent reduces with the pairs and the exact square as
// well, dividing the rounded sine and cosine: the tangent's condition number
// 2r / sin 2r reaches pi/2 at r = pi/4, and its result ulp may be half the
// relative size of the operands': with the plain chain the measured maximum
// was 2.9 ulp and the sum of its steps' error bounds exceeds 4.
template <class Base>
struct PairReduction : Base {
  static constexpr bool acc = true;
  static constexpr bool exact_sq = true;
  static constexpr bool hq = false;
};

inline D set(double v) { return _mm_set1_pd(v); }
inline D add(D a, D b) { return _mm_add_pd(a, b); }
inline D sub(D a, D b) { return _mm_sub_pd(a, b); }
inline D mul(D a, D b) { return _mm_mul_pd(a, b); }

template <int N>
inline D horner(D z, const double *c) {
  D p = set(c[N - 1]);
  for (int i = N - 2; i >= 0; --i) p = add(mul(p, z), set(c[i]));
  return p;
}

// Six terms, coefficient i from c(i), in pairs as in Estrin's scheme:
//   c0 + (c1 z + z^2 ((c2 + c3 z) + z^2 (c4 + c5 z))).
// One multiplication more than Horner but a chain of six operations instead
// of ten, which bounded the double HA sine and cosine loops.  The leading c0
// comes in by the last addition, so that, as with Horner, the value carries
// one rounding at its own scale: plain Estrin, ((c0 + c1 z) + ...) + ...,
// rounds three times there and measured 0.84 ulp for the cosine.
template <class Coef>
[[gnu::always_inline]] inline D estrin6(D z, Coef c) {
  D z2 = mul(z, z);
  D w23 = add(mul(c(3), z), c(2));
  D w45 = add(mul(c(5), z), c(4));
  D hi = add(w23, mul(z2, w45));
  return add(c(0), add(mul(c(1), z), mul(z2, hi)));
}
// Eight and five terms the same way (the double LA and EP half-turn sine).
inline D estrin8(D z, const double *c) {
  D z2 = mul(z, z);
  D w23 = add(mul(set(c[3]), z), set(c[2]));
  D w45 = add(mul(set(c[5]), z), set(c[4]));
  D w67 = add(mul(set(c[7]), z), set(c[6]));
  D hi = add(w45, mul(z2, w67));
  D t = add(add(mul(set(c[1]), z), mul(z2, w23)), mul(mul(z2, z2), hi));
  return add(set(c[0]), t);
}
inline D estrin5(D z, const double *c) {
  D w23 = add(mul(set(c[3]), z), set(c[2]));
  D z2 = mul(z, z);
  D hi = add(w23, mul(z2, set(c[4])));
  return add(set(c[0]), add(mul(set(c[1]), z), mul(z2, hi)));
}
// The polynomial of a (type, slot): the kernels with the three-piece
// reduction (double HA Sin, Cos, SinCos) evaluate it by Estrin, the same way
// in all three so that SinCos gives the bits of Sin and Cos.
template <class C, int N>
[[gnu::always_inline]] inline D poly(D z, const double *c) {
  if constexpr (C::short_split) {
    static_assert(N == 6);
    return estrin6(z, [&](int i) { return set(c[i]); });
  } else {
    return horner<N>(z, c);
  }
}

// Exact product a * b = p + e without a fused multiply-add (Dekker).
inline void split(D a, D &hi, D &lo) {
  D t = mul(a, set(0x1p27 + 1));
  hi = sub(t, sub(t, a));
  lo = sub(a, hi);
}
inline void two_prod(D a, D b, D &p, D &e) {
  D ah, al, bh, bl;
  split(a, ah, al);
  split(b, bh, bl);
  p = mul(a, b);
  e = add(add(add(sub(mul(ah, bh), p), mul(ah, bl)), mul(al, bh)), mul(al, bl));
}

// Reduced argument of |x| (ax >= 0): r (+ rr when Acc) and k's bits.
template <class C>
struct Reduced {
  D r, rr, z, zl;  // zl: rounding error of z = r * r (Acc only)
  __m128i k;
};

template <class C>
inline Reduced<C> reduce_split(D ax) {
  using Sp = typename C::Split;
  const D shifter = set(0x1.8p52);
  Reduced<C> o;
  D kd = add(mul(ax, set(0x1.45f306dc9c883p-1)), shifter);
  o.k = _mm_castpd_si128(kd);
  D kf = sub(kd, shifter);
  D a = sub(ax, mul(kf, set(Sp::c1)));
  D t2 = mul(kf, set(Sp::c2)), t3 = mul(kf, set(Sp::c3)), t4 = mul(kf, set(Sp::c4));
  if constexpr (!C::acc) {
    o.r = sub(sub(sub(a, t2), t3), t4);
    o.rr = _mm_setzero_pd();
  } else {
    // b = a - t2 and c = b - t3 with their rounding errors, by Fast2Sum
    // (three operations fewer than TwoSum each).  Fast2Sum is exact when the
    // first operand is the larger; when it is not, the difference is itself
    // exact and the formula gives 0, which is then the error.  First step:
    // a and t2 = k c2 are multiples of 2^-65 (k >= 1 means |x| >= pi/4, whose
    // ulp is >= 2^-53; c2's last bit is 2^-65) and |t2| < 2^-13.6 on the fast
    // path, so |a| < |t2| gives |b| < 2^-12.6 with at most 53 bits.  Second:
    // t3 = k c3 is a multiple of 2^-97 below 2^-48.4, and |b| < |t3| means b
    // (a multiple of 2^-65) was exact, so b - t3 fits 53 bits as well.
    D b = sub(a, t2);
    D e1 = sub(sub(a, b), t2);
    D c = sub(b, t3);
    D e2 = sub(sub(b, c), t3);
    D lo = sub(add(e1, e2), t4);
    o.r = add(c, lo);
    o.rr = add(sub(c, o.r), lo);
  }
  o.z = mul(o.r, o.r);
  if constexpr (C::exact_sq) {
    // exact square (Dekker): 1 - z/2 in cos must not carry z's rounding
    D rh, rl;
    split(o.r, rh, rl);
    o.zl = add(add(sub(mul(rh, rh), o.z), mul(add(rh, rh), rl)), mul(rl, rl));
  }
  return o;
}

// ---- double HA: a shorter reduction below 2^12 ---------------------------------
// Below |x| = 2^12, k <= 2608 < 2^12, and pi/2 in three pieces is enough:
// c1 of 41 bits and c2 of 40 bits, so that k c1 and k c2 are exact, and a
// full double c3 (|c3| < 2^-85.6; what is left of pi/2 after it is below
// 2^-141.7).  Then, for k >= 1 (x >= pi/4, so x and k c1 are multiples of
// 2^-53 and |x - k c1| <= 0.786; for k = 0, t2 = t3 = 0 and r = x):
//   a = x - k c1       exact (a multiple of 2^-53 below 1);
//   b = a - t2, t2 = k c2 (|t2| < 2^-31.1, a multiple of 2^-82), with its
//                      rounding error e1 by Fast2Sum: exact if |a| >= |t2|,
//                      and otherwise b itself is exact (below 2|t2|, so
//                      fewer than 2^52 units of 2^-82) and e1 comes out 0;
//   r = b - t3, t3 = k c3 (|t3| < 2^-74.3), with its rounding error by
//                      Fast2Sum again: the nearest doubles to multiples of
//                      pi/2 below 2^12 leave |r| >= 2^-60.5 (k from 16 to
//                      31; checked for every k), so |b| > |t3|;
//   rr = that error + e1, rounded (|rr| <= ulp(r): the polynomials take
//                      rr to first order, which is all they need at that
//                      size).
// e1 joins rr last so that r, and the polynomial behind it, need not wait
// for it.  The pair r + rr then differs from |x| - k pi/2 by at most the
// rounding of t3 (2^-127.3), the pieces' truncation times k (2^-130.4) and
// the rounding of rr (2^-53 ulp(r)): relative to |r| >= 2^-60.5 below
// 2^-66, a hundredth of an ulp.  Against the four-piece chain this saves
// four additions and a multiplication.  Lanes from 2^12 up (and the ones that
// leave the fast path later) take the four-piece chain: it is computed for
// the register only when one of its lanes needs it, and blended per lane,
// so an element's result never depends on its neighbour.
struct Split12 {
  static constexpr double c1 = 0x1.921fb54443000p+0;
  static constexpr double c2 = -0x1.73dcb3b39a000p-43;
  static constexpr double c3 = 0x1.45c06e0e68948p-86;
};
inline constexpr int64_t kShortSplitTop = 0x40AFFFFFFFFFFFFFll;  // largest double below 2^12

template <class C>
struct RPair {
  D r, rr;
};
template <class C>
[[gnu::noinline]] RPair<C> reduce_wide(D ax) {
  auto q = reduce_split<C>(ax);
  return {q.r, q.rr};
}

template <class C>
[[gnu::always_inline]] inline Reduced<C> reduce(D ax, D x) {
  if constexpr (!C::short_split) {
    return reduce_split<C>(x);
  } else {
    static_assert(C::acc && !C::exact_sq);
    Reduced<C> o;
    D t = mul(x, set(0x1.45f306dc9c883p-1));
    // k's bits by the shifter and k itself by rounding t, which takes the
    // shifter's removal (3 cycles) off the chain; both round to nearest even
    o.k = _mm_castpd_si128(add(t, set(0x1.8p52)));
    D kf = _mm_round_pd(t, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    D a = sub(x, mul(kf, set(Split12::c1)));
    D t2 = mul(kf, set(Split12::c2));
    D t3 = mul(kf, set(Split12::c3));
    D b = sub(a, t2);
    D e1 = sub(sub(a, b), t2);
    o.r = sub(b, t3);
    o.rr = add(sub(sub(b, o.r), t3), e1);
    const D wide = _mm_castsi128_pd(
        _mm_cmpgt_epi64(_mm_castpd_si128(ax), _mm_set1_epi64x(kShortSplitTop)));
    if (_mm_movemask_pd(wide)) [[unlikely]] {
      const RPair<C> w = reduce_wide<C>(x);
      o.r = _mm_blendv_pd(o.r, w.r, wide);
      o.rr = _mm_blendv_pd(o.rr, w.rr, wide);
    }
    o.z = mul(o.r, o.r);
    return o;
  }
}

// sin r as hi + lo (hi = r; lo the unrounded rest).
template <class C>
inline D sin_lo(const Reduced<C> &q) {
  D lo = mul(mul(q.r, q.z), poly<C, C::ns>(q.z, C::sin_c()));
  if constexpr (C::acc) lo = add(lo, mul(q.rr, sub(set(1.0), mul(set(0.5), q.z))));
  return lo;
}
// cos r as hi + lo with hi = 1 - z/2.
template <class C>
inline D cos_lo(const Reduced<C> &q, D &hi) {
  D hz = mul(set(0.5), q.z);
  hi = sub(set(1.0), hz);
  D lo = mul(mul(q.z, q.z), poly<C, C::nc>(q.z, C::cos_c()));
  if constexpr (C::exact_sq) {
    // 1 - hi is exact (Sterbenz): recovers the rounding of 1 - z/2
    lo = add(sub(sub(sub(set(1.0), hi), hz), mul(set(0.5), q.zl)), sub(lo, mul(q.r, q.rr)));
  } else if constexpr (C::acc && C::hq) {
    // the same without z's rounding (the HA sine/cosine below: <= 0.25 ulp),
    // summed in their order so that SinCos gives their bits
    lo = add(sub(sub(sub(set(1.0), hi), hz), mul(q.r, q.rr)), lo);
  } else if constexpr (C::acc) {
    lo = sub(lo, mul(q.r, q.rr));
  }
  return lo;
}

// Lane masks from k: odd k (bit 63 set, for blendv) and the sign flip of
// quadrants 2 and 3 (sign bit), with k shifted by `add` quadrants.
inline D odd_mask(__m128i k) {
  return _mm_castsi128_pd(_mm_slli_epi64(k, 63));
}
template <int Add>
inline D quad_sign(__m128i k) {
  __m128i kk = Add ? _mm_add_epi64(k, _mm_set1_epi64x(Add)) : k;
  return _mm_castsi128_pd(_mm_slli_epi64(_mm_srli_epi64(kk, 1), 63));
}
inline D sign_of(D x) { return _mm_and_pd(x, _mm_castsi128_pd(_mm_set1_epi64x(INT64_MIN))); }
inline D abs_of(D x) { return _mm_andnot_pd(_mm_castsi128_pd(_mm_set1_epi64x(INT64_MIN)), x); }

// The three double-register computations behind the operations.
template <class C>
inline D sin_d(D x) {
  auto q = reduce<C>(abs_of(x), abs_of(x));
  D chi;
  D s = add(q.r, sin_lo(q));
  D cl = cos_lo(q, chi);
  D c = add(chi, cl);
  D v = _mm_blendv_pd(s, c, odd_mask(q.k));
  return _mm_xor_pd(v, _mm_xor_pd(quad_sign<0>(q.k), sign_of(x)));
}
template <class C>
inline D cos_d(D x) {
  auto q = reduce<C>(abs_of(x), abs_of(x));
  D chi;
  D s = add(q.r, sin_lo(q));
  D cl = cos_lo(q, chi);
  D c = add(chi, cl);
  D v = _mm_blendv_pd(c, s, odd_mask(q.k));
  return _mm_xor_pd(v, quad_sign<1>(q.k));
}
template <class C>
[[gnu::always_inline]] inline void sincos_d(D x, D &ys, D &yc) {
  auto q = reduce<C>(abs_of(x), abs_of(x));
  D chi;
  D s = add(q.r, sin_lo(q));
  D cl = cos_lo(q, chi);
  D c = add(chi, cl);
  D odd = odd_mask(q.k);
  ys = _mm_xor_pd(_mm_blendv_pd(s, c, odd), _mm_xor_pd(quad_sign<0>(q.k), sign_of(x)));
  yc = _mm_xor_pd(_mm_blendv_pd(c, s, odd), quad_sign<1>(q.k));
}

// ---- double HA Sin and Cos: one polynomial per lane ------------------------
// Each lane needs either sin r or cos r (k's parity), never both.  Both have
// the form A + (B + M W(z)), with the leading term A and the small B computed
// for both and picked by a blend, and the six-term polynomial W = P (sine,
// M = r z) or Q (cosine, M = z^2) evaluated once with per-lane coefficients:
// the table holds the coefficient pairs for each of the four combinations of
// the two lanes' choices, so the register of coefficients is one aligned load
// (folded into the arithmetic) from the row picked by the lanes' mask; a lane
// gets its own coefficients whatever its neighbour needs.
//   sine:   A = r, B = rr (1 - z/2), z = r^2 rounded.  The rounding of z only
//           enters r z P, at most 0.103 of |r|, so plain double is enough
//           there: the correction term's few roundings stay below 0.25 ulp.
//   cosine: h = z/2, A = 1 - h rounded, B = ((1 - A) - h) - r rr, where
//           1 - A is exact (Sterbenz), so 1 - h is carried exactly; z is not
//           squared exactly: h <= 0.309 has ulp <= 2^-54 while the result
//           >= 0.706 has ulp 2^-53, so z's rounding costs <= 0.25 ulp.
struct HaCfg : Cfg<double, 1> {
  static constexpr bool exact_sq = false;
  static constexpr bool short_split = true;
};
struct alignas(16) HaTab {
  double c[4][6][2];  // [mask: bit l set = lane l takes the cosine][term][lane]
};
constexpr HaTab make_ha_tab() {
  HaTab t{};
  for (int m = 0; m < 4; ++m)
    for (int i = 0; i < 6; ++i)
      for (int l = 0; l < 2; ++l) t.c[m][i][l] = (m >> l) & 1 ? kCos6[i] : kSin6[i];
  return t;
}
inline constexpr HaTab kHaTab = make_ha_tab();

template <bool Cos>
[[gnu::always_inline]] inline D sin_cos_ha(D x) {
  // The sine reduces x itself, not |x|: every step rounds symmetrically, so
  // x < 0 gives -k, -r, -rr, the same z and table row, and -A, -B, -M on
  // even k; bit 1 of -k, which gives the sign, equals that of k for even k
  // and is its complement for odd k (-k = ~(k - 1)), which is what x's sign
  // asks for.  The result is thus the same bits as reducing |x| and applying
  // the sign (SinCos still does that; they are tested to agree), and the
  // sign's two operations go.  Zeros alone would differ (-0 comes out +0:
  // -0 + +0 in the last sum); Sin sends them to the per-element routine.
  const D ax = abs_of(x);
  auto q = Cos ? reduce<HaCfg>(ax, ax) : reduce<HaCfg>(ax, x);
  // lanes taking the cosine polynomial: odd k for Sin, even k for Cos
  D usec = odd_mask(q.k);
  if constexpr (Cos) usec = _mm_xor_pd(usec, set(-0.0));
  const double(*c)[2] = kHaTab.c[_mm_movemask_pd(usec)];
  D w = estrin6(q.z, [&](int i) { return _mm_load_pd(c[i]); });
  const D one = set(1.0);
  D h = mul(set(0.5), q.z);
  D hi = sub(one, h);
  D cb = sub(sub(sub(one, hi), h), mul(q.r, q.rr));
  D sb = mul(q.rr, sub(one, h));
  D a = _mm_blendv_pd(q.r, hi, usec);
  D b = _mm_blendv_pd(sb, cb, usec);
  D m = mul(q.z, _mm_blendv_pd(q.r, q.z, usec));
  D v = add(a, add(b, mul(m, w)));
  if constexpr (Cos)
    return _mm_xor_pd(v, quad_sign<1>(q.k));
  else
    return _mm_xor_pd(v, quad_sign<0>(q.k));
}

template <class C>
inline D tan_d(D x) {
  auto q = reduce<C>(abs_of(x), abs_of(x));
  D chi;
  D sl = sin_lo(q);
  D cl = cos_lo(q, chi);
  D odd = odd_mask(q.k);
  D v;
  if constexpr (!C::hq) {
    D s = add(q.r, sl), c = add(chi, cl);
    D n = _mm_blendv_pd(s, _mm_xor_pd(c, set(-0.0)), odd);
    D d = _mm_blendv_pd(c, s, odd);
    v = _mm_div_pd(n, d);
  } else {
    // tan = N / D with N, D the unrounded pairs of sin and cos (or -cos and
    // sin): normalise both pairs, divide the high parts, and correct by the
    // residual N - q0 D, computed exactly up to the low parts' products.
    const D neg = set(-0.0);
    D nh = _mm_blendv_pd(q.r, _mm_xor_pd(chi, neg), odd);
    D nl = _mm_blendv_pd(sl, _mm_xor_pd(cl, neg), odd);
    D dh = _mm_blendv_pd(chi, q.r, odd);
    D dl = _mm_blendv_pd(cl, sl, odd);
    D t = add(nh, nl);
    nl = sub(nl, sub(t, nh));
    nh = t;
    t = add(dh, dl);
    dl = sub(dl, sub(t, dh));
    dh = t;
    D inv = _mm_div_pd(set(1.0), dh);
    D q0 = mul(nh, inv);
    D p, e;
    two_prod(q0, dh, p, e);
    D rem = add(sub(sub(nh, p), e), sub(nl, mul(q0, dl)));
    v = add(q0, mul(rem, inv));
  }
  return _mm_xor_pd(v, sign_of(x));
}

// Float registers run as two double halves.
template <class F>
inline __m128 on_halves(__m128 x, F f) {
  D lo = f(_mm_cvtps_pd(x));
  D hi = f(_mm_cvtps_pd(_mm_movehl_ps(x, x)));
  return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
}

// ---- float LA and EP: reduction in double, polynomials in float ---------------
// The reduction needs more than float precision near multiples of pi/2 (the
// nearest approach of a float below 2^28 is 2^-27.8), so it runs in double on
// the two halves; r then goes to float, where its rounding (half an ulp) is
// within these slots' bounds, and the polynomials run on four lanes at once.
// LA keeps three pieces of pi/2, EP two (c1 and the rest rounded).
using F = __m128;
inline F fset(float v) { return _mm_set1_ps(v); }

template <int S>
inline D reduce_half(D ax, D &kd) {
  const D shifter = set(0x1.8p52);
  kd = add(mul(ax, set(0x1.45f306dc9c883p-1)), shifter);
  D kf = sub(kd, shifter);
  D a = sub(ax, mul(kf, set(Split24::c1)));
  if constexpr (S == 2) return sub(a, mul(kf, set(-0x1.777a5cf72cecep-25)));
  return sub(sub(a, mul(kf, set(Split24::c2))), mul(kf, set(-0x1.ee59d9cceba40p-50)));
}

struct ReducedF {
  F r, z;
  __m128i k;  // 32-bit lanes
};

template <int S>
inline ReducedF reduce_f(F ax) {
  D k0, k1;
  D r0 = reduce_half<S>(_mm_cvtps_pd(ax), k0);
  D r1 = reduce_half<S>(_mm_cvtps_pd(_mm_movehl_ps(ax, ax)), k1);
  ReducedF o;
  o.r = _mm_movelh_ps(_mm_cvtpd_ps(r0), _mm_cvtpd_ps(r1));
  o.z = _mm_mul_ps(o.r, o.r);
  // the low 32 bits of each k
  o.k = _mm_castps_si128(
      _mm_shuffle_ps(_mm_castpd_ps(k0), _mm_castpd_ps(k1), _MM_SHUFFLE(2, 0, 2, 0)));
  return o;
}

template <int N>
inline F fhorner(F z, const double *c) {
  F p = fset(float(c[N - 1]));
  for (int i = N - 2; i >= 0; --i) p = _mm_add_ps(_mm_mul_ps(p, z), fset(float(c[i])));
  return p;
}

template <int S>
inline void sincos_f(const ReducedF &q, F &s, F &c) {
  using C = Cfg<float, S>;
  s = _mm_add_ps(q.r, _mm_mul_ps(_mm_mul_ps(q.r, q.z), fhorner<C::ns>(q.z, C::sin_c())));
  F hz = _mm_mul_ps(fset(0.5f), q.z);
  c = _mm_add_ps(_mm_sub_ps(fset(1.0f), hz),
                 _mm_mul_ps(_mm_mul_ps(q.z, q.z), fhorner<C::nc>(q.z, C::cos_c())));
}
inline F fodd(__m128i k) { return _mm_castsi128_ps(_mm_slli_epi32(k, 31)); }
template <int Add>
inline F fquad_sign(__m128i k) {
  __m128i kk = Add ? _mm_add_epi32(k, _mm_set1_epi32(Add)) : k;
  return _mm_castsi128_ps(_mm_slli_epi32(_mm_srli_epi32(kk, 1), 31));
}
inline F fsign(F x) { return _mm_and_ps(x, _mm_castsi128_ps(_mm_set1_epi32(INT32_MIN))); }
inline F fabs_(F x) { return _mm_andnot_ps(_mm_castsi128_ps(_mm_set1_epi32(INT32_MIN)), x); }

template <int S>
inline F cos_f(F x) {
  auto q = reduce_f<S>(fabs_(x));
  F s, c;
  sincos_f<S>(q, s, c);
  return _mm_xor_ps(_mm_blendv_ps(c, s, fodd(q.k)), fquad_sign<1>(q.k));
}
template <int S>
inline void sincos2_f(F x, F &ys, F &yc) {
  auto q = reduce_f<S>(fabs_(x));
  F s, c;
  sincos_f<S>(q, s, c);
  F odd = fodd(q.k);
  ys = _mm_xor_ps(_mm_blendv_ps(s, c, odd), _mm_xor_ps(fquad_sign<0>(q.k), fsign(x)));
  yc = _mm_xor_ps(_mm_blendv_ps(c, s, odd), fquad_sign<1>(q.k));
}

// ---- Sin and Cos, LA and EP: reduction by pi, one polynomial ------------------
// sin x = (-1)^k sin r with r = |x| - k pi, and cos x = (-1)^(j+1) sin r with
// r = |x| - (2j + 1) pi/2, |r| <= pi/2: one odd polynomial per lane instead
// of both and a blend.  The longer interval costs accuracy in the final sum
// (the polynomial part reaches 0.57 of the result next to pi/2), which the
// LA and EP bounds absorb; HA, the EP cosine and the pair/tangent kernels
// keep the quarter-turn reduction.  The same pieces of pi/2 serve, multiplied by
// m = 2k or 2j + 1, which stays below 2^21 (double) or 2^28 (float).
// sin r = r + r z P(z) minimax on |r| <= pi/2 + 2^-11, relative error:
//   8 terms 2^-60.7 (double LA), 5 terms 2^-34.5 (double EP),
//   4 terms 2^-26.5 (float LA), 3 terms 2^-19 (float EP).
constexpr double kSinH3[] = {-0x1.55516f6a69a24p-3, 0x1.10708097d30f4p-7, -0x1.8472a704b0786p-13};
constexpr double kSinH4[] = {-0x1.55554dd3d1833p-3, 0x1.110ef93a9ee80p-7, -0x1.9f71ad9b52d04p-13,
                             0x1.5da5a19ce24f9p-19};
constexpr double kSinH5[] = {-0x1.5555554bc9f7fp-3, 0x1.11110cf4d87dcp-7, -0x1.a017f74878e43p-13,
                             0x1.71720bcc6cd1dp-19, -0x1.9a67f3381ba00p-26};
constexpr double kSinH8[] = {-0x1.5555555555555p-3, 0x1.11111111110dbp-7, -0x1.a01a01a015a65p-13,
                             0x1.71de3a52e1c9ap-19, -0x1.ae6454e9449f0p-26, 0x1.6123d06614c54p-33,
                             -0x1.ae43fea270b6bp-41, 0x1.883696831b900p-49};

// r for m = 2k (Cos false) or 2j + 1 (Cos true); kd holds k or j in its low
// bits.  Pieces: 4 for double, 3 for float LA, 2 for float EP.
template <bool Cos, bool Float, int S>
inline D reduce_half_turn(D ax, D &kd) {
  const D shifter = set(0x1.8p52);
  D t = mul(ax, set(0x1.45f306dc9c883p-2));  // 1/pi
  if constexpr (Cos) t = sub(t, set(0.5));
  kd = add(t, shifter);
  // double: j by rounding t, off the shifter's chain (as in reduce)
  D jf;
  if constexpr (Float)
    jf = sub(kd, shifter);
  else
    jf = _mm_round_pd(t, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  D m = add(jf, jf);
  if constexpr (Cos) m = add(m, set(1.0));
  if constexpr (!Float) {
    return sub(sub(sub(sub(ax, mul(m, set(Split32::c1))), mul(m, set(Split32::c2))),
                   mul(m, set(Split32::c3))),
               mul(m, set(Split32::c4)));
  } else {
    D a = sub(ax, mul(m, set(Split24::c1)));
    if constexpr (S == 2) return sub(a, mul(m, set(-0x1.777a5cf72cecep-25)));
    return sub(sub(a, mul(m, set(Split24::c2))), mul(m, set(-0x1.ee59d9cceba40p-50)));
  }
}

template <bool Cos, int S>
inline D sin_cos_half_d(D x) {
  D kd;
  D r = reduce_half_turn<Cos, false, S>(abs_of(x), kd);
  D z = mul(r, r);
  D v;
  if constexpr (S == 2)
    v = add(r, mul(mul(r, z), estrin5(z, kSinH5)));
  else
    v = add(r, mul(mul(r, z), estrin8(z, kSinH8)));
  __m128i k = _mm_castpd_si128(kd);
  if constexpr (Cos) {
    k = _mm_add_epi64(k, _mm_set1_epi64x(1));
    return _mm_xor_pd(v, _mm_castsi128_pd(_mm_slli_epi64(k, 63)));
  } else {
    return _mm_xor_pd(v, _mm_xor_pd(_mm_castsi128_pd(_mm_slli_epi64(k, 63)), sign_of(x)));
  }
}

// The float half-turn finish: sin of the reduced r by its odd polynomial,
// the sign from k's parity (Cos: k + 1's) and, for Sin, from x.
template <bool Cos, int S>
[[gnu::always_inline]] inline F half_turn_finish_f(F r, __m128i k, F x) {
  F z = _mm_mul_ps(r, r);
  F p = S == 2 ? fhorner<3>(z, kSinH3) : fhorner<4>(z, kSinH4);
  F v = _mm_add_ps(r, _mm_mul_ps(_mm_mul_ps(r, z), p));
  if constexpr (Cos) {
    k = _mm_add_epi32(k, _mm_set1_epi32(1));
    return _mm_xor_ps(v, _mm_castsi128_ps(_mm_slli_epi32(k, 31)));
  } else {
    return _mm_xor_ps(v, _mm_xor_ps(_mm_castsi128_ps(_mm_slli_epi32(k, 31)), fsign(x)));
  }
}

template <bool Cos, int S>
inline F sin_cos_half_f(F x) {
  F ax = fabs_(x);
  D k0, k1;
  D r0 = reduce_half_turn<Cos, true, S>(_mm_cvtps_pd(ax), k0);
  D r1 = reduce_half_turn<Cos, true, S>(_mm_cvtps_pd(_mm_movehl_ps(ax, ax)), k1);
  F r = _mm_movelh_ps(_mm_cvtpd_ps(r0), _mm_cvtpd_ps(r1));
  __m128i k = _mm_castps_si128(
      _mm_shuffle_ps(_mm_castpd_ps(k0), _mm_castpd_ps(k1), _MM_SHUFFLE(2, 0, 2, 0)));
  return half_turn_finish_f<Cos, S>(r, k, x);
}

// ---- float LA and EP below 2^12: reduction in float --------------------------
// For |x| < 2^12 the whole computation stays on four float lanes.  pi/2 in
// three float pieces, the first two of 12 bits: the multiplier m (k, 2k or
// 2j + 1) stays below 2^12, so m * c0 and m * c1 are exact and |x| - m * c0
// is exact; when r is small the later subtractions cancel exactly
// (Sterbenz), otherwise their roundings are small against r.  The pieces
// hold 48 bits of pi/2, which a sweep of every float below the bound shows
// to be enough for the nearest approaches to multiples of pi/2 there (the
// double-reduced kernels need 2^28; a float reduction to that bound would
// need far more pieces).  Lanes at or above the bound take the reduction in
// double below: each lane's method follows from its own value, so the
// result of an element never depends on its neighbours; the double path is
// only computed for registers that hold such a lane.
struct FSplit12 {
  static constexpr float c0 = 0x1.922p+0f;
  static constexpr float c1 = -0x1.2aep-18f;
  static constexpr float c2 = -0x1.de973ep-31f;
};
// lanes with |x| >= 2^12 (and infinities, NaNs), on the bit patterns
inline F fbig(F x) {
  __m128i ab = _mm_and_si128(_mm_castps_si128(x), _mm_set1_epi32(INT32_MAX));
  return _mm_castsi128_ps(_mm_cmpgt_epi32(ab, _mm_set1_epi32(0x457FFFFF)));
}
inline F fsub_mul(F a, F m, float c) { return _mm_sub_ps(a, _mm_mul_ps(m, fset(c))); }

// Half turn (Sin LA/EP, Cos LA): as sin_cos_half_f with r formed in float.
template <bool Cos, int S>
[[gnu::always_inline]] inline F sin_cos_half_ff(F x) {
  const F shifter = fset(0x1.8p23f);
  F ax = fabs_(x);
  F t = _mm_mul_ps(ax, fset(0x1.45f306p-2f));  // 1/pi
  if constexpr (Cos) t = _mm_sub_ps(t, fset(0.5f));
  F kd = _mm_add_ps(t, shifter);
  __m128i k = _mm_castps_si128(kd);
  F jf = _mm_sub_ps(kd, shifter);
  F m = _mm_add_ps(jf, jf);
  if constexpr (Cos) m = _mm_add_ps(m, fset(1.0f));
  F r = fsub_mul(fsub_mul(fsub_mul(ax, m, FSplit12::c0), m, FSplit12::c1), m, FSplit12::c2);
  return half_turn_finish_f<Cos, S>(r, k, x);
}

// Quarter turn in float: r = |x| - k pi/2.  With Tail the second
// subtraction's rounding error is kept (Fast2Sum: |a| >= |k c1|) and r comes
// back as r + rl, rounded once.
template <bool Tail>
[[gnu::always_inline]] inline ReducedF reduce_ff(F ax, F &rl) {
  const F shifter = fset(0x1.8p23f);
  ReducedF o;
  F kd = _mm_add_ps(_mm_mul_ps(ax, fset(0x1.45f306p-1f)), shifter);  // 2/pi
  o.k = _mm_castps_si128(kd);
  F kf = _mm_sub_ps(kd, shifter);
  F a = fsub_mul(ax, kf, FSplit12::c0);
  F k1 = _mm_mul_ps(kf, fset(FSplit12::c1));
  if constexpr (!Tail) {
    o.r = fsub_mul(_mm_sub_ps(a, k1), kf, FSplit12::c2);
  } else {
    F hi = _mm_sub_ps(a, k1);
    F e = _mm_sub_ps(_mm_sub_ps(a, hi), k1);
    F t = fsub_mul(e, kf, FSplit12::c2);
    o.r = _mm_add_ps(hi, t);
    rl = _mm_add_ps(_mm_sub_ps(hi, o.r), t);
  }
  o.z = _mm_mul_ps(o.r, o.r);
  return o;
}

template <int S>
[[gnu::always_inline]] inline F cos_ff(F x) {
  F rl;
  auto q = reduce_ff<false>(fabs_(x), rl);
  F s, c;
  sincos_f<S>(q, s, c);
  return _mm_xor_ps(_mm_blendv_ps(c, s, fodd(q.k)), fquad_sign<1>(q.k));
}
template <int S>
[[gnu::always_inline]] inline void sincos2_ff(F x, F &ys, F &yc) {
  F rl;
  auto q = reduce_ff<false>(fabs_(x), rl);
  F s, c;
  sincos_f<S>(q, s, c);
  F odd = fodd(q.k);
  ys = _mm_xor_ps(_mm_blendv_ps(s, c, odd), _mm_xor_ps(fquad_sign<0>(q.k), fsign(x)));
  yc = _mm_xor_ps(_mm_blendv_ps(c, s, odd), fquad_sign<1>(q.k));
}

// Tangent: sin r and cos r by the quarter-turn polynomials, one division
// (sin/cos on even k, -cos/sin on odd k).  LA carries r's tail into both
// (sin(r + rl) ~ s + rl, cos(r + rl) ~ c - r rl): the tangent magnifies r's
// relative error by up to pi/2, and with the plain chain the sweep found
// 4.6 ulp; with the tail 3.3.  The float EP slot runs this LA kernel (sTan
// shares LA and EP).
[[gnu::always_inline]] inline F tan_ff(F x) {
  using C = Cfg<float, 0>;
  F rl;
  auto q = reduce_ff<true>(fabs_(x), rl);
  F sp = _mm_mul_ps(_mm_mul_ps(q.r, q.z), fhorner<C::ns>(q.z, C::sin_c()));
  F cp = _mm_mul_ps(_mm_mul_ps(q.z, q.z), fhorner<C::nc>(q.z, C::cos_c()));
  sp = _mm_add_ps(rl, sp);
  cp = _mm_sub_ps(cp, _mm_mul_ps(q.r, rl));
  F s = _mm_add_ps(q.r, sp);
  F c = _mm_add_ps(_mm_sub_ps(fset(1.0f), _mm_mul_ps(fset(0.5f), q.z)), cp);
  F odd = fodd(q.k);
  F n = _mm_blendv_ps(s, _mm_xor_ps(c, fset(-0.0f)), odd);
  F d = _mm_blendv_ps(c, s, odd);
  return _mm_xor_ps(_mm_div_ps(n, d), fsign(x));
}

// The lanes at or above 2^12 of a fast-path result y replaced by the
// double-reduced kernel's (out of line, run only for registers holding one).
template <bool Cos, int S>
[[gnu::noinline]] F slow_half(F x) { return sin_cos_half_f<Cos, S>(x); }
template <int S>
[[gnu::noinline]] F slow_cos(F x) { return cos_f<S>(x); }
[[gnu::noinline]] inline F slow_tan(F x) {
  return on_halves(x, [](D h) { return tan_d<Cfg<float, 0>>(h); });
}
template <int S>
[[gnu::noinline]] void slow_sincos(F x, F &ys, F &yc) { sincos2_f<S>(x, ys, yc); }

template <F (*Slow)(F)>
[[gnu::always_inline]] inline F with_slow(F x, F y) {
  F big = fbig(x);
  if (_mm_movemask_ps(big)) [[unlikely]]
    y = _mm_blendv_ps(y, Slow(x), big);
  return y;
}

// Lanes for the per-element routine: |x| at or beyond the fast-path bound
// (infinities and NaNs included), and with `sub` the nonzero subnormals.
// Tested on the bit patterns so that denormals-are-zero cannot hide them.
template <class T>
inline int off_path(typename V<T>::reg x, bool sub, bool zero = false) {
  using W = V<T>;
  auto ab = W::as_int(W::and_(x, W::absmask()));
  if constexpr (std::is_same_v<T, float>) {
    __m128i m = _mm_cmpgt_epi32(ab, _mm_set1_epi32(0x4D7FFFFF));  // >= 2^28
    if (sub)
      m = _mm_or_si128(m, _mm_and_si128(_mm_cmpgt_epi32(ab, _mm_setzero_si128()),
                                        _mm_cmpgt_epi32(_mm_set1_epi32(0x00800000), ab)));
    return _mm_movemask_ps(_mm_castsi128_ps(m));
  } else {
    __m128i m = _mm_cmpgt_epi64(ab, _mm_set1_epi64x(0x413FFFFFFFFFFFFFll));  // >= 2^21
    if (zero)  // the subnormals and the zeros: one comparison fewer
      m = _mm_or_si128(m, _mm_cmpgt_epi64(_mm_set1_epi64x(0x0010000000000000ll), ab));
    else if (sub)
      m = _mm_or_si128(m, _mm_and_si128(_mm_cmpgt_epi64(ab, _mm_setzero_si128()),
                                        _mm_cmpgt_epi64(_mm_set1_epi64x(0x0010000000000000ll), ab)));
    return _mm_movemask_pd(_mm_castsi128_pd(m));
  }
}

}  // namespace trig_detail

// ---- operations ---------------------------------------------------------------

struct Sin {
  template <class T, int S>
  [[gnu::always_inline]] static trig_detail::Rg<T> vec(trig_detail::Rg<T> x) {
    using C = trig_detail::Cfg<T, S>;
    if constexpr (S != 1 && C::is_float)
      return trig_detail::with_slow<trig_detail::slow_half<false, S>>(
          x, trig_detail::sin_cos_half_ff<false, S>(x));
    else if constexpr (S != 1)
      return trig_detail::sin_cos_half_d<false, S>(x);
    else if constexpr (C::is_float)
      return trig_detail::on_halves(x, [](__m128d h) { return trig_detail::sin_d<C>(h); });
    else
      return trig_detail::sin_cos_ha<false>(x);
  }
  // the double HA sine sends zeros to the per-element routine as well (see
  // sin_cos_ha)
  template <class T, int S>
  static int special(trig_detail::Rg<T> x, trig_detail::Rg<T>) {
    return trig_detail::off_path<T>(x, true, !std::is_same_v<T, float> && S == 1);
  }
  template <class T, int S>
  static T fix(T x, int &code) {
    return elem::Sin::eval<T, S>(x, code);
  }
};

struct Cos {
  template <class T, int S>
  [[gnu::always_inline]] static trig_detail::Rg<T> vec(trig_detail::Rg<T> x) {
    using C = trig_detail::Cfg<T, S>;
    // EP keeps the quarter turn: there cos 0 = 1 exactly, which the half
    // turn's short polynomial would miss (sin r at r = -pi/2)
    if constexpr (S == 0 && C::is_float)
      return trig_detail::with_slow<trig_detail::slow_half<true, S>>(
          x, trig_detail::sin_cos_half_ff<true, S>(x));
    else if constexpr (S == 0)
      return trig_detail::sin_cos_half_d<true, S>(x);
    else if constexpr (S == 2 && C::is_float)
      return trig_detail::with_slow<trig_detail::slow_cos<S>>(x, trig_detail::cos_ff<S>(x));
    else if constexpr (C::is_float)
      return trig_detail::on_halves(x, [](__m128d h) { return trig_detail::cos_d<C>(h); });
    else if constexpr (S == 1)
      return trig_detail::sin_cos_ha<true>(x);
    else
      return trig_detail::cos_d<C>(x);
  }
  // cos of a subnormal is 1 on the fast path, nothing to report
  template <class T, int S>
  static int special(trig_detail::Rg<T> x, trig_detail::Rg<T>) {
    return trig_detail::off_path<T>(x, false);
  }
  template <class T, int S>
  static T fix(T x, int &code) {
    return elem::Cos::eval<T, S>(x, code);
  }
};

struct Tan {
  template <class T, int S>
  [[gnu::always_inline]] static trig_detail::Rg<T> vec(trig_detail::Rg<T> x) {
    using C = trig_detail::Cfg<T, S>;
    if constexpr (C::is_float && S != 1)
      return trig_detail::with_slow<trig_detail::slow_tan>(x, trig_detail::tan_ff(x));
    else if constexpr (C::is_float)
      return trig_detail::on_halves(x, [](__m128d h) { return trig_detail::tan_d<C>(h); });
    else if constexpr (S == 0)
      return trig_detail::tan_d<trig_detail::PairReduction<C>>(x);
    else
      return trig_detail::tan_d<C>(x);
  }
  template <class T, int S>
  static int special(trig_detail::Rg<T> x, trig_detail::Rg<T>) {
    return trig_detail::off_path<T>(x, true);
  }
  template <class T, int S>
  static T fix(T x, int &code) {
    return elem::Tan::eval<T, S>(x, code);
  }
};

// Two results per argument (shape R2): sin into the first vector, cos into
// the second; one reduction serves both.
struct SinCos {
  template <class T, int S>
  [[gnu::always_inline]] static void vec2(trig_detail::Rg<T> x, trig_detail::Rg<T> &ys, trig_detail::Rg<T> &yc) {
    using C = trig_detail::Cfg<T, S>;
    if constexpr (C::is_float && S != 1) {
      trig_detail::sincos2_ff<S>(x, ys, yc);
      __m128 big = trig_detail::fbig(x);
      if (_mm_movemask_ps(big)) [[unlikely]] {
        __m128 s2, c2;
        trig_detail::slow_sincos<S>(x, s2, c2);
        ys = _mm_blendv_ps(ys, s2, big);
        yc = _mm_blendv_ps(yc, c2, big);
      }
    } else if constexpr (C::is_float) {
      __m128d s0, c0, s1, c1;
      trig_detail::sincos_d<C>(_mm_cvtps_pd(x), s0, c0);
      trig_detail::sincos_d<C>(_mm_cvtps_pd(_mm_movehl_ps(x, x)), s1, c1);
      ys = _mm_movelh_ps(_mm_cvtpd_ps(s0), _mm_cvtpd_ps(s1));
      yc = _mm_movelh_ps(_mm_cvtpd_ps(c0), _mm_cvtpd_ps(c1));
    } else if constexpr (S == 1) {
      trig_detail::sincos_d<trig_detail::HaCfg>(x, ys, yc);
    } else {
      trig_detail::sincos_d<C>(x, ys, yc);
    }
  }
  template <class T, int S>
  static int special(trig_detail::Rg<T> x, trig_detail::Rg<T>) {
    return trig_detail::off_path<T>(x, true);
  }
  template <class T, int S>
  static void fix2(T x, T &ys, T &yc, int &code) {
    elem::SinCos::eval<T, S>(x, ys, yc, code);
  }
};

}  // namespace qor::vm::vec
