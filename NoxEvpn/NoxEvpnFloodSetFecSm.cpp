// Nox::EvpnFloodSetFecSm: MPLS flood vias in, FECs, hardware FEC id requests and hardware
// information out.
//
// A via is wanted while a flood-set entry uses it (floodSetEntryCache) and held while the
// hardware status shows a configuration with it programmed (floodSetStatusCache). Its FEC id
// lives in mplsFloodSetViaCache/fecIdCache from the first request until the request and the
// programmer's response are both gone; a via wanted again in between gets the same id back.

#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"

#include <vector>

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "src-includes/NoxEvpn/NoxEvpnFloodSetFecSm";
}  // namespace
NOX_TRACE_FACILITY("NoxEvpn");

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Gantry::EthAddr;
using L2Rib::Dest;

namespace {
MplsFloodSetVia viaOf(Dest const& dest) {
  return MplsFloodSetVia(dest.destDataMpls().tunnelId(), dest.destDataMpls().label);
}
}  // namespace

// Construction.

EvpnFloodSetFecSm::EvpnFloodSetFecSm(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus,
    Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse,
    Vel::Ptr<HwInfoMapping> const& hwInfoMapping, Vel::Ptr<Cog::TimerWheel> const& timerWheel)
    : floodSetOutput_(floodSetOutput),
      hwTunnelIdMapping_(hwTunnelIdMapping),
      vlanFloodSetHwStatus_(vlanFloodSetHwStatus),
      mplsFloodSetFecRequest_(mplsFloodSetFecRequest),
      mplsFloodSetFecResponse_(mplsFloodSetFecResponse),
      hwInfoMapping_(hwInfoMapping),
      timerWheel_(timerWheel) {
  VEL_ASSERT(mplsFloodSetFecRequest_ && hwInfoMapping_ && timerWheel_);
  // Watchers of collections also create the reactors of the members already present.
  if (floodSetOutput_)
    velFloodSetOutput_ = std::make_unique<VelFloodSetOutput>(floodSetOutput_, this);
  if (hwTunnelIdMapping_) {
    velHwTunnelIdMapping_ = std::make_unique<VelHwTunnelIdMapping>(hwTunnelIdMapping_, this);
  }
  if (vlanFloodSetHwStatus_) {
    velVlanFloodSetHwStatus_ =
        std::make_unique<VelVlanFloodSetHwStatus>(vlanFloodSetHwStatus_, this);
  }
  if (mplsFloodSetFecResponse_) {
    velMplsFloodSetFecResponse_ =
        std::make_unique<VelMplsFloodSetFecResponse>(mplsFloodSetFecResponse_, this);
  }
  handleInitialized();
}

Vel::Ptr<EvpnFloodSetFecSm> EvpnFloodSetFecSm::EvpnFloodSetFecSmIs(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus,
    Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse,
    Vel::Ptr<HwInfoMapping> const& hwInfoMapping, Vel::Ptr<Cog::TimerWheel> const& timerWheel) {
  return Vel::Ptr<EvpnFloodSetFecSm>(new EvpnFloodSetFecSm(
      floodSetOutput, hwTunnelIdMapping, vlanFloodSetHwStatus, mplsFloodSetFecRequest,
      mplsFloodSetFecResponse, hwInfoMapping, timerWheel));
}

Vel::Ptr<EvpnFloodSetFecSm> evpnFloodSetFecSmFactory(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus,
    Vel::Ptr<FecIdToHwFecIdRequest> const& mplsFloodSetFecRequest,
    Vel::Ptr<FecIdToHwFecIdResponse const> const& mplsFloodSetFecResponse,
    Vel::Ptr<HwInfoMapping> const& hwInfoMapping, Vel::Ptr<Cog::TimerWheel> const& timerWheel) {
  return EvpnFloodSetFecSm::EvpnFloodSetFecSmIs(floodSetOutput, hwTunnelIdMapping,
                                                vlanFloodSetHwStatus, mplsFloodSetFecRequest,
                                                mplsFloodSetFecResponse, hwInfoMapping, timerWheel);
}

