#pragma once

// A small LFIB owner for the decap machine's tests and benchmark: the LFIB, its backlog and
// hardware status, the decap helper stub and the scheduler on a virtual clock. Writes go to the
// LFIB only; the tests put route keys in the backlog themselves (touch), as the owner would.

#include <initializer_list>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapSm.h"
#include "platform/cog/Clock.h"

namespace NoxTest {

inline Mpls::RouteKey routeKey(uint32_t label) { return Mpls::RouteKey(Gantry::MplsLabel(label)); }
inline Mpls::LfibViaKey filterVia(uint64_t id) {
  return Mpls::LfibViaKey(Mpls::lfibViaTypeEvpnEthernetSegmentFilter, id);
}

struct DecapWorld {
  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(clock);
  Vel::Ptr<NoxHelper::EsiFilteringDecapHelperStub> helper =
      NoxHelper::esiFilteringDecapHelperStubFactory("decapHelper");
  Vel::Ptr<Mpls::LfibStatus> lfib = Mpls::lfibStatusFactory("lfib");
  Vel::Ptr<Mpls::LfibTrackingStatus> tracking = Mpls::lfibTrackingStatusFactory("lfibTracking");
  Vel::Ptr<Mpls::LfibHwStatus> hwStatus = Mpls::lfibHwStatusFactory("lfibHw");

  Vel::Ptr<Nox::EsiFilteringDecapSm> start() {
    return Nox::esiFilteringDecapSmFactory(helper, lfib, scheduler, tracking, hwStatus);
  }

  void touch(uint32_t label) { tracking->routeKeyBacklogIs(routeKey(label), true); }
  void route(uint32_t label, uint64_t viaSetId) {
    lfib->routeIs(routeKey(label), Mpls::LfibRoute(Mpls::LfibViaSetKey(viaSetId)));
  }
  void viaSet(uint64_t id, std::initializer_list<Mpls::LfibViaKey> vias) {
    Mpls::LfibViaSet set;
    for (auto const& via : vias) set.viaKeyIs(via);
    lfib->viaSetIs(Mpls::LfibViaSetKey(id), set);
  }
  void filter(uint64_t viaId, char const* intf) {
    lfib->evpnEthernetSegmentFilterViaIs(
        filterVia(viaId), Mpls::LfibEvpnEthernetSegmentFilterVia(Gantry::IntfId(intf)));
  }
  // A route on its own via set (id = label) whose one via is filter via `label` on `intf`.
  void filterRoute(uint32_t label, char const* intf) {
    filter(label, intf);
    viaSet(label, {filterVia(label)});
    route(label, label);
    touch(label);
  }
};

}  // namespace NoxTest
