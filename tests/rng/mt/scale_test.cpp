// The vector conversion of the twisters' 32-bit words to uniforms on [a, b)
// against the plain formula, element by element and bit for bit: every
// length of tail, unaligned input and output, the extreme words, and
// intervals where the product rounds up to b and must be pulled below it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "../../../src/rng/brng/twister_common.h"

namespace {

using qor::rng::twister::scale_to_double;
using qor::rng::twister::scale_to_float;

// r = a + u (b - a) 2^-32, rounded in the output precision; a result that
// reaches b becomes the largest value below b.
double want_double(uint32_t u, double a, double b) {
  const double f = (b - a) * 0x1p-32;
  const double v = a + static_cast<double>(u) * f;
  return v >= b ? std::nextafter(b, a) : v;
}
float want_float(uint32_t u, float a, float b) {
  const float f = (b - a) * 0x1p-32f;
  const float v = a + static_cast<float>(u) * f;
  return v >= b ? std::nextafter(b, a) : v;
}

std::vector<uint32_t> test_words() {
  std::vector<uint32_t> w = {0u,          1u,          2u,          0x7FFFFFFFu, 0x80000000u,
                             0x80000001u, 0xFFFFFFFEu, 0xFFFFFFFFu, 0xFFFFFF80u, 0xFFFFFF7Fu,
                             0x00FFFFFFu, 0x01000001u, 0xFFFFF800u, 0x43300000u};
  std::mt19937 g(20261124);
  for (int i = 0; i < 2000; ++i) w.push_back(static_cast<uint32_t>(g()));
  return w;
}

const struct Interval {
  double a, b;
} kIntervals[] = {
    {0.0, 1.0},       {-1.0, 1.0},    {1e9, 1e9 + 1.0}, {-2.5, 1e300},
    {0.0, 0x1p-40},   {-7.0, -6.0},   {1.0, 2.0},       {-1e-300, 1e-300},
    {3.0, 3.0 + 0x1p-30},
};

TEST(TwisterScale, DoublesMatchTheFormulaBitForBit) {
  const std::vector<uint32_t> words = test_words();
  for (const Interval &iv : kIntervals) {
    SCOPED_TRACE(std::to_string(iv.a) + " " + std::to_string(iv.b));
    const double f = (iv.b - iv.a) * 2.3283064365386963e-10;
    // Offsets of input and output by one element make them unaligned; the
    // lengths 0..9 exercise every tail of the vector loop.
    for (size_t in_off : {0, 1, 3}) {
      for (size_t out_off : {0, 1}) {
        for (int n : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, int(words.size() - in_off)}) {
          std::vector<double> out(words.size() + 2, -123.0);
          scale_to_double(words.data() + in_off, n, out.data() + out_off, iv.a, iv.b, f);
          for (int i = 0; i < n; ++i) {
            const uint32_t u = words[in_off + size_t(i)];
            const double got = out[out_off + size_t(i)], want = want_double(u, iv.a, iv.b);
            ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0)
                << "word " << u << ": " << got << " vs " << want;
            ASSERT_LT(got, iv.b);
            ASSERT_GE(got, iv.a);
          }
          // Nothing beyond the n results is written.
          if (out_off) {
            ASSERT_EQ(out[0], -123.0);
          }
          ASSERT_EQ(out[out_off + size_t(n)], -123.0) << n;
        }
      }
    }
  }
}

TEST(TwisterScale, FloatsMatchTheFormulaBitForBit) {
  const std::vector<uint32_t> words = test_words();
  for (const Interval &iv : kIntervals) {
    const float a = static_cast<float>(iv.a), b = static_cast<float>(iv.b);
    if (!(a < b) || !std::isfinite(b)) continue;
    SCOPED_TRACE(std::to_string(a) + " " + std::to_string(b));
    const float f = (b - a) * 2.3283064365386963e-10f;
    for (int n : {0, 1, 3, 4, 5, 7, int(words.size() - 1)}) {
      std::vector<float> out(words.size() + 1, -123.0f);
      scale_to_float(words.data() + 1, n, out.data(), a, b, f);
      for (int i = 0; i < n; ++i) {
        const float got = out[size_t(i)], want = want_float(words[size_t(i) + 1], a, b);
        ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0) << words[size_t(i) + 1];
      }
      ASSERT_EQ(out[size_t(n)], -123.0f);
    }
  }
}

}  // namespace
