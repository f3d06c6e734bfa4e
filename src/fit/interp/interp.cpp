// Interpolation and integration of a task's piecewise polynomials.
//
// Sites go in blocks of QOR_DF_INTERP_BLOCK: the block's cells are found once
// with the cell search kernels (method chosen as the general search entry
// chooses it) and then serve every function, so the search cost is shared by
// all functions and the block's indices stay in L1.  Values of cubic splines
// are evaluated four sites at a time in SSE lanes (Horner's rule after a 4x4
// transpose of the four cells' coefficients); derivatives and the other
// orders take a scalar path.
#include <smmintrin.h>

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "fit/search.h"
#include "fit/task.h"
#include "qor/core.h"
#include "qor/export.h"
#include "qor/fit.h"
#include "qor/fit_construct.h"
#include "qor/fit_interp.h"

namespace qor::fit {
namespace {

constexpr int64_t kBlock = QOR_DF_INTERP_BLOCK;
constexpr int64_t kMaxElements = int64_t{1} << 62;

// Scratch bytes from the core allocator, released on scope exit.
class Scratch {
 public:
  Scratch() = default;
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  ~Scratch() {
    if (p_) qor_serv_deallocate(p_);
  }
  bool allocate(int64_t bytes) {
    p_ = qor_serv_allocate(static_cast<size_t>(bytes > 0 ? bytes : 1), 128);
    return p_ != nullptr;
  }
  void *get() const { return p_; }

 private:
  void *p_ = nullptr;
};

template <class T>
using ExtrapFn = std::conditional_t<std::is_same_v<T, float>, qor_df_sextrap_fn, qor_df_dextrap_fn>;

// The piecewise polynomial as the kernels see it: piece k has origin o_k and
// runs from boundary k-1 to boundary k (the first and last pieces extend to
// infinity).
template <class T>
struct Pieces {
  int64_t nx = 0, npieces = 0, order = 0;
  const T *x = nullptr;
  const T *knots = nullptr;  // knotted quadratic: nx - 1 knots
  bool uniform = false;
  T x0 = 0, h = 0;

  T origin(int64_t k) const { return uniform ? x0 + static_cast<T>(k) * h : x[k]; }
  // Right end of piece k (k < npieces - 1).
  T right(int64_t k) const { return knots ? knots[k] : origin(k + 1); }
  // Piece of a site from its cell index c.
  int64_t piece(T t, int64_t c) const {
    if (knots) {
      int64_t lo = 0, hi = nx - 1;  // first knot index with knot > t
      while (lo < hi) {
        const int64_t mid = (lo + hi) >> 1;
        if (knots[mid] > t) hi = mid;
        else lo = mid + 1;
      }
      return lo;
    }
    const int64_t k = c - 1;
    return k < 0 ? 0 : k > nx - 2 ? nx - 2 : k;
  }
};

// Checks of the spline description shared by both entry points.
template <class T>
int32_t check_spline(const Task *t, Pieces<T> *p) {
  if (t->order < 1 || t->order > 4) return QOR_DF_ERROR_BAD_SPLINE_ORDER;
  const bool knotted = t->order == 3 && t->type == 1 && (t->ic_type & QOR_DF_IC_KNOTS);
  if (knotted && !t->ic) return QOR_DF_ERROR_NULL_IC;
  if (t->ny < 1 || !t->coeff_table) return QOR_DF_ERROR_NULL_PP_COEFF;
  if (t->coeff_slots < t->ny) return QOR_DF_ERROR_BAD_NY;
  for (int64_t j = 0; j < t->ny; ++j)
    if (!t->coeff_table[j]) return QOR_DF_ERROR_NULL_PP_COEFF;
  p->nx = t->nx;
  p->order = t->order;
  p->x = static_cast<const T *>(t->x);
  p->knots = knotted ? static_cast<const T *>(t->ic) : nullptr;
  p->npieces = knotted ? t->nx : t->nx - 1;
  p->uniform = t->x_hint == QOR_DF_UNIFORM_PARTITION;
  p->x0 = p->x[0];
  p->h = (p->x[t->nx - 1] - p->x[0]) / static_cast<T>(t->nx - 1);
  return 0;
}

// Cell search over blocks, method chosen once per call by the rule of the
// general search entry point; the sorted method carries its index from block
// to block.
template <class T>
struct Finder {
  const Task *t;
  int64_t nx;
  const T *x;
  T ends[2];
  T index_scale;
  bool uniform, sorted, peak_given, hybrid;
  T peak = 0;
  int64_t carried = 0;
  SearchFn<T> fn;
  void *u1, *u2;

