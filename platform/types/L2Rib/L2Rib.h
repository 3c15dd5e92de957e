#pragma once

// The layer-2 RIB's flood-set output as this library consumes it: per VLAN and MAC address, the
// destinations to which broadcast, unknown-unicast and multicast traffic is flooded.
// Destination equality and hash are exact: the machines' collections are keyed by them.

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Tunnel/Tunnel.h"
#include "platform/vel/Entity.h"

// The agent's 32-bit word type, as destination hashes are declared.
using U32 = uint32_t;

namespace L2Rib {

// A 64-bit destination identifier held as two 32-bit words.
class DestId {
 public:
  constexpr DestId() = default;
  constexpr explicit DestId(uint64_t value) : hi_(uint32_t(value >> 32)), lo_(uint32_t(value)) {}
  constexpr uint64_t value() const { return (uint64_t(hi_) << 32) | lo_; }
  static constexpr bool traceAsNumber = true;
  uint32_t hash() const;
  friend bool operator==(DestId const&, DestId const&) = default;
  friend auto operator<=>(DestId const& a, DestId const& b) { return a.value() <=> b.value(); }

 private:
  uint32_t hi_ = 0;
  uint32_t lo_ = 0;
};
std::ostream& operator<<(std::ostream& os, DestId const& v);

enum DestType : uint32_t {
  destTypeIntf_ = 0,    // a local interface
  destTypeVxlan_ = 1,   // a VXLAN remote endpoint
  destTypeMpls_ = 2,    // an MPLS tunnel and label
  destTypeTunnel_ = 3,  // a tunnel
  destTypeNoData_ = 4,  // nothing but the id
};
std::ostream& operator<<(std::ostream& os, DestType v);

// Copied from input to output without interpretation.
enum FloodSetType : uint32_t {};
std::ostream& operator<<(std::ostream& os, FloodSetType v);

struct DestDataMpls {
  Gantry::IntfId tunnelIntfId;
  Gantry::MplsLabel label;
  // The tunnel id of the tunnel interface; raises Vel::RangeException past 48 bits.
  Tunnel::TunnelTable::TunnelId tunnelId() const {
    return Tunnel::TunnelTable::TunnelId(tunnelIntfId.number());
  }
  friend bool operator==(DestDataMpls const&, DestDataMpls const&) = default;
};

struct DestDataVxlan {
  Gantry::IpGenAddr ipAddr;
  friend bool operator==(DestDataVxlan const&, DestDataVxlan const&) = default;
};

struct DestDataIntf {
  Gantry::IntfId intfId;
  friend bool operator==(DestDataIntf const&, DestDataIntf const&) = default;
};

struct DestDataTunnel {
  Gantry::IntfId tunnelIntfId;
  Gantry::IntfId tunnel() const { return tunnelIntfId; }
  friend bool operator==(DestDataTunnel const&, DestDataTunnel const&) = default;
};

// One flood destination: an id, a type, and the data part that the type selects.
class Dest {
 public:
  Dest() = default;
  explicit Dest(DestId id) : destId_(id) {}
  static Dest mpls(DestId id, Gantry::IntfId tunnelIntf, Gantry::MplsLabel label);
  static Dest vxlan(DestId id, Gantry::IpGenAddr const& addr);
  static Dest intf(DestId id, Gantry::IntfId intf);
  static Dest tunnel(DestId id, Gantry::IntfId tunnelIntf);
  static Dest noData(DestId id);
  // Only for exercising the checks on a corrupt type.
  static Dest withType(DestId id, DestType type);

  // The text form back: intf/ID/INTF, vxlan/ID/IPADDR, mpls/ID/TunnelN/LABEL, tunnel/ID/TunnelN,
  // none/ID (LABEL a number or `none`). Empty on anything else.
  // The destination written as its text form; nothing for other text, with the part that is
  // wrong in *why when given.
  static std::optional<Dest> fromString(std::string_view text, std::string* why = nullptr);

