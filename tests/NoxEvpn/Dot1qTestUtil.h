#pragma once

// Driving the dot1q flooding machine in tests: its inputs over a virtual clock, and a recorder
// on the flooding stub that logs every dot1q call and keeps the mappings the hardware would
// hold, per (port, VLAN), noting as faults a create over a live mapping and a delete of a
// mapping that is not programmed with that tag.

#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "platform/cog/Clock.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"

namespace NoxTest {

inline Gantry::IntfId intf(std::string const& name) { return Gantry::IntfId(name); }

class Dot1qHardware : public NoxHelper::EvpnFloodingSmHelperStub::NotifieeConst {
 public:
  explicit Dot1qHardware(Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub const> const& stub)
      : NotifieeConst(stub) {}
  using PortVlan = std::pair<std::string, uint16_t>;
  static PortVlan portVlan(Gantry::IntfId const& port, Bridging::VlanId vlan) {
    return {port.name(), vlan.value()};
  }

  void onCreateVlanToDot1qCount() override {
    auto const* stub = notifier();
    auto const rc = stub->createVlanToDot1qRc();
    PortVlan const key = portVlan(stub->createVlanToDot1qIntfId(), stub->createVlanToDot1qVlanId());
    uint16_t const tag = stub->createVlanToDot1qDot1q().value();
    std::ostringstream call;
    call << "create " << key.first << " " << key.second << " " << tag << " -> " << uint32_t(rc);
    calls.push_back(call.str());
    if (rc != Nox::programmed) return;
    if (mappings.contains(key)) faults.push_back(call.str() + " over a live mapping");
    mappings[key] = tag;
  }
  void onDeleteVlanToDot1qCount() override {
    auto const* stub = notifier();
    PortVlan const key = portVlan(stub->deleteVlanToDot1qIntfId(), stub->deleteVlanToDot1qVlanId());
    uint16_t const tag = stub->deleteVlanToDot1qDot1q().value();
    std::ostringstream call;
    call << "delete " << key.first << " " << key.second << " " << tag;
    calls.push_back(call.str());
    auto const it = mappings.find(key);
    if (it == mappings.end() || it->second != tag) faults.push_back(call.str() + " not programmed");
    if (it != mappings.end()) mappings.erase(it);
  }

  std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

  std::vector<std::string> calls;
  std::map<PortVlan, uint16_t> mappings;
  // Creates over a mapping still programmed, deletes of one not programmed with that tag.
  std::vector<std::string> faults;
};

struct Dot1qInputs {
  Dot1qInputs()
      : clock(new Vel::VirtualClock),
        scheduler(new Cog::TaskScheduler(clock)),
        stub(NoxHelper::evpnFloodingSmHelperStubFactory("flooding")),
        ncsd(Nox::noxCommonSmDataFactory("ncsd")),
        config(Bridging::configFactory()),
        evpn(Evpn::evpnStatusFactory()),
        hardware(stub) {}

  Vel::Ptr<Nox::EvpnFloodingDot1qSm> startMachine() {
    return Nox::evpnFloodingDot1qSmFactory(stub, scheduler, ncsd, config, evpn);
  }
  void member(uint16_t vlan, std::string const& name) {
    config->vlanConfigIs(Bridging::VlanId(vlan))->intfIs(intf(name), true);
  }
  void tag(uint16_t vlan, uint16_t dot1q) {
    evpn->vlanToDot1qIs(Bridging::VlanId(vlan), Bridging::VlanIdOrNone(dot1q));
  }
  void lag(std::string const& name, std::vector<std::string> const& ports) {
    ncsd->lagToPortIs(intf(name), portList(ports));
  }
  void rc(Nox::HwProgrammingStatus status) { stub->createVlanToDot1qRcIs(status); }

  Vel::Ptr<Vel::VirtualClock> clock;
  Vel::Ptr<Cog::TaskScheduler> scheduler;
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> stub;
  Vel::Ptr<Nox::NoxCommonSmData> ncsd;
  Vel::Ptr<Bridging::Config> config;
  Vel::Ptr<Evpn::EvpnStatus> evpn;
  Dot1qHardware hardware;
};

}  // namespace NoxTest
