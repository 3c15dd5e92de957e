// Wiring of the flood-set FEC requests: the filtered flood sets, the tunnel table, the hardware
// status and the floodset FEC responses in; the floodset FEC requests and the hardware
// information out.

#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"
#include "tools/noxsim/Machines.h"

namespace Noxsim {

MachineWiring floodSetFecMachine() {
  return {
      .name = "floodset-fec",
      .reads = {"floodset-filtered", "tunnels", "hwstatus", "fecresponse floodset"},
      .writes = {"fec floodset", "hwinfo"},
      .start =
          [](World& w) {
            return Vel::Ptr<Vel::PtrInterface>(Nox::evpnFloodSetFecSmFactory(
                w.filteredFloodSets, w.tunnels, w.hwStatus, w.floodSetFecRequest,
                w.floodSetFecResponse, w.hwInfo, w.scheduler->timerWheel()));
          },
      .ownsTask = {},
  };
}

}  // namespace Noxsim
