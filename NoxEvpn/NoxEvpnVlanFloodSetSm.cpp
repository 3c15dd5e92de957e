// Nox::EvpnVlanFloodSetSm: MPLS flood-set destinations in, hardware configuration out.
//
// A destination is in one of three states. Absent: not in the input, nothing recorded.
// Waiting: in the internal mappings (by tunnel and by via) but its via has no hardware
// information yet, so nothing is published; the arrival of the via in hwInfoMapping is the
// retry, there is no timer. Published: its configuration is in the pair's VlanFloodSetConfig
// and in mplsDestHwConfig, the two always written together.
//
// An update inserts the new configuration before removing the old one, so a pair's
// configuration entity is never emptied (and never deleted) by an update.

#include "NoxEvpn/NoxEvpnVlanFloodSetSm.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "src-includes/NoxEvpn/NoxEvpnVlanFloodSetSm";
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

// Calls work(key) for each member of a collection, having called prefetch(key) a few members
// ahead: the members of a tunnel or a via lie in unrelated places of the large collections the
// work looks up, and asking ahead overlaps those misses.
constexpr int prefetchAhead = 4;
template <class Coll, class Prefetch, class Work>
void forEachPrefetched(Coll const& coll, Prefetch const& prefetch, Work const& work) {
  auto ahead = coll.begin();
  auto const end = coll.end();
  for (int i = 0; i < prefetchAhead && ahead != end; ++i, ++ahead) prefetch(ahead.key());
  for (auto at = coll.begin(); at != end; ++at) {
    if (ahead != end) {
      prefetch(ahead.key());
      ++ahead;
    }
    work(at.key());
  }
}
}  // namespace

// A cold start puts every destination into the set of its tunnel and the set of its via. In
// input order, consecutive destinations go to different sets, and the index slot each insert
// touches, somewhere in megabytes of indexes, is a cache miss. So the walk sets the inserts
// aside, per tunnel and per via in the order they come, and makes them when it is done, one set
// after another: a set's index stays in cache while it fills and is sized once. Each set still
// lists its destinations in input order, and the sets are created in the order of their first
// destination, as inserting them one by one would.
struct EvpnVlanFloodSetSm::ColdStartInserts {
  struct SetAside {
    VlanMacDest d;
    uint32_t hash;  // computed in the walk, where the configuration record needed it too
  };
  struct Block {
    static constexpr uint32_t capacity = 14;
    std::array<SetAside, capacity> members;
    uint32_t used = 0;
    Block* next = nullptr;
  };
  struct List {
    Block* first = nullptr;
    Block* last = nullptr;
    std::size_t count = 0;
  };

  void setAside(TunnelId tunnel, MplsFloodSetVia const& via, VlanMacDest const& d) {
    uint32_t const hash = d.hash();
    append(*byTunnel.tryEmplace(tunnel).first, d, hash);
    append(*byVia.tryEmplace(via).first, d, hash);
  }
  void append(List& list, VlanMacDest const& d, uint32_t hash) {
    if (!list.last || list.last->used == Block::capacity) {
      Block* const block = newBlock();
      (list.last ? list.last->next : list.first) = block;
      list.last = block;
    }
    list.last->members[list.last->used++] = SetAside{d, hash};
    ++list.count;
  }
  template <class Set>
  static void insertAll(Set& set, List const& list) {
    set.vlanMacDestSetReserve(list.count);
    for (Block const* block = list.first; block; block = block->next) {
      for (uint32_t i = 0; i < block->used; ++i) {
        SetAside const& member = block->members[i];
        Vel::lastHashIs(member.d, member.hash);
        set.vlanMacDestSetIs(member.d, true);
      }
    }
  }

  // Blocks come from slabs of many: one allocation for each block would cost more than the
  // inserts the blocks save.
  Block* newBlock() {
    if (slabs.empty() || slabUsed == blocksPerSlab) {
      slabs.push_back(std::make_unique<Block[]>(blocksPerSlab));
      slabUsed = 0;
    }
    return &slabs.back()[slabUsed++];
  }

