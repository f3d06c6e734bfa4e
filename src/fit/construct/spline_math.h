// The mathematics of spline construction over plain arrays: the partition's
// cell widths, the slope system of the C2 cubic splines, the local slope rules
// (Akima, Bessel, Hyman, Hermite), the end conditions of every boundary kind,
// and the coefficient writers.  The entry points (construct.cpp) only check
// the task, pick a kernel and run these per function.
//
// Notation: n = nx - 1 cells, cell i from x[i] to x[i+1] of width h_i,
// divided difference d_i = (y_{i+1} - y_i) / h_i, slope s_i at x[i].
//
// Cubic coefficients of cell i, in u = t - x[i]:  [y_i, s_i, c2_i, c3_i]
//   c2_i = (3 d_i - 2 s_i - s_{i+1}) / h_i,  c3_i = (s_i + s_{i+1} - 2 d_i) / h_i^2
// Quadratic: [y_i, s_i, c2_i];  linear: [y_i, d_i].
//
// Boundary kinds (boundary condition type -> kind), values bc[0] (left end)
// and bc[1] (right end) where an array is read:
//   0  type 1   not-a-knot: third derivative continuous at x[1] and x[nx-2]
//   1  type 2   free end (natural): second derivative 0 at both ends; the
//               default cubic reads it as parabolic run-out (third
//               derivative 0 in both end cells)
//   2  type 12  first derivative at both ends: bc[0], bc[1]
//   3  type 36  first derivative bc[0] at the left end, second derivative
//               bc[1] at the right end
//   4  type 24  second derivative bc[0] at the left end, first derivative
//               bc[1] at the right end
//   5  type 48  second derivative at both ends: bc[0], bc[1]
//   6  type 64  periodic: s_{nx-1} = s_0 (the array, when required, is not
//               read by these kernels); the data should satisfy
//               y_{nx-1} = y_0, which is the caller's business
//   7  type 0   Akima only: the end slopes from Akima's rule on divided
//               differences extrapolated linearly past both ends
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "qor/core.h"
#include "qor/tridiag.h"

namespace qor::fit {

inline constexpr int kFitAlign = 128;
inline constexpr int32_t kStatusTridiagFailed = -1500;
inline constexpr int32_t kStatusMemory = -1001;

enum BoundaryKind : int {
  kNotAKnot = 0,
  kFreeEnd = 1,
  kFirstBoth = 2,
  kFirstLeftSecondRight = 3,
  kSecondLeftFirstRight = 4,
  kSecondBoth = 5,
  kPeriodic = 6,
  kAkimaEnds = 7,
};

// Boundary condition type -> kind; -1 for a type no kernel takes.
inline int boundary_kind(int64_t bc_type) {
  switch (bc_type) {
    case 1: return kNotAKnot;
    case 2: return kFreeEnd;
    case 12: return kFirstBoth;
    case 36: return kFirstLeftSecondRight;
    case 24: return kSecondLeftFirstRight;
    case 48: return kSecondBoth;
    case 64: return kPeriodic;
    case 0: return kAkimaEnds;
    default: return -1;
  }
}

inline bool kind_reads_bc(int kind) { return kind >= kFirstBoth && kind <= kSecondBoth; }

// Scratch from the core allocator, released on scope exit.
template <typename T>
class Scratch {
 public:
  Scratch() = default;
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  ~Scratch() {
    if (p_) qor_serv_deallocate(p_);
  }
  bool allocate(int64_t count) {
    if (count <= 0) count = 1;
    p_ = static_cast<T *>(qor_serv_allocate(static_cast<size_t>(count) * sizeof(T), kFitAlign));
    return p_ != nullptr;
  }
  T *get() const { return p_; }

 private:
  T *p_ = nullptr;
};

// Cell widths and their reciprocals, computed once per call and shared by all
// functions.  Widths are recomputed from x where needed (as cheap as reading
// them back from an array), reciprocals are stored.  A uniform partition
// reads only x[0] and x[nx-1] and keeps scalars.
template <typename T>
struct Geometry {
  int64_t nx = 0;
  bool uniform = false;
  T uh = 0, urh = 0, urh2 = 0;  // uniform: width, 1/width, 1/width^2
  const T *xp = nullptr, *rhp = nullptr;
  Scratch<T> store;

  T h(int64_t i) const { return uniform ? uh : xp[i + 1] - xp[i]; }
  T rh(int64_t i) const { return uniform ? urh : rhp[i]; }
  // 1/h^2 is one multiply from 1/h; keeping it in an array would cost more
  // memory traffic than the multiply.
  T rh2(int64_t i) const { return uniform ? urh2 : rhp[i] * rhp[i]; }
  // Weight of the slope system's rows: the cell width, or 1 on a uniform
  // partition (every row there is divided by the common width).
  T w(int64_t i) const { return uniform ? T(1) : xp[i + 1] - xp[i]; }

