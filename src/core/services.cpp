// Memory, copy, lock, environment, exit and processor services of the core
// library.
#include "qor/core.h"

#include <cpuid.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// Aligned blocks keep the raw malloc pointer just below the aligned address so
// that deallocation needs no size or alignment.
constexpr size_t kMinAlign = alignof(std::max_align_t);

}  // namespace

extern "C" void *qor_serv_allocate(size_t size, int alignment) {
  if (size == 0) return nullptr;
  size_t align = alignment > 0 ? static_cast<size_t>(alignment) : kMinAlign;
  if (align & (align - 1)) return nullptr;  // not a power of two
  if (align < kMinAlign) align = kMinAlign;
  const size_t extra = align + sizeof(void *);
  if (size > SIZE_MAX - extra) return nullptr;
  void *raw = std::malloc(size + extra);
  if (!raw) return nullptr;
  uintptr_t p = reinterpret_cast<uintptr_t>(raw) + sizeof(void *);
  p = (p + align - 1) & ~(static_cast<uintptr_t>(align) - 1);
  reinterpret_cast<void **>(p)[-1] = raw;
  return reinterpret_cast<void *>(p);
}

extern "C" void qor_serv_deallocate(void *ptr) {
  if (ptr) std::free(reinterpret_cast<void **>(ptr)[-1]);
}

extern "C" int qor_serv_memcpy_s(void *dst, size_t dst_size, const void *src, size_t count) {
  if (count == 0) return 0;
  if (!dst) return 22;  // EINVAL
  if (!src) {
    std::memset(dst, 0, dst_size);
    return 22;
  }
  if (count > dst_size) {
    std::memset(dst, 0, dst_size);
    return 34;  // ERANGE
  }
  std::memmove(dst, src, count);
  return 0;
}

// A futex-backed mutex: 0 free, 1 locked, 2 locked with waiters.
extern "C" void qor_serv_lock(qor_lock_t *lock) {
  auto *w = reinterpret_cast<std::atomic<int32_t> *>(&lock->word);
  int32_t c = 0;
  if (w->compare_exchange_strong(c, 1, std::memory_order_acquire)) return;
  for (int spin = 0; spin < 64; ++spin) {
    c = 0;
    if (w->compare_exchange_weak(c, 1, std::memory_order_acquire)) return;
    __builtin_ia32_pause();
  }
  if (c != 2) c = w->exchange(2, std::memory_order_acquire);
  while (c != 0) {
    syscall(SYS_futex, &lock->word, FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
    c = w->exchange(2, std::memory_order_acquire);
  }
}

extern "C" void qor_serv_unlock(qor_lock_t *lock) {
  auto *w = reinterpret_cast<std::atomic<int32_t> *>(&lock->word);
  if (w->exchange(0, std::memory_order_release) == 2)
    syscall(SYS_futex, &lock->word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

extern "C" int qor_serv_getenv(const char *name, char *buffer, int size) {
  if (!name || !buffer || size < 1) return 0;
  const char *v = std::getenv(name);
  if (!v) {
    buffer[0] = '\0';
    return 0;
  }
  size_t len = std::strlen(v);
  if (len > static_cast<size_t>(size - 1)) len = static_cast<size_t>(size - 1);
  std::memcpy(buffer, v, len);
  buffer[len] = '\0';
  return static_cast<int>(len);
}

extern "C" void qor_serv_exit(int code) {
  std::fflush(stderr);
  std::fflush(stdout);
  _exit(code);
}

extern "C" int qor_serv_cpuisicx(void) {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
  if (!(c & bit_OSXSAVE)) return 0;
  unsigned lo, hi;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  // SSE, AVX, opmask, upper ZMM and high ZMM state must all be enabled.
  if ((lo & 0xE6u) != 0xE6u) return 0;
  if (__get_cpuid_max(0, nullptr) < 7) return 0;
  __cpuid_count(7, 0, a, b, c, d);
  const bool avx512f = b & (1u << 16);
  const bool vaes = c & (1u << 9);
  return avx512f && vaes;
}
