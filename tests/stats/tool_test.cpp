// qor stats mad: results on a small file, and exit status 2 with the line
// number for malformed CSV.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>
#include "support/tool_run.h"

namespace {

using Result = qor_test::ToolRun;

Result run_tool(const std::string &csv, const std::string &opts) {
  const std::string path = ::testing::TempDir() + "qor_stats_tool_test.csv";
  std::ofstream(path) << csv;
  return qor_test::run_tool("stats mad " + opts + " " + path);
}

TEST(StatsTool, PrintsBothEstimatesPerVariable) {
  const Result r = run_tool("a,b,w\n1,2,1\n2,2,1\n3,5,2\n10,4,1\n", "--header --weights");
  ASSERT_EQ(r.status, 0) << r.out;
  // a: median 2.5, deviations 1.5 .5 .5 7.5 -> 1; weighted mean 3.8 -> 12.4 / 5.
  EXPECT_NE(r.out.find("a                                       1       2.4799999999999995"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("b                                       1                     1.28"),
            std::string::npos)
      << r.out;
}

TEST(StatsTool, MalformedInputGivesLineAndStatus2) {
  struct {
    const char *csv;
    const char *message;
  } cases[] = {
      {"1,2\n3,4\n5\n", ":3: expected 2 fields, found 1"},
      {"1,2\n\n3,abc\n", ":3: field 2 is not a number: 'abc'"},
      {"1,2\n3,\n", ":2: field 2 is not a number: ''"},
      {"", "no observations"},
  };
  for (auto &c : cases) {
    const Result r = run_tool(c.csv, "");
    EXPECT_EQ(r.status, 2) << c.csv;
    EXPECT_NE(r.out.find(c.message), std::string::npos) << r.out;
  }
  EXPECT_EQ(run_tool("1\n", "--frobnicate").status, 2);
  const Result neg = run_tool("1,2\n3,-1\n", "--weights");
  EXPECT_EQ(neg.status, 2);
  EXPECT_NE(neg.out.find("weight of observation 2"), std::string::npos) << neg.out;
}

}  // namespace
