// Thin SSE4.2 layer shared by the float and double kernels: one template per
// algorithm, the lane type chosen by a traits struct.  Names say what they do;
// all loads and stores are unaligned.
#pragma once

#include <smmintrin.h>

#include <cstdint>
#include <cstring>

namespace qor::vm::simd {

template <class T>
struct V;

template <>
struct V<float> {
  using T = float;
  using reg = __m128;
  using ireg = __m128i;
  using bits = uint32_t;
  static constexpr int lanes = 4;
  static constexpr bits sign_bit = 0x80000000u;
  static constexpr bits exp_mask = 0x7F800000u;
  static constexpr int mant_bits = 23;

  static reg load(const T *p) { return _mm_loadu_ps(p); }
  static void store(T *p, reg v) { _mm_storeu_ps(p, v); }
  static reg set1(T x) { return _mm_set1_ps(x); }
  static reg zero() { return _mm_setzero_ps(); }
  static reg add(reg a, reg b) { return _mm_add_ps(a, b); }
  static reg sub(reg a, reg b) { return _mm_sub_ps(a, b); }
  static reg mul(reg a, reg b) { return _mm_mul_ps(a, b); }
  static reg div(reg a, reg b) { return _mm_div_ps(a, b); }
  static reg sqrt(reg a) { return _mm_sqrt_ps(a); }
  static reg max(reg a, reg b) { return _mm_max_ps(a, b); }
  static reg min(reg a, reg b) { return _mm_min_ps(a, b); }
  static reg and_(reg a, reg b) { return _mm_and_ps(a, b); }
  static reg or_(reg a, reg b) { return _mm_or_ps(a, b); }
  static reg xor_(reg a, reg b) { return _mm_xor_ps(a, b); }
  static reg andnot(reg a, reg b) { return _mm_andnot_ps(a, b); }  // ~a & b
  static reg blend(reg a, reg b, reg m) { return _mm_blendv_ps(a, b, m); }
  static reg eq(reg a, reg b) { return _mm_cmpeq_ps(a, b); }
  static reg neq(reg a, reg b) { return _mm_cmpneq_ps(a, b); }
  static reg lt(reg a, reg b) { return _mm_cmplt_ps(a, b); }
  static reg le(reg a, reg b) { return _mm_cmple_ps(a, b); }
  static reg gt(reg a, reg b) { return _mm_cmpgt_ps(a, b); }
  static reg ge(reg a, reg b) { return _mm_cmpge_ps(a, b); }
  static reg unord(reg a, reg b) { return _mm_cmpunord_ps(a, b); }
  static int movemask(reg m) { return _mm_movemask_ps(m); }
  template <int imm>
  static reg round(reg a) { return _mm_round_ps(a, imm); }
  static reg signmask() { return _mm_castsi128_ps(_mm_set1_epi32(int(sign_bit))); }
  static reg absmask() { return _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF)); }
  static ireg as_int(reg a) { return _mm_castps_si128(a); }
  static reg as_fp(ireg a) { return _mm_castsi128_ps(a); }
  static ireg iset1(bits x) { return _mm_set1_epi32(int(x)); }
  static ireg iadd(ireg a, ireg b) { return _mm_add_epi32(a, b); }
  static ireg isub(ireg a, ireg b) { return _mm_sub_epi32(a, b); }
  static ireg ieq(ireg a, ireg b) { return _mm_cmpeq_epi32(a, b); }
  static ireg igt(ireg a, ireg b) { return _mm_cmpgt_epi32(a, b); }  // signed
  static reg rcp(reg a) { return _mm_rcp_ps(a); }
  static reg rsqrt(reg a) { return _mm_rsqrt_ps(a); }
  static ireg iand(ireg a, ireg b) { return _mm_and_si128(a, b); }
  template <int k> static ireg shl(ireg a) { return _mm_slli_epi32(a, k); }
  template <int k> static ireg shr(ireg a) { return _mm_srli_epi32(a, k); }  // logical
};

template <>
struct V<double> {
  using T = double;
  using reg = __m128d;
  using ireg = __m128i;
  using bits = uint64_t;
  static constexpr int lanes = 2;
  static constexpr bits sign_bit = 0x8000000000000000ull;
  static constexpr bits exp_mask = 0x7FF0000000000000ull;
  static constexpr int mant_bits = 52;

