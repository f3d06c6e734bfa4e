// Shared machinery of the distribution generators: the floating-point frame
// they run in, the bracket around each vector-math call, the vector-math
// kernels they reach through the library's own kernel tables, and the
// uniform draw through the stream's registry row.
#pragma once

#include <cstdint>

#include "qor/pex.h"
#include "qor/rng.h"
#include "qor/vm.h"
#include "vm/service/state.h"

extern "C" {
// Kernel tables of the vector-math functions the transformations need (three
// slots: LA, HA, EP).  Declared here as plain slot arrays: only the slots are
// read.
#define QOR_DIST_TABLE(id) extern const void *const qor_pex_kernel_##id##_ttab[3];
QOR_DIST_TABLE(sLn)
QOR_DIST_TABLE(dLn)
QOR_DIST_TABLE(sExp)
QOR_DIST_TABLE(dExp)
QOR_DIST_TABLE(sSin)
QOR_DIST_TABLE(dSin)
QOR_DIST_TABLE(sCos)
QOR_DIST_TABLE(dCos)
QOR_DIST_TABLE(sSinCos)
QOR_DIST_TABLE(dSinCos)
QOR_DIST_TABLE(sSqrt)
QOR_DIST_TABLE(dSqrt)
QOR_DIST_TABLE(sTan)
QOR_DIST_TABLE(dTan)
QOR_DIST_TABLE(sErfInv)
QOR_DIST_TABLE(dErfInv)
QOR_DIST_TABLE(sPowx)
QOR_DIST_TABLE(dPowx)
#undef QOR_DIST_TABLE
}

namespace qor::rng::dist {

// Block of results for the Box-Muller methods and Laplace, and the size of
// the stack buffers behind them.
constexpr int32_t kBlock = 1024;

// The mode word every transformation runs its vector-math calls under, and
// the error mode installed for the duration of a call.
constexpr uint32_t kCallMode = PEX_FTZDAZ_OFF;               // 0x140000
constexpr uint32_t kErrModeCallback = PEX_ERRMODE_CALLBACK;  // 0x1000

// ln of the smallest positive subnormal: what ln(0) is replaced by, so that a
// uniform of exactly 0 still gives a finite variate.
constexpr double kLnTinyD = -744.4400719213812;
constexpr float kLnTinyS = -103.2789306640625f;
// |ErfInv| bound of the inverse-CDF Gaussian (and the replacement for the
// Box-Muller ln when the argument is not 0).
constexpr double kErfInvBoundD = 5.8635847487551676;
constexpr float kErfInvBoundS = 3.8325068950653076f;

// Saves the x87 control word and MXCSR and masks every exception in both;
// installs the callback error mode with the given callback.  Everything is
// put back in the destructor, so every exit path restores the caller's state.
class Frame {
 public:
  explicit Frame(PexErrorCallback callback) {
    asm volatile("fnstcw %0" : "=m"(x87_));
    uint16_t cw = static_cast<uint16_t>(x87_ | 0x3F);
    asm volatile("fldcw %0" : : "m"(cw) : "memory");
    asm volatile("stmxcsr %0" : "=m"(mxcsr_) : : "memory");
    uint32_t m = mxcsr_ | 0x1F80u;
    asm volatile("ldmxcsr %0" : : "m"(m) : "memory");
    mode_ = qor_pex_kernel_SetMode(kErrModeCallback);
    callback_ = qor_pex_kernel_SetErrorCallBack(callback);
  }
  ~Frame() {
    // The callback first: setting it edits the callback bit of the mode
    // word, which restoring the mode then overrides with the saved value.
    // The word is put back exactly: SetMode could not clear the denormal
    // field that the per-call bracket sets.
    qor_pex_kernel_SetErrorCallBack(callback_);
    qor::vm::restore_mode(mode_);
    asm volatile("ldmxcsr %0" : : "m"(mxcsr_) : "memory");
    asm volatile("fldcw %0" : : "m"(x87_) : "memory");
  }
  Frame(const Frame &) = delete;
  Frame &operator=(const Frame &) = delete;

