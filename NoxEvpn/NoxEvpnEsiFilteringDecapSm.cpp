// Nox::EsiFilteringDecapSm: LFIB routes with an ethernet-segment filter via in, ESI port maps
// (through the decap helper) and the list of unprogrammed routes out.
//
// A route is in one of three states. Programmed: its port map was created with success; it is
// in routeEsiFilterVia and its interface in intfRoute. Listed: creation failed with a code worth
// retrying (1 conflict, 2 and 3 temporary); it is in the LFIB hardware status and the retry
// review reprocesses it every interval. Neither: no filter via, or a code the helper gives up
// on. Every decision starts by undoing what the route had, so a changed via never leaves a
// stale map behind. Each interface has at most one port map: the first route that programs it
// keeps it, later ones are listed as conflicts until it goes.

#include "NoxEvpn/NoxEvpnEsiFilteringDecapSm.h"

#include <utility>

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "NoxEvpnEsiFilteringDecapSm";
}  // namespace
NOX_TRACE_FACILITY("NoxEvpn");

using Mpls::LfibEvpnEthernetSegmentFilterVia;
using Mpls::LfibHwProgrammingReturnCode;
using Mpls::RouteKey;

// Construction.

EsiFilteringDecapSm::EsiFilteringDecapSm(
    Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper,
    Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler,
    Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus,
    Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus)
    : esiFilteringDecapHelper_(esiFilteringDecapHelper),
      lfibStatus_(lfibStatus),
      scheduler_(scheduler),
      lfibTrackingStatus_(lfibTrackingStatus),
      lfibHwStatus_(lfibHwStatus) {
  if (lfibTrackingStatus_) {
    velLfibTrackingStatus_ = std::make_unique<VelLfibTrackingStatus>(lfibTrackingStatus_, this);
  }
  handleInitialized();
}

EsiFilteringDecapSm::~EsiFilteringDecapSm() {
  if (reviewRouteKeyBacklog_) reviewRouteKeyBacklog_->unscheduleTask();
  if (reviewUnprogrammed_) reviewUnprogrammed_->unscheduleTask();
}

Vel::Ptr<EsiFilteringDecapSm> EsiFilteringDecapSm::EsiFilteringDecapSmIs(
    Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper,
    Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler,
    Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus,
    Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus) {
  return Vel::Ptr<EsiFilteringDecapSm>(new EsiFilteringDecapSm(
      esiFilteringDecapHelper, lfibStatus, scheduler, lfibTrackingStatus, lfibHwStatus));
}

Vel::Ptr<EsiFilteringDecapSm> esiFilteringDecapSmFactory(
    Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> const& esiFilteringDecapHelper,
    Vel::Ptr<Mpls::LfibStatus const> const& lfibStatus,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler,
    Vel::Ptr<Mpls::LfibTrackingStatus> const& lfibTrackingStatus,
    Vel::Ptr<Mpls::LfibHwStatus> const& lfibHwStatus) {
  return EsiFilteringDecapSm::EsiFilteringDecapSmIs(esiFilteringDecapHelper, lfibStatus, scheduler,
                                                    lfibTrackingStatus, lfibHwStatus);
}

// Initialization: the machine keeps no record of what an earlier instance programmed, so it
// starts with empty collections and lets the backlog present at start be drained at once.

void EsiFilteringDecapSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized");
  VEL_ASSERT(esiFilteringDecapHelper());
  VEL_ASSERT(lfibStatus());
  VEL_ASSERT(scheduler());
  VEL_ASSERT(lfibTrackingStatus());
  VEL_ASSERT(lfibHwStatus());
  reviewRouteKeyBacklog_ = new Cog::Task(scheduler_, taskPriority, "reviewRouteKeyBacklog");
  reviewRouteKeyBacklog_->notifieeIs(&velReviewRouteKeyBacklog_);
  reviewUnprogrammed_ = new Cog::TimerTask(scheduler_, taskPriority, "reviewUnprogrammed");
  reviewUnprogrammed_->notifieeIs(&velReviewUnprogrammed_);
  initialized_ = true;
  backlogWaitingIs();
  reviewRouteKeyBacklog_->scheduleTask();
}

