// Bessel functions of the first and second kind, orders 0 and 1 (and integer
// order by recurrence), in extended precision.
//
// Method, by range of x > 0:
//  - below ~1: the ascending series (Y0, Y1 with their logarithmic terms);
//  - up to 50: Taylor expansion about the nearest tabulated centre, with the
//    coefficients generated from the Bessel differential equation
//        x^2 y'' + x y' + (x^2 - nu^2) y = 0
//    and the centre's value and derivative from the table.  Every zero below
//    50 is a centre, stored to ~107 bits, so next to a zero the expansion is
//    a sum of terms in (x - zero) and keeps full relative accuracy; between
//    centres the cancellation is at most a factor of two.
//  - above 50: Hankel's asymptotic expansion with the argument reduced
//    modulo 2 pi through the extended sine and cosine; next to a zero (value
//    below 1/16 of the envelope) it is redone in binary128 with an exact
//    reduction, which keeps the relative accuracy there.
#pragma once

#include <algorithm>
#include <cstddef>

#include "vm/kernels/elem/bessel_tables.h"
#include "vm/kernels/elem/detail.h"

namespace qor::vm::elem::detail {

template <size_t N>
inline ld bessel_taylor(const double (&tab)[N][6], int nu, ld x) {
  // nearest centre
  size_t lo = 0, hi = N;
  while (hi - lo > 1) {
    const size_t mid = (lo + hi) / 2;
    if (tab[mid][0] <= x) lo = mid;
    else hi = mid;
  }
  size_t i = lo;
  if (lo + 1 < N && std::fabs(tab[lo + 1][0] - x) < std::fabs(x - tab[lo][0])) i = lo + 1;
  const double *row = tab[i];
  const ld t = (x - static_cast<ld>(row[0])) - static_cast<ld>(row[1]);
  const ld c = static_cast<ld>(row[0]) + row[1];
  const ld c2 = c * c;
  const ld nu2 = static_cast<ld>(nu) * nu;
  ld am2 = 0, am1 = 0;                                // a_{n-2}, a_{n-1}
  ld a0 = static_cast<ld>(row[2]) + row[3];           // a_n
  ld a1 = static_cast<ld>(row[4]) + row[5];           // a_{n+1}
  ld sum = a0 + a1 * t;
  const ld scale_floor = std::fabs(a1 * t);
  ld tp = t;  // t^(n+1)
  int small = 0;
  for (int n = 0; n < 300; ++n) {
    const ld nn = n;
    const ld a2 = -(c * (nn + 1) * (2 * nn + 1) * a1 + (nn * nn + c2 - nu2) * a0 + 2 * c * am1 + am2) /
                  (c2 * (nn + 2) * (nn + 1));
    tp *= t;
    const ld term = a2 * tp;
    sum += term;
    if (std::fabs(term) <= (std::fabs(sum) + scale_floor) * 0x1p-68L) {
      if (++small == 3) break;
    } else {
      small = 0;
    }
    am2 = am1;
    am1 = a0;
    a0 = a1;
    a1 = a2;
  }
  return sum;
}

// Hankel expansion: J = s (P cos chi - Q sin chi), Y = s (P sin chi + Q cos chi),
// chi = x - (nu/2 + 1/4) pi, s = sqrt(2 / (pi x)).
inline ld bessel_hankel(int nu, ld x, bool second_kind) {
  const ld mu = 4.0L * nu * nu;
  ld P = 1, Q = 0, term = 1;
  for (int k = 1; k < 60; ++k) {
    const ld odd = 2.0L * k - 1;
    term *= (mu - odd * odd) / (k * 8.0L * x);
    const int m = k % 4;  // (-1)^(k/2) for even k, (-1)^((k-1)/2) for odd k
    const ld signed_term = (m == 0 || m == 1) ? term : -term;
    if (k & 1) Q += signed_term;
    else P += signed_term;
    if (std::fabs(term) < 0x1p-70L) break;
  }
  // x mod 2 pi to ~2^-64 absolute, through the exactly reduced sine/cosine.
  const ld r = std::atan2(std::sin(x), std::cos(x));
  const ld chi = r - (0.5L * nu + 0.25L) * kPi;
  const ld s = std::sqrt(2 / (kPi * x));
  const ld cs = std::cos(chi), sn = std::sin(chi);
  return second_kind ? s * (P * sn + Q * cs) : s * (P * cs - Q * sn);
}

// Bits of 2/pi, 64 a word, most significant first (enough for every double).
inline constexpr unsigned long long kTwoOverPiBits[19] = {
    0xa2f9836e4e441529ULL,
    0xfc2757d1f534ddc0ULL,
    0xdb6295993c439041ULL,
    0xfe5163abdebbc561ULL,
    0xb7246e3a424dd2e0ULL,
    0x06492eea09d1921cULL,
    0xfe1deb1cb129a73eULL,
    0xe88235f52ebb4484ULL,
    0xe99c7026b45f7e41ULL,
    0x3991d639835339f4ULL,
    0x9c845f8bbdf9283bULL,
    0x1ff897ffde05980fULL,
    0xef2f118b5a0a6d1fULL,
    0x6d367ecf27cb09b7ULL,
    0x4f463f669e5fea2dULL,
    0x7527bac7ebe5f17bULL,
    0x3d0739f78a5292eaULL,
    0x6bfb5fb11f8d5d08ULL,
    0x56033046fc7b6babULL

};

// x = k pi/2 + r with |r| <= pi/4, r to ~2^-112 absolute; returns k mod 4.
// Below 2^52: pi/2 in 60-bit parts (k times a part is exact in binary128).
// From 2^52 on x = m 2^e is an integer and x 2/pi mod 4 is formed exactly
// from the bits of 2/pi (Payne and Hanek's reduction) in 128-bit fixed point.
inline int reduce_quarter_turns(ld xl, Q &r) {
  const ld kP1 = 1.57079632679489661871430339346L, kP2 = 5.17018298179410557161239416938e-19L,
           kP3 = -2.75299651904407171810459257192e-37L;
  if (xl < 0x1p52L) {
    const ld k = std::nearbyint(xl / kP1);
    const Q x = xl;
    r = ((x - static_cast<Q>(k) * static_cast<Q>(kP1)) - static_cast<Q>(k) * static_cast<Q>(kP2)) -
        static_cast<Q>(k) * static_cast<Q>(kP3);
    return static_cast<int>(static_cast<long long>(k) & 3);
  }
  int ex;
  const ld frac = std::frexp(xl, &ex);                        // xl = frac 2^ex, frac in [1/2, 1)
  const auto m = static_cast<unsigned long long>(std::ldexp(frac, 64));  // 64-bit integer significand
  const int e = ex - 64;                                      // xl = m 2^e
  using U = unsigned __int128;
  U acc = 0;  // y 2^126 mod 2^128, y = x 2/pi
  for (int i = 0; i < 19; ++i) {
    const int shift = e - 64 * (i + 1) + 126;  // weight of the product's lowest bit
    if (shift >= 128) continue;
    if (shift + 128 <= 0) break;
    const U lo = static_cast<U>(m) * static_cast<unsigned long long>(kTwoOverPiBits[i]);  // m * word, 128 bits
    acc += shift >= 0 ? (lo << shift) : (lo >> (-shift));
  }
  int k = static_cast<int>(acc >> 126);
  U f = acc & ((static_cast<U>(1) << 126) - 1);
  __int128 sf = static_cast<__int128>(f);
  if (f >> 125) {  // fraction >= 1/2: round k up
    sf -= static_cast<__int128>(static_cast<U>(1) << 126);
    k += 1;
  }
  const Q pio2 = static_cast<Q>(kP1) + static_cast<Q>(kP2) + static_cast<Q>(kP3);
  r = static_cast<Q>(sf) * static_cast<Q>(0x1p-126L) * pio2;
  return k & 3;
}

// The same expansion carried out in binary128, where the phase can be had to
// ~2^-110: x is reduced exactly by quarter turns, the expansion is written as
// M cos(chi + phi) with phi = atan(Q/P), and the final angle is reduced again
// so that next to a zero the sine or cosine is of a small, accurate argument.
// Relative accuracy then holds next to the zeros as well.
inline ld bessel_hankel_q(int nu, ld xl, bool second_kind) {
  const Q x = xl;
  const Q mu = 4 * nu * nu;
  const Q inv8x = 1 / (8 * x);
  Q P = 1, Qs = 0, term = 1;
  for (int k = 1; k < 60; ++k) {
    const Q odd = 2 * k - 1;
    term = term * (mu - odd * odd) * inv8x / k;
    const int m = k % 4;
    const Q signed_term = (m == 0 || m == 1) ? term : -term;
    if (k & 1) Qs += signed_term;
    else P += signed_term;
    if (std::fabs(static_cast<ld>(term)) < 0x1p-118L) break;
  }
  // x = k pi/2 + r, |r| <= pi/4
  Q r;
  const int k = reduce_quarter_turns(xl, r);
  // phi = atan(Q/P), |Q/P| < 0.003
  const Q t = Qs / P, t2 = t * t;
  Q phi = 0, tp = t;
  for (int n = 0; n < 12; ++n) {
    phi += (n & 1 ? -tp : tp) / (2 * n + 1);
    tp *= t2;
  }
  // chi + phi = (k - nu) pi/2 + theta, theta = r - pi/4 + phi
  const Q pio4 = (static_cast<Q>(1.57079632679489661871430339346L) +
                  static_cast<Q>(5.17018298179410557161239416938e-19L) +
                  static_cast<Q>(-2.75299651904407171810459257192e-37L)) / 2;
  const Q theta = r - pio4 + phi;
  Q sn, cs;
  q_sincos(theta, sn, cs);
  const int j = (k - nu) & 3;
  Q v;
  if (!second_kind) {  // cos(j pi/2 + theta)
    v = j == 0 ? cs : j == 1 ? -sn : j == 2 ? -cs : sn;
  } else {  // sin(j pi/2 + theta)
    v = j == 0 ? sn : j == 1 ? cs : j == 2 ? -sn : -cs;
  }
  const ld M = std::sqrt(static_cast<ld>(P * P + Qs * Qs));
  return std::sqrt(2 / (kPi * xl)) * M * static_cast<ld>(v);
}

// Above the table: the extended expansion, redone in binary128 when the
// value is below 1/16 of the envelope (close to a zero, where the extended
// phase error would show; a few per cent of arguments).
inline ld bessel_hankel_near_zero(int nu, ld x, bool second_kind) {
  const ld v = bessel_hankel(nu, x, second_kind);
  if (std::fabs(v) < std::sqrt(2 / (kPi * x)) * 0.0625L)
    return bessel_hankel_q(nu, x, second_kind);
  return v;
}

// Ascending series of J0 and J1 (small x).
inline ld j0_series(ld x) {
  const ld q = 0.25L * x * x;
  ld t = 1, s = 1;
  for (int k = 1; k < 60; ++k) {
    t *= -q / (static_cast<ld>(k) * k);
    s += t;
    if (std::fabs(t) < 0x1p-70L * std::fabs(s)) break;
  }
  return s;
}
inline ld j1_series(ld x) {
  if (x == 0) return x;  // odd: keeps the sign of zero
  const ld q = 0.25L * x * x;
  ld t = 0.5L * x, s = t;
  for (int k = 1; k < 60; ++k) {
    t *= -q / (static_cast<ld>(k) * (k + 1));
    s += t;
    if (std::fabs(t) < 0x1p-70L * std::fabs(s)) break;
  }
  return s;
}

// Y0(x) = (2/pi)(ln(x/2) + gamma) J0(x) + (2/pi) sum_{k>=1} (-1)^(k+1) H_k q^k/(k!)^2
inline ld y0_series(ld x) {
  const ld q = 0.25L * x * x;
  ld t = 1, h = 0, s = 0;
  for (int k = 1; k < 60; ++k) {
    t *= -q / (static_cast<ld>(k) * k);
    h += 1.0L / k;
    const ld add = -t * h;
    s += add;
    if (std::fabs(add) < 0x1p-70L * std::fabs(s)) break;
  }
  return (2 / kPi) * ((std::log(0.5L * x) + kEuler) * j0_series(x) + s);
}

// Y1(x) = (2/pi) ln(x/2) J1(x) - 2/(pi x)
//         - (x/(2 pi)) sum_{k>=0} (-q)^k (H_k + H_{k+1} - 2 gamma) / (k! (k+1)!)
inline ld y1_series(ld x) {
  const ld q = 0.25L * x * x;
  ld t = 1, hk = 0, hk1 = 1, s = hk + hk1 - 2 * kEuler;
  for (int k = 1; k < 60; ++k) {
    t *= -q / (static_cast<ld>(k) * (k + 1));
    hk = hk1;
    hk1 += 1.0L / (k + 1);
    const ld add = t * (hk + hk1 - 2 * kEuler);
    s += add;
    if (std::fabs(add) < 0x1p-70L * std::fabs(s)) break;
  }
  return (2 / kPi) * std::log(0.5L * x) * j1_series(x) - 2 / (kPi * x) - x / (2 * kPi) * s;
}

// x >= 0 (callers apply symmetry and domain checks).
inline ld bessel_j0(ld x) {
  if (x < 1) return j0_series(x);
  if (x <= kBesselTableLimit) return bessel_taylor(kBesselJ0Centres, 0, x);
  return bessel_hankel_near_zero(0, x, false);
}
inline ld bessel_j1(ld x) {
  if (x < 1) return j1_series(x);
  if (x <= kBesselTableLimit) return bessel_taylor(kBesselJ1Centres, 1, x);
  return bessel_hankel_near_zero(1, x, false);
}
// x > 0
inline ld bessel_y0(ld x) {
  if (x < 0.6L) return y0_series(x);
  if (x <= kBesselTableLimit) return bessel_taylor(kBesselY0Centres, 0, x);
  return bessel_hankel_near_zero(0, x, true);
}
inline ld bessel_y1(ld x) {
  if (x < 0.75L) return y1_series(x);
  if (x <= kBesselTableLimit) return bessel_taylor(kBesselY1Centres, 1, x);
  return bessel_hankel_near_zero(1, x, true);
}

// J_n(x) for n >= 2, x > 0.  Below x = n: Miller's backward recurrence,
// normalised by whichever of J0, J1 is larger; above: forward recurrence
// from J0 and J1.
inline ld bessel_jn(int n, ld x) {
  if (x > n) {
    ld jm = bessel_j0(x), j = bessel_j1(x);
    for (int k = 1; k < n; ++k) {
      const ld jp = (2 * k / x) * j - jm;
      jm = j;
      j = jp;
    }
    return j;
  }
  int m = n + 30 + 2 * static_cast<int>(std::sqrt(40.0L * (n + 1)));
  m += m & 1;
  ld fp = 0, f = 0x1p-200L, fn = 0, f1 = 0;
  for (int k = m; k >= 1; --k) {
    const ld fm = (2 * k / x) * f - fp;  // f_{k-1}
    fp = f;
    f = fm;
    if (k - 1 == n) fn = f;
    if (k - 1 == 1) f1 = f;
    if (std::fabs(f) > 0x1p4000L) {  // keep inside the extended range
      f *= 0x1p-4000L;
      fp *= 0x1p-4000L;
      fn *= 0x1p-4000L;
      f1 *= 0x1p-4000L;
    }
  }
  const ld f0 = f;
  const ld j0 = bessel_j0(x), j1 = bessel_j1(x);
  return std::fabs(j0) >= std::fabs(j1) ? fn / f0 * j0 : fn / f1 * j1;
}

// Y_n(x) for n >= 2, x > 0: forward recurrence (Y_n grows with n, so it is
// stable); stops early once the value is beyond any finite double.
inline ld bessel_yn(int n, ld x) {
  ld ym = bessel_y0(x), y = bessel_y1(x);
  for (int k = 1; k < n; ++k) {
    const ld yp = (2 * k / x) * y - ym;
    ym = y;
    y = yp;
    if (std::fabs(y) > 0x1p2000L) return y;  // overflows every element type
  }
  return y;
}

}  // namespace qor::vm::elem::detail
