/* Data fitting kernels: the task record, its editors and queries, and cell
 * search.
 *
 * A task describes, by reference, a one-dimensional partition x[0] < ... <
 * x[nx-1], the values of ny functions on it and a piecewise-polynomial spline.
 * The caller owns every array that a task points to; the task owns only its
 * two pointer tables and its cell-index table.  Every entry point returns a
 * signed 32-bit status: 0 on success, one of the QOR_DF_ERROR_* codes below on
 * failure (results leave through out-parameters).  Counts, identifiers and
 * indices are signed 64-bit unless a name says 32. */
#ifndef QOR_FIT_H
#define QOR_FIT_H

#include <stdint.h>

#include "qor/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- status codes ------------------------------------------------------ */
#define QOR_DF_STATUS_OK 0
#define QOR_DF_ERROR_NULL_TASK_DESCRIPTOR (-1000)
#define QOR_DF_ERROR_MEM_FAILURE (-1001)
#define QOR_DF_ERROR_BAD_ARGUMENT (-1002) /* argument this entry point does not take */
#define QOR_DF_ERROR_BAD_NX (-1004)
#define QOR_DF_ERROR_NULL_X (-1005)
#define QOR_DF_ERROR_BAD_X_HINT (-1006)
#define QOR_DF_ERROR_BAD_NY (-1007)
#define QOR_DF_ERROR_NULL_Y (-1008)
#define QOR_DF_ERROR_BAD_Y_HINT (-1009)
#define QOR_DF_ERROR_BAD_SPLINE_ORDER (-1010)
#define QOR_DF_ERROR_BAD_SPLINE_TYPE (-1011)
#define QOR_DF_ERROR_BAD_IC_TYPE (-1012)
#define QOR_DF_ERROR_NULL_IC (-1013)
#define QOR_DF_ERROR_BAD_BC_TYPE (-1014)
#define QOR_DF_ERROR_NULL_BC (-1015)
#define QOR_DF_ERROR_NULL_PP_COEFF (-1016)
#define QOR_DF_ERROR_BAD_PP_COEFF_HINT (-1017)
#define QOR_DF_ERROR_BAD_PARAM_ID (-1019)
#define QOR_DF_ERROR_BAD_FUNC_INDEX (-1020)
#define QOR_DF_ERROR_BAD_CHECK_FLAG (-1036)
#define QOR_DF_ERROR_NULL_OUTPUT (-1037)

/* ---- partition hints (x hint) ------------------------------------------ */
#define QOR_DF_NO_HINT 0
#define QOR_DF_NON_UNIFORM_PARTITION 1
#define QOR_DF_QUASI_UNIFORM_PARTITION 2
#define QOR_DF_UNIFORM_PARTITION 4

/* ---- storage hints (y hint, coefficient hint) --------------------------- */
#define QOR_DF_STORAGE_DEFAULT 0
#define QOR_DF_STORAGE_ROWS 16    /* function i starts i*stride after the pointer */
#define QOR_DF_STORAGE_SINGLE 32  /* one array for all functions, one table slot */
#define QOR_DF_STORAGE_APART 128  /* functions stored apart, set one by one */

/* ---- parameter identifiers --------------------------------------------- */
#define QOR_DF_ID_X 1
#define QOR_DF_ID_Y 2
#define QOR_DF_ID_IC 3
#define QOR_DF_ID_BC 4
#define QOR_DF_ID_PP_COEFF 5
#define QOR_DF_ID_NX 14
#define QOR_DF_ID_X_HINT 15
#define QOR_DF_ID_NY 16
#define QOR_DF_ID_Y_HINT 17
#define QOR_DF_ID_SPLINE_ORDER 18
#define QOR_DF_ID_SPLINE_TYPE 19
#define QOR_DF_ID_IC_TYPE 20
#define QOR_DF_ID_BC_TYPE 21
#define QOR_DF_ID_PP_COEFF_HINT 22
#define QOR_DF_ID_CHECK_FLAG 23

/* The task record is opaque to callers. */
typedef struct qor_df_task qor_df_task_t;

/* ---- creation, editors, queries, deletion ------------------------------- */