// The backlog. Its own deletions notify too, which makes one more (empty) pass.

void EsiFilteringDecapSm::handleRouteKeyBacklog() {
  NOX_TRACE_ENTRY("handleRouteKeyBacklog");
  if (!initialized()) return;
  reviewRouteKeyBacklog_->scheduleTask();
}

void EsiFilteringDecapSm::doReviewRouteKeyBacklog() {
  NOX_TRACE_ENTRY("doReviewRouteKeyBacklog");
  VEL_ASSERT(initialized());
  auto const& backlog = lfibTrackingStatus_->routeKeyBacklogColl();
  // Handling a key removes it, so the walk steps past a key before handling it.
  for (auto it = backlog.begin(); it != backlog.end();) {
    RouteKey const routeKey = it->key;
    ++it;
    processRouteKeyBacklog(routeKey);
    reviewRouteKeyBacklog_->taskWorkCountInc(1);
    if (reviewRouteKeyBacklog_->taskShouldYield()) {
      reviewRouteKeyBacklog_->scheduleTask();
      return;
    }
  }
  maybeScheduleUnprogrammedReview();
}

void EsiFilteringDecapSm::processRouteKeyBacklog(RouteKey const& routeKey) {
  NOX_TRACE_ENTRY("processRouteKeyBacklog route {}", routeKey);
  VEL_ASSERT(initialized());
  auto const& backlogIter = lfibTrackingStatus_->routeKeyBacklogColl();
  // The assertion prints this text as written, spaces included.
  // clang-format off
  VEL_ASSERT(backlogIter.isMemberOf( routeKey ));
  // clang-format on
  processRouteKey(routeKey);
  lfibTrackingStatus_->routeKeyBacklogDel(routeKey);
  backlogSince_.stopped(routeKey);
}

void EsiFilteringDecapSm::backlogWaitingIs(RouteKey const& routeKey) {
  backlogSince_.settle(routeKey, lfibTrackingStatus_->routeKeyBacklogIsMemberOf(routeKey),
                       scheduler_->now());
}

void EsiFilteringDecapSm::backlogWaitingIs() {
  // A start-up backlog of a hundred thousand routes is recorded into a map sized once.
  backlogSince_.reserve(lfibTrackingStatus_->routeKeyBacklogs());
  for (auto const& entry : lfibTrackingStatus_->routeKeyBacklogColl()) {
    backlogSince_.started(entry.key, scheduler_->now());
  }
}

// The decision for one route. Only the first via of the route's via set counts.

void EsiFilteringDecapSm::processRouteKey(RouteKey const& routeKey) {
  NOX_TRACE_ENTRY("processRouteKey route {}", routeKey);
  VEL_ASSERT(initialized());
  Listing const outer = std::exchange(listing_, Listing::untouched);
  bool const viaWaiting = decideRouteKey(routeKey);
  Listing const listing = std::exchange(listing_, outer);
  // Every decision first takes the route off the list and lists it again if it fails again: it
  // has waited since it was first listed, so its time is settled once the decision is made. A
  // decision that left the list alone leaves the time as it was.
  double const now = scheduler_->now();
  if (listing != Listing::untouched) listedSince_.settle(routeKey, listing == Listing::listed, now);
  viaWaitingSince_.settle(routeKey, viaWaiting, now);
}

