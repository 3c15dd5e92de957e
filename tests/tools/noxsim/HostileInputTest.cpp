// noxsim facing what a careless or hostile user hands it: every refusal is a message and an exit
// status, never an exception, a hang or a table left behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/kelp/Table.h"
#include "platform/kelp/TableList.h"
#include "tests/tools/noxsim/RunOutcome.h"
#include "tools/noxsim/Runner.h"

namespace Noxsim {
namespace {

using ::testing::HasSubstr;

std::string uniquePrefix(char const* what) {
  return std::string("noxsimtest") + std::to_string(getpid()) + what;
}

TEST(HostileInput, HelpGoesToStandardOutputAndBadOptionsAreRefused) {
  Outcome const help = run("", {"--help"});
  EXPECT_EQ(help.status, exitOk);
  EXPECT_THAT(help.out, HasSubstr("usage: noxsim"));
  EXPECT_EQ(help.err, "");
  for (char const* prefix : {"", "a/b", "..", "x..y", ".hidden"}) {
    Outcome const bad = run("", {"--shm", prefix});
    EXPECT_EQ(bad.status, exitSyntax) << prefix;
    EXPECT_THAT(bad.err, HasSubstr("--shm: bad prefix")) << prefix;
  }
  for (auto const& bad :
       std::vector<std::vector<char const*>>{{"--keep-shm"}, {"--trace", "10"}, {"--bogus"}}) {
    EXPECT_EQ(run("", bad).status, exitSyntax) << bad[0];
  }
  EXPECT_THAT(run("advance 10000000000\n", {}).err, HasSubstr("beyond the horizon"));
  EXPECT_EQ(run("advance 1000000001\n", {}).status, exitSyntax);
  EXPECT_EQ(run("advance 1000000000\n", {}).status, exitOk);

  ::setenv("NOX_FLECK_SIZE", "-5", 1);
  Outcome const size = run("", {});
  ::unsetenv("NOX_FLECK_SIZE");
  EXPECT_EQ(size.status, exitSyntax);
  EXPECT_THAT(size.err, HasSubstr("NOX_FLECK_SIZE: '-5'"));
}

TEST(HostileInput, TablesThatCannotBePublishedStopTheRunWithAMessage) {
  std::string const prefix = uniquePrefix("taken");
  auto holder = Kelp::Table<std::uint64_t, std::uint64_t>::writerNew(
      Kelp::tableName(prefix, "tunnelIdToHwTunnelId"));
  Outcome const second = run("start\n", {"--shm", prefix.c_str()});
  EXPECT_EQ(second.status, exitFailed);
  EXPECT_THAT(second.err, HasSubstr("noxsim: Kelp table " + prefix));
  EXPECT_THAT(second.err, HasSubstr("live writer"));
}

// The counters file is written whole at the end of the run, and a link planted under its name
// is refused rather than followed.
TEST(HostileInput, MetricsGoToAFileOfOursAndNeverThroughALink) {
  std::string dir = std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp") +
                    "/noxsim-metrics-XXXXXX";
  ASSERT_NE(::mkdtemp(dir.data()), nullptr);
  std::string const file = dir + "/nox.prom";
  Outcome const written = run("start\n", {"--metrics", file.c_str()});
  EXPECT_EQ(written.status, exitOk) << written.err;
  std::ifstream in(file);
  std::string const text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_THAT(text, HasSubstr("# TYPE nox_tunnelIdToHwTunnelIdIs_total counter\n"
                              "nox_tunnelIdToHwTunnelIdIs_total "));
  // With the process's own gauges, read while the agent is still up.
  auto const resident = text.find("\nprocess_resident_memory_bytes ");
  ASSERT_NE(resident, std::string::npos) << text;
  EXPECT_GT(std::stoull(text.substr(resident + 31)), 0u);
  EXPECT_THAT(text, HasSubstr("\nprocess_resident_memory_max_bytes "));

  std::string const target = dir + "/target";
  std::string const link = dir + "/link.prom";
  { std::ofstream(target) << "keep"; }
  ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
  Outcome const refused = run("start\n", {"--metrics", link.c_str()});
  EXPECT_EQ(refused.status, exitFailed);
  EXPECT_THAT(refused.err, HasSubstr("--metrics"));
  std::ifstream kept(target);
  std::string keptText;
  kept >> keptText;
  EXPECT_EQ(keptText, "keep");
  for (auto const& f : {file, target, link}) ::unlink(f.c_str());
  ::rmdir(dir.c_str());
}

// Runs a published scenario in a child until its tables exist, stops it with SIGTERM, and
// returns the names left under the prefix.
std::vector<std::string> namesLeftAfterSigterm(std::string const& prefix, bool keep) {
  pid_t const child = fork();
  if (child == 0) {
    std::vector<char const*> options = {"--shm", prefix.c_str()};
    if (keep) options.push_back("--keep-shm");
    run("advance 30\n", options);
    _exit(0);
  }
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  // Until every table of the run is whole: names show one by one while the world is built.
  std::size_t seen = 0;
  int steady = 0;
  while (steady < 20 && std::chrono::steady_clock::now() < deadline) {
    auto const names = Kelp::tableNames(prefix);
    bool const whole = !names.empty() && std::all_of(names.begin(), names.end(), [](auto const& n) {
      return Kelp::inspectTable(n).error.empty();
    });
    steady = whole && names.size() == seen ? steady + 1 : 0;
    seen = names.size();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::kill(child, SIGTERM);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  auto names = Kelp::tableNames(prefix);
  for (auto const& name : names) Kelp::unlinkTable(name);
  return names;
}

TEST(HostileInput, SigtermRemovesPublishedTablesUnlessAskedToKeepThem) {
  EXPECT_THAT(namesLeftAfterSigterm(uniquePrefix("gone"), false), ::testing::IsEmpty());
  EXPECT_THAT(namesLeftAfterSigterm(uniquePrefix("kept"), true),
              ::testing::Not(::testing::IsEmpty()));
}

}  // namespace
}  // namespace Noxsim
