#pragma once

// The hardware access of the ESI filtering decap machine: install or remove the port map that
// ties an ESI label to the local interface whose traffic must not be flooded back when a packet
// arrives with that label. The platform layer derives the real implementation; the base class
// refuses to work unless NOX_NOOP_AGENT is set, and the stub records calls and returns a
// configured code.

#include <cstdint>

#include "NoxEvpn/NoxCommon.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Mpls/Mpls.h"
#include "platform/vel/Collection.h"

namespace NoxHelper {

class EsiFilteringDecapHelper : public Nox::NoxBaseHelper {
 public:
  explicit EsiFilteringDecapHelper(Vel::Name name) : NoxBaseHelper(std::move(name)) {}

  // 0 success, 1 conflict, 2 and 3 retryable failures; larger codes are neither recorded nor
  // retried by the caller. Without hardware: 2 in no-op mode, otherwise a fatal stop.
  virtual Mpls::LfibHwProgrammingReturnCode createEsiPortMap(Gantry::MplsLabel esiLabel,
                                                             Gantry::IntfId intfId);
  virtual void deleteEsiPortMap(Gantry::MplsLabel esiLabel, Gantry::IntfId intfId);

  VEL_DESCRIBE("NoxHelper::EsiFilteringDecapHelper", "name")
};

// Counts calls, remembers the arguments of the last one and returns createEsiPortMapRc.
class EsiFilteringDecapHelperStub : public EsiFilteringDecapHelper {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<EsiFilteringDecapHelperStub> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onCreateEsiPortMapRc() {}
    virtual void onCreateEsiPortMapCount() {}
    virtual void onCreateEsiPortMapLabel() {}
    virtual void onCreateEsiPortMapIntfId() {}
    virtual void onDeleteEsiPortMapCount() {}
    virtual void onDeleteEsiPortMapLabel() {}
    virtual void onDeleteEsiPortMapIntfId() {}
  };
  explicit EsiFilteringDecapHelperStub(Vel::Name name) : EsiFilteringDecapHelper(std::move(name)) {}

  Mpls::LfibHwProgrammingReturnCode createEsiPortMap(Gantry::MplsLabel esiLabel,
                                                     Gantry::IntfId intfId) override;
  void deleteEsiPortMap(Gantry::MplsLabel esiLabel, Gantry::IntfId intfId) override;

  VEL_DESCRIBE("NoxHelper::EsiFilteringDecapHelperStub", "createEsiPortMapRc",
               "createEsiPortMapCount", "createEsiPortMapLabel", "createEsiPortMapIntfId",
               "deleteEsiPortMapCount", "deleteEsiPortMapLabel", "deleteEsiPortMapIntfId")
 public:
  VEL_SCALAR(createEsiPortMapRc, CreateEsiPortMapRc, Mpls::LfibHwProgrammingReturnCode,
             Mpls::lfibHwProgrammingSuccess)
 public:
  VEL_SCALAR(createEsiPortMapCount, CreateEsiPortMapCount, uint32_t, 0)
 public:
  VEL_SCALAR(createEsiPortMapLabel, CreateEsiPortMapLabel, Gantry::MplsLabel, Gantry::MplsLabel())
 public:
  VEL_SCALAR(createEsiPortMapIntfId, CreateEsiPortMapIntfId, Gantry::IntfId, Gantry::IntfId())
 public:
  VEL_SCALAR(deleteEsiPortMapCount, DeleteEsiPortMapCount, uint32_t, 0)
 public:
  VEL_SCALAR(deleteEsiPortMapLabel, DeleteEsiPortMapLabel, Gantry::MplsLabel, Gantry::MplsLabel())
 public:
  VEL_SCALAR(deleteEsiPortMapIntfId, DeleteEsiPortMapIntfId, Gantry::IntfId, Gantry::IntfId())
 public:
};

Vel::Ptr<EsiFilteringDecapHelperStub> esiFilteringDecapHelperStubFactory(Vel::Name name);

}  // namespace NoxHelper
