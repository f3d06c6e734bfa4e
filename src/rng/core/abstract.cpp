// Abstract streams: a caller's circular buffer of ready-made numbers with a
// refill routine, instead of an algorithm.
#include <cstddef>

#include "rng/core/internal.h"

using namespace qor::rng;

namespace {

struct CursorFields {
  uint32_t n;         // buffer length
  uint32_t next;      // index of the next unused value
  uint32_t consumed;  // slots that are used up and may be refilled
};

struct IAbstractState {
  CursorFields cur;
  uint32_t pad;
  uint32_t *buffer;
  QorRngIUpdate refill;
};
struct DAbstractState {
  CursorFields cur;
  uint32_t pad;
  double a, b;
  double *buffer;
  QorRngDUpdate refill;
};
struct SAbstractState {
  CursorFields cur;
  float a, b;
  uint32_t pad;
  float *buffer;
  QorRngSUpdate refill;
};
static_assert(sizeof(IAbstractState) + 16 == 48);
static_assert(sizeof(DAbstractState) + 16 == 64);
static_assert(sizeof(SAbstractState) + 16 == 56);

// Copies n values out of the circular buffer, refilling as often as needed;
// emit(dst_index, buffer_value) stores one value.
template <class T, class Refill, class Emit>
int32_t take(void *stream, CursorFields &cur, T *buffer, Refill refill, int32_t n, Emit emit) {
  if (n <= 0) return QOR_RNG_OK;
  if (!buffer || !refill || cur.n == 0) return QOR_RNG_ERROR_NULL_PTR;
  const uint32_t N = cur.n;
  int32_t done = 0;
  for (;;) {
    const uint32_t avail = cur.consumed <= N ? N - cur.consumed : 0;
    const uint32_t need = static_cast<uint32_t>(n - done);
    const uint32_t t = avail < need ? avail : need;
    uint32_t j = cur.next % N;
    for (uint32_t i = 0; i < t; ++i) {
      emit(done + static_cast<int32_t>(i), buffer[j]);
      if (++j == N) j = 0;
    }
    cur.next = j;
    cur.consumed += t;
    done += static_cast<int32_t>(t);
    if (done == n) return QOR_RNG_OK;

    int32_t len = static_cast<int32_t>(N);
    int32_t still = n - done;
    int32_t nmin = still < len ? still : len;
    int32_t nmax = static_cast<int32_t>(cur.consumed > N ? N : cur.consumed);
    int32_t idx = static_cast<int32_t>((cur.next + N - static_cast<uint32_t>(nmax)) % N);
    const int32_t offered = nmax;
    const int32_t k = refill(stream, &len, buffer, &nmin, &nmax, &idx);
    if (k < 0 || k > offered) return QOR_RNG_ERROR_BAD_UPDATE;
    if (k == 0) return QOR_RNG_ERROR_NO_NUMBERS;
    cur.consumed = static_cast<uint32_t>(offered - k);
  }
}

// Method 0 reads the constructor's parameter block (pointers to its
// arguments); the abstract rows support no other method.
int32_t method_status(int32_t method) {
  switch (method) {
    case QOR_RNG_INIT_LEAPFROG: return QOR_RNG_ERROR_LEAPFROG_UNSUPPORTED;
    case QOR_RNG_INIT_SKIPAHEAD: return QOR_RNG_ERROR_SKIPAHEAD_UNSUPPORTED;
    case QOR_RNG_INIT_SKIPAHEADEX: return QOR_RNG_ERROR_SKIPAHEADEX_UNSUPPORTED;
    default: return QOR_RNG_ERROR_BAD_METHOD;
  }
}

void init_cursor(CursorFields &c, int32_t n) {
  c.n = static_cast<uint32_t>(n);
  c.next = 0;
  c.consumed = static_cast<uint32_t>(n);  // everything is stale: the first call refills
}

template <class T>
T *arg(const uint32_t *params, int i) {
  return static_cast<T *>(reinterpret_cast<void *const *>(params)[i]);
}

}  // namespace

