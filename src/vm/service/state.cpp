// The per-thread state block and its life cycle.  Blocks come from a private
// heap and are found through one pthread key whose destructor frees a
// thread's block when the thread exits.
#include "vm/service/state.h"

#include <pthread.h>

#include <atomic>
#include <cstring>

#include "platform/private_heap.h"
#include "qor/core.h"

namespace qor::vm {
namespace {

using platform::PrivateHeap;

// Three process-wide locks: the environment read lives in mode.cpp; these
// guard the key allocation and the heap creation.
qor_lock_t g_slot_lock = QOR_LOCK_INITIALIZER;
qor_lock_t g_heap_lock = QOR_LOCK_INITIALIZER;

pthread_key_t g_key;
std::atomic<bool> g_key_allocated{false};
std::atomic<PrivateHeap *> g_heap{nullptr};

[[noreturn]] void out_of_state() {
  qor_serv_print(1, 773, 0);
  qor_serv_exit(3);
}

void release_block(void *block) {
  if (PrivateHeap *heap = g_heap.load(std::memory_order_acquire)) heap->release(block);
}

// Runs at thread exit with the thread's block (the key's value is already
// null by then).
void thread_detach(void *block) { release_block(block); }

bool ensure_key() {
  if (g_key_allocated.load(std::memory_order_acquire)) return true;
  qor_serv_lock(&g_slot_lock);
  bool ok = g_key_allocated.load(std::memory_order_relaxed);
  if (!ok && pthread_key_create(&g_key, thread_detach) == 0) {
    g_key_allocated.store(true, std::memory_order_release);
    ok = true;
  }
  qor_serv_unlock(&g_slot_lock);
  return ok;
}

PrivateHeap *ensure_heap() {
  PrivateHeap *heap = g_heap.load(std::memory_order_acquire);
  if (heap) return heap;
  qor_serv_lock(&g_heap_lock);
  heap = g_heap.load(std::memory_order_relaxed);
  if (!heap) {
    heap = PrivateHeap::create();
    g_heap.store(heap, std::memory_order_release);
  }
  qor_serv_unlock(&g_heap_lock);
  return heap;
}

ThreadState *create_block() {
  PrivateHeap *heap = ensure_heap();
  if (!heap) return nullptr;
  void *mem = heap->allocate();
  if (!mem) return nullptr;
  if (pthread_setspecific(g_key, mem) != 0) {
    heap->release(mem);
    return nullptr;
  }
  // Only the first 16 bytes are cleared: input_base keeps whatever the block
  // held, and the core library sets it before kernels run on the thread.
  std::memset(mem, 0, 16);
  return static_cast<ThreadState *>(mem);
}

// Process attach: the key and the loading thread's block.  A constructor
// cannot make the dynamic loader refuse the library, so a failure here is left
// to the first accessor call, which retries and ends the process (message 773,
// exit code 3) if the state still cannot be had.
__attribute__((constructor)) void process_attach() {
  if (ensure_key() && !pthread_getspecific(g_key)) create_block();
}

// Process detach.  The calling thread's block goes back and the key is
// released.  Other threads may still hold blocks (at process exit they can
// even be running), so the heap is unmapped only once it is empty; otherwise
// it is left to the operating system.
__attribute__((destructor)) void process_detach() {
  if (!g_key_allocated.load(std::memory_order_acquire)) return;
  if (void *block = pthread_getspecific(g_key)) {
    pthread_setspecific(g_key, nullptr);
    release_block(block);
  }
  pthread_key_delete(g_key);
  g_key_allocated.store(false, std::memory_order_release);
  PrivateHeap *heap = g_heap.load(std::memory_order_acquire);
  if (heap && heap->live_blocks() == 0) {
    g_heap.store(nullptr, std::memory_order_release);
    PrivateHeap::destroy(heap);
  }
}

}  // namespace

ThreadState &thread_state() {
  if (__builtin_expect(g_key_allocated.load(std::memory_order_acquire), 1)) {
    if (void *v = pthread_getspecific(g_key)) return *static_cast<ThreadState *>(v);
  }
  if (!ensure_key()) out_of_state();
  ThreadState *s = create_block();
  if (!s) out_of_state();
  return *s;
}

size_t live_state_blocks() {
  PrivateHeap *heap = g_heap.load(std::memory_order_acquire);
  return heap ? heap->live_blocks() : 0;
}

}  // namespace qor::vm
