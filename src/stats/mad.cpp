// Absolute deviation estimators: the median absolute deviation from the median
// and the (weighted) mean absolute deviation from the mean, per variable.
//
// Shape: the entry point checks the task and the request, asks the caller's
// service table how many threads to use, gives every thread one buffer and
// runs a per-variable routine through the caller's parallel-for.  The median
// routine gathers the variable into its buffer when the layout is row-major
// and runs the quantiles estimator twice on one-variable tasks built on the
// stack.  The mean routine takes the mean from the basic statistics engine
// (or the caller) and sums the deviations tile by tile.  Row-major means are
// computed for groups of variables sharing cache lines (see below).
#include <immintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

#include "qor/core.h"
#include "qor/stats.h"
#include "stats/estimators.h"
#include "stats/task.h"

namespace qor::stats {
namespace {

template <class T>
struct MadContext {
  const T *x;
  const T *weights;
  const T *means;  // caller's means (method 0x100), else null
  T *result;
  const void *indices;
  int64_t p;
  int64_t n;
  bool contiguous;
  bool wide;
  T *buffers;  // one buffer per thread (n values, or one tile group)
  std::atomic<int32_t> status{0};

  // The variable's values, in place when contiguous, else gathered into buf.
  const T *column(int64_t j, T *buf) const {
    if (contiguous) return x + j * n;
    const T *src = x + j;
    for (int64_t k = 0; k < n; ++k) buf[k] = src[k * p];
    return buf;
  }
  void fail(int32_t st) { status.store(st, std::memory_order_relaxed); }
};

// Median of n values of a one-variable task over `data`; work may equal data
// (then data are reordered).
template <class T>
int32_t median_of(const T *data, int64_t n, T *work, T *out) {
  TaskRecord t;
  LocalInts ints;
  init_local_task(&t, &ints, n, data, nullptr);
  const T half = static_cast<T>(0.5);
  t.set_ptr(kFieldQuantCount, &ints.quant_count);
  t.set_ptr(kFieldQuantOrders, &half);
  t.set_ptr(kFieldQuants, out);
  return quantiles<T>(&t, kEstimateQuantiles, QOR_SS_METHOD_FAST, work);
}

template <class T>
int32_t mean_of(const T *data, const T *weights, int64_t n, T *out) {
  TaskRecord t;
  LocalInts ints;
  init_local_task(&t, &ints, n, data, weights);
  t.set_ptr(kFieldMeans, out);
  return basic<T>(&t, kEstimateMeans, QOR_SS_METHOD_FAST);
}

template <class T>
void median_abs_dev_one(int64_t j, int thread, void *context) {
  auto *c = static_cast<MadContext<T> *>(context);
  if (!selected(c->indices, j, c->wide)) return;
  const int64_t n = c->n;
  T *buf = c->buffers + static_cast<int64_t>(thread) * n;
  const T *col = c->column(j, buf);
  T med;
  if (int32_t st = median_of(col, n, buf, &med); st < 0) return c->fail(st);
  // The median pass reordered buf (when col is buf); deviations do not
  // depend on the order of the values.
  for (int64_t k = 0; k < n; ++k) buf[k] = std::fabs(col[k] - med);
  T mad;
  if (int32_t st = median_of(buf, n, buf, &mad); st < 0) return c->fail(st);
  c->result[j] = mad;
}

constexpr int64_t kDevTile = 512;

template <class T>
void mean_abs_dev_one(int64_t j, int thread, void *context) {
  auto *c = static_cast<MadContext<T> *>(context);
  if (!selected(c->indices, j, c->wide)) return;
  const int64_t n = c->n;
  T *buf = c->buffers + static_cast<int64_t>(thread) * n;
  const T *col = c->x + j * n;  // this routine serves contiguous variables only
  T mean;
  if (c->means) {
    mean = c->means[j];
  } else if (int32_t st = mean_of(col, c->weights, n, &mean); st < 0) {
    return c->fail(st);
  }
  // The deviations go into the thread's buffer one tile at a time and are
  // summed while the tile is still in the first-level cache; the tile sums
  // are combined pairwise, so the result has the accuracy of a pairwise sum
  // over the whole buffer without writing and re-reading n values.
  PairwiseAccumulator swx, sw;
  for (int64_t k0 = 0; k0 < n; k0 += kDevTile) {
    const int64_t m = std::min(kDevTile, n - k0);
    for (int64_t k = 0; k < m; ++k) buf[k] = std::fabs(col[k0 + k] - mean);
    double a, b;
    block_weighted_sum(buf, c->weights ? c->weights + k0 : nullptr, m, &a, &b);
    swx.add(a);
    sw.add(b);
  }
  c->result[j] = static_cast<T>(swx.value() / sw.value());
}

// Row-major mean absolute deviation.  Gathering one variable at a time from
// row-major data pulls every row's cache line into the processor once per
// variable, so for p variables the matrix is read about p times over.  The
// variables that share a cache line are therefore handled together: the
// parallel-for runs over groups of kGroup adjacent variables (8 doubles or
// 16 floats), and each pass walks the rows once, keeping one SIMD lane of
// sums per variable -- no transpose, no buffer.  Lanes are summed over tiles
// of kTile rows and the tile sums are combined with a compensated sum, which
// keeps the error bound close to that of the contiguous path's pairwise sums.
constexpr int64_t kTile = 64;
template <class T>
constexpr int64_t kGroup = 64 / sizeof(T);

inline __m128d abs_pd(__m128d v) { return _mm_andnot_pd(_mm_set1_pd(-0.0), v); }
inline __m128 abs_ps(__m128 v) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), v); }

