// qor-accuracy: the vector math accuracy harness as a program.
#include <string>
#include <vector>

#include "cli.h"

int main(int argc, char **argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return qor::accuracy::run_cli(args);
}