 private:
  uint16_t x87_ = 0;
  uint32_t mxcsr_ = 0;
  uint32_t mode_ = 0;
  PexErrorCallback callback_ = nullptr;
};

// Kernel slot for the thread's accuracy; HA when the accuracy field is not a
// valid slot.
inline int slot() {
  const uint32_t i = qor_pex_kernel_GetTTableIndex();
  return i <= 2 ? static_cast<int>(i) : QOR_PEX_SLOT_HA;
}

// One vector-math call with the mode word set to 0x140000 around it.
template <class K, class... A>
inline void vm_call(const void *const *table, A... args) {
  const int s = slot();
  const uint32_t prev = qor_pex_kernel_SetMode(kCallMode);
  reinterpret_cast<K>(table[s])(args...);
  qor::vm::restore_mode(prev);
}

// Per-precision access to the kernels and constants.
template <class T>
struct Prec;

template <>
struct Prec<double> {
  using V1 = void (*)(int32_t, const double *, double *);
  using V2 = void (*)(int32_t, const double *, double *, double *);
  using VX = void (*)(int32_t, const double *, double, double *);
  static void ln(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dLn_ttab, n, a, r);
  }
  static void exp(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dExp_ttab, n, a, r);
  }
  static void sin(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dSin_ttab, n, a, r);
  }
  static void cos(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dCos_ttab, n, a, r);
  }
  static void sqrt(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dSqrt_ttab, n, a, r);
  }
  static void tan(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dTan_ttab, n, a, r);
  }
  static void erfinv(int32_t n, const double *a, double *r) {
    vm_call<V1>(qor_pex_kernel_dErfInv_ttab, n, a, r);
  }
  static void sincos(int32_t n, const double *a, double *s, double *c) {
    vm_call<V2>(qor_pex_kernel_dSinCos_ttab, n, a, s, c);
  }
  static void powx(int32_t n, const double *a, double b, double *r) {
    vm_call<VX>(qor_pex_kernel_dPowx_ttab, n, a, b, r);
  }
  static constexpr double kLnTiny = kLnTinyD;
  static constexpr double kErfInvBound = kErfInvBoundD;
  static constexpr double kTwoPi = 6.283185307179586;
  static constexpr double kHalfPi = 1.5707963267948966;
  static constexpr double kSqrt2 = 1.4142135623730951;
};

template <>
struct Prec<float> {
  using V1 = void (*)(int32_t, const float *, float *);
  using V2 = void (*)(int32_t, const float *, float *, float *);
  using VX = void (*)(int32_t, const float *, float, float *);
  static void ln(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sLn_ttab, n, a, r);
  }
  static void exp(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sExp_ttab, n, a, r);
  }
  static void sin(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sSin_ttab, n, a, r);
  }
  static void cos(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sCos_ttab, n, a, r);
  }
  static void sqrt(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sSqrt_ttab, n, a, r);
  }
  static void tan(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sTan_ttab, n, a, r);
  }
  static void erfinv(int32_t n, const float *a, float *r) {
    vm_call<V1>(qor_pex_kernel_sErfInv_ttab, n, a, r);
  }
  static void sincos(int32_t n, const float *a, float *s, float *c) {
    vm_call<V2>(qor_pex_kernel_sSinCos_ttab, n, a, s, c);
  }
  static void powx(int32_t n, const float *a, float b, float *r) {
    vm_call<VX>(qor_pex_kernel_sPowx_ttab, n, a, b, r);
  }
  static constexpr float kLnTiny = kLnTinyS;
  static constexpr float kErfInvBound = kErfInvBoundS;
  static constexpr float kTwoPi = 6.2831853f;
  static constexpr float kHalfPi = 1.5707963f;
  static constexpr float kSqrt2 = 1.4142135f;
};

// Uniform draw on [a, b) through the stream's registry row, with method 0 so
// that the accuracy clamp of the Uniform member never applies here.
int32_t uniform(void *stream, int32_t n, double *r, double a, double b);
int32_t uniform(void *stream, int32_t n, float *r, float a, float b);

}  // namespace qor::rng::dist
