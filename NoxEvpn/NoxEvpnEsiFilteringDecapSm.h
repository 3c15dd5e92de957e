#pragma once

// Nox::EsiFilteringDecapSm keeps the hardware's ESI port maps in step with the LFIB. A route
// whose via set starts with an ethernet-segment filter via carries the ESI label a peer puts on
// traffic flooded from a shared segment; the via names the local interface on that segment, and
// the port map stops such traffic from going back out of it. Each such route becomes one
// createEsiPortMap(label, interface); routes that cannot be programmed are listed in the LFIB
// hardware status with the reason and retried on a timer.
//
// The machine is driven by the LFIB's backlog of changed route keys, not by the route table: it
// handles every key in the backlog once and removes it.

#include <cstdint>
#include <memory>
#include <optional>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapHelper.h"
#include "NoxEvpn/NoxEvpnPending.h"
#include "platform/cog/Task.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/cog/TimerTask.h"
#include "platform/types/Mpls/Mpls.h"
#include "platform/vel/Vel.h"

namespace Nox {

class EsiFilteringDecapSm : public Vel::PtrInterface, public Vel::Described {
 public:
  class VelLfibTrackingStatus : public Mpls::LfibTrackingStatus::NotifieeConst {
   public:
    VelLfibTrackingStatus(Vel::Ptr<Mpls::LfibTrackingStatus const> const& s,
                          EsiFilteringDecapSm* sm)
        : NotifieeConst(s), sm_(sm) {}
    void onRouteKeyBacklog(Mpls::RouteKey const& routeKey) override {
      sm_->backlogWaitingIs(routeKey);
      sm_->handleRouteKeyBacklog();
    }
    void onRouteKeyBacklog() override {
      sm_->backlogWaitingIs();
      sm_->handleRouteKeyBacklog();
    }
    VEL_DESCRIBE("Nox::EsiFilteringDecapSm::VelLfibTrackingStatus", "lfibTrackingStatus")

   private:
    EsiFilteringDecapSm* sm_;
  };

  // Run handler of a task: calls the machine's worker for it.
  template <void (EsiFilteringDecapSm::*run)()>
  class VelTask : public Cog::Task::Notifiee {
   public:
    explicit VelTask(EsiFilteringDecapSm* sm) : sm_(sm) {}
    void onTaskRun() override { (sm_->*run)(); }

   private:
    EsiFilteringDecapSm* sm_;
  };

  static constexpr Cog::TaskPriority taskPriority = 2;

  static Vel::Ptr<EsiFilteringDecapSm> EsiFilteringDecapSmIs(
      Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper,
      Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus,
      Vel::Ptr<Cog::TaskScheduler> const& scheduler,
      Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus,
      Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus);

  Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper() const {
    return esiFilteringDecapHelper_;
  }
  Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus() const { return lfibStatus_; }
  Vel::Ptr<Cog::TaskScheduler> const& scheduler() const { return scheduler_; }
  Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus() const {
    return lfibTrackingStatus_;
  }
  Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus() const { return lfibHwStatus_; }
  bool initialized() const { return initialized_; }
  Vel::Ptr<Cog::Task> const& reviewRouteKeyBacklog() const { return reviewRouteKeyBacklog_; }
  Vel::Ptr<Cog::TimerTask> const& reviewUnprogrammed() const { return reviewUnprogrammed_; }
  double defaultUnprogrammedRetryInterval() const { return defaultUnprogrammedRetryInterval_; }
  // What waits, in this order: the listed routes with their reason, the routes whose filter via
  // has not arrived, then the keys of the backlog; each in ascending route key.
  std::vector<PendingItem> pending() const;

  void handleInitialized();
  void handleRouteKeyBacklog();
  void doReviewRouteKeyBacklog();
  void doReviewUnprogrammed();

