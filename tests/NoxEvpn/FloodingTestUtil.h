#pragma once

// Driving the flooding machines (dot1q and ESI) in tests: their inputs over a virtual clock, and
// a flooding stub that logs every call, one line each, and keeps what hardware would hold after
// the calls made so far: the dot1q mappings and ESI data per (port, VLAN), and the hardware
// tunnel ids taken and not released. A dot1q create over a live mapping, and a dot1q delete of a
// mapping not programmed with that tag, are noted as faults.

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "platform/cog/Clock.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"

namespace NoxTest {

using PortVlan = std::pair<std::string, uint16_t>;  // physical port, VLAN

inline Gantry::IntfId intf(std::string const& name) { return Gantry::IntfId(name); }

// What hardware holds as ESI data for one physical port and VLAN.
struct EsiData {
  uint64_t tunnel;
  uint32_t hwTunnelId;
  uint32_t label;
  friend auto operator<=>(EsiData const&, EsiData const&) = default;
};

class RecordingFloodingStub : public NoxHelper::EvpnFloodingSmHelperStub {
 public:
  RecordingFloodingStub() : EvpnFloodingSmHelperStub("flooding") {}

  Nox::HwProgrammingStatus createVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                                    Bridging::VlanIdOrNone dot1q) override {
    auto const rc = EvpnFloodingSmHelperStub::createVlanToDot1qMapping(intfId, vlanId, dot1q);
    PortVlan const key{intfId.name(), vlanId.value()};
    std::string const call =
        text("create ", key.first, " ", key.second, " ", dot1q.value(), " -> ", rc);
    calls.push_back(call);
    if (rc != Nox::programmed) return rc;
    if (dot1qMappings.contains(key)) faults.push_back(call + " over a live mapping");
    dot1qMappings[key] = dot1q.value();
    return rc;
  }
  void deleteVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                Bridging::VlanIdOrNone dot1q) override {
    EvpnFloodingSmHelperStub::deleteVlanToDot1qMapping(intfId, vlanId, dot1q);
    PortVlan const key{intfId.name(), vlanId.value()};
    std::string const call = text("delete ", key.first, " ", key.second, " ", dot1q.value());
    calls.push_back(call);
    auto const it = dot1qMappings.find(key);
    if (it == dot1qMappings.end() || it->second != dot1q.value()) {
      faults.push_back(call + " not programmed");
    }
    if (it != dot1qMappings.end()) dot1qMappings.erase(it);
  }
  Nox::HwProgrammingStatus createEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                         Nox::TunnelId const& tunnelId, Nox::HwTunnelId hwTunnelId,
                                         Gantry::MplsLabel label) override {
    auto const rc =
        EvpnFloodingSmHelperStub::createEsiData(intfId, vlanId, tunnelId, hwTunnelId, label);
    calls.push_back(text("create ", intfId, " ", vlanId, " ", tunnelId, " ", hwTunnelId, " ", label,
                         " -> ", rc));
    if (rc == Nox::programmed) {
      esiData[{intfId.name(), vlanId.value()}] = {tunnelId.value(), hwTunnelId.value(),
                                                  label.value()};
    }
    return rc;
  }
  void deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) override {
    EvpnFloodingSmHelperStub::deleteEsiData(intfId, vlanId);
    calls.push_back(text("delete ", intfId, " ", vlanId));
    esiData.erase({intfId.name(), vlanId.value()});
  }
  Nox::HwTunnelId getHwTunnelId() override {
    Nox::HwTunnelId const id = EvpnFloodingSmHelperStub::getHwTunnelId();
    calls.push_back(text("get -> ", id));
    if (id != Nox::HwTunnelId()) heldIds.insert(id.value());
    return id;
  }
  void releaseHwTunnelId(Nox::HwTunnelId id) override {
    EvpnFloodingSmHelperStub::releaseHwTunnelId(id);
    calls.push_back(text("release ", id));
    heldIds.erase(id.value());
  }

  // The calls since the last look.
  std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

  std::vector<std::string> calls;
  std::map<PortVlan, uint16_t> dot1qMappings;
  std::vector<std::string> faults;
  std::map<PortVlan, EsiData> esiData;
  std::set<uint32_t> heldIds;
};

struct FloodingWorld {
  Vel::Ptr<Nox::EvpnFloodingDot1qSm> startDot1q() {
    return Nox::evpnFloodingDot1qSmFactory(helper, scheduler, ncsd, config, evpn);
  }
  Vel::Ptr<Nox::EvpnFloodingEsiSm> startEsi() {
    return Nox::evpnFloodingEsiSmFactory(helper, scheduler, ncsd, evpn, tunnels);
  }
  void advance(double seconds) { scheduler->advanceBy(seconds); }
  void lag(std::string const& name, std::vector<std::string> const& ports) {
    ncsd->lagToPortIs(intf(name), portList(ports));
  }

  // Dot1q: VLAN membership, tags and the helper's answer.
  void member(uint16_t vlan, std::string const& name) {
    config->vlanConfigIs(Bridging::VlanId(vlan))->intfIs(intf(name), true);
  }
  void tag(uint16_t vlan, uint16_t dot1q) {
    evpn->vlanToDot1qIs(Bridging::VlanId(vlan), Bridging::VlanIdOrNone(dot1q));
  }
  void rc(Nox::HwProgrammingStatus status) { helper->createVlanToDot1qRcIs(status); }

  // ESI: segments, their designated forwarders and remote labels.
  Vel::Ptr<Evpn::EthernetSegmentStatus> segment(std::string const& name) {
    return evpn->segmentStatusIs(intf(name));
  }
  void dfIs(std::string const& name, uint16_t vlan, uint64_t tunnel) {
    segment(name)->designatedForwarderTepIs(Bridging::VlanId(vlan), tepOf(tunnel));
  }
  void dfDel(std::string const& name, uint16_t vlan) {
    segment(name)->designatedForwarderTepDel(Bridging::VlanId(vlan));
  }
  void labelIs(std::string const& name, uint64_t tunnel, uint32_t label,
               Evpn::EncapType encap = Evpn::EncapType::mpls) {
    segment(name)->remoteEsiLabelIs(tepOf(tunnel),
                                    Evpn::EncapTypeLabel(encap, Gantry::MplsLabel(label)));
  }
  static Gantry::IntfId tepOf(uint64_t tunnel) {
    return Gantry::IntfId(Gantry::IntfId::Kind::tunnel, tunnel);
  }
  // The published tunnel table as "tunnel=hwTunnelId" lines.
  std::set<std::string> published() const {
    std::set<std::string> lines;
    for (auto const& entry : tunnels->tunnelIdToHwTunnelIdColl()) {
      lines.insert(text(entry.value.key().value(), "=", entry.value.hwTunnelId().value()));
    }
    return lines;
  }

  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<RecordingFloodingStub> helper{new RecordingFloodingStub};
  Vel::Ptr<Nox::NoxCommonSmData> ncsd = Nox::noxCommonSmDataFactory("ncsd");
  Vel::Ptr<Bridging::Config> config = Bridging::configFactory();
  Vel::Ptr<Evpn::EvpnStatus> evpn = Evpn::evpnStatusFactory();
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels =
      Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
};

}  // namespace NoxTest
