// Vector math speed: cycles per element (time-stamp counter) of every kernel
// table slot, beside the catalogue's cost, and of the peers that have the
// same function: SLEEF's SSE4 variants (1.0/0.5-ulp beside HA, 3.5-ulp beside
// LA), glibc's libmvec SSE variants, and the compiler's auto-vectorised
// <cmath> loop (this file is compiled at -O3).
//
//   bench_vm                       Google Benchmark run (filter as usual)
//   bench_vm --costs [ID...]       one line per table: measured LA HA EP at
//                                  n = 1000, in catalogue order (used to
//                                  record the catalogue's costs)
//   bench_vm --summary [ID...]     table of slots at n = 1000 and 1,000,000
//                                  beside the catalogue cost and the peers
//   bench_vm --domain LO HI ...    either of the above with the arguments drawn
//                                  uniformly from [LO, HI] instead of each
//                                  function's usual domain (e.g. ErfInv on
//                                  (-1, 1), the inverse-CDF generator's inputs)
//
// Benchmarks: vm/<id>/<slot>/<n> for every table at n = 1000, and for the
// arithmetic and rounding functions also at n = 1,000,000;
// peer/<library>/<function>/<n> for the peers.
#include <benchmark/benchmark.h>
#include <smmintrin.h>
#include <x86intrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "qor/pex.h"
#include "qor/vm.h"

// ---- the catalogue ----------------------------------------------------------

enum class Shape { U, B, X, R2, LF, J, CU, CB, CX, CR, CC, P_PackI, P_PackV, P_PackM,
                   P_UnpackI, P_UnpackV, P_UnpackM };

#define UNMEASURED QOR_PEX_COST_UNMEASURED
#define QOR_BENCH_DECL_BOTH(t, F) \
  extern "C" const QorPexKernelTable qor_pex_kernel_##t##F##_ttab, qor_pex_kernel_##t##F##I_ttab;
#define QOR_BENCH_DECL_ONE(t, F) extern "C" const QorPexKernelTable qor_pex_kernel_##t##F##_ttab;
#define QOR_VM_FN(t, F, SH, FORMS, SHARE, IMPL, REP, ...) QOR_BENCH_DECL_##FORMS(t, F)
#include "vm/catalogue.inc"
#undef QOR_VM_FN

