// Cell search kernels, one template per method over the element type and the
// index width.  The exported entry points (search.cpp) instantiate them.
#pragma once

#include <smmintrin.h>

#include <cstdint>
#include <type_traits>

#include "fit/task.h"
#include "qor/fit.h"

namespace qor::fit {

enum class Width { k32, k64, k64Pack };

template <Width W>
using Idx = std::conditional_t<W == Width::k32, int32_t, int64_t>;

// ---- scaled positions ------------------------------------------------------
// trunc((t - base) * scale) with the conversion of the width form: 64-bit for
// the 64 form, 32-bit (0x80000000 when out of range, sign-extended) for the 32
// and 64Pack forms.  The vector and the scalar paths perform the same IEEE
// operations, so a site gets the same value whichever path handles it.

template <class T, Width W>
inline int64_t position1(T t, T base, T scale) {
  const T v = (t - base) * scale;
  if constexpr (std::is_same_v<T, float>) {
    if constexpr (W == Width::k64) return _mm_cvttss_si64(_mm_set_ss(v));
    else return _mm_cvttss_si32(_mm_set_ss(v));
  } else {
    if constexpr (W == Width::k64) return _mm_cvttsd_si64(_mm_set_sd(v));
    else return _mm_cvttsd_si32(_mm_set_sd(v));
  }
}

// Four sites at once: single precision in one register, double precision in
// two.
template <class T, Width W>
inline void position4(const T *t, T base, T scale, int64_t out[4]) {
  if constexpr (std::is_same_v<T, float>) {
    const __m128 v = _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(t), _mm_set1_ps(base)), _mm_set1_ps(scale));
    if constexpr (W == Width::k64) {
      alignas(16) float f[4];
      _mm_store_ps(f, v);
      for (int i = 0; i < 4; ++i) out[i] = _mm_cvttss_si64(_mm_set_ss(f[i]));
    } else {
      const __m128i g = _mm_cvttps_epi32(v);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm_cvtepi32_epi64(g));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 2), _mm_cvtepi32_epi64(_mm_srli_si128(g, 8)));
    }
  } else {
    const __m128d b = _mm_set1_pd(base), s = _mm_set1_pd(scale);
    const __m128d v0 = _mm_mul_pd(_mm_sub_pd(_mm_loadu_pd(t), b), s);
    const __m128d v1 = _mm_mul_pd(_mm_sub_pd(_mm_loadu_pd(t + 2), b), s);
    if constexpr (W == Width::k64) {
      out[0] = _mm_cvttsd_si64(v0);
      out[1] = _mm_cvttsd_si64(_mm_unpackhi_pd(v0, v0));
      out[2] = _mm_cvttsd_si64(v1);
      out[3] = _mm_cvttsd_si64(_mm_unpackhi_pd(v1, v1));
    } else {
      const __m128i g = _mm_unpacklo_epi64(_mm_cvttpd_epi32(v0), _mm_cvttpd_epi32(v1));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm_cvtepi32_epi64(g));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 2), _mm_cvtepi32_epi64(_mm_srli_si128(g, 8)));
    }
  }
}

// ---- linear scans, unrolled by two -------------------------------------------

// First k in [k, nx) with x[k] > t, or nx.  A NaN site never compares above,
// so it runs to nx.
template <class T>
inline int64_t scan_up(const T *x, int64_t k, int64_t nx, T t) {
  for (; k + 2 <= nx; k += 2) {
    if (x[k] > t) return k;
    if (x[k + 1] > t) return k + 1;
  }
  if (k < nx && x[k] > t) return k;
  return nx;
}

// Largest k in [0, k] with k == 0 or x[k-1] <= t.  A NaN site runs to 0.
template <class T>
inline int64_t scan_down(const T *x, int64_t k, T t) {
  for (; k >= 2; k -= 2) {
    if (x[k - 1] <= t) return k;
    if (x[k - 2] <= t) return k - 1;
  }
  if (k == 1 && x[0] <= t) return 1;
  return 0;
}

// ---- Uniform ----------------------------------------------------------------

