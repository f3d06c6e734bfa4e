// Saving a stream (generator state and chunks) to a file or a caller's
// buffer, and loading it back into a new stream that continues the same
// sequence.
//
// Layout (version 2, little-endian):
//   0  version byte 2          4  signature 0x474E52 ("RNG\0")
//   8  header size 24 (16 bit) 12 S, state bytes after the header (32 bit)
//   16 chunk count             20 generator identifier
//   24 S state bytes, then per chunk: id (4), key (16), size D (4), D bytes.
// The file writer stores the header as six full 32-bit words; the memory
// writer touches only the bytes listed above, so bytes 1-3, 10-11 and 18-19
// of the caller's buffer keep whatever they held.  Loaders also accept the
// older 20-byte header (versions 0 and 1) and version-0 chunk records, which
// have no key.
//
// Everything here is generic over registry rows: the state size comes from
// the row of the stream's identifier, so every generator, built-in or
// registered, saves and loads without code of its own.
#include "rng/core/serialize.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <limits>

#include "rng/core/internal.h"

using namespace qor::rng;

namespace {

constexpr uint32_t kSignature = 0x474E52;
constexpr uint32_t kVersion = 2;
constexpr uint32_t kHeaderBytes = 24;
constexpr uint32_t kOldHeaderBytes = 20;
constexpr uint32_t kChunkRecordBytes = 24;     // id, key, size
constexpr uint32_t kOldChunkRecordBytes = 8;   // id, size (version 0)

// State bytes that follow the header.  A registered row may declare a
// stateSize below the 16-byte header; its block then holds no state at all,
// and the saved form carries none (rather than a negative count).
int64_t state_bytes(const GeneratorRecord &row) {
  return row.stateSize > kHeaderSize ? int64_t{row.stateSize} - kHeaderSize : 0;
}

int64_t chunk_bytes(const StreamChunk *c) {
  return (c->size > 0 && c->data) ? int64_t{c->size} : 0;
}

uint32_t le32(const unsigned char *p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}
uint16_t le16(const unsigned char *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
void put32(unsigned char *p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
  p[2] = static_cast<unsigned char>(v >> 16);
  p[3] = static_cast<unsigned char>(v >> 24);
}
void put16(unsigned char *p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v);
  p[1] = static_cast<unsigned char>(v >> 8);
}

// Total bytes of the saved form, or -1 when the stream's identifier names no
// row.  Computed in 64 bits: chunk sizes are 32-bit each and may add up past
// the 32-bit result.
int64_t saved_size(const void *stream) {
  const GeneratorRecord *row = row_of(header(stream)->brng);
  if (!row) return -1;
  int64_t total = kHeaderBytes + state_bytes(*row);
  for (const StreamChunk *c = header(stream)->chunks; c; c = c->next)
    total += kChunkRecordBytes + chunk_bytes(c);
  return total;
}

// ---- sources the loader reads from ------------------------------------

// Reads from memory, never past `limit` bytes.
class MemorySource {
 public:
  MemorySource(const void *p, size_t limit) : p_(static_cast<const unsigned char *>(p)), limit_(limit) {}
  bool read(void *dst, size_t n) {
    if (n > limit_ - pos_) return false;
    if (n) std::memcpy(dst, p_ + pos_, n);
    pos_ += n;
    return true;
  }
  // Bytes that may still be read (SIZE_MAX - pos when the caller gave no
  // length).
  uint64_t remaining() const { return limit_ - pos_; }

 private:
  const unsigned char *p_;
  size_t limit_;
  size_t pos_ = 0;
};

// Reads from an open file.  For a regular file the size is known, so a
// chunk that claims more data than the file holds is refused before its
// block is allocated.
class FileSource {
 public:
  explicit FileSource(std::FILE *f) : f_(f) {
    struct stat st;
    if (fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode) && st.st_size >= 0)
      size_ = static_cast<uint64_t>(st.st_size);
  }
  bool read(void *dst, size_t n) {
    if (n == 0) return true;
    if (std::fread(dst, 1, n, f_) != n) return false;
    pos_ += n;
    return true;
  }
  uint64_t remaining() const {
    return size_ == kUnknown ? kUnknown : (pos_ <= size_ ? size_ - pos_ : 0);
  }

 private:
  static constexpr uint64_t kUnknown = std::numeric_limits<uint64_t>::max();
  std::FILE *f_;
  uint64_t size_ = kUnknown;
  uint64_t pos_ = 0;
};

