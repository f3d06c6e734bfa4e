// A Gaussian stream of the pair method carries its pending half-pair in a
// chunk; saving and loading must carry it too, so the loaded stream goes on
// with exactly the variates the original delivers next.
#include <vector>

#include "io_helpers.h"

using namespace qor_io_test;
using qor_test::Stream;

namespace {

TEST(StreamSave, PendingGaussianPairContinuesAfterLoad) {
  for (bool file : {false, true}) {
    Stream s(QOR_BRNG_MT19937, {77});
    ASSERT_EQ(s.status(), 0);
    std::vector<double> head(3);  // an odd count leaves one half of a pair pending
    ASSERT_EQ(_rixdRngGaussian(QOR_RNG_GAUSSIAN_BOXMULLER2, s.get(), 3, head.data(), 0.0, 1.0), 0);
    ASSERT_NE(__rixSearchChunk(s.get(), QOR_RNG_CHUNK_GAUSSIAN_PAIR), nullptr);

    Stream loaded;
    if (file) {
      TempFile f("gauss");
      ASSERT_EQ(__rixSaveStreamF(s.get(), f.c_str(), -1), 0);
      ASSERT_EQ(__rixLoadStreamF(loaded.out(), f.c_str(), -1), 0);
    } else {
      const Bytes b = save_memory(s.get());
      ASSERT_EQ(__rixLoadStreamM(loaded.out(), b.data()), 0);
    }
    std::vector<double> a(9), b(9);
    ASSERT_EQ(_rixdRngGaussian(QOR_RNG_GAUSSIAN_BOXMULLER2, s.get(), 9, a.data(), 0.0, 1.0), 0);
    ASSERT_EQ(_rixdRngGaussian(QOR_RNG_GAUSSIAN_BOXMULLER2, loaded.get(), 9, b.data(), 0.0, 1.0),
              0);
    EXPECT_EQ(a, b) << (file ? "file" : "memory");
  }
}

}  // namespace
