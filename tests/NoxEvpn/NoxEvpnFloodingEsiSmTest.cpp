#include <gtest/gtest.h>

#include <algorithm>

#include "platform/vel/Exception.h"
#include "tests/NoxEvpn/FloodingTestUtil.h"
#include "tests/NoxEvpn/TraceCapture.h"

namespace {

using Calls = std::vector<std::string>;
using Lines = std::set<std::string>;

bool traced(std::vector<std::string> const& texts, std::string const& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

class EsiSmTest : public ::testing::Test {
 protected:
  Calls calls() { return w.helper->takeCalls(); }
  Lines esi() const {
    Lines lines;
    for (auto const& [key, data] : w.helper->esiData) {
      lines.insert(NoxTest::text(key.first, " ", key.second, " tunnel=", data.tunnel,
                                 " hw=", data.hwTunnelId, " label=", data.label));
    }
    return lines;
  }

  NoxTest::TraceCapture capture{1};
  NoxTest::FloodingWorld w;
  Vel::Ptr<Nox::EvpnFloodingEsiSm> sm;
};

// A tunnel that waited for an id gets one through another pair, outside the review: the pair
// that waited behind it is programmed then, not left waiting for a review that has nothing to do.
TEST_F(EsiSmTest, TunnelPublishedThroughAnotherPairProgramsThePairsThatWaitedForIt) {
  sm = w.startEsi();
  w.helper->hwTunnelIdExhaustedIs(true);
  w.dfIs("Ethernet2", 1, 2);
  w.labelIs("Ethernet2", 2, 100, Evpn::EncapType::mpls);
  w.helper->hwTunnelIdExhaustedIs(false);
  calls();
  w.dfIs("Ethernet1", 1, 2);
  EXPECT_EQ(calls(), (Calls{"get -> 1", "create Ethernet2 1 2 1 100 -> programmed"}));
  EXPECT_EQ(esi(), (Lines{"Ethernet2 1 tunnel=2 hw=1 label=100"}));
}

// Reprocessing a programmed port calls nothing: the esi-plain-port scenario.
TEST_F(EsiSmTest, LabelOfAnotherEncapUnprogramsThePortAndTracesTheLabel) {
  sm = w.startEsi();
  w.dfIs("Ethernet1", 10, 5);
  w.labelIs("Ethernet1", 5, 1000);
  calls();
  capture.traced();
  w.labelIs("Ethernet1", 5, 1000, Evpn::EncapType::vxlan);
  EXPECT_EQ(calls(), (Calls{"delete Ethernet1 10"}));
  EXPECT_TRUE(traced(capture.traced(),
                     "incorrect encap type Value('Evpn::EncapTypeLabel', ** {'encapType': vxlan, "
                     "'label': 1000})"));
}

TEST_F(EsiSmTest, ReviewYieldsAndResumesAfterTheInterval) {
  sm = w.startEsi();
  w.helper->createEsiDataRcIs(Nox::notProgrammed);
  for (uint16_t vlan = 1; vlan <= 3; ++vlan) w.dfIs("Ethernet1", vlan, 5);
  w.labelIs("Ethernet1", 5, 1000);
  w.helper->createEsiDataRcIs(Nox::programmed);
  w.scheduler->yieldPolicyIs(Vel::Ptr<Cog::YieldPolicy>(new Cog::WorkQuantumYield(2)));
  w.advance(5.0);
  EXPECT_EQ(esi().size(), 2u);
  EXPECT_EQ(sm->reviewUnprogrammed()->taskDue(), std::optional<double>(10.0));
  w.advance(5.0);
  EXPECT_EQ(esi().size(), 3u);
}

// Hardware tunnel ids are not carried over a restart: the table is emptied and every tunnel
// in use takes a fresh id, while a machine built over present inputs programs what they say.
// Once the inputs are gone again, the machine holds nothing.
TEST_F(EsiSmTest, StartupEmptiesTheTableWalksTheInputsAndKeepsNothingOnceTheyGo) {
  w.lag("Port-Channel1", {"Ethernet1", "Ethernet2"});
  w.dfIs("Port-Channel1", 10, 5);
  w.labelIs("Port-Channel1", 5, 1000);
  w.tunnels->tunnelIdToHwTunnelIdIs(
      Nox::TunnelIdToHwTunnelId(Nox::TunnelId(9), Nox::HwTunnelId(9)));
  sm = w.startEsi();
  EXPECT_EQ(w.published(), (Lines{"5=1"}));
  EXPECT_EQ(esi(), (Lines{"Ethernet1 10 tunnel=5 hw=1 label=1000",
                          "Ethernet2 10 tunnel=5 hw=1 label=1000"}));
  EXPECT_TRUE(w.tunnels->tunnelIdToHwTunnelIdControl().ready);

  w.dfDel("Port-Channel1", 10);
  EXPECT_TRUE(w.published().empty());
  EXPECT_TRUE(esi().empty());
  EXPECT_EQ(sm->intfVlanSets() + sm->intfVlanTunnels() + sm->tunnelIntfVlanSets() +
                sm->intfTunnelVlanSets() + sm->intfVlanTunnelLabels() + sm->esiStatuss(),
            0u);
}

// A waiting item is listed from its first failure on, a retry that fails again keeps that time,
// and it leaves the list once programmed.
TEST_F(EsiSmTest, PendingListsRefusedPairsAndTunnelsWithoutIdSinceTheirFirstFailure) {
  using Items = std::vector<Nox::PendingItem>;
  sm = w.startEsi();
  w.advance(1.0);
  w.helper->createEsiDataRcIs(Nox::notProgrammed);
  w.dfIs("Ethernet1", 10, 5);
  w.labelIs("Ethernet1", 5, 1000);
  Nox::PendingItem const refused{"esi", "Ethernet1 10", "esi data refused on Ethernet1", 1.0};
  EXPECT_EQ(sm->pending(), Items{refused});
  w.advance(5.0);  // the review is refused again
  EXPECT_EQ(sm->pending(), Items{refused});
  w.helper->hwTunnelIdExhaustedIs(true);
  w.dfIs("Ethernet1", 20, 6);
  EXPECT_EQ(sm->pending(), (Items{{"esi", "tunnel 6", "no hw tunnel id (ids exhausted)", 6.0},
                                  {"esi", "Ethernet1 20", "tunnel 6 has no hw tunnel id", 6.0},
                                  refused}));
  w.helper->createEsiDataRcIs(Nox::programmed);
  w.helper->hwTunnelIdExhaustedIs(false);
  w.advance(5.0);
  EXPECT_EQ(sm->pending(), Items{});
}

TEST_F(EsiSmTest, TepOutsideTheTunnelIdRangeRaisesTheRangeError) {
  sm = w.startEsi();
  auto segment = w.segment("Ethernet1");
  Gantry::IntfId const tooBig("Tunnel281474976710656");
  EXPECT_THROW(segment->designatedForwarderTepIs(Bridging::VlanId(10), tooBig),
               Vel::RangeException);
  EXPECT_TRUE(w.published().empty());
  EXPECT_THROW(segment->remoteEsiLabelIs(tooBig, Evpn::EncapTypeLabel()), Vel::RangeException);
}

}  // namespace
