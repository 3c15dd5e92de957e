// Wiring of the ESI flooding machine: the shared flooding helper, the scheduler, the
// port-channel membership and the EVPN status in, the tunnel-id table out.

#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "tools/noxsim/Machines.h"

namespace Noxsim {

MachineWiring esiMachine() {
  return {
      .name = "esi",
      .reads = {"evpn", "lag", "helper flooding"},
      .writes = {"tunnels"},
      .start =
          [](World& w) {
            return Vel::Ptr<Vel::PtrInterface>(Nox::evpnFloodingEsiSmFactory(
                w.floodingHelper, w.scheduler, w.ncsd, w.evpnStatus, w.tunnels));
          },
      .ownsTask =
          [](Vel::PtrInterface const& machine, Cog::Task const& task) {
            auto const& esi = static_cast<Nox::EvpnFloodingEsiSm const&>(machine);
            return esi.reviewUnprogrammed().ptr() == &task;
          },
  };
}

}  // namespace Noxsim
