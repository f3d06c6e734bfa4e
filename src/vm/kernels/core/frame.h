// The floating-point environment frame every vector math kernel runs in.  The
// caller's x87 control word and MXCSR are touched only when they differ from
// what the kernel needs (loading either is slow) and are restored on exit;
// the only thing a caller sees afterwards is the sticky flags the kernel
// raised.
#pragma once

#include <cstdint>

namespace qor::vm {
uint32_t current_mode();
}

namespace qor::vm::frame {

enum class Kind {
  Mode,   // MXCSR controls from the thread's mode word (FTZ/DAZ or not)
  Fixed,  // masks forced on, rounding and FTZ/DAZ left as the caller has them
  None,   // pure bit moves: nothing to protect
};

inline uint16_t read_x87_cw() {
  uint16_t cw;
  asm volatile("fnstcw %0" : "=m"(cw));
  return cw;
}
// On entry pending x87 exceptions are cleared before the masked word is
// loaded; on exit the caller's word is loaded as it was, leaving any flag the
// error handler raised (exception error mode) in the status word.
inline void load_x87_cw(uint16_t cw) { asm volatile("fnclex\n\tfldcw %0" : : "m"(cw) : "memory"); }
inline void restore_x87_cw(uint16_t cw) { asm volatile("fldcw %0" : : "m"(cw) : "memory"); }
inline uint32_t read_mxcsr() {
  uint32_t m;
  asm volatile("stmxcsr %0" : "=m"(m) : : "memory");
  return m;
}
inline void load_mxcsr(uint32_t m) { asm volatile("ldmxcsr %0" : : "m"(m) : "memory"); }

constexpr uint32_t kMxcsrFtzDaz = 0x9FC0;  // masked, nearest, FTZ and DAZ on
constexpr uint32_t kMxcsrPlain = 0x1F80;   // masked, nearest, both off
constexpr uint32_t kFtzDazOn = 0x280000;
constexpr uint32_t kFtzDazField = 0x3C0000;

// Control part of MXCSR that a mode-reading kernel runs with.
inline uint32_t wanted_mxcsr(uint32_t mode) {
  return (mode & kFtzDazField) == kFtzDazOn ? kMxcsrFtzDaz : kMxcsrPlain;
}

template <Kind K>
class Guard;

template <>
class Guard<Kind::None> {
 public:
  Guard() = default;
};

template <>
class Guard<Kind::Mode> {
 public:
  [[gnu::always_inline]] Guard() {
    uint16_t cw = read_x87_cw();
    if ((cw & 0x3F) != 0x3F) {
      x87_saved_ = cw;
      x87_changed_ = true;
      load_x87_cw(uint16_t(cw | 0x3F));
    }
    uint32_t want = wanted_mxcsr(current_mode());
    uint32_t m = read_mxcsr();
    if ((m & 0xFFC0) != want) {
      mxcsr_saved_ = m;
      mxcsr_changed_ = true;
      load_mxcsr((m & 0xFFFF003Fu) | want);
    }
  }
  [[gnu::always_inline]] ~Guard() {
    if (x87_changed_) restore_x87_cw(x87_saved_);
    if (mxcsr_changed_) load_mxcsr(mxcsr_saved_ | (read_mxcsr() & 0x3F));
  }
  Guard(const Guard &) = delete;
  Guard &operator=(const Guard &) = delete;

 private:
  uint32_t mxcsr_saved_ = 0;
  uint16_t x87_saved_ = 0;
  bool x87_changed_ = false;
  bool mxcsr_changed_ = false;
};

template <>
class Guard<Kind::Fixed> {
 public:
  Guard() {
    uint16_t cw = read_x87_cw();
    if ((cw & 0xF3F) != 0x23F) {
      x87_saved_ = cw;
      x87_changed_ = true;
      load_x87_cw(uint16_t((cw & ~0xF3F) | 0x23F));
    }
    uint32_t m = read_mxcsr();
    if ((m & 0x1F80) != 0x1F80) {
      mxcsr_saved_ = m;
      mxcsr_changed_ = true;
      load_mxcsr(m | 0x1F80);
    }
  }
  ~Guard() {
    if (x87_changed_) restore_x87_cw(x87_saved_);
    if (mxcsr_changed_) load_mxcsr(mxcsr_saved_ | (read_mxcsr() & 0x3F));
  }
  Guard(const Guard &) = delete;
  Guard &operator=(const Guard &) = delete;

 private:
  uint32_t mxcsr_saved_ = 0;
  uint16_t x87_saved_ = 0;
  bool x87_changed_ = false;
  bool mxcsr_changed_ = false;
};

}  // namespace qor::vm::frame
