#pragma once

// The accessor block of an entity collection kept in a Kelp table, the VelKelp counterpart of
// VEL_VALUE_COLLECTION:
//
//   VELKELP_COLLECTION(route, Route, Mpls::RouteKey, Mpls::LfibRoute)
//     route(k)  routeColl()  routes()  routeIsMemberOf(k)  routeIs(k, v)  routeDel(k)  routeDelAll()
//
// The enclosing entity declares `name_` (a Vel::Name) before the block and a NotifieeConst with
// onRoute(Key const&) and onRoute(); the table is named "<entity name>.<collection name>". Every
// write notifies, equal or not, as the table does. A lookup that meets a damaged table reports
// the corruption to the table and answers the default value: readers treat it as a miss.

#include "platform/kelp/Exception.h"
#include "platform/kelp/VelKelp.h"

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

}  // namespace VelKelp

#define VELKELP_COLLECTION(name, Name, Key, Value)                                             \
 public:                                                                                       \
  using Name##Coll = ::VelKelp::Collection<Key, Value>;                                        \
  Value name(Key const& k) const { return ::VelKelp::safeGet(name##_, k); }                    \
  Name##Coll const& name##Coll() const { return name##_; }                                     \
  std::size_t name##s() const { return name##_.count(); }                                      \
  bool name##IsMemberOf(Key const& k) const { return name##_.isMemberOf(k); }                  \
  void name##Is(Key const& k, Value const& v) { name##_.table().safeWrite(k, v); }             \
  bool name##Del(Key const& k) { return name##_.table().safeRemove(k); }                       \
  void name##DelAll() {                                                                        \
    while (!name##_.empty()) name##Del(name##_.begin()->key);                                  \
  }                                                                                            \
                                                                                               \
 private:                                                                                      \
  Name##Coll name##_{                                                                          \
      name_.str() + "." #name,                                                                \
      [this](Key const& k) {                                                                   \
        this->template notify<NotifieeConst>([&k](NotifieeConst& n) { n.on##Name(k); });       \
      },                                                                                       \
      [this] { this->template notify<NotifieeConst>([](NotifieeConst& n) { n.on##Name(); }); }};
