// The machine table: every machine noxsim can start, in start order.

#include "tools/noxsim/Machines.h"

namespace Noxsim {

std::vector<MachineWiring> const& machineTable() {
  static std::vector<MachineWiring> const table = {
      filterMachine(), floodSetFecMachine(), floodSetMachine(), esiMachine(),
      dot1qMachine(),  decapMachine(),       macFecMachine(),
  };
  return table;
}

int machineIndex(std::string_view name) {
  auto const& table = machineTable();
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (table[i].name == name) return int(i);
  }
  return -1;
}

}  // namespace Noxsim
