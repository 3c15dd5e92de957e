#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnEsiFilteringDecapHelper.h"
#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"

namespace {

using Gantry::IntfId;
using Nox::HwTunnelId;
using NoxHelper::EvpnFloodingSmHelperStub;

// What the scenarios' `expect helper` blocks cannot show: a call refused for want of ids still
// counts, and the order in which an observer of a count finds the call's other attributes.
class StubWatcher : public EvpnFloodingSmHelperStub::NotifieeConst {
 public:
  explicit StubWatcher(Vel::Ptr<EvpnFloodingSmHelperStub const> const& stub)
      : NotifieeConst(stub) {}
  void onCreateEsiDataCount() override {
    seen.push_back("count label=" + std::to_string(notifier()->createEsiDataLabel().value()));
  }
  void onReleaseHwTunnelIdCount() override {
    seen.push_back("release id=" +
                   std::to_string(notifier()->releaseHwTunnelIdHwTunnelId().value()));
  }
  void onHwTunnelIdIndex() override { seen.push_back("index"); }
  std::vector<std::string> seen;
};

TEST(FloodingStubTest, ExhaustedGetCountsAndCountsNotifyInTheirDocumentedOrder) {
  auto const stub = NoxHelper::evpnFloodingSmHelperStubFactory("stub");
  StubWatcher watcher(stub);
  stub->hwTunnelIdExhaustedIs(true);
  EXPECT_EQ(stub->getHwTunnelId(), HwTunnelId());
  EXPECT_EQ(stub->getHwTunnelIdCount(), 1u);
  EXPECT_TRUE(watcher.seen.empty());  // no id taken, so the index did not move

  // ESI data: the arguments, then the count. A release: the count, then the id.
  stub->createEsiData(IntfId("Ethernet1"), Bridging::VlanId(10), Nox::TunnelId(5), HwTunnelId(1),
                      Gantry::MplsLabel(1000));
  stub->releaseHwTunnelId(HwTunnelId(7));
  stub->releaseHwTunnelId(HwTunnelId(8));
  EXPECT_EQ(watcher.seen,
            (std::vector<std::string>{"count label=1000", "release id=0", "release id=7"}));
}

// The scenarios read the decap stub's record before any port map is deleted.
TEST(DecapStubTest, CountsDeletesAndKeepsTheLastArguments) {
  auto const stub = NoxHelper::esiFilteringDecapHelperStubFactory("decap");
  stub->deleteEsiPortMap(Gantry::MplsLabel(1000), IntfId("Ethernet1"));
  stub->deleteEsiPortMap(Gantry::MplsLabel(3000), IntfId("Ethernet3"));
  EXPECT_EQ(stub->deleteEsiPortMapCount(), 2u);
  EXPECT_EQ(stub->deleteEsiPortMapLabel(), Gantry::MplsLabel(3000));
  EXPECT_EQ(stub->deleteEsiPortMapIntfId(), IntfId("Ethernet3"));
  EXPECT_EQ(stub->createEsiPortMapCount(), 0u);
}

// A call without a result, as a call whose result is 0.
template <class F>
std::function<uint64_t()> noResult(F call) {
  return [call] { return call(), uint64_t(0); };
}

// Without hardware, under NOX_NOOP_AGENT every call of the base helpers does nothing and returns
// a fixed result; otherwise it stops the process naming the call.
TEST(HelperBaseTest, EachCallIsANoopUnderTheNoopAgentAndFatalOtherwise) {
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> flooding{new NoxHelper::EvpnFloodingSmHelper("base")};
  Vel::Ptr<NoxHelper::EsiFilteringDecapHelper> decap{
      new NoxHelper::EsiFilteringDecapHelper("decap")};
  IntfId const port("Ethernet1");
  Bridging::VlanId const vlan(10);
  Gantry::MplsLabel const label(1000);
  struct Call {
    std::function<uint64_t()> make;
    uint64_t noopResult;
    char const* death;
  };
  std::vector<Call> const calls = {
      {[&] { return flooding->createEsiData(port, vlan, Nox::TunnelId(5), HwTunnelId(1), label); },
       Nox::notProgrammed, "Unimplemented addEsiData"},
      {noResult([&] { flooding->deleteEsiData(port, vlan); }), 0, "Unimplemented deleteEsiData"},
      {[&] { return flooding->createVlanToDot1qMapping(port, vlan, Bridging::VlanIdOrNone(20)); },
       Nox::notProgrammed, "Unimplemented createVlanToDot1qMapping"},
      {noResult([&] { flooding->deleteVlanToDot1qMapping(port, vlan, Bridging::VlanIdOrNone()); }),
       0, "Unimplemented deleteVlanToDot1qMapping"},
      {[&] { return flooding->getHwTunnelId().value(); }, 0, "Unimplemented getHwTunnelId"},
      {noResult([&] { flooding->releaseHwTunnelId(HwTunnelId(1)); }), 0,
       "Unimplemented releaseHwTunnelId"},
      {[&] { return decap->createEsiPortMap(label, port); }, Mpls::lfibHwProgrammingNoResource,
       "Unimplemented createEsiPortMap\n.*NoxCommon.*0"},
      {noResult([&] { decap->deleteEsiPortMap(label, port); }), 0,
       "Unimplemented deleteEsiPortMap"},
  };
  setenv("NOX_NOOP_AGENT", "", 1);
  for (Call const& call : calls) EXPECT_EQ(call.make(), call.noopResult) << call.death;
  unsetenv("NOX_NOOP_AGENT");
  for (Call const& call : calls) EXPECT_DEATH(call.make(), call.death);
}

// The inputs the flooding machines read.

class LagWatcher : public Nox::NoxCommonSmData::NotifieeConst {
 public:
  explicit LagWatcher(Vel::Ptr<Nox::NoxCommonSmData const> const& ncsd) : NotifieeConst(ncsd) {}
  void onLagToPort(IntfId const& lag) override { changed.push_back(lag.name()); }
  std::vector<std::string> changed;
};

TEST(FloodingInputsTest, PortChannelMembershipIsASetAndIsLagLooksAtTheIdAlone) {
  auto ncsd = Nox::noxCommonSmDataFactory("ncsd");
  LagWatcher watcher(ncsd);
  IntfId const lag("Port-Channel1");
  ncsd->lagToPortIs(lag, Nox::NoxPortList{IntfId("Ethernet1"), IntfId("Ethernet2")});
  ncsd->lagToPortIs(lag, Nox::NoxPortList{IntfId("Ethernet2"), IntfId("Ethernet1")});
  ncsd->lagToPortIs(IntfId("Ethernet3"), Nox::NoxPortList{IntfId("Ethernet4")});
  EXPECT_EQ(watcher.changed, (std::vector<std::string>{"Port-Channel1", "Ethernet3"}));
  EXPECT_EQ(ncsd->lagToPort(lag).portColl().front(), IntfId("Ethernet1"));

  EXPECT_TRUE(Nox::isLag(IntfId("Port-Channel7")));
  EXPECT_FALSE(Nox::isLag(IntfId("Ethernet3")));
}

}  // namespace
