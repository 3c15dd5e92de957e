#pragma once

// Keys and interface/VLAN/tunnel sets: the small values by which the flooding machines index
// what they program, the reverse-index set entities built on them, the shared programming
// status, and the entry of the published tunnel-id table.

#include <cstdint>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>

#include "platform/kelp/VelKelp.h"
#include "platform/trace/Counters.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Tunnel/Tunnel.h"
#include "platform/vel/Entity.h"
#include "platform/vel/Value.h"

namespace Nox {

using TunnelId = Tunnel::TunnelTable::TunnelId;

// The hardware's id for a tunnel; 0 means none.
class HwTunnelId {
 public:
  constexpr HwTunnelId() = default;
  constexpr explicit HwTunnelId(uint32_t value) : value_(value) {}
  constexpr uint32_t value() const { return value_; }
  static constexpr bool traceAsNumber = true;
  uint32_t hash() const { return Vel::wangHash32(value_); }
  friend bool operator==(HwTunnelId const&, HwTunnelId const&) = default;
  friend auto operator<=>(HwTunnelId const&, HwTunnelId const&) = default;

 private:
  uint32_t value_ = 0;
};
std::ostream& operator<<(std::ostream& os, HwTunnelId const& v);
std::string valueToStrep(HwTunnelId const& v);

// The result of programming one thing into hardware. Other numbers may come back from a
// platform; they are kept and printed as numbers.
enum HwProgrammingStatus : uint32_t { programmed = 0, notProgrammed = 1, invalidHwId = 2 };
HwProgrammingStatus HwProgrammingStatusInstance(unsigned value);
// Raises Vel::RangeException for a name that is none of the three.
HwProgrammingStatus HwProgrammingStatusInstance(Vel::String const& name);
std::optional<HwProgrammingStatus> hwProgrammingStatusFromName(std::string_view name);
Vel::String stringValue(HwProgrammingStatus value);
std::ostream& operator<<(std::ostream& os, HwProgrammingStatus value);
std::string valueToStrep(HwProgrammingStatus value);
Vel::TypeInfo const& hwProgrammingStatusTypeInfo();

class IntfVlanKey : public Vel::Value<IntfVlanKey> {
 public:
  IntfVlanKey() = default;
  IntfVlanKey(Gantry::IntfId intfId, Bridging::VlanId vlanId) : intfId_(intfId), vlanId_(vlanId) {}
  Gantry::IntfId intfId() const { return intfId_; }
  Bridging::VlanId vlanId() const { return vlanId_; }

  VEL_TYPE_INFO("Nox::IntfVlanKey", "intfId", "vlanId")
  auto fields() const { return std::tie(intfId_, vlanId_); }

 private:
  Gantry::IntfId intfId_;
  Bridging::VlanId vlanId_;
};

class IntfTunnelKey : public Vel::Value<IntfTunnelKey> {
 public:
  IntfTunnelKey() = default;
  IntfTunnelKey(Gantry::IntfId intfId, TunnelId tunnelId) : intfId_(intfId), tunnelId_(tunnelId) {}
  Gantry::IntfId intfId() const { return intfId_; }
  TunnelId tunnelId() const { return tunnelId_; }

  VEL_TYPE_INFO("Nox::IntfTunnelKey", "intfId", "tunnelId")
  auto fields() const { return std::tie(intfId_, tunnelId_); }

 private:
  Gantry::IntfId intfId_;
  TunnelId tunnelId_;
};

class IntfVlanTunnelKey : public Vel::Value<IntfVlanTunnelKey> {
 public:
  IntfVlanTunnelKey() = default;
  IntfVlanTunnelKey(Gantry::IntfId intfId, Bridging::VlanId vlanId, TunnelId tunnelId)
      : intfId_(intfId), vlanId_(vlanId), tunnelId_(tunnelId) {}
  Gantry::IntfId intfId() const { return intfId_; }
  Bridging::VlanId vlanId() const { return vlanId_; }
  TunnelId tunnelId() const { return tunnelId_; }

  VEL_TYPE_INFO("Nox::IntfVlanTunnelKey", "intfId", "vlanId", "tunnelId")
  auto fields() const { return std::tie(intfId_, vlanId_, tunnelId_); }

