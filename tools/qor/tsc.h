// Cycle counting for the quick speed summaries of `qor bench`: the best of a
// few repetitions, in time-stamp-counter cycles, which on a shared machine is
// the figure least disturbed by other work.
#pragma once

#include <x86intrin.h>

#include <cstdint>
#include <limits>

namespace qor::tool {

template <class F>
double best_cycles_per(F &&run, double items, int repetitions = 5) {
  uint64_t best = std::numeric_limits<uint64_t>::max();
  for (int r = 0; r < repetitions; ++r) {
    const uint64_t t0 = __rdtsc();
    run();
    const uint64_t t1 = __rdtsc();
    if (t1 - t0 < best) best = t1 - t0;
  }
  return static_cast<double>(best) / items;
}

}  // namespace qor::tool