  Vel::OrderedMap<TunnelId, List> byTunnel;
  Vel::OrderedMap<MplsFloodSetVia, List> byVia;
  static constexpr std::size_t blocksPerSlab = 64;
  std::vector<std::unique_ptr<Block[]>> slabs;
  std::size_t slabUsed = 0;
};

// Construction.

EvpnVlanFloodSetSm::EvpnVlanFloodSetSm(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<HwInfoMapping const> const& hwInfoMapping,
    Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus)
    : floodSetOutput_(floodSetOutput),
      hwTunnelIdMapping_(hwTunnelIdMapping),
      hwInfoMapping_(hwInfoMapping),
      vlanFloodSetHwConfig_(vlanFloodSetHwConfig),
      vlanFloodSetHwStatus_(vlanFloodSetHwStatus) {
  VEL_ASSERT(vlanFloodSetHwConfig_);
  // Watchers of collections also create the reactors of the members already present.
  if (floodSetOutput_)
    velFloodSetOutput_ = std::make_unique<VelFloodSetOutput>(floodSetOutput_, this);
  if (hwTunnelIdMapping_) {
    velHwTunnelIdMapping_ = std::make_unique<VelHwTunnelIdMapping>(hwTunnelIdMapping_, this);
  }
  if (hwInfoMapping_) velHwInfoMapping_ = std::make_unique<VelHwInfoMapping>(hwInfoMapping_, this);
  if (vlanFloodSetHwStatus_) {
    velVlanFloodSetHwStatus_ =
        std::make_unique<VelVlanFloodSetHwStatus>(vlanFloodSetHwStatus_, this);
  }
  handleInitialized();
}

Vel::Ptr<EvpnVlanFloodSetSm> EvpnVlanFloodSetSm::EvpnVlanFloodSetSmIs(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<HwInfoMapping const> const& hwInfoMapping,
    Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus) {
  return Vel::Ptr<EvpnVlanFloodSetSm>(new EvpnVlanFloodSetSm(floodSetOutput, hwTunnelIdMapping,
                                                             hwInfoMapping, vlanFloodSetHwConfig,
                                                             vlanFloodSetHwStatus));
}

Vel::Ptr<EvpnVlanFloodSetSm> evpnVlanFloodSetSmFactory(
    Vel::Ptr<L2Rib::FloodSetOutput const> const& floodSetOutput,
    Vel::Ptr<TunnelIdToHwTunnelIdMapping const> const& hwTunnelIdMapping,
    Vel::Ptr<HwInfoMapping const> const& hwInfoMapping,
    Vel::Ptr<EvpnVlanFloodSetHwConfig> const& vlanFloodSetHwConfig,
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& vlanFloodSetHwStatus) {
  return EvpnVlanFloodSetSm::EvpnVlanFloodSetSmIs(floodSetOutput, hwTunnelIdMapping, hwInfoMapping,
                                                  vlanFloodSetHwConfig, vlanFloodSetHwStatus);
}

EvpnVlanFloodSetSm::VelVlanFloodSetHwStatus::VelVlanFloodSetHwStatus(
    Vel::Ptr<EvpnVlanFloodSetHwStatus const> const& s, EvpnVlanFloodSetSm* sm)
    : NotifieeConst(s), sm_(sm) {
  for (auto [pair, status] : s->statusColl()) sm_->vlanFloodSetStatusIs(status);
}

// Initialization: start from an empty hardware configuration, so that configurations left by
// an earlier instance go, then walk the input. The flag is set after the walk.

void EvpnVlanFloodSetSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized ");
  vlanFloodSetHwConfig_->configDelAll();
  if (floodSetOutput_) {
    // Size the per-destination record once rather than growing it through every doubling.
    std::size_t dests = 0;
    for (auto [vlan, vlanFloodSet] : floodSetOutput_->vlanFloodSetColl()) {
      for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) dests += floodSet->destSets();
    }
    mplsDestHwConfig_.reserve(dests);
    coldStartInserts_ = std::make_unique<ColdStartInserts>();
    for (auto [vlan, vlanFloodSet] : floodSetOutput_->vlanFloodSetColl()) {
      for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) {
        prefetchMappings(vlan, mac, *floodSet);
        for (auto [dest, flag] : floodSet->destSetColl()) processMplsDest(vlan, mac, dest);
      }
    }
    insertSetAside();
  }
  initialized_ = true;
}