  // Returns 0 or -1001.
  int32_t init(int64_t n_x, const T *x, bool is_uniform) {
    nx = n_x;
    uniform = is_uniform;
    const int64_t n = nx - 1;
    if (uniform) {
      uh = (x[nx - 1] - x[0]) / T(n);
      urh = T(1) / uh;
      urh2 = urh * urh;
      return 0;
    }
    if (!store.allocate(n)) return kStatusMemory;
    T *rh_ = store.get();
    for (int64_t i = 0; i < n; ++i) rh_[i] = T(1) / (x[i + 1] - x[i]);
    xp = x;
    rhp = rh_;
    return 0;
  }
};

// Function values with a stride: 1 for functions stored one after another or
// apart, ny for the single interleaved array (value i of function j at
// y[i*ny + j]).
template <typename T>
struct Values {
  const T *y;
  int64_t stride;
  T operator[](int64_t i) const { return y[i * stride]; }
};

template <typename T>
inline T divided_difference(const Geometry<T> &g, const Values<T> &y, int64_t i) {
  return (y[i + 1] - y[i]) * g.rh(i);
}

// ---------------------------------------------------------------------------
// Coefficient writers.

template <typename T, bool Uniform>
void write_cubic_loop(const Geometry<T> &g, const Values<T> &y, const T *s, T *c) {
  const int64_t n = g.nx - 1;
  T yi = y[0], si = s[0];
  for (int64_t i = 0; i < n; ++i) {
    const T yn = y[i + 1], sn = s[i + 1];
    const T r = Uniform ? g.urh : g.rhp[i];
    const T d = (yn - yi) * r;
    c[4 * i + 0] = yi;
    c[4 * i + 1] = si;
    c[4 * i + 2] = (T(3) * d - T(2) * si - sn) * r;
    c[4 * i + 3] = (si + sn - T(2) * d) * (r * r);
    yi = yn;
    si = sn;
  }
}

template <typename T>
void write_cubic(const Geometry<T> &g, const Values<T> &y, const T *s, T *c) {
  if (g.uniform) {
    write_cubic_loop<T, true>(g, y, s, c);
  } else {
    write_cubic_loop<T, false>(g, y, s, c);
  }
}

template <typename T>
void write_linear(const Geometry<T> &g, const Values<T> &y, T *c) {
  const int64_t n = g.nx - 1;
  for (int64_t i = 0; i < n; ++i) {
    c[2 * i] = y[i];
    c[2 * i + 1] = divided_difference(g, y, i);
  }
}

// C1 quadratic through the data with the slope s0 given at the left end:
// each cell's parabola takes the slope left by the previous one,
// s_{i+1} = 2 d_i - s_i, and c2_i = (d_i - s_i) / h_i.
template <typename T>
void write_quadratic_from_left_slope(const Geometry<T> &g, const Values<T> &y, T s0, T *c) {
  const int64_t n = g.nx - 1;
  T s = s0;
  for (int64_t i = 0; i < n; ++i) {
    const T d = divided_difference(g, y, i);
    c[3 * i] = y[i];
    c[3 * i + 1] = s;
    c[3 * i + 2] = (d - s) * g.rh(i);
    s = T(2) * d - s;
  }
}

// ---------------------------------------------------------------------------
// C2 cubic splines (natural and default): the slope system.
//
// Interior row i (1 <= i <= n-1) is continuity of the second derivative at
// x[i]:
//   w_i s_{i-1} + 2 (w_{i-1} + w_i) s_i + w_{i-1} s_{i+1} = 3 (w_i d_{i-1} + w_{i-1} d_i)
// with w the cell widths (1 on a uniform partition, the row scaled by 1/h).
// The end rows per boundary kind:
//   not-a-knot (c3_0 = c3_1), eliminated against row 1 to stay tridiagonal:
//     w_1 s_0 + (w_0 + w_1) s_1 = (w_1 (3 w_0 + 2 w_1) d_0 + w_0^2 d_1) / (w_0 + w_1)
//     and its mirror image at the right end; with nx = 3 both conditions
//     coincide and the parabola through the three points is taken instead
//     (rows of the parabolic run-out);
//   free end:           2 s_0 + s_1 = 3 d_0,          s_{n-1} + 2 s_n = 3 d_{n-1}
//   parabolic run-out:  s_0 + s_1 = 2 d_0,            s_{n-1} + s_n = 2 d_{n-1}
//   first derivative:   s_0 = bc[0],  s_n = bc[1]
//   second derivative v: 2 s_0 + s_1 = 3 d_0 - v h_0 / 2,
//                        s_{n-1} + 2 s_n = 3 d_{n-1} + v h_{n-1} / 2
// Periodic: unknowns s_0 .. s_{n-1} (s_n = s_0); row 0 is the interior row
// with x[-1] read as x[n-1], row n-1 reaches s_0 through its super-diagonal.
// The two corner entries alpha = w_0 (row 0, column n-1) and beta = w_{n-2}
// (row n-1, column 0) are the rank-one term u v^T with u = (alpha, 0.., beta)
// and v = (1, 0.., 1); T = A - u v^T is tridiagonal with its first and last
// diagonal entries reduced by alpha and beta.  With z = T^-1 u (shared by all
// functions) and T y = r per function, the slopes are
//   s = y - (y_0 + y_{n-1}) q z,   q = 1 / (1 + z_0 + z_{n-1})
// (Sherman and Morrison).  Every matrix here is diagonally dominant or, for
// the not-a-knot and run-out rows, eliminates with positive pivots, so the
// factorisation without pivoting is safe; a failure still comes back as -1500.

enum class CubicFlavour { kNatural, kDefault };

template <typename T>
class CubicSystem {
 public:
  // Builds and factors the matrix for the partition and boundary kind (0-6).
  // Returns 0, -1001 or -1500.
  int32_t prepare(const Geometry<T> &g, int kind, CubicFlavour flavour) {
    g_ = &g;
    kind_ = kind;
    const int64_t nx = g.nx, n = nx - 1;
    // nx = 3 not-a-knot and the default cubic's type 2 share the run-out rows.
    runout_ = (kind == kFreeEnd && flavour == CubicFlavour::kDefault) || (kind == kNotAKnot && nx == 3);
    m_ = kind == kPeriodic ? n : nx;  // number of unknowns
    if (!mat_.allocate(3 * m_ + (kind == kPeriodic ? m_ : 0))) return kStatusMemory;
    T *dl = mat_.get(), *d = dl + m_, *du = d + m_;
    if (m_ > 1) {
      dl[m_ - 1] = 0;
      du[m_ - 1] = 0;
    }
    const int64_t rows_end = m_ - (kind == kPeriodic ? 0 : 1);
    if (g.uniform) {
      for (int64_t i = 1; i < rows_end; ++i) dl[i - 1] = 1, d[i] = 4, du[i] = 1;
    } else {
      const T *x = g.xp;
      T wprev = x[1] - x[0];
      for (int64_t i = 1; i < rows_end; ++i) {
        const T wcur = x[i + 1] - x[i];
        dl[i - 1] = wcur;
        d[i] = T(2) * (wprev + wcur);
        du[i] = wprev;
        wprev = wcur;
      }
    }
    if (kind == kPeriodic) {
      if (n == 1) {
        d[0] = 1;  // one cell: s_0 = s_1 = d_0
      } else if (n == 2) {
        const T sum = g.w(0) + g.w(1);
        d[0] = T(2) * sum;
        du[0] = sum;
        dl[0] = sum;
        d[1] = T(2) * sum;
      } else {
        const T alpha = g.w(0), beta = g.w(n - 2);
        d[0] = T(2) * (g.w(n - 1) + g.w(0)) - alpha;
        du[0] = g.w(n - 1);
        // Row n-1 was filled by the interior loop; only its diagonal changes.
        d[n - 1] -= beta;
        z_ = du + m_;  // the fourth block of the allocation
        for (int64_t i = 0; i < m_; ++i) z_[i] = 0;
        z_[0] = alpha;
        z_[n - 1] = beta;
      }
    } else {
      end_rows(dl, d, du);
    }
    if (ddttrfb(m_, dl, d, du) != 0) return kStatusTridiagFailed;
    if (z_ != nullptr) {
      if (ddttrsb(m_, dl, d, du, z_) != 0) return kStatusTridiagFailed;
      const T den = T(1) + z_[0] + z_[m_ - 1];
      if (den == T(0) || !std::isfinite(den)) return kStatusTridiagFailed;
      q_ = T(1) / den;
    }
    return 0;
  }

