// Task life cycle and editors of the summary statistics component.
#include "stats/task.h"

#include "qor/core.h"
#include "qor/stats.h"

namespace qor::stats {

namespace {
constexpr ParamKind I = ParamKind::kInteger;
constexpr ParamKind R = ParamKind::kReal;
}  // namespace

// Identifier -> (kind, record field, status for a null pointer).  Several
// identifiers share a status on purpose (see docs/stats.md): -4044 serves the
// storage formats and selectors without a status of their own, -4038 serves
// both group index arrays and -4006 serves both the means and the sums.
const ParamInfo kParamTable[80] = {
    {ParamKind::kNone, 0, 0},
    /* 1 */ {I, 2, -4001},  {I, 3, -4002},  {R, 5, -4032},  {I, 8, -4044},  {I, 4, -4004},
    /* 6 */ {R, 6, -4005},  {R, 11, -4006}, {R, 12, -4007}, {R, 13, -4008}, {R, 14, -4009},
    /* 11 */ {R, 15, -4010}, {R, 16, -4011}, {R, 17, -4012}, {R, 25, -4013}, {R, 26, -4014},
    /* 16 */ {R, 28, -4015}, {R, 29, -4016}, {R, 27, -4017}, {R, 31, -4018}, {I, 30, -4044},
    /* 21 */ {R, 33, -4019}, {I, 32, -4044}, {R, 7, -4020},  {I, 44, -4022}, {R, 45, -4021},
    /* 26 */ {R, 46, -4023}, {R, 47, -4024}, {I, 36, -4038}, {I, 43, -4044}, {R, 41, -4035},
    /* 31 */ {R, 42, -4034}, {I, 37, -4038}, {R, 38, -4037}, {I, 40, -4044}, {R, 39, -4036},
    /* 36 */ {I, 61, -4044}, {I, 57, -4043}, {R, 58, -4042}, {R, 59, -4028}, {R, 60, -4027},
    /* 41 */ {I, 62, -4040}, {R, 63, -4039}, {R, 64, -4041}, {I, 48, -4044}, {I, 65, -4045},
    /* 46 */ {R, 66, -4046}, {I, 67, -4044}, {R, 68, -4047}, {I, 69, -4044}, {I, 70, -4049},
    /* 51 */ {R, 71, -4048}, {I, 72, -4052}, {R, 73, -4053}, {I, 76, -4055}, {R, 77, -4054},
    /* 56 */ {I, 78, -4056}, {R, 79, -4057}, {I, 74, -4061}, {R, 75, -4062}, {R, 9, -4071},
    /* 61 */ {I, 10, -4044}, {I, 53, -4066}, {R, 54, -4065}, {I, 49, -4069}, {R, 50, -4068},
    /* 66 */ {R, 51, -4070}, {R, 18, -4006}, {R, 19, -4075}, {R, 20, -4076}, {R, 21, -4077},
    /* 71 */ {R, 22, -4078}, {R, 23, -4079}, {R, 24, -4080}, {R, 35, -4081}, {I, 34, -4044},
    /* 76 */ {R, 56, -4082}, {R, 55, -4083}, {R, 90, -4084}, {I, 91, -4044},
};

void init_local_task(TaskRecord *t, LocalInts *ints, int64_t n, const void *x,
                     const void *weights) {
  std::memset(t, 0, sizeof *t);
  ints->p = 1;
  ints->n = n;
  ints->storage = kStorageCols;
  ints->quant_count = 1;
  t->f[kFieldWidth] = 1u | (uint64_t{2} << 32);
  t->f[kFieldVersion] = 1;
  t->set_ptr(kFieldP, &ints->p);
  t->set_ptr(kFieldN, &ints->n);
  t->set_ptr(kFieldStorage, &ints->storage);
  t->set_ptr(kFieldX, x);
  t->set_ptr(kFieldWeights, weights);
}

bool add_cleanup_hook(TaskRecord *t, CleanupHook hook) {
  const uint64_t count = t->f[kFieldHookCount];
  if (count >= static_cast<uint64_t>(kMaxHooks)) return false;
  t->set_ptr(kFieldHookFirst + static_cast<int>(count), reinterpret_cast<const void *>(hook));
  t->f[kFieldHookCount] = count + 1;
  return true;
}

namespace {

int32_t new_task(void **task, const void *p, const void *n, const void *storage, const void *x,
                 const void *weights, const void *indices, int32_t width_flag) {
  const bool wide = width_flag != 0;
  if (!p || read_int(p, wide) < 1) return QOR_SS_ERROR_BAD_DIMEN;
  if (x) {
    if (!storage) return QOR_SS_ERROR_BAD_STORAGE_ADDR;
    const int64_t s = read_int(storage, wide);
    if (s != kStorageCols && s != kStorageRows) return QOR_SS_ERROR_STORAGE_NOT_SUPPORTED;
    if (!n || read_int(n, wide) < 1) return QOR_SS_ERROR_BAD_OBSERV_N;
  }
  // Nowhere to put the record: reported like any other missing task.
  if (!task) return QOR_SS_ERROR_NULL_TASK;
  auto *t = static_cast<TaskRecord *>(qor_serv_allocate(sizeof(TaskRecord), kTaskAlignment));
  if (!t) return QOR_SS_ERROR_MEMORY;
  std::memset(t, 0, sizeof *t);
  t->f[kFieldWidth] = static_cast<uint32_t>(width_flag) | (uint64_t{2} << 32);
  t->f[kFieldVersion] = 1;
  t->set_ptr(kFieldP, p);
  t->set_ptr(kFieldN, n);
  t->set_ptr(kFieldIndices, indices);
  t->set_ptr(kFieldX, x);
  t->set_ptr(kFieldWeights, weights);
  t->set_ptr(kFieldStorage, storage);
  *task = t;
  return QOR_SS_OK;
}

int32_t edit_task(void *task, int32_t id, const void *value, ParamKind kind) {
  if (!task) return QOR_SS_ERROR_NULL_TASK;
  const int lo = kind == ParamKind::kInteger ? 1 : 3;
  const int hi = kind == ParamKind::kInteger ? 79 : 78;
  if (id < lo || id > hi || kParamTable[id].kind != kind) return QOR_SS_ERROR_BAD_PARAMETER;
  if (!value) return kParamTable[id].null_status;
  static_cast<TaskRecord *>(task)->set_ptr(kParamTable[id].field, value);
  return QOR_SS_OK;
}

// Stores each non-null argument into the field of its identifier.
struct Edit {
  int id;
  const void *value;
};
template <size_t N>
int32_t edit_many(void *task, const Edit (&edits)[N]) {
  if (!task) return QOR_SS_ERROR_NULL_TASK;
  auto *t = static_cast<TaskRecord *>(task);
  for (const Edit &e : edits)
    if (e.value) t->set_ptr(kParamTable[e.id].field, e.value);
  return QOR_SS_OK;
}

}  // namespace
}  // namespace qor::stats

