#pragma once

// The MPLS agent's label forwarding table (LFIB) as this library consumes it: routes keyed by
// label, the via sets they name, the ethernet-segment filter vias, the backlog of route keys
// whose LFIB state changed, and the hardware status of the routes that could not be programmed.
//
// Every collection is a Kelp table (ascending key order; in shared memory when the process
// publishes its tables), so the records below are fixed-size, trivially copyable and free of
// padding: where the layout needs it, an explicit zero field fills the gap.

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/kelp/VelKelpEntity.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/vel/Entity.h"

namespace Mpls {

// What programming an LFIB object into hardware returned. Other numbers may come back from a
// platform; they are kept and printed as numbers.
enum LfibHwProgrammingReturnCode : uint32_t {
  lfibHwProgrammingSuccess = 0,
  lfibHwProgrammingConflict = 1,
  lfibHwProgrammingNoResource = 2,
  lfibHwProgrammingBusy = 3,
};
std::ostream& operator<<(std::ostream& os, LfibHwProgrammingReturnCode v);

// A via's kind; only the ethernet-segment filter via matters here, others pass through.
enum LfibViaType : uint32_t {
  lfibViaTypeNone = 0,
  lfibViaTypeEvpnEthernetSegmentFilter = 6,
};
std::ostream& operator<<(std::ostream& os, LfibViaType v);

// An LFIB route, identified by its label. The default key holds no label.
class RouteKey {
 public:
  RouteKey() = default;
  explicit RouteKey(Gantry::MplsLabel label) : label_(label) {}
  Gantry::MplsLabel label() const { return label_; }
  uint32_t hash() const { return label_.hash(); }
  friend bool operator==(RouteKey const&, RouteKey const&) = default;
  friend auto operator<=>(RouteKey const&, RouteKey const&) = default;

 private:
  Gantry::MplsLabel label_;
};
// A route key prints as its label.
std::ostream& operator<<(std::ostream& os, RouteKey const& v);
std::string valueToStrep(RouteKey const& v);
void traceAppend(std::string& out, RouteKey const& v);

class LfibViaSetKey {
 public:
  constexpr LfibViaSetKey() = default;
  constexpr explicit LfibViaSetKey(uint64_t id) : id_(id) {}
  constexpr uint64_t value() const { return id_; }
  static constexpr bool traceAsNumber = true;
  uint32_t hash() const;
  friend bool operator==(LfibViaSetKey const&, LfibViaSetKey const&) = default;
  friend auto operator<=>(LfibViaSetKey const&, LfibViaSetKey const&) = default;

 private:
  uint64_t id_ = 0;
};
std::ostream& operator<<(std::ostream& os, LfibViaSetKey const& v);

// A via: its type and an id within the type. The default key (type 0, id 0) names no via.
class LfibViaKey {
 public:
  constexpr LfibViaKey() = default;
  constexpr LfibViaKey(LfibViaType viaType, uint64_t viaId) : viaType_(viaType), viaId_(viaId) {}
  constexpr LfibViaType viaType() const { return viaType_; }
  constexpr uint64_t viaId() const { return viaId_; }
  bool operator!() const { return *this == LfibViaKey(); }
  uint32_t hash() const;
  friend bool operator==(LfibViaKey const&, LfibViaKey const&) = default;
  friend auto operator<=>(LfibViaKey const&, LfibViaKey const&) = default;

 private:
  LfibViaType viaType_ = lfibViaTypeNone;
  uint32_t pad_ = 0;
  uint64_t viaId_ = 0;
};
// "TYPE/ID".
std::ostream& operator<<(std::ostream& os, LfibViaKey const& v);
std::string valueToStrep(LfibViaKey const& v);

}  // namespace Mpls
// Kelp indexes keys through std::hash: labels and ids are already well spread.
template <>
struct std::hash<Mpls::RouteKey> {
  std::size_t operator()(Mpls::RouteKey const& k) const noexcept { return k.label().value(); }
};
template <>
struct std::hash<Mpls::LfibViaSetKey> {
  std::size_t operator()(Mpls::LfibViaSetKey const& k) const noexcept { return k.value(); }
};
template <>
struct std::hash<Mpls::LfibViaKey> {
  std::size_t operator()(Mpls::LfibViaKey const& k) const noexcept {
    return k.viaId() ^ (std::size_t(k.viaType()) << 56);
  }
};

namespace Mpls {

// A route's forwarding: the via set it uses.
class LfibRoute {
 public:
  LfibRoute() = default;
  explicit LfibRoute(LfibViaSetKey viaSetKey) : viaSetKey_(viaSetKey) {}
  LfibViaSetKey viaSetKey() const { return viaSetKey_; }
  friend bool operator==(LfibRoute const&, LfibRoute const&) = default;

