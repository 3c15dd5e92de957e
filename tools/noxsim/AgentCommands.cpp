// Commands that drive the agent: machines, time, the yield policy and trace capture.

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/kelp/VelKelp.h"

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

std::string machineNames() {
  std::string names;
  for (auto const& wiring : machineTable()) {
    names += cat(names.empty() ? "" : ", ", wiring.name);
  }
  return names;
}

// The named machines, by table index; all of them when none is named and `allIfNone`.
std::vector<int> machineArgs(Args& a, bool allIfNone) {
  std::vector<int> machines;
  if (a.count() == 0) {
    if (!allIfNone) a.fail(cat("names no machine (machines: ", machineNames(), ")"));
    for (std::size_t m = 0; m < machineTable().size(); ++m) machines.push_back(int(m));
    return machines;
  }
  for (std::string_view name : a.positional()) {
    int const m = machineIndex(name);
    if (m < 0) {
      a.fail(cat("unknown machine '", name, "' (machines: ", machineNames(), ")"));
    } else if (std::find(machines.begin(), machines.end(), m) != machines.end()) {
      a.fail(cat("machine '", name, "' named twice"));
    }
    machines.push_back(m);
  }
  return machines;
}

Action parseStart(ParseInput& in) {
  auto const machines = machineArgs(in.args, true);
  return [machines](Sim& sim) { sim.start(machines); };
}

Action parseStop(ParseInput& in) {
  auto const machines = machineArgs(in.args, false);
  return [machines](Sim& sim) { sim.stop(machines); };
}

Action parseRestart(ParseInput& in) {
  auto const machines = machineArgs(in.args, false);
  return [machines](Sim& sim) {
    sim.stop(machines);
    if (!sim.failed()) sim.start(machines);
  };
}

Action parseAdvance(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const seconds = parseSeconds(in.args.word(0));
  if (!seconds) in.args.fail(cat("bad number of seconds '", in.args.word(0), "'"));
  // Past this a clock would stop meaning anything (and with --shm it would be slept through).
  constexpr double horizon = 1e9;
  if (seconds && *seconds > horizon) {
    in.args.fail(cat("seconds '", in.args.word(0), "' beyond the horizon of 1000000000"));
  }
  double const s = seconds.value_or(0);
  return [s](Sim& sim) {
    // With the tables published (--shm), virtual time also passes in real time, so that another
    // process (kelpcat --follow) can watch them while the scenario runs.
    if (!VelKelp::publishPrefix().empty()) {
      std::this_thread::sleep_for(std::chrono::duration<double>(s));
    }
    sim.world().scheduler->advanceBy(s);
  };
}

Action parseYield(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const quantum = in.args.number(0);
  return [quantum](Sim& sim) {
    sim.world().scheduler->yieldPolicyIs(
        Vel::Ptr<Cog::YieldPolicy>(new Cog::WorkQuantumYield(quantum)));
  };
}

Action parseTrace(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const level = parseTraceLevel(in.args.word(0));
  if (!level) in.args.fail(cat("bad trace level '", in.args.word(0), "' (0-9 or off)"));
  int const l = level.value_or(-1);
  return [l](Sim& sim) { sim.traceTap().captureLevelIs(l); };
}

}  // namespace

std::vector<CommandEntry> agentCommands() {
  return {
      {"start", parseStart},     {"stop", parseStop},   {"restart", parseRestart},
      {"advance", parseAdvance}, {"yield", parseYield}, {"trace", parseTrace},
  };
}

}  // namespace Noxsim
