// Quantiles estimator (selection) and the means of the basic statistics engine.
#include "stats/estimators.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "qor/core.h"
#include "qor/stats.h"

namespace qor::stats {

// ---- summation ------------------------------------------------------------

namespace {

// Values summed plainly (in eight SIMD lanes) before pairwise combination.
// Small enough that the in-block error stays at a few ulps, large enough that
// the recursion costs nothing measurable.
constexpr int64_t kBlock = 512;

inline __m128d load2(const double *p) { return _mm_loadu_pd(p); }
inline __m128d load2(const float *p) {
  // Two floats through an unaligned 64-bit integer load (floats need only
  // 4-byte alignment).
  return _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i_u *>(p))));
}

inline double hsum(__m128d v) { return _mm_cvtsd_f64(_mm_add_sd(v, _mm_unpackhi_pd(v, v))); }

template <class T>
double block_sum(const T *x, int64_t n) {
  __m128d a0 = _mm_setzero_pd(), a1 = a0, a2 = a0, a3 = a0;
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    a0 = _mm_add_pd(a0, load2(x + i));
    a1 = _mm_add_pd(a1, load2(x + i + 2));
    a2 = _mm_add_pd(a2, load2(x + i + 4));
    a3 = _mm_add_pd(a3, load2(x + i + 6));
  }
  double s = hsum(_mm_add_pd(_mm_add_pd(a0, a1), _mm_add_pd(a2, a3)));
  for (; i < n; ++i) s += static_cast<double>(x[i]);
  return s;
}

template <class T>
void block_wsum(const T *x, const T *w, int64_t n, double *swx, double *sw) {
  __m128d a0 = _mm_setzero_pd(), a1 = a0, b0 = a0, b1 = a0;
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128d w0 = load2(w + i), w1 = load2(w + i + 2);
    a0 = _mm_add_pd(a0, _mm_mul_pd(w0, load2(x + i)));
    a1 = _mm_add_pd(a1, _mm_mul_pd(w1, load2(x + i + 2)));
    b0 = _mm_add_pd(b0, w0);
    b1 = _mm_add_pd(b1, w1);
  }
  double s = hsum(_mm_add_pd(a0, a1)), t = hsum(_mm_add_pd(b0, b1));
  for (; i < n; ++i) {
    s += static_cast<double>(w[i]) * static_cast<double>(x[i]);
    t += static_cast<double>(w[i]);
  }
  *swx = s;
  *sw = t;
}

inline void neumaier_add(double &sum, double &comp, double v) {
  const double t = sum + v;
  comp += std::fabs(sum) >= std::fabs(v) ? (sum - t) + v : (v - t) + sum;
  sum = t;
}

// Halves at a multiple of the block so that every leaf but the last is full.
inline int64_t split(int64_t n) { return ((n / kBlock + 1) / 2) * kBlock; }

}  // namespace

template <class T>
double pairwise_sum(const T *x, int64_t n) {
  if (n <= kBlock) return block_sum(x, n);
  const int64_t h = split(n);
  return pairwise_sum(x, h) + pairwise_sum(x + h, n - h);
}

template <class T>
void pairwise_weighted_sum(const T *x, const T *w, int64_t n, double *sum_wx, double *sum_w) {
  if (n <= kBlock) {
    block_wsum(x, w, n, sum_wx, sum_w);
    return;
  }
  const int64_t h = split(n);
  double a, b, c, d;
  pairwise_weighted_sum(x, w, h, &a, &b);
  pairwise_weighted_sum(x + h, w + h, n - h, &c, &d);
  *sum_wx = a + c;
  *sum_w = b + d;
}

template <class T>
void block_weighted_sum(const T *x, const T *w, int64_t n, double *sum_wx, double *sum_w) {
  if (w) {
    block_wsum(x, w, n, sum_wx, sum_w);
  } else {
    *sum_wx = block_sum(x, n);
    *sum_w = static_cast<double>(n);
  }
}

void CompensatedSum::add(double v) { neumaier_add(sum, comp, v); }

