// The error handler that kernels call once per exceptional element: status,
// error record, callback, errno, standard-error messages, x87 exceptions and
// the write-back of the (possibly edited) results.
#include <cstddef>
#include <cstring>

#include "platform/errno_access.h"
#include "platform/fpenv.h"
#include "qor/core.h"
#include "vm/service/state.h"

static_assert(sizeof(PexErrorContext) == 144);
static_assert(offsetof(PexErrorContext, code) == 0);
static_assert(offsetof(PexErrorContext, index) == 4);
static_assert(offsetof(PexErrorContext, arg1) == 8);
static_assert(offsetof(PexErrorContext, arg2) == 16);
static_assert(offsetof(PexErrorContext, res1) == 24);
static_assert(offsetof(PexErrorContext, res2) == 32);
static_assert(offsetof(PexErrorContext, func_name) == 40);
static_assert(offsetof(PexErrorContext, func_name_len) == 104);
static_assert(offsetof(PexErrorContext, arg1_im) == 112);
static_assert(offsetof(PexErrorContext, arg2_im) == 120);
static_assert(offsetof(PexErrorContext, res1_im) == 128);
static_assert(offsetof(PexErrorContext, res2_im) == 136);

namespace qor::vm {
namespace {

constexpr int kMaxNameChars = 47;

int errno_for(int code) {
  switch (code) {
    case 0: return 0;
    case 1: return 33;          // EDOM
    case 2: case 3: case 4: return 34;  // ERANGE
    case -1: return 22;         // EINVAL
    case -2: return 13;         // EACCES
    default: return 14;         // EFAULT
  }
}

uint16_t x87_flag_for(int code) {
  switch (code) {
    case 1: return 0x01;  // invalid
    case 2: return 0x04;  // divide by zero
    case 3: return 0x08;  // overflow
    case 4: return 0x10;  // underflow
    default: return 0;
  }
}

void print_report(const PexErrorContext &c) {
  const char *name = c.func_name;
  switch (c.code) {
    case 0: return;
    case -1: qor_serv_print(1, 748, 2, name, c.index); return;
    case -2: qor_serv_print(1, 749, 1, name); return;
    case 1: case 2: case 3: case 4: qor_serv_print(1, 749 + c.code, 1, name); break;
    default: qor_serv_print(1, 754, 1, name); break;
  }
  const int i = c.index;
  const bool one_arg = c.arg1 == c.arg2 || c.arg2 == 0.0;
  const bool two_res = c.res2 != 0.0 && c.res1 != c.res2;
  if (one_arg && !two_res) {
    qor_serv_print(1, 755, 2, i, c.arg1);
    qor_serv_print(1, 756, 2, i, c.res1);
  } else if (one_arg) {
    qor_serv_print(1, 757, 2, i, c.arg1);
    qor_serv_print(1, 758, 2, i, c.res1);
    qor_serv_print(1, 759, 2, i, c.res2);
  } else if (!two_res) {
    qor_serv_print(1, 760, 2, i, c.arg1);
    qor_serv_print(1, 761, 2, i, c.arg2);
    qor_serv_print(1, 762, 2, i, c.res1);
  } else {
    qor_serv_print(1, 763, 2, i, c.arg1);
    qor_serv_print(1, 764, 2, i, c.arg2);
    qor_serv_print(1, 765, 2, i, c.res1);
    qor_serv_print(1, 766, 2, i, c.res2);
  }
}

// Raises the code's exception in the x87 unit.  With the matching trap bit of
// the mode the exception is unmasked while the flag is loaded, so the next
// waiting x87 instruction (the reload below) delivers it; otherwise only the
// sticky flag stays set.
void raise_x87(int code, uint32_t mode) {
  const uint16_t flag = x87_flag_for(code);
  platform::X87Env saved;
  platform::x87_store_env(&saved);
  platform::X87Env e = saved;
  uint16_t unmask = 0;
  if (mode & PEX_TRAP_INVALID) unmask |= 0x01;
  if (mode & PEX_TRAP_DIVBYZERO) unmask |= 0x04;
  if (mode & PEX_TRAP_OVERFLOW) unmask |= 0x08;
  if (mode & PEX_TRAP_UNDERFLOW) unmask |= 0x10;
  e.control = static_cast<uint16_t>((e.control | 0x3F) & ~unmask);
  e.status = static_cast<uint16_t>((e.status & ~0x80BF) | flag);
  if (flag & unmask) e.status |= 0x8080;  // error summary and busy, as the unit sets them
  platform::x87_load_env(&e);
  platform::X87Env back = saved;
  back.control |= 0x3F;
  back.status = static_cast<uint16_t>((back.status & ~0x8080) | flag);
  platform::x87_load_env(&back);
}

// Reads and writes element `i` of a vector with increment `inc` (in elements);
// complex elements are (real, imaginary) pairs of T.
template <class T, bool kComplex>
struct Access {
  static constexpr int kShift = sizeof(T) == 4 ? (kComplex ? 3 : 2) : (kComplex ? 4 : 3);
  static const T *at(const T *v, ptrdiff_t i) { return v + i * (kComplex ? 2 : 1); }
  static void read(const T *v, ptrdiff_t i, double *re, double *im) {
    const T *p = at(v, i);
    *re = static_cast<double>(p[0]);
    if (kComplex) *im = static_cast<double>(p[1]);
  }
  static void write(T *v, ptrdiff_t i, double re, double im) {
    T *p = const_cast<T *>(at(v, i));
    p[0] = static_cast<T>(re);
    if (kComplex) p[1] = static_cast<T>(im);
  }
};

template <class T, bool kComplex>
void handle(int32_t code, int32_t index, const T *a1, ptrdiff_t inc1, const T *a2, ptrdiff_t inc2,
            T *r1, ptrdiff_t incr1, T *r2, ptrdiff_t incr2, const char *name) {
  using A = Access<T, kComplex>;
  ThreadState &s = thread_state();
  const uint32_t m = current_mode();
  const uint32_t e = m & PEX_ERRMODE_MASK;
  if (e == PEX_ERRMODE_NOERR) return;
  s.status = code;
  if (e == PEX_ERRMODE_IGNORE) return;

  PexErrorContext c;
  std::memset(&c, 0, sizeof c);
  c.code = code;
  int64_t idx = index;
  if (s.input_base) {
    const ptrdiff_t bytes =
        reinterpret_cast<const char *>(a1) - static_cast<const char *>(s.input_base);
    idx += bytes >> A::kShift;
  }
  c.index = static_cast<int32_t>(idx);
  int len = 0;
  if (name)
    while (len < kMaxNameChars && name[len]) ++len;
  if (len) std::memcpy(c.func_name, name, static_cast<size_t>(len));
  c.func_name[len] = '\0';
  c.func_name_len = len;

  const bool has_values = code != -1 && code != -2;
  const ptrdiff_t i = index;
  if (has_values) {
    A::read(a1, i * inc1, &c.arg1, &c.arg1_im);
    A::read(a2, i * inc2, &c.arg2, &c.arg2_im);
    A::read(r1, i * incr1, &c.res1, &c.res1_im);
    A::read(r2, i * incr2, &c.res2, &c.res2_im);
  }

  if ((m & PEX_ERRMODE_CALLBACK) && s.callback && s.callback(&c) != 0) return;

  if (m & 0x2F00) {
    if (m & PEX_ERRMODE_ERRNO) platform::set_errno(errno_for(code));
    if (m & PEX_ERRMODE_STDERR) print_report(c);
    if (m & PEX_ERRMODE_EXCEPT) raise_x87(code, m);
  }

  if (has_values) {
    // A one-result function passes its result vector twice; writing the
    // second copy would undo a callback's edit of res1.
    const bool same = r2 == r1 && incr2 == incr1;
    if (!same) A::write(r2, i * incr2, c.res2, c.res2_im);
    A::write(r1, i * incr1, c.res1, c.res1_im);
  }
}

}  // namespace
}  // namespace qor::vm

using qor::vm::handle;

extern "C" {

// One contiguous and one strided handler per element type; complex vectors
// are arrays of (real, imaginary) pairs of the component type.
#define QOR_ERROR_HANDLERS(letter, T, complex)                                                 \
  QOR_API void pex_error_##letter(int32_t code, int32_t index, const T *a1, const T *a2,      \
                                  T *r1, T *r2, const char *name) {                          \
    handle<T, complex>(code, index, a1, 1, a2, 1, r1, 1, r2, 1, name);                        \
  }                                                                                           \
  QOR_API void pex_error_##letter##I(int32_t code, int32_t index, const T *a1, int32_t inc1,  \
                                     const T *a2, int32_t inc2, T *r1, int32_t incr1, T *r2,  \
                                     int32_t incr2, const char *name) {                       \
    handle<T, complex>(code, index, a1, inc1, a2, inc2, r1, incr1, r2, incr2, name);          \
  }
QOR_ERROR_HANDLERS(s, float, false)
QOR_ERROR_HANDLERS(d, double, false)
QOR_ERROR_HANDLERS(c, float, true)
QOR_ERROR_HANDLERS(z, double, true)
#undef QOR_ERROR_HANDLERS

}  // extern "C"
