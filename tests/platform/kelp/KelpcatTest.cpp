// kelpcat run as another process against tables this test writes: listing, dumping in key order
// and text form, following changes, and its answers to bad arguments and bad tables.

#include <typeinfo>

#include "tests/platform/kelp/KelpTestSupport.h"
#include "tests/platform/trace/MiniJson.h"

#ifdef KELPCAT_PATH

namespace KelpTest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Pair;

// kelpcat with `args`; its standard output and error are the child's channel.
ChildProcess kelpcat(std::vector<std::string> args) {
  args.insert(args.begin(), KELPCAT_PATH);
  return ChildProcess([&args](ChildProcess& self) {
    for (int output : {1, 2}) ::dup2(self.fd(), output);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    return 127;
  });
}

// kelpcat's exit status, and all it printed.
std::pair<int, std::string> run(std::vector<std::string> const& args) {
  auto cat = kelpcat(args);
  std::string out;
  for (std::string line; (line = cat.receive()) != "<none>";) out += line + "\n";
  return {cat.wait(), out};
}

class KelpcatTool : public KelpFixture {};

TEST_F(KelpcatTool, ListShowsEachTableWithItsTypesCountReadinessAndWriter) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  numbers->safeWrite(1, 10);
  numbers->readyIs(true);
  auto points = PointTable::writerNew(table("points"));
  std::string const pid = std::to_string(getpid());
  EXPECT_THAT(run({"--list", prefix_}),
              Pair(0, "NAME\tKEY\tVALUE\tCOUNT\tREADY\tWRITER\n" + table("numbers") +
                          "\tuint64\tuint64\t1\tyes\t" + pid + " (alive)\n" + table("points") +
                          "\t" + typeid(PointKey).name() + "\t" + typeid(Wide).name() +
                          "\t0\tno\t" + pid + " (alive)\n"));
}

TEST_F(KelpcatTool, DumpPrintsEntriesInKeyOrderAsTextOrAsHexForUnknownTypes) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  // 256 precedes 2 in byte order; the registered type orders numerically.
  for (std::uint64_t k : {256, 2, 33}) numbers->safeWrite(k, k * 10);
  auto points = PointTable::writerNew(table("points"));
  points->safeWrite({1, 2}, Wide{3, 4, 5});
  EXPECT_THAT(run({table("numbers")}), Pair(0, "2 -> 20\n33 -> 330\n256 -> 2560\n"));
  EXPECT_THAT(run({table("points")}),
              Pair(0, "0100000002000000 -> 03000000000000000400000005000000\n"));
}

TEST_F(KelpcatTool, FollowPrintsEachChangeUntilItsCount) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  numbers->safeWrite(9, 90);
  auto cat = kelpcat({"--follow", "--count", "3", table("numbers")});
  ASSERT_EQ(cat.receive(), "# following " + table("numbers") + ", 1 entries");
  numbers->safeWrite(1, 10);
  EXPECT_EQ(cat.receive(), "1 -> 10");
  numbers->safeWrite(9, 91);
  EXPECT_EQ(cat.receive(), "9 -> 91");
  numbers->safeRemove(1);
  EXPECT_EQ(cat.receive(), "1 deleted");
  EXPECT_EQ(cat.wait(), 0);
}

// Scripts and scrapers read the same facts as people: every JSON line parses, and the
// exposition has one sample per table and family.
TEST_F(KelpcatTool, JsonAndMetricsCarryTheTablesState) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  for (std::uint64_t k : {256, 2}) numbers->safeWrite(k, k * 10);
  numbers->readyIs(true);
  EXPECT_THAT(run({"--format", "json", table("numbers")}),
              Pair(0, "{\"key\":\"2\",\"value\":\"20\"}\n{\"key\":\"256\",\"value\":\"2560\"}\n"));
  auto const [listStatus, list] = run({"--format", "json", "--list", prefix_});
  EXPECT_EQ(listStatus, 0);
  auto const listed = TraceTest::parseJson(list);
  EXPECT_EQ(listed.at("table").string, table("numbers"));
  EXPECT_EQ(listed.at("count").number, 2);
  EXPECT_TRUE(listed.at("ready").boolean);
  EXPECT_EQ(listed.at("writer_pid").number, double(getpid()));

  std::string const label = "{table=\"" + table("numbers") + "\"} ";
  EXPECT_THAT(run({"--metrics", prefix_}),
              Pair(0, AllOf(HasSubstr("# TYPE kelp_table_entries gauge\nkelp_table_entries" +
                                      label + "2\n"),
                            HasSubstr("kelp_table_ready" + label + "1\n"),
                            HasSubstr("kelp_table_writer_alive" + label + "1\n"),
                            HasSubstr("kelp_table_unreadable" + label + "0\n"))));
  EXPECT_EQ(run({"--format", "yaml", table("numbers")}).first, 2);
}

TEST_F(KelpcatTool, BadArgumentsExitWithTwoAndBadTablesWithOneSayingWhy) {
  // Malformed command lines, then names no table can have.
  for (auto const& args : std::vector<std::vector<std::string>>{
           {}, {"--list"}, {"--follow", "--count", "x", "t.t"}, {"--bogus"}, {"a.b", "c.d"}}) {
    EXPECT_THAT(run(args), Pair(2, HasSubstr("usage: kelpcat")));
  }
  for (auto const& args : std::vector<std::vector<std::string>>{
           {"--list", ""}, {"--list", "a/b"}, {"../etc"}, {"--follow", ".x"}}) {
    EXPECT_THAT(run(args), Pair(2, HasSubstr("usage: kelpcat")));
  }
  EXPECT_THAT(run({"--help"}), Pair(0, HasSubstr("usage: kelpcat")));
  EXPECT_THAT(run({table("absent")}), Pair(1, HasSubstr("no such table")));
  auto numbers = NumberTable::writerNew(table("numbers"));
  Injector(table("numbers")).header().magic = 0xbad;
  EXPECT_THAT(run({"--follow", table("numbers")}),
              Pair(1, HasSubstr("corrupt segment: bad magic 0xbad")));
}

// A slot whose sequence word stays odd while its writer lives would hold a reader for ever.
TEST_F(KelpcatTool, ASlotThatStaysBusyEndsTheDumpInsteadOfSpinning) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  numbers->safeWrite(1, 10);
  Injector(table("numbers")).slot(0)[Kelp::Layout::slotSeqWord] |= 1;
  EXPECT_THAT(run({table("numbers")}), Pair(1, HasSubstr("table busy or corrupt")));
}

}  // namespace
}  // namespace KelpTest

#endif
