// SIMD logarithm kernels: Ln, Log2, Log10 and Log1p for float and double.
//
// Float Ln (three kernels, no table).  The bit pattern of x minus the pattern
// of 2/3 gives, shifted right by 23, the exponent k such that x = 2^k m with
// m in [2/3, 4/3); m's pattern is x's minus k << 23, and f = m - 1 is exact.
// Then ln x = k ln2 + f - f^2/2 + c3 f^3 + ... evaluated by Horner:
//   LA  degree 8 in float, ln2 as one float (3.93 ulp at most over every
//       positive float: the coefficient set's own error near f = -0.12);
//   HA  degree 10, ln2 in two float parts; the series from c4 up in float,
//       the rest of the sum in double (0.586 ulp at most over every positive
//       float; in float throughout it reached 0.78);
//   EP  degree 5 in float.
// Zero, negative, subnormal, infinite and NaN arguments are singled out by one
// integer comparison (the pattern minus that of the smallest normal, taken as
// unsigned, is below 0x7F000000 only for positive normal finite x) and go
// through ln_scalar() below, which also gives the error code.
//
// Double kernels (Ln, Log2, Log10, Log1p) share one core, dlog():
//   x = 2^k z with z in [0.748, 1.496): subtracting an offset from the pattern
//   puts the exponent of z's interval in the top bits; the next 7 bits pick
//   one of 128 subintervals, each with a reciprocal invc of ten significant
//   bits and T = -log_b(invc) in two parts (the high part a multiple of 2^-42,
//   so k K_hi + T_hi is exact).  The subinterval containing 1 has invc = 1.
//   z is cut into zh (43 significant bits) and zl, so rh = zh invc - 1 is
//   exact and only the tiny rl = zl invc is rounded; |r| < 2^-7.9.
//   log(1 + r) = r - r^2/2 + ... + r^7/7 (the truncation error r^8/8 is below
//   2^-63 relative); for Log2 and Log10 r is scaled by M = 1/ln b, whose
//   product with the leading part of rh is made exact by splitting.
//   HA  adds the leading terms with an exact fast two-sum, everything else last;
//   LA  the same terms without the compensation (about one rounding more);
//   EP  r = z invc - 1 rounded directly and degree 4 (about 2^-34 relative).
// Float Log2, Log10 and Log1p run the double EP core on the widened lanes and
// round once to float (error 0.5 ulp plus about 2^-10 ulp), so one kernel
// meets the high-accuracy bound in every slot.
//
// Log1p: u = 1 + x rounded, and its rounding error e (exact: x - (u - 1) for
// x < 1, 1 - (u - x) for x >= 1); log1p x = log u + e / u.  For float the
// widening makes u exact unless |x| < 2^-29, where e / u = e to far below a
// float ulp, so the division is dropped.
//
// The vector code also runs on the lanes that are then recomputed; it is
// written so that it raises no invalid or divide-by-zero flag for them.
//
// Every lane off the fast path is recomputed one at a time: float Ln by its
// scalar routine, the others by the per-element routines, which fix the
// special values and error codes (0 -> -inf code 2, negative -> NaN code 1,
// Log1p(-1) -> -inf code 2, subnormal Log1p -> code 4).
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <limits>

#include "vm/kernels/core/driver.h"
#include "vm/kernels/elem/elem.h"

