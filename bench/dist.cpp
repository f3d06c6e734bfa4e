// Throughput of the continuous distributions at n = 10^6 from MCG31M1, in
// time-stamp-counter cycles per variate, next to GSL's gsl_ran_gaussian and
// gsl_ran_exponential (MT19937 underneath) and std::normal_distribution with
// std::mt19937.
//
//   bench_dist --benchmark_min_time=0.2
//
// "cyc/var" is TSC cycles per variate over wall time; "cpucyc/var" converts
// the thread's CPU time to TSC cycles (calibrated at start-up), the figure to
// trust on a shared machine.  The row "MCG31M1_generateD" is the generator's
// own cost per double, to subtract from the others.
#include <benchmark/benchmark.h>
#include <time.h>
#include <x86intrin.h>

#include <random>
#include <vector>

#include "qor/rng.h"

#ifdef QOR_HAVE_GSL
#include <gsl/gsl_randist.h>
#include <gsl/gsl_rng.h>
#endif

namespace {

constexpr int32_t kN = 1000000;

double clock_of(clockid_t id) {
  timespec ts;
  clock_gettime(id, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

double tsc_rate() {
  static const double rate = [] {
    const double w0 = clock_of(CLOCK_MONOTONIC);
    const uint64_t t0 = __rdtsc();
    while (clock_of(CLOCK_MONOTONIC) - w0 < 0.1) {
    }
    return static_cast<double>(__rdtsc() - t0) / (clock_of(CLOCK_MONOTONIC) - w0);
  }();
  return rate;
}

template <class F>
void run(benchmark::State &state, F &&body) {
  uint64_t cycles = 0;
  double cpu = 0;
  for (auto _ : state) {
    const double c0 = clock_of(CLOCK_THREAD_CPUTIME_ID);
    const uint64_t t0 = __rdtsc();
    body();
    cycles += __rdtsc() - t0;
    cpu += clock_of(CLOCK_THREAD_CPUTIME_ID) - c0;
  }
  const double v = static_cast<double>(state.iterations()) * kN;
  state.counters["cyc/var"] = static_cast<double>(cycles) / v;
  state.counters["cpucyc/var"] = cpu * tsc_rate() / v;
}

struct Mcg {
  void *s = nullptr;
  Mcg() {
    const uint32_t seed = 1;
    __rixNewStreamEx(&s, QOR_BRNG_MCG31, 1, &seed);
  }
  ~Mcg() { __rixDeleteStream(&s); }
};

std::vector<double> g_out(kN);

#define QOR_BENCH(NAME, CALL)                            \
  void NAME(benchmark::State &state) {                   \
    Mcg m;                                               \
    double *r = g_out.data();                            \
    run(state, [&] { benchmark::DoNotOptimize(CALL); }); \
    benchmark::ClobberMemory();                          \
  }                                                      \
  BENCHMARK(NAME)->Unit(benchmark::kMillisecond);

QOR_BENCH(MCG31M1_generateD, __rixdBRngMCG31M1(m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Uniform, _rixdRngUniform(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Gaussian_BoxMuller, _rixdRngGaussian(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Gaussian_BoxMuller2, _rixdRngGaussian(1, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Gaussian_ICDF, _rixdRngGaussian(2, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Exponential, _rixdRngExponential(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Laplace, _rixdRngLaplace(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Weibull, _rixdRngWeibull(0, m.s, kN, r, 1.5, 0.0, 1.0))
QOR_BENCH(Cauchy, _rixdRngCauchy(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Rayleigh, _rixdRngRayleigh(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(Lognormal, _rixdRngLognormal(0, m.s, kN, r, 0.0, 1.0, 0.0, 1.0))
QOR_BENCH(Gumbel, _rixdRngGumbel(0, m.s, kN, r, 0.0, 1.0))
QOR_BENCH(MCG31M1_generateS, __rixsBRngMCG31M1(m.s, kN, reinterpret_cast<float *>(r), 0.0f, 1.0f))
QOR_BENCH(IntUniform, _rixiRngUniform(0, m.s, kN, reinterpret_cast<int32_t *>(r), -1000, 1000))
QOR_BENCH(Bernoulli, _rixiRngBernoulli(0, m.s, kN, reinterpret_cast<uint32_t *>(r), 0.3))
#undef QOR_BENCH

// The vector-math kernels alone over 10^6 uniforms on (0, 1), at the HA
// slot the distributions use by default: the share of the totals above that
// the kernels account for.
extern "C" void _pexdLn(int32_t, const double *, double *);
extern "C" void _pexdSinCos(int32_t, const double *, double *, double *);
extern "C" void _pexdErfInv(int32_t, const double *, double *);
template <class F>
void kernel_bench(benchmark::State &state, F f) {
  static std::vector<double> in(kN), out2(kN);
  Mcg m;
  __rixdBRngMCG31M1(m.s, kN, in.data(), 0.0, 1.0);
  double *r = g_out.data();
  run(state, [&] { f(in.data(), r, out2.data()); });
  benchmark::DoNotOptimize(r[kN - 1]);
}
void vm_dLn(benchmark::State &state) {
  kernel_bench(state, [](const double *a, double *r, double *) { _pexdLn(kN, a, r); });
}
void vm_dSinCos(benchmark::State &state) {
  kernel_bench(state, [](const double *a, double *r, double *r2) { _pexdSinCos(kN, a, r, r2); });
}
void vm_dErfInv(benchmark::State &state) {
  kernel_bench(state, [](const double *a, double *r, double *) { _pexdErfInv(kN, a, r); });
}
BENCHMARK(vm_dLn)->Unit(benchmark::kMillisecond);
BENCHMARK(vm_dSinCos)->Unit(benchmark::kMillisecond);
BENCHMARK(vm_dErfInv)->Unit(benchmark::kMillisecond);

void std_normal_mt19937(benchmark::State &state) {
  std::mt19937 g(1);
  std::normal_distribution<double> d(0.0, 1.0);
  double *r = g_out.data();
  run(state, [&] {
    for (int32_t i = 0; i < kN; ++i) r[i] = d(g);
  });
  benchmark::DoNotOptimize(r[kN - 1]);
}
BENCHMARK(std_normal_mt19937)->Unit(benchmark::kMillisecond);

#ifdef QOR_HAVE_GSL
template <class F>
void gsl_bench(benchmark::State &state, F draw) {
  gsl_rng *g = gsl_rng_alloc(gsl_rng_mt19937);
  gsl_rng_set(g, 1);
  double *r = g_out.data();
  run(state, [&] {
    for (int32_t i = 0; i < kN; ++i) r[i] = draw(g);
  });
  benchmark::DoNotOptimize(r[kN - 1]);
  gsl_rng_free(g);
}
void gsl_gaussian_mt19937(benchmark::State &state) {
  gsl_bench(state, [](gsl_rng *g) { return gsl_ran_gaussian(g, 1.0); });
}
void gsl_exponential_mt19937(benchmark::State &state) {
  gsl_bench(state, [](gsl_rng *g) { return gsl_ran_exponential(g, 1.0); });
}
BENCHMARK(gsl_gaussian_mt19937)->Unit(benchmark::kMillisecond);
BENCHMARK(gsl_exponential_mt19937)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
