// Helpers shared by the stream save and load tests.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "rng/helpers.h"
#include "qor/core.h"
#include "qor/rng.h"

namespace qor_io_test {

using Bytes = std::vector<unsigned char>;

// Generators of the built-in table that can be seeded with no seed words;
// the abstract rows, which need the caller's buffers, are left out.
inline std::vector<int32_t> seedable_builtins() {
  std::vector<int32_t> ids;
  for (int32_t row = 0; row < QOR_RNG_BUILTIN_ROWS; ++row) {
    const int32_t id = (row + 1) << 20;
    void *s = nullptr;
    const uint32_t seed[2] = {12345, 678};
    const int32_t st = __rixNewStreamEx(&s, id, 2, seed);
    if (s) __rixDeleteStream(&s);
    if (st == 0) ids.push_back(id);
  }
  return ids;
}

inline Bytes save_memory(const void *stream) {
  const int32_t n = __rixGetStreamSize(stream);
  EXPECT_GT(n, 0);
  Bytes b(static_cast<size_t>(n > 0 ? n : 0), 0);
  EXPECT_EQ(__rixSaveStreamM(stream, b.data()), 0);
  return b;
}

inline void put32(Bytes &b, size_t at, uint32_t v) { std::memcpy(b.data() + at, &v, 4); }
inline void put16(Bytes &b, size_t at, uint16_t v) { std::memcpy(b.data() + at, &v, 2); }
inline uint32_t get32(const Bytes &b, size_t at) {
  uint32_t v;
  std::memcpy(&v, b.data() + at, 4);
  return v;
}

// A file name in the test's temporary directory, removed on destruction.
class TempFile {
 public:
  explicit TempFile(const std::string &tag)
      : path_(::testing::TempDir() + "qor_rngio_" + std::to_string(getpid()) + "_" + tag) {}
  ~TempFile() { std::remove(path_.c_str()); }
  const std::string &path() const { return path_; }
  const char *c_str() const { return path_.c_str(); }
  void write(const Bytes &b) const {
    std::FILE *f = std::fopen(path_.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    const size_t written = b.empty() ? 1 : std::fwrite(b.data(), b.size(), 1, f);
    std::fclose(f);
    ASSERT_EQ(written, 1u);
  }
  Bytes read() const {
    Bytes b;
    std::FILE *f = std::fopen(path_.c_str(), "rb");
    if (!f) return b;
    int c;
    while ((c = std::fgetc(f)) != EOF) b.push_back(static_cast<unsigned char>(c));
    std::fclose(f);
    return b;
  }

 private:
  std::string path_;
};

// Chunks of a stream, head first.
inline std::vector<const StreamChunk *> chunk_list(const void *stream) {
  std::vector<const StreamChunk *> v;
  for (const StreamChunk *c = static_cast<const StreamHeader *>(stream)->chunks; c; c = c->next)
    v.push_back(c);
  return v;
}

// A private chunk block filled with `fill`, allocated as the library's own.
inline void *chunk_block(size_t n, unsigned char fill) {
  void *p = qor_serv_allocate(n, 128);
  std::memset(p, fill, n);
  return p;
}

}  // namespace qor_io_test
