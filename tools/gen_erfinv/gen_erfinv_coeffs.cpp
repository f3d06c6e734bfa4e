// Generates erfinv_coeffs.h: the polynomial pieces of the SIMD inverse error
// function kernels.  Build and run by hand when the pieces change:
//   g++ -O2 -std=c++20 -I src tools/gen_erfinv/gen_erfinv_coeffs.cpp -o /tmp/gen
//   /tmp/gen > src/vm/kernels/erfinv/erfinv_coeffs.h
//
// Pieces (see erfinv.h): piece 0 is erfinv(x)/x as a polynomial in x^2 on
// [0, 1/4]; pieces 1..15 are erfinv(x) as a polynomial in w = -ln(1 - x^2) on
// [2^e, 1.5 2^e) and [1.5 2^e, 2^(e+1)) for e = -2..5 (the first starts at
// -ln(3/4), the last ends at 48); the central polynomial (erfinv(x)/x in x^2
// for |x| <= kCentral, one set of coefficients for all lanes) and the middle
// one (erfinv(x)/x in w for kCentral < |x| and w <= kMiddleW, likewise) are
// written after them.  Each is Chebyshev interpolation in long double,
// written in powers of t = v - mid, except the high-accuracy central set, a
// cubic plus a rational function (central_rational()).  The reference is
// the library's extended-precision erfinv / erfcinv (about 2^-64 relative);
// in the tail 1 - x is formed as e^-w / (1 + sqrt(1 - e^-w)) so that it
// keeps full relative precision.  The degree is the smallest that brings every piece of
// a set below its target relative error (printed in the header).
#include <cmath>
#include <cstdio>
#include <vector>

#include "vm/kernels/elem/detail.h"

using ld = long double;
using qor::vm::elem::detail::erfcinv;
using qor::vm::elem::detail::erfinv;

struct Piece {
  ld a, b;
  bool central;
};

// Bound of the wide central polynomial (see erfinv.h for the choice).
#ifndef ERFINV_CENTRAL
#define ERFINV_CENTRAL 0.85L
#endif
static const ld kCentral = ERFINV_CENTRAL;
// Upper end, in w, of the middle polynomial (see erfinv.h).
#ifndef ERFINV_MIDDLE_W
#define ERFINV_MIDDLE_W 6.25L
#endif
static const ld kMiddleW = ERFINV_MIDDLE_W;

static ld f(const Piece &p, ld v) {
  if (p.central) {
    if (v == 0) return 0.886226925452758013649083741671390886L;  // sqrt(pi)/2
    ld x = std::sqrt(v);
    return erfinv(x) / x;
  }
  ld e = std::exp(-v);
  return erfcinv(e / (1 + std::sqrt(1 - e)));
}

// v as the kernel holds a double-double coefficient: high and low doubles.
static ld as_dd(ld v) { return static_cast<ld>(double(v)) + static_cast<ld>(double(v - double(v))); }

// The centre of a piece, a double so that the kernel forms t exactly as here.
static ld midof(const Piece &p) { return static_cast<ld>(double((p.a + p.b) / 2)); }

// sum cheb[j] T_j(s) written in powers of t = half s.
static std::vector<ld> cheb_to_mono(const std::vector<ld> &cheb, ld half) {
  const int n = int(cheb.size()) - 1;
  // T_j in powers of s, accumulated into the monomial form
  std::vector<ld> mono(n + 1, 0), t0(n + 1, 0), t1(n + 1, 0), t2(n + 1, 0);
  t0[0] = 1;
  t1[1] = 1;
  for (int j = 0; j <= n; ++j) {
    const std::vector<ld> &tj = j == 0 ? t0 : t1;
    for (int i = 0; i <= n; ++i) mono[i] += cheb[j] * tj[i];
    if (j >= 1) {
      for (int i = 0; i <= n; ++i) t2[i] = (i ? 2 * t1[i - 1] : 0) - t0[i];
      t0 = t1;
      t1 = t2;
    }
  }
  ld scale = 1;
  for (int i = 0; i <= n; ++i, scale /= half) mono[i] *= scale;
  return mono;
}

