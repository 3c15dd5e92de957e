// Child processes and scratch files for the trace tests.

#include "tests/platform/trace/ProgramRun.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

namespace TraceTest {

ProgramRun runProgram(std::vector<std::string> const& argv, std::vector<std::string> const& env) {
  ScratchDir dir;
  std::string const outPath = dir.file("out");
  std::string const errPath = dir.file("err");
  std::vector<std::string> envText;
  for (char** e = environ; *e != nullptr; ++e) envText.emplace_back(*e);
  envText.insert(envText.end(), env.begin(), env.end());
  std::vector<char*> args;
  for (auto const& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  std::vector<char*> envp;
  for (auto const& e : envText) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);

  pid_t const pid = fork();
  if (pid == 0) {
    if (!freopen(outPath.c_str(), "w", stdout) || !freopen(errPath.c_str(), "w", stderr)) {
      _exit(126);
    }
    execve(args[0], args.data(), envp.data());
    _exit(127);
  }
  int wstatus = 0;
  waitpid(pid, &wstatus, 0);
  int const status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  return {status, readFile(outPath), readFile(errPath)};
}

std::vector<std::string> linesOf(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

ScratchDir::ScratchDir() {
  std::string pattern = std::filesystem::temp_directory_path() / "nox-trace-test-XXXXXX";
  path_ = mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

std::string readFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream all;
  all << in.rdbuf();
  return std::move(all).str();
}

void writeFile(std::string const& path, std::string const& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace TraceTest