namespace qor::vm::vec {

namespace logk {

using simd::V;

inline __m128 f1(uint32_t b) { return _mm_castsi128_ps(_mm_set1_epi32(int(b))); }
inline __m128d d1(double v) { return _mm_set1_pd(v); }
inline __m128i q1(uint64_t b) { return _mm_set1_epi64x(int64_t(b)); }

// ---- float Ln ---------------------------------------------------------------

// Horner over the coefficient bit patterns c[N-1], ..., c[0], then the -1/2.
template <size_t N>
inline __m128 horner_f(__m128 f, const std::array<uint32_t, N> &c) {
  __m128 p = f1(c[N - 1]);
  for (size_t j = N - 1; j-- > 0;) p = _mm_add_ps(_mm_mul_ps(p, f), f1(c[j]));
  return _mm_add_ps(_mm_mul_ps(p, f), _mm_set1_ps(-0.5f));
}

inline constexpr std::array<uint32_t, 6> kLnLA = {0x3EAAAEE7, 0xBE80061D, 0x3E4AFB81,
                                                  0xBE289358, 0x3E2DB86B, 0xBE1B6A22};
inline constexpr std::array<uint32_t, 8> kLnHA = {0x3EAAAA83, 0xBE7FFF78, 0x3E4CE814,
                                                  0xBE2ACEE6, 0x3E0F6B8C, 0xBDF9889E,
                                                  0x3E0F335D, 0xBE0402C8};
inline constexpr std::array<uint32_t, 3> kLnEP = {0x3EAA7160, 0xBE88E8FE, 0x3E612933};
inline constexpr uint32_t kLn2 = 0x3F317218, kLn2Hi = 0x3F317200, kLn2Lo = 0x35BFBE8E;
// The two float parts of ln 2 summed in double (exact: 44 significant bits).
inline constexpr double kLn2Split =
    double(std::bit_cast<float>(kLn2Hi)) + double(std::bit_cast<float>(kLn2Lo));

// LA and EP: everything in float.
template <int S>
inline __m128 ln_f(__m128 x) {
  const __m128i ix = _mm_castps_si128(x);
  // k = (bits(x) - bits(2/3)) >> 23, arithmetic, so m = x 2^-k is in [2/3, 4/3)
  const __m128i k = _mm_srai_epi32(_mm_add_epi32(ix, _mm_set1_epi32(int(0xC0D55555u))), 23);
  const __m128 m = _mm_castsi128_ps(_mm_sub_epi32(ix, _mm_slli_epi32(k, 23)));
  const __m128 f = _mm_sub_ps(m, _mm_set1_ps(1.0f));
  const __m128 kf = _mm_cvtepi32_ps(k);
  const __m128 q = _mm_mul_ps(f, f);
  const __m128 p = S == 0 ? horner_f(f, kLnLA) : horner_f(f, kLnEP);
  const __m128 r = _mm_add_ps(f, _mm_mul_ps(q, p));
  return _mm_add_ps(_mm_mul_ps(kf, f1(kLn2)), r);
}

// HA: the same reduction with the sum finished in double.  The series from
// c4 up is evaluated in float (it is below f^4 / 4 in size, so its rounding
// errors stay below a fiftieth of a float ulp of the result); the last two
// Horner steps (c3, c2), the product with f^2 and the additions of f and
// k ln2 (the two float parts of ln 2 summed exactly in double) are done in
// double.  What is left is the series' own approximation error (up to
// 2^-28.7 at |f| = 1/3, about 0.08 ulp) and the final rounding.
struct Wide {
  __m128d lo, hi;  // lanes 0-1, 2-3
};
inline Wide ln_wide(__m128 x) {
  const auto &c = kLnHA;
  const __m128i ix = _mm_castps_si128(x);
  const __m128i k = _mm_srai_epi32(_mm_add_epi32(ix, _mm_set1_epi32(int(0xC0D55555u))), 23);
  const __m128 m = _mm_castsi128_ps(_mm_sub_epi32(ix, _mm_slli_epi32(k, 23)));
  const __m128 f = _mm_sub_ps(m, _mm_set1_ps(1.0f));
  __m128 t = f1(c[c.size() - 1]);
  for (size_t j = c.size() - 1; j-- > 1;) t = _mm_add_ps(_mm_mul_ps(t, f), f1(c[j]));
  const double c3 = std::bit_cast<float>(c[0]);
  auto half = [&](__m128 fv, __m128 tv, __m128i kv) {
    const __m128d fd = _mm_cvtps_pd(fv);
    __m128d p = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(tv), fd), d1(c3));
    p = _mm_add_pd(_mm_mul_pd(p, fd), d1(-0.5));
    const __m128d l = _mm_add_pd(fd, _mm_mul_pd(_mm_mul_pd(fd, fd), p));
    return _mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(kv), d1(kLn2Split)), l);
  };
  return {half(f, t, k),
          half(_mm_movehl_ps(f, f), _mm_movehl_ps(t, t), _mm_shuffle_epi32(k, 0xEE))};
}
inline __m128 narrow(Wide w) { return _mm_movelh_ps(_mm_cvtpd_ps(w.lo), _mm_cvtpd_ps(w.hi)); }

