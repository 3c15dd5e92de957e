#pragma once

// Nox::EvpnFloodSetFecSm gives every MPLS flood via (tunnel and label) that some flood set uses a
// one-via FEC of its own, asks the FEC programmer for its hardware FEC id, and copies the answer
// into Nox::HwInfoMapping, which the flood-set machine waits for before it publishes a
// destination's configuration.
//
// A FEC outlives the last flood-set entry that uses it for as long as the hardware status still
// shows a configuration with its via programmed, and its FEC id is freed only when both the
// request and the programmer's response are gone, so an id is never reused while the hardware
// may still refer to it. Everything is recomputed synchronously on each change; there is no
// backlog and no review task.

#include <memory>
#include <set>
#include <string_view>

#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnFloodSetReactors.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "NoxEvpn/NoxEvpnVlanFloodSet.h"
#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "platform/cog/NumAllocator.h"
#include "platform/cog/TimerWheel.h"
#include "platform/vel/Vel.h"

namespace Nox {

class EvpnFloodSetFecSm : public Vel::PtrInterface, public Vel::Described {
 public:
  using Reactors = FloodSetReactors<EvpnFloodSetFecSm>;
  using VelFloodSetOutput = Reactors::VelFloodSetOutput;
  using VelVlanFloodSet = Reactors::VelVlanFloodSet;
  using VelFloodSet = Reactors::VelFloodSet;
  static constexpr std::string_view floodSetOutputReactorName = "VelFloodSetOutput";
  // Flood-set FEC ids carry this adjacency type; MAC-address FEC ids another, so they never meet.
  static constexpr uint8_t fecAdjType = 12;

  // Until the table is ready (its writer has published its initial contents) the machine treats
  // it as absent: lookups miss and its changes are ignored. Once it is ready every tunnel in use
  // is looked at again.
  class VelHwTunnelIdMapping : public TunnelIdToHwTunnelIdMapping::NotifieeConst {
   public:
    VelHwTunnelIdMapping(Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& m,
                         EvpnFloodSetFecSm* sm)
        : NotifieeConst(m), sm_(sm), ready_(m->tunnelIdToHwTunnelIdControl().ready) {}
    void onTunnelIdToHwTunnelId(TunnelId const& tunnelId) override;
    void onTunnelIdToHwTunnelId() override;
    void onTunnelIdToHwTunnelIdControl() override;
    bool ready() const { return ready_; }
    VEL_DESCRIBE("Nox::EvpnFloodSetFecSm::VelHwTunnelIdMapping", "hwTunnelIdMapping")

   private:
    EvpnFloodSetFecSm* sm_;
    bool ready_;
  };

  // Watches the hardware status of one flood set (one MAC address and VLAN).
  class VelVlanFloodSetStatus : public VlanFloodSetStatus::NotifieeConst {
   public:
    VelVlanFloodSetStatus(Vel::Ptr<VlanFloodSetStatus const> const& status, EvpnFloodSetFecSm* sm)
        : NotifieeConst(status), sm_(sm) {}
    Bridging::MacVlanPair const& key() const { return notifier()->key(); }
    void onMplsDestStatus(MplsDestConfig const& config) override;
    void handleVlanFloodSetStatus();
    VEL_DESCRIBE("Nox::EvpnFloodSetFecSm::VelVlanFloodSetStatus", "mplsDestStatus")

   private:
    EvpnFloodSetFecSm* sm_;
  };

  class VelVlanFloodSetHwStatus : public EvpnVlanFloodSetHwStatus::NotifieeConst {
   public:
    VelVlanFloodSetHwStatus(Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& s,
                            EvpnFloodSetFecSm* sm);
    void onStatus(Bridging::MacVlanPair const& pair) override;
    VEL_DESCRIBE("Nox::EvpnFloodSetFecSm::VelVlanFloodSetHwStatus", "vlanFloodSetHwStatus")

   private:
    EvpnFloodSetFecSm* sm_;
  };

  class VelMplsFloodSetFecResponse : public FecIdToHwFecIdResponse::NotifieeConst {
   public:
    VelMplsFloodSetFecResponse(Vel::Ptr<FecIdToHwFecIdResponse const> const& r,
                               EvpnFloodSetFecSm* sm)
        : NotifieeConst(r), sm_(sm) {}
    void onHwFecId(FecId const& fecId) override;
    void onHwFecId() override;
    VEL_DESCRIBE("Nox::EvpnFloodSetFecSm::VelMplsFloodSetFecResponse", "mplsFloodSetFecResponse")

