// `qor vm`: results and error status through the exported entry points.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>
#include <vector>
#include "support/tool_run.h"

namespace {

std::string run(const std::string &args, int *rc) {
  const qor_test::ToolRun r = qor_test::run_tool(args);
  *rc = r.status;
  return r.out;
}

TEST(QorVmTool, PrintsResultsCodesAndStatus) {
  struct Case {
    const char *args;
    int rc;
    std::vector<std::string> expect;
  } cases[] = {
      {"vm Sqrt 4 -1", 0, {"_pexsSqrt_HA", " 4  -> 2", "[code 1 domain]", "status 1 (domain)"}},
      {"vm Div --type d --accuracy LA 1,0 6,3", 0,
       {"_pexdDiv_50", "-> inf   [code 2 singularity]", "-> 2\n", "status 2"}},
      {"vm Add --strided --accuracy EP 1,2 3,4", 0, {"_pexsAddI_11", "-> 3\n", "-> 7\n", "status 0"}},
      {"vm Exp --type z 0,0", 0, {"_pexzExp_HA", "-> 1 0"}},
      // Any spelling of the name reaches the catalogue's entry point.
      {"vm exp --accuracy EP 1 2 3", 0, {"_pexsExp_11", "-> 2.718", "-> 7.389", "-> 20.08", "status 0"}},
      {"vm Yn --type d --order 1 1", 0, {"_pexdYn_HA", "-> -0.78121282130028"}},
      {"vm Sqrt --frobnicate 1", 2, {"unknown option --frobnicate"}},
      {"vm Nope 1", 2, {"no function Nope"}},
      {"vm Add 1", 2, {"needs 2 field(s)"}},
      {"vm Powx 2", 2, {"needs --scalar"}},
  };
  for (auto &c : cases) {
    int rc;
    std::string out = run(c.args, &rc);
    EXPECT_EQ(rc, c.rc) << c.args << "\n" << out;
    for (auto &e : c.expect) EXPECT_NE(out.find(e), std::string::npos) << c.args << "\n" << out;
  }
}

}  // namespace
