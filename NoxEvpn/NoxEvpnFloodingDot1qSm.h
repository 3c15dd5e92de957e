#pragma once

// Nox::EvpnFloodingDot1qSm programs, for every interface configured in a VLAN that has a dot1q
// tag in the EVPN status, the tag with which flooded traffic of that VLAN leaves the interface.
// A port-channel is programmed on each of its member ports. Mappings the hardware refused are
// remembered per (interface, VLAN) pair and the pair's whole decision is re-run by a review
// every few seconds, so a pair whose VLAN, membership or tag went meanwhile is removed instead.

#include <memory>
#include <vector>

#include "NoxEvpn/NoxCommon.h"
#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/cog/TimerTask.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Evpn/Evpn.h"
#include "platform/vel/Vel.h"

namespace Nox {

class EvpnFloodingDot1qSm : public Vel::PtrInterface, public Vel::Described {
 public:
  // Port-channel membership: a port-channel's member list changed.
  class VelNcsd : public NoxCommonSmData::NotifieeConst {
   public:
    VelNcsd(Vel::Ptr<NoxCommonSmData const> const& ncsd, EvpnFloodingDot1qSm* sm)
        : NotifieeConst(ncsd), sm_(sm) {}
    void onLagToPort(Gantry::IntfId const& lag) override { sm_->handleLagPort(lag); }

   private:
    EvpnFloodingDot1qSm* sm_;
  };

  // A VLAN's dot1q tag arrived, changed or went.
  class VelEvpnStatus : public Evpn::EvpnStatus::NotifieeConst {
   public:
    VelEvpnStatus(Vel::Ptr<Evpn::EvpnStatus const> const& status, EvpnFloodingDot1qSm* sm)
        : NotifieeConst(status), sm_(sm) {}
    void onVlanToDot1q(Bridging::VlanId const& vlan) override { sm_->handleVlanDot1q(vlan); }

   private:
    EvpnFloodingDot1qSm* sm_;
  };

  // One configured VLAN: its member interfaces.
  class VelVlanConfig : public Bridging::VlanConfig::NotifieeConst {
   public:
    VelVlanConfig(Vel::Ptr<Bridging::VlanConfig const> const& config, EvpnFloodingDot1qSm* sm)
        : NotifieeConst(config), sm_(sm) {}
    Bridging::VlanId key() const { return notifier()->key(); }
    void onIntf(Gantry::IntfId const& intf) override { sm_->handleIntf(*this, intf); }
    void handleVlanConfig() { sm_->handleVlanConfig(*this); }

    VEL_DESCRIBE("Nox::EvpnFloodingDot1qSm::VelVlanConfig", "vlanConfig")

   private:
    EvpnFloodingDot1qSm* sm_;
  };

  // The configured VLANs arriving and going; keeps one VelVlanConfig per VLAN.
  class VelBridgingConfig : public Bridging::Config::NotifieeConst {
   public:
    VelBridgingConfig(Vel::Ptr<Bridging::Config const> const& config, EvpnFloodingDot1qSm* sm);
    void onVlanConfig(Bridging::VlanId const& vlan) override;
    void onVlanConfig() override;

   private:
    EvpnFloodingDot1qSm* sm_;
  };

  // The review of unprogrammed pairs.
  class VelReviewUnprogrammed : public Cog::Task::Notifiee {
   public:
    explicit VelReviewUnprogrammed(EvpnFloodingDot1qSm* sm) : sm_(sm) {}
    void onTaskRun() override { sm_->doReviewUnprogrammed(); }

   private:
    EvpnFloodingDot1qSm* sm_;
  };

  static Vel::Ptr<EvpnFloodingDot1qSm> EvpnFloodingDot1qSmIs(
      Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
      Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
      Vel::Ptr<Bridging::Config const> const& bridgingConfig,
      Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus);
  ~EvpnFloodingDot1qSm() override;

  Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper() const { return helper_; }
  Vel::Ptr<Cog::TaskScheduler> const& scheduler() const { return scheduler_; }
  Vel::Ptr<NoxCommonSmData const> const& ncsd() const { return ncsd_; }
  Vel::Ptr<Bridging::Config const> const& bridgingConfig() const { return bridgingConfig_; }
  Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus() const { return evpnStatus_; }
  bool initialized() const { return initialized_; }
  Vel::Ptr<Cog::TimerTask> const& reviewUnprogrammed() const { return reviewUnprogrammed_; }
  double defaultUnprogrammedRetryInterval() const { return defaultUnprogrammedRetryInterval_; }
  // The pairs waiting in unprogrammedDot1q, in its order, with the ports the hardware refused.
  std::vector<PendingItem> pending() const;

  void handleInitialized();
  void handleLagPort(Gantry::IntfId const& lag);
  void handleVlanDot1q(Bridging::VlanId vlan);
  void handleVlanConfig(VelVlanConfig& reactor);
  void handleIntf(VelVlanConfig& reactor, Gantry::IntfId const& intf);

