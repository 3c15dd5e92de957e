#pragma once

// The layer-2 RIB's resolution tables as the MAC-address FEC machine reads them: hosts (MAC and
// VLAN) resolve to an object tuple naming a label or a load-balance entry; labels and load
// balances chain on to further tuples and end in tunnel destinations. All four tables are Kelp
// tables, iterated in ascending key order; their records carry explicit zero padding so that
// every byte is a field.

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/kelp/VelKelpEntity.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/L2Rib/L2Rib.h"

namespace L2Rib {

// A 64-bit id of one kind of table entry.
template <class Tag>
class EntryId {
 public:
  constexpr EntryId() = default;
  constexpr explicit EntryId(uint64_t value) : value_(value) {}
  constexpr uint64_t value() const { return value_; }
  static constexpr bool traceAsNumber = true;
  friend bool operator==(EntryId const&, EntryId const&) = default;
  friend auto operator<=>(EntryId const&, EntryId const&) = default;
  friend std::ostream& operator<<(std::ostream& os, EntryId const& v) { return os << v.value_; }

 private:
  uint64_t value_ = 0;
};
using LabelId = EntryId<struct LabelIdTag>;
using LoadBalanceId = EntryId<struct LoadBalanceIdTag>;

enum TableType : uint32_t {
  tableTypeNone_ = 0,
  tableTypeLoadBalance_ = 1,
  tableTypeLabel_ = 2,
  tableTypeDest_ = 3,
};

// One entry of one table: the entry's id and the table it is in. The default tuple means none.
// Ordered by (id, tableType). Prints as lb:ID, label:ID, dest:ID or none.
class ObjTuple {
 public:
  constexpr ObjTuple() = default;
  constexpr ObjTuple(uint64_t id, TableType tableType) : id_(id), tableType_(tableType) {}
  constexpr uint64_t id() const { return id_; }
  constexpr TableType tableType() const { return tableType_; }
  uint32_t hash() const;

  friend bool operator==(ObjTuple const& a, ObjTuple const& b) {
    return a.id_ == b.id_ && a.tableType_ == b.tableType_;
  }
  friend auto operator<=>(ObjTuple const& a, ObjTuple const& b) {
    if (auto c = a.id_ <=> b.id_; c != 0) return c;
    return a.tableType_ <=> b.tableType_;
  }

 private:
  uint64_t id_ = 0;
  TableType tableType_ = tableTypeNone_;
  uint32_t padding_ = 0;
};
std::ostream& operator<<(std::ostream& os, ObjTuple const& v);
std::string valueToStrep(ObjTuple const& v);
void traceAppend(std::string& out, ObjTuple const& v);

// An MPLS label to push and the one tuple it leads to (a destination or a load balance).
class Label {
 public:
  Label() = default;
  Label(Gantry::MplsLabel label, ObjTuple next) : label_(label), next_(next) {}
  Gantry::MplsLabel label() const { return label_; }
  ObjTuple const& next() const { return next_; }
  friend bool operator==(Label const&, Label const&) = default;

 private:
  Gantry::MplsLabel label_{0};
  uint32_t padding_ = 0;
  ObjTuple next_;
};

// A label entry as the RIB stores it, with the source that produced it.
class LabelAndSource {
 public:
  LabelAndSource() = default;
  explicit LabelAndSource(Label const& label, uint32_t source = 0)
      : label_(label), source_(source) {}
  Label const& label() const { return label_; }
  uint32_t source() const { return source_; }
  friend bool operator==(LabelAndSource const&, LabelAndSource const&) = default;

 private:
  Label label_;
  uint32_t source_ = 0;
  uint32_t padding_ = 0;
};

// An ordered list of next tuples (labels or destinations). It holds more than the 16 that a FEC
// can use, so that a RIB that sends more is seen as such.
class LoadBalance {
 public:
  static constexpr uint32_t capacity = 32;

  LoadBalance() = default;
  uint32_t nexts() const { return count_; }
  ObjTuple const& next(uint32_t i) const { return next_[i]; }
  ObjTuple const* begin() const { return next_.data(); }
  ObjTuple const* end() const { return next_.data() + count_; }
  // Raises Vel::RangeException past the capacity.
  void nextAdd(ObjTuple const& tuple);
  friend bool operator==(LoadBalance const&, LoadBalance const&) = default;

 private:
  uint32_t count_ = 0;
  uint32_t padding_ = 0;
  std::array<ObjTuple, capacity> next_{};
};

// What a host (MAC and VLAN) resolves to. The default means the host is absent.
class HostAndSource {
 public:
  HostAndSource() = default;
  explicit HostAndSource(ObjTuple host, uint32_t source = 0) : host_(host), source_(source) {}
  ObjTuple const& host() const { return host_; }
  uint32_t source() const { return source_; }
  friend bool operator==(HostAndSource const&, HostAndSource const&) = default;

 private:
  ObjTuple host_;
  uint32_t source_ = 0;
  uint32_t padding_ = 0;
};

// The four published tables, one entity each, named as the RIB names them.
#define L2RIB_TABLE_OUTPUT(Class, typeNameText, member, Member, Key, Value) \
  class Class : public VelKelp::TableEntity {                               \
   public:                                                                  \
    class NotifieeConst : public Vel::NotifieeConstOf<Class> {              \
     public:                                                                \
      using NotifieeConstOf::NotifieeConstOf;                               \
      virtual void on##Member(Key const&) {}                                \
      virtual void on##Member() {}                                          \
    };                                                                      \
    explicit Class(Vel::Name name) : TableEntity(std::move(name)) {}        \
    VEL_DESCRIBE(typeNameText, #member)                                     \
                                                                            \
   public:                                                                  \
    VELKELP_COLLECTION(member, Member, Key, Value)                          \
  };                                                                        \
  Vel::Ptr<Class> member##OutputFactory(Vel::Name name)

L2RIB_TABLE_OUTPUT(LabelOutput, "L2Rib::LabelOutput", label, Label, LabelId, LabelAndSource);
L2RIB_TABLE_OUTPUT(LoadBalanceOutput, "L2Rib::LoadBalanceOutput", loadBalance, LoadBalance,
                   LoadBalanceId, LoadBalance);
L2RIB_TABLE_OUTPUT(DestOutput, "L2Rib::DestOutput", dest, Dest, DestId, Dest);
L2RIB_TABLE_OUTPUT(HostOutput, "L2Rib::HostOutput", host, Host, Bridging::MacVlanPair,
                   HostAndSource);

}  // namespace L2Rib
