// qor accuracy FUNC [--type] [--accuracy] [--exhaustive] [--samples N] ...:
// measures the maximum error in ulps and the share of correctly rounded
// results of a vector math function against MPFR (see tools/accuracy).
#include <cstdio>

#include "command.h"
#ifdef QOR_HAVE_ACCURACY
#include "cli.h"
#endif

namespace qor::tool {
namespace {

int run_accuracy(const Args &args) {
#ifdef QOR_HAVE_ACCURACY
  for (const auto &a : args)
    if (a == "--help" || a == "-h") {
      std::fputs(qor::accuracy::cli_usage(), stdout);
      return 0;
    }
  return qor::accuracy::run_cli(args);
#else
  (void)args;
  std::fprintf(stderr, "qor: accuracy: this build has no MPFR, so no accuracy harness\n");
  return 1;
#endif
}

}  // namespace

QOR_COMMAND("accuracy", "measure a vector math function's error in ulps against MPFR", run_accuracy, 0);

}  // namespace qor::tool
