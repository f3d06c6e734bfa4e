// SIMD kernels of the exponential family: Exp (three kernels per type), Exp2,
// Exp10 and Expm1 (one kernel each, accurate to 1 ulp).
//
// All of them reduce the same way: k = round(x N / ln b) by adding and
// subtracting a shifter (1.5 * 2^23 or 1.5 * 2^52, which leaves k in the low
// bits of the sum's bit pattern), a small remainder r with e^x = 2^(k/N) e^r,
// a short polynomial for e^r and, when N > 1, a table of 2^(j/N) for
// j = k mod N; the power 2^(k div N) is added to the result's exponent field
// as an integer.  Every kernel keeps that exponent addition inside the normal
// range through its fast-path test; the other lanes (overflow, underflow,
// subnormal results, infinities, NaNs) go one by one through `fix`.
//
//   sExp  EP  t = x log2(e), n = round(t), 2^f on f = t - n by a cubic.
//        LA  n as in EP, r = x - n ln2_hi - n ln2_lo, degree-5 polynomial.
//        HA  j = round(x 128/ln 2), r = x - j c_hi + j c_lo (ln2/128 =
//            c_hi - c_lo), e^r = 1 + r + r^2/2, times 2^(j mod 128) / 128 from a
//            table of (hi, lo) float pairs: hi + (lo + hi q) with q = r + r^2/2
//            keeps the table's rounding error out of the result (0.51 ulp
//            where a single-float table would give up to 1 ulp).  Sixteen
//            elements per loop trip (unroll 4) to overlap the table loads.
//        fix the scalar routine shared by the three kernels: overflow above
//            88.72283172607422 (+inf, code 3), +0 and code 4 below
//            -103.97207641601562, otherwise the HA reduction and table;
//            subnormal results (x < -87.33654022216797, code 4) are built as
//            p 2^(n+60) 2^-60 in double so that the only further rounding
//            is the conversion to float, and n = 128 as p 2^127 2.
//   dExp  LA  N = 1024, table of doubles, 1 + r + c2 r^2 + c3 r^3.
//        HA  N = 64, (value, remainder) pairs, degree-5 polynomial.
//        EP  N = 128, table of doubles, one-part ln2/128, 1 + r + c2 r^2.
//        fix the HA algorithm with the bounds 709.782712893384 (+inf, code
//            3) and -745.1332191019411 (+0, code 4); results below the normal
//            range are scaled in two steps (one rounding) and reported as 4.
//   Exp2  t = 64 x (d) or 128 x (s) is exact, so r = (t - k) ln2/N has only
//        the rounding of one product: the HA tail of Exp.
//   Exp10 k = round(x N log2(10)); r = (x - k c_hi - k c_lo) ln 10, with
//        c = log10(2)/N split so that k c_hi is exact: the error of r is then
//        relative to r itself and not to x.
//   Expm1 the HA tail of dExp gives e^x = h + l (h = 2^n T_hi); the -1 is added
//        to h by an exact two-sum before l, so that there is no cancellation
//        error, and near 0 (k = 0, h = 1) the result is the polynomial q
//        itself.  The sign is copied from x (expm1 keeps the sign, and a -0
//        argument must give -0).  Float runs the double algorithm on
//        converted lanes and rounds once.  Large negative arguments are
//        clamped to -100 (e^-100 - 1 rounds to -1 in both types), so the
//        saturation stays on the fast path.
//
// Exp2, Exp10 and Expm1 fix their off-path lanes with the per-element
// routines, which give the special values and codes of every function.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "vm/kernels/core/driver.h"
#include "vm/kernels/elem/elem.h"

