// Continuous distributions by transformation of uniform numbers: Uniform,
// Gaussian (three methods), Exponential, Laplace, Weibull, Cauchy, Rayleigh,
// Lognormal and Gumbel, in single and double precision.
//
// The transcendental step of every member is one whole-array call of the
// library's vector-math kernels (blocks of 1024 or the whole result array).
// Poles (ln 0, ErfInv(+-1)) are caught by this family's error callbacks,
// which replace the element with a finite value, so a uniform of exactly 0
// never turns into an infinity or a NaN.  The arithmetic around the
// transforms is written as plain elementwise loops, or for the Gaussian's
// hot steps as the SSE loops of lanes.h: each element gets the same
// operations whatever the vector width, so results do not depend on the
// split into vector body and tail.
#include <algorithm>
#include <cstdint>

#include "qor/core.h"
#include "qor/export.h"
#include "rng/dist/common.h"
#include "rng/dist/lanes.h"

namespace qor::rng::dist {

namespace {

// Draw through a registry row; a generator identifier that names no row with
// a routine is refused rather than followed.
template <class T, class G>
int32_t draw(void *stream, int32_t n, T *r, T a, T b, G GeneratorRecord::*routine) {
  if (!stream) return QOR_RNG_ERROR_NULL_PTR;
  int32_t row = 0, member = 0;
  GeneratorRecord *table =
      __rixGetBrngBaseOffset(*static_cast<const int32_t *>(stream), &row, &member);
  if (row < 0 || row >= QOR_RNG_REGISTRY_CAPACITY) return QOR_RNG_ERROR_INVALID_BRNG;
  G gen = table[row].*routine;
  if (!gen) return QOR_RNG_ERROR_INVALID_BRNG;
  // A count below 1 is passed on as an empty draw: the caller gets the
  // generator's status for it and nothing is written.
  return gen(stream, n > 0 ? n : 0, r, a, b);
}

// ---- error callbacks --------------------------------------------------------
// They replace the failed element (both result slots) and return 0 so that
// the handler writes the replacement back.

template <class T>
int32_t cb_log_any(PexErrorContext *c) {
  c->res1 = c->res2 = static_cast<double>(Prec<T>::kLnTiny);
  return 0;
}

template <class T>
int32_t cb_log_singular(PexErrorContext *c) {
  if (c->code == PEX_STATUS_SINGULARITY) c->res1 = c->res2 = static_cast<double>(Prec<T>::kLnTiny);
  return 0;
}

template <class T>
int32_t cb_gaussian(PexErrorContext *c) {
  const double bound = static_cast<double>(Prec<T>::kErfInvBound);
  const double signed_bound = c->arg1 >= 0.0 ? bound : -bound;
  if (c->code == PEX_STATUS_DOMAIN) {
    c->res1 = c->res2 = signed_bound;
  } else if (c->code == PEX_STATUS_SINGULARITY) {
    c->res1 = c->res2 = c->arg1 == 0.0 ? static_cast<double>(Prec<T>::kLnTiny) : signed_bound;
  }
  return 0;
}

// ---- members -----------------------------------------------------------------

template <class T>
int32_t uniform_member(uint32_t method, void *stream, int32_t n, T *r, T a, T b) {
  const int32_t st = uniform(stream, n, r, a, b);
  if (st < 0) return st;
  if (method & QOR_RNG_METHOD_ACCURATE)
    for (int32_t i = 0; i < n; ++i) r[i] = std::min(std::max(r[i], a), b);
  return st;
}

// x = a + sigma * x over r[0..n).
template <class T>
void scale(T *r, int32_t n, T a, T sigma) {
  lanes::affine(r, n, sigma, a);
}

// Method 0: two uniforms per variate, sin half only, no state.
template <class T>
int32_t gaussian_bm0(void *stream, int32_t n, T *r, T a, T sigma) {
  using P = Prec<T>;
  alignas(16) T u[2 * kBlock];
  alignas(16) T ang[kBlock];
  int32_t st = 0;
  if (n < 1) return uniform(stream, 0, u, T(0), T(1));
  for (int32_t done = 0; done < n;) {
    const int32_t b = std::min(n - done, kBlock);
    st = uniform(stream, 2 * b, u, T(0), T(1));
    if (st < 0) return st;
    T *out = r + done;
    // angles 2 pi u2; the u1 values compacted into the front half
    lanes::unpair(u, b, ang, P::kTwoPi);
    P::sin(b, ang, ang);
    // Out of place: the callback must see the argument (0 for ln 0), which
    // an in-place kernel would already have overwritten with its result.
    T *rad = u + kBlock;
    P::ln(b, u, rad);
    lanes::times(rad, b, T(-2.0));
    P::sqrt(b, rad, rad);
    lanes::radial(out, b, rad, ang, sigma, a);
    done += b;
  }
  return st;
}

// The pending pair of method 1, found or created in the stream's chunk 2.
int32_t pending_pair(void *stream, double **pair) {
  void *p = __rixSearchChunk(stream, QOR_RNG_CHUNK_GAUSSIAN_PAIR);
  if (!p) {
    p = qor_serv_allocate(16, 128);
    if (!p) return QOR_RNG_ERROR_MEM_FAILURE;
    static_cast<double *>(p)[0] = -1.0;
    static_cast<double *>(p)[1] = -1.0;
    const int32_t st = __rixAddChunk(stream, QOR_RNG_CHUNK_GAUSSIAN_PAIR, nullptr, p, 16);
    if (st < 0) {
      qor_serv_deallocate(p);
      return st;
    }
  }
  *pair = static_cast<double *>(p);
  return 0;
}

// Method 1: Box-Muller pairs (sin then cos), the owed cos half kept in the
// stream so that the sequence is the same whatever the call sizes.
template <class T>
int32_t gaussian_bm1(void *stream, int32_t n, T *r, T a, T sigma) {
  using P = Prec<T>;
  alignas(16) T u[kBlock];
  alignas(16) T s[kBlock / 2];
  alignas(16) T c[kBlock / 2];
  // Nothing is owed and nothing consumed for an empty request: the pending
  // half, if any, stays for the next call.
  if (n < 1) return uniform(stream, 0, u, T(0), T(1));
  double *pair = nullptr;
  int32_t st = pending_pair(stream, &pair);
  if (st < 0) return st;

  int32_t w = 0;
  if (pair[0] != -1.0) {
    u[0] = static_cast<T>(pair[0]);
    s[0] = P::kTwoPi * static_cast<T>(pair[1]);
    // SinCos rather than Cos so that this half is computed exactly as it
    // would have been inside a block.
    P::sincos(1, s, s, c);
    P::ln(1, u, u + 1);  // out of place, see the block loop
    u[1] *= T(-2.0);
    P::sqrt(1, u + 1, u + 1);
    r[0] = u[1] * c[0];
    w = 1;
    // Consumed: if a later draw fails the stream must not owe it again.
    pair[0] = pair[1] = -1.0;
  }
  const int32_t owed = n - w;
  const int32_t even = owed & ~1;
  for (int32_t done = 0; done < even;) {
    const int32_t b = std::min(even - done, kBlock);  // even, results this round
    const int32_t h = b / 2;
    st = uniform(stream, b, u, T(0), T(1));
    if (st < 0) return st;
    lanes::unpair(u, h, s, P::kTwoPi);
    P::sincos(h, s, s, c);
    // Out of place so that the error callback sees the argument of ln.
    T *rad = u + kBlock / 2;
    P::ln(h, u, rad);
    lanes::times(rad, h, T(-2.0));
    P::sqrt(h, rad, rad);
    lanes::radial_pairs(r + w + done, h, rad, s, c);
    done += b;
  }
  if (owed & 1) {
    T v[2];
    st = uniform(stream, 2, v, T(0), T(1));
    if (st < 0) return st;
    u[0] = v[0];
    s[0] = P::kTwoPi * v[1];
    P::sincos(1, s, s, c);
    P::ln(1, u, u + 1);
    u[1] *= T(-2.0);
    P::sqrt(1, u + 1, u + 1);
    r[n - 1] = u[1] * s[0];
    pair[0] = static_cast<double>(v[0]);
    pair[1] = static_cast<double>(v[1]);
  }
  scale(r, n, a, sigma);
  return st;
}

// Method 2: inverse CDF, one uniform on [-1, 1) per variate.
template <class T>
int32_t gaussian_icdf(void *stream, int32_t n, T *r, T a, T sigma) {
  const int32_t st = uniform(stream, n, r, T(-1.0), T(1.0));
  if (st < 0 || n < 1) return st;
  // In place is safe for the callback: ErfInv's result has its argument's
  // sign, which is all the callback reads for this function.
  Prec<T>::erfinv(n, r, r);
  scale(r, n, a, sigma * Prec<T>::kSqrt2);
  return st;
}

template <class T>
int32_t gaussian_member(uint32_t method, void *stream, int32_t n, T *r, T a, T sigma) {
  using Fn = int32_t (*)(void *, int32_t, T *, T, T);
  static constexpr Fn kMethods[3] = {gaussian_bm0<T>, gaussian_bm1<T>, gaussian_icdf<T>};
  // The accuracy flag is not honoured by the Gaussian; any other value
  // outside the table is refused instead of indexing past it.
  const uint32_t m = method & ~QOR_RNG_METHOD_ACCURATE;
  if (m > 2) return QOR_RNG_ERROR_BAD_METHOD;
  Frame frame(cb_gaussian<T>);
  return kMethods[m](stream, n, r, a, sigma);
}

template <class T>
int32_t exponential_member(uint32_t method, void *stream, int32_t n, T *r, T a, T beta) {
  Frame frame(cb_log_any<T>);
  const int32_t st = uniform(stream, n, r, T(0), T(1));
  if (st < 0 || n < 1) return st;
  Prec<T>::ln(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = a - beta * r[i];
  if (method & QOR_RNG_METHOD_ACCURATE)
    for (int32_t i = 0; i < n; ++i) r[i] = std::max(a, r[i]);
  return st;
}

template <class T>
int32_t laplace_member(uint32_t, void *stream, int32_t n, T *r, T a, T beta) {
  alignas(16) T u2[2 * kBlock];
  Frame frame(cb_log_any<T>);
  if (n < 1) return uniform(stream, 0, u2, T(0), T(1));
  int32_t st = 0;
  for (int32_t done = 0; done < n;) {
    const int32_t b = std::min(n - done, kBlock);
    st = uniform(stream, 2 * b, u2, T(0), T(1));
    if (st < 0) return st;
    T *out = r + done;
    for (int32_t k = 0; k < b; ++k) {
      out[k] = u2[2 * k];
      u2[k] = u2[2 * k + 1];
    }
    Prec<T>::ln(b, out, out);
    // Strictly above one half selects +beta; exactly 0.5 gives -beta.
    for (int32_t k = 0; k < b; ++k) out[k] = out[k] * (u2[k] > T(0.5) ? beta : -beta) + a;
    done += b;
  }
  return st;
}

template <class T>
int32_t weibull_member(uint32_t method, void *stream, int32_t n, T *r, T alpha, T a, T beta) {
  Frame frame(cb_log_singular<T>);
  const int32_t st = uniform(stream, n, r, T(0), T(1));
  if (st < 0 || n < 1) return st;
  Prec<T>::ln(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = -r[i];
  if (alpha != T(1.0)) Prec<T>::powx(n, r, T(1.0) / alpha, r);
  for (int32_t i = 0; i < n; ++i) r[i] = a + beta * r[i];
  if (method & QOR_RNG_METHOD_ACCURATE)
    for (int32_t i = 0; i < n; ++i) r[i] = std::max(a, r[i]);
  return st;
}

// No frame of its own: tan of a uniform on [-pi/2, pi/2) has no pole inside
// the range, so only the per-call bracket applies.
template <class T>
int32_t cauchy_member(uint32_t, void *stream, int32_t n, T *r, T a, T beta) {
  const int32_t st = uniform(stream, n, r, -Prec<T>::kHalfPi, Prec<T>::kHalfPi);
  if (st < 0 || n < 1) return st;
  Prec<T>::tan(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = a + beta * r[i];
  return st;
}

template <class T>
int32_t rayleigh_member(uint32_t method, void *stream, int32_t n, T *r, T a, T beta) {
  Frame frame(cb_log_singular<T>);
  const int32_t st = uniform(stream, n, r, T(0), T(1));
  if (st < 0 || n < 1) return st;
  Prec<T>::ln(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = -r[i];
  Prec<T>::sqrt(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = a + beta * r[i];
  if (method & QOR_RNG_METHOD_ACCURATE)
    for (int32_t i = 0; i < n; ++i) r[i] = std::max(a, r[i]);
  return st;
}

// Relies on the frame of its inner Gaussian call; the Exp call itself is only
// bracketed.
template <class T>
int32_t lognormal_member(uint32_t method, void *stream, int32_t n, T *r, T a, T sigma, T b,
                         T beta) {
  const uint32_t gm = method == 0 ? QOR_RNG_GAUSSIAN_BOXMULLER2 : QOR_RNG_GAUSSIAN_ICDF;
  const int32_t st = gaussian_member<T>(gm, stream, n, r, a, sigma);
  if (st < 0 || n < 1) return st;
  Prec<T>::exp(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = b + beta * r[i];
  if (method & QOR_RNG_METHOD_ACCURATE)
    for (int32_t i = 0; i < n; ++i) r[i] = std::max(b, r[i]);
  return st;
}

template <class T>
int32_t gumbel_member(uint32_t, void *stream, int32_t n, T *r, T a, T beta) {
  Frame frame(cb_log_any<T>);
  const int32_t st = exponential_member<T>(0, stream, n, r, T(0), T(1));
  if (st < 0 || n < 1) return st;
  Prec<T>::ln(n, r, r);
  for (int32_t i = 0; i < n; ++i) r[i] = a + beta * r[i];
  return st;
}

}  // namespace

int32_t uniform(void *stream, int32_t n, double *r, double a, double b) {
  return draw(stream, n, r, a, b, &GeneratorRecord::generateD);
}
int32_t uniform(void *stream, int32_t n, float *r, float a, float b) {
  return draw(stream, n, r, a, b, &GeneratorRecord::generateS);
}

}  // namespace qor::rng::dist

using namespace qor::rng::dist;

extern "C" {

#define QOR_DIST_ENTRY2(NAME, impl)                                                              \
  QOR_API int32_t _rixsRng##NAME(uint32_t method, void *stream, int32_t n, float *r, float p1,   \
                                 float p2) {                                                     \
    return impl<float>(method, stream, n, r, p1, p2);                                            \
  }                                                                                              \
  QOR_API int32_t _rixdRng##NAME(uint32_t method, void *stream, int32_t n, double *r, double p1, \
                                 double p2) {                                                    \
    return impl<double>(method, stream, n, r, p1, p2);                                           \
  }

QOR_DIST_ENTRY2(Uniform, uniform_member)
QOR_DIST_ENTRY2(Gaussian, gaussian_member)
QOR_DIST_ENTRY2(Exponential, exponential_member)
QOR_DIST_ENTRY2(Laplace, laplace_member)
QOR_DIST_ENTRY2(Cauchy, cauchy_member)
QOR_DIST_ENTRY2(Rayleigh, rayleigh_member)
QOR_DIST_ENTRY2(Gumbel, gumbel_member)
#undef QOR_DIST_ENTRY2

QOR_API int32_t _rixsRngWeibull(uint32_t method, void *stream, int32_t n, float *r, float alpha,
                                float a, float beta) {
  return weibull_member<float>(method, stream, n, r, alpha, a, beta);
}
QOR_API int32_t _rixdRngWeibull(uint32_t method, void *stream, int32_t n, double *r, double alpha,
                                double a, double beta) {
  return weibull_member<double>(method, stream, n, r, alpha, a, beta);
}
QOR_API int32_t _rixsRngLognormal(uint32_t method, void *stream, int32_t n, float *r, float a,
                                  float sigma, float b, float beta) {
  return lognormal_member<float>(method, stream, n, r, a, sigma, b, beta);
}
QOR_API int32_t _rixdRngLognormal(uint32_t method, void *stream, int32_t n, double *r, double a,
                                  double sigma, double b, double beta) {
  return lognormal_member<double>(method, stream, n, r, a, sigma, b, beta);
}

}  // extern "C"
