// Internal SIMD logarithm and exponential of double lanes, shared by the
// power and inverse error function kernels.  Not exported as functions of
// their own: they assume their arguments are in range (callers route every
// other lane to the per-element routine) and return extra precision where the
// callers need it.
//
// Logarithm (x positive, finite, normal).  x = 2^k z with z in
// [0x1.69p-1, 0x1.69p0) chosen by the bit pattern, so that k and a table
// index i come from one integer subtraction.  The table holds, for each of
// 128 subintervals, c_i^-1 rounded to 32 significant bits and -ln(c_i^-1) as
// a double-double (computed in long double at load time).  Then
//     ln x = k ln2 + ln(c_i) + ln(1 + r),   r = z / c_i - 1,   |r| < 2^-8.3.
// With z split into its top 21 significant bits and the rest, z_hi c_i^-1 is
// exact and so is z_hi c_i^-1 - 1; the rest adds below 2^-20, so r is known
// as a double-double to about 2^-73.  The table entry around 1 is exactly
// (1, 0), which keeps ln 1 = 0 and full relative accuracy next to 1.
// ln(1+r) = r - r^2/2 + r^3 P(r) with the square split exactly (r cut to
// 26 bits); everything is summed with error-free additions, giving ln x as
// hi + lo with |error| below about 2^-68 |ln x|.
//
// Exponential of hi + lo (|hi| < 709).  k = round(hi 128/ln2), a table of
// 2^(j/128) as double-doubles, r = hi - k ln2/128 + lo (Cody-Waite with a
// 35-bit high part, so the first subtraction is exact), |r| < 0.0028 and
// exp(r) - 1 by its Taylor polynomial; the result T(1 + p) is assembled with
// one final rounding and the exponent k/128 is added to its bit pattern.
#pragma once

#include <smmintrin.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace qor::vm::vec::lx {

struct alignas(16) LogEntry {
  double invc, logc_hi, logc_lo, pad;
};
struct alignas(16) ExpEntry {
  double hi, lo;
};

// Bits subtracted from x: the table's first subinterval starts here and the
// subinterval holding 1 is centred on it.
inline constexpr uint64_t kLogOff = 0x3fe6900000000000ull;

struct Tables {
  LogEntry log[128];
  ExpEntry exp[128];
  double ln2_hi, ln2_lo;     // ln2_hi has 42 significant bits: k ln2_hi is exact
  double ln2n_hi, ln2n_lo;   // ln2 / 128; the high part has 35 bits
  Tables() {
    const long double ln2 = 0.693147180559945309417232121458176568L;
    auto cut = [](double v, int drop) {
      uint64_t b;
      std::memcpy(&b, &v, 8);
      b &= ~((uint64_t(1) << drop) - 1);
      std::memcpy(&v, &b, 8);
      return v;
    };
    ln2_hi = cut(double(ln2), 11);
    ln2_lo = double(ln2 - ln2_hi);
    ln2n_hi = cut(double(ln2 / 128), 18);
    ln2n_lo = double(ln2 / 128 - ln2n_hi);
    for (int i = 0; i < 128; ++i) {
      // centre of the subinterval: z bits OFF + i 2^45 + 2^44
      uint64_t cb = kLogOff + (uint64_t(i) << 45) + (uint64_t(1) << 44);
      uint64_t top = (cb - kLogOff) & 0xfff0000000000000ull;
      cb -= top;
      double c;
      std::memcpy(&c, &cb, 8);
      double invc = cut(double(1.0L / c), 21);
      if (c == 1.0) invc = 1.0;
      long double l = -std::log(static_cast<long double>(invc));
      if (invc == 1.0) l = 0;
      log[i].invc = invc;
      log[i].logc_hi = double(l);
      log[i].logc_lo = double(l - static_cast<long double>(log[i].logc_hi));
      log[i].pad = 0;
      long double t = std::exp2(static_cast<long double>(i) / 128);
      exp[i].hi = double(t);
      exp[i].lo = double(t - static_cast<long double>(exp[i].hi));
    }
  }
};

inline const Tables kTab;

struct DD {
  __m128d hi, lo;
};

inline __m128d c(double v) { return _mm_set1_pd(v); }
inline __m128d cbits(uint64_t b) { return _mm_castsi128_pd(_mm_set1_epi64x(int64_t(b))); }