namespace qor::vm::vec {

namespace expk {

#include "vm/kernels/exp/exp_tables.inc"

using simd::V;
using W4 = V<float>;
using W2 = V<double>;
using F4 = __m128;
using D2 = __m128d;
using I4 = __m128i;

inline float fl(uint32_t b) { return simd::from_bits<float>(b); }
inline double db(uint64_t b) { return simd::from_bits<double>(b); }
inline F4 cf(uint32_t b) { return _mm_castsi128_ps(_mm_set1_epi32(int(b))); }
inline D2 cd(uint64_t b) { return _mm_castsi128_pd(_mm_set1_epi64x(int64_t(b))); }

// ---- single-precision constants (bit patterns) ----------------------------
inline constexpr uint32_t kLog2e = 0x3FB8AA3B;      // log2(e)
inline constexpr uint32_t k128OverLn2 = 0x4338AA3B; // 128 / ln 2
inline constexpr uint32_t kShiftF = 0x4B400000;     // 1.5 * 2^23
inline constexpr uint32_t kFastF = 0x42AEAC4F;      // |x| bound of the fast path
inline constexpr uint32_t kLn2Hi = 0x3F317200, kLn2Lo = 0x35BFBE8E;
inline constexpr uint32_t kC128Hi = 0x3BB18000, kC128Lo = 0x35DE8083;  // ln2/128 = hi - lo

// ---- double-precision constants -------------------------------------------
inline constexpr uint64_t kShiftD = 0x4338000000000000;  // 1.5 * 2^52
inline constexpr uint64_t kFastD = 0x4086232A00000000;   // |x| bound (high word 0x4086232A)

// Lanes with abs(x)'s bit pattern at or above `bound` (NaN and infinity
// included), compared as integers.
inline int off_path(F4 x, uint32_t bound) {
  I4 a = _mm_and_si128(_mm_castps_si128(x), _mm_set1_epi32(0x7FFFFFFF));
  return _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpgt_epi32(a, _mm_set1_epi32(int(bound - 1)))));
}
inline int off_path(D2 x, uint64_t bound) {
  I4 a = _mm_and_si128(_mm_castpd_si128(x), _mm_set1_epi64x(0x7FFFFFFFFFFFFFFF));
  return _mm_movemask_pd(
      _mm_castsi128_pd(_mm_cmpgt_epi64(a, _mm_set1_epi64x(int64_t(bound - 1)))));
}

// y 2^(k div N), k in the low bits of the shifted sum s (N = 2^logN).
template <int logN>
inline F4 scale(F4 y, F4 s) {
  I4 e = W4::shl<23>(W4::shr<logN>(_mm_castps_si128(s)));
  return _mm_castsi128_ps(_mm_add_epi32(_mm_castps_si128(y), e));
}
template <int logN>
inline D2 scale(D2 y, D2 s) {
  I4 e = W2::shl<52>(W2::shr<logN>(_mm_castpd_si128(s)));
  return _mm_castsi128_pd(_mm_add_epi64(_mm_castpd_si128(y), e));
}

// Table rows for the four float lanes (index k mod 128 from s) as hi and lo.
inline void rows_f128(F4 s, F4 &hi, F4 &lo) {
  // two indices per general register: fewer extractions on the vector units
  const uint64_t j01 = uint64_t(_mm_cvtsi128_si64(_mm_castps_si128(s)));
  const uint64_t j23 = uint64_t(_mm_extract_epi64(_mm_castps_si128(s), 1));
  const float *t = exp_f_128;
  auto pair = [&](uint64_t idx) {
    return _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double *>(t + 2 * (idx & 127))));
  };
  F4 a = _mm_movelh_ps(pair(j01), pair(j01 >> 32));
  F4 b = _mm_movelh_ps(pair(j23), pair(j23 >> 32));
  hi = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
  lo = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
}
// Table entries for the two double lanes (index k mod N from s).
template <int N>
inline D2 rows_d(const double *t, D2 s) {
  I4 j = _mm_and_si128(_mm_castpd_si128(s), _mm_set1_epi64x(N - 1));
  return _mm_loadh_pd(_mm_load_sd(t + _mm_cvtsi128_si32(j)), t + _mm_extract_epi32(j, 2));
}
// (value, remainder) pairs of exp_d_64 for the two double lanes.
inline void rows_d64(D2 s, D2 &hi, D2 &lo) {
  I4 j = _mm_and_si128(_mm_castpd_si128(s), _mm_set1_epi64x(63));
  D2 p0 = _mm_load_pd(exp_d_64 + 2 * _mm_cvtsi128_si32(j));
  D2 p1 = _mm_load_pd(exp_d_64 + 2 * _mm_extract_epi32(j, 2));
  hi = _mm_unpacklo_pd(p0, p1);
  lo = _mm_unpackhi_pd(p0, p1);
}

// ---- shared HA tails -------------------------------------------------------

