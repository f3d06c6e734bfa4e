// Spline construction entry points: argument checks in their fixed order,
// boundary classification, and dispatch to a kernel from a static table keyed
// by function storage (interleaved single array or not), partition kind
// (uniform or not) and, for the C2 cubics, boundary kind.  A kernel does the
// work shared by all functions once (cell widths, factorisation) and runs the
// per-function part through the caller's parallel-for.
#include <cstdint>

#include "fit/construct/spline_math.h"
#include "fit/task.h"
#include "qor/core.h"
#include "qor/export.h"
#include "qor/fit.h"
#include "qor/fit_construct.h"

namespace qor::fit {
namespace {

enum class Mode { kLinear, kQuadratic, kQuadraticKnots, kC2, kLocal };

// What a constructor asks of its kernel; the kernel adds its compile-time
// storage, partition and (C2) boundary kind.
struct Request {
  Mode mode;
  CubicFlavour flavour;
  LocalMethod method;
  int kind;
  qor_df_threader_fn threader;
  int threads;
};

template <typename T>
struct Job {
  const Task *t = nullptr;
  Mode mode = Mode::kLinear;
  LocalMethod method = LocalMethod::kAkima;
  int kind = 0;
  bool interleaved = false;
  int64_t nx = 0, ny = 0;
  const T *bc = nullptr;
  const T *ic = nullptr;
  Geometry<T> g;
  CubicSystem<T> sys;
  QuadraticKnotSystem<T> quad;
  T *work = nullptr;  // nx values per worker
  int32_t *status = nullptr;
};

template <typename T>
void one_function(int64_t j, int thread, void *context) {
  Job<T> &job = *static_cast<Job<T> *>(context);
  const Task *t = job.t;
  Values<T> y;
  if (job.interleaved) {
    y = Values<T>{static_cast<const T *>(t->y_table[0]) + j, job.ny};
  } else {
    y = Values<T>{static_cast<const T *>(t->y_table[j]), 1};
  }
  T *c = static_cast<T *>(t->coeff_table[j]);
  T *s = job.work + static_cast<int64_t>(thread) * (job.nx + 1);
  int32_t st = 0;
  switch (job.mode) {
    case Mode::kLinear:
      write_linear(job.g, y, c);
      break;
    case Mode::kQuadratic:
      write_quadratic_from_left_slope(job.g, y, job.bc[0], c);
      break;
    case Mode::kQuadraticKnots:
      st = job.quad.build(y, job.bc, s, c);
      break;
    case Mode::kC2:
      st = job.sys.slopes(y, job.bc, s);
      if (st == 0) write_cubic(job.g, y, s, c);
      break;
    case Mode::kLocal: {
      const T *ic = job.ic ? job.ic + j * (job.nx - 2) : nullptr;
      local_slopes(job.method, job.g, y, job.kind, job.bc, ic, s);
      write_cubic(job.g, y, s, c);
      break;
    }
  }
  job.status[j] = st;
}

template <typename T>
int32_t run(const Task *t, const Request &rq, bool interleaved, bool uniform, int kind) {
  Job<T> job;
  job.t = t;
  job.mode = rq.mode;
  job.method = rq.method;
  job.kind = kind;
  job.interleaved = interleaved;
  job.nx = t->nx;
  job.ny = t->ny;
  job.bc = static_cast<const T *>(t->bc);
  job.ic = static_cast<const T *>(t->ic);
  // More workers than functions would only cost scratch.
  int threads = rq.threader != nullptr && rq.threads > 1 ? rq.threads : 1;
  if (threads > job.ny) threads = static_cast<int>(job.ny);
  if (job.nx + 1 > INT64_MAX / threads / static_cast<int64_t>(sizeof(T))) return kStatusMemory;
  if (job.g.init(job.nx, static_cast<const T *>(t->x), uniform) != 0) return kStatusMemory;
  if (rq.mode == Mode::kC2) {
    const int32_t st = job.sys.prepare(job.g, kind, rq.flavour);
    if (st != 0) return st;
  } else if (rq.mode == Mode::kQuadraticKnots) {
    const int32_t st = job.quad.prepare(job.nx, static_cast<const T *>(t->x), uniform, job.ic, kind);
    if (st != 0) return st;
  }
  Scratch<T> work;
  Scratch<int32_t> status;
  const bool needs_work = rq.mode == Mode::kC2 || rq.mode == Mode::kLocal || rq.mode == Mode::kQuadraticKnots;
  if (needs_work && !work.allocate((job.nx + 1) * threads)) return kStatusMemory;
  if (!status.allocate(job.ny)) return kStatusMemory;
  job.work = work.get();
  job.status = status.get();
  if (threads > 1) {
    rq.threader(job.ny, threads, &job, &one_function<T>);
  } else {
    for (int64_t j = 0; j < job.ny; ++j) one_function<T>(j, 0, &job);
  }
  for (int64_t j = 0; j < job.ny; ++j)
    if (job.status[j] != 0) return job.status[j];
  return 0;
}

// The kernels proper: one instantiation per table key.
template <typename T>
using Kernel = int32_t (*)(const Task *, const Request &);

template <typename T, bool Interleaved, bool Uniform>
int32_t plain_kernel(const Task *t, const Request &rq) {
  return run<T>(t, rq, Interleaved, Uniform, rq.kind);
}

template <typename T, bool Interleaved, bool Uniform, int Kind>
int32_t c2_kernel(const Task *t, const Request &rq) {
  return run<T>(t, rq, Interleaved, Uniform, Kind);
}

// [storage: 0 other, 1 interleaved][partition: 0 other, 1 uniform]
template <typename T>
constexpr Kernel<T> kPlainTable[2][2] = {
    {&plain_kernel<T, false, false>, &plain_kernel<T, false, true>},
    {&plain_kernel<T, true, false>, &plain_kernel<T, true, true>},
};

template <typename T, bool I, bool U>
constexpr Kernel<T> kC2Row[7] = {&c2_kernel<T, I, U, 0>, &c2_kernel<T, I, U, 1>, &c2_kernel<T, I, U, 2>,
                                 &c2_kernel<T, I, U, 3>, &c2_kernel<T, I, U, 4>, &c2_kernel<T, I, U, 5>,
                                 &c2_kernel<T, I, U, 6>};

// [storage][partition][boundary kind 0-6]: 28 kernels per precision.
template <typename T>
constexpr const Kernel<T> *kC2Table[2][2] = {
    {kC2Row<T, false, false>, kC2Row<T, false, true>},
    {kC2Row<T, true, false>, kC2Row<T, true, true>},
};

enum class Kind {
  kLinear,
  kQuadratic,
  kNatural,
  kDefault,
  kHermite,
  kBessel,
  kHyman,
  kAkima,
};

inline bool y_hint_admitted(int64_t h) { return h == 0 || h == 16 || h == 32 || h == 128; }

// The checks that follow those of each constructor's own list, common to all
// of them: boundary classification, order, storage.  Returns 0 or a status.
template <typename T>
int32_t classify_and_check_storage(const Task *t, bool takes_bc, bool akima, int64_t order, int *kind) {
  if (takes_bc) {
    const int k = boundary_kind(t->bc_type);
    if (k < 0 || (k == kAkimaEnds && !akima)) return QOR_DF_ERROR_BAD_BC_TYPE;
    const bool needs_array = kind_reads_bc(k) || (k == kPeriodic && (t->type == 0 || t->type == 3));
    if (needs_array && t->bc == nullptr) return QOR_DF_ERROR_NULL_BC;
    *kind = k;
  }
  if (t->order != order) return QOR_DF_ERROR_BAD_SPLINE_ORDER;
  if (t->ny < 1 || t->y_table == nullptr) return QOR_DF_ERROR_NULL_Y;
  if (t->coeff_table == nullptr) return QOR_DF_ERROR_NULL_PP_COEFF;
  const bool interleaved = t->y_hint == QOR_DF_STORAGE_SINGLE;
  if (!interleaved && t->y_slots < t->ny) return QOR_DF_ERROR_BAD_NY;
  if (t->coeff_slots < t->ny) return QOR_DF_ERROR_BAD_NY;
  if (interleaved) {
    if (t->y_table[0] == nullptr) return QOR_DF_ERROR_NULL_Y;
  } else {
    for (int64_t j = 0; j < t->ny; ++j)
      if (t->y_table[j] == nullptr) return QOR_DF_ERROR_NULL_Y;
  }
  for (int64_t j = 0; j < t->ny; ++j)
    if (t->coeff_table[j] == nullptr) return QOR_DF_ERROR_NULL_PP_COEFF;
  return 0;
}

template <typename T>
int32_t construct(qor_df_task_t *task, Kind which, qor_df_threader_fn threader, const void *reserved,
                  int32_t threads) {
  if (task == nullptr) return QOR_DF_ERROR_NULL_TASK_DESCRIPTOR;
  const Task *t = reinterpret_cast<const Task *>(task);
  if (t->live != 1) return 0;
  if (t->precision != (sizeof(T) == 8 ? 1 : 0)) return QOR_DF_ERROR_BAD_ARGUMENT;
  const int64_t nx = t->nx, bct = t->bc_type;
  const bool bc_in_range = bct >= 1 && bct <= 64;
  Request rq{Mode::kLocal, CubicFlavour::kNatural, LocalMethod::kAkima, 0, threader, threads};
  int64_t order = 4;
  bool takes_bc = true;
  switch (which) {
    case Kind::kLinear:
      if (nx < 2) return QOR_DF_ERROR_BAD_NX;
      if (reserved != nullptr) return QOR_DF_ERROR_BAD_ARGUMENT;
      rq.mode = Mode::kLinear, order = 2, takes_bc = false;
      break;
    case Kind::kQuadratic:
      if (t->type == 1) {
        if ((t->ic_type & QOR_DF_IC_KNOTS) == 0) return QOR_DF_ERROR_BAD_IC_TYPE;
        rq.mode = Mode::kQuadraticKnots;
      } else if (t->type == 0) {
        if (bct != QOR_DF_BC_QUADRATIC_LEFT_SLOPE) return QOR_DF_ERROR_BAD_BC_TYPE;
        if (t->bc == nullptr) return QOR_DF_ERROR_NULL_BC;
        rq.mode = Mode::kQuadratic, takes_bc = false;
      } else {
        return QOR_DF_ERROR_BAD_ARGUMENT;
      }
      order = 3;
      break;
    case Kind::kNatural:
      if (nx < 2 || (nx == 2 && bct == 1)) return QOR_DF_ERROR_BAD_NX;
      if (reserved != nullptr) return QOR_DF_ERROR_BAD_ARGUMENT;
      rq.mode = Mode::kC2;
      break;
    case Kind::kDefault:
      if (nx < 3) return QOR_DF_ERROR_BAD_NX;
      rq.mode = Mode::kC2, rq.flavour = CubicFlavour::kDefault;
      break;
    case Kind::kHermite:
      if (nx < 3) return QOR_DF_ERROR_BAD_NX;
      if (!bc_in_range) return QOR_DF_ERROR_BAD_BC_TYPE;
      rq.method = LocalMethod::kHermite;
      break;
    case Kind::kBessel:
    case Kind::kHyman:
      if (nx < 4) return QOR_DF_ERROR_BAD_NX;
      if (!bc_in_range) return QOR_DF_ERROR_BAD_BC_TYPE;
      rq.method = which == Kind::kBessel ? LocalMethod::kBessel : LocalMethod::kHyman;
      break;
    case Kind::kAkima:
      if (nx < 5) return QOR_DF_ERROR_BAD_NX;
      rq.method = LocalMethod::kAkima;
      break;
  }
  if (!y_hint_admitted(t->y_hint)) return QOR_DF_ERROR_BAD_Y_HINT;
  int kind = 0;
  const int32_t st = classify_and_check_storage<T>(t, takes_bc, which == Kind::kAkima, order, &kind);
  if (st != 0) return st;
  if (rq.mode == Mode::kQuadraticKnots) {
    // The knotted quadratic's not-a-knot and periodic ends need two knots.
    if (t->ic == nullptr) return QOR_DF_ERROR_NULL_IC;
    if ((kind == kNotAKnot || kind == kPeriodic) && nx < 3) return QOR_DF_ERROR_BAD_NX;
  }
  if (which == Kind::kHermite) {
    if (t->ic_type != QOR_DF_IC_1ST_DER) return QOR_DF_ERROR_BAD_IC_TYPE;
    if (t->ic == nullptr) return QOR_DF_ERROR_NULL_IC;
  }
  const int storage = t->y_hint == QOR_DF_STORAGE_SINGLE ? 1 : 0;
  const int partition = (t->x_hint & 4) ? 1 : 0;
  rq.kind = kind;
  if (rq.mode == Mode::kC2) return kC2Table<T>[storage][partition][kind](t, rq);
  return kPlainTable<T>[storage][partition](t, rq);
}

}  // namespace
}  // namespace qor::fit