// s + e = a + b exactly.
inline __m128d two_sum(__m128d a, __m128d b, __m128d &e) {
  __m128d s = _mm_add_pd(a, b);
  __m128d bb = _mm_sub_pd(s, a);
  e = _mm_add_pd(_mm_sub_pd(a, _mm_sub_pd(s, bb)), _mm_sub_pd(b, bb));
  return s;
}
// Same for |a| >= |b|.
inline __m128d fast_two_sum(__m128d a, __m128d b, __m128d &e) {
  __m128d s = _mm_add_pd(a, b);
  e = _mm_sub_pd(b, _mm_sub_pd(s, a));
  return s;
}
// p + e = a b exactly (Dekker; |a|, |b| < 2^995).
inline __m128d two_prod(__m128d a, __m128d b, __m128d &e) {
  const __m128d sp = c(134217729.0);  // 2^27 + 1
  __m128d p = _mm_mul_pd(a, b);
  __m128d ca = _mm_mul_pd(a, sp), cb = _mm_mul_pd(b, sp);
  __m128d ah = _mm_sub_pd(ca, _mm_sub_pd(ca, a)), bh = _mm_sub_pd(cb, _mm_sub_pd(cb, b));
  __m128d al = _mm_sub_pd(a, ah), bl = _mm_sub_pd(b, bh);
  e = _mm_add_pd(_mm_add_pd(_mm_add_pd(_mm_sub_pd(_mm_mul_pd(ah, bh), p), _mm_mul_pd(ah, bl)),
                            _mm_mul_pd(al, bh)),
                 _mm_mul_pd(al, bl));
  return p;
}

// Reduction common to both logarithms: k as double, z, and the table rows.
struct LogRed {
  __m128d k, z, invc, logc_hi, logc_lo;
};
inline LogRed log_reduce(__m128d x) {
  LogRed o;
  __m128i ix = _mm_castpd_si128(x);
  __m128i tmp = _mm_sub_epi64(ix, _mm_set1_epi64x(int64_t(kLogOff)));
  __m128i idx = _mm_and_si128(_mm_srli_epi64(tmp, 45), _mm_set1_epi64x(127));
  const LogEntry *e0 = &kTab.log[_mm_cvtsi128_si64(idx)];
  const LogEntry *e1 = &kTab.log[_mm_extract_epi64(idx, 1)];
  // k = tmp >> 52 (arithmetic): the high dword shifted by 20
  __m128i kd = _mm_srai_epi32(tmp, 20);
  o.k = _mm_cvtepi32_pd(_mm_shuffle_epi32(kd, _MM_SHUFFLE(3, 1, 3, 1)));
  __m128i iz = _mm_sub_epi64(ix, _mm_and_si128(tmp, _mm_set1_epi64x(int64_t(0xfff0000000000000ull))));
  o.z = _mm_castsi128_pd(iz);
  __m128d a0 = _mm_load_pd(&e0->invc), a1 = _mm_load_pd(&e1->invc);
  __m128d b0 = _mm_load_pd(&e0->logc_lo), b1 = _mm_load_pd(&e1->logc_lo);
  o.invc = _mm_unpacklo_pd(a0, a1);
  o.logc_hi = _mm_unpackhi_pd(a0, a1);
  o.logc_lo = _mm_unpacklo_pd(b0, b1);
  return o;
}

