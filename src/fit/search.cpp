// Exported cell-search entry points: every method in every width form, and
// the general entry point that picks a method from what the task and the
// caller know.
#include "fit/search.h"

#include <cmath>

#include "qor/export.h"
#include "qor/fit.h"

namespace qor::fit {
namespace {

enum class Method { kUniform, kQuasiUniform, kSorted, kPeak, kHybrid };

// Common argument checks of the width forms.  The caller (the core library)
// normally guarantees them; they keep a bad call from touching memory.
template <class T>
int32_t check_args(int64_t nx, const T *x, const T *site, const void *cell) {
  if (nx < 2) return QOR_DF_ERROR_BAD_NX;
  if (!x) return QOR_DF_ERROR_NULL_X;
  if (!site || !cell) return QOR_DF_ERROR_NULL_OUTPUT;
  return 0;
}

template <class T, Width W>
int32_t run(Method m, int64_t nx, const T *x, int64_t n, const T *site, Idx<W> *carried, T scale,
            const int64_t *tab, Idx<W> *cell) {
  if (n <= 0) return 0;
  if (const int32_t st = check_args(nx, x, site, cell)) return st;
  if constexpr (W == Width::k64Pack) {
    // Packed 32-bit lanes cannot hold indices of a larger partition.
    if (nx > INT32_MAX) return run<T, Width::k64>(m, nx, x, n, site, carried, scale, tab, cell);
  }
  switch (m) {
    case Method::kUniform: uniform_search<T, W>(nx, x, n, site, scale, cell); break;
    case Method::kQuasiUniform: quasi_uniform_search<T, W>(nx, x, n, site, scale, cell); break;
    case Method::kSorted: sorted_search<T, W>(nx, x, n, site, carried, cell); break;
    case Method::kPeak: peak_search<T, W>(nx, x, n, site, scale, cell); break;
    case Method::kHybrid:
      if (!tab) return QOR_DF_ERROR_BAD_ARGUMENT;
      hybrid_search<T, W>(nx, x, n, site, scale, tab, cell_count_for(nx), cell);
      break;
  }
  return 0;
}

template <class T, Width W>
int32_t run_user(bool uni, int64_t nx, const T *x, int64_t n, const T *site, T scale, Idx<W> *cell,
                 int64_t *guess, SearchFn<T> fn, void *u1, void *u2, int32_t *flags) {
  if (n <= 0) return 0;
  if (const int32_t st = check_args(nx, x, site, cell)) return st;
  return user_search<T, W>(nx, x, n, site, scale, cell, guess, fn, u1, u2, flags, uni);
}

// ---- general entry over a task -------------------------------------------------

template <class T, Width W>
int32_t search_task(const Task *t, int64_t n, const T *site, int64_t site_hint,
                    const T *data_hint, Idx<W> *cell, SearchFn<T> fn, void *u1, void *u2,
                    int32_t *flags, int64_t *guess) {
  const int64_t nx = t->nx;
  const T *x = static_cast<const T *>(t->x);
  const T x0 = x[0], last = x[nx - 1];
  const bool uniform = t->x_hint == QOR_DF_UNIFORM_PARTITION;
  const T ends[2] = {x0, last};
  const T index_scale = static_cast<T>(nx - 1) / (last - x0);

  if (fn) {
    // The settle of unflagged sites reads the partition as the method wants
    // it: the two ends for the uniform rule, the breakpoints otherwise.  NaN
    // sites get 0 from both.
    return user_search<T, W>(nx, uniform ? ends : x, n, site, index_scale, cell, guess, fn, u1, u2,
                             flags, uniform);
  }
  if (uniform) {
    uniform_search<T, W>(nx, ends, n, site, index_scale, cell);
    return 0;
  }
  if (site_hint == QOR_DF_SITES_SORTED) {
    Idx<W> j = 0;
    sorted_search<T, W, true>(nx, x, n, site, &j, cell);
    return 0;
  }
  if (data_hint && data_hint[0] == static_cast<T>(QOR_DF_DATA_PEAK)) {
    peak_search<T, W>(nx, x, n, site, data_hint[1], cell);
    return 0;
  }
  const bool table_current = t->cell_table && t->table_nx == nx && t->table_x == t->x;
  if (!(t->x_hint == QOR_DF_QUASI_UNIFORM_PARTITION && n >= 32) && table_current) {
    T scale;
    if constexpr (std::is_same_v<T, float>) scale = t->cell_scale.s;
    else scale = t->cell_scale.d;
    hybrid_search<T, W>(nx, x, n, site, scale, t->cell_table, t->cell_count, cell);
    return 0;
  }
  quasi_uniform_search<T, W>(nx, x, n, site, index_scale, cell);
  return 0;
}

template <class T>
int32_t search_general(const qor_df_task_t *task, int64_t n, const T *site, int64_t site_hint,
                       const T *data_hint, void *cell, SearchFn<T> fn, void *u1, void *u2,
                       int32_t *flags, int64_t *guess) {
  const Task *t = reinterpret_cast<const Task *>(task);
  if (!t) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  if (t->live != 1) return 0;
  if (t->precision != (sizeof(T) == 8 ? 1 : 0)) return QOR_DF_ERROR_BAD_ARGUMENT;
  if (n <= 0) return 0;
  if (!site || !cell) return QOR_DF_ERROR_NULL_OUTPUT;
  if (t->int64_results)
    return search_task<T, Width::k64>(t, n, site, site_hint, data_hint, static_cast<int64_t *>(cell),
                                      fn, u1, u2, flags, guess);
  return search_task<T, Width::k32>(t, n, site, site_hint, data_hint, static_cast<int32_t *>(cell), fn,
                                    u1, u2, flags, guess);
}

}  // namespace
}  // namespace qor::fit

