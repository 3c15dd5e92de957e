// A whole scenario from any bytes: parsed as one file and, when it parses, run on a fresh
// simulated agent. A malformed line must be refused with a message; a scenario that parses must
// run to its end or to its first failure, whatever it does to the machines.
//
// Except one that makes a helper stub answer what the real helper never does (a port map in
// conflict, which the machine detects before asking; an ESI hardware id refused, which came
// from the helper itself): the machine takes that for a programming error and stops the agent,
// and noxsim aborts as the agent would. Such scenarios are not run.
//
// Running is safe here: without --shm nothing is published in shared memory, and the Fleck
// buffer stays closed. The temporary directory is still a scratch one of our own, so that any
// file a future command might leave behind lands there.

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "platform/trace/Facility.h"
#include "platform/trace/Sink.h"
#include "platform/trace/Trace.h"
#include "tools/noxsim/Lexer.h"
#include "tools/noxsim/Runner.h"
#include "tools/noxsim/Script.h"
#include "tools/noxsim/Sim.h"

namespace {

// Swallows the scenario's output.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return c; }
  std::streamsize xsputn(char const*, std::streamsize n) override { return n; }
};

std::string scratch;

void removeScratch() { ::rmdir(scratch.c_str()); }

// Whether a line of the text sets a helper stub to an answer the real helper never gives.
bool setsForbiddenHelperAnswer(std::string_view text) {
  constexpr std::string_view portMapRc = "createEsiPortMapRc=";
  constexpr std::string_view esiDataRc = "createEsiDataRc=";
  std::vector<std::string_view> words;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t const end = std::min(text.find('\n', at), text.size());
    Noxsim::splitWords(text.substr(at, end - at), words);
    at = end + 1;
    for (std::string_view const word : words) {
      if (word.starts_with(portMapRc) &&
          Noxsim::parseUnsigned(word.substr(portMapRc.size()), UINT32_MAX) == 1) {
        return true;
      }
      if (word.starts_with(esiDataRc) &&
          Noxsim::parseStatus(word.substr(esiDataRc.size())) == Nox::invalidHwId) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char const* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/nox-scenario-fuzz.XXXXXX";
  if (!::mkdtemp(pattern.data())) {
    std::perror("scenario_fuzz: mkdtemp");
    std::exit(1);
  }
  scratch = pattern;
  std::atexit(removeScratch);
  ::setenv("TMPDIR", scratch.c_str(), 1);
  ::unsetenv("NOX_FLECK");
  ::unsetenv("NOX_FLECK_FILE");
  // As noxsim runs a scenario: traces reach the scenario's own tap only, Fleck records nothing.
  Trace::sinkDelAll();
  Fleck::levelIs("*", Trace::levelOff);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  Noxsim::Script script;
  std::string error;
  if (!script.addText("fuzz.nox", text, error)) {
    // Every refusal names the file and the line.
    if (!error.starts_with("fuzz.nox:")) {
      std::fprintf(stderr, "refusal without its place: %s\n", error.c_str());
      std::abort();
    }
    return 0;
  }
  if (setsForbiddenHelperAnswer(text)) return 0;
  NullBuffer null;
  std::ostream out(&null);
  Noxsim::Sim sim(out, out, true);
  (void)Noxsim::runScript(script, sim);
  return 0;
}
