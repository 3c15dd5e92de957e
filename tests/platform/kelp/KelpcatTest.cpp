// kelpcat run as another process against tables this test writes: listing, dumping in key order
// and text form, following changes, and its answers to bad arguments and bad tables.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <typeinfo>
#include <vector>

#include "platform/kelp/Segment.h"
#include "tests/platform/kelp/ChildProcess.h"
#include "tests/platform/kelp/KelpTestSupport.h"

#ifdef KELPCAT_PATH

namespace KelpTest {
namespace {

class Kelpcat {
 public:
  explicit Kelpcat(std::vector<std::string> args) {
    int out[2];
    int err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0) std::terminate();
    args.insert(args.begin(), KELPCAT_PATH);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], 1);
      ::dup2(err[1], 2);
      std::vector<char*> argv;
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    outFd_ = out[0];
    errFd_ = err[0];
    out_ = LineChannel(outFd_, -1);
  }
  ~Kelpcat() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      wait();
    }
    ::close(outFd_);
    ::close(errFd_);
  }
  std::string line() { return out_.receive(); }
  std::string rest() {
    std::string all;
    for (std::string l = line(); l != "<eof>" && l != "<timeout>"; l = line()) all += l + "\n";
    return all;
  }
  std::string errors() {
    std::string all;
    char chunk[4096];
    for (ssize_t n; (n = ::read(errFd_, chunk, sizeof chunk)) > 0;) {
      all.append(chunk, static_cast<std::size_t>(n));
    }
    return all;
  }
  int wait() {
    int raw = 0;
    ::waitpid(pid_, &raw, 0);
    pid_ = 0;
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  }

 private:
  pid_t pid_ = 0;
  int outFd_ = -1;
  int errFd_ = -1;
  LineChannel out_;
};

class KelpcatTool : public KelpFixture {};

TEST_F(KelpcatTool, ListShowsEachTableWithItsTypesCountReadinessAndWriter) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  numbers->safeWrite(1, 10);
  numbers->safeWrite(2, 20);
  numbers->readyIs(true);
  auto points = PointTable::writerNew(table("points"));
  Kelpcat cat({"--list", prefix()});
  std::string const pid = std::to_string(getpid());
  EXPECT_EQ(cat.rest(), "NAME\tKEY\tVALUE\tCOUNT\tREADY\tWRITER\n" + table("numbers") +
                            "\tuint64\tuint64\t2\tyes\t" + pid + " (alive)\n" + table("points") +
                            "\t" + typeid(PointKey).name() + "\t" + typeid(Wide).name() +
                            "\t0\tno\t" + pid + " (alive)\n");
  EXPECT_EQ(cat.wait(), 0);
}

TEST_F(KelpcatTool, DumpPrintsEntriesInKeyOrderInTheirTextForm) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  // 256 precedes 2 in byte order; the registered type orders numerically.
  for (std::uint64_t k : {256, 2, 33}) numbers->safeWrite(k, k * 10);
  Kelpcat cat({table("numbers")});
  EXPECT_EQ(cat.rest(), "2 -> 20\n33 -> 330\n256 -> 2560\n");
  EXPECT_EQ(cat.wait(), 0);
}

TEST_F(KelpcatTool, UnknownRecordTypesPrintAsHex) {
  auto points = PointTable::writerNew(table("points"));
  points->safeWrite({1, 2}, Wide{3, 4, 5});
  Kelpcat cat({table("points")});
  EXPECT_EQ(cat.rest(), "0100000002000000 -> 03000000000000000400000005000000\n");
  EXPECT_EQ(cat.wait(), 0);
}

TEST_F(KelpcatTool, FollowPrintsEachChangeUntilItsCount) {
  auto numbers = NumberTable::writerNew(table("numbers"));
  numbers->safeWrite(9, 90);
  Kelpcat cat({"--follow", "--count", "3", table("numbers")});
  ASSERT_EQ(cat.line(), "# following " + table("numbers") + ", 1 entries");
  numbers->safeWrite(1, 10);
  EXPECT_EQ(cat.line(), "1 -> 10");
  numbers->safeWrite(9, 91);
  EXPECT_EQ(cat.line(), "9 -> 91");
  numbers->safeRemove(1);
  EXPECT_EQ(cat.line(), "1 deleted");
  EXPECT_EQ(cat.wait(), 0);
}

TEST_F(KelpcatTool, BadArgumentsExitWithTwoAndSayWhy) {
  for (auto const& args : std::vector<std::vector<std::string>>{
           {}, {"--list"}, {"--follow", "--count", "x", "t.t"}, {"--bogus"}, {"a.b", "c.d"}}) {
    Kelpcat cat(args);
    EXPECT_NE(cat.errors().find("usage: kelpcat"), std::string::npos);
    EXPECT_EQ(cat.wait(), 2);
  }
}

TEST_F(KelpcatTool, MissingOrCorruptTableExitsWithOneAndSaysWhy) {
  {
    Kelpcat cat({table("absent")});
    EXPECT_NE(cat.errors().find("no such table"), std::string::npos);
    EXPECT_EQ(cat.wait(), 1);
  }
  auto numbers = NumberTable::writerNew(table("numbers"));
  int const fd = ::shm_open(Kelp::segmentPath(table("numbers")).c_str(), O_RDWR, 0);
  Kelp::Word const bad = 0xbad;
  ASSERT_EQ(::pwrite(fd, &bad, sizeof bad, 0), static_cast<ssize_t>(sizeof bad));
  ::close(fd);
  Kelpcat cat({"--follow", table("numbers")});
  EXPECT_NE(cat.errors().find("corrupt segment: bad magic 0xbad"), std::string::npos);
  EXPECT_EQ(cat.wait(), 1);
}

}  // namespace
}  // namespace KelpTest

#endif