bool EsiFilteringDecapSm::decideRouteKey(RouteKey const& routeKey) {
  Mpls::LfibRoute const route = lfibStatus_->route(routeKey);
  if (route == Mpls::LfibRoute()) {
    NOX_TRACE(5, "route was deleted");
    deleteEsiFilterVia(routeKey);
    return false;
  }
  Mpls::LfibViaSet const viaSet = lfibStatus_->viaSet(route.viaSetKey());
  if (viaSet == Mpls::LfibViaSet()) {
    NOX_TRACE(5, "viaset was deleted");
    deleteEsiFilterVia(routeKey);
    return false;
  }
  Mpls::LfibViaKey const viaKey = viaSet.viaKey(0);
  VEL_ASSERT(!!viaKey);
  if (viaKey.viaType() != Mpls::lfibViaTypeEvpnEthernetSegmentFilter) {
    // A route that stops being filtered keeps its port map until it is deleted.
    NOX_TRACE(5, "Skipping viaType {}", viaKey.viaType());
    return false;
  }
  deleteEsiFilterVia(routeKey);
  LfibEvpnEthernetSegmentFilterVia const via = lfibStatus_->evpnEthernetSegmentFilterVia(viaKey);
  // A via still to come brings the route back through the backlog when it arrives.
  if (via == LfibEvpnEthernetSegmentFilterVia()) return true;
  createEsiFilterVia(routeKey, via);
  return false;
}

void EsiFilteringDecapSm::createEsiFilterVia(RouteKey const& routeKey,
                                             LfibEvpnEthernetSegmentFilterVia const& via) {
  NOX_TRACE_ENTRY("createEsiFilterVia route {} via {}", routeKey, via);
  VEL_ASSERT(initialized());
  // The assertion prints this text as written, spaces included.
  // clang-format off
  VEL_ASSERT(!routeEsiFilterViaIteratorConst().isMemberOf( routeKey ));
  // clang-format on
  if (auto const owner = intfRoute_.find(via.intfId())) {
    NOX_TRACE(5, "intf {} already associated with route {}, adding via to unprogrammed",
              via.intfId(), *owner);
    addRouteToUnprogrammed(routeKey, Mpls::lfibHwProgrammingConflict);
    return;
  }
  LfibHwProgrammingReturnCode const rc =
      esiFilteringDecapHelper_->createEsiPortMap(routeKey.label(), via.intfId());
  NOX_TRACE(5, "create {}/{} rc: {}", routeKey.label(), via.intfId(), rc);
  switch (rc) {
    case Mpls::lfibHwProgrammingSuccess:
      routeEsiFilterViaIs(routeKey, via);
      intfRouteIs(via.intfId(), routeKey);
      deleteRouteFromUnprogrammed(routeKey);
      break;
    case Mpls::lfibHwProgrammingConflict:
      VEL_ASSERT(!"Unexpected rc. Conflict detection logic is already done in Nox");
      break;
    case Mpls::lfibHwProgrammingNoResource:
    case Mpls::lfibHwProgrammingBusy:
      addRouteToUnprogrammed(routeKey, rc);
      break;
    default:
      // The helper gave up on the route: neither programmed nor retried.
      break;
  }
}

void EsiFilteringDecapSm::deleteEsiFilterVia(RouteKey const& routeKey) {
  NOX_TRACE_ENTRY("deleteEsiFilterVia route {}", routeKey);
  VEL_ASSERT(initialized());
  auto const via = routeEsiFilterVia_.find(routeKey);
  if (!via) {
    deleteRouteFromUnprogrammed(routeKey);
    return;
  }
  Gantry::IntfId const intfId = via->intfId();
  esiFilteringDecapHelper_->deleteEsiPortMap(routeKey.label(), intfId);
  routeEsiFilterViaDel(routeKey);
  intfRouteDel(intfId);
}

// The list of unprogrammed routes and its retry review.

void EsiFilteringDecapSm::addRouteToUnprogrammed(RouteKey const& routeKey,
                                                 LfibHwProgrammingReturnCode reason) {
  NOX_TRACE_ENTRY("addRouteToUnprogrammed route {} reason {}", routeKey, reason);
  VEL_ASSERT(initialized());
  listing_ = Listing::listed;
  lfibHwStatus_->unprogrammedRouteIs(routeKey, reason);
}

