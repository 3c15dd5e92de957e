#pragma once

// The EVPN agent's status as this library consumes it: per local ethernet-segment interface,
// the designated forwarder's tunnel end point of each VLAN and the ESI labels that remote teps
// advertised, and the VLAN-to-dot1q tags used when flooding.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Tunnel/Tunnel.h"
#include "platform/vel/Entity.h"
#include "platform/vel/Value.h"

namespace Evpn {

// How traffic to a remote tep is encapsulated; none is what a lookup that misses gives.
enum class EncapType : uint32_t { none = 0, mpls = 1, vxlan = 2 };
std::ostream& operator<<(std::ostream& os, EncapType v);

// An encapsulation with its label; only an MPLS one carries an ESI label to program.
class EncapTypeLabel : public Vel::Value<EncapTypeLabel> {
 public:
  EncapTypeLabel() = default;
  EncapTypeLabel(EncapType encapType, Gantry::MplsLabel label)
      : encapType_(encapType), label_(label) {}
  EncapType encapType() const { return encapType_; }
  bool isMpls() const { return encapType_ == EncapType::mpls; }
  Gantry::MplsLabel mplsLabel() const { return label_; }

  VEL_TYPE_INFO("Evpn::EncapTypeLabel", "encapType", "label")
  auto fields() const { return std::tie(encapType_, label_); }

 private:
  EncapType encapType_ = EncapType::none;
  Gantry::MplsLabel label_;
};

// The tunnel id behind a tep's dynamic tunnel interface; raises Vel::RangeException past 48 bits.
Tunnel::TunnelTable::TunnelId tepTunnelId(Gantry::IntfId const& tep);

// One local interface attached to an ethernet segment (a port-channel or a plain port).
class EthernetSegmentStatus : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<EthernetSegmentStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onDesignatedForwarderTep(Bridging::VlanId const&) {}
    virtual void onRemoteEsiLabel(Gantry::IntfId const&) {}
  };
  explicit EthernetSegmentStatus(Gantry::IntfId const& key) : key_(key) {}
  Gantry::IntfId const& key() const { return key_; }
  Gantry::IntfId const& intfId() const { return key_; }

  VEL_DESCRIBE("Evpn::EthernetSegmentStatus", "intfId", "designatedForwarderTep", "remoteEsiLabel")
  // Per VLAN with a remote designated forwarder, that forwarder's tep (a TunnelN interface).
  VEL_VALUE_COLLECTION(designatedForwarderTep, DesignatedForwarderTep, Bridging::VlanId,
                       Gantry::IntfId)
  // Per tep, the label it advertised for this segment.
  VEL_VALUE_COLLECTION(remoteEsiLabel, RemoteEsiLabel, Gantry::IntfId, EncapTypeLabel)

 private:
  Gantry::IntfId const key_;
};

class EvpnStatus : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<EvpnStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onSegmentStatus(Gantry::IntfId const&) {}
    virtual void onVlanToDot1q(Bridging::VlanId const&) {}
    virtual void onEncapType() {}
    virtual void onControlWordPresent() {}
    virtual void onVlanFloodStatus(Bridging::VlanId const&) {}
  };

  VEL_DESCRIBE("Evpn::EvpnStatus", "segmentStatus", "vlanToDot1q", "encapType",
               "controlWordPresent", "vlanFloodStatus")
  VEL_ENTITY_COLLECTION(segmentStatus, SegmentStatus, Gantry::IntfId, EthernetSegmentStatus)
  VEL_VALUE_COLLECTION(vlanToDot1q, VlanToDot1q, Bridging::VlanId, Bridging::VlanIdOrNone)
  VEL_SCALAR(encapType, EncapType, EncapType, EncapType::none)
  VEL_SCALAR(controlWordPresent, ControlWordPresent, bool, false)
  VEL_VALUE_COLLECTION(vlanFloodStatus, VlanFloodStatus, Bridging::VlanId, bool)

 public:
};

Vel::Ptr<EvpnStatus> evpnStatusFactory();

}  // namespace Evpn
