// The simulated agent's machines and its settling after every command.

#include "tools/noxsim/Sim.h"

#include <algorithm>

#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

// Rounds of outside-agent reactions after which the agents are taken to be feeding each other
// for ever.
constexpr int maxSettleRounds = 1000;

}  // namespace

Sim::Sim(std::ostream& out, std::ostream& err, bool quiet)
    : out_(out),
      err_(err),
      quiet_(quiet),
      traceTap_(new TraceTap(err)),
      hwAgent_(new HwAgent(world_)),
      outsideAgents_{hwAgent_.get()},
      machines_(machineTable().size()) {
  for (auto const& wiring : fecProgrammerTable()) {
    fecProgrammers_.push_back(std::make_unique<FecProgrammer>(world_, wiring));
    outsideAgents_.push_back(fecProgrammers_.back().get());
  }
  Trace::sinkAdd(traceTap_);
}

Sim::~Sim() {
  // Machines go first, downstream ones before the ones that feed them, while the world is whole.
  for (std::size_t m = machines_.size(); m-- > 0;) machines_[m] = nullptr;
  traceTap_->captureLevelIs(-1);
  traceTap_->printLevelIs(-1);
  Trace::sinkDel(traceTap_);
}

void Sim::start(std::vector<int> machines) {
  for (int m : machines) {
    if (running(m)) return fail(cat("machine '", machineTable()[m].name, "' is already started"));
  }
  std::sort(machines.begin(), machines.end());
  for (int m : machines) machines_[m] = machineTable()[m].start(world_);
}

void Sim::stop(std::vector<int> machines) {
  for (int m : machines) {
    if (!running(m)) return fail(cat("machine '", machineTable()[m].name, "' is not started"));
  }
  std::sort(machines.begin(), machines.end(), std::greater<>());
  for (int m : machines) machines_[m] = nullptr;
}

Vel::PtrInterface const* Sim::machine(std::string_view name) const {
  int const index = machineIndex(name);
  return index < 0 ? nullptr : machines_[index].ptr();
}

std::string_view Sim::taskOwner(Cog::Task const& task) const {
  for (std::size_t m = 0; m < machines_.size(); ++m) {
    auto const& wiring = machineTable()[m];
    if (machines_[m] && wiring.ownsTask && wiring.ownsTask(*machines_[m], task)) return wiring.name;
  }
  return {};
}

bool Sim::outputWritable(std::string_view table) {
  for (std::size_t m = 0; m < machines_.size(); ++m) {
    auto const& wiring = machineTable()[m];
    if (!machines_[m]) continue;
    if (std::find(wiring.writes.begin(), wiring.writes.end(), table) != wiring.writes.end()) {
      fail(cat("'", table, "' is written by the running machine '", wiring.name,
               "'; stop it before writing it directly"));
      return false;
    }
  }
  return true;
}

void Sim::drainReady() {
  while (world_.scheduler->readyCount() > 0) world_.scheduler->runReady();
}

void Sim::settle() {
  drainReady();
  for (int round = 0;; ++round) {
    bool changed = false;
    for (OutsideAgent* agent : outsideAgents_) changed |= agent->react();
    if (!changed) return;
    drainReady();
    if (round == maxSettleRounds) {
      return fail(cat("the outside agents and the machines did not settle after ", maxSettleRounds,
                      " rounds"));
    }
  }
}

std::string Sim::location() const { return cat(file_, ":", line_); }

void Sim::fail(std::string_view message) {
  if (!failure_) failure_ = cat(location(), ": ", message);
}

}  // namespace Noxsim