struct Statuses {
  int32_t format;
  int32_t version;
};
constexpr Statuses kMemoryStatuses{QOR_RNG_ERROR_BAD_MEM_FORMAT, QOR_RNG_ERROR_BAD_MEM_FORMAT};
constexpr Statuses kFileStatuses{QOR_RNG_ERROR_BAD_FILE_FORMAT, QOR_RNG_ERROR_UNSUPPORTED_FILE_VER};

// Reads one chunk record and adds it to the stream (at the head of its
// list).  The data block is this function's until __rixAddChunk owns it;
// when the key is already in the shared table the chunk uses the table's
// copy, and the block just read is freed.
template <class Source>
int32_t load_chunk(Source &src, void *stream, uint32_t version) {
  unsigned char rec[kChunkRecordBytes];
  uint64_t key[2] = {0, 0};
  uint32_t id = 0;
  int32_t size = 0;
  if (version == 0) {
    if (!src.read(rec, kOldChunkRecordBytes)) return QOR_RNG_ERROR_FILE_READ;
    id = le32(rec);
    size = static_cast<int32_t>(le32(rec + 4));
  } else {
    if (!src.read(rec, kChunkRecordBytes)) return QOR_RNG_ERROR_FILE_READ;
    id = le32(rec);
    std::memcpy(key, rec + 4, sizeof key);
    size = static_cast<int32_t>(le32(rec + 20));
  }
  // A negative size, or one larger than what is left to read, can only be
  // damage: refuse it before allocating anything.
  if (size < 0 || static_cast<uint64_t>(size) > src.remaining()) return QOR_RNG_ERROR_FILE_READ;
  // A key names one block of data. A second record of this stream with the
  // same key would share the first one's block, so it must claim the same
  // size: a larger one would make every later save read past that block.
  if (key[0] != 0 || key[1] != 0) {
    for (const StreamChunk *c = header(stream)->chunks; c; c = c->next)
      if (c->key[0] == key[0] && c->key[1] == key[1] && c->size != size)
        return QOR_RNG_ERROR_FILE_READ;
  }
  void *data = nullptr;
  if (size > 0) {
    data = qor_serv_allocate(static_cast<size_t>(size), kAlignment);
    if (!data) return QOR_RNG_ERROR_MEM_FAILURE;
    if (!src.read(data, static_cast<size_t>(size))) {
      qor_serv_deallocate(data);
      return QOR_RNG_ERROR_FILE_READ;
    }
  }
  if (int32_t st = __rixAddChunk(stream, id, key, data, size); st != QOR_RNG_OK) {
    if (data) qor_serv_deallocate(data);
    return st;
  }
  if (header(stream)->chunks->data != data && data) qor_serv_deallocate(data);
  return QOR_RNG_OK;
}

// The loader behind both media.  `file` selects the 32-bit chunk count of
// the file header (memory holds only its low 16 bits).
template <class Source>
int32_t load_into(Source &src, bool file, const Statuses &bad, void **out) {
  unsigned char h[kHeaderBytes] = {};
  if (!src.read(h, 8)) return QOR_RNG_ERROR_FILE_READ;
  const uint32_t version = h[0];
  const uint32_t w0 = le32(h), w1 = le32(h + 4);
  uint32_t header_size = 0, count = 0;
  int64_t s = 0;
  int32_t brng = 0;
  if (version != kVersion) {
    // Older header: 16-bit state size at 10, 32-bit chunk count at 12,
    // identifier at 16, state from 20.
    if (!src.read(h + 8, kOldHeaderBytes - 8)) return QOR_RNG_ERROR_FILE_READ;
    header_size = kHeaderBytes;
    s = le16(h + 10);
    count = le32(h + 12);
    brng = static_cast<int32_t>(le32(h + 16));
  } else {
    if (!src.read(h + 8, kHeaderBytes - 8)) return QOR_RNG_ERROR_FILE_READ;
    header_size = le16(h + 8);
    s = static_cast<int32_t>(le32(h + 12));
    count = file ? le32(h + 16) : le16(h + 16);
    brng = static_cast<int32_t>(le32(h + 20));
  }

  if ((w0 & 0xFFFFFF) != kSignature && (w1 & 0xFFFFFF) != kSignature) return bad.format;
  if (version >= 3 && w1 > 2) return bad.version;
  int32_t row = 0, member = 0;
  const GeneratorRecord *table = __rixGetBrngBaseOffset(brng, &row, &member);
  if (__rixIsBrngValid(table, row, member) != QOR_RNG_OK) return bad.format;
  if (s != state_bytes(table[row])) return bad.format;
  if (header_size < kHeaderBytes) return bad.format;

  void *stream = nullptr;
  if (int32_t st = __rixAllocateStream(&stream, table, brng, row, member); st != QOR_RNG_OK)
    return st;
  int32_t st = QOR_RNG_OK;
  if (!src.read(state<unsigned char>(stream), static_cast<size_t>(s)))
    st = QOR_RNG_ERROR_FILE_READ;
  else if (brng == QOR_BRNG_NONDETERM && !load_has_rdrand())
    st = QOR_RNG_ERROR_NONDETERM_NOT_SUPPORTED;
  else if (brng == QOR_BRNG_ARS5 && !load_has_aes())
    st = QOR_RNG_ERROR_ARS5_NOT_SUPPORTED;
  else if (count > 0 && version > kVersion)
    st = QOR_RNG_ERROR_FILE_READ;
  for (uint32_t i = 0; st == QOR_RNG_OK && i < count; ++i) st = load_chunk(src, stream, version);
  if (st != QOR_RNG_OK) {
    __rixDeleteStream(&stream);
    return st;
  }
  *out = stream;
  return QOR_RNG_OK;
}

