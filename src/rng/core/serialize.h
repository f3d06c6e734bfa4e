// Stream save and load shared by the memory and file entry points.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qor::rng {

// Loads a stream from the memory form, reading at most `length` bytes of
// `buffer`.  A record that would run past `length` fails with -1103 instead
// of being read.  __rixLoadStreamM has no length argument and passes
// SIZE_MAX, so for it the sizes declared inside the buffer are the only
// bound.
int32_t load_stream_memory(void **stream, const void *buffer, size_t length);

// The processor queries the loaders consult before handing out a stream of
// the RDRAND or the ARS5 generator (__rixCPUisRDRAND and __rixCPUisAES).
// They are pointers so that tests can stand in for a processor without the
// feature.
extern int32_t (*load_has_rdrand)();
extern int32_t (*load_has_aes)();

}  // namespace qor::rng
