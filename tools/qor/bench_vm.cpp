// `qor bench vm [FUNC...]`: cycles per element of real vector-math functions
// at n = 1,000 (in cache) in every accuracy slot, beside the cost table the
// library publishes for them.  bench_vm has the full picture with peers.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command.h"
#include "vm_catalogue.h"
#include "tsc.h"

namespace qor::tool {
namespace {

using Fn = VmFn;
constexpr const auto &kFns = kVmFns;

const char *const kDefault[] = {"Add", "Mul", "Div", "Sqrt", "Floor", "Exp", "Ln", "Sin", "Pow"};

template <class T>
double measure(void *entry, Shape shape, int n) {
  // Arguments in [0.5, 2): inside every real function's domain that the
  // default list uses, and away from special-value paths.
  std::vector<T> a(n), b(n), r(n), r2(n);
  for (int i = 0; i < n; ++i) {
    a[i] = static_cast<T>(0.5 + 1.5 * ((i * 7919) % n) / n);
    b[i] = static_cast<T>(0.75 + 0.5 * ((i * 104729) % n) / n);
  }
  switch (shape) {
    case Shape::U: {
      auto f = reinterpret_cast<void (*)(int, const T *, T *)>(entry);
      return best_cycles_per([&] { f(n, a.data(), r.data()); }, n, 200);
    }
    case Shape::B: {
      auto f = reinterpret_cast<void (*)(int, const T *, const T *, T *)>(entry);
      return best_cycles_per([&] { f(n, a.data(), b.data(), r.data()); }, n, 200);
    }
    case Shape::X: {
      auto f = reinterpret_cast<void (*)(int, const T *, T, T *)>(entry);
      return best_cycles_per([&] { f(n, a.data(), T(1.5), r.data()); }, n, 200);
    }
    case Shape::R2: {
      auto f = reinterpret_cast<void (*)(int, const T *, T *, T *)>(entry);
      return best_cycles_per([&] { f(n, a.data(), r.data(), r2.data()); }, n, 200);
    }
    default:
      return -1;
  }
}

int run_vm_bench(const Args &args) {
  std::vector<std::string> names(args.begin(), args.end());
  if (names.empty()) names.assign(std::begin(kDefault), std::end(kDefault));
  constexpr int kN = 1000;
  std::printf("%-14s %8s %8s %8s   %8s %8s %8s\n", "n = 1000", "LA", "HA", "EP", "cost LA",
              "cost HA", "cost EP");
  for (const std::string &want : names) {
    bool found = false;
    for (const Fn &fn : kFns) {
      if (strcasecmp(fn.name, want.c_str()) != 0 || (fn.t != 's' && fn.t != 'd')) continue;
      found = true;
      const std::string base = std::string("_pex") + fn.t + fn.name;
      const char *suffix[3] = {fn.t == 's' ? "_21" : "_50", "_HA", fn.t == 's' ? "_11" : "_26"};
      const auto *cost = static_cast<const float *>(
          dlsym(RTLD_DEFAULT, ("qor_pex_kernel_" + std::string(1, fn.t) + fn.name + "_ctab").c_str()));
      double c[3];
      for (int s = 0; s < 3; ++s) {
        void *entry = dlsym(RTLD_DEFAULT, (base + suffix[s]).c_str());
        c[s] = !entry ? -1
               : fn.t == 's' ? measure<float>(entry, fn.shape, kN)
                             : measure<double>(entry, fn.shape, kN);
      }
      if (c[0] < 0) {
        std::printf("%-14s %s\n", (std::string(1, fn.t) + fn.name).c_str(),
                    "(shape not measured here: see bench_vm)");
        continue;
      }
      std::printf("%-14s %8.2f %8.2f %8.2f   %8.3f %8.3f %8.3f\n",
                  (std::string(1, fn.t) + fn.name).c_str(), c[0], c[1], c[2],
                  cost ? cost[0] : 0.f, cost ? cost[1] : 0.f, cost ? cost[2] : 0.f);
    }
    if (!found) return usage_error("bench vm: no real function named '" + want + "'");
  }
  return 0;
}

}  // namespace

QOR_BENCH_SECTION("vm", run_vm_bench);

}  // namespace qor::tool
