// `qor bench rng`: cycles per output of every built-in generator, integer and
// double, at n = 2^20 (the bench/ programs give the full picture with peers).
#include <cstdio>
#include <vector>

#include "command.h"
#include "qor/rng.h"
#include "tsc.h"

namespace qor::tool {
namespace {

struct Gen {
  const char *name;
  int32_t id;
};

constexpr Gen kGenerators[] = {
    {"MCG31M1", QOR_BRNG_MCG31},       {"R250", QOR_BRNG_R250},
    {"MRG32K3A", QOR_BRNG_MRG32K3A},   {"MCG59", QOR_BRNG_MCG59},
    {"WH", QOR_BRNG_WH},               {"SOBOL", QOR_BRNG_SOBOL},
    {"NIEDERR", QOR_BRNG_NIEDERR},     {"MT19937", QOR_BRNG_MT19937},
    {"MT2203", QOR_BRNG_MT2203},       {"SFMT19937", QOR_BRNG_SFMT19937},
    {"ARS5", QOR_BRNG_ARS5},           {"PHILOX4X32X10", QOR_BRNG_PHILOX4X32X10},
};

int run_rng_bench(const Args &args) {
  if (!args.empty()) return usage_error("bench rng takes no arguments");
  constexpr int32_t kN = 1 << 20;
  std::vector<double> dbl(kN);
  std::vector<uint32_t> words(static_cast<size_t>(kN) * 4);
  std::printf("%-14s %14s %14s\n", "generator", "cycles/word", "cycles/double");
  for (const Gen &g : kGenerators) {
    GeneratorRecord row;
    void *stream = nullptr;
    if (__rixGetBrngProperties(g.id, &row) != 0 || __rixNewStreamEx(&stream, g.id, 0, nullptr) != 0) {
      std::printf("%-14s %14s\n", g.name, "unavailable");
      if (stream) __rixDeleteStream(&stream);
      continue;
    }
    // Words are counted in 32-bit units whatever the row's word size.
    const double per_word = best_cycles_per([&] { row.generateI(stream, kN, words.data()); },
                                            static_cast<double>(kN) * row.wordSize / 4);
    const double per_double = best_cycles_per(
        [&] { row.generateD(stream, kN, dbl.data(), 0.0, 1.0); },
        kN);
    std::printf("%-14s %14.2f %14.2f\n", g.name, per_word, per_double);
    __rixDeleteStream(&stream);
  }
  return 0;
}

}  // namespace

QOR_BENCH_SECTION("rng", run_rng_bench);

}  // namespace qor::tool