  // Slopes s[0..nx-1] of one function.  Returns 0 or -1500.
  int32_t slopes(const Values<T> &y, const T *bc, T *s) const {
    const Geometry<T> &g = *g_;
    const int64_t nx = g.nx, n = nx - 1;
    // Right-hand side; d_{i-1} carried from the previous row.
    if (g.uniform) {
      rhs_loop<true>(y, s);
    } else {
      rhs_loop<false>(y, s);
    }
    const T d0 = divided_difference(g, y, 0);
    const T dl = divided_difference(g, y, n - 1);
    if (kind_ == kPeriodic) {
      if (n == 1) {
        s[0] = d0;
      } else {
        s[0] = T(3) * (g.w(0) * dl + g.w(n - 1) * d0);
      }
    } else {
      end_rhs(y, bc, d0, dl, s);
    }
    const T *dlp = mat_.get(), *dp = dlp + m_, *dup = dp + m_;
    if (ddttrsb(m_, dlp, dp, dup, s) != 0) return kStatusTridiagFailed;
    if (kind_ == kPeriodic) {
      if (z_ != nullptr) {
        const T f = (s[0] + s[m_ - 1]) * q_;
        for (int64_t i = 0; i < m_; ++i) s[i] -= f * z_[i];
      }
      s[n] = s[0];
    }
    return 0;
  }