// ln x as hi + lo, |error| < ~2^-68 |ln x|.
inline DD log_dd(__m128d x) {
  LogRed t = log_reduce(x);
  __m128d zhi = _mm_and_pd(t.z, cbits(0xffffffff00000000ull));
  __m128d zlo = _mm_sub_pd(t.z, zhi);
  __m128d ra = _mm_sub_pd(_mm_mul_pd(zhi, t.invc), c(1.0));  // exact
  __m128d rb = _mm_mul_pd(zlo, t.invc);
  __m128d rl, e1, e2, e3;
  __m128d r = two_sum(ra, rb, rl);
  __m128d s1 = two_sum(_mm_mul_pd(t.k, c(kTab.ln2_hi)), t.logc_hi, e1);
  __m128d s2 = two_sum(s1, r, e2);
  // -r^2/2: the square of r cut to 26 bits is exact
  __m128d rh = _mm_and_pd(r, cbits(0xfffffffff8000000ull));
  __m128d rt = _mm_sub_pd(r, rh);
  __m128d qh = _mm_mul_pd(c(-0.5), _mm_mul_pd(rh, rh));
  __m128d ql = _mm_sub_pd(_mm_mul_pd(c(-0.5), _mm_mul_pd(rt, _mm_add_pd(r, rh))), _mm_mul_pd(r, rl));
  __m128d s3 = two_sum(s2, qh, e3);
  // r^3 (1/3 - r/4 + r^2/5 - r^3/6 + r^4/7 - r^5/8): truncation below 2^-74
  __m128d r2 = _mm_mul_pd(r, r);
  __m128d p01 = _mm_add_pd(c(1.0 / 3), _mm_mul_pd(r, c(-0.25)));
  __m128d p23 = _mm_add_pd(c(0.2), _mm_mul_pd(r, c(-1.0 / 6)));
  __m128d p45 = _mm_add_pd(c(1.0 / 7), _mm_mul_pd(r, c(-0.125)));
  __m128d p = _mm_add_pd(p01, _mm_mul_pd(r2, _mm_add_pd(p23, _mm_mul_pd(r2, p45))));
  p = _mm_mul_pd(_mm_mul_pd(r, r2), p);
  __m128d lo = _mm_add_pd(_mm_mul_pd(t.k, c(kTab.ln2_lo)), t.logc_lo);
  lo = _mm_add_pd(lo, _mm_add_pd(_mm_add_pd(e1, e2), e3));
  lo = _mm_add_pd(lo, _mm_add_pd(_mm_add_pd(rl, ql), p));
  DD o;
  o.hi = fast_two_sum(s3, lo, o.lo);
  return o;
}

// ln(xh + xl) as hi + lo for xh positive normal, |xl| <= 2^-40 xh, and
// results away from zero (|ln xh| >= 1/2): a shorter form of log_dd for
// callers that need about 2^-62 relative, not 2^-68.  With |ln x| >= 1/2
// the terms below r (|r| < 2^-8.3) need no error-free steps: r itself is
// rounded once (2^-61.3 at most, relative to |ln x| >= 1/2 below 2^-60),
// r^2/2 and beyond are summed plainly; only the two additions at the scale
// of the result keep their errors.  xl enters r through the same scaling as
// z, r = (zh c^-1 - 1) + (zl + xl 2^-k) c^-1, so no division is needed; hi +
// lo is not renormalised.
inline DD log_dd_far(__m128d xh, __m128d xl) {
  LogRed t = log_reduce(xh);
  // 2^-k as a double: the exponent taken off xh to form z
  __m128i tmp = _mm_sub_epi64(_mm_castpd_si128(xh), _mm_set1_epi64x(int64_t(kLogOff)));
  __m128i kb = _mm_and_si128(tmp, _mm_set1_epi64x(int64_t(0xfff0000000000000ull)));
  __m128d scale = _mm_castsi128_pd(_mm_sub_epi64(_mm_set1_epi64x(0x3ff0000000000000ll), kb));
  __m128d zhi = _mm_and_pd(t.z, cbits(0xffffffff00000000ull));
  __m128d zlo = _mm_add_pd(_mm_sub_pd(t.z, zhi), _mm_mul_pd(xl, scale));
  __m128d ra = _mm_sub_pd(_mm_mul_pd(zhi, t.invc), c(1.0));  // exact
  __m128d r = _mm_add_pd(ra, _mm_mul_pd(zlo, t.invc));
  __m128d e1, e2;
  __m128d s1 = two_sum(_mm_mul_pd(t.k, c(kTab.ln2_hi)), t.logc_hi, e1);
  __m128d s2 = two_sum(s1, r, e2);
  // r^2 (-1/2 + r/3 - r^2/4 + r^3/5 - r^4/6 + r^5/7 - r^6/8)
  __m128d r2 = _mm_mul_pd(r, r);
  __m128d p01 = _mm_add_pd(c(-0.5), _mm_mul_pd(r, c(1.0 / 3)));
  __m128d p23 = _mm_add_pd(c(-0.25), _mm_mul_pd(r, c(0.2)));
  __m128d p45 = _mm_add_pd(c(-1.0 / 6), _mm_mul_pd(r, c(1.0 / 7)));
  __m128d r4 = _mm_mul_pd(r2, r2);
  __m128d p = _mm_add_pd(_mm_add_pd(p01, _mm_mul_pd(r2, p23)), _mm_mul_pd(r4, _mm_add_pd(p45, _mm_mul_pd(r2, c(-0.125)))));
  p = _mm_mul_pd(r2, p);
  __m128d lo = _mm_add_pd(_mm_mul_pd(t.k, c(kTab.ln2_lo)), t.logc_lo);
  lo = _mm_add_pd(_mm_add_pd(lo, _mm_add_pd(e1, e2)), p);
  DD o;
  o.hi = s2;
  o.lo = lo;
  return o;
}

