#pragma once

// noxsim's command line:  noxsim [--trace LEVEL] [--shm PREFIX] [--quiet] FILE...
// ('-' reads standard input).

#include <string>
#include <vector>

namespace Noxsim {

struct Options {
  int traceLevel = -1;    // library traces printed to standard error up to this level; -1 none
  bool quiet = false;     // no `show` output
  std::string shmPrefix;  // publish the tables in shared memory under this prefix
  std::vector<std::string> files;
};

// Empty `error` on success.
Options parseOptions(int argc, char const* const* argv, std::string& error);
std::string usage();

}  // namespace Noxsim
