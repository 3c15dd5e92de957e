// Nox::EvpnFloodingEsiSm: ethernet segments, designated forwarders, ESI labels and port-channel
// membership in; hardware tunnel ids published and ESI data programmed per physical port.
//
// An interface/VLAN pair walks up and down one ladder: mapped (it has a designated-forwarder
// tep), tunnel chosen (the tep's tunnel, published with a hardware id or waiting for one),
// label known (the tep advertised an MPLS ESI label), programmed on each physical port or
// waiting. processIntfVlan decides the whole ladder for one pair from the inputs, so every
// handler and the review only say which pairs to look at again.

#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "src-includes/NoxEvpn/NoxEvpnFloodingEsiSm";
}  // namespace
NOX_TRACE_FACILITY("NoxEvpn");

using Bridging::VlanId;
using Gantry::IntfId;
using Gantry::MplsLabel;

namespace {

// The keys of a collection, copied so that the walk over them may change the collection.
template <class Coll>
std::vector<typename Coll::Key> keysOf(Coll const& coll) {
  std::vector<typename Coll::Key> keys;
  keys.reserve(coll.count());
  for (auto [key, value] : coll) keys.push_back(key);
  return keys;
}

}  // namespace

// Construction.

EvpnFloodingEsiSm::EvpnFloodingEsiSm(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId)
    : floodingHelper_(floodingHelper),
      scheduler_(scheduler),
      ncsd_(ncsd),
      evpnStatus_(evpnStatus),
      tunnelIdHwTunnelId_(tunnelIdHwTunnelId) {
  if (ncsd_) velNcsd_ = std::make_unique<VelNcsd>(ncsd_, this);
  if (evpnStatus_) velEvpnStatus_ = std::make_unique<VelEvpnStatus>(evpnStatus_, this);
  handleInitialized();
}

Vel::Ptr<EvpnFloodingEsiSm> EvpnFloodingEsiSm::EvpnFloodingEsiSmIs(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId) {
  return Vel::Ptr<EvpnFloodingEsiSm>(
      new EvpnFloodingEsiSm(floodingHelper, scheduler, ncsd, evpnStatus, tunnelIdHwTunnelId));
}

Vel::Ptr<EvpnFloodingEsiSm> evpnFloodingEsiSmFactory(
    Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> const& floodingHelper,
    Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::Ptr<NoxCommonSmData const> const& ncsd,
    Vel::Ptr<Evpn::EvpnStatus const> const& evpnStatus,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping> const& tunnelIdHwTunnelId) {
  return EvpnFloodingEsiSm::EvpnFloodingEsiSmIs(floodingHelper, scheduler, ncsd, evpnStatus,
                                                tunnelIdHwTunnelId);
}

EvpnFloodingEsiSm::~EvpnFloodingEsiSm() {
  if (reviewUnprogrammed_) {
    reviewUnprogrammed_->unscheduleTask();
    reviewUnprogrammed_->notifieeIs(nullptr);
  }
  segmentStatusDelAll();
}

EvpnFloodingEsiSm::VelEvpnStatus::VelEvpnStatus(Vel::Ptr<Evpn::EvpnStatus const> const& status,
                                                EvpnFloodingEsiSm* sm)
    : NotifieeConst(status), sm_(sm) {
  for (auto [intf, segment] : status->segmentStatusColl()) sm_->segmentStatusIs(segment);
}

// Initialization. Hardware tunnel ids do not survive a restart: the table is emptied and every
// tunnel in use gets a fresh id in the walk. Readers see the table not ready until the walk has
// published it again.

void EvpnFloodingEsiSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized");
  VEL_ASSERT(floodingHelper());
  VEL_ASSERT(scheduler());
  VEL_ASSERT(evpnStatus());
  VEL_ASSERT(tunnelIdHwTunnelId());
  VEL_ASSERT(ncsd());
  reviewUnprogrammed_ = Vel::Ptr<Cog::TimerTask>(
      new Cog::TimerTask(scheduler_, reviewPriority, "reviewUnprogrammed"));
  reviewUnprogrammed_->notifieeIs(&velReviewUnprogrammed_);
  tunnelIdHwTunnelId_->tunnelIdToHwTunnelIdReadyIs(false);
  tunnelIdHwTunnelId_->tunnelIdToHwTunnelIdDelAll();
  initialized_ = true;
  std::vector<IntfVlanKey> pairs;
  for (auto [intf, segment] : evpnStatus_->segmentStatusColl()) {
    for (auto [vlan, tep] : segment->designatedForwarderTepColl()) pairs.emplace_back(intf, vlan);
  }
  for (IntfVlanKey const& pair : pairs) addIntfVlanMapping(pair.intfId(), pair.vlanId());
  tunnelIdHwTunnelId_->tunnelIdToHwTunnelIdReadyIs(true);
}

// Segment handlers. A departed segment is still held by its reactor while its handler runs.

void EvpnFloodingEsiSm::VelEvpnStatus::onSegmentStatus(IntfId const& intf) {
  Vel::Ptr<Evpn::EthernetSegmentStatus const> member = notifier()->segmentStatus(intf);
  Vel::followMember(
      member != nullptr, [&] { sm_->segmentStatusIs(member); },
      [&] {
        if (VelSegmentStatus* reactor = sm_->segmentStatus(intf)) reactor->handleSegmentStatus();
      },
      [&] { sm_->segmentStatusDel(intf); });
}

void EvpnFloodingEsiSm::VelSegmentStatus::handleSegmentStatus() {
  IntfId const intf = key();
  NOX_TRACE_ENTRY("handleSegmentStatus intf {}", intf);
  if (!sm_->initialized()) return;
  if (!sm_->evpnStatus()->segmentStatusIsMemberOf(intf)) {
    if (auto vlans = sm_->intfVlanSet(intf)) {
      for (VlanId vlan : keysOf(vlans->vlanIdColl())) sm_->deleteIntfVlanMapping(intf, vlan);
    }
    return;
  }
  for (VlanId vlan : keysOf(notifier()->designatedForwarderTepColl())) {
    sm_->addIntfVlanMapping(intf, vlan);
  }
}

void EvpnFloodingEsiSm::VelSegmentStatus::handleDFTep(VlanId vlan) {
  IntfId const intf = key();
  NOX_TRACE_ENTRY("handleDFTep intf {} vlan {}", intf, vlan);
  if (!sm_->initialized()) return;
  if (notifier()->designatedForwarderTepIsMemberOf(vlan)) {
    sm_->addIntfVlanMapping(intf, vlan);
  } else {
    sm_->deleteIntfVlanMapping(intf, vlan);
  }
}

// Only the VLANs whose designated forwarder sits behind the advertising tep use its label.
void EvpnFloodingEsiSm::VelSegmentStatus::handleLabel(IntfId const& tepIntf) {
  IntfId const intf = key();
  TunnelId const tunnelId = Evpn::tepTunnelId(tepIntf);
  NOX_TRACE_ENTRY("handleLabel intf {} tunnel {}", intf, tunnelId);
  if (!sm_->initialized()) return;
  auto const vlans = sm_->intfTunnelVlanSet(IntfTunnelKey(intf, tunnelId));
  if (!vlans) return;
  for (VlanId vlan : keysOf(vlans->vlanIdColl())) sm_->processIntfVlan(intf, vlan);
}

void EvpnFloodingEsiSm::VelNcsd::onLagToPort(IntfId const& lag) { sm_->handleLagPort(lag); }

void EvpnFloodingEsiSm::handleLagPort(IntfId const& intf) {
  NOX_TRACE_ENTRY("handleLagPort intf {}", intf);
  if (!initialized()) return;
  auto const vlans = intfVlanSet(intf);
  if (!vlans) return;
  for (VlanId vlan : keysOf(vlans->vlanIdColl())) processIntfVlan(intf, vlan);
}

// Pairs.