// Index from a position g, in the arithmetic of the width: min(g, nx-1) + 1
// with unsigned comparisons, so that an out-of-range conversion (a huge site)
// lands on nx instead of a negative index.
template <Width W>
inline int64_t uniform_from_position(int64_t g, int64_t nx) {
  if constexpr (W == Width::k64) {
    return static_cast<uint64_t>(g) < static_cast<uint64_t>(nx - 1) ? g + 1 : nx;
  } else {
    const uint32_t g1 = static_cast<uint32_t>(static_cast<int32_t>(g)) + 1u;
    return g1 < static_cast<uint32_t>(nx) ? static_cast<int64_t>(g1) : nx;
  }
}

template <class T, Width W>
inline int64_t uniform_one(T t, T left, T right, T scale, int64_t nx) {
  if (t == right) return nx - 1;
  if (t >= left) return uniform_from_position<W>(position1<T, W>(t, left, scale), nx);
  return 0;  // below the left end, or NaN
}

// Four uniform indices as 32-bit lanes (32 and 64Pack forms).
template <class T>
inline __m128i uniform_lanes(const T *t, T left, T right, T scale, __m128i nxv, __m128i nxm1v) {
  __m128i g, ge, eq;
  if constexpr (std::is_same_v<T, float>) {
    const __m128 tv = _mm_loadu_ps(t);
    const __m128 d = _mm_mul_ps(_mm_sub_ps(tv, _mm_set1_ps(left)), _mm_set1_ps(scale));
    g = _mm_cvttps_epi32(d);
    ge = _mm_castps_si128(_mm_cmpge_ps(tv, _mm_set1_ps(left)));
    eq = _mm_castps_si128(_mm_cmpeq_ps(tv, _mm_set1_ps(right)));
  } else {
    const __m128d l = _mm_set1_pd(left), r = _mm_set1_pd(right), s = _mm_set1_pd(scale);
    const __m128d t0 = _mm_loadu_pd(t), t1 = _mm_loadu_pd(t + 2);
    g = _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_mul_pd(_mm_sub_pd(t0, l), s)),
                           _mm_cvttpd_epi32(_mm_mul_pd(_mm_sub_pd(t1, l), s)));
    // Narrow the 64-bit lane masks to 32-bit ones.
    ge = _mm_castps_si128(_mm_shuffle_ps(_mm_castpd_ps(_mm_cmpge_pd(t0, l)),
                                         _mm_castpd_ps(_mm_cmpge_pd(t1, l)), _MM_SHUFFLE(2, 0, 2, 0)));
    eq = _mm_castps_si128(_mm_shuffle_ps(_mm_castpd_ps(_mm_cmpeq_pd(t0, r)),
                                         _mm_castpd_ps(_mm_cmpeq_pd(t1, r)), _MM_SHUFFLE(2, 0, 2, 0)));
  }
  __m128i idx = _mm_min_epu32(_mm_add_epi32(g, _mm_set1_epi32(1)), nxv);
  idx = _mm_and_si128(idx, ge);
  return _mm_blendv_epi8(idx, nxm1v, eq);
}

// True when |(t - left) * scale| < 2^31 in all four lanes (false for NaN).
template <class T>
inline bool positions_fit_32(const T *t, T left, T scale) {
  if constexpr (std::is_same_v<T, float>) {
    const __m128 d = _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(t), _mm_set1_ps(left)), _mm_set1_ps(scale));
    const __m128 a = _mm_andnot_ps(_mm_set1_ps(-0.0f), d);
    return _mm_movemask_ps(_mm_cmplt_ps(a, _mm_set1_ps(2147483648.0f))) == 0xF;
  } else {
    const __m128d l = _mm_set1_pd(left), s = _mm_set1_pd(scale), lim = _mm_set1_pd(2147483648.0);
    const __m128d sign = _mm_set1_pd(-0.0);
    const __m128d a0 = _mm_andnot_pd(sign, _mm_mul_pd(_mm_sub_pd(_mm_loadu_pd(t), l), s));
    const __m128d a1 = _mm_andnot_pd(sign, _mm_mul_pd(_mm_sub_pd(_mm_loadu_pd(t + 2), l), s));
    return (_mm_movemask_pd(_mm_cmplt_pd(a0, lim)) & _mm_movemask_pd(_mm_cmplt_pd(a1, lim))) == 3;
  }
}

