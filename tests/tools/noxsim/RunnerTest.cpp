// noxsim end to end in one process: exit statuses, output streams, range errors and
// `expect error`, trace capture and printing.

#include "tests/tools/noxsim/RunOutcome.h"
#include "tools/noxsim/Runner.h"

#include <gtest/gtest.h>

namespace Noxsim {
namespace {

constexpr char const* addMpls = "l2rib floodset add 10 00:00:00:00:00:01 mpls/1/Tunnel5/1000\n";
constexpr char const* addHugeTunnel =
    "l2rib floodset add 10 00:00:00:00:00:01 mpls/1/Tunnel281474976710656/1000\n";

TEST(RunnerTest, ShowPrintsTheHeaderFirstThenSortedLinesUnlessQuiet) {
  std::string const scenario = std::string("l2rib floodset source 3\n") +
                               "l2rib floodset add 9 00:00:00:00:00:02 none/2\n" + addMpls +
                               "show floodset\n";
  Outcome const shown = run(scenario);
  EXPECT_EQ(shown.status, exitOk) << shown.err;
  EXPECT_EQ(shown.out,
            "source 3\n10 00:00:00:00:00:01 mpls/1/Tunnel5/1000 flag=true type=0\n"
            "9 00:00:00:00:00:02 none/2 flag=true type=0\n");
  EXPECT_EQ(run(scenario, {"--quiet"}).out, "");
}

TEST(RunnerTest, AFailedExpectFailsTheRunNamingItsLineWithTheDiff) {
  Outcome const failed =
      run(std::string("start filter\n") + addMpls + "expect floodset-filtered\n  source 0\nend\n");
  EXPECT_EQ(failed.status, exitFailed);
  EXPECT_NE(failed.err.find("-:3: expect floodset-filtered: the table differs\n--- expected\n"
                            "+++ actual\n@@ -1 +1,2 @@\n source 0\n"
                            "+10 00:00:00:00:00:01 mpls/1/Tunnel5/1000 flag=true type=0\n"),
            std::string::npos)
      << failed.err;
}

TEST(RunnerTest, NothingRunsBeforeEveryLineHasParsed) {
  Outcome const r = run("show time\nl2rib floodset add 10 00:00:00:00:00:01\n");
  EXPECT_EQ(r.status, exitSyntax);
  EXPECT_EQ(r.out, "");
}

TEST(RunnerTest, ExpectedTablesMayBeIndentedButMustBeInShowOrder) {
  std::string const scenario = std::string("l2rib floodset add 10 00:00:00:00:00:01 none/2\n") +
                               addMpls + "expect floodset\n source 0\n";
  std::string const lineMpls = "10 00:00:00:00:00:01 mpls/1/Tunnel5/1000 flag=true type=0\n";
  std::string const lineNone = "10 00:00:00:00:00:01 none/2 flag=true type=0\n";
  EXPECT_EQ(run(scenario + "\t" + lineMpls + "      " + lineNone + "end\n").status, exitOk);
  Outcome const unordered = run(scenario + lineNone + lineMpls + "end\n");
  EXPECT_EQ(unordered.status, exitFailed);
  EXPECT_NE(unordered.err.find("only in order"), std::string::npos) << unordered.err;
}

TEST(RunnerTest, ARangeErrorMustBeExpectedOnTheNextCommand) {
  // Expected with comments and blank lines between: tests/scenarios/range-error-expected.nox.
  std::string const start = "start filter floodset\n";
  Outcome const unexpected = run(start + addHugeTunnel + "show floodset\n");
  EXPECT_EQ(unexpected.status, exitFailed);
  EXPECT_EQ(unexpected.out, "");  // the next command does not run
  EXPECT_EQ(unexpected.err.rfind("-:2: unexpected error: TunnelId::value", 0), 0u)
      << unexpected.err;

  Outcome const wrongText = run(start + addHugeTunnel + "expect error VlanId\n");
  EXPECT_EQ(wrongText.status, exitFailed);
  EXPECT_EQ(wrongText.err.rfind("-:3: expect error: 'VlanId' is not in the error: TunnelId", 0), 0u)
      << wrongText.err;

  Outcome const noError = run(start + addMpls + "expect error TunnelId\n");
  EXPECT_EQ(noError.status, exitFailed);
  EXPECT_EQ(noError.err, "-:3: expect error: the previous command raised no error\n");

  // Each error is expected once: a second expect error finds none.
  EXPECT_EQ(run(start + addHugeTunnel + "expect error TunnelId\nexpect error TunnelId\n").status,
            exitFailed);
}

// Starting a running machine is an error of the scenario, not a range error: expect error does
// not catch it.
TEST(RunnerTest, StartingARunningMachineFailsTheRunEvenUnderExpectError) {
  Outcome const r = run("start floodset\nstart filter floodset\nexpect error already started\n");
  EXPECT_EQ(r.status, exitFailed);
  EXPECT_EQ(r.err, "-:2: machine 'floodset' is already started\n");
}

TEST(RunnerTest, ExpectTraceMatchesWholeMessagesInOrderSinceTheLastOne) {
  std::string const scenario =
      std::string("start filter\ntrace 8\n") + addMpls +
      "l2rib floodset add 10 00:00:00:00:00:01 mpls/2/Tunnel5/2000\n"
      "expect trace\n|    addDest vlan: 10 mac: 00:00:00:00:00:01 dest: 1\n"
      "|     adding dest mpls/2/Tunnel5/2000\nend\n";
  EXPECT_EQ(run(scenario).status, exitOk);
  // Messages are taken by the expect: a second one sees only what came after.
  EXPECT_EQ(run(scenario + "expect trace\n|     adding dest mpls/2/Tunnel5/2000\nend\n").status,
            exitFailed);
  // Above the captured level nothing is captured.
  EXPECT_EQ(run(std::string("start filter\ntrace 1\n") + addMpls +
                "expect trace\n|    addDest vlan: 10 mac: 00:00:00:00:00:01 dest: 1\nend\n")
                .status,
            exitFailed);
}

TEST(RunnerTest, TracesPrintToStandardErrorUpToTheCommandLineLevel) {
  Outcome const r = run(std::string("start filter\n") + addMpls, {"--trace", "1"});
  EXPECT_EQ(r.status, exitOk);
  EXPECT_EQ(r.err, "1      adding dest mpls/1/Tunnel5/1000\n");
  EXPECT_EQ(r.out, "");
}

}  // namespace
}  // namespace Noxsim
