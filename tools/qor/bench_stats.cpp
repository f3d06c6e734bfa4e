// `qor bench stats`: cycles per observation (value) of the
// absolute deviation estimators, p = 16 variables, n = 2^18 observations,
// both storage layouts (bench_stats and bench/stats_peers.py give the full
// picture with peers).
#include <cstdio>
#include <random>
#include <vector>

#include "command.h"
#include "qor/stats.h"
#include "tsc.h"

namespace qor::tool {
namespace {

int run_stats_bench(const Args &args) {
  if (!args.empty()) return usage_error("bench stats takes no arguments");
  const int64_t p = 16, n = 1 << 18;
  std::vector<double> x(static_cast<size_t>(p * n));
  std::mt19937_64 rng(7);
  std::normal_distribution<double> g;
  for (double &v : x) v = g(rng);
  std::vector<double> mdad(p), mnad(p);
  qor_ss_service_fn services[QOR_SS_SERVICE_TABLE_SIZE];
  qor_ss_default_services(services);

  std::printf("%-34s %20s\n", "estimate (double, p = 16, n = 2^18)", "cycles/observation");
  for (int64_t storage : {int64_t{QOR_SS_STORAGE_COLS}, int64_t{QOR_SS_STORAGE_ROWS}}) {
    qor_ss_task task = nullptr;
    if (__rixdSSNewTask(&task, &p, &n, &storage, x.data(), nullptr, nullptr, 1) != 0) {
      std::printf("cannot create a task\n");
      return 1;
    }
    __rixdSSEditTask(task, QOR_SS_ED_MDAD, mdad.data());
    __rixdSSEditTask(task, QOR_SS_ED_MNAD, mnad.data());
    const char *layout = storage == QOR_SS_STORAGE_COLS ? "columns" : "rows";
    const struct {
      const char *name;
      uint64_t estimate;
    } kinds[] = {{"median abs. deviation", QOR_SS_MAD_MEDIAN},
                 {"mean abs. deviation", QOR_SS_MAD_MEAN}};
    for (const auto &k : kinds) {
      int32_t st = 0;
      const double c = best_cycles_per(
          [&] { st = _rixdSSMAD(task, k.estimate, QOR_SS_METHOD_FAST, services); },
          static_cast<double>(p * n), 3);
      if (st != 0) std::printf("%s, %s: status %d\n", k.name, layout, st);
      else std::printf("%-24s %-9s %20.2f\n", k.name, layout, c);
    }
    __rixSSDeleteTask(&task);
  }
  return 0;
}

}  // namespace

QOR_BENCH_SECTION("stats", run_stats_bench);

}  // namespace qor::tool
