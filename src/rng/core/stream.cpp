// Stream life cycle: creation, copies, deletion, and the leapfrog and
// skip-ahead dispatch to the generator's initStream.
#include <cpuid.h>

#include <cstring>

#include "rng/core/internal.h"

using namespace qor::rng;

namespace {

// Allocates a zeroed block for one stream of `row` and fills its header.
// Rows whose stateSize is smaller than the header (a user may register
// stateSize 0) still get room for the header, so that the header is never
// written outside the block.
int32_t allocate_block(void **stream, const GeneratorRecord &row, int32_t brng) {
  const size_t size = row.stateSize < kHeaderSize ? size_t{kHeaderSize}
                                                   : static_cast<size_t>(row.stateSize);
  void *block = qor_serv_allocate(size, kAlignment);
  if (!block) return QOR_RNG_ERROR_MEM_FAILURE;
  std::memset(block, 0, size);
  StreamHeader *h = header(block);
  h->brng = brng;
  h->flags = 1;
  h->chunks = nullptr;
  *stream = block;
  return QOR_RNG_OK;
}

int32_t dispatch_init(void *stream, int32_t method, int32_t n, const uint32_t *params) {
  const GeneratorRecord *row = row_of(header(stream)->brng);
  if (!row || !row->initStream) return QOR_RNG_ERROR_INVALID_BRNG;
  return row->initStream(method, stream, n, params);
}

bool cpuid_ecx_bit(unsigned bit) {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  return (c >> bit) & 1u;
}

}  // namespace

extern "C" {

QOR_API int32_t __rixNewStreamEx(void **stream, int32_t brng, uint32_t n, const uint32_t *params) {
  if (brng == QOR_BRNG_IABSTRACT || brng == QOR_BRNG_DABSTRACT || brng == QOR_BRNG_SABSTRACT)
    return QOR_RNG_ERROR_INVALID_BRNG;
  int32_t row = 0, member = 0;
  GeneratorRecord *table = __rixGetBrngBaseOffset(brng, &row, &member);
  if (int32_t st = __rixIsBrngValid(table, row, member); st != QOR_RNG_OK) return st;
  // Legacy rows 279 and 280 pass the validity test but carry no generator:
  // refuse them before anything is allocated.
  if (!table[row].initStream) return QOR_RNG_ERROR_INVALID_BRNG;
  if (int32_t st = allocate_block(stream, table[row], brng); st != QOR_RNG_OK) return st;
  return table[row].initStream(QOR_RNG_INIT_SEED, *stream, static_cast<int32_t>(n), params);
}

QOR_API int32_t __rixAllocateStream(void **stream, const GeneratorRecord *table, int32_t brng,
                                    int32_t row, int32_t member) {
  if (int32_t st = __rixIsBrngValid(table, row, member); st != QOR_RNG_OK) return st;
  return allocate_block(stream, table[row], brng);
}

QOR_API int32_t __rixDeleteStream(void **stream) {
  // Deleting nothing is harmless rather than a crash.
  if (!stream || !*stream) return QOR_RNG_OK;
  __rixDeleteChunks(*stream);
  qor_serv_deallocate(*stream);
  *stream = nullptr;
  return QOR_RNG_OK;
}

QOR_API int32_t __rixCopyStream(void **newStream, const void *src) {
  int32_t row = 0, member = 0;
  const int32_t brng = header(src)->brng;
  GeneratorRecord *table = __rixGetBrngBaseOffset(brng, &row, &member);
  if (__rixIsBrngValid(table, row, member) != QOR_RNG_OK) return QOR_RNG_ERROR_INVALID_BRNG;
  void *copy = nullptr;
  if (int32_t st = allocate_block(&copy, table[row], brng); st != QOR_RNG_OK) return st;
  if (table[row].stateSize > kHeaderSize)
    std::memcpy(copy, src, static_cast<size_t>(table[row].stateSize));
  header(copy)->chunks = nullptr;
  *newStream = copy;
  return __rixCopyChunks(copy, src);
}

QOR_API int32_t __rixCopyStreamState(void *dst, const void *src) {
  if (dst == src) return QOR_RNG_OK;
  const GeneratorRecord *srow = row_of(header(src)->brng);
  const GeneratorRecord *drow = row_of(header(dst)->brng);
  if (srow && drow) {
    // seedCount x wordSize bytes of state, but never more than either block
    // holds after its header: for the WH set (4 words of 16 bytes in a
    // 32-byte state) the product is larger than the state itself.
    int64_t bytes = int64_t{srow->seedCount} * srow->wordSize;
    const int64_t src_room = int64_t{srow->stateSize} - kHeaderSize;
    const int64_t dst_room = int64_t{drow->stateSize} - kHeaderSize;
    if (bytes > src_room) bytes = src_room;
    if (bytes > dst_room) bytes = dst_room;
    if (bytes > 0)
      std::memcpy(state<unsigned char>(dst), state<const unsigned char>(const_cast<void *>(src)),
                  static_cast<size_t>(bytes));
  }
  __rixDeleteChunks(dst);
  return __rixCopyChunks(dst, src);
}

QOR_API int32_t __rixLeapfrogStream(void *stream, int32_t k, int32_t nstreams) {
  if (nstreams < 0) return QOR_RNG_ERROR_LEAPFROG_NSTREAMS;
  const uint32_t param = static_cast<uint32_t>(k);
  return dispatch_init(stream, QOR_RNG_INIT_LEAPFROG, nstreams, &param);
}

QOR_API int32_t __rixSkipAheadStream(void *stream, uint64_t nskip) {
  return dispatch_init(stream, QOR_RNG_INIT_SKIPAHEAD, 2,
                       reinterpret_cast<const uint32_t *>(&nskip));
}

QOR_API int32_t __rixSkipAheadStreamEx(void *stream, int32_t n, const uint64_t *nskip) {
  return dispatch_init(stream, QOR_RNG_INIT_SKIPAHEADEX, n,
                       reinterpret_cast<const uint32_t *>(nskip));
}

QOR_API int32_t __rixGetStreamStateBrng(const void *stream) { return header(stream)->brng; }

QOR_API int32_t __rixCPUisAES(void) { return cpuid_ecx_bit(25) ? 1 : 0; }
QOR_API int32_t __rixCPUisRDRAND(void) { return cpuid_ecx_bit(30) ? 1 : 0; }
QOR_API int32_t __rixCPUisVAES(void) { return qor_serv_cpuisicx(); }

}  // extern "C"
