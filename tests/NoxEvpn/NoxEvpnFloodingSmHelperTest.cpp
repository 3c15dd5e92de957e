#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "NoxEvpn/NoxEvpnFloodingSmHelper.h"

namespace {

using Gantry::IntfId;
using Nox::HwTunnelId;
using NoxHelper::EvpnFloodingSmHelperStub;

// Records which stub attributes notified, in order, and what the ESI-data attributes held when
// the count moved.
class StubWatcher : public EvpnFloodingSmHelperStub::NotifieeConst {
 public:
  explicit StubWatcher(Vel::Ptr<EvpnFloodingSmHelperStub const> const& stub)
      : NotifieeConst(stub) {}
  void onCreateEsiDataIntfId() override { seen.push_back("intf"); }
  void onCreateEsiDataLabel() override { seen.push_back("label"); }
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

class FloodingStubTest : public ::testing::Test {
 protected:
  Nox::HwProgrammingStatus createEsi(uint32_t label) {
    return stub->createEsiData(IntfId("Ethernet1"), Bridging::VlanId(10), Nox::TunnelId(5),
                               HwTunnelId(1), Gantry::MplsLabel(label));
  }
  Vel::Ptr<EvpnFloodingSmHelperStub> stub = NoxHelper::evpnFloodingSmHelperStubFactory("stub");
  StubWatcher watcher{stub};
};

TEST_F(FloodingStubTest, HandsOutIdsInCallOrderAndNeverTakesBackReleasedOnes) {
  EXPECT_EQ(stub->getHwTunnelId(), HwTunnelId(1));
  EXPECT_EQ(stub->getHwTunnelId(), HwTunnelId(2));
  EXPECT_EQ(stub->getHwTunnelIdCount(), 2u);
  stub->releaseHwTunnelId(HwTunnelId(5));
  EXPECT_EQ(stub->releaseHwTunnelIdCount(), 1u);
  EXPECT_EQ(stub->releaseHwTunnelIdHwTunnelId(), HwTunnelId(5));
  EXPECT_EQ(stub->getHwTunnelId(), HwTunnelId(3));

  stub->hwTunnelIdExhaustedIs(true);
  watcher.seen.clear();
  EXPECT_EQ(stub->getHwTunnelId(), HwTunnelId());
  EXPECT_EQ(stub->getHwTunnelIdCount(), 4u);
  EXPECT_EQ(stub->hwTunnelIdIndex(), 4u);
  EXPECT_TRUE(watcher.seen.empty());
}

TEST_F(FloodingStubTest, EqualArgumentsNotifyOnceWhileEveryCallIsCountedAfterItsArguments) {
  stub->createEsiDataRcIs(Nox::notProgrammed);
  EXPECT_EQ(createEsi(1000), Nox::notProgrammed);
  EXPECT_EQ(createEsi(1000), Nox::notProgrammed);
  EXPECT_EQ(stub->createEsiDataCount(), 2u);
  EXPECT_EQ(watcher.seen,
            (std::vector<std::string>{"intf", "label", "count label=1000", "count label=1000"}));

  watcher.seen.clear();
  stub->releaseHwTunnelId(HwTunnelId(7));
  stub->releaseHwTunnelId(HwTunnelId(8));
  EXPECT_EQ(watcher.seen, (std::vector<std::string>{"release id=0", "release id=7"}));
}

TEST_F(FloodingStubTest, IndexWrapsLikeAnyUnsigned32BitValue) {
  stub->hwTunnelIdIndexIs(UINT32_MAX);
  EXPECT_EQ(stub->getHwTunnelId(), HwTunnelId(UINT32_MAX));
  EXPECT_EQ(stub->hwTunnelIdIndex(), 0u);
}

class FloodingHelperBaseTest : public ::testing::Test {
 protected:
  ~FloodingHelperBaseTest() override { unsetenv("NOX_NOOP_AGENT"); }
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelper> helper{new NoxHelper::EvpnFloodingSmHelper("base")};
};

TEST_F(FloodingHelperBaseTest, DoesNothingUnderNoopAgentAndStopsOtherwise) {
  setenv("NOX_NOOP_AGENT", "", 1);
  EXPECT_EQ(helper->createEsiData(IntfId("Ethernet1"), Bridging::VlanId(10), Nox::TunnelId(5),
                                  HwTunnelId(1), Gantry::MplsLabel(1000)),
            Nox::notProgrammed);
  EXPECT_EQ(helper->createVlanToDot1qMapping(IntfId("Ethernet1"), Bridging::VlanId(10),
                                             Bridging::VlanIdOrNone(20)),
            Nox::notProgrammed);
  EXPECT_EQ(helper->getHwTunnelId(), HwTunnelId());
  helper->releaseHwTunnelId(HwTunnelId(1));
  helper->deleteEsiData(IntfId("Ethernet1"), Bridging::VlanId(10));

  unsetenv("NOX_NOOP_AGENT");
  EXPECT_DEATH(helper->createEsiData(IntfId("Ethernet1"), Bridging::VlanId(10), Nox::TunnelId(5),
                                     HwTunnelId(1), Gantry::MplsLabel(1000)),
               "Unimplemented addEsiData");
  EXPECT_DEATH(helper->getHwTunnelId(), "Unimplemented getHwTunnelId");
  EXPECT_DEATH(helper->deleteVlanToDot1qMapping(IntfId("Ethernet1"), Bridging::VlanId(10),
                                                Bridging::VlanIdOrNone()),
               "Unimplemented deleteVlanToDot1qMapping");
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
