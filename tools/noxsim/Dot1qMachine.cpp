// Wiring of the dot1q flooding machine: the shared flooding helper, the bridging configuration,
// the EVPN status and the port-channel membership in; dot1q mappings programmed through the
// helper out.

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "tools/noxsim/Machines.h"

namespace Noxsim {

MachineWiring dot1qMachine() {
  return {
      .name = "dot1q",
      .reads = {"helper flooding", "vlan", "evpn", "lag"},
      .writes = {},
      .start =
          [](World& w) {
            return Vel::Ptr<Vel::PtrInterface>(Nox::evpnFloodingDot1qSmFactory(
                w.floodingHelper, w.scheduler, w.ncsd, w.bridgingConfig, w.evpnStatus));
          },
      .ownsTask =
          [](Vel::PtrInterface const& machine, Cog::Task const& task) {
            auto const& sm = static_cast<Nox::EvpnFloodingDot1qSm const&>(machine);
            return sm.reviewUnprogrammed().ptr() == &task;
          },
  };
}

}  // namespace Noxsim
