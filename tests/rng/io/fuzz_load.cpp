// One fuzzing step for the memory loader, shared by the test program (which
// runs it over the mutation loop's inputs) and a libFuzzer build (compile
// with -DQOR_RNGIO_LIBFUZZER; see docs/rng_io.md).
//
// Whatever the input, loading must end in a status or in a whole stream: one
// that saves again, whose saved form loads back to the same bytes, and that
// its generator can draw from.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qor/rng.h"
#include "rng/core/serialize.h"

namespace qor_io_test {

int fuzz_one(const uint8_t *data, size_t size) {
  void *s = nullptr;
  const int32_t st = qor::rng::load_stream_memory(&s, data, size);
  if (st != 0) {
    if (s) std::abort();  // a failed load hands out nothing
    if (st != -1103 && st != -1200 && st != -4) std::abort();
    return 0;
  }
  const int32_t n = __rixGetStreamSize(s);
  if (n < 24) std::abort();
  std::vector<unsigned char> a(static_cast<size_t>(n)), b(static_cast<size_t>(n));
  if (__rixSaveStreamM(s, a.data()) != 0) std::abort();
  void *t = nullptr;
  if (qor::rng::load_stream_memory(&t, a.data(), a.size()) != 0) std::abort();
  if (__rixGetStreamSize(t) != n || __rixSaveStreamM(t, b.data()) != 0) std::abort();
  // Chunks come back in reverse order, so only the header and state must
  // match byte for byte; the chunk count must too.
  GeneratorRecord row;
  const int32_t brng = __rixGetStreamStateBrng(s);
  if (__rixGetBrngProperties(brng, &row) != 0) std::abort();
  const size_t fixed = row.stateSize > 16 ? static_cast<size_t>(row.stateSize) + 8 : 24;
  if (std::memcmp(a.data(), b.data(), fixed) != 0) std::abort();
  if (__rixGetNumChunks(s) != __rixGetNumChunks(t)) std::abort();
  // The state came from outside: the generator must still draw from it
  // without faulting.  Abstract streams hold pointers and are not drawn.
  const bool abstract = brng == QOR_BRNG_IABSTRACT || brng == QOR_BRNG_DABSTRACT ||
                        brng == QOR_BRNG_SABSTRACT;
  if (!abstract && row.generateI && row.generateD) {
    uint32_t words[4 * 300];
    double d[300];
    row.generateI(s, 300, words);
    row.generateD(t, 300, d, 0.0, 1.0);
  }
  __rixDeleteStream(&t);
  __rixDeleteStream(&s);
  return 0;
}

}  // namespace qor_io_test

#ifdef QOR_RNGIO_LIBFUZZER
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return qor_io_test::fuzz_one(data, size);
}
#endif
