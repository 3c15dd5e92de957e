#include <gtest/gtest.h>

#include "NoxEvpn/NoxEvpnFloodSetFecSm.h"
#include "platform/cog/TaskScheduler.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"
#include "tests/NoxEvpn/MacFecRig.h"
#include "tests/NoxEvpn/TraceCapture.h"

namespace {

using Lines = std::set<std::string>;
using Texts = std::vector<std::string>;
using Nox::FecId;
using Nox::HwTunnelId;
using Nox::TunnelId;
using NoxTest::dest;
using NoxTest::mac;
using NoxTest::via;
using NoxTest::vlan;

FecId fecId(uint64_t number) { return FecId(12, number); }

class FloodSetFecSmTest : public ::testing::Test {
 protected:
  // Over a tunnel table that its writer has published, as the agent has it.
  void start() {
    tunnels->tunnelIdToHwTunnelIdReadyIs(true);
    sm = Nox::evpnFloodSetFecSmFactory(in, tunnels, hwStatus, requests, responses, hwInfos,
                                       scheduler->timerWheel());
  }
  Vel::Ptr<L2Rib::FloodSet> floodSet(uint16_t v, uint64_t m) {
    return in->vlanFloodSetIs(vlan(v))->floodSetIs(mac(m));
  }
  void respond(uint64_t number, uint64_t hwFecId, std::string const& l2Intf) {
    responses->l2IntfIdIs(Nox::FecToL2IntfId(fecId(number), Gantry::IntfId(l2Intf)));
    responses->hwFecIdIs(Nox::FecToHwFecId(fecId(number), hwFecId));
  }
  void withdraw(uint64_t number) {
    responses->l2IntfIdDel(fecId(number));
    responses->hwFecIdDel(fecId(number));
  }
  // The FEC table's lines, and "hwinfo TUNNEL LABEL hwId=X l2Intf=I" lines.
  Lines published() const {
    Lines lines = NoxTest::fecTableLines(*requests);
    for (auto [v, info] : hwInfos->mappingColl()) {
      lines.insert(NoxTest::text("hwinfo ", v.tunnelId(), " ", v.label(), " hwId=",
                                 info.hwIdForTunnelProgramming(), " l2Intf=", info.l2IntfId()));
    }
    return lines;
  }
  std::vector<std::string> traced() { return capture.traced(); }

  NoxTest::TraceCapture capture{1};
  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<L2Rib::FloodSetOutput> in = L2Rib::floodSetOutputFactory();
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels =
      Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
  Vel::Ptr<Nox::EvpnVlanFloodSetHwStatus> hwStatus = Nox::evpnVlanFloodSetHwStatusFactory();
  Vel::Ptr<Nox::FecIdToHwFecIdRequest> requests = Nox::fecIdToHwFecIdRequestFactory("fsReq");
  Vel::Ptr<Nox::FecIdToHwFecIdResponse> responses = Nox::fecIdToHwFecIdResponseFactory("fsResp");
  Vel::Ptr<Nox::HwInfoMapping> hwInfos = Nox::hwInfoMappingFactory();
  Vel::Ptr<Nox::EvpnFloodSetFecSm> sm;
};

// A via wanted again before the programmer withdrew its answer gets its FEC id back; the id
// goes, with everything kept for it, once the answer is withdrawn.
TEST_F(FloodSetFecSmTest, ViaWantedAgainBeforeItsAnswerIsWithdrawnKeepsItsFecId) {
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  traced();
  respond(0, 100000, "L2Intf7");
  EXPECT_EQ(traced(), (Texts{" add or update hwInfo for tunnelId: 5 label: 1000"}));
  floodSet(10, 1)->destSetDel(dest("mpls/1/Tunnel5/1000"));
  EXPECT_EQ(published(), (Lines{"hwinfo 5 1000 hwId=100000 l2Intf=L2Intf7"}));
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  EXPECT_TRUE(published().contains("request 12:0"));

  floodSet(10, 1)->destSetDel(dest("mpls/1/Tunnel5/1000"));
  traced();
  withdraw(0);
  EXPECT_EQ(traced(),
            (Texts{" delete hwInfo for tunnelId: 5 label: 1000", "   Deleting fecId: 12:0"}));
  EXPECT_TRUE(published().empty());
  EXPECT_FALSE(sm->fecIdCacheIsMemberOf(fecId(0)));
  EXPECT_FALSE(sm->mplsFloodSetViaCacheIsMemberOf(via(5, 1000)));
}

// A new hardware tunnel id replaces a programmed configuration by one of the same via, and the
// one it replaced reads as not programmed: the replacement still holds the FEC.
TEST_F(FloodSetFecSmTest, AnyProgrammedConfigurationOfTheViaHoldsItsFec) {
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  respond(0, 100000, "L2Intf7");
  auto const config = [](uint32_t hwTunnelId) {
    return Nox::MplsDestConfig(TunnelId(5), Gantry::MplsLabel(1000), HwTunnelId(hwTunnelId), 0,
                               Gantry::IntfId());
  };
  auto const status = hwStatus->statusIs(Bridging::MacVlanPair(mac(1), vlan(10)));
  status->mplsDestStatusIs(config(0), Nox::notProgrammed);
  status->mplsDestStatusIs(config(501), Nox::programmed);
  traced();
  floodSet(10, 1)->destSetDel(dest("mpls/1/Tunnel5/1000"));
  EXPECT_EQ(traced(), (Texts{"    wait for hardware to unprogram the floodSet"}));
  EXPECT_EQ(published(), (Lines{"fec 12:0 via[0] label=1000 tunnel=5", "request 12:0",
                                "hwinfo 5 1000 hwId=100000 l2Intf=L2Intf7"}));
}

// That a new hardware id republishes the FECs of its tunnel, with these texts, is the
// mpls-flooding example's; here, a tunnel without FECs, and the table while it is rebuilt.
TEST_F(FloodSetFecSmTest, HardwareTunnelIdChangeRepublishesTheFecsOfItsTunnelOnlyWhileReady) {
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel6/1000"), true);
  floodSet(10, 1)->destSetIs(dest("mpls/2/Tunnel6/2000"), true);
  traced();
  tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(TunnelId(9), HwTunnelId(900)));
  EXPECT_EQ(traced(), (Texts{" no fecRequest associated with this tunnel 9"}));