// Lanes that are not positive normal finite: (bits - 0x800000) as unsigned
// >= 0x7F000000, done as a signed compare after flipping the sign bit.
inline __m128 not_pos_normal_f(__m128 x) {
  const __m128i v = _mm_add_epi32(_mm_castps_si128(x), _mm_set1_epi32(0x7F800000));
  return _mm_castsi128_ps(_mm_cmpgt_epi32(v, _mm_set1_epi32(int(0xFEFFFFFFu))));
}
inline __m128d not_pos_normal_d(__m128d x) {
  const __m128i v = _mm_add_epi64(_mm_castpd_si128(x), q1(0x7FF0000000000000ull));
  return _mm_castsi128_pd(_mm_cmpgt_epi64(v, q1(0xFFDFFFFFFFFFFFFFull)));
}

// ---- double core --------------------------------------------------------------

enum Base { kE = 0, k2 = 1, k10 = 2 };

// One 32-byte row per subinterval, so that a single byte offset, taken
// straight from the pattern by one shift and mask, addresses all three
// values (a separate array for the low parts needed the index scaled twice
// over in scalar code).
struct DEntry {
  double invc, hi, lo, pad;
};
struct alignas(32) DTab {
  DEntry e[128];
};

// Pattern offset: bits(z) = kOff + (i << 45) + (bits below), so interval 64
// is centred on 1 in pattern space.
inline constexpr uint64_t kOff = 0x3FF0000000000000ull - (64ull << 45) - (1ull << 44);

constexpr long double log_b(long double v, int b) {
  return b == kE ? __builtin_logl(v) : b == k2 ? __builtin_log2l(v) : __builtin_log10l(v);
}
constexpr double round_to(long double v, long double scale) {
  long double t = v * scale;
  long long n = static_cast<long long>(t < 0 ? t - 0.5L : t + 0.5L);
  return static_cast<double>(static_cast<long double>(n) / scale);
}

template <int B>
constexpr DTab make_dtab() {
  DTab t{};
  for (int i = 0; i < 128; ++i) {
    const double a = std::bit_cast<double>(kOff + (uint64_t(i) << 45));
    const double b = std::bit_cast<double>(kOff + (uint64_t(i + 1) << 45));
    const double inv = 2.0 / (a + b);
    // ten significant bits so that zh * invc is exact
    double invc = inv >= 1 ? round_to(inv, 512) : round_to(inv, 1024);
    if (i == 64) invc = 1.0;
    const long double L = -log_b(invc, B);
    const double hi = round_to(L, 0x1p42L);
    t.e[i] = {invc, hi, static_cast<double>(L - hi), 0.0};
  }
  return t;
}

template <int B>
inline constexpr DTab kTab = make_dtab<B>();

// log_b(2) (per unit of k) and log_b(e) (per unit of r) in parts.
template <int B>
struct DConst {
  static constexpr long double K = B == kE ? 0.693147180559945309417232121458176568L
                                   : B == k2 ? 1.0L
                                             : 0.301029995663981195213738894724493027L;
  static constexpr long double M = B == kE ? 1.0L
                                   : B == k2 ? 1.44269504088896340735992468100189214L
                                             : 0.434294481903251827651128918916605082L;
  static constexpr double Khi = round_to(K, 0x1p42L);
  static constexpr double Klo = static_cast<double>(K - Khi);
  static constexpr double Kd = static_cast<double>(K);
  static constexpr double Mhi = round_to(M, 0x1p26L);  // at most 27 bits
  static constexpr double Mlo = static_cast<double>(M - Mhi);
  static constexpr double Md = static_cast<double>(M);
};

