/* Vector math kernel interface of libqor_sse42.so.
 *
 * Every function has a kernel table `qor_pex_kernel_<t><Func>[I]_ttab` (three
 * code pointers: LA, HA, EP) with its cost table `_ctab` (three floats, clocks
 * per element, then 12 zero bytes) directly behind it, and four exported entry
 * names that jump through one slot:
 *
 *   _pex<t><Func>[I]        slot 1 (HA)   same address as the _HA name
 *   _pex<t><Func>[I]_HA     slot 1 (HA)
 *   _pex<t><Func>[I]_21     slot 0 (LA)   `s`, `c`   (_50 for `d`, `z`)
 *   _pex<t><Func>[I]_11     slot 2 (EP)   `s`, `c`   (_26 for `d`, `z`)
 *
 * Kernels return nothing; exceptional elements go to the thread's error
 * handler (qor/pex.h).  Counts and increments are signed 32-bit and a count
 * of 0 or less does nothing.  Complex vectors are (real, imaginary) pairs.
 *
 * Argument shapes (contiguous form / strided `I` form), T the element type:
 *
 *   one argument, one result   (n, a, r)            / (n, a, inca, r, incr)
 *   two arguments              (n, a, b, r)         / (n, a, inca, b, incb, r, incr)
 *   vector and scalar (Powx)   (n, a, b, r)         / (n, a, inca, b, r, incr)
 *       b is the scalar by value; for `z` it is the address of the scalar.
 *   two results (SinCos, Modf, SinCospi)
 *                              (n, a, r1, r2)       / (n, a, inca, r1, incr1, r2, incr2)
 *   LinearFrac                 (n, a, b, scalea, shifta, scaleb, shiftb, r)
 *                            / (n, a, inca, b, incb, scalea, shifta, scaleb, shiftb, r, incr)
 *   Jn, Yn (integer order)     (n, a, order, r)     / (n, a, inca, order, r, incr)
 *       The order is a signed 32-bit integer placed where Powx has its
 *       scalar: r[i] = Jn(order, a[i]).
 *   PackI / UnpackI            (n, a, inca, y)      / (n, a, y, incy)
 *   PackV / UnpackV            (n, a, ia, y)        / (n, a, y, iy)
 *   PackM / UnpackM            (n, a, ma, y)        / (n, a, y, my)
 *       The Pack and Unpack kernels take a fifth argument, the integer width
 *       selector: 1 means 32-bit count, increment and indices (what every
 *       entry point passes); any other value means 64-bit count, increment
 *       and indices.  Masks are 32-bit in both cases.
 *   complex Abs, Arg: complex argument, real result; CIS: real argument,
 *   complex result.
 */
#ifndef QOR_VM_H
#define QOR_VM_H

#include <stdint.h>

#include "qor/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Single-precision complex scalar as the `c` Powx kernels receive it (by
 * value, in one SSE register). */
typedef struct QorComplex8 {
  float re;
  float im;
} QorComplex8;

typedef struct QorComplex16 {
  double re;
  double im;
} QorComplex16;

/* One kernel table with its cost table behind it: 48 bytes. */
typedef struct QorPexKernelTable {
  const void *kernel[3]; /* LA, HA, EP */
  float cost[3];         /* clocks per element, same order */
  uint8_t zero[12];
} QorPexKernelTable;

/* Slot indices. */
#define QOR_PEX_SLOT_LA 0
#define QOR_PEX_SLOT_HA 1
#define QOR_PEX_SLOT_EP 2

/* Cost value recorded for a kernel whose speed has not been measured yet. */
#define QOR_PEX_COST_UNMEASURED 9999.0f

/* A few kernel signatures, for callers that go through a table slot. */
typedef void (*QorPexKernel_s_v_v)(int32_t n, const float *a, float *r);
typedef void (*QorPexKernel_d_v_v)(int32_t n, const double *a, double *r);
typedef void (*QorPexKernel_s_vv_v)(int32_t n, const float *a, const float *b, float *r);
typedef void (*QorPexKernel_d_vv_v)(int32_t n, const double *a, const double *b, double *r);
typedef void (*QorPexKernel_sI_v_v)(int32_t n, const float *a, int32_t inca, float *r,
                                    int32_t incr);
typedef void (*QorPexKernel_dI_v_v)(int32_t n, const double *a, int32_t inca, double *r,
                                    int32_t incr);

#ifdef __cplusplus
}
#endif

#endif
