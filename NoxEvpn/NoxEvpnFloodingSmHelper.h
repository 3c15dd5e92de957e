#pragma once

// The door through which the flooding machines reach the forwarding hardware: ESI data per
// physical port and VLAN, hardware tunnel ids, and VLAN-to-dot1q mappings. The agent's platform
// layer derives the real helper from EvpnFloodingSmHelper; the base refuses every operation
// (or, under NOX_NOOP_AGENT, does nothing). EvpnFloodingSmHelperStub does no hardware work but
// records every call in notifying attributes and returns configured results, so the machines
// can be driven and observed without hardware.

#include <cstdint>

#include "NoxEvpn/NoxCommon.h"
#include "NoxEvpn/NoxEvpn.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Tunnel/Tunnel.h"

namespace NoxHelper {

class EvpnFloodingSmHelper : public Nox::NoxBaseHelper {
 public:
  explicit EvpnFloodingSmHelper(Vel::Name name) : NoxBaseHelper(std::move(name)) {}

  virtual Nox::HwProgrammingStatus createVlanToDot1qMapping(Gantry::IntfId intfId,
                                                            Bridging::VlanId vlanId,
                                                            Bridging::VlanIdOrNone dot1q);
  virtual void deleteVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                        Bridging::VlanIdOrNone dot1q);
  virtual Nox::HwProgrammingStatus createEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                                 Tunnel::TunnelTable::TunnelId const& tunnelId,
                                                 Nox::HwTunnelId hwTunnelId,
                                                 Gantry::MplsLabel label);
  virtual void deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId);
  // 0 when no id is free.
  virtual Nox::HwTunnelId getHwTunnelId();
  virtual void releaseHwTunnelId(Nox::HwTunnelId hwTunnelId);

  VEL_DESCRIBE("NoxHelper::EvpnFloodingSmHelper", "name")

 protected:
  ~EvpnFloodingSmHelper() override = default;

 private:
  // True when the operation is to do nothing (NOX_NOOP_AGENT set); otherwise stops the process
  // with the message.
  bool unimplemented(char const* message) const;
};

