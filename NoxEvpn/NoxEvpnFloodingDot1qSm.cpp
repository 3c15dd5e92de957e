// Nox::EvpnFloodingDot1qSm: VLAN membership (bridging configuration), VLAN tags (EVPN status)
// and port-channel membership in, dot1q mappings programmed through the flooding helper out.
//
// Everything funnels into processIntfVlan, the decision for one (interface, VLAN) pair, so that
// the handlers, the start-up walk and the review of failed pairs cannot disagree. The handlers
// walk copies of the sets they read, because the decision may remove the pair from them.
// Decisions trace at level 5, entries at level 8.

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"

#include <type_traits>

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "NoxEvpnFloodingDot1qSm";
constexpr int decisionLevel = 5;
constexpr Cog::TaskPriority reviewPriority = 2;

// The keys of a collection, for walks whose steps may change it.
template <class Coll>
auto keysOf(Coll const& coll) {
  std::vector<std::decay_t<decltype((*coll.begin()).key)>> keys;
  keys.reserve(coll.count());
  for (auto entry : coll) keys.push_back(entry.key);
  return keys;
}
}  // namespace
NOX_TRACE_FACILITY("NoxEvpn");

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Gantry::IntfId;

#define DOT1Q_DECISION(...) NOX_TRACE(decisionLevel, __VA_ARGS__)

// Construction.

EvpnFloodingDot1qSm::VelBridgingConfig::VelBridgingConfig(
    Vel::Ptr<Bridging::Config const> const& config, EvpnFloodingDot1qSm* sm)
    : NotifieeConst(config), sm_(sm) {
  for (auto [vlan, vlanConfig] : config->vlanConfigColl()) sm_->vlanConfigIs(vlanConfig);
}

void EvpnFloodingDot1qSm::VelBridgingConfig::onVlanConfig(VlanId const& vlan) {
  Vel::Ptr<Bridging::VlanConfig const> member = notifier()->vlanConfig(vlan);
  Vel::followMember(
      member != nullptr, [&] { sm_->vlanConfigIs(member); },
      [&] {
        if (VelVlanConfig* reactor = sm_->vlanConfig(vlan)) reactor->handleVlanConfig();
      },
      [&] { sm_->vlanConfigDel(vlan); });
}

void EvpnFloodingDot1qSm::VelBridgingConfig::onVlanConfig() {
  for (VlanId vlan : keysOf(sm_->vlanConfigColl())) {
    if (!notifier()->vlanConfigIsMemberOf(vlan)) onVlanConfig(vlan);
  }
  for (auto [vlan, vlanConfig] : notifier()->vlanConfigColl()) {
    if (!sm_->vlanConfig(vlan)) onVlanConfig(vlan);
  }
}

EvpnFloodingDot1qSm::EvpnFloodingDot1qSm(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Bridging::Config const> const& bridgingConfig,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus)
    : helper_(floodingHelper),
      scheduler_(scheduler),
      ncsd_(ncsd),
      bridgingConfig_(bridgingConfig),
      evpnStatus_(evpnStatus) {
  if (ncsd_) velNcsd_ = std::make_unique<VelNcsd>(ncsd_, this);
  if (bridgingConfig_) {
    velBridgingConfig_ = std::make_unique<VelBridgingConfig>(bridgingConfig_, this);
  }
  if (evpnStatus_) velEvpnStatus_ = std::make_unique<VelEvpnStatus>(evpnStatus_, this);
  defaultUnprogrammedRetryInterval_ = 5.0;
  handleInitialized();
}

EvpnFloodingDot1qSm::~EvpnFloodingDot1qSm() {
  if (reviewUnprogrammed_) reviewUnprogrammed_->unscheduleTask();
}

Vel::Ptr<EvpnFloodingDot1qSm> EvpnFloodingDot1qSm::EvpnFloodingDot1qSmIs(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Bridging::Config const> const& bridgingConfig,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus) {
  return Vel::Ptr<EvpnFloodingDot1qSm>(
      new EvpnFloodingDot1qSm(floodingHelper, scheduler, ncsd, bridgingConfig, evpnStatus));
}

Vel::Ptr<EvpnFloodingDot1qSm> evpnFloodingDot1qSmFactory(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Bridging::Config const> const& bridgingConfig,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus) {
  return EvpnFloodingDot1qSm::EvpnFloodingDot1qSmIs(floodingHelper, scheduler, ncsd, bridgingConfig,
                                                    evpnStatus);
}

// Initialization: once every input is there, program every configured pair.