// Monomial coefficients in t = v - mid of the degree-n Chebyshev
// interpolant of g over [mid - half, mid + half].
template <class G>
static std::vector<ld> cheb_mono(ld mid, ld half, int n, G g) {
  std::vector<ld> fx(n + 1), cheb(n + 1, 0);
  for (int k = 0; k <= n; ++k) fx[k] = g(mid + half * std::cos(M_PIl * (k + 0.5L) / (n + 1)));
  for (int j = 0; j <= n; ++j) {
    ld sum = 0;
    for (int k = 0; k <= n; ++k) sum += fx[k] * std::cos(M_PIl * j * (k + 0.5L) / (n + 1));
    cheb[j] = sum * 2 / (n + 1);
  }
  cheb[0] /= 2;
  return cheb_to_mono(cheb, half);
}

// Least-squares solution of A x = b (A: rows x cols, rows >= cols) by
// Householder QR, which keeps the residual small even where the columns
// are nearly dependent.
static std::vector<ld> least_squares(std::vector<std::vector<ld>> a, std::vector<ld> b) {
  const size_t rows = a.size(), cols = a[0].size();
  for (size_t j = 0; j < cols; ++j) {
    ld norm = 0;
    for (size_t i = j; i < rows; ++i) norm += a[i][j] * a[i][j];
    norm = std::sqrt(norm);
    if (norm == 0) continue;
    const ld alpha = a[j][j] > 0 ? -norm : norm;
    std::vector<ld> v(rows - j);
    for (size_t i = j; i < rows; ++i) v[i - j] = a[i][j];
    v[0] -= alpha;
    ld vv = 0;
    for (ld e : v) vv += e * e;
    for (size_t c = j; c < cols; ++c) {
      ld d = 0;
      for (size_t i = j; i < rows; ++i) d += v[i - j] * a[i][c];
      d = 2 * d / vv;
      for (size_t i = j; i < rows; ++i) a[i][c] -= d * v[i - j];
    }
    ld d = 0;
    for (size_t i = j; i < rows; ++i) d += v[i - j] * b[i];
    d = 2 * d / vv;
    for (size_t i = j; i < rows; ++i) b[i] -= d * v[i - j];
  }
  std::vector<ld> x(cols, 0);
  for (size_t j = cols; j-- > 0;) {
    ld s = b[j];
    for (size_t c = j + 1; c < cols; ++c) s -= a[j][c] * x[c];
    x[j] = a[j][j] != 0 ? s / a[j][j] : 0;
  }
  return x;
}

// num(t) / den(t) in powers of t = v - origin, den[0] = 1.
struct Rational {
  std::vector<ld> num, den;
};

static ld horner(const std::vector<ld> &c, ld t, bool rounded) {
  ld s = 0;
  for (size_t i = c.size(); i-- > 0;) s = s * t + (rounded ? static_cast<ld>(double(c[i])) : c[i]);
  return s;
}