// log_b(x) for positive normal finite lanes.  A = 0 (LA), 1 (HA), 2 (EP).
// `extra` is a small correction in natural-log units added to log(1 + r)
// (Log1p's e / u), used only when X is true (adding a zero is not free: the
// compiler must keep it for the sign of zero).
template <int B, int A, bool X = false>
inline __m128d dlog(__m128d x, __m128d extra = _mm_setzero_pd()) {
  auto plus_extra = [&](__m128d v) { return X ? _mm_add_pd(v, extra) : v; };
  using C = DConst<B>;
  const DTab &tb = kTab<B>;
  const __m128i ix = _mm_castpd_si128(x);
  const __m128i t = _mm_add_epi64(ix, q1(0x3FF0000000000000ull - kOff));
  const __m128i kb = _mm_srli_epi64(t, 52);  // k + 1023
  // z = x 2^-k: t's mantissa bits are z's pattern minus kOff
  const __m128i iz = _mm_add_epi64(_mm_and_si128(t, q1(0x000FFFFFFFFFFFFFull)), q1(kOff));
  // byte offsets of the rows: the subinterval number times 32
  const __m128i off = _mm_and_si128(_mm_srli_epi64(t, 40), q1(127u << 5));
  const char *base = reinterpret_cast<const char *>(tb.e);
  const double *row0 = reinterpret_cast<const double *>(base + _mm_cvtsi128_si64(off));
  const double *row1 = reinterpret_cast<const double *>(base + _mm_extract_epi64(off, 1));
  const __m128d e0 = _mm_loadu_pd(row0), e1 = _mm_loadu_pd(row1);
  const __m128d invc = _mm_unpacklo_pd(e0, e1);
  const __m128d thi = _mm_unpackhi_pd(e0, e1);
  // k as a double: 2^52 + k + 1023 has k + 1023 in its low mantissa bits
  const __m128d kd = _mm_sub_pd(_mm_castsi128_pd(_mm_or_si128(kb, q1(0x4330000000000000ull))),
                                d1(0x1p52 + 1023));
  const __m128d z = _mm_castsi128_pd(iz);
  const __m128d one = d1(1.0);

  if constexpr (A == 2) {
    const __m128d r = _mm_sub_pd(_mm_mul_pd(z, invc), one);
    const __m128d r2 = _mm_mul_pd(r, r);
    // -1/2 + r/3 - r^2/4
    __m128d p = _mm_add_pd(_mm_mul_pd(r, d1(1.0 / 3)), d1(-0.5));
    p = _mm_add_pd(p, _mm_mul_pd(r2, d1(-0.25)));
    __m128d l = _mm_add_pd(plus_extra(r), _mm_mul_pd(r2, p));
    if constexpr (B != kE) l = _mm_mul_pd(l, d1(C::Md));
    const __m128d a = _mm_add_pd(_mm_mul_pd(kd, d1(C::Kd)), thi);
    return _mm_add_pd(a, l);
  } else {
    const __m128d tlo = _mm_loadh_pd(_mm_load_sd(row0 + 2), row1 + 2);
    // Natural-log HA: in the subinterval of 1 (invc = 1) z is not cut, so
    // that rh = z - 1 is exact by itself and rl = 0 (see below).
    __m128i zmask = q1(0xFFFFFFFFFFFFFC00ull);
    if constexpr (A == 1 && B == kE) zmask = _mm_or_si128(zmask, _mm_cmpeq_epi64(off, q1(64u << 5)));
    const __m128d zh = _mm_and_pd(z, _mm_castsi128_pd(zmask));
    const __m128d zl = _mm_sub_pd(z, zh);
    const __m128d rh = _mm_sub_pd(_mm_mul_pd(zh, invc), one);  // exact
    const __m128d rl = _mm_mul_pd(zl, invc);
    const __m128d r = _mm_add_pd(rh, rl);
    const __m128d r2 = _mm_mul_pd(r, r);
    // -1/2 + r/3 - r^2/4 + r^3/5 - r^4/6 + r^5/7, Estrin
    const __m128d p01 = _mm_add_pd(_mm_mul_pd(r, d1(1.0 / 3)), d1(-0.5));
    const __m128d p23 = _mm_add_pd(_mm_mul_pd(r, d1(0.2)), d1(-0.25));
    const __m128d p45 = _mm_add_pd(_mm_mul_pd(r, d1(1.0 / 7)), d1(-1.0 / 6));
    const __m128d r4 = _mm_mul_pd(r2, r2);
    const __m128d p = _mm_add_pd(_mm_add_pd(p01, _mm_mul_pd(r2, p23)), _mm_mul_pd(r4, p45));
    const __m128d a = _mm_add_pd(_mm_mul_pd(kd, d1(C::Khi)), thi);  // exact
    const __m128d klo = _mm_add_pd(_mm_mul_pd(kd, d1(C::Klo)), tlo);
    if constexpr (A == 0) {
      __m128d l = _mm_add_pd(plus_extra(r), _mm_mul_pd(r2, p));
      if constexpr (B != kE) l = _mm_mul_pd(l, d1(C::Md));
      return _mm_add_pd(a, _mm_add_pd(l, klo));
    } else {
      __m128d lead, low;
      if constexpr (B == kE) {
        // The exact rh leads and rl joins the small terms, so r's rounding
        // error is never needed (two additions fewer).  With z cut everywhere
        // rh and rl would cancel badly just below 1 (z = 1 - 2^-50: rh =
        // -2^-43, rl nearly +2^-43, and the rounding of rl + r^2 p at 2^-96
        // against a result of 2^-50); in the subinterval of 1 z is whole, so
        // rl = 0 there.  Elsewhere |log| >= 2^-9 while |rl| < 2^-41, and its
        // sum with the other small terms rounds far below the result's ulp.
        lead = rh;
      } else {
        // r's rounding error.  In the subinterval of 1 (invc = 1) r = z - 1
        // is exact and this is 0; elsewhere |log| >= 2^-9 and a rough value
        // of the error suffices.  Keeping rh and rl apart instead would
        // cancel badly just below 1.
        const __m128d rc = _mm_sub_pd(rl, _mm_sub_pd(r, rh));
        const __m128d tail = _mm_add_pd(plus_extra(rc), _mm_mul_pd(r2, p));  // log(1+r) - r
        // r M = rhh Mhi (exact: 26 x 27 bits) + the rest
        const __m128d rhh = _mm_and_pd(r, _mm_castsi128_pd(q1(0xFFFFFFFFF8000000ull)));
        const __m128d rhl = _mm_sub_pd(r, rhh);
        lead = _mm_mul_pd(rhh, d1(C::Mhi));
        low = _mm_add_pd(_mm_add_pd(_mm_mul_pd(rhl, d1(C::Mhi)), _mm_mul_pd(r, d1(C::Mlo))),
                         _mm_mul_pd(tail, d1(C::Md)));
      }
      // a + lead with its rounding error.  |a| >= |lead| unless a = 0: for
      // k != 0 |a| > 0.28, and for k = 0 outside the subinterval of 1 |T| is
      // at least twice the subinterval's largest |r| (M scales both alike),
      // so the fast two-sum is exact.
      const __m128d s = _mm_add_pd(a, lead);
      const __m128d err = _mm_sub_pd(lead, _mm_sub_pd(s, a));
      if constexpr (B == kE) {
        // the small terms summed while the polynomial is still on its way,
        // which takes two additions off the longest chain
        // r^2 p = r^2 p01 + r^4 (p23 + r^2 p45), the first part joining them
        // before the second is ready (3 cycles off the chain, same count)
        const __m128d small = _mm_add_pd(_mm_add_pd(err, plus_extra(rl)), klo);
        const __m128d q = _mm_add_pd(p23, _mm_mul_pd(r2, p45));
        const __m128d lo2 = _mm_add_pd(_mm_mul_pd(r2, p01), small);
        return _mm_add_pd(s, _mm_add_pd(lo2, _mm_mul_pd(_mm_mul_pd(r2, r2), q)));
      }
      return _mm_add_pd(s, _mm_add_pd(_mm_add_pd(err, low), klo));
    }
  }
}

