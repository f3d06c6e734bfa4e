// qor: a command-line window onto libqor_sse42.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command.h"

namespace qor::tool {

int usage_error(const std::string &message) {
  std::fprintf(stderr, "qor: %s (see qor --help)\n", message.c_str());
  return 2;
}

static void print_help() {
  std::printf("usage: qor <command> [options]\n\ncommands:\n");
  for (const Command &c : commands()) std::printf("  %-10s %s\n", c.name, c.synopsis);
  std::printf("\n  --help     this text\n");
}

static int run_tour(const Args &args) {
  if (!args.empty()) return usage_error("tour takes no arguments");
  std::vector<Command> steps;
  for (const Command &c : commands())
    if (c.tour_order > 0) steps.push_back(c);
  std::sort(steps.begin(), steps.end(),
            [](const Command &a, const Command &b) { return a.tour_order < b.tour_order; });
  for (const Command &c : steps) {
    std::printf("==> qor %s\n", c.name);
    std::fflush(stdout);
    if (int rc = c.run({}); rc != 0) return rc;
    std::printf("\n");
  }
  return 0;
}

QOR_COMMAND("tour", "walk through what the library does, ending with a benchmark summary",
            run_tour, 0);

}  // namespace qor::tool

int main(int argc, char **argv) {
  using namespace qor::tool;
  if (argc < 2) {
    print_help();
    return 2;
  }
  const std::string cmd = argv[1];
  if (cmd == "--help" || cmd == "-h" || cmd == "help") {
    print_help();
    return 0;
  }
  Args args(argv + 2, argv + argc);
  for (const Command &c : commands())
    if (cmd == c.name) return c.run(args);
  if (!cmd.empty() && cmd[0] == '-') return usage_error("unknown option '" + cmd + "'");
  return usage_error("unknown command '" + cmd + "'");
}
