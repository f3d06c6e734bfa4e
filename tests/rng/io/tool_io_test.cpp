// `qor rng --save/--load`: a sequence continued across runs of the tool.
#include <sys/wait.h>

#include "rng/io/io_helpers.h"
#include "support/tool_run.h"

namespace {

using qor_test::ToolRun;
using qor_test::run_tool;

TEST(RngToolSaveLoad, SequenceContinuesAcrossRuns) {
  struct Case {
    const char *sub;
    const char *gen;
  };
  for (const Case &c : {Case{"bits", "--brng MRG32K3A --seed 1,2,3"},
                        Case{"uniform", "--brng WH:7 --seed 5 --a -1 --b 3"},
                        Case{"bits", "--brng MCG59"}}) {
    qor_io_test::TempFile f("tool");
    const std::string sub = c.sub;
    const ToolRun whole = run_tool("rng " + sub + " " + c.gen + " -n 12");
    const ToolRun first = run_tool("rng " + sub + " " + c.gen + " -n 5 --save " + f.path());
    ASSERT_EQ(first.status, 0) << first.out;
    const std::string range = sub == "uniform" ? " --a -1 --b 3" : "";
    const ToolRun second = run_tool("rng " + sub + " --load " + f.path() + " -n 4 --save " +
                                    f.path() + range);
    ASSERT_EQ(second.status, 0) << second.out;
    const ToolRun third = run_tool("rng " + sub + " --load " + f.path() + " -n 3" + range);
    ASSERT_EQ(third.status, 0) << third.out;
    ASSERT_EQ(whole.status, 0);
    EXPECT_EQ(first.out + second.out + third.out, whole.out) << c.gen;
  }
}

TEST(RngToolSaveLoad, BadUse) {
  qor_io_test::TempFile f("tool_bad");
  ASSERT_EQ(run_tool("rng bits --brng MCG31M1 -n 1 --save " + f.path()).status, 0);
  EXPECT_EQ(run_tool("rng bits --load " + f.path() + " --brng MCG31M1").status, 2);
  EXPECT_EQ(run_tool("rng bits --load " + f.path() + " --seed 4").status, 2);
  EXPECT_EQ(run_tool("rng bits --load").status, 2);
  const ToolRun missing = run_tool("rng bits --load " + f.path() + ".missing");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.out.find("-1101"), std::string::npos) << missing.out;
  f.write({0x02, 0, 0, 0, 'R', 'N'});
  const ToolRun truncated = run_tool("rng bits --load " + f.path());
  EXPECT_EQ(truncated.status, 1);
  EXPECT_NE(truncated.out.find("-1103"), std::string::npos) << truncated.out;
  EXPECT_EQ(run_tool("rng bits --brng MCG31M1 --save /nonexistent-dir/f").status, 1);
}

}  // namespace