// Float lanes through the double core (EP core: 2^-34 relative is far below
// a float ulp), rounded once.
template <int B, class F>
inline __m128 widen(__m128 x, F core) {
  const __m128d lo = core(_mm_cvtps_pd(x));
  const __m128d hi = core(_mm_cvtps_pd(_mm_movehl_ps(x, x)));
  return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
}

// ---- float Log2, Log10, Log1p -------------------------------------------------

// log(1 + f) = f - f^2 / 2 + f^3 S(f) on f in [sqrt(2)/2 - 1, sqrt(2) - 1]:
// S of degree 8, fitted for absolute error (with the coefficients rounded to
// float, 2^-26.8 to 2^-26.2 on -1/2 + f S per base: a few hundredths of an
// ulp of the result), times log_b(e) per base.  The interval is centred on 1
// in the logarithm rather than in f (float Ln uses [2/3, 4/3)).
inline constexpr std::array<uint32_t, 9> kFLog2 = {0x3EF6384E, 0xBEB8AA36, 0x3E93BCB9,
                                                   0xBE763F2B, 0x3E528462, 0xBE3759D5,
                                                   0x3E2C471F, 0xBE2AF192, 0x3DD33FDA};
inline constexpr std::array<uint32_t, 9> kFLog10 = {0x3E143D3A, 0xBDDE5BD2, 0x3DB1E4B0,
                                                    0xBD94415C, 0x3D7D7CE5, 0xBD5CC6C7,
                                                    0x3D4F7172, 0xBD4DD62F, 0x3CFE5EA2};