class EvpnFloodingSmHelperStub : public EvpnFloodingSmHelper {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<EvpnFloodingSmHelperStub> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onCreateVlanToDot1qIntfId() {}
    virtual void onCreateVlanToDot1qVlanId() {}
    virtual void onCreateVlanToDot1qDot1q() {}
    virtual void onCreateVlanToDot1qCount() {}
    virtual void onCreateVlanToDot1qRc() {}
    virtual void onDeleteVlanToDot1qIntfId() {}
    virtual void onDeleteVlanToDot1qVlanId() {}
    virtual void onDeleteVlanToDot1qDot1q() {}
    virtual void onDeleteVlanToDot1qCount() {}
    virtual void onCreateEsiDataIntfId() {}
    virtual void onCreateEsiDataVlanId() {}
    virtual void onCreateEsiDataTid() {}
    virtual void onCreateEsiDataHwTid() {}
    virtual void onCreateEsiDataLabel() {}
    virtual void onCreateEsiDataCount() {}
    virtual void onCreateEsiDataRc() {}
    virtual void onDeleteEsiDataIntfId() {}
    virtual void onDeleteEsiDataVlanId() {}
    virtual void onDeleteEsiDataCount() {}
    virtual void onHwTunnelIdExhausted() {}
    virtual void onHwTunnelIdIndex() {}
    virtual void onGetHwTunnelIdCount() {}
    virtual void onReleaseHwTunnelIdHwTunnelId() {}
    virtual void onReleaseHwTunnelIdCount() {}
  };

  explicit EvpnFloodingSmHelperStub(Vel::Name name) : EvpnFloodingSmHelper(std::move(name)) {}

  Nox::HwProgrammingStatus createVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                                    Bridging::VlanIdOrNone dot1q) override;
  void deleteVlanToDot1qMapping(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                Bridging::VlanIdOrNone dot1q) override;
  Nox::HwProgrammingStatus createEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId,
                                         Tunnel::TunnelTable::TunnelId const& tunnelId,
                                         Nox::HwTunnelId hwTunnelId,
                                         Gantry::MplsLabel label) override;
  void deleteEsiData(Gantry::IntfId intfId, Bridging::VlanId vlanId) override;
  // Hands out hwTunnelIdIndex and moves it on, unless exhausted; never reuses a released id.
  Nox::HwTunnelId getHwTunnelId() override;
  void releaseHwTunnelId(Nox::HwTunnelId hwTunnelId) override;

  // Add n, notify when the value changed, return the new value.
  uint32_t hwTunnelIdIndexInc(unsigned n);
  uint32_t getHwTunnelIdCountInc(unsigned n);

  VEL_DESCRIBE("NoxHelper::EvpnFloodingSmHelperStub", "createVlanToDot1qIntfId",
               "createVlanToDot1qVlanId", "createVlanToDot1qDot1q", "createVlanToDot1qCount",
               "createVlanToDot1qRc", "deleteVlanToDot1qIntfId", "deleteVlanToDot1qVlanId",
               "deleteVlanToDot1qDot1q", "deleteVlanToDot1qCount", "createEsiDataIntfId",
               "createEsiDataVlanId", "createEsiDataTid", "createEsiDataHwTid",
               "createEsiDataLabel", "createEsiDataCount", "createEsiDataRc", "deleteEsiDataIntfId",
               "deleteEsiDataVlanId", "deleteEsiDataCount", "hwTunnelIdExhausted",
               "hwTunnelIdIndex", "getHwTunnelIdCount", "releaseHwTunnelIdHwTunnelId",
               "releaseHwTunnelIdCount")
  VEL_SCALAR(createVlanToDot1qIntfId, CreateVlanToDot1qIntfId, Gantry::IntfId, Gantry::IntfId())
  VEL_SCALAR(createVlanToDot1qVlanId, CreateVlanToDot1qVlanId, Bridging::VlanId,
             Bridging::VlanId(1))
  VEL_SCALAR(createVlanToDot1qDot1q, CreateVlanToDot1qDot1q, Bridging::VlanIdOrNone,
             Bridging::VlanIdOrNone())
  VEL_SCALAR(createVlanToDot1qCount, CreateVlanToDot1qCount, uint32_t, 0)
  VEL_SCALAR(createVlanToDot1qRc, CreateVlanToDot1qRc, Nox::HwProgrammingStatus, Nox::programmed)
  VEL_SCALAR(deleteVlanToDot1qIntfId, DeleteVlanToDot1qIntfId, Gantry::IntfId, Gantry::IntfId())
  VEL_SCALAR(deleteVlanToDot1qVlanId, DeleteVlanToDot1qVlanId, Bridging::VlanId,
             Bridging::VlanId(1))
  VEL_SCALAR(deleteVlanToDot1qDot1q, DeleteVlanToDot1qDot1q, Bridging::VlanIdOrNone,
             Bridging::VlanIdOrNone())
  VEL_SCALAR(deleteVlanToDot1qCount, DeleteVlanToDot1qCount, uint32_t, 0)
  VEL_SCALAR(createEsiDataIntfId, CreateEsiDataIntfId, Gantry::IntfId, Gantry::IntfId())
  VEL_SCALAR(createEsiDataVlanId, CreateEsiDataVlanId, Bridging::VlanId, Bridging::VlanId(1))
  VEL_SCALAR(createEsiDataTid, CreateEsiDataTid, Tunnel::TunnelTable::TunnelId,
             Tunnel::TunnelTable::TunnelId())
  VEL_SCALAR(createEsiDataHwTid, CreateEsiDataHwTid, Nox::HwTunnelId, Nox::HwTunnelId())
  VEL_SCALAR(createEsiDataLabel, CreateEsiDataLabel, Gantry::MplsLabel, Gantry::MplsLabel())
  VEL_SCALAR(createEsiDataCount, CreateEsiDataCount, uint32_t, 0)
  VEL_SCALAR(createEsiDataRc, CreateEsiDataRc, Nox::HwProgrammingStatus, Nox::programmed)
  VEL_SCALAR(deleteEsiDataIntfId, DeleteEsiDataIntfId, Gantry::IntfId, Gantry::IntfId())
  VEL_SCALAR(deleteEsiDataVlanId, DeleteEsiDataVlanId, Bridging::VlanId, Bridging::VlanId(1))
  VEL_SCALAR(deleteEsiDataCount, DeleteEsiDataCount, uint32_t, 0)
  VEL_SCALAR(hwTunnelIdExhausted, HwTunnelIdExhausted, bool, false)
  VEL_SCALAR(hwTunnelIdIndex, HwTunnelIdIndex, uint32_t, 1)
  VEL_SCALAR(getHwTunnelIdCount, GetHwTunnelIdCount, uint32_t, 0)
  VEL_SCALAR(releaseHwTunnelIdHwTunnelId, ReleaseHwTunnelIdHwTunnelId, Nox::HwTunnelId,
             Nox::HwTunnelId())
  VEL_SCALAR(releaseHwTunnelIdCount, ReleaseHwTunnelIdCount, uint32_t, 0)

 protected:
  ~EvpnFloodingSmHelperStub() override = default;
};

Vel::Ptr<EvpnFloodingSmHelperStub> evpnFloodingSmHelperStubFactory(Vel::Name name);

}  // namespace NoxHelper