 private:
  LfibViaSetKey viaSetKey_;
};
std::ostream& operator<<(std::ostream& os, LfibRoute const& v);

// An ordered array of vias; the first one decides how a route is filtered. The empty set is the
// default value, so it reads as a missing one.
class LfibViaSet {
 public:
  static constexpr std::size_t maxVias = 16;

  LfibViaSet() = default;
  // Raises Vel::RangeException past maxVias.
  void viaKeyIs(LfibViaKey const& key);
  std::size_t viaKeys() const { return count_; }
  LfibViaKey viaKey(std::size_t i) const {
    return i < count_ && i < maxVias ? vias_[i] : LfibViaKey();
  }
  friend bool operator==(LfibViaSet const&, LfibViaSet const&) = default;

 private:
  uint32_t count_ = 0;
  uint32_t pad_ = 0;
  std::array<LfibViaKey, maxVias> vias_{};
};
// The via keys separated by blanks.
std::ostream& operator<<(std::ostream& os, LfibViaSet const& v);

// An EVPN ethernet-segment filter via: the local interface on the segment. The default value (no
// interface) means there is no such via.
class LfibEvpnEthernetSegmentFilterVia {
 public:
  LfibEvpnEthernetSegmentFilterVia() = default;
  explicit LfibEvpnEthernetSegmentFilterVia(Gantry::IntfId intfId) : intfId_(intfId) {}
  Gantry::IntfId intfId() const { return intfId_; }
  friend bool operator==(LfibEvpnEthernetSegmentFilterVia const&,
                         LfibEvpnEthernetSegmentFilterVia const&) = default;

 private:
  Gantry::IntfId intfId_;
};
std::ostream& operator<<(std::ostream& os, LfibEvpnEthernetSegmentFilterVia const& v);
void traceAppend(std::string& out, LfibEvpnEthernetSegmentFilterVia const& v);

// The LFIB, written by the MPLS agent.
class LfibStatus : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<LfibStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onRoute(RouteKey const&) {}
    virtual void onRoute() {}
    virtual void onViaSet(LfibViaSetKey const&) {}
    virtual void onViaSet() {}
    virtual void onEvpnEthernetSegmentFilterVia(LfibViaKey const&) {}
    virtual void onEvpnEthernetSegmentFilterVia() {}
  };
  explicit LfibStatus(Vel::Name name) : TableEntity(std::move(name)) {}

  VEL_DESCRIBE("Mpls::LfibStatus", "route", "viaSet", "evpnEthernetSegmentFilterVia")

 public:
  VELKELP_COLLECTION(route, Route, RouteKey, LfibRoute)

  VELKELP_COLLECTION(viaSet, ViaSet, LfibViaSetKey, LfibViaSet)

  VELKELP_COLLECTION(evpnEthernetSegmentFilterVia, EvpnEthernetSegmentFilterVia, LfibViaKey,
                     LfibEvpnEthernetSegmentFilterVia)
};

// The backlog of route keys whose LFIB state changed: the LFIB's owner adds them, the machine
// that handles a key removes it.
class LfibTrackingStatus : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<LfibTrackingStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onRouteKeyBacklog(RouteKey const&) {}
    virtual void onRouteKeyBacklog() {}
    virtual void onRouteKeyBacklogvelImmediate() {}
  };
  explicit LfibTrackingStatus(Vel::Name name) : TableEntity(std::move(name)) {}

  VEL_DESCRIBE("Mpls::LfibTrackingStatus", "routeKeyBacklog")

 public:
  VELKELP_COLLECTION(routeKeyBacklog, RouteKeyBacklog, RouteKey, bool)
};

// The routes whose hardware programming failed, each with the reason.
class LfibHwStatus : public VelKelp::TableEntity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<LfibHwStatus> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onUnprogrammedRoute(RouteKey const&) {}
    virtual void onUnprogrammedRoute() {}
  };
  explicit LfibHwStatus(Vel::Name name) : TableEntity(std::move(name)) {}

  VEL_DESCRIBE("Mpls::LfibHwStatus", "unprogrammedRoute")

 public:
  VELKELP_COLLECTION(unprogrammedRoute, UnprogrammedRoute, RouteKey, LfibHwProgrammingReturnCode)
};

Vel::Ptr<LfibStatus> lfibStatusFactory(Vel::Name name);
Vel::Ptr<LfibTrackingStatus> lfibTrackingStatusFactory(Vel::Name name);
Vel::Ptr<LfibHwStatus> lfibHwStatusFactory(Vel::Name name);

}  // namespace Mpls