// A near-minimax rational approximation num/den (degrees m and k, in powers
// of t = v - origin) to h on [lo, hi], the error weighted by wt, with the
// coefficients that `fixed` holds (num's m + 1, then den's k + 1; NaN =
// free) kept at those values; den's constant term is always 1.  Each pass
// solves the linearised problem h den - num = 0 at 2000 Chebyshev points by
// least squares in powers of s = t / half (|s| <= 1), with every row divided
// by the previous pass's |den| so that the residual measures h - num/den
// itself (Sanathanan-Koerner), and with point weights multiplied by the last
// pass's error (Lawson), which pushes the weighted error towards equal
// ripple.  The pass with the smallest maximum weighted error wins.
template <class H, class W>
static Rational rational_fit(ld lo, ld hi, ld origin, int m, int k, H h, W wt, std::vector<ld> fixed = {}) {
  const ld half = std::fmax(std::fabs(lo - origin), std::fabs(hi - origin));
  const int pts = 2000, nc = m + 1 + k + 1;
  if (fixed.empty()) fixed.assign(nc, NAN);
  fixed[m + 1] = 1;
  std::vector<int> free_idx;
  for (int j = 0; j < nc; ++j)
    if (std::isnan(fixed[j])) free_idx.push_back(j);
  std::vector<ld> s(pts), hv(pts), wv(pts), lw(pts, 1), dprev(pts, 1);
  for (int i = 0; i < pts; ++i) {
    const ld v = (lo + hi) / 2 + (hi - lo) / 2 * std::cos(M_PIl * (i + 0.5L) / pts);
    s[i] = (v - origin) / half;
    hv[i] = h(v);
    wv[i] = wt(v);
  }
  // column j of a point: num's s^j, then den's -h s^j (coefficients in s)
  auto column = [&](int i, int j) {
    return j <= m ? std::pow(s[i], ld(j)) : -hv[i] * std::pow(s[i], ld(j - m - 1));
  };
  std::vector<ld> scale(nc);  // t-coefficient = s-coefficient / half^j
  for (int j = 0; j < nc; ++j) scale[j] = std::pow(half, ld(j <= m ? j : j - m - 1));
  Rational best;
  ld best_err = INFINITY;
  std::vector<ld> coef(nc);
  for (int pass = 0; pass < 40; ++pass) {
    std::vector<ld> b(pts);
    if (!free_idx.empty()) {
      std::vector<std::vector<ld>> a(pts, std::vector<ld>(free_idx.size()));
      for (int i = 0; i < pts; ++i) {
        const ld r = std::sqrt(lw[i]) * wv[i] / std::fabs(dprev[i]);
        ld rhs = 0;
        for (int j = 0; j < nc; ++j)
          if (!std::isnan(fixed[j])) rhs -= fixed[j] * scale[j] * column(i, j);
        for (size_t q = 0; q < free_idx.size(); ++q) a[i][q] = r * column(i, free_idx[q]);
        b[i] = r * rhs;
      }
      const std::vector<ld> x = least_squares(a, b);
      for (size_t q = 0; q < free_idx.size(); ++q) coef[free_idx[q]] = x[q];
    }
    for (int j = 0; j < nc; ++j)
      if (!std::isnan(fixed[j])) coef[j] = fixed[j] * scale[j];
    ld err = 0, sum = 0;
    std::vector<ld> e(pts);
    for (int i = 0; i < pts; ++i) {
      ld nv = 0, dv = 0;
      for (int j = m; j >= 0; --j) nv = nv * s[i] + coef[j];
      for (int j = k; j >= 0; --j) dv = dv * s[i] + coef[m + 1 + j];
      dprev[i] = dv;
      e[i] = std::fabs(hv[i] - nv / dv) * wv[i];
      err = std::fmax(err, e[i]);
    }
    if (err < best_err) {
      best_err = err;
      best.num.assign(m + 1, 0);
      best.den.assign(k + 1, 0);
      for (int j = 0; j <= m; ++j) best.num[j] = std::isnan(fixed[j]) ? coef[j] / scale[j] : fixed[j];
      for (int j = 0; j <= k; ++j)
        best.den[j] = std::isnan(fixed[m + 1 + j]) ? coef[m + 1 + j] / scale[m + 1 + j] : fixed[m + 1 + j];
    }
    if (free_idx.empty()) break;
    for (int i = 0; i < pts; ++i) sum += (lw[i] *= e[i]);
    for (int i = 0; i < pts; ++i) lw[i] /= sum;
  }
  return best;
}

// rational_fit with the coefficients rounded to double one at a time, den's
// first, each in ascending powers, and the free ones refitted after each
// rounding so that they absorb it.  Rounded all at once they lost 2 to 6
// bits in trials of the central set written in powers of u - mid; rounded
// this way the fit keeps its accuracy.
template <class H, class W>
static Rational rational_fit_rounded(ld lo, ld hi, ld origin, int m, int k, H h, W wt) {
  std::vector<ld> fixed(m + k + 2, NAN);
  Rational r = rational_fit(lo, hi, origin, m, k, h, wt, fixed);
  std::vector<int> order;
  for (int j = 1; j <= k; ++j) order.push_back(m + 1 + j);
  for (int j = 0; j <= m; ++j) order.push_back(j);
  for (int j : order) {
    fixed[j] = static_cast<ld>(double(j <= m ? r.num[j] : r.den[j - m - 1]));
    r = rational_fit(lo, hi, origin, m, k, h, wt, fixed);
  }
  return r;
}

// The degree-n interpolant of piece p's function.
static std::vector<ld> fit(const Piece &p, int n) {
  const ld mid = midof(p), half = std::fmax(p.b - mid, mid - p.a);
  return cheb_mono(mid, half, n, [&](ld v) { return f(p, v); });
}

// Max relative error over a dense grid, evaluated in long double with the
// coefficients as they are (rounded: as stored, c0 as a double-double and
// the others as doubles).
static ld check(const Piece &p, const std::vector<ld> &c, bool rounded = false) {
  const ld mid = midof(p);
  ld worst = 0;
  for (int k = 0; k <= 600; ++k) {
    ld v = p.a + (p.b - p.a) * (k + 0.5L) / 601;
    ld t = v - mid, s = 0;
    for (int i = int(c.size()) - 1; i >= 0; --i) {
      ld ci = c[i];
      if (rounded && i > 0) ci = static_cast<ld>(double(c[i]));
      if (rounded && i == 0) ci = as_dd(c[0]);
      s = s * t + ci;
    }
    ld want = f(p, v);
    worst = std::fmax(worst, std::fabs(s - want) / std::fabs(want));
  }
  return worst;
}

