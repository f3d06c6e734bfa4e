/* Data fitting: spline construction over a task (see qor/fit.h for the task).
 *
 * Every constructor has the same argument list:
 *   task      a task of the entry point's precision (null: -1000; the other
 *             precision: -1002; a record whose live mark is not 1: 0 and
 *             nothing done)
 *   threader  the caller's parallel-for, called once as
 *             threader(ny, threads, context, routine) after the work shared by
 *             all functions (cell widths, the factorisation of the cubic slope
 *             system); routine handles one function.  Null runs the functions
 *             serially on the calling thread.
 *   reserved  must be null for the linear and natural cubic constructors
 *             (else -1002); ignored by the others
 *   threads   number of workers the parallel-for may use (below 1: 1); the
 *             constructor allocates scratch for that many.
 *
 * Spline orders and coefficient layouts, cell i from x[i] to x[i+1], local
 * variable u = t - x[i]:
 *   linear      order 2: y_i, d_i                  (d_i the cell's divided difference)
 *   quadratic   order 3: y_i, s_i, c2_i
 *   cubic       order 4: y_i, s_i, c2_i, c3_i      (s_i the slope at x[i])
 * The task's spline order must be that order (else -1010): it fixes the
 * stride between functions in the coefficient storage.
 *
 * Function values: with the y hint QOR_DF_STORAGE_SINGLE (32) the single array
 * holds the functions interleaved, value i of function j at y[i*ny + j]; with
 * the other hints function j's values are contiguous.
 *
 * Boundary condition types (bc[0] refers to the left end, bc[1] to the right):
 *   1   not-a-knot (third derivative continuous at x[1] and x[nx-2])
 *   2   natural cubic, Akima, Bessel, Hyman, Hermite: free end (second
 *       derivative 0 at both ends); default cubic: parabolic run-out (third
 *       derivative 0 in both end cells)
 *   12  first derivatives bc[0], bc[1]
 *   36  first derivative bc[0] at the left end, second derivative bc[1] at the
 *       right end
 *   24  second derivative bc[0] at the left end, first derivative bc[1] at the
 *       right end
 *   48  second derivatives bc[0], bc[1]
 *   64  periodic: the first derivative closes over the period (and the second
 *       too for the natural and default cubics); the array is required when
 *       the spline type is 0 or 3 but not read
 *   0   Akima only: Akima's own end rule (divided differences extrapolated
 *       linearly past both ends)
 *
 * Constructors and their checks, in order (after the task checks above):
 *   Linear         nx < 2: -1004; reserved not null: -1002; y hint: -1009
 *   Quadratic      spline type 0: boundary type must be 128 (-1014) with a
 *                  non-null array (-1015), bc[0] being the slope at x[0]; each
 *                  cell's parabola then starts with the slope the previous one
 *                  ended with (a C1 quadratic spline).
 *                  spline type 1: internal condition type must have bit 3
 *                  (QOR_DF_IC_KNOTS) set (-1012); the internal conditions are
 *                  nx - 1 knots, knot j strictly inside (x[j], x[j+1]).  The
 *                  spline has nx pieces split at the knots, piece j holding
 *                  x[j] and stored as [y_j, s_j, c2_j] in u = t - x[j] (so the
 *                  coefficient stride is 3 nx); it interpolates and is C1 at
 *                  the knots.  Boundary types 1, 2, 12, 36, 24, 48, 64 as for
 *                  the cubics (not-a-knot: the second derivative is continuous
 *                  across the first and last knots; periodic: first and
 *                  second derivatives close over the period; both need
 *                  nx >= 3, else -1004).  Null knots: -1013; a knot outside
 *                  its cell: -1012.
 *                  Any other spline type: -1002.  Then the y hint (-1009).
 *   NaturalCubic   nx < 2, or nx == 2 with boundary type 1: -1004; reserved
 *                  not null: -1002; y hint: -1009
 *   DefaultCubic   nx < 3: -1004; y hint: -1009
 *   HermiteCubic   nx < 3: -1004; boundary type outside 1..64: -1014; y hint:
 *                  -1009; then internal condition type must be 1 (-1012) with
 *                  a non-null array (-1013): function j's slopes at x[1] ..
 *                  x[nx-2] at ic[j*(nx-2) + i - 1]
 *   BesselCubic    nx < 4: -1004; boundary type outside 1..64: -1014; y hint: -1009
 *   HymanCubic     nx < 4: -1004; boundary type outside 1..64: -1014; y hint: -1009
 *   AkimaCubic     nx < 5: -1004; y hint: -1009
 * then, for every constructor that takes boundary conditions: a type outside
 * the list above: -1014; an array required but null: -1015; then the spline
 * order (-1010); no function values (-1008) or a function slot never set
 * (-1008); no coefficient array (-1016) or a coefficient slot never set
 * (-1016); fewer pointer slots than ny: -1007.  All of these return before a
 * coefficient is written.  Scratch allocation failure: -1001.  The cubic
 * slope system's factorisation or solve failing: -1500.
 *
 * The slopes of the local methods:
 *   Akima    Akima (1970): weighted mean of the adjacent cells' divided
 *            differences, weights |d_{i+1} - d_i| and |d_{i-1} - d_{i-2}|
 *   Bessel   slope of the parabola through the node and its two neighbours
 *   Hyman    Bessel's slopes passed through Hyman's (1983) monotonicity
 *            filter: monotone data give a monotone spline
 *   Hermite  the caller's slopes (internal conditions)
 * Their end slopes follow the boundary type; natural and default cubics are
 * C2 and solve the tridiagonal slope system.
 */
