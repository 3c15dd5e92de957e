#pragma once

// Nox::EvpnFloodingEsiSm programs, for every ethernet-segment interface and VLAN that has a
// remote designated forwarder, the ESI label that BUM traffic flooded towards that forwarder
// must carry, so the forwarder can apply split horizon. It reads the EVPN status and the
// port-channel membership, takes one hardware tunnel id per designated-forwarder tunnel from
// the flooding helper, publishes it in the tunnel-id table, and programs ESI data on every
// physical port of the interface. What cannot be programmed yet waits in unprogrammedTunnel
// and unprogrammedEsi for the review task.

#include <memory>
#include <optional>
#include <vector>

#include "NoxEvpn/NoxCommon.h"
#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/cog/TimerTask.h"
#include "platform/types/Evpn/Evpn.h"
#include "platform/vel/Reactor.h"

namespace Nox {

class EvpnFloodingEsiSm : public Vel::PtrInterface, public Vel::Described {
 public:
  // Watches the segment statuses coming and going.
  class VelEvpnStatus : public Evpn::EvpnStatus::NotifieeConst {
   public:
    VelEvpnStatus(Vel::Ptr<Evpn::EvpnStatus const> const& status, EvpnFloodingEsiSm* sm);
    void onSegmentStatus(Gantry::IntfId const& intf) override;
    VEL_DESCRIBE("Nox::EvpnFloodingEsiSm::VelEvpnStatus", "segmentStatus")

   private:
    EvpnFloodingEsiSm* sm_;
  };

  // Watches one segment: its designated-forwarder teps and the labels remote teps advertised.
  class VelSegmentStatus : public Evpn::EthernetSegmentStatus::NotifieeConst {
   public:
    VelSegmentStatus(Vel::Ptr<Evpn::EthernetSegmentStatus const> const& segment,
                     EvpnFloodingEsiSm* sm)
        : NotifieeConst(segment), sm_(sm) {}
    Gantry::IntfId const& key() const { return notifier()->key(); }
    void onDesignatedForwarderTep(Bridging::VlanId const& vlan) override { handleDFTep(vlan); }
    void onRemoteEsiLabel(Gantry::IntfId const& tep) override { handleLabel(tep); }
    void handleSegmentStatus();
    void handleDFTep(Bridging::VlanId vlan);
    void handleLabel(Gantry::IntfId const& tepIntf);
    VEL_DESCRIBE("Nox::EvpnFloodingEsiSm::VelSegmentStatus", "designatedForwarderTep",
                 "remoteEsiLabel")

   private:
    EvpnFloodingEsiSm* sm_;
  };

  class VelNcsd : public NoxCommonSmData::NotifieeConst {
   public:
    VelNcsd(Vel::Ptr<NoxCommonSmData const> const& ncsd, EvpnFloodingEsiSm* sm)
        : NotifieeConst(ncsd), sm_(sm) {}
    void onLagToPort(Gantry::IntfId const& lag) override;
    VEL_DESCRIBE("Nox::EvpnFloodingEsiSm::VelNcsd", "lagToPort")

   private:
    EvpnFloodingEsiSm* sm_;
  };

  class VelReviewUnprogrammed : public Cog::Task::Notifiee {
   public:
    explicit VelReviewUnprogrammed(EvpnFloodingEsiSm* sm) : sm_(sm) {}
    void onTaskRun() override;

   private:
    EvpnFloodingEsiSm* sm_;
  };

  static constexpr double reviewInterval = 5.0;
  static constexpr Cog::TaskPriority reviewPriority = 2;

  static Vel::Ptr<EvpnFloodingEsiSm> EvpnFloodingEsiSmIs(
      Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
      Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
      Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus,
      Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId);
  ~EvpnFloodingEsiSm() override;

  Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper() const {
    return floodingHelper_;
  }
  Vel::Ptr<Cog::TaskScheduler> const& scheduler() const { return scheduler_; }
  Vel::Ptr<NoxCommonSmData const> const& ncsd() const { return ncsd_; }
  Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus() const { return evpnStatus_; }
  Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId() const {
    return tunnelIdHwTunnelId_;
  }
  Vel::Ptr<Cog::TimerTask> const& reviewUnprogrammed() const { return reviewUnprogrammed_; }
  double unprogrammedRetryInterval() const { return unprogrammedRetryInterval_; }
  bool initialized() const { return initialized_; }
  // What waits, in this order: each tunnel without a hardware tunnel id (the helper's ids are
  // exhausted) followed by the pairs behind it, then the pairs whose ESI data the helper
  // refused, each in its collection's order.
  std::vector<PendingItem> pending() const;

