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
//
// What a change leaves usable (the full table is in OrderedMap.h):
// - xFind(k), xColl().find(k), xColl().firstKey() and the references iteration yields point
//   into the collection: good until its next insertion, removal or reserve. Writing an existing
//   key again (xIs(k, v) for a present k) keeps them. Entities and values read out by value
//   (x(k), Ptr copies) are yours and stay good.
// - Iterators survive removals, also of the member they stand on; an insertion ends them.
// - A mutator notifies before it returns, and a notifiee may change this very collection from
//   its callback, so a pointer or iterator taken before a notifying call is stale after it
//   whenever a notifiee might change the collection. Take it again after the call. What a
//   notifiee may do is in Notifier.h.

#include <cstddef>
#include <type_traits>
#include <utility>

#include "platform/vel/MemberPtr.h"
#include "platform/vel/OrderedMap.h"
#include "platform/vel/Owner.h"
#include "platform/vel/Ptr.h"

namespace Vel {

// What a collection nothing watches calls after a change.
struct NoNotification {
  template <class K>
  void operator()(K const&) const {}
};

// Key -> value, with the lookup of an absent key giving the value type's default. Anyone may
// read it; only Owner (the class that declares it) changes it, through its generated accessors.
template <class K, class V, class Owner = void>
class ValueCollection {
 public:
  using Key = K;
  using Mapped = V;

  V get(K const& k) const {
    auto const v = map_.find(k);
    return v ? *v : V();
  }
  MemberPtr<V const> find(K const& k) const { return map_.find(k); }
  bool isMemberOf(K const& k) const { return map_.contains(k); }
  // A hint that k is looked up or inserted soon (OrderedMap::prefetch).
  void prefetch(K const& k) const { map_.prefetch(k); }
  std::size_t count() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  MemberPtr<K const> firstKey() const { return map_.firstKey(); }

  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

 private:
  friend Owner;

  MemberPtr<V> findMutable(K const& k) { return map_.find(k); }
  // Inserts or replaces, then tells notify(k) when the collection changed.
  template <class Notify>
  void set(K const& k, V const& v, Notify&& notify) {
    auto [stored, inserted] = map_.tryEmplace(k, v);
    if (!inserted) {
      if (*stored == v) return;
      *stored = v;
    }
    notify(k);
  }
  template <class Notify>
  bool erase(K const& k, Notify&& notify) {
    K const key = k;  // k may refer to the member's own key
    if (!map_.erase(key)) return false;
    notify(key);
    return true;
  }
  template <class Notify>
  void eraseAll(Notify&& notify) {
    while (auto const first = map_.firstKey()) erase(*first, notify);
  }
  void reserve(std::size_t n) { map_.reserve(n); }

  OrderedMap<K, V> map_;
};

// Key -> entity, members created by find-or-create with the key as the entity's constructor
// argument. Read by anyone, changed by Owner only.
template <class K, class T, class Owner = void>
class EntityCollection {
 public:
  using Key = K;
  using Mapped = Ptr<T>;

  Ptr<T> get(K const& k) const {
    auto const v = map_.find(k);
    return v ? *v : Ptr<T>();
  }
  // The member without taking a reference: for lookups on hot paths that only read. Like any
  // member pointer it is good until the collection's next insertion or removal.
  MemberPtr<T const> find(K const& k) const {
    auto const v = map_.find(k);
    return map_.pointerTo(v ? static_cast<T const*>(v->ptr()) : nullptr);
  }
  bool isMemberOf(K const& k) const { return map_.contains(k); }
  // A hint that k is looked up or inserted soon (OrderedMap::prefetch).
  void prefetch(K const& k) const { map_.prefetch(k); }
  std::size_t count() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  MemberPtr<K const> firstKey() const { return map_.firstKey(); }

  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

 private:
  friend Owner;

  // The member for k, created (and notified) when absent.
  template <class Notify>
  Ptr<T> findOrCreate(K const& k, Notify&& notify) {
    auto [stored, inserted] = map_.tryEmplace(k);
    if (!inserted) return *stored;
    Ptr<T> member(new T(k));
    *stored = member;
    notify(k);
    return member;
  }
  // Removes k; the entity lives on while someone (a reactor) still holds it.
  template <class Notify>
  bool erase(K const& k, Notify&& notify) {
    K const key = k;
    if (!map_.erase(key)) return false;
    notify(key);
    return true;
  }
  template <class Notify>
  void eraseAll(Notify&& notify) {
    while (auto const first = map_.firstKey()) erase(*first, notify);
  }
  void reserve(std::size_t n) { map_.reserve(n); }