EvpnFloodSetFecSm::VelVlanFloodSetHwStatus::VelVlanFloodSetHwStatus(
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& s, EvpnFloodSetFecSm* sm)
    : NotifieeConst(s), sm_(sm) {
  for (auto [pair, status] : s->statusColl()) sm_->vlanFloodSetStatusIs(status);
}

// Initialization: hardware information and requests of an earlier instance go, because its FEC
// ids mean nothing to the fresh allocator; its FEC records are overwritten as vias come back.

void EvpnFloodSetFecSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized");
  fecNumAllocatorIs(timerWheel_, numAllocatorConfig_, numAllocatorStatus_, numAllocator_);
  hwInfoMapping_->mappingDelAll();
  mplsFloodSetFecRequest_->hwFecIdRequestDelAll();
  initialized_ = true;
  if (!floodSetOutput_) return;
  for (auto [vlan, vlanFloodSet] : floodSetOutput_->vlanFloodSetColl()) {
    for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) {
      for (auto [dest, flag] : floodSet->destSetColl()) processMplsDest(vlan, mac, dest);
    }
  }
}

// Flood-set handlers. A departed VLAN or flood set is still held by its reactor, so every one
// of its former destinations is processed once more, now absent from the input.

void EvpnFloodSetFecSm::handleVlanFloodSet(VelVlanFloodSet& reactor) {
  NOX_TRACE_ENTRY("handleVlanFloodSet vlan: {}", reactor.key());
  if (!initialized()) return;
  for (auto [mac, floodSet] : reactor.notifier()->floodSetColl()) {
    for (auto [dest, flag] : floodSet->destSetColl()) processMplsDest(reactor.key(), mac, dest);
  }
}

void EvpnFloodSetFecSm::handleFloodSet(VelFloodSet& reactor) {
  NOX_TRACE_ENTRY("handleFloodSet vlan: {} mac: {}", reactor.vlan(), reactor.key());
  if (!initialized()) return;
  for (auto [dest, flag] : reactor.notifier()->destSetColl()) {
    processMplsDest(reactor.vlan(), reactor.key(), dest);
  }
}

void EvpnFloodSetFecSm::handleDestSet(VelFloodSet& reactor, Dest const& dest) {
  NOX_TRACE_ENTRY("handleDestSet vlan: {} mac: {} dest: {}", reactor.vlan(), reactor.key(), dest);
  if (!initialized()) return;
  processMplsDest(reactor.vlan(), reactor.key(), dest);
}

// Hardware tunnel ids: the FEC carries the tunnel id, so a new hardware id re-publishes an
// equal FEC and request, which tells the programmer to look at the tunnel again.

void EvpnFloodSetFecSm::VelHwTunnelIdMapping::onTunnelIdToHwTunnelId(TunnelId const& tunnelId) {
  if (ready_) sm_->handleHwTunnelIdMapping(tunnelId);
}

void EvpnFloodSetFecSm::VelHwTunnelIdMapping::onTunnelIdToHwTunnelIdControl() {
  bool const ready = notifier()->tunnelIdToHwTunnelIdControl().ready;
  if (ready == ready_) return;
  ready_ = ready;
  // What was requested while the writer rebuilt the table stays; the whole table is looked at
  // again once it is whole.
  if (ready_) onTunnelIdToHwTunnelId();
}

void EvpnFloodSetFecSm::VelHwTunnelIdMapping::onTunnelIdToHwTunnelId() {
  if (!ready_) return;
  std::vector<TunnelId> tunnels;
  for (auto [tunnel, vias] : sm_->tunnelInfoCacheColl()) tunnels.push_back(tunnel);
  for (TunnelId const& tunnel : tunnels) sm_->handleHwTunnelIdMapping(tunnel);
}

