#pragma once

// Nox::EvpnVlanFloodSetSm turns the MPLS destinations of the (filtered) flood sets into hardware
// configuration: one Nox::MplsDestConfig per VLAN, MAC address and destination, published in
// the pair's Nox::VlanFloodSetConfig once the hardware information of the destination's via is
// known, and re-created whenever that information or the tunnel's hardware id changes.

#include <memory>

#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnFloodSetReactors.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "NoxEvpn/NoxEvpnVlanFloodSet.h"
#include "platform/cog/Clock.h"
#include "platform/vel/Vel.h"

namespace Nox {

class EvpnVlanFloodSetSm : public Vel::PtrInterface, public Vel::Described {
 public:
  using Reactors = FloodSetReactors<EvpnVlanFloodSetSm>;
  using VelFloodSetOutput = Reactors::VelFloodSetOutput;
  using VelVlanFloodSet = Reactors::VelVlanFloodSet;
  using VelFloodSet = Reactors::VelFloodSet;
  static constexpr std::string_view floodSetOutputReactorName = "VelFloodSetOutput";

  // Until the table is ready (its writer has published its initial contents) the machine treats
  // it as absent: lookups miss and its changes are ignored. Once it is ready every tunnel in use
  // is looked at again.
  class VelHwTunnelIdMapping : public TunnelIdToHwTunnelIdMapping::NotifieeConst {
   public:
    VelHwTunnelIdMapping(Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& m,
                         EvpnVlanFloodSetSm* sm)
        : NotifieeConst(m), sm_(sm), ready_(m->tunnelIdToHwTunnelIdControl().ready) {}
    void onTunnelIdToHwTunnelId(TunnelId const& tunnelId) override;
    void onTunnelIdToHwTunnelId() override;
    void onTunnelIdToHwTunnelIdControl() override;
    bool ready() const { return ready_; }
    VEL_DESCRIBE("Nox::EvpnVlanFloodSetSm::VelHwTunnelIdMapping", "hwTunnelIdMapping")

   private:
    EvpnVlanFloodSetSm* sm_;
    bool ready_;
  };

  class VelHwInfoMapping : public HwInfoMapping::NotifieeConst {
   public:
    VelHwInfoMapping(Vel::Ptr<HwInfoMapping const> const& m, EvpnVlanFloodSetSm* sm)
        : NotifieeConst(m), sm_(sm) {}
    void onMapping(MplsFloodSetVia const& via) override;
    VEL_DESCRIBE("Nox::EvpnVlanFloodSetSm::VelHwInfoMapping", "hwInfoMapping")

   private:
    EvpnVlanFloodSetSm* sm_;
  };

  // Watches the status of one flood set (one MAC address and VLAN).
  class VelVlanFloodSetStatus : public VlanFloodSetStatus::NotifieeConst {
   public:
    VelVlanFloodSetStatus(Vel::Ptr<VlanFloodSetStatus const> const& status, EvpnVlanFloodSetSm* sm)
        : NotifieeConst(status), sm_(sm) {}
    Bridging::MacVlanPair const& key() const { return notifier()->key(); }
    void onMplsDestStatus(MplsDestConfig const& config) override;
    void handleVlanFloodSetStatus();
    void handleMplsDestStatus(MplsDestConfig const& config);
    VEL_DESCRIBE("Nox::EvpnVlanFloodSetSm::VelVlanFloodSetStatus", "mplsDestStatus")

   private:
    EvpnVlanFloodSetSm* sm_;
  };

  class VelVlanFloodSetHwStatus : public EvpnVlanFloodSetHwStatus::NotifieeConst {
   public:
    VelVlanFloodSetHwStatus(Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& s,
                            EvpnVlanFloodSetSm* sm);
    void onStatus(Bridging::MacVlanPair const& pair) override;
    VEL_DESCRIBE("Nox::EvpnVlanFloodSetSm::VelVlanFloodSetHwStatus", "vlanFloodSetHwStatus")

