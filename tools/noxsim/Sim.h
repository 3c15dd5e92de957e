#pragma once

// The simulated forwarding agent: the World, the machines that run over it, the emulated outside
// agents and the trace tap, on one event thread driven by the scenario's commands.
//
// A command is a function of the Sim. It validates everything before it changes anything; an
// error of the scenario itself (starting a started machine, an expect that does not hold) is
// recorded with fail() and ends the run with exit status 1. The framework's range error
// (Vel::RangeException) propagates out of the command to the runner, which lets the next line
// be `expect error`.

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/noxsim/FecProgrammer.h"
#include "tools/noxsim/HwAgent.h"
#include "tools/noxsim/Machines.h"
#include "tools/noxsim/TraceTap.h"
#include "tools/noxsim/World.h"

namespace Noxsim {

class Sim {
 public:
  // `out` receives `show` output (nothing when quiet), `err` diffs, messages and printed traces.
  Sim(std::ostream& out, std::ostream& err, bool quiet);
  ~Sim();
  Sim(Sim const&) = delete;
  Sim& operator=(Sim const&) = delete;

  World& world() { return world_; }
  std::ostream& out() { return out_; }
  std::ostream& err() { return err_; }
  bool quiet() const { return quiet_; }
  TraceTap& traceTap() { return *traceTap_; }
  HwAgent& hwAgent() { return *hwAgent_; }
  // The FEC programmer of the wiring at `index` in fecProgrammerTable().
  FecProgrammer& fecProgrammer(std::size_t index) { return *fecProgrammers_[index]; }

  // Machines, by index in machineTable().
  bool running(int machine) const { return bool(machines_[machine]); }
  // The running machine, or null.
  Vel::PtrInterface* machine(int machine) const { return machines_[machine].ptr(); }
  // The running machine of that name, or null.
  Vel::PtrInterface const* machine(std::string_view name) const;
  // Start (in table order) or stop the machines; each must be stopped (started) before.
  void start(std::vector<int> machines);
  void stop(std::vector<int> machines);
  // The running machine whose task this is, or an empty view.
  std::string_view taskOwner(Cog::Task const& task) const;
  // Fails unless no running machine writes the output named `table`.
  bool outputWritable(std::string_view table);

  // Runs ready tasks until none is ready, then lets the outside agents react and runs the tasks
  // they made ready, until nothing changes.
  void settle();

  // Where the current command comes from, for messages; `file` outlives the run.
  void locationIs(std::string_view file, uint32_t line) {
    file_ = file;
    line_ = line;
  }
  // "FILE:LINE".
  std::string location() const;
  // Records the scenario's failure (the first one) as "FILE:LINE: message".
  void fail(std::string_view message);
  bool failed() const { return failure_.has_value(); }
  std::string const& failure() const { return *failure_; }

  // The range error of the previous command, kept for `expect error`.
  std::optional<std::string> const& pendingError() const { return pendingError_; }
  void pendingErrorIs(std::optional<std::string> error) { pendingError_ = std::move(error); }

 private:
  void drainReady();

  std::ostream& out_;
  std::ostream& err_;
  bool const quiet_;
  World world_;
  Vel::Ptr<TraceTap> traceTap_;
  std::unique_ptr<HwAgent> hwAgent_;
  std::vector<std::unique_ptr<FecProgrammer>> fecProgrammers_;
  // Reacting in this order after every command.
  std::vector<OutsideAgent*> outsideAgents_;
  std::vector<Vel::Ptr<Vel::PtrInterface>> machines_;
  std::string_view file_;
  uint32_t line_ = 0;
  std::optional<std::string> failure_;
  std::optional<std::string> pendingError_;
};

}  // namespace Noxsim
