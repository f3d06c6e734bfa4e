// Internal estimators that the exported estimators build on: the quantiles
// estimator (selection based) and the basic statistics engine (means).  Both
// read their inputs through a task record, as the exported estimators do, so
// a caller may run them on a one-variable task built on its stack.
#pragma once

#include <cstdint>

#include "stats/task.h"

namespace qor::stats {

inline constexpr uint64_t kEstimateMeans = 0x1;
inline constexpr uint64_t kEstimateQuantiles = 0x10000;

// Quantiles estimator, estimate 0x10000 with method 0x1.  Reads the count of
// orders (id 24), the orders (id 25, each in [0, 1]) and writes the quantiles
// (id 26) of each selected variable j at quants[j * count + i].
//
// Quantile convention: for order q over n values sorted as v(0) <= ... <=
// v(n-1), position h = (n - 1) q and the quantile is v(floor h) +
// (h - floor h) (v(floor h + 1) - v(floor h)).  For q = 0.5 and an even n this
// is the mean of the two middle values.  A variable that holds a NaN has NaN
// for every quantile.
//
// work: n values of scratch for the selection.  When work is the task's own x
// (possible only for p = 1), the data are reordered in place; when it is null
// the estimator allocates its own.  Status: 0, -4029 (method or estimate not
// served), -4022 / -4021 / -4023 (missing count, orders, result array), -4021
// also for an order outside [0, 1] or a count below 1, the data check statuses
// (-4002, -4032, -4044, -4003), -4000.
template <class T>
int32_t quantiles(const TaskRecord *t, uint64_t estimates, uint64_t method, T *work);

// Basic statistics engine, estimate 0x1 (means) with method 0x1 or 0x2: the
// weighted mean sum(w x) / sum(w) of each selected variable into the means
// array (id 7), with unit weights when the task has none.  Sums are pairwise
// over SIMD blocks (single precision is accumulated in double), so the error
// grows like log n rather than n.  NaN or infinite data give a NaN or infinite
// mean; a zero total weight gives NaN.  Status: the request check, then the
// data check, then -4029 for any other estimate or method.
template <class T>
int32_t basic(const TaskRecord *t, uint64_t estimates, uint64_t method);

// Building blocks, exposed for the tests and the estimators.
template <class T>
double pairwise_sum(const T *x, int64_t n);
template <class T>
void pairwise_weighted_sum(const T *x, const T *w, int64_t n, double *sum_wx, double *sum_w);
// Plain SIMD sums of one short block (up to a few hundred values): sum(w x)
// and sum(w), or sum(x) and n when w is null.  Callers combine blocks with a
// CompensatedSum.
template <class T>
void block_weighted_sum(const T *x, const T *w, int64_t n, double *sum_wx, double *sum_w);
// Neumaier's compensated running sum.
struct CompensatedSum {
  double sum = 0, comp = 0;
  void add(double v);
  double value() const { return sum + comp; }
};
// Pairwise summation of a stream of block sums: a binary counter of partial
// sums, each level holding the sum of 2^level blocks, so that every value
// goes through about log2(blocks) additions, as in a recursive pairwise sum.
struct PairwiseAccumulator {
  double level[64];
  uint64_t count = 0;
  void add(double v) {
    uint64_t c = count;
    int lv = 0;
    for (; c & 1; c >>= 1, ++lv) v = level[lv] + v;
    level[lv] = v;
    ++count;
  }
  double value() const {
    double s = 0;
    for (int lv = 0; lv < 64; ++lv)
      if ((count >> lv) & 1) s += level[lv];
    return s;
  }
};
// True when any of the n values is NaN.
template <class T>
bool has_nan(const T *x, int64_t n);
// Selects the value of rank k (0-based) of a[0..n-1] in place, reordering a so
// that a[i] <= a[k] for i < k and a[i] >= a[k] for i > k.  Expected linear
// time; no NaN allowed.
template <class T>
T select_rank(T *a, int64_t n, int64_t k);

// Values of rank k and, when need_next, k + 1 of data[0..n-1] (a sampling
// bracket and one streaming pass, falling back to select_rank).  in_place:
// work == data may be permuted; otherwise data are read-only and work holds n
// values of scratch.  Returns false, with nothing stored, when a value is NaN.
template <class T>
bool select_pair(const T *data, T *work, int64_t n, int64_t k, bool need_next, bool in_place,
                 T *vk, T *vnext);

}  // namespace qor::stats