#ifndef QOR_FIT_CONSTRUCT_H
#define QOR_FIT_CONSTRUCT_H

#include <stdint.h>

#include "qor/core.h"
#include "qor/export.h"
#include "qor/fit.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QOR_DF_ERROR_TRIDIAG_SOLVE (-1500)

#define QOR_DF_BC_NOT_A_KNOT 1
#define QOR_DF_BC_FREE_END 2
#define QOR_DF_BC_1ST_LEFT_DER 4
#define QOR_DF_BC_1ST_RIGHT_DER 8
#define QOR_DF_BC_2ND_LEFT_DER 16
#define QOR_DF_BC_2ND_RIGHT_DER 32
#define QOR_DF_BC_PERIODIC 64
#define QOR_DF_BC_QUADRATIC_LEFT_SLOPE 128

#define QOR_DF_IC_1ST_DER 1
#define QOR_DF_IC_KNOTS 8

typedef void (*qor_df_threader_fn)(int64_t count, int threads, void *context,
                                   qor_threader_routine routine);

#define QOR_DF_CONSTRUCT_DECL(P, K)                                                     \
  QOR_API int32_t qor_df_kernel_##P##DF##K##Spline1D(qor_df_task_t *task,              \
                                                     qor_df_threader_fn threader,      \
                                                     const void *reserved, int32_t threads);

#define QOR_DF_CONSTRUCT_ALL_DECL(P)     \
  QOR_DF_CONSTRUCT_DECL(P, Linear)       \
  QOR_DF_CONSTRUCT_DECL(P, Quadratic)    \
  QOR_DF_CONSTRUCT_DECL(P, NaturalCubic) \
  QOR_DF_CONSTRUCT_DECL(P, DefaultCubic) \
  QOR_DF_CONSTRUCT_DECL(P, HermiteCubic) \
  QOR_DF_CONSTRUCT_DECL(P, BesselCubic)  \
  QOR_DF_CONSTRUCT_DECL(P, HymanCubic)   \
  QOR_DF_CONSTRUCT_DECL(P, AkimaCubic)

QOR_DF_CONSTRUCT_ALL_DECL(s)
QOR_DF_CONSTRUCT_ALL_DECL(d)

#undef QOR_DF_CONSTRUCT_ALL_DECL
#undef QOR_DF_CONSTRUCT_DECL

#ifdef __cplusplus
}
#endif

#endif
