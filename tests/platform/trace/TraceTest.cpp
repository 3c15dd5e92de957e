// The text trace: levels per facility, what sinks receive, lazy formatting, level settings.

#include "platform/trace/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "platform/trace/CaptureSink.h"
#include "platform/trace/FileSink.h"
#include "platform/trace/LevelSettings.h"
#include "platform/vel/Exception.h"
#include "tests/platform/trace/ProgramRun.h"
#include "tests/platform/trace/TraceOtherFacility.h"

NOX_TRACE_FACILITY("TraceTest");

namespace {

using ::testing::ElementsAre;

class TextTrace : public ::testing::Test {
 protected:
  void SetUp() override {
    Trace::levelIs("*", Trace::levelOff);
    Fleck::levelIs("*", Trace::levelOff);
    Trace::sinkDelAll();
    Trace::sinkAdd(capture_);
  }
  void TearDown() override {
    Trace::sinkDelAll();
    Trace::sinkAdd(Trace::stderrSink());
    Trace::levelIs("*", Trace::levelOff);
    Fleck::levelIs("*", 1);
  }
  std::vector<std::string> texts() const { return capture_->texts(); }

  Vel::Ptr<Trace::CaptureSink> capture_ = Trace::captureSinkFactory();
};

void traceEveryLevel() {
  NOX_TRACE(0, "level 0");
  NOX_TRACE(1, "level 1");
  NOX_TRACE(2, "level 2");
  NOX_TRACE(3, "level 3");
  NOX_TRACE(8, "level 8");
  NOX_TRACE(9, "level 9");
}

TEST_F(TextTrace, FacilityTracesLevelsUpToItsOwnOnly) {
  traceEveryLevel();
  EXPECT_TRUE(texts().empty());

  Trace::levelIs("TraceTest", 2);
  traceEveryLevel();
  Kelp::traceInOtherFacility(5);
  EXPECT_THAT(texts(), ElementsAre("level 0", "level 1", "level 2"));

  capture_->clear();
  Trace::levelIs("TraceTest", Trace::levelOff);
  Trace::levelIs("TraceTestOther", 1);
  traceEveryLevel();
  Kelp::traceInOtherFacility(6);
  EXPECT_THAT(texts(), ElementsAre(" other facility 6"));
}

TEST_F(TextTrace, StarSetsEveryFacilityAndOverridesEarlierNames) {
  Trace::levelIs("TraceTestOther", 8);
  Trace::levelIs("*", 2);
  EXPECT_EQ(Trace::level("TraceTestOther"), 2);
  EXPECT_EQ(Trace::level("TraceTest"), 2);
  EXPECT_EQ(Trace::level("NotDeclaredAnywhere"), 2);

  Trace::levelIs("NotDeclaredAnywhere", 5);
  EXPECT_EQ(Trace::level("NotDeclaredAnywhere"), 5);
  EXPECT_EQ(Trace::level("TraceTest"), 2);
  EXPECT_EQ(Fleck::level("TraceTest"), Trace::levelOff);  // the two traces keep apart
}

TEST_F(TextTrace, LevelOutsideMinusOneToNineIsARangeError) {
  EXPECT_THROW(Trace::levelIs("TraceTest", 10), Vel::RangeException);
  EXPECT_THROW(Trace::levelIs("TraceTest", -2), Vel::RangeException);
  EXPECT_THROW(Fleck::levelIs("TraceTest", 10), Vel::RangeException);
  EXPECT_EQ(Trace::level("TraceTest"), Trace::levelOff);
}

// Every field of a captured record, as "FACILITY/LEVEL FILE:LINE TEXT".
std::string describe(Trace::CapturedRecord const& r) {
  return r.facility + "/" + std::to_string(r.level) + " " + r.file + ":" + std::to_string(r.line) +
         " " + r.text;
}

TEST_F(TextTrace, RecordCarriesExactTextFacilityLevelFileAndLine) {
  Trace::levelIs("*", 9);
  int const line = __LINE__ + 1;
  NOX_TRACE_CHANGE("     adding dest {}", "mpls/3/Tunnel5/1000");
  NOX_TRACE_ENTRY("handleInitialized ");
  int const otherLine = Kelp::traceInOtherFacility(7);

  std::vector<std::string> described;
  for (auto const& r : capture_->records()) described.push_back(describe(r));
  std::string const here = "TraceTest.cpp:";
  EXPECT_THAT(
      described,
      ElementsAre(
          "TraceTest/1 " + here + std::to_string(line) + "      adding dest mpls/3/Tunnel5/1000",
          "TraceTest/8 " + here + std::to_string(line + 1) + " handleInitialized ",
          "TraceTestOther/1 TraceOtherUnit:" + std::to_string(otherLine) + "  other facility 7"));
}

struct Streamed {
  int* formatted;
};
std::ostream& operator<<(std::ostream& os, Streamed const& s) {
  ++*s.formatted;
  return os << "streamed";
}

TEST_F(TextTrace, ArgumentsAreEvaluatedAndFormattedOnlyWhenEnabledAndSomeSinkListens) {
  int formatted = 0;
  int evaluated = 0;
  auto const argument = [&] {
    ++evaluated;
    return Streamed{&formatted};
  };
  Trace::levelIs("TraceTest", 1);
  NOX_TRACE(2, "disabled {}", argument());
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(formatted, 0);

  NOX_TRACE(1, "enabled {}", argument());
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(formatted, 1);
  EXPECT_THAT(texts(), ElementsAre("enabled streamed"));

  Trace::sinkDel(capture_);
  NOX_TRACE(1, "no sink {}", argument());
  EXPECT_EQ(formatted, 1);
}

struct Point {
  int x, y;
};
std::ostream& operator<<(std::ostream& os, Point const& p) {
  return os << "(" << p.x << ", " << p.y << ")";
}

TEST_F(TextTrace, PlaceholdersTakeEachArgumentsStreamedTextInOrder) {
  Trace::levelIs("TraceTest", 1);
  char const* none = nullptr;
  std::string const text = "str";
  unsigned char const letter = 65;
  NOX_TRACE(1, "{} {} {} {} {} {}", -5, 18446744073709551615ull, true, 2.5, 'x', letter);
  NOX_TRACE(1, "{}|{}|{}|{}", text, std::string_view("view"), none, Point{1, -2});
  NOX_TRACE(1, "{{literal}} {}{}", 1, 2);
  NOX_TRACE(1, "{} {}", 1.0 / 3, short(-7));
  EXPECT_THAT(texts(), ElementsAre("-5 18446744073709551615 1 2.5 x A", "str|view|(null)|(1, -2)",
                                   "{literal} 12", "0.333333 -7"));
}

static_assert(Trace::placeholderCount("a {} b {}") == 2);
static_assert(Trace::placeholderCount("{{}} }}") == 0);
static_assert(Trace::placeholderCount("a { b") == -1);
static_assert(Trace::placeholderCount("a }") == -1);

TEST_F(TextTrace, FileSinkAppendsOneTimestampedLinePerRecord) {
  TraceTest::ScratchDir dir;
  auto const sink = Trace::fileSinkFactory(dir.file("trace.log"));
  Trace::sinkAdd(sink);
  Trace::levelIs("TraceTest", 1);
  int const line = __LINE__ + 1;
  NOX_TRACE(1, "   hwId not ready for dest, tunnelId: {} label: {}", 5, 1000);
  Trace::sinkDel(sink);
  NOX_TRACE(1, "not in the file");

  auto const lines = TraceTest::linesOf(TraceTest::readFile(dir.file("trace.log")));
  ASSERT_EQ(lines.size(), 1u);
  // "YYYY-MM-DD HH:MM:SS.uuuuuu " then the rest
  ASSERT_GT(lines[0].size(), 27u);
  EXPECT_EQ(lines[0][4], '-');
  EXPECT_EQ(lines[0][19], '.');
  EXPECT_EQ(lines[0].substr(27), "TraceTest/1 TraceTest.cpp:" + std::to_string(line) +
                                     "    hwId not ready for dest, tunnelId: 5 label: 1000");
  EXPECT_THROW(Trace::fileSinkFactory(dir.file("no/such/dir")), Vel::RangeException);
}

TEST(LevelSettings, ParsesEntriesLeftToRightAndReportsEachMalformedOne) {
  auto const good = Trace::parseLevelSettings(" */1 ,NoxEvpn/8,Kelp/off,Cog/-1,,");
  EXPECT_TRUE(good.errors.empty());
  EXPECT_EQ(good.settings, (std::vector<Trace::LevelSetting>{
                               {"*", 1}, {"NoxEvpn", 8}, {"Kelp", -1}, {"Cog", -1}}));

  auto const bad =
      Trace::parseLevelSettings("NoxEvpn,Vel/10,Kelp/x,Bad Name/1,/3,a/b/1,Cog/2,Vel/12x");
  EXPECT_EQ(bad.settings, (std::vector<Trace::LevelSetting>{{"Cog", 2}}));
  EXPECT_THAT(
      bad.errors,
      ElementsAre("'NoxEvpn': expected FACILITY/LEVEL", "'Vel/10': level must be 0-9 or off",
                  "'Kelp/x': level must be 0-9 or off", "'Bad Name/1': bad facility name",
                  "'/3': bad facility name", "'a/b/1': bad facility name",
                  "'Vel/12x': level must be 0-9 or off"));
}

// The environment is read once, at start-up, so it is checked in a process of its own.
TEST(TraceEnvironment, LevelsComeFromTheEnvironmentAtStartUp) {
  TraceTest::ScratchDir dir;
  auto const run = TraceTest::runProgram(
      {NOX_TRACE_ENV_PROBE, "TraceProbe", "Kelp", "Other"},
      {"NOX_TRACE=*/0,TraceProbe/3,bogus,Kelp/x", "NOX_FLECK=Kelp/8,*/off,Other/2",
       "NOX_FLECK_FILE=" + dir.file("probe.flk")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "TraceProbe text=3 fleck=-1\nKelp text=0 fleck=-1\nOther text=0 fleck=2\n");
  auto const err = TraceTest::linesOf(run.err);
  ASSERT_EQ(err.size(), 3u) << run.err;
  EXPECT_EQ(err[0], "NOX_TRACE: 'bogus': expected FACILITY/LEVEL");
  EXPECT_EQ(err[1], "NOX_TRACE: 'Kelp/x': level must be 0-9 or off");
  // The standard-error sink, by default: time, facility/level, file:line, message.
  EXPECT_NE(err[2].find(" TraceProbe/3 TraceEnvProbe.cpp:"), std::string::npos) << err[2];
  EXPECT_EQ(err[2].substr(err[2].size() - 17), "   probe level 3 ");
}

TEST(TraceEnvironment, TraceFileReplacesStandardError) {
  TraceTest::ScratchDir dir;
  auto const run = TraceTest::runProgram(
      {NOX_TRACE_ENV_PROBE},
      {"NOX_TRACE=TraceProbe/9", "NOX_FLECK=*/off", "NOX_TRACE_FILE=" + dir.file("t.log")});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  auto const lines = TraceTest::linesOf(TraceTest::readFile(dir.file("t.log")));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[1].find("TraceProbe/4 "), std::string::npos);
}

}  // namespace
