// Internal helpers of the random stream core shared by the stream functions
// and the basic generators.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qor/core.h"
#include "qor/rng.h"

namespace qor::rng {

// Every block the stream core keeps is 128-byte aligned.
constexpr int kAlignment = 128;
constexpr int kHeaderSize = static_cast<int>(sizeof(StreamHeader));

constexpr int32_t kLegacyWhFirst = 4;
constexpr int32_t kLegacyWhLast = 276;
constexpr int32_t kWhRow = 4;

extern int32_t registered_brng_count;
extern int32_t brng_member_counts[QOR_RNG_REGISTRY_CAPACITY];

// The row of a stream's generator, or null when the identifier does not
// address a row inside either table.  Unlike the validity test this never
// looks at the member, so it is what the leapfrog and skip-ahead dispatch use.
const GeneratorRecord *row_of(int32_t brng);

// The member index of a stream's generator within its set (0 for
// single-member generators).
int32_t member_of(int32_t brng);

inline StreamHeader *header(void *stream) { return static_cast<StreamHeader *>(stream); }
inline const StreamHeader *header(const void *stream) {
  return static_cast<const StreamHeader *>(stream);
}

// Generator state: the bytes after the stream header.
template <class T>
inline T *state(void *stream) {
  return reinterpret_cast<T *>(static_cast<unsigned char *>(stream) + kHeaderSize);
}

void release_chunk(StreamChunk *c);

}  // namespace qor::rng
