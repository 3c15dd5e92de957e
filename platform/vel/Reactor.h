#pragma once

// Reactor collections: the internal collection of notifiees that a state machine keeps, one per
// member of an input collection, keyed like that member. Declared in a machine (or a reactor
// that itself holds reactors) with
//
//   VEL_REACTOR_COLLECTION(vlanFloodSet, Bridging::VlanId, VelVlanFloodSet, L2Rib::VlanFloodSet)
//
// giving vlanFloodSet(key) (the reactor or null), vlanFloodSetIs(Ptr<member const>) (create the
// reactor, or return the existing one), vlanFloodSetDel(key), vlanFloodSetDelAll(),
// vlanFloodSets() and vlanFloodSetColl(). A reactor is built as Reactor(member, owner) and keys
// itself by member->key(). A null member raises Vel::RangeException naming the collection and
// its owner's registered type name.
//
// How a reactor follows its member out of the input: the owner's notifiee for the input
// collection, called with the key, creates the reactor and then runs the handler when the
// input holds the key; when it does not, it runs the handler first, while the reactor still
// holds the departed member (so the machine can walk its former contents), and removes the
// reactor afterwards. followMember() is that rule.

#include <memory>
#include <string_view>

#include "platform/vel/Collection.h"
#include "platform/vel/OrderedMap.h"
#include "platform/vel/Ptr.h"

namespace Vel {

[[noreturn]] void throwNullMutatorArgument(std::string_view collection, std::string_view owner);

// Reactors keyed like their members, each owned here. Read by anyone; only Owner (the machine or
// reactor that declares the collection) adds and removes them. A reactor stays where it is while
// others come and go, so a reactor pointer stays good until that reactor is removed.
template <class K, class R, class Owner = void>
class ReactorCollection {
 public:
  R* get(K const& k) const {
    auto const r = map_.find(k);
    return r ? r->get() : nullptr;
  }
  std::size_t count() const { return map_.size(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

 private:
  friend Owner;

  // The reactor of member, created as R(member, owner) when there is none; attr names the
  // collection in the error for a null member.
  template <class Member>
  R* findOrCreate(Ptr<Member const> const& member, Owner* owner, std::string_view attr) {
    if (!member) throwNullMutatorArgument(attr, Owner::staticTypeInfo().name());
    auto [slot, created] = map_.tryEmplace(member->key());
    if (created) *slot = std::make_unique<R>(member, owner);
    return slot->get();
  }
  void erase(K const& k) {
    // Take the reactor out before destroying it, so that its destructor sees a consistent map.
    auto const slot = map_.find(k);
    if (!slot) return;
    std::unique_ptr<R> doomed = std::move(*slot);
    map_.erase(k);
  }
  void clear() {
    while (auto const first = map_.firstKey()) erase(K(*first));
  }

  OrderedMap<K, std::unique_ptr<R>> map_;
};

// The membership rule described at the top of this file.
template <class CreateFn, class HandleFn, class DeleteFn>
void followMember(bool presentInInput, CreateFn&& create, HandleFn&& handle, DeleteFn&& remove) {
  if (presentInInput) {
    create();
    handle();
  } else {
    handle();
    remove();
  }
}

}  // namespace Vel

// Like the accessor blocks of Collection.h, it leaves access as it found it.
#define VEL_REACTOR_COLLECTION(attr, Key, Reactor, Member)          \
  VEL_OWNER_DECL_(attr)                                             \
  ::Vel::ReactorCollection<Key, Reactor, VEL_OWNER_(attr)> attr##_; \
  Reactor* attr(Key const& k) const { return attr##_.get(k); }      \
  std::size_t attr##s() const { return attr##_.count(); }           \
  auto const& attr##Coll() const { return attr##_; }                \
  Reactor* attr##Is(::Vel::Ptr<Member const> const& member) {       \
    return attr##_.findOrCreate(member, this, #attr);               \
  }                                                                 \
  void attr##Del(Key const& k) { attr##_.erase(k); }                \
  void attr##DelAll() { attr##_.clear(); }
