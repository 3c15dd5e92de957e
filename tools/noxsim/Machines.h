#pragma once

// The machines noxsim can run, one MachineWiring each: the inputs it reads, the outputs it
// writes and how its factory is called over the World. The table's order is the order in which
// `start` builds machines. Adding a machine is a file with its wiring function (FilterMachine.cpp
// is the model) and one entry in machineTable() (Machines.cpp).

#include <functional>
#include <string_view>
#include <vector>

#include "platform/cog/Task.h"
#include "platform/vel/Ptr.h"
#include "tools/noxsim/World.h"

namespace Noxsim {

struct MachineWiring {
  std::string_view name;
  // The collections the machine reads, by the name of the table that shows them (for the
  // manual and for --machines).
  std::vector<std::string_view> reads;
  // The outputs it alone writes, by table name: a direct write to one of them while the machine
  // runs is an error.
  std::vector<std::string_view> writes;
  // Builds the machine through its factory; the returned reference keeps it alive.
  std::function<Vel::Ptr<Vel::PtrInterface>(World&)> start;
  // Whether a scheduled task is the machine's (for the `tasks` table); machines without tasks
  // leave it empty.
  std::function<bool(Vel::PtrInterface const& machine, Cog::Task const& task)> ownsTask;
};

std::vector<MachineWiring> const& machineTable();
// Index in machineTable(), or -1.
int machineIndex(std::string_view name);

MachineWiring filterMachine();
MachineWiring floodSetFecMachine();
MachineWiring floodSetMachine();
MachineWiring esiMachine();
MachineWiring decapMachine();
MachineWiring macFecMachine();
MachineWiring dot1qMachine();

}  // namespace Noxsim
