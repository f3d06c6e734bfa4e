/* Data fitting: interpolation and integration of the piecewise polynomials
 * that the constructors (qor/fit_construct.h) write into a task's coefficient
 * arrays.
 *
 * Both entry points read the task's partition (nx, x, x hint), its spline
 * order and type, its internal conditions (the knots of a quadratic spline of
 * type 1) and its coefficient pointer table; they never change the task.
 *
 * Pieces.  A spline of order k (1 to 4) holds k coefficients per cell in the
 * local variable u = t - x[i]; cell i runs from x[i] to x[i+1].  The quadratic
 * spline of type 1 (order 3, internal condition bit QOR_DF_IC_KNOTS) has nx
 * pieces split at the nx - 1 knots of the internal conditions instead; piece
 * j holds x[j] and its local variable is t - x[j].  On a uniform partition (x
 * hint 4) breakpoint i is x[0] + i (x[nx-1] - x[0]) / (nx - 1).
 *
 * Which piece a site uses.  The cell search of qor/fit.h gives the site's cell
 * index c (0 below x[0], nx above x[nx-1]); the site is evaluated with cell
 * max(c - 1, 0) capped at nx - 2.  Hence:
 *   - a site on an inner breakpoint x[i] uses cell i (the cell it opens); by
 *     continuity the value is y_i, derivatives of an order above the spline's
 *     smoothness are those of the cell to the right;
 *   - x[nx-1] uses the last cell;
 *   - extrapolation: a site below x[0] or above x[nx-1] continues the
 *     polynomial of the first or the last cell (unless the caller supplies an
 *     extrapolation function, below);
 *   - a NaN site gives NaN values and derivatives (cell index 0).
 * For the knotted quadratic, a site equal to a knot uses the piece to its
 * right, a site below the first knot piece 0, above the last piece nx - 1.
 *
 * ---- interpolation -------------------------------------------------------
 *
 * qor_df_kernel_{s,d}DFInterpolate1D(task, type, nsite, site, site_hint,
 *     ndorder, dorder, data_hint, r, r_hint, cell,
 *     efn, euser, sfn, su1, su2, sflags)
 *   type       QOR_DF_INTERP (values/derivatives), QOR_DF_CELL (cell indices)
 *              or both; anything else: -1018
 *   nsite      number of sites (negative: -1021; 0: nothing done)
 *   site       the sites (null: -1022)
 *   site_hint  QOR_DF_SITES_NO_INFO or QOR_DF_SITES_SORTED (ascending), else
 *              -1023; it only steers the choice of search method
 *   ndorder    length of dorder, 1 to 4 (else -1024); read with QOR_DF_INTERP
 *   dorder     dorder[k] nonzero asks for the k-th derivative (0: value), k
 *              below ndorder; null asks for values only.  An array asking for
 *              nothing: -1025.  Derivatives above the spline's degree are 0.
 *   data_hint  as for qor_df_kernel_{s,d}DFSearch1D ({QOR_DF_DATA_PEAK, cell}
 *              or null)
 *   r          results (null with QOR_DF_INTERP: -1027).  With nd requested
 *              derivative orders in ascending order (slot 0 the lowest),
 *              function j (0 to ny-1) and site i:
 *                QOR_DF_MATRIX_STORAGE_ROWS (or 0):  r[(j nsite + i) nd + slot]
 *                QOR_DF_MATRIX_STORAGE_COLS:         r[(j nd + slot) nsite + i]
 *              other hints: -1028.  r holds ny * nsite * nd elements.
 *   cell       cell indices of the sites (table of qor/fit.h), int64_t when
 *              the task's int64_results flag is set, else int32_t (null with
 *              QOR_DF_CELL: -1029)
 *   efn, euser optional extrapolation: for every site outside [x[0],
 *              x[nx-1]] (not NaN) and every function j the kernel calls
 *              efn(j, site, cell, d, euser) with d[0..3] to be filled with
 *              the value and derivatives 1 to 3 there; a negative result is
 *              returned at once (results of earlier sites stay written).
 *   sfn, su1, su2, sflags
 *              optional search function, as for the user-defined search
 *              methods of qor/fit.h; it is called once per block of at most
 *              QOR_DF_INTERP_BLOCK sites, with the flags of that block
 *              (sflags + block start, or null).  Its negative result is
 *              returned at once.
 * Checks, in order: task null -1000; a record whose live mark is not 1: 0,
 * nothing done; task of the other precision -1002; type -1018; nsite -1021;
 * site -1022; site hint -1023; then with QOR_DF_INTERP ndorder -1024, dorder
 * -1025, r -1027, r_hint -1028; with QOR_DF_CELL cell -1029; then the spline:
 * order outside 1 to 4 -1010; knotted quadratic without knots -1013; no
 * function (ny < 1) or no coefficient table -1016; fewer coefficient slots
 * than ny -1007; a coefficient slot never set -1016; ny * nsite * nd beyond
 * 2^62: -1021.  Nothing is written before these checks pass.
 *
 * ---- integration ---------------------------------------------------------
 *
 * qor_df_kernel_{s,d}DFIntegrate1D(task, nlim, llim, llim_hint, rlim,
 *     rlim_hint, r, r_hint, sfn, su1, su2)
 *   nlim       number of intervals (negative: -1030; 0: nothing done)
 *   llim, rlim left and right limits of interval i: llim[i], rlim[i] (null:
 *              -1031 / -1032).  rlim[i] < llim[i] gives the negated integral
 *              over [rlim[i], llim[i]]; limits outside the partition
 *              integrate the end cells' polynomials continued (the same rule
 *              as interpolation); a NaN limit gives NaN.
 *   llim_hint, rlim_hint
 *              QOR_DF_SITES_NO_INFO or QOR_DF_SITES_SORTED (else -1033)
 *   r          integrals (null: -1034): QOR_DF_MATRIX_STORAGE_ROWS (or 0)
 *              r[j nlim + i]; QOR_DF_MATRIX_STORAGE_COLS r[i ny + j]; other
 *              hints -1035.  r holds ny * nlim elements.
 *   sfn, su1, su2
 *              optional search function (no flags: every guess is settled)
 * Checks in order: task -1000 / live mark / precision -1002; nlim -1030; llim
 * -1031; rlim -1032; hints -1033; r -1034; r_hint -1035; then the spline
 * checks of interpolation (-1010, -1013, -1016, -1007, and -1030 when
 * ny * nlim exceeds 2^62).  Scratch allocation failure: -1001.
 * An interval spanning few cells is summed cell by cell; a long one uses the
 * function's running integral from x[0] (accumulated in double precision),
 * built once per call and function when first needed.
 */
