// The shared kernel driver.  A kernel is an operation (a struct of static
// member templates, see below) run by one of these loops inside a
// floating-point frame:
//
//   simd_loop   16-byte steps over the body; the last n % lanes elements go
//               through the same vector code on a partially filled register
//               (or through Op::scalar when the operation has one), so a
//               result never depends on where an element falls.  Lanes that
//               Op::special flags are recomputed one at a time by Op::fix,
//               which also chooses the error code reported for them.
//   elem_loop   one element at a time through a per-element routine that
//               returns the value to store and sets a code for exceptional
//               elements.
//
// Sources and destinations hide the layout (contiguous, strided, broadcast
// scalar), so every shape and both forms run the same loop.  Each step reads
// all its inputs before it writes, so the result vector may be an argument
// vector.
#pragma once

#include <complex>
#include <cstdint>
#include <utility>

#include "qor/pex.h"
#include "vm/kernels/core/frame.h"
#include "vm/kernels/core/simd.h"

namespace qor::vm::drv {

using simd::V;

// ---- sources and destinations ---------------------------------------------

template <class T>
struct Contig {
  const T *p;
  auto load(int i, int k) const {
    if constexpr (requires { V<T>::lanes; }) {
      return k == V<T>::lanes ? V<T>::load(p + i) : simd::load_partial(p + i, k);
    }
  }
  T at(int i) const { return p[i]; }
};

template <class T>
struct Strided {
  const T *p;
  long inc;
  auto load(int i, int k) const {
    if constexpr (requires { V<T>::lanes; }) {
      return simd::load_strided(p + long(i) * inc, inc, k);
    }
  }
  T at(int i) const { return p[long(i) * inc]; }
};

template <class T>
struct Scalar {
  T v;
  auto load(int, int) const {
    if constexpr (requires { V<T>::lanes; }) return V<T>::set1(v);
  }
  T at(int) const { return v; }
};

template <class T>
struct ContigOut {
  T *p;
  template <class R>
  void store(int i, R v, int k) const {
    if (k == V<T>::lanes)
      V<T>::store(p + i, v);
    else
      simd::store_partial(p + i, v, k);
  }
  void put(int i, T v) const { p[i] = v; }
};

template <class T>
struct StridedOut {
  T *p;
  long inc;
  template <class R>
  void store(int i, R v, int k) const {
    simd::store_strided(p + long(i) * inc, inc, v, k);
  }
  void put(int i, T v) const { p[long(i) * inc] = v; }
};

// ---- error reports --------------------------------------------------------

template <class E>
struct ErrTraits;
template <>
struct ErrTraits<float> {
  using P = float;
  static constexpr auto contig = pex_error_s;
  static constexpr auto strided = pex_error_sI;
};
template <>
struct ErrTraits<double> {
  using P = double;
  static constexpr auto contig = pex_error_d;
  static constexpr auto strided = pex_error_dI;
};
template <>
struct ErrTraits<std::complex<float>> {
  using P = float;
  static constexpr auto contig = pex_error_c;
  static constexpr auto strided = pex_error_cI;
};
template <>
struct ErrTraits<std::complex<double>> {
  using P = double;
  static constexpr auto contig = pex_error_z;
  static constexpr auto strided = pex_error_zI;
};

// What the error handler gets for one kernel call: the vectors with their
// increments (0 for a scalar argument: the handler then reads the scalar for
// every index) and the report name.  Contiguous calls with plain vectors use
// the contiguous handler, everything else the strided one.
template <class E>
struct Reporter {
  using P = typename ErrTraits<E>::P;
  const E *a1;
  int32_t inc1;
  const E *a2;
  int32_t inc2;
  E *r1;
  int32_t incr1;
  E *r2;
  int32_t incr2;
  const char *name;
  bool contiguous;

