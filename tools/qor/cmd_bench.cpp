// qor bench: quick speed summaries, one section per family.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "command.h"

namespace qor::tool {

namespace {

int run_bench(const Args &args) {
  const auto &sections = bench_sections();
  if (sections.empty()) {
    std::printf("no benchmark sections are built in\n");
    return 0;
  }
  if (args.empty()) {
    for (const BenchEntry &e : sections) {
      std::printf("-- %s\n", e.name);
      if (int rc = e.run({}); rc != 0) return rc;
    }
    return 0;
  }
  // `qor bench NAME [section arguments...]`
  for (const BenchEntry &e : sections)
    if (args[0] == e.name) return e.run(Args(args.begin() + 1, args.end()));
  return usage_error("unknown benchmark section '" + args[0] + "'");
}

}  // namespace

QOR_COMMAND("bench", "speed summaries in cycles per element (qor bench [SECTION [args]])",
            run_bench, 1000);

}  // namespace qor::tool