// Float: 2^(k/128) e^r scaled, k in s; q = e^r - 1 to second (or third) order.
inline F4 tail_f128(F4 s, F4 q) {
  F4 hi, lo;
  rows_f128(s, hi, lo);
  F4 y = _mm_add_ps(hi, _mm_add_ps(lo, _mm_mul_ps(hi, q)));
  return scale<7>(y, s);
}

// Double, N = 64: e^r - 1 by the degree-5 polynomial.
inline D2 poly_d64(D2 r) {
  const D2 c2 = cd(0x3FDFFFFFFFFFDB3B), c3 = cd(0x3FC555555555653E),
           c4 = cd(0x3FA555573F218B93), c5 = cd(0x3F8111112D9F549B);
  D2 r2 = _mm_mul_pd(r, r);
  // (c2 + c3 r) + r^2 (c4 + c5 r): two short chains instead of one long one
  D2 a = _mm_add_pd(c2, _mm_mul_pd(c3, r));
  D2 b = _mm_add_pd(c4, _mm_mul_pd(c5, r));
  return _mm_add_pd(r, _mm_mul_pd(r2, _mm_add_pd(a, _mm_mul_pd(r2, b))));
}
// Reduction for N = 64: s = x 64/ln2 + shifter, r = x - k hi - k lo.
inline D2 reduce_d64(D2 x, D2 &s) {
  const D2 sh = cd(kShiftD);
  s = _mm_add_pd(_mm_mul_pd(x, cd(0x40571547652B82FE)), sh);
  D2 k = _mm_sub_pd(s, sh);
  D2 r = _mm_sub_pd(x, _mm_mul_pd(k, cd(0x3F862E42FEFA0000)));
  return _mm_sub_pd(r, _mm_mul_pd(k, cd(0x3D1CF79ABC9E3B3A)));
}
// The unscaled pieces of 2^(k/64) e^r: value and remainder of the table times
// (1 + q), as hi + lo with hi the table value.
inline D2 tail_d64(D2 s, D2 r) {
  D2 th, tl;
  rows_d64(s, th, tl);
  D2 y = _mm_add_pd(th, _mm_add_pd(tl, _mm_mul_pd(th, poly_d64(r))));
  return scale<6>(y, s);
}

// ---- the scalar routines of Exp -------------------------------------------

// Single precision, for the lanes outside the fast path of every sExp kernel.
inline float sexp_fix(float x, int &code) {
  const uint32_t b = simd::bits_of(x);
  if ((b & 0x7F800000u) == 0x7F800000u) {
    if (b == 0xFF800000u) return 0.0f;  // e^-inf = +0, not an underflow
    return x * x;                       // +inf stays, NaN is quieted
  }
  if (x > fl(0x42B17217)) {  // 88.72283172607422: e^x above the largest float
    code = 3;
    return fl(0x7F800000);
  }
  if (x < fl(0xC2CFF1B4)) {  // -103.97207641601562: e^x below half the least subnormal
    code = 4;
    return 0.0f;
  }
  // The reduction and polynomial are those of the HA kernel: this routine
  // serves the HA slot too, and a degree-5 polynomial in float (with its
  // constant term 1 + 2^-23) is 2.5 ulp off just below the overflow bound.
  const float sh = fl(kShiftF);
  const float j = (x * fl(k128OverLn2) + sh) - sh;
  const float r = (x - j * fl(kC128Hi)) + j * fl(kC128Lo);
  const float q = r + r * r * 0.5f;
  const int ji = int(j);
  const float hi = exp_f_128[2 * (ji & 127)], lo = exp_f_128[2 * (ji & 127) + 1];
  const float p = hi + (lo + hi * q);
  const int ni = ji >> 7;  // floor(j / 128)
  if (x < fl(0xC2AEAC4F)) {  // -87.33654022216797: subnormal result
    // p 2^(n+60) 2^-60, in double: the scaling is exact and the conversion
    // to float is the only rounding after the table step (a float p would
    // round twice, up to 0.75 ulp).
    code = 4;
    const double pd = double(hi) + (double(lo) + double(hi) * double(q));
    return float((pd * db(uint64_t(ni + 60 + 1023) << 52)) * db(uint64_t(1023 - 60) << 52));
  }
  if (ni + 127 >= 1 && ni + 127 <= 254) return p * fl(uint32_t(ni + 127) << 23);
  return (p * fl(uint32_t(ni + 126) << 23)) * 2.0f;
}

