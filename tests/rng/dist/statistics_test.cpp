// Sample moments over 10^6 variates within 5 standard errors and a
// Kolmogorov-Smirnov test at the 1% level over 10^5 variates, for every
// distribution and method.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "../helpers.h"
#include "qor/rng.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kEuler = 0.5772156649015329;

double phi(double z) { return 0.5 * std::erfc(-z / std::sqrt(2.0)); }

// X = a + beta * Y with the first four raw moments of Y.
struct Law {
  std::string name;
  std::function<int32_t(void *, int32_t, double *)> d;
  std::function<int32_t(void *, int32_t, float *)> s;
  std::function<double(double)> cdf;
  bool has_moments;
  double a, beta;
  double m[4];
};

std::vector<Law> laws() {
  const double g1 = std::tgamma(1 + 1 / 1.5), g2 = std::tgamma(1 + 2 / 1.5),
               g3 = std::tgamma(1 + 3 / 1.5), g4 = std::tgamma(1 + 4 / 1.5);
  const double ls = 0.5, la = 0.1;  // lognormal sigma and mean of the log
  auto lm = [&](int j) { return std::exp(j * la + j * j * ls * ls / 2); };
  const double v = kPi * kPi / 6;  // Gumbel variance of ln E
  std::vector<Law> L;
  L.push_back({"Uniform",
               [](void *s, int32_t n, double *r) { return _rixdRngUniform(0, s, n, r, -1, 3); },
               [](void *s, int32_t n, float *r) { return _rixsRngUniform(0, s, n, r, -1, 3); },
               [](double x) { return std::clamp((x + 1) / 4, 0.0, 1.0); },
               true,
               -1,
               4,
               {0.5, 1.0 / 3, 0.25, 0.2}});
  for (uint32_t m : {0u, 1u, 2u})
    L.push_back({"Gaussian" + std::to_string(m),
                 [m](void *s, int32_t n, double *r) { return _rixdRngGaussian(m, s, n, r, 1, 2); },
                 [m](void *s, int32_t n, float *r) { return _rixsRngGaussian(m, s, n, r, 1, 2); },
                 [](double x) { return phi((x - 1) / 2); },
                 true,
                 1,
                 2,
                 {0, 1, 0, 3}});
  L.push_back({"Exponential",
               [](void *s, int32_t n, double *r) { return _rixdRngExponential(0, s, n, r, 1, 2); },
               [](void *s, int32_t n, float *r) { return _rixsRngExponential(0, s, n, r, 1, 2); },
               [](double x) { return x < 1 ? 0 : 1 - std::exp(-(x - 1) / 2); },
               true,
               1,
               2,
               {1, 2, 6, 24}});
  L.push_back({"Laplace",
               [](void *s, int32_t n, double *r) { return _rixdRngLaplace(0, s, n, r, 1, 2); },
               [](void *s, int32_t n, float *r) { return _rixsRngLaplace(0, s, n, r, 1, 2); },
               [](double x) {
                 const double z = (x - 1) / 2;
                 return z < 0 ? 0.5 * std::exp(z) : 1 - 0.5 * std::exp(-z);
               },
               true,
               1,
               2,
               {0, 2, 0, 24}});
  L.push_back({"Weibull",
               [](void *s, int32_t n, double *r) { return _rixdRngWeibull(0, s, n, r, 1.5, 1, 2); },
               [](void *s, int32_t n, float *r) { return _rixsRngWeibull(0, s, n, r, 1.5f, 1, 2); },
               [](double x) { return x < 1 ? 0 : 1 - std::exp(-std::pow((x - 1) / 2, 1.5)); },
               true,
               1,
               2,
               {g1, g2, g3, g4}});
  L.push_back({"Cauchy",
               [](void *s, int32_t n, double *r) { return _rixdRngCauchy(0, s, n, r, 1, 2); },
               [](void *s, int32_t n, float *r) { return _rixsRngCauchy(0, s, n, r, 1, 2); },
               [](double x) { return 0.5 + std::atan((x - 1) / 2) / kPi; },
               false,
               0,
               0,
               {}});
  L.push_back({"Rayleigh",
               [](void *s, int32_t n, double *r) { return _rixdRngRayleigh(0, s, n, r, 1, 2); },
               [](void *s, int32_t n, float *r) { return _rixsRngRayleigh(0, s, n, r, 1, 2); },
               [](double x) { return x < 1 ? 0 : 1 - std::exp(-((x - 1) / 2) * ((x - 1) / 2)); },
               true,
               1,
               2,
               {std::tgamma(1.5), 1.0, std::tgamma(2.5), 2.0}});
  for (uint32_t m : {0u, 2u})
    L.push_back(
        {"Lognormal" + std::to_string(m),
         [=](void *s, int32_t n, double *r) { return _rixdRngLognormal(m, s, n, r, la, ls, 1, 2); },
         [=](void *s, int32_t n, float *r) {
           return _rixsRngLognormal(m, s, n, r, float(la), float(ls), 1, 2);
         },
         [=](double x) { return x <= 1 ? 0 : phi((std::log((x - 1) / 2) - la) / ls); },
         true,
         1,
         2,
         {lm(1), lm(2), lm(3), lm(4)}});
  // Y = ln E: mean -gamma, variance pi^2/6, third central moment -2 zeta(3),
  // fourth 27/5 variance^2; raw moments derived from those.
  {
    const double mu = -kEuler, c3 = -2 * 1.2020569031595942, c4 = 5.4 * v * v;
    const double r2 = v + mu * mu, r3 = c3 + 3 * mu * v + mu * mu * mu,
                 r4 = c4 + 4 * mu * c3 + 6 * mu * mu * v + mu * mu * mu * mu;
    L.push_back({"Gumbel",
                 [](void *s, int32_t n, double *r) { return _rixdRngGumbel(0, s, n, r, 1, 2); },
                 [](void *s, int32_t n, float *r) { return _rixsRngGumbel(0, s, n, r, 1, 2); },
                 [](double x) { return 1 - std::exp(-std::exp((x - 1) / 2)); },
                 true,
                 1,
                 2,
                 {mu, r2, r3, r4}});
  }
  return L;
}

