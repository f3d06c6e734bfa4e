// Tridiagonal factorisation and solve without pivoting (see qor/tridiag.h for
// the storage of the factor).  Data fitting factors one matrix per partition
// and solves it for many functions, so the factor keeps reciprocal pivots and
// the solve is two multiply-subtract sweeps.
#include "qor/tridiag.h"

#include <cmath>

namespace {

// Row number (from 1) of a failed pivot, saturated to the status's range.
int row_status(int64_t i) { return i + 1 > 0x7fffffff ? 0x7fffffff : static_cast<int>(i + 1); }

// Band outside which the pivot numerators are renormalised (by a power of
// two, which is exact).
template <typename T>
struct Band;
template <>
struct Band<double> {
  static constexpr double big = 0x1p+64, small = 0x1p-64;
};
template <>
struct Band<float> {
  static constexpr float big = 0x1p+16f, small = 0x1p-16f;
};

// The pivots p_i = d_i - dl_{i-1} du_{i-1} / p_{i-1} form a continued
// fraction: p_i = q_i / q_{i-1} with the three-term recurrence
//   q_i = d_i q_{i-1} - dl_{i-1} du_{i-1} q_{i-2},  q_{-1} = 1, q_0 = d_0.
// Running the recurrence keeps the division off the loop-carried chain (a
// multiply and a subtract per row instead of a division), and the reciprocal
// pivot q_{i-1} / q_i is an independent division.  The q grow or shrink
// geometrically, so both are renormalised by a power of two whenever |q_i|
// leaves the band above.  Anything unusual (a numerator that is zero,
// subnormal or not finite, or a renormalisation that pushes q_{i-1} out of
// the normal range) hands the rest of the rows to the direct recurrence,
// which alone decides whether a pivot is zero.
template <typename T>
int factor(int64_t n, T *dl, T *d, T *du) {
  if (n < 0) return -1;
  if (n == 0) return 0;
  if (d == nullptr) return -3;
  if (n > 1 && dl == nullptr) return -2;
  if (n > 1 && du == nullptr) return -4;
  T qm = T(1), q = d[0];
  if (q == T(0) || !std::isfinite(q)) return 1;
  d[0] = T(1) / q;
  if (!std::isnormal(q)) q = T(0);  // a subnormal d[0]: direct recurrence
  int64_t i = 1;
  for (; i < n && q != T(0); ++i) {
    const T qn = d[i] * q - (dl[i - 1] * du[i - 1]) * qm;
    if (!std::isnormal(qn)) break;
    dl[i - 1] *= d[i - 1];  // multiplier dl_{i-1} / p_{i-1}
    du[i - 1] *= d[i - 1];  // unit upper factor U(i-1, i) / U(i-1, i-1)
    d[i] = q / qn;
    qm = q;
    q = qn;
    const T mag = std::fabs(q);
    if (mag > Band<T>::big || mag < Band<T>::small) {
      const T f = std::scalbn(T(1), -std::ilogb(q));
      q *= f;
      qm *= f;
      if (!std::isnormal(qm)) {
        ++i;
        break;
      }
    }
  }
  // Direct recurrence for whatever the scaled one could not take.
  for (; i < n; ++i) {
    const T l = dl[i - 1] * d[i - 1];
    dl[i - 1] = l;
    const T piv = d[i] - l * du[i - 1];
    du[i - 1] *= d[i - 1];
    if (piv == T(0) || !std::isfinite(piv)) return row_status(i);
    d[i] = T(1) / piv;
  }
  return 0;
}

template <typename T>
int solve(int64_t n, const T *dl, const T *d, const T *du, T *b) {
  if (n < 0) return -1;
  if (n == 0) return 0;
  if (d == nullptr) return -3;
  if (b == nullptr) return -5;
  if (n > 1 && dl == nullptr) return -2;
  if (n > 1 && du == nullptr) return -4;
  // Forward: L y = b.
  T prev = b[0];
  for (int64_t i = 1; i < n; ++i) {
    prev = b[i] - dl[i - 1] * prev;
    b[i] = prev;
  }
  // Backward: D U' x = y with U' unit upper; y_i / p_i is off the chain.
  T next = b[n - 1] * d[n - 1];
  b[n - 1] = next;
  for (int64_t i = n - 2; i >= 0; --i) {
    next = b[i] * d[i] - du[i] * next;
    b[i] = next;
  }
  return 0;
}

template <typename T>
int factor_solve(int64_t n, T *dl, T *d, T *du, T *b) {
  if (n > 0 && b == nullptr) return -5;
  const int st = factor(n, dl, d, du);
  if (st != 0) return st;
  return solve<T>(n, dl, d, du, b);
}

}  // namespace

extern "C" {

int sdttrfb_4dfl(int64_t n, float *dl, float *d, float *du) { return factor(n, dl, d, du); }
int ddttrfb_4dfl(int64_t n, double *dl, double *d, double *du) { return factor(n, dl, d, du); }

int sdttrsb_4dfl(int64_t n, const float *dl, const float *d, const float *du, float *b) {
  return solve(n, dl, d, du, b);
}
int ddttrsb_4dfl(int64_t n, const double *dl, const double *d, const double *du, double *b) {
  return solve(n, dl, d, du, b);
}

int sdtsvb_4dfl(int64_t n, float *dl, float *d, float *du, float *b) {
  return factor_solve(n, dl, d, du, b);
}
int ddtsvb_4dfl(int64_t n, double *dl, double *d, double *du, double *b) {
  return factor_solve(n, dl, d, du, b);
}

}  // extern "C"