// Double precision, for the lanes outside the fast path of every dExp kernel.
inline double dexp_fix(double x, int &code) {
  const uint64_t b = simd::bits_of(x);
  if ((b & 0x7FF0000000000000ull) == 0x7FF0000000000000ull) {
    if (b == 0xFFF0000000000000ull) return 0.0;
    return x * x;
  }
  if (x > db(0x40862E42FEFA39EF)) {  // 709.782712893384
    code = 3;
    return db(0x7FF0000000000000);
  }
  if (x < db(0xC0874910D52D3051)) {  // -745.1332191019411
    code = 4;
    return 0.0;
  }
  D2 s;
  D2 r = reduce_d64(_mm_set_sd(x), s);
  D2 th, tl;
  rows_d64(s, th, tl);
  const double y =
      _mm_cvtsd_f64(_mm_add_pd(th, _mm_add_pd(tl, _mm_mul_pd(th, poly_d64(r)))));
  // the shifted sum holds 2^51 + k in its low 52 bits; n = floor(k / 64)
  const int64_t k = int64_t(simd::bits_of(_mm_cvtsd_f64(s)) & ((uint64_t(1) << 52) - 1)) -
                    (int64_t(1) << 51);
  const int64_t n = k >> 6;
  double v;
  if (n > 1023)
    v = (y * db(uint64_t(n - 1 + 1023) << 52)) * 2.0;
  else if (n >= -1022)
    v = y * db(uint64_t(n + 1023) << 52);
  else  // two steps, the second one rounds
    v = (y * db(uint64_t(n + 600 + 1023) << 52)) * db(uint64_t(1023 - 600) << 52);
  if (v < std::numeric_limits<double>::min()) code = 4;
  return v;
}

}  // namespace expk

using simd::V;
using expk::D2;

// ---- Exp ---------------------------------------------------------------------

struct SExpEP {
  template <class T, int S> static __m128 vec(__m128 x) {
    using namespace expk;
    const F4 sh = cf(kShiftF);
    F4 t = _mm_mul_ps(x, cf(kLog2e));
    F4 s = _mm_add_ps(t, sh);
    F4 f = _mm_sub_ps(t, _mm_sub_ps(s, sh));
    F4 p = _mm_add_ps(cf(0x3F317422), _mm_mul_ps(f, _mm_add_ps(cf(0x3E77D66A), _mm_mul_ps(f, cf(0x3D63582B)))));
    p = _mm_add_ps(_mm_set1_ps(1.0f), _mm_mul_ps(f, p));
    return scale<0>(p, s);
  }
  template <class T, int S> static int special(__m128 x, __m128) { return expk::off_path(x, expk::kFastF); }
  template <class T, int S> static float fix(float x, int &code) { return expk::sexp_fix(x, code); }
};

struct SExpLA {
  template <class T, int S> static __m128 vec(__m128 x) {
    using namespace expk;
    const F4 sh = cf(kShiftF);
    F4 s = _mm_add_ps(_mm_mul_ps(x, cf(kLog2e)), sh);
    F4 n = _mm_sub_ps(s, sh);
    F4 r = _mm_sub_ps(_mm_sub_ps(x, _mm_mul_ps(n, cf(kLn2Hi))), _mm_mul_ps(n, cf(kLn2Lo)));
    F4 p = _mm_add_ps(cf(0x3D2B8392), _mm_mul_ps(r, cf(0x3C07D9FE)));
    p = _mm_add_ps(cf(0x3E2AACAC), _mm_mul_ps(r, p));
    p = _mm_add_ps(cf(0x3EFFFF34), _mm_mul_ps(r, p));
    p = _mm_add_ps(cf(0x3F7FFFFE), _mm_mul_ps(r, p));
    p = _mm_add_ps(_mm_set1_ps(1.0f), _mm_mul_ps(r, p));
    return scale<0>(p, s);
  }
  template <class T, int S> static int special(__m128 x, __m128) { return expk::off_path(x, expk::kFastF); }
  template <class T, int S> static float fix(float x, int &code) { return expk::sexp_fix(x, code); }
};