  // While its writer rebuilds the table, nothing of it is followed; once it is ready again,
  // every tunnel in use is looked at.
  tunnels->tunnelIdToHwTunnelIdReadyIs(false);
  tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(TunnelId(6), HwTunnelId(601)));
  EXPECT_EQ(traced(), Texts{});
  tunnels->tunnelIdToHwTunnelIdReadyIs(true);
  EXPECT_EQ(traced(), (Texts{"     mplsFloodSetFecRequest created or updated: (tunnelId: 6 label: "
                             "1000 hwTunnelId:601 fecId: 12:0)",
                             "     mplsFloodSetFecRequest created or updated: (tunnelId: 6 label: "
                             "2000 hwTunnelId:601 fecId: 12:1)"}));
}

// A request waits from its publication until its response, and again once the response is
// withdrawn; a destination over the invalid tunnel id waits while it is in the flood sets.
TEST_F(FloodSetFecSmTest, PendingListsUnansweredRequestsAndDestinationsOverTheInvalidTunnel) {
  using Items = std::vector<Nox::PendingItem>;
  start();
  scheduler->advanceBy(1.0);
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  floodSet(10, 1)->destSetIs(dest("mpls/2/Tunnel0/1000"), true);
  EXPECT_EQ(sm->pending(), (Items{{"floodset-fec", "fec 12:0", "no response for via 5/1000", 1.0},
                                  {"floodset-fec", "10 00:00:00:00:00:01 mpls/2/Tunnel0/1000",
                                   "invalid tunnel id 0", 1.0}}));
  EXPECT_EQ(sm->floodSetEntryCaches(), 1u);  // the destination over tunnel 0 has no entry
  scheduler->advanceBy(1.0);
  respond(0, 100000, "L2Intf7");
  floodSet(10, 1)->destSetDel(dest("mpls/2/Tunnel0/1000"));
  EXPECT_EQ(sm->pending(), Items{});
  withdraw(0);
  EXPECT_EQ(sm->pending(),
            (Items{{"floodset-fec", "fec 12:0", "no response for via 5/1000", 2.0}}));
}

TEST_F(FloodSetFecSmTest, StartOverFilledInputsMatchesIncrementalAndDropsAnEarlierRunsState) {
  auto fill = [&] {
    floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
    floodSet(20, 2)->destSetIs(dest("mpls/2/Tunnel7/3000"), true);
  };
  start();
  fill();
  Lines const incremental = published();

  in = L2Rib::floodSetOutputFactory();
  fill();
  requests->hwFecIdRequestIs(fecId(9));
  hwInfos->mappingIs(via(8, 8), Nox::MplsDestHwInfo(8, Gantry::IntfId("L2Intf8")));
  requests->fecDel(fecId(0));
  requests->fecDel(fecId(1));
  sm = nullptr;
  start();
  EXPECT_EQ(published(), incremental);
}

// The programmer may still answer the FEC ids of the machine before a restart: such an id is
// not taken again while the answer stands (it names the earlier FEC's hardware), and it goes
// back to the allocator once the answer is withdrawn.
TEST_F(FloodSetFecSmTest, AnIdStillAnsweredForTheMachineBeforeIsNotTakenUntilWithdrawn) {
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  respond(0, 100000, "L2Intf0");
  sm = nullptr;
  in = L2Rib::floodSetOutputFactory();
  floodSet(20, 2)->destSetIs(dest("mpls/2/Tunnel7/3000"), true);
  start();
  EXPECT_EQ(sm->mplsFloodSetViaCache(via(7, 3000)), fecId(1));
  EXPECT_EQ(hwInfos->mappings(), 0u);
  respond(1, 100001, "L2Intf1");
  EXPECT_TRUE(published().contains("hwinfo 7 3000 hwId=100001 l2Intf=L2Intf1"));

  withdraw(0);
  floodSet(30, 3)->destSetIs(dest("mpls/3/Tunnel9/4000"), true);
  EXPECT_EQ(sm->mplsFloodSetViaCache(via(9, 4000)), fecId(2));
  scheduler->advanceBy(10.0);
  floodSet(40, 4)->destSetIs(dest("mpls/4/Tunnel9/5000"), true);
  EXPECT_EQ(sm->mplsFloodSetViaCache(via(9, 5000)), fecId(0));
}

TEST_F(FloodSetFecSmTest, NonMplsDestinationIsAProgrammingError) {
  start();
  EXPECT_DEATH(floodSet(10, 1)->destSetIs(dest("intf/1/Ethernet1"), true),
               "dest.destType\\(\\) == L2Rib::destTypeMpls_");
}

}  // namespace
