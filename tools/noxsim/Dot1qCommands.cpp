// The bridging configuration (`vlan`), input of the dot1q machine. Its other input, the EVPN
// status's VLAN tags (`evpn dot1q`), is written by the evpn commands.

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"

namespace Noxsim {

namespace {

Bridging::Config& bridging(Sim& sim) { return *sim.world().bridgingConfig; }

Action parseVlanAdd(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const vlan = in.args.vlan(0);
  return [=](Sim& sim) { bridging(sim).vlanConfigIs(vlan); };
}

Action parseVlanDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const vlan = in.args.vlan(0);
  return [=](Sim& sim) { bridging(sim).vlanConfigDel(vlan); };
}

Action parseVlanIntfAdd(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const vlan = a.vlan(0);
  auto const intf = a.intf(1);
  return [=](Sim& sim) { bridging(sim).vlanConfigIs(vlan)->intfIs(intf, true); };
}

Action parseVlanIntfDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const vlan = a.vlan(0);
  auto const intf = a.intf(1);
  return [=](Sim& sim) {
    if (auto const config = bridging(sim).vlanConfig(vlan)) config->intfDel(intf);
  };
}

}  // namespace

std::vector<CommandEntry> dot1qCommands() {
  return {
      {.words = "vlan add", .parse = parseVlanAdd},
      {.words = "vlan del", .parse = parseVlanDel},
      {.words = "vlan intf add", .parse = parseVlanIntfAdd},
      {.words = "vlan intf del", .parse = parseVlanIntfDel},
  };
}

}  // namespace Noxsim