struct SExpHA {
  static constexpr int unroll = 4;
  template <class T, int S> static __m128 vec(__m128 x) {
    using namespace expk;
    const F4 sh = cf(kShiftF);
    F4 s = _mm_add_ps(_mm_mul_ps(x, cf(k128OverLn2)), sh);
    F4 j = _mm_sub_ps(s, sh);
    F4 r = _mm_add_ps(_mm_sub_ps(x, _mm_mul_ps(j, cf(kC128Hi))), _mm_mul_ps(j, cf(kC128Lo)));
    F4 q = _mm_add_ps(r, _mm_mul_ps(_mm_mul_ps(r, r), _mm_set1_ps(0.5f)));
    return tail_f128(s, q);
  }
  template <class T, int S> static int special(__m128 x, __m128) { return expk::off_path(x, expk::kFastF); }
  template <class T, int S> static float fix(float x, int &code) { return expk::sexp_fix(x, code); }
};

struct DExpLA {
  template <class T, int S> static __m128d vec(__m128d x) {
    using namespace expk;
    const D2 sh = cd(kShiftD);
    D2 s = _mm_add_pd(_mm_mul_pd(x, cd(0x40971547652B82FE)), sh);
    D2 k = _mm_sub_pd(s, sh);
    D2 r = _mm_sub_pd(_mm_sub_pd(x, _mm_mul_pd(k, cd(0x3F462E42FEC00000))),
                      _mm_mul_pd(k, cd(0x3D5D1CF79ABC9E3B)));
    D2 q = _mm_add_pd(cd(0x3FE0000001EBFBE0), _mm_mul_pd(r, cd(0x3FC5555555555556)));
    q = _mm_add_pd(r, _mm_mul_pd(_mm_mul_pd(r, r), q));
    D2 t = rows_d<1024>(exp_d_1024, s);
    return scale<10>(_mm_add_pd(t, _mm_mul_pd(t, q)), s);
  }
  template <class T, int S> static int special(__m128d x, __m128d) { return expk::off_path(x, expk::kFastD); }
  template <class T, int S> static double fix(double x, int &code) { return expk::dexp_fix(x, code); }
};

struct DExpHA {
  template <class T, int S> static __m128d vec(__m128d x) {
    using namespace expk;
    D2 s;
    D2 r = reduce_d64(x, s);
    return tail_d64(s, r);
  }
  template <class T, int S> static int special(__m128d x, __m128d) { return expk::off_path(x, expk::kFastD); }
  template <class T, int S> static double fix(double x, int &code) { return expk::dexp_fix(x, code); }
};

struct DExpEP {
  template <class T, int S> static __m128d vec(__m128d x) {
    using namespace expk;
    const D2 sh = cd(kShiftD);
    D2 s = _mm_add_pd(_mm_mul_pd(x, cd(0x40671547652B82FE)), sh);
    D2 k = _mm_sub_pd(s, sh);
    D2 r = _mm_sub_pd(x, _mm_mul_pd(k, cd(0x3F762E42FEFA39EF)));
    D2 q = _mm_add_pd(r, _mm_mul_pd(_mm_mul_pd(r, r), cd(0x3FDFFFFC2808F7E8)));
    D2 t = rows_d<128>(exp_d_128, s);
    return scale<7>(_mm_add_pd(t, _mm_mul_pd(t, q)), s);
  }
  template <class T, int S> static int special(__m128d x, __m128d) { return expk::off_path(x, expk::kFastD); }
  template <class T, int S> static double fix(double x, int &code) { return expk::dexp_fix(x, code); }
};

struct Exp {
  template <class T, int S>
  using pick = std::conditional_t<
      std::is_same_v<T, float>,
      std::conditional_t<S == 0, SExpLA, std::conditional_t<S == 1, SExpHA, SExpEP>>,
      std::conditional_t<S == 0, DExpLA, std::conditional_t<S == 1, DExpHA, DExpEP>>>;
};

// ---- Exp2 ----------------------------------------------------------------------

