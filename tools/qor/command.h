// Subcommands of the qor tool register themselves with QOR_COMMAND, so that
// each family adds its own file without touching the dispatcher.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace qor::tool {

using Args = std::vector<std::string>;
using Handler = int (*)(const Args &args);

struct Command {
  const char *name;
  const char *synopsis;  // one line for `qor --help`
  Handler run;
  int tour_order;  // position in `qor tour`; 0 = not part of it
};

// Registries filled by static registrars before main runs; read sorted by name.
template <class Entry>
std::vector<Entry> &registry() {
  static std::vector<Entry> entries;
  return entries;
}
template <class Entry>
const std::vector<Entry> &sorted_registry() {
  auto &r = registry<Entry>();
  std::sort(r.begin(), r.end(),
            [](const Entry &a, const Entry &b) { return std::strcmp(a.name, b.name) < 0; });
  return r;
}

inline const std::vector<Command> &commands() { return sorted_registry<Command>(); }

// Prints "qor: <message>" to standard error and returns exit status 2.
int usage_error(const std::string &message);

struct Registrar {
  explicit Registrar(const Command &c) { registry<Command>().push_back(c); }
};

}  // namespace qor::tool

#define QOR_TOOL_CAT2(a, b) a##b
#define QOR_TOOL_CAT(a, b) QOR_TOOL_CAT2(a, b)
#define QOR_COMMAND(name, synopsis, handler, tour_order)                        \
  static ::qor::tool::Registrar QOR_TOOL_CAT(qor_command_registrar_, __LINE__)( \
      ::qor::tool::Command{name, synopsis, handler, tour_order})

namespace qor::tool {

// Sections of `qor bench`: each family registers a function that measures a
// few kernels quickly and prints a summary table.  `qor bench` runs them all
// (the last step of the tour); `qor bench NAME...` runs the named ones.
using BenchSection = int (*)(const Args &args);
struct BenchEntry {
  const char *name;
  BenchSection run;
};
inline const std::vector<BenchEntry> &bench_sections() { return sorted_registry<BenchEntry>(); }
struct BenchRegistrar {
  explicit BenchRegistrar(const BenchEntry &e) { registry<BenchEntry>().push_back(e); }
};

}  // namespace qor::tool

#define QOR_BENCH_SECTION(name, handler)                                             \
  static ::qor::tool::BenchRegistrar QOR_TOOL_CAT(qor_bench_registrar_, __LINE__)( \
      ::qor::tool::BenchEntry{name, handler})