using qor::fit::Method;
using qor::fit::Width;
using qor::fit::run;
using qor::fit::run_user;

#define QOR_DF_DEFINE_METHOD(P, T, M)                                                              \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D32(int64_t nx, const T *x, int64_t n,          \
                                                       const T *site, int32_t *carried, T scale,   \
                                                       const int64_t *tab, int32_t *cell) {        \
    return run<T, Width::k32>(Method::k##M, nx, x, n, site, carried, scale, tab, cell);           \
  }                                                                                                \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D64(int64_t nx, const T *x, int64_t n,          \
                                                       const T *site, int64_t *carried, T scale,   \
                                                       const int64_t *tab, int64_t *cell) {        \
    return run<T, Width::k64>(Method::k##M, nx, x, n, site, carried, scale, tab, cell);           \
  }                                                                                                \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D64Pack(int64_t nx, const T *x, int64_t n,      \
                                                           const T *site, int64_t *carried,        \
                                                           T scale, const int64_t *tab,            \
                                                           int64_t *cell) {                        \
    return run<T, Width::k64Pack>(Method::k##M, nx, x, n, site, carried, scale, tab, cell);       \
  }                                                                                                \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D(int64_t nx, const T *x, int64_t n,            \
                                                     const T *site, void *carried, T scale,        \
                                                     const int64_t *tab, void *cell,               \
                                                     int32_t int64_results) {                      \
    if (int64_results)                                                                             \
      return run<T, Width::k64>(Method::k##M, nx, x, n, site, static_cast<int64_t *>(carried),    \
                                scale, tab, static_cast<int64_t *>(cell));                         \
    return run<T, Width::k32>(Method::k##M, nx, x, n, site, static_cast<int32_t *>(carried),      \
                              scale, tab, static_cast<int32_t *>(cell));                           \
  }

#define QOR_DF_DEFINE_USER(P, T, M, F, UNI)                                                        \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D32(                                            \
      int64_t nx, const T *x, int64_t n, const T *site, int32_t *, T scale, const int64_t *,      \
      int32_t *cell, int64_t *guess, F fn, void *u1, void *u2, int32_t *flags) {                  \
    return run_user<T, Width::k32>(UNI, nx, x, n, site, scale, cell, guess, fn, u1, u2, flags);   \
  }                                                                                                \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D64(                                            \
      int64_t nx, const T *x, int64_t n, const T *site, int64_t *, T scale, const int64_t *,      \
      int64_t *cell, int64_t *guess, F fn, void *u1, void *u2, int32_t *flags) {                  \
    return run_user<T, Width::k64>(UNI, nx, x, n, site, scale, cell, guess, fn, u1, u2, flags);   \
  }                                                                                                \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D(                                              \
      int64_t nx, const T *x, int64_t n, const T *site, void *, T scale, const int64_t *,         \
      void *cell, int64_t *guess, F fn, void *u1, void *u2, int32_t *flags,                        \
      int32_t int64_results) {                                                                     \
    if (int64_results)                                                                             \
      return run_user<T, Width::k64>(UNI, nx, x, n, site, scale, static_cast<int64_t *>(cell),   \
                                     guess, fn, u1, u2, flags);                                    \
    return run_user<T, Width::k32>(UNI, nx, x, n, site, scale, static_cast<int32_t *>(cell),     \
                                   guess, fn, u1, u2, flags);                                      \
  }

extern "C" {

QOR_DF_DEFINE_METHOD(s, float, Uniform)
QOR_DF_DEFINE_METHOD(s, float, QuasiUniform)
QOR_DF_DEFINE_METHOD(s, float, Sorted)
QOR_DF_DEFINE_METHOD(s, float, Peak)
QOR_DF_DEFINE_METHOD(s, float, Hybrid)
QOR_DF_DEFINE_METHOD(d, double, Uniform)
QOR_DF_DEFINE_METHOD(d, double, QuasiUniform)
QOR_DF_DEFINE_METHOD(d, double, Sorted)
QOR_DF_DEFINE_METHOD(d, double, Peak)
QOR_DF_DEFINE_METHOD(d, double, Hybrid)
QOR_DF_DEFINE_USER(s, float, UserDef, qor_df_ssearch_fn, false)
QOR_DF_DEFINE_USER(s, float, UniUserDef, qor_df_ssearch_fn, true)
QOR_DF_DEFINE_USER(d, double, UserDef, qor_df_dsearch_fn, false)
QOR_DF_DEFINE_USER(d, double, UniUserDef, qor_df_dsearch_fn, true)

QOR_API int32_t qor_df_kernel_sDFSearch1D(const qor_df_task_t *task, int64_t n, const float *site,
                                          int64_t site_hint, const float *data_hint, void *cell,
                                          qor_df_ssearch_fn fn, void *u1, void *u2, int32_t *flags,
                                          int64_t *guess) {
  return qor::fit::search_general(task, n, site, site_hint, data_hint, cell, fn, u1, u2, flags,
                                  guess);
}
QOR_API int32_t qor_df_kernel_dDFSearch1D(const qor_df_task_t *task, int64_t n, const double *site,
                                          int64_t site_hint, const double *data_hint, void *cell,
                                          qor_df_dsearch_fn fn, void *u1, void *u2, int32_t *flags,
                                          int64_t *guess) {
  return qor::fit::search_general(task, n, site, site_hint, data_hint, cell, fn, u1, u2, flags,
                                  guess);
}

}  // extern "C"
