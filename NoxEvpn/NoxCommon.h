#pragma once

// What the hardware helpers and the common machine data share: a named, reference-counted
// entity that can stop the process with a message when it is used in a way that can only be a
// programming error. Also the common machine data itself, of which the flooding machines read
// the port-channel membership.

#include <initializer_list>
#include <ostream>
#include <vector>

#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/vel/Entity.h"
#include "platform/vel/Name.h"

namespace Nox {

class NoxBaseHelper : public Vel::Entity {
 public:
  explicit NoxBaseHelper(Vel::Name name) : name_(std::move(name)) {}
  Vel::Name const& name() const { return name_; }

  // Writes message and an end of line to standard error, then fails the assertion "0".
  [[noreturn]] void noxAssert(Vel::String const& message) const;

  VEL_DESCRIBE("Nox::NoxBaseHelper", "name")

 private:
  Vel::Name name_;
};

// The member ports of one port-channel, as they are currently active; the presence of a port is
// what counts, and two lists with the same ports in another order are equal.
class NoxPortList {
 public:
  NoxPortList() = default;
  NoxPortList(std::initializer_list<Gantry::IntfId> ports);

  bool port(Gantry::IntfId const& port) const { return portIsMemberOf(port); }
  bool portIsMemberOf(Gantry::IntfId const& port) const;
  std::size_t ports() const { return ports_.size(); }
  // The ports in the order they joined.
  std::vector<Gantry::IntfId> const& portColl() const { return ports_; }
  void portIs(Gantry::IntfId const& port);
  void portDel(Gantry::IntfId const& port);

  friend bool operator==(NoxPortList const& a, NoxPortList const& b);

 private:
  std::vector<Gantry::IntfId> ports_;
};
std::ostream& operator<<(std::ostream& os, NoxPortList const& v);

// The forwarding agent's common data, of which the flooding machines read the port-channel
// membership. Its notifiee carries the agent's other notifications too, so that watchers of the
// real entity compile unchanged; nothing here raises them.
class NoxCommonSmData : public NoxBaseHelper {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<NoxCommonSmData> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onLagToPort(Gantry::IntfId const&) {}
    virtual void onLagToPortConfig(Gantry::IntfId const&) {}
    virtual void onPortToLag(Gantry::IntfId const&) {}
    virtual void onInitialLagToPort(Gantry::IntfId const&) {}
    virtual void onInitialPortToLag(Gantry::IntfId const&) {}
    virtual void onHasInitialLagColls() {}
    virtual void onVlanStatus(Bridging::VlanId const&) {}
    virtual void onEncapVlan(Gantry::IntfId const&) {}
    virtual void onVlanIntf(Gantry::IntfId const&) {}
    virtual void onInitialized() {}
  };
  explicit NoxCommonSmData(Vel::Name name) : NoxBaseHelper(std::move(name)) {}

  VEL_DESCRIBE("Nox::NoxCommonSmData", "name", "lagToPort")
  // Port-channel interface to its active member ports.
  VEL_VALUE_COLLECTION(lagToPort, LagToPort, Gantry::IntfId, NoxPortList)

 public:
};

Vel::Ptr<NoxCommonSmData> noxCommonSmDataFactory(Vel::Name name);

// Whether the id is a port-channel's, by the id alone.
bool isLag(Gantry::IntfId const& intfId);

}  // namespace Nox
