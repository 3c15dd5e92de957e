// Commands of the MPLS flood path: the layer-2 RIB's flood sets, the hardware status and its
// emulated agent, and direct writes of the via hardware information.

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Sim.h"

namespace Noxsim {

namespace {

using Bridging::MacVlanPair;

L2Rib::FloodSetOutput& floodSets(Sim& sim) { return *sim.world().l2ribFloodSets; }

Vel::Ptr<L2Rib::FloodSet> floodSetIfAny(Sim& sim, Bridging::VlanId vlan, Gantry::EthAddr mac) {
  auto const vlanFloodSet = floodSets(sim).vlanFloodSet(vlan);
  return vlanFloodSet ? vlanFloodSet->floodSet(mac) : nullptr;
}

Action parseSource(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const source = uint32_t(in.args.number(0, UINT32_MAX));
  return [source](Sim& sim) { floodSets(sim).sourceIs(source); };
}

Action parseAdd(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(3)) return {};
  auto const vlan = a.vlan(0);
  auto const mac = a.mac(1);
  auto const dest = a.dest(2);
  bool const flag = a.boolOption("flag", true);
  return [=](Sim& sim) {
    floodSets(sim).vlanFloodSetIs(vlan)->floodSetIs(mac)->destSetIs(dest, flag);
  };
}

Action parseDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(3)) return {};
  auto const vlan = a.vlan(0);
  auto const mac = a.mac(1);
  auto const dest = a.dest(2);
  return [=](Sim& sim) {
    if (auto const floodSet = floodSetIfAny(sim, vlan, mac)) floodSet->destSetDel(dest);
  };
}

Action parseType(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(3)) return {};
  auto const vlan = a.vlan(0);
  auto const mac = a.mac(1);
  auto const type = L2Rib::FloodSetType(a.number(2, UINT32_MAX));
  return
      [=](Sim& sim) { floodSets(sim).vlanFloodSetIs(vlan)->floodSetIs(mac)->floodSetTypeIs(type); };
}

Action parseDelMac(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const vlan = a.vlan(0);
  auto const mac = a.mac(1);
  return [=](Sim& sim) {
    if (auto const vlanFloodSet = floodSets(sim).vlanFloodSet(vlan)) vlanFloodSet->floodSetDel(mac);
  };
}

Action parseDelVlan(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  auto const vlan = in.args.vlan(0);
  return [=](Sim& sim) { floodSets(sim).vlanFloodSetDel(vlan); };
}

Action parseStatusSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(4)) return {};
  auto const vlan = a.vlan(0);
  MacVlanPair const pair(a.mac(1), vlan);
  auto const config = a.config(2);
  auto const status = a.status(3);
  return [=](Sim& sim) {
    auto const value = config.config();
    sim.world().hwStatus->statusIs(pair)->mplsDestStatusIs(value, status);
  };
}

Action parseStatusDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2, 3)) return {};
  auto const vlan = a.vlan(0);
  MacVlanPair const pair(a.mac(1), vlan);
  if (a.count() == 2) return [=](Sim& sim) { sim.world().hwStatus->statusDel(pair); };
  auto const config = a.config(2);
  return [=](Sim& sim) {
    auto const value = config.config();
    if (auto const status = sim.world().hwStatus->status(pair)) status->mplsDestStatusDel(value);
  };
}

Action parseHwAgentAuto(ParseInput& in) {
  if (!in.args.countIs(1)) return {};
  bool const on = in.args.onOff(0);
  return [on](Sim& sim) { sim.hwAgent().autoOnIs(on); };
}

Action parseHwInfoSet(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(4)) return {};
  auto const tunnelId = a.number(0);
  auto const label = a.label(1);
  auto const hwId = a.number(2);
  auto const l2Intf = a.intf(3);
  return [=](Sim& sim) {
    if (!sim.outputWritable("hwinfo")) return;
    Nox::MplsFloodSetVia const via(Nox::TunnelId(tunnelId), label);
    sim.world().hwInfo->mappingIs(via, Nox::MplsDestHwInfo(hwId, l2Intf));
  };
}

Action parseHwInfoDel(ParseInput& in) {
  Args& a = in.args;
  if (!a.countIs(2)) return {};
  auto const tunnelId = a.number(0);
  auto const label = a.label(1);
  return [=](Sim& sim) {
    if (!sim.outputWritable("hwinfo")) return;
    sim.world().hwInfo->mappingDel(Nox::MplsFloodSetVia(Nox::TunnelId(tunnelId), label));
  };
}

}  // namespace

std::vector<CommandEntry> floodSetCommands() {
  return {
      {"l2rib floodset source", parseSource}, {"l2rib floodset add", parseAdd},
      {"l2rib floodset del", parseDel},       {"l2rib floodset type", parseType},
      {"l2rib floodset delmac", parseDelMac}, {"l2rib floodset delvlan", parseDelVlan},
      {"hwstatus set", parseStatusSet},       {"hwstatus del", parseStatusDel},
      {"hwagent auto", parseHwAgentAuto},     {"hwinfo set", parseHwInfoSet},
      {"hwinfo del", parseHwInfoDel},
  };
}

}  // namespace Noxsim
