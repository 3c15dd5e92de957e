// Unified diffs of expected against actual lines.

#include "tools/noxsim/Diff.h"

#include <gtest/gtest.h>

namespace Noxsim {
namespace {

using Lines = std::vector<std::string>;

TEST(DiffTest, EqualListsGiveNoDiff) {
  EXPECT_EQ(unifiedDiff({"a", "b"}, {"a", "b"}, "x", "y"), "");
  EXPECT_EQ(unifiedDiff({}, {}, "x", "y"), "");
}

TEST(DiffTest, AChangedLineShowsRemovalBeforeAddition) {
  EXPECT_EQ(
      unifiedDiff({"source 0", "10 a", "11 b"}, {"source 0", "10 c", "11 b"}, "expected", "actual"),
      "--- expected\n+++ actual\n@@ -1,3 +1,3 @@\n source 0\n-10 a\n+10 c\n 11 b\n");
}

TEST(DiffTest, AnEmptySideNamesTheLineBeforeIt) {
  EXPECT_EQ(unifiedDiff({}, {"a", "b"}, "e", "a"), "--- e\n+++ a\n@@ -0,0 +1,2 @@\n+a\n+b\n");
  EXPECT_EQ(unifiedDiff({"a"}, {}, "e", "a"), "--- e\n+++ a\n@@ -1 +0,0 @@\n-a\n");
}

TEST(DiffTest, DistantChangesMakeSeparateHunksWithThreeLinesOfContext) {
  Lines from;
  for (int i = 0; i < 20; ++i) from.push_back(std::to_string(i));
  Lines to = from;
  to[1] = "one";
  to[15] = "fifteen";
  EXPECT_EQ(unifiedDiff(from, to, "e", "a"),
            "--- e\n+++ a\n"
            "@@ -1,5 +1,5 @@\n 0\n-1\n+one\n 2\n 3\n 4\n"
            "@@ -13,7 +13,7 @@\n 12\n 13\n 14\n-15\n+fifteen\n 16\n 17\n 18\n");
}

TEST(DiffTest, NearbyChangesShareAHunk) {
  Lines from = {"a", "b", "c", "d", "e", "f", "g", "h"};
  Lines to = {"a", "B", "c", "d", "e", "f", "G", "h"};
  EXPECT_EQ(unifiedDiff(from, to, "e", "a"),
            "--- e\n+++ a\n@@ -1,8 +1,8 @@\n a\n-b\n+B\n c\n d\n e\n f\n-g\n+G\n h\n");
}

TEST(DiffTest, KeepsCommonLinesBetweenInsertions) {
  EXPECT_EQ(unifiedDiff({"b", "d"}, {"a", "b", "c", "d"}, "e", "a"),
            "--- e\n+++ a\n@@ -1,2 +1,4 @@\n+a\n b\n+c\n d\n");
}

}  // namespace
}  // namespace Noxsim