   private:
    EvpnFloodSetFecSm* sm_;
  };

  static Vel::Ptr<EvpnFloodSetFecSm> EvpnFloodSetFecSmIs(
      Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
      Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
      Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus,
      Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest,
      Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse,
      Vel::Ptr<HwInfoMapping> const& hwInfoMapping, Vel::Ptr<Cog::TimerWheel> const& timerWheel);

  Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput() const { return floodSetOutput_; }
  Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping() const {
    return hwTunnelIdMapping_;
  }
  Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus() const {
    return vlanFloodSetHwStatus_;
  }
  Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest() const {
    return mplsFloodSetFecRequest_;
  }
  Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse() const {
    return mplsFloodSetFecResponse_;
  }
  Vel::Ptr<HwInfoMapping> const& hwInfoMapping() const { return hwInfoMapping_; }
  Vel::Ptr<Cog::TimerWheel> const& timerWheel() const { return timerWheel_; }
  // What waits: the FEC ids whose request has no response yet, in fecIdCache's order, then the
  // destinations over the invalid tunnel id, in ascending order.
  std::vector<PendingItem> pending() const;
  Vel::Ptr<Cog::NumAllocator> const& numAllocator() const { return numAllocator_; }
  Cog::NumAllocatorConfig const& numAllocatorConfig() const { return numAllocatorConfig_; }
  Vel::Ptr<Cog::NumAllocatorStatus> const& numAllocatorStatus() const {
    return numAllocatorStatus_;
  }
  bool initialized() const { return initialized_; }

  void handleInitialized();
  void handleVlanFloodSet(VelVlanFloodSet& reactor);
  void handleFloodSet(VelFloodSet& reactor);
  void handleDestSet(VelFloodSet& reactor, L2Rib::Dest const& dest);
  void handleHwTunnelIdMapping(TunnelId const& tunnelId);
  void handleMplsDestStatus(Bridging::MacVlanPair const& pair, MplsDestConfig const& config);
  void handleFecResponse(FecId const& fecId);

  void processMplsDest(Bridging::VlanId vlan, Gantry::EthAddr const& mac, L2Rib::Dest const& dest);
  // With republish the FEC and request are written even when unchanged: the write tells the
  // programmer to look at the via's tunnel again. Otherwise an unchanged pair is left alone.
  void processFecRequest(MplsFloodSetVia const& via, bool republish);
  void createOrUpdateFecRequest(MplsFloodSetVia const& via, bool republish);
  void removeFecRequest(MplsFloodSetVia const& via);
  void maybeDeleteFecId(FecId const& fecId);
  FecId getOrAllocateFecId(MplsFloodSetVia const& via);
  FecId indexToFecId(int64_t index) const;
  Kelp::Fib::Fec buildFec(FecId const& fecId, MplsFloodSetVia const& via) const;
  void updateCachesForFecId(FecId const& fecId, MplsFloodSetVia const& via, bool isDelete);
  void updateTunnelInfoCache(MplsFloodSetVia const& via, bool add);
  bool isDestInFloodSet(Bridging::VlanId vlan, Gantry::EthAddr const& mac,
                        L2Rib::Dest const& dest) const;
  bool isMplsDestConfigProgrammed(Bridging::MacVlanPair const& pair,
                                  MplsDestConfig const& config) const;
  // Whether the pair's status shows some configuration of the via programmed.
  bool isViaProgrammed(Bridging::MacVlanPair const& pair, MplsFloodSetVia const& via) const;

  VEL_DESCRIBE("Nox::EvpnFloodSetFecSm", "floodSetOutput", "hwTunnelIdMapping",
               "vlanFloodSetHwStatus", "mplsFloodSetFecRequest", "mplsFloodSetFecResponse",
               "hwInfoMapping", "timerWheel", "tunnelInfoCache", "floodSetEntryCache",
               "floodSetStatusCache", "mplsFloodSetViaCache", "fecIdCache", "numAllocator",
               "initialized")

