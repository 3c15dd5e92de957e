// Fleck: records written here and decoded by the fleckcat program, wrap-around, torn and
// corrupt records, files that are not Fleck buffers.

#include "platform/trace/Fleck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <optional>
#include <ostream>
#include <thread>

#include "platform/trace/FleckFormat.h"
#include "platform/trace/FleckReader.h"
#include "platform/trace/Trace.h"
#include "platform/vel/Exception.h"
#include "tests/platform/trace/MiniJson.h"
#include "tests/platform/trace/ProgramRun.h"

NOX_TRACE_FACILITY("FleckTest");

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Tunnel {
  int id;
};
std::ostream& operator<<(std::ostream& os, Tunnel const& t) { return os << "Tunnel" << t.id; }

// A line of fleckcat without its time stamp ("YYYY-MM-DD HH:MM:SS.nnnnnnnnn ").
std::string withoutTime(std::string const& line) { return line.size() > 30 ? line.substr(30) : ""; }

std::vector<std::string> messagesOf(TraceTest::ProgramRun const& run) {
  std::vector<std::string> out;
  for (auto const& line : TraceTest::linesOf(run.out)) out.push_back(withoutTime(line));
  return out;
}

class FleckBuffer : public ::testing::Test {
 protected:
  void SetUp() override {
    Trace::levelIs("*", Trace::levelOff);
    Fleck::levelIs("*", Trace::levelOff);
    Fleck::levelIs("FleckTest", 9);
    Fleck::open(path_, 1 << 20);
  }
  void TearDown() override {
    Fleck::close();
    Fleck::levelIs("*", 1);
  }
  TraceTest::ProgramRun fleckcat(std::string const& path) {
    return TraceTest::runProgram({NOX_FLECKCAT, path});
  }
  std::string site(int line) const { return "FleckTest/1 FleckTest.cpp:" + std::to_string(line); }
  // What fleckcat prints of the closed buffer, without time stamps.
  std::vector<std::string> closeAndDecode() {
    Fleck::close();
    return messagesOf(fleckcat(path_));
  }

  TraceTest::ScratchDir dir_;
  std::string const path_ = dir_.file("test.flk");
};

TEST_F(FleckBuffer, RecordsRoundTripThroughFleckcatWithTheirTexts) {
  std::time_t const before = std::time(nullptr);
  std::string const dest = "mpls/3/Tunnel5/1000";
  char const* const none = nullptr;
  int const line = __LINE__ + 1;
  NOX_TRACE(1, "     adding dest {}", dest);
  NOX_TRACE(1, "{} {} {} {} {}", -5, 18446744073709551615ull, false, 2.5, 'x');
  NOX_TRACE(1, "  {} {} {{}} {}", Tunnel{7}, std::string_view("view"), none);
  NOX_TRACE(1, "handleInitialized ");
  NOX_TRACE(8, "level {}", 8);
  Fleck::close();

  auto const run = fleckcat(path_);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_THAT(messagesOf(run),
              ElementsAre(site(line) + "      adding dest mpls/3/Tunnel5/1000",
                          site(line + 1) + " -5 18446744073709551615 0 2.5 x",
                          site(line + 2) + "   Tunnel7 view {} (null)",
                          site(line + 3) + " handleInitialized ",
                          "FleckTest/8 FleckTest.cpp:" + std::to_string(line + 4) + " level 8"));
  // Ticks come back as wall-clock time of when the records were written.
  auto const first = TraceTest::linesOf(run.out).at(0);
  std::tm tm{};
  ASSERT_NE(strptime(first.c_str(), "%Y-%m-%d %H:%M:%S", &tm), nullptr) << first;
  tm.tm_isdst = -1;
  std::time_t const stamped = std::mktime(&tm);
  EXPECT_GE(stamped, before - 1);
  EXPECT_LE(stamped, std::time(nullptr) + 1);
}