void EvpnVlanFloodSetSm::insertSetAside() {
  if (!coldStartInserts_) return;
  auto const inserts = std::move(coldStartInserts_);
  for (auto [tunnel, list] : inserts->byTunnel) {
    ColdStartInserts::insertAll(*tunnelToFloodSetEntryIs(tunnel), list);
  }
  for (auto [via, list] : inserts->byVia) {
    ColdStartInserts::insertAll(*hwInfoMapKeyToFloodSetEntryIs(via), list);
  }
}

// In a large cold start nearly every destination's place in the configuration record is a
// cache miss. Asking for a flood set's places before working on it takes those misses side by
// side instead of one after the other.
void EvpnVlanFloodSetSm::prefetchMappings(VlanId vlan, EthAddr const& mac,
                                          L2Rib::FloodSet const& floodSet) const {
  for (auto [dest, flag] : floodSet.destSetColl()) {
    mplsDestHwConfigColl().prefetch(VlanMacDest(vlan, mac, dest));
  }
}

void EvpnVlanFloodSetSm::prefetchConfig(VlanMacDest const& d) const {
  mplsDestHwConfigColl().prefetch(d);
  vlanFloodSetHwConfig_->configColl().prefetch(d.pair());
}

// Flood-set handlers. A departed VLAN or flood set is still held by its reactor, so every one
// of its former destinations is processed once more, now absent from the input.

void EvpnVlanFloodSetSm::handleVlanFloodSet(VelVlanFloodSet& reactor) {
  NOX_TRACE_ENTRY("handleVlanFloodSet vlan: {}", reactor.key());
  if (!initialized()) return;
  for (auto [mac, floodSet] : reactor.notifier()->floodSetColl()) {
    for (auto [dest, flag] : floodSet->destSetColl()) processMplsDest(reactor.key(), mac, dest);
  }
}

void EvpnVlanFloodSetSm::handleFloodSet(VelFloodSet& reactor) {
  NOX_TRACE_ENTRY("handleFloodSet vlan: {} mac: {}", reactor.vlan(), reactor.key());
  if (!initialized()) return;
  for (auto [dest, flag] : reactor.notifier()->destSetColl()) {
    processMplsDest(reactor.vlan(), reactor.key(), dest);
  }
}

void EvpnVlanFloodSetSm::handleDestSet(VelFloodSet& reactor, Dest const& dest) {
  NOX_TRACE_ENTRY("handleDestSet vlan: {} mac: {} dest: {}", reactor.vlan(), reactor.key(), dest);
  if (!initialized()) return;
  processMplsDest(reactor.vlan(), reactor.key(), dest);
}

// Hardware tunnel ids and hardware information.

void EvpnVlanFloodSetSm::VelHwTunnelIdMapping::onTunnelIdToHwTunnelId(TunnelId const& tunnelId) {
  sm_->handleHwTunnelIdMapping(tunnelId);
}

void EvpnVlanFloodSetSm::VelHwTunnelIdMapping::onTunnelIdToHwTunnelId() {
  // The whole table may have changed: look again at every tunnel in use.
  if (ready_) sm_->handleHwTunnelIdMappingAll();
}

void EvpnVlanFloodSetSm::VelHwTunnelIdMapping::onTunnelIdToHwTunnelIdControl() {
  bool const ready = notifier()->tunnelIdToHwTunnelIdControl().ready;
  if (ready == ready_) return;
  ready_ = ready;
  sm_->handleHwTunnelIdMappingReady(ready);
}

// A table that is not ready keeps what was published from it: a writer rebuilding the table
// should not make the hardware drop and re-add every tunnel.
void EvpnVlanFloodSetSm::handleHwTunnelIdMappingReady(bool ready) {
  NOX_TRACE_ENTRY(" handleHwTunnelIdMappingReady ready: {}", ready);
  if (!initialized()) return;
  if (!ready) {
    NOX_TRACE_CHANGE(" hwTunnelIdMapping not ready, its changes wait");
    return;
  }
  NOX_TRACE_CHANGE(" hwTunnelIdMapping ready, reviewing every tunnel in use");
  handleHwTunnelIdMappingAll();
}