struct Exp2 {
  template <class T, int S> static auto vec(typename V<T>::reg x) {
    using namespace expk;
    if constexpr (std::is_same_v<T, float>) {
      const F4 sh = cf(kShiftF);
      F4 t = _mm_mul_ps(x, _mm_set1_ps(128.0f));  // exact
      F4 s = _mm_add_ps(t, sh);
      F4 r = _mm_mul_ps(_mm_sub_ps(t, _mm_sub_ps(s, sh)), cf(0x3BB17218));  // ln2/128
      F4 q = _mm_add_ps(r, _mm_mul_ps(_mm_mul_ps(r, r),
                                      _mm_add_ps(_mm_set1_ps(0.5f), _mm_mul_ps(r, _mm_set1_ps(1.0f / 6)))));
      return tail_f128(s, q);
    } else {
      const D2 sh = cd(kShiftD);
      D2 t = _mm_mul_pd(x, _mm_set1_pd(64.0));  // exact
      D2 s = _mm_add_pd(t, sh);
      D2 r = _mm_mul_pd(_mm_sub_pd(t, _mm_sub_pd(s, sh)), cd(0x3F862E42FEFA39EF));  // ln2/64
      return tail_d64(s, r);
    }
  }
  // 2^x stays normal for |x| < 126 (float) and |x| < 1022 (double).
  template <class T, int S> static int special(typename V<T>::reg x, typename V<T>::reg) {
    if constexpr (std::is_same_v<T, float>)
      return expk::off_path(x, 0x42FC0000u);
    else
      return expk::off_path(x, 0x408FF00000000000ull);
  }
  template <class T, int S> static T fix(T x, int &code) {
    return elem::Exp2::eval<T, S>(x, code);
  }
};

// ---- Exp10 ---------------------------------------------------------------------

struct Exp10 {
  template <class T, int S> static auto vec(typename V<T>::reg x) {
    using namespace expk;
    if constexpr (std::is_same_v<T, float>) {
      const F4 sh = cf(kShiftF);
      F4 s = _mm_add_ps(_mm_mul_ps(x, cf(0x43D49A78)), sh);  // 128 log2(10)
      F4 k = _mm_sub_ps(s, sh);
      // log10(2)/128 = hi + lo, hi with 10 significant bits (k hi is exact)
      F4 r = _mm_sub_ps(_mm_sub_ps(x, _mm_mul_ps(k, cf(0x3B1A4000))), _mm_mul_ps(k, cf(0xB5FB2BD8)));
      r = _mm_mul_ps(r, cf(0x40135D8E));  // ln 10
      F4 q = _mm_add_ps(r, _mm_mul_ps(_mm_mul_ps(r, r),
                                      _mm_add_ps(_mm_set1_ps(0.5f), _mm_mul_ps(r, _mm_set1_ps(1.0f / 6)))));
      return tail_f128(s, q);
    } else {
      const D2 sh = cd(kShiftD);
      D2 s = _mm_add_pd(_mm_mul_pd(x, cd(0x406A934F0979A371)), sh);  // 64 log2(10)
      D2 k = _mm_sub_pd(s, sh);
      // log10(2)/64 = hi + lo, hi with 32 significant bits (k hi is exact)
      D2 r = _mm_sub_pd(_mm_sub_pd(x, _mm_mul_pd(k, cd(0x3F73441350A00000))),
                        _mm_mul_pd(k, cd(0xBD20C0219DC1DA99)));
      r = _mm_mul_pd(r, cd(0x40026BB1BBB55516));  // ln 10
      return tail_d64(s, r);
    }
  }
  // 10^x stays normal for |x| < 37.5 (float) and |x| < 307 (double).
  template <class T, int S> static int special(typename V<T>::reg x, typename V<T>::reg) {
    if constexpr (std::is_same_v<T, float>)
      return expk::off_path(x, 0x42160000u);
    else
      return expk::off_path(x, 0x4073300000000000ull);
  }
  template <class T, int S> static T fix(T x, int &code) {
    return elem::Exp10::eval<T, S>(x, code);
  }
};

// ---- Expm1 ---------------------------------------------------------------------

