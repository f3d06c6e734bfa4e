// Throughput of the basic generators, in time-stamp-counter cycles per output
// word, next to the closest GSL generators (when GSL is available).
//
//   bench_rng --benchmark_filter=. --benchmark_min_time=0.2
//
// The counter "cyc/out" is TSC cycles per output (a 64-bit word for MCG59,
// a 128-bit word of four 32-bit values for WH); "cyc/u32" divides by the
// number of 32-bit words written.  The TSC runs on wall-clock time, so on a
// shared machine it also counts time the thread spent descheduled;
// "cpucyc/out" converts the thread's CPU time to TSC cycles instead (the TSC
// rate is calibrated at start-up), which is the figure to trust under load.
#include <benchmark/benchmark.h>
#include <x86intrin.h>

#include <time.h>

#include <cstdio>
#include <vector>

#include "qor/rng.h"

#ifdef QOR_HAVE_GSL
#include <gsl/gsl_rng.h>
#endif

namespace {

constexpr int32_t kN = 1000000;

double thread_seconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

double wall_seconds() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// TSC ticks per second, measured against the monotonic clock over 100 ms.
double tsc_rate() {
  static const double rate = [] {
    const double w0 = wall_seconds();
    const uint64_t t0 = __rdtsc();
    while (wall_seconds() - w0 < 0.1) {
    }
    return static_cast<double>(__rdtsc() - t0) / (wall_seconds() - w0);
  }();
  return rate;
}

// Thread CPU time of the measured regions, accumulated per benchmark.
thread_local double g_cpu = 0;

void report(benchmark::State &state, uint64_t cycles, int words_per_output) {
  const double outputs = static_cast<double>(state.iterations()) * kN;
  state.counters["cyc/out"] = static_cast<double>(cycles) / outputs;
  state.counters["cpucyc/out"] = g_cpu * tsc_rate() / outputs;
  g_cpu = 0;
  state.counters["cyc/u32"] = static_cast<double>(cycles) / (outputs * words_per_output);
  state.SetItemsProcessed(static_cast<int64_t>(outputs));
}

enum class Kind { Int, Double, Float };

void BM_qor(benchmark::State &state, int32_t brng, Kind kind) {
  void *s = nullptr;
  const uint32_t seed[6] = {7, 11, 13, 17, 19, 23};
  if (__rixNewStreamEx(&s, brng, 6, seed) != 0) {
    state.SkipWithError("generator not available");
    if (s) __rixDeleteStream(&s);
    return;
  }
  GeneratorRecord row;
  __rixGetBrngProperties(brng, &row);
  std::vector<uint32_t> words(static_cast<size_t>(kN) * row.wordSize / 4);
  std::vector<double> d(kN);
  std::vector<float> f(kN);
  uint64_t cycles = 0;
  for (auto _ : state) {
    const double c0 = thread_seconds();
    const uint64_t t0 = __rdtsc();
    switch (kind) {
      case Kind::Int: row.generateI(s, kN, words.data()); break;
      case Kind::Double: row.generateD(s, kN, d.data(), 0.0, 1.0); break;
      case Kind::Float: row.generateS(s, kN, f.data(), 0.0f, 1.0f); break;
    }
    cycles += __rdtsc() - t0;
    g_cpu += thread_seconds() - c0;
    benchmark::DoNotOptimize(words.data());
    benchmark::DoNotOptimize(d.data());
    benchmark::DoNotOptimize(f.data());
    benchmark::ClobberMemory();
  }
  report(state, cycles, kind == Kind::Int ? row.wordSize / 4 : 1);
  __rixDeleteStream(&s);
}

#define QOR_BENCH(NAME, BRNG)                                                          \
  BENCHMARK_CAPTURE(BM_qor, NAME##_int, BRNG, Kind::Int)->Unit(benchmark::kMillisecond); \
  BENCHMARK_CAPTURE(BM_qor, NAME##_double, BRNG, Kind::Double)->Unit(benchmark::kMillisecond); \
  BENCHMARK_CAPTURE(BM_qor, NAME##_float, BRNG, Kind::Float)->Unit(benchmark::kMillisecond)

QOR_BENCH(MCG31M1, QOR_BRNG_MCG31);
QOR_BENCH(MCG59, QOR_BRNG_MCG59);
QOR_BENCH(MRG32K3A, QOR_BRNG_MRG32K3A);
QOR_BENCH(R250, QOR_BRNG_R250);
QOR_BENCH(WH, QOR_BRNG_WH);

#ifdef QOR_HAVE_GSL
void BM_gsl(benchmark::State &state, const gsl_rng_type *type, bool uniform) {
  gsl_rng *r = gsl_rng_alloc(type);
  gsl_rng_set(r, 7);
  std::vector<unsigned long> u(kN);
  std::vector<double> d(kN);
  uint64_t cycles = 0;
  for (auto _ : state) {
    const double c0 = thread_seconds();
    const uint64_t t0 = __rdtsc();
    if (uniform)
      for (int32_t i = 0; i < kN; ++i) d[i] = gsl_rng_uniform(r);
    else
      for (int32_t i = 0; i < kN; ++i) u[i] = gsl_rng_get(r);
    cycles += __rdtsc() - t0;
    g_cpu += thread_seconds() - c0;
    benchmark::DoNotOptimize(u.data());
    benchmark::DoNotOptimize(d.data());
    benchmark::ClobberMemory();
  }
  report(state, cycles, 1);
  gsl_rng_free(r);
}

#define GSL_BENCH(NAME)                                                                     \
  BENCHMARK_CAPTURE(BM_gsl, gsl_##NAME##_int, gsl_rng_##NAME, false)->Unit(benchmark::kMillisecond); \
  BENCHMARK_CAPTURE(BM_gsl, gsl_##NAME##_double, gsl_rng_##NAME, true)->Unit(benchmark::kMillisecond)

GSL_BENCH(minstd);  // multiplicative congruential modulo 2^31 - 1 (peer of MCG31M1)
GSL_BENCH(ranf);    // 48-bit multiplicative congruential (peer of MCG59)
GSL_BENCH(mrg);     // L'Ecuyer's fifth-order multiple recursive (peer of MRG32K3A)
GSL_BENCH(cmrg);    // L'Ecuyer's combined multiple recursive (peer of MRG32K3A, WH)
GSL_BENCH(r250);    // the same R250 recurrence and seeding
GSL_BENCH(taus2);   // combined Tausworthe (a fast combined peer of WH)

// GSL seeds R250 with the same congruential fill and bit fixing, so the two
// sequences must agree word for word: a cross-check printed before the run.
void check_r250_against_gsl() {
  gsl_rng *g = gsl_rng_alloc(gsl_rng_r250);
  gsl_rng_set(g, 12345);
  void *s = nullptr;
  const uint32_t seed = 12345;
  __rixNewStreamEx(&s, QOR_BRNG_R250, 1, &seed);
  std::vector<uint32_t> ours(100000);
  __rixiBRngR250(s, static_cast<int32_t>(ours.size()), ours.data());
  size_t same = 0;
  for (uint32_t v : ours) same += v == gsl_rng_get(g);
  std::printf("R250 against gsl_rng_r250 (seed 12345): %zu of %zu words equal\n", same,
              ours.size());
  __rixDeleteStream(&s);
  gsl_rng_free(g);
}
#endif

}  // namespace

int main(int argc, char **argv) {
  std::printf("TSC rate %.3f GHz\n", tsc_rate() * 1e-9);
#ifdef QOR_HAVE_GSL
  check_r250_against_gsl();
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
