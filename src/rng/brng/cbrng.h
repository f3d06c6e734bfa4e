// Counter-based generators (ARS5, Philox4x32-10) and the RDRAND generator:
// state layouts behind the 16-byte stream header, the registry routines and
// the internal helpers they share.
//
// The block functions of ARS5 live in ars5_aes.cpp (compiled with -maes) and
// the RDRAND code in rdrand_rdrand.cpp (compiled with -mrdrnd); nothing in
// this header may be defined inline with those instructions, because inline
// definitions are merged across translation units by the linker.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qor/rng.h"

namespace qor::rng {

// Every stream starts with a 16-byte header owned by the stream core; a
// generator's own state follows it.
inline constexpr std::size_t kStreamHeaderBytes = 16;

struct Ars5State {
  uint32_t key[4];     // 128-bit key, word 0 least significant
  uint64_t ctr[2];     // counter of the next block to compute: low, high
  uint32_t remaining;  // undelivered words of buf (its last `remaining` words)
  uint32_t buf[4];     // the last block computed
};
static_assert(offsetof(Ars5State, ctr) == 16 && offsetof(Ars5State, remaining) == 32 &&
              offsetof(Ars5State, buf) == 36);
static_assert(kStreamHeaderBytes + sizeof(Ars5State) == 72, "ARS5 stream size");

struct PhiloxState {
  uint32_t key[2];
  uint32_t ctr[4];     // counter of the next block to compute, word 0 least significant
  uint32_t remaining;  // undelivered words of buf (its last `remaining` words)
  uint32_t buf[4];
};
static_assert(offsetof(PhiloxState, ctr) == 8 && offsetof(PhiloxState, remaining) == 24 &&
              offsetof(PhiloxState, buf) == 28);
static_assert(kStreamHeaderBytes + sizeof(PhiloxState) <= 64, "Philox stream size");

struct TrngState {
  uint32_t reserved;     // always 0
  uint32_t retry_limit;  // attempts allowed per RDRAND value
};
static_assert(kStreamHeaderBytes + sizeof(TrngState) == 24, "RDRAND stream size");

template <class State>
inline State *state_of(void *stream) {
  return reinterpret_cast<State *>(static_cast<unsigned char *>(stream) + kStreamHeaderBytes);
}

// Status codes of these generators.
inline constexpr int kStatusOk = 0;
inline constexpr int kStatusBadMethod = -2;
inline constexpr int kStatusNoLeapfrog = -1002;
inline constexpr int kStatusNoSkipAhead = -1003;
inline constexpr int kStatusNoSkipAheadEx = -1004;
inline constexpr int kStatusNoRdrand = -1130;
inline constexpr int kStatusRdrandFailed = -1131;
inline constexpr int kStatusNoAes = -1140;

inline constexpr uint32_t kTrngDefaultRetryLimit = 10;

// Processor features, from CPUID leaf 1 (ECX bit 25 AES, bit 30 RDRAND).
// Tests may pretend that a feature is missing to reach the refusal paths; a
// present feature can never be faked.
// The answers are those of __rixCPUisAES / __rixCPUisRDRAND, read once and kept:
// CPUID can cost a hypervisor exit, far more than a short generation call.
bool cpu_has_aes();
bool cpu_has_rdrand();
void cbrng_pretend_missing(bool aes_missing, bool rdrand_missing);

// Test seam for the RDRAND instruction: each step returns 1 and writes a value
// on success, 0 on failure (carry clear).  Passing null restores the real
// instruction.  Not thread-safe; meant for the test program only.
using RdrandStep64 = int (*)(unsigned long long *value);
using RdrandStep32 = int (*)(unsigned int *value);
void rdrand_set_steps(RdrandStep64 step64, RdrandStep32 step32);

// Multi-word skip counts are taken as 192-bit numbers (three 64-bit words,
// least significant first); longer counts are cut to their first three words.
struct SkipCount {
  uint64_t w[3];
};
// Reads the count of skip-ahead method 2 (one 64-bit word) or method 3 (n
// 64-bit words).  The parameter block is read with memcpy: callers pass it as
// a pointer to 32-bit words.
SkipCount skip_count_single(const unsigned int *params);
SkipCount skip_count_multi(int n, const unsigned int *params);

// The splitting of a skip of k words against `remaining` buffered words, as
// both block generators need it.  When k <= remaining the skip stays inside
// the buffer (`within`); otherwise d = k - remaining words follow the buffer.
struct SkipSplit {
  bool within;
  uint32_t d_mod4;  // d mod 4
  uint64_t q[2];    // floor(d / 4) mod 2^128
  uint64_t qm1[2];  // floor((d - 1) / 4) mod 2^128
};
SkipSplit split_skip(const SkipCount &k, uint32_t remaining);

// Uniform scaling r = a + u * (b - a) * 2^-32 of 32-bit words.  A value that
// rounds up to b is replaced by the largest value below b, so that results
// always lie in [a, b).
void scale_u32_to_float(const uint32_t *u, int n, float *r, float a, float b);
void scale_u32_to_double(const uint32_t *u, int n, double *r, double a, double b);

// Block functions, exposed for tests and the skip-ahead code.
void philox4x32_10_block(const uint32_t key[2], const uint32_t ctr[4], uint32_t out[4]);
// Fills n whole blocks (4n words) from counter ctr, which is advanced by n.
void philox4x32_10_blocks(const uint32_t key[2], uint32_t ctr[4], uint64_t n, uint32_t *out);
// ARS5 block of (key, ctr); requires AES (callers check cpu_has_aes()).
void ars5_block(const uint32_t key[4], const uint64_t ctr[2], uint32_t out[4]);

}  // namespace qor::rng

// The registry routines themselves (__rixBRngARS5InitStream, __rixiBRngARS5,
// ...) are declared with the other generators in qor/rng.h.
