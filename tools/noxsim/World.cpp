// Building every collection of the simulated agent.

#include "tools/noxsim/World.h"

#include "tools/noxsim/FloodingCommon.h"

namespace Noxsim {

World::World()
    : clock(new Vel::VirtualClock),
      scheduler(new Cog::TaskScheduler(clock)),
      l2ribFloodSets(L2Rib::floodSetOutputFactory()),
      filteredFloodSets(L2Rib::floodSetOutputFactory()),
      hwInfo(Nox::hwInfoMappingFactory()),
      hwConfig(Nox::evpnVlanFloodSetHwConfigFactory()),
      hwStatus(Nox::evpnVlanFloodSetHwStatusFactory()),
      tunnels(Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId")),
      floodingHelper(floodingStubFactory(&calls)),
      evpnStatus(Evpn::evpnStatusFactory()),
      ncsd(Nox::noxCommonSmDataFactory("ncsd")),
      bridgingConfig(Bridging::configFactory()) {}

}  // namespace Noxsim