// Sums over rows [k0, k0 + rows) of the group's kGroup variables starting at
// column j0: out[v] = sum_k w_k f(x[k][j0 + v]) with f(x) = x, or |x - mean[v]|
// when mean is given (computed in T, as the contiguous path does); w_k = 1
// without weights.  Full groups only.
void tile_sums(const double *x, int64_t p, int64_t j0, int64_t k0, int64_t rows,
               const double *w, const double *mean, double *out) {
  __m128d acc[4] = {_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()};
  __m128d m[4];
  for (int i = 0; i < 4; ++i) m[i] = mean ? _mm_loadu_pd(mean + 2 * i) : _mm_setzero_pd();
  for (int64_t k = 0; k < rows; ++k) {
    const double *r = x + (k0 + k) * p + j0;
    const __m128d wk = w ? _mm_set1_pd(w[k0 + k]) : _mm_set1_pd(1.0);
    for (int i = 0; i < 4; ++i) {
      __m128d v = _mm_loadu_pd(r + 2 * i);
      if (mean) v = abs_pd(_mm_sub_pd(v, m[i]));
      acc[i] = _mm_add_pd(acc[i], w ? _mm_mul_pd(v, wk) : v);
    }
  }
  for (int i = 0; i < 4; ++i) _mm_storeu_pd(out + 2 * i, acc[i]);
}

void tile_sums(const float *x, int64_t p, int64_t j0, int64_t k0, int64_t rows, const float *w,
               const float *mean, double *out) {
  __m128d acc[8];
  for (auto &a : acc) a = _mm_setzero_pd();
  __m128 m[4];
  for (int i = 0; i < 4; ++i) m[i] = mean ? _mm_loadu_ps(mean + 4 * i) : _mm_setzero_ps();
  for (int64_t k = 0; k < rows; ++k) {
    const float *r = x + (k0 + k) * p + j0;
    const __m128d wk = w ? _mm_set1_pd(static_cast<double>(w[k0 + k])) : _mm_set1_pd(1.0);
    for (int i = 0; i < 4; ++i) {
      __m128 v = _mm_loadu_ps(r + 4 * i);
      if (mean) v = abs_ps(_mm_sub_ps(v, m[i]));
      const __m128d lo = _mm_cvtps_pd(v), hi = _mm_cvtps_pd(_mm_movehl_ps(v, v));
      acc[2 * i] = _mm_add_pd(acc[2 * i], w ? _mm_mul_pd(lo, wk) : lo);
      acc[2 * i + 1] = _mm_add_pd(acc[2 * i + 1], w ? _mm_mul_pd(hi, wk) : hi);
    }
  }
  for (int i = 0; i < 8; ++i) _mm_storeu_pd(out + 2 * i, acc[i]);
}