// High accuracy, central region: P(u) = c0 + c1 t + c2 t^2 + c3 t^3 +
// N(r)/D(r), t = u - mid, r = u - kCentral^2.  A polynomial in u needs
// degree 31 here (erfinv has its branch points at u = 1, close beyond the
// end), while a rational function can place its poles along the branch cut
// and gets there with degrees 9 and 8.  c0 .. c3 are the leading
// coefficients of a degree-40 interpolant (within rounding, the Taylor
// coefficients at mid), so the rational part is about 1 % of P and its
// evaluation errors are scaled down by as much.  It is written in powers of
// r, whose origin is the end of the interval nearest the poles: every pole
// lies on the side r > 0 and r <= 0 on the interval, so D's terms all have
// one sign there (D >= 1, no cancellation).  In powers of t, D would drop to
// 0.05 at the end from terms summing to 7.
static void central_rational(const Piece &wide, const char *name) {
  const ld mid = midof(wide), origin = static_cast<ld>(double(wide.b)), target = 0x1p-60L;
  std::vector<ld> c = fit(wide, 40);
  auto cubic = [&](ld t) {
    return as_dd(c[0]) + as_dd(c[1]) * t + static_cast<ld>(double(c[2])) * t * t +
           static_cast<ld>(double(c[3])) * t * t * t;
  };
  auto h = [&](ld v) { return f(wide, v) - cubic(v - mid); };
  auto wt = [&](ld v) { return 1 / f(wide, v); };
  // worst relative error, the rational part's size and the sum of N's terms
  // over D, both relative to P (the coefficients as stored)
  auto measure = [&](const Rational &q, ld &size, ld &terms) {
    ld worst = 0;
    size = terms = 0;
    for (int i = 0; i <= 6000; ++i) {
      const ld v = wide.a + (wide.b - wide.a) * i / 6000, want = f(wide, v), r = v - origin;
      const ld den = horner(q.den, r, true), part = horner(q.num, r, true) / den;
      ld sum = 0;
      for (size_t j = 0; j < q.num.size(); ++j) sum += std::fabs(double(q.num[j]) * std::pow(r, ld(j)));
      worst = std::fmax(worst, std::fabs(cubic(v - mid) + part - want) / want);
      size = std::fmax(size, std::fabs(part) / want);
      terms = std::fmax(terms, sum / den / want);
    }
    return worst;
  };
  // the fewest coefficients that reach the target, the numerator's degree
  // first among equals
  Rational q;
  ld err = 0, size = 0, terms = 0;
  for (int total = 14; total <= 24; ++total) {
    bool ok = false;
    for (int m = (total + 1) / 2; m <= total / 2 + 1 && !ok; ++m) {
      q = rational_fit_rounded(wide.a, wide.b, origin, m, total - m, h, wt);
      err = measure(q, size, terms);
      ok = err <= target;
    }
    if (ok) break;
  }
  const int m = int(q.num.size()) - 1, k = int(q.den.size()) - 1;
  std::printf("\n// c0 + c1 t + c2 t^2 + c3 t^3 + N(r)/D(r), r = x^2 - origin, N of degree %d and\n"
              "// D of degree %d (D(0) = 1): worst relative error 2^%.1Lf with the coefficients as\n"
              "// stored; N/D is at most 2^%.1Lf P, the terms of N add up to at most 2^%.1Lf P D\n",
              m, k, std::log2(err), std::log2(size), std::log2(terms));
  std::printf("inline constexpr int %sCentralNum = %d;\ninline constexpr int %sCentralDen = %d;\n", name, m,
              name, k);
  std::printf("// mid, the coefficients of t^0 and t^1 as double-doubles, those of t^2 and\n"
              "// t^3, origin, then N's coefficients from r^0 and D's from r^0\n");
  std::printf("alignas(16) inline constexpr double %sCentral[%d] = {\n   ", name, 8 + m + 1 + k + 1);
  std::printf(" %a, %a, %a, %a, %a,\n    %a, %a, %a,", double(mid), double(c[0]), double(c[0] - double(c[0])),
              double(c[1]), double(c[1] - double(c[1])), double(c[2]), double(c[3]), double(origin));
  std::vector<ld> all = q.num;
  all.insert(all.end(), q.den.begin(), q.den.end());
  for (size_t i = 0; i < all.size(); ++i)
    std::printf("%s%a%s", i % 4 == 0 ? "\n    " : " ", double(all[i]), i + 1 == all.size() ? "" : ",");
  std::printf("};\n");
}

