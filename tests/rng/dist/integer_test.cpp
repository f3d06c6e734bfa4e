// Integer uniform, Bernoulli and the uniform-bits members.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "../helpers.h"
#include "dist_helpers.h"
#include "qor/rng.h"

namespace {

using qor_dist_test::FedStream;

TEST(DistIntUniform, TwinStreamFloorsAndStaysInRange) {
  const struct {
    int32_t a, b;
  } ranges[] = {{-3, 2},
                {INT32_MIN, INT32_MIN + 10},
                {INT32_MAX - 10, INT32_MAX},
                {INT32_MIN, INT32_MAX},
                {0, 1},
                {-1000, 1000}};
  for (const auto &rg : ranges) {
    SCOPED_TRACE(std::to_string(rg.a) + " " + std::to_string(rg.b));
    qor_test::Stream s(QOR_BRNG_MCG31, {17}), twin(QOR_BRNG_MCG31, {17});
    const int32_t n = 2500;  // two full rounds and a tail
    std::vector<int32_t> r(n + 1, 12345);
    ASSERT_EQ(_rixiRngUniform(0, s.get(), n, r.data(), rg.a, rg.b), 0);
    EXPECT_EQ(r[n], 12345);
    const auto u = qor_test::doubles(twin.get(), n, double(rg.a), double(rg.b));
    for (int32_t i = 0; i < n; ++i) {
      ASSERT_GE(r[i], rg.a);
      ASSERT_LT(r[i], rg.b);
      const double f = std::floor(u[static_cast<size_t>(i)]);
      ASSERT_EQ(r[i], f >= double(rg.b) ? rg.b - 1 : static_cast<int32_t>(f)) << i;
    }
  }
}

TEST(DistIntUniform, NegativeHalfFloorsDown) {
  FedStream fs(false, {0.5, 0.0, 0.9999});
  int32_t r[3];
  ASSERT_EQ(_rixiRngUniform(0, fs.get(), 3, r, -3, 2), 0);
  EXPECT_EQ(r[0], -1);  // -0.5
  EXPECT_EQ(r[1], -3);
  EXPECT_EQ(r[2], 1);
}

TEST(DistIntUniform, ChiSquareAtOnePercent) {
  const struct {
    int32_t a, b;
    double critical;  // chi-square, b - a - 1 degrees of freedom, 1%
  } cases[] = {{-3, 2, 13.277}, {-50, 50, 134.642}, {INT32_MAX - 100, INT32_MAX, 134.642}};
  const int32_t n = 1000000;
  std::vector<int32_t> r(n);
  for (const auto &c : cases) {
    SCOPED_TRACE(std::to_string(c.a));
    qor_test::Stream s(QOR_BRNG_MCG31, {4242});
    ASSERT_EQ(_rixiRngUniform(0, s.get(), n, r.data(), c.a, c.b), 0);
    const int64_t k = int64_t{c.b} - c.a;
    std::vector<double> count(static_cast<size_t>(k));
    for (int32_t x : r) count[static_cast<size_t>(int64_t{x} - c.a)] += 1;
    const double e = double(n) / double(k);
    double chi = 0;
    for (double o : count) chi += (o - e) * (o - e) / e;
    EXPECT_LT(chi, c.critical);
  }
}

TEST(DistBernoulli, FrequenciesWithinFiveStandardErrors) {
  const int32_t n = 1000000;
  std::vector<uint32_t> r(n);
  for (double p : {0.0, 0.3, 0.5, 0.97, 1.0}) {
    SCOPED_TRACE(p);
    qor_test::Stream s(QOR_BRNG_MCG31, {8});
    ASSERT_EQ(_rixiRngBernoulli(0, s.get(), n, r.data(), p), 0);
    double ones = 0;
    for (uint32_t x : r) {
      ASSERT_LE(x, 1u);
      ones += x;
    }
    const double se = std::sqrt(p * (1 - p) / n);
    if (p == 0.0 || p == 1.0)
      EXPECT_EQ(ones, p * n);
    else
      EXPECT_NEAR(ones / n, p, 5 * se);
  }
}

TEST(DistBernoulli, ComparesSingleUniformsOfTwinStream) {
  for (int32_t n : {1, 7, 1001}) {
    qor_test::Stream s(QOR_BRNG_MCG31, {55}), twin(QOR_BRNG_MCG31, {55});
    std::vector<uint32_t> r(static_cast<size_t>(n));
    ASSERT_EQ(_rixiRngBernoulli(0, s.get(), n, r.data(), 0.4), 0);
    const auto u = qor_test::floats(twin.get(), n, 0.0f, 1.0f);
    for (int32_t i = 0; i < n; ++i)
      EXPECT_EQ(r[static_cast<size_t>(i)], u[static_cast<size_t>(i)] < 0.4f ? 1u : 0u) << i;
  }
}

TEST(DistBits, NativeWordsOfTwin) {
  for (int32_t brng : {QOR_BRNG_MRG32K3A, QOR_BRNG_MCG59, QOR_BRNG_WH, QOR_BRNG_PHILOX4X32X10}) {
    SCOPED_TRACE(brng);
    qor_test::Stream s(brng, {3}), twin(brng, {3});
    ASSERT_EQ(s.status(), 0);
    const auto want = qor_test::words(twin.get(), 5);
    std::vector<uint32_t> r(want.size() + 1, 0xABABABABu);
    ASSERT_EQ(_rixiRngUniformBits(0, s.get(), 5, r.data()), 0);
    EXPECT_EQ(r.back(), 0xABABABABu);
    r.pop_back();
    EXPECT_EQ(r, want);
  }
}

TEST(DistBits, Mcg59TopBits) {
  for (int32_t n : {1, 2049}) {
    qor_test::Stream s(QOR_BRNG_MCG59, {99}), twin(QOR_BRNG_MCG59, {99});
    const auto w = qor_test::words(twin.get(), 2 * n);  // 64-bit words as pairs
    std::vector<uint32_t> r32(static_cast<size_t>(n) + 1, 7);
    ASSERT_EQ(_rixiRngUniformBits32(0, s.get(), n, r32.data()), 0);
    EXPECT_EQ(r32[static_cast<size_t>(n)], 7u);
    std::vector<uint32_t> r64(2 * static_cast<size_t>(n) + 1, 7);
    ASSERT_EQ(_rixiRngUniformBits64(0, s.get(), n, r64.data()), 0);
    EXPECT_EQ(r64[2 * static_cast<size_t>(n)], 7u);
    auto top = [&](int32_t k) {
      const uint64_t x = w[2 * size_t(k)] | (uint64_t{w[2 * size_t(k) + 1]} << 32);
      return static_cast<uint32_t>(x >> 27);
    };
    for (int32_t i = 0; i < n; ++i) ASSERT_EQ(r32[size_t(i)], top(i)) << i;
    // The 64-bit results continue the stream: words n .. 3n-1, low first.
    qor_test::Stream t2(QOR_BRNG_MCG59, {99});
    const auto all = qor_test::words(t2.get(), 3 * n);
    for (int32_t i = 0; i < 2 * n; ++i) {
      const size_t k = size_t(n + i);
      const uint64_t x = all[2 * k] | (uint64_t{all[2 * k + 1]} << 32);
      ASSERT_EQ(r64[size_t(i)], static_cast<uint32_t>(x >> 27)) << i;
    }
  }
}

TEST(DistBits, ThirtyTwoBitRowsPairForSixtyFour) {
  qor_test::Stream s(QOR_BRNG_PHILOX4X32X10, {5}), twin(QOR_BRNG_PHILOX4X32X10, {5});
  std::vector<uint32_t> r32(3), r64(6);
  ASSERT_EQ(_rixiRngUniformBits32(0, s.get(), 3, r32.data()), 0);
  ASSERT_EQ(_rixiRngUniformBits64(0, s.get(), 3, r64.data()), 0);
  const auto w = qor_test::words(twin.get(), 9);
  EXPECT_EQ(r32, std::vector<uint32_t>(w.begin(), w.begin() + 3));
  EXPECT_EQ(r64, std::vector<uint32_t>(w.begin() + 3, w.end()));
}

TEST(DistBits, RowsThatCannotServeRefuse) {
  for (int32_t brng : {QOR_BRNG_MCG31, QOR_BRNG_R250, QOR_BRNG_MRG32K3A, QOR_BRNG_WH}) {
    SCOPED_TRACE(brng);
    qor_test::Stream s(brng, {3}), twin(brng, {3});
    uint32_t r[4] = {1, 2, 3, 4};
    EXPECT_EQ(_rixiRngUniformBits32(0, s.get(), 2, r), QOR_RNG_ERROR_NO_UNIFORM_BITS);
    EXPECT_EQ(_rixiRngUniformBits64(0, s.get(), 2, r), QOR_RNG_ERROR_NO_UNIFORM_BITS);
    EXPECT_EQ(r[0], 1u);
    EXPECT_EQ(r[3], 4u);
    // Nothing was drawn.
    EXPECT_EQ(qor_test::words(s.get(), 2), qor_test::words(twin.get(), 2));
  }
  FedStream fs(false, {0.5});
  uint32_t r[2];
  EXPECT_EQ(_rixiRngUniformBits32(0, fs.get(), 2, r), QOR_RNG_ERROR_NO_UNIFORM_BITS);
}

TEST(DistIntegers, FailingDrawReturnsItsStatus) {
  FedStream fs(false, {0.5}, true);
  int32_t r[4];
  EXPECT_EQ(_rixiRngUniform(0, fs.get(), 4, r, 0, 10), QOR_RNG_ERROR_NO_NUMBERS);
  FedStream fss(true, {0.5}, true);
  uint32_t b[4];
  EXPECT_EQ(_rixiRngBernoulli(0, fss.get(), 4, b, 0.5), QOR_RNG_ERROR_NO_NUMBERS);
}

}  // namespace
