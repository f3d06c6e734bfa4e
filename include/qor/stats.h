/* Summary statistics: the task record, its editors and the absolute deviation
 * estimators of libqor_sse42.
 *
 * A task is an opaque record (qor_ss_task) that holds the caller's pointers:
 * the dimension p, the number of observations n, the observation matrix x,
 * its storage format, the weights, the variable selection and every result
 * array.  The task never copies or frees the caller's arrays.
 *
 * Integer parameters (p, n, storage formats, counts, selections) are passed by
 * pointer and read as 32-bit or 64-bit integers according to the width flag
 * given to NewTask, which is why they are typed `const void *`.
 *
 * Every function returns a status: 0 on success, a negative QOR_SS_ERROR_*
 * value otherwise. */
#ifndef QOR_STATS_H
#define QOR_STATS_H

#include <stdint.h>

#include "qor/core.h"
#include "qor/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void *qor_ss_task;

/* Storage formats of the observation matrix x. */
#define QOR_SS_STORAGE_COLS 0x10000 /* variable j: x[j*n .. j*n + n - 1]   */
#define QOR_SS_STORAGE_ROWS 0x20000 /* observation k of variable j: x[j + k*p] */

/* Estimate bits of the absolute deviation estimators. */
#define QOR_SS_MAD_MEDIAN 0x200000000ULL /* median absolute deviation (result: id 76) */
#define QOR_SS_MAD_MEAN 0x400000000ULL   /* mean absolute deviation (result: id 77)   */

/* Method bits. */
#define QOR_SS_METHOD_FAST 0x1ULL
#define QOR_SS_METHOD_1PASS 0x2ULL
#define QOR_SS_METHOD_CALLER_MEANS 0x100ULL
#define QOR_SS_METHOD_SUMS 0x200ULL
#define QOR_SS_METHOD_SUMS_ONLINE 0x400ULL

/* Parameter identifiers used by the absolute deviation estimators. */
#define QOR_SS_ED_DIMEN 1
#define QOR_SS_ED_OBSERV_N 2
#define QOR_SS_ED_OBSERV 3
#define QOR_SS_ED_OBSERV_STORAGE 4
#define QOR_SS_ED_INDC 5
#define QOR_SS_ED_WEIGHTS 6
#define QOR_SS_ED_MEAN 7
#define QOR_SS_ED_MDAD 76
#define QOR_SS_ED_MNAD 77

/* Statuses. */
#define QOR_SS_OK 0
#define QOR_SS_ERROR_BAD_PARAMETER -3
#define QOR_SS_ERROR_MEMORY -4000
#define QOR_SS_ERROR_BAD_DIMEN -4001
#define QOR_SS_ERROR_BAD_OBSERV_N -4002
#define QOR_SS_ERROR_STORAGE_NOT_SUPPORTED -4003
#define QOR_SS_ERROR_BAD_INDC_ADDR -4004
#define QOR_SS_ERROR_BAD_WEIGHTS -4005
#define QOR_SS_ERROR_BAD_MEAN_ADDR -4006
#define QOR_SS_ERROR_BAD_METHOD -4029
#define QOR_SS_ERROR_NULL_TASK -4031
#define QOR_SS_ERROR_BAD_OBSERV_ADDR -4032
#define QOR_SS_ERROR_BAD_STORAGE_ADDR -4044
#define QOR_SS_ERROR_BAD_SUM_ADDR -4074
#define QOR_SS_ERROR_BAD_MDAD_ADDR -4082
#define QOR_SS_ERROR_BAD_MNAD_ADDR -4083

/* ---- task life cycle --------------------------------------------------- */

/* Creates a task.  width_flag 0: the integers behind p, n, storage and
 * indices are 32-bit; otherwise 64-bit.  x may be null (then n and storage are
 * not examined and may be null too). */
QOR_API int32_t __rixdSSNewTask(qor_ss_task *task, const void *p, const void *n,
                                const void *x_storage, const double *x, const double *weights,
                                const void *indices, int32_t width_flag);
QOR_API int32_t __rixsSSNewTask(qor_ss_task *task, const void *p, const void *n,
                                const void *x_storage, const float *x, const float *weights,
                                const void *indices, int32_t width_flag);

/* Releases the task's scratch block, runs its clean-up hooks, frees the record
 * and sets *task to null. */
QOR_API int32_t __rixSSDeleteTask(qor_ss_task *task);

/* ---- generic editors ----------------------------------------------------- */

/* Integer parameters: identifiers 1 to 79 of the integer kind. */
QOR_API int32_t __rixiSSEditTask(qor_ss_task task, int32_t id, const void *value);
/* Real parameters: identifiers 3 to 78 of the real kind. */
QOR_API int32_t __rixdSSEditTask(qor_ss_task task, int32_t id, const double *value);
QOR_API int32_t __rixsSSEditTask(qor_ss_task task, int32_t id, const float *value);

/* ---- specialised editors ----------------------------------------------------
 * Every non-null argument is stored, every null argument leaves its field as
 * it was.  Integer arguments are `const void *` (read by the width flag). */
