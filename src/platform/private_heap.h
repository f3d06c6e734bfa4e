// A private heap of small fixed-size blocks for per-thread state, kept apart
// from the process heap so that the library's bookkeeping cannot be corrupted
// by, nor corrupt, the caller's allocations.
#pragma once

#include <cstddef>

#include "qor/core.h"

namespace qor::platform {

class PrivateHeap {
 public:
  static constexpr size_t kBlockSize = 32;

  // Creates the heap; returns null when the operating system refuses memory.
  static PrivateHeap *create();
  // Unmaps the heap and everything in it.
  static void destroy(PrivateHeap *heap);

  void *allocate();  // a 32-byte, 32-byte aligned block, or null
  void release(void *block);
  size_t live_blocks() const;

 private:
  PrivateHeap() = default;
  struct Page;
  void *grow_locked();

  Page *pages_ = nullptr;
  void *free_ = nullptr;
  size_t live_ = 0;
  qor_lock_t lock_ = QOR_LOCK_INITIALIZER;
};

// Fault injection for tests: the next `count` block allocations fail.
void private_heap_fail_next(int count);

}  // namespace qor::platform
