// Small helpers shared by the random stream tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "qor/rng.h"

namespace qor_test {

// Owns a stream for the duration of a test.
class Stream {
 public:
  Stream() = default;
  Stream(int32_t brng, std::vector<uint32_t> seed) {
    status_ = __rixNewStreamEx(&p_, brng, static_cast<uint32_t>(seed.size()), seed.data());
  }
  ~Stream() { reset(); }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  void reset() {
    if (p_) __rixDeleteStream(&p_);
  }
  void **out() {
    reset();
    return &p_;
  }
  void *get() const { return p_; }
  void *release() {
    void *p = p_;
    p_ = nullptr;
    return p;
  }
  int32_t status() const { return status_; }

 private:
  void *p_ = nullptr;
  int32_t status_ = 0;
};

inline const GeneratorRecord &row_of(const void *stream) {
  int32_t row = 0, member = 0;
  const GeneratorRecord *t = __rixGetBrngBaseOffset(__rixGetStreamStateBrng(stream), &row, &member);
  return t[row];
}

// n output words of the stream's generator, flattened into 32-bit words.
inline std::vector<uint32_t> words(void *stream, int32_t n, int32_t *status = nullptr) {
  const GeneratorRecord &r = row_of(stream);
  std::vector<uint32_t> out(static_cast<size_t>(n) * r.wordSize / 4 + 1, 0xDEADBEEFu);
  const int32_t st = r.generateI(stream, n, out.data());
  if (status) *status = st;
  out.pop_back();
  return out;
}

inline std::vector<double> doubles(void *stream, int32_t n, double a, double b) {
  std::vector<double> out(static_cast<size_t>(n));
  EXPECT_EQ(row_of(stream).generateD(stream, n, out.data(), a, b), 0);
  return out;
}

inline std::vector<float> floats(void *stream, int32_t n, float a, float b) {
  std::vector<float> out(static_cast<size_t>(n));
  EXPECT_EQ(row_of(stream).generateS(stream, n, out.data(), a, b), 0);
  return out;
}

}  // namespace qor_test
