// The non-deterministic generator: words come from the processor's RDRAND
// instruction.  Compiled with -mrdrnd; every routine first checks that the
// processor has the instruction (-1130 otherwise).
//
// The instruction may report a transient failure (carry clear).  Each value is
// requested at most retry-limit times; when every attempt fails the routine
// stops with -1131 and keeps what it already wrote.
#include <immintrin.h>

#include <cstring>

#include "rng/brng/cbrng.h"

namespace qor::rng {
namespace {

int hw_step64(unsigned long long *v) { return _rdrand64_step(v); }
int hw_step32(unsigned int *v) { return _rdrand32_step(v); }

RdrandStep64 g_step64 = hw_step64;
RdrandStep32 g_step32 = hw_step32;

bool get64(uint32_t limit, unsigned long long &v) {
  for (uint32_t i = 0; i < limit; ++i)
    if (g_step64(&v)) return true;
  return false;
}

bool get32(uint32_t limit, unsigned int &v) {
  for (uint32_t i = 0; i < limit; ++i)
    if (g_step32(&v)) return true;
  return false;
}

// Fills r with n words; returns how many were written before a failure
// (n when all succeeded).
int fill_words(uint32_t limit, int n, uint32_t *r) {
  int i = 0;
  for (; i + 2 <= n; i += 2) {
    unsigned long long v;
    if (!get64(limit, v)) return i;
    r[i] = static_cast<uint32_t>(v);  // low half first
    r[i + 1] = static_cast<uint32_t>(v >> 32);
  }
  if (i < n) {
    unsigned int v;
    if (!get32(limit, v)) return i;
    r[i++] = v;
  }
  return i;
}

template <class T, class Scale>
int fill_scaled(uint32_t limit, int n, T *r, T a, T b, Scale scale) {
  constexpr int kChunk = 256;
  alignas(16) uint32_t words[kChunk];
  while (n > 0) {
    const int m = n < kChunk ? n : kChunk;
    const int got = fill_words(limit, m, words);
    scale(words, got, r, a, b);  // values already drawn are delivered
    if (got < m) return kStatusRdrandFailed;
    r += m;
    n -= m;
  }
  return kStatusOk;
}

}  // namespace

void rdrand_set_steps(RdrandStep64 step64, RdrandStep32 step32) {
  g_step64 = step64 ? step64 : hw_step64;
  g_step32 = step32 ? step32 : hw_step32;
}

}  // namespace qor::rng

using qor::rng::state_of;
using qor::rng::TrngState;

extern "C" {

QOR_API int32_t __rixBRngTRNGInitStream(int32_t method, void *stream, int32_t n,
                                        const uint32_t *params) {
  using namespace qor::rng;
  switch (method) {
    case 0: {
      TrngState &s = *state_of<TrngState>(stream);
      s.reserved = 0;
      // Seed word 1 is the retry limit; absent or zero means the default.
      s.retry_limit = (n >= 2 && params && params[1] != 0) ? params[1] : kTrngDefaultRetryLimit;
      return kStatusOk;
    }
    case 1:
      return kStatusNoLeapfrog;
    case 2:
      return kStatusNoSkipAhead;
    case 3:
      return kStatusNoSkipAheadEx;
    default:
      return kStatusBadMethod;
  }
}

QOR_API int32_t __rixiBRngTRNG(void *stream, int32_t n, void *out) {
  using namespace qor::rng;
  if (!cpu_has_rdrand()) return kStatusNoRdrand;
  if (n <= 0) return kStatusOk;
  const uint32_t limit = state_of<TrngState>(stream)->retry_limit;
  return fill_words(limit, n, static_cast<uint32_t *>(out)) == n ? kStatusOk : kStatusRdrandFailed;
}

QOR_API int32_t __rixsBRngTRNG(void *stream, int32_t n, float *r, float a, float b) {
  using namespace qor::rng;
  if (!cpu_has_rdrand()) return kStatusNoRdrand;
  return fill_scaled(state_of<TrngState>(stream)->retry_limit, n, r, a, b, scale_u32_to_float);
}

QOR_API int32_t __rixdBRngTRNG(void *stream, int32_t n, double *r, double a, double b) {
  using namespace qor::rng;
  if (!cpu_has_rdrand()) return kStatusNoRdrand;
  return fill_scaled(state_of<TrngState>(stream)->retry_limit, n, r, a, b, scale_u32_to_double);
}

}  // extern "C"