void EvpnVlanFloodSetSm::handleHwTunnelIdMappingAll() {
  std::vector<TunnelId> tunnels;
  for (auto [tunnel, set] : tunnelToFloodSetEntryColl()) tunnels.push_back(tunnel);
  for (TunnelId const& tunnel : tunnels) handleHwTunnelIdMapping(tunnel);
}

void EvpnVlanFloodSetSm::handleHwTunnelIdMapping(TunnelId const& tunnelId) {
  NOX_TRACE_ENTRY(" handleHwTunnelIdMapping tunnelId: {}", tunnelId);
  if (!initialized() || !hwTunnelIdMappingReady()) return;
  auto dests = tunnelToFloodSetEntry(tunnelId);
  if (!dests) {
    NOX_TRACE_CHANGE(" no dests associated with this tunnel {}", tunnelId);
    return;
  }
  // The internal mappings hold exactly the input's destinations.
  forEachPrefetched(
      dests->vlanMacDestSetColl(), [this](VlanMacDest const& d) { prefetchConfig(d); },
      [this](VlanMacDest const& d) { processMplsDestConfig(d, true); });
}

void EvpnVlanFloodSetSm::VelHwInfoMapping::onMapping(MplsFloodSetVia const& via) {
  sm_->handleHwInfoMapping(via);
}

void EvpnVlanFloodSetSm::handleHwInfoMapping(MplsFloodSetVia const& via) {
  NOX_TRACE_ENTRY("handleHwInfoMapping ( {}, {} )", via.tunnelId(), via.label());
  if (!initialized()) return;
  auto dests = hwInfoMapKeyToFloodSetEntry(via);
  if (!dests) {
    NOX_TRACE_CHANGE(" hwId is not ready ");
    return;
  }
  forEachPrefetched(
      dests->vlanMacDestSetColl(), [this](VlanMacDest const& d) { prefetchConfig(d); },
      [this](VlanMacDest const& d) { processMplsDestConfig(d, true); });
}

// Status of programmed configurations: observed and traced only.

void EvpnVlanFloodSetSm::VelVlanFloodSetHwStatus::onStatus(MacVlanPair const& pair) {
  Vel::Ptr<VlanFloodSetStatus const> member = notifier()->status(pair);
  Vel::followMember(
      member != nullptr, [&] { sm_->vlanFloodSetStatusIs(member); },
      [&] {
        if (auto* reactor = sm_->vlanFloodSetStatus(pair)) reactor->handleVlanFloodSetStatus();
      },
      [&] { sm_->vlanFloodSetStatusDel(pair); });
}

void EvpnVlanFloodSetSm::VelVlanFloodSetStatus::onMplsDestStatus(MplsDestConfig const& config) {
  handleMplsDestStatus(config);
}

void EvpnVlanFloodSetSm::VelVlanFloodSetStatus::handleVlanFloodSetStatus() {
  NOX_TRACE_ENTRY("handleVlanFloodSetStatus vlan: {} mac: {}", key().vlanId(), key().macAddr());
  if (!sm_->initialized()) return;
  for (auto [config, status] : notifier()->mplsDestStatusColl()) handleMplsDestStatus(config);
}

void EvpnVlanFloodSetSm::VelVlanFloodSetStatus::handleMplsDestStatus(MplsDestConfig const& config) {
  NOX_TRACE_ENTRY(" handleMplsDestStatus vlan: {} mac: {} tunnelId: {} label: {}", key().vlanId(),
                  key().macAddr(), config.tunnelId(), config.label());
  if (!sm_->initialized()) return;
  if (sm_->isMplsDestConfigProgrammed(key(), config)) {
    NOX_TRACE_CHANGE("  config is programmed in hardware");
  } else {
    NOX_TRACE_CHANGE("  config is not programmed in hardware");
  }
}