// The file functions take a name of nameLength characters, or a
// zero-terminated name when nameLength is negative.  A counted name is
// copied with its terminator into a block of its own.
class FileName {
 public:
  FileName(const char *name, int32_t length) {
    if (length < 0 || !name) {
      c_str_ = name;
      return;
    }
    const size_t n = static_cast<size_t>(length);
    copy_ = static_cast<char *>(qor_serv_allocate(n + 1, kAlignment));
    if (!copy_) return;
    if (n) qor_serv_memcpy_s(copy_, n + 1, name, n);
    copy_[n] = '\0';
    c_str_ = copy_;
  }
  ~FileName() {
    if (copy_) qor_serv_deallocate(copy_);
  }
  FileName(const FileName &) = delete;
  FileName &operator=(const FileName &) = delete;
  // Null when the copy could not be allocated (or no name was given).
  const char *c_str() const { return c_str_; }
  bool allocation_failed(const char *name, int32_t length) const {
    return name && length >= 0 && !copy_;
  }

 private:
  const char *c_str_ = nullptr;
  char *copy_ = nullptr;
};

}  // namespace

namespace qor::rng {

int32_t (*load_has_rdrand)() = __rixCPUisRDRAND;
int32_t (*load_has_aes)() = __rixCPUisAES;

int32_t load_stream_memory(void **stream, const void *buffer, size_t length) {
  *stream = nullptr;
  MemorySource src(buffer, length);
  return load_into(src, false, kMemoryStatuses, stream);
}

}  // namespace qor::rng

