#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Dot1qTestUtil.h"
#include "TraceCapture.h"

namespace {

using NoxTest::intf;
using Strings = std::vector<std::string>;

class Dot1qSmTest : public ::testing::Test, protected NoxTest::Dot1qInputs {
 protected:
  void TearDown() override { EXPECT_EQ(hardware.faults, Strings{}); }
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
  Vel::Ptr<Nox::EvpnFloodingDot1qSm> sm = startMachine();
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

TEST_F(Dot1qSmTest, ReviewDropsWaitingPairWhoseMembershipWentAndRemovalReviewsAtOnce) {
  tag(10, 100);
  member(10, "Ethernet1");
  rc(Nox::notProgrammed);
  member(10, "Ethernet2");
  EXPECT_TRUE(waiting("Ethernet2", 10));
  rc(Nox::programmed);
  config->vlanConfig(Bridging::VlanId(10))->intfDel(intf("Ethernet2"));
  EXPECT_FALSE(waiting("Ethernet2", 10));
  hardware.takeCalls();

  // A delete asks for the review now, replacing the pending delayed one.
  config->vlanConfig(Bridging::VlanId(10))->intfDel(intf("Ethernet1"));
  EXPECT_EQ(hardware.takeCalls(), (Strings{"delete Ethernet1 10 100"}));
  EXPECT_TRUE(sm->reviewUnprogrammed()->taskScheduled());
  EXPECT_FALSE(sm->reviewUnprogrammed()->taskDue());
  scheduler->runReady();
  scheduler->advanceBy(10);
  EXPECT_TRUE(hardware.takeCalls().empty());
}

// A pair refused again by the review keeps the time of its first refusal; a pair that leaves
// the list and is refused later starts afresh.
TEST_F(Dot1qSmTest, PendingListsRefusedPairsSinceTheirFirstRefusal) {
  using Items = std::vector<Nox::PendingItem>;
  lag("Port-Channel1", {"Ethernet1", "Ethernet2"});
  tag(10, 100);
  scheduler->advanceBy(2);
  rc(Nox::notProgrammed);
  member(10, "Port-Channel1");
  Items const refused{
      {"dot1q", "Port-Channel1 10", "dot1q mapping refused on Ethernet1,Ethernet2", 2.0}};
  EXPECT_EQ(sm->pending(), refused);
  scheduler->advanceBy(5);
  EXPECT_EQ(sm->pending(), refused);
  rc(Nox::programmed);
  scheduler->advanceBy(5);
  EXPECT_EQ(sm->pending(), Items{});
  rc(Nox::notProgrammed);
  member(10, "Ethernet3");
  EXPECT_EQ(sm->pending(),
            (Items{{"dot1q", "Ethernet3 10", "dot1q mapping refused on Ethernet3", 12.0}}));
}

TEST_F(Dot1qSmTest, MachineBuiltOverFilledInputsProgramsWhatChangesOneByOneWould) {
  tag(10, 100);
  tag(20, 200);
  lag("Port-Channel1", {"Ethernet5", "Ethernet6"});
  member(10, "Ethernet1");
  member(10, "Port-Channel1");
  member(20, "Ethernet1");
  auto const incremental = hardware.mappings;
  EXPECT_EQ(incremental.size(), 4u);

  // A new machine starts empty and deletes nothing the earlier one programmed.
  sm = nullptr;
  EXPECT_EQ(hardware.mappings, incremental);
  hardware.mappings.clear();
  hardware.takeCalls();
  sm = startMachine();
  EXPECT_EQ(hardware.mappings, incremental);
  EXPECT_EQ(sm->vlanConfigs(), 2u);

  // Without all of its inputs the machine is never initialized and calls nothing.
  auto const partial = Nox::evpnFloodingDot1qSmFactory(stub, scheduler, ncsd, config, nullptr);
  hardware.takeCalls();
  member(30, "Ethernet1");
  tag(30, 300);
  EXPECT_FALSE(partial->initialized());
  EXPECT_EQ(hardware.takeCalls(), (Strings{"create Ethernet1 30 300 -> 0"}));
}

}  // namespace
