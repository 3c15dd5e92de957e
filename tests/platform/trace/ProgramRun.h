#pragma once

// Runs a program of the build (fleckcat, the environment probe) as a child process and collects
// its exit status and output, for the tests that check what a separate process sees.

#include <string>
#include <vector>

namespace TraceTest {

struct ProgramRun {
  int status;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// `env` entries ("NAME=value") are added to this process's environment for the child.
ProgramRun runProgram(std::vector<std::string> const& argv,
                      std::vector<std::string> const& env = {});

// Lines of a text, without their newlines.
std::vector<std::string> linesOf(std::string const& text);

// A fresh directory for one test's files, removed with its contents when it goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(ScratchDir const&) = delete;
  ScratchDir& operator=(ScratchDir const&) = delete;
  std::string file(std::string const& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& bytes);

}  // namespace TraceTest
