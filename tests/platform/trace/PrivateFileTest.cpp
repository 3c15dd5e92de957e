// Files a traced process creates: nobody else can plant a link or a file under the name and make
// the process write through it, and a file that cannot be used costs one message, not the
// process or its other traces.

#include "platform/trace/PrivateFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/trace/Fleck.h"
#include "platform/vel/Exception.h"
#include "tests/platform/trace/ProgramRun.h"

namespace {

using TraceTest::readFile;
using TraceTest::ScratchDir;
using TraceTest::writeFile;

mode_t modeOf(std::string const& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

std::string refusal(std::string const& path) {
  try {
    ::close(Trace::openPrivateFile(path));
  } catch (Vel::RangeException const& e) {
    return e.what();
  }
  return "";
}

TEST(PrivateFile, NewFilesAreOwnerOnlyAndOursAreNarrowedToOwnerOnly) {
  ScratchDir dir;
  ::close(Trace::openPrivateFile(dir.file("new")));
  EXPECT_EQ(modeOf(dir.file("new")), 0600u);

  writeFile(dir.file("old"), "old contents");
  ASSERT_EQ(::chmod(dir.file("old").c_str(), 0666), 0);
  ::close(Trace::openPrivateFile(dir.file("old"), true));
  EXPECT_EQ(modeOf(dir.file("old")), 0600u);
  EXPECT_EQ(readFile(dir.file("old")), "old contents");  // appending keeps what was there
}

TEST(PrivateFile, PlantedLinksAndSharedFilesAreRefusedAndLeftAlone) {
  ScratchDir dir;
  writeFile(dir.file("target"), "precious");
  mode_t const targetMode = modeOf(dir.file("target"));
  ASSERT_EQ(::symlink(dir.file("target").c_str(), dir.file("link").c_str()), 0);
  EXPECT_EQ(refusal(dir.file("link")), "cannot use " + dir.file("link") + ": is a symbolic link");
  ASSERT_EQ(::symlink(dir.file("nowhere").c_str(), dir.file("dangling").c_str()), 0);
  EXPECT_NE(refusal(dir.file("dangling")), "");
  EXPECT_FALSE(::access(dir.file("nowhere").c_str(), F_OK) == 0);

  ASSERT_EQ(::link(dir.file("target").c_str(), dir.file("hardlink").c_str()), 0);
  EXPECT_EQ(refusal(dir.file("hardlink")),
            "cannot use " + dir.file("hardlink") + ": has other links");
  ASSERT_EQ(::mkdir(dir.file("dir").c_str(), 0700), 0);
  EXPECT_NE(refusal(dir.file("dir")), "");

  EXPECT_EQ(readFile(dir.file("target")), "precious");
  EXPECT_EQ(modeOf(dir.file("target")), targetMode);
}

// The buffer opens itself at the first record; an unusable file is reported once and the
// process goes on tracing to its other sink.
TEST(PrivateFile, FleckBufferBehindAPlantedLinkIsReportedOnceAndTracingGoesOn) {
  ScratchDir dir;
  writeFile(dir.file("target"), "precious");
  ASSERT_EQ(::symlink(dir.file("target").c_str(), dir.file("probe.flk").c_str()), 0);
  auto const run = TraceTest::runProgram({NOX_TRACE_ENV_PROBE},
                                         {"NOX_TRACE=TraceProbe/3", "NOX_FLECK=TraceProbe/9",
                                          "NOX_FLECK_FILE=" + dir.file("probe.flk")});
  EXPECT_EQ(run.status, 0);
  auto const err = TraceTest::linesOf(run.err);
  ASSERT_EQ(err.size(), 2u) << run.err;
  EXPECT_NE(err[0].find("probe level 3"), std::string::npos) << err[0];
  EXPECT_EQ(err[1], "Fleck buffer: cannot use " + dir.file("probe.flk") +
                        ": is a symbolic link; no Fleck records");
  EXPECT_EQ(readFile(dir.file("target")), "precious");
}

// Private files, the Fleck buffer among them, go to XDG_RUNTIME_DIR, else TMPDIR, else /tmp;
// NOX_FLECK_FILE names the buffer outright.
TEST(PrivateFile, DirectoryPrefersTheUsersRuntimeDirectoryThenTmpdir) {
  std::string const buffer = "/nox-fleck-" + std::to_string(getpid()) + ".flk";
  auto const unsetAll = [] {
    for (char const* name : {"XDG_RUNTIME_DIR", "TMPDIR", "NOX_FLECK_FILE"}) unsetenv(name);
  };
  unsetAll();
  EXPECT_EQ(Fleck::defaultPath(), "/tmp" + buffer);
  setenv("TMPDIR", "/var/tmp", 1);
  EXPECT_EQ(Fleck::defaultPath(), "/var/tmp" + buffer);
  setenv("XDG_RUNTIME_DIR", "/run/user/1000", 1);
  EXPECT_EQ(Fleck::defaultPath(), "/run/user/1000" + buffer);
  setenv("NOX_FLECK_FILE", "/somewhere/f.flk", 1);
  EXPECT_EQ(Fleck::defaultPath(), "/somewhere/f.flk");
  unsetAll();
}

TEST(PrivateFile, BufferSizesAreCheckedNotWrapped) {
  EXPECT_EQ(Fleck::parseFileBytes("65536"), 65536u);
  EXPECT_EQ(Fleck::parseFileBytes("64K"), 65536u);
  EXPECT_EQ(Fleck::parseFileBytes("8M"), std::size_t(8) << 20);
  EXPECT_EQ(Fleck::parseFileBytes("64G"), std::size_t(64) << 30);
  for (char const* bad : {"", "0", "-1", "63K", "65G", "1T", "8MB", "M", " 8M",
                          "18446744073709551615K", "99999999999999999999999"}) {
    EXPECT_EQ(Fleck::parseFileBytes(bad), std::nullopt) << bad;
  }
}

}  // namespace