extern "C" {

QOR_API int32_t __rixBRngiAbstractInitStream(int32_t method, void *stream, int32_t,
                                             const uint32_t *params) {
  if (method != QOR_RNG_INIT_SEED) return method_status(method);
  auto *s = state<IAbstractState>(stream);
  init_cursor(s->cur, *arg<int32_t>(params, 0));
  s->buffer = arg<uint32_t>(params, 1);
  s->refill = reinterpret_cast<QorRngIUpdate>(arg<void>(params, 2));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixBRngdAbstractInitStream(int32_t method, void *stream, int32_t,
                                             const uint32_t *params) {
  if (method != QOR_RNG_INIT_SEED) return method_status(method);
  auto *s = state<DAbstractState>(stream);
  init_cursor(s->cur, *arg<int32_t>(params, 0));
  s->buffer = arg<double>(params, 1);
  s->a = *arg<double>(params, 2);
  s->b = *arg<double>(params, 3);
  s->refill = reinterpret_cast<QorRngDUpdate>(arg<void>(params, 4));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixBRngsAbstractInitStream(int32_t method, void *stream, int32_t,
                                             const uint32_t *params) {
  if (method != QOR_RNG_INIT_SEED) return method_status(method);
  auto *s = state<SAbstractState>(stream);
  init_cursor(s->cur, *arg<int32_t>(params, 0));
  s->buffer = arg<float>(params, 1);
  s->a = *arg<float>(params, 2);
  s->b = *arg<float>(params, 3);
  s->refill = reinterpret_cast<QorRngSUpdate>(arg<void>(params, 4));
  return QOR_RNG_OK;
}

QOR_API int32_t __rixiBRngiAbstract(void *stream, int32_t n, void *r) {
  auto *s = state<IAbstractState>(stream);
  auto *out = static_cast<uint32_t *>(r);
  return take(stream, s->cur, s->buffer, s->refill, n,
              [out](int32_t i, uint32_t v) { out[i] = v; });
}

QOR_API int32_t __rixdBRngdAbstract(void *stream, int32_t n, double *r, double a, double b) {
  auto *s = state<DAbstractState>(stream);
  const double A = s->a, scale = (b - a) / (s->b - s->a);
  return take(stream, s->cur, s->buffer, s->refill, n,
              [=](int32_t i, double x) { r[i] = a + (x - A) * scale; });
}

QOR_API int32_t __rixsBRngsAbstract(void *stream, int32_t n, float *r, float a, float b) {
  auto *s = state<SAbstractState>(stream);
  const float A = s->a, scale = (b - a) / (s->b - s->a);
  return take(stream, s->cur, s->buffer, s->refill, n,
              [=](int32_t i, float x) { r[i] = a + (x - A) * scale; });
}

// The refusing routine of the abstract rows: a stream of one type does not
// provide the other two.
QOR_API int32_t __rixsBRngiAbstract(void *, int32_t, float *, float, float) {
  return QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM;
}
QOR_API int32_t __rixsBRngdAbstract(void *, int32_t, float *, float, float) {
  return QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM;
}
QOR_API int32_t __rixdBRngiAbstract(void *, int32_t, double *, double, double) {
  return QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM;
}
QOR_API int32_t __rixdBRngsAbstract(void *, int32_t, double *, double, double) {
  return QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM;
}
QOR_API int32_t __rixiBRngdAbstract(void *, int32_t, void *) {
  return QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM;
}
QOR_API int32_t __rixiBRngsAbstract(void *, int32_t, void *) {
  return QOR_RNG_ERROR_INVALID_ABSTRACT_STREAM;
}

QOR_API int32_t __rixiNewAbstractStream(void **stream, int32_t n, uint32_t *buffer,
                                        QorRngIUpdate refill) {
  if (n <= 0 || !buffer || !refill) return QOR_RNG_ERROR_BAD_ARG;
  if (int32_t st = __rixIsBrngValid(__RegBrngsNew, 9, 0); st != QOR_RNG_OK) return st;
  if (int32_t st = __rixAllocateStream(stream, __RegBrngsNew, QOR_BRNG_IABSTRACT, 9, 0);
      st != QOR_RNG_OK)
    return st;
  void *p[3] = {&n, buffer, reinterpret_cast<void *>(refill)};
  return __RegBrngsNew[9].initStream(0, *stream, 6, reinterpret_cast<const uint32_t *>(p));
}

QOR_API int32_t __rixdNewAbstractStream(void **stream, int32_t n, double *buffer, double a,
                                        double b, QorRngDUpdate refill) {
  if (n <= 0 || !buffer || !refill || a >= b) return QOR_RNG_ERROR_BAD_ARG;
  if (int32_t st = __rixAllocateStream(stream, __RegBrngsNew, QOR_BRNG_DABSTRACT, 10, 0);
      st != QOR_RNG_OK)
    return st;
  void *p[5] = {&n, buffer, &a, &b, reinterpret_cast<void *>(refill)};
  return __RegBrngsNew[10].initStream(0, *stream, 10, reinterpret_cast<const uint32_t *>(p));
}

QOR_API int32_t __rixsNewAbstractStream(void **stream, int32_t n, float *buffer, float a,
                                        float b, QorRngSUpdate refill) {
  if (n <= 0 || !buffer || !refill || a >= b) return QOR_RNG_ERROR_BAD_ARG;
  if (int32_t st = __rixAllocateStream(stream, __RegBrngsNew, QOR_BRNG_SABSTRACT, 11, 0);
      st != QOR_RNG_OK)
    return st;
  void *p[5] = {&n, buffer, &a, &b, reinterpret_cast<void *>(refill)};
  return __RegBrngsNew[11].initStream(0, *stream, 10, reinterpret_cast<const uint32_t *>(p));
}

}  // extern "C"
