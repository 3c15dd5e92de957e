// Building every collection of the simulated agent.

#include "tools/noxsim/World.h"

#include "tools/noxsim/FloodingHelper.h"

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
      evpnStatus(Evpn::evpnStatusFactory()),
      ncsd(Nox::noxCommonSmDataFactory("ncsd")),
      bridgingConfig(Bridging::configFactory()),
      floodingHelper(new LoggingFloodingHelper(&calls)),
      lfib(Mpls::lfibStatusFactory("lfibStatus")),
      lfibTracking(Mpls::lfibTrackingStatusFactory("lfibTrackingStatus")),
      lfibHwStatus(Mpls::lfibHwStatusFactory("lfibHwStatus")),
      decapHelper(new DecapHelper(&calls)),
      l2ribLabels(L2Rib::labelOutputFactory("l2RibLabel")),
      l2ribLbs(L2Rib::loadBalanceOutputFactory("l2RibLoadBalance")),
      l2ribDests(L2Rib::destOutputFactory("l2RibDest")),
      l2ribHosts(L2Rib::hostOutputFactory("l2RibHost")),
      macFecRequest(Nox::fecIdToHwFecIdRequestFactory("macFecRequest")),
      macFecResponse(Nox::fecIdToHwFecIdResponseFactory("macFecResponse")),
      objTupleHwIds(Nox::objTupleToHwIdFactory("objTupleToHwId")),
      floodSetFecRequest(Nox::fecIdToHwFecIdRequestFactory("floodSetFecRequest")),
      floodSetFecResponse(Nox::fecIdToHwFecIdResponseFactory("floodSetFecResponse")) {
  // Scenarios write the tunnel table directly (`tunnels set/del`) in place of its writer, so it
  // is ready from the start, as the writer leaves it at the end of its initialization.
  tunnels->tunnelIdToHwTunnelIdReadyIs(true);
}

}  // namespace Noxsim