#ifndef QOR_FIT_INTERP_H
#define QOR_FIT_INTERP_H

#include <stdint.h>

#include "qor/export.h"
#include "qor/fit.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QOR_DF_ERROR_BAD_COMPUTATION_TYPE (-1018)
#define QOR_DF_ERROR_BAD_NSITE (-1021)
#define QOR_DF_ERROR_NULL_SITE (-1022)
#define QOR_DF_ERROR_BAD_SITE_HINT (-1023)
#define QOR_DF_ERROR_BAD_NDORDER (-1024)
#define QOR_DF_ERROR_BAD_DORDER (-1025)
#define QOR_DF_ERROR_NULL_INTERP_RESULT (-1027)
#define QOR_DF_ERROR_BAD_INTERP_RESULT_HINT (-1028)
#define QOR_DF_ERROR_NULL_CELL (-1029)
#define QOR_DF_ERROR_BAD_NLIM (-1030)
#define QOR_DF_ERROR_NULL_LLIM (-1031)
#define QOR_DF_ERROR_NULL_RLIM (-1032)
#define QOR_DF_ERROR_BAD_LIM_HINT (-1033)
#define QOR_DF_ERROR_NULL_INTEGR_RESULT (-1034)
#define QOR_DF_ERROR_BAD_INTEGR_RESULT_HINT (-1035)

/* computation type */
#define QOR_DF_INTERP 1
#define QOR_DF_CELL 2

/* result layouts */
#define QOR_DF_MATRIX_STORAGE_ROWS 16
#define QOR_DF_MATRIX_STORAGE_COLS 32

/* sites per search call */
#define QOR_DF_INTERP_BLOCK 256

typedef int32_t (*qor_df_sextrap_fn)(int64_t func, float site, int64_t cell, float *d,
                                     void *user);
typedef int32_t (*qor_df_dextrap_fn)(int64_t func, double site, int64_t cell, double *d,
                                     void *user);

QOR_API int32_t qor_df_kernel_sDFInterpolate1D(
    const qor_df_task_t *task, int64_t type, int64_t nsite, const float *site, int64_t site_hint,
    int64_t ndorder, const int64_t *dorder, const float *data_hint, float *r, int64_t r_hint,
    void *cell, qor_df_sextrap_fn efn, void *euser, qor_df_ssearch_fn sfn, void *su1, void *su2,
    int32_t *sflags);
QOR_API int32_t qor_df_kernel_dDFInterpolate1D(
    const qor_df_task_t *task, int64_t type, int64_t nsite, const double *site, int64_t site_hint,
    int64_t ndorder, const int64_t *dorder, const double *data_hint, double *r, int64_t r_hint,
    void *cell, qor_df_dextrap_fn efn, void *euser, qor_df_dsearch_fn sfn, void *su1, void *su2,
    int32_t *sflags);

QOR_API int32_t qor_df_kernel_sDFIntegrate1D(const qor_df_task_t *task, int64_t nlim,
                                             const float *llim, int64_t llim_hint,
                                             const float *rlim, int64_t rlim_hint, float *r,
                                             int64_t r_hint, qor_df_ssearch_fn sfn, void *su1,
                                             void *su2);
QOR_API int32_t qor_df_kernel_dDFIntegrate1D(const qor_df_task_t *task, int64_t nlim,
                                             const double *llim, int64_t llim_hint,
                                             const double *rlim, int64_t rlim_hint, double *r,
                                             int64_t r_hint, qor_df_dsearch_fn sfn, void *su1,
                                             void *su2);

#ifdef __cplusplus
}
#endif

#endif