void EvpnFloodSetFecSm::handleHwTunnelIdMapping(TunnelId const& tunnelId) {
  NOX_TRACE_ENTRY("handleHwTunnelIdMapping tunnelId: {}", tunnelId);
  if (!initialized()) return;
  auto vias = tunnelInfoCache(tunnelId);
  if (!vias) {
    NOX_TRACE_CHANGE(" no fecRequest associated with this tunnel {}", tunnelId);
    return;
  }
  std::vector<MplsFloodSetVia> copy;
  for (auto [via, flag] : vias->mplsFloodSetViaSetColl()) copy.push_back(via);
  for (MplsFloodSetVia const& via : copy) processFecRequest(via, true);
}

// Hardware status of flood sets.

void EvpnFloodSetFecSm::VelVlanFloodSetHwStatus::onStatus(MacVlanPair const& pair) {
  Vel::Ptr<VlanFloodSetStatus const> member = notifier()->status(pair);
  Vel::followMember(
      member != nullptr, [&] { sm_->vlanFloodSetStatusIs(member); },
      [&] {
        if (auto* reactor = sm_->vlanFloodSetStatus(pair)) reactor->handleVlanFloodSetStatus();
      },
      [&] { sm_->vlanFloodSetStatusDel(pair); });
}

void EvpnFloodSetFecSm::VelVlanFloodSetStatus::onMplsDestStatus(MplsDestConfig const& config) {
  sm_->handleMplsDestStatus(key(), config);
}

void EvpnFloodSetFecSm::VelVlanFloodSetStatus::handleVlanFloodSetStatus() {
  NOX_TRACE_ENTRY("handleVlanFloodSetStatus vlan: {} mac: {}", key().vlanId(), key().macAddr());
  if (!sm_->initialized()) {
    NOX_TRACE_CHANGE(" Not initialized!");
    return;
  }
  std::vector<MplsDestConfig> configs;
  for (auto [config, status] : notifier()->mplsDestStatusColl()) configs.push_back(config);
  for (MplsDestConfig const& config : configs) sm_->handleMplsDestStatus(key(), config);
}

void EvpnFloodSetFecSm::handleMplsDestStatus(MacVlanPair const& pair,
                                             MplsDestConfig const& config) {
  NOX_TRACE_ENTRY("handleMplsDestStatus vlan: {} mac: {} tunnelId: {} label: {}", pair.vlanId(),
                  pair.macAddr(), config.tunnelId(), config.label());
  if (!initialized()) return;
  MplsFloodSetVia const via(config.tunnelId(), config.label());
  if (isMplsDestConfigProgrammed(pair, config)) {
    NOX_TRACE_CHANGE("  config is programmed in hardware");
    floodSetStatusCacheIs(via)->statusIs(pair, true);
  } else {
    NOX_TRACE_CHANGE("  config is removed from hardware");
    // A new hardware tunnel id replaces a configuration with one of the same via: the pair
    // still holds the via while the new one is programmed.
    auto pairs = floodSetStatusCache(via);
    if (pairs && !isViaProgrammed(pair, via)) {
      pairs->statusDel(pair);
      if (pairs->statuss() == 0) floodSetStatusCacheDel(via);
    }
  }
  processFecRequest(via, false);
}

bool EvpnFloodSetFecSm::isViaProgrammed(MacVlanPair const& pair, MplsFloodSetVia const& via) const {
  auto const status =
      vlanFloodSetHwStatus_ ? vlanFloodSetHwStatus_->statusColl().find(pair) : nullptr;
  if (!status) return false;
  for (auto [config, value] : status->mplsDestStatusColl()) {
    if (value == programmed && MplsFloodSetVia(config.tunnelId(), config.label()) == via) {
      return true;
    }
  }
  return false;
}

bool EvpnFloodSetFecSm::isMplsDestConfigProgrammed(MacVlanPair const& pair,
                                                   MplsDestConfig const& config) const {
  return Nox::isMplsDestConfigProgrammed(vlanFloodSetHwStatus_.ptr(), pair, config);
}

