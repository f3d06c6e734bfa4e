// Entry points of the twisted generators (MT19937, the MT2203 set, SFMT19937)
// as the registry rows call them, plus the internal pieces that their tests
// and benchmarks reach directly.
#ifndef QOR_RNG_BRNG_TWISTERS_H
#define QOR_RNG_BRNG_TWISTERS_H

#include <cstdint>

#include "qor/export.h"

#define QOR_TWISTER_DECLARE(NAME)                                                            \
  QOR_API int32_t __rixBRng##NAME##InitStream(int32_t method, void *stream, int32_t n,      \
                                              const uint32_t *params);                      \
  QOR_API int32_t __rixsBRng##NAME(void *stream, int32_t n, float *r, float a, float b);    \
  QOR_API int32_t __rixdBRng##NAME(void *stream, int32_t n, double *r, double a, double b); \
  QOR_API int32_t __rixiBRng##NAME(void *stream, int32_t n, void *r);

extern "C" {
QOR_TWISTER_DECLARE(MT19937)
QOR_TWISTER_DECLARE(MT2203)
QOR_TWISTER_DECLARE(SFMT19937)
}

#undef QOR_TWISTER_DECLARE

namespace qor::rng::twister {

// Stream block sizes (header included) and state layouts.
constexpr int kMt19937StateSize = 2520;
constexpr int kMt2203StateSize = 312;
constexpr int kSfmtStateSize = 2536;
constexpr int kMt2203Members = 6024;

struct Mt19937State {
  uint32_t x[624];
  uint32_t pos;  // words of x already delivered; 624 = block used up
};

struct Mt2203State {
  uint32_t x[69];
  uint32_t pos;
  uint32_t a, b, c;  // member parameters: twisting word, tempering masks
};

struct alignas(16) SfmtState {
  uint32_t x[624];  // 156 groups of 128 bits
  uint64_t pos;     // words delivered since seeding
};

// The MT2203 parameter rows {a, b, c}, indexed by member.
extern const uint32_t kMt2203Params[kMt2203Members][3];

}  // namespace qor::rng::twister

#endif
