#pragma once

// noxsim run in this process on a scenario given as standard input, with what it printed; and
// script texts run one after another on a Sim of the test's own.

#include <deque>
#include <sstream>
#include <string>
#include <string_view>
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

// Runs `text` on `sim`; gives "" when it ran to the end with every expect holding, else why not.
// The Sim names a script's file in its messages, so `scripts` keeps them as long as the Sim lives.
inline std::string runText(Sim& sim, std::deque<Script>& scripts, std::string_view text) {
  Script& script = scripts.emplace_back();
  std::string error;
  if (!script.addText("test", text, error)) return error;
  int const status = runScript(script, sim);
  return status == exitOk ? std::string() : "exit status " + std::to_string(status);
}

}  // namespace Noxsim
