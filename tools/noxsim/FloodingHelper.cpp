// Logging of the flooding helper's calls, in the `calls` table's line forms.

#include "tools/noxsim/FloodingHelper.h"

#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

std::string statusText(Nox::HwProgrammingStatus status) { return Nox::valueToStrep(status); }

std::string intfVlanText(Gantry::IntfId intfId, Bridging::VlanId vlanId) {
  return cat("intf=", intfId.name(), " vlan=", vlanId.value());
}

}  // namespace

Nox::HwProgrammingStatus LoggingFloodingHelper::createVlanToDot1qMapping(
    Gantry::IntfId intfId, Bridging::VlanId vlanId, Bridging::VlanIdOrNone dot1q) {
  auto const rc = EvpnFloodingSmHelperStub::createVlanToDot1qMapping(intfId, vlanId, dot1q);
  calls_->push_back(cat("flooding createVlanToDot1qMapping ", intfVlanText(intfId, vlanId),
                        " dot1q=", dot1q.value(), " -> ", statusText(rc)));
  return rc;
}

void LoggingFloodingHelper::deleteVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                                     Bridging::VlanIdOrNone dot1q) {
  EvpnFloodingSmHelperStub::deleteVlanToDot1qMapping(intfId, vlanId, dot1q);
  calls_->push_back(cat("flooding deleteVlanToDot1qMapping ", intfVlanText(intfId, vlanId),
                        " dot1q=", dot1q.value()));
}

Nox::HwProgrammingStatus LoggingFloodingHelper::createEsiData(
    Gantry::IntfId intfId, Bridging::VlanId vlanId, Tunnel::TunnelTable::TunnelId const& tunnelId,
    Nox::HwTunnelId hwTunnelId, Gantry::MplsLabel label) {
  auto const rc =
      EvpnFloodingSmHelperStub::createEsiData(intfId, vlanId, tunnelId, hwTunnelId, label);
  calls_->push_back(cat("flooding createEsiData ", intfVlanText(intfId, vlanId),
                        " tunnel=", tunnelId.value(), " hwTunnelId=", hwTunnelId.value(),
                        " label=", label.stringValue(), " -> ", statusText(rc)));
  return rc;
}

void LoggingFloodingHelper::deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) {
  EvpnFloodingSmHelperStub::deleteEsiData(intfId, vlanId);
  calls_->push_back(cat("flooding deleteEsiData ", intfVlanText(intfId, vlanId)));
}

Nox::HwTunnelId LoggingFloodingHelper::getHwTunnelId() {
  Nox::HwTunnelId const id = EvpnFloodingSmHelperStub::getHwTunnelId();
  calls_->push_back(cat("flooding getHwTunnelId -> ", id.value()));
  return id;
}

void LoggingFloodingHelper::releaseHwTunnelId(Nox::HwTunnelId hwTunnelId) {
  EvpnFloodingSmHelperStub::releaseHwTunnelId(hwTunnelId);
  calls_->push_back(cat("flooding releaseHwTunnelId hwTunnelId=", hwTunnelId.value()));
}

}  // namespace Noxsim
