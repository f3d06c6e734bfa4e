// Stateful and exceptional behaviour of the continuous distributions: the
// Gaussian pending pair, replacement values for a uniform of exactly 0, and
// restoration of the caller's vector-math and floating-point state.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "../helpers.h"
#include "dist_helpers.h"
#include "qor/pex.h"
#include "qor/rng.h"

namespace {

using qor_dist_test::FedStream;

std::vector<double> gauss1(void *s, const std::vector<int32_t> &sizes) {
  std::vector<double> out;
  for (int32_t n : sizes) {
    std::vector<double> r(static_cast<size_t>(n));
    EXPECT_EQ(_rixdRngGaussian(1, s, n, r.data(), 0.5, 2.0), 0);
    out.insert(out.end(), r.begin(), r.end());
  }
  return out;
}

TEST(DistGaussianPair, SequenceIndependentOfCallSizes) {
  const std::vector<std::vector<int32_t>> splits = {
      {1, 1, 1, 1, 2049}, {4, 2049}, {2, 0, 3, 1024, 1024}, {2053}, {1, 2051, 1}};
  std::vector<double> first;
  for (const auto &sizes : splits) {
    qor_test::Stream s(QOR_BRNG_MCG31, {99});
    const auto got = gauss1(s.get(), sizes);
    ASSERT_EQ(got.size(), 2053u);
    if (first.empty()) {
      first = got;
      continue;
    }
    for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i], first[i]) << "element " << i;
  }
}

TEST(DistGaussianPair, SingleSequenceIndependentOfCallSizes) {
  qor_test::Stream a(QOR_BRNG_MCG31, {7}), b(QOR_BRNG_MCG31, {7});
  std::vector<float> whole(9), parts(9);
  ASSERT_EQ(_rixsRngGaussian(1, a.get(), 9, whole.data(), 0.0f, 1.0f), 0);
  int32_t at = 0;
  for (int32_t n : {1, 3, 1, 4}) {
    ASSERT_EQ(_rixsRngGaussian(1, b.get(), n, parts.data() + at, 0.0f, 1.0f), 0);
    at += n;
  }
  EXPECT_EQ(whole, parts);
}

TEST(DistGaussianPair, ChunkHoldsRawPairOrSentinel) {
  qor_test::Stream s(QOR_BRNG_MCG31, {5});
  qor_test::Stream twin(QOR_BRNG_MCG31, {5});
  double r[3];
  ASSERT_EQ(_rixdRngGaussian(1, s.get(), 2, r, 0.0, 1.0), 0);
  const auto *pair = static_cast<const double *>(__rixSearchChunk(s.get(), 2));
  ASSERT_NE(pair, nullptr);
  EXPECT_EQ(pair[0], -1.0);
  EXPECT_EQ(pair[1], -1.0);
  ASSERT_EQ(_rixdRngGaussian(1, s.get(), 1, r, 0.0, 1.0), 0);
  const auto u = qor_test::doubles(twin.get(), 4, 0.0, 1.0);
  EXPECT_EQ(pair[0], u[2]);
  EXPECT_EQ(pair[1], u[3]);
  // An empty request keeps what is owed.
  ASSERT_EQ(_rixdRngGaussian(1, s.get(), 0, r, 0.0, 1.0), 0);
  EXPECT_EQ(pair[0], u[2]);
  EXPECT_EQ(__rixGetNumChunks(s.get()), 1);
  // A copied stream owes the same half.
  void *copy = nullptr;
  ASSERT_EQ(__rixCopyStream(&copy, s.get()), 0);
  double x = 0, y = 0;
  ASSERT_EQ(_rixdRngGaussian(1, s.get(), 1, &x, 0.0, 1.0), 0);
  ASSERT_EQ(_rixdRngGaussian(1, copy, 1, &y, 0.0, 1.0), 0);
  EXPECT_EQ(x, y);
  EXPECT_NEAR(x, std::sqrt(-2 * std::log(u[2])) * std::cos(6.283185307179586 * u[3]), 1e-13);
  __rixDeleteStream(&copy);
}