// ln x in plain double precision, |error| < ~2^-50 max(|ln x|, ...) relative
// to ln x; enough for float results and the enhanced-performance slot.
inline __m128d log_d(__m128d x) {
  LogRed t = log_reduce(x);
  __m128d r = _mm_sub_pd(_mm_mul_pd(t.z, t.invc), c(1.0));
  __m128d r2 = _mm_mul_pd(r, r);
  // -r^2/2 + r^3/3 - r^4/4 + r^5/5 - r^6/6
  __m128d p = _mm_add_pd(c(-0.5), _mm_mul_pd(r, c(1.0 / 3)));
  __m128d q = _mm_add_pd(c(-0.25), _mm_mul_pd(r, c(0.2)));
  p = _mm_add_pd(p, _mm_mul_pd(r2, _mm_add_pd(q, _mm_mul_pd(r2, c(-1.0 / 6)))));
  __m128d hi = _mm_add_pd(_mm_mul_pd(t.k, c(kTab.ln2_hi)), t.logc_hi);
  __m128d lo = _mm_add_pd(_mm_mul_pd(t.k, c(kTab.ln2_lo)), t.logc_lo);
  return _mm_add_pd(hi, _mm_add_pd(r, _mm_add_pd(lo, _mm_mul_pd(r2, p))));
}

// exp(hi + lo) for |hi| < 709 with a normal result.  Deg is the degree of the
// polynomial for exp(r) - 1: 5 keeps its truncation below 2^-61 (full
// double), 3 below 2^-38 (float results, enhanced performance).
template <int Deg>
inline __m128d exp_dd(__m128d hi, __m128d lo) {
  const __m128d shift = c(0x1.8p52);
  __m128d kd = _mm_add_pd(_mm_mul_pd(hi, c(128 / 0.693147180559945309417232121458176568)), shift);
  __m128i ki = _mm_sub_epi64(_mm_castpd_si128(kd), _mm_castpd_si128(shift));
  kd = _mm_sub_pd(kd, shift);
  __m128d r = _mm_sub_pd(hi, _mm_mul_pd(kd, c(kTab.ln2n_hi)));
  r = _mm_add_pd(r, _mm_sub_pd(lo, _mm_mul_pd(kd, c(kTab.ln2n_lo))));
  __m128i j = _mm_and_si128(ki, _mm_set1_epi64x(127));
  __m128d t0 = _mm_load_pd(&kTab.exp[_mm_cvtsi128_si64(j)].hi);
  __m128d t1 = _mm_load_pd(&kTab.exp[_mm_extract_epi64(j, 1)].hi);
  __m128d th = _mm_unpacklo_pd(t0, t1), tl = _mm_unpackhi_pd(t0, t1);
  __m128d r2 = _mm_mul_pd(r, r);
  __m128d p;
  if constexpr (Deg >= 5) {
    __m128d a = _mm_add_pd(c(0.5), _mm_mul_pd(r, c(1.0 / 6)));
    __m128d b = _mm_add_pd(c(1.0 / 24), _mm_mul_pd(r, c(1.0 / 120)));
    p = _mm_add_pd(r, _mm_mul_pd(r2, _mm_add_pd(a, _mm_mul_pd(r2, b))));
  } else {
    __m128d a = _mm_add_pd(c(0.5), _mm_mul_pd(r, c(1.0 / 6)));
    p = _mm_add_pd(r, _mm_mul_pd(r2, a));
  }
  __m128d y = _mm_add_pd(th, _mm_add_pd(tl, _mm_mul_pd(th, p)));
  __m128i sc = _mm_slli_epi64(_mm_sub_epi64(ki, j), 45);
  return _mm_castsi128_pd(_mm_add_epi64(_mm_castpd_si128(y), sc));
}

}  // namespace qor::vm::vec::lx