/* Creates a task.  Checks, in order: nx < 2 (-1004), x null (-1005), x hint
 * not 0/1/2/4 (-1006), ny 0 with y given (-1007), ny nonzero with y null
 * (-1008), y hint not 0/16/32/128 (-1009), task null (-1000); then the record
 * is allocated (-1001) and its address stored in *task at once, so that a
 * later -1001 (pointer or cell-index table) leaves a partly built record that
 * the caller releases with qor_df_kernel_DeleteTask.  int64_results nonzero:
 * integer queries and the general search write 64-bit values. */
QOR_API int32_t qor_df_kernel_sNewTask1D(qor_df_task_t **task, int64_t nx, const float *x,
                                         int64_t x_hint, int64_t ny, const float *y,
                                         int64_t y_hint, uint32_t int64_results);
QOR_API int32_t qor_df_kernel_dNewTask1D(qor_df_task_t **task, int64_t nx, const double *x,
                                         int64_t x_hint, int64_t ny, const double *y,
                                         int64_t y_hint, uint32_t int64_results);

/* Sets the spline description (order, type, boundary and internal conditions,
 * coefficient array and its hint).  Works on a record whatever its live mark. */
QOR_API int32_t qor_df_kernel_sEditPPSpline1D(qor_df_task_t *task, int64_t order, int64_t type,
                                              int64_t bc_type, const float *bc, int64_t ic_type,
                                              const float *ic, float *coeff, int64_t coeff_hint);
QOR_API int32_t qor_df_kernel_dEditPPSpline1D(qor_df_task_t *task, int64_t order, int64_t type,
                                              int64_t bc_type, const double *bc, int64_t ic_type,
                                              const double *ic, double *coeff, int64_t coeff_hint);

/* Integer parameters 14 to 23.  Editors and queries return 0 at once, doing
 * nothing, on a record whose live mark is not 1. */
QOR_API int32_t qor_df_kernel_iEditVal(qor_df_task_t *task, int64_t id, int64_t value);

/* Array parameters 1 to 5 (x, y, internal conditions, boundary conditions,
 * coefficients).  The pointer is stored, never copied; coefficients (id 5)
 * must point to writable memory. */
QOR_API int32_t qor_df_kernel_sEditPtr(qor_df_task_t *task, int64_t id, const float *ptr);
QOR_API int32_t qor_df_kernel_dEditPtr(qor_df_task_t *task, int64_t id, const double *ptr);

/* One function's values (id 2) or coefficients (id 5), index in [0, ny). */
QOR_API int32_t qor_df_kernel_sEditIdxPtr(qor_df_task_t *task, int64_t id, int64_t index,
                                          const float *ptr);
QOR_API int32_t qor_df_kernel_dEditIdxPtr(qor_df_task_t *task, int64_t id, int64_t index,
                                          const double *ptr);

/* Writes an int64_t when the task's int64_results flag is nonzero, else an
 * int32_t (the low half). */
QOR_API int32_t qor_df_kernel_iQueryVal(const qor_df_task_t *task, int64_t id, void *value);
QOR_API int32_t qor_df_kernel_sQueryPtr(const qor_df_task_t *task, int64_t id, float **ptr);
QOR_API int32_t qor_df_kernel_dQueryPtr(const qor_df_task_t *task, int64_t id, double **ptr);
/* index in [0, ny] is accepted; a slot the task never allocated (index ny,
 * or beyond a table made for a smaller ny) reads as null. */
QOR_API int32_t qor_df_kernel_sQueryIdxPtr(const qor_df_task_t *task, int64_t id, int64_t index,
                                           float **ptr);
QOR_API int32_t qor_df_kernel_dQueryIdxPtr(const qor_df_task_t *task, int64_t id, int64_t index,
                                           double **ptr);

/* Releases the record and its tables and sets *task to null. */
QOR_API int32_t qor_df_kernel_DeleteTask(qor_df_task_t **task);

