// The `pending` table: what every running machine waits for, and since when. One line per item,
// "MACHINE KEY: REASON since T", machines in start order, each machine's items in its own order.

#include <functional>
#include <map>
#include <string_view>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapSm.h"
#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"
#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"
#include "NoxEvpn/NoxEvpnVlanFloodSetSm.h"
#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "tools/noxsim/Lexer.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

using PendingOf = std::function<std::vector<Nox::PendingItem>(Vel::PtrInterface const&)>;

template <class Machine>
PendingOf pendingOf() {
  return [](Vel::PtrInterface const& machine) {
    return static_cast<Machine const&>(machine).pending();
  };
}

// Machine name -> its items.
std::map<std::string_view, PendingOf> const& pendingTable() {
  static std::map<std::string_view, PendingOf> const table = {
      {"filter", pendingOf<Nox::VlanFloodSetFilterSm>()},
      {"floodset-fec", pendingOf<Nox::EvpnFloodSetFecSm>()},
      {"floodset", pendingOf<Nox::EvpnVlanFloodSetSm>()},
      {"esi", pendingOf<Nox::EvpnFloodingEsiSm>()},
      {"dot1q", pendingOf<Nox::EvpnFloodingDot1qSm>()},
      {"decap", pendingOf<Nox::EsiFilteringDecapSm>()},
      {"macfec", pendingOf<Nox::NoxMacAddrFecRequestSm>()},
  };
  return table;
}

void printPending(Sim& sim, TableLines& lines) {
  for (MachineWiring const& wiring : machineTable()) {
    Vel::PtrInterface const* machine = sim.machine(wiring.name);
    auto const found = pendingTable().find(wiring.name);
    if (!machine || found == pendingTable().end()) continue;
    for (Nox::PendingItem const& item : found->second(*machine)) {
      lines.entries.push_back(
          cat(item.machine, " ", item.key, ": ", item.reason, " since ", secondsText(item.since)));
    }
  }
}

}  // namespace

std::vector<TableEntry> pendingTables() { return {{"pending", printPending, false}}; }

}  // namespace Noxsim
