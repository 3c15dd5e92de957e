#pragma once

// noxsim run in this process on a scenario given as standard input, with what it printed.

#include <sstream>
#include <string>
#include <vector>

#include "tools/noxsim/Runner.h"

namespace Noxsim {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

// Runs `scenario` as standard input with the given options.
inline Outcome run(std::string const& scenario, std::vector<char const*> options = {}) {
  std::vector<char const*> argv = {"noxsim"};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.push_back("-");
  std::istringstream in(scenario);
  std::ostringstream out, err;
  int const status = runMain(int(argv.size()), argv.data(), in, out, err);
  return {status, out.str(), err.str()};
}

}  // namespace Noxsim
