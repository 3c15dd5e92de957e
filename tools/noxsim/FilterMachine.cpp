// Wiring of the flood-set filter: the layer-2 RIB's flood sets in, their MPLS destinations out.

#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"
#include "tools/noxsim/Machines.h"

namespace Noxsim {

MachineWiring filterMachine() {
  return {
      .name = "filter",
      .reads = {"floodset"},
      .writes = {"floodset-filtered"},
      .start =
          [](World& w) {
            return Vel::Ptr<Vel::PtrInterface>(Nox::vlanFloodSetFilterSmFactory(
                L2Rib::destTypeMpls_, w.l2ribFloodSets, w.filteredFloodSets));
          },
      .ownsTask = {},
  };
}

}  // namespace Noxsim
