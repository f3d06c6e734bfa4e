// Mode word, status, callback and input base: the vector math service entry
// points, and the QOR_PEX_MODE parser behind lazy initialisation.
#include <cstring>

#include "qor/core.h"
#include "vm/service/state.h"

namespace qor::vm {
namespace {

struct Token {
  const char *name;
  uint32_t length;
  uint64_t value;
};

// Scanned in this order, first prefix match wins.  "DOUBLE_CONSISTEN" is one
// letter short on purpose: the accepted token is "PEX_DOUBLE_CONSISTEN", and
// "PEX_DOUBLE_CONSISTENT" is rejected by the end-of-token rule.
constexpr Token kTokens[] = {
    {"LA", 2, 0x1},
    {"HA", 2, 0x2},
    {"EP", 2, 0x3},
    {"DEFAULT_PRECISION", 17, 0x0},
    {"FLOAT_CONSISTENT", 16, 0x10},
    {"DOUBLE_CONSISTEN", 16, 0x20},
    {"RESTORE", 7, 0x30},
    {"ERRMODE_IGNORE", 14, 0x100},
    {"ERRMODE_ERRNO", 13, 0x200},
    {"ERRMODE_STDERR", 14, 0x400},
    {"ERRMODE_EXCEPT", 14, 0x800},
    {"ERRMODE_CALLBACK", 16, 0x1000},
    {"ERRMODE_NOERR", 13, 0x2000},
    {"ERRMODE_DEFAULT", 15, 0x1A00},
    {"TRAP_INVALID", 12, 0x1000000},
    {"TRAP_DIVBYZERO", 14, 0x2000000},
    {"TRAP_OVERFLOW", 13, 0x4000000},
    {"TRAP_UNDERFLOW", 14, 0x8000000},
};
static_assert(sizeof(kTokens) / sizeof(kTokens[0]) == 18);

constexpr int kEnvBuffer = 256;
qor_lock_t g_env_lock = QOR_LOCK_INITIALIZER;

}  // namespace

bool parse_mode_text(const char *text, int length, uint64_t *value) {
  if (!text || length < 1) return false;
  if (length > kEnvBuffer - 1) length = kEnvBuffer - 1;
  uint64_t acc = 0;
  int pos = 0;
  for (;;) {
    // Every token, the first and each one after a comma, starts with "PEX_".
    if (length - pos < 4 || std::memcmp(text + pos, "PEX_", 4) != 0) return false;
    pos += 4;
    const Token *hit = nullptr;
    for (const Token &t : kTokens) {
      const int end = pos + static_cast<int>(t.length);
      if (end < kEnvBuffer && end <= length && std::memcmp(text + pos, t.name, t.length) == 0) {
        hit = &t;
        break;
      }
    }
    if (!hit) return false;
    pos += static_cast<int>(hit->length);
    acc |= hit->value;
    if (pos == length) break;
    if (text[pos] != ',') return false;
    ++pos;
  }
  *value = acc;
  return true;
}

uint32_t initial_mode(const char *text, int length) {
  uint64_t v = 0;
  if (!parse_mode_text(text, length, &v)) return PEX_MODE_DEFAULT;
  if ((v & 0xF) == 0) v |= 0x2;
  if ((v & 0xFF00) == 0) v |= 0x1A00;
  return static_cast<uint32_t>(v);
}

uint32_t merge_mode(uint32_t m, uint32_t n) {
  constexpr uint32_t kFields[] = {0xF, 0xFF00, 0x30000, 0x3C0000, 0xF000000};
  for (uint32_t f : kFields)
    if (n & f) m = (m & ~f) | (n & f);
  return m;
}

namespace {

uint32_t read_environment_mode() {
  char buf[kEnvBuffer];
  qor_serv_lock(&g_env_lock);
  int len = qor_serv_getenv("QOR_PEX_MODE", buf, kEnvBuffer);
  qor_serv_unlock(&g_env_lock);
  return initial_mode(buf, len);
}

inline ThreadState &initialised_state() {
  ThreadState &s = thread_state();
  if (__builtin_expect(s.mode == 0, 0)) s.mode = read_environment_mode();
  return s;
}

}  // namespace

uint32_t current_mode() { return initialised_state().mode; }

void restore_mode(uint32_t mode) {
  // A saved word is never 0 (it was read after lazy initialisation); a 0
  // would only mean "initialise again from the environment".
  thread_state().mode = mode;
}

}  // namespace qor::vm

