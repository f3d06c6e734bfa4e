// Routines of registry rows whose generators are not built yet (quasi-random
// sequences, the Mersenne twisters, the counter-based and hardware
// generators).  Their rows already carry their final sizes so that streams
// and serialised layouts do not change when they arrive; until then every
// routine refuses with -1000 and touches nothing.
//
// When a generator lands in its own source file, delete its line here.
#include "rng/core/internal.h"

#define QOR_PENDING_BRNG(NAME)                                                               \
  extern "C" {                                                                              \
  QOR_API int32_t __rixBRng##NAME##InitStream(int32_t, void *, int32_t, const uint32_t *) { \
    return QOR_RNG_ERROR_INVALID_BRNG;                                                      \
  }                                                                                         \
  QOR_API int32_t __rixsBRng##NAME(void *, int32_t, float *, float, float) {                \
    return QOR_RNG_ERROR_INVALID_BRNG;                                                      \
  }                                                                                         \
  QOR_API int32_t __rixdBRng##NAME(void *, int32_t, double *, double, double) {             \
    return QOR_RNG_ERROR_INVALID_BRNG;                                                      \
  }                                                                                         \
  QOR_API int32_t __rixiBRng##NAME(void *, int32_t, void *) {                               \
    return QOR_RNG_ERROR_INVALID_BRNG;                                                      \
  }                                                                                         \
  }

QOR_PENDING_BRNG(Sobol)
QOR_PENDING_BRNG(Niederr)
QOR_PENDING_BRNG(TRNG)
QOR_PENDING_BRNG(ARS5)
QOR_PENDING_BRNG(PHILOX4X32X10)
