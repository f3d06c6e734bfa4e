#include "platform/private_heap.h"

#include <sys/mman.h>

#include <atomic>
#include <new>

#include "qor/core.h"

namespace qor::platform {
namespace {

constexpr size_t kPageBytes = 4096;
std::atomic<int> g_fail_next{0};

}  // namespace

struct PrivateHeap::Page {
  Page *next;
};

void private_heap_fail_next(int count) { g_fail_next.store(count); }

PrivateHeap *PrivateHeap::create() {
  void *mem = mmap(nullptr, kPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mem == MAP_FAILED) return nullptr;
  // The heap object lives at the start of its own first page.
  auto *heap = new (mem) PrivateHeap();
  // Carve the rest of the first page (after the header, block-aligned).
  constexpr size_t header = (sizeof(PrivateHeap) + kBlockSize - 1) / kBlockSize * kBlockSize;
  char *base = static_cast<char *>(mem);
  for (size_t off = kPageBytes - kBlockSize; off >= header; off -= kBlockSize) {
    *reinterpret_cast<void **>(base + off) = heap->free_;
    heap->free_ = base + off;
  }
  return heap;
}

void PrivateHeap::destroy(PrivateHeap *heap) {
  if (!heap) return;
  Page *p = heap->pages_;
  while (p) {
    Page *next = p->next;
    munmap(p, kPageBytes);
    p = next;
  }
  munmap(heap, kPageBytes);
}

void *PrivateHeap::grow_locked() {
  void *mem = mmap(nullptr, kPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mem == MAP_FAILED) return nullptr;
  auto *page = static_cast<Page *>(mem);
  page->next = pages_;
  pages_ = page;
  char *base = static_cast<char *>(mem);
  for (size_t off = kPageBytes - kBlockSize; off >= kBlockSize; off -= kBlockSize) {
    *reinterpret_cast<void **>(base + off) = free_;
    free_ = base + off;
  }
  return free_;
}

void *PrivateHeap::allocate() {
  int pending = g_fail_next.load(std::memory_order_relaxed);
  while (pending > 0) {
    if (g_fail_next.compare_exchange_weak(pending, pending - 1)) return nullptr;
  }
  qor_serv_lock(&lock_);
  void *b = free_ ? free_ : grow_locked();
  if (b) {
    free_ = *static_cast<void **>(b);
    ++live_;
  }
  qor_serv_unlock(&lock_);
  return b;
}

void PrivateHeap::release(void *block) {
  if (!block) return;
  qor_serv_lock(&lock_);
  *static_cast<void **>(block) = free_;
  free_ = block;
  --live_;
  qor_serv_unlock(&lock_);
}

size_t PrivateHeap::live_blocks() const { return live_; }

}  // namespace qor::platform