using qor::vm::thread_state;

extern "C" {

QOR_API uint32_t qor_pex_kernel_GetMode(void) { return qor::vm::current_mode(); }

QOR_API uint32_t qor_pex_kernel_SetMode(uint32_t new_mode) {
  qor::vm::ThreadState &s = qor::vm::initialised_state();
  const uint32_t old = s.mode;
  s.mode = qor::vm::merge_mode(old, new_mode);
  return old;
}

// A separate forwarder rather than an alias, so that it has an address of its
// own.
QOR_API uint32_t _pexSetMode(uint32_t new_mode) { return qor_pex_kernel_SetMode(new_mode); }

QOR_API uint32_t qor_pex_kernel_GetTTableIndex(void) {
  return (qor::vm::current_mode() & 0xF) - 1;
}

QOR_API uint32_t qor_pex_kernel_GetTTableIndexM(void *, int32_t mode) {
  return (static_cast<uint32_t>(mode) & 0xF) - 1;
}

QOR_API int32_t qor_pex_kernel_SetErrStatus(int32_t status) {
  qor::vm::ThreadState &s = thread_state();
  const int32_t old = s.status;
  s.status = status;
  return old;
}

QOR_API int32_t qor_pex_kernel_GetErrStatus(void) { return thread_state().status; }

QOR_API int32_t qor_pex_kernel_ClearErrStatus(void) { return qor_pex_kernel_SetErrStatus(0); }

// Setting a null callback while the error mode is exactly CALLBACK leaves the
// callback bit set: SetMode ignores an all-zero error field.  Kept as is.
QOR_API PexErrorCallback qor_pex_kernel_SetErrorCallBack(PexErrorCallback callback) {
  qor::vm::ThreadState &s = thread_state();
  PexErrorCallback old = s.callback;
  const uint32_t m = qor_pex_kernel_GetMode();
  s.callback = callback;
  qor_pex_kernel_SetMode((m & ~PEX_ERRMODE_CALLBACK) | (callback ? PEX_ERRMODE_CALLBACK : 0));
  return old;
}

QOR_API PexErrorCallback qor_pex_kernel_GetErrorCallBack(void) { return thread_state().callback; }

QOR_API PexErrorCallback qor_pex_kernel_ClearErrorCallBack(void) {
  qor::vm::ThreadState &s = thread_state();
  PexErrorCallback old = s.callback;
  const uint32_t m = qor_pex_kernel_GetMode();
  s.callback = nullptr;
  qor_pex_kernel_SetMode(m & ~PEX_ERRMODE_CALLBACK);
  return old;
}

QOR_API const void *qor_pex_kernel_SetInterfInputVectorPointer(const void *pointer) {
  thread_state().input_base = pointer;
  return pointer;
}

// Underscore aliases at the same addresses.
#define QOR_ALIAS(name, target, ret, params) \
  QOR_API ret name params __attribute__((alias(#target)));
QOR_ALIAS(_pexGetMode, qor_pex_kernel_GetMode, uint32_t, (void))
QOR_ALIAS(_pexSetErrStatus, qor_pex_kernel_SetErrStatus, int32_t, (int32_t))
QOR_ALIAS(_pexGetErrStatus, qor_pex_kernel_GetErrStatus, int32_t, (void))
QOR_ALIAS(_pexClearErrStatus, qor_pex_kernel_ClearErrStatus, int32_t, (void))
QOR_ALIAS(_pexSetErrorCallBack, qor_pex_kernel_SetErrorCallBack, PexErrorCallback,
          (PexErrorCallback))
QOR_ALIAS(_pexGetErrorCallBack, qor_pex_kernel_GetErrorCallBack, PexErrorCallback, (void))
QOR_ALIAS(_pexClearErrorCallBack, qor_pex_kernel_ClearErrorCallBack, PexErrorCallback, (void))
QOR_ALIAS(_pexSetInterfInputVectorPointer, qor_pex_kernel_SetInterfInputVectorPointer,
          const void *, (const void *))
#undef QOR_ALIAS

}  // extern "C"