bool EvpnVlanFloodSetSm::isMplsDestConfigProgrammed(MacVlanPair const& pair,
                                                    MplsDestConfig const& config) const {
  NOX_TRACE_ENTRY("isMplsDestConfigProgrammed vlan: {} mac: {} tunnelId: {} label: {}",
                  pair.vlanId(), pair.macAddr(), config.tunnelId(), config.label());
  return Nox::isMplsDestConfigProgrammed(vlanFloodSetHwStatus_.ptr(), pair, config);
}

// Workers.

void EvpnVlanFloodSetSm::processMplsDest(VlanId vlan, EthAddr const& mac, Dest const& dest) {
  NOX_TRACE_ENTRY(" processMplsDest vlan: {} mac: {} dest: {}", vlan, mac, dest);
  VEL_ASSERT(dest.destType() == L2Rib::destTypeMpls_);
  VlanMacDest const d(vlan, mac, dest);
  bool const inFloodSet = isDestInFloodSet(vlan, mac, dest);
  updateInternalMapping(d, inFloodSet);
  processMplsDestConfig(d, inFloodSet);
}

void EvpnVlanFloodSetSm::updateInternalMapping(VlanMacDest const& d) {
  updateInternalMapping(d, isDestInFloodSet(d.vlanId(), d.macAddr(), d.dest()));
}

void EvpnVlanFloodSetSm::updateInternalMapping(VlanMacDest const& d, bool inFloodSet) {
  NOX_TRACE_ENTRY("updateInternalMapping vlan: {} mac: {} dest: {}", d.vlanId(), d.macAddr(),
                  d.dest());
  TunnelId const tunnel = d.dest().destDataMpls().tunnelId();
  MplsFloodSetVia const via = viaOf(d.dest());
  if (inFloodSet) {
    NOX_TRACE_CHANGE("   add entry to internal mappings");
    if (coldStartInserts_) {
      coldStartInserts_->setAside(tunnel, via, d);
      return;
    }
    tunnelToFloodSetEntryIs(tunnel)->vlanMacDestSetIs(d, true);
    hwInfoMapKeyToFloodSetEntryIs(via)->vlanMacDestSetIs(d, true);
    return;
  }
  NOX_TRACE_CHANGE("   remove entry from internal mappings");
  insertSetAside();
  if (auto byTunnel = tunnelToFloodSetEntry(tunnel)) {
    byTunnel->vlanMacDestSetDel(d);
    if (byTunnel->vlanMacDestSets() == 0) {
      tunnelToFloodSetEntryDel(tunnel);
      hwTunnelIdSince_.stopped(tunnel);
    }
  }
  if (auto byVia = hwInfoMapKeyToFloodSetEntry(via)) {
    byVia->vlanMacDestSetDel(d);
    if (byVia->vlanMacDestSets() == 0) {
      hwInfoMapKeyToFloodSetEntryDel(via);
      hwInfoSince_.stopped(via);
    }
  }
}

bool EvpnVlanFloodSetSm::isDestInFloodSet(VlanId vlan, EthAddr const& mac, Dest const& dest) const {
  NOX_TRACE_ENTRY("isDestInFloodSet vlan: {} mac: {} dest: {}", vlan, mac, dest);
  return Nox::isDestInFloodSet(floodSetOutput_.ptr(), vlan, mac, dest);
}

void EvpnVlanFloodSetSm::processMplsDestConfig(VlanMacDest const& d) {
  processMplsDestConfig(d, isDestInFloodSet(d.vlanId(), d.macAddr(), d.dest()));
}

void EvpnVlanFloodSetSm::processMplsDestConfig(VlanMacDest const& d, bool inFloodSet) {
  NOX_TRACE_ENTRY("  processMplsDestConfig vlan: {} mac: {} dest: {}", d.vlanId(), d.macAddr(),
                  d.dest());
  MplsFloodSetVia const via = viaOf(d.dest());
  if (hwInfoMapping_ && hwInfoMapping_->mappingIsMemberOf(via)) {
    if (inFloodSet) {
      addOrUpdateMplsDestHwConfig(d);
    } else {
      deleteMplsDestHwConfig(d);
    }
  } else {
    NOX_TRACE_CHANGE("   hwId not ready for dest, tunnelId: {} label: {}", via.tunnelId(),
                     via.label());
    // Withdraw what was published with hardware information that is gone.
    deleteMplsDestHwConfig(d);
  }
  settleWaiting(d, inFloodSet);
}

