// Chunks of derived data attached to streams, and the process-wide table of
// read-only data that chunks of several streams may share.
#include <x86intrin.h>

#include <cstring>

#include "rng/core/internal.h"

using namespace qor::rng;

namespace {

GlobalDataEntry g_entries[QOR_RNG_SHARED_TABLE_CAPACITY];
uint32_t g_entry_count = 0;
uint32_t g_lock = 0;

// A plain spin lock: compare-and-exchange 0 -> 1, retried at once; released
// by a store of 0.  It is never held across an allocation or user code.
class TableLock {
 public:
  TableLock() {
    uint32_t expected = 0;
    while (!__atomic_compare_exchange_n(&g_lock, &expected, 1u, false, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED)) {
      expected = 0;
      _mm_pause();
    }
  }
  ~TableLock() { __atomic_store_n(&g_lock, 0u, __ATOMIC_RELEASE); }
  TableLock(const TableLock &) = delete;
  TableLock &operator=(const TableLock &) = delete;
};

bool key_is_zero(const uint64_t *key) { return key[0] == 0 && key[1] == 0; }

// Caller holds the lock.
GlobalDataEntry *find_locked(const uint64_t *key) {
  for (uint32_t i = 0; i < g_entry_count; ++i)
    if (g_entries[i].key[0] == key[0] && g_entries[i].key[1] == key[1]) return &g_entries[i];
  return nullptr;
}

bool in_table(const uint64_t *key) {
  if (key_is_zero(key)) return false;
  TableLock lock;
  return find_locked(key) != nullptr;
}

}  // namespace

namespace qor::rng {

void release_chunk(StreamChunk *c) {
  if (in_table(c->key))
    __rixUnregisterGlobRODataReference(c->key);
  else if (c->data)
    qor_serv_deallocate(c->data);
  qor_serv_deallocate(c);
}

}  // namespace qor::rng

