// Helpers for the vector math kernel tests: declarations of the entry points
// the tests call, and a recorder of error reports.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qor/pex.h"
#include "qor/vm.h"

// Declares the contiguous and strided kernel tables of one function id
// (sExp: qor_pex_kernel_sExp_ttab and qor_pex_kernel_sExpI_ttab).
#define QOR_TEST_TABLES(id) \
  extern "C" const QorPexKernelTable qor_pex_kernel_##id##_ttab, qor_pex_kernel_##id##I_ttab;

extern "C" {
#define QOR_TEST_U(t, T, F)                                        \
  void _pex##t##F(int32_t, const T *, T *);                       \
  void _pex##t##F##_HA(int32_t, const T *, T *);                  \
  void _pex##t##F##I(int32_t, const T *, int32_t, T *, int32_t);
#define QOR_TEST_B(t, T, F)                                                  \
  void _pex##t##F(int32_t, const T *, const T *, T *);                      \
  void _pex##t##F##I(int32_t, const T *, int32_t, const T *, int32_t, T *, int32_t);
QOR_TEST_B(s, float, Add)
QOR_TEST_B(d, double, Add)
QOR_TEST_B(s, float, Div)
QOR_TEST_U(s, float, Sqrt)
QOR_TEST_U(s, float, Exp)
void _pexsDiv_21(int32_t, const float *, const float *, float *);
void _pexsDiv_11(int32_t, const float *, const float *, float *);
void _pexsDiv_HA(int32_t, const float *, const float *, float *);
}

namespace qor::vm::test {

// Name of a kernel table slot, for test names and messages.
inline const char *slot_name(int s) { return s == 0 ? "LA" : s == 1 ? "HA" : "EP"; }

inline uint32_t fbits(float x) {
  uint32_t b;
  std::memcpy(&b, &x, 4);
  return b;
}
inline uint64_t dbits(double x) {
  uint64_t b;
  std::memcpy(&b, &x, 8);
  return b;
}
template <class T>
inline auto bits(T x) {
  if constexpr (sizeof(T) == 4)
    return fbits(x);
  else
    return dbits(x);
}

// Distance in units in the last place between two finite values of type T.
template <class T>
inline double ulps(T got, double want) {
  if (std::isnan(got) && std::isnan(want)) return 0;
  if (std::isinf(want) || std::isinf(got)) return got == T(want) ? 0 : 1e30;
  int e;
  std::frexp(want, &e);
  int digits = sizeof(T) == 4 ? 24 : 53;
  int emin = sizeof(T) == 4 ? -125 : -1021;
  double ulp = std::ldexp(1.0, (e < emin ? emin : e) - digits);
  return std::fabs(double(got) - want) / ulp;
}

struct Report {
  int code;
  int index;
  std::string name;
  double arg1, arg2, res1;
};

// Records every callback report of the current thread while alive; the
// callback returns 0 unless `suppress`, so the mode actions and write-back run.
class Recorder {
 public:
  explicit Recorder(uint32_t errmode = PEX_ERRMODE_CALLBACK) {
    saved_mode_ = qor_pex_kernel_GetMode();
    saved_cb_ = qor_pex_kernel_SetErrorCallBack(&Recorder::cb);
    qor_pex_kernel_SetMode(errmode | PEX_ERRMODE_CALLBACK);
    qor_pex_kernel_ClearErrStatus();
    reports().clear();
  }
  ~Recorder() {
    qor_pex_kernel_SetErrorCallBack(saved_cb_);
    qor_pex_kernel_SetMode(saved_mode_);
    qor_pex_kernel_ClearErrStatus();
  }
  static std::vector<Report> &reports() {
    static thread_local std::vector<Report> r;
    return r;
  }
  static inline thread_local double replace_with = NAN;

 private:
  static int32_t cb(PexErrorContext *c) {
    reports().push_back({c->code, c->index, c->func_name, c->arg1, c->arg2, c->res1});
    return 0;
  }
  uint32_t saved_mode_;
  PexErrorCallback saved_cb_;
};

// Sets the accuracy and FTZ/DAZ fields of the thread's mode for a scope.
class ModeScope {
 public:
  explicit ModeScope(uint32_t bits) : saved_(qor_pex_kernel_SetMode(bits)) {}
  ~ModeScope() {
    qor_pex_kernel_SetMode(saved_ | PEX_FTZDAZ_OFF);  // 0 fields are not restorable
    qor_pex_kernel_SetMode(saved_);
  }

 private:
  uint32_t saved_;
};

}  // namespace qor::vm::test