  DestId destId() const { return destId_; }
  DestType destType() const { return destType_; }
  // The data of the destination's type; another type's data reads as that type's default.
  DestDataMpls destDataMpls() const { return dataAs<DestDataMpls>(destTypeMpls_); }
  DestDataVxlan destDataVxlan() const { return dataAs<DestDataVxlan>(destTypeVxlan_); }
  DestDataIntf destDataIntf() const { return dataAs<DestDataIntf>(destTypeIntf_); }
  DestDataTunnel destDataTunnel() const { return dataAs<DestDataTunnel>(destTypeTunnel_); }

  // Equal ids, equal types and equal data of that type; a type above 4 fails assertion "0".
  bool operator==(Dest const& other) const;
  // From the type's data only, so destinations that differ only in id share a hash.
  U32 hash() const;
  std::string stringValue() const;

 private:
  // Only the type's data is kept: a destination is stored in every flood set, filter output and
  // machine mapping that names it, a million times over, so it takes 32 bytes rather than the
  // 60 of all four data parts side by side. The words past the data are zero, so equal
  // destinations are equal byte for byte, as shared-memory tables compare them.
  using Words = std::array<uint32_t, 5>;
  template <class Data>
  Data dataAs(DestType type) const {
    static_assert(std::is_trivially_copyable_v<Data> && sizeof(Data) <= sizeof(Words));
    Data data{};
    // Trivially copyable, though not trivial: its fields have default values.
    if (destType_ == type) std::memcpy(static_cast<void*>(&data), data_.data(), sizeof data);
    return data;
  }
  template <class Data>
  void dataIs(Data const& data) {
    static_assert(std::is_trivially_copyable_v<Data> && sizeof(Data) <= sizeof(Words));
    data_ = Words{};
    std::memcpy(data_.data(), &data, sizeof data);
  }

  DestId destId_;
  DestType destType_ = destTypeIntf_;
  Words data_{};
};
std::ostream& operator<<(std::ostream& os, Dest const& v);
std::string valueToStrep(Dest const& v);
void traceAppend(std::string& out, Dest const& v);

class FloodSet : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<FloodSet> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onFloodSetType() {}
    virtual void onDestSet(Dest const&) {}
  };
  explicit FloodSet(Gantry::EthAddr const& key) : key_(key) {}
  Gantry::EthAddr const& key() const { return key_; }
  Gantry::EthAddr const& macAddr() const { return key_; }

  VEL_DESCRIBE("L2Rib::FloodSet", "macAddr", "floodSetType", "destSet")
  VEL_SCALAR(floodSetType, FloodSetType, FloodSetType, FloodSetType{0})
  VEL_VALUE_COLLECTION(destSet, DestSet, Dest, bool)

 private:
  Gantry::EthAddr const key_;
};

class VlanFloodSet : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<VlanFloodSet> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onFloodSet(Gantry::EthAddr const&) {}
  };
  explicit VlanFloodSet(Bridging::VlanId key) : key_(key) {}
  Bridging::VlanId key() const { return key_; }
  Bridging::VlanId vlanId() const { return key_; }

  VEL_DESCRIBE("L2Rib::VlanFloodSet", "vlanId", "floodSet")
  VEL_ENTITY_COLLECTION(floodSet, FloodSet, Gantry::EthAddr, FloodSet)

 private:
  Bridging::VlanId const key_;
};

class FloodSetOutput : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<FloodSetOutput> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onSource() {}
    virtual void onVlanFloodSet(Bridging::VlanId) {}
  };

  VEL_DESCRIBE("L2Rib::FloodSetOutput", "source", "vlanFloodSet")
  VEL_SCALAR(source, Source, uint32_t, 0)
  VEL_ENTITY_COLLECTION(vlanFloodSet, VlanFloodSet, Bridging::VlanId, VlanFloodSet)
};

Vel::Ptr<FloodSetOutput> floodSetOutputFactory();
Vel::Ptr<VlanFloodSet> vlanFloodSetFactory(Bridging::VlanId vlanId);
Vel::Ptr<FloodSet> floodSetFactory(Gantry::EthAddr const& macAddr);

}  // namespace L2Rib
