// Nox::VlanFloodSetFilterSm: the layer-2 RIB's flood sets in, the same flood sets restricted to
// one destination type out. The output always equals the input restricted to that type, except
// that a flood set none of whose destinations match is never created in the output; one that
// loses its last matching destination is removed, and with it a VLAN left empty.
//
// Entry traces (level 8) are indented by call depth: none for the handlers, one blank for
// processVlanFloodSet, two for processFloodSet, three for processDest, four for the workers
// below it; the change traces (level 1) of addDest and deleteDest carry five.

#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"

#include "platform/trace/Trace.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "NoxEvpnVlanFloodSetFilterSm";
}  // namespace
NOX_TRACE_FACILITY("NoxEvpn");

using Bridging::VlanId;
using Gantry::EthAddr;
using L2Rib::Dest;

// Construction.

VlanFloodSetFilterSm::VlanFloodSetFilterSm(L2Rib::DestType destType,
                                           Vel::Ptr<L2Rib::FloodSetOutput const> const& in,
                                           Vel::Ptr<L2Rib::FloodSetOutput> const& out)
    : destType_(destType), in_(in), out_(out) {
  VEL_ASSERT(out_);
  // The watcher creates the reactors of the VLANs (and their MAC addresses) already present.
  if (in_) velInFloodSetOutput_ = std::make_unique<VelInFloodSetOutput>(in_, this);
  handleInitialized();
}

Vel::Ptr<VlanFloodSetFilterSm> VlanFloodSetFilterSm::VlanFloodSetFilterSmIs(
    L2Rib::DestType destType, Vel::Ptr<L2Rib::FloodSetOutput const> const& in,
    Vel::Ptr<L2Rib::FloodSetOutput> const& out) {
  return Vel::Ptr<VlanFloodSetFilterSm>(new VlanFloodSetFilterSm(destType, in, out));
}

Vel::Ptr<VlanFloodSetFilterSm> vlanFloodSetFilterSmFactory(
    L2Rib::DestType destType, Vel::Ptr<L2Rib::FloodSetOutput const> const& in,
    Vel::Ptr<L2Rib::FloodSetOutput> const& out) {
  return VlanFloodSetFilterSm::VlanFloodSetFilterSmIs(destType, in, out);
}

// Initialization: mirror the source and walk the whole input once. The flag is set first because
// every process... function asserts it.

void VlanFloodSetFilterSm::handleInitialized() {
  NOX_TRACE_ENTRY("handleInitialized ");
  initialized_ = true;
  if (!in_) return;
  out_->sourceIs(in_->source());
  for (auto [vlan, vlanFloodSet] : in_->vlanFloodSetColl()) processVlanFloodSet(vlan);
}

// Handlers.

void VlanFloodSetFilterSm::handleSource() {
  NOX_TRACE_ENTRY("handleSource source: {}", in_->source());
  VEL_ASSERT(initialized());
  out_->sourceIs(in_->source());
}

void VlanFloodSetFilterSm::handleVlanFloodSet(VelVlanFloodSet& reactor) {
  NOX_TRACE_ENTRY("handleVlanFloodSet vlan: {}", reactor.key());
  if (!initialized()) return;
  processVlanFloodSet(reactor.key());
}

void VlanFloodSetFilterSm::handleFloodSet(VelFloodSet& reactor) {
  NOX_TRACE_ENTRY("handleFloodSet vlan: {} mac: {}", reactor.vlan(), reactor.key());
  if (!initialized()) return;
  processFloodSet(reactor.vlan(), reactor.key());
}

void VlanFloodSetFilterSm::handleDestSet(VelFloodSet& reactor, Dest const& dest) {
  NOX_TRACE_ENTRY("handleDestSet vlan: {} mac: {} dest: {}", reactor.vlan(), reactor.key(),
                  dest.destId());
  if (!initialized()) return;
  processDest(reactor.vlan(), reactor.key(), dest);
}

// Workers.

void VlanFloodSetFilterSm::processVlanFloodSet(VlanId vlan) {
  NOX_TRACE_ENTRY(" processVlanFloodSet vlan: {}", vlan);
  VEL_ASSERT(initialized());
  if (auto vlanFloodSet = in_ ? in_->vlanFloodSet(vlan) : nullptr) {
    for (auto [mac, floodSet] : vlanFloodSet->floodSetColl()) processFloodSet(vlan, mac);
    return;
  }
  NOX_TRACE_CHANGE("  deleting vlanFloodSet with vlan: {}", vlan);
  out_->vlanFloodSetDel(vlan);
}

