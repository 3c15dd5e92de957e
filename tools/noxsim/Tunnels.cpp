// The published tunnel-id table: `tunnels set/del` write it directly (it is the esi machine's
// output), `show tunnels` prints it in key order.

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

Action parseTunnelSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const tunnelId = a.number(0);
  auto const hwTunnelId = Nox::HwTunnelId(uint32_t(a.number(1, UINT32_MAX)));
  return [=](Sim& sim) {
    if (!sim.outputWritable("tunnels")) return;
    Nox::TunnelIdToHwTunnelId const entry(Nox::TunnelId(tunnelId), hwTunnelId);
    sim.world().tunnels->tunnelIdToHwTunnelIdIs(entry);
  };
}

Action parseTunnelDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const tunnelId = in.args.number(0);
  return [=](Sim& sim) {
    if (!sim.outputWritable("tunnels")) return;
    sim.world().tunnels->tunnelIdToHwTunnelIdDel(Nox::TunnelId(tunnelId));
  };
}

void printTunnels(Sim& sim, TableLines& lines) {
  for (auto const& entry : sim.world().tunnels->tunnelIdToHwTunnelIdColl()) {
    Nox::TunnelIdToHwTunnelId const& value = entry.value;
    lines.entries.push_back(
        cat("tunnel=", value.key().value(), " hwTunnelId=", value.hwTunnelId().value()));
  }
}

}  // namespace

std::vector<CommandEntry> tunnelCommands() {
  return {
      {.words = "tunnels set", .parse = parseTunnelSet},
      {.words = "tunnels del", .parse = parseTunnelDel},
  };
}

std::vector<TableEntry> tunnelTables() { return {{"tunnels", printTunnels}}; }

}  // namespace Noxsim
