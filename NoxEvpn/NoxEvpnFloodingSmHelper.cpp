// The flooding hardware helper's base (which refuses every operation) and its recording stub.

#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"

#include <cstdlib>

namespace NoxHelper {

using Nox::HwProgrammingStatus;
using Nox::HwTunnelId;

// Base: no hardware behind it. A test agent running without a platform layer sets
// NOX_NOOP_AGENT to have every call do nothing instead of stopping.

bool EvpnFloodingSmHelper::unimplemented(char const* message) const {
  if (std::getenv("NOX_NOOP_AGENT") == nullptr) noxAssert(message);
  return true;
}

HwProgrammingStatus EvpnFloodingSmHelper::createVlanToDot1qMapping(Gantry::IntfId, Bridging::VlanId,
                                                                   Bridging::VlanIdOrNone) {
  unimplemented("Unimplemented createVlanToDot1qMapping");
  return Nox::notProgrammed;
}

void EvpnFloodingSmHelper::deleteVlanToDot1qMapping(Gantry::IntfId, Bridging::VlanId,
                                                    Bridging::VlanIdOrNone) {
  unimplemented("Unimplemented deleteVlanToDot1qMapping");
}

// The message names the operation by its older name; scripts match it as it stands.
HwProgrammingStatus EvpnFloodingSmHelper::createEsiData(Gantry::IntfId, Bridging::VlanId,
                                                        Tunnel::TunnelTable::TunnelId const&,
                                                        HwTunnelId, Gantry::MplsLabel) {
  unimplemented("Unimplemented addEsiData");
  return Nox::notProgrammed;
}

void EvpnFloodingSmHelper::deleteEsiData(Gantry::IntfId, Bridging::VlanId) {
  unimplemented("Unimplemented deleteEsiData");
}

HwTunnelId EvpnFloodingSmHelper::getHwTunnelId() {
  unimplemented("Unimplemented getHwTunnelId");
  return HwTunnelId();
}

void EvpnFloodingSmHelper::releaseHwTunnelId(HwTunnelId) {
  unimplemented("Unimplemented releaseHwTunnelId");
}

// Stub: arguments first, then the count, so an observer of the count finds the whole call.

HwProgrammingStatus EvpnFloodingSmHelperStub::createVlanToDot1qMapping(
    Gantry::IntfId intfId, Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q) {
  createVlanToDot1qIntfIdIs(intfId);
  createVlanToDot1qVlanIdIs(vlanId);
  createVlanToDot1qDot1qIs(dot1q);
  createVlanToDot1qCountIs(createVlanToDot1qCount() + 1);
  return createVlanToDot1qRc();
}

void EvpnFloodingSmHelperStub::deleteVlanToDot1qMapping(Gantry::IntfId intfId,
                                                        Bridging::VlanId vlanId,
                                                        Bridging::VlanIdOrNone dot1q) {
  deleteVlanToDot1qIntfIdIs(intfId);
  deleteVlanToDot1qVlanIdIs(vlanId);
  deleteVlanToDot1qDot1qIs(dot1q);
  deleteVlanToDot1qCountIs(deleteVlanToDot1qCount() + 1);
}

HwProgrammingStatus EvpnFloodingSmHelperStub::createEsiData(
    Gantry::IntfId intfId, Bridging::VlanId vlanId, Tunnel::TunnelTable::TunnelId const& tunnelId,
    HwTunnelId hwTunnelId, Gantry::MplsLabel label) {
  createEsiDataIntfIdIs(intfId);
  createEsiDataVlanIdIs(vlanId);
  createEsiDataTidIs(tunnelId);
  createEsiDataHwTidIs(hwTunnelId);
  createEsiDataLabelIs(label);
  createEsiDataCountIs(createEsiDataCount() + 1);
  return createEsiDataRc();
}

void EvpnFloodingSmHelperStub::deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) {
  deleteEsiDataIntfIdIs(intfId);
  deleteEsiDataVlanIdIs(vlanId);
  deleteEsiDataCountIs(deleteEsiDataCount() + 1);
}

HwTunnelId EvpnFloodingSmHelperStub::getHwTunnelId() {
  getHwTunnelIdCountInc(1);
  if (hwTunnelIdExhausted()) return HwTunnelId();
  HwTunnelId const taken(hwTunnelIdIndex());
  hwTunnelIdIndexInc(1);
  return taken;
}

// The count before the id: an observer of the count reads the id of the call before.
void EvpnFloodingSmHelperStub::releaseHwTunnelId(HwTunnelId hwTunnelId) {
  releaseHwTunnelIdCountIs(releaseHwTunnelIdCount() + 1);
  releaseHwTunnelIdHwTunnelIdIs(hwTunnelId);
}

uint32_t EvpnFloodingSmHelperStub::hwTunnelIdIndexInc(unsigned n) {
  hwTunnelIdIndexIs(hwTunnelIdIndex() + n);
  return hwTunnelIdIndex();
}

uint32_t EvpnFloodingSmHelperStub::getHwTunnelIdCountInc(unsigned n) {
  getHwTunnelIdCountIs(getHwTunnelIdCount() + n);
  return getHwTunnelIdCount();
}

Vel::Ptr<EvpnFloodingSmHelperStub> evpnFloodingSmHelperStubFactory(Vel::Name name) {
  return Vel::validPtr(
      Vel::Ptr<EvpnFloodingSmHelperStub>(new EvpnFloodingSmHelperStub(std::move(name))));
}

VEL_REGISTER_TYPE(EvpnFloodingSmHelper);
VEL_REGISTER_TYPE(EvpnFloodingSmHelperStub);

}  // namespace NoxHelper