template <class T, Width W>
void uniform_search(int64_t nx, const T *x, int64_t n, const T *site, T scale, Idx<W> *cell) {
  const T left = x[0], right = x[1];
  int64_t i = 0;
  if constexpr (W == Width::k64) {
    // While every scaled position of a group of four fits in 32 bits (always,
    // for sites inside a partition of fewer than 2^31 cells), the packed
    // 32-bit conversion gives exactly the 64-bit one, so the lanes serve the
    // 64 form too; other groups take the 64-bit conversion lane by lane.
    if (nx < INT32_MAX) {
      const __m128i nxv = _mm_set1_epi32(static_cast<int32_t>(nx));
      const __m128i nxm1v = _mm_set1_epi32(static_cast<int32_t>(nx - 1));
      for (; i + 4 <= n; i += 4) {
        if (!positions_fit_32<T>(site + i, left, scale)) {
          int64_t g[4];
          position4<T, W>(site + i, left, scale, g);
          for (int l = 0; l < 4; ++l) {
            const T t = site[i + l];
            cell[i + l] = t == right ? nx - 1 : t >= left ? uniform_from_position<W>(g[l], nx) : 0;
          }
          continue;
        }
        const __m128i idx = uniform_lanes<T>(site + i, left, right, scale, nxv, nxm1v);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(cell + i), _mm_cvtepi32_epi64(idx));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(cell + i + 2),
                         _mm_cvtepi32_epi64(_mm_srli_si128(idx, 8)));
      }
    }
    for (; i + 4 <= n; i += 4) {
      int64_t g[4];
      position4<T, W>(site + i, left, scale, g);
      for (int l = 0; l < 4; ++l) {
        const T t = site[i + l];
        cell[i + l] = t == right ? nx - 1 : t >= left ? uniform_from_position<W>(g[l], nx) : 0;
      }
    }
  } else {
    const __m128i nxv = _mm_set1_epi32(static_cast<int32_t>(nx));
    const __m128i nxm1v = _mm_set1_epi32(static_cast<int32_t>(nx - 1));
    for (; i + 4 <= n; i += 4) {
      const __m128i idx = uniform_lanes<T>(site + i, left, right, scale, nxv, nxm1v);
      if constexpr (W == Width::k32) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(cell + i), idx);
      } else {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(cell + i), _mm_cvtepi32_epi64(idx));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(cell + i + 2),
                         _mm_cvtepi32_epi64(_mm_srli_si128(idx, 8)));
      }
    }
  }
  for (; i < n; ++i) cell[i] = static_cast<Idx<W>>(uniform_one<T, W>(site[i], left, right, scale, nx));
}

// ---- QuasiUniform -------------------------------------------------------------

// Number of breakpoints p[0..7] that are <= t: the compares of one
// contiguous block of eight, as bit masks.
template <class T>
inline int count8(const T *p, T t) {
  if constexpr (std::is_same_v<T, float>) {
    const __m128 tv = _mm_set1_ps(t);
    const int m = _mm_movemask_ps(_mm_cmple_ps(_mm_loadu_ps(p), tv)) |
                  (_mm_movemask_ps(_mm_cmple_ps(_mm_loadu_ps(p + 4), tv)) << 4);
    return __builtin_popcount(static_cast<unsigned>(m));
  } else {
    const __m128d tv = _mm_set1_pd(t);
    const int m = _mm_movemask_pd(_mm_cmple_pd(_mm_loadu_pd(p), tv)) |
                  (_mm_movemask_pd(_mm_cmple_pd(_mm_loadu_pd(p + 2), tv)) << 2) |
                  (_mm_movemask_pd(_mm_cmple_pd(_mm_loadu_pd(p + 4), tv)) << 4) |
                  (_mm_movemask_pd(_mm_cmple_pd(_mm_loadu_pd(p + 6), tv)) << 6);
    return __builtin_popcount(static_cast<unsigned>(m));
  }
}