  OrderedMap<K, Ptr<T>> map_;
};

// A scalar attribute: read by anyone, written by Owner only.
template <class Owner, class T>
class ScalarAttr {
 public:
  explicit ScalarAttr(T initial) : value_(std::move(initial)) {}
  T const& get() const { return value_; }

 private:
  friend Owner;

  template <class Notify>
  void set(T const& v, Notify&& notify) {
    if (value_ == v) return;
    value_ = v;
    notify();
  }

  T value_;
};

}  // namespace Vel

// The accessor blocks. They expect the enclosing class to be a Vel::Entity with a nested
// NotifieeConst declaring on<Name>() (scalars) or on<Name>(Key const&) (collections).
//
// They declare nothing about access: every accessor lands in the section the line is written
// in. The storage member (name_) lands there too; it is safe in a public section because only
// the declaring class may change it.

#define VEL_SCALAR(name, Name, Type, initial)                                       \
  VEL_OWNER_DECL_(name)                                                             \
  ::Vel::ScalarAttr<VEL_OWNER_(name), Type> name##_{initial};                       \
  Type const& name() const { return name##_.get(); }                                \
  void name##Is(Type const& v) {                                                    \
    name##_.set(v, [this] {                                                         \
      this->template notify<NotifieeConst>([](NotifieeConst& n) { n.on##Name(); }); \
    });                                                                             \
  }

// How a collection tells its watchers about a key: entities notify their NotifieeConst; a
// machine's internal collections notify nothing (nothing watches them).
#define VEL_NOTIFY_KEY_(Name)                                                            \
  [this](auto const& key) {                                                              \
    this->template notify<NotifieeConst>([&key](NotifieeConst& n) { n.on##Name(key); }); \
  }
#define VEL_NOTIFY_NOTHING_(Name) ::Vel::NoNotification()

// Shared by every collection: count, membership, iteration, delete and delete-all.
#define VEL_COLLECTION_COMMON_(name, Name, Key, NOTIFY)                       \
  Name##Coll name##_;                                                         \
  Name##Coll const& name##Coll() const { return name##_; }                    \
  std::size_t name##s() const { return name##_.count(); }                     \
  bool name##IsMemberOf(Key const& k) const { return name##_.isMemberOf(k); } \
  bool name##Del(Key const& k) { return name##_.erase(k, NOTIFY(Name)); }     \
  void name##DelAll() { name##_.eraseAll(NOTIFY(Name)); }

#define VEL_VALUE_COLLECTION_(name, Name, Key, Value, NOTIFY)                         \
  VEL_OWNER_DECL_(name)                                                               \
  using Name##Coll = ::Vel::ValueCollection<Key, Value, VEL_OWNER_(name)>;            \
  VEL_COLLECTION_COMMON_(name, Name, Key, NOTIFY)                                     \
  Value name(Key const& k) const { return name##_.get(k); }                           \
  ::Vel::MemberPtr<Value> name##Find(Key const& k) { return name##_.findMutable(k); } \
  void name##Is(Key const& k, Value const& v) { name##_.set(k, v, NOTIFY(Name)); }

#define VEL_ENTITY_COLLECTION_(name, Name, Key, Type, NOTIFY)                \
  VEL_OWNER_DECL_(name)                                                      \
  using Name##Coll = ::Vel::EntityCollection<Key, Type, VEL_OWNER_(name)>;   \
  VEL_COLLECTION_COMMON_(name, Name, Key, NOTIFY)                            \
  ::Vel::Ptr<Type const> name(Key const& k) const { return name##_.get(k); } \
  ::Vel::Ptr<Type> name(Key const& k) { return name##_.get(k); }             \
  ::Vel::Ptr<Type> name##Is(Key const& k) { return name##_.findOrCreate(k, NOTIFY(Name)); }

#define VEL_VALUE_COLLECTION(name, Name, Key, Value) \
  VEL_VALUE_COLLECTION_(name, Name, Key, Value, VEL_NOTIFY_KEY_)
#define VEL_ENTITY_COLLECTION(name, Name, Key, Type) \
  VEL_ENTITY_COLLECTION_(name, Name, Key, Type, VEL_NOTIFY_KEY_)

// A machine's internal collections: the same accessors, no notification.
#define VEL_INTERNAL_VALUE_COLLECTION(name, Name, Key, Value) \
  VEL_VALUE_COLLECTION_(name, Name, Key, Value, VEL_NOTIFY_NOTHING_)
#define VEL_INTERNAL_ENTITY_COLLECTION(name, Name, Key, Type) \
  VEL_ENTITY_COLLECTION_(name, Name, Key, Type, VEL_NOTIFY_NOTHING_)