   private:
    EvpnVlanFloodSetSm* sm_;
  };

  static Vel::Ptr<EvpnVlanFloodSetSm> EvpnVlanFloodSetSmIs(
      Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
      Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
      Vel::Ptr<HwInfoMapping const> const& hwInfoMapping,
      Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig,
      Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus);

  Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput() const { return floodSetOutput_; }
  Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping() const {
    return hwTunnelIdMapping_;
  }
  Vel::Ptr<HwInfoMapping const> const& hwInfoMapping() const { return hwInfoMapping_; }
  Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig() const {
    return vlanFloodSetHwConfig_;
  }
  Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus() const {
    return vlanFloodSetHwStatus_;
  }
  bool initialized() const { return initialized_; }
  // The clock that dates what waits (the event thread's); without one every time reads 0.
  void clockIs(Vel::Ptr<Vel::Clock const> clock) { clock_ = std::move(clock); }
  // What waits: the destinations whose via has no hardware information, then those published
  // without a hardware tunnel id; each in ascending (VLAN, MAC, destination).
  std::vector<PendingItem> pending() const;

  VEL_DESCRIBE("Nox::EvpnVlanFloodSetSm", "floodSetOutput", "hwTunnelIdMapping", "hwInfoMapping",
               "vlanFloodSetHwConfig", "vlanFloodSetHwStatus", "tunnelToFloodSetEntry",
               "mplsDestHwConfig", "hwInfoMapKeyToFloodSetEntry", "initialized")

 private:
  // The reactors call the handlers and keep the reactor collections.
  friend Reactors::VelFloodSetOutput;
  friend Reactors::VelVlanFloodSet;
  friend Reactors::VelFloodSet;
  friend struct Vel::Internals<EvpnVlanFloodSetSm>;

  EvpnVlanFloodSetSm(Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
                     Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
                     Vel::Ptr<HwInfoMapping const> const& hwInfoMapping,
                     Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig,
                     Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus);

  void handleInitialized();
  // Makes the reverse-index inserts the cold start set aside, if it has not yet.
  void insertSetAside();
  void prefetchMappings(Bridging::VlanId vlan, Gantry::EthAddr const& mac,
                        L2Rib::FloodSet const& floodSet) const;
  // Asks for the places of d's configuration, in the record and in the output.
  void prefetchConfig(VlanMacDest const& d) const;
  void handleVlanFloodSet(VelVlanFloodSet& reactor);
  void handleFloodSet(VelFloodSet& reactor);
  void handleDestSet(VelFloodSet& reactor, L2Rib::Dest const& dest);
  void handleHwTunnelIdMapping(TunnelId const& tunnelId);
  void handleHwTunnelIdMappingReady(bool ready);
  // Every tunnel a destination uses, through handleHwTunnelIdMapping.
  void handleHwTunnelIdMappingAll();
  bool hwTunnelIdMappingReady() const {
    return velHwTunnelIdMapping_ && velHwTunnelIdMapping_->ready();
  }
  void handleHwInfoMapping(MplsFloodSetVia const& via);

  void processMplsDest(Bridging::VlanId vlan, Gantry::EthAddr const& mac, L2Rib::Dest const& dest);
  void updateInternalMapping(VlanMacDest const& d);
  void processMplsDestConfig(VlanMacDest const& d);
  MplsDestConfig createMplsDestConfig(L2Rib::Dest const& dest);
  void addOrUpdateMplsDestHwConfig(VlanMacDest const& d);
  void deleteMplsDestHwConfig(VlanMacDest const& d);
  bool isDestInFloodSet(Bridging::VlanId vlan, Gantry::EthAddr const& mac,
                        L2Rib::Dest const& dest) const;
  bool isMplsDestConfigProgrammed(Bridging::MacVlanPair const& pair,
                                  MplsDestConfig const& config) const;

