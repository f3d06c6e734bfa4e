#include "platform/errno_access.h"

#include <dlfcn.h>

#include <atomic>

namespace qor::platform {
namespace {

using ErrnoAccessor = int *(*)();

// The search is idempotent, so racing threads may both perform it; they store
// the same answer.
std::atomic<ErrnoAccessor> g_accessor{nullptr};
std::atomic<bool> g_searched{false};

ErrnoAccessor accessor() {
  if (!g_searched.load(std::memory_order_acquire)) {
    auto fn = reinterpret_cast<ErrnoAccessor>(dlsym(RTLD_DEFAULT, "__errno_location"));
    g_accessor.store(fn, std::memory_order_relaxed);
    g_searched.store(true, std::memory_order_release);
  }
  return g_accessor.load(std::memory_order_relaxed);
}

}  // namespace

void set_errno(int value) {
  if (ErrnoAccessor fn = accessor()) *fn() = value;
}

}  // namespace qor::platform