TEST(DistStatistics, MomentsWithinFiveStandardErrors) {
  const int32_t n = 1000000;
  std::vector<double> x(static_cast<size_t>(n));
  for (const Law &law : laws()) {
    if (!law.has_moments) continue;
    SCOPED_TRACE(law.name);
    qor_test::Stream s(QOR_BRNG_MCG31, {2024});
    ASSERT_EQ(law.d(s.get(), n, x.data()), 0);
    const double *m = law.m;
    const double mean_y = m[0], var_y = m[1] - m[0] * m[0];
    const double c4_y = m[3] - 4 * m[2] * m[0] + 6 * m[1] * m[0] * m[0] - 3 * std::pow(m[0], 4);
    const double mean = law.a + law.beta * mean_y, var = law.beta * law.beta * var_y;
    const double c4 = std::pow(law.beta, 4) * c4_y;
    double sum = 0;
    for (double v : x) sum += v;
    const double smean = sum / n;
    double ss = 0;
    for (double v : x) ss += (v - smean) * (v - smean);
    const double svar = ss / (n - 1);
    EXPECT_NEAR(smean, mean, 5 * std::sqrt(var / n));
    EXPECT_NEAR(svar, var, 5 * std::sqrt((c4 - var * var) / n));
  }
}

// Largest distance between the empirical and the true distribution function.
double ks_distance(std::vector<double> x, const std::function<double(double)> &cdf) {
  std::sort(x.begin(), x.end());
  const double n = static_cast<double>(x.size());
  double d = 0;
  for (size_t i = 0; i < x.size(); ++i) {
    const double f = cdf(x[i]);
    d = std::max({d, f - i / n, (i + 1) / n - f});
  }
  return d;
}

TEST(DistStatistics, KolmogorovSmirnovAtOnePercent) {
  const int32_t n = 100000;
  const double critical = 1.6276 / std::sqrt(double(n));  // 1% level
  for (const Law &law : laws()) {
    SCOPED_TRACE(law.name);
    qor_test::Stream s(QOR_BRNG_MCG31, {777});
    std::vector<double> x(static_cast<size_t>(n));
    ASSERT_EQ(law.d(s.get(), n, x.data()), 0);
    EXPECT_LT(ks_distance(x, law.cdf), critical) << "double";
    std::vector<float> f(static_cast<size_t>(n));
    ASSERT_EQ(law.s(s.get(), n, f.data()), 0);
    EXPECT_LT(ks_distance(std::vector<double>(f.begin(), f.end()), law.cdf), critical) << "single";
  }
}

}  // namespace
