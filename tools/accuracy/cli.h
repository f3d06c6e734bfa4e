// Command line of the accuracy harness, shared by qor-accuracy and
// `qor accuracy`.
#pragma once

#include <string>
#include <vector>

namespace qor::accuracy {

// Runs the harness as the command line asks; returns the exit status: 0 when
// every measurement is within its slot's bound, 1 when one is not, 2 for a
// usage error (message on standard error).
int run_cli(const std::vector<std::string> &args);

// Usage text (one option a line).
const char *cli_usage();

}  // namespace qor::accuracy