void EvpnVlanFloodSetSm::settleWaiting(VlanMacDest const& d, bool inFloodSet) {
  // A destination out of the flood set says nothing of its via or tunnel: the others over them
  // still wait, and the last one leaving ends the wait in updateInternalMapping.
  if (!inFloodSet) return;
  double const now = clock_ ? clock_->now() : 0.0;
  MplsDestConfig const published = mplsDestHwConfig(d);
  if (!published) {
    hwInfoSince_.started(viaOf(d.dest()), now);
    return;
  }
  // Published, so its via has hardware information, as has every destination over it.
  hwInfoSince_.stopped(viaOf(d.dest()));
  hwTunnelIdSince_.settle(published.tunnelId(), published.hwTunnelId() == HwTunnelId(), now);
}

MplsDestConfig EvpnVlanFloodSetSm::createMplsDestConfig(Dest const& dest) {
  NOX_TRACE_ENTRY("createMplsDestConfig dest: {}", dest);
  TunnelId const tunnelId = dest.destDataMpls().tunnelId();
  VEL_ASSERT(tunnelId != Tunnel::TunnelTable::TunnelId::invalid());
  MplsFloodSetVia const key = viaOf(dest);
  // The assertion prints this text as written, spaces included.
  // clang-format off
  VEL_ASSERT(hwInfoMapping()->mappingColl().isMemberOf( key ));
  // clang-format on
  HwTunnelId hwTunnelId;
  if (hwTunnelIdMappingReady()) {
    hwTunnelId = hwTunnelIdMapping_->tunnelIdToHwTunnelId(tunnelId).hwTunnelId();
  }
  MplsDestHwInfo const hwInfo = hwInfoMapping_->mapping(key);
  return MplsDestConfig(tunnelId, key.label(), hwTunnelId, hwInfo.hwIdForTunnelProgramming(),
                        hwInfo.l2IntfId());
}

void EvpnVlanFloodSetSm::addOrUpdateMplsDestHwConfig(VlanMacDest const& d) {
  NOX_TRACE_ENTRY("addOrUpdateMplsDestHwConfig vlan: {} mac: {} dest: {}", d.vlanId(), d.macAddr(),
                  d.dest());
  MplsDestConfig const fresh = createMplsDestConfig(d.dest());
  MplsDestConfig const existing = mplsDestHwConfig(d);
  if (existing == fresh) {
    NOX_TRACE_CHANGE("   no change in hardware config, skip {}", fresh);
    return;
  }
  // The record is written before the output: the output's watchers run inside the writes below
  // and may change this destination again (withdraw its via, say), and whatever they do must
  // start from what is about to be published, or it would be undone when this call resumes.
  mplsDestHwConfigIs(d, fresh);
  vlanFloodSetHwConfig_->configIs(d.pair())->mplsDestConfigIs(fresh, true);
  if (!existing) {
    NOX_TRACE_CHANGE(
        "   add hardware config: tunnelId: {} label: {} hwTunnelId: {} hwId: {} l2IntfId: {}",
        fresh.tunnelId(), fresh.label(), fresh.hwTunnelId(), fresh.hwIdForTunnelProgramming(),
        fresh.l2IntfId());
    return;
  }
  NOX_TRACE_CHANGE(
      "   update hardware config, existing: ( tunnelId: {} label: {} hwTunnelId: {} hwId: {} "
      "l2IntfId: {} ), new: ( tunnelId {} label: {} hwTunnelId: {} hwId: {} l2IntfId: {} )",
      existing.tunnelId(), existing.label(), existing.hwTunnelId(),
      existing.hwIdForTunnelProgramming(), existing.l2IntfId(), fresh.tunnelId(), fresh.label(),
      fresh.hwTunnelId(), fresh.hwIdForTunnelProgramming(), fresh.l2IntfId());
  withdrawFromOutput(d, existing);
}

