// The lexical rules of scenario values: what each value accepts and how it prints back.

#include "tools/noxsim/Lexer.h"

#include <gtest/gtest.h>

#include "platform/vel/Exception.h"

namespace Noxsim {
namespace {

TEST(LexerTest, NumbersAreDecimalDigitsWithinTheirRange) {
  EXPECT_EQ(parseUnsigned("0"), 0u);
  EXPECT_EQ(parseUnsigned("007"), 7u);
  EXPECT_EQ(parseUnsigned("18446744073709551615"), UINT64_MAX);
  EXPECT_FALSE(parseUnsigned("18446744073709551616"));
  EXPECT_FALSE(parseUnsigned("4294967296", UINT32_MAX));
  for (char const* bad : {"", "-1", "+1", "1x", "0x10", " 1", "1.0"}) {
    EXPECT_FALSE(parseUnsigned(bad)) << bad;
  }
}

TEST(LexerTest, VlansAreOneTo4094) {
  EXPECT_EQ(parseVlan("1")->value(), 1);
  EXPECT_EQ(parseVlan("4094")->value(), 4094);
  EXPECT_FALSE(parseVlan("0"));
  EXPECT_FALSE(parseVlan("4095"));
  EXPECT_FALSE(parseVlan("65537"));
}

// Interface names are the interface type's (TypesTest), tunnel numbers of 56 bits included so
// that tunnel ids past the framework's 48 can be written; the parser refuses only the empty name
// besides, which the type takes as "no interface". MACs are the address type's too, in lower
// case only: tests/scenarios/bad-mac.fail2.nox.
TEST(LexerTest, AnInterfaceIsNeverEmpty) { EXPECT_FALSE(parseIntf("")); }

TEST(LexerTest, LabelsAreDecimalUpTo1048575OrNone) {
  EXPECT_EQ(parseLabel("3")->stringValue(), "imp-null(3)");
  EXPECT_EQ(parseLabel("1048575")->value(), 1048575u);
  EXPECT_EQ(parseLabel("none")->stringValue(), "N/A");
  EXPECT_FALSE(parseLabel("1048576"));
  EXPECT_FALSE(parseLabel("N/A"));
}

TEST(LexerTest, FecIdsAreAnAdjacencyTypeAndA56BitNumber) {
  EXPECT_EQ(valueToStrep(*parseFecId("255:72057594037927935")), "255:72057594037927935");
  EXPECT_EQ(parseFecId("01:007"), Kelp::Fib::FecId(1, 7));
  for (char const* bad : {"256:1", "1:72057594037927936", "1", ":1", "1:", "1:2:3"}) {
    EXPECT_FALSE(parseFecId(bad)) << bad;
  }
}

TEST(LexerTest, StatusesByNameOrNumber) {
  EXPECT_EQ(parseStatus("programmed"), Nox::programmed);
  EXPECT_EQ(parseStatus("notProgrammed"), Nox::notProgrammed);
  EXPECT_EQ(parseStatus("invalidHwId"), Nox::invalidHwId);
  EXPECT_EQ(unsigned(*parseStatus("7")), 7u);
  EXPECT_FALSE(parseStatus("Programmed"));
  EXPECT_FALSE(parseStatus("4294967296"));
}

TEST(LexerTest, BooleansSwitchesAndTraceLevels) {
  EXPECT_EQ(parseBool("true"), true);
  EXPECT_EQ(parseBool("false"), false);
  EXPECT_FALSE(parseBool("1"));
  EXPECT_EQ(parseOnOff("on"), true);
  EXPECT_FALSE(parseOnOff("true"));
  EXPECT_EQ(parseTraceLevel("off"), -1);
  EXPECT_EQ(parseTraceLevel("9"), 9);
  EXPECT_FALSE(parseTraceLevel("10"));
}

TEST(LexerTest, SecondsAreNonNegativeAndPrintAsAStreamDoes) {
  EXPECT_EQ(parseSeconds("2.5"), 2.5);
  EXPECT_EQ(parseSeconds("10"), 10.0);
  for (char const* bad : {"-1", "1e3", "inf", "nan", "", "1s"}) {
    EXPECT_FALSE(parseSeconds(bad)) << bad;
  }
  EXPECT_EQ(secondsText(0), "0");
  EXPECT_EQ(secondsText(2.5), "2.5");
  EXPECT_EQ(secondsText(10), "10");
}

TEST(LexerTest, ConfigsHaveFiveFieldsAndCheckTheTunnelIdOnlyWhenBuilt) {
  auto const config = parseConfig("5/none/7/1099511627776/");
  ASSERT_TRUE(config);
  Nox::MplsDestConfig const built = config->config();
  EXPECT_EQ(built.tunnelId().value(), 5u);
  EXPECT_EQ(built.label().value(), Gantry::MplsLabel::noLabel);
  EXPECT_EQ(built.hwTunnelId().value(), 7u);
  EXPECT_EQ(built.hwIdForTunnelProgramming(), uint64_t(1) << 40);
  EXPECT_TRUE(built.l2IntfId().empty());
  EXPECT_EQ(parseConfig("5/1000/0/1/L2Intf01")->l2Intf.name(), "L2Intf1");

  auto const outOfRange = parseConfig("281474976710656/1000/0/0/");
  ASSERT_TRUE(outOfRange);
  EXPECT_THROW(outOfRange->config(), Vel::RangeException);

  for (char const* bad : {"5/1000/0/1", "5/1000/0/1/L2Intf1/x", "5/1000/4294967296/1/",
                          "5/1048576/0/1/", "5/1000/0/1/Bogus1"}) {
    EXPECT_FALSE(parseConfig(bad)) << bad;
  }
}

TEST(LexerTest, WordsSplitOnBlanksAndStopAtAComment) {
  std::vector<std::string_view> words;
  splitWords("  l2rib\tfloodset  add 10 # the rest is a comment", words);
  EXPECT_EQ(words, (std::vector<std::string_view>{"l2rib", "floodset", "add", "10"}));
  splitWords("   # only a comment", words);
  EXPECT_TRUE(words.empty());
}

}  // namespace
}  // namespace Noxsim
