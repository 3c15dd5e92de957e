#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "tests/NoxEvpn/DecapTestUtil.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>
#endif

namespace {

using NoxTest::filterVia;
using NoxTest::routeKey;

class DecapTest : public ::testing::Test {
 protected:
  void SetUp() override { sm = w.start(); }
  void settle() { w.scheduler->runReady(); }
  void advance(double seconds) { w.scheduler->advanceBy(seconds); }

  NoxTest::DecapWorld w;
  Vel::Ptr<Nox::EsiFilteringDecapSm> sm;
};

// A key waits in the backlog from its arrival; a listed route keeps the time it was first listed
// through retries that fail again, whatever the code; a route waits for its filter via until it
// comes. Each leaves the list when its wait ends.
TEST_F(DecapTest, PendingListsListedRoutesRoutesWithoutViaAndTheBacklogSinceTheyWait) {
  using Items = std::vector<Nox::PendingItem>;
  advance(1.0);
  w.touch(3000);
  EXPECT_EQ(sm->pending(), (Items{{"decap", "route 3000", "in backlog", 1.0}}));
  w.viaSet(30, {filterVia(3)});
  w.route(3000, 30);
  w.helper->createEsiPortMapRcIs(Mpls::lfibHwProgrammingNoResource);
  w.filterRoute(1000, "Ethernet1");
  settle();
  EXPECT_EQ(sm->pending(), (Items{{"decap", "route 1000", "no resource (rc 2)", 1.0},
                                  {"decap", "route 3000", "no filter via 6/3", 1.0}}));
  w.helper->createEsiPortMapRcIs(Mpls::lfibHwProgrammingBusy);
  advance(5.0);
  EXPECT_EQ(sm->pending(), (Items{{"decap", "route 1000", "busy (rc 3)", 1.0},
                                  {"decap", "route 3000", "no filter via 6/3", 1.0}}));
  w.helper->createEsiPortMapRcIs(Mpls::lfibHwProgrammingSuccess);
  w.filter(3, "Ethernet3");
  w.touch(3000);
  advance(5.0);
  EXPECT_EQ(sm->pending(), Items{});
}

TEST_F(DecapTest, BrokenInvariantsStopTheProcess) {
  w.viaSet(1, {Mpls::LfibViaKey()});
  w.route(1000, 1);
  w.touch(1000);
  EXPECT_DEATH(settle(), "!!viaKey");
  EXPECT_DEATH(sm->processRouteKeyBacklog(routeKey(2000)),
               "backlogIter.isMemberOf\\( routeKey \\)");
  w.helper->createEsiPortMapRcIs(Mpls::lfibHwProgrammingConflict);
  w.filter(2, "Ethernet2");
  w.viaSet(1, {filterVia(2)});
  EXPECT_DEATH(settle(), "Unexpected rc. Conflict detection logic is already done in Nox");
  EXPECT_DEATH(Nox::esiFilteringDecapSmFactory(w.helper, w.lfib, w.scheduler, w.tracking, nullptr),
               "lfibHwStatus\\(\\)");
}

#if NOX_HAVE_RAPIDCHECK

// The hardware as the helper's calls leave it: one port map per interface at most.
class HardwareModel : public NoxHelper::EsiFilteringDecapHelperStub {
 public:
  HardwareModel() : EsiFilteringDecapHelperStub("hardware") {}
  Mpls::LfibHwProgrammingReturnCode createEsiPortMap(Gantry::MplsLabel label,
                                                     Gantry::IntfId intf) override {
    auto const rc = EsiFilteringDecapHelperStub::createEsiPortMap(label, intf);
    if (rc == Mpls::lfibHwProgrammingSuccess) consistent &= maps.emplace(intf, label).second;
    return rc;
  }
  void deleteEsiPortMap(Gantry::MplsLabel label, Gantry::IntfId intf) override {
    EsiFilteringDecapHelperStub::deleteEsiPortMap(label, intf);
    auto const it = maps.find(intf);
    consistent &= it != maps.end() && it->second == label;
    if (it != maps.end()) maps.erase(it);
  }
  std::map<Gantry::IntfId, Gantry::MplsLabel> maps;
  bool consistent = true;
};

enum DecapOp { routeSet, routeDel, viaSetSet, viaSetDel, filterSet, filterDel, codeSet, run, ops };

// The interface a route filters on by its first via, if any.
std::optional<Gantry::IntfId> filteredIntf(Mpls::LfibStatus const& lfib, Mpls::RouteKey key) {
  Mpls::LfibViaSet const viaSet = lfib.viaSet(lfib.route(key).viaSetKey());
  if (viaSet.viaKeys() == 0) return std::nullopt;
  auto const via = lfib.evpnEthernetSegmentFilterVia(viaSet.viaKey(0));
  if (via.intfId().empty()) return std::nullopt;
  return via.intfId();
}

RC_GTEST_PROP(DecapProperty, SettledPortMapsGoToOneFilteringRouteAndListTheOthersAsConflicts, ()) {
  // Full-size choices from the first run on (inRange scales with the run's size), and long
  // enough sequences that routes come and go on shared interfaces.
  auto const length = *rc::gen::resize(rc::kNominalSize, rc::gen::inRange<std::size_t>(10, 80));
  auto const steps = *rc::gen::container<std::vector<std::tuple<int, int, int, int>>>(
      length, rc::gen::resize(rc::kNominalSize,
                              rc::gen::tuple(rc::gen::inRange(0, int(ops)), rc::gen::inRange(0, 4),
                                             rc::gen::inRange(0, 3), rc::gen::inRange(0, 3))));
  NoxTest::DecapWorld w;
  Vel::Ptr<HardwareModel> hardware = new HardwareModel;
  auto const sm =
      Nox::esiFilteringDecapSmFactory(hardware, w.lfib, w.scheduler, w.tracking, w.hwStatus);
  static constexpr Mpls::LfibHwProgrammingReturnCode codes[] = {Mpls::lfibHwProgrammingSuccess,
                                                                Mpls::lfibHwProgrammingNoResource,
                                                                Mpls::lfibHwProgrammingBusy};
  auto const touchAll = [&w] {
    for (auto const& entry : w.lfib->routeColl()) w.tracking->routeKeyBacklogIs(entry.key, true);
  };
  for (auto const& [op, a, b, c] : steps) {
    uint32_t const label = 100 + a;
    switch (op) {
      // Via set 0 would make the route read as the default, missing one.
      case routeSet:
        w.route(label, b + 1);
        w.touch(label);
        break;
      case routeDel:
        if (w.lfib->routeDel(routeKey(label))) w.touch(label);
        break;
      // The first via filters; the later ones are of another type and never count.
      case viaSetSet:
        w.viaSet(b + 1, {filterVia(c), Mpls::LfibViaKey(Mpls::LfibViaType(5), a)});
        touchAll();
        break;
      case viaSetDel:
        w.lfib->viaSetDel(Mpls::LfibViaSetKey(b + 1));
        touchAll();
        break;
      case filterSet:
        w.filter(b, ("Ethernet" + std::to_string(c)).c_str());
        touchAll();
        break;
      case filterDel:
        w.lfib->evpnEthernetSegmentFilterViaDel(filterVia(b));
        touchAll();
        break;
      case codeSet:
        hardware->createEsiPortMapRcIs(codes[c]);
        break;
      case run:
        w.scheduler->advanceBy(2.0 * a);
        break;
    }
  }
  hardware->createEsiPortMapRcIs(Mpls::lfibHwProgrammingSuccess);
  w.scheduler->runReady();
  w.scheduler->advanceBy(5.0);

  RC_ASSERT(hardware->consistent);
  RC_ASSERT(w.tracking->routeKeyBacklogs() == 0u);
  std::map<Gantry::IntfId, Gantry::MplsLabel> recorded;
  for (auto const& [key, via] : sm->routeEsiFilterViaColl()) recorded[via.intfId()] = key.label();
  RC_ASSERT(recorded == hardware->maps);
  for (auto const& entry : w.lfib->routeColl()) {
    auto const intf = filteredIntf(*w.lfib, entry.key);
    bool const owner =
        intf && hardware->maps.count(*intf) && hardware->maps[*intf] == entry.key.label();
    if (!intf || owner) {
      RC_ASSERT(!w.hwStatus->unprogrammedRouteIsMemberOf(entry.key));
    } else {
      RC_ASSERT(hardware->maps.count(*intf) == 1u);
      RC_ASSERT(w.hwStatus->unprogrammedRoute(entry.key) == Mpls::lfibHwProgrammingConflict);
    }
    if (!intf) RC_ASSERT(!sm->routeEsiFilterViaIsMemberOf(entry.key));
  }
  for (auto const& [intf, label] : hardware->maps) {
    RC_ASSERT(filteredIntf(*w.lfib, Mpls::RouteKey(label)) == intf);
  }
}

#endif

}  // namespace
