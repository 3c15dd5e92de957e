// Tables of the agent itself: counters, scheduled tasks, the clock, and the log of
// hardware-helper calls.

#include "platform/trace/Counters.h"
#include "tools/noxsim/Lexer.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

void printCounters(Sim&, TableLines& lines) {
  for (auto const& [name, value] : Trace::counters()) {
    lines.entries.push_back(cat(name, "=", value));
  }
}

void printTasks(Sim& sim, TableLines& lines) {
  sim.world().scheduler->forEachScheduledTask([&](Cog::Task& task, std::optional<double> due) {
    std::string_view owner = sim.taskOwner(task);
    if (owner.empty()) owner = "agent";
    lines.entries.push_back(cat(owner, " ", task.name(), " due=", due ? secondsText(*due) : "now"));
  });
}

void printTime(Sim& sim, TableLines& lines) {
  lines.entries.push_back(secondsText(sim.world().clock->now()));
}

// The log is read once: showing or expecting it starts a new one.
void printCalls(Sim& sim, TableLines& lines) {
  lines.entries.swap(sim.world().calls);
  sim.world().calls.clear();
}

}  // namespace

std::vector<TableEntry> agentTables() {
  return {
      {"counters", printCounters},
      {"tasks", printTasks},
      {"time", printTime},
      {"calls", printCalls, false},
  };
}

}  // namespace Noxsim
