#pragma once

// Running a parsed scenario on the simulated agent, and noxsim's main program.
//
// Exit statuses: 0 when every expect held; 1 on the first failed expect, a scenario error at run
// time, or a range error that the next line does not expect; 2 on a malformed scenario or
// command line.

#include <iosfwd>

#include "tools/noxsim/Script.h"
#include "tools/noxsim/Sim.h"

namespace Noxsim {

inline constexpr int exitOk = 0;
inline constexpr int exitFailed = 1;
inline constexpr int exitSyntax = 2;

// Runs every step; prints the failure, if any, to the Sim's error stream.
int runScript(Script const& script, Sim& sim);

// The whole program: options, parse, run.
int runMain(int argc, char const* const* argv, std::istream& in, std::ostream& out,
            std::ostream& err);

}  // namespace Noxsim
