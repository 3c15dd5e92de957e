#pragma once

// The bridging agent's types as this library consumes them: VLAN ids, optional dot1q tags,
// (MAC, VLAN) pairs, and the VLAN configuration with each VLAN's member interfaces.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "platform/types/Gantry/Gantry.h"
#include "platform/vel/Entity.h"
#include "platform/vel/Hash.h"
#include "platform/vel/Type.h"
#include "platform/vel/Value.h"

namespace Bridging {

class VlanId {
 public:
  static constexpr uint16_t minValue = 1;
  static constexpr uint16_t maxValue = 4094;

  constexpr VlanId() = default;
  constexpr explicit VlanId(uint16_t value) : value_(value) {}
  constexpr uint16_t value() const { return value_; }
  bool isValid() const { return value_ >= minValue && value_ <= maxValue; }
  static constexpr bool traceAsNumber = true;

  uint32_t hash() const { return Vel::wangHash32(value_); }
  friend bool operator==(VlanId const&, VlanId const&) = default;
  friend auto operator<=>(VlanId const&, VlanId const&) = default;

 private:
  uint16_t value_ = 0;
};
std::ostream& operator<<(std::ostream& os, VlanId const& v);
std::string valueToStrep(VlanId const& v);

// A dot1q tag or none (0); prints as its number, none as 0.
class VlanIdOrNone {
 public:
  static constexpr bool traceAsNumber = true;

  constexpr VlanIdOrNone() = default;
  constexpr explicit VlanIdOrNone(uint16_t value) : value_(value) {}
  constexpr VlanIdOrNone(VlanId vlan) : value_(vlan.value()) {}
  constexpr uint16_t value() const { return value_; }
  bool isNone() const { return value_ == 0; }

  uint32_t hash() const { return Vel::wangHash32(value_); }
  friend bool operator==(VlanIdOrNone const&, VlanIdOrNone const&) = default;
  friend auto operator<=>(VlanIdOrNone const&, VlanIdOrNone const&) = default;

 private:
  uint16_t value_ = 0;
};
std::ostream& operator<<(std::ostream& os, VlanIdOrNone const& v);
std::string valueToStrep(VlanIdOrNone const& v);

// A flood set's identity: a MAC address in a VLAN. Ordered by MAC, then VLAN.
class MacVlanPair : public Vel::Value<MacVlanPair> {
 public:
  MacVlanPair() = default;
  MacVlanPair(Gantry::EthAddr const& macAddr, VlanId vlanId) : macAddr_(macAddr), vlanId_(vlanId) {}

  Gantry::EthAddr const& macAddr() const { return macAddr_; }
  VlanId vlanId() const { return vlanId_; }

  VEL_TYPE_INFO("Bridging::MacVlanPair", "macAddr", "vlanId")
  auto fields() const { return std::tie(macAddr_, vlanId_); }

 private:
  Gantry::EthAddr macAddr_;
  VlanId vlanId_;
};

// One configured VLAN: its member interfaces (the presence of a key is what counts).
class VlanConfig : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<VlanConfig> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onIntf(Gantry::IntfId const&) {}
  };
  explicit VlanConfig(VlanId const& key) : key_(key) {}
  VlanId const& key() const { return key_; }
  VlanId const& vlanId() const { return key_; }

  VEL_DESCRIBE("Bridging::VlanConfig", "vlanId", "intf")
  VEL_VALUE_COLLECTION(intf, Intf, Gantry::IntfId, bool)

 private:
  VlanId const key_;
};

// The bridging configuration: one VlanConfig per configured VLAN.
class Config : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<Config> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onVlanConfig(VlanId const&) {}
    // The immediate form: the whole collection may have changed at once.
    virtual void onVlanConfig() {}
  };

  VEL_DESCRIBE("Bridging::Config", "vlanConfig")
  VEL_ENTITY_COLLECTION(vlanConfig, VlanConfig, VlanId, VlanConfig)

 public:
};

Vel::Ptr<Config> configFactory();

}  // namespace Bridging
