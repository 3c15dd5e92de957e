// Random noxsim commands on one simulated agent, every running machine checked after each command
// against a fresh build of it over the same inputs (but for the differences the verification
// explains). The names are few, so that commands meet each other's state. Two groups:
//   - the ESI, dot1q and decap machines: segments, designated forwarders, ESI labels, dot1q
//     tags, port-channel members, VLAN members, LFIB routes, via sets and filter vias, helpers
//     that fail and recover, time for the reviews, and machines stopped and started again;
//   - the whole MPLS flooding path (filter, flood-set FEC, flood-set and MAC-address FEC
//     machines, the emulated hardware agent and both FEC programmers): RIB flood sets, the
//     tunnel table, whether the hardware agent keeps up, and MAC-address FECs over the same
//     tunnels, so that both FEC machines allocate at once. The path also keeps the invariants
//     between its machines that no one machine's verification sees (checkFloodPath).

#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <sstream>
#include <string>

#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"
#include "tests/tools/noxsim/RunOutcome.h"
#include "tools/noxsim/Machines.h"
#include "tools/noxsim/VerifyCommands.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

#include "tests/NoxEvpn/VerifyUtil.h"

namespace {

using Nox::MplsFloodSetVia;

struct AgentOp {
  int kind;
  int a;
  int b;
  int c;
  int d;
  bool flag;
};

void showValue(AgentOp const& op, std::ostream& os) {
  os << "{kind " << op.kind << " " << op.a << " " << op.b << " " << op.c << " " << op.d
     << (op.flag ? " on" : " off") << "}";
}

std::string num(int n) { return std::to_string(n); }

class Agent {
 public:
  explicit Agent(std::string const& setup) { run(setup); }

  void run(std::string const& text) {
    RC_LOG() << text << "\n";
    RC_ASSERT(Noxsim::runText(sim_, scripts_, text) == "");
  }

  // Every running machine; a stopped one keeps what it last wrote, which nothing fresh stands for.
  void verify() {
    auto const found = Noxsim::verifyMachines(sim_, verifier_);
    RC_ASSERT(found.has_value());
    NoxTest::requireVerified(*found);
  }

  Noxsim::Sim& sim() { return sim_; }