  Finder(const Task *task, int64_t nsite, int64_t hint, const T *data_hint, SearchFn<T> f, void *a,
         void *b)
      : t(task), fn(f), u1(a), u2(b) {
    nx = t->nx;
    x = static_cast<const T *>(t->x);
    ends[0] = x[0];
    ends[1] = x[nx - 1];
    index_scale = static_cast<T>(nx - 1) / (ends[1] - ends[0]);
    uniform = t->x_hint == QOR_DF_UNIFORM_PARTITION;
    sorted = hint == QOR_DF_SITES_SORTED;
    peak_given = data_hint && data_hint[0] == static_cast<T>(QOR_DF_DATA_PEAK);
    if (peak_given) peak = data_hint[1];
    const bool table_current = t->cell_table && t->table_nx == nx && t->table_x == t->x;
    hybrid = table_current && !(t->x_hint == QOR_DF_QUASI_UNIFORM_PARTITION && nsite >= 32);
  }

  int32_t find(int64_t n, const T *site, int64_t *cell, int32_t *flags) {
    constexpr Width W = Width::k64;
    if (fn) {
      const int32_t r = user_search<T, W>(nx, uniform ? ends : x, n, site, index_scale, cell, nullptr,
                                          fn, u1, u2, flags, uniform);
      return r < 0 ? r : 0;
    }
    if (uniform) {
      uniform_search<T, W>(nx, ends, n, site, index_scale, cell);
    } else if (sorted) {
      sorted_search<T, W, true>(nx, x, n, site, &carried, cell);
    } else if (peak_given) {
      peak_search<T, W>(nx, x, n, site, peak, cell);
    } else if (hybrid) {
      T scale;
      if constexpr (std::is_same_v<T, float>) scale = t->cell_scale.s;
      else scale = t->cell_scale.d;
      hybrid_search<T, W>(nx, x, n, site, scale, t->cell_table, t->cell_count, cell);
    } else {
      quasi_uniform_search<T, W>(nx, x, n, site, index_scale, cell);
    }
    return 0;
  }
};

// Value and derivatives 1 to 3 of c[0] + c[1] u + ... (order k <= 4).
template <class T>
inline void eval_all(const T *c, int64_t k, T u, T d[4]) {
  const T c0 = c[0], c1 = k > 1 ? c[1] : T(0), c2 = k > 2 ? c[2] : T(0), c3 = k > 3 ? c[3] : T(0);
  d[0] = c0 + u * (c1 + u * (c2 + u * c3));
  d[1] = c1 + u * (T(2) * c2 + u * (T(3) * c3));
  d[2] = T(2) * c2 + u * (T(6) * c3);
  d[3] = T(6) * c3;
}

template <class T>
inline T eval_value(const T *c, int64_t k, T u) {
  T v = c[k - 1];
  for (int64_t m = k - 2; m >= 0; --m) v = v * u + c[m];
  return v;
}

// Values of a cubic at four sites: coefficients of the four cells
// transposed into lanes, then Horner.
inline void cubic4(const float *coef, const int64_t *pc, const float *u, float *out) {
  __m128 a = _mm_loadu_ps(coef + 4 * pc[0]), b = _mm_loadu_ps(coef + 4 * pc[1]);
  __m128 c = _mm_loadu_ps(coef + 4 * pc[2]), d = _mm_loadu_ps(coef + 4 * pc[3]);
  _MM_TRANSPOSE4_PS(a, b, c, d);  // a: c0 of the four cells, ..., d: c3
  const __m128 uv = _mm_loadu_ps(u);
  __m128 v = _mm_add_ps(_mm_mul_ps(d, uv), c);
  v = _mm_add_ps(_mm_mul_ps(v, uv), b);
  v = _mm_add_ps(_mm_mul_ps(v, uv), a);
  _mm_storeu_ps(out, v);
}

inline void cubic4(const double *coef, const int64_t *pc, const double *u, double *out) {
  for (int half = 0; half < 4; half += 2) {
    const double *p = coef + 4 * pc[half], *q = coef + 4 * pc[half + 1];
    const __m128d p01 = _mm_loadu_pd(p), p23 = _mm_loadu_pd(p + 2);
    const __m128d q01 = _mm_loadu_pd(q), q23 = _mm_loadu_pd(q + 2);
    const __m128d c0 = _mm_unpacklo_pd(p01, q01), c1 = _mm_unpackhi_pd(p01, q01);
    const __m128d c2 = _mm_unpacklo_pd(p23, q23), c3 = _mm_unpackhi_pd(p23, q23);
    const __m128d uv = _mm_loadu_pd(u + half);
    __m128d v = _mm_add_pd(_mm_mul_pd(c3, uv), c2);
    v = _mm_add_pd(_mm_mul_pd(v, uv), c1);
    v = _mm_add_pd(_mm_mul_pd(v, uv), c0);
    _mm_storeu_pd(out + half, v);
  }
}

template <class T>
int32_t interpolate(const qor_df_task_t *task, int64_t type, int64_t nsite, const T *site,
                    int64_t site_hint, int64_t ndorder, const int64_t *dorder, const T *data_hint,
                    T *r, int64_t r_hint, void *cell, ExtrapFn<T> efn, void *euser, SearchFn<T> sfn,
                    void *su1, void *su2, int32_t *sflags) {
  const Task *t = reinterpret_cast<const Task *>(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (t->live != 1) return 0;
  if (t->precision != (sizeof(T) == 8 ? 1 : 0)) return QOR_DF_ERROR_BAD_ARGUMENT;
  if (type < 1 || type > 3) return QOR_DF_ERROR_BAD_COMPUTATION_TYPE;
  if (nsite < 0) return QOR_DF_ERROR_BAD_NSITE;
  if (!site && nsite > 0) return QOR_DF_ERROR_NULL_SITE;
  if (site_hint != QOR_DF_SITES_NO_INFO && site_hint != QOR_DF_SITES_SORTED)
    return QOR_DF_ERROR_BAD_SITE_HINT;
  const bool want_values = type & QOR_DF_INTERP, want_cells = type & QOR_DF_CELL;
  int nd = 0;
  int orders[4] = {0, 0, 0, 0};  // requested derivative orders, ascending
  if (want_values) {
    if (ndorder < 1 || ndorder > 4) return QOR_DF_ERROR_BAD_NDORDER;
    if (!dorder) {
      orders[nd++] = 0;
    } else {
      for (int k = 0; k < ndorder; ++k)
        if (dorder[k]) orders[nd++] = k;
      if (nd == 0) return QOR_DF_ERROR_BAD_DORDER;
    }
    if (!r) return QOR_DF_ERROR_NULL_INTERP_RESULT;
    if (r_hint != 0 && r_hint != QOR_DF_MATRIX_STORAGE_ROWS && r_hint != QOR_DF_MATRIX_STORAGE_COLS)
      return QOR_DF_ERROR_BAD_INTERP_RESULT_HINT;
  }
  if (want_cells && !cell) return QOR_DF_ERROR_NULL_CELL;
  Pieces<T> pp;
  if (want_values) {
    if (const int32_t st = check_spline(t, &pp)) return st;
    if (nsite > 0 && (t->ny > kMaxElements / nsite || t->ny * nsite > kMaxElements / nd))
      return QOR_DF_ERROR_BAD_NSITE;
  }
  if (nsite == 0) return 0;

  const bool cols = r_hint == QOR_DF_MATRIX_STORAGE_COLS;
  const bool values_only = nd == 1 && orders[0] == 0;
  const T last = static_cast<const T *>(t->x)[t->nx - 1];
  const T first = static_cast<const T *>(t->x)[0];
  Finder<T> finder(t, nsite, site_hint, data_hint, sfn, su1, su2);
  alignas(16) int64_t cb[kBlock];
  alignas(16) int64_t pc[kBlock];
  alignas(16) T ub[kBlock];
  for (int64_t i0 = 0; i0 < nsite; i0 += kBlock) {
    const int64_t n = nsite - i0 < kBlock ? nsite - i0 : kBlock;
    const T *s = site + i0;
    if (const int32_t st = finder.find(n, s, cb, sflags ? sflags + i0 : nullptr)) return st;
    if (want_cells) {
      if (t->int64_results) {
        int64_t *o = static_cast<int64_t *>(cell) + i0;
        for (int64_t i = 0; i < n; ++i) o[i] = cb[i];
      } else {
        int32_t *o = static_cast<int32_t *>(cell) + i0;
        for (int64_t i = 0; i < n; ++i) o[i] = static_cast<int32_t>(cb[i]);
      }
    }
    if (!want_values) continue;
    // The first function's coefficient rows are requested as soon as each
    // piece is known, and each next function's while the one before is
    // evaluated: on a large partition a row is a cache miss, and a block's
    // misses then overlap instead of stalling the evaluation one by one.
    const T *first_coef = static_cast<const T *>(t->coeff_table[0]);
    for (int64_t i = 0; i < n; ++i) {
      pc[i] = pp.piece(s[i], cb[i]);
      ub[i] = s[i] - pp.origin(pc[i]);
      _mm_prefetch(reinterpret_cast<const char *>(first_coef + pc[i] * pp.order), _MM_HINT_T0);
    }
    for (int64_t j = 0; j < t->ny; ++j) {
      const T *coef = static_cast<const T *>(t->coeff_table[j]);
      if (j + 1 < t->ny) {
        const T *next = static_cast<const T *>(t->coeff_table[j + 1]);
        for (int64_t i = 0; i < n; ++i)
          _mm_prefetch(reinterpret_cast<const char *>(next + pc[i] * pp.order), _MM_HINT_T0);
      }
      T *out = r + j * nsite * nd;
      if (values_only) {
        T *o = out + i0;
        int64_t i = 0;
        if (pp.order == 4) {
          for (; i + 4 <= n; i += 4) cubic4(coef, pc + i, ub + i, o + i);
        }
        for (; i < n; ++i) o[i] = eval_value(coef + pc[i] * pp.order, pp.order, ub[i]);
      } else {
        for (int64_t i = 0; i < n; ++i) {
          T d[4];
          eval_all(coef + pc[i] * pp.order, pp.order, ub[i], d);
          for (int k = 0; k < nd; ++k) {
            const T v = d[orders[k]];
            if (cols) out[k * nsite + i0 + i] = v;
            else out[(i0 + i) * nd + k] = v;
          }
        }
      }
      if (efn) {
        for (int64_t i = 0; i < n; ++i) {
          if (!(s[i] < first || s[i] > last)) continue;  // inside, or NaN
          T d[4] = {0, 0, 0, 0};
          const int32_t st = efn(j, s[i], cb[i], d, euser);
          if (st < 0) return st;
          for (int k = 0; k < nd; ++k) {
            const T v = d[orders[k]];
            if (cols) out[k * nsite + i0 + i] = v;
            else out[(i0 + i) * nd + k] = v;
          }
        }
      }
    }
  }
  return 0;
}

// ---- integration ---------------------------------------------------------------

// Antiderivative of piece k's polynomial from its origin, at offset u.
template <class T>
inline double anti(const T *c, int64_t k, double u) {
  double v = static_cast<double>(c[k - 1]) / static_cast<double>(k);
  for (int64_t m = k - 1; m >= 1; --m) v = v * u + static_cast<double>(c[m - 1]) / static_cast<double>(m);
  return v * u;
}

// Pieces spanned by an interval above which the running integral is used.
constexpr int64_t kDirectSpan = 64;

template <class T>
struct Integrator {
  const Pieces<T> &pp;
  const T *coef = nullptr;
  double *cum = nullptr;  // running integral, see build()
  bool built = false;

  // Integral over [a, b] inside piece k.
  double within(int64_t k, double a, double b) const {
    const double o = static_cast<double>(pp.origin(k));
    const T *c = coef + k * pp.order;
    return anti(c, pp.order, b - o) - anti(c, pp.order, a - o);
  }
  // Integral over the whole of piece k (0 < k < npieces - 1).
  double whole(int64_t k) const {
    return within(k, static_cast<double>(pp.right(k - 1)), static_cast<double>(pp.right(k)));
  }
  // cum[k] = integral from right(0) to right(k-1) for k >= 1 (cum[1] = 0):
  // the integral over the whole pieces 1 .. k-1.
  void build() {
    cum[0] = 0;
    cum[1] = 0;
    for (int64_t k = 1; k < pp.npieces - 1; ++k) cum[k + 1] = cum[k] + whole(k);
    built = true;
  }
  // Integral from a to b, a <= b, in pieces ka <= kb.
  double integral(double a, int64_t ka, double b, int64_t kb) {
    if (ka == kb) return within(ka, a, b);
    double s = within(ka, a, static_cast<double>(pp.right(ka))) +
               within(kb, static_cast<double>(pp.right(kb - 1)), b);
    if (kb - ka - 1 <= kDirectSpan) {
      for (int64_t k = ka + 1; k < kb; ++k) s += whole(k);
    } else {
      if (!built) build();
      s += cum[kb] - cum[ka + 1];
    }
    return s;
  }
};

template <class T>
int32_t integrate(const qor_df_task_t *task, int64_t nlim, const T *llim, int64_t llim_hint,
                  const T *rlim, int64_t rlim_hint, T *r, int64_t r_hint, SearchFn<T> sfn, void *su1,
                  void *su2) {
  const Task *t = reinterpret_cast<const Task *>(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (t->live != 1) return 0;
  if (t->precision != (sizeof(T) == 8 ? 1 : 0)) return QOR_DF_ERROR_BAD_ARGUMENT;
  if (nlim < 0) return QOR_DF_ERROR_BAD_NLIM;
  if (!llim && nlim > 0) return QOR_DF_ERROR_NULL_LLIM;
  if (!rlim && nlim > 0) return QOR_DF_ERROR_NULL_RLIM;
  const auto hint_ok = [](int64_t h) { return h == QOR_DF_SITES_NO_INFO || h == QOR_DF_SITES_SORTED; };
  if (!hint_ok(llim_hint) || !hint_ok(rlim_hint)) return QOR_DF_ERROR_BAD_LIM_HINT;
  if (!r) return QOR_DF_ERROR_NULL_INTEGR_RESULT;
  if (r_hint != 0 && r_hint != QOR_DF_MATRIX_STORAGE_ROWS && r_hint != QOR_DF_MATRIX_STORAGE_COLS)
    return QOR_DF_ERROR_BAD_INTEGR_RESULT_HINT;
  Pieces<T> pp;
  if (const int32_t st = check_spline(t, &pp)) return st;
  if (nlim > (kMaxElements >> 4) || (nlim > 0 && t->ny > kMaxElements / nlim)) return QOR_DF_ERROR_BAD_NLIM;
  if (nlim == 0) return 0;
  const bool cols = r_hint == QOR_DF_MATRIX_STORAGE_COLS;

  // Pieces of every limit first (one search over all of them), then one
  // function at a time, so that the running integral, when a long interval
  // needs it, is built once per function.
  Scratch pieces, cumulative;
  if (!pieces.allocate(2 * nlim * static_cast<int64_t>(sizeof(int64_t)))) return QOR_DF_ERROR_MEM_FAILURE;
  int64_t *lk = reinterpret_cast<int64_t *>(pieces.get()), *rk = lk + nlim;
  Finder<T> lf(t, nlim, llim_hint, nullptr, sfn, su1, su2);
  Finder<T> rf(t, nlim, rlim_hint, nullptr, sfn, su1, su2);
  bool long_span = false;
  for (int64_t i0 = 0; i0 < nlim; i0 += kBlock) {
    const int64_t n = nlim - i0 < kBlock ? nlim - i0 : kBlock;
    if (const int32_t st = lf.find(n, llim + i0, lk + i0, nullptr)) return st;
    if (const int32_t st = rf.find(n, rlim + i0, rk + i0, nullptr)) return st;
    for (int64_t i = i0; i < i0 + n; ++i) {
      lk[i] = pp.piece(llim[i], lk[i]);
      rk[i] = pp.piece(rlim[i], rk[i]);
      const int64_t span = lk[i] > rk[i] ? lk[i] - rk[i] : rk[i] - lk[i];
      long_span |= span - 1 > kDirectSpan;
    }
  }
  if (long_span && !cumulative.allocate((pp.npieces + 1) * static_cast<int64_t>(sizeof(double))))
    return QOR_DF_ERROR_MEM_FAILURE;
  for (int64_t j = 0; j < t->ny; ++j) {
    Integrator<T> in{pp, static_cast<const T *>(t->coeff_table[j]),
                     reinterpret_cast<double *>(cumulative.get()), false};
    for (int64_t i = 0; i < nlim; ++i) {
      double a = static_cast<double>(llim[i]), b = static_cast<double>(rlim[i]);
      int64_t ka = lk[i], kb = rk[i];
      double sign = 1;
      if (b < a) {
        std::swap(a, b);
        std::swap(ka, kb);
        sign = -1;
      }
      if (kb < ka) kb = ka;  // NaN limits (any pieces do: the result is NaN) or a == b
      const double v = sign * in.integral(a, ka, b, kb);
      if (cols) r[i * t->ny + j] = static_cast<T>(v);
      else r[j * nlim + i] = static_cast<T>(v);
    }
  }
  return 0;
}

}  // namespace
}  // namespace qor::fit

extern "C" {

QOR_API int32_t qor_df_kernel_sDFInterpolate1D(
    const qor_df_task_t *task, int64_t type, int64_t nsite, const float *site, int64_t site_hint,
    int64_t ndorder, const int64_t *dorder, const float *data_hint, float *r, int64_t r_hint,
    void *cell, qor_df_sextrap_fn efn, void *euser, qor_df_ssearch_fn sfn, void *su1, void *su2,
    int32_t *sflags) {
  return qor::fit::interpolate<float>(task, type, nsite, site, site_hint, ndorder, dorder, data_hint,
                                      r, r_hint, cell, efn, euser, sfn, su1, su2, sflags);
}
QOR_API int32_t qor_df_kernel_dDFInterpolate1D(
    const qor_df_task_t *task, int64_t type, int64_t nsite, const double *site, int64_t site_hint,
    int64_t ndorder, const int64_t *dorder, const double *data_hint, double *r, int64_t r_hint,
    void *cell, qor_df_dextrap_fn efn, void *euser, qor_df_dsearch_fn sfn, void *su1, void *su2,
    int32_t *sflags) {
  return qor::fit::interpolate<double>(task, type, nsite, site, site_hint, ndorder, dorder, data_hint,
                                       r, r_hint, cell, efn, euser, sfn, su1, su2, sflags);
}
QOR_API int32_t qor_df_kernel_sDFIntegrate1D(const qor_df_task_t *task, int64_t nlim,
                                             const float *llim, int64_t llim_hint,
                                             const float *rlim, int64_t rlim_hint, float *r,
                                             int64_t r_hint, qor_df_ssearch_fn sfn, void *su1,
                                             void *su2) {
  return qor::fit::integrate<float>(task, nlim, llim, llim_hint, rlim, rlim_hint, r, r_hint, sfn,
                                    su1, su2);
}
QOR_API int32_t qor_df_kernel_dDFIntegrate1D(const qor_df_task_t *task, int64_t nlim,
                                             const double *llim, int64_t llim_hint,
                                             const double *rlim, int64_t rlim_hint, double *r,
                                             int64_t r_hint, qor_df_dsearch_fn sfn, void *su1,
                                             void *su2) {
  return qor::fit::integrate<double>(task, nlim, llim, llim_hint, rlim, rlim_hint, r, r_hint, sfn,
                                     su1, su2);
}

}  // extern "C"
