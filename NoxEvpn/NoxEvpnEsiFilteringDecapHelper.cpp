#include "NoxEvpn/NoxEvpnEsiFilteringDecapHelper.h"

#include <cstdlib>

namespace NoxHelper {

namespace {
// In no-op mode the agent runs without hardware: nothing is programmed and every creation
// reports a retryable failure, so the machine keeps retrying rather than believing it succeeded.
bool noopAgent() { return std::getenv("NOX_NOOP_AGENT") != nullptr; }
}  // namespace

Mpls::LfibHwProgrammingReturnCode EsiFilteringDecapHelper::createEsiPortMap(Gantry::MplsLabel,
                                                                            Gantry::IntfId) {
  if (!noopAgent()) noxAssert("Unimplemented createEsiPortMap");
  return Mpls::lfibHwProgrammingNoResource;
}

void EsiFilteringDecapHelper::deleteEsiPortMap(Gantry::MplsLabel, Gantry::IntfId) {
  if (!noopAgent()) noxAssert("Unimplemented deleteEsiPortMap");
}

Mpls::LfibHwProgrammingReturnCode EsiFilteringDecapHelperStub::createEsiPortMap(
    Gantry::MplsLabel esiLabel, Gantry::IntfId intfId) {
  createEsiPortMapLabelIs(esiLabel);
  createEsiPortMapIntfIdIs(intfId);
  createEsiPortMapCountIs(createEsiPortMapCount() + 1);
  return createEsiPortMapRc();
}

void EsiFilteringDecapHelperStub::deleteEsiPortMap(Gantry::MplsLabel esiLabel,
                                                   Gantry::IntfId intfId) {
  deleteEsiPortMapLabelIs(esiLabel);
  deleteEsiPortMapIntfIdIs(intfId);
  deleteEsiPortMapCountIs(deleteEsiPortMapCount() + 1);
}

Vel::Ptr<EsiFilteringDecapHelperStub> esiFilteringDecapHelperStubFactory(Vel::Name name) {
  return Vel::validPtr(
      Vel::Ptr<EsiFilteringDecapHelperStub>(new EsiFilteringDecapHelperStub(std::move(name))));
}

VEL_REGISTER_TYPE(EsiFilteringDecapHelper);
VEL_REGISTER_TYPE(EsiFilteringDecapHelperStub);

}  // namespace NoxHelper
