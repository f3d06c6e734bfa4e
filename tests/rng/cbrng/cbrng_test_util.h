// Stream blocks for the generator tests: a header followed by the state,
// allocated as the stream core does (128-byte aligned, from the core library).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "qor/core.h"
#include "rng/brng/cbrng.h"

namespace cbrng_test {

struct Generator {
  const char *name;
  int state_size;
  int32_t (*init)(int32_t, void *, int32_t, const uint32_t *);
  int32_t (*gen_s)(void *, int32_t, float *, float, float);
  int32_t (*gen_d)(void *, int32_t, double *, double, double);
  int32_t (*gen_i)(void *, int32_t, void *);
};

inline const Generator kArs5{
    "ARS5", 72, __rixBRngARS5InitStream, __rixsBRngARS5, __rixdBRngARS5, __rixiBRngARS5};
inline const Generator kPhilox{"PHILOX4X32X10",
                               64,
                               __rixBRngPHILOX4X32X10InitStream,
                               __rixsBRngPHILOX4X32X10,
                               __rixdBRngPHILOX4X32X10,
                               __rixiBRngPHILOX4X32X10};
inline const Generator kTrng{
    "TRNG", 24, __rixBRngTRNGInitStream, __rixsBRngTRNG, __rixdBRngTRNG, __rixiBRngTRNG};

// One stream block; copyable so that a test can fork a stream.
class Stream {
 public:
  Stream(const Generator &g, std::vector<uint32_t> seed) : g_(&g) {
    p_ = static_cast<unsigned char *>(qor_serv_allocate(g.state_size, 128));
    std::memset(p_, 0xCD, g.state_size);  // state bytes must all be written by seeding
    std::memset(p_, 0, 16);
    init_status_ =
        g.init(0, p_, static_cast<int>(seed.size()), seed.empty() ? nullptr : seed.data());
  }
  Stream(const Stream &o) : g_(o.g_), init_status_(o.init_status_) {
    p_ = static_cast<unsigned char *>(qor_serv_allocate(g_->state_size, 128));
    std::memcpy(p_, o.p_, g_->state_size);
  }
  Stream &operator=(const Stream &) = delete;
  ~Stream() { qor_serv_deallocate(p_); }

  void *get() { return p_; }
  int init_status() const { return init_status_; }
  template <class State>
  State &state() {
    return *reinterpret_cast<State *>(p_ + 16);
  }

  std::vector<uint32_t> words(int n) {
    std::vector<uint32_t> r(n > 0 ? n : 0);
    EXPECT_EQ(g_->gen_i(p_, n, r.data()), 0) << g_->name;
    return r;
  }
  int skip(uint64_t k) { return g_->init(2, p_, 2, reinterpret_cast<const unsigned int *>(&k)); }
  int skip_ex(std::vector<uint64_t> k) {
    return g_->init(3, p_, static_cast<int>(k.size()),
                    reinterpret_cast<const unsigned int *>(k.data()));
  }

 private:
  const Generator *g_;
  unsigned char *p_;
  int init_status_ = 0;
};

}  // namespace cbrng_test