  void operator()(int code, int index) const {
    auto p = [](const E *x) { return reinterpret_cast<const P *>(x); };
    auto q = [](E *x) { return reinterpret_cast<P *>(x); };
    if (contiguous)
      ErrTraits<E>::contig(code, index, p(a1), p(a2), q(r1), q(r2), name);
    else
      ErrTraits<E>::strided(code, index, p(a1), inc1, p(a2), inc2, q(r1), incr1, q(r2), incr2,
                            name);
  }
};

template <class E>
Reporter<E> rep_contig(const E *a1, const E *a2, E *r1, E *r2, const char *name) {
  return {a1, 1, a2, 1, r1, 1, r2, 1, name, true};
}
template <class E>
Reporter<E> rep_strided(const E *a1, int32_t i1, const E *a2, int32_t i2, E *r1, int32_t j1,
                        E *r2, int32_t j2, const char *name) {
  return {a1, i1, a2, i2, r1, j1, r2, j2, name, false};
}

// ---- operation protocol ---------------------------------------------------

template <class Op, class T, int S>
constexpr frame::Kind frame_of() {
  if constexpr (requires { Op::template frame<T, S>(); })
    return Op::template frame<T, S>();
  else
    return frame::Kind::Mode;
}

template <class Op, class T, int S, class... A>
concept HasSpecial = requires(typename V<T>::reg x) { Op::template special<T, S>(x, x); } ||
                     requires(typename V<T>::reg x) { Op::template special<T, S>(x, x, x); };

// ---- loops ----------------------------------------------------------------

// The lanes a step flags go one by one through the operation's scalar fix,
// out of line: they are rare, and keeping them out of the step keeps the
// step small enough to be inlined whole into the loop.
template <class Op, class T, int S, class Out, class Rep>
[[gnu::noinline, gnu::cold]] void fix1(int i, int k, int m, const Out &out, const Rep &rep,
                                       typename V<T>::reg x) {
  T xs[V<T>::lanes];
  V<T>::store(xs, x);
  for (int j = 0; j < k; ++j) {
    if (!(m >> j & 1)) continue;
    int code = 0;
    T v = Op::template fix<T, S>(xs[j], code);
    out.put(i + j, v);
    if (code) rep(code, i + j);
  }
}

template <class Op, class T, int S, class Out, class Rep>
[[gnu::noinline, gnu::cold]] void fix2(int i, int k, int m, const Out &out, const Rep &rep,
                                       typename V<T>::reg x, typename V<T>::reg z) {
  T xs[V<T>::lanes], zs[V<T>::lanes];
  V<T>::store(xs, x);
  V<T>::store(zs, z);
  for (int j = 0; j < k; ++j) {
    if (!(m >> j & 1)) continue;
    int code = 0;
    T v = Op::template fix<T, S>(xs[j], zs[j], code);
    out.put(i + j, v);
    if (code) rep(code, i + j);
  }
}

// One vector step of k lanes starting at element i.  Forced inline and
// flattened: in a translation unit holding hundreds of kernels the
// compiler's unit-growth budget otherwise leaves some steps, or the
// operation's helpers, as calls (measured: sExp2 2.7 against 1.3 cycles per
// element).
// The lanes of a stored one-argument step that the operation flags, fixed.
template <class Op, class T, int S, class Out, class Rep, class R>
[[gnu::always_inline]] inline void fix_flagged1(int i, int k, const Out &out, const Rep &rep,
                                                R x, R y) {
  if constexpr (requires { Op::template special<T, S>(x, y); }) {
    int m = Op::template special<T, S>(x, y) & ((1 << k) - 1);
    if (m) [[unlikely]]
      fix1<Op, T, S>(i, k, m, out, rep, x);
  }
}

template <class Op, class T, int S, class Out, class Rep, class A>
[[gnu::always_inline, gnu::flatten]] inline void step1(int i, int k, const Out &out,
                                                       const Rep &rep, const A &a) {
  auto x = a.load(i, k);
  auto y = Op::template vec<T, S>(x);
  out.store(i, y, k);
  fix_flagged1<Op, T, S>(i, k, out, rep, x, y);
}

template <class Op, class T, int S, class Out, class Rep, class A, class B>
[[gnu::always_inline, gnu::flatten]] inline void step2(int i, int k, const Out &out,
                                                       const Rep &rep, const A &a, const B &b) {
  auto x = a.load(i, k);
  auto z = b.load(i, k);
  auto y = Op::template vec<T, S>(x, z);
  out.store(i, y, k);
  if constexpr (requires { Op::template special<T, S>(x, z, y); }) {
    int m = Op::template special<T, S>(x, z, y) & ((1 << k) - 1);
    if (m) [[unlikely]]
      fix2<Op, T, S>(i, k, m, out, rep, x, z);
  }
}

// Registers per loop trip: two by default (a one-instruction operation is
// otherwise bound by the loop's own bookkeeping); an operation whose steps
// are long dependency chains may ask for more with `static constexpr int
// unroll`, so that independent registers overlap in the pipeline.
template <class Op>
constexpr int unroll_of() {
  if constexpr (requires { Op::unroll; })
    return Op::unroll;
  else
    return 2;
}

// An operation whose cost differs a lot between regions of its argument may
// split its evaluation: `split(x, defer)` returns the results of the common
// region's lanes (and NaN for lanes left to the per-element fix) and sets
// in `defer` the bits of the lanes it leaves for later; those lanes are
// collected, packed into full registers and evaluated by `vec`, which must
// give a lane the same bits whatever its neighbours.  A register with one
// lane in each region then costs one evaluation and a half, not two.
template <class Op, class T, int S>
concept Splits = requires(typename V<T>::reg x, int &d) { Op::template split<T, S>(x, d); };

// The deferred lanes' evaluation is typically one long dependency chain per
// register; an operation may offer `deferred(x, y)` over `kDeferGroup`
// registers at once, stage by stage, giving each lane the bits vec() would,
// so that the chains overlap in the pipeline.  Otherwise they go through
// vec() one register at a time.
template <class Op, class T, int S>
constexpr int defer_group() {
  if constexpr (requires(const typename V<T>::reg *x, typename V<T>::reg *y) {
                  Op::kDeferGroup;
                  Op::template deferred<T, S>(x, y);
                })
    return Op::kDeferGroup;
  else
    return 1;
}

template <class Op, class T, int S, class Out, class Rep, class A>
[[gnu::always_inline, gnu::flatten]] inline void split_loop(int body, const Out &out,
                                                            const Rep &rep, const A &a) {
  constexpr int L = V<T>::lanes;
  constexpr int G = defer_group<Op, T, S>();
  constexpr int kChunk = 256;  // elements per round: the deferred lanes stay in L1
  alignas(16) T dx[kChunk + G * L];
  int di[kChunk];
  for (int c0 = 0; c0 < body; c0 += kChunk) {
    const int c1 = body - c0 < kChunk ? body : c0 + kChunk;
    int nd = 0;
    for (int i = c0; i < c1; i += L) {
      auto x = a.load(i, L);
      int defer;
      auto y = Op::template split<T, S>(x, defer);
      out.store(i, y, L);
      fix_flagged1<Op, T, S>(i, L, out, rep, x, y);
      // Every lane is written to the list and only deferred ones advance
      // it: no branch on the data.
      alignas(16) T xs[L];
      V<T>::store(xs, x);
      for (int j = 0; j < L; ++j) {
        di[nd] = i + j;  // nd <= i - c0 + j < kChunk
        dx[nd] = xs[j];
        nd += defer >> j & 1;
      }
    }
    for (int p = 0; p < nd; p += G * L) {
      const int k = nd - p < G * L ? nd - p : G * L;
      for (int j = k; j < G * L; ++j) dx[p + j] = dx[p];  // pad a last partial group
      typename V<T>::reg x[G], y[G];
      for (int g = 0; g < G; ++g) x[g] = V<T>::load(dx + p + g * L);
      if constexpr (G > 1)
        Op::template deferred<T, S>(x, y);
      else
        y[0] = Op::template vec<T, S>(x[0]);
      alignas(16) T ys[G * L];
      for (int g = 0; g < G; ++g) V<T>::store(ys + g * L, y[g]);
      for (int j = 0; j < k; ++j) out.put(di[p + j], ys[j]);
    }
  }
}

// Body of n & -lanes elements in full registers, then the tail.
template <class Op, class T, int S, class Out, class Rep, class... Src>
inline void simd_loop(int n, const Out &out, const Rep &rep, const Src &...src) {
  constexpr int L = V<T>::lanes;
  constexpr int U = unroll_of<Op>();
  const int body = n & ~(L - 1);
  int i = 0;
  if constexpr (sizeof...(Src) == 1 && Splits<Op, T, S>) {
    split_loop<Op, T, S>(body, out, rep, src...);
    i = body;
  }
  for (; i + U * L <= body; i += U * L) {
    [&]<int... k>(std::integer_sequence<int, k...>) {
      if constexpr (sizeof...(Src) == 1)
        (step1<Op, T, S>(i + k * L, L, out, rep, src...), ...);
      else
        (step2<Op, T, S>(i + k * L, L, out, rep, src...), ...);
    }(std::make_integer_sequence<int, U>{});
  }
  for (; i < body; i += L) {
    if constexpr (sizeof...(Src) == 1)
      step1<Op, T, S>(i, L, out, rep, src...);
    else
      step2<Op, T, S>(i, L, out, rep, src...);
  }
  if (i == n) return;
  if constexpr (requires(T x) { Op::template scalar<T, S>(x); } ||
                requires(T x) { Op::template scalar<T, S>(x, x); }) {
    for (; i < n; ++i) out.put(i, Op::template scalar<T, S>(src.at(i)...));
  } else {
    if constexpr (sizeof...(Src) == 1)
      step1<Op, T, S>(i, n - i, out, rep, src...);
    else
      step2<Op, T, S>(i, n - i, out, rep, src...);
  }
}

// One element at a time: f(code, args...) returns the value to store.
template <class Out, class Rep, class F, class... Src>
inline void elem_loop(int n, const Out &out, const Rep &rep, F f, const Src &...src) {
  for (int i = 0; i < n; ++i) {
    int code = 0;
    auto v = f(code, src.at(i)...);
    out.put(i, v);
    if (code) [[unlikely]] rep(code, i);
  }
}

}  // namespace qor::vm::drv