// log_b(u) for base 2 or 10.
// u = 2^k (1 + f): the pattern of u minus that of sqrt(2)/2, shifted right
// by 23, is k, and f is exact (by Sterbenz's lemma below 1).  t = log_b(e)
// S(f) is evaluated in float; then, in double,
//   k log_b(2) + f log_b(e) - f^2 log_b(e) / 2 + f^3 t
// where f^2 and f^3 are exact and the other terms are rounded far below a
// float ulp: what is left is t's float rounding (relative, on a term at most
// a twelfth of the result), the fit's error and the final conversion.
// Measured on the way: in float throughout, with the leading sum split so
// that only a two-sum and the last addition rounded at the result's scale,
// sLog2 reached 1.08 ulp on [2/3, 4/3) and 1.39 ulp on this interval (where
// log2 u is just below 1/2 and f^2 / 2 a third of it); with only the
// k, f terms in double and f^2 (-1/2 + f S) in float, 1.29 ulp.
template <int B>
inline __m128 logf_fast(__m128 u) {
  constexpr const std::array<uint32_t, 9> &c = B == k2 ? kFLog2 : kFLog10;
  const __m128i iu = _mm_castps_si128(u);
  // k = (bits(u) - bits(sqrt(2)/2)) >> 23: m = u 2^-k in [sqrt(2)/2, sqrt(2))
  const __m128i k = _mm_srai_epi32(_mm_add_epi32(iu, _mm_set1_epi32(int(0xC0CAFB0Du))), 23);
  const __m128 m = _mm_castsi128_ps(_mm_sub_epi32(iu, _mm_slli_epi32(k, 23)));
  const __m128 f = _mm_sub_ps(m, _mm_set1_ps(1.0f));
  // Estrin's scheme: Horner's nine dependent steps made the loop latency-bound
  auto lin = [&](uint32_t a, uint32_t b) { return _mm_add_ps(f1(a), _mm_mul_ps(f, f1(b))); };
  const __m128 f2 = _mm_mul_ps(f, f);
  const __m128 f4 = _mm_mul_ps(f2, f2);
  const __m128 p03 = _mm_add_ps(lin(c[0], c[1]), _mm_mul_ps(f2, lin(c[2], c[3])));
  __m128 p48 = _mm_add_ps(lin(c[4], c[5]), _mm_mul_ps(f2, lin(c[6], c[7])));
  p48 = _mm_add_ps(p48, _mm_mul_ps(f4, f1(c[8])));
  const __m128 t = _mm_add_ps(p03, _mm_mul_ps(f4, p48));
  auto half = [&](__m128 fv, __m128 tv, __m128i kv) {
    const __m128d fd = _mm_cvtps_pd(fv);
    const __m128d f2d = _mm_mul_pd(fd, fd);
    __m128d lo = _mm_add_pd(_mm_mul_pd(f2d, d1(-0.5 * DConst<B>::Md)),
                            _mm_mul_pd(_mm_mul_pd(f2d, fd), _mm_cvtps_pd(tv)));
    const __m128d kd = _mm_cvtepi32_pd(kv);
    __m128d lead = _mm_mul_pd(fd, d1(DConst<B>::Md));
    if constexpr (B == k2)
      lead = _mm_add_pd(lead, kd);
    else
      lead = _mm_add_pd(lead, _mm_mul_pd(kd, d1(DConst<B>::Kd)));
    return _mm_cvtpd_ps(_mm_add_pd(lead, lo));
  };
  const __m128 r0 = half(f, t, k);
  const __m128 r1 = half(_mm_movehl_ps(f, f), _mm_movehl_ps(t, t), _mm_shuffle_epi32(k, 0xEE));
  return _mm_movelh_ps(r0, r1);
}