  T periodic_scalar() const { return q_; }

 private:
  // Rows 1 .. n-1: 3 (w_i d_{i-1} + w_{i-1} d_i), with w = 1 on a uniform
  // partition; d_{i-1} and y_i are carried from the previous row.
  template <bool Uniform>
  void rhs_loop(const Values<T> &y, T *s) const {
    const Geometry<T> &g = *g_;
    const int64_t n = g.nx - 1;
    T yprev = y[1];
    T dprev = (yprev - y[0]) * (Uniform ? g.urh : g.rhp[0]);
    if (Uniform) {
      for (int64_t i = 1; i < n; ++i) {
        const T ynext = y[i + 1];
        const T dcur = (ynext - yprev) * g.urh;
        s[i] = T(3) * (dprev + dcur);
        dprev = dcur;
        yprev = ynext;
      }
    } else {
      const T *x = g.xp;
      T xprev = x[1], hprev = x[1] - x[0];
      for (int64_t i = 1; i < n; ++i) {
        const T ynext = y[i + 1], xnext = x[i + 1];
        const T hcur = xnext - xprev;
        const T dcur = (ynext - yprev) * g.rhp[i];
        s[i] = T(3) * (hcur * dprev + hprev * dcur);
        dprev = dcur;
        yprev = ynext;
        xprev = xnext;
        hprev = hcur;
      }
    }
  }

  static int ddttrfb(int64_t n, float *a, float *b, float *c) { return sdttrfb_4dfl(n, a, b, c); }
  static int ddttrfb(int64_t n, double *a, double *b, double *c) { return ddttrfb_4dfl(n, a, b, c); }
  static int ddttrsb(int64_t n, const float *a, const float *b, const float *c, float *r) {
    return sdttrsb_4dfl(n, a, b, c, r);
  }
  static int ddttrsb(int64_t n, const double *a, const double *b, const double *c, double *r) {
    return ddttrsb_4dfl(n, a, b, c, r);
  }

  void end_rows(T *dl, T *d, T *du) const {
    const Geometry<T> &g = *g_;
    const int64_t n = g.nx - 1;
    // Left end: row 0 (d[0], du[0]); right end: row n (dl[n-1], d[n]).
    if (runout_) {
      d[0] = 1, du[0] = 1, dl[n - 1] = 1, d[n] = 1;
      return;
    }
    switch (kind_) {
      case kNotAKnot: {
        const T w0 = g.w(0), w1 = g.w(1), a = g.w(n - 1), b = g.w(n - 2);
        d[0] = w1, du[0] = w0 + w1;
        dl[n - 1] = a + b, d[n] = b;
        break;
      }
      default: {
        const bool left_first = kind_ == kFirstBoth || kind_ == kFirstLeftSecondRight;
        const bool right_first = kind_ == kFirstBoth || kind_ == kSecondLeftFirstRight;
        if (left_first) d[0] = 1, du[0] = 0;
        else d[0] = 2, du[0] = 1;
        if (right_first) dl[n - 1] = 0, d[n] = 1;
        else dl[n - 1] = 1, d[n] = 2;
      }
    }
  }

  void end_rhs(const Values<T> &y, const T *bc, T d0, T dn, T *s) const {
    const Geometry<T> &g = *g_;
    const int64_t n = g.nx - 1;
    if (runout_) {
      s[0] = T(2) * d0;
      s[n] = T(2) * dn;
      return;
    }
    switch (kind_) {
      case kNotAKnot: {
        const T w0 = g.w(0), w1 = g.w(1), a = g.w(n - 1), b = g.w(n - 2);
        const T d1 = divided_difference(g, y, 1), dm = divided_difference(g, y, n - 2);
        s[0] = (w1 * (T(3) * w0 + T(2) * w1) * d0 + w0 * w0 * d1) / (w0 + w1);
        s[n] = (b * (T(3) * a + T(2) * b) * dn + a * a * dm) / (a + b);
        break;
      }
      case kFreeEnd:
        s[0] = T(3) * d0;
        s[n] = T(3) * dn;
        break;
      case kFirstBoth:
        s[0] = bc[0];
        s[n] = bc[1];
        break;
      case kFirstLeftSecondRight:
        s[0] = bc[0];
        s[n] = T(3) * dn + bc[1] * g.h(n - 1) * T(0.5);
        break;
      case kSecondLeftFirstRight:
        s[0] = T(3) * d0 - bc[0] * g.h(0) * T(0.5);
        s[n] = bc[1];
        break;
      default:  // kSecondBoth
        s[0] = T(3) * d0 - bc[0] * g.h(0) * T(0.5);
        s[n] = T(3) * dn + bc[1] * g.h(n - 1) * T(0.5);
        break;
    }
  }