 private:
  Gantry::IntfId intfId_;
  Bridging::VlanId vlanId_;
  TunnelId tunnelId_;
};

// One entry of the published tunnel-id table; its key is its `key` field. It is copied byte for
// byte into shared memory, so the bytes after hwTunnelId are an explicit, always zero field.
class TunnelIdToHwTunnelId : public Vel::Value<TunnelIdToHwTunnelId> {
 public:
  TunnelIdToHwTunnelId() = default;
  TunnelIdToHwTunnelId(TunnelId key, HwTunnelId hwTunnelId) : key_(key), hwTunnelId_(hwTunnelId) {}
  TunnelId key() const { return key_; }
  HwTunnelId hwTunnelId() const { return hwTunnelId_; }
  // The entry's text in the shared-memory table service.
  std::string kelpString() const { return valueToStrep(*this); }

  VEL_TYPE_INFO("Nox::TunnelIdToHwTunnelId", "key", "hwTunnelId")
  auto fields() const { return std::tie(key_, hwTunnelId_); }

 private:
  TunnelId key_;
  HwTunnelId hwTunnelId_;
  [[maybe_unused]] uint32_t padding_ = 0;
};

// Entities with one key fixed at construction and one collection: the interface/VLAN/tunnel
// sets here (member keys to bool) and the flood-set records built the same way.
#define NOX_KEYED_ENTITY(Class, typeNameText, KeyType, member, Member, MemberKey, MemberValue) \
  class Class : public Vel::Entity {                                                           \
   public:                                                                                     \
    class NotifieeConst : public Vel::NotifieeConstOf<Class> {                                 \
     public:                                                                                   \
      using NotifieeConstOf::NotifieeConstOf;                                                  \
      virtual void on##Member(MemberKey const&) {}                                             \
    };                                                                                         \
    explicit Class(KeyType const& key) : key_(key) {}                                          \
    KeyType const& key() const { return key_; }                                                \
    VEL_DESCRIBE(typeNameText, #member)                                                        \
    VEL_VALUE_COLLECTION(member, Member, MemberKey, MemberValue)                               \
    /* Room for n members, for a writer that knows how many are coming. */                     \
    void member##Reserve(std::size_t n) { member##_.reserve(n); }                              \
                                                                                               \
   private:                                                                                    \
    KeyType const key_;                                                                        \
  }

#define NOX_SET_ENTITY(Class, typeNameText, KeyType, member, Member, MemberKey) \
  NOX_KEYED_ENTITY(Class, typeNameText, KeyType, member, Member, MemberKey, bool)

NOX_SET_ENTITY(IntfVlanSet, "Nox::IntfVlanSet", Gantry::IntfId, vlanId, VlanId, Bridging::VlanId);
NOX_SET_ENTITY(VlanIntfSet, "Nox::VlanIntfSet", Bridging::VlanId, intfId, IntfId, Gantry::IntfId);
NOX_SET_ENTITY(TunnelIntfVlanSet, "Nox::TunnelIntfVlanSet", TunnelId, intfVlan, IntfVlan,
               IntfVlanKey);
NOX_SET_ENTITY(IntfTunnelVlanSet, "Nox::IntfTunnelVlanSet", IntfTunnelKey, vlanId, VlanId,
               Bridging::VlanId);

// Which member interfaces of one (interface, VLAN) pair are programmed and which not yet; an
// interface is in at most one of the two collections.
class IntfVlanStatus : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<IntfVlanStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onProgrammed(Gantry::IntfId const&) {}
    virtual void onUnprogrammed(Gantry::IntfId const&) {}
  };
  explicit IntfVlanStatus(IntfVlanKey const& key) : key_(key) {}
  IntfVlanKey const& key() const { return key_; }

  VEL_DESCRIBE("Nox::IntfVlanStatus", "programmed", "unprogrammed")
  VEL_VALUE_COLLECTION(programmed, Programmed, Gantry::IntfId, bool)
  VEL_VALUE_COLLECTION(unprogrammed, Unprogrammed, Gantry::IntfId, bool)

