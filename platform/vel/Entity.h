#pragma once

// The base of every entity: reference counted, watched by notifiees, self-describing.
//
// An entity class declares its notifiee interface and its attributes, e.g.
//
//   class FloodSet : public Vel::Entity {
//    public:
//     class NotifieeConst : public Vel::NotifieeConstOf<FloodSet> {
//      public:
//       using NotifieeConstOf::NotifieeConstOf;
//       virtual void onFloodSetType() {}
//       virtual void onDestSet(Dest const&) {}
//     };
//     explicit FloodSet(Gantry::EthAddr const& key) : key_(key) {}
//     VEL_DESCRIBE("L2Rib::FloodSet", "floodSetType", "destSet")
//     VEL_SCALAR(floodSetType, FloodSetType, FloodSetType, 0)
//     VEL_VALUE_COLLECTION(destSet, DestSet, Dest, bool)
//   };

#include "platform/vel/Collection.h"
#include "platform/vel/Exception.h"
#include "platform/vel/Name.h"
#include "platform/vel/Notifier.h"
#include "platform/vel/Ptr.h"
#include "platform/vel/Type.h"

namespace Vel {

class Entity : public PtrInterface, public Notifier, public Described {
 public:
  Entity() = default;

 protected:
  ~Entity() override = default;
};

// The checked result of a factory: never null.
template <class T>
Ptr<T> validPtr(Ptr<T> p) {
  if (!p) throw RangeException("null ValidPtr");
  return p;
}

}  // namespace Vel
