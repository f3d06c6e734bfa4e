// Exhaustive single-precision accuracy sweep of the vector math library.
//
//   qor-sweep [--library PATH] [--threads N] [--stride K] FUNC[:SLOT] ...
//
// FUNC is one of the functions below, SLOT one of LA, HA, EP (default: the
// three).  Every one of the 2^32 float inputs goes through the exported
// contiguous entry point `_pexs<FUNC><suffix>` in blocks of 2^16, with the
// error mode set to IGNORE, and is compared with the C library's x87
// extended-precision routine (relative error a few 2^-64, so a float ulp error
// is resolved to about 2^-39 ulp; an MPFR reference, as in qor-accuracy, would
// take hours per slot).  --stride K takes every K-th bit pattern only, for a
// quick look.  Reported per slot: the largest error in ulps and its
// input, the share of correctly rounded finite results, and the number of
// special results (NaN, infinities, zeros from a non-zero exact value aside)
// that differ from the reference's rounding.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qor/pex.h"

namespace {

using ld = long double;
using Kernel = void (*)(int32_t, const float *, float *);

struct Func {
  const char *name;
  ld (*ref)(ld);
};

ld exp10_ld(ld x) { return exp10l(x); }

const Func kFuncs[] = {
    {"Exp", expl},     {"Exp2", exp2l}, {"Exp10", exp10_ld}, {"Expm1", expm1l},
    {"Ln", logl},      {"Log2", log2l}, {"Log10", log10l},   {"Log1p", log1pl},
    {"Sin", sinl},     {"Cos", cosl},   {"Tan", tanl},
};

const char *kSlotName[3] = {"LA", "HA", "EP"};
const char *kSuffix[3] = {"_21", "_HA", "_11"};

// Error of r in units of the float ulp at the exact value y.
double ulp_error(float r, ld y) {
  int e;
  std::frexp(y, &e);  // |y| in [2^(e-1), 2^e)
  int q = e - 1 - 23;
  if (q < -149) q = -149;
  return static_cast<double>(std::fabs(static_cast<ld>(r) - y) / std::ldexp(1.0L, q));
}

struct Result {
  double max_ulp = 0;
  uint32_t worst = 0;
  uint64_t finite = 0, correct = 0, special_mismatch = 0;
  uint32_t first_mismatch = 0;
};

void sweep_range(Kernel k, ld (*ref)(ld), uint64_t lo, uint64_t hi, uint64_t stride, Result &res) {
  constexpr uint32_t kBlock = 1 << 16;
  std::vector<float> in(kBlock), out(kBlock);
  for (uint64_t base = lo; base < hi; base += kBlock) {
    for (uint32_t j = 0; j < kBlock; ++j) {
      const uint32_t bits = static_cast<uint32_t>((base + j) * stride);
      std::memcpy(&in[j], &bits, 4);
    }
    k(static_cast<int32_t>(kBlock), in.data(), out.data());
    for (uint32_t j = 0; j < kBlock; ++j) {
      const float x = in[j], r = out[j];
      if (std::isnan(x)) {
        if (!std::isnan(r) && !res.special_mismatch++) res.first_mismatch = uint32_t((base + j) * stride);
        continue;
      }
      const ld y = ref(static_cast<ld>(x));
      const float yr = static_cast<float>(y);
      if (std::isnan(y) || std::isinf(yr) || std::isinf(y)) {
        const bool same = std::isnan(y) ? std::isnan(r) : r == yr;
        if (!same && !res.special_mismatch++) res.first_mismatch = uint32_t((base + j) * stride);
        continue;
      }
      const double u = ulp_error(r, y);
      ++res.finite;
      if (r == yr) ++res.correct;
      if (u > res.max_ulp || std::isnan(u)) {
        res.max_ulp = std::isnan(u) ? INFINITY : u;
        res.worst = uint32_t((base + j) * stride);
      }
    }
  }
}

std::string default_library() {
  char buf[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  std::string exe = n > 0 ? std::string(buf, size_t(n)) : std::string();
  const auto slash = exe.rfind('/');
  return (slash == std::string::npos ? std::string(".") : exe.substr(0, slash)) +
         "/../lib/libqor_sse42.so";
}

int usage() {
  std::fprintf(stderr,
               "usage: qor-sweep [--library PATH] [--threads N] [--stride K] FUNC[:LA|HA|EP] ...\n"
               "functions:");
  for (const Func &f : kFuncs) std::fprintf(stderr, " %s", f.name);
  std::fprintf(stderr, "\n");
  return 2;
}

}  // namespace

int main(int argc, char **argv) {
  std::string lib = default_library();
  unsigned threads = std::thread::hardware_concurrency();
  uint64_t stride = 1;
  std::vector<std::string> jobs;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--library" && i + 1 < argc) lib = argv[++i];
    else if (a == "--threads" && i + 1 < argc) threads = unsigned(std::atoi(argv[++i]));
    else if (a == "--stride" && i + 1 < argc) stride = std::strtoull(argv[++i], nullptr, 0);
    else if (!a.empty() && a[0] == '-') return usage();
    else jobs.push_back(a);
  }
  if (jobs.empty() || threads == 0 || stride == 0 || stride > 65536 || (stride & (stride - 1)))
    return usage();
  void *h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) {
    std::fprintf(stderr, "qor-sweep: cannot load %s: %s\n", lib.c_str(), dlerror());
    return 1;
  }
  auto set_mode = reinterpret_cast<uint32_t (*)(uint32_t)>(dlsym(h, "qor_pex_kernel_SetMode"));
  if (!set_mode) {
    std::fprintf(stderr, "qor-sweep: qor_pex_kernel_SetMode not found\n");
    return 1;
  }
  std::printf("%-8s %-4s %10s %12s %10s %9s\n", "function", "slot", "max ulp", "worst input",
              "correct %", "specials");
  for (const std::string &job : jobs) {
    const auto colon = job.find(':');
    const std::string fname = job.substr(0, colon);
    const Func *f = nullptr;
    for (const Func &c : kFuncs)
      if (fname == c.name) f = &c;
    if (!f) return usage();
    for (int s = 0; s < 3; ++s) {
      if (colon != std::string::npos && job.substr(colon + 1) != kSlotName[s]) continue;
      const std::string entry = std::string("_pexs") + f->name + kSuffix[s];
      auto k = reinterpret_cast<Kernel>(dlsym(h, entry.c_str()));
      if (!k) {
        std::fprintf(stderr, "qor-sweep: %s not found\n", entry.c_str());
        return 1;
      }
      std::vector<Result> part(threads);
      std::vector<std::thread> pool;
      // Blocks of 2^16 patterns; the count of patterns is 2^32 / stride.
      const uint64_t total = (1ULL << 32) / stride;
      const uint64_t step = (total / threads) & ~uint64_t(0xFFFF);
      for (unsigned t = 0; t < threads; ++t) {
        const uint64_t lo = t * step, hi = t + 1 == threads ? total : lo + step;
        pool.emplace_back([&, t, lo, hi] {
          set_mode(PEX_ERRMODE_IGNORE);  // per thread: no reports, no errno
          sweep_range(k, f->ref, lo, hi, stride, part[t]);
        });
      }
      for (auto &th : pool) th.join();
      Result r;
      for (const Result &p : part) {
        if (p.max_ulp > r.max_ulp) r.max_ulp = p.max_ulp, r.worst = p.worst;
        r.finite += p.finite, r.correct += p.correct;
        if (p.special_mismatch && !r.special_mismatch) r.first_mismatch = p.first_mismatch;
        r.special_mismatch += p.special_mismatch;
      }
      float wx;
      std::memcpy(&wx, &r.worst, 4);
      std::printf("%-8s %-4s %10.4f %12.6g %10.4f %9llu", f->name, kSlotName[s], r.max_ulp,
                  double(wx), 100.0 * double(r.correct) / double(r.finite),
                  static_cast<unsigned long long>(r.special_mismatch));
      if (r.special_mismatch) {
        float mx;
        std::memcpy(&mx, &r.first_mismatch, 4);
        std::printf("  (first at %a)", double(mx));
      }
      std::printf("\n");
      std::fflush(stdout);
    }
  }
  dlclose(h);
  return 0;
}
