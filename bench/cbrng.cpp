// Counter-based generators: cycles per 32-bit word at n = 10^6 for ARS5 and
// Philox4x32-10 (integer, float and double output), against Random123's
// ars4x32 and philox4x32 filling an array block by block, plus the RDRAND
// generator for reference.
//
// Random123's ARS needs the AES instructions, which the rest of the project
// does not compile with; this program is only run on the build machine.
#pragma GCC target("aes")
#define R123_USE_AES_NI 1
#include "rng/brng/cbrng.h"

#include <Random123/ars.h>
#include <Random123/philox.h>
#include <benchmark/benchmark.h>
#include <x86intrin.h>

#include <cstring>
#include <vector>

#include "qor/core.h"
#include "qor/rng.h"

namespace {

constexpr int kN = 1000000;

// Mean over all iterations, and the best iteration: on a shared machine the
// best one is the closest to the generator's own cost.
void report(benchmark::State &state, uint64_t cycles, uint64_t words, uint64_t best, int n) {
  state.counters["cycles/word"] = static_cast<double>(cycles) / static_cast<double>(words);
  state.counters["best_cycles/word"] = static_cast<double>(best) / n;
  state.SetItemsProcessed(static_cast<int64_t>(words));
}

struct StreamBlock {
  explicit StreamBlock(int32_t id) {
    const uint32_t seed[6] = {0x12345678, 0x9ABCDEF0, 1, 2, 3, 4};
    status = __rixNewStreamEx(&p, id, 6, seed);
  }
  ~StreamBlock() {
    if (p) __rixDeleteStream(&p);
  }
  void *p = nullptr;
  int32_t status;
};

template <class Out, class Call>
void run_stream(benchmark::State &state, int32_t id, int n, Call call) {
  if (id == QOR_BRNG_ARS5 && !qor::rng::cpu_has_aes()) {
    state.SkipWithError("no AES");
    return;
  }
  if (id == QOR_BRNG_NONDETERM && !qor::rng::cpu_has_rdrand()) {
    state.SkipWithError("no RDRAND");
    return;
  }
  StreamBlock s(id);
  std::vector<Out> r(n);
  uint64_t cycles = 0, words = 0, best = ~uint64_t{0};
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    const int st = call(s.p, n, r.data());
    const uint64_t dt = __rdtsc() - t0;
    cycles += dt;
    best = dt < best ? dt : best;
    words += n;
    benchmark::DoNotOptimize(r.data());
    if (st != 0) state.SkipWithError("generator failed");
  }
  report(state, cycles, words, best, n);
}

void BM_qor_ARS5_int(benchmark::State &state) {
  run_stream<uint32_t>(state, QOR_BRNG_ARS5, kN,
                       [](void *s, int n, uint32_t *r) { return __rixiBRngARS5(s, n, r); });
}
void BM_qor_Philox_int(benchmark::State &state) {
  run_stream<uint32_t>(state, QOR_BRNG_PHILOX4X32X10, kN, [](void *s, int n, uint32_t *r) {
    return __rixiBRngPHILOX4X32X10(s, n, r);
  });
}
void BM_qor_ARS5_float(benchmark::State &state) {
  run_stream<float>(state, QOR_BRNG_ARS5, kN,
                    [](void *s, int n, float *r) { return __rixsBRngARS5(s, n, r, 0.0f, 1.0f); });
}
void BM_qor_Philox_float(benchmark::State &state) {
  run_stream<float>(state, QOR_BRNG_PHILOX4X32X10, kN, [](void *s, int n, float *r) {
    return __rixsBRngPHILOX4X32X10(s, n, r, 0.0f, 1.0f);
  });
}
void BM_qor_ARS5_double(benchmark::State &state) {
  run_stream<double>(state, QOR_BRNG_ARS5, kN,
                     [](void *s, int n, double *r) { return __rixdBRngARS5(s, n, r, 0.0, 1.0); });
}
void BM_qor_Philox_double(benchmark::State &state) {
  run_stream<double>(state, QOR_BRNG_PHILOX4X32X10, kN, [](void *s, int n, double *r) {
    return __rixdBRngPHILOX4X32X10(s, n, r, 0.0, 1.0);
  });
}
void BM_qor_RDRAND_int(benchmark::State &state) {
  run_stream<uint32_t>(state, QOR_BRNG_NONDETERM, 100000,
                       [](void *s, int n, uint32_t *r) { return __rixiBRngTRNG(s, n, r); });
}

// Random123 used the obvious way: one block per counter value, copied out.
template <class G>
void run_random123(benchmark::State &state) {
  G g;
  typename G::ukey_type uk = {{}};
  uk.v[0] = 0x12345678;
  const typename G::key_type key(uk);
  std::vector<uint32_t> r(kN);
  uint64_t cycles = 0, words = 0, best = ~uint64_t{0};
  uint32_t base = 0;
  for (auto _ : state) {
    const uint64_t t0 = __rdtsc();
    typename G::ctr_type c = {{}};
    c.v[1] = base++;
    for (int i = 0; i < kN; i += 4) {
      c.v[0] = static_cast<uint32_t>(i / 4);
      const typename G::ctr_type o = g(c, key);
      std::memcpy(&r[i], o.v, sizeof o.v);
    }
    const uint64_t dt = __rdtsc() - t0;
    cycles += dt;
    best = dt < best ? dt : best;
    words += kN;
    benchmark::DoNotOptimize(r.data());
  }
  report(state, cycles, words, best, kN);
}

void BM_random123_ars4x32_R5(benchmark::State &state) { run_random123<r123::ARS4x32_R<5>>(state); }
void BM_random123_philox4x32_R10(benchmark::State &state) {
  run_random123<r123::Philox4x32_R<10>>(state);
}

}  // namespace

BENCHMARK(BM_qor_ARS5_int);
BENCHMARK(BM_random123_ars4x32_R5);
BENCHMARK(BM_qor_Philox_int);
BENCHMARK(BM_random123_philox4x32_R10);
BENCHMARK(BM_qor_ARS5_float);
BENCHMARK(BM_qor_Philox_float);
BENCHMARK(BM_qor_ARS5_double);
BENCHMARK(BM_qor_Philox_double);
BENCHMARK(BM_qor_RDRAND_int);

BENCHMARK_MAIN();