namespace expk {
// e^x - 1 for |x| < 708.39 or x below that (clamped), as a double.
//
// With `near0` (the double kernel) arguments below ln2/16 in magnitude keep
// k = 0, so that the result is the polynomial in r = x itself, and the
// polynomial is Taylor's to degree 9 (relative truncation below 2^-62 on
// |r| < ln2/16).  Next to the first table points the table path's l carries
// about two of its own ulps of rounding, close to one ulp of the result
// (measured 1.7 ulp when k = +-1 used the table); from k = +-5 on, l is at
// most an eighth of the result's ulp.  The float kernel, which rounds the
// double once more, takes every k from the table and a degree-6 polynomial.
template <bool near0>
inline D2 expm1_d(D2 x) {
  const D2 sh = cd(kShiftD);
  D2 xc = _mm_max_pd(x, _mm_set1_pd(-100.0));
  D2 s = _mm_add_pd(_mm_mul_pd(xc, cd(0x40571547652B82FE)), sh);
  if constexpr (near0) {
    D2 small = _mm_cmplt_pd(_mm_and_pd(x, _mm_castsi128_pd(_mm_set1_epi64x(0x7FFFFFFFFFFFFFFF))),
                            _mm_set1_pd(0.04332169878499658));  // ln2/16
    s = _mm_blendv_pd(s, sh, small);
  }
  D2 k = _mm_sub_pd(s, sh);
  D2 r = _mm_sub_pd(_mm_sub_pd(xc, _mm_mul_pd(k, cd(0x3F862E42FEFA0000))),
                    _mm_mul_pd(k, cd(0x3D1CF79ABC9E3B3A)));
  D2 th, tl;
  rows_d64(s, th, tl);
  // e^r - 1 by Taylor's coefficients: at k = 0 this is the result, so its
  // error must be small relative to r, not to 1 (the degree-5 minimax
  // polynomial of Exp is 6 ulp off there)
  auto c = [](double v) { return _mm_set1_pd(v); };
  D2 r2 = _mm_mul_pd(r, r);
  D2 p01 = _mm_add_pd(c(1.0 / 2), _mm_mul_pd(r, c(1.0 / 6)));
  D2 p23 = _mm_add_pd(c(1.0 / 24), _mm_mul_pd(r, c(1.0 / 120)));
  D2 q;
  if constexpr (near0) {
    D2 r4 = _mm_mul_pd(r2, r2);
    D2 p45 = _mm_add_pd(c(1.0 / 720), _mm_mul_pd(r, c(1.0 / 5040)));
    D2 p67 = _mm_add_pd(c(1.0 / 40320), _mm_mul_pd(r, c(1.0 / 362880)));
    D2 p = _mm_add_pd(_mm_add_pd(p01, _mm_mul_pd(r2, p23)),
                      _mm_mul_pd(r4, _mm_add_pd(p45, _mm_mul_pd(r2, p67))));
    q = _mm_add_pd(r, _mm_mul_pd(r2, p));
  } else {
    p23 = _mm_add_pd(p23, _mm_mul_pd(r2, c(1.0 / 720)));
    q = _mm_add_pd(r, _mm_mul_pd(r2, _mm_add_pd(p01, _mm_mul_pd(r2, p23))));
  }
  // e^x = h + l with h = 2^n th exactly, l = 2^n (tl + th q)
  D2 h = scale<6>(th, s);
  D2 l = scale<6>(_mm_add_pd(tl, _mm_mul_pd(th, q)), s);
  // h + (-1) by an exact two-sum (no branch on which one is larger)
  const D2 m1 = _mm_set1_pd(-1.0);
  D2 sum = _mm_add_pd(h, m1);
  D2 bb = _mm_sub_pd(sum, h);
  D2 e = _mm_add_pd(_mm_sub_pd(h, _mm_sub_pd(sum, bb)), _mm_sub_pd(m1, bb));
  D2 y = _mm_add_pd(sum, _mm_add_pd(e, l));
  // expm1 has the sign of x (this also keeps -0)
  const D2 sign = _mm_set1_pd(-0.0);
  return _mm_or_pd(_mm_andnot_pd(sign, y), _mm_and_pd(x, sign));
}

// e^x - 1 for float lanes below 88.  k = round(x / ln2) (x clamped to -20
// first: e^-20 is below half an ulp of 1, so the result there is -1 as for
// any lower x), r = rh - rl with rh = x - k ln2_hi exact and rl = k ln2_lo,
// Q1 of degree 4 in float (Q = 1/2 + r Q1 fitted to (e^r - 1 - r) / r^2 on
// |r| <= ln2/2, 2^-27.9 absolute), then in double
//   (2^k - 1) + 2^k (r + r^2 / 2 + r^3 Q1),
// rounded once.  All in float, with 2^k - 1 + 2^k rh by a fast two-sum and
// the rest added last, the roundings of the r^2 Q term reached 1.05 ulp
// (x = 0.365648, k = 1, where the result is 0.44 and 2^k r^2 Q a quarter of
// it).  The sign of x is copied (-0 gives -0).
inline F4 expm1_f(F4 x) {
  const F4 sh = cf(kShiftF);
  const F4 xc = _mm_max_ps(x, _mm_set1_ps(-20.0f));
  const F4 s = _mm_add_ps(_mm_mul_ps(xc, cf(kLog2e)), sh);
  const F4 k = _mm_sub_ps(s, sh);
  const F4 rh = _mm_sub_ps(xc, _mm_mul_ps(k, cf(kLn2Hi)));
  const F4 rl = _mm_mul_ps(k, cf(kLn2Lo));
  const F4 r = _mm_sub_ps(rh, rl);
  const F4 r2 = _mm_mul_ps(r, r);
  // Q1 = (Q - 1/2) / r, Estrin (Horner's chain made the loop latency-bound)
  static constexpr uint32_t q[6] = {0x3F000000, 0x3E2AAAAB, 0x3D2AAA75,
                                    0x3C088863, 0x3AB6A18D, 0x3950A8B7};
  auto lin = [&](uint32_t a, uint32_t b) { return _mm_add_ps(cf(a), _mm_mul_ps(r, cf(b))); };
  const F4 q1 = _mm_add_ps(lin(q[1], q[2]),
                           _mm_mul_ps(r2, _mm_add_ps(lin(q[3], q[4]), _mm_mul_ps(r2, cf(q[5])))));
  // 2^k: the low bits of s's pattern hold k
  const F4 th = _mm_castsi128_ps(
      _mm_add_epi32(_mm_slli_epi32(_mm_castps_si128(s), 23), _mm_set1_epi32(0x3F800000)));
  // The rest in double: r = rh - rl, e^r - 1 = r + r^2 / 2 + r^3 Q1 and
  // (2^k - 1) + 2^k (e^r - 1), all rounded far below a float ulp but for
  // Q1's float rounding (on r^3 Q1, at most a twentieth of the result).
  auto half = [&](F4 rhv, F4 rlv, F4 qv, F4 tv) {
    const D2 rd = _mm_sub_pd(_mm_cvtps_pd(rhv), _mm_cvtps_pd(rlv));
    const D2 rd2 = _mm_mul_pd(rd, rd);
    const D2 p = _mm_add_pd(_mm_set1_pd(0.5), _mm_mul_pd(rd, _mm_cvtps_pd(qv)));
    const D2 em1 = _mm_add_pd(rd, _mm_mul_pd(rd2, p));
    const D2 td = _mm_cvtps_pd(tv);
    return _mm_cvtpd_ps(_mm_add_pd(_mm_sub_pd(td, _mm_set1_pd(1.0)), _mm_mul_pd(td, em1)));
  };
  const F4 y = _mm_movelh_ps(half(rh, rl, q1, th), half(_mm_movehl_ps(rh, rh), _mm_movehl_ps(rl, rl),
                                                        _mm_movehl_ps(q1, q1), _mm_movehl_ps(th, th)));
  const F4 sign = _mm_set1_ps(-0.0f);
  return _mm_or_ps(y, _mm_and_ps(x, sign));
}
}  // namespace expk

struct Expm1 {
  template <class T, int S> static auto vec(typename V<T>::reg x) {
    if constexpr (std::is_same_v<T, float>) {
      return expk::expm1_f(x);
    } else {
      return expk::expm1_d<true>(x);
    }
  }
  // Off the fast path: NaN, x from the overflow region up (88 / 708.39), and
  // nonzero arguments below the normal range (their result is subnormal, an
  // underflow).  Large negative x (to -inf) saturates on the fast path.
  template <class T, int S> static int special(typename V<T>::reg x, typename V<T>::reg) {
    using W = V<T>;
    auto big = W::unord(x, x);
    big = W::or_(big, W::ge(x, W::set1(std::is_same_v<T, float> ? T(88.0) : T(708.0))));
    auto a = W::and_(x, W::absmask());
    auto tiny = W::and_(W::lt(a, W::set1(std::numeric_limits<T>::min())), W::neq(a, W::zero()));
    return W::movemask(W::or_(big, tiny));
  }
  template <class T, int S> static T fix(T x, int &code) {
    return elem::Expm1::eval<T, S>(x, code);
  }
};

}  // namespace qor::vm::vec