void VlanFloodSetFilterSm::processFloodSet(VlanId vlan, EthAddr const& mac) {
  NOX_TRACE_ENTRY("  processFloodSet vlan: {} mac: {}", vlan, mac);
  VEL_ASSERT(initialized());
  auto inVlan = in_ ? in_->vlanFloodSet(vlan) : nullptr;
  if (!inVlan) {
    out_->vlanFloodSetDel(vlan);
    return;
  }
  if (auto floodSet = inVlan->floodSet(mac)) {
    for (auto [dest, flag] : floodSet->destSetColl()) {
      if (dest.destType() == destType_) addDest(vlan, mac, dest);
    }
    return;
  }
  NOX_TRACE_CHANGE("   deleting floodSet with vlan {} and mac {}", vlan, mac);
  auto outVlan = out_->vlanFloodSet(vlan);
  if (!outVlan) return;
  outVlan->floodSetDel(mac);
  if (outVlan->floodSets() == 0) {
    NOX_TRACE_CHANGE("   deleting vlanFloodSet with vlan {}", vlan);
    out_->vlanFloodSetDel(vlan);
  }
}

void VlanFloodSetFilterSm::processDest(VlanId vlan, EthAddr const& mac, Dest const& dest) {
  NOX_TRACE_ENTRY("   processDest vlan: {} mac: {} dest: {}", vlan, mac, dest.destId());
  VEL_ASSERT(initialized());
  if (dest.destType() != destType_) return;
  if (isDestPresent(vlan, mac, dest)) {
    addDest(vlan, mac, dest);
  } else {
    deleteDest(vlan, mac, dest);
  }
}

bool VlanFloodSetFilterSm::isDestPresent(VlanId vlan, EthAddr const& mac, Dest const& dest) {
  NOX_TRACE_ENTRY("    isDestPresent vlan: {} mac: {} dest: {}", vlan, mac, dest.destId());
  auto floodSet = inputFloodSet(vlan, mac);
  return floodSet && floodSet->destSetIsMemberOf(dest);
}

void VlanFloodSetFilterSm::addDest(VlanId vlan, EthAddr const& mac, Dest const& dest) {
  NOX_TRACE_ENTRY("    addDest vlan: {} mac: {} dest: {}", vlan, mac, dest.destId());
  auto inFloodSet = inputFloodSet(vlan, mac);
  auto outFloodSet = out_->vlanFloodSetIs(vlan)->floodSetIs(mac);
  if (inFloodSet) outFloodSet->floodSetTypeIs(inFloodSet->floodSetType());
  NOX_TRACE_CHANGE("     adding dest {}", dest);
  outFloodSet->destSetIs(dest, inFloodSet && inFloodSet->destSet(dest));
}

void VlanFloodSetFilterSm::deleteDest(VlanId vlan, EthAddr const& mac, Dest const& dest) {
  NOX_TRACE_ENTRY("    deleteDest vlan: {} mac: {} dest: {}", vlan, mac, dest.destId());
  auto outVlan = out_->vlanFloodSet(vlan);
  auto outFloodSet = outVlan ? outVlan->floodSet(mac) : nullptr;
  if (!outFloodSet) return;
  if (outFloodSet->destSetIsMemberOf(dest)) {
    NOX_TRACE_CHANGE("     deleting dest {}", dest);
    outFloodSet->destSetDel(dest);
  }
  if (outFloodSet->destSets() == 0) {
    NOX_TRACE_CHANGE("     deleting floodSet with vlan {} and mac {}", vlan, mac);
    outVlan->floodSetDel(mac);
  }
  if (outVlan->floodSets() == 0) {
    NOX_TRACE_CHANGE("     deleting vlanFloodSet with vlan {}", vlan);
    out_->vlanFloodSetDel(vlan);
  }
}

Vel::Ptr<L2Rib::FloodSet const> VlanFloodSetFilterSm::inputFloodSet(VlanId vlan,
                                                                    EthAddr const& mac) const {
  auto vlanFloodSet = in_ ? in_->vlanFloodSet(vlan) : nullptr;
  return vlanFloodSet ? vlanFloodSet->floodSet(mac) : nullptr;
}

VEL_REGISTER_TYPE(VlanFloodSetFilterSm);

}  // namespace Nox