void EvpnFloodingEsiSm::addIntfVlanMapping(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("addIntfVlanMapping intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  intfVlanSetIs(intf)->vlanIdIs(vlan, true);
  vlanIntfSetIs(vlan)->intfIdIs(intf, true);
  processIntfVlan(intf, vlan);
}

void EvpnFloodingEsiSm::deleteIntfVlanMapping(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("deleteIntfVlanMapping intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  if (auto vlans = intfVlanSet(intf)) {
    vlans->vlanIdDel(vlan);
    if (vlans->vlanIds() == 0) intfVlanSetDel(intf);
  }
  if (auto intfs = vlanIntfSet(vlan)) {
    intfs->intfIdDel(intf);
    if (intfs->intfIds() == 0) vlanIntfSetDel(vlan);
  }
  processIntfVlan(intf, vlan);
}

void EvpnFloodingEsiSm::processIntfVlan(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("processIntfVlan intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  ++processDepth_;
  decideIntfVlan(intf, vlan);
  // A pair retried and refused again leaves unprogrammedEsi for the call and comes back: it has
  // waited since its first refusal, so its time is settled once the decision is made.
  IntfVlanKey const key(intf, vlan);
  if (unprogrammedEsis() != 0 && unprogrammedEsiIsMemberOf(key)) {
    pairWaitingSince_.started(key, scheduler_->now());
  } else {
    pairWaitingSince_.stopped(key);
  }
  if (--processDepth_ == 0) revisitTunnelsPublishedLate();
}

// A tunnel that waited for a hardware id may get one while a pair other than those that wait
// for it is processed (a new designated forwarder behind the same tep, say). Its other pairs,
// which could not be programmed without the id and are listed nowhere, are looked at again once
// the outermost decision is done, so that the calls keep the order of the pairs.
void EvpnFloodingEsiSm::revisitTunnelsPublishedLate() {
  NOX_TRACE_ENTRY("revisitTunnelsPublishedLate");
  while (!tunnelsPublishedLate_.empty()) {
    TunnelId const tunnel = tunnelsPublishedLate_.back();
    tunnelsPublishedLate_.pop_back();
    auto const pairs = tunnelIntfVlanSet(tunnel);
    if (!pairs) continue;
    for (IntfVlanKey const& key : keysOf(pairs->intfVlanColl())) {
      processIntfVlan(key.intfId(), key.vlanId());
    }
  }
}

void EvpnFloodingEsiSm::decideIntfVlan(IntfId const& intf, VlanId vlan) {
  auto segment = evpnStatus_->segmentStatusColl().find(intf);
  if (!segment) {
    NOX_TRACE_CHANGE("no segment status");
    deleteIntfVlanTunnelMapping(intf, vlan);
    return;
  }
  auto const tepFound = segment->designatedForwarderTepColl().find(vlan);
  if (!tepFound) {
    NOX_TRACE_CHANGE("no designated forwarder tep");
    deleteIntfVlanTunnelMapping(intf, vlan);
    return;
  }
  IntfId const tep = *tepFound;
  TunnelId const tunnelId = Evpn::tepTunnelId(tep);
  std::optional<HwTunnelId> published;
  // Publishing notified the table's readers: look the segment up again.
  if (addOrUpdateIntfVlanTunnelMapping(intf, vlan, tunnelId, published)) {
    segment = evpnStatus_->segmentStatusColl().find(intf);
  }
  auto const label = segment ? segment->remoteEsiLabelColl().find(tep) : nullptr;
  if (!label) {
    NOX_TRACE_CHANGE("no esi label");
    deleteIntfVlanTunnelLabelMapping(intf, vlan, tunnelId);
    return;
  }
  if (!label->isMpls()) {
    NOX_TRACE_CHANGE("incorrect encap type {}", *label);
    deleteIntfVlanTunnelLabelMapping(intf, vlan, tunnelId);
    return;
  }
  // The pair's tunnel was set and found published last, and nothing since has notified: the
  // ports need not look either up again.
  std::optional<PairTarget> target;
  if (published) target.emplace(PairTarget{tunnelId, published, nullptr});
  addOrUpdateIntfVlanTunnelLabelMapping(intf, vlan, tunnelId, label->mplsLabel(), target);
}

// Tunnels of pairs.

bool EvpnFloodingEsiSm::addOrUpdateIntfVlanTunnelMapping(IntfId const& intf, VlanId vlan,
                                                         TunnelId const& tunnelId) {
  std::optional<HwTunnelId> published;
  return addOrUpdateIntfVlanTunnelMapping(intf, vlan, tunnelId, published);
}

bool EvpnFloodingEsiSm::addOrUpdateIntfVlanTunnelMapping(IntfId const& intf, VlanId vlan,
                                                         TunnelId const& tunnelId,
                                                         std::optional<HwTunnelId>& published) {
  NOX_TRACE_ENTRY("addOrUpdateIntfVlanTunnelMapping intf {} vlan {} tunnel {}", intf, vlan,
                  tunnelId);
  VEL_ASSERT(initialized());
  IntfVlanKey const key(intf, vlan);
  auto const existing = intfVlanTunnelColl().find(key);
  if (existing && *existing == tunnelId) {
    // The pair is in both reverse sets already: they change together with intfVlanTunnel.
    return publishTunnel(tunnelId, published);
  }
  if (existing) deleteIntfVlanTunnelMapping(intf, vlan);
  intfVlanTunnelIs(key, tunnelId);
  tunnelIntfVlanSetIs(tunnelId)->intfVlanIs(key, true);
  intfTunnelVlanSetIs(IntfTunnelKey(intf, tunnelId))->vlanIdIs(vlan, true);
  publishTunnel(tunnelId, published);
  return true;
}

void EvpnFloodingEsiSm::deleteIntfVlanTunnelMapping(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("deleteIntfVlanTunnelMapping intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  IntfVlanKey const key(intf, vlan);
  auto const found = intfVlanTunnelColl().find(key);
  if (!found) return;
  TunnelId const tunnel = *found;
  intfVlanTunnelDel(key);

  IntfTunnelKey const intfTunnel(intf, tunnel);
  auto const itvs = intfTunnelVlanSet(intfTunnel);
  VEL_ASSERT(itvs);
  itvs->vlanIdDel(vlan);
  if (itvs->vlanIds() == 0) intfTunnelVlanSetDel(intfTunnel);

  auto const tivs = tunnelIntfVlanSet(tunnel);
  VEL_ASSERT(tivs);
  tivs->intfVlanDel(key);
  if (tivs->intfVlans() == 0) {
    tunnelIntfVlanSetDel(tunnel);
    unpublishTunnel(tunnel);
  }
  deleteIntfVlanTunnelLabelMapping(intf, vlan, tunnel);
}

// Labels of pairs.

void EvpnFloodingEsiSm::addOrUpdateIntfVlanTunnelLabelMapping(IntfId const& intf, VlanId vlan,
                                                              TunnelId const& tunnelId,
                                                              MplsLabel label) {
  std::optional<PairTarget> target;
  addOrUpdateIntfVlanTunnelLabelMapping(intf, vlan, tunnelId, label, target);
}

void EvpnFloodingEsiSm::addOrUpdateIntfVlanTunnelLabelMapping(IntfId const& intf, VlanId vlan,
                                                              TunnelId const& tunnelId,
                                                              MplsLabel label,
                                                              std::optional<PairTarget>& target) {
  NOX_TRACE_ENTRY("addOrUpdateIntfVlanTunnelLabelMapping intf {} vlan {} tunnel {} label {}", intf,
                  vlan, tunnelId, label);
  VEL_ASSERT(initialized());
  IntfVlanTunnelKey const key(intf, vlan, tunnelId);
  auto const recorded = intfVlanTunnelLabelColl().find(key);
  bool const same = recorded && *recorded == label;
  if (recorded && !same) {
    deleteIntfVlanTunnelLabelMapping(intf, vlan, tunnelId);
    target.reset();
  }
  // Writing the label it holds would change nothing.
  if (!same) intfVlanTunnelLabelIs(key, label);
  // An unchanged label still goes through: the per-port check makes it a no-op, and a port
  // that joined since is programmed.
  programEsi(intf, vlan, label, target);
}

void EvpnFloodingEsiSm::deleteIntfVlanTunnelLabelMapping(IntfId const& intf, VlanId vlan,
                                                         TunnelId const& tunnelId) {
  NOX_TRACE_ENTRY("deleteIntfVlanTunnelLabelMapping intf {} vlan {} tunnel {}", intf, vlan,
                  tunnelId);
  VEL_ASSERT(initialized());
  if (!intfVlanTunnelLabelDel(IntfVlanTunnelKey(intf, vlan, tunnelId))) return;
  unprogramEsi(intf, vlan);
}

// ESI data per physical port.

void EvpnFloodingEsiSm::programEsi(IntfId const& intf, VlanId vlan, MplsLabel label) {
  std::optional<PairTarget> target;
  programEsi(intf, vlan, label, target);
}

void EvpnFloodingEsiSm::programEsi(IntfId const& intf, VlanId vlan, MplsLabel label,
                                   std::optional<PairTarget>& target) {
  NOX_TRACE_ENTRY("programEsi intf {} vlan {} label {}", intf, vlan, label);
  VEL_ASSERT(initialized());
  if (!isLag(intf)) {
    programEsiPort(intf, intf, vlan, label, target, Seen::unknown);
    return;
  }
  auto const members = ncsd_->lagToPortColl().find(intf);
  if (!members) {
    NOX_TRACE_CHANGE("no lag configuration");
    unprogramEsi(intf, vlan);
    return;
  }
  if (members->ports() == 0) {
    NOX_TRACE_CHANGE("no lag members");
    unprogramEsi(intf, vlan);
    return;
  }
  IntfVlanKey const key(intf, vlan);
  if (unprogrammedEsis() != 0) unprogrammedEsiDel(key);
  // A copy: the helper calls below may notify. Port-channels of usual size stay on the stack,
  // as this runs for every VLAN of a port-channel whose members change.
  std::size_t const count = members->ports();
  std::array<IntfId, 16> few;
  std::vector<IntfId> many;
  IntfId* ports = few.data();
  if (count > few.size()) {
    many = members->portColl();
    ports = many.data();
  } else {
    std::copy(members->portColl().begin(), members->portColl().end(), few.begin());
  }
  // Whether each member is programmed already, asked once here rather than port by port. Once
  // every port recorded for the pair has been found among the members, the other members are
  // known to be in neither collection and none is stale: the recorded ports need no walk.
  std::array<Seen, 16> fewSeen;
  std::vector<Seen> manySeen(count > fewSeen.size() ? count : 0);
  Seen* seen = count > fewSeen.size() ? manySeen.data() : fewSeen.data();
  std::fill(seen, seen + count, Seen::notProgrammed);
  std::vector<IntfId> stale;
  Vel::Ptr<IntfVlanStatus> status = esiStatus(key);
  if (status) {
    std::size_t const recorded = status->programmeds() + status->unprogrammeds();
    std::size_t found = 0;
    for (std::size_t i = 0; i < count && found < recorded; ++i) {
      auto const flag = status->programmedColl().find(ports[i]);
      if (flag) ++found;
      seen[i] = flag && *flag ? Seen::programmed : Seen::notProgrammed;
      if (status->unprogrammeds() != 0 && status->unprogrammedIsMemberOf(ports[i])) ++found;
    }
    if (found != recorded) {
      auto const isMember = [&](IntfId const& port) {
        return std::find(ports, ports + count, port) != ports + count;
      };
      for (auto [port, flag] : status->programmedColl()) {
        if (!isMember(port)) stale.push_back(port);
      }
      for (auto [port, flag] : status->unprogrammedColl()) {
        if (!isMember(port)) stale.push_back(port);
      }
    }
  }
  for (IntfId const& port : stale) {
    NOX_TRACE_CHANGE("stale lag member, delete");
    unprogramEsiHelper(intf, port, vlan);
  }
  // What was seen holds until something notifies, which also drops the target.
  bool holds = stale.empty();
  if (!holds) {
    target.reset();
  } else if (target && target->hwTunnelId) {
    target->status = std::move(status);
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (holds && seen[i] == Seen::programmed && target && target->hwTunnelId) {
      // What programEsiPort does for such a port, without the call: most members of a
      // port-channel whose membership changed are programmed already.
      NOX_TRACE_ENTRY("programEsiHelper logical intf {} phy intf {} vlan {} label {}", intf,
                      ports[i], vlan, label);
      NOX_TRACE_CHANGE("already programmed");
      continue;
    }
    programEsiPort(intf, ports[i], vlan, label, target, holds ? seen[i] : Seen::unknown);
    if (!target) holds = false;
  }
}

void EvpnFloodingEsiSm::programEsiHelper(IntfId const& logIntfId, IntfId const& phyIntfId,
                                         VlanId vlan, MplsLabel label) {
  std::optional<PairTarget> target;
  programEsiPort(logIntfId, phyIntfId, vlan, label, target, Seen::unknown);
}

void EvpnFloodingEsiSm::programEsiPort(IntfId const& logIntfId, IntfId const& phyIntfId,
                                       VlanId vlan, MplsLabel label,
                                       std::optional<PairTarget>& target, Seen seen) {
  NOX_TRACE_ENTRY("programEsiHelper logical intf {} phy intf {} vlan {} label {}", logIntfId,
                  phyIntfId, vlan, label);
  VEL_ASSERT(initialized());
  IntfVlanKey const key(logIntfId, vlan);
  if (!target) {
    // The assertion prints this text as written, spaces included.
    // clang-format off
    VEL_ASSERT(intfVlanTunnelIteratorConst().isMemberOf( key ));
    // clang-format on
    TunnelId const tunnel = intfVlanTunnel(key);
    std::optional<HwTunnelId> const hwTunnelId = publishedHwTunnelId(tunnel);
    target.emplace(PairTarget{tunnel, hwTunnelId, nullptr});
    if (hwTunnelId) {
      IntfVlanTunnelKey const labelKey(logIntfId, vlan, tunnel);
      // The assertion prints this text as written, spaces included.
      // clang-format off
      VEL_ASSERT(intfVlanTunnelLabelColl().isMemberOf( labelKey ));
      // clang-format on
    }
  }
  if (!target->hwTunnelId) {
    // The tunnel waits in unprogrammedTunnel; the review comes back to this pair through it.
    NOX_TRACE_CHANGE("hw tunnel id not published");
    return;
  }
  if (seen == Seen::programmed) {
    NOX_TRACE_CHANGE("already programmed");
    return;
  }
  if (!target->status) target->status = esiStatusIs(key);
  if (seen == Seen::unknown && target->status->programmed(phyIntfId)) {
    NOX_TRACE_CHANGE("already programmed");
    return;
  }
  // From here on the status notifies or the helper is called: the next port looks up again.
  Vel::Ptr<IntfVlanStatus> status = std::move(target->status);
  TunnelId const tunnel = target->tunnel;
  HwTunnelId const hwTunnelId = *target->hwTunnelId;
  target.reset();
  if (status->unprogrammeds() != 0) {
    status->unprogrammedDel(phyIntfId);
    if (status->unprogrammeds() == 0) unprogrammedEsiDel(key);
  } else if (unprogrammedEsis() != 0) {
    unprogrammedEsiDel(key);
  }

  HwProgrammingStatus const rc =
      floodingHelper_->createEsiData(phyIntfId, vlan, tunnel, hwTunnelId, label);
  status = esiStatusIs(key);
  switch (rc) {
    case programmed:
      NOX_TRACE_CHANGE("programmed esi");
      status->programmedIs(phyIntfId, true);
      return;
    case notProgrammed:
      NOX_TRACE_CHANGE("failed to program esi");
      unprogrammedEsiIs(key, true);
      status->unprogrammedIs(phyIntfId, true);
      maybeScheduleUnprogrammedReview(false);
      return;
    case invalidHwId:
      // The hardware id came from the helper itself: retrying cannot mend it.
      NOX_TRACE_CHANGE("invalid hwId, failed to program");
      VEL_ASSERT(rc != invalidHwId);
      return;
  }
}

void EvpnFloodingEsiSm::unprogramEsi(IntfId const& intf, VlanId vlan) {
  NOX_TRACE_ENTRY("unprogramEsi intf {} vlan {}", intf, vlan);
  VEL_ASSERT(initialized());
  IntfVlanKey const key(intf, vlan);
  unprogrammedEsiDel(key);
  auto const status = esiStatus(key);
  if (!status) {
    NOX_TRACE_CHANGE("not programmed");
    return;
  }
  for (IntfId const& port : keysOf(status->programmedColl())) {
    unprogramEsiHelper(intf, port, vlan);
  }
  // The hardware just freed may let the waiting pairs through.
  if (unprogrammedEsis() > 0) maybeScheduleUnprogrammedReview(true);
  esiStatusDel(key);
}

void EvpnFloodingEsiSm::unprogramEsiHelper(IntfId const& logIntfId, IntfId const& phyIntfId,
                                           VlanId vlan) {
  NOX_TRACE_ENTRY("unprogramEsiHelper logical intf {} phy intf {} vlan {}", logIntfId, phyIntfId,
                  vlan);
  VEL_ASSERT(initialized());
  auto const status = esiStatus(IntfVlanKey(logIntfId, vlan));
  if (status) status->unprogrammedDel(phyIntfId);
  if (!status || !status->programmedDel(phyIntfId)) {
    NOX_TRACE_CHANGE("not programmed");
    return;
  }
  floodingHelper_->deleteEsiData(phyIntfId, vlan);
}

// Hardware tunnel ids.

std::optional<HwTunnelId> EvpnFloodingEsiSm::publishedHwTunnelId(TunnelId const& tunnelId) const {
  std::optional<TunnelIdToHwTunnelId> const entry =
      tunnelIdHwTunnelId_->tunnelIdToHwTunnelIdColl().table().find(tunnelId);
  if (!entry) return std::nullopt;
  return entry->hwTunnelId();
}

bool EvpnFloodingEsiSm::publishTunnel(TunnelId const& tunnelId) {
  std::optional<HwTunnelId> published;
  return publishTunnel(tunnelId, published);
}

bool EvpnFloodingEsiSm::publishTunnel(TunnelId const& tunnelId,
                                      std::optional<HwTunnelId>& published) {
  NOX_TRACE_ENTRY("publishTunnel tunnel {}", tunnelId);
  VEL_ASSERT(initialized());
  published = publishedHwTunnelId(tunnelId);
  if (published) {
    NOX_TRACE_CHANGE("already programmed");
    return false;
  }
  HwTunnelId const hwId = floodingHelper_->getHwTunnelId();
  if (hwId == HwTunnelId()) {
    NOX_TRACE_CHANGE("failed to program tunnel");
    unprogrammedTunnelIs(tunnelId, true);
    tunnelWaitingSince_.started(tunnelId, scheduler_->now());
    maybeScheduleUnprogrammedReview(false);
    return true;
  }
  NOX_TRACE_CHANGE("tunnel programmed with hw tunnel id {}", hwId);
  tunnelIdHwTunnelId_->tunnelIdToHwTunnelIdIs(TunnelIdToHwTunnelId(tunnelId, hwId));
  if (unprogrammedTunnelDel(tunnelId)) {
    tunnelWaitingSince_.stopped(tunnelId);
    tunnelsPublishedLate_.push_back(tunnelId);
  }
  return true;
}

void EvpnFloodingEsiSm::unpublishTunnel(TunnelId const& tunnelId) {
  NOX_TRACE_ENTRY("unpublishTunnel tunnel {}", tunnelId);
  VEL_ASSERT(initialized());
  if (unprogrammedTunnelDel(tunnelId)) tunnelWaitingSince_.stopped(tunnelId);
  std::optional<HwTunnelId> const hwId = publishedHwTunnelId(tunnelId);
  if (!hwId) {
    NOX_TRACE_CHANGE("not programmed");
    return;
  }
  tunnelIdHwTunnelId_->tunnelIdToHwTunnelIdDel(tunnelId);
  NOX_TRACE_CHANGE("releasing hw tunnel id {}", *hwId);
  floodingHelper_->releaseHwTunnelId(*hwId);
  // The freed id can serve a waiting tunnel now.
  if (unprogrammedTunnels() > 0) maybeScheduleUnprogrammedReview(true);
}

// The review.

void EvpnFloodingEsiSm::maybeScheduleUnprogrammedReview(bool immediate) {
  NOX_TRACE_ENTRY("maybeScheduleUnprogrammedReview immediate {}", immediate);
  VEL_ASSERT(initialized());
  if (immediate) {
    reviewUnprogrammed_->scheduleTask();
    NOX_TRACE_CHANGE("schedule immediate unprogrammed review");
    return;
  }
  if (reviewUnprogrammed_->taskScheduled()) {
    NOX_TRACE_CHANGE("already scheduled");
    return;
  }
  reviewUnprogrammed_->scheduleTaskDelay(unprogrammedRetryInterval_);
  NOX_TRACE_CHANGE("next unprogrammed review at {}",
                   scheduler_->now() + unprogrammedRetryInterval_);
}

void EvpnFloodingEsiSm::VelReviewUnprogrammed::onTaskRun() { sm_->doReviewUnprogrammed(); }

bool EvpnFloodingEsiSm::reviewYields() {
  if (!reviewUnprogrammed_->taskShouldYield()) return false;
  reviewUnprogrammed_->scheduleTaskDelay(unprogrammedRetryInterval_);
  return true;
}

// Waiting tunnels first: publishing one lets its pairs program, and the pairs walked here may
// leave unprogrammedEsi before the second walk reaches them. A tunnel's pairs are walked to
// the end before the review yields, because once published the tunnel no longer waits and a
// later run would not come back to the rest of them.
void EvpnFloodingEsiSm::doReviewUnprogrammed() {
  NOX_TRACE_ENTRY("doReviewUnprogrammed");
  VEL_ASSERT(initialized());
  auto const& task = reviewUnprogrammed_;
  VEL_ASSERT(task);
  for (TunnelId const& tunnel : keysOf(unprogrammedTunnelColl())) {
    if (!unprogrammedTunnelIsMemberOf(tunnel)) continue;
    auto const tivs = tunnelIntfVlanSet(tunnel);
    VEL_ASSERT(tivs);
    for (IntfVlanKey const& pair : keysOf(tivs->intfVlanColl())) {
      processIntfVlan(pair.intfId(), pair.vlanId());
      task->taskWorkCountInc(1);
    }
    if (reviewYields()) return;
  }
  for (IntfVlanKey const& pair : keysOf(unprogrammedEsiColl())) {
    if (!unprogrammedEsiIsMemberOf(pair)) continue;
    auto const es = esiStatus(pair);
    VEL_ASSERT(es);
    VEL_ASSERT(es->unprogrammeds());
    processIntfVlan(pair.intfId(), pair.vlanId());
    task->taskWorkCountInc(1);
    if (reviewYields()) return;
  }
}

// What waits.

std::vector<PendingItem> EvpnFloodingEsiSm::pending() const {
  auto const pairText = [](IntfVlanKey const& pair) {
    return pendingText(pair.intfId().name(), " ", pair.vlanId().value());
  };
  std::vector<PendingItem> items;
  for (auto [tunnel, flag] : unprogrammedTunnelColl()) {
    double const since = tunnelWaitingSince_.since(tunnel);
    items.push_back(
        {"esi", pendingText("tunnel ", tunnel.value()), "no hw tunnel id (ids exhausted)", since});
    auto const pairs = tunnelIntfVlanSet(tunnel);
    if (!pairs) continue;
    for (auto [pair, member] : pairs->intfVlanColl()) {
      items.push_back({"esi", pairText(pair),
                       pendingText("tunnel ", tunnel.value(), " has no hw tunnel id"), since});
    }
  }
  for (auto [pair, flag] : unprogrammedEsiColl()) {
    std::string ports;
    if (auto const status = esiStatus(pair)) {
      for (auto [port, member] : status->unprogrammedColl()) {
        ports += pendingText(ports.empty() ? "" : ",", port.name());
      }
    }
    items.push_back({"esi", pairText(pair), pendingText("esi data refused on ", ports),
                     pairWaitingSince_.since(pair)});
  }
  return items;
}

VEL_REGISTER_TYPE(EvpnFloodingEsiSm);

}  // namespace Nox