  const Geometry<T> *g_ = nullptr;
  int kind_ = 0;
  bool runout_ = false;
  int64_t m_ = 0;
  Scratch<T> mat_;
  T *z_ = nullptr;
  T q_ = 0;
};

// ---------------------------------------------------------------------------
// Local slope rules.  Each fills s[0..nx-1]; interior slopes first, then the
// end slopes by boundary kind (end_slopes below), then, for Hyman, the
// monotonicity filter.

enum class LocalMethod { kAkima, kBessel, kHyman, kHermite };

// Akima's weighted slope at a node from the four neighbouring divided
// differences m1 = d_{i-2}, m2 = d_{i-1} (left cell), m3 = d_i (right cell),
// m4 = d_{i+1}; the average of the two cell slopes when both weights vanish.
template <typename T>
inline T akima_slope(T m1, T m2, T m3, T m4) {
  const T wl = std::fabs(m4 - m3), wr = std::fabs(m2 - m1);
  const T den = wl + wr;
  if (den == T(0)) return T(0.5) * (m2 + m3);
  return (wl * m2 + wr * m3) / den;
}

// Slope at x[i] of the parabola through x[i-1], x[i], x[i+1] (Bessel).
template <typename T>
inline T bessel_slope(T hl, T hr, T dl, T dr) {
  return (hr * dl + hl * dr) / (hl + hr);
}

// End slopes of a local method for kinds 0-5, from the interior slopes
// already in s (s[1] .. s[n-1]).
//   not-a-knot:  c3_0 = c3_1 solved for s_0 given s_1, s_2:
//                s_0 = 2 d_0 - s_1 + (h_0 / h_1)^2 (s_1 + s_2 - 2 d_1)
//                (with two cells s_2 is an end slope too and the two
//                conditions coincide; each end cell is then a parabola:
//                s_0 = 2 d_0 - s_1, s_2 = 2 d_1 - s_1)
//   free end:    2 s_0 + s_1 = 3 d_0,  s_{n-1} + 2 s_n = 3 d_{n-1}
//   derivatives: as for the C2 cubic's end rows, solved for the end slope.
template <typename T>
void end_slopes(const Geometry<T> &g, const Values<T> &y, int kind, const T *bc, T *s) {
  const int64_t n = g.nx - 1;
  const T d0 = divided_difference(g, y, 0), dn = divided_difference(g, y, n - 1);
  switch (kind) {
    case kNotAKnot:
      if (n == 2) {
        s[0] = T(2) * d0 - s[1];
        s[2] = T(2) * dn - s[1];
      } else {
        const T d1 = divided_difference(g, y, 1), dm = divided_difference(g, y, n - 2);
        const T r0 = g.h(0) / g.h(1), rn = g.h(n - 1) / g.h(n - 2);
        s[0] = T(2) * d0 - s[1] + r0 * r0 * (s[1] + s[2] - T(2) * d1);
        s[n] = T(2) * dn - s[n - 1] + rn * rn * (s[n - 1] + s[n - 2] - T(2) * dm);
      }
      break;
    case kFreeEnd:
      s[0] = T(0.5) * (T(3) * d0 - s[1]);
      s[n] = T(0.5) * (T(3) * dn - s[n - 1]);
      break;
    case kFirstBoth:
      s[0] = bc[0];
      s[n] = bc[1];
      break;
    case kFirstLeftSecondRight:
      s[0] = bc[0];
      s[n] = T(0.5) * (T(3) * dn + bc[1] * g.h(n - 1) * T(0.5) - s[n - 1]);
      break;
    case kSecondLeftFirstRight:
      s[0] = T(0.5) * (T(3) * d0 - bc[0] * g.h(0) * T(0.5) - s[1]);
      s[n] = bc[1];
      break;
    case kSecondBoth:
      s[0] = T(0.5) * (T(3) * d0 - bc[0] * g.h(0) * T(0.5) - s[1]);
      s[n] = T(0.5) * (T(3) * dn + bc[1] * g.h(n - 1) * T(0.5) - s[n - 1]);
      break;
    default:
      break;
  }
}

// Hyman's filter (1983): a slope keeps the sign shared by the neighbouring
// divided differences and at most three times the smaller of them; where
// they differ in sign (an extremum of the data) or one vanishes, it is 0.
// The resulting cubic is monotone on every cell where the data are (the
// ratios s/d stay in Fritsch and Carlson's box [0, 3]^2).
// (Plain comparisons rather than fmin/fmax, which are library calls without
// fast-math; a NaN slope becomes 0 on monotone data.)
template <typename T>
inline T hyman_filter(T s, T dl, T dr) {
  if (dl > T(0) && dr > T(0)) {
    const T cap = T(3) * (dl < dr ? dl : dr);
    const T v = s > T(0) ? s : T(0);
    return v < cap ? v : cap;
  }
  if (dl < T(0) && dr < T(0)) {
    const T cap = T(3) * (dl > dr ? dl : dr);
    const T v = s < T(0) ? s : T(0);
    return v > cap ? v : cap;
  }
  return T(0);
}

// Slopes of a local method.  ic: Hermite's interior slopes s_1 .. s_{n-1}
// (nx - 2 values of this function); unused by the others.
template <typename T>
void local_slopes(LocalMethod method, const Geometry<T> &g, const Values<T> &y, int kind,
                  const T *bc, const T *ic, T *s) {
  const int64_t n = g.nx - 1;
  const bool periodic = kind == kPeriodic;
  if (method == LocalMethod::kAkima) {
    // m(k) for k in [-2, n+1]: the divided differences, extended past the
    // ends periodically or by Akima's linear extrapolation.
    auto m = [&](int64_t k) -> T {
      if (k >= 0 && k < n) return divided_difference(g, y, k);
      if (periodic) return divided_difference(g, y, ((k % n) + n) % n);
      const T a0 = divided_difference(g, y, 0), a1 = divided_difference(g, y, 1);
      const T b0 = divided_difference(g, y, n - 1), b1 = divided_difference(g, y, n - 2);
      const T lm1 = T(2) * a0 - a1, rn = T(2) * b0 - b1;
      if (k == -1) return lm1;
      if (k == -2) return T(2) * lm1 - a0;
      if (k == n) return rn;
      return T(2) * rn - b0;  // k == n + 1
    };
    // Interior nodes away from the ends with a rolling window.
    T m1 = m(-1), m2 = m(0), m3 = m(1);
    for (int64_t i = 1; i < n; ++i) {
      // node i: left cells i-2, i-1; right cells i, i+1
      const T m4 = (i + 1 < n) ? divided_difference(g, y, i + 1) : m(i + 1);
      s[i] = akima_slope(m1, m2, m3, m4);
      m1 = m2, m2 = m3, m3 = m4;
    }
    if (kind == kAkimaEnds || periodic) {
      s[0] = akima_slope(m(-2), m(-1), m(0), m(1));
      s[n] = periodic ? s[0] : akima_slope(m(n - 2), m(n - 1), m(n), m(n + 1));
    } else {
      end_slopes(g, y, kind, bc, s);
    }
    return;
  }
  if (method == LocalMethod::kHermite) {
    for (int64_t i = 1; i < n; ++i) s[i] = ic[i - 1];
  } else {
    T dl = divided_difference(g, y, 0);
    for (int64_t i = 1; i < n; ++i) {
      const T dr = divided_difference(g, y, i);
      s[i] = bessel_slope(g.h(i - 1), g.h(i), dl, dr);
      dl = dr;
    }
  }
  const T d0 = divided_difference(g, y, 0), dn = divided_difference(g, y, n - 1);
  if (periodic) {
    // The node x[0] = x[n] between the last and the first cell.
    s[0] = bessel_slope(g.h(n - 1), g.h(0), dn, d0);
    s[n] = s[0];
  } else {
    end_slopes(g, y, kind, bc, s);
  }
  if (method == LocalMethod::kHyman) {
    T dl = d0;
    for (int64_t i = 1; i < n; ++i) {
      const T dr = divided_difference(g, y, i);
      s[i] = hyman_filter(s[i], dl, dr);
      dl = dr;
    }
    if (periodic) {
      s[0] = hyman_filter(s[0], dn, d0);
      s[n] = s[0];
    } else {
      s[0] = hyman_filter(s[0], d0, d0);
      s[n] = hyman_filter(s[n], dn, dn);
    }
  }
}

// ---------------------------------------------------------------------------
// Quadratic spline with a knot inside every cell (spline type 1).
//
// The caller gives nx - 1 knots, xi_j strictly inside (x[j], x[j+1]).  The
// spline has nx pieces: piece 0 on [x[0], xi_0], piece j on [xi_{j-1}, xi_j],
// piece nx-1 on [xi_{nx-2}, x[nx-1]]; piece j holds the breakpoint x[j] and
// is stored as [y_j, s_j, c2_j] in u = t - x[j].  It interpolates the data and
// is C1 at the knots.
//
// Unknowns: the derivative at the nodes tau_{-1} = x[0], tau_j = xi_j,
// tau_n = x[n] (n = nx - 1), E_k = P'(tau_{k-1}), k = 0 .. n+1.  On piece j
// (width lambda_j = tau_j - tau_{j-1}) P' is linear, and x[j] sits at the
// fraction theta_j of it (theta_0 = 0, theta_n = 1).  Integrating P' over
// cell j (alpha_j = xi_j - x[j] in piece j, beta_j = x[j+1] - xi_j in piece
// j+1) gives row j+1 of a tridiagonal system:
//   alpha_j (1 - theta_j) / 2 E_j
//     + (alpha_j (1 + theta_j) + beta_j (2 - theta_{j+1})) / 2 E_{j+1}
//     + beta_j theta_{j+1} / 2 E_{j+2}                        = y_{j+1} - y_j
// which is diagonally dominant.  End rows:
//   first derivative v:   E_0 = v,  E_{n+1} = v
//   second derivative v:  E_1 - E_0 = v lambda_0,  E_{n+1} - E_n = v lambda_n
//                         (free end: v = 0)
//   not-a-knot:           P'' continuous across xi_0 (and xi_{n-1}),
//                         eliminated against row 1 (row n) to stay tridiagonal.
//   periodic:             E_{n+1} = E_0 (one unknown fewer) and P'' equal at
//                         both ends: (E_1 - E_0) / lambda_0 = (E_0 - E_n) / lambda_n,
//                         written as row 0 (sign flipped); its corner entry
//                         and row n's (through E_{n+1} = E_0) are removed by
//                         the same Sherman-Morrison correction as the
//                         periodic cubic; needs nx >= 3.
// Then s_j = (1 - theta_j) E_j + theta_j E_{j+1},
//      c2_j = (E_{j+1} - E_j) / (2 lambda_j).
template <typename T>
class QuadraticKnotSystem {
 public:
  // Returns 0, -1001, -1012 (a knot not strictly inside its cell) or -1500.
  int32_t prepare(int64_t nx, const T *x, bool uniform, const T *knots, int kind) {
    nx_ = nx;
    kind_ = kind;
    const int64_t n = nx - 1, m = kind == kPeriodic ? n + 1 : n + 2;
    m_ = m;
    if (!geo_.allocate(5 * n + 2) || !mat_.allocate(4 * (n + 2))) return kStatusMemory;
    T *alpha = geo_.get(), *beta = alpha + n, *lambda = beta + n, *theta = lambda + n + 1;
    const T x0 = x[0];
    const T hu = uniform ? (x[nx - 1] - x[0]) / T(n) : T(0);
    auto X = [&](int64_t i) { return uniform ? (i == n ? x[nx - 1] : x0 + T(i) * hu) : x[i]; };
    for (int64_t j = 0; j < n; ++j) {
      const T xl = X(j), xr = X(j + 1), k = knots[j];
      if (!(k > xl && k < xr)) return -1012;
      alpha[j] = k - xl;
      beta[j] = xr - k;
    }
    lambda[0] = alpha[0];
    theta[0] = 0;
    for (int64_t j = 1; j < n; ++j) {
      lambda[j] = knots[j] - knots[j - 1];
      theta[j] = beta[j - 1] / lambda[j];
    }
    lambda[n] = beta[n - 1];
    theta[n] = 1;
    alpha_ = alpha, beta_ = beta, lambda_ = lambda, theta_ = theta;
    T *dl = mat_.get(), *d = dl + m, *du = d + m;
    T corner_row_n = 0;  // periodic: row n's coefficient of E_{n+1} = E_0
    for (int64_t j = 0; j < n; ++j) {
      if (kind == kPeriodic && j == n - 1) {
        dl[j] = alpha[j] * (T(1) - theta[j]) * T(0.5);
        d[j + 1] = (alpha[j] * (T(1) + theta[j]) + beta[j] * (T(2) - theta[j + 1])) * T(0.5);
        corner_row_n = beta[j] * theta[j + 1] * T(0.5);
        break;
      }
      dl[j] = alpha[j] * (T(1) - theta[j]) * T(0.5);
      d[j + 1] = (alpha[j] * (T(1) + theta[j]) + beta[j] * (T(2) - theta[j + 1])) * T(0.5);
      du[j + 1] = beta[j] * theta[j + 1] * T(0.5);
    }
    // End rows.  Left row 0: d[0], du[0]; right row n+1: dl[n], d[n+1].
    if (kind == kPeriodic) {
      const T r0 = T(1) / lambda[0], rn = T(1) / lambda[n];
      const T a = -rn;           // row 0, column n
      const T b = corner_row_n;  // row n, column 0
      d[0] = r0 + rn - a;
      du[0] = -r0;
      d[n] -= b;
      z_ = du + m;  // fourth block
      for (int64_t k = 0; k < m; ++k) z_[k] = 0;
      z_[0] = a;
      z_[n] = b;
      if (factor(m, dl, d, du) != 0) return kStatusTridiagFailed;
      if (solve(m, dl, d, du, z_) != 0) return kStatusTridiagFailed;
      const T den = T(1) + z_[0] + z_[n];
      if (den == T(0) || !std::isfinite(den)) return kStatusTridiagFailed;
      q_ = T(1) / den;
      return 0;
    }
    if (kind == kNotAKnot) {
      // (E_0 - E_1) / l0 + (E_2 - E_1) / l1 = 0, minus (1 / l1) / du[1] times row 1.
      const T l0 = lambda[0], l1 = lambda[1];
      const T f = (T(1) / l1) / du[1];
      d[0] = T(1) / l0 - f * dl[0];
      du[0] = -(T(1) / l0 + T(1) / l1) - f * d[1];
      left_factor_ = f;
      // (E_{n+1} - E_n) / ln + (E_{n-1} - E_n) / l(n-1) = 0, minus
      // (1 / l(n-1)) / dl[n-1] times row n.
      const T ln = lambda[n], lm = lambda[n - 1];
      const T g = (T(1) / lm) / dl[n - 1];
      d[n + 1] = T(1) / ln - g * du[n];
      dl[n] = -(T(1) / ln + T(1) / lm) - g * d[n];
      right_factor_ = g;
    } else {
      const bool lf = kind == kFirstBoth || kind == kFirstLeftSecondRight;
      const bool rf = kind == kFirstBoth || kind == kSecondLeftFirstRight;
      if (lf) d[0] = 1, du[0] = 0;
      else d[0] = -1, du[0] = 1;
      if (rf) dl[n] = 0, d[n + 1] = 1;
      else dl[n] = -1, d[n + 1] = 1;
    }
    if (factor(m, dl, d, du) != 0) return kStatusTridiagFailed;
    return 0;
  }