// First k with x[k] > t on an ascending partition, from a guess k in [1, nx]:
// what stepping down while x[k-1] > t and then up while x[k] <= t gives.
// A good guess (a quasi-uniform partition) lands in the window of eight
// breakpoints around it, which one count settles without a branch on the
// data; otherwise the scans step eight breakpoints at a time (a block is
// passed when its far end is still on the wrong side of t) and finish one
// by one.
template <class T>
inline int64_t settle_near(const T *x, int64_t nx, T t, int64_t k) {
  if (nx >= 8) {
    int64_t w = k - 4;
    w = w < 0 ? 0 : w > nx - 8 ? nx - 8 : w;
    const int c = count8(x + w, t);
    // The window holds the answer when its first breakpoint is <= t (or it
    // starts the partition) and its last is above t (or it ends it).
    if ((c > 0 || w == 0) && (c < 8 || w + 8 == nx)) return w + c;
  }
  if (x[k - 1] > t) {
    while (k >= 8 && x[k - 8] > t) k -= 8;
    k = scan_down(x, k, t);
  } else {
    while (k + 8 <= nx && x[k + 7] <= t) k += 8;
  }
  return scan_up(x, k, nx, t);
}

// Settles one site from its raw position g (guess g + 1) by linear steps.
template <class T, Width W>
inline int64_t quasi_settle(const T *x, int64_t nx, T t, int64_t g) {
  if (!(t >= x[0])) return 0;  // below the left end, or NaN
  if (t == x[nx - 1]) return nx - 1;
  int64_t k;
  if constexpr (W == Width::k64) {
    const uint64_t g1 = static_cast<uint64_t>(g) + 1u;
    k = g1 > static_cast<uint64_t>(nx) ? nx : static_cast<int64_t>(g1);
  } else {
    const uint32_t g1 = static_cast<uint32_t>(static_cast<int32_t>(g)) + 1u;
    k = g1 > static_cast<uint64_t>(nx) ? nx : static_cast<int64_t>(g1);
  }
  if (k < 1) k = 1;  // cannot happen for t >= x[0]; keeps x[k-1] inside x
  return settle_near(x, nx, t, k);
}

template <class T, Width W>
void quasi_uniform_search(int64_t nx, const T *x, int64_t n, const T *site, T scale, Idx<W> *cell) {
  constexpr int kBlock = 32;
  const T x0 = x[0];
  int64_t i = 0;
  for (; i + kBlock <= n; i += kBlock) {
    int64_t g[kBlock];
    for (int b = 0; b < kBlock; b += 4) position4<T, W>(site + i + b, x0, scale, g + b);
    // The block's windows are requested before the first is settled, so that
    // on a partition larger than the cache their misses overlap.
    for (int b = 0; b < kBlock; ++b) {
      // Window start; out of range (wrapped) it falls back to x[0].
      const uint64_t w = static_cast<uint64_t>(g[b]) - 3u;
      const uint64_t at = w < static_cast<uint64_t>(nx) ? w : 0;
      _mm_prefetch(reinterpret_cast<const char *>(x + at), _MM_HINT_T0);
    }
    for (int b = 0; b < kBlock; ++b)
      cell[i + b] = static_cast<Idx<W>>(quasi_settle<T, W>(x, nx, site[i + b], g[b]));
  }
  for (; i < n; ++i)
    cell[i] = static_cast<Idx<W>>(quasi_settle<T, W>(x, nx, site[i], position1<T, W>(site[i], x0, scale)));
}

// ---- Sorted -----------------------------------------------------------------

