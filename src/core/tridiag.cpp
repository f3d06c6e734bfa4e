// Tridiagonal factorisation and solve without pivoting (see qor/tridiag.h for
// the storage of the factor).  Data fitting factors one matrix per partition
// and solves it for many functions, so the factor keeps reciprocal pivots and
// the solve is multiply-subtract sweeps.
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

// One elimination chain's pivots.  The pivots p_i = d_i - a_i / p_{i-1}
// (a_i the product of the two off-diagonal entries linking row i to the row
// eliminated before it) form a continued fraction: p_i = q_i / q_{i-1} with
// the three-term recurrence q_i = d_i q_{i-1} - a_i q_{i-2}.  Running the
// recurrence keeps the division off the loop-carried chain (a multiply and a
// subtract per row instead of a division); the reciprocal pivot
// q_{i-1} / q_i is an independent division.  The q grow or shrink
// geometrically and are renormalised by a power of two whenever |q_i| leaves
// the band above.  Anything unusual (a numerator that is zero, subnormal or
// not finite, or a renormalisation that pushes q_{i-1} out of the normal
// range) switches the chain to the direct recurrence, which alone decides
// whether a pivot is zero.
template <typename T>
struct Chain {
  T q, qm;
  bool direct;

  explicit Chain(T first) : q(first), qm(T(1)), direct(!std::isnormal(first)) {}

  // rprev = 1 / p_{i-1}.  Returns false on a zero or non-finite pivot.
  bool step(T diag, T a, T rprev, T &rp) {
    if (!direct) {
      const T qn = diag * q - a * qm;
      if (std::isnormal(qn)) {
        rp = q / qn;
        qm = q;
        q = qn;
        const T mag = std::fabs(q);
        if (mag > Band<T>::big || mag < Band<T>::small) {
          const T f = std::scalbn(T(1), -std::ilogb(q));
          q *= f;
          qm *= f;
          if (!std::isnormal(qm)) direct = true;
        }
        return true;
      }
      direct = true;
    }
    const T piv = diag - a * rprev;
    if (piv == T(0) || !std::isfinite(piv)) return false;
    rp = T(1) / piv;
    return true;
  }
};

// From this order on, the matrix is eliminated from both ends at once (a
// twisted factorisation): rows 0 .. k-1 downwards, rows n-1 .. k+1 upwards,
// row k = n/2 last.  The two chains are independent, so one loop runs both
// and the processor overlaps their latencies; the solve does the same.  The
// factor is then, for rows below k, L and the unit upper factor as in the
// plain case, and for rows above k their mirror image:
//   i > k:   d[i] = 1 / r_i (pivot of the upward elimination),
//            du[i] = A(i, i+1) / r_{i+1} (upward multiplier),
//            dl[i-1] = A(i, i-1) / r_i (unit lower factor)
//   row k:   dl[k-1] = A(k, k-1) / p_{k-1}, du[k] = A(k, k+1) / r_{k+1},
//            d[k] = 1 / (d_k - dl[k-1] A(k-1, k) - du[k] A(k+1, k)).
constexpr int64_t kTwistFrom = 32;

template <typename T>
int factor(int64_t n, T *dl, T *d, T *du) {
  if (n < 0) return -1;
  if (n == 0) return 0;
  if (d == nullptr) return -3;
  if (n > 1 && dl == nullptr) return -2;
  if (n > 1 && du == nullptr) return -4;
  if (d[0] == T(0) || !std::isfinite(d[0])) return 1;
  Chain<T> top(d[0]);
  d[0] = T(1) / d[0];
  T rp;
  if (n < kTwistFrom) {
    for (int64_t i = 1; i < n; ++i) {
      if (!top.step(d[i], dl[i - 1] * du[i - 1], d[i - 1], rp)) return row_status(i);
      dl[i - 1] *= d[i - 1];  // multiplier A(i, i-1) / p_{i-1}
      du[i - 1] *= d[i - 1];  // unit upper factor A(i-1, i) / p_{i-1}
      d[i] = rp;
    }
    return 0;
  }
  const int64_t k = n / 2;
  if (d[n - 1] == T(0) || !std::isfinite(d[n - 1])) return row_status(n - 1);
  Chain<T> bot(d[n - 1]);
  d[n - 1] = T(1) / d[n - 1];
  // Top rows 1 .. k-1, bottom rows n-2 .. k+1 (as many, or one fewer).
  for (int64_t i = 1, j = n - 2; i < k; ++i, --j) {
    if (!top.step(d[i], dl[i - 1] * du[i - 1], d[i - 1], rp)) return row_status(i);
    dl[i - 1] *= d[i - 1];
    du[i - 1] *= d[i - 1];
    d[i] = rp;
    if (j > k) {
      T rq;
      if (!bot.step(d[j], du[j] * dl[j], d[j + 1], rq)) return row_status(j);
      du[j] *= d[j + 1];
      dl[j] *= d[j + 1];
      d[j] = rq;
    }
  }
  const T l = dl[k - 1] * d[k - 1], m = du[k] * d[k + 1];
  const T piv = d[k] - l * du[k - 1] - m * dl[k];
  if (piv == T(0) || !std::isfinite(piv)) return row_status(k);
  dl[k - 1] = l;
  du[k - 1] *= d[k - 1];
  du[k] = m;
  dl[k] *= d[k + 1];
  d[k] = T(1) / piv;
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
  if (n < kTwistFrom) {
    // Forward: L y = b; backward: D U' x = y with U' unit upper (y_i / p_i
    // is off the chain).
    T prev = b[0];
    for (int64_t i = 1; i < n; ++i) {
      prev = b[i] - dl[i - 1] * prev;
      b[i] = prev;
    }
    T next = b[n - 1] * d[n - 1];
    b[n - 1] = next;
    for (int64_t i = n - 2; i >= 0; --i) {
      next = b[i] * d[i] - du[i] * next;
      b[i] = next;
    }
    return 0;
  }
  const int64_t k = n / 2;
  // Eliminate towards row k from both ends.
  T up = b[0], down = b[n - 1];
  for (int64_t i = 1, j = n - 2; i < k; ++i, --j) {
    up = b[i] - dl[i - 1] * up;
    b[i] = up;
    if (j > k) {
      down = b[j] - du[j] * down;
      b[j] = down;
    }
  }
  const T xk = (b[k] - dl[k - 1] * b[k - 1] - du[k] * b[k + 1]) * d[k];
  b[k] = xk;
  // Substitute outwards from row k.
  T left = xk, right = xk;
  for (int64_t i = k - 1, j = k + 1; i >= 0; --i, ++j) {
    left = b[i] * d[i] - du[i] * left;
    b[i] = left;
    if (j < n) {
      right = b[j] * d[j] - dl[j - 1] * right;
      b[j] = right;
    }
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
