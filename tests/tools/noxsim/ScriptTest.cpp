// Parsing scenarios: command lookup, word rules, blocks, and where errors are reported.

#include "tools/noxsim/Script.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace Noxsim {
namespace {

// Where a step of a script is.
struct Place {
  uint32_t file;
  uint32_t line;
  bool checksError;
  friend bool operator==(Place const&, Place const&) = default;
};

// The error of parsing `text` as file "s.nox", empty when it parses.
std::string parseError(std::string_view text) {
  Script script;
  std::string error;
  if (script.addText("s.nox", text, error)) return "";
  return error;
}

class ScriptTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (auto const& file : written_) ::unlink(file.c_str());
    if (!dir_.empty()) ::rmdir(dir_.c_str());
  }
  // Writes the file `name` in a directory of the test's own.
  std::string write(std::string const& name, std::string const& text) {
    if (dir_.empty()) {
      char const* tmp = std::getenv("TMPDIR");
      dir_ = std::string(tmp ? tmp : "/tmp") + "/noxsim-script-XXXXXX";
      EXPECT_NE(::mkdtemp(dir_.data()), nullptr);
    }
    std::string const path = dir_ + "/" + name;
    std::ofstream(path, std::ios::trunc) << text;
    written_.push_back(path);
    return path;
  }
  // Where each step of `script` is, in the order the run gets them; none, with the message in
  // `error`, when the script cannot be read again.
  std::vector<Place> places() {
    std::vector<Place> found;
    auto const take = [&](Step const& step) {
      found.push_back({step.file, step.line, step.checksError});
      return true;
    };
    if (!script.forEachStep(take, error)) found.clear();
    return found;
  }

  Script script;
  std::string error;
  std::istringstream in;

 private:
  std::string dir_;
  std::vector<std::string> written_;
};

// `expect error` takes the rest of its line as text: key=value words and quotes are not parsed.
TEST_F(ScriptTest, CommentsAndBlankLinesMakeNoStepsButCountAsLines) {
  ASSERT_TRUE(script.addText("s.nox",
                             "# heading\n\n  start filter  # all of it\r\n\ttrace 8\n"
                             "expect error value=5 not allowed\"\n",
                             error))
      << error;
  EXPECT_EQ(script.stepCount(), 3u);
  EXPECT_EQ(places(), (std::vector<Place>{{0, 3, false}, {0, 4, false}, {0, 5, true}}));
}

TEST_F(ScriptTest, MalformedLinesNameFileLineCommandAndWord) {
  // Both the VLAN and the MAC are bad: the first bad word is the one reported.
  EXPECT_EQ(parseError("start\nl2rib floodset add 0 00:00:00:00:00:0G none/1\n"),
            "s.nox:2: l2rib floodset add: bad VLAN '0' (1-4094)");
  EXPECT_EQ(parseError("l2rib floodset add 10 00:00:00:00:00:01\n"),
            "s.nox:1: l2rib floodset add: takes 3 words, got 2");
  EXPECT_EQ(parseError("l2rib floodset frobnicate 10\n"),
            "s.nox:1: unknown command 'l2rib floodset frobnicate'");
  EXPECT_EQ(parseError("start filter nosuch\n"),
            "s.nox:1: start: unknown machine 'nosuch' (machines: filter, floodset-fec, floodset, "
            "esi, dot1q, decap, macfec)");
  EXPECT_EQ(parseError("start filter filter\n"), "s.nox:1: start: machine 'filter' named twice");
  EXPECT_EQ(parseError("show floodsets\n").substr(0, 40),
            "s.nox:1: show: unknown table 'floodsets'");
  EXPECT_EQ(parseError("hwstatus set 10 00:00:00:00:00:01 5/1000/0/1/ done\n"),
            "s.nox:1: hwstatus set: bad status 'done' (programmed, notProgrammed, invalidHwId or "
            "a number)");
}

TEST_F(ScriptTest, KeyValueWordsFollowThePositionalOnes) {
  EXPECT_EQ(parseError("l2rib floodset add 10 00:00:00:00:00:01 none/1 flag=false\n"), "");
  EXPECT_EQ(parseError("l2rib floodset add 10 flag=false 00:00:00:00:00:01 none/1\n"),
            "s.nox:1: l2rib floodset add: '00:00:00:00:00:01' comes after key=value words");
  EXPECT_EQ(parseError("l2rib floodset add 10 00:00:00:00:00:01 none/1 flag=true flag=false\n"),
            "s.nox:1: l2rib floodset add: flag= given twice");
  EXPECT_EQ(parseError("l2rib floodset add 10 00:00:00:00:00:01 none/1 colour=red\n"),
            "s.nox:1: l2rib floodset add: unknown option 'colour='");
  EXPECT_EQ(parseError("l2rib floodset add 10 00:00:00:00:00:01 none/1 flag=yes\n"),
            "s.nox:1: l2rib floodset add: bad flag= value 'yes' (true or false)");
}