 private:
  std::deque<Noxsim::Script> scripts_;
  std::ostringstream out_;
  std::ostringstream err_;
  Noxsim::Sim sim_{out_, err_, true};
  // Its scratch tables serve every verification of the run.
  Nox::Verifier verifier_;
};

// ESI, dot1q and decap: a, b and c pick names, one to three of each.
std::string floodingCommand(AgentOp const& op) {
  static char const* const floodingRc[] = {"programmed", "notProgrammed", "invalidHwId"};
  static int const decapRc[] = {0, 2, 3, 7};
  std::string const lag = "Port-Channel" + num(op.a);
  std::string const vlan = num(10 * op.b);
  std::string const tep = "Tunnel" + num(op.c);
  auto const port = [](int n) { return "Ethernet" + num(n); };
  switch (op.kind) {
    case 0:
      return op.flag ? "evpn df set " + lag + " " + vlan + " " + tep
                     : "evpn df del " + lag + " " + vlan;
    case 1:
      return op.flag ? "evpn esilabel set " + lag + " " + tep + " " + num(1000 + op.b)
                     : "evpn esilabel del " + lag + " " + tep;
    case 2:
      return op.flag ? "evpn dot1q set " + vlan + " " + num(100 + op.c) : "evpn dot1q del " + vlan;
    case 3:
      return op.flag ? "lag set " + lag + " " + port(op.b) + " " + port(op.c) : "lag del " + lag;
    case 4:
      return std::string(op.flag ? "vlan intf add " : "vlan intf del ") + vlan + " " + lag;
    case 5:
      return (op.flag ? "evpn segment add " : "evpn segment del ") + lag;
    case 6:
      // The ESI helper has no hardware id to refuse: invalidHwId is its caller's error.
      return std::string("helper flooding set createEsiDataRc=") + floodingRc[op.b % 2] +
             " createVlanToDot1qRc=" + floodingRc[op.c % 3] +
             " hwTunnelIdExhausted=" + (op.flag && op.a == 1 ? "true" : "false");
    case 7:
      return "helper decap set createEsiPortMapRc=" + num(decapRc[op.b % 4]);
    case 8:
      return op.flag ? "lfib route set " + num(1000 + op.a) + " viaset=" + num(op.b)
                     : "lfib route del " + num(1000 + op.a);
    case 9:
      // The first via decides: a filter via, or another type that the machine skips.
      return op.flag
                 ? "lfib viaset set " + num(op.b) + " " + (op.c == 3 ? "5/1 6/1" : "6/" + num(op.c))
                 : "lfib viaset del " + num(op.b);
    case 10:
      return op.flag ? "lfib esfilter set 6/" + num(op.c) + " " + port(op.a)
                     : "lfib esfilter del 6/" + num(op.c);
    default:
      return "advance " + num(op.flag ? 10 : 3);
  }
}

constexpr int machineOp = 12;

// Stops a running machine or restarts it, and starts a stopped one.
std::string machineCommand(AgentOp const& op, std::set<std::string>& stopped) {
  static char const* const machines[] = {"esi", "dot1q", "decap"};
  std::string const machine = machines[op.b % 3];
  if (stopped.erase(machine)) return "start " + machine;
  if (!op.flag) stopped.insert(machine);
  return (op.flag ? "restart " : "stop ") + machine;
}

RC_GTEST_PROP(FloodingVerify, EsiDot1qAndDecapAgreeWithAFreshBuildAfterEveryCommand, ()) {
  // At full size every kind and name is as likely as another; a small size would keep to the
  // first few.
  auto const ops = *rc::gen::container<std::vector<AgentOp>>(rc::gen::resize(
      100, rc::gen::construct<AgentOp>(rc::gen::inRange(0, machineOp + 1), rc::gen::inRange(1, 3),
                                       rc::gen::inRange(1, 4), rc::gen::inRange(1, 4),
                                       rc::gen::just(0), rc::gen::arbitrary<bool>())));
  Agent agent("start esi dot1q decap\nhwagent auto on");
  std::set<std::string> stopped;
  for (AgentOp const& op : ops) {
    agent.run(op.kind == machineOp ? machineCommand(op, stopped) : floodingCommand(op));
    agent.verify();
  }
}

// The flooding path: a is the VLAN, b the MAC, c the tunnel (0 is the invalid tunnel id), d the
// label. Kinds: 0 add a destination, 1 delete it, 2 delete the VLAN, 3 map the tunnel, 4 the
// hardware agent on or off, 5 a MAC-address FEC host set or deleted.
std::string pathCommand(AgentOp const& op) {
  std::string const vlanMac = num(op.a) + " 00:00:00:00:00:0" + num(op.b);
  std::string const dest =
      "mpls/" + num(op.c * 10 + op.d) + "/Tunnel" + num(op.c) + "/" + num(1000 + op.d);
  std::string const destId = num(op.c + 1);
  std::string const labelId = num(op.d + 1);
  switch (op.kind) {
    case 0:
      return "l2rib floodset add " + vlanMac + " " + dest + (op.flag ? "" : " flag=false");
    case 1:
      return "l2rib floodset del " + vlanMac + " " + dest;
    case 2:
      return "l2rib floodset delvlan " + num(op.a);
    case 3:
      return "tunnels set " + num(op.c) + " " + num(op.d);
    case 4:
      return std::string("hwagent auto ") + (op.flag ? "on" : "off");
    default:
      return "l2rib dest set tunnel/" + destId + "/Tunnel" + destId + "\nl2rib label set " +
             labelId + " " + num(2000 + op.d) + " next=dest:" + destId + "\n" +
             (op.flag ? "l2rib host set " + vlanMac + " label:" + labelId
                      : "l2rib host del " + vlanMac) +
             "\nadvance 0.5";
  }
}

// After the path settles:
//   - every published configuration's via has a FEC whose response gave its hardware information;
//   - every flood-set FEC's via is used by a filtered destination, or a configuration with it is
//     still shown programmed;
//   - every filtered destination over a valid tunnel is published;
//   - no FEC id is shared, between vias or between the two FEC machines.
void checkFloodPath(Noxsim::Sim& sim) {
  Noxsim::World& w = sim.world();
  RC_ASSERT(!sim.failed());
  auto const& sm =
      *static_cast<Nox::EvpnFloodSetFecSm*>(sim.machine(Noxsim::machineIndex("floodset-fec")));
  std::set<MplsFloodSetVia> published;
  for (auto [pair, config] : w.hwConfig->configColl()) {
    for (auto [c, flag] : config->mplsDestConfigColl()) {
      MplsFloodSetVia const via(c.tunnelId(), c.label());
      published.insert(via);
      auto const fecId = sm.mplsFloodSetViaCacheColl().find(via);
      RC_ASSERT(fecId != nullptr);
      RC_ASSERT(w.floodSetFecResponse->hwFecIdIsMemberOf(*fecId));
      RC_ASSERT(c.hwIdForTunnelProgramming() == w.floodSetFecResponse->hwFecId(*fecId).hwFecId());
      RC_ASSERT(c.l2IntfId() == w.floodSetFecResponse->l2IntfId(*fecId).l2IntfId());
    }
  }
  std::set<MplsFloodSetVia> used;
  for (auto [vlan, vlanFloodSet] : w.filteredFloodSets->vlanFloodSetColl()) {
    for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) {
      for (auto [dest, flag] : floodSet->destSetColl()) {
        MplsFloodSetVia const via(dest.destDataMpls().tunnelId(), dest.destDataMpls().label);
        if (via.tunnelId() == Nox::TunnelId::invalid()) continue;
        used.insert(via);
        RC_ASSERT(published.count(via) == 1u);
      }
    }
  }
  std::set<MplsFloodSetVia> programmed;
  for (auto [pair, status] : w.hwStatus->statusColl()) {
    for (auto [c, value] : status->mplsDestStatusColl()) {
      if (value == Nox::programmed) programmed.insert(MplsFloodSetVia(c.tunnelId(), c.label()));
    }
  }
  std::set<MplsFloodSetVia> fecVias;
  for (auto const& entry : w.floodSetFecRequest->fecColl()) {
    RC_ASSERT(entry.key.adjType() == Nox::EvpnFloodSetFecSm::fecAdjType);
    Kelp::Fib::Via const& fibVia = entry.value.via(0);
    MplsFloodSetVia const via(fibVia.tunnelId(), fibVia.mplsLabel());
    RC_ASSERT(fecVias.insert(via).second);
    RC_ASSERT(used.count(via) + programmed.count(via) > 0u);
  }
  for (auto const& entry : w.macFecRequest->fecColl()) {
    RC_ASSERT(!w.floodSetFecRequest->fecIsMemberOf(entry.key));
  }
}

RC_GTEST_PROP(FloodSetFecPath, FecsHardwareInformationAndConfigurationsStayConsistent, ()) {
  auto const ops = *rc::gen::container<std::vector<AgentOp>>(rc::gen::construct<AgentOp>(
      rc::gen::inRange(0, 6), rc::gen::inRange(1, 4), rc::gen::inRange(1, 3),
      rc::gen::inRange(0, 4), rc::gen::inRange(0, 3), rc::gen::arbitrary<bool>()));
  Agent agent(
      "start filter floodset-fec floodset macfec\nhwagent auto on\n"
      "fecprogrammer floodset auto on\nfecprogrammer mac auto on");
  for (AgentOp const& op : ops) {
    agent.run(pathCommand(op));
    checkFloodPath(agent.sim());
    agent.verify();
  }
}

}  // namespace

#endif
