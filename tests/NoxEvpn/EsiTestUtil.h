#pragma once

// Scaffolding of the ESI flooding machine's tests: its inputs and output on a virtual clock,
// and a flooding stub that keeps, besides the stub's own record, the ESI data and hardware
// tunnel ids that hardware would hold after the calls made so far.

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "platform/cog/Clock.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"

namespace NoxTest {

// What hardware holds for one physical port and VLAN.
struct EsiData {
  uint64_t tunnel;
  uint32_t hwTunnelId;
  uint32_t label;
  friend auto operator<=>(EsiData const&, EsiData const&) = default;
};
using EsiKey = std::pair<std::string, uint16_t>;  // physical port, VLAN

class RecordingFloodingStub : public NoxHelper::EvpnFloodingSmHelperStub {
 public:
  RecordingFloodingStub() : EvpnFloodingSmHelperStub("flooding") {}

  Nox::HwProgrammingStatus createEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                         Nox::TunnelId const& tunnelId, Nox::HwTunnelId hwTunnelId,
                                         Gantry::MplsLabel label) override {
    auto const rc =
        EvpnFloodingSmHelperStub::createEsiData(intfId, vlanId, tunnelId, hwTunnelId, label);
    std::ostringstream os;
    os << "create " << intfId << " " << vlanId << " " << tunnelId << " " << hwTunnelId << " "
       << label << " -> " << rc;
    calls.push_back(os.str());
    if (rc == Nox::programmed) {
      hardware[{intfId.name(), vlanId.value()}] = {tunnelId.value(), hwTunnelId.value(),
                                                   label.value()};
    }
    return rc;
  }
  void deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) override {
    EvpnFloodingSmHelperStub::deleteEsiData(intfId, vlanId);
    std::ostringstream os;
    os << "delete " << intfId << " " << vlanId;
    calls.push_back(os.str());
    hardware.erase({intfId.name(), vlanId.value()});
  }
  Nox::HwTunnelId getHwTunnelId() override {
    Nox::HwTunnelId const id = EvpnFloodingSmHelperStub::getHwTunnelId();
    calls.push_back("get -> " + std::to_string(id.value()));
    if (id != Nox::HwTunnelId()) heldIds.insert(id.value());
    return id;
  }
  void releaseHwTunnelId(Nox::HwTunnelId id) override {
    EvpnFloodingSmHelperStub::releaseHwTunnelId(id);
    calls.push_back("release " + std::to_string(id.value()));
    heldIds.erase(id.value());
  }

  // The calls since the last look, one line each.
  std::vector<std::string> takeCalls() {
    std::vector<std::string> taken;
    taken.swap(calls);
    return taken;
  }

  std::vector<std::string> calls;
  std::map<EsiKey, EsiData> hardware;
  std::set<uint32_t> heldIds;
};

struct EsiWorld {
  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<RecordingFloodingStub> helper{new RecordingFloodingStub};
  Vel::Ptr<Nox::NoxCommonSmData> ncsd = Nox::noxCommonSmDataFactory("ncsd");
  Vel::Ptr<Evpn::EvpnStatus> evpn = Evpn::evpnStatusFactory();
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels =
      Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");

  Vel::Ptr<Nox::EvpnFloodingEsiSm> start() {
    return Nox::evpnFloodingEsiSmFactory(helper, scheduler, ncsd, evpn, tunnels);
  }
  Vel::Ptr<Evpn::EthernetSegmentStatus> segment(std::string const& intf) {
    return evpn->segmentStatusIs(Gantry::IntfId(intf));
  }
  void dfIs(std::string const& intf, uint16_t vlan, uint64_t tunnel) {
    segment(intf)->designatedForwarderTepIs(Bridging::VlanId(vlan), tepOf(tunnel));
  }
  void dfDel(std::string const& intf, uint16_t vlan) {
    segment(intf)->designatedForwarderTepDel(Bridging::VlanId(vlan));
  }
  void labelIs(std::string const& intf, uint64_t tunnel, uint32_t label,
               Evpn::EncapType encap = Evpn::EncapType::mpls) {
    segment(intf)->remoteEsiLabelIs(tepOf(tunnel),
                                    Evpn::EncapTypeLabel(encap, Gantry::MplsLabel(label)));
  }
  void lagIs(std::string const& lag, std::vector<std::string> const& ports) {
    ncsd->lagToPortIs(Gantry::IntfId(lag), portList(ports));
  }
  void advance(double seconds) { scheduler->advanceBy(seconds); }

  static Gantry::IntfId tepOf(uint64_t tunnel) {
    return Gantry::IntfId(Gantry::IntfId::Kind::tunnel, tunnel);
  }
  // The published table as "tunnel=hwTunnelId" lines.
  std::set<std::string> published() const {
    std::set<std::string> lines;
    for (auto const& entry : tunnels->tunnelIdToHwTunnelIdColl()) {
      lines.insert(std::to_string(entry.value.key().value()) + "=" +
                   std::to_string(entry.value.hwTunnelId().value()));
    }
    return lines;
  }
};

}  // namespace NoxTest
