// Inputs of the dot1q machine: the bridging configuration (`vlan`) and the EVPN status's VLAN
// tags (`evpn dot1q`).

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

Action parseDot1qSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const vlan = a.vlan(0);
  auto const tag = Bridging::VlanIdOrNone(a.vlan(1));
  return [=](Sim& sim) { sim.world().evpnStatus->vlanToDot1qIs(vlan, tag); };
}

Action parseDot1qDel(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const vlan = in.args.vlan(0);
  return [=](Sim& sim) { sim.world().evpnStatus->vlanToDot1qDel(vlan); };
}

}  // namespace

std::vector<CommandEntry> dot1qCommands() {
  return {
      {.words = "vlan add", .parse = parseVlanAdd},
      {.words = "vlan del", .parse = parseVlanDel},
      {.words = "vlan intf add", .parse = parseVlanIntfAdd},
      {.words = "vlan intf del", .parse = parseVlanIntfDel},
      {.words = "evpn dot1q set", .parse = parseDot1qSet},
      {.words = "evpn dot1q del", .parse = parseDot1qDel},
  };
}

}  // namespace Noxsim
