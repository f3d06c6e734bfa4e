// Cost of saving and loading streams, in memory and through files.
//
//   bench_rng_io --benchmark_min_time=0.2
//
// "cyc/call" is time-stamp-counter cycles per save or load; "cyc/byte"
// divides by the size of the saved form.  Loads include creating and
// deleting the stream and its chunks.  The TSC counts wall-clock time, so
// on a shared machine the figures include time spent descheduled.
#include <benchmark/benchmark.h>
#include <unistd.h>
#include <x86intrin.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qor/core.h"
#include "qor/rng.h"

namespace {

// A stream of `brng` with `chunk` bytes of chunk data (none when 0).
void *make_stream(int32_t brng, int32_t chunk) {
  void *s = nullptr;
  const uint32_t seed = 1;
  __rixNewStreamEx(&s, brng, 1, &seed);
  if (chunk > 0) {
    void *d = qor_serv_allocate(static_cast<size_t>(chunk), 128);
    std::memset(d, 7, static_cast<size_t>(chunk));
    __rixAddChunk(s, 1, nullptr, d, chunk);
  }
  return s;
}

void report(benchmark::State &state, uint64_t cycles, int32_t bytes) {
  const double calls = static_cast<double>(state.iterations());
  state.counters["cyc/call"] = static_cast<double>(cycles) / calls;
  state.counters["cyc/byte"] = static_cast<double>(cycles) / calls / bytes;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}

void BM_SaveM(benchmark::State &state) {
  void *s = make_stream(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)));
  const int32_t n = __rixGetStreamSize(s);
  std::vector<unsigned char> buf(static_cast<size_t>(n));
  const uint64_t t0 = __rdtsc();
  for (auto _ : state) {
    __rixSaveStreamM(s, buf.data());
    benchmark::DoNotOptimize(buf.data());
  }
  report(state, __rdtsc() - t0, n);
  __rixDeleteStream(&s);
}

void BM_LoadM(benchmark::State &state) {
  void *s = make_stream(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)));
  const int32_t n = __rixGetStreamSize(s);
  std::vector<unsigned char> buf(static_cast<size_t>(n));
  __rixSaveStreamM(s, buf.data());
  const uint64_t t0 = __rdtsc();
  for (auto _ : state) {
    void *t = nullptr;
    if (__rixLoadStreamM(&t, buf.data()) != 0) state.SkipWithError("load failed");
    __rixDeleteStream(&t);
  }
  report(state, __rdtsc() - t0, n);
  __rixDeleteStream(&s);
}

void BM_SaveLoadF(benchmark::State &state) {
  void *s = make_stream(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)));
  const int32_t n = __rixGetStreamSize(s);
  const std::string path = "/tmp/bench_rng_io_" + std::to_string(getpid());
  const uint64_t t0 = __rdtsc();
  for (auto _ : state) {
    void *t = nullptr;
    if (__rixSaveStreamF(s, path.c_str(), -1) != 0 || __rixLoadStreamF(&t, path.c_str(), -1) != 0)
      state.SkipWithError("file round trip failed");
    __rixDeleteStream(&t);
  }
  report(state, __rdtsc() - t0, n);
  std::remove(path.c_str());
  __rixDeleteStream(&s);
}

void Streams(benchmark::internal::Benchmark *b) {
  for (int64_t brng : {QOR_BRNG_MRG32K3A, QOR_BRNG_R250})
    for (int64_t chunk : {0, 4096}) b->Args({brng, chunk});
  b->ArgNames({"brng", "chunk"});
}

BENCHMARK(BM_SaveM)->Apply(Streams);
BENCHMARK(BM_LoadM)->Apply(Streams);
BENCHMARK(BM_SaveLoadF)->Apply(Streams);

}  // namespace

BENCHMARK_MAIN();
