/* Tridiagonal solvers of the companion core library (libqor_core.so), used by
 * data fitting to build cubic splines.
 *
 * The matrix of order n is given by three arrays:
 *   dl[0..n-2]  sub-diagonal,   A(i+1, i) = dl[i]
 *   d [0..n-1]  diagonal,       A(i, i)   = d[i]
 *   du[0..n-2]  super-diagonal, A(i, i+1) = du[i]
 *
 * The factorisation A = L U is Gaussian elimination without row interchanges,
 * which is stable for diagonally dominant (and for symmetric positive
 * definite) matrices; it is the caller's business to pass such a matrix.
 * L is unit lower bidiagonal, U upper bidiagonal with super-diagonal du;
 * the factor is kept as L, D = diag(U) and the unit upper factor D^-1 U.
 *
 * Below order 32 the elimination runs from the first row down; from order 32
 * on it runs from both ends towards row k = n/2 (a twisted factorisation),
 * which lets the processor overlap the two elimination chains in the
 * factorisation and in every solve.  The factor is only meant for
 * {s,d}dttrsb_4dfl; its layout, for the record:
 *
 * Rows i < k (every row below order 32):
 *   dl[i]  the multiplier L(i+1, i)
 *   d[i]   the RECIPROCAL of the pivot U(i, i): the solve multiplies instead
 *          of dividing (it runs once per right-hand side, the factorisation
 *          only once)
 *   du[i]  U(i, i+1) / U(i, i): the upper factor scaled to a unit diagonal,
 *          so that the back substitution is one multiply-subtract per row
 * Rows i > k, the mirror image (r_i the pivots of the upward elimination):
 *   d[i] = 1 / r_i,  du[i] = A(i, i+1) / r_{i+1},  dl[i-1] = A(i, i-1) / r_i
 * Row k: dl[k-1] = A(k, k-1) / p_{k-1}, du[k] = A(k, k+1) / r_{k+1},
 *   d[k] = 1 / (A(k, k) - dl[k-1] A(k-1, k) - du[k] A(k+1, k)).
 *
 * Status (returned; LAPACK's INFO convention):
 *   0   success
 *   -k  argument k is invalid (n negative, or a required array null)
 *   k>0 the pivot of row k (counted from 1), in whichever direction that row
 *       was eliminated, is exactly zero or not finite; the factor is
 *       incomplete and must not be used.
 * n = 0 is a quick return with status 0.  The solve takes one right-hand side
 * b of length n, without transposition, and overwrites it with the solution.
 */
#ifndef QOR_TRIDIAG_H
#define QOR_TRIDIAG_H

#include <stdint.h>

#include "qor/core.h"

#ifdef __cplusplus
extern "C" {
#endif

QOR_CORE_API int sdttrfb_4dfl(int64_t n, float *dl, float *d, float *du);
QOR_CORE_API int ddttrfb_4dfl(int64_t n, double *dl, double *d, double *du);

QOR_CORE_API int sdttrsb_4dfl(int64_t n, const float *dl, const float *d, const float *du,
                              float *b);
QOR_CORE_API int ddttrsb_4dfl(int64_t n, const double *dl, const double *d, const double *du,
                              double *b);

QOR_CORE_API int sdtsvb_4dfl(int64_t n, float *dl, float *d, float *du, float *b);
QOR_CORE_API int ddtsvb_4dfl(int64_t n, double *dl, double *d, double *du, double *b);

#ifdef __cplusplus
}
#endif

#endif