// Lanes for which Log1p leaves the fast path: x <= -1, NaN, +inf, and |x|
// below the smallest normal (zeros keep their sign, subnormals report
// underflow).  Integer compares on the pattern: the ordered float compares
// of SSE signal invalid on a quiet NaN.  x <= -1 is the pattern above that
// of -1 taken as unsigned (sign flipped for the signed compare).
inline __m128 log1p_special_f(__m128 x) {
  const __m128i ix = _mm_castps_si128(x);
  const __m128i ax = _mm_and_si128(ix, _mm_set1_epi32(0x7FFFFFFF));
  const __m128i tiny = _mm_cmpgt_epi32(_mm_set1_epi32(0x00800000), ax);
  const __m128i nonfinite = _mm_cmpgt_epi32(ax, _mm_set1_epi32(0x7F7FFFFF));
  const __m128i le_m1 = _mm_cmpgt_epi32(_mm_xor_si128(ix, _mm_set1_epi32(int(0x80000000u))),
                                        _mm_set1_epi32(0x3F7FFFFF));
  return _mm_castsi128_ps(_mm_or_si128(_mm_or_si128(tiny, nonfinite), le_m1));
}
// Lanes whose vector result would raise a flag of its own (x <= -1 and
// -inf, where u - x and e / u meet inf - inf or 0 / 0; +inf; NaN, on which
// the ordered compare in log1p_d signals) are set to 0 first; they all go
// through the scalar path anyway.  The negative ones by one integer compare
// (the pattern with the sign flipped above that of 1), the others by quiet
// float compares.
inline __m128d log1p_tame(__m128d x) {
  const __m128i ix = _mm_castpd_si128(x);
  const __m128d neg = _mm_castsi128_pd(
      _mm_cmpgt_epi64(_mm_xor_si128(ix, q1(0x8000000000000000ull)), q1(0x3FEFFFFFFFFFFFFFull)));
  const __m128d bad = _mm_or_pd(_mm_or_pd(neg, _mm_cmpunord_pd(x, x)),
                                _mm_cmpeq_pd(x, d1(std::numeric_limits<double>::infinity())));
  return _mm_andnot_pd(bad, x);
}
inline __m128 log1p_tame(__m128 x) {
  const __m128i ix = _mm_castps_si128(x);
  const __m128i bad = _mm_or_si128(
      _mm_cmpgt_epi32(_mm_xor_si128(ix, _mm_set1_epi32(int(0x80000000u))),
                      _mm_set1_epi32(0x3F7FFFFF)),
      _mm_cmpgt_epi32(ix, _mm_set1_epi32(0x7F7FFFFF)));
  return _mm_andnot_ps(_mm_castsi128_ps(bad), x);
}

inline __m128d log1p_special_d(__m128d x) {
  const __m128i ix = _mm_castpd_si128(x);
  const __m128i ax = _mm_and_si128(ix, q1(0x7FFFFFFFFFFFFFFFull));
  const __m128i tiny = _mm_cmpgt_epi64(q1(0x0010000000000000ull), ax);
  const __m128i nonfinite = _mm_cmpgt_epi64(ax, q1(0x7FEFFFFFFFFFFFFFull));
  const __m128i le_m1 =
      _mm_cmpgt_epi64(_mm_xor_si128(ix, q1(0x8000000000000000ull)), q1(0x3FEFFFFFFFFFFFFFull));
  return _mm_castsi128_pd(_mm_or_si128(_mm_or_si128(tiny, nonfinite), le_m1));
}

// log1p for double lanes with x > -1 (the u, e split described above).  The
// logarithm runs on u = 1 + x straight away (its code raises no flag for any
// pattern); only the correction, which is needed last, goes through the
// tamed copy, so the masking stays off the long dependency chain.
template <int A>
inline __m128d log1p_d(__m128d x) {
  const __m128d one = d1(1.0);
  const __m128d xt = log1p_tame(x);
  const __m128d ut = _mm_add_pd(one, xt);
  const __m128d small = _mm_sub_pd(xt, _mm_sub_pd(ut, one));
  const __m128d large = _mm_sub_pd(one, _mm_sub_pd(ut, xt));
  const __m128d e = _mm_blendv_pd(small, large, _mm_cmpge_pd(xt, one));
  return dlog<kE, A, true>(_mm_add_pd(one, x), _mm_div_pd(e, ut));
}