void EsiFilteringDecapSm::deleteRouteFromUnprogrammed(RouteKey const& routeKey) {
  NOX_TRACE_ENTRY("deleteRouteFromUnprogrammed route {}", routeKey);
  VEL_ASSERT(initialized());
  listing_ = Listing::unlisted;
  if (lfibHwStatus_->unprogrammedRoutes() == 0) {
    NOX_TRACE(5, "No unprogrammed routes, nothing to delete");
    return;
  }
  lfibHwStatus_->unprogrammedRouteDel(routeKey);
}

void EsiFilteringDecapSm::maybeScheduleUnprogrammedReview() {
  NOX_TRACE_ENTRY("maybeScheduleUnprogrammedReview");
  VEL_ASSERT(initialized());
  VEL_ASSERT(reviewUnprogrammed());
  if (lfibHwStatus_->unprogrammedRoutes() == 0) {
    NOX_TRACE(5, "no unprogrammed routes, nothing to review");
    return;
  }
  if (reviewUnprogrammed_->taskScheduled()) {
    NOX_TRACE(5, "unprogrammed review already scheduled");
    return;
  }
  reviewUnprogrammed_->scheduleTaskDelay(defaultUnprogrammedRetryInterval_);
  NOX_TRACE(5, "next unprogrammed review at {}",
            scheduler_->now() + defaultUnprogrammedRetryInterval_);
}

void EsiFilteringDecapSm::doReviewUnprogrammed() {
  NOX_TRACE_ENTRY("doReviewUnprogrammed");
  VEL_ASSERT(initialized());
  VEL_ASSERT(reviewUnprogrammed());
  auto const& unprogrammed = lfibHwStatus_->unprogrammedRouteColl().table();
  // Routes are listed in key order, and one that fails again is listed anew under its own key:
  // a pass cut by a yield goes on from where it stopped, or the routes at the front that keep
  // failing would take every slice.
  auto it = unprogrammedResumeKey_ ? unprogrammed.lowerBound(*unprogrammedResumeKey_)
                                   : unprogrammed.begin();
  unprogrammedResumeKey_.reset();
  while (it != unprogrammed.end()) {
    RouteKey const routeKey = it->key;
    ++it;
    processRouteKey(routeKey);
    reviewUnprogrammed_->taskWorkCountInc(1);
    if (reviewUnprogrammed_->taskShouldYield()) {
      if (it != unprogrammed.end()) unprogrammedResumeKey_ = it->key;
      reviewUnprogrammed_->scheduleTaskDelay(defaultUnprogrammedRetryInterval_);
      return;
    }
  }
  maybeScheduleUnprogrammedReview();
}

// What waits.

std::vector<PendingItem> EsiFilteringDecapSm::pending() const {
  std::vector<PendingItem> items;
  auto const routeText = [](RouteKey const& routeKey) { return pendingText("route ", routeKey); };
  for (auto const& entry : lfibHwStatus_->unprogrammedRouteColl()) {
    char const* why = entry.value == Mpls::lfibHwProgrammingConflict     ? "interface taken"
                      : entry.value == Mpls::lfibHwProgrammingNoResource ? "no resource"
                      : entry.value == Mpls::lfibHwProgrammingBusy       ? "busy"
                                                                         : "unprogrammed";
    items.push_back({"decap", routeText(entry.key), pendingText(why, " (rc ", entry.value, ")"),
                     listedSince_.since(entry.key)});
  }
  for (auto const& [routeKey, since] : viaWaitingSince_.sorted()) {
    Mpls::LfibViaKey const viaKey =
        lfibStatus_->viaSet(lfibStatus_->route(routeKey).viaSetKey()).viaKey(0);
    items.push_back({"decap", routeText(routeKey), pendingText("no filter via ", viaKey), since});
  }
  for (auto const& entry : lfibTrackingStatus_->routeKeyBacklogColl()) {
    items.push_back({"decap", routeText(entry.key), "in backlog", backlogSince_.since(entry.key)});
  }
  return items;
}

VEL_REGISTER_TYPE(EsiFilteringDecapSm);

}  // namespace Nox
