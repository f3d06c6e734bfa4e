// Kernel entry functions, one pair (contiguous, strided) per argument shape.
// Each runs the frame its operation asks for, then the driver loop: the SIMD
// loop when the operation has a vector form, the per-element loop otherwise.
// `Name` is a type with a static `s`, the function name used in reports.
#pragma once

#include <complex>
#include <cstdint>
#include <type_traits>

#include "qor/vm.h"
#include "vm/kernels/core/driver.h"

namespace qor::vm::shape {

using namespace drv;

// An operation may hand some (type, slot) pairs to another operation.
template <class Op, class T, int S>
auto picked_op() {
  if constexpr (requires { typename Op::template pick<T, S>; })
    return (typename Op::template pick<T, S> *)nullptr;
  else
    return (Op *)nullptr;
}
template <class Op, class T, int S>
using Pick = std::remove_pointer_t<decltype(picked_op<Op, T, S>())>;

template <class Op, class T, int S>
constexpr bool has_vec1 = requires(typename V<T>::reg x) { Op::template vec<T, S>(x); };
template <class Op, class T, int S>
constexpr bool has_vec2 = requires(typename V<T>::reg x) { Op::template vec<T, S>(x, x); };

// ---- real: one argument, one result ------------------------------------------
template <class Op0, class T, int S, class Name>
struct U {
  using Op = Pick<Op0, T, S>;
  template <class A, class Out>
  static void run(int n, const A &a, const Out &out, const Reporter<T> &rep) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    if constexpr (has_vec1<Op, T, S>)
      simd_loop<Op, T, S>(n, out, rep, a);
    else
      elem_loop(n, out, rep, [](int &c, T x) { return Op::template elem<T, S>(x, c); }, a);
  }
  static void contig(int32_t n, const T *a, T *r) {
    run(n, Contig<T>{a}, ContigOut<T>{r}, rep_contig(a, a, r, r, Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, T *r, int32_t incr) {
    run(n, Strided<T>{a, inca}, StridedOut<T>{r, incr},
        rep_strided(a, inca, a, inca, r, incr, r, incr, Name::s));
  }
};

// ---- real: two arguments ---------------------------------------------------
template <class Op0, class T, int S, class Name>
struct B {
  using Op = Pick<Op0, T, S>;
  template <class A, class Bs, class Out>
  static void run(int n, const A &a, const Bs &b, const Out &out, const Reporter<T> &rep) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    if constexpr (has_vec2<Op, T, S>)
      simd_loop<Op, T, S>(n, out, rep, a, b);
    else
      elem_loop(
          n, out, rep, [](int &c, T x, T y) { return Op::template elem<T, S>(x, y, c); }, a, b);
  }
  static void contig(int32_t n, const T *a, const T *b, T *r) {
    run(n, Contig<T>{a}, Contig<T>{b}, ContigOut<T>{r}, rep_contig(a, b, r, r, Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, const T *b, int32_t incb, T *r,
                      int32_t incr) {
    run(n, Strided<T>{a, inca}, Strided<T>{b, incb}, StridedOut<T>{r, incr},
        rep_strided(a, inca, b, incb, r, incr, r, incr, Name::s));
  }
};

// ---- real: vector and scalar (Powx) ----------------------------------------
// The handler reads the scalar through a zero increment.
template <class Op0, class T, int S, class Name>
struct X {
  using Op = Pick<Op0, T, S>;
  static void contig(int32_t n, const T *a, T b, T *r) {
    B<Op, T, S, Name>::run(n, Contig<T>{a}, Scalar<T>{b}, ContigOut<T>{r},
                           rep_strided(a, 1, &b, 0, r, 1, r, 1, Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, T b, T *r, int32_t incr) {
    B<Op, T, S, Name>::run(n, Strided<T>{a, inca}, Scalar<T>{b}, StridedOut<T>{r, incr},
                           rep_strided(a, inca, &b, 0, r, incr, r, incr, Name::s));
  }
};

// ---- real: integer order (Jn, Yn): (n, a, order, r) --------------------------
template <class Op, class T, int S, class Name>
struct J {
  template <class A, class Out>
  static void run(int n, const A &a, int order, const Out &out, const Reporter<T> &rep) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    elem_loop(
        n, out, rep, [order](int &c, T x) { return Op::template elem<T, S>(order, x, c); }, a);
  }
  static void contig(int32_t n, const T *a, int32_t order, T *r) {
    run(n, Contig<T>{a}, order, ContigOut<T>{r}, rep_contig(a, a, r, r, Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, int32_t order, T *r, int32_t incr) {
    run(n, Strided<T>{a, inca}, order, StridedOut<T>{r, incr},
        rep_strided(a, inca, a, inca, r, incr, r, incr, Name::s));
  }
};

// ---- real: two results (Modf, SinCos, SinCospi) --------------------------------
template <class Op, class T, int S, class Name>
struct R2 {
  template <class A, class Out>
  static void run(int n, const A &a, const Out &o1, const Out &o2, const Reporter<T> &rep) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    if constexpr (requires(typename V<T>::reg x) { Op::template vec2<T, S>(x, x, x); }) {
      constexpr int L = V<T>::lanes;
      for (int i = 0; i < n; i += L) {
        int k = n - i < L ? n - i : L;
        auto x = a.load(i, k);
        typename V<T>::reg y1, y2;
        Op::template vec2<T, S>(x, y1, y2);
        o1.store(i, y1, k);
        o2.store(i, y2, k);
        // Lanes the vector form cannot serve are redone one at a time, both
        // results and the report coming from the per-element routine; the
        // tail runs the same code on a partial register, so where an element
        // falls changes nothing.
        if constexpr (requires(T v, T &w, int &c) {
                        Op::template special<T, S>(x, y1);
                        Op::template fix2<T, S>(v, w, w, c);
                      }) {
          int m = Op::template special<T, S>(x, y1) & ((1 << k) - 1);
          if (m) [[unlikely]] {
            T xs[L];
            V<T>::store(xs, x);
            for (int j = 0; j < k; ++j) {
              if (!(m >> j & 1)) continue;
              int code = 0;
              T v1, v2;
              Op::template fix2<T, S>(xs[j], v1, v2, code);
              o1.put(i + j, v1);
              o2.put(i + j, v2);
              if (code) rep(code, i + j);
            }
          }
        }
      }
    } else {
      for (int i = 0; i < n; ++i) {
        int code = 0;
        T y1, y2;
        Op::template elem<T, S>(a.at(i), y1, y2, code);
        o1.put(i, y1);
        o2.put(i, y2);
        if (code) [[unlikely]] rep(code, i);
      }
    }
  }
  static void contig(int32_t n, const T *a, T *r1, T *r2) {
    run(n, Contig<T>{a}, ContigOut<T>{r1}, ContigOut<T>{r2}, rep_contig(a, a, r1, r2, Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, T *r1, int32_t incr1, T *r2,
                      int32_t incr2) {
    run(n, Strided<T>{a, inca}, StridedOut<T>{r1, incr1}, StridedOut<T>{r2, incr2},
        rep_strided(a, inca, a, inca, r1, incr1, r2, incr2, Name::s));
  }
};

// ---- real: LinearFrac -------------------------------------------------------
template <class Op, class T, int S, class Name>
struct LF {
  struct Step {
    T sa, ha, sb, hb;
  };
  template <class A, class Bs, class Out>
  static void run(int n, const A &a, const Bs &b, T sa, T ha, T sb, T hb, const Out &out) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    using W = V<T>;
    constexpr int L = W::lanes;
    auto vsa = W::set1(sa), vha = W::set1(ha), vsb = W::set1(sb), vhb = W::set1(hb);
    for (int i = 0; i < n; i += L) {
      int k = n - i < L ? n - i : L;
      auto x = a.load(i, k);
      auto y = b.load(i, k);
      auto num = W::add(W::mul(vsa, x), vha);
      auto den = W::add(W::mul(vsb, y), vhb);
      out.store(i, W::div(num, den), k);
    }
  }
  static void contig(int32_t n, const T *a, const T *b, T sa, T ha, T sb, T hb, T *r) {
    run(n, Contig<T>{a}, Contig<T>{b}, sa, ha, sb, hb, ContigOut<T>{r});
  }
  static void strided(int32_t n, const T *a, int32_t inca, const T *b, int32_t incb, T sa, T ha,
                      T sb, T hb, T *r, int32_t incr) {
    run(n, Strided<T>{a, inca}, Strided<T>{b, incb}, sa, ha, sb, hb, StridedOut<T>{r, incr});
  }
};

// ---- complex ----------------------------------------------------------------
// T is the real component type; vectors are (re, im) pairs, read and written
// through std::complex<T>, whose layout is exactly such a pair.
template <class T>
using Cx = std::complex<T>;
template <class T>
const Cx<T> *cx(const T *p) {
  return reinterpret_cast<const Cx<T> *>(p);
}
template <class T>
Cx<T> *cx(T *p) {
  return reinterpret_cast<Cx<T> *>(p);
}

// Complex SIMD loop.  An operation with `blk<T, S>(a, b, r)` computes a
// block of 16 / sizeof(T) elements (4 complex floats, 2 complex doubles)
// from memory into a local block and returns the elements it flags; those
// are recomputed by `fix<T, S>(a, b, code)` and reported with their own
// index.  Tails and strided vectors are gathered into a local block whose
// unused elements repeat the first one (no extra flags, nothing outside the
// vectors touched), so an element's result is the same wherever it falls.
template <class Op, class T, int S>
constexpr bool has_cblk = requires(const T *p, T *q) { Op::template blk<T, S>(p, p, q); };
template <class Op, class T, int S>
constexpr bool has_cblk_r = requires(const T *p, T *q) { Op::template blk_r<T, S>(p, q); };

template <class T>
constexpr int kCBlock = 16 / int(sizeof(T));

// Pointer to the k elements at i: the vector itself when it is contiguous
// and the block is whole, else the block gathered into `buf`.
template <class T, class A>
[[gnu::always_inline]] inline const T *cblock_in(const A &a, int i, int k, T *raw) {
  if constexpr (std::is_same_v<A, Contig<Cx<T>>>) {
    if (k == kCBlock<T>) return reinterpret_cast<const T *>(a.p + i);
  }
  // Gathered in 16-byte pieces, so that the block's 16-byte loads are served
  // from the store buffer (element-sized stores would stall them).
  auto at = [&](int j) -> const Cx<T> * {
    const int e = i + (j < k ? j : 0);
    if constexpr (std::is_same_v<A, Scalar<Cx<T>>>)
      return &a.v;
    else if constexpr (std::is_same_v<A, Strided<Cx<T>>>)
      return a.p + long(e) * a.inc;
    else
      return a.p + e;
  };
  if constexpr (std::is_same_v<T, float>) {
    for (int j = 0; j < kCBlock<T>; j += 2) {
      const __m128d lo = _mm_load_sd(reinterpret_cast<const double *>(at(j)));
      const __m128d hi = _mm_load_sd(reinterpret_cast<const double *>(at(j + 1)));
      _mm_store_pd(reinterpret_cast<double *>(raw + 2 * j), _mm_unpacklo_pd(lo, hi));
    }
  } else {
    for (int j = 0; j < kCBlock<T>; ++j)
      _mm_store_pd(raw + 2 * j, _mm_loadu_pd(reinterpret_cast<const double *>(at(j))));
  }
  return raw;
}

// Where a block's results go: straight into a contiguous result vector when
// the block is whole and does not overlap the block's inputs (which the fix
// path may still need), else into the local block `raw`.
template <class E, class Out>
[[gnu::always_inline]] inline auto *cblock_dst(const Out &out, int i, int k, int nb,
                                               const void *pa, const void *pb, void *raw) {
  using P = std::conditional_t<std::is_same_v<E, Cx<float>> || std::is_same_v<E, float>, float,
                               double>;
  if constexpr (std::is_same_v<Out, ContigOut<E>>) {
    if (k == nb) {
      const char *o = reinterpret_cast<const char *>(out.p + i);
      const size_t len = sizeof(E) * size_t(nb);
      auto apart = [&](const void *q) {
        const char *c = static_cast<const char *>(q);
        return o + len <= c || c + 32 <= o;
      };
      if (apart(pa) && apart(pb)) return reinterpret_cast<P *>(out.p + i);
    }
  }
  return static_cast<P *>(raw);
}

template <class E, class Out>
[[gnu::always_inline]] inline void cblock_out(const Out &out, int i, int k, const void *raw) {
  const E *r = static_cast<const E *>(raw);
  for (int j = 0; j < k; ++j) out.put(i + j, r[j]);
}

template <class Op, class T, int S, class Out, class Rep>
[[gnu::noinline, gnu::cold]] void cfix2(int i, int m, const Out &out, const Rep &rep,
                                        const Cx<T> *xa, const Cx<T> *xb) {
  for (int j = 0; m >> j; ++j) {
    if (!(m >> j & 1)) continue;
    int code = 0;
    out.put(i + j, Op::template fix<T, S>(xa[j], xb[j], code));
    if (code) rep(code, i + j);
  }
}

template <class Op, class T, int S, class A, class Bs, class Out, class Rep>
inline void cloop2(int n, const A &a, const Bs &b, const Out &out, const Rep &rep) {
  constexpr int E = kCBlock<T>;
  for (int i = 0; i < n; i += E) {
    const int k = n - i < E ? n - i : E;
    alignas(16) T ba[2 * E], bb[2 * E], rb[2 * E];
    const T *pa = cblock_in<T>(a, i, k, ba);
    const T *pb = cblock_in<T>(b, i, k, bb);
    T *pr = cblock_dst<Cx<T>>(out, i, k, E, pa, pb, rb);
    const int m = Op::template blk<T, S>(pa, pb, pr) & ((1 << k) - 1);
    if (m) [[unlikely]] {
      Cx<T> xa[E], xb[E];
      __builtin_memcpy(static_cast<void *>(xa), pa, sizeof xa);
      __builtin_memcpy(static_cast<void *>(xb), pb, sizeof xb);
      if (pr == rb) cblock_out<Cx<T>>(out, i, k, rb);
      cfix2<Op, T, S>(i, m, out, rep, xa, xb);
    } else if (pr == rb) {
      cblock_out<Cx<T>>(out, i, k, rb);
    }
  }
}

template <class Op, class T, int S, class Name>
struct CU {
  template <class A, class Out>
  static void run(int n, const A &a, const Out &out, const Reporter<Cx<T>> &rep) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    elem_loop(n, out, rep, [](int &c, Cx<T> x) { return Op::template elem<T, S>(x, c); }, a);
  }
  static void contig(int32_t n, const T *a, T *r) {
    run(n, Contig<Cx<T>>{cx(a)}, ContigOut<Cx<T>>{cx(r)},
        rep_contig(cx(a), cx(a), cx(r), cx(r), Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, T *r, int32_t incr) {
    run(n, Strided<Cx<T>>{cx(a), inca}, StridedOut<Cx<T>>{cx(r), incr},
        rep_strided(cx(a), inca, cx(a), inca, cx(r), incr, cx(r), incr, Name::s));
  }
};

template <class Op, class T, int S, class Name>
struct CB {
  template <class A, class Bs, class Out>
  static void run(int n, const A &a, const Bs &b, const Out &out, const Reporter<Cx<T>> &rep) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    if constexpr (has_cblk<Op, T, S>)
      cloop2<Op, T, S>(n, a, b, out, rep);
    else
      elem_loop(
          n, out, rep, [](int &c, Cx<T> x, Cx<T> y) { return Op::template elem<T, S>(x, y, c); },
          a, b);
  }
  static void contig(int32_t n, const T *a, const T *b, T *r) {
    run(n, Contig<Cx<T>>{cx(a)}, Contig<Cx<T>>{cx(b)}, ContigOut<Cx<T>>{cx(r)},
        rep_contig(cx(a), cx(b), cx(r), cx(r), Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, const T *b, int32_t incb, T *r,
                      int32_t incr) {
    run(n, Strided<Cx<T>>{cx(a), inca}, Strided<Cx<T>>{cx(b), incb},
        StridedOut<Cx<T>>{cx(r), incr},
        rep_strided(cx(a), inca, cx(b), incb, cx(r), incr, cx(r), incr, Name::s));
  }
};

// Complex Powx: `c` takes the scalar by value, `z` by address.
template <class Op, class T, int S, class Name>
struct CX {
  using Arg = std::conditional_t<std::is_same_v<T, float>, QorComplex8, const QorComplex16 *>;
  static Cx<T> value(Arg b) {
    if constexpr (std::is_same_v<T, float>)
      return {b.re, b.im};
    else
      return {b->re, b->im};
  }
  static void contig(int32_t n, const T *a, Arg b, T *r) {
    Cx<T> s = value(b);
    CB<Op, T, S, Name>::run(n, Contig<Cx<T>>{cx(a)}, Scalar<Cx<T>>{s}, ContigOut<Cx<T>>{cx(r)},
                            rep_strided(cx(a), 1, &s, 0, cx(r), 1, cx(r), 1, Name::s));
  }
  static void strided(int32_t n, const T *a, int32_t inca, Arg b, T *r, int32_t incr) {
    Cx<T> s = value(b);
    CB<Op, T, S, Name>::run(n, Strided<Cx<T>>{cx(a), inca}, Scalar<Cx<T>>{s},
                            StridedOut<Cx<T>>{cx(r), incr},
                            rep_strided(cx(a), inca, &s, 0, cx(r), incr, cx(r), incr, Name::s));
  }
};

// Complex argument, real result (Abs, Arg).  The complex handler would
// address the real result vector as pairs and write past the element, so an
// exceptional element is reported through a one-element complex scratch
// (zero increment) and its possibly edited real part copied back.
template <class Op, class T, int S, class Name>
struct CR {
  template <class A, class Out>
  static void run(int n, const A &a, const T *abase, int32_t inca, bool contiguous,
                  const Out &out) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    auto report = [&](int i, int code, T v) {
      Cx<T> res{v, T(0)};
      if (contiguous)
        ErrTraits<Cx<T>>::strided(code, i, abase, 1, abase, 1, reinterpret_cast<T *>(&res), 0,
                                  reinterpret_cast<T *>(&res), 0, Name::s);
      else
        ErrTraits<Cx<T>>::strided(code, i, abase, inca, abase, inca, reinterpret_cast<T *>(&res),
                                  0, reinterpret_cast<T *>(&res), 0, Name::s);
      out.put(i, res.real());
    };
    if constexpr (has_cblk_r<Op, T, S>) {
      // Vector blocks as in cloop2; flagged elements through fix_r.
      constexpr int E = kCBlock<T>;
      for (int i = 0; i < n; i += E) {
        const int k = n - i < E ? n - i : E;
        alignas(16) T ba[2 * E], rb[E];
        const T *pa = cblock_in<T>(a, i, k, ba);
        T *pr = cblock_dst<T>(out, i, k, E, pa, pa, rb);
        const int m = Op::template blk_r<T, S>(pa, pr) & ((1 << k) - 1);
        if (m) [[unlikely]] {
          Cx<T> xa[E];
          __builtin_memcpy(static_cast<void *>(xa), pa, sizeof xa);
          if (pr == rb) cblock_out<T>(out, i, k, rb);
          [&]() __attribute__((noinline, cold)) {
            for (int j = 0; j < k; ++j) {
              if (!(m >> j & 1)) continue;
              int code = 0;
              const T v = Op::template fix_r<T, S>(xa[j], code);
              out.put(i + j, v);
              if (code) report(i + j, code, v);
            }
          }();
        } else if (pr == rb) {
          cblock_out<T>(out, i, k, rb);
        }
      }
      return;
    } else {
      for (int i = 0; i < n; ++i) {
        int code = 0;
        T v = Op::template elem_r<T, S>(a.at(i), code);
        out.put(i, v);
        if (code) [[unlikely]] report(i, code, v);
      }
    }
  }
  static void contig(int32_t n, const T *a, T *r) {
    run(n, Contig<Cx<T>>{cx(a)}, a, 1, true, ContigOut<T>{r});
  }
  static void strided(int32_t n, const T *a, int32_t inca, T *r, int32_t incr) {
    run(n, Strided<Cx<T>>{cx(a), inca}, a, inca, false, StridedOut<T>{r, incr});
  }
};

// Real argument, complex result (CIS).  The argument is reported through a
// one-element complex scratch (zero increment) for the same reason; the
// result goes straight to its pair.
template <class Op, class T, int S, class Name>
struct CC {
  template <class A, class Out>
  static void run(int n, const A &a, const Out &out, T *rbase, int32_t incr) {
    [[maybe_unused]] frame::Guard<frame_of<Op, T, S>()> g;
    if (n <= 0) return;
    for (int i = 0; i < n; ++i) {
      int code = 0;
      Cx<T> v = Op::template elem_c<T, S>(a.at(i), code);
      out.put(i, v);
      if (code) [[unlikely]] {
        Cx<T> arg{a.at(i), T(0)};
        const T *ap = reinterpret_cast<const T *>(&arg);
        ErrTraits<Cx<T>>::strided(code, i, ap, 0, ap, 0, rbase, incr, rbase, incr, Name::s);
      }
    }
  }
  static void contig(int32_t n, const T *a, T *r) {
    run(n, Contig<T>{a}, ContigOut<Cx<T>>{cx(r)}, r, 1);
  }
  static void strided(int32_t n, const T *a, int32_t inca, T *r, int32_t incr) {
    run(n, Strided<T>{a, inca}, StridedOut<Cx<T>>{cx(r), incr}, r, incr);
  }
};

// ---- Pack and Unpack ----------------------------------------------------------
// Pure copies of whole elements (no arithmetic, so no frame).  `width` 1:
// 32-bit count, increment and indices; otherwise 64-bit ones, the count and
// increment then arriving in the full registers.
template <class E>
struct Pack {
  static int64_t count(int64_t n, int width) { return width == 1 ? int64_t(int32_t(n)) : n; }
  static int64_t index(const void *iv, int64_t i, int width) {
    return width == 1 ? int64_t(static_cast<const int32_t *>(iv)[i])
                      : static_cast<const int64_t *>(iv)[i];
  }
  static void packI(int64_t n, const E *a, int64_t inca, E *y, int width) {
    n = count(n, width);
    inca = count(inca, width);
    for (int64_t i = 0; i < n; ++i) y[i] = a[i * inca];
  }
  static void packV(int64_t n, const E *a, const void *ia, E *y, int width) {
    n = count(n, width);
    for (int64_t i = 0; i < n; ++i) y[i] = a[index(ia, i, width)];
  }
  static void packM(int64_t n, const E *a, const int32_t *ma, E *y, int width) {
    n = count(n, width);
    int64_t j = 0;
    for (int64_t i = 0; i < n; ++i)
      if (ma[i] != 0) y[j++] = a[i];
  }
  static void unpackI(int64_t n, const E *a, E *y, int64_t incy, int width) {
    n = count(n, width);
    incy = count(incy, width);
    for (int64_t i = 0; i < n; ++i) y[i * incy] = a[i];
  }
  static void unpackV(int64_t n, const E *a, E *y, const void *iy, int width) {
    n = count(n, width);
    for (int64_t i = 0; i < n; ++i) y[index(iy, i, width)] = a[i];
  }
  static void unpackM(int64_t n, const E *a, E *y, const int32_t *my, int width) {
    n = count(n, width);
    int64_t j = 0;
    for (int64_t i = 0; i < n; ++i)
      if (my[i] != 0) y[i] = a[j++];
  }
};

}  // namespace qor::vm::shape