  void handleInitialized();
  void handleLagPort(Gantry::IntfId const& intf);

  void addIntfVlanMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void deleteIntfVlanMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void processIntfVlan(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void decideIntfVlan(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void revisitTunnelsPublishedLate();
  // Both return false when nothing was written and no helper was called (nothing notified).
  bool addOrUpdateIntfVlanTunnelMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                                        TunnelId const& tunnelId);
  void deleteIntfVlanTunnelMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void addOrUpdateIntfVlanTunnelLabelMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                                             TunnelId const& tunnelId, Gantry::MplsLabel label);
  void deleteIntfVlanTunnelLabelMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                                        TunnelId const& tunnelId);
  void programEsi(Gantry::IntfId const& intf, Bridging::VlanId vlan, Gantry::MplsLabel label);
  void programEsiHelper(Gantry::IntfId const& logIntfId, Gantry::IntfId const& phyIntfId,
                        Bridging::VlanId vlan, Gantry::MplsLabel label);
  void unprogramEsi(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void unprogramEsiHelper(Gantry::IntfId const& logIntfId, Gantry::IntfId const& phyIntfId,
                          Bridging::VlanId vlan);
  bool publishTunnel(TunnelId const& tunnelId);
  void unpublishTunnel(TunnelId const& tunnelId);
  void maybeScheduleUnprogrammedReview(bool immediate);
  void doReviewUnprogrammed();

  VEL_DESCRIBE("Nox::EvpnFloodingEsiSm", "floodingHelper", "scheduler", "ncsd", "evpnStatus",
               "tunnelIdHwTunnelId", "intfVlanSet", "vlanIntfSet", "intfVlanTunnel",
               "tunnelIntfVlanSet", "intfTunnelVlanSet", "intfVlanTunnelLabel", "segmentStatus",
               "unprogrammedTunnel", "unprogrammedEsi", "esiStatus", "reviewUnprogrammed")

 private:
  EvpnFloodingEsiSm(Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
                    Vel::Ptr<Cog::TaskScheduler> const& scheduler,
                    Vel::Ptr<NoxCommonSmData const> const& ncsd,
                    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus,
                    Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId);

  // What programming the ports of one pair needs: its tunnel, the tunnel's hardware id and the
  // pair's status (only when the id is published; null until a port needs it). Looked up for
  // the first port, or handed down by the decision that has just read them, and again only
  // after something that may notify, since a watcher may then have changed any of them.
  struct PairTarget {
    TunnelId tunnel;
    std::optional<HwTunnelId> hwTunnelId;
    Vel::Ptr<IntfVlanStatus> status;
  };
  // The working operations of the same name, with what the caller already knows of the pair.
  // `published` is set to the tunnel's hardware id when it was published already (nothing was
  // written then, whatever else changed).
  bool addOrUpdateIntfVlanTunnelMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                                        TunnelId const& tunnelId,
                                        std::optional<HwTunnelId>& published);
  bool publishTunnel(TunnelId const& tunnelId, std::optional<HwTunnelId>& published);
  void addOrUpdateIntfVlanTunnelLabelMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                                             TunnelId const& tunnelId, Gantry::MplsLabel label,
                                             std::optional<PairTarget>& target);
  void programEsi(Gantry::IntfId const& intf, Bridging::VlanId vlan, Gantry::MplsLabel label,
                  std::optional<PairTarget>& target);
  // What programEsi saw of a member port in the pair's status, good while nothing notified.
  enum class Seen { unknown, programmed, notProgrammed };
  // programEsiHelper for one port with the pair's target; drops the target when it notified.
  // A port seen one way or the other need not be looked up in the status again.
  void programEsiPort(Gantry::IntfId const& logIntfId, Gantry::IntfId const& phyIntfId,
                      Bridging::VlanId vlan, Gantry::MplsLabel label,
                      std::optional<PairTarget>& target, Seen seen);
  // The hardware tunnel id published for a tunnel, if any.
  std::optional<HwTunnelId> publishedHwTunnelId(TunnelId const& tunnelId) const;
  // True when the review must stop here; it is then rescheduled after the review interval.
  bool reviewYields();

  Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> floodingHelper_;
  Vel::Ptr<Cog::TaskScheduler> scheduler_;
  // Port-channel membership (lagToPort).
  Vel::Ptr<NoxCommonSmData const> ncsd_;
  std::unique_ptr<VelNcsd> velNcsd_;
  // Segment statuses, watched per interface.
  Vel::Ptr<Evpn::EvpnStatus const> evpnStatus_;
  std::unique_ptr<VelEvpnStatus> velEvpnStatus_;
  // Published tunnel id -> hardware tunnel id; this machine is its only writer.
  Vel::Ptr<TunnelIdToHwTunnelIdMapping> tunnelIdHwTunnelId_;

 public:
  // VLANs of each segment interface that have a designated-forwarder tep, and the same by VLAN.
  VEL_INTERNAL_ENTITY_COLLECTION(intfVlanSet, IntfVlanSet, Gantry::IntfId, IntfVlanSet)
  VEL_INTERNAL_ENTITY_COLLECTION(vlanIntfSet, VlanIntfSet, Bridging::VlanId, VlanIntfSet)
  // The designated-forwarder tunnel of each interface and VLAN.
  VEL_INTERNAL_VALUE_COLLECTION(intfVlanTunnel, IntfVlanTunnel, IntfVlanKey, TunnelId)
  // Which interface/VLAN pairs use a tunnel, and which VLANs of an interface use it.
  VEL_INTERNAL_ENTITY_COLLECTION(tunnelIntfVlanSet, TunnelIntfVlanSet, TunnelId, TunnelIntfVlanSet)
  VEL_INTERNAL_ENTITY_COLLECTION(intfTunnelVlanSet, IntfTunnelVlanSet, IntfTunnelKey,
                                 IntfTunnelVlanSet)
  // The ESI label learned for an interface, VLAN and tunnel.
  VEL_INTERNAL_VALUE_COLLECTION(intfVlanTunnelLabel, IntfVlanTunnelLabel, IntfVlanTunnelKey,
                                Gantry::MplsLabel)
  VEL_REACTOR_COLLECTION(segmentStatus, Gantry::IntfId, VelSegmentStatus,
                         Evpn::EthernetSegmentStatus)
  // Tunnels still without a hardware tunnel id.
  VEL_INTERNAL_VALUE_COLLECTION(unprogrammedTunnel, UnprogrammedTunnel, TunnelId, bool)
  // Interface/VLAN pairs with at least one port not programmed.
  VEL_INTERNAL_VALUE_COLLECTION(unprogrammedEsi, UnprogrammedEsi, IntfVlanKey, bool)
  // Per interface/VLAN, the programmed and the unprogrammed physical ports.
  VEL_INTERNAL_ENTITY_COLLECTION(esiStatus, EsiStatus, IntfVlanKey, IntfVlanStatus)

 private:
  // Spelled as the invariant check of programEsiHelper names it.
  IntfVlanTunnelColl const& intfVlanTunnelIteratorConst() const { return intfVlanTunnelColl(); }

  Vel::Ptr<Cog::TimerTask> reviewUnprogrammed_;
  VelReviewUnprogrammed velReviewUnprogrammed_{this};
  double const unprogrammedRetryInterval_ = reviewInterval;
  bool initialized_ = false;
  // Tunnels that got their hardware id after waiting, whose pairs are looked at again once the
  // outermost processIntfVlan is done (depth of processIntfVlan calls under way).
  std::vector<TunnelId> tunnelsPublishedLate_;
  int processDepth_ = 0;
  // When each tunnel of unprogrammedTunnel and each pair of unprogrammedEsi started waiting.
  PendingSince<TunnelId> tunnelWaitingSince_;
  PendingSince<IntfVlanKey> pairWaitingSince_;
};

Vel::Ptr<EvpnFloodingEsiSm> evpnFloodingEsiSmFactory(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId);

}  // namespace Nox
