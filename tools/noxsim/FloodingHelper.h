#pragma once

// The flooding helper the esi and dot1q machines share in noxsim: the library's recording stub,
// which also writes every call, with its result, to the World's log of helper calls.

#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"

namespace Noxsim {

class LoggingFloodingHelper : public NoxHelper::EvpnFloodingSmHelperStub {
 public:
  explicit LoggingFloodingHelper(std::vector<std::string>* calls)
      : EvpnFloodingSmHelperStub("floodingHelper"), calls_(calls) {}

  Nox::HwProgrammingStatus createVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                                    Bridging::VlanIdOrNone dot1q) override;
  void deleteVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                Bridging::VlanIdOrNone dot1q) override;
  Nox::HwProgrammingStatus createEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                         Tunnel::TunnelTable::TunnelId const& tunnelId,
                                         Nox::HwTunnelId hwTunnelId,
                                         Gantry::MplsLabel label) override;
  void deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) override;
  Nox::HwTunnelId getHwTunnelId() override;
  void releaseHwTunnelId(Nox::HwTunnelId hwTunnelId) override;

 private:
  std::vector<std::string>* calls_;
};

}  // namespace Noxsim
