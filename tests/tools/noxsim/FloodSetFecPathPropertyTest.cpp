// The whole MPLS flooding path in one simulated agent: filter, flood-set FEC, flood-set and
// MAC-address FEC machines, with the emulated hardware agent and both FEC programmers. After
// every change of the RIB, of the tunnel table, or of whether the hardware agent keeps up:
//   - every published configuration's via has a FEC whose response gave its hardware information;
//   - every flood-set FEC's via is used by a filtered destination, or a configuration with it is
//     still shown programmed;
//   - every filtered destination over a valid tunnel is published;
//   - no FEC id is shared, between vias or between the two FEC machines;
//   - every machine publishes what a fresh build of it over the same inputs publishes.

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"
#include "tools/noxsim/FecProgrammer.h"
#include "tools/noxsim/HwAgent.h"
#include "tools/noxsim/Machines.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/VerifyCommands.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

#include "tests/NoxEvpn/VerifyUtil.h"

namespace {

using Nox::MplsFloodSetVia;

struct PathOp {
  int kind;  // 0 add dest, 1 del dest, 2 delvlan, 3 tunnel hw id, 4 hw agent on/off, 5 mac host
  int vlan;
  int mac;
  int tunnel;  // 0 is the invalid tunnel id
  int label;
  bool flag;
};

void showValue(PathOp const& op, std::ostream& os) {
  os << "{kind " << op.kind << " vlan " << op.vlan << " mac " << op.mac << " tunnel " << op.tunnel
     << " label " << op.label << (op.flag ? " on" : " off") << "}";
}

L2Rib::Dest mplsDest(PathOp const& op) {
  std::ostringstream text;
  text << "mpls/" << op.tunnel * 10 + op.label << "/Tunnel" << op.tunnel << "/" << 1000 + op.label;
  return *L2Rib::Dest::fromString(text.str());
}

class Path {
 public:
  Path() {
    std::vector<int> machines;
    for (auto name : {"filter", "floodset-fec", "floodset", "macfec"}) {
      machines.push_back(Noxsim::machineIndex(name));
    }
    sim_.start(machines);
    sim_.hwAgent().autoOnIs(true);
    for (std::size_t i = 0; i < Noxsim::fecProgrammerTable().size(); ++i) {
      sim_.fecProgrammer(i).autoOnIs(true);
    }
    sim_.settle();
  }

  void apply(PathOp const& op) {
    Noxsim::World& w = sim_.world();
    auto const vlan = Bridging::VlanId(uint16_t(op.vlan));
    auto const mac = Gantry::EthAddr::fromValue(uint64_t(op.mac));
    switch (op.kind) {
      case 0:
        w.l2ribFloodSets->vlanFloodSetIs(vlan)->floodSetIs(mac)->destSetIs(mplsDest(op), op.flag);
        break;
      case 1:
        if (auto v = w.l2ribFloodSets->vlanFloodSet(vlan)) {
          if (auto f = v->floodSet(mac)) f->destSetDel(mplsDest(op));
        }
        break;
      case 2:
        w.l2ribFloodSets->vlanFloodSetDel(vlan);
        break;
      case 3:
        w.tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(
            Nox::TunnelId(uint64_t(op.tunnel)), Nox::HwTunnelId(op.label)));
        break;
      case 4:
        sim_.hwAgent().autoOnIs(op.flag);
        break;
      default:
        macHost(op);
        break;
    }
    sim_.settle();
  }

  // Every running machine agrees with a fresh build of it.
  void verify() {
    auto const found = Noxsim::verifyMachines(sim_, verifier_);
    RC_ASSERT(found.has_value());
    NoxTest::requireVerified(*found);
  }

  void check() const {
    Noxsim::World& w = const_cast<Noxsim::Sim&>(sim_).world();
    RC_ASSERT(!sim_.failed());
    auto const& sm =
        *static_cast<Nox::EvpnFloodSetFecSm*>(sim_.machine(Noxsim::machineIndex("floodset-fec")));
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

 private:
  // A MAC-address FEC over the same tunnels, so both FEC machines allocate at once.
  void macHost(PathOp const& op) {
    Noxsim::World& w = sim_.world();
    L2Rib::DestId const destId(uint64_t(op.tunnel + 1));
    w.l2ribDests->destIs(
        destId, L2Rib::Dest::tunnel(
                    destId, Gantry::IntfId(Gantry::IntfId::Kind::tunnel, uint64_t(op.tunnel + 1))));
    L2Rib::LabelId const labelId(uint64_t(op.label + 1));
    w.l2ribLabels->labelIs(labelId, L2Rib::LabelAndSource(L2Rib::Label(
                                        Gantry::MplsLabel(uint32_t(2000 + op.label)),
                                        L2Rib::ObjTuple(destId.value(), L2Rib::tableTypeDest_))));
    Bridging::MacVlanPair const host(Gantry::EthAddr::fromValue(uint64_t(op.mac)),
                                     Bridging::VlanId(uint16_t(op.vlan)));
    if (op.flag) {
      w.l2ribHosts->hostIs(
          host, L2Rib::HostAndSource(L2Rib::ObjTuple(labelId.value(), L2Rib::tableTypeLabel_)));
    } else {
      w.l2ribHosts->hostDel(host);
    }
    sim_.world().scheduler->advanceBy(0.5);
  }

  std::ostringstream out_;
  std::ostringstream err_;
  Noxsim::Sim sim_{out_, err_, true};
  // Its scratch tables serve every verification of the run.
  Nox::Verifier verifier_;
};

rc::Gen<PathOp> genPathOp() {
  return rc::gen::construct<PathOp>(rc::gen::inRange(0, 6), rc::gen::inRange(1, 4),
                                    rc::gen::inRange(1, 3), rc::gen::inRange(0, 4),
                                    rc::gen::inRange(0, 3), rc::gen::arbitrary<bool>());
}

RC_GTEST_PROP(FloodSetFecPath, FecsHardwareInformationAndConfigurationsStayConsistent, ()) {
  auto const ops = *rc::gen::container<std::vector<PathOp>>(genPathOp());
  Path path;
  for (PathOp const& op : ops) {
    path.apply(op);
    path.check();
    path.verify();
  }
}

}  // namespace

#endif
