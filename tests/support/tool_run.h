// Runs the qor command-line tool as a separate process, as a user would.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace qor_test {

struct ToolRun {
  int status = -1;  // exit status, -1 when the tool did not exit normally
  std::string out;
};

// `qor ARGS` through the shell; `env` is prepended (e.g. "QOR_PEX_MODE=PEX_EP").
// Standard error joins the output unless with_stderr is false, when it is
// discarded.
inline ToolRun run_tool(const std::string &args, bool with_stderr = true,
                        const std::string &env = "") {
  const std::string cmd = env + (env.empty() ? "" : " ") + QOR_TOOL + " " + args +
                          (with_stderr ? " 2>&1" : " 2>/dev/null");
  ToolRun r;
  FILE *p = popen(cmd.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  size_t got;
  while ((got = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, got);
  const int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

}  // namespace qor_test
