// Interpolation speed: values of a natural cubic spline at 10^6 random sites
// (unsorted, and sorted) on partitions of 10^3 and 10^6 breakpoints: non-uniform
// (searched with the cell-index table), quasi-uniform (x hint 2) and uniform, and GSL's gsl_spline_eval (natural cubic, with its
// accelerator) at the same sites on the same data when GSL is linked.
//
// Counters: ns_per_site = time per site, cycles_per_site = TSC ticks per site.
#include <benchmark/benchmark.h>
#include <x86intrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "qor/fit.h"
#include "qor/fit_construct.h"
#include "qor/fit_interp.h"

#ifdef QOR_HAVE_GSL
#include <gsl/gsl_errno.h>
#include <gsl/gsl_spline.h>
#endif

namespace {

constexpr int64_t kSites = 1000000;

struct Data {
  std::vector<double> x, y, coeff, sites, r;
  qor_df_task_t *task = nullptr;
  // x_hint: 0 no hint (cell-index table, hybrid search), 2 quasi-uniform,
  // 4 uniform.
  Data(int64_t nx, int64_t x_hint, bool sorted) {
    const bool uniform = x_hint == QOR_DF_UNIFORM_PARTITION;
    std::mt19937_64 g(42);
    std::uniform_real_distribution<double> u(0.5, 1.5);
    x.resize(nx);
    x[0] = 0;
    // Non-uniform: gaps uniform on [0.5, 1.5), a random walk whose distance
    // from the straight line grows like sqrt(i).  Quasi-uniform (the promise
    // of x hint 2): a unit grid with each breakpoint jittered by up to 0.3.
    for (int64_t i = 1; i < nx; ++i)
      x[i] = uniform ? static_cast<double>(i)
             : x_hint == QOR_DF_QUASI_UNIFORM_PARTITION
                 ? static_cast<double>(i) + 0.6 * (u(g) - 1.0)
                 : x[i - 1] + u(g);
    y.resize(nx);
    for (int64_t i = 0; i < nx; ++i) y[i] = std::sin(0.1 * x[i]);
    coeff.resize(4 * (nx - 1));
    qor_df_kernel_dNewTask1D(&task, nx, x.data(), x_hint, 1, y.data(), 0, 0);
    qor_df_kernel_dEditPPSpline1D(task, 4, 0, QOR_DF_BC_FREE_END, nullptr, 0, nullptr, coeff.data(), 0);
    qor_df_kernel_dDFNaturalCubicSpline1D(task, nullptr, nullptr, 1);
    std::uniform_real_distribution<double> s(x[0], x[nx - 1]);
    sites.resize(kSites);
    for (auto &v : sites) v = s(g);
    if (sorted) std::sort(sites.begin(), sites.end());
    r.resize(kSites);
  }
  ~Data() { qor_df_kernel_DeleteTask(&task); }
};

void counters(benchmark::State &state, uint64_t ticks) {
  const double n = double(kSites) * double(state.iterations());
  state.counters["cycles_per_site"] = double(ticks) / n;
  state.counters["ns_per_site"] = benchmark::Counter(
      double(kSites), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Interpolate(benchmark::State &state) {
  const int64_t nx = state.range(0);
  const bool sorted = state.range(2) != 0;
  Data d(nx, state.range(1), sorted);
  uint64_t ticks = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    const int32_t st = qor_df_kernel_dDFInterpolate1D(
        d.task, QOR_DF_INTERP, kSites, d.sites.data(), sorted ? QOR_DF_SITES_SORTED : QOR_DF_SITES_NO_INFO,
        1, nullptr, nullptr, d.r.data(), 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    ticks += __rdtsc() - t0;
    if (st != 0) state.SkipWithError("interpolation failed");
    benchmark::DoNotOptimize(d.r.data());
  }
  counters(state, ticks);
}
BENCHMARK(BM_Interpolate)
    ->ArgNames({"nx", "xhint", "sorted"})
    ->Args({1000, 0, 0})
    ->Args({1000, 2, 0})
    ->Args({1000, 4, 0})
    ->Args({1000000, 0, 0})
    ->Args({1000000, 2, 0})
    ->Args({1000000, 4, 0})
    ->Args({1000000, 0, 1})
    ->Unit(benchmark::kMillisecond);

void BM_InterpolateFloat(benchmark::State &state) {
  const int64_t nx = state.range(0);
  std::vector<float> x(nx), y(nx), c(4 * (nx - 1)), s(kSites), r(kSites);
  std::mt19937_64 g(42);
  std::uniform_real_distribution<float> u(0.5f, 1.5f);
  x[0] = 0;
  for (int64_t i = 1; i < nx; ++i) x[i] = x[i - 1] + u(g);
  for (int64_t i = 0; i < nx; ++i) y[i] = std::sin(0.1f * x[i]);
  qor_df_task_t *task = nullptr;
  qor_df_kernel_sNewTask1D(&task, nx, x.data(), 0, 1, y.data(), 0, 0);
  qor_df_kernel_sEditPPSpline1D(task, 4, 0, QOR_DF_BC_FREE_END, nullptr, 0, nullptr, c.data(), 0);
  qor_df_kernel_sDFNaturalCubicSpline1D(task, nullptr, nullptr, 1);
  std::uniform_real_distribution<float> sd(x[0], x[nx - 1]);
  for (auto &v : s) v = sd(g);
  uint64_t ticks = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    const int32_t st = qor_df_kernel_sDFInterpolate1D(task, QOR_DF_INTERP, kSites, s.data(), 0, 1, nullptr,
                                                      nullptr, r.data(), 0, nullptr, nullptr, nullptr,
                                                      nullptr, nullptr, nullptr, nullptr);
    ticks += __rdtsc() - t0;
    if (st != 0) state.SkipWithError("interpolation failed");
    benchmark::DoNotOptimize(r.data());
  }
  qor_df_kernel_DeleteTask(&task);
  counters(state, ticks);
}
BENCHMARK(BM_InterpolateFloat)->ArgNames({"nx"})->Arg(1000)->Arg(1000000)->Unit(benchmark::kMillisecond);

#ifdef QOR_HAVE_GSL
void BM_GslSplineEval(benchmark::State &state) {
  const int64_t nx = state.range(0);
  const bool sorted = state.range(1) != 0;
  Data d(nx, 0, sorted);
  gsl_set_error_handler_off();
  gsl_spline *sp = gsl_spline_alloc(gsl_interp_cspline, static_cast<size_t>(nx));
  gsl_interp_accel *acc = gsl_interp_accel_alloc();
  gsl_spline_init(sp, d.x.data(), d.y.data(), static_cast<size_t>(nx));
  uint64_t ticks = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    for (int64_t i = 0; i < kSites; ++i) d.r[i] = gsl_spline_eval(sp, d.sites[i], acc);
    ticks += __rdtsc() - t0;
    benchmark::DoNotOptimize(d.r.data());
  }
  gsl_interp_accel_free(acc);
  gsl_spline_free(sp);
  counters(state, ticks);
}
BENCHMARK(BM_GslSplineEval)
    ->ArgNames({"nx", "sorted"})
    ->Args({1000, 0})
    ->Args({1000000, 0})
    ->Args({1000000, 1})
    ->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
