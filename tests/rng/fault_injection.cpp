#include "fault_injection.h"

#include <dlfcn.h>

#include <atomic>
#include <cstddef>

namespace {

std::atomic<int> g_countdown{-1};
std::atomic<long> g_live{0};

using AllocFn = void *(*)(size_t, int);
using FreeFn = void (*)(void *);

template <class F>
F next_symbol(const char *name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace qor_test {

void fail_allocation_after(int skip) { g_countdown = skip; }
long live_blocks() { return g_live; }

}  // namespace qor_test

extern "C" void *qor_serv_allocate(size_t size, int alignment) {
  static const AllocFn real = next_symbol<AllocFn>("qor_serv_allocate");
  int c = g_countdown.load();
  if (c >= 0) {
    g_countdown = c - 1;
    if (c == 0) return nullptr;
  }
  void *p = real(size, alignment);
  if (p) ++g_live;
  return p;
}

extern "C" void qor_serv_deallocate(void *p) {
  static const FreeFn real = next_symbol<FreeFn>("qor_serv_deallocate");
  if (p) --g_live;
  real(p);
}