// Both JSON forms carry every message whole: texts with quotes, control bytes and bytes that
// are not UTF-8 stay valid JSON; the trace-event form has what viewers need in every event.
TEST_F(FleckBuffer, JsonFormsAreValidAndCarryEveryMessage) {
  NOX_TRACE(8, "handleVia ( {}, {} )", 5, 1000);
  NOX_TRACE(1, "   quote \" slash \\ {}", std::string("line\nbreak\x01 \xff end"));
  Fleck::close();
  auto const chrome = TraceTest::runProgram({NOX_FLECKCAT, "--format", "chrome", path_});
  ASSERT_EQ(chrome.status, 0) << chrome.err;
  auto const doc = TraceTest::parseJson(chrome.out);
  auto const& events = doc.at("traceEvents").array;
  ASSERT_EQ(events.size(), 2u);
  double lastTs = 0;
  for (auto const& e : events) {
    for (char const* key : {"ph", "ts", "pid", "tid", "name"}) EXPECT_TRUE(e.has(key)) << key;
    EXPECT_EQ(e.at("pid").number, double(::getpid()));
    EXPECT_GE(e.at("ts").number, lastTs);
    lastTs = e.at("ts").number;
  }
  EXPECT_EQ(events[0].at("name").string, "handleVia");
  EXPECT_EQ(events[0].at("cat").string, "FleckTest,FleckTest");
  EXPECT_EQ(events[0].at("args").at("arg1").string, "1000");
  EXPECT_EQ(events[1].at("args").at("arg0").string, "line\nbreak\x01 \xef\xbf\xbd end");

  auto const lines = TraceTest::runProgram({NOX_FLECKCAT, "--format", "json", path_});
  ASSERT_EQ(lines.status, 0) << lines.err;
  auto const objects = TraceTest::linesOf(lines.out);
  ASSERT_EQ(objects.size(), 2u);
  EXPECT_EQ(TraceTest::parseJson(objects[0]).at("message").string, "handleVia ( 5, 1000 )");
  EXPECT_EQ(TraceTest::parseJson(objects[1]).at("level").number, 1);

  EXPECT_EQ(TraceTest::runProgram({NOX_FLECKCAT, "--format", "xml", path_}).status, 2);
}

TEST_F(FleckBuffer, RecordsOnlyTheLevelsEnabledForFleck) {
  Fleck::levelIs("FleckTest", 1);
  Trace::levelIs("FleckTest", 9);  // the text trace's level does not matter
  Trace::sinkDelAll();
  int const line = __LINE__ + 1;
  NOX_TRACE(1, "one");
  NOX_TRACE(2, "two");
  Trace::sinkAdd(Trace::stderrSink());
  EXPECT_THAT(closeAndDecode(), ElementsAre(site(line) + " one"));
}

void traceValue(int i) { NOX_TRACE(1, "value {} {} {}", i, i * 2, i * 3); }
std::string valueText(int i) {
  return " value " + std::to_string(i) + " " + std::to_string(i * 2) + " " + std::to_string(i * 3);
}

TEST_F(FleckBuffer, WrapAroundDropsTheOldestRecordsAndKeepsOrder) {
  Fleck::open(path_, Fleck::minFileBytes);
  int const written = 5000;
  for (int i = 0; i < written; ++i) traceValue(i);
  auto const messages = closeAndDecode();
  // 11 blocks of 84 records: the newest, partly filled, and 10 full ones before it.
  ASSERT_GE(messages.size(), 10u * 84);
  ASSERT_LT(messages.size(), 11u * 84);
  int const first = written - static_cast<int>(messages.size());
  for (std::size_t k = 0; k < messages.size(); ++k) {
    int const i = first + static_cast<int>(k);
    ASSERT_THAT(messages[k], HasSubstr(valueText(i)));
  }
}

// Writes a record's arguments where the next record goes, but not its first word, as a writer
// killed in the middle of a record leaves it.
void tearNextRecord(std::uint64_t value) {
  char* p = Fleck::Detail::cursor.pos;
  ASSERT_NE(p, nullptr);
  std::uint64_t const words[3] = {value, value, value};
  std::memcpy(p + Fleck::recordHeaderBytes, words, sizeof words);
}