// kNanLow: the general entry point maps NaN sites to 0 like every other
// method; the Sorted entry points keep the method's own rule (nx).
template <class T, Width W, bool kNanLow = false>
void sorted_search(int64_t nx, const T *x, int64_t n, const T *site, Idx<W> *carried,
                   Idx<W> *cell) {
  int64_t j = carried ? static_cast<int64_t>(*carried) : 0;
  if (j < 0) j = 0;  // a carried index outside [0, nx] would read outside x
  if (j > nx) j = nx;
  const T last = x[nx - 1];
  const int64_t half = nx / 2;
  for (int64_t i = 0; i < n; ++i) {
    const T t = site[i];
    if (t == last) {
      cell[i] = static_cast<Idx<W>>(nx - 1);
      continue;
    }
    if constexpr (kNanLow) {
      if (t != t) {
        cell[i] = 0;
        continue;
      }
    }
    if (i == 0 && j < nx - half) {
      int64_t hi = nx;
      while (hi - half > j) {
        const int64_t mid = (j + hi) / 2;
        if (x[mid] > t) hi = mid;
        else j = mid;
      }
    }
    j = scan_up(x, j, nx, t);
    cell[i] = static_cast<Idx<W>>(j);
  }
  if (carried) *carried = static_cast<Idx<W>>(j);
}

// ---- Peak -------------------------------------------------------------------

template <class T>
inline int64_t peak_index(T p) {
  int32_t v;
  if constexpr (std::is_same_v<T, float>) v = _mm_cvttss_si32(_mm_set_ss(p));
  else v = _mm_cvttsd_si32(_mm_set_sd(p));
  return v < 0 ? 0 : v;  // a negative (or NaN) peak would index before x[0]
}

template <class T, Width W>
void peak_search(int64_t nx, const T *x, int64_t n, const T *site, T peak, Idx<W> *cell) {
  const int64_t p = peak_index(peak);
  const T last = x[nx - 1];
  for (int64_t i = 0; i < n; ++i) {
    const T t = site[i];
    int64_t r;
    if (t == last) r = nx - 1;
    else if (p < nx) {
      if (t >= x[p]) r = scan_up(x, p + 1, nx, t);
      else if (p == 0) r = 0;
      else if (x[p - 1] <= t) r = p;
      else r = scan_down(x, p - 1, t);
    } else {
      r = t > last ? nx : scan_down(x, nx - 1, t);
    }
    cell[i] = static_cast<Idx<W>>(r);
  }
}

// ---- Hybrid -----------------------------------------------------------------

// Bracket width above which the hybrid method bisects before scanning.
inline constexpr int64_t kHybridScanWidth = 40;

// The final scan of the hybrid method over a bracket of at most 40
// breakpoints: first k >= lo with x[k] > t.  On an ascending partition that
// k is lo plus the number of x[k] <= t among the 41 breakpoints from lo, and
// the count is taken in two steps without a data-dependent branch (the exit
// of a plain scan mispredicts about once a site): the breakpoints
// x[lo + 8], x[lo + 16], x[lo + 24] and x[lo + 32] tell which block of eight
// holds the first one above t, and that block alone is counted.  Six
// compares instead of forty-one, and the cache lines of the other blocks are
// never needed.  When all 41 are <= t (a table cell that does not bracket
// the site), or near the right end, the plain scan carries on and gives the
// same index.
template <class T>
inline int64_t bracket_scan(const T *x, int64_t lo, int64_t nx, T t) {
  constexpr int64_t kWindow = kHybridScanWidth + 1;
  if (lo + kWindow > nx) return scan_up(x, lo, nx, t);
  const int64_t block = static_cast<int64_t>(x[lo + 8] <= t) + (x[lo + 16] <= t) +
                        (x[lo + 24] <= t) + (x[lo + 32] <= t);
  const int64_t k = lo + 8 * block + count8(x + lo + 8 * block, t);
  if (k == lo + 40 && x[lo + 40] <= t) return scan_up(x, lo + kWindow, nx, t);
  return k;
}