  static reg load(const T *p) { return _mm_loadu_pd(p); }
  static void store(T *p, reg v) { _mm_storeu_pd(p, v); }
  static reg set1(T x) { return _mm_set1_pd(x); }
  static reg zero() { return _mm_setzero_pd(); }
  static reg add(reg a, reg b) { return _mm_add_pd(a, b); }
  static reg sub(reg a, reg b) { return _mm_sub_pd(a, b); }
  static reg mul(reg a, reg b) { return _mm_mul_pd(a, b); }
  static reg div(reg a, reg b) { return _mm_div_pd(a, b); }
  static reg sqrt(reg a) { return _mm_sqrt_pd(a); }
  static reg max(reg a, reg b) { return _mm_max_pd(a, b); }
  static reg min(reg a, reg b) { return _mm_min_pd(a, b); }
  static reg and_(reg a, reg b) { return _mm_and_pd(a, b); }
  static reg or_(reg a, reg b) { return _mm_or_pd(a, b); }
  static reg xor_(reg a, reg b) { return _mm_xor_pd(a, b); }
  static reg andnot(reg a, reg b) { return _mm_andnot_pd(a, b); }
  static reg blend(reg a, reg b, reg m) { return _mm_blendv_pd(a, b, m); }
  static reg eq(reg a, reg b) { return _mm_cmpeq_pd(a, b); }
  static reg neq(reg a, reg b) { return _mm_cmpneq_pd(a, b); }
  static reg lt(reg a, reg b) { return _mm_cmplt_pd(a, b); }
  static reg le(reg a, reg b) { return _mm_cmple_pd(a, b); }
  static reg gt(reg a, reg b) { return _mm_cmpgt_pd(a, b); }
  static reg ge(reg a, reg b) { return _mm_cmpge_pd(a, b); }
  static reg unord(reg a, reg b) { return _mm_cmpunord_pd(a, b); }
  static int movemask(reg m) { return _mm_movemask_pd(m); }
  template <int imm>
  static reg round(reg a) { return _mm_round_pd(a, imm); }
  static reg signmask() { return _mm_castsi128_pd(_mm_set1_epi64x(int64_t(sign_bit))); }
  static reg absmask() { return _mm_castsi128_pd(_mm_set1_epi64x(0x7FFFFFFFFFFFFFFFll)); }
  static ireg as_int(reg a) { return _mm_castpd_si128(a); }
  static reg as_fp(ireg a) { return _mm_castsi128_pd(a); }
  static ireg iset1(bits x) { return _mm_set1_epi64x(int64_t(x)); }
  static ireg iadd(ireg a, ireg b) { return _mm_add_epi64(a, b); }
  static ireg isub(ireg a, ireg b) { return _mm_sub_epi64(a, b); }
  static ireg ieq(ireg a, ireg b) { return _mm_cmpeq_epi64(a, b); }
  static ireg igt(ireg a, ireg b) { return _mm_cmpgt_epi64(a, b); }  // SSE4.2
  static ireg iand(ireg a, ireg b) { return _mm_and_si128(a, b); }
  template <int k> static ireg shl(ireg a) { return _mm_slli_epi64(a, k); }
  template <int k> static ireg shr(ireg a) { return _mm_srli_epi64(a, k); }  // logical
};

// Moves k < lanes elements between memory and a register without touching
// anything outside the k elements.  Unused lanes repeat the first element so
// that they raise no flag an actual element would not raise.
template <class T>
inline typename V<T>::reg load_partial(const T *p, int k) {
  T buf[V<T>::lanes];
  for (int j = 0; j < V<T>::lanes; ++j) buf[j] = p[j < k ? j : 0];
  return V<T>::load(buf);
}
template <class T>
inline void store_partial(T *p, typename V<T>::reg v, int k) {
  T buf[V<T>::lanes];
  V<T>::store(buf, v);
  for (int j = 0; j < k; ++j) p[j] = buf[j];
}
// Strided gather and scatter of k <= lanes elements (increment in elements).
// Full registers are assembled and taken apart in registers: going through a
// small stack buffer costs a failed store-to-load forwarding on every step.
template <class T>
inline typename V<T>::reg load_strided(const T *p, long inc, int k) {
  if (k == V<T>::lanes) {
    if constexpr (sizeof(T) == 4)
      return _mm_setr_ps(p[0], p[inc], p[2 * inc], p[3 * inc]);
    else
      return _mm_setr_pd(p[0], p[inc]);
  }
  T buf[V<T>::lanes];
  for (int j = 0; j < V<T>::lanes; ++j) buf[j] = p[(j < k ? j : 0) * inc];
  return V<T>::load(buf);
}
template <class T>
inline void store_strided(T *p, long inc, typename V<T>::reg v, int k) {
  if constexpr (sizeof(T) == 4) {
    _mm_store_ss(p, v);
    if (k > 1) _mm_store_ss(p + inc, _mm_shuffle_ps(v, v, 1));
    if (k > 2) _mm_store_ss(p + 2 * inc, _mm_movehl_ps(v, v));
    if (k > 3) _mm_store_ss(p + 3 * inc, _mm_shuffle_ps(v, v, 3));
  } else {
    _mm_storel_pd(p, v);
    if (k > 1) _mm_storeh_pd(p + inc, v);
  }
}

template <class T>
inline typename V<T>::bits bits_of(T x) {
  typename V<T>::bits b;
  std::memcpy(&b, &x, sizeof b);
  return b;
}
template <class T>
inline T from_bits(typename V<T>::bits b) {
  T x;
  std::memcpy(&x, &b, sizeof x);
  return x;
}

}  // namespace qor::vm::simd
