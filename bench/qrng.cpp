// Throughput of the quasi-random generators (Sobol, Niederreiter base 2) in
// time-stamp-counter cycles per coordinate, for several dimensions, next to
// GSL's gsl_qrng_sobol and gsl_qrng_niederreiter_2 (when GSL is available).
//
//   bench_qrng --benchmark_min_time=0.2
//
// "cyc/out" is TSC cycles per delivered coordinate (wall-clock based, so it
// also counts time the thread spent descheduled); "cpucyc/out" converts the
// thread's CPU time to TSC cycles and is the figure to trust under load.
// Seeding and skip-ahead costs are reported per call.
#include <benchmark/benchmark.h>
#include <x86intrin.h>

#include <time.h>

#include <cstdio>
#include <vector>

#include "qor/rng.h"

#ifdef QOR_HAVE_GSL
#include <gsl/gsl_qrng.h>
#endif

namespace {

constexpr int32_t kPoints = 1 << 16;

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

void report(benchmark::State &state, uint64_t cycles, double cpu, double per_iteration) {
  const double outputs = static_cast<double>(state.iterations()) * per_iteration;
  state.counters["cyc/out"] = static_cast<double>(cycles) / outputs;
  state.counters["cpucyc/out"] = cpu * tsc_rate() / outputs;
  state.SetItemsProcessed(static_cast<int64_t>(outputs));
}

enum class Kind { Int, Double, Seed, Skip };

void BM_qor(benchmark::State &state, int32_t brng, Kind kind) {
  const uint32_t dim = static_cast<uint32_t>(state.range(0));
  void *s = nullptr;
  if (__rixNewStreamEx(&s, brng, 1, &dim) != 0) {
    state.SkipWithError("cannot seed");
    if (s) __rixDeleteStream(&s);
    return;
  }
  GeneratorRecord row;
  __rixGetBrngProperties(brng, &row);
  const int32_t n = kPoints * static_cast<int32_t>(dim) > (1 << 20)
                        ? (1 << 20)
                        : kPoints * static_cast<int32_t>(dim);
  std::vector<uint32_t> u(static_cast<size_t>(n));
  std::vector<double> d(static_cast<size_t>(n));
  uint64_t cycles = 0, skip = 1;
  double cpu = 0;
  for (auto _ : state) {
    const double c0 = thread_seconds();
    const uint64_t t0 = __rdtsc();
    switch (kind) {
      case Kind::Int: row.generateI(s, n, u.data()); break;
      case Kind::Double: row.generateD(s, n, d.data(), 0.0, 1.0); break;
      case Kind::Seed: row.initStream(QOR_RNG_INIT_SEED, s, 1, &dim); break;
      case Kind::Skip:
        skip = skip * 6364136223846793005ull + 1442695040888963407ull;
        __rixSkipAheadStream(s, skip >> 20);
        break;
    }
    cycles += __rdtsc() - t0;
    cpu += thread_seconds() - c0;
    benchmark::DoNotOptimize(u.data());
    benchmark::DoNotOptimize(d.data());
    benchmark::ClobberMemory();
  }
  report(state, cycles, cpu, kind == Kind::Int || kind == Kind::Double ? n : 1);
  __rixDeleteStream(&s);
}

#define QOR_BENCH(NAME, BRNG, ...)                                                        \
  BENCHMARK_CAPTURE(BM_qor, NAME##_int, BRNG, Kind::Int)->Arg(1)->Arg(10)->Arg(__VA_ARGS__); \
  BENCHMARK_CAPTURE(BM_qor, NAME##_double, BRNG, Kind::Double)                            \
      ->Arg(1)->Arg(10)->Arg(__VA_ARGS__);                                                \
  BENCHMARK_CAPTURE(BM_qor, NAME##_seed, BRNG, Kind::Seed)->Arg(10)->Arg(__VA_ARGS__);    \
  BENCHMARK_CAPTURE(BM_qor, NAME##_skip, BRNG, Kind::Skip)->Arg(10)->Arg(__VA_ARGS__)

QOR_BENCH(sobol, QOR_BRNG_SOBOL, 78);
QOR_BENCH(niederr, QOR_BRNG_NIEDERR, 318);

#ifdef QOR_HAVE_GSL
// GSL delivers one point per call as doubles.
void BM_gsl(benchmark::State &state, const gsl_qrng_type *type) {
  const unsigned dim = static_cast<unsigned>(state.range(0));
  gsl_qrng *q = gsl_qrng_alloc(type, dim);
  std::vector<double> d(static_cast<size_t>(kPoints) * dim);
  uint64_t cycles = 0;
  double cpu = 0;
  for (auto _ : state) {
    gsl_qrng_init(q);
    const double c0 = thread_seconds();
    const uint64_t t0 = __rdtsc();
    for (int32_t p = 0; p < kPoints; ++p) gsl_qrng_get(q, d.data() + static_cast<size_t>(p) * dim);
    cycles += __rdtsc() - t0;
    cpu += thread_seconds() - c0;
    benchmark::DoNotOptimize(d.data());
    benchmark::ClobberMemory();
  }
  report(state, cycles, cpu, static_cast<double>(kPoints) * dim);
  gsl_qrng_free(q);
}

BENCHMARK_CAPTURE(BM_gsl, gsl_sobol_double, gsl_qrng_sobol)->Arg(1)->Arg(10)->Arg(40);
BENCHMARK_CAPTURE(BM_gsl, gsl_niederreiter_2_double, gsl_qrng_niederreiter_2)->Arg(1)->Arg(10)->Arg(12);
#endif

}  // namespace

int main(int argc, char **argv) {
  std::printf("TSC rate %.3f GHz\n", tsc_rate() * 1e-9);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
