// Subcommands of the qor tool register themselves with QOR_COMMAND, so that
// each family adds its own file without touching the dispatcher.
#pragma once

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

void register_command(const Command &c);
const std::vector<Command> &commands();

// Prints "qor: <message>" to standard error and returns exit status 2.
int usage_error(const std::string &message);

struct Registrar {
  explicit Registrar(const Command &c) { register_command(c); }
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
void register_bench(const BenchEntry &e);
const std::vector<BenchEntry> &bench_sections();
struct BenchRegistrar {
  explicit BenchRegistrar(const BenchEntry &e) { register_bench(e); }
};

}  // namespace qor::tool

#define QOR_BENCH_SECTION(name, handler)                                             \
  static ::qor::tool::BenchRegistrar QOR_TOOL_CAT(qor_bench_registrar_, __LINE__)( \
      ::qor::tool::BenchEntry{name, handler})
