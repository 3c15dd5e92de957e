#pragma once

// Keyed collections of entities, and the accessor blocks that entity classes declare with one
// macro line per attribute:
//
//   VEL_SCALAR(source, Source, uint32_t, 0)                    source(), sourceIs(v)
//   VEL_VALUE_COLLECTION(destSet, DestSet, L2Rib::Dest, bool)  destSet(k), destSetIs(k, v), ...
//   VEL_ENTITY_COLLECTION(floodSet, FloodSet, Gantry::EthAddr, FloodSet)
//
// Each mutator notifies the entity's notifiees (NotifieeConst::onSource(), onDestSet(key)) after
// the change is visible, and only when something changed: writing an equal value, a
// find-or-create of an existing member and deleting an absent key notify nothing.

#include <cstddef>

#include "platform/vel/OrderedMap.h"
#include "platform/vel/Ptr.h"

namespace Vel {

// Key -> value, with the lookup of an absent key giving the value type's default.
template <class K, class V>
class ValueCollection {
 public:
  using Key = K;
  using Mapped = V;

  V get(K const& k) const {
    V const* v = map_.find(k);
    return v ? *v : V();
  }
  V const* find(K const& k) const { return map_.find(k); }
  V* findMutable(K const& k) { return map_.find(k); }
  bool isMemberOf(K const& k) const { return map_.contains(k); }
  std::size_t count() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  K const* firstKey() const { return map_.firstKey(); }

  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  // Inserts or replaces; true when the collection changed.
  bool set(K const& k, V const& v) {
    auto [stored, inserted] = map_.tryEmplace(k, v);
    if (inserted) return true;
    if (*stored == v) return false;
    *stored = v;
    return true;
  }
  bool erase(K const& k) { return map_.erase(k); }
  void reserve(std::size_t n) { map_.reserve(n); }

 private:
  OrderedMap<K, V> map_;
};

// Key -> entity, members created by find-or-create with the key as the entity's constructor
// argument.
template <class K, class T>
class EntityCollection {
 public:
  using Key = K;
  using Mapped = Ptr<T>;

  Ptr<T> get(K const& k) const {
    Ptr<T> const* v = map_.find(k);
    return v ? *v : Ptr<T>();
  }
  // The member without taking a reference: for lookups on hot paths that only read.
  T const* find(K const& k) const {
    Ptr<T> const* v = map_.find(k);
    return v ? v->ptr() : nullptr;
  }
  bool isMemberOf(K const& k) const { return map_.contains(k); }
  std::size_t count() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  K const* firstKey() const { return map_.firstKey(); }

  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  // The member for k and whether it was created now.
  std::pair<Ptr<T>, bool> findOrCreate(K const& k) {
    auto [stored, inserted] = map_.tryEmplace(k);
    if (inserted) *stored = Ptr<T>(new T(k));
    return {*stored, inserted};
  }
  // Removes k; the entity lives on while someone (a reactor) still holds it.
  bool erase(K const& k) { return map_.erase(k); }
  void reserve(std::size_t n) { map_.reserve(n); }

 private:
  OrderedMap<K, Ptr<T>> map_;
};

}  // namespace Vel

// The accessor blocks. They expect the enclosing class to be a Vel::Entity with a nested
// NotifieeConst declaring on<Name>() (scalars) or on<Name>(Key const&) (collections).

#define VEL_SCALAR(name, Name, Type, initial)                                    \
 public:                                                                         \
  Type const& name() const { return name##_; }                                   \
  void name##Is(Type const& v) {                                                 \
    if (name##_ == v) return;                                                    \
    name##_ = v;                                                                 \
    this->template notify<NotifieeConst>([](NotifieeConst& n) { n.on##Name(); }); \
  }                                                                              \
                                                                                 \
 private:                                                                        \
  Type name##_ = initial;                                                        \
                                                                                 \
 public:

// How a collection tells its watchers about a key: entities notify their NotifieeConst; a
// machine's internal collections notify nothing (nothing watches them).
#define VEL_NOTIFY_KEY_(Name, key) \
  this->template notify<NotifieeConst>([&key](NotifieeConst& n) { n.on##Name(key); })
#define VEL_NOTIFY_NOTHING_(Name, key) static_cast<void>(key)

// Shared by every collection: count, membership, iteration, delete and delete-all.
#define VEL_COLLECTION_COMMON_(name, Name, Key, NOTIFY)                      \
 public:                                                                    \
  Name##Coll const& name##Coll() const { return name##_; }                  \
  std::size_t name##s() const { return name##_.count(); }                   \
  bool name##IsMemberOf(Key const& k) const { return name##_.isMemberOf(k); } \
  bool name##Del(Key const& k) {                                            \
    Key const key = k; /* k may refer to the member's own key */            \
    if (!name##_.erase(key)) return false;                                  \
    NOTIFY(Name, key);                                                      \
    return true;                                                            \
  }                                                                         \
  void name##DelAll() {                                                     \
    while (Key const* first = name##_.firstKey()) name##Del(*first);        \
  }                                                                         \
                                                                            \
 private:                                                                   \
  Name##Coll name##_;                                                       \
                                                                            \
 public:

#define VEL_VALUE_COLLECTION_(name, Name, Key, Value, NOTIFY)          \
 public:                                                              \
  using Name##Coll = ::Vel::ValueCollection<Key, Value>;              \
  Value name(Key const& k) const { return name##_.get(k); }           \
  Value* name##Find(Key const& k) { return name##_.findMutable(k); }  \
  void name##Is(Key const& k, Value const& v) {                       \
    if (name##_.set(k, v)) NOTIFY(Name, k);                           \
  }                                                                   \
  VEL_COLLECTION_COMMON_(name, Name, Key, NOTIFY)

#define VEL_ENTITY_COLLECTION_(name, Name, Key, Type, NOTIFY)                 \
 public:                                                                     \
  using Name##Coll = ::Vel::EntityCollection<Key, Type>;                     \
  ::Vel::Ptr<Type const> name(Key const& k) const { return name##_.get(k); } \
  ::Vel::Ptr<Type> name(Key const& k) { return name##_.get(k); }             \
  ::Vel::Ptr<Type> name##Is(Key const& k) {                                  \
    auto [member, created] = name##_.findOrCreate(k);                        \
    if (created) NOTIFY(Name, k);                                            \
    return member;                                                           \
  }                                                                          \
  VEL_COLLECTION_COMMON_(name, Name, Key, NOTIFY)

#define VEL_VALUE_COLLECTION(name, Name, Key, Value) \
  VEL_VALUE_COLLECTION_(name, Name, Key, Value, VEL_NOTIFY_KEY_)
#define VEL_ENTITY_COLLECTION(name, Name, Key, Type) \
  VEL_ENTITY_COLLECTION_(name, Name, Key, Type, VEL_NOTIFY_KEY_)

// A machine's internal collections: the same accessors, no notification.
#define VEL_INTERNAL_VALUE_COLLECTION(name, Name, Key, Value) \
  VEL_VALUE_COLLECTION_(name, Name, Key, Value, VEL_NOTIFY_NOTHING_)
#define VEL_INTERNAL_ENTITY_COLLECTION(name, Name, Key, Type) \
  VEL_ENTITY_COLLECTION_(name, Name, Key, Type, VEL_NOTIFY_NOTHING_)
