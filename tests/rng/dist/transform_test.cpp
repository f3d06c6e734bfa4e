// Each distribution's output equals its transformation applied to the
// uniforms of an identical twin stream, recomputed here with the C library's
// functions in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "../helpers.h"
#include "dist_helpers.h"
#include "qor/rng.h"

namespace {

using qor_dist_test::erfinv_ref;

// Overloads by precision, so one table serves both.
#define WRAP2(NAME)                                                               \
  int32_t NAME(uint32_t m, void *s, int32_t n, double *r, double p1, double p2) { \
    return _rixdRng##NAME(m, s, n, r, p1, p2);                                    \
  }                                                                               \
  int32_t NAME(uint32_t m, void *s, int32_t n, float *r, float p1, float p2) {    \
    return _rixsRng##NAME(m, s, n, r, p1, p2);                                    \
  }
WRAP2(Uniform)
WRAP2(Gaussian)
WRAP2(Exponential)
WRAP2(Laplace)
WRAP2(Cauchy)
WRAP2(Rayleigh)
WRAP2(Gumbel)
#undef WRAP2
int32_t Weibull(uint32_t m, void *s, int32_t n, double *r, double al, double a, double b) {
  return _rixdRngWeibull(m, s, n, r, al, a, b);
}
int32_t Weibull(uint32_t m, void *s, int32_t n, float *r, float al, float a, float b) {
  return _rixsRngWeibull(m, s, n, r, al, a, b);
}
int32_t Lognormal(uint32_t m, void *s, int32_t n, double *r, double a, double sg, double b,
                  double be) {
  return _rixdRngLognormal(m, s, n, r, a, sg, b, be);
}
int32_t Lognormal(uint32_t m, void *s, int32_t n, float *r, float a, float sg, float b, float be) {
  return _rixsRngLognormal(m, s, n, r, a, sg, b, be);
}

// n uniforms of precision T from a stream's own generator, widened.
template <class T>
std::vector<double> raw(void *stream, int32_t n, T a, T b) {
  const GeneratorRecord &row = qor_test::row_of(stream);
  std::vector<T> v(static_cast<size_t>(n));
  int32_t st;
  if constexpr (sizeof(T) == 8)
    st = row.generateD(stream, n, v.data(), a, b);
  else
    st = row.generateS(stream, n, v.data(), a, b);
  EXPECT_GE(st, 0);
  return std::vector<double>(v.begin(), v.end());
}

template <class T>
constexpr T kTwoPi = sizeof(T) == 8 ? T(6.283185307179586) : T(6.2831853f);

// Box-Muller continuing pairs: sin half then cos half per pair.
template <class T>
std::vector<double> bm_pairs(void *twin, int32_t n) {
  std::vector<double> out;
  while (static_cast<int32_t>(out.size()) < n) {
    const auto u = raw<T>(twin, 2, T(0), T(1));
    const double rad = std::sqrt(-2.0 * std::log(u[0]));
    const double ang = static_cast<double>(kTwoPi<T> * static_cast<T>(u[1]));
    out.push_back(rad * std::sin(ang));
    out.push_back(rad * std::cos(ang));
  }
  out.resize(static_cast<size_t>(n));
  return out;
}

template <class T>
struct Case {
  std::string name;
  std::function<int32_t(void *, int32_t, T *)> call;
  std::function<std::vector<double>(void *, int32_t)> ref;
};

template <class T>
std::vector<Case<T>> cases() {
  const T a = T(0.75), beta = T(2.5);
  const T A = a, B = beta;
  const T sqrt2 = sizeof(T) == 8 ? T(1.4142135623730951) : T(1.4142135f);
  const T half_pi = sizeof(T) == 8 ? T(1.5707963267948966) : T(1.5707963f);
  std::vector<Case<T>> c;
  c.push_back({"Uniform",
               [=](void *s, int32_t n, T *r) { return Uniform(0, s, n, r, T(-2), T(3)); },
               [](void *t, int32_t n) { return raw<T>(t, n, T(-2), T(3)); }});
  c.push_back({"Gaussian0", [=](void *s, int32_t n, T *r) { return Gaussian(0, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 std::vector<double> o;
                 for (int32_t i = 0; i < n; ++i) {
                   const auto u = raw<T>(t, 2, T(0), T(1));
                   const double ang = static_cast<double>(kTwoPi<T> * static_cast<T>(u[1]));
                   o.push_back(std::sqrt(-2.0 * std::log(u[0])) * B * std::sin(ang) + A);
                 }
                 return o;
               }});
  c.push_back({"Gaussian1", [=](void *s, int32_t n, T *r) { return Gaussian(1, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 auto o = bm_pairs<T>(t, n);
                 for (auto &x : o) x = x * B + A;
                 return o;
               }});
  c.push_back({"Gaussian2", [=](void *s, int32_t n, T *r) { return Gaussian(2, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 auto o = raw<T>(t, n, T(-1), T(1));
                 for (auto &x : o) x = erfinv_ref(x) * static_cast<double>(B * sqrt2) + A;
                 return o;
               }});
  c.push_back({"Exponential",
               [=](void *s, int32_t n, T *r) { return Exponential(0, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 auto o = raw<T>(t, n, T(0), T(1));
                 for (auto &x : o) x = A - B * std::log(x);
                 return o;
               }});
  c.push_back({"Laplace", [=](void *s, int32_t n, T *r) { return Laplace(0, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 std::vector<double> o;
                 for (int32_t i = 0; i < n; ++i) {
                   const auto u = raw<T>(t, 2, T(0), T(1));
                   o.push_back(std::log(u[0]) * (u[1] > 0.5 ? B : -double(B)) + A);
                 }
                 return o;
               }});
  for (T alpha : {T(1.0), T(1.7)}) {
    c.push_back({"Weibull" + std::to_string(double(alpha)),
                 [=](void *s, int32_t n, T *r) { return Weibull(0, s, n, r, alpha, A, B); },
                 [=](void *t, int32_t n) {
                   auto o = raw<T>(t, n, T(0), T(1));
                   for (auto &x : o) {
                     double e = -std::log(x);
                     if (alpha != T(1)) e = std::pow(e, static_cast<double>(T(1) / alpha));
                     x = A + B * e;
                   }
                   return o;
                 }});
  }
  c.push_back({"Cauchy", [=](void *s, int32_t n, T *r) { return Cauchy(0, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 auto o = raw<T>(t, n, -half_pi, half_pi);
                 for (auto &x : o) x = A + B * std::tan(x);
                 return o;
               }});
  c.push_back({"Rayleigh", [=](void *s, int32_t n, T *r) { return Rayleigh(0, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 auto o = raw<T>(t, n, T(0), T(1));
                 for (auto &x : o) x = A + B * std::sqrt(-std::log(x));
                 return o;
               }});
  c.push_back(
      {"Lognormal0",
       [=](void *s, int32_t n, T *r) { return Lognormal(0, s, n, r, T(0.2), T(0.5), A, B); },
       [=](void *t, int32_t n) {
         auto o = bm_pairs<T>(t, n);
         for (auto &x : o) x = A + B * std::exp(x * double(T(0.5)) + double(T(0.2)));
         return o;
       }});
  c.push_back({"Lognormal2",
               [=](void *s, int32_t n, T *r) {
                 return Lognormal(QOR_RNG_METHOD_ACCURATE, s, n, r, T(0.2), T(0.5), A, B);
               },
               [=](void *t, int32_t n) {
                 auto o = raw<T>(t, n, T(-1), T(1));
                 const double k = static_cast<double>(T(0.5) * sqrt2);
                 for (auto &x : o) x = A + B * std::exp(erfinv_ref(x) * k + double(T(0.2)));
                 return o;
               }});
  c.push_back({"Gumbel", [=](void *s, int32_t n, T *r) { return Gumbel(0, s, n, r, A, B); },
               [=](void *t, int32_t n) {
                 auto o = raw<T>(t, n, T(0), T(1));
                 for (auto &x : o) x = A + B * std::log(-std::log(x));
                 return o;
               }});
  return c;
}

template <class T>
void check_twins(int32_t n, double rel, double abs) {
  for (const Case<T> &c : cases<T>()) {
    SCOPED_TRACE(c.name + (sizeof(T) == 8 ? " d" : " s") + " n=" + std::to_string(n));
    qor_test::Stream s(QOR_BRNG_MCG31, {12345});
    qor_test::Stream twin(QOR_BRNG_MCG31, {12345});
    std::vector<T> r(static_cast<size_t>(n) + 1, T(-77));
    ASSERT_EQ(c.call(s.get(), n, r.data()), 0);
    EXPECT_EQ(r[static_cast<size_t>(n)], T(-77)) << "wrote past n";
    const auto want = c.ref(twin.get(), n);
    int bad = 0;
    for (int32_t i = 0; i < n && bad < 5; ++i) {
      const double got = static_cast<double>(r[static_cast<size_t>(i)]);
      const double w = want[static_cast<size_t>(i)];
      if (!(std::fabs(got - w) <= abs + rel * std::fabs(w))) {
        ++bad;
        ADD_FAILURE() << "element " << i << ": got " << got << " want " << w;
      }
    }
    // The stream advanced by exactly the uniforms the reference consumed.
    EXPECT_EQ(raw<T>(s.get(), 3, T(0), T(1)), raw<T>(twin.get(), 3, T(0), T(1)));
  }
}

TEST(DistTransform, DoubleMatchesTwinStream) {
  for (int32_t n : {1, 2, 1023, 2500}) check_twins<double>(n, 1e-12, 1e-12);
}

TEST(DistTransform, SingleMatchesTwinStream) {
  for (int32_t n : {1, 3, 2500}) check_twins<float>(n, 2e-5, 2e-5);
}

}  // namespace
