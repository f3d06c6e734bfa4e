// `qor bench fit`: cycles per site of the cell-search methods over 2^20
// random sites (bench_fit and bench_interp give the full picture with peers).
#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

#include "command.h"
#include "qor/fit.h"
#include "tsc.h"

namespace qor::tool {
namespace {

int run_fit_bench(const Args &args) {
  if (!args.empty()) return usage_error("bench fit takes no arguments");
  constexpr int64_t kSites = 1 << 20;
  std::mt19937_64 rng(2024);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<double> sites(kSites), sorted_sites;
  for (double &s : sites) s = u(rng);
  sorted_sites = sites;
  std::sort(sorted_sites.begin(), sorted_sites.end());
  std::vector<int64_t> cell(kSites);

  std::printf("%-44s %12s\n", "method (double, 2^20 sites)", "cycles/site");
  {
    const double x[2] = {0.0, 1.0};
    const int64_t nx = 1000001;
    const double scale = static_cast<double>(nx - 1) / (x[1] - x[0]);
    const double c = best_cycles_per(
        [&] {
          qor_df_kernel_dDFUniformSearch1D64(nx, x, kSites, sites.data(), nullptr, scale, nullptr,
                                             cell.data());
        },
        kSites);
    std::printf("%-44s %12.2f\n", "Uniform, nx = 10^6 + 1", c);
  }
  {
    // A quasi-uniform partition: uniform steps jittered by up to 20%.
    const int64_t nx = 1000001;
    std::vector<double> x(nx);
    for (int64_t i = 0; i < nx; ++i)
      x[i] = (static_cast<double>(i) + (i > 0 && i < nx - 1 ? 0.2 * (u(rng) - 0.5) : 0.0)) /
             static_cast<double>(nx - 1);
    const double scale = static_cast<double>(nx - 1) / (x[nx - 1] - x[0]);
    const double c = best_cycles_per(
        [&] {
          qor_df_kernel_dDFQuasiUniformSearch1D64(nx, x.data(), kSites, sites.data(), nullptr,
                                                  scale, nullptr, cell.data());
        },
        kSites);
    std::printf("%-44s %12.2f\n", "QuasiUniform, jittered, nx = 10^6 + 1", c);
  }
  {
    const int64_t nx = 1000;
    std::vector<double> x(nx);
    for (int64_t i = 0; i < nx; ++i) x[i] = static_cast<double>(i) / static_cast<double>(nx - 1);
    const double c = best_cycles_per(
        [&] {
          int64_t carried = 0;
          qor_df_kernel_dDFSortedSearch1D64(nx, x.data(), kSites, sorted_sites.data(), &carried,
                                            0.0, nullptr, cell.data());
        },
        kSites);
    std::printf("%-44s %12.2f\n", "Sorted sites, nx = 1000", c);
  }
  return 0;
}

}  // namespace

QOR_BENCH_SECTION("fit", run_fit_bench);

}  // namespace qor::tool
