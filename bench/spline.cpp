// Spline construction speed: natural cubic (free ends) over 10^6 breakpoints
// for one and for sixteen functions, the local methods for one, and GSL's
// natural cubic spline set-up on the same data for comparison.  GSL is
// loaded at run time (dlopen) so that the benchmark builds without it; its
// rows are skipped when the library is missing.
//
// Counters: ns_per_point = time per breakpoint per function, cycles_per_point
// = TSC ticks per breakpoint per function.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <x86intrin.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "qor/core.h"
#include "qor/fit.h"
#include "qor/fit_construct.h"

namespace {

constexpr int64_t kNx = 1000000;

struct Data {
  std::vector<double> x, y, coeff;
  qor_df_task_t *task = nullptr;
  Data(int64_t nx, int64_t ny, int64_t x_hint, int64_t bc_type) {
    std::mt19937_64 g(42);
    std::uniform_real_distribution<double> u(0.5, 1.5);
    x.resize(nx);
    x[0] = 0;
    for (int64_t i = 1; i < nx; ++i) x[i] = x[i - 1] + (x_hint == 4 ? 1.0 : u(g));
    y.resize(nx * ny);
    for (int64_t j = 0; j < ny; ++j)
      for (int64_t i = 0; i < nx; ++i) y[j * nx + i] = std::sin(1e-3 * x[i] * (j + 1));
    coeff.resize(4 * (nx - 1) * ny);
    qor_df_kernel_dNewTask1D(&task, nx, x.data(), x_hint, ny, y.data(), 0, 0);
    const double bc[2] = {0, 0};
    qor_df_kernel_dEditPPSpline1D(task, 4, 2, bc_type, bc, 0, nullptr, coeff.data(), 0);
  }
  ~Data() { qor_df_kernel_DeleteTask(&task); }
};

using Ctor = int32_t (*)(qor_df_task_t *, qor_df_threader_fn, const void *, int32_t);

void run_ctor(benchmark::State &state, Ctor ctor, int64_t ny, int64_t x_hint, int64_t bc_type) {
  Data d(kNx, ny, x_hint, bc_type);
  uint64_t ticks = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    const int32_t st = ctor(d.task, nullptr, nullptr, 1);
    ticks += __rdtsc() - t0;
    if (st != 0) state.SkipWithError("construction failed");
    benchmark::DoNotOptimize(d.coeff.data());
  }
  const double points = double(kNx) * double(ny) * double(state.iterations());
  state.counters["cycles_per_point"] = double(ticks) / points;
  state.counters["ns_per_point"] =
      benchmark::Counter(double(kNx) * double(ny), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

void BM_NaturalCubic_ny1(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFNaturalCubicSpline1D, 1, 0, 2); }
void BM_NaturalCubic_ny16(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFNaturalCubicSpline1D, 16, 0, 2); }
void BM_NaturalCubic_uniform_ny1(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFNaturalCubicSpline1D, 1, 4, 2); }
void BM_NaturalCubic_periodic_ny1(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFNaturalCubicSpline1D, 1, 0, 64); }
void BM_AkimaCubic_ny1(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFAkimaCubicSpline1D, 1, 0, 0); }
void BM_BesselCubic_ny1(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFBesselCubicSpline1D, 1, 0, 2); }
void BM_HymanCubic_ny1(benchmark::State &s) { run_ctor(s, qor_df_kernel_dDFHymanCubicSpline1D, 1, 0, 2); }
void BM_Linear_ny1(benchmark::State &s) {
  Data d(kNx, 1, 0, 0);
  qor_df_kernel_iEditVal(d.task, 18, 2);
  uint64_t ticks = 0;
  for (auto _ : s) {
    const uint64_t t0 = __rdtsc();
    if (qor_df_kernel_dDFLinearSpline1D(d.task, nullptr, nullptr, 1) != 0) s.SkipWithError("failed");
    ticks += __rdtsc() - t0;
  }
  s.counters["cycles_per_point"] = double(ticks) / (double(kNx) * double(s.iterations()));
  s.counters["ns_per_point"] =
      benchmark::Counter(double(kNx), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// GSL's natural cubic spline (gsl_interp_cspline), reached through dlopen.
struct Gsl {
  using alloc_fn = void *(*)(const void *, size_t);
  using init_fn = int (*)(void *, const double *, const double *, size_t);
  using free_fn = void (*)(void *);
  alloc_fn alloc = nullptr;
  init_fn init = nullptr;
  free_fn release = nullptr;
  const void *cspline = nullptr;
  Gsl() {
    if (!dlopen("libgslcblas.so.0", RTLD_NOW | RTLD_GLOBAL)) return;
    void *h = dlopen("libgsl.so.27", RTLD_NOW | RTLD_GLOBAL);
    if (!h) return;
    alloc = reinterpret_cast<alloc_fn>(dlsym(h, "gsl_interp_alloc"));
    init = reinterpret_cast<init_fn>(dlsym(h, "gsl_interp_init"));
    release = reinterpret_cast<free_fn>(dlsym(h, "gsl_interp_free"));
    auto *type = static_cast<const void *const *>(dlsym(h, "gsl_interp_cspline"));
    cspline = type ? *type : nullptr;
  }
  bool ok() const { return alloc && init && release && cspline; }
};

void BM_GslCspline_init_ny1(benchmark::State &state) {
  static Gsl gsl;
  if (!gsl.ok()) {
    state.SkipWithError("libgsl not available");
    return;
  }
  Data d(kNx, 1, 0, 2);
  void *interp = gsl.alloc(gsl.cspline, size_t(kNx));
  uint64_t ticks = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    if (gsl.init(interp, d.x.data(), d.y.data(), size_t(kNx)) != 0) state.SkipWithError("gsl failed");
    ticks += __rdtsc() - t0;
  }
  gsl.release(interp);
  state.counters["cycles_per_point"] = double(ticks) / (double(kNx) * double(state.iterations()));
  state.counters["ns_per_point"] =
      benchmark::Counter(double(kNx), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_NaturalCubic_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NaturalCubic_ny16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NaturalCubic_uniform_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NaturalCubic_periodic_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AkimaCubic_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BesselCubic_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HymanCubic_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Linear_ny1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GslCspline_init_ny1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
