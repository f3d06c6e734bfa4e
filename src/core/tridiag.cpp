// Tridiagonal factorisation and solve without pivoting (see qor/tridiag.h for
// the storage of the factor).  Data fitting factors one matrix per partition
// and solves it for many functions, so the factor keeps reciprocal pivots and
// the solve is two multiply-subtract sweeps.
#include "qor/tridiag.h"

#include <cmath>

namespace {

// Row number (from 1) of a failed pivot, saturated to the status's range.
int row_status(int64_t i) { return i + 1 > 0x7fffffff ? 0x7fffffff : static_cast<int>(i + 1); }

template <typename T>
int factor(int64_t n, T *dl, T *d, T *du) {
  if (n < 0) return -1;
  if (n == 0) return 0;
  if (d == nullptr) return -3;
  if (n > 1 && dl == nullptr) return -2;
  if (n > 1 && du == nullptr) return -4;
  T piv = d[0];
  if (piv == T(0) || !std::isfinite(piv)) return 1;
  T rp = T(1) / piv;
  d[0] = rp;
  for (int64_t i = 1; i < n; ++i) {
    const T l = dl[i - 1] * rp;
    dl[i - 1] = l;
    piv = d[i] - l * du[i - 1];
    if (piv == T(0) || !std::isfinite(piv)) return row_status(i);
    rp = T(1) / piv;
    d[i] = rp;
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
  // Backward: U x = y, with d holding 1 / U(i, i).
  T next = b[n - 1] * d[n - 1];
  b[n - 1] = next;
  for (int64_t i = n - 2; i >= 0; --i) {
    next = (b[i] - du[i] * next) * d[i];
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
