#pragma once

// noxsim's command line:
//   noxsim [--trace LEVEL] [--shm PREFIX [--shm-group] [--keep-shm]] [--metrics FILE] [--quiet]
//          FILE...
//   noxsim --help
// ('-' reads standard input).

#include <string>
#include <vector>

namespace Noxsim {

struct Options {
  int traceLevel = -1;      // library traces printed to standard error up to this level; -1 none
  bool quiet = false;       // no `show` output
  std::string shmPrefix;    // publish the tables in shared memory under this prefix
  bool shmGroup = false;    // let the owner's group read the published tables
  bool keepShm = false;     // leave the published tables behind when stopped by a signal
  bool help = false;        // print the usage and stop
  std::string metricsFile;  // where the counters go, in the Prometheus text format, at the end
  std::vector<std::string> files;
};

// Empty `error` on success.
Options parseOptions(int argc, char const* const* argv, std::string& error);
std::string usage();

}  // namespace Noxsim