using qor::fit::construct;
using CKind = qor::fit::Kind;

#define QOR_DF_CONSTRUCT_DEF(P, T, K)                                                          \
  extern "C" QOR_API int32_t qor_df_kernel_##P##DF##K##Spline1D(                              \
      qor_df_task_t *task, qor_df_threader_fn threader, const void *reserved, int32_t threads) { \
    return construct<T>(task, CKind::k##K, threader, reserved, threads);                      \
  }

QOR_DF_CONSTRUCT_DEF(s, float, Linear)
QOR_DF_CONSTRUCT_DEF(s, float, Quadratic)
QOR_DF_CONSTRUCT_DEF(d, double, Linear)
QOR_DF_CONSTRUCT_DEF(d, double, Quadratic)

#define QOR_DF_CUBIC_DEF(P, T, K, E)                                                           \
  extern "C" QOR_API int32_t qor_df_kernel_##P##DF##K##CubicSpline1D(                         \
      qor_df_task_t *task, qor_df_threader_fn threader, const void *reserved, int32_t threads) { \
    return construct<T>(task, CKind::E, threader, reserved, threads);                         \
  }

QOR_DF_CUBIC_DEF(s, float, Natural, kNatural)
QOR_DF_CUBIC_DEF(s, float, Default, kDefault)
QOR_DF_CUBIC_DEF(s, float, Hermite, kHermite)
QOR_DF_CUBIC_DEF(s, float, Bessel, kBessel)
QOR_DF_CUBIC_DEF(s, float, Hyman, kHyman)
QOR_DF_CUBIC_DEF(s, float, Akima, kAkima)
QOR_DF_CUBIC_DEF(d, double, Natural, kNatural)
QOR_DF_CUBIC_DEF(d, double, Default, kDefault)
QOR_DF_CUBIC_DEF(d, double, Hermite, kHermite)
QOR_DF_CUBIC_DEF(d, double, Bessel, kBessel)
QOR_DF_CUBIC_DEF(d, double, Hyman, kHyman)
QOR_DF_CUBIC_DEF(d, double, Akima, kAkima)
