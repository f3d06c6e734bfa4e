// Throughput of the twisted generators (MT19937, MT2203, SFMT19937) at
// n = 10^6 words per call, next to libstdc++'s std::mt19937 and GSL's
// gsl_rng_mt19937, plus the cost of a skip-ahead by 10^12.
//
//   bench_mt --benchmark_min_time=0.2
//
// "cyc/u32" is time-stamp-counter cycles per 32-bit output (per double for
// the double-precision runs).  The TSC runs on wall-clock time, so on a
// shared machine it also counts time the thread was descheduled;
// "cpucyc/u32" converts the thread's CPU time to TSC cycles (rate calibrated
// at start-up) and is the figure to trust under load.  For the skip-ahead
// runs the counters are per skip and "cpu_ms" is CPU milliseconds per skip.
#include <benchmark/benchmark.h>
#include <x86intrin.h>

#include <time.h>

#include <cstring>
#include <random>
#include <vector>

#include "qor/rng.h"

#ifdef QOR_HAVE_GSL
#include <gsl/gsl_rng.h>
#endif

namespace {

constexpr int32_t kN = 1000000;

double clock_seconds(clockid_t id) {
  timespec ts;
  clock_gettime(id, &ts);
  return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

double tsc_rate() {
  static const double rate = [] {
    const double w0 = clock_seconds(CLOCK_MONOTONIC);
    const uint64_t t0 = __rdtsc();
    while (clock_seconds(CLOCK_MONOTONIC) - w0 < 0.1) {
    }
    return double(__rdtsc() - t0) / (clock_seconds(CLOCK_MONOTONIC) - w0);
  }();
  return rate;
}

// Runs body() once per iteration, timing it with the TSC and thread CPU time.
template <class Body>
void measure(benchmark::State &state, double units_per_iter, Body body) {
  tsc_rate();
  uint64_t cycles = 0;
  double cpu = 0;
  for (auto _ : state) {
    const double c0 = clock_seconds(CLOCK_THREAD_CPUTIME_ID);
    const uint64_t t0 = __rdtsc();
    body();
    cycles += __rdtsc() - t0;
    cpu += clock_seconds(CLOCK_THREAD_CPUTIME_ID) - c0;
  }
  const double units = double(state.iterations()) * units_per_iter;
  state.counters["cyc/u32"] = double(cycles) / units;
  state.counters["cpucyc/u32"] = cpu * tsc_rate() / units;
  if (units_per_iter == 1) state.counters["cpu_ms"] = 1e3 * cpu / units;
}

struct QorStream {
  void *s = nullptr;
  explicit QorStream(int32_t brng) {
    const uint32_t seed = 5489;
    __rixNewStreamEx(&s, brng, 1, &seed);
  }
  ~QorStream() { __rixDeleteStream(&s); }
};

void BM_QorInt(benchmark::State &state, int32_t brng) {
  QorStream st(brng);
  std::vector<uint32_t> r(kN);
  measure(state, kN, [&] {
    if (brng == QOR_BRNG_MT19937) __rixiBRngMT19937(st.s, kN, r.data());
    else if (brng == QOR_BRNG_SFMT19937) __rixiBRngSFMT19937(st.s, kN, r.data());
    else __rixiBRngMT2203(st.s, kN, r.data());
    benchmark::DoNotOptimize(r.data());
  });
}

void BM_QorDouble(benchmark::State &state, int32_t brng) {
  QorStream st(brng);
  std::vector<double> r(kN);
  measure(state, kN, [&] {
    if (brng == QOR_BRNG_MT19937) __rixdBRngMT19937(st.s, kN, r.data(), 0.0, 1.0);
    else if (brng == QOR_BRNG_SFMT19937) __rixdBRngSFMT19937(st.s, kN, r.data(), 0.0, 1.0);
    else __rixdBRngMT2203(st.s, kN, r.data(), 0.0, 1.0);
    benchmark::DoNotOptimize(r.data());
  });
}

void BM_QorFloat(benchmark::State &state, int32_t brng) {
  QorStream st(brng);
  std::vector<float> r(kN);
  measure(state, kN, [&] {
    if (brng == QOR_BRNG_MT19937) __rixsBRngMT19937(st.s, kN, r.data(), 0.0f, 1.0f);
    else if (brng == QOR_BRNG_SFMT19937) __rixsBRngSFMT19937(st.s, kN, r.data(), 0.0f, 1.0f);
    else __rixsBRngMT2203(st.s, kN, r.data(), 0.0f, 1.0f);
    benchmark::DoNotOptimize(r.data());
  });
}

void BM_StdMt19937(benchmark::State &state) {
  std::mt19937 g(5489);
  std::vector<uint32_t> r(kN);
  measure(state, kN, [&] {
    for (auto &x : r) x = uint32_t(g());
    benchmark::DoNotOptimize(r.data());
  });
}

#ifdef QOR_HAVE_GSL
void BM_GslMt19937(benchmark::State &state) {
  gsl_rng *g = gsl_rng_alloc(gsl_rng_mt19937);
  std::vector<uint32_t> r(kN);
  measure(state, kN, [&] {
    for (auto &x : r) x = uint32_t(gsl_rng_get(g));
    benchmark::DoNotOptimize(r.data());
  });
  gsl_rng_free(g);
}
BENCHMARK(BM_GslMt19937);
#endif

void BM_Skip1e12(benchmark::State &state, int32_t brng) {
  QorStream st(brng);
  __rixSkipAheadStream(st.s, 1000000000000ull);  // builds the jump tables once
  measure(state, 1, [&] { __rixSkipAheadStream(st.s, 1000000000000ull); });
}

}  // namespace

BENCHMARK_CAPTURE(BM_QorInt, MT19937, QOR_BRNG_MT19937);
BENCHMARK_CAPTURE(BM_QorInt, SFMT19937, QOR_BRNG_SFMT19937);
BENCHMARK_CAPTURE(BM_QorInt, MT2203, QOR_BRNG_MT2203);
BENCHMARK_CAPTURE(BM_QorDouble, MT19937, QOR_BRNG_MT19937);
BENCHMARK_CAPTURE(BM_QorDouble, SFMT19937, QOR_BRNG_SFMT19937);
BENCHMARK_CAPTURE(BM_QorDouble, MT2203, QOR_BRNG_MT2203);
BENCHMARK_CAPTURE(BM_QorFloat, MT19937, QOR_BRNG_MT19937);
BENCHMARK_CAPTURE(BM_QorFloat, SFMT19937, QOR_BRNG_SFMT19937);
BENCHMARK_CAPTURE(BM_QorFloat, MT2203, QOR_BRNG_MT2203);
BENCHMARK(BM_StdMt19937);
BENCHMARK_CAPTURE(BM_Skip1e12, MT19937, QOR_BRNG_MT19937)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Skip1e12, SFMT19937, QOR_BRNG_SFMT19937)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
