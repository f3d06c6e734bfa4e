// qor info: which library is loaded, the processor's relevant features and the
// calling thread's vector math mode word, field by field.
#include <cpuid.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "command.h"
#include "qor/core.h"
#include "qor/pex.h"

namespace qor::tool {
namespace {

bool cpuid_bit(unsigned leaf, int reg, unsigned bit) {
  unsigned r[4];
  if (__get_cpuid_max(0, nullptr) < leaf) return false;
  __cpuid_count(leaf, 0, r[0], r[1], r[2], r[3]);
  return r[reg] & (1u << bit);
}

const char *yes(bool b) { return b ? "yes" : "no"; }

std::string accuracy_name(uint32_t a) {
  switch (a) {
    case PEX_LA: return "LA";
    case PEX_HA: return "HA";
    case PEX_EP: return "EP";
    case 0: return "DEFAULT_PRECISION";
    default: return "unknown";
  }
}

std::string error_mode_names(uint32_t e) {
  static const struct { uint32_t bit; const char *name; } kBits[] = {
      {PEX_ERRMODE_IGNORE, "IGNORE"}, {PEX_ERRMODE_ERRNO, "ERRNO"},
      {PEX_ERRMODE_STDERR, "STDERR"}, {PEX_ERRMODE_EXCEPT, "EXCEPT"},
      {PEX_ERRMODE_CALLBACK, "CALLBACK"}, {PEX_ERRMODE_NOERR, "NOERR"}};
  std::string s;
  for (auto &b : kBits)
    if (e & b.bit) s += (s.empty() ? "" : "|") + std::string(b.name);
  if (e & ~0x3F00u) s += (s.empty() ? "" : "|") + std::string("other");
  return s.empty() ? "none" : s;
}

void print_mode(uint32_t m) {
  std::printf("vector math mode word  0x%X\n", m);
  std::printf("  accuracy      0x%X    %s (table slot %d)\n", m & 0xF,
              accuracy_name(m & 0xF).c_str(), static_cast<int>(m & 0xF) - 1);
  const uint32_t cons = m & 0xF0;
  std::printf("  consistency   0x%02X   %s\n", cons,
              cons == 0x10 ? "FLOAT_CONSISTENT" : cons == 0x20 ? "DOUBLE_CONSISTENT"
              : cons == 0x30 ? "RESTORE" : cons == 0 ? "not requested" : "other");
  std::printf("  error mode    0x%04X %s%s\n", m & 0xFF00, error_mode_names(m & 0xFF00).c_str(),
              (m & 0xFF00) == PEX_ERRMODE_DEFAULT ? " (DEFAULT)" : "");
  std::printf("  field 0x30000 0x%X\n", (m & 0x30000) >> 16);
  const uint32_t fd = m & PEX_FTZDAZ_MASK;
  std::printf("  denormals     0x%06X %s\n", fd,
              fd == PEX_FTZDAZ_ON ? "FTZ and DAZ on in kernels" : "FTZ and DAZ off");
  const uint32_t t = m & PEX_TRAP_MASK;
  std::string traps;
  if (t & PEX_TRAP_INVALID) traps += " INVALID";
  if (t & PEX_TRAP_DIVBYZERO) traps += " DIVBYZERO";
  if (t & PEX_TRAP_OVERFLOW) traps += " OVERFLOW";
  if (t & PEX_TRAP_UNDERFLOW) traps += " UNDERFLOW";
  std::printf("  traps         0x%07X%s\n", t, traps.empty() ? " none" : traps.c_str());
}

int run_info(const Args &args) {
  if (!args.empty()) return usage_error("info takes no arguments");
  Dl_info dl{};
  const char *path = "unknown";
  if (dladdr(reinterpret_cast<void *>(&dll_cpu_version), &dl) && dl.dli_fname) path = dl.dli_fname;
  std::printf("library                %s\n", path);
  std::printf("version                %s\n", QOR_VERSION_STRING);
  std::printf("processor class        %d (x86-64 with SSE4.2)\n", dll_cpu_version());
  std::printf("cpu features\n");
  std::printf("  SSE4.2                %s\n", yes(cpuid_bit(1, 2, 20)));
  std::printf("  AES                   %s\n", yes(cpuid_bit(1, 2, 25)));
  std::printf("  RDRAND                %s\n", yes(cpuid_bit(1, 2, 30)));
  std::printf("  VAES and AVX-512F     %s\n", yes(qor_serv_cpuisicx() != 0));
  std::printf("QOR_PEX_MODE           %s\n",
              std::getenv("QOR_PEX_MODE") ? std::getenv("QOR_PEX_MODE") : "(unset)");
  print_mode(qor_pex_kernel_GetMode());
  return 0;
}

}  // namespace

QOR_COMMAND("info", "library, processor features and this thread's mode word", run_info, 10);

}  // namespace qor::tool