void EvpnVlanFloodSetSm::deleteMplsDestHwConfig(VlanMacDest const& d) {
  NOX_TRACE_ENTRY("deleteMplsDestHwConfig vlan: {} mac: {} dest: {}", d.vlanId(), d.macAddr(),
                  d.dest());
  MplsDestConfig const existing = mplsDestHwConfig(d);
  if (!existing) return;
  NOX_TRACE_CHANGE(
      "   remove hardware config: tunnelId: {} label: {} hwTunnelId: {} hwId: {} l2IntfId: {}",
      existing.tunnelId(), existing.label(), existing.hwTunnelId(),
      existing.hwIdForTunnelProgramming(), existing.l2IntfId());
  mplsDestHwConfigDel(d);
  withdrawFromOutput(d, existing);
}

void EvpnVlanFloodSetSm::withdrawFromOutput(VlanMacDest const& d, MplsDestConfig const& config) {
  NOX_TRACE_ENTRY("withdrawFromOutput vlan: {} mac: {} dest: {}", d.vlanId(), d.macAddr(),
                  d.dest());
  // A watcher of an earlier write may have published this very configuration again.
  if (mplsDestHwConfig(d) == config) return;
  // Looked up afresh: a watcher may also have removed the pair's entity. An update normally
  // leaves the new configuration behind, but a watcher may have withdrawn that too, so the
  // entity goes whenever it is left empty.
  auto pairConfig = vlanFloodSetHwConfig_->config(d.pair());
  if (!pairConfig) return;
  pairConfig->mplsDestConfigDel(config);
  if (pairConfig->mplsDestConfigs() == 0) vlanFloodSetHwConfig_->configDel(d.pair());
}

// What waits.

std::vector<PendingItem> EvpnVlanFloodSetSm::pending() const {
  auto const destText = [](VlanMacDest const& d) {
    return pendingText(d.vlanId().value(), " ", d.macAddr(), " ", d.dest());
  };
  std::vector<std::pair<VlanMacDest, double>> noHwInfo;
  std::vector<std::pair<VlanMacDest, double>> noHwTunnelId;
  hwInfoSince_.forEach([&](MplsFloodSetVia const& via, double since) {
    // Every destination over a via without hardware information waits for it.
    auto dests = hwInfoMapKeyToFloodSetEntry(via);
    if (!dests) return;
    for (auto [d, flag] : dests->vlanMacDestSetColl()) noHwInfo.emplace_back(d, since);
  });
  hwTunnelIdSince_.forEach([&](TunnelId const& tunnel, double since) {
    auto dests = tunnelToFloodSetEntry(tunnel);
    if (!dests) return;
    for (auto [d, flag] : dests->vlanMacDestSetColl()) {
      MplsDestConfig const published = mplsDestHwConfig(d);
      if (!!published && published.hwTunnelId() == HwTunnelId())
        noHwTunnelId.emplace_back(d, since);
    }
  });
  auto const byDest = [](auto const& a, auto const& b) {
    return VlanMacDestOrder()(a.first, b.first);
  };
  std::sort(noHwInfo.begin(), noHwInfo.end(), byDest);
  std::sort(noHwTunnelId.begin(), noHwTunnelId.end(), byDest);
  std::vector<PendingItem> items;
  items.reserve(noHwInfo.size() + noHwTunnelId.size());
  for (auto const& [d, since] : noHwInfo) {
    MplsFloodSetVia const via = viaOf(d.dest());
    items.push_back(
        {"floodset", destText(d),
         pendingText("no hw info for via ", via.tunnelId().value(), "/", via.label().stringValue()),
         since});
  }
  for (auto const& [d, since] : noHwTunnelId) {
    items.push_back(
        {"floodset", destText(d),
         pendingText("no hw tunnel id for tunnel ", d.dest().destDataMpls().tunnelId().value()),
         since});
  }
  return items;
}

VEL_REGISTER_TYPE(EvpnVlanFloodSetSm);

}  // namespace Nox