// The programmer's responses.

void EvpnFloodSetFecSm::VelMplsFloodSetFecResponse::onHwFecId(FecId const& fecId) {
  sm_->handleFecResponse(fecId);
}

void EvpnFloodSetFecSm::VelMplsFloodSetFecResponse::onHwFecId() {
  // The whole table may have changed: look again at every FEC id this machine holds.
  std::vector<FecId> fecIds;
  for (auto [fecId, via] : sm_->fecIdCacheColl()) fecIds.push_back(fecId);
  fecIds.insert(fecIds.end(), sm_->answeredBefore_.begin(), sm_->answeredBefore_.end());
  for (FecId const& fecId : fecIds) sm_->handleFecResponse(fecId);
}

void EvpnFloodSetFecSm::handleFecResponse(FecId const& fecId) {
  NOX_TRACE_ENTRY("handleFecResponse {}", fecId);
  if (!initialized()) return;
  auto const known = fecIdCacheColl().find(fecId);
  if (!known) {
    NOX_TRACE_CHANGE(" got stale response for FecId:{}", fecId);
    auto const held = answeredBefore_.find(fecId);
    if (held != answeredBefore_.end() && !mplsFloodSetFecResponse_->hwFecIdIsMemberOf(fecId)) {
      NOX_TRACE_CHANGE("   Deleting fecId: {}", fecId);
      answeredBefore_.erase(held);
      numAllocator_->releaseNumber(int64_t(fecId.number()));
    }
    return;
  }
  MplsFloodSetVia const via = *known;
  if (mplsFloodSetFecResponse_->hwFecIdIsMemberOf(fecId)) {
    NOX_TRACE_CHANGE(" add or update hwInfo for tunnelId: {} label: {}", via.tunnelId(),
                     via.label());
    MplsDestHwInfo const hwInfo(mplsFloodSetFecResponse_->hwFecId(fecId).hwFecId(),
                                mplsFloodSetFecResponse_->l2IntfId(fecId).l2IntfId());
    hwInfoMapping_->mappingIs(via, hwInfo);
    requestSince_.stopped(fecId);
    return;
  }
  NOX_TRACE_CHANGE(" delete hwInfo for tunnelId: {} label: {}", via.tunnelId(), via.label());
  hwInfoMapping_->mappingDel(via);
  requestSince_.settle(fecId, mplsFloodSetFecRequest_->hwFecIdRequestIsMemberOf(fecId),
                       timerWheel_->now());
  maybeDeleteFecId(fecId);
}

// Workers.

void EvpnFloodSetFecSm::processMplsDest(VlanId vlan, EthAddr const& mac, Dest const& dest) {
  NOX_TRACE_ENTRY("processMplsDest vlan: {} mac: {} dest: {}", vlan, mac, dest);
  VEL_ASSERT(initialized());
  VEL_ASSERT(dest.destType() == L2Rib::destTypeMpls_);
  MplsFloodSetVia const via = viaOf(dest);
  if (via.tunnelId() == Tunnel::TunnelTable::TunnelId::invalid()) {
    NOX_TRACE_CHANGE("  Invalid tunnelId not supported {}", via.tunnelId());
    invalidTunnelSince_.settle(VlanMacDest(vlan, mac, dest), isDestInFloodSet(vlan, mac, dest),
                               timerWheel_->now());
    return;
  }
  updateFloodSetEntryCache(VlanMacDest(vlan, mac, dest), via, isDestInFloodSet(vlan, mac, dest));
  processFecRequest(via, false);
}

void EvpnFloodSetFecSm::updateFloodSetEntryCache(VlanMacDest const& d, MplsFloodSetVia const& via,
                                                 bool inFloodSet) {
  if (inFloodSet) {
    floodSetEntryCacheIs(via)->vlanMacDestSetIs(d, true);
    return;
  }
  if (auto entries = floodSetEntryCache(via)) {
    entries->vlanMacDestSetDel(d);
    if (entries->vlanMacDestSets() == 0) floodSetEntryCacheDel(via);
  }
}

