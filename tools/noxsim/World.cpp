// Building every collection of the simulated agent.

#include "tools/noxsim/World.h"

namespace Noxsim {

World::World()
    : clock(new Vel::VirtualClock),
      scheduler(new Cog::TaskScheduler(clock)),
      l2ribFloodSets(L2Rib::floodSetOutputFactory()),
      filteredFloodSets(L2Rib::floodSetOutputFactory()),
      hwInfo(Nox::hwInfoMappingFactory()),
      hwConfig(Nox::evpnVlanFloodSetHwConfigFactory()),
      hwStatus(Nox::evpnVlanFloodSetHwStatusFactory()),
      tunnels(Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId")) {
  // Scenarios write the tunnel table directly (`tunnels set/del`) in place of its writer, so it
  // is ready from the start, as the writer leaves it at the end of its initialization.
  tunnels->tunnelIdToHwTunnelIdReadyIs(true);
}

}  // namespace Noxsim