namespace {

struct Row {
  std::string id;
  std::string func;
  char t;
  Shape shape;
  bool strided;
  bool arith;
  const QorPexKernelTable *tab;
};

// Kernels written for the SIMD driver (as opposed to per-element routines).
bool simd_impl(const std::string &impl) { return impl == "arith" || impl == "vec"; }

std::vector<Row> rows() {
  std::vector<Row> v;
#define QOR_BENCH_ROW_BOTH(t, F, SH, IMPL)                                                      \
  v.push_back({#t #F, #F, #t[0], Shape::SH, false, simd_impl(#IMPL),  \
               &qor_pex_kernel_##t##F##_ttab});                                                \
  v.push_back({#t #F "I", #F, #t[0], Shape::SH, true, simd_impl(#IMPL),  \
               &qor_pex_kernel_##t##F##I_ttab});
#define QOR_BENCH_ROW_ONE(t, F, SH, IMPL) \
  v.push_back({#t #F, #F, #t[0], Shape::SH, false, false, &qor_pex_kernel_##t##F##_ttab});
#define QOR_VM_FN(t, F, SH, FORMS, SHARE, IMPL, REP, ...) QOR_BENCH_ROW_##FORMS(t, F, SH, IMPL)
#include "vm/catalogue.inc"
#undef QOR_VM_FN
  return v;
}

// Inputs inside each function's domain, so that the timed path is the
// ordinary one.
double domain_lo = 0, domain_hi = 0;  // --domain: used for every function when lo < hi

void domain(const std::string &f, double &lo, double &hi) {
  if (domain_lo < domain_hi) {
    lo = domain_lo, hi = domain_hi;
    return;
  }
  lo = 0.1, hi = 10;
  if (f == "Acos" || f == "Asin" || f == "Atanh" || f == "ErfInv" || f == "Acospi" ||
      f == "Asinpi")
    lo = -0.9, hi = 0.9;
  else if (f == "Acosh")
    lo = 1.1;
  else if (f == "CdfNormInv")
    lo = 0.05, hi = 0.95;
  else if (f == "ErfcInv")
    hi = 1.9;
  else if (f == "Add" || f == "Sub" || f == "Mul" || f == "Sqr" || f == "Floor" || f == "Ceil" ||
           f == "Trunc" || f == "Rint" || f == "NearbyInt" || f == "Round" || f == "Frac" ||
           f == "Modf" || f == "Fmax" || f == "Fmin" || f == "MaxMag" || f == "MinMag" ||
           f == "CopySign" || f == "Fdim" || f == "NextAfter" || f == "Abs" || f == "Sin" ||
           f == "Cos" || f == "Atan" || f == "Sinh" || f == "Tanh" || f == "Erf")
    lo = -100, hi = 100;
}

struct Buffers {
  std::vector<double> a, b, r, r2;
  std::vector<int32_t> idx, mask;
  explicit Buffers(int n) : a(4 * n), b(4 * n), r(4 * n), r2(4 * n), idx(n), mask(n) {}
  void fill(const Row &row, int n) {
    double lo, hi;
    domain(row.func, lo, hi);
    std::mt19937_64 g(42);
    std::uniform_real_distribution<double> u(lo, hi);
    float *fa = reinterpret_cast<float *>(a.data()), *fb = reinterpret_cast<float *>(b.data());
    for (int i = 0; i < 4 * n; ++i) {
      a[i] = u(g);
      b[i] = u(g);
    }
    if (row.t == 's' || row.t == 'c')
      for (int i = 0; i < 4 * n; ++i) fa[i] = float(u(g)), fb[i] = float(u(g));
    for (int i = 0; i < n; ++i) idx[i] = int32_t((int64_t(i) * 7919) % n), mask[i] = i & 1;
  }
};

void call(const Row &row, int slot, int n, Buffers &buf) {
  const void *k = row.tab->kernel[slot];
  void *a = buf.a.data(), *b = buf.b.data(), *r = buf.r.data(), *r2 = buf.r2.data();
  const bool s = row.t == 's';
  const bool st = row.strided;
  auto F = [](double x) { return float(x); };
#define K(...) reinterpret_cast<void (*)(__VA_ARGS__)>(k)
  switch (row.shape) {
    case Shape::U: case Shape::CU: case Shape::CR: case Shape::CC:
      if (st) K(int, void *, int, void *, int)(n, a, 1, r, 1);
      else K(int, void *, void *)(n, a, r);
      break;
    case Shape::B: case Shape::CB:
      if (st) K(int, void *, int, void *, int, void *, int)(n, a, 1, b, 1, r, 1);
      else K(int, void *, void *, void *)(n, a, b, r);
      break;
    case Shape::X:
      if (s) {
        if (st) K(int, void *, int, float, void *, int)(n, a, 1, 1.5f, r, 1);
        else K(int, void *, float, void *)(n, a, 1.5f, r);
      } else {
        if (st) K(int, void *, int, double, void *, int)(n, a, 1, 1.5, r, 1);
        else K(int, void *, double, void *)(n, a, 1.5, r);
      }
      break;
    case Shape::CX:
      if (row.t == 'c') {
        QorComplex8 e{1.5f, 0.5f};
        if (st) K(int, void *, int, QorComplex8, void *, int)(n, a, 1, e, r, 1);
        else K(int, void *, QorComplex8, void *)(n, a, e, r);
      } else {
        QorComplex16 e{1.5, 0.5};
        if (st) K(int, void *, int, const QorComplex16 *, void *, int)(n, a, 1, &e, r, 1);
        else K(int, void *, const QorComplex16 *, void *)(n, a, &e, r);
      }
      break;
    case Shape::R2:
      if (st) K(int, void *, int, void *, int, void *, int)(n, a, 1, r, 1, r2, 1);
      else K(int, void *, void *, void *)(n, a, r, r2);
      break;
    case Shape::J:
      if (st) K(int, void *, int, int, void *, int)(n, a, 1, 3, r, 1);
      else K(int, void *, int, void *)(n, a, 3, r);
      break;
    case Shape::LF:
      if (s) {
        if (st) K(int, void *, int, void *, int, float, float, float, float, void *, int)(
            n, a, 1, b, 1, F(2), F(1), F(3), F(0.5), r, 1);
        else K(int, void *, void *, float, float, float, float, void *)(n, a, b, 2, 1, 3, 0.5f, r);
      } else {
        if (st) K(int, void *, int, void *, int, double, double, double, double, void *, int)(
            n, a, 1, b, 1, 2, 1, 3, 0.5, r, 1);
        else K(int, void *, void *, double, double, double, double, void *)(n, a, b, 2, 1, 3, 0.5, r);
      }
      break;
    case Shape::P_PackI: K(int64_t, void *, int64_t, void *, int)(n, a, 1, r, 1); break;
    case Shape::P_PackV: case Shape::P_PackM:
      K(int64_t, void *, void *, void *, int)(n, a, row.shape == Shape::P_PackV ? (void *)buf.idx.data() : (void *)buf.mask.data(), r, 1);
      break;
    case Shape::P_UnpackI: K(int64_t, void *, void *, int64_t, int)(n, a, r, 1, 1); break;
    case Shape::P_UnpackV: case Shape::P_UnpackM:
      K(int64_t, void *, void *, void *, int)(n, a, r, row.shape == Shape::P_UnpackV ? (void *)buf.idx.data() : (void *)buf.mask.data(), 1);
      break;
  }
#undef K
}

// Cycles per element of one call, the fastest of `reps` calls.
double measure(const Row &row, int slot, int n, int reps) {
  Buffers buf(n);
  buf.fill(row, n);
  call(row, slot, n, buf);
  uint64_t best = UINT64_MAX;
  for (int i = 0; i < reps; ++i) {
    uint64_t t0 = __rdtsc();
    call(row, slot, n, buf);
    uint64_t t1 = __rdtsc();
    best = std::min(best, t1 - t0);
  }
  return double(best) / n;
}

void quiet_errors() {
  qor_pex_kernel_SetMode(PEX_ERRMODE_IGNORE);
}

// ---- peers ------------------------------------------------------------------
}  // namespace

extern "C" {
#define SLEEF_F(name) __m128 Sleef_##name(__m128);
#define SLEEF_F2(name) __m128 Sleef_##name(__m128, __m128);
#define SLEEF_D(name) __m128d Sleef_##name(__m128d);
#define SLEEF_D2(name) __m128d Sleef_##name(__m128d, __m128d);
SLEEF_F(sqrtf4_u05sse4) SLEEF_F(sqrtf4_u35sse4) SLEEF_D(sqrtd2_u05sse4) SLEEF_D(sqrtd2_u35sse4)
SLEEF_F(cbrtf4_u10sse4) SLEEF_F(cbrtf4_u35sse4) SLEEF_D(cbrtd2_u10sse4) SLEEF_D(cbrtd2_u35sse4)
SLEEF_F(floorf4_sse4) SLEEF_F(ceilf4_sse4) SLEEF_F(truncf4_sse4) SLEEF_F(rintf4_sse4)
SLEEF_F(roundf4_sse4) SLEEF_F(fabsf4_sse4)
SLEEF_D(floord2_sse4) SLEEF_D(ceild2_sse4) SLEEF_D(truncd2_sse4) SLEEF_D(rintd2_sse4)
SLEEF_D(roundd2_sse4) SLEEF_D(fabsd2_sse4)
SLEEF_F2(fmaxf4_sse4) SLEEF_F2(fminf4_sse4) SLEEF_F2(copysignf4_sse4) SLEEF_F2(fdimf4_sse4)
SLEEF_F2(nextafterf4_sse4) SLEEF_F2(fmodf4_sse4) SLEEF_F2(remainderf4_sse4)
SLEEF_D2(fmaxd2_sse4) SLEEF_D2(fmind2_sse4) SLEEF_D2(copysignd2_sse4) SLEEF_D2(fdimd2_sse4)
SLEEF_D2(nextafterd2_sse4) SLEEF_D2(fmodd2_sse4) SLEEF_D2(remainderd2_sse4)
SLEEF_F(expf4_u10sse4) SLEEF_D(expd2_u10sse4) SLEEF_F(exp2f4_u10sse4) SLEEF_F(exp2f4_u35sse4)
SLEEF_D(exp2d2_u10sse4) SLEEF_D(exp2d2_u35sse4) SLEEF_F(exp10f4_u10sse4)
SLEEF_F(exp10f4_u35sse4) SLEEF_D(exp10d2_u10sse4) SLEEF_D(exp10d2_u35sse4)
SLEEF_F(expm1f4_u10sse4) SLEEF_D(expm1d2_u10sse4) SLEEF_F(logf4_u10sse4) SLEEF_F(logf4_u35sse4)
SLEEF_D(logd2_u10sse4) SLEEF_D(logd2_u35sse4) SLEEF_F(log2f4_u10sse4) SLEEF_F(log2f4_u35sse4)
SLEEF_D(log2d2_u10sse4) SLEEF_D(log2d2_u35sse4) SLEEF_F(log10f4_u10sse4)
SLEEF_D(log10d2_u10sse4) SLEEF_F(log1pf4_u10sse4) SLEEF_D(log1pd2_u10sse4)
SLEEF_F(sinf4_u10sse4) SLEEF_F(sinf4_u35sse4) SLEEF_D(sind2_u10sse4) SLEEF_D(sind2_u35sse4)
SLEEF_F(cosf4_u10sse4) SLEEF_F(cosf4_u35sse4) SLEEF_D(cosd2_u10sse4) SLEEF_D(cosd2_u35sse4)
SLEEF_F(tanf4_u10sse4) SLEEF_F(tanf4_u35sse4) SLEEF_D(tand2_u10sse4) SLEEF_D(tand2_u35sse4)
SLEEF_F2(powf4_u10sse4) SLEEF_D2(powd2_u10sse4)
__m128 _ZGVbN4v_cbrtf(__m128);
__m128d _ZGVbN2v_cbrt(__m128d);
__m128 _ZGVbN4v_expf(__m128);
__m128d _ZGVbN2v_exp(__m128d);
__m128 _ZGVbN4v_exp2f(__m128);
__m128d _ZGVbN2v_exp2(__m128d);
__m128 _ZGVbN4v_exp10f(__m128);
__m128d _ZGVbN2v_exp10(__m128d);
__m128 _ZGVbN4v_expm1f(__m128);
__m128d _ZGVbN2v_expm1(__m128d);
__m128 _ZGVbN4v_logf(__m128);
__m128d _ZGVbN2v_log(__m128d);
__m128 _ZGVbN4v_log2f(__m128);
__m128d _ZGVbN2v_log2(__m128d);
__m128 _ZGVbN4v_log10f(__m128);
__m128d _ZGVbN2v_log10(__m128d);
__m128 _ZGVbN4v_log1pf(__m128);
__m128d _ZGVbN2v_log1p(__m128d);
__m128 _ZGVbN4v_sinf(__m128);
__m128d _ZGVbN2v_sin(__m128d);
__m128 _ZGVbN4v_cosf(__m128);
__m128d _ZGVbN2v_cos(__m128d);
__m128 _ZGVbN4v_tanf(__m128);
__m128d _ZGVbN2v_tan(__m128d);
__m128 _ZGVbN4vv_powf(__m128, __m128);
__m128d _ZGVbN2vv_pow(__m128d, __m128d);
}

namespace {

using LoopF = std::function<void(int, const float *, const float *, float *)>;
using LoopD = std::function<void(int, const double *, const double *, double *)>;

template <class Fv>
LoopF vf1(Fv f) {
  return [f](int n, const float *a, const float *, float *r) {
    for (int i = 0; i < n; i += 4) _mm_storeu_ps(r + i, f(_mm_loadu_ps(a + i)));
  };
}
template <class Fv>
LoopF vf2(Fv f) {
  return [f](int n, const float *a, const float *b, float *r) {
    for (int i = 0; i < n; i += 4) _mm_storeu_ps(r + i, f(_mm_loadu_ps(a + i), _mm_loadu_ps(b + i)));
  };
}
template <class Fv>
LoopD vd1(Fv f) {
  return [f](int n, const double *a, const double *, double *r) {
    for (int i = 0; i < n; i += 2) _mm_storeu_pd(r + i, f(_mm_loadu_pd(a + i)));
  };
}
template <class Fv>
LoopD vd2(Fv f) {
  return [f](int n, const double *a, const double *b, double *r) {
    for (int i = 0; i < n; i += 2) _mm_storeu_pd(r + i, f(_mm_loadu_pd(a + i), _mm_loadu_pd(b + i)));
  };
}

// The plain loops the compiler vectorises at -O3 -msse4.2.
#define AUTOVEC(name, T, expr)                                                              \
  __attribute__((noinline)) void av_##name(int n, const T *__restrict a, const T *__restrict, \
                                           T *__restrict r) {                               \
    for (int i = 0; i < n; ++i) r[i] = expr;                                                \
  }
AUTOVEC(sqrtf, float, std::sqrt(a[i]))
AUTOVEC(floorf, float, std::floor(a[i]))
AUTOVEC(ceilf, float, std::ceil(a[i]))
AUTOVEC(truncf, float, std::trunc(a[i]))
AUTOVEC(rintf, float, std::rint(a[i]))
AUTOVEC(nearbyintf, float, std::nearbyint(a[i]))
AUTOVEC(roundf, float, std::round(a[i]))
AUTOVEC(sqrt, double, std::sqrt(a[i]))
AUTOVEC(floor, double, std::floor(a[i]))
AUTOVEC(ceil, double, std::ceil(a[i]))
AUTOVEC(trunc, double, std::trunc(a[i]))
AUTOVEC(rint, double, std::rint(a[i]))
AUTOVEC(nearbyint, double, std::nearbyint(a[i]))
AUTOVEC(round, double, std::round(a[i]))
AUTOVEC(addf, float, a[i] + a[i])

struct Peer {
  std::string lib, func;  // func: our id (sSqrt), beside the slot named in lib
  LoopF f;
  LoopD d;
};

std::vector<Peer> peers() {
  std::vector<Peer> p;
  auto F = [&](const char *lib, const char *fn, LoopF f) { p.push_back({lib, fn, f, {}}); };
  auto D = [&](const char *lib, const char *fn, LoopD d) { p.push_back({lib, fn, {}, d}); };
  F("sleef_u05", "sSqrt", vf1(Sleef_sqrtf4_u05sse4));
  F("sleef_u35", "sSqrt", vf1(Sleef_sqrtf4_u35sse4));
  D("sleef_u05", "dSqrt", vd1(Sleef_sqrtd2_u05sse4));
  D("sleef_u35", "dSqrt", vd1(Sleef_sqrtd2_u35sse4));
  F("sleef_u10", "sCbrt", vf1(Sleef_cbrtf4_u10sse4));
  F("sleef_u35", "sCbrt", vf1(Sleef_cbrtf4_u35sse4));
  D("sleef_u10", "dCbrt", vd1(Sleef_cbrtd2_u10sse4));
  D("sleef_u35", "dCbrt", vd1(Sleef_cbrtd2_u35sse4));
  F("libmvec", "sCbrt", vf1(_ZGVbN4v_cbrtf));
  D("libmvec", "dCbrt", vd1(_ZGVbN2v_cbrt));
  F("sleef", "sFloor", vf1(Sleef_floorf4_sse4));
  F("sleef", "sCeil", vf1(Sleef_ceilf4_sse4));
  F("sleef", "sTrunc", vf1(Sleef_truncf4_sse4));
  F("sleef", "sRint", vf1(Sleef_rintf4_sse4));
  F("sleef", "sRound", vf1(Sleef_roundf4_sse4));
  F("sleef", "sAbs", vf1(Sleef_fabsf4_sse4));
  D("sleef", "dFloor", vd1(Sleef_floord2_sse4));
  D("sleef", "dCeil", vd1(Sleef_ceild2_sse4));
  D("sleef", "dTrunc", vd1(Sleef_truncd2_sse4));
  D("sleef", "dRint", vd1(Sleef_rintd2_sse4));
  D("sleef", "dRound", vd1(Sleef_roundd2_sse4));
  D("sleef", "dAbs", vd1(Sleef_fabsd2_sse4));
  F("sleef", "sFmax", vf2(Sleef_fmaxf4_sse4));
  F("sleef", "sFmin", vf2(Sleef_fminf4_sse4));
  F("sleef", "sCopySign", vf2(Sleef_copysignf4_sse4));
  F("sleef", "sFdim", vf2(Sleef_fdimf4_sse4));
  F("sleef", "sNextAfter", vf2(Sleef_nextafterf4_sse4));
  F("sleef", "sFmod", vf2(Sleef_fmodf4_sse4));
  F("sleef", "sRemainder", vf2(Sleef_remainderf4_sse4));
  D("sleef", "dFmax", vd2(Sleef_fmaxd2_sse4));
  D("sleef", "dFmin", vd2(Sleef_fmind2_sse4));
  D("sleef", "dCopySign", vd2(Sleef_copysignd2_sse4));
  D("sleef", "dFdim", vd2(Sleef_fdimd2_sse4));
  D("sleef", "dNextAfter", vd2(Sleef_nextafterd2_sse4));
  D("sleef", "dFmod", vd2(Sleef_fmodd2_sse4));
  D("sleef", "dRemainder", vd2(Sleef_remainderd2_sse4));
  F("sleef_u10", "sExp", vf1(Sleef_expf4_u10sse4));
  D("sleef_u10", "dExp", vd1(Sleef_expd2_u10sse4));
  F("sleef_u10", "sExp2", vf1(Sleef_exp2f4_u10sse4));
  F("sleef_u35", "sExp2", vf1(Sleef_exp2f4_u35sse4));
  D("sleef_u10", "dExp2", vd1(Sleef_exp2d2_u10sse4));
  D("sleef_u35", "dExp2", vd1(Sleef_exp2d2_u35sse4));
  F("sleef_u10", "sExp10", vf1(Sleef_exp10f4_u10sse4));
  F("sleef_u35", "sExp10", vf1(Sleef_exp10f4_u35sse4));
  D("sleef_u10", "dExp10", vd1(Sleef_exp10d2_u10sse4));
  D("sleef_u35", "dExp10", vd1(Sleef_exp10d2_u35sse4));
  F("sleef_u10", "sExpm1", vf1(Sleef_expm1f4_u10sse4));
  D("sleef_u10", "dExpm1", vd1(Sleef_expm1d2_u10sse4));
  F("sleef_u10", "sLn", vf1(Sleef_logf4_u10sse4));
  F("sleef_u35", "sLn", vf1(Sleef_logf4_u35sse4));
  D("sleef_u10", "dLn", vd1(Sleef_logd2_u10sse4));
  D("sleef_u35", "dLn", vd1(Sleef_logd2_u35sse4));
  F("sleef_u10", "sLog2", vf1(Sleef_log2f4_u10sse4));
  F("sleef_u35", "sLog2", vf1(Sleef_log2f4_u35sse4));
  D("sleef_u10", "dLog2", vd1(Sleef_log2d2_u10sse4));
  D("sleef_u35", "dLog2", vd1(Sleef_log2d2_u35sse4));
  F("sleef_u10", "sLog10", vf1(Sleef_log10f4_u10sse4));
  D("sleef_u10", "dLog10", vd1(Sleef_log10d2_u10sse4));
  F("sleef_u10", "sLog1p", vf1(Sleef_log1pf4_u10sse4));
  D("sleef_u10", "dLog1p", vd1(Sleef_log1pd2_u10sse4));
  F("sleef_u10", "sSin", vf1(Sleef_sinf4_u10sse4));
  F("sleef_u35", "sSin", vf1(Sleef_sinf4_u35sse4));
  D("sleef_u10", "dSin", vd1(Sleef_sind2_u10sse4));
  D("sleef_u35", "dSin", vd1(Sleef_sind2_u35sse4));
  F("sleef_u10", "sCos", vf1(Sleef_cosf4_u10sse4));
  F("sleef_u35", "sCos", vf1(Sleef_cosf4_u35sse4));
  D("sleef_u10", "dCos", vd1(Sleef_cosd2_u10sse4));
  D("sleef_u35", "dCos", vd1(Sleef_cosd2_u35sse4));
  F("sleef_u10", "sTan", vf1(Sleef_tanf4_u10sse4));
  F("sleef_u35", "sTan", vf1(Sleef_tanf4_u35sse4));
  D("sleef_u10", "dTan", vd1(Sleef_tand2_u10sse4));
  D("sleef_u35", "dTan", vd1(Sleef_tand2_u35sse4));
  F("sleef_u10", "sPowx", vf2(Sleef_powf4_u10sse4));
  D("sleef_u10", "dPowx", vd2(Sleef_powd2_u10sse4));
  F("sleef_u10", "sPow", vf2(Sleef_powf4_u10sse4));
  D("sleef_u10", "dPow", vd2(Sleef_powd2_u10sse4));
  F("libmvec", "sExp", vf1(_ZGVbN4v_expf));
  D("libmvec", "dExp", vd1(_ZGVbN2v_exp));
  F("libmvec", "sExp2", vf1(_ZGVbN4v_exp2f));
  D("libmvec", "dExp2", vd1(_ZGVbN2v_exp2));
  F("libmvec", "sExp10", vf1(_ZGVbN4v_exp10f));
  D("libmvec", "dExp10", vd1(_ZGVbN2v_exp10));
  F("libmvec", "sExpm1", vf1(_ZGVbN4v_expm1f));
  D("libmvec", "dExpm1", vd1(_ZGVbN2v_expm1));
  F("libmvec", "sLn", vf1(_ZGVbN4v_logf));
  D("libmvec", "dLn", vd1(_ZGVbN2v_log));
  F("libmvec", "sLog2", vf1(_ZGVbN4v_log2f));
  D("libmvec", "dLog2", vd1(_ZGVbN2v_log2));
  F("libmvec", "sLog10", vf1(_ZGVbN4v_log10f));
  D("libmvec", "dLog10", vd1(_ZGVbN2v_log10));
  F("libmvec", "sLog1p", vf1(_ZGVbN4v_log1pf));
  D("libmvec", "dLog1p", vd1(_ZGVbN2v_log1p));
  F("libmvec", "sSin", vf1(_ZGVbN4v_sinf));
  D("libmvec", "dSin", vd1(_ZGVbN2v_sin));
  F("libmvec", "sCos", vf1(_ZGVbN4v_cosf));
  D("libmvec", "dCos", vd1(_ZGVbN2v_cos));
  F("libmvec", "sTan", vf1(_ZGVbN4v_tanf));
  D("libmvec", "dTan", vd1(_ZGVbN2v_tan));
  F("libmvec", "sPowx", vf2(_ZGVbN4vv_powf));
  D("libmvec", "dPowx", vd2(_ZGVbN2vv_pow));
  F("libmvec", "sPow", vf2(_ZGVbN4vv_powf));
  D("libmvec", "dPow", vd2(_ZGVbN2vv_pow));
  F("autovec", "sSqrt", av_sqrtf);
  F("autovec", "sFloor", av_floorf);
  F("autovec", "sCeil", av_ceilf);
  F("autovec", "sTrunc", av_truncf);
  F("autovec", "sRint", av_rintf);
  F("autovec", "sNearbyInt", av_nearbyintf);
  F("autovec", "sRound", av_roundf);
  F("autovec", "sAdd", av_addf);
  D("autovec", "dSqrt", av_sqrt);
  D("autovec", "dFloor", av_floor);
  D("autovec", "dCeil", av_ceil);
  D("autovec", "dTrunc", av_trunc);
  D("autovec", "dRint", av_rint);
  D("autovec", "dNearbyInt", av_nearbyint);
  D("autovec", "dRound", av_round);
  return p;
}

void bm_table(benchmark::State &st, const Row &row, int slot, int n) {
  quiet_errors();
  Buffers buf(n);
  buf.fill(row, n);
  uint64_t cycles = 0;
  for (auto _ : st) {
    uint64_t t0 = __rdtsc();
    call(row, slot, n, buf);
    cycles += __rdtsc() - t0;
    benchmark::ClobberMemory();
  }
  st.counters["cyc_per_elem"] = double(cycles) / (double(st.iterations()) * n);
  st.counters["catalogue"] = row.tab->cost[slot];
}

void bm_peer(benchmark::State &st, const Peer &p, int n) {
  std::vector<float> fa(n + 4), fb(n + 4), fr(n + 4);
  std::vector<double> da(n + 2), db(n + 2), dr(n + 2);
  double lo, hi;
  domain(p.func.substr(1), lo, hi);  // our id without its type letter
  std::mt19937 g(1);
  std::uniform_real_distribution<double> u(lo, hi);
  for (int i = 0; i < n; ++i) fa[i] = float(u(g)), fb[i] = float(u(g)), da[i] = u(g), db[i] = u(g);
  uint64_t cycles = 0;
  for (auto _ : st) {
    uint64_t t0 = __rdtsc();
    if (p.f)
      p.f(n, fa.data(), fb.data(), fr.data());
    else
      p.d(n, da.data(), db.data(), dr.data());
    cycles += __rdtsc() - t0;
    benchmark::ClobberMemory();
  }
  st.counters["cyc_per_elem"] = double(cycles) / (double(st.iterations()) * n);
}

int print_costs(int argc, char **argv) {
  quiet_errors();
  std::vector<std::string> only(argv, argv + argc);
  for (auto &row : rows()) {
    if (argc > 0 && std::find(only.begin(), only.end(), row.id) == only.end()) continue;
    if (row.shape >= Shape::P_PackI) continue;
    double c[3];
    for (int s = 0; s < 3; ++s) c[s] = measure(row, s, 1000, 41);
    std::printf("%s %.3f %.3f %.3f\n", row.id.c_str(), c[0], c[1], c[2]);
  }
  return 0;
}

// Peers draw their arguments from the same domain as our kernel of the same
// function, so that both take the same paths.
double measure_peer(const Peer &p, const std::string &func, int n, int reps) {
  std::vector<float> fa(n + 4), fb(n + 4), fr(n + 4);
  std::vector<double> da(n + 2), db(n + 2), dr(n + 2);
  double lo, hi;
  domain(func, lo, hi);
  std::mt19937 g(1);
  std::uniform_real_distribution<double> u(lo, hi);
  for (int i = 0; i < n; ++i) fa[i] = float(u(g)), fb[i] = float(u(g)), da[i] = u(g), db[i] = u(g);
  uint64_t best = UINT64_MAX;
  for (int i = 0; i <= reps; ++i) {
    uint64_t t0 = __rdtsc();
    if (p.f)
      p.f(n, fa.data(), fb.data(), fr.data());
    else
      p.d(n, da.data(), db.data(), dr.data());
    uint64_t t = __rdtsc() - t0;
    if (i) best = std::min(best, t);  // the first call warms up
  }
  return double(best) / n;
}

// The closing table: for the contiguous arithmetic and rounding functions (or
// the ids given), the fastest-of-many cycles per element of each slot at
// n = 1,000 and 1,000,000, the catalogue cost, and every peer.
int print_summary(int argc, char **argv) {
  quiet_errors();
  std::vector<std::string> only(argv, argv + argc);
  auto peer_list = peers();
  std::printf("%-14s %-5s %9s %9s %9s %9s   peers (n=1000 / n=1000000)\n", "function", "slot",
              "catalogue", "n=1000", "n=1e6", "");
  for (auto &row : rows()) {
    bool wanted = argc > 0 ? std::find(only.begin(), only.end(), row.id) != only.end()
                           : row.arith && !row.strided;
    if (!wanted || row.shape >= Shape::P_PackI) continue;
    for (int s = 0; s < 3; ++s) {
      double small = measure(row, s, 1000, 201);
      double large = measure(row, s, 1000000, 5);
      std::printf("%-14s %-5s %9.3f %9.3f %9.3f", row.id.c_str(), (const char *[]){"LA", "HA", "EP"}[s],
                  row.tab->cost[s], small, large);
      if (s == 1) {
        std::printf("  ");
        for (auto &p : peer_list)
          if (p.func == row.id)
            std::printf(" %s %.3f / %.3f", p.lib.c_str(), measure_peer(p, row.func, 1000, 201),
                        measure_peer(p, row.func, 1000000, 5));
      }
      std::printf("\n");
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc > 3 && std::strcmp(argv[1], "--domain") == 0) {
    domain_lo = std::strtod(argv[2], nullptr);
    domain_hi = std::strtod(argv[3], nullptr);
    if (!(domain_lo < domain_hi)) {
      std::fprintf(stderr, "bench_vm: --domain needs LO < HI\n");
      return 2;
    }
    argv[3] = argv[0];
    argc -= 3;
    argv += 3;
  }
  if (argc > 1 && std::strcmp(argv[1], "--costs") == 0) return print_costs(argc - 2, argv + 2);
  if (argc > 1 && std::strcmp(argv[1], "--summary") == 0)
    return print_summary(argc - 2, argv + 2);
  static const std::vector<Row> all = rows();
  static const std::vector<Peer> ps = peers();
  const char *slot_names[3] = {"LA", "HA", "EP"};
  for (const Row &row : all) {
    std::vector<int> sizes = {1000};
    if (row.arith) sizes.push_back(1000000);
    for (int n : sizes)
      for (int s = 0; s < 3; ++s)
        benchmark::RegisterBenchmark(
            ("vm/" + row.id + "/" + slot_names[s] + "/" + std::to_string(n)).c_str(),
            [&row, s, n](benchmark::State &st) { bm_table(st, row, s, n); })
            ->MinTime(0.02);
  }
  for (const Peer &p : ps)
    for (int n : {1000, 1000000})
      benchmark::RegisterBenchmark(("peer/" + p.lib + "/" + p.func + "/" + std::to_string(n)).c_str(),
                                   [&p, n](benchmark::State &st) { bm_peer(st, p, n); })
          ->MinTime(0.02);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