bool EvpnFloodSetFecSm::isDestInFloodSet(VlanId vlan, EthAddr const& mac, Dest const& dest) const {
  return Nox::isDestInFloodSet(floodSetOutput_.ptr(), vlan, mac, dest);
}

void EvpnFloodSetFecSm::processFecRequest(MplsFloodSetVia const& via, bool republish) {
  NOX_TRACE_ENTRY("processFecRequest (tunnelId: {} label: {})", via.tunnelId(), via.label());
  if (floodSetEntryCacheIsMemberOf(via)) {
    createOrUpdateFecRequest(via, republish);
  } else if (floodSetStatusCacheIsMemberOf(via)) {
    NOX_TRACE_CHANGE("    wait for hardware to unprogram the floodSet");
  } else {
    removeFecRequest(via);
  }
}

void EvpnFloodSetFecSm::createOrUpdateFecRequest(MplsFloodSetVia const& via, bool republish) {
  NOX_TRACE_ENTRY("createOrUpdateFecRequest (tunnelId: {} label: {})", via.tunnelId(), via.label());
  // Every destination over a via comes here. This machine alone writes the request table, and
  // writes a via's FEC, request and caches together (removeFecRequest takes them away together;
  // start-up empties the requests): a bound via whose request is in the table has its FEC
  // published as it should be, and there is nothing to write and nothing new to trace. Reading
  // the FEC record back to compare would cost more than the rest of a destination.
  if (!republish) {
    auto const bound = mplsFloodSetViaCacheColl().find(via);
    if (bound && mplsFloodSetFecRequest_->hwFecIdRequestIsMemberOf(*bound)) return;
  }
  HwTunnelId const hwTunnelId =
      velHwTunnelIdMapping_ && velHwTunnelIdMapping_->ready()
          ? hwTunnelIdMapping_->tunnelIdToHwTunnelId(via.tunnelId()).hwTunnelId()
          : HwTunnelId();
  FecId const fecId = getOrAllocateFecId(via);
  updateCachesForFecId(fecId, via, false);
  updateTunnelInfoCache(via, true);
  mplsFloodSetFecRequest_->fecIs(buildFec(fecId, via));
  mplsFloodSetFecRequest_->hwFecIdRequestIs(fecId);
  requestSince_.settle(
      fecId, !(mplsFloodSetFecResponse_ && mplsFloodSetFecResponse_->hwFecIdIsMemberOf(fecId)),
      timerWheel_->now());
  NOX_TRACE_CHANGE(
      "     mplsFloodSetFecRequest created or updated: (tunnelId: {} label: {} hwTunnelId:{} "
      "fecId: {})",
      via.tunnelId(), via.label(), hwTunnelId, fecId);
}

void EvpnFloodSetFecSm::removeFecRequest(MplsFloodSetVia const& via) {
  NOX_TRACE_ENTRY("removeFecRequest (tunnelId: {} label: {})", via.tunnelId(), via.label());
  auto const bound = mplsFloodSetViaCacheColl().find(via);
  if (!bound) {
    NOX_TRACE_CHANGE("     fecId not found, fecRequest already removed");
    return;
  }
  FecId const fecId = *bound;
  mplsFloodSetFecRequest_->fecDel(fecId);
  mplsFloodSetFecRequest_->hwFecIdRequestDel(fecId);
  requestSince_.stopped(fecId);
  maybeDeleteFecId(fecId);
  updateTunnelInfoCache(via, false);
  NOX_TRACE_CHANGE("     mplsFloodSetFecRequest removed: (tunnelId: {} label: {} fecId: {})",
                   via.tunnelId(), via.label(), fecId);
}