/* ---- cell search ---------------------------------------------------------
 *
 * Cell index of a site t on x[0] < ... < x[nx-1]:
 *   t < x[0] -> 0;  x[i-1] <= t < x[i] -> i;  t == x[nx-1] -> nx-1;
 *   t > x[nx-1] -> nx.
 * A NaN site gets nx from the Sorted method and 0 from every other method
 * (and from qor_df_kernel_{s,d}DFSearch1D whatever it chooses).
 *
 * Width forms, one argument list for every method:
 *   (nx, x, nsite, site, carried, scale, cell_table, cell)
 *   x          breakpoints; the Uniform method reads only x[0] (left end) and
 *              x[1] (right end)
 *   carried    Sorted: the cell index carried between calls (read at entry,
 *              written at exit); ignored by the other methods
 *   scale      Uniform: (nx-1)/(right-left); QuasiUniform: (nx-1)/(x[nx-1]-x[0]);
 *              Hybrid: the task's cell scale M/(x[nx-1]-x[0]);
 *              Peak: the peak cell index (truncated to 32 bits)
 *   cell_table Hybrid: the task's cell-index table; ignored by the others
 *   cell       output, nsite indices
 * Suffix 32 writes int32_t indices (carried is int32_t*), 64 and 64Pack write
 * int64_t indices (carried is int64_t*); 64Pack converts in packed 32-bit
 * lanes.  The 32 forms need nx < 2^31.  The unsuffixed form of each method
 * takes one more argument, int64_results, and behaves as the 64 form when it
 * is nonzero and as the 32 form otherwise (carried and cell are then void*).
 * Every width form returns 0, except the user-defined methods.
 *
 * User-defined methods append (guess, fn, user1, user2, flags) after cell:
 *   guess   caller's scratch of nsite int64_t that receives the function's
 *           guesses (the kernels never allocate).  It may be null for the 64
 *           forms, which then stage the guesses in cell; the 32 form needs it
 *           (null with nsite > 0: -1001, nothing called).
 *   fn      called once per call as fn(&nsite, site, guess, flags, user1, user2)
 *   flags   caller's nsite int32_t flags passed to fn; nonzero keeps the guess.
 * A negative result of fn is returned at once with nothing written to cell.
 * UserDef returns every non-negative result unchanged (1000: all guesses are
 * final); UniUserDef returns 1000 as 0 and settles unflagged sites with the
 * Uniform rule (left x[0], right x[1], scale). */
typedef int32_t (*qor_df_ssearch_fn)(int64_t *n, const float *site, int64_t *guess,
                                     int32_t *flags, void *user1, void *user2);
typedef int32_t (*qor_df_dsearch_fn)(int64_t *n, const double *site, int64_t *guess,
                                     int32_t *flags, void *user1, void *user2);

#define QOR_DF_SEARCH_WIDTH_DECL(P, T, M)                                                      \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D32(int64_t nx, const T *x, int64_t nsite,   \
                                                       const T *site, int32_t *carried,        \
                                                       T scale, const int64_t *cell_table,     \
                                                       int32_t *cell);                         \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D64(int64_t nx, const T *x, int64_t nsite,   \
                                                       const T *site, int64_t *carried,        \
                                                       T scale, const int64_t *cell_table,     \
                                                       int64_t *cell);                         \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D(int64_t nx, const T *x, int64_t nsite,     \
                                                     const T *site, void *carried, T scale,    \
                                                     const int64_t *cell_table, void *cell,    \
                                                     int32_t int64_results);
#define QOR_DF_SEARCH_PACK_DECL(P, T, M)                                                        \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D64Pack(int64_t nx, const T *x, int64_t nsite, \
                                                           const T *site, int64_t *carried,      \
                                                           T scale, const int64_t *cell_table,   \
                                                           int64_t *cell);
#define QOR_DF_SEARCH_USER_DECL(P, T, M, F)                                                     \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D32(                                          \
      int64_t nx, const T *x, int64_t nsite, const T *site, int32_t *carried, T scale,          \
      const int64_t *cell_table, int32_t *cell, int64_t *guess, F fn, void *user1,             \
      void *user2, int32_t *flags);                                                             \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D64(                                          \
      int64_t nx, const T *x, int64_t nsite, const T *site, int64_t *carried, T scale,          \
      const int64_t *cell_table, int64_t *cell, int64_t *guess, F fn, void *user1,             \
      void *user2, int32_t *flags);                                                             \
  QOR_API int32_t qor_df_kernel_##P##DF##M##Search1D(                                            \
      int64_t nx, const T *x, int64_t nsite, const T *site, void *carried, T scale,             \
      const int64_t *cell_table, void *cell, int64_t *guess, F fn, void *user1, void *user2,   \
      int32_t *flags, int32_t int64_results);