// Records of equal size sit at equal offsets lap after lap: once the buffer has wrapped, a torn
// record lies over a whole record of an older lap, and must not revive it either.
TEST_F(FleckBuffer, TornLastRecordIsSkippedOverFreshSpaceAndOverAnOlderLap) {
  for (int const written : {3, 2000}) {
    SCOPED_TRACE(written);
    Fleck::open(path_, Fleck::minFileBytes);
    for (int i = 0; i < written; ++i) traceValue(i);
    std::uint64_t under;
    std::memcpy(&under, Fleck::Detail::cursor.pos, sizeof under);
    EXPECT_EQ(under != 0, written == 2000);
    tearNextRecord(999);
    auto const messages = closeAndDecode();
    ASSERT_FALSE(messages.empty());
    if (written == 3) {
      EXPECT_EQ(messages.size(), 3u);
    }
    EXPECT_THAT(messages.back(), HasSubstr(valueText(written - 1)));
    for (auto const& m : messages) EXPECT_THAT(m, ::testing::Not(HasSubstr("999 999")));
  }
}

TEST_F(FleckBuffer, CommittedRecordThatDoesNotDecodeIsSkippedAndCounted) {
  NOX_TRACE(1, "text {}", std::string("abc"));
  // A record of the same site whose text length runs past its end.
  char* p = Fleck::Detail::cursor.pos;
  char* previous = p - 32;
  std::memcpy(p, previous, 32);
  std::uint32_t const tooLong = 1000;
  std::memcpy(p + Fleck::recordHeaderBytes, &tooLong, sizeof tooLong);
  Fleck::Detail::cursor.pos += 32;
  traceValue(1);
  Fleck::close();

  auto const run = fleckcat(path_);
  EXPECT_EQ(run.status, 0);
  auto const messages = messagesOf(run);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_THAT(messages[0], HasSubstr(" text abc"));
  EXPECT_THAT(messages[1], HasSubstr(valueText(1)));
  EXPECT_EQ(run.err, path_ + ": 1 record(s) skipped, not decodable\n");
}

TEST_F(FleckBuffer, ClockFieldsThatOverflowStillDecodeTheRecords) {
  traceValue(1);
  Fleck::close();
  std::string bytes = TraceTest::readFile(path_);
  Fleck::FileHeader h;
  std::memcpy(&h, bytes.data(), sizeof h);
  // A tick counter at 1 Hz started at the far end of time: every difference of clock readings
  // overflows 64 bits.
  h.clockKind = 1;
  h.tickHz = 1;
  h.anchorMonotonicNs = INT64_MIN;
  h.anchorWallNs = INT64_MAX;
  std::memcpy(bytes.data(), &h, sizeof h);
  Fleck::Decoded decoded;
  std::string error;
  ASSERT_TRUE(Fleck::decode(bytes, decoded, error)) << error;
  ASSERT_EQ(decoded.messages.size(), 1u);
  EXPECT_EQ(decoded.messages[0].text, "value 1 2 3");
}

TEST_F(FleckBuffer, WriterKilledWhileWritingLeavesOnlyWholeRecords) {
  auto const textOf = [](std::uint64_t i) { return std::string(i % 61 + 1, char('a' + i % 26)); };
  std::string const childPath = dir_.file("child.flk");
  pid_t const pid = fork();
  if (pid == 0) {
    Fleck::open(childPath, 128 * 1024);
    for (std::uint64_t i = 0;; ++i) NOX_TRACE(1, "seq {} text {} check {}", i, textOf(i), i * 7);
  }
  usleep(200 * 1000);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);

  // Consecutive records from some point on, each whole.
  auto const messages = messagesOf(fleckcat(childPath));
  ASSERT_GT(messages.size(), 100u);
  auto const at = messages[0].find(" seq ");
  std::uint64_t first = 0;
  ASSERT_NE(at, std::string::npos) << messages[0];
  ASSERT_EQ(std::sscanf(messages[0].c_str() + at, " seq %lu", &first), 1);
  for (std::size_t k = 0; k < messages.size(); ++k) {
    std::uint64_t const i = first + k;
    ASSERT_THAT(messages[k], ::testing::EndsWith(" seq " + std::to_string(i) + " text " +
                                                 textOf(i) + " check " + std::to_string(i * 7)));
  }
}

