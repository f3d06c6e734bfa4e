/* Vector math service interface of libqor_sse42.so: the per-thread mode word,
 * error status and error callback, and the error handlers that kernels call
 * for exceptional elements. */
#ifndef QOR_PEX_H
#define QOR_PEX_H

#include <stddef.h>
#include <stdint.h>

#include "qor/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Accuracy (bits 0xF); the kernel-table slot is the accuracy minus one. */
#define PEX_LA 0x1u
#define PEX_HA 0x2u
#define PEX_EP 0x3u
#define PEX_DEFAULT_PRECISION 0x0u
#define PEX_ACCURACY_MASK 0xFu

/* Floating-point consistency request (bits 0xF0), stored only. */
#define PEX_FLOAT_CONSISTENT 0x10u
#define PEX_DOUBLE_CONSISTENT 0x20u
#define PEX_RESTORE 0x30u
#define PEX_CONSISTENCY_MASK 0xF0u

/* Error-handling mode (bits 0xFF00), a set of actions. */
#define PEX_ERRMODE_IGNORE 0x100u
#define PEX_ERRMODE_ERRNO 0x200u
#define PEX_ERRMODE_STDERR 0x400u
#define PEX_ERRMODE_EXCEPT 0x800u
#define PEX_ERRMODE_CALLBACK 0x1000u
#define PEX_ERRMODE_NOERR 0x2000u
#define PEX_ERRMODE_DEFAULT 0x1A00u
#define PEX_ERRMODE_MASK 0xFF00u

/* A two-bit field that SetMode stores. */
#define PEX_FIELD_30000_MASK 0x30000u

/* Denormal handling for kernels (bits 0x3C0000). */
#define PEX_FTZDAZ_ON 0x280000u
#define PEX_FTZDAZ_OFF 0x140000u
#define PEX_FTZDAZ_MASK 0x3C0000u

/* Traps for the exception error mode (bits 0xF000000). */
#define PEX_TRAP_INVALID 0x1000000u
#define PEX_TRAP_DIVBYZERO 0x2000000u
#define PEX_TRAP_OVERFLOW 0x4000000u
#define PEX_TRAP_UNDERFLOW 0x8000000u
#define PEX_TRAP_MASK 0xF000000u

#define PEX_MODE_DEFAULT 0x1A02u

/* Status codes. */
#define PEX_STATUS_OK 0
#define PEX_STATUS_DOMAIN 1
#define PEX_STATUS_SINGULARITY 2
#define PEX_STATUS_OVERFLOW 3
#define PEX_STATUS_UNDERFLOW 4
#define PEX_STATUS_BAD_ARG (-1)
#define PEX_STATUS_BAD_ACCESS (-2)

/* The record handed to an error callback (144 bytes, little-endian). */
typedef struct PexErrorContext {
  int32_t code;
  int32_t index;
  double arg1;
  double arg2;
  double res1;
  double res2;
  char func_name[64];
  int32_t func_name_len;
  double arg1_im;
  double arg2_im;
  double res1_im;
  double res2_im;
} PexErrorContext;

typedef int32_t (*PexErrorCallback)(PexErrorContext *context);

QOR_API uint32_t qor_pex_kernel_GetMode(void);
QOR_API uint32_t qor_pex_kernel_SetMode(uint32_t new_mode);
QOR_API uint32_t qor_pex_kernel_GetTTableIndex(void);
QOR_API uint32_t qor_pex_kernel_GetTTableIndexM(void *ignored, int32_t mode);
QOR_API int32_t qor_pex_kernel_SetErrStatus(int32_t status);
QOR_API int32_t qor_pex_kernel_GetErrStatus(void);
QOR_API int32_t qor_pex_kernel_ClearErrStatus(void);
QOR_API PexErrorCallback qor_pex_kernel_SetErrorCallBack(PexErrorCallback callback);
QOR_API PexErrorCallback qor_pex_kernel_GetErrorCallBack(void);
QOR_API PexErrorCallback qor_pex_kernel_ClearErrorCallBack(void);
QOR_API const void *qor_pex_kernel_SetInterfInputVectorPointer(const void *pointer);

QOR_API uint32_t _pexGetMode(void);
QOR_API uint32_t _pexSetMode(uint32_t new_mode);
QOR_API int32_t _pexSetErrStatus(int32_t status);
QOR_API int32_t _pexGetErrStatus(void);
QOR_API int32_t _pexClearErrStatus(void);
QOR_API PexErrorCallback _pexSetErrorCallBack(PexErrorCallback callback);
QOR_API PexErrorCallback _pexGetErrorCallBack(void);
QOR_API PexErrorCallback _pexClearErrorCallBack(void);
QOR_API const void *_pexSetInterfInputVectorPointer(const void *pointer);

QOR_API int32_t dll_cpu_version(void);

/* Error handlers.  Arguments: status code, element index, first and second
 * argument vectors (the first again for one-argument functions), first and
 * second result vectors (the first again for one-result functions), the
 * NUL-terminated function name.  The strided forms pass each vector's
 * increment, in elements, right after the vector. */
QOR_API void pex_error_s(int32_t code, int32_t index, const float *a1, const float *a2, float *r1,
                         float *r2, const char *name);
QOR_API void pex_error_d(int32_t code, int32_t index, const double *a1, const double *a2,
                         double *r1, double *r2, const char *name);
/* Complex vectors are passed as arrays of (real, imaginary) pairs. */
QOR_API void pex_error_c(int32_t code, int32_t index, const float *a1, const float *a2, float *r1,
                         float *r2, const char *name);
QOR_API void pex_error_z(int32_t code, int32_t index, const double *a1, const double *a2,
                         double *r1, double *r2, const char *name);
QOR_API void pex_error_sI(int32_t code, int32_t index, const float *a1, int32_t inc1,
                          const float *a2, int32_t inc2, float *r1, int32_t incr1, float *r2,
                          int32_t incr2, const char *name);
QOR_API void pex_error_dI(int32_t code, int32_t index, const double *a1, int32_t inc1,
                          const double *a2, int32_t inc2, double *r1, int32_t incr1, double *r2,
                          int32_t incr2, const char *name);
QOR_API void pex_error_cI(int32_t code, int32_t index, const float *a1, int32_t inc1,
                          const float *a2, int32_t inc2, float *r1, int32_t incr1, float *r2,
                          int32_t incr2, const char *name);
QOR_API void pex_error_zI(int32_t code, int32_t index, const double *a1, int32_t inc1,
                          const double *a2, int32_t inc2, double *r1, int32_t incr1, double *r2,
                          int32_t incr2, const char *name);

#ifdef __cplusplus
}
#endif

#endif