extern "C" {

QOR_API int32_t __rixGetStreamSize(const void *stream) {
  const int64_t size = saved_size(stream);
  if (size < 0) return QOR_RNG_ERROR_INVALID_BRNG;
  // Sizes beyond 32 bits cannot be reported; __rixSaveStreamM refuses such
  // a stream, so the saturated value never sizes a buffer that is written.
  return size > std::numeric_limits<int32_t>::max() ? std::numeric_limits<int32_t>::max()
                                                   : static_cast<int32_t>(size);
}

QOR_API int32_t __rixSaveStreamM(const void *stream, void *buffer) {
  const GeneratorRecord *row = row_of(header(stream)->brng);
  if (!row) return QOR_RNG_ERROR_INVALID_BRNG;
  const int32_t count = __rixGetNumChunks(stream);
  // The memory header holds a 16-bit chunk count, and __rixGetStreamSize a
  // 32-bit size: a stream beyond either cannot be saved without losing
  // chunks or writing past the buffer the caller sized, so nothing is written.
  if (count > 0xFFFF || saved_size(stream) > std::numeric_limits<int32_t>::max())
    return QOR_RNG_ERROR_FILE_WRITE;
  const int64_t s = state_bytes(*row);
  auto *b = static_cast<unsigned char *>(buffer);
  b[0] = static_cast<unsigned char>(kVersion);
  put32(b + 4, kSignature);
  put16(b + 8, kHeaderBytes);
  put32(b + 12, static_cast<uint32_t>(s));
  put16(b + 16, static_cast<uint32_t>(count));
  put32(b + 20, static_cast<uint32_t>(header(stream)->brng));
  unsigned char *p = b + kHeaderBytes;
  if (s > 0) std::memcpy(p, state<const unsigned char>(const_cast<void *>(stream)), s);
  p += s;
  for (const StreamChunk *c = header(stream)->chunks; c; c = c->next) {
    const int64_t d = chunk_bytes(c);
    put32(p, c->id);
    std::memcpy(p + 4, c->key, 16);
    put32(p + 20, static_cast<uint32_t>(d));
    if (d > 0) std::memcpy(p + kChunkRecordBytes, c->data, static_cast<size_t>(d));
    p += kChunkRecordBytes + d;
  }
  return QOR_RNG_OK;
}

QOR_API int32_t __rixLoadStreamM(void **stream, const void *buffer) {
  return load_stream_memory(stream, buffer, std::numeric_limits<size_t>::max());
}

// Further arguments after the name length are passed through by the core
// library and not used here.
QOR_API int32_t __rixSaveStreamF(const void *stream, const char *name, int32_t nameLength, ...) {
  const GeneratorRecord *row = row_of(header(stream)->brng);
  if (!row) return QOR_RNG_ERROR_INVALID_BRNG;
  FileName fname(name, nameLength);
  if (fname.allocation_failed(name, nameLength)) return QOR_RNG_ERROR_MEM_FAILURE;
  std::FILE *f = fname.c_str() ? std::fopen(fname.c_str(), "wb") : nullptr;
  if (!f) return QOR_RNG_ERROR_FILE_OPEN;

  const int64_t s = state_bytes(*row);
  unsigned char h[kHeaderBytes];
  put32(h, kVersion);
  put32(h + 4, kSignature);
  put32(h + 8, kHeaderBytes);
  put32(h + 12, static_cast<uint32_t>(s));
  put32(h + 16, static_cast<uint32_t>(__rixGetNumChunks(stream)));
  put32(h + 20, static_cast<uint32_t>(header(stream)->brng));
  int32_t st = QOR_RNG_OK;
  if (std::fwrite(h, sizeof h, 1, f) != 1) st = QOR_RNG_ERROR_FILE_WRITE;
  if (st == QOR_RNG_OK && s > 0 &&
      std::fwrite(state<const unsigned char>(const_cast<void *>(stream)), static_cast<size_t>(s),
                  1, f) != 1)
    st = QOR_RNG_ERROR_FILE_WRITE;
  // Of the chunk writes only the last data write is checked.  It writes one
  // item of D bytes, so a last chunk with no data reports a failed write:
  // callers rely on that result, so it is kept.
  for (const StreamChunk *c = header(stream)->chunks; st == QOR_RNG_OK && c; c = c->next) {
    const int64_t d = chunk_bytes(c);
    unsigned char rec[kChunkRecordBytes];
    put32(rec, c->id);
    std::memcpy(rec + 4, c->key, 16);
    put32(rec + 20, static_cast<uint32_t>(d));
    std::fwrite(rec, 4, 1, f);
    std::fwrite(rec + 4, 16, 1, f);
    std::fwrite(rec + 20, 4, 1, f);
    const size_t written = std::fwrite(c->data, static_cast<size_t>(d), 1, f);
    if (!c->next && written != 1) st = QOR_RNG_ERROR_FILE_WRITE;
  }
  if (std::fclose(f) != 0 && st == QOR_RNG_OK) st = QOR_RNG_ERROR_FILE_CLOSE;
  return st;
}

QOR_API int32_t __rixLoadStreamF(void **stream, const char *name, int32_t nameLength, ...) {
  *stream = nullptr;
  FileName fname(name, nameLength);
  if (fname.allocation_failed(name, nameLength)) return QOR_RNG_ERROR_MEM_FAILURE;
  std::FILE *f = fname.c_str() ? std::fopen(fname.c_str(), "rb") : nullptr;
  if (!f) return QOR_RNG_ERROR_FILE_OPEN;
  FileSource src(f);
  int32_t st = load_into(src, true, kFileStatuses, stream);
  if (std::fclose(f) != 0 && st == QOR_RNG_OK) {
    __rixDeleteStream(stream);
    st = QOR_RNG_ERROR_FILE_CLOSE;
  }
  return st;
}

}  // extern "C"
