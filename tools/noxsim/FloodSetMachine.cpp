// Wiring of the flood-set hardware configuration: the filtered flood sets, the tunnel table, the
// hardware information of the vias and the hardware status in, the hardware configuration out.

#include "NoxEvpn/NoxEvpnVlanFloodSetSm.h"
#include "tools/noxsim/Machines.h"

namespace Noxsim {

MachineWiring floodSetMachine() {
  return {
      .name = "floodset",
      .reads = {"floodset-filtered", "tunnels", "hwinfo", "hwstatus"},
      .writes = {"hwconfig"},
      .start =
          [](World& w) {
            auto sm = Nox::evpnVlanFloodSetSmFactory(w.filteredFloodSets, w.tunnels, w.hwInfo,
                                                     w.hwConfig, w.hwStatus);
            // What waits is dated on the event thread's clock, as in the other machines.
            sm->clockIs(w.clock);
            return Vel::Ptr<Vel::PtrInterface>(sm);
          },
      .ownsTask = {},
  };
}

}  // namespace Noxsim