// (A block without its end is tests/scenarios/missing-end.fail2.nox.)
TEST_F(ScriptTest, BlocksRunToTheirEndAndExpectedTraceMessagesNeedTheirBar) {
  ASSERT_TRUE(script.addText("s.nox",
                             "expect floodset\n  source 0  # comment\nend\n"
                             "expect trace\n|  end\n  end  # closes\nstart\n",
                             error))
      << error;
  auto const found = places();
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[2].line, 7u);

  EXPECT_EQ(parseError("expect trace\n\n  # a comment\n|   fine\n  not fine\nend\n"),
            "s.nox:5: expect trace: a message is written after a '|' that marks where it starts");
}

TEST_F(ScriptTest, FilesAreReadWholeAndStdinIsDash) {
  in.str("start filter\n");
  ASSERT_TRUE(script.addFile("-", in, error)) << error;
  EXPECT_FALSE(script.addFile("/nonexistent/x.nox", in, error));
  EXPECT_EQ(error, "cannot read /nonexistent/x.nox: No such file or directory");
  EXPECT_FALSE(script.addFile("/", in, error));
  EXPECT_EQ(error, "cannot read /: Is a directory");
}

// A line past the limit stops the reading there, whether the text ends or not.
TEST_F(ScriptTest, OverlongLinesAreRefusedWhereTheyStart) {
  std::string const longLine(Script::maxLineBytes + 1, 'x');
  in.str("start filter\n" + longLine + "\nstart floodset\n");
  EXPECT_FALSE(script.addFile("-", in, error));
  EXPECT_EQ(error, "-:2: line longer than 65536 bytes");
  std::istringstream fits("# " + std::string(Script::maxLineBytes - 2, 'x') + "\nstart filter\n");
  EXPECT_TRUE(script.addFile("-", fits, error)) << error;
  EXPECT_FALSE(script.addFile("/dev/zero", in, error));
  EXPECT_EQ(error, "/dev/zero:1: line longer than 65536 bytes");
}

// A regular file is read again as the steps run, a block-sized read at a time: lines that straddle
// reads, blocks, a last line without its newline and a second file all come back as parsed.
TEST_F(ScriptTest, FilesAreParsedAgainAsTheyRun) {
  std::string text;
  for (int i = 0; i < 4000; ++i)
    text += "l2rib floodset add 10 00:00:00:00:00:01 none/" + std::to_string(i) + "  # padding\n";
  text += "expect floodset\n  source 0\nend\nexpect error late";
  auto const first = write("a.nox", text);
  auto const second = write("b.nox", "\nstart filter\n");
  ASSERT_TRUE(script.addFile(first, in, error)) << error;
  ASSERT_TRUE(script.addFile(second, in, error)) << error;
  EXPECT_EQ(script.stepCount(), 4003u);
  auto const found = places();
  ASSERT_EQ(found.size(), 4003u);
  EXPECT_EQ(found[3999], (Place{0, 4000, false}));
  EXPECT_EQ(found[4000], (Place{0, 4001, false}));
  EXPECT_EQ(found[4001], (Place{0, 4004, true}));
  EXPECT_EQ(found[4002], (Place{1, 2, false}));

  // The walk stops where the taker says.
  std::size_t taken = 0;
  EXPECT_TRUE(script.forEachStep([&](Step const&) { return ++taken < 10; }, error));
  EXPECT_EQ(taken, 10u);
}

// What runs is what was parsed: a file changed or removed after parsing stops the run, with its
// name, before any of its steps.
TEST_F(ScriptTest, AFileChangedAfterParsingIsNotRun) {
  auto const path = write("a.nox", "start filter\n");
  ASSERT_TRUE(script.addFile(path, in, error)) << error;
  write("a.nox", "start filter floodset\n");
  EXPECT_TRUE(places().empty());
  EXPECT_EQ(error, path + ": changed since it was parsed");
  ::unlink(path.c_str());
  EXPECT_TRUE(places().empty());
  EXPECT_EQ(error, "cannot read " + path + ": No such file or directory");
}

// A file that cannot be read twice (a pipe) is kept from its first reading.
TEST_F(ScriptTest, APipeIsKeptFromItsFirstReading) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  std::string const text = "start filter\ntrace 8\n";
  ASSERT_EQ(::write(fds[1], text.data(), text.size()), ssize_t(text.size()));
  ::close(fds[1]);
  ASSERT_TRUE(script.addFile("/dev/fd/" + std::to_string(fds[0]), in, error)) << error;
  ::close(fds[0]);
  EXPECT_EQ(places(), (std::vector<Place>{{0, 1, false}, {0, 2, false}}));
}

TEST_F(ScriptTest, AnOverlongLineOfAFileIsRefusedWhereItStarts) {
  auto const path =
      write("a.nox", "start filter\n\n# " + std::string(Script::maxLineBytes, 'x') + "\n");
  EXPECT_FALSE(script.addFile(path, in, error));
  EXPECT_EQ(error, path + ":3: line longer than 65536 bytes");
}

}  // namespace
}  // namespace Noxsim
