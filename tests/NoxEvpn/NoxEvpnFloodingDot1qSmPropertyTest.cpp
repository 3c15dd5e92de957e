#include <gtest/gtest.h>

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/cog/YieldPolicy.h"
#include "tests/NoxEvpn/FloodingTestUtil.h"
#include "tests/NoxEvpn/VerifyUtil.h"

// Named as well: suites are compiled several files to a unit, and the flooding property
// tests share helper names.
namespace Dot1qProperty {
namespace {

using NoxTest::intf;

// Plain ports are VLAN members themselves; port-channel members come from other ports, each in
// at most one port-channel, so no physical port is wanted twice for one VLAN.
std::vector<std::string> const memberIntfs = {"Ethernet1", "Ethernet2", "Ethernet3",
                                              "Port-Channel1", "Port-Channel2"};
std::vector<std::string> const lags = {"Port-Channel1", "Port-Channel2"};
std::vector<std::string> const lagPorts = {"Ethernet5", "Ethernet6", "Ethernet7", "Ethernet8"};
constexpr int vlanCount = 3;

enum Op { vlanAdd, vlanDel, memberAdd, memberDel, tagSet, tagDel, lagSet, lagDel, rcSet, tick };
constexpr int opCount = tick + 1;

class Dot1qModel : public NoxTest::FloodingWorld {
 public:
  void apply(int op, int a, int b) {
    Bridging::VlanId const vlan(uint16_t(1 + a % vlanCount));
    switch (Op(op)) {
      case vlanAdd:
        config->vlanConfigIs(vlan);
        break;
      case vlanDel:
        config->vlanConfigDel(vlan);
        break;
      case memberAdd:
        config->vlanConfigIs(vlan)->intfIs(intf(memberIntfs[b % memberIntfs.size()]), true);
        break;
      case memberDel:
        if (auto c = config->vlanConfig(vlan))
          c->intfDel(intf(memberIntfs[b % memberIntfs.size()]));
        break;
      case tagSet:
        tag(vlan.value(), uint16_t(100 + b % 4));
        break;
      case tagDel:
        evpn->vlanToDot1qDel(vlan);
        break;
      case lagSet:
        setLagMembers(a % 2, b);
        break;
      case lagDel:
        ncsd->lagToPortDel(intf(lags[a % 2]));
        break;
      case rcSet:
        rc(Nox::HwProgrammingStatus(b % 3));
        break;
      case tick:  // time passes
        scheduler->advanceBy(b % 7);
        break;
    }
    scheduler->runReady();
  }

  // The ports of `mask` join port-channel `which`; the other port-channel gives them up first.
  void setLagMembers(int which, int mask) {
    std::string const other = lags[1 - which];
    if (auto const otherPorts = ncsd->lagToPortColl().find(intf(other))) {
      Nox::NoxPortList kept = *otherPorts;
      for (std::size_t i = 0; i < lagPorts.size(); ++i) {
        if (mask & (1 << i)) kept.portDel(intf(lagPorts[i]));
      }
      ncsd->lagToPortIs(intf(other), kept);
    }
    Nox::NoxPortList ports;
    for (std::size_t i = 0; i < lagPorts.size(); ++i) {
      if (mask & (1 << i)) ports.portIs(intf(lagPorts[i]));
    }
    ncsd->lagToPortIs(intf(lags[which]), ports);
  }

  // {(port, VLAN) -> tag} for every tagged VLAN and every port its configuration reaches.
  std::map<NoxTest::PortVlan, uint16_t> expected() const {
    std::map<NoxTest::PortVlan, uint16_t> want;
    for (auto [vlan, vlanConfig] : config->vlanConfigColl()) {
      auto const tag = evpn->vlanToDot1qColl().find(vlan);
      if (!tag) continue;
      for (auto member : vlanConfig->intfColl()) {
        if (!Nox::isLag(member.key)) {
          want[{member.key.name(), vlan.value()}] = tag->value();
          continue;
        }
        auto const ports = ncsd->lagToPortColl().find(member.key);
        if (!ports) continue;
        for (auto const& port : ports->portColl()) want[{port.name(), vlan.value()}] = tag->value();
      }
    }
    return want;
  }

  // Lets every pending review run with the hardware accepting everything.
  void settleAccepting() {
    rc(Nox::programmed);
    for (int i = 0; i < 100 && sm->reviewUnprogrammed()->taskScheduled(); ++i) {
      scheduler->advanceBy(5.0);
    }
  }

  Vel::Ptr<Nox::EvpnFloodingDot1qSm> sm = startDot1q();
};

RC_GTEST_PROP(Dot1qProperty, ProgrammedMappingsEqualConfiguredTaggedPortsOnceFailuresStop, ()) {
  auto const ops = *rc::gen::container<std::vector<std::tuple<int, int, int>>>(rc::gen::tuple(
      rc::gen::inRange(0, opCount), rc::gen::inRange(0, 16), rc::gen::inRange(0, 16)));
  auto const quantum = *rc::gen::inRange(0, 4);
  auto const restartAt = *rc::gen::inRange<std::size_t>(0, ops.size() + 1);

  Dot1qModel model;
  model.scheduler->yieldPolicyIs(Vel::Ptr<Cog::YieldPolicy>(new Cog::WorkQuantumYield(quantum)));
  for (std::size_t i = 0; i < ops.size(); ++i) {
    auto const [op, a, b] = ops[i];
    model.apply(op, a, b);
    NoxTest::requireVerified(Nox::verifyDot1q(*model.sm));
    // A restart while the hardware keeps its mappings: the new machine must take over cleanly.
    if (i == restartAt && model.helper->dot1qMappings.empty()) {
      model.sm = nullptr;
      model.sm = model.startDot1q();
    }
  }
  model.settleAccepting();
  RC_ASSERT(!model.sm->reviewUnprogrammed()->taskScheduled());
  RC_ASSERT(model.helper->faults.empty());
  RC_ASSERT(model.helper->dot1qMappings == model.expected());
  RC_ASSERT(model.sm->unprogrammedDot1qColl().count() == 0u);
}

}  // namespace
}  // namespace Dot1qProperty

#endif