  void processRouteKeyBacklog(Mpls::RouteKey const& routeKey);
  void processRouteKey(Mpls::RouteKey const& routeKey);
  // The decision of processRouteKey; true when the route waits for its filter via.
  bool decideRouteKey(Mpls::RouteKey const& routeKey);
  void createEsiFilterVia(Mpls::RouteKey const& routeKey,
                          Mpls::LfibEvpnEthernetSegmentFilterVia const& via);
  void deleteEsiFilterVia(Mpls::RouteKey const& routeKey);
  void addRouteToUnprogrammed(Mpls::RouteKey const& routeKey,
                              Mpls::LfibHwProgrammingReturnCode reason);
  void deleteRouteFromUnprogrammed(Mpls::RouteKey const& routeKey);
  void maybeScheduleUnprogrammedReview();

  using VelReviewRouteKeyBacklog = VelTask<&EsiFilteringDecapSm::doReviewRouteKeyBacklog>;
  using VelReviewUnprogrammed = VelTask<&EsiFilteringDecapSm::doReviewUnprogrammed>;

  VEL_DESCRIBE("Nox::EsiFilteringDecapSm", "esiFilteringDecapHelper", "lfibStatus", "scheduler",
               "lfibTrackingStatus", "lfibHwStatus", "initialized", "reviewRouteKeyBacklog",
               "routeEsiFilterVia", "intfRoute", "defaultUnprogrammedRetryInterval",
               "reviewUnprogrammed")

 private:
  EsiFilteringDecapSm(Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper,
                      Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus,
                      Vel::Ptr<Cog::TaskScheduler> const& scheduler,
                      Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus,
                      Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus);
  ~EsiFilteringDecapSm() override;

  // Hardware access.
  Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> esiFilteringDecapHelper_;
  // The LFIB: routes, via sets and filter vias.
  Vel::Ptr<Mpls::LfibStatus const> lfibStatus_;
  // Runs the backlog drain and the retry review.
  Vel::Ptr<Cog::TaskScheduler> scheduler_;
  // Changed route keys; this machine removes each one it has handled.
  Vel::Ptr<Mpls::LfibTrackingStatus> lfibTrackingStatus_;
  std::unique_ptr<VelLfibTrackingStatus> velLfibTrackingStatus_;
  // Routes that could not be programmed, with the reason.
  Vel::Ptr<Mpls::LfibHwStatus> lfibHwStatus_;
  bool initialized_ = false;
  // Drains the backlog.
  Vel::Ptr<Cog::Task> reviewRouteKeyBacklog_;
  VelReviewRouteKeyBacklog velReviewRouteKeyBacklog_{this};

 public:
  // Routes whose port map is programmed, with the via used (routeEsiFilterVia(k) answers the
  // default via for any other route).
  VEL_INTERNAL_VALUE_COLLECTION(routeEsiFilterVia, RouteEsiFilterVia, Mpls::RouteKey,
                                Mpls::LfibEvpnEthernetSegmentFilterVia)
 public:
  RouteEsiFilterViaColl const& routeEsiFilterViaIteratorConst() const { return routeEsiFilterVia_; }
  // Which route owns each interface's port map.
  VEL_INTERNAL_VALUE_COLLECTION(intfRoute, IntfRoute, Gantry::IntfId, Mpls::RouteKey)

 private:
  // Delay of the retry review, seconds.
  double defaultUnprogrammedRetryInterval_ = 5.0;
  // Retries the unprogrammed routes.
  Vel::Ptr<Cog::TimerTask> reviewUnprogrammed_;
  VelReviewUnprogrammed velReviewUnprogrammed_{this};
  // Where a retry pass cut by a yield goes on.
  std::optional<Mpls::RouteKey> unprogrammedResumeKey_;

  // Since when each listed route, each route without its filter via and each backlog key waits.
  void backlogWaitingIs(Mpls::RouteKey const& routeKey);
  void backlogWaitingIs();
  PendingSince<Mpls::RouteKey> listedSince_;
  // What the decision being made did to its route's place on the unprogrammed list, so that the
  // route's time there is settled without reading the list again after every decision.
  enum class Listing : uint8_t { untouched, listed, unlisted };
  Listing listing_ = Listing::untouched;
  PendingSince<Mpls::RouteKey> viaWaitingSince_;
  PendingSince<Mpls::RouteKey> backlogSince_;
};

Vel::Ptr<EsiFilteringDecapSm> esiFilteringDecapSmFactory(
    Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper,
    Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler,
    Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus,
    Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus);

}  // namespace Nox