int main() {
  std::vector<Piece> pieces;
  struct Set {
    const char *name;
    ld target;
  } sets[] = {{"kHigh", 0x1p-58L}, {"kLow", 0x1p-34L}};
  pieces.push_back({0, 0.25L, true});
  for (int e = -2; e <= 5; ++e)
    for (int h = 0; h < 2; ++h) {
      ld a = std::ldexp(1 + h / 2.0L, e), b = std::ldexp(1 + (h + 1) / 2.0L, e);
      if (e == -2 && h == 0) a = 0.2876L;  // -ln(3/4) = 0.28768...
      if (e == 5 && h == 1) continue;      // w never reaches 48
      pieces.push_back({a, b, false});
    }
  std::printf("// Generated by tools/gen_erfinv/gen_erfinv_coeffs.cpp; do not edit.\n#pragma once\n\n");
  std::printf("namespace qor::vm::vec::erfinv_coeffs {\n\n");
  std::printf("inline constexpr int kPieces = %d;\n", int(pieces.size()));
  for (const Set &s : sets) {
    int deg = 4;
    for (; deg < 40; ++deg) {
      bool ok = true;
      for (const Piece &p : pieces) ok = ok && check(p, fit(p, deg)) <= s.target;
      if (ok) break;
    }
    ld worst = 0, worst_r = 0;
    for (const Piece &p : pieces) {
      worst = std::fmax(worst, check(p, fit(p, deg)));
      worst_r = std::fmax(worst_r, check(p, fit(p, deg), true));
    }
    std::printf("\n// degree %d, worst relative error of the fit 2^%.1Lf (2^%.1Lf with the\n"
                "// coefficients as stored)\n",
                deg, std::log2(worst), std::log2(worst_r));
    std::printf("inline constexpr int %sDeg = %d;\n", s.name, deg);
    std::printf("// per piece: mid, the coefficient of t^0 as a double-double, then those of\n"
                "// t^1 .. t^%d\n", deg);
    std::printf("alignas(16) inline constexpr double %s[%d][%d] = {\n", s.name, int(pieces.size()),
                deg + 3);
    for (const Piece &p : pieces) {
      std::vector<ld> c = fit(p, deg);
      std::printf("    {%a,", double(midof(p)));
      std::printf(" %a, %a,", double(c[0]), double(c[0] - double(c[0])));
      for (int i = 1; i <= deg; ++i) std::printf(" %a%s", double(c[i]), i == deg ? "" : ",");
      std::printf("},  // [%.5Lg, %.5Lg)\n", p.a, p.b);
    }
    std::printf("};\n");
  }
  // The central region: erfinv(x)/x in u = x^2 on [0, kCentral^2], one set
  // of coefficients for every lane (broadcast constants, no per-lane
  // loads).  c0 and c1 are double-doubles: the kernel forms c0 + c1 t with
  // error-free steps, as c1 t reaches 0.2 c0 near the bound.
  const Piece wide{0, kCentral * kCentral, true};
  std::printf("\n// |x| <= kCentral: erfinv(x) = x P(x^2), in powers of t = x^2 - mid\n");
  std::printf("inline constexpr double kCentral = %a;\n", double(kCentral));
  for (const Set &s : sets) {
    if (s.target < 0x1p-40L) {
      central_rational(wide, s.name);
      continue;
    }
    auto stored = [&](const std::vector<ld> &c) {
      ld worst = 0;
      const ld mid = midof(wide);
      for (int k = 0; k <= 600; ++k) {
        ld v = wide.a + (wide.b - wide.a) * (k + 0.5L) / 601, t = v - mid, sum = 0;
        for (int i = int(c.size()) - 1; i >= 0; --i) {
          ld ci = c[i];
          if (i >= 2) ci = static_cast<ld>(double(c[i]));
          else ci = as_dd(c[i]);
          sum = sum * t + ci;
        }
        worst = std::fmax(worst, std::fabs(sum - f(wide, v)) / f(wide, v));
      }
      return worst;
    };
    int deg = 4;
    for (; deg < 60; ++deg)
      if (check(wide, fit(wide, deg)) <= s.target) break;
    std::vector<ld> c = fit(wide, deg);
    std::printf("\n// degree %d, worst relative error of the fit 2^%.1Lf (2^%.1Lf with the\n"
                "// coefficients as stored)\n",
                deg, std::log2(check(wide, c)), std::log2(stored(c)));
    std::printf("inline constexpr int %sCentralDeg = %d;\n", s.name, deg);
    std::printf("// mid, the coefficients of t^0 and t^1 as double-doubles, then those of\n"
                "// t^2 .. t^%d\n", deg);
    std::printf("alignas(16) inline constexpr double %sCentral[%d] = {\n   ", s.name, deg + 4);
    std::printf(" %a, %a, %a, %a, %a,", double(midof(wide)), double(c[0]), double(c[0] - double(c[0])),
                double(c[1]), double(c[1] - double(c[1])));
    for (int i = 2; i <= deg; ++i)
      std::printf("%s%a%s", i % 4 == 2 ? "\n    " : " ", double(c[i]), i == deg ? "" : ",");
    std::printf("};\n");
  }
  // The middle polynomial: erfinv(x)/x in w = -ln(1 - x^2) for kCentral <
  // |x| <= kMiddle, again one set of coefficients for every lane.  Over the
  // range erfinv(x)/x grows from 1.2 to 2.3, so c0 + c1 t is again kept as a
  // double-double; what the kernel evaluates plainly is the rest, whose size
  // relative to the whole is printed.
  const ld w0 = -std::log1p(-kCentral * kCentral);
  const Piece mid2{w0, kMiddleW, false};
  std::printf("\n// kCentral < |x| <= kMiddle (w = -ln(1 - x^2) <= kMiddleW): erfinv(x) = x P(w),\n"
              "// in powers of t = w - mid\n");
  std::printf("inline constexpr double kMiddleW = %a;\n", double(kMiddleW));
  for (const Set &s : sets) {
    auto g = [&](ld v) {  // erfinv(x)/x at w = v
      ld e = std::exp(-v), om = e / (1 + std::sqrt(1 - e));
      return f(mid2, v) / (1 - om);
    };
    const ld mid = midof(mid2), half = std::fmax(mid2.b - mid, mid - mid2.a);
    auto fitg = [&](int n) { return cheb_mono(mid, half, n, g); };
    // worst relative error (stored: c0, c1 as double-doubles) and the worst
    // |rest| / P, rest = P - c0 - c1 t
    auto checkg = [&](const std::vector<ld> &c, bool rounded, ld *rest) {
      ld worst = 0, wr = 0;
      for (int k = 0; k <= 600; ++k) {
        ld v = mid2.a + (mid2.b - mid2.a) * (k + 0.5L) / 601, t = v - mid, sum = 0;
        for (int i = int(c.size()) - 1; i >= 0; --i) {
          ld ci = c[i];
          if (rounded) {
            if (i >= 2) ci = static_cast<ld>(double(c[i]));
            else ci = as_dd(c[i]);
          }
          sum = sum * t + ci;
        }
        ld want = g(v);
        worst = std::fmax(worst, std::fabs(sum - want) / want);
        wr = std::fmax(wr, std::fabs(sum - c[0] - c[1] * t) / want);
      }
      if (rest) *rest = wr;
      return worst;
    };
    int deg = 4;
    for (; deg < 60; ++deg)
      if (checkg(fitg(deg), false, nullptr) <= s.target) break;
    std::vector<ld> c = fitg(deg);
    ld rest = 0;
    const ld e1 = checkg(c, false, &rest), e2 = checkg(c, true, nullptr);
    std::printf("\n// degree %d, worst relative error of the fit 2^%.1Lf (2^%.1Lf with the\n"
                "// coefficients as stored); P - c0 - c1 t is at most 2^%.1Lf P\n",
                deg, std::log2(e1), std::log2(e2), std::log2(rest));
    std::printf("inline constexpr int %sMiddleDeg = %d;\n", s.name, deg);
    std::printf("// mid, the coefficients of t^0 and t^1 as double-doubles, then those of\n"
                "// t^2 .. t^%d\n", deg);
    std::printf("alignas(16) inline constexpr double %sMiddle[%d] = {\n   ", s.name, deg + 4);
    std::printf(" %a, %a, %a, %a, %a,", double(mid), double(c[0]), double(c[0] - double(c[0])),
                double(c[1]), double(c[1] - double(c[1])));
    for (int i = 2; i <= deg; ++i)
      std::printf("%s%a%s", i % 4 == 2 ? "\n    " : " ", double(c[i]), i == deg ? "" : ",");
    std::printf("};\n");
  }
  std::printf("\n}  // namespace qor::vm::vec::erfinv_coeffs\n");
}