  // Coefficients of one function; e is scratch of nx + 1 values.
  int32_t build(const Values<T> &y, const T *bc, T *e, T *c) const {
    const int64_t n = nx_ - 1;
    for (int64_t j = 0; j < n; ++j) e[j + 1] = y[j + 1] - y[j];
    switch (kind_) {
      case kPeriodic:
        e[0] = 0;
        break;
      case kNotAKnot:
        e[0] = -left_factor_ * e[1];
        e[n + 1] = -right_factor_ * e[n];
        break;
      case kFreeEnd:
        e[0] = 0, e[n + 1] = 0;
        break;
      case kFirstBoth:
        e[0] = bc[0], e[n + 1] = bc[1];
        break;
      case kFirstLeftSecondRight:
        e[0] = bc[0], e[n + 1] = bc[1] * lambda_[n];
        break;
      case kSecondLeftFirstRight:
        e[0] = bc[0] * lambda_[0], e[n + 1] = bc[1];
        break;
      default:  // kSecondBoth
        e[0] = bc[0] * lambda_[0], e[n + 1] = bc[1] * lambda_[n];
        break;
    }
    const T *dl = mat_.get(), *d = dl + m_, *du = d + m_;
    if (solve(m_, dl, d, du, e) != 0) return kStatusTridiagFailed;
    if (kind_ == kPeriodic) {
      const T f = (e[0] + e[n]) * q_;
      for (int64_t k = 0; k <= n; ++k) e[k] -= f * z_[k];
      e[n + 1] = e[0];
    }
    for (int64_t j = 0; j <= n; ++j) {
      const T th = theta_[j];
      c[3 * j] = y[j];
      c[3 * j + 1] = (T(1) - th) * e[j] + th * e[j + 1];
      c[3 * j + 2] = (e[j + 1] - e[j]) / (T(2) * lambda_[j]);
    }
    return 0;
  }

 private:
  static int factor(int64_t n, float *a, float *b, float *c) { return sdttrfb_4dfl(n, a, b, c); }
  static int factor(int64_t n, double *a, double *b, double *c) { return ddttrfb_4dfl(n, a, b, c); }
  static int solve(int64_t n, const float *a, const float *b, const float *c, float *r) {
    return sdttrsb_4dfl(n, a, b, c, r);
  }
  static int solve(int64_t n, const double *a, const double *b, const double *c, double *r) {
    return ddttrsb_4dfl(n, a, b, c, r);
  }

  int64_t nx_ = 0, m_ = 0;
  int kind_ = 0;
  Scratch<T> geo_, mat_;
  const T *alpha_ = nullptr, *beta_ = nullptr, *lambda_ = nullptr, *theta_ = nullptr;
  T left_factor_ = 0, right_factor_ = 0;
  T *z_ = nullptr;  // periodic: shared solution T z = u
  T q_ = 0;         // periodic: 1 / (1 + z_0 + z_n)
};

}  // namespace qor::fit
