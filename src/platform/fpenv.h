// Thin wrappers over the x87 control/status words and MXCSR.
#pragma once

#include <cstdint>
#include <xmmintrin.h>

namespace qor::platform {

// The 28-byte protected-mode x87 environment as FNSTENV stores it.
struct X87Env {
  uint16_t control;
  uint16_t pad0;
  uint16_t status;
  uint16_t pad1;
  uint16_t tag;
  uint16_t pad2;
  uint32_t ip;
  uint16_t cs;
  uint16_t opcode;
  uint32_t dp;
  uint16_t ds;
  uint16_t pad3;
};
static_assert(sizeof(X87Env) == 28);

inline uint16_t x87_control() {
  uint16_t cw;
  __asm__ volatile("fnstcw %0" : "=m"(cw));
  return cw;
}
inline void x87_load_control(uint16_t cw) { __asm__ volatile("fldcw %0" : : "m"(cw)); }
inline uint16_t x87_status() {
  uint16_t sw;
  __asm__ volatile("fnstsw %0" : "=m"(sw));
  return sw;
}
inline void x87_clear_exceptions() { __asm__ volatile("fnclex"); }
// FNSTENV also masks every x87 exception as a side effect; callers reload.
inline void x87_store_env(X87Env *env) { __asm__ volatile("fnstenv %0" : "=m"(*env)); }
// FLDENV is a waiting instruction: an unmasked exception pending in the
// x87 unit is delivered before it runs.
inline void x87_load_env(const X87Env *env) { __asm__ volatile("fldenv %0" : : "m"(*env)); }

inline uint32_t mxcsr() { return _mm_getcsr(); }
inline void set_mxcsr(uint32_t v) { _mm_setcsr(v); }

}  // namespace qor::platform