// The same for a partial group of `width` variables (the last group when p
// is not a multiple of kGroup).
template <class T>
void tile_sums_partial(const T *x, int64_t p, int64_t j0, int64_t width, int64_t k0,
                       int64_t rows, const T *w, const T *mean, double *out) {
  for (int64_t v = 0; v < width; ++v) out[v] = 0;
  for (int64_t k = 0; k < rows; ++k) {
    const T *r = x + (k0 + k) * p + j0;
    const double wk = w ? static_cast<double>(w[k0 + k]) : 1.0;
    for (int64_t v = 0; v < width; ++v) {
      const T val = mean ? std::fabs(r[v] - mean[v]) : r[v];
      out[v] += wk * static_cast<double>(val);
    }
  }
}

template <class T>
void mean_abs_dev_group(int64_t g, int /*thread*/, void *context) {
  auto *c = static_cast<MadContext<T> *>(context);
  constexpr int64_t G = kGroup<T>;
  const int64_t j0 = g * G;
  const int64_t width = std::min<int64_t>(G, c->p - j0);
  bool take[G];
  bool any = false;
  for (int64_t v = 0; v < width; ++v) any |= take[v] = selected(c->indices, j0 + v, c->wide);
  if (!any) return;
  const int64_t n = c->n, p = c->p;
  const T *w = c->weights;

  // One pass: compensated sums over tiles of the per-variable tile sums.
  auto pass = [&](const T *mean, CompensatedSum *sums, CompensatedSum *wsum) {
    double tile[G];
    for (int64_t k0 = 0; k0 < n; k0 += kTile) {
      const int64_t rows = std::min(kTile, n - k0);
      if (width == G)
        tile_sums(c->x, p, j0, k0, rows, w, mean, tile);
      else
        tile_sums_partial(c->x, p, j0, width, k0, rows, w, mean, tile);
      for (int64_t v = 0; v < width; ++v) sums[v].add(tile[v]);
      if (w) {
        double t = 0;
        for (int64_t k = 0; k < rows; ++k) t += static_cast<double>(w[k0 + k]);
        wsum->add(t);
      } else {
        wsum->add(static_cast<double>(rows));
      }
    }
  };

  T mean[G] = {};
  if (c->means) {
    for (int64_t v = 0; v < width; ++v) mean[v] = c->means[j0 + v];
  } else {
    CompensatedSum swx[G], sw;
    pass(nullptr, swx, &sw);
    // Rounded to T, as the one-variable engine stores it.
    for (int64_t v = 0; v < width; ++v) mean[v] = static_cast<T>(swx[v].value() / sw.value());
  }
  CompensatedSum sdev[G], sw;
  pass(mean, sdev, &sw);
  for (int64_t v = 0; v < width; ++v)
    if (take[v]) c->result[j0 + v] = static_cast<T>(sdev[v].value() / sw.value());
}

template <class T>
int32_t run_pass(MadContext<T> &c, const qor_ss_service_fn *services,
                 qor_threader_routine routine, int64_t tasks, int64_t per_thread) {
  int threads = 1;
  auto query = services ? reinterpret_cast<qor_ss_thread_count_fn>(
                              services[QOR_SS_SERVICE_THREAD_COUNT])
                        : nullptr;
  auto parallel_for = services ? reinterpret_cast<qor_ss_parallel_for_fn>(
                                     services[QOR_SS_SERVICE_PARALLEL_FOR])
                               : nullptr;
  if (query && parallel_for) {
    const int64_t want = static_cast<int32_t>(query(c.p, c.n, c.contiguous ? 1 : 0, c.x));
    threads = static_cast<int>(want < tasks ? want : tasks);
    if (threads < 1) threads = 1;
  }
  const size_t per = static_cast<size_t>(per_thread);
  if (per > SIZE_MAX / sizeof(T) / static_cast<size_t>(threads)) return QOR_SS_ERROR_MEMORY;
  c.buffers = nullptr;
  if (per > 0) {
    c.buffers = static_cast<T *>(
        qor_serv_allocate(per * static_cast<size_t>(threads) * sizeof(T), kTaskAlignment));
    if (!c.buffers) return QOR_SS_ERROR_MEMORY;
  }
  c.status.store(0, std::memory_order_relaxed);
  if (parallel_for && threads > 1) {
    parallel_for(tasks, threads, &c, routine);
  } else {
    for (int64_t j = 0; j < tasks; ++j) routine(j, 0, &c);
  }
  if (c.buffers) qor_serv_deallocate(c.buffers);
  c.buffers = nullptr;
  return c.status.load(std::memory_order_relaxed);
}