// One bisection step of a bracket wider than 40, and none otherwise: hi
// takes mid when x[mid] > t, else lo does.  Written with masks: the
// comparison is unpredictable, and the compiler turns the equivalent
// conditional expressions into branches that mispredict every other step.
inline void bisect_step(int64_t &lo, int64_t &hi, int64_t mid, bool above) {
  const int64_t wide = -static_cast<int64_t>(lo < hi - kHybridScanWidth);
  const int64_t a = -static_cast<int64_t>(above);
  hi ^= (hi ^ mid) & (a & wide);
  lo ^= (lo ^ mid) & (~a & wide);
}

// The table pair of a site's scaled position q (in the arithmetic of the
// width), clamped into the partition: positions of sites inside the
// partition are in [0, M], and the clamps keep a mismatched scale or table
// from reading outside either array.
template <Width W>
inline void table_bracket(const int64_t *tab, int64_t m, int64_t nx, int64_t q, int64_t &lo,
                          int64_t &hi) {
  if constexpr (W != Width::k64) q = static_cast<int32_t>(q);
  if (static_cast<uint64_t>(q) > static_cast<uint64_t>(m)) q = m;
  const int64_t lo0 = tab[2 * q], hi0 = tab[2 * q + 1];
  lo = lo0 < 0 ? 0 : lo0 > nx - 1 ? nx - 1 : lo0;
  hi = hi0 < 0 ? 0 : hi0 > nx - 1 ? nx - 1 : hi0;
}

// The hybrid method's end tests, for a site outside (x[0], x[nx-1]) or NaN:
// below the left end or NaN 0, above the right end nx, on it nx - 1.
template <class T>
inline int64_t end_cell(T t, T x0, T last, int64_t nx) {
  return !(t >= x0) ? 0 : t > last ? nx : nx - 1;
}

template <class T, Width W>
inline int64_t hybrid_settle(const T *x, int64_t nx, const int64_t *tab, int64_t m, T t,
                             int64_t q) {
  const T last = x[nx - 1];
  if (!(t >= x[0]) || t >= last) return end_cell(t, x[0], last, nx);
  int64_t lo, hi;
  table_bracket<W>(tab, m, nx, q, lo, hi);
  while (lo < hi - kHybridScanWidth) {
    const int64_t mid = (lo + hi) >> 1;
    bisect_step(lo, hi, mid, x[mid] > t);
  }
  return bracket_scan(x, lo, nx, t);
}