void EvpnFloodingDot1qSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized");
  if (!helper_ || !scheduler_ || !ncsd_ || !evpnStatus_ || !bridgingConfig_) return;
  VEL_ASSERT(floodingHelper());
  VEL_ASSERT(scheduler());
  VEL_ASSERT(ncsd());
  VEL_ASSERT(evpnStatus());
  VEL_ASSERT(bridgingConfig());
  reviewUnprogrammed_ = Vel::Ptr<Cog::TimerTask>(
      new Cog::TimerTask(scheduler_, reviewPriority, "reviewUnprogrammed"));
  velReviewUnprogrammed_ = std::make_unique<VelReviewUnprogrammed>(this);
  reviewUnprogrammed_->notifieeIs(velReviewUnprogrammed_.get());
  initialized_ = true;
  reservePairs();
  // The walk reads the configuration only; nothing it calls changes it.
  for (auto [vlan, vlanConfig] : bridgingConfig_->vlanConfigColl()) {
    for (auto member : vlanConfig->intfColl()) processIntfVlan(member.key, vlan);
  }
}

// Sizes the per-pair collections once for every configured pair, rather than growing them step
// by step through a cold start of a few hundred thousand pairs.
void EvpnFloodingDot1qSm::reservePairs() {
  std::size_t pairs = 0;
  for (auto [vlan, vlanConfig] : bridgingConfig_->vlanConfigColl()) pairs += vlanConfig->intfs();
  intfVlanDot1q_.reserve(pairs);
  dot1qStatus_.reserve(pairs);
}

// Handlers.

void EvpnFloodingDot1qSm::handleLagPort(IntfId const& lag) {
  NOX_TRACE_ENTRY("handleLagPort intf {}", lag);
  if (!initialized()) return;
  auto const vlans = intfVlanSet(lag);
  if (!vlans) return;
  for (VlanId vlan : keysOf(vlans->vlanIdColl())) processIntfVlan(lag, vlan);
}

void EvpnFloodingDot1qSm::handleVlanDot1q(VlanId vlan) {
  NOX_TRACE_ENTRY("handleVlanDot1q vlan {}", vlan);
  if (!initialized()) return;
  auto const intfs = vlanIntfSet(vlan);
  if (!intfs) return;
  for (IntfId const& intf : keysOf(intfs->intfIdColl())) processIntfVlan(intf, vlan);
}

// Runs when the VLAN's configuration arrives and when it goes: the interfaces known here are
// decided first so that those that left are removed, then the configured ones.
void EvpnFloodingDot1qSm::handleVlanConfig(VelVlanConfig& reactor) {
  VlanId const vlan = reactor.key();
  NOX_TRACE_ENTRY("handleVlanConfig vlan {}", vlan);
  if (!initialized()) return;
  if (auto const intfs = vlanIntfSet(vlan)) {
    for (IntfId const& intf : keysOf(intfs->intfIdColl())) processIntfVlan(intf, vlan);
  }
  for (IntfId const& intf : keysOf(reactor.notifier()->intfColl())) processIntfVlan(intf, vlan);
}

void EvpnFloodingDot1qSm::handleIntf(VelVlanConfig& reactor, IntfId const& intf) {
  NOX_TRACE_ENTRY("handleIntf intf {}", intf);
  if (!initialized()) return;
  processIntfVlan(intf, reactor.key());
}

// Workers.