template <class T>
int32_t mad(void *task, uint64_t estimates, uint64_t method, const qor_ss_service_fn *services) {
  if (!task) return QOR_SS_ERROR_NULL_TASK;
  const TaskRecord *t = static_cast<const TaskRecord *>(task);
  const bool wide = t->wide();

  // The core library validates p, n and x before calling; a null pointer is
  // still reported (as the bad value it stands for) rather than followed.
  const void *pp = t->ptr<const void>(kFieldP);
  const int64_t p = pp ? read_int(pp, wide) : 0;
  if (p < 1) return QOR_SS_ERROR_BAD_DIMEN;
  const void *pn = t->ptr<const void>(kFieldN);
  const int64_t n = pn ? read_int(pn, wide) : 0;
  if (n < 1) return QOR_SS_ERROR_BAD_OBSERV_N;
  const void *ps = t->ptr<const void>(kFieldStorage);
  if (!ps) return QOR_SS_ERROR_BAD_STORAGE_ADDR;
  const int64_t storage = read_int(ps, wide);
  if (storage != kStorageCols && storage != kStorageRows)
    return QOR_SS_ERROR_STORAGE_NOT_SUPPORTED;
  const T *x = t->ptr<const T>(kFieldX);
  if (!x) return QOR_SS_ERROR_BAD_OBSERV_ADDR;

  MadContext<T> c;
  c.x = x;
  c.weights = nullptr;
  c.means = nullptr;
  c.indices = t->ptr<const void>(kFieldIndices);
  c.p = p;
  c.n = n;
  c.contiguous = storage == kStorageCols || p == 1;
  c.wide = wide;
  c.buffers = nullptr;

  int32_t status = QOR_SS_OK;
  if (estimates & QOR_SS_MAD_MEDIAN) {
    c.result = t->ptr<T>(kFieldMedianAbsDev);
    if (!c.result) return QOR_SS_ERROR_BAD_MDAD_ADDR;
    if (!(method & QOR_SS_METHOD_FAST)) {
      status = QOR_SS_ERROR_BAD_METHOD;
    } else {
      status = run_pass(c, services, &median_abs_dev_one<T>, c.p, c.n);
    }
  }
  if (!(estimates & QOR_SS_MAD_MEAN)) return status;

  // A mean pass replaces whatever the median pass reported: when both are
  // requested, only the mean pass's status is returned.
  c.result = t->ptr<T>(kFieldMeanAbsDev);
  if (!c.result) return QOR_SS_ERROR_BAD_MNAD_ADDR;
  if (!(method & (QOR_SS_METHOD_FAST | QOR_SS_METHOD_CALLER_MEANS))) return QOR_SS_ERROR_BAD_METHOD;
  if (method & QOR_SS_METHOD_CALLER_MEANS) {
    c.means = t->ptr<const T>(kFieldMeans);
    if (!c.means) return QOR_SS_ERROR_BAD_MEAN_ADDR;
  }
  c.weights = t->ptr<const T>(kFieldWeights);
  if (!c.contiguous) {
    const int64_t groups = (p + kGroup<T> - 1) / kGroup<T>;
    return run_pass(c, services, &mean_abs_dev_group<T>, groups, 0);  // no buffer needed
  }
  return run_pass(c, services, &mean_abs_dev_one<T>, c.p, c.n);
}

}  // namespace
}  // namespace qor::stats

extern "C" {

QOR_API int32_t _rixdSSMAD(qor_ss_task task, uint64_t estimates, uint64_t method,
                           const qor_ss_service_fn *services) {
  return qor::stats::mad<double>(task, estimates, method, services);
}

QOR_API int32_t _rixsSSMAD(qor_ss_task task, uint64_t estimates, uint64_t method,
                           const qor_ss_service_fn *services) {
  return qor::stats::mad<float>(task, estimates, method, services);
}

}  // extern "C"