template <class T>
bool has_nan(const T *x, int64_t n) {
  // x != x only for NaN; the unordered compare vectorises without branches.
  int bad = 0;
  for (int64_t i = 0; i < n; ++i) bad |= x[i] != x[i];
  return bad != 0;
}

// ---- selection ------------------------------------------------------------

template <class T>
T select_rank(T *a, int64_t n, int64_t k) {
  // The standard library's introselect: quickselect with a median-of-three
  // pivot that falls back to a heap selection when partitions keep coming
  // out lopsided, so the expected time is linear and the worst n log n.  It
  // finishes the sampling selection below, on a few per cent of the values.
  std::nth_element(a, a + k, a + n);
  return a[k];
}

// Ranks k and k + 1 of n values in one streaming pass (Floyd and Rivest's
// sampling idea): a random sample of about n^(2/3) values gives two bounds
// lo <= hi that bracket rank k with overwhelming probability; one branch-free
// pass counts the values below lo and moves the few values within [lo, hi]
// to the front of `work`; a selection on those few finishes.  If the bracket
// misses (or the data defeat the sample) the full selection runs instead, so
// the answer is always exact.
//
// in_place: work == data and data may be permuted (values are swapped, never
// overwritten).  Otherwise data are only read and work receives n values.
// Returns false when the data hold a NaN.
template <class T>
bool select_pair(const T *data, T *work, int64_t n, int64_t k, bool need_next, bool in_place,
                 T *vk, T *vnext) {
  auto full = [&](T *a) {
    *vk = select_rank(a, n, k);
    if (need_next && k + 1 < n) *vnext = *std::min_element(a + k + 1, a + n);
    return true;
  };
  if (n < 4096) {
    if (!in_place) std::copy(data, data + n, work);
    if (has_nan(work, n)) return false;
    return full(work);
  }

  // The sample: one value from each of s equal strides, at a pseudo-random
  // offset within the stride (xorshift), so periodic data cannot fool it.
  const int64_t s = std::min<int64_t>(
      n / 4, static_cast<int64_t>(std::cbrt(static_cast<double>(n) * static_cast<double>(n))));
  T *sample = static_cast<T *>(qor_serv_allocate(static_cast<size_t>(s) * sizeof(T), kTaskAlignment));
  if (!sample) {
    if (!in_place) std::copy(data, data + n, work);
    if (has_nan(work, n)) return false;
    return full(work);
  }
  const int64_t stride = n / s;
  uint64_t r = 0x9E3779B97F4A7C15ull ^ static_cast<uint64_t>(n);
  for (int64_t i = 0; i < s; ++i) {
    r ^= r << 13;
    r ^= r >> 7;
    r ^= r << 17;
    sample[i] = data[i * stride + static_cast<int64_t>(r % static_cast<uint64_t>(stride))];
  }
  if (has_nan(sample, s)) {
    qor_serv_deallocate(sample);
    return false;
  }
  // Rank of k within the sample, +- five standard deviations of a sample
  // quantile (sqrt(s q (1 - q)) <= sqrt(s) / 2), plus one for rank k + 1.
  const double centre = (static_cast<double>(k) + 0.5) * static_cast<double>(s) /
                        static_cast<double>(n);
  const double spread = 2.5 * std::sqrt(static_cast<double>(s)) + 2;
  const int64_t ilo = std::max<int64_t>(0, static_cast<int64_t>(centre - spread));
  const int64_t ihi = std::min<int64_t>(s - 1, static_cast<int64_t>(centre + spread) + 1);
  const T lo = select_rank(sample, s, ilo);
  const T hi = select_rank(sample + ilo, s - ilo, ihi - ilo);
  qor_serv_deallocate(sample);

  int64_t below = 0, above = 0, m = 0;
  if (in_place) {
    for (int64_t i = 0; i < n; ++i) {
      const T v = work[i];
      below += v < lo;
      above += v > hi;
      work[i] = work[m];
      work[m] = v;
      m += (v >= lo) & (v <= hi);
    }
  } else {
    for (int64_t i = 0; i < n; ++i) {
      const T v = data[i];
      below += v < lo;
      above += v > hi;
      work[m] = v;
      m += (v >= lo) & (v <= hi);
    }
  }
  if (below + above + m != n) return false;  // only NaN fails all three tests
  if (below <= k && k < below + m) {
    *vk = select_rank(work, m, k - below);
    if (need_next && k + 1 < n) {
      if (k + 1 < below + m) {
        *vnext = *std::min_element(work + (k - below) + 1, work + m);
      } else {
        // Rank k + 1 is the least value above hi.
        T least = std::numeric_limits<T>::infinity();
        for (int64_t i = 0; i < n; ++i) {
          const T v = data[i];
          if (v > hi && v < least) least = v;
        }
        *vnext = least;
      }
    }
    return true;
  }
  // The bracket missed: in place, the data are merely permuted; otherwise
  // take a fresh copy.
  if (!in_place) std::copy(data, data + n, work);
  return full(work);
}