#define QOR_SS_DECLARE_EDITORS(t, T)                                                              \
  QOR_API int32_t __rix##t##SSEditMoments(qor_ss_task task, T *mean, T *r2m, T *r3m, T *r4m,     \
                                          T *c2m, T *c3m, T *c4m);                               \
  QOR_API int32_t __rix##t##SSEditSums(qor_ss_task task, T *sum, T *r2s, T *r3s, T *r4s,         \
                                       T *c2s, T *c3s, T *c4s);                                  \
  QOR_API int32_t __rix##t##SSEditCovCor(qor_ss_task task, T *mean, T *cov,                      \
                                         const void *cov_storage, T *cor,                        \
                                         const void *cor_storage);                               \
  QOR_API int32_t __rix##t##SSEditCP(qor_ss_task task, T *mean, T *sum, T *cp,                   \
                                     const void *cp_storage);                                    \
  QOR_API int32_t __rix##t##SSEditQuantiles(qor_ss_task task, const void *quant_order_n,         \
                                            const T *quant_order, T *quant, T *order_stats,      \
                                            const void *order_stats_storage);                    \
  QOR_API int32_t __rix##t##SSEditStreamQuantiles(qor_ss_task task, const void *quant_order_n,   \
                                                  const T *quant_order, T *quants,               \
                                                  const void *nparams, T *params);               \
  QOR_API int32_t __rix##t##SSEditPooledCovariance(qor_ss_task task, const void *grp_indices,    \
                                                   T *pld_mean, T *pld_cov,                      \
                                                   const void *grp_cov_indices, T *grp_means,    \
                                                   T *grp_cov);                                  \
  QOR_API int32_t __rix##t##SSEditOutDetect(qor_ss_task task, const void *nparams, T *params,    \
                                            T *w);                                               \
  QOR_API int32_t __rix##t##SSEditMissingVals(                                                   \
      qor_ss_task task, const void *nparams, T *params, const void *init_estimates_n,            \
      T *init_estimates, const void *prior_n, T *prior, const void *simul_missing_vals_n,        \
      T *simul_missing_vals, const void *estimates_n, T *estimates);                             \
  QOR_API int32_t __rix##t##SSEditPartialCovCor(                                                 \
      qor_ss_task task, const void *p_idx_array, T *cov, const void *cov_storage, T *cor,       \
      const void *cor_storage, T *p_cov, const void *p_cov_storage, T *p_cor,                    \
      const void *p_cor_storage);                                                                \
  QOR_API int32_t __rix##t##SSEditRCov(qor_ss_task task, const void *method,                    \
                                       const void *nparams, T *params, T *r_cov, T *r_mean);     \
  QOR_API int32_t __rix##t##SSEditMtxParametrz(qor_ss_task task, T *cor, const void *cor_storage, \
                                               T *param_cor, const void *param_cor_storage);
QOR_SS_DECLARE_EDITORS(d, double)
QOR_SS_DECLARE_EDITORS(s, float)
#undef QOR_SS_DECLARE_EDITORS

/* ---- absolute deviation estimators --------------------------------------- */

/* The service table: entry 0 a parallel-for, entry 4 a thread-count query;
 * entries 1 to 3 are not used by these estimators.  A null table, or a null
 * entry, means serial execution on the calling thread. */
typedef void (*qor_ss_service_fn)(void);
typedef void (*qor_ss_parallel_for_fn)(int64_t count, int threads, void *context,
                                       qor_threader_routine routine);
typedef int (*qor_ss_thread_count_fn)(int64_t p, int64_t n, int contiguous, const void *x);
#define QOR_SS_SERVICE_PARALLEL_FOR 0
#define QOR_SS_SERVICE_THREAD_COUNT 4
#define QOR_SS_SERVICE_TABLE_SIZE 5

/* estimates: QOR_SS_MAD_MEDIAN and/or QOR_SS_MAD_MEAN; method: 0x1, or 0x100
 * (caller's means, mean absolute deviation only). */
QOR_API int32_t _rixdSSMAD(qor_ss_task task, uint64_t estimates, uint64_t method,
                           const qor_ss_service_fn *services);
QOR_API int32_t _rixsSSMAD(qor_ss_task task, uint64_t estimates, uint64_t method,
                           const qor_ss_service_fn *services);

/* ---- a ready-made service table over the core library ------------------- */

/* Thread-count query: one thread for small jobs (below about 64 Ki values, or
 * a single variable), otherwise the core pool's limit. */
static inline int qor_ss_default_thread_count(int64_t p, int64_t n, int contiguous,
                                              const void *x) {
  (void)contiguous;
  (void)x;
  if (p < 2 || n < 1 || n < ((int64_t)1 << 16) / p) return 1;
  return qor_rix_serv_threader_get_num_threads_limit();
}

/* Fills table[0 .. QOR_SS_SERVICE_TABLE_SIZE - 1] with the core library's
 * parallel-for and the query above. */
static inline void qor_ss_default_services(qor_ss_service_fn *table) {
  for (int i = 0; i < QOR_SS_SERVICE_TABLE_SIZE; ++i) table[i] = 0;
  table[QOR_SS_SERVICE_PARALLEL_FOR] = (qor_ss_service_fn)qor_rix_serv_threader_for;
  table[QOR_SS_SERVICE_THREAD_COUNT] = (qor_ss_service_fn)qor_ss_default_thread_count;
}

#ifdef __cplusplus
}
#endif

#endif