TEST_F(FleckBuffer, EachThreadsRecordsKeepTheirOrder) {
  int const perThread = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < perThread; ++i) NOX_TRACE(1, "thread {} record {}", t, i);
    });
  }
  for (auto& th : threads) th.join();
  auto const messages = closeAndDecode();
  ASSERT_EQ(messages.size(), 4u * perThread);
  int next[4] = {0, 0, 0, 0};
  for (auto const& m : messages) {
    int t, i;
    ASSERT_EQ(std::sscanf(m.c_str() + m.find(" thread "), " thread %d record %d", &t, &i), 2);
    ASSERT_EQ(i, next[t]++);
  }
}

TEST_F(FleckBuffer, ReopenedBufferRegistersCallSitesAgain) {
  traceValue(1);
  std::string const second = dir_.file("second.flk");
  Fleck::open(second, 1 << 20);
  EXPECT_EQ(Fleck::path(), second);
  traceValue(2);
  Fleck::close();
  EXPECT_EQ(Fleck::path(), "");
  traceValue(3);  // dropped: no buffer

  auto const messages = messagesOf(fleckcat(second));
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_THAT(messages[0], HasSubstr(valueText(2)));
}

TEST_F(FleckBuffer, TextTooLongForABlockIsShortened) {
  std::string const huge(10000, 'z');
  NOX_TRACE(1, "huge {} end", huge);
  traceValue(4);
  auto const messages = closeAndDecode();
  ASSERT_EQ(messages.size(), 2u);
  auto const zs = messages[0].find('z');
  EXPECT_EQ(messages[0].substr(zs), std::string(Fleck::maxRecordBytes - 28, 'z') + " end");
  EXPECT_THAT(messages[1], HasSubstr(valueText(4)));
}

TEST_F(FleckBuffer, FileThatIsNotAFleckBufferIsRefused) {
  traceValue(1);
  Fleck::close();
  std::string const good = TraceTest::readFile(path_);
  auto const refused = [&](std::optional<std::string> const& bytes, std::string const& reason) {
    std::string const bad = dir_.file(bytes ? "bad.flk" : "missing.flk");
    if (bytes) TraceTest::writeFile(bad, *bytes);
    auto const run = fleckcat(bad);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, bad + ": " + reason + "\n");
  };
  refused("hello, world\n", "not a Fleck buffer");
  refused("", "not a Fleck buffer");
  refused(good.substr(0, good.size() - Fleck::blockBytes),
          "not a Fleck buffer (inconsistent header)");
  std::string otherVersion = good;
  otherVersion[8] = 2;
  refused(otherVersion, "unsupported Fleck version 2");
  refused(std::nullopt, "No such file or directory");
  EXPECT_EQ(TraceTest::runProgram({NOX_FLECKCAT}).status, 2);
  auto const help = TraceTest::runProgram({NOX_FLECKCAT, "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("usage: fleckcat [--format text|chrome|json] FILE\n", 0), 0u)
      << help.out;
}

TEST(FleckOpen, SizeBelowTheMinimumIsARangeError) {
  TraceTest::ScratchDir dir;
  EXPECT_THROW(Fleck::open(dir.file("small.flk"), Fleck::minFileBytes - 1), Vel::RangeException);
  EXPECT_THROW(Fleck::open(dir.file("no/dir.flk")), Vel::RangeException);
  EXPECT_EQ(Fleck::path(), "");
}

}  // namespace