TEST(DistLognormal, SharesPendingPairWithGaussian) {
  qor_test::Stream a(QOR_BRNG_MCG31, {31}), b(QOR_BRNG_MCG31, {31});
  std::vector<double> g(7);
  ASSERT_EQ(_rixdRngGaussian(1, a.get(), 7, g.data(), 0.1, 0.4), 0);
  double g3[3], ln4[4];
  ASSERT_EQ(_rixdRngGaussian(1, b.get(), 3, g3, 0.1, 0.4), 0);
  ASSERT_EQ(_rixdRngLognormal(0, b.get(), 4, ln4, 0.1, 0.4, -1.0, 3.0), 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(g3[i], g[static_cast<size_t>(i)]);
  for (int i = 0; i < 4; ++i)
    EXPECT_NEAR(ln4[i], -1.0 + 3.0 * std::exp(g[static_cast<size_t>(i + 3)]), 1e-12);
}

TEST(DistGaussian, MethodOutsideTableRefused) {
  qor_test::Stream s(QOR_BRNG_MCG31, {1});
  double r[2] = {42, 42};
  EXPECT_EQ(_rixdRngGaussian(3, s.get(), 2, r, 0, 1), QOR_RNG_ERROR_BAD_METHOD);
  EXPECT_EQ(r[0], 42);
  // The accuracy flag alone is not a different method.
  EXPECT_EQ(_rixdRngGaussian(QOR_RNG_METHOD_ACCURATE | 2, s.get(), 2, r, 0, 1), 0);
}

// ---- a uniform of exactly zero -------------------------------------------

struct ZeroCase {
  const char *name;
  std::function<int32_t(void *, int32_t, double *)> d;
  std::function<int32_t(void *, int32_t, float *)> s;
  double want_d;  // NaN: only finiteness is checked
  double want_s;
};

const double kL = 744.4400719213812, kLs = 103.2789306640625;
const double kE = 5.8635847487551676, kEs = 3.8325068950653076;

std::vector<ZeroCase> zero_cases() {
  const double nan = NAN;
  return {
      {"Exponential",
       [](void *s, int32_t n, double *r) { return _rixdRngExponential(0, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngExponential(0, s, n, r, 1, 2); },
       1 + kL * 2, 1 + kLs * 2},
      {"Laplace", [](void *s, int32_t n, double *r) { return _rixdRngLaplace(0, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngLaplace(0, s, n, r, 1, 2); }, 1 + kL * 2,
       1 + kLs * 2},  // u2 = 0 is not above one half: -beta
      {"Weibull",
       [](void *s, int32_t n, double *r) { return _rixdRngWeibull(0, s, n, r, 2, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngWeibull(0, s, n, r, 2, 1, 2); },
       1 + 2 * std::sqrt(kL), 1 + 2 * std::sqrt(kLs)},
      {"Rayleigh", [](void *s, int32_t n, double *r) { return _rixdRngRayleigh(0, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngRayleigh(0, s, n, r, 1, 2); },
       1 + 2 * std::sqrt(kL), 1 + 2 * std::sqrt(kLs)},
      {"Gumbel", [](void *s, int32_t n, double *r) { return _rixdRngGumbel(0, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngGumbel(0, s, n, r, 1, 2); },
       1 + 2 * std::log(kL), 1 + 2 * std::log(kLs)},
      {"Gaussian0",
       [](void *s, int32_t n, double *r) { return _rixdRngGaussian(0, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngGaussian(0, s, n, r, 1, 2); }, 1.0,
       1.0},  // sin(0) = 0
      {"Gaussian1",
       [](void *s, int32_t n, double *r) { return _rixdRngGaussian(1, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngGaussian(1, s, n, r, 1, 2); }, nan, nan},
      {"Gaussian2",
       [](void *s, int32_t n, double *r) { return _rixdRngGaussian(2, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngGaussian(2, s, n, r, 1, 2); },
       1 - kE * 2 * 1.4142135623730951, 1 - kEs * 2 * 1.4142135623730951},
      {"Cauchy", [](void *s, int32_t n, double *r) { return _rixdRngCauchy(0, s, n, r, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngCauchy(0, s, n, r, 1, 2); }, nan, nan},
      {"Lognormal0",
       [](void *s, int32_t n, double *r) { return _rixdRngLognormal(0, s, n, r, 0, 0.1, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngLognormal(0, s, n, r, 0, 0.1f, 1, 2); },
       nan, nan},
      {"Lognormal2",
       [](void *s, int32_t n, double *r) { return _rixdRngLognormal(2, s, n, r, 0, 0.1, 1, 2); },
       [](void *s, int32_t n, float *r) { return _rixsRngLognormal(2, s, n, r, 0, 0.1f, 1, 2); },
       1 + 2 * std::exp(-0.1 * kE * 1.4142135623730951),
       1 + 2 * std::exp(-0.1 * kEs * 1.4142135623730951)},
  };
}

TEST(DistZeroUniform, FiniteReplacementValues) {
  for (const ZeroCase &c : zero_cases()) {
    SCOPED_TRACE(c.name);
    {
      FedStream fs(false, {0.0});
      ASSERT_EQ(fs.status(), 0);
      std::vector<double> r(5);
      ASSERT_EQ(c.d(fs.get(), 5, r.data()), 0);
      for (double x : r) {
        EXPECT_TRUE(std::isfinite(x)) << x;
        if (!std::isnan(c.want_d)) {
          EXPECT_NEAR(x, c.want_d, 1e-12 * std::fabs(c.want_d));
        }
      }
    }
    {
      FedStream fs(true, {0.0});
      ASSERT_EQ(fs.status(), 0);
      std::vector<float> r(5);
      ASSERT_EQ(c.s(fs.get(), 5, r.data()), 0);
      for (float x : r) {
        EXPECT_TRUE(std::isfinite(x)) << x;
        if (!std::isnan(c.want_s)) {
          EXPECT_NEAR(x, c.want_s, 2e-6 * std::fabs(c.want_s));
        }
      }
    }
  }
}

TEST(DistZeroUniform, GaussianPairCosHalfFromZeroLog) {
  FedStream fs(false, {0.0});
  double r[2];
  ASSERT_EQ(_rixdRngGaussian(1, fs.get(), 2, r, 0, 1), 0);
  EXPECT_EQ(r[0], 0.0);
  EXPECT_NEAR(r[1], std::sqrt(2 * kL), 1e-12);
}

TEST(DistWeibull, ShapeOneSkipsPower) {
  FedStream fs(false, {0.25, 0.5, 0.75});
  double r[3];
  ASSERT_EQ(_rixdRngWeibull(0, fs.get(), 3, r, 1.0, 0.5, 2.0), 0);
  const double u[3] = {0.25, 0.5, 0.75};
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(r[i], 0.5 + 2.0 * -std::log(u[i]), 1e-15);
}

TEST(DistAccuracyFlag, ClampsIntoSupport) {
  // A displacement far larger than the spread: a - beta * ln(u) for u just
  // below 1 rounds back to a, never below it.
  FedStream fs(false, {0.999999999, 0.5});
  double r[4];
  ASSERT_EQ(_rixdRngExponential(QOR_RNG_METHOD_ACCURATE, fs.get(), 4, r, 1e6, 1e-9), 0);
  for (double x : r) EXPECT_GE(x, 1e6);
  FedStream fu(false, {0.999999999999999, 0.0});
  ASSERT_EQ(_rixdRngUniform(QOR_RNG_METHOD_ACCURATE, fu.get(), 4, r, 1.0, 1.0 + 0x1p-52), 0);
  for (double x : r) {
    EXPECT_GE(x, 1.0);
    EXPECT_LE(x, 1.0 + 0x1p-52);
  }
}

// ---- failing refill: status and restored state ----------------------------

int32_t my_callback(PexErrorContext *) { return 0; }

struct CallerState {
  uint32_t mode;
  PexErrorCallback cb;
  uint32_t mxcsr;
  uint16_t x87;
};

CallerState capture() {
  CallerState s{};
  s.mode = qor_pex_kernel_GetMode();
  s.cb = qor_pex_kernel_GetErrorCallBack();
  asm volatile("stmxcsr %0" : "=m"(s.mxcsr));
  asm volatile("fnstcw %0" : "=m"(s.x87));
  return s;
}

using AnyCall = std::function<int32_t(void *)>;

std::vector<std::pair<std::string, AnyCall>> all_calls(bool single) {
  std::vector<std::pair<std::string, AnyCall>> v;
  static double rd[40];
  static float rs[40];
  const int32_t n = 40;
  if (!single) {
    v.push_back({"Uniform", [=](void *s) { return _rixdRngUniform(0, s, n, rd, 0, 1); }});
    for (uint32_t m : {0u, 1u, 2u})
      v.push_back({"Gaussian" + std::to_string(m),
                   [=](void *s) { return _rixdRngGaussian(m, s, n, rd, 0, 1); }});
    v.push_back({"Exponential", [=](void *s) { return _rixdRngExponential(0, s, n, rd, 0, 1); }});
    v.push_back({"Laplace", [=](void *s) { return _rixdRngLaplace(0, s, n, rd, 0, 1); }});
    v.push_back({"Weibull", [=](void *s) { return _rixdRngWeibull(0, s, n, rd, 2, 0, 1); }});
    v.push_back({"Cauchy", [=](void *s) { return _rixdRngCauchy(0, s, n, rd, 0, 1); }});
    v.push_back({"Rayleigh", [=](void *s) { return _rixdRngRayleigh(0, s, n, rd, 0, 1); }});
    v.push_back({"Lognormal", [=](void *s) { return _rixdRngLognormal(0, s, n, rd, 0, 1, 0, 1); }});
    v.push_back({"Gumbel", [=](void *s) { return _rixdRngGumbel(0, s, n, rd, 0, 1); }});
  } else {
    v.push_back({"sUniform", [=](void *s) { return _rixsRngUniform(0, s, n, rs, 0, 1); }});
    for (uint32_t m : {0u, 1u, 2u})
      v.push_back({"sGaussian" + std::to_string(m),
                   [=](void *s) { return _rixsRngGaussian(m, s, n, rs, 0, 1); }});
    v.push_back({"sExponential", [=](void *s) { return _rixsRngExponential(0, s, n, rs, 0, 1); }});
    v.push_back({"sLaplace", [=](void *s) { return _rixsRngLaplace(0, s, n, rs, 0, 1); }});
    v.push_back({"sWeibull", [=](void *s) { return _rixsRngWeibull(0, s, n, rs, 2, 0, 1); }});
    v.push_back({"sCauchy", [=](void *s) { return _rixsRngCauchy(0, s, n, rs, 0, 1); }});
    v.push_back({"sRayleigh", [=](void *s) { return _rixsRngRayleigh(0, s, n, rs, 0, 1); }});
    v.push_back(
        {"sLognormal", [=](void *s) { return _rixsRngLognormal(0, s, n, rs, 0, 1, 0, 1); }});
    v.push_back({"sGumbel", [=](void *s) { return _rixsRngGumbel(0, s, n, rs, 0, 1); }});
  }
  return v;
}

void check_restores(bool fail) {
  const uint32_t saved_mode = qor_pex_kernel_GetMode();
  const PexErrorCallback saved_cb = qor_pex_kernel_SetErrorCallBack(my_callback);
  qor_pex_kernel_SetMode(PEX_EP | PEX_ERRMODE_ERRNO | PEX_ERRMODE_CALLBACK);
  // Round toward zero in both units (no exception unmasked, so nothing can
  // trap in the test itself).
  uint32_t mx0;
  uint16_t cw0;
  asm volatile("stmxcsr %0" : "=m"(mx0));
  asm volatile("fnstcw %0" : "=m"(cw0));
  uint32_t mx = (mx0 & ~0x6000u) | 0x6000u;
  uint16_t cw = static_cast<uint16_t>((cw0 & ~0x0C00) | 0x0C00);
  asm volatile("ldmxcsr %0" : : "m"(mx));
  asm volatile("fldcw %0" : : "m"(cw));
  const CallerState before = capture();
  for (bool single : {false, true}) {
    for (const auto &[name, call] : all_calls(single)) {
      SCOPED_TRACE(name + (fail ? " failing" : " succeeding"));
      FedStream fs(single, {0.0, 0.3, 0.6, 0.9}, fail);
      const int32_t st = call(fs.get());
      const CallerState after = capture();
      if (fail)
        EXPECT_EQ(st, QOR_RNG_ERROR_NO_NUMBERS);
      else
        EXPECT_EQ(st, 0);
      EXPECT_EQ(after.mode, before.mode);
      EXPECT_EQ(after.cb, before.cb);
      EXPECT_EQ(after.mxcsr & 0xFFC0u, before.mxcsr & 0xFFC0u);
      EXPECT_EQ(after.x87, before.x87);
    }
  }
  asm volatile("ldmxcsr %0" : : "m"(mx0));
  asm volatile("fldcw %0" : : "m"(cw0));
  qor_pex_kernel_SetErrorCallBack(saved_cb);
  qor_pex_kernel_SetMode(saved_mode);
}

TEST(DistRestore, FailingRefillReturnsStatusWithCallerStateRestored) { check_restores(true); }
TEST(DistRestore, SuccessRestoresCallerState) { check_restores(false); }

TEST(DistRestore, EmptyRequestWritesNothing) {
  qor_test::Stream s(QOR_BRNG_MCG31, {3}), twin(QOR_BRNG_MCG31, {3});
  double r[1] = {42};
  EXPECT_EQ(_rixdRngGaussian(1, s.get(), 0, r, 0, 1), 0);
  EXPECT_EQ(_rixdRngLaplace(0, s.get(), -5, r, 0, 1), 0);
  EXPECT_EQ(_rixdRngExponential(0, s.get(), 0, r, 0, 1), 0);
  EXPECT_EQ(r[0], 42);
  EXPECT_EQ(qor_test::doubles(s.get(), 2, 0, 1), qor_test::doubles(twin.get(), 2, 0, 1));
}

}  // namespace