// ---- estimators -----------------------------------------------------------

template <class T>
int32_t quantiles(const TaskRecord *t, uint64_t estimates, uint64_t method, T *work) {
  if (method != QOR_SS_METHOD_FAST || estimates != kEstimateQuantiles)
    return QOR_SS_ERROR_BAD_METHOD;
  const bool wide = t->wide();
  const void *pcount = t->ptr<const void>(kFieldQuantCount);
  if (!pcount) return kParamTable[24].null_status;
  const T *orders = t->ptr<const T>(kFieldQuantOrders);
  if (!orders) return kParamTable[25].null_status;
  T *out = t->ptr<T>(kFieldQuants);
  if (!out) return kParamTable[26].null_status;
  const int64_t count = read_int(pcount, wide);
  if (count < 1) return kParamTable[25].null_status;
  for (int64_t i = 0; i < count; ++i)
    if (!(orders[i] >= 0 && orders[i] <= 1)) return kParamTable[25].null_status;

  int64_t p, n;
  bool contiguous;
  if (int32_t st = check_task_data(t, &p, &n, &contiguous); st != QOR_SS_OK) return st;
  const T *x = t->ptr<const T>(kFieldX);
  const void *indices = t->ptr<const void>(kFieldIndices);

  T *own = nullptr;
  if (!work) {
    own = static_cast<T *>(qor_serv_allocate(static_cast<size_t>(n) * sizeof(T), kTaskAlignment));
    if (!own) return QOR_SS_ERROR_MEMORY;
    work = own;
  }
  for (int64_t j = 0; j < p; ++j) {
    if (!selected(indices, j, wide)) continue;
    T *res = out + j * count;
    // Where the values come from: read-only from x, or already in work (in
    // place, or gathered there from a row-major x).
    const T *data = work;
    bool in_place = true;
    if (p == 1 && work == x) {
      // the caller lets the values be reordered
    } else if (contiguous && count == 1) {
      data = x + j * n;
      in_place = false;
    } else if (contiguous) {
      // Several orders select in turn on the same permuted copy.
      std::copy(x + j * n, x + j * n + n, work);
    } else {
      for (int64_t k = 0; k < n; ++k) work[k] = x[j + k * p];
    }
    bool nan = false;
    for (int64_t i = 0; i < count && !nan; ++i) {
      const double h = static_cast<double>(n - 1) * static_cast<double>(orders[i]);
      int64_t lo = static_cast<int64_t>(std::floor(h));
      if (lo > n - 1) lo = n - 1;
      const double frac = h - static_cast<double>(lo);
      const bool need_next = frac != 0 && lo < n - 1;
      T vlo, vhi = T{};
      // After the first order the values sit in work, permuted.
      const bool first = i == 0;
      if (!select_pair(first ? data : work, work, n, lo, need_next, first ? in_place : true, &vlo,
                       &vhi)) {
        nan = true;
        break;
      }
      res[i] = need_next ? static_cast<T>(static_cast<double>(vlo) +
                                          frac * (static_cast<double>(vhi) -
                                                  static_cast<double>(vlo)))
                         : vlo;
    }
    if (nan)
      for (int64_t i = 0; i < count; ++i) res[i] = std::numeric_limits<T>::quiet_NaN();
  }
  if (own) qor_serv_deallocate(own);
  return QOR_SS_OK;
}

