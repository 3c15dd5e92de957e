#pragma once

// Entities whose keyed collections are Kelp tables (records published for other agents, or read
// from them). Each collection is declared with one macro line, like the Vel collections:
//
//   VELKELP_COLLECTION(hwId, HwId, L2Rib::ObjTuple, uint64_t)
//       hwId(k) (the default value when absent), hwIdColl(), hwIds(), hwIdIsMemberOf(k),
//       hwIdIs(k, v), hwIdDel(k), hwIdDelAll()
//
// The table of collection `x` of an entity named N is named "N.x". Every write and every delete
// of a present key notifies the entity's NotifieeConst::onX(key) (tables notify equal writes
// too); a whole-table change notifies onX(). A lookup that meets a damaged table reports the
// corruption to the table and answers the default value: readers treat it as a miss.

#include <cstddef>
#include <string>

#include "platform/kelp/Exception.h"
#include "platform/kelp/VelKelp.h"
#include "platform/vel/Entity.h"

namespace VelKelp {

template <class K, class V>
V safeGet(Collection<K, V> const& coll, K const& key) {
  try {
    return coll.get(key);
  } catch (Kelp::CorruptionException const&) {
    // Reporting is bookkeeping of the table service, not a change of the collection.
    const_cast<Collection<K, V>&>(coll).table().corruptionDetected();
    return V{};
  }
}

class TableEntity : public Vel::Entity {
 public:
  explicit TableEntity(Vel::Name name) : name_(std::move(name)) {}
  Vel::Name const& name() const { return name_; }

 protected:
  ~TableEntity() override = default;
  Vel::Name collectionTableName(char const* collection) const {
    std::string tableName = name_.str();
    tableName += '.';
    tableName += collection;
    return Vel::Name(std::move(tableName));
  }

 private:
  Vel::Name const name_;
};

}  // namespace VelKelp

#define VELKELP_COLLECTION(name, Name, Key, Value)                                          \
 public:                                                                                    \
  using Name##Coll = ::VelKelp::Collection<Key, Value>;                                     \
  Value name(Key const& k) const { return ::VelKelp::safeGet(name##_, k); }                 \
  Name##Coll const& name##Coll() const { return name##_; }                                  \
  std::size_t name##s() const { return name##_.count(); }                                   \
  bool name##IsMemberOf(Key const& k) const { return name##_.isMemberOf(k); }               \
  void name##Is(Key const& k, Value const& v) { name##_.table().safeWrite(k, v); }          \
  bool name##Del(Key const& k) { return name##_.table().safeRemove(k); }                    \
  void name##DelAll() {                                                                     \
    while (!name##_.empty()) name##Del(name##_.begin()->key);                               \
  }                                                                                         \
                                                                                            \
 private:                                                                                   \
  Name##Coll name##_{                                                                       \
      collectionTableName(#name),                                                           \
      [this](Key const& k) {                                                                \
        this->template notify<NotifieeConst>([&k](NotifieeConst& n) { n.on##Name(k); });    \
      },                                                                                    \
      [this] { this->template notify<NotifieeConst>([](NotifieeConst& n) { n.on##Name(); }); }};