 private:
  EvpnFloodSetFecSm(Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
                    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
                    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus,
                    Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest,
                    Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse,
                    Vel::Ptr<HwInfoMapping> const& hwInfoMapping,
                    Vel::Ptr<Cog::TimerWheel> const& timerWheel);

  void updateFloodSetEntryCache(VlanMacDest const& d, MplsFloodSetVia const& via, bool inFloodSet);

  // Inputs: MPLS-only flood sets, hardware tunnel ids, the hardware status of flood sets.
  Vel::Ptr<L2Rib::FloodSetOutput const> floodSetOutput_;
  std::unique_ptr<VelFloodSetOutput> velFloodSetOutput_;
  Vel::Ptr<TunnelIdToHwTunnelIdMapping const> hwTunnelIdMapping_;
  std::unique_ptr<VelHwTunnelIdMapping> velHwTunnelIdMapping_;
  Vel::Ptr<EvpnVlanFloodSetHwStatus const> vlanFloodSetHwStatus_;
  std::unique_ptr<VelVlanFloodSetHwStatus> velVlanFloodSetHwStatus_;
  // FEC records and requests out, the programmer's answers in, hardware information out.
  Vel::Ptr<FecIdToHwFecIdRequest> mplsFloodSetFecRequest_;
  Vel::Ptr<FecIdToHwFecIdResponse const> mplsFloodSetFecResponse_;
  std::unique_ptr<VelMplsFloodSetFecResponse> velMplsFloodSetFecResponse_;
  Vel::Ptr<HwInfoMapping> hwInfoMapping_;
  // The allocator's clock.
  Vel::Ptr<Cog::TimerWheel> timerWheel_;

 public:
  // The vias with a FEC on each tunnel, to re-publish them when its hardware id changes.
  VEL_INTERNAL_ENTITY_COLLECTION(tunnelInfoCache, TunnelInfoCache, TunnelId,
                                 TunnelIdToMplsFloodSetVia)

 public:
  // The flood-set entries that use each via.
  VEL_INTERNAL_ENTITY_COLLECTION(floodSetEntryCache, FloodSetEntryCache, MplsFloodSetVia,
                                 MplsFloodSetViaToVlanMacDestSet)

 public:
  // The flood sets whose hardware status shows a configuration of each via programmed.
  VEL_INTERNAL_ENTITY_COLLECTION(floodSetStatusCache, FloodSetStatusCache, MplsFloodSetVia,
                                 MplsFloodSetViaToFloodSetStatus)

 public:
  // The FEC id of each via, and back; a FEC id stays until request and response are both gone.
  VEL_INTERNAL_VALUE_COLLECTION(mplsFloodSetViaCache, MplsFloodSetViaCache, MplsFloodSetVia, FecId)

 public:
  VEL_INTERNAL_VALUE_COLLECTION(fecIdCache, FecIdCache, FecId, MplsFloodSetVia)

 public:
  // Reactors of the input flood sets and statuses.
  VEL_REACTOR_COLLECTION(vlanFloodSet, Bridging::VlanId, VelVlanFloodSet, L2Rib::VlanFloodSet)

 public:
  VEL_REACTOR_COLLECTION(vlanFloodSetStatus, Bridging::MacVlanPair, VelVlanFloodSetStatus,
                         VlanFloodSetStatus)

 private:
  Cog::NumAllocatorConfig numAllocatorConfig_;
  Vel::Ptr<Cog::NumAllocatorStatus> numAllocatorStatus_;
  Vel::Ptr<Cog::NumAllocator> numAllocator_;
  bool initialized_ = false;
  // Since when each published request has had no response, and each destination over the
  // invalid tunnel id (which gets no FEC) has been in the flood sets.
  PendingSince<FecId> requestSince_;
  PendingSince<VlanMacDest, VlanMacDestOrder> invalidTunnelSince_;
  // FEC ids the allocator handed out while the programmer still answered them for the machine
  // before a restart: the answer names that machine's FEC in hardware, so the id stays taken,
  // unused, until the answer is withdrawn.
  std::set<FecId> answeredBefore_;
};

Vel::Ptr<EvpnFloodSetFecSm> evpnFloodSetFecSmFactory(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus,
    Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse,
    Vel::Ptr<HwInfoMapping> const& hwInfoMapping, Vel::Ptr<Cog::TimerWheel> const& timerWheel);

}  // namespace Nox