// Sites go in groups of 16 whose bisections advance in lockstep, and six
// groups are in flight at once, visited in turn: a group issues the loads of
// its next step (x[mid] for its 16 sites, by prefetch) and then waits while
// the five other groups take a step each, so that about a hundred cache
// misses overlap instead of one site waiting behind the other.  A group
// whose sites have all come down to 40 breakpoints or fewer is finished with
// the scan, its results are written, and it takes the next 16 sites.  Sites
// settled by the end tests (below x[0], NaN, at or above x[nx-1]) bisect an
// empty bracket and skip the scan, so every site follows exactly the
// one-site rule of hybrid_settle.  On 10^6 random sites over 10^6
// breakpoints this and the masked step took the search from 47.7 to 17.5 ns
// per site (lockstep groups of 32 stepped one after the other, with
// branches).
template <class T, Width W>
void hybrid_search(int64_t nx, const T *x, int64_t n, const T *site, T scale, const int64_t *tab,
                   int64_t m, Idx<W> *cell) {
  constexpr int kGroup = 16, kInFlight = 6;
  struct Group {
    int64_t lo[kGroup], hi[kGroup], mid[kGroup];
    int64_t first;   // index of the group's first site
    unsigned edge;   // sites settled by the end tests
    bool live;
  };
  const T x0 = x[0], last = x[nx - 1];
  const int64_t whole = n - n % kGroup;
  int64_t next = 0;

  auto start = [&](Group &g) {
    if (next >= whole) {
      g.live = false;
      return;
    }
    g.first = next;
    next += kGroup;
    g.live = true;
    const T *s = site + g.first;
    int64_t q[kGroup];
    for (int b = 0; b < kGroup; b += 4) position4<T, W>(s + b, x0, scale, q + b);
    unsigned edge = 0;
    for (int b = 0; b < kGroup; ++b) {
      int64_t lo, hi;
      table_bracket<W>(tab, m, nx, q[b], lo, hi);
      const bool end = !(s[b] >= x0) || s[b] >= last;
      edge |= static_cast<unsigned>(end) << b;
      g.lo[b] = lo;
      g.hi[b] = end ? lo : hi;  // nothing to bisect
      g.mid[b] = (lo + g.hi[b]) >> 1;
      _mm_prefetch(reinterpret_cast<const char *>(x + g.mid[b]), _MM_HINT_T0);
    }
    g.edge = edge;
  };

  Group group[kInFlight];
  int live = 0;
  for (Group &g : group) {
    start(g);
    live += g.live;
  }
  while (live > 0) {
    for (Group &g : group) {
      if (!g.live) continue;
      const T *s = site + g.first;
      bool wide = false;
      for (int b = 0; b < kGroup; ++b) {
        wide |= g.lo[b] < g.hi[b] - kHybridScanWidth;
        bisect_step(g.lo[b], g.hi[b], g.mid[b], x[g.mid[b]] > s[b]);
        // The next probe; once the bracket is narrow, the middle of the
        // scan's window.
        g.mid[b] = (g.lo[b] + g.hi[b]) >> 1;
        _mm_prefetch(reinterpret_cast<const char *>(x + g.mid[b]), _MM_HINT_T0);
      }
      if (wide) continue;
      Idx<W> *out = cell + g.first;
      for (int b = 0; b < kGroup; ++b) {
        const T t = s[b];
        // A site outside the partition must not scan: its clamped bracket
        // would send the scan through a whole table cell.
        out[b] = static_cast<Idx<W>>(__builtin_expect(g.edge >> b & 1, 0)
                                         ? end_cell(t, x0, last, nx)
                                         : bracket_scan(x, g.lo[b], nx, t));
      }
      start(g);
      live -= !g.live;
    }
  }
  for (int64_t i = whole; i < n; ++i)
    cell[i] = static_cast<Idx<W>>(
        hybrid_settle<T, W>(x, nx, tab, m, site[i], position1<T, W>(site[i], x0, scale)));
}

// ---- user-defined -------------------------------------------------------------

template <class T>
using SearchFn = std::conditional_t<std::is_same_v<T, float>, qor_df_ssearch_fn, qor_df_dsearch_fn>;

// Settles one unflagged site from the function's guess g.
template <class T>
inline int64_t user_settle(const T *x, int64_t nx, T t, int64_t g) {
  if (g < 0) g = 0;
  if (t == x[nx - 1]) return nx - 1;
  if (g >= nx) return scan_down(x, nx, t);
  // Equality opens the next cell, so it takes the upward path.
  if (t >= x[g]) return scan_up(x, g + 1, nx, t);
  return scan_down(x, g, t);
}

template <class T, Width W>
int32_t user_search(int64_t nx, const T *x, int64_t n, const T *site, T scale, Idx<W> *cell,
                    int64_t *guess, SearchFn<T> fn, void *u1, void *u2, int32_t *flags,
                    bool uniform_settle) {
  if (!fn) return QOR_DF_ERROR_BAD_ARGUMENT;
  int64_t *buf = guess;
  if (!buf) {
    if constexpr (W == Width::k32) return QOR_DF_ERROR_MEM_FAILURE;
    else buf = cell;
  }
  int64_t count = n;
  const int32_t r = fn(&count, site, buf, flags, u1, u2);
  if (r < 0) return r;
  if (r != 1000) {
    for (int64_t i = 0; i < n; ++i) {
      if (flags && flags[i]) continue;
      buf[i] = uniform_settle ? uniform_one<T, W>(site[i], x[0], x[1], scale, nx)
                              : user_settle(x, nx, site[i], buf[i]);
    }
  }
  if (static_cast<void *>(buf) != static_cast<void *>(cell))
    for (int64_t i = 0; i < n; ++i) cell[i] = static_cast<Idx<W>>(buf[i]);
  return (uniform_settle && r == 1000) ? 0 : r;
}

}  // namespace qor::fit
