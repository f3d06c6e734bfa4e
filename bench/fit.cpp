// Cell search throughput: the uniform, hybrid and sorted methods against
// GSL's gsl_interp_bsearch (and its accelerated lookup for sorted sites) on
// the same partitions and sites.  bench/fit_peers.py times NumPy's
// searchsorted on identical data (the same closed-form partitions and the
// same splitmix64 sites), so the figures can be set side by side.
#include <benchmark/benchmark.h>
#include <gsl/gsl_interp.h>
#include <x86intrin.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fit/task.h"
#include "qor/fit.h"

namespace {

constexpr int64_t kSites = 1000000;

uint64_t splitmix64(uint64_t z) {
  z += 0x9E3779B97F4A7C15ull;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

double unit(uint64_t z) { return static_cast<double>(splitmix64(z) >> 11) * 0x1.0p-53; }

// Kind 0 uniform: i/(nx-1).  Kind 1 random spacing: gaps 0.5 + u, u uniform
// on [0, 1).  Kind 2 clustered: u^3 + 1e-3 u, a tenth of the breakpoints in
// the first thousandth of the span.
std::vector<double> partition(int kind, int64_t nx) {
  std::vector<double> x(nx);
  for (int64_t i = 0; i < nx; ++i) {
    const double u = static_cast<double>(i) / static_cast<double>(nx - 1);
    if (kind == 0) x[i] = u;
    else if (kind == 1) x[i] = i == 0 ? 0.0 : x[i - 1] + (0.5 + unit(1000003 + i));
    else x[i] = u * u * u + 1e-3 * u;
  }
  return x;
}

// Sites spread over [x0 - 5%, x_last + 5%] of the span.
std::vector<double> sites(const std::vector<double> &x, uint64_t seed, bool sorted) {
  std::vector<double> s(kSites);
  const double a = x.front(), span = x.back() - x.front();
  for (int64_t k = 0; k < kSites; ++k) {
    const double u = unit(seed + k);
    s[k] = a + span * (1.1 * u - 0.05);
  }
  if (sorted) std::sort(s.begin(), s.end());
  return s;
}

struct Data {
  std::vector<double> x, s;
  std::vector<int64_t> cell;
  qor_df_task_t *task = nullptr;
  Data(int kind, int64_t nx, bool sorted, uint64_t seed)
      : x(partition(kind, nx)), s(sites(x, seed, sorted)), cell(kSites) {
    if (qor_df_kernel_dNewTask1D(&task, nx, x.data(), kind == 0 ? 4 : 1, 0, nullptr, 0, 1) != 0)
      std::abort();
  }
  ~Data() { qor_df_kernel_DeleteTask(&task); }
  const qor::fit::Task *rec() const { return reinterpret_cast<const qor::fit::Task *>(task); }
};

Data &uniform_data() {
  static Data d(0, 1000000, false, 1);
  return d;
}
Data &hybrid_data() {
  static Data d(1, 1000000, false, 2);
  return d;
}
Data &clustered_data() {
  static Data d(2, 1000000, false, 2);
  return d;
}
Data &sorted_data() {
  static Data d(1, 1000, true, 3);
  return d;
}

// GSL's bsearch returns i with x[i] <= t < x[i+1] inside [lo, hi]; our cell
// of an inner site is i + 1.  A mismatch on the inner sites means the two
// are not answering the same question, and the figures would be meaningless.
void cross_check(const Data &d) {
  const size_t nx = d.x.size();
  for (int64_t k = 0; k < kSites; k += 997) {
    const double t = d.s[k];
    if (!(t > d.x[0] && t < d.x[nx - 1])) continue;
    const int64_t g = static_cast<int64_t>(gsl_interp_bsearch(d.x.data(), t, 0, nx - 1)) + 1;
    if (g != d.cell[k]) {
      std::fprintf(stderr, "cross-check failed at site %lld: qor %lld, gsl %lld\n",
                   static_cast<long long>(k), static_cast<long long>(d.cell[k]),
                   static_cast<long long>(g));
      std::abort();
    }
  }
}

template <class Body>
void timed(benchmark::State &state, Body body) {
  uint64_t cycles = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    body();
    cycles += __rdtsc() - t0;
  }
  const double sites = static_cast<double>(state.iterations()) * kSites;
  state.SetItemsProcessed(static_cast<int64_t>(sites));
  state.counters["cycles_per_site"] = benchmark::Counter(static_cast<double>(cycles) / sites);
}

void BM_QorUniform64(benchmark::State &state) {
  Data &d = uniform_data();
  const int64_t nx = d.x.size();
  const double ends[2] = {d.x[0], d.x[nx - 1]};
  const double scale = static_cast<double>(nx - 1) / (ends[1] - ends[0]);
  timed(state, [&] {
    qor_df_kernel_dDFUniformSearch1D64(nx, ends, kSites, d.s.data(), nullptr, scale, nullptr,
                                       d.cell.data());
    benchmark::DoNotOptimize(d.cell.data());
  });
}

void BM_QorUniform64Pack(benchmark::State &state) {
  Data &d = uniform_data();
  const int64_t nx = d.x.size();
  const double ends[2] = {d.x[0], d.x[nx - 1]};
  const double scale = static_cast<double>(nx - 1) / (ends[1] - ends[0]);
  timed(state, [&] {
    qor_df_kernel_dDFUniformSearch1D64Pack(nx, ends, kSites, d.s.data(), nullptr, scale, nullptr,
                                           d.cell.data());
    benchmark::DoNotOptimize(d.cell.data());
  });
}

void BM_QorGeneralUniform(benchmark::State &state) {
  Data &d = uniform_data();
  timed(state, [&] {
    qor_df_kernel_dDFSearch1D(d.task, kSites, d.s.data(), 0, nullptr, d.cell.data(), nullptr,
                              nullptr, nullptr, nullptr, nullptr);
    benchmark::DoNotOptimize(d.cell.data());
  });
  cross_check(d);
}

void hybrid(benchmark::State &state, Data &d) {
  const int64_t nx = d.x.size();
  timed(state, [&] {
    qor_df_kernel_dDFHybridSearch1D64(nx, d.x.data(), kSites, d.s.data(), nullptr,
                                      d.rec()->cell_scale.d, d.rec()->cell_table, d.cell.data());
    benchmark::DoNotOptimize(d.cell.data());
  });
  cross_check(d);
}

void BM_QorHybrid64(benchmark::State &state) { hybrid(state, hybrid_data()); }
void BM_QorHybrid64Clustered(benchmark::State &state) { hybrid(state, clustered_data()); }

void BM_QorSorted64(benchmark::State &state) {
  Data &d = sorted_data();
  const int64_t nx = d.x.size();
  timed(state, [&] {
    int64_t carried = 0;
    qor_df_kernel_dDFSortedSearch1D64(nx, d.x.data(), kSites, d.s.data(), &carried, 0, nullptr,
                                      d.cell.data());
    benchmark::DoNotOptimize(d.cell.data());
  });
  cross_check(d);
}

void gsl_all(Data &d) {
  const size_t hi = d.x.size() - 1;
  for (int64_t k = 0; k < kSites; ++k)
    d.cell[k] = static_cast<int64_t>(gsl_interp_bsearch(d.x.data(), d.s[k], 0, hi));
  benchmark::DoNotOptimize(d.cell.data());
}

void BM_GslBsearchUniform(benchmark::State &state) { timed(state, [&] { gsl_all(uniform_data()); }); }
void BM_GslBsearchNonUniform(benchmark::State &state) { timed(state, [&] { gsl_all(hybrid_data()); }); }
void BM_GslBsearchClustered(benchmark::State &state) { timed(state, [&] { gsl_all(clustered_data()); }); }
void BM_GslBsearchSorted(benchmark::State &state) { timed(state, [&] { gsl_all(sorted_data()); }); }

// GSL's accelerated lookup remembers the last interval: its best case is
// exactly the sorted-sites workload.
void BM_GslAccelSorted(benchmark::State &state) {
  Data &d = sorted_data();
  gsl_interp_accel *acc = gsl_interp_accel_alloc();
  const size_t nx = d.x.size();
  timed(state, [&] {
    gsl_interp_accel_reset(acc);
    for (int64_t k = 0; k < kSites; ++k)
      d.cell[k] = static_cast<int64_t>(gsl_interp_accel_find(acc, d.x.data(), nx, d.s[k]));
    benchmark::DoNotOptimize(d.cell.data());
  });
  gsl_interp_accel_free(acc);
}

}  // namespace

BENCHMARK(BM_QorUniform64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QorUniform64Pack)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QorGeneralUniform)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GslBsearchUniform)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QorHybrid64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GslBsearchNonUniform)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QorHybrid64Clustered)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GslBsearchClustered)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QorSorted64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GslBsearchSorted)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GslAccelSorted)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