void EvpnFloodingDot1qSm::processIntfVlan(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("processIntfVlan intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  decideIntfVlan(intf, vlan);
  // A pair retried and refused again leaves unprogrammedDot1q for the call and comes back: it
  // has waited since its first refusal, so its time is settled once the decision is made.
  IntfVlanKey const pair(intf, vlan);
  pairWaitingSince_.settle(pair, unprogrammedDot1qIsMemberOf(pair), scheduler_->now());
}

void EvpnFloodingDot1qSm::decideIntfVlan(IntfId const& intf, VlanId vlan) {
  if (!bridgingConfig_->vlanConfigIsMemberOf(vlan)) {
    DOT1Q_DECISION("no vlan config");
    deleteIntfVlanMapping(intf, vlan);
    return;
  }
  if (!isIntfInVlanConfig(intf, vlan)) {
    DOT1Q_DECISION("intf not a part of vlan");
    deleteIntfVlanMapping(intf, vlan);
    return;
  }
  addIntfVlanMapping(intf, vlan);
  auto const dot1q = evpnStatus_->vlanToDot1qColl().find(vlan);
  if (!dot1q) {
    DOT1Q_DECISION("not in vlan-dot1q mapping");
    deleteIntfVlanDot1qMapping(intf, vlan);
    return;
  }
  addOrUpdateIntfVlanDot1qMapping(intf, vlan, *dot1q);
}

bool EvpnFloodingDot1qSm::isIntfInVlanConfig(IntfId const& intf, VlanId vlan) const {
  auto const config = bridgingConfig_->vlanConfigColl().find(vlan);
  return config && config->intfIsMemberOf(intf);
}

void EvpnFloodingDot1qSm::addIntfVlanMapping(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("addIntfVlanMapping intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  intfVlanSetIs(intf)->vlanIdIs(vlan, true);
  vlanIntfSetIs(vlan)->intfIdIs(intf, true);
}

// Sets left empty are dropped, so the sets hold only pairs that are configured.
void EvpnFloodingDot1qSm::deleteIntfVlanMapping(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("deleteIntfVlanMapping intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  if (auto const vlans = intfVlanSet(intf)) {
    vlans->vlanIdDel(vlan);
    if (vlans->vlanIds() == 0) intfVlanSetDel(intf);
  }
  if (auto const intfs = vlanIntfSet(vlan)) {
    intfs->intfIdDel(intf);
    if (intfs->intfIds() == 0) vlanIntfSetDel(vlan);
  }
  deleteIntfVlanDot1qMapping(intf, vlan);
}

void EvpnFloodingDot1qSm::addOrUpdateIntfVlanDot1qMapping(IntfId const& intf, VlanId vlan,
                                                          VlanIdOrNone dot1q) {
  NOX_TRACE_ENTRY("addOrUpdateIntfVlanDot1qMapping intf {} vlan {} dot1q {}", intf, vlan, dot1q);
  VEL_ASSERT(initialized());
  IntfVlanKey const pair(intf, vlan);
  if (auto const old = intfVlanDot1qColl().find(pair); old && *old != dot1q) {
    unprogramDot1q(intf, vlan, *old);
  }
  intfVlanDot1qIs(pair, dot1q);
  programDot1q(intf, vlan, dot1q);
}

void EvpnFloodingDot1qSm::deleteIntfVlanDot1qMapping(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("deleteIntfVlanDot1qMapping intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  IntfVlanKey const pair(intf, vlan);
  auto const dot1q = intfVlanDot1qColl().find(pair);
  if (!dot1q) return;
  unprogramDot1q(intf, vlan, *dot1q);
  intfVlanDot1qDel(pair);
}

void EvpnFloodingDot1qSm::programDot1q(IntfId const& intf, VlanId vlan, VlanIdOrNone dot1q) {
  NOX_TRACE_ENTRY("programDot1q intf {} vlan {} dot1q {}", intf, vlan, dot1q);
  VEL_ASSERT(initialized());
  if (!isLag(intf)) {
    programDot1qHelper(intf, intf, vlan, dot1q);
    return;
  }
  auto const members = ncsd_->lagToPortColl().find(intf);
  if (!members) {
    DOT1Q_DECISION("no lag configuration");
    unprogramDot1q(intf, vlan, dot1q);
    return;
  }
  if (members->ports() == 0) {
    DOT1Q_DECISION("no lag members");
    unprogramDot1q(intf, vlan, dot1q);
    return;
  }
  // The member ports are all tried again below, so nothing waits for a retry meanwhile.
  IntfVlanKey const pair(intf, vlan);
  unprogrammedDot1qDel(pair);
  if (auto const status = dot1qStatus(pair)) status->unprogrammedDelAll();
  // Copied: the helper calls below may notify, and the agent may rewrite the list.
  NoxPortList const ports = *members;
  deleteStaleLagMembers(pair, ports, dot1q);
  for (IntfId const& port : ports.portColl()) programDot1qHelper(intf, port, vlan, dot1q);
}

void EvpnFloodingDot1qSm::deleteStaleLagMembers(IntfVlanKey const& pair, NoxPortList const& members,
                                                VlanIdOrNone dot1q) {
  auto const status = dot1qStatus(pair);
  if (!status) return;
  for (IntfId const& port : keysOf(status->programmedColl())) {
    if (members.portIsMemberOf(port)) continue;
    DOT1Q_DECISION("stale lag member, delete");
    unprogramDot1qHelper(pair.intfId(), port, pair.vlanId(), dot1q);
  }
}

void EvpnFloodingDot1qSm::programDot1qHelper(IntfId const& logicalIntf, IntfId const& phyIntf,
                                             VlanId vlan, VlanIdOrNone dot1q) {
  NOX_TRACE_ENTRY("programDot1qHelper intf {} phy intf {} vlan {} dot1q {}", logicalIntf, phyIntf,
                  vlan, dot1q);
  VEL_ASSERT(initialized());
  IntfVlanKey const pair(logicalIntf, vlan);
  auto status = dot1qStatusIs(pair);
  if (status->programmedIsMemberOf(phyIntf)) {
    DOT1Q_DECISION("already programmed");
    return;
  }
  // A pair waits only while some port of it is unprogrammed.
  if (status->unprogrammedDel(phyIntf) && status->unprogrammeds() == 0) {
    unprogrammedDot1qDel(pair);
  }
  status = nullptr;
  HwProgrammingStatus const rc = helper_->createVlanToDot1qMapping(phyIntf, vlan, dot1q);
  switch (rc) {
    case programmed:
      DOT1Q_DECISION("programmed dot1q mapping");
      dot1qStatusIs(pair)->programmedIs(phyIntf, true);
      return;
    case notProgrammed:
      DOT1Q_DECISION("failed to program dot1q mapping");
      break;
    case invalidHwId:
      DOT1Q_DECISION("invalid hwId, failed to program dot1q mapping");
      break;
    default:
      return;
  }
  unprogrammedDot1qIs(pair, true);
  dot1qStatusIs(pair)->unprogrammedIs(phyIntf, true);
  maybeScheduleUnprogrammedReview(false);
}

void EvpnFloodingDot1qSm::unprogramDot1q(IntfId const& intf, VlanId vlan, VlanIdOrNone dot1q) {
  NOX_TRACE_ENTRY("unprogramDot1q intf {} vlan {} dot1q {}", intf, vlan, dot1q);
  VEL_ASSERT(initialized());
  IntfVlanKey const pair(intf, vlan);
  unprogrammedDot1qDel(pair);
  auto const status = dot1qStatus(pair);
  if (!status) {
    DOT1Q_DECISION("not programmed");
    return;
  }
  for (IntfId const& port : keysOf(status->programmedColl())) {
    unprogramDot1qHelper(intf, port, vlan, dot1q);
  }
  dot1qStatusDel(pair);
}

void EvpnFloodingDot1qSm::unprogramDot1qHelper(IntfId const& logicalIntf, IntfId const& phyIntf,
                                               VlanId vlan, VlanIdOrNone dot1q) {
  NOX_TRACE_ENTRY("unprogramDot1qHelper logical intf {} phy intf {} vlan {} dot1q {}", logicalIntf,
                  phyIntf, vlan, dot1q);
  VEL_ASSERT(initialized());
  auto const status = dot1qStatus(IntfVlanKey(logicalIntf, vlan));
  if (!status || !status->programmedIsMemberOf(phyIntf)) {
    DOT1Q_DECISION("not programmed");
    return;
  }
  status->unprogrammedDel(phyIntf);
  status->programmedDel(phyIntf);
  helper_->deleteVlanToDot1qMapping(phyIntf, vlan, dot1q);
  maybeScheduleUnprogrammedReview(true);
}

// A removal may have freed what a waiting pair needs, so it asks for a review at once; a failure
// waits for the retry interval. The timer is armed whether or not anything waits: a review that
// finds nothing simply ends.
void EvpnFloodingDot1qSm::maybeScheduleUnprogrammedReview(bool immediate) {
  NOX_TRACE_ENTRY("maybeScheduleUnprogrammedReview immediate {}", immediate);
  VEL_ASSERT(initialized());
  if (immediate) {
    reviewUnprogrammed_->scheduleTask();
    DOT1Q_DECISION("schedule immediate unprogrammed review");
    return;
  }
  if (reviewUnprogrammed_->taskScheduled()) {
    DOT1Q_DECISION("already scheduled");
    return;
  }
  reviewUnprogrammed_->scheduleTaskDelay(defaultUnprogrammedRetryInterval_);
  DOT1Q_DECISION("next unprogrammed review at {}",
                 scheduler_->now() + defaultUnprogrammedRetryInterval_);
}

// A pair that fails again re-arms the timer itself (the task is not scheduled while it runs).
void EvpnFloodingDot1qSm::doReviewUnprogrammed() {
  NOX_TRACE_ENTRY("doReviewUnprogrammed");
  VEL_ASSERT(initialized());
  for (IntfVlanKey const& pair : keysOf(unprogrammedDot1qColl())) {
    auto const ds = dot1qStatus(pair);
    VEL_ASSERT(ds);
    VEL_ASSERT(ds->unprogrammeds());
    processIntfVlan(pair.intfId(), pair.vlanId());
    reviewUnprogrammed_->taskWorkCountInc(1);
    if (reviewUnprogrammed_->taskShouldYield()) {
      reviewUnprogrammed_->scheduleTaskDelay(defaultUnprogrammedRetryInterval_);
      return;
    }
  }
}

// What waits.

std::vector<PendingItem> EvpnFloodingDot1qSm::pending() const {
  std::vector<PendingItem> items;
  for (auto [pair, flag] : unprogrammedDot1qColl()) {
    std::string ports;
    if (auto const status = dot1qStatus(pair)) {
      for (auto [port, member] : status->unprogrammedColl()) {
        ports += pendingText(ports.empty() ? "" : ",", port.name());
      }
    }
    items.push_back({"dot1q", pendingText(pair.intfId().name(), " ", pair.vlanId().value()),
                     pendingText("dot1q mapping refused on ", ports),
                     pairWaitingSince_.since(pair)});
  }
  return items;
}

VEL_REGISTER_TYPE(EvpnFloodingDot1qSm);

}  // namespace Nox