void EvpnFloodSetFecSm::maybeDeleteFecId(FecId const& fecId) {
  NOX_TRACE_ENTRY("maybeDeleteFecId {}", fecId);
  auto const via = fecIdCacheColl().find(fecId);
  if (!via) return;
  if (mplsFloodSetFecRequest_->fecIsMemberOf(fecId)) return;
  if (mplsFloodSetFecResponse_ && mplsFloodSetFecResponse_->hwFecIdIsMemberOf(fecId)) return;
  NOX_TRACE_CHANGE("   Deleting fecId: {}", fecId);
  updateCachesForFecId(fecId, MplsFloodSetVia(*via), true);
  numAllocator_->releaseNumber(int64_t(fecId.number()));
}

FecId EvpnFloodSetFecSm::getOrAllocateFecId(MplsFloodSetVia const& via) {
  if (auto const bound = mplsFloodSetViaCacheColl().find(via)) return *bound;
  // A fresh allocator knows nothing of the ids the machine before a restart used. One that the
  // programmer still answers stays taken until the answer goes; the answers are finite, so the
  // search ends.
  for (;;) {
    int64_t const index = numAllocator_->getNumber();
    VEL_ASSERT(index != numAllocator()->invalidNumber() && "FecId range exhausted, Not possible");
    FecId const fecId = indexToFecId(index);
    if (!mplsFloodSetFecResponse_ || !mplsFloodSetFecResponse_->hwFecIdIsMemberOf(fecId)) {
      return fecId;
    }
    NOX_TRACE_CHANGE("   fecId still answered for an earlier machine, held: {}", fecId);
    answeredBefore_.insert(fecId);
  }
}

FecId EvpnFloodSetFecSm::indexToFecId(int64_t index) const {
  VEL_ASSERT(index >= 0);
  return FecId(fecAdjType, uint64_t(index));
}

Kelp::Fib::Fec EvpnFloodSetFecSm::buildFec(FecId const& fecId, MplsFloodSetVia const& via) const {
  Kelp::Fib::Via fibVia;
  fibVia.tunnelIdIs(via.tunnelId());
  fibVia.mplsLabelIs(via.label());
  Kelp::Fib::Fec fec(fecId);
  fec.viaAdd(fibVia);
  return fec;
}

void EvpnFloodSetFecSm::updateCachesForFecId(FecId const& fecId, MplsFloodSetVia const& via,
                                             bool isDelete) {
  if (isDelete) {
    fecIdCacheDel(fecId);
    mplsFloodSetViaCacheDel(via);
    return;
  }
  fecIdCacheIs(fecId, via);
  mplsFloodSetViaCacheIs(via, fecId);
}

void EvpnFloodSetFecSm::updateTunnelInfoCache(MplsFloodSetVia const& via, bool add) {
  if (add) {
    tunnelInfoCacheIs(via.tunnelId())->mplsFloodSetViaSetIs(via, true);
    return;
  }
  if (auto vias = tunnelInfoCache(via.tunnelId())) {
    vias->mplsFloodSetViaSetDel(via);
    if (vias->mplsFloodSetViaSets() == 0) tunnelInfoCacheDel(via.tunnelId());
  }
}

// What waits.

std::vector<PendingItem> EvpnFloodSetFecSm::pending() const {
  std::vector<PendingItem> items;
  for (auto [fecId, via] : fecIdCacheColl()) {
    if (!requestSince_.waiting(fecId)) continue;
    items.push_back({"floodset-fec", pendingText("fec ", fecId),
                     pendingText("no response for via ", via.tunnelId().value(), "/",
                                 via.label().stringValue()),
                     requestSince_.since(fecId)});
  }
  for (auto const& [d, since] : invalidTunnelSince_.sorted()) {
    items.push_back({"floodset-fec",
                     pendingText(d.vlanId().value(), " ", d.macAddr(), " ", d.dest()),
                     "invalid tunnel id 0", since});
  }
  return items;
}

VEL_REGISTER_TYPE(EvpnFloodSetFecSm);

}  // namespace Nox
