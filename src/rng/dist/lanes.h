// The elementwise steps around the transformations' vector-math calls,
// written with SSE so that they take two (double) or four (float) elements
// per instruction.  The compiler leaves these loops scalar: at -O2 it
// vectorizes only loops that need neither a scalar tail nor a run-time
// overlap check, and the Box-Muller pair split works in place.  Every
// element gets the same operations in the same order in the vector body and
// in the scalar tail, so results do not depend on where an element falls.
#pragma once

#include <cstdint>

#include "vm/kernels/core/simd.h"

namespace qor::rng::dist::lanes {

using vm::simd::V;

// The even- and odd-indexed elements of the pairs held in a, b.
inline void split_pairs(__m128d a, __m128d b, __m128d &even, __m128d &odd) {
  even = _mm_unpacklo_pd(a, b);
  odd = _mm_unpackhi_pd(a, b);
}
inline void split_pairs(__m128 a, __m128 b, __m128 &even, __m128 &odd) {
  even = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
  odd = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
}
// The inverse: a, b interleaved into lo (first half) and hi.
inline void join_pairs(__m128d a, __m128d b, __m128d &lo, __m128d &hi) {
  lo = _mm_unpacklo_pd(a, b);
  hi = _mm_unpackhi_pd(a, b);
}
inline void join_pairs(__m128 a, __m128 b, __m128 &lo, __m128 &hi) {
  lo = _mm_unpacklo_ps(a, b);
  hi = _mm_unpackhi_ps(a, b);
}

// For k < h: second[k] = f * u[2k + 1], then u[k] = u[2k] (the first
// elements of the pairs packed at the front of u, in place).  Safe in
// place: a store to u[k ..] comes after the loads of u[2k ..], and later
// loads start beyond it.  second must not overlap u.
template <class T>
void unpair(T *u, int32_t h, T *second, T f) {
  using W = V<T>;
  constexpr int L = W::lanes;
  const auto vf = W::set1(f);
  int32_t k = 0;
  for (; k + L <= h; k += L) {
    typename W::reg even, odd;
    split_pairs(W::load(u + 2 * k), W::load(u + 2 * k + L), even, odd);
    W::store(second + k, W::mul(vf, odd));
    W::store(u + k, even);
  }
  for (; k < h; ++k) {
    second[k] = f * u[2 * k + 1];
    u[k] = u[2 * k];
  }
}

// x[k] = x[k] * m, k < n.
template <class T>
void times(T *x, int32_t n, T m) {
  using W = V<T>;
  constexpr int L = W::lanes;
  const auto vm = W::set1(m);
  int32_t k = 0;
  for (; k + L <= n; k += L) W::store(x + k, W::mul(W::load(x + k), vm));
  for (; k < n; ++k) x[k] = x[k] * m;
}

// x[k] = x[k] * m + a, k < n.
template <class T>
void affine(T *x, int32_t n, T m, T a) {
  using W = V<T>;
  constexpr int L = W::lanes;
  const auto vm = W::set1(m), va = W::set1(a);
  int32_t k = 0;
  for (; k + L <= n; k += L) W::store(x + k, W::add(W::mul(W::load(x + k), vm), va));
  for (; k < n; ++k) x[k] = x[k] * m + a;
}

// out[k] = rad[k] * m * s[k] + a, k < n.
template <class T>
void radial(T *out, int32_t n, const T *rad, const T *s, T m, T a) {
  using W = V<T>;
  constexpr int L = W::lanes;
  const auto vm = W::set1(m), va = W::set1(a);
  int32_t k = 0;
  for (; k + L <= n; k += L)
    W::store(out + k, W::add(W::mul(W::mul(W::load(rad + k), vm), W::load(s + k)), va));
  for (; k < n; ++k) out[k] = rad[k] * m * s[k] + a;
}

// out[2k] = rad[k] * s[k], out[2k + 1] = rad[k] * c[k], k < h.
template <class T>
void radial_pairs(T *out, int32_t h, const T *rad, const T *s, const T *c) {
  using W = V<T>;
  constexpr int L = W::lanes;
  int32_t k = 0;
  for (; k + L <= h; k += L) {
    const auto r = W::load(rad + k);
    typename W::reg lo, hi;
    join_pairs(W::mul(r, W::load(s + k)), W::mul(r, W::load(c + k)), lo, hi);
    W::store(out + 2 * k, lo);
    W::store(out + 2 * k + L, hi);
  }
  for (; k < h; ++k) {
    out[2 * k] = rad[k] * s[k];
    out[2 * k + 1] = rad[k] * c[k];
  }
}

}  // namespace qor::rng::dist::lanes
