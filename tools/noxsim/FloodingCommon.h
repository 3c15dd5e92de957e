#pragma once

// What the esi and dot1q machines share in the simulated agent: one flooding helper stub that
// also writes each call to the World's log of hardware-helper calls, the `lag` commands on the
// common data's port-channel membership, `helper flooding set` and the `helper flooding` table.

#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"

namespace Noxsim {

// The recording stub, each call also logged as one `flooding ...` line of `calls`.
class FloodingStub : public NoxHelper::EvpnFloodingSmHelperStub {
 public:
  FloodingStub(Vel::Name name, std::vector<std::string>* calls)
      : EvpnFloodingSmHelperStub(std::move(name)), calls_(calls) {}

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

 protected:
  ~FloodingStub() override = default;

 private:
  std::vector<std::string>* calls_;
};

Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> floodingStubFactory(std::vector<std::string>* calls);

}  // namespace Noxsim