// The scalar routine of float Ln: special values, codes, and ln of positive
// arguments (subnormals included) in double.  The subnormal's integer
// mantissa is converted instead of the float itself, so the result does not
// depend on the denormals-are-zero setting.
inline float ln_scalar(float x, int &code) {
  const uint32_t b = std::bit_cast<uint32_t>(x);
  if (b == 0xFF800000u) {
    code = 1;
    return std::bit_cast<float>(0x7FC00000u);
  }
  if ((b & 0x7F800000u) == 0x7F800000u) return x * x;  // +inf stays, NaN quieted
  if ((b & 0x7FFFFFFFu) == 0) {
    code = 2;
    return std::bit_cast<float>(0xFF800000u);
  }
  if (b & 0x80000000u) {
    code = 1;
    return std::bit_cast<float>(0x7FC00000u);
  }
  const double xd = (b < 0x00800000u) ? double(int32_t(b)) * 0x1p-149 : double(x);
  const __m128d r = dlog<kE, 1>(_mm_set1_pd(xd), _mm_setzero_pd());
  return float(_mm_cvtsd_f64(r));
}

}  // namespace logk

template <class T>
using R = typename simd::V<T>::reg;

// Lanes that are not positive normal numbers (zero, negative, subnormal,
// infinite, NaN): Ln, Log2 and Log10 send them to the per-element routine.
template <class T>
inline int off_pos_normal(R<T> x) {
  if constexpr (sizeof(T) == 4)
    return _mm_movemask_ps(logk::not_pos_normal_f(x));
  else
    return _mm_movemask_pd(logk::not_pos_normal_d(x));
}

struct Ln {
  template <class T, int S>
  static R<T> vec(R<T> x) {
    if constexpr (sizeof(T) == 4) {
      if constexpr (S == 1)
        return logk::narrow(logk::ln_wide(x));
      else
        return logk::ln_f<S>(x);
    } else
      return logk::dlog<logk::kE, S>(x, _mm_setzero_pd());
  }
  template <class T, int S>
  static int special(R<T> x, R<T>) {
    return off_pos_normal<T>(x);
  }
  template <class T, int S>
  static T fix(T x, int &code) {
    if constexpr (sizeof(T) == 4)
      return logk::ln_scalar(x, code);
    else
      return elem::Ln::eval<T, S>(x, code);
  }
};

template <int B, class E>
struct LogB {
  template <class T, int S>
  static R<T> vec(R<T> x) {
    if constexpr (sizeof(T) == 4) {
      return logk::logf_fast<B>(x);
    } else {
      return logk::dlog<B, S>(x, _mm_setzero_pd());
    }
  }
  template <class T, int S>
  static int special(R<T> x, R<T>) {
    return off_pos_normal<T>(x);
  }
  template <class T, int S>
  static T fix(T x, int &code) {
    return E::template eval<T, S>(x, code);
  }
};

struct Log2 : LogB<logk::k2, elem::Log2> {};
struct Log10 : LogB<logk::k10, elem::Log10> {};

struct Log1p {
  template <class T, int S>
  static R<T> vec(R<T> x) {
    if constexpr (sizeof(T) == 4) {
      // Widened to the double core: a float path like Log2's with e / u
      // added measured 4.8 cycles against 4.4 here.
      return logk::widen<logk::kE>(logk::log1p_tame(x), [](__m128d v) {
        const __m128d one = _mm_set1_pd(1.0);
        const __m128d u = _mm_add_pd(one, v);
        // e = x - (u - 1) is exact below 2^52 (and 0 from 1 up); above, u
        // rounds, e would be garbage and e / u is negligible anyway, so it is
        // dropped (without this, 262144 ulp at x = 9.0072e15).  The lanes
        // are tamed, so the ordered compare raises nothing.
        const __m128d e = _mm_and_pd(_mm_sub_pd(v, _mm_sub_pd(u, one)),
                                     _mm_cmplt_pd(v, _mm_set1_pd(0x1p52)));
        return logk::dlog<logk::kE, 2, true>(u, e);
      });
    } else {
      return logk::log1p_d<S>(x);
    }
  }
  template <class T, int S>
  static int special(R<T> x, R<T>) {
    if constexpr (sizeof(T) == 4)
      return _mm_movemask_ps(logk::log1p_special_f(x));
    else
      return _mm_movemask_pd(logk::log1p_special_d(x));
  }
  template <class T, int S>
  static T fix(T x, int &code) {
    return elem::Log1p::eval<T, S>(x, code);
  }
};

}  // namespace qor::vm::vec
