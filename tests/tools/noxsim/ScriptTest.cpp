// Parsing scenarios: command lookup, word rules, blocks, and where errors are reported.

#include "tools/noxsim/Script.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Noxsim {
namespace {

// The error of parsing `text` as file "s.nox", empty when it parses.
std::string parseError(std::string_view text) {
  Script script;
  std::string error;
  if (script.addText("s.nox", text, error)) return "";
  return error;
}

TEST(ScriptTest, CommentsAndBlankLinesMakeNoStepsButCountAsLines) {
  Script script;
  std::string error;
  ASSERT_TRUE(
      script.addText("s.nox", "# heading\n\n  start filter  # all of it\r\n\ttrace 8\n", error))
      << error;
  ASSERT_EQ(script.steps().size(), 2u);
  EXPECT_EQ(script.steps()[0].line, 3u);
  EXPECT_EQ(script.steps()[1].line, 4u);
  EXPECT_EQ(script.fileName(script.steps()[1]), "s.nox");
}

TEST(ScriptTest, MalformedLinesNameFileLineCommandAndWord) {
  EXPECT_EQ(parseError("start\nl2rib floodset add 0 00:00:00:00:00:01 none/1\n"),
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

TEST(ScriptTest, KeyValueWordsFollowThePositionalOnes) {
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

TEST(ScriptTest, TheFirstBadWordOfALineIsReported) {
  EXPECT_EQ(parseError("l2rib floodset add 0 00:00:00:00:00:0G none/1\n"),
            "s.nox:1: l2rib floodset add: bad VLAN '0' (1-4094)");
}

TEST(ScriptTest, BlocksRunToEndAndAMissingEndNamesTheCommand) {
  Script script;
  std::string error;
  ASSERT_TRUE(script.addText("s.nox",
                             "expect floodset\n  source 0  # comment\nend\n"
                             "expect trace\n|  end\n  end  # closes\nstart\n",
                             error))
      << error;
  ASSERT_EQ(script.steps().size(), 3u);
  EXPECT_EQ(script.steps()[2].line, 7u);

  EXPECT_EQ(parseError("start\nexpect floodset-filtered  # open\n  source 0\n"),
            "s.nox:2: expect floodset-filtered: missing 'end'");
}

TEST(ScriptTest, ExpectedTraceMessagesNeedTheirBar) {
  EXPECT_EQ(parseError("expect trace\n\n  # a comment\n|   fine\n  not fine\nend\n"),
            "s.nox:5: expect trace: a message is written after a '|' that marks where it starts");
}

TEST(ScriptTest, ExpectErrorTakesTheRestOfTheLineAsText) {
  Script script;
  std::string error;
  ASSERT_TRUE(script.addText("s.nox", "expect error value=5 not allowed\"\n", error)) << error;
  ASSERT_EQ(script.steps().size(), 1u);
  EXPECT_TRUE(script.steps()[0].checksError);
}

TEST(ScriptTest, FilesAreReadWholeAndStdinIsDash) {
  Script script;
  std::string error;
  std::istringstream in("start filter\n");
  ASSERT_TRUE(script.addFile("-", in, error)) << error;
  EXPECT_EQ(script.fileName(script.steps()[0]), "-");
  EXPECT_FALSE(script.addFile("/nonexistent/x.nox", in, error));
  EXPECT_EQ(error, "cannot read /nonexistent/x.nox: No such file or directory");
  EXPECT_FALSE(script.addFile("/", in, error));
  EXPECT_EQ(error, "cannot read /: Is a directory");
}

// A line past the limit stops the reading there, whether the text ends or not.
TEST(ScriptTest, OverlongLinesAreRefusedWhereTheyStart) {
  Script script;
  std::string error;
  std::string const longLine(Script::maxLineBytes + 1, 'x');
  std::istringstream in("start filter\n" + longLine + "\nstart floodset\n");
  EXPECT_FALSE(script.addFile("-", in, error));
  EXPECT_EQ(error, "-:2: line longer than 65536 bytes");
  std::istringstream fits("# " + std::string(Script::maxLineBytes - 2, 'x') + "\nstart filter\n");
  EXPECT_TRUE(script.addFile("-", fits, error)) << error;
  EXPECT_FALSE(script.addFile("/dev/zero", in, error));
  EXPECT_EQ(error, "/dev/zero:1: line longer than 65536 bytes");
}

}  // namespace
}  // namespace Noxsim
