// Wiring of the MAC-address FEC requests: the layer-2 RIB's host, label, load-balance and
// destination tables and the mac FEC responses in; the mac FEC requests and the object-tuple
// hardware ids out.

#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "tools/noxsim/Machines.h"

namespace Noxsim {

MachineWiring macFecMachine() {
  return {
      .name = "macfec",
      .reads = {"l2rib host", "l2rib label", "l2rib lb", "l2rib dest", "fecresponse mac"},
      .writes = {"fec mac", "objtuple-hwid"},
      .start =
          [](World& w) {
            return Vel::Ptr<Vel::PtrInterface>(Nox::noxMacAddrFecRequestSmFactory(
                w.l2ribLabels, w.l2ribLbs, w.l2ribDests, w.macFecResponse, w.l2ribHosts,
                w.macFecRequest, w.objTupleHwIds, w.scheduler->timerWheel(), w.scheduler));
          },
      .ownsTask =
          [](Vel::PtrInterface const& machine, Cog::Task const& task) {
            auto const& sm = static_cast<Nox::NoxMacAddrFecRequestSm const&>(machine);
            return sm.reviewBacklog().ptr() == &task;
          },
  };
}

}  // namespace Noxsim
