// Wiring of the ESI filtering decap machine: the decap helper, the LFIB and its backlog in, the
// LFIB hardware status out; and the decap helper's call log.

#include "NoxEvpn/NoxEvpnEsiFilteringDecapSm.h"
#include "tools/noxsim/DecapHelper.h"
#include "tools/noxsim/Machines.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

Mpls::LfibHwProgrammingReturnCode DecapHelper::createEsiPortMap(Gantry::MplsLabel esiLabel,
                                                                Gantry::IntfId intfId) {
  auto const rc = EsiFilteringDecapHelperStub::createEsiPortMap(esiLabel, intfId);
  calls_->push_back(cat("decap createEsiPortMap label=", esiLabel.stringValue(),
                        " intf=", intfId.name(), " -> ", uint32_t(rc)));
  return rc;
}

void DecapHelper::deleteEsiPortMap(Gantry::MplsLabel esiLabel, Gantry::IntfId intfId) {
  EsiFilteringDecapHelperStub::deleteEsiPortMap(esiLabel, intfId);
  calls_->push_back(
      cat("decap deleteEsiPortMap label=", esiLabel.stringValue(), " intf=", intfId.name()));
}

MachineWiring decapMachine() {
  return {
      .name = "decap",
      .reads = {"helper decap", "lfib", "lfib-backlog"},
      .writes = {"lfib-hwstatus"},
      .start =
          [](World& w) {
            return Vel::Ptr<Vel::PtrInterface>(Nox::esiFilteringDecapSmFactory(
                w.decapHelper, w.lfib, w.scheduler, w.lfibTracking, w.lfibHwStatus));
          },
      .ownsTask =
          [](Vel::PtrInterface const& machine, Cog::Task const& task) {
            auto const& sm = static_cast<Nox::EsiFilteringDecapSm const&>(machine);
            return &task == sm.reviewRouteKeyBacklog().ptr() ||
                   &task == sm.reviewUnprogrammed().ptr();
          },
  };
}

}  // namespace Noxsim