 private:
  IntfVlanKey const key_;
};

// The published table from tunnel ids to hardware tunnel ids. Its one collection lives in a
// Kelp table (in shared memory when the process publishes its tables), so other processes can
// mount it; the ESI flooding machine writes it, the flood-set machines read it.
//
// Built on the writer's side, the entity owns the table and its writes notify at once. Built on
// the reader's side, it mounts the table that another process publishes under the same name,
// refuses writes, and notifies the writer's changes as tunnelIdToHwTunnelIdPoll() takes them.
// Readers use the table only while tunnelIdToHwTunnelIdControl() says it is ready; a change of
// readiness reaches the notifiees as onTunnelIdToHwTunnelIdControl().
class TunnelIdToHwTunnelIdMapping : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<TunnelIdToHwTunnelIdMapping> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onTunnelIdToHwTunnelId(TunnelId const&) {}
    virtual void onTunnelIdToHwTunnelId() {}
    virtual void onTunnelIdToHwTunnelIdvelImmediate() {}
    // Readiness or the writer's presence changed; read tunnelIdToHwTunnelIdControl().
    virtual void onTunnelIdToHwTunnelIdControl() {}
  };
  using TunnelIdToHwTunnelIdColl = VelKelp::Collection<TunnelId, TunnelIdToHwTunnelId>;

  explicit TunnelIdToHwTunnelIdMapping(Vel::Name name, VelKelp::Side side = VelKelp::Side::writer);
  Vel::Name const& name() const { return name_; }

  // The entry of a tunnel; the all-zero entry when the table holds none.
  TunnelIdToHwTunnelId tunnelIdToHwTunnelId(TunnelId const& key) const {
    return tunnelIdToHwTunnelId_.get(key);
  }
  TunnelIdToHwTunnelIdColl const& tunnelIdToHwTunnelIdColl() const { return tunnelIdToHwTunnelId_; }
  std::size_t tunnelIdToHwTunnelIds() const { return tunnelIdToHwTunnelId_.count(); }
  // Readiness and mounting state of the shared collection, as readers see it.
  Kelp::Status tunnelIdToHwTunnelIdControl() const;
  void tunnelIdToHwTunnelIdReadyIs(bool ready);
  bool tunnelIdToHwTunnelIdWritable() const {
    return tunnelIdToHwTunnelId_.side() == VelKelp::Side::writer;
  }

  void tunnelIdToHwTunnelIdIs(TunnelIdToHwTunnelId const& entry);
  // Publishes an entry already written in place (the table's direct slot for its key).
  void tunnelIdToHwTunnelIdCommit(TunnelIdToHwTunnelId const* entry);
  TunnelIdToHwTunnelId* tunnelIdToHwTunnelIdSlot(TunnelId const& key);
  TunnelIdToHwTunnelId tunnelIdToHwTunnelIdDel(TunnelId const& key);
  void tunnelIdToHwTunnelIdDelAll();
  void tunnelIdToHwTunnelIdNotify(TunnelId const& key);
  void tunnelIdToHwTunnelIdNotifyCollection();
  void tunnelIdToHwTunnelIdNotifyControl();
  // Reader side: takes up to maxChanges of the writer's changes and notifies them; returns how
  // many it took.
  std::size_t tunnelIdToHwTunnelIdPoll(
      std::size_t maxChanges = std::numeric_limits<std::size_t>::max());

  VEL_DESCRIBE("Nox::TunnelIdToHwTunnelIdMapping", "tunnelIdToHwTunnelId",
               "tunnelIdToHwTunnelIdControl")

 private:
  VelKelp::Hooks<TunnelId> tunnelIdToHwTunnelIdHooks();

  Vel::Name const name_;
  Trace::Counter* const isCounter_;
  Trace::Counter* const delCounter_;
  Trace::Counter* const notifyCounter_;
  TunnelIdToHwTunnelIdColl tunnelIdToHwTunnelId_;
};

Vel::Ptr<TunnelIdToHwTunnelIdMapping> tunnelIdToHwTunnelIdMappingFactory(
    Vel::Name name, VelKelp::Side side = VelKelp::Side::writer);

}  // namespace Nox