using qor::stats::edit_many;

extern "C" {

QOR_API int32_t __rixdSSNewTask(qor_ss_task *task, const void *p, const void *n,
                                const void *x_storage, const double *x, const double *weights,
                                const void *indices, int32_t width_flag) {
  return qor::stats::new_task(task, p, n, x_storage, x, weights, indices, width_flag);
}

QOR_API int32_t __rixsSSNewTask(qor_ss_task *task, const void *p, const void *n,
                                const void *x_storage, const float *x, const float *weights,
                                const void *indices, int32_t width_flag) {
  return qor::stats::new_task(task, p, n, x_storage, x, weights, indices, width_flag);
}

QOR_API int32_t __rixSSDeleteTask(qor_ss_task *task) {
  using namespace qor::stats;
  if (!task) return QOR_SS_ERROR_NULL_TASK;
  auto *t = static_cast<TaskRecord *>(*task);
  if (!t) return QOR_SS_ERROR_NULL_TASK;
  if (void *scratch = t->ptr<void>(kFieldScratchBlock)) {
    qor_serv_deallocate(scratch);
    t->f[kFieldScratchBlock] = 0;
  }
  // The hook count is bounded by the slots that exist, whatever an estimator
  // wrote: the record must not be read past its last word.
  uint64_t hooks = t->f[kFieldHookCount];
  if (hooks > static_cast<uint64_t>(kMaxHooks)) hooks = kMaxHooks;
  for (uint64_t i = 0; i < hooks; ++i) {
    auto hook = reinterpret_cast<CleanupHook>(
        static_cast<uintptr_t>(t->f[kFieldHookFirst + static_cast<int>(i)]));
    if (hook) hook(t);
  }
  qor_serv_deallocate(t);
  *task = nullptr;
  return QOR_SS_OK;
}

QOR_API int32_t __rixiSSEditTask(qor_ss_task task, int32_t id, const void *value) {
  return qor::stats::edit_task(task, id, value, qor::stats::ParamKind::kInteger);
}
QOR_API int32_t __rixdSSEditTask(qor_ss_task task, int32_t id, const double *value) {
  return qor::stats::edit_task(task, id, value, qor::stats::ParamKind::kReal);
}
QOR_API int32_t __rixsSSEditTask(qor_ss_task task, int32_t id, const float *value) {
  return qor::stats::edit_task(task, id, value, qor::stats::ParamKind::kReal);
}

#define QOR_SS_DEFINE_EDITORS(t, T)                                                                \
  QOR_API int32_t __rix##t##SSEditMoments(qor_ss_task task, T *mean, T *r2m, T *r3m, T *r4m,      \
                                          T *c2m, T *c3m, T *c4m) {                               \
    return edit_many(task, {{7, mean}, {8, r2m}, {9, r3m}, {10, r4m}, {11, c2m}, {12, c3m},      \
                            {13, c4m}});                                                          \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditSums(qor_ss_task task, T *sum, T *r2s, T *r3s, T *r4s, T *c2s, \
                                       T *c3s, T *c4s) {                                          \
    return edit_many(task, {{67, sum}, {68, r2s}, {69, r3s}, {70, r4s}, {71, c2s}, {72, c3s},    \
                            {73, c4s}});                                                          \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditCovCor(qor_ss_task task, T *mean, T *cov,                       \
                                         const void *cov_storage, T *cor,                         \
                                         const void *cor_storage) {                               \
    return edit_many(task, {{7, mean}, {19, cov}, {20, cov_storage}, {21, cor},                   \
                            {22, cor_storage}});                                                  \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditCP(qor_ss_task task, T *mean, T *sum, T *cp,                    \
                                     const void *cp_storage) {                                    \
    return edit_many(task, {{7, mean}, {67, sum}, {74, cp}, {75, cp_storage}});                   \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditQuantiles(qor_ss_task task, const void *quant_order_n,          \
                                            const T *quant_order, T *quant, T *order_stats,       \
                                            const void *order_stats_storage) {                    \
    return edit_many(task, {{24, quant_order_n}, {25, quant_order}, {26, quant},                  \
                            {27, order_stats}, {44, order_stats_storage}});                       \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditStreamQuantiles(qor_ss_task task, const void *quant_order_n,    \
                                                  const T *quant_order, T *quants,                \
                                                  const void *nparams, T *params) {               \
    return edit_many(task, {{64, quant_order_n}, {65, quant_order}, {66, quants},                 \
                            {62, nparams}, {63, params}});                                        \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditPooledCovariance(qor_ss_task task, const void *grp_indices,     \
                                                   T *pld_mean, T *pld_cov,                       \
                                                   const void *grp_cov_indices, T *grp_means,     \
                                                   T *grp_cov) {                                  \
    return edit_many(task, {{28, grp_indices}, {30, pld_mean}, {31, pld_cov},                     \
                            {32, grp_cov_indices}, {33, grp_means}, {35, grp_cov}});              \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditOutDetect(qor_ss_task task, const void *nparams, T *params,     \
                                            T *w) {                                               \
    return edit_many(task, {{41, nparams}, {42, params}, {43, w}});                               \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditMissingVals(                                                    \
      qor_ss_task task, const void *nparams, T *params, const void *init_estimates_n,             \
      T *init_estimates, const void *prior_n, T *prior, const void *simul_missing_vals_n,         \
      T *simul_missing_vals, const void *estimates_n, T *estimates) {                             \
    return edit_many(task, {{50, nparams}, {51, params}, {52, init_estimates_n},                  \
                            {53, init_estimates}, {58, prior_n}, {59, prior},                     \
                            {54, simul_missing_vals_n}, {55, simul_missing_vals},                 \
                            {56, estimates_n}, {57, estimates}});                                 \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditPartialCovCor(                                                  \
      qor_ss_task task, const void *p_idx_array, T *cov, const void *cov_storage, T *cor,        \
      const void *cor_storage, T *p_cov, const void *p_cov_storage, T *p_cor,                     \
      const void *p_cor_storage) {                                                                \
    return edit_many(task, {{45, p_idx_array}, {19, cov}, {20, cov_storage}, {21, cor},          \
                            {22, cor_storage}, {46, p_cov}, {47, p_cov_storage}, {48, p_cor},    \
                            {49, p_cor_storage}});                                                \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditRCov(qor_ss_task task, const void *method,                     \
                                       const void *nparams, T *params, T *r_cov, T *r_mean) {     \
    return edit_many(task, {{36, method}, {37, nparams}, {38, params}, {39, r_cov}, {40, r_mean}}); \
  }                                                                                               \
  QOR_API int32_t __rix##t##SSEditMtxParametrz(qor_ss_task task, T *cor, const void *cor_storage, \
                                               T *param_cor, const void *param_cor_storage) {     \
    return edit_many(task, {{21, cor}, {22, cor_storage}, {60, param_cor},                        \
                            {61, param_cor_storage}});                                            \
  }

QOR_SS_DEFINE_EDITORS(d, double)
QOR_SS_DEFINE_EDITORS(s, float)

}  // extern "C"