template <class T>
int32_t basic(const TaskRecord *t, uint64_t estimates, uint64_t method) {
  if (int32_t st = check_estimate_request(t, estimates, method); st != QOR_SS_OK) return st;
  int64_t p, n;
  bool contiguous;
  if (int32_t st = check_task_data(t, &p, &n, &contiguous); st != QOR_SS_OK) return st;
  if (estimates != kEstimateMeans ||
      (method != QOR_SS_METHOD_FAST && method != QOR_SS_METHOD_1PASS))
    return QOR_SS_ERROR_BAD_METHOD;

  const bool wide = t->wide();
  const T *x = t->ptr<const T>(kFieldX);
  const T *w = t->ptr<const T>(kFieldWeights);
  const void *indices = t->ptr<const void>(kFieldIndices);
  T *means = t->ptr<T>(kFieldMeans);
  for (int64_t j = 0; j < p; ++j) {
    if (!selected(indices, j, wide)) continue;
    double swx = 0, sw = 0;
    if (contiguous) {
      const T *col = x + j * n;
      if (w) {
        pairwise_weighted_sum(col, w, n, &swx, &sw);
      } else {
        swx = pairwise_sum(col, n);
        sw = static_cast<double>(n);
      }
    } else {
      // Row-major data: accumulate in blocks of the same size as the
      // contiguous path so the error bound is the same.
      T buf[kBlock], wbuf[kBlock];
      // The block sums are combined with Neumaier's compensated addition.
      double acc_wx = 0, acc_w = 0, c_wx = 0, c_w = 0;
      for (int64_t k0 = 0; k0 < n; k0 += kBlock) {
        const int64_t m = std::min<int64_t>(kBlock, n - k0);
        for (int64_t k = 0; k < m; ++k) buf[k] = x[j + (k0 + k) * p];
        double a, b;
        if (w) {
          for (int64_t k = 0; k < m; ++k) wbuf[k] = w[k0 + k];
          block_wsum(buf, wbuf, m, &a, &b);
        } else {
          a = block_sum(buf, m);
          b = static_cast<double>(m);
        }
        neumaier_add(acc_wx, c_wx, a);
        neumaier_add(acc_w, c_w, b);
      }
      swx = acc_wx + c_wx;
      sw = acc_w + c_w;
    }
    means[j] = static_cast<T>(swx / sw);
  }
  return QOR_SS_OK;
}

template double pairwise_sum(const double *, int64_t);
template double pairwise_sum(const float *, int64_t);
template void pairwise_weighted_sum(const double *, const double *, int64_t, double *, double *);
template void pairwise_weighted_sum(const float *, const float *, int64_t, double *, double *);
template void block_weighted_sum(const double *, const double *, int64_t, double *, double *);
template void block_weighted_sum(const float *, const float *, int64_t, double *, double *);
template bool has_nan(const double *, int64_t);
template bool has_nan(const float *, int64_t);
template double select_rank(double *, int64_t, int64_t);
template bool select_pair(const double *, double *, int64_t, int64_t, bool, bool, double *, double *);
template bool select_pair(const float *, float *, int64_t, int64_t, bool, bool, float *, float *);
template float select_rank(float *, int64_t, int64_t);
template int32_t quantiles(const TaskRecord *, uint64_t, uint64_t, double *);
template int32_t quantiles(const TaskRecord *, uint64_t, uint64_t, float *);
template int32_t basic<double>(const TaskRecord *, uint64_t, uint64_t);
template int32_t basic<float>(const TaskRecord *, uint64_t, uint64_t);

}  // namespace qor::stats
