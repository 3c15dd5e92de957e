#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/NoxEvpn/FloodingTestUtil.h"
#include "tests/NoxEvpn/TraceCapture.h"

namespace {

using NoxTest::intf;
using Strings = std::vector<std::string>;

class Dot1qSmTest : public ::testing::Test, protected NoxTest::FloodingWorld {
 protected:
  void TearDown() override { EXPECT_EQ(helper->faults, Strings{}); }
  // "PORT,PORT|PORT": the programmed, then the unprogrammed ports of a pair.
  std::string status(std::string const& name, uint16_t vlan) {
    auto const s = sm->dot1qStatus(Nox::IntfVlanKey(intf(name), Bridging::VlanId(vlan)));
    if (!s) return "none";
    std::ostringstream text;
    char const* separator = "";
    for (auto entry : s->programmedColl()) text << std::exchange(separator, ",") << entry.key;
    text << "|";
    for (auto entry : s->unprogrammedColl()) text << entry.key << ",";
    return text.str();
  }
  bool waiting(std::string const& name, uint16_t vlan) {
    return sm->unprogrammedDot1qIsMemberOf(Nox::IntfVlanKey(intf(name), Bridging::VlanId(vlan)));
  }
  Vel::Ptr<Nox::EvpnFloodingDot1qSm> sm = startDot1q();
};

// The scenarios show the calls; what they cannot show is that the machine's own sets forget
// whatever leaves the inputs.
TEST_F(Dot1qSmTest, MembersVlansAndPortChannelsThatLeaveAreForgotten) {
  NoxTest::TraceCapture traces(5);
  tag(10, 100);
  member(10, "Port-Channel1");
  EXPECT_EQ(traces.traced(), (Strings{"no lag configuration", "not programmed"}));
  lag("Port-Channel1", {"Ethernet3"});
  member(10, "Ethernet1");
  member(10, "Ethernet2");
  member(20, "Ethernet1");

  config->vlanConfig(Bridging::VlanId(10))->intfDel(intf("Ethernet2"));
  EXPECT_EQ(sm->vlanIntfSet(Bridging::VlanId(10))->intfIds(), 2u);
  EXPECT_EQ(status("Port-Channel1", 10), "Ethernet3|");
  ncsd->lagToPortDel(intf("Port-Channel1"));
  EXPECT_EQ(status("Port-Channel1", 10), "none");
  config->vlanConfigDel(Bridging::VlanId(10));
  EXPECT_FALSE(sm->vlanIntfSet(Bridging::VlanId(10)));
  EXPECT_EQ(sm->intfVlanSet(intf("Ethernet1"))->vlanIds(), 1u);
  EXPECT_EQ(sm->vlanConfigs(), 1u);
}

TEST_F(Dot1qSmTest, UnknownResultIsNeitherRecordedNorRetried) {
  rc(Nox::HwProgrammingStatus(7));
  tag(10, 100);
  member(10, "Ethernet1");
  EXPECT_EQ(status("Ethernet1", 10), "|");
  EXPECT_FALSE(waiting("Ethernet1", 10));
  EXPECT_FALSE(sm->reviewUnprogrammed()->taskScheduled());
}

// A pair whose membership went while it waited is dropped: the dot1q-yield scenario.
TEST_F(Dot1qSmTest, RemovalReviewsAtOnceInsteadOfAtTheDelayedReview) {
  tag(10, 100);
  member(10, "Ethernet1");
  rc(Nox::notProgrammed);
  member(10, "Ethernet2");
  EXPECT_EQ(sm->reviewUnprogrammed()->taskDue(), std::optional<double>(5.0));
  rc(Nox::programmed);
  helper->takeCalls();
  config->vlanConfig(Bridging::VlanId(10))->intfDel(intf("Ethernet1"));
  EXPECT_FALSE(sm->reviewUnprogrammed()->taskDue());
  scheduler->runReady();
  EXPECT_EQ(helper->takeCalls(),
            (Strings{"delete Ethernet1 10 100", "create Ethernet2 10 100 -> programmed"}));
  EXPECT_FALSE(waiting("Ethernet2", 10));
}

// A pair refused again by the review keeps the time of its first refusal; a pair that leaves
// the list and is refused later starts afresh.
TEST_F(Dot1qSmTest, PendingListsRefusedPairsSinceTheirFirstRefusal) {
  using Items = std::vector<Nox::PendingItem>;
  lag("Port-Channel1", {"Ethernet1", "Ethernet2"});
  tag(10, 100);
  advance(2);
  rc(Nox::notProgrammed);
  member(10, "Port-Channel1");
  Items const refused{
      {"dot1q", "Port-Channel1 10", "dot1q mapping refused on Ethernet1,Ethernet2", 2.0}};
  EXPECT_EQ(sm->pending(), refused);
  advance(5);
  EXPECT_EQ(sm->pending(), refused);
  rc(Nox::programmed);
  advance(5);
  EXPECT_EQ(sm->pending(), Items{});
  rc(Nox::notProgrammed);
  member(10, "Ethernet3");
  EXPECT_EQ(sm->pending(),
            (Items{{"dot1q", "Ethernet3 10", "dot1q mapping refused on Ethernet3", 12.0}}));
}

// A machine built over filled inputs, programming what changes one by one would: the property
// test's verification after every step, and the restart in the dot1q-port-channel scenario.
TEST_F(Dot1qSmTest, MachineWithoutAllItsInputsIsNeverInitializedAndCallsNothing) {
  auto const partial = Nox::evpnFloodingDot1qSmFactory(helper, scheduler, ncsd, config, nullptr);
  member(30, "Ethernet1");
  tag(30, 300);
  EXPECT_FALSE(partial->initialized());
  EXPECT_EQ(helper->takeCalls(), (Strings{"create Ethernet1 30 300 -> programmed"}));
}

}  // namespace