  void processIntfVlan(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void decideIntfVlan(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void addIntfVlanMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void deleteIntfVlanMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void addOrUpdateIntfVlanDot1qMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                                       Bridging::VlanIdOrNone dot1q);
  void deleteIntfVlanDot1qMapping(Gantry::IntfId const& intf, Bridging::VlanId vlan);
  void programDot1q(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                    Bridging::VlanIdOrNone dot1q);
  void programDot1qHelper(Gantry::IntfId const& logicalIntf, Gantry::IntfId const& phyIntf,
                          Bridging::VlanId vlan, Bridging::VlanIdOrNone dot1q);
  void unprogramDot1q(Gantry::IntfId const& intf, Bridging::VlanId vlan,
                      Bridging::VlanIdOrNone dot1q);
  void unprogramDot1qHelper(Gantry::IntfId const& logicalIntf, Gantry::IntfId const& phyIntf,
                            Bridging::VlanId vlan, Bridging::VlanIdOrNone dot1q);
  void maybeScheduleUnprogrammedReview(bool immediate);
  void doReviewUnprogrammed();

  VEL_DESCRIBE("Nox::EvpnFloodingDot1qSm", "floodingHelper", "scheduler", "ncsd", "bridgingConfig",
               "evpnStatus", "initialized", "intfVlanSet", "vlanIntfSet", "intfVlanDot1q",
               "reviewUnprogrammed", "defaultUnprogrammedRetryInterval", "dot1qStatus",
               "unprogrammedDot1q", "vlanConfig")

 private:
  EvpnFloodingDot1qSm(Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
                      Vel::Ptr<Cog::TaskScheduler> const& scheduler,
                      Vel::Ptr<NoxCommonSmData const> const& ncsd,
                      Vel::Ptr<Bridging::Config const> const& bridgingConfig,
                      Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus);

  void reservePairs();
  bool isIntfInVlanConfig(Gantry::IntfId const& intf, Bridging::VlanId vlan) const;
  void deleteStaleLagMembers(IntfVlanKey const& pair, NoxPortList const& members,
                             Bridging::VlanIdOrNone dot1q);

  // Hardware access.
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> helper_;
  // Runs the review.
  Vel::Ptr<Cog::TaskScheduler> scheduler_;
  // Port-channel membership, and its watcher.
  Vel::Ptr<NoxCommonSmData const> ncsd_;
  std::unique_ptr<VelNcsd> velNcsd_;
  // VLAN membership, and its watcher.
  Vel::Ptr<Bridging::Config const> bridgingConfig_;
  std::unique_ptr<VelBridgingConfig> velBridgingConfig_;
  // VLAN to dot1q tag, and its watcher.
  Vel::Ptr<Evpn::EvpnStatus const> evpnStatus_;
  std::unique_ptr<VelEvpnStatus> velEvpnStatus_;
  bool initialized_ = false;

 public:
  // The VLANs of each member interface, as known here.
  VEL_INTERNAL_ENTITY_COLLECTION(intfVlanSet, IntfVlanSet, Gantry::IntfId, IntfVlanSet)
 public:
  // The member interfaces of each VLAN, as known here.
  VEL_INTERNAL_ENTITY_COLLECTION(vlanIntfSet, VlanIntfSet, Bridging::VlanId, VlanIntfSet)
 public:
  // The tag in force for each (interface, VLAN) pair.
  VEL_INTERNAL_VALUE_COLLECTION(intfVlanDot1q, IntfVlanDot1q, IntfVlanKey, Bridging::VlanIdOrNone)

 private:
  // Retries the pairs that failed.
  Vel::Ptr<Cog::TimerTask> reviewUnprogrammed_;
  std::unique_ptr<VelReviewUnprogrammed> velReviewUnprogrammed_;
  double defaultUnprogrammedRetryInterval_ = 5.0;
  // When each pair of unprogrammedDot1q started waiting.
  PendingSince<IntfVlanKey> pairWaitingSince_;

 public:
  // Which physical ports of each pair are programmed and which failed.
  VEL_INTERNAL_ENTITY_COLLECTION(dot1qStatus, Dot1qStatus, IntfVlanKey, IntfVlanStatus)
 public:
  // The pairs with at least one port that failed.
  VEL_INTERNAL_VALUE_COLLECTION(unprogrammedDot1q, UnprogrammedDot1q, IntfVlanKey, bool)
 public:
  // One watcher per configured VLAN.
  VEL_REACTOR_COLLECTION(vlanConfig, Bridging::VlanId, VelVlanConfig, Bridging::VlanConfig)
 private:
};

Vel::Ptr<EvpnFloodingDot1qSm> evpnFloodingDot1qSmFactory(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Bridging::Config const> const& bridgingConfig,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus);

}  // namespace Nox