extern "C" {

QOR_API int32_t __rixAddChunk(void *stream, uint32_t id, const uint64_t *key, void *data,
                              int32_t size) {
  auto *c = static_cast<StreamChunk *>(qor_serv_allocate(sizeof(StreamChunk), kAlignment));
  if (!c) return QOR_RNG_ERROR_MEM_FAILURE;
  c->id = id;
  c->size = size;
  c->data = data;
  c->next = nullptr;
  c->key[0] = key ? key[0] : 0;
  c->key[1] = key ? key[1] : 0;
  if (!key_is_zero(c->key)) {
    TableLock lock;
    if (GlobalDataEntry *e = find_locked(c->key)) {
      // Shared already: the chunk uses the table's copy; the caller keeps
      // the block it passed in.
      ++e->refCount;
      c->data = e->data;
    } else if (g_entry_count >= QOR_RNG_SHARED_TABLE_CAPACITY - 1) {
      // Nearly full: keep the data private to this chunk.
      c->key[0] = c->key[1] = 0;
    } else {
      GlobalDataEntry &e2 = g_entries[g_entry_count++];
      e2.key[0] = c->key[0];
      e2.key[1] = c->key[1];
      e2.refCount = 1;
      e2.reserved = 0;
      e2.data = data;
    }
  }
  StreamHeader *h = header(stream);
  c->next = h->chunks;
  h->chunks = c;
  return QOR_RNG_OK;
}

QOR_API void *__rixSearchChunk(const void *stream, uint32_t id) {
  for (const StreamChunk *c = header(stream)->chunks; c; c = c->next)
    if (c->id == id) return c->data;
  return nullptr;
}

QOR_API int32_t __rixGetNumChunks(const void *stream) {
  int32_t n = 0;
  for (const StreamChunk *c = header(stream)->chunks; c; c = c->next) ++n;
  return n;
}

QOR_API int32_t __rixDeleteChunks(void *stream) {
  StreamHeader *h = header(stream);
  StreamChunk *c = h->chunks;
  while (c) {
    StreamChunk *next = c->next;
    release_chunk(c);
    c = next;
  }
  h->chunks = nullptr;
  return QOR_RNG_OK;
}

QOR_API int32_t __rixDeleteChunksById(void *stream, uint32_t id) {
  StreamHeader *h = header(stream);
  StreamChunk *kept = nullptr;  // last chunk kept so far
  StreamChunk *c = h->chunks;
  while (c) {
    StreamChunk *next = c->next;
    if (c->id == id) {
      if (kept) kept->next = next;
      release_chunk(c);
    } else {
      // The list ends up headed by the last kept chunk, so a kept chunk that
      // is followed by another kept one can no longer be reached from the
      // stream; it is released here rather than leaked.
      if (kept) release_chunk(kept);
      kept = c;
    }
    c = next;
  }
  h->chunks = kept;
  return QOR_RNG_OK;
}

QOR_API int32_t __rixCopyChunks(void *dst, const void *src) {
  for (const StreamChunk *c = header(src)->chunks; c; c = c->next) {
    void *data = c->data;
    if (!in_table(c->key)) {
      const size_t size = c->size > 0 ? static_cast<size_t>(c->size) : 0;
      data = nullptr;
      if (size > 0) {
        data = qor_serv_allocate(size, kAlignment);
        if (!data) {
          __rixDeleteChunks(dst);
          return QOR_RNG_ERROR_MEM_FAILURE;
        }
        std::memcpy(data, c->data, size);
      }
    }
    const int32_t st = __rixAddChunk(dst, c->id, c->key, data, c->size);
    if (st != QOR_RNG_OK) {
      if (data != c->data) qor_serv_deallocate(data);
      __rixDeleteChunks(dst);
      return st;
    }
  }
  return QOR_RNG_OK;
}

QOR_API int32_t __rixFindGlobRODataTableEntry(GlobalDataEntry **entry, const uint64_t *key) {
  if (!key || key_is_zero(key)) return QOR_RNG_ERROR_NO_SHARED_ENTRY;
  TableLock lock;
  GlobalDataEntry *e = find_locked(key);
  if (!e) return QOR_RNG_ERROR_NO_SHARED_ENTRY;
  *entry = e;
  return QOR_RNG_OK;
}

QOR_API int32_t __rixCreateGlobRODataTableEntry(GlobalDataEntry **entry, const uint64_t *key,
                                                void *data) {
  TableLock lock;
  if (g_entry_count >= QOR_RNG_SHARED_TABLE_CAPACITY) return QOR_RNG_ERROR_SHARED_TABLE_FULL;
  GlobalDataEntry &e = g_entries[g_entry_count++];
  e.key[0] = key[0];
  e.key[1] = key[1];
  e.refCount = 1;
  e.reserved = 0;
  e.data = data;
  *entry = &e;
  return QOR_RNG_OK;
}

QOR_API void __rixRegisterGlobRODataReference(void **out, const uint64_t *key) {
  TableLock lock;
  if (GlobalDataEntry *e = find_locked(key)) {
    ++e->refCount;
    out[1] = e->data;
  }
}

QOR_API void __rixUnregisterGlobRODataReference(const uint64_t *key) {
  TableLock lock;
  for (uint32_t i = 0; i < g_entry_count; ++i) {
    GlobalDataEntry &e = g_entries[i];
    if (e.key[0] != key[0] || e.key[1] != key[1]) continue;
    if (e.refCount > 1) {
      --e.refCount;
      continue;
    }
    qor_serv_deallocate(e.data);
    // Keep the entries packed: the last one moves into the freed slot and is
    // not looked at again in this walk.
    --g_entry_count;
    e = g_entries[g_entry_count];
    std::memset(&g_entries[g_entry_count], 0, sizeof(GlobalDataEntry));
  }
}

QOR_API int32_t __rixGenerateNewGlobalRODataTableEntryId(uint64_t *key, uint64_t tag) {
  key[1] = tag;
  // The time stamp is read but, by design, not folded into the key: the
  // caller's first word alone decides when the loop ends.
  GlobalDataEntry *e = nullptr;
  while (__rixFindGlobRODataTableEntry(&e, key) == QOR_RNG_OK) (void)__rdtsc();
  return QOR_RNG_OK;
}

}  // extern "C"
