// qor: a command-line window onto libqor_sse42.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unistd.h>

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

namespace {

struct TourStep {
  int order;
  const char *command;
  Args args;
};

const Command *find_command(const std::string &name) {
  for (const Command &c : commands())
    if (name == c.name) return &c;
  return nullptr;
}

}  // namespace

// The tour runs every command that has a demonstration without arguments (its
// tour_order), interleaved with the steps below, which show a family at work
// on a few values; `qor bench` closes it.
static int run_tour(const Args &args) {
  if (!args.empty()) return usage_error("tour takes no arguments");
  char csv[] = "/tmp/qor-tour-XXXXXX";
  const int fd = mkstemp(csv);
  if (fd < 0) return usage_error("tour: cannot create a scratch file");
  const char kData[] = "x,y\n"
                       "1.0,10\n2.0,11\n2.5,13\n3.0,12\n3.5,15\n4.0,14\n9.0,16\n4.5,18\n5.0,17\n";
  const bool written = write(fd, kData, sizeof kData - 1) == static_cast<ssize_t>(sizeof kData - 1);
  close(fd);

  std::vector<TourStep> steps = {
      {20, "vm", {"Ln", "--type", "d", "0", "1", "-1", "2.5"}},
      {21, "vm", {"Exp", "--type", "s", "--accuracy", "EP", "1", "2", "100"}},
      {22, "accuracy", {"Sin", "--type", "d", "--samples", "2000", "--library"}},
      {31, "rng", {"gaussian", "--brng", "MT19937", "--seed", "7", "-n", "5", "0", "1"}},
      {32, "rng", {"bits", "--brng", "sobol", "--dim", "2", "-n", "6"}},
  };
  if (written) steps.push_back({40, "stats", {"mad", "--header", csv}});
  for (const Command &c : commands())
    if (c.tour_order > 0) steps.push_back({c.tour_order, c.name, {}});
  std::stable_sort(steps.begin(), steps.end(),
                   [](const TourStep &a, const TourStep &b) { return a.order < b.order; });
  int rc = 0;
  for (const TourStep &step : steps) {
    const Command *c = find_command(step.command);
    if (!c) continue;
    std::printf("==> qor %s", step.command);
    for (const std::string &a : step.args) std::printf(" %s", a.c_str());
    std::printf("\n");
    std::fflush(stdout);
    if ((rc = c->run(step.args)) != 0) break;
    std::printf("\n");
  }
  unlink(csv);
  return rc;
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
