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
#include <functional>
#include <string>

#include "platform/kelp/Exception.h"
#include "platform/kelp/VelKelp.h"
#include "platform/vel/Entity.h"
#include "platform/vel/Owner.h"

namespace VelKelp {

// The storage of one VELKELP_COLLECTION line: anyone may read it, only Owner (the entity whose
// body holds the line) writes or deletes.
template <class Owner, class K, class V>
class OwnedCollection {
 public:
  OwnedCollection(Vel::Name const& name, std::function<void(K const&)> onKey,
                  std::function<void()> onCollection)
      : coll_(name, std::move(onKey), std::move(onCollection)) {}

  Collection<K, V> const& coll() const { return coll_; }
  std::size_t count() const { return coll_.count(); }
  bool isMemberOf(K const& key) const { return coll_.isMemberOf(key); }

  // A lookup that meets a damaged table reports it to the table and answers the default value.
  // Reporting is bookkeeping of the table service, not a change of the collection, hence the
  // const lookup reaching the mutable table.
  V get(K const& key) const {
    try {
      return coll_.get(key);
    } catch (Kelp::CorruptionException const&) {
      coll_.table().corruptionDetected();
      return V{};
    }
  }

 private:
  friend Owner;

  void write(K const& key, V const& value) { coll_.table().safeWrite(key, value); }
  bool remove(K const& key) { return coll_.table().safeRemove(key); }
  void removeAll() {
    while (!coll_.empty()) remove(coll_.begin()->key);
  }

  mutable Collection<K, V> coll_;
};

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

// Like the Vel accessor blocks, the line declares nothing about access: the accessors and the
// storage land in the section the line is written in, and only the declaring class can change the
// storage.
#define VELKELP_COLLECTION(name, Name, Key, Value)                                               \
  VEL_OWNER_DECL_(name)                                                                          \
  using Name##Coll = ::VelKelp::Collection<Key, Value>;                                          \
  ::VelKelp::OwnedCollection<VEL_OWNER_(name), Key, Value> name##_{                              \
      collectionTableName(#name),                                                                \
      [this](Key const& k) {                                                                     \
        this->template notify<NotifieeConst>([&k](NotifieeConst& n) { n.on##Name(k); });         \
      },                                                                                         \
      [this] { this->template notify<NotifieeConst>([](NotifieeConst& n) { n.on##Name(); }); }}; \
  Value name(Key const& k) const { return name##_.get(k); }                                      \
  Name##Coll const& name##Coll() const { return name##_.coll(); }                                \
  std::size_t name##s() const { return name##_.count(); }                                        \
  bool name##IsMemberOf(Key const& k) const { return name##_.isMemberOf(k); }                    \
  void name##Is(Key const& k, Value const& v) { name##_.write(k, v); }                           \
  bool name##Del(Key const& k) { return name##_.remove(k); }                                     \
  void name##DelAll() { name##_.removeAll(); }