  // The two workers with the destination's presence in the input already known: it is looked
  // up once per destination, and a destination found through the internal mappings is present.
  void updateInternalMapping(VlanMacDest const& d, bool inFloodSet);
  void processMplsDestConfig(VlanMacDest const& d, bool inFloodSet);
  // Removes a configuration that is no longer this destination's from the pair's entity, and
  // the entity when that leaves it empty.
  void withdrawFromOutput(VlanMacDest const& d, MplsDestConfig const& config);
  // Dates the destination's wait once its configuration is decided.
  void settleWaiting(VlanMacDest const& d, bool inFloodSet);

  // MPLS-only flood sets, watched per VLAN and per MAC address.
  Vel::Ptr<L2Rib::FloodSetOutput const> floodSetOutput_;
  std::unique_ptr<VelFloodSetOutput> velFloodSetOutput_;
  // Tunnel id to hardware tunnel id.
  Vel::Ptr<TunnelIdToHwTunnelIdMapping const> hwTunnelIdMapping_;
  std::unique_ptr<VelHwTunnelIdMapping> velHwTunnelIdMapping_;
  // Via to hardware information.
  Vel::Ptr<HwInfoMapping const> hwInfoMapping_;
  std::unique_ptr<VelHwInfoMapping> velHwInfoMapping_;
  // Per (MAC, VLAN), the configurations to program; this machine is their only writer.
  Vel::Ptr<EvpnVlanFloodSetHwConfig> vlanFloodSetHwConfig_;
  // Per (MAC, VLAN), the programming status of each configuration, watched per pair.
  Vel::Ptr<EvpnVlanFloodSetHwStatus const> vlanFloodSetHwStatus_;
  std::unique_ptr<VelVlanFloodSetHwStatus> velVlanFloodSetHwStatus_;

  // Which flood-set destinations use each tunnel.
  VEL_INTERNAL_ENTITY_COLLECTION(tunnelToFloodSetEntry, TunnelToFloodSetEntry, TunnelId,
                                 TunnelVlanMacDestSet)
  // The configuration last published for each destination (the empty one when none).
  VEL_INTERNAL_VALUE_COLLECTION(mplsDestHwConfig, MplsDestHwConfig, VlanMacDest, MplsDestConfig)
  // Which flood-set destinations use each via.
  VEL_INTERNAL_ENTITY_COLLECTION(hwInfoMapKeyToFloodSetEntry, HwInfoMapKeyToFloodSetEntry,
                                 MplsFloodSetVia, MplsFloodSetViaToVlanMacDestSet)
  // Reactors of the input flood sets and statuses.
  VEL_REACTOR_COLLECTION(vlanFloodSet, Bridging::VlanId, VelVlanFloodSet, L2Rib::VlanFloodSet)
  VEL_REACTOR_COLLECTION(vlanFloodSetStatus, Bridging::MacVlanPair, VelVlanFloodSetStatus,
                         VlanFloodSetStatus)
  bool initialized_ = false;
  // During the cold start, its inserts into the two reverse indexes, set aside.
  struct ColdStartInserts;
  std::unique_ptr<ColdStartInserts> coldStartInserts_;
  Vel::Ptr<Vel::Clock const> clock_;
  // Since when destinations have waited for their via's hardware information, and for their
  // tunnel's hardware id. Both are facts of the via or the tunnel, shared by every destination
  // over it, so the time is kept once per via and per tunnel (a cold start before the hardware
  // tables fill would otherwise record every destination); pending() finds the destinations
  // through the internal mappings. A via's time runs while it is in use without hardware
  // information; a tunnel's from the first configuration published without its hardware id
  // until one is published with it, or the tunnel is no longer in use.
  PendingSince<MplsFloodSetVia> hwInfoSince_;
  PendingSince<TunnelId> hwTunnelIdSince_;
};

Vel::Ptr<EvpnVlanFloodSetSm> evpnVlanFloodSetSmFactory(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<HwInfoMapping const> const& hwInfoMapping,
    Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus);

}  // namespace Nox