/* Uniform, QuasiUniform, Sorted, Peak, Hybrid: 32, 64, 64Pack and unsuffixed;
 * UserDef, UniUserDef: 32, 64 and unsuffixed. */
#define QOR_DF_SEARCH_ALL_DECL(P, T, F)    \
  QOR_DF_SEARCH_WIDTH_DECL(P, T, Uniform)      \
  QOR_DF_SEARCH_PACK_DECL(P, T, Uniform)       \
  QOR_DF_SEARCH_WIDTH_DECL(P, T, QuasiUniform) \
  QOR_DF_SEARCH_PACK_DECL(P, T, QuasiUniform)  \
  QOR_DF_SEARCH_WIDTH_DECL(P, T, Sorted)       \
  QOR_DF_SEARCH_PACK_DECL(P, T, Sorted)        \
  QOR_DF_SEARCH_WIDTH_DECL(P, T, Peak)         \
  QOR_DF_SEARCH_PACK_DECL(P, T, Peak)          \
  QOR_DF_SEARCH_WIDTH_DECL(P, T, Hybrid)       \
  QOR_DF_SEARCH_PACK_DECL(P, T, Hybrid)        \
  QOR_DF_SEARCH_USER_DECL(P, T, UserDef, F)    \
  QOR_DF_SEARCH_USER_DECL(P, T, UniUserDef, F)

QOR_DF_SEARCH_ALL_DECL(s, float, qor_df_ssearch_fn)
QOR_DF_SEARCH_ALL_DECL(d, double, qor_df_dsearch_fn)

/* ---- general search over a task ------------------------------------------
 *
 * qor_df_kernel_{s,d}DFSearch1D(task, nsite, site, site_hint, data_hint, cell,
 *                               fn, user1, user2, flags, guess)
 *   task       a live task of the entry point's precision (else -1002; null
 *              task -1000; a record whose live mark is not 1: 0, nothing done)
 *   site       nsite sites (nsite <= 0: nothing done)
 *   site_hint  QOR_DF_SITES_NO_INFO or QOR_DF_SITES_SORTED (ascending sites)
 *   data_hint  null, or {kind, value}: kind QOR_DF_DATA_PEAK with the peak
 *              cell index as value; other kinds are ignored
 *   cell       output: int64_t indices when the task's int64_results flag is
 *              nonzero, int32_t otherwise
 *   fn, user1, user2, flags, guess: a caller's search function, as for the
 *              user-defined methods; fn null means none
 * Null site or cell with nsite > 0: -1037.
 *
 * Choice, first rule that applies:
 *   1. fn given: UniUserDef on a uniform partition (x hint 4), else UserDef;
 *      the function's status is returned as those methods return it.
 *   2. x hint 4: Uniform (left x[0], right x[nx-1]).
 *   3. site_hint sorted: Sorted, carried index starting at 0.
 *   4. data_hint peak: Peak.
 *   5. x hint 2 and nsite >= 32: QuasiUniform.
 *   6. a cell-index table built from the task's current nx and x: Hybrid.
 *   7. otherwise QuasiUniform (exact on any partition, fastest near uniform).
 * Every choice returns the cell indices of the table above, NaN sites
 * included (0). */
#define QOR_DF_SITES_NO_INFO 0
#define QOR_DF_SITES_SORTED 1
#define QOR_DF_DATA_NONE 0
#define QOR_DF_DATA_PEAK 1

QOR_API int32_t qor_df_kernel_sDFSearch1D(const qor_df_task_t *task, int64_t nsite,
                                          const float *site, int64_t site_hint,
                                          const float *data_hint, void *cell,
                                          qor_df_ssearch_fn fn, void *user1, void *user2,
                                          int32_t *flags, int64_t *guess);
QOR_API int32_t qor_df_kernel_dDFSearch1D(const qor_df_task_t *task, int64_t nsite,
                                          const double *site, int64_t site_hint,
                                          const double *data_hint, void *cell,
                                          qor_df_dsearch_fn fn, void *user1, void *user2,
                                          int32_t *flags, int64_t *guess);

#ifdef __cplusplus
}
#endif

#endif
