#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "platform/cog/YieldPolicy.h"
#include "tests/NoxEvpn/MacFecRig.h"
#include "tests/NoxEvpn/TraceCapture.h"

namespace {

using Lines = NoxTest::MacFecRig::Lines;
using NoxTest::destTuple;
using NoxTest::labelTuple;
using NoxTest::lbTuple;

class MacFecTest : public ::testing::Test {
 protected:
  std::vector<std::string> traced() { return capture.traced(); }
  NoxTest::TraceCapture capture{1};
  NoxTest::MacFecRig rig;
};

// Two chains: host 1 -> label 10 -> load balance 20 -> destinations 1, 2, and host 2 -> load
// balance 30 -> (label 11 -> destination 3, destination 4). Deleting their pieces in any order
// must leave no request, response or map entry behind, whatever the chain length. With
// length 2 no FEC stays either; with length 3 a label or load balance re-evaluated after it
// went is built again, empty, as one never seen, and keeps its number.
TEST_F(MacFecTest, DeletingChainsInAnyOrderLeavesNoRequestOrMapEntryBehind) {
  std::mt19937 random(7);
  for (uint32_t chainLength : {2u, 3u}) {
    for (int round = 0; round < 40; ++round) {
      NoxTest::MacFecRig r;
      r.programmerOn = true;
      r.startReviewed();
      r.sm->maxChainLengthIs(chainLength);
      for (uint64_t d = 1; d <= 4; ++d) r.dest(d, 100 + d);
      r.lb(20, {destTuple(1), destTuple(2)});
      r.label(10, 1000, lbTuple(20));
      r.label(11, 1100, destTuple(3));
      r.lb(30, {labelTuple(11), destTuple(4)});
      r.host(1, labelTuple(10));
      r.host(2, lbTuple(30));
      ASSERT_EQ(r.hwIdLines().size(), 2u) << chainLength;

      std::vector<std::function<void()>> deletions = {
          [&] { r.hostDel(1); },   [&] { r.hostDel(2); }, [&] { r.labelDel(10); },
          [&] { r.labelDel(11); }, [&] { r.lbDel(20); },  [&] { r.lbDel(30); },
          [&] { r.destDel(1); },   [&] { r.destDel(2); }, [&] { r.destDel(3); },
          [&] { r.destDel(4); }};
      std::shuffle(deletions.begin(), deletions.end(), random);
      for (auto const& deletion : deletions) deletion();

      for (std::string const& line : r.fecLines()) {
        bool const emptyFec = line.starts_with("fec ") && line.ends_with(" novia");
        EXPECT_TRUE(chainLength == 3 && (emptyFec || line.starts_with("objtuple ")))
            << chainLength << " round " << round << ": " << line;
      }
      EXPECT_EQ(r.responses->hwFecIds(), 0u);
      EXPECT_EQ(r.sm->numAllocatorStatus()->outCount(), r.requests->fecs());
      EXPECT_EQ(r.sm->fecCaches(), r.requests->fecs());
      EXPECT_EQ(r.sm->nextHopForwardMaps() + r.sm->nextHopReverseMaps() +
                    r.sm->isFirstLevelNextHops() + r.sm->fecRequestCaches() +
                    r.sm->fecRequestReverseMaps() + r.sm->macVlanToObjTupleCaches(),
                0u);
      EXPECT_EQ(r.sm->objTupleCaches(), r.requests->objTupleToFecIds());
    }
  }
}

// At chain length 3 a load balance updated in place keeps its FEC id, so the FEC of the label
// that links to it by that id is left as it is.
TEST_F(MacFecTest, ChainLengthThreeUpdatesALoadBalanceInPlaceKeepingItsFecId) {
  rig.startReviewed();
  rig.sm->maxChainLengthIs(3);
  rig.dest(1, 5);
  rig.dest(2, 6);
  rig.lb(20, {destTuple(1), destTuple(2)});
  rig.label(10, 1000, lbTuple(20));
  rig.host(1, labelTuple(10));
  rig.lb(20, {destTuple(2)});
  EXPECT_TRUE(rig.fecLines().contains("fec 8:0 via[0] tunnel=6"));
  EXPECT_TRUE(rig.fecLines().contains("fec 8:1 via[0] label=1000 fec=8:0"));
}

TEST_F(MacFecTest, HostsBeforeTheirChainAreRequestedAtOnceAndKeepTheirFecId) {
  rig.startReviewed();
  rig.host(1, labelTuple(10));
  EXPECT_EQ(rig.fecLines(), (Lines{"fec 8:0 novia", "objtuple label:10 fec=8:0", "request 8:0"}));
  rig.label(10, 1000, destTuple(1));
  EXPECT_TRUE(rig.fecLines().contains("fec 8:0 via[0] label=1000"));
  rig.dest(1, 5);
  EXPECT_EQ(rig.fecLines(), (Lines{"fec 8:0 via[0] label=1000 tunnel=5",
                                   "objtuple label:10 fec=8:0", "request 8:0"}));
}

TEST_F(MacFecTest, FecIdsAreReusedOnlyAfterTheQuarantine) {
  rig.startReviewed();
  rig.dest(1, 5);
  rig.label(10, 1000, destTuple(1));
  rig.label(11, 1100, destTuple(1));
  rig.host(1, labelTuple(10));
  rig.hostDel(1);
  rig.host(2, labelTuple(11));
  EXPECT_TRUE(rig.fecLines().contains("objtuple label:11 fec=8:1"));
  rig.advance(9.9);
  rig.host(3, labelTuple(10));
  EXPECT_TRUE(rig.fecLines().contains("objtuple label:10 fec=8:2"));
  rig.hostDel(3);
  rig.advance(10.0);
  rig.host(3, labelTuple(10));
  EXPECT_TRUE(rig.fecLines().contains("objtuple label:10 fec=8:0"));
}

TEST_F(MacFecTest, ResponsesCountOnlyWhileTheirRequestStands) {
  rig.startReviewed();
  rig.dest(1, 5);
  rig.label(10, 1000, destTuple(1));
  rig.host(1, labelTuple(10));
  rig.responses->hwFecIdIs(Nox::FecToHwFecId(NoxTest::macFecId(0), 7000));
  EXPECT_EQ(rig.hwIdLines(), (Lines{"label:10 hwId=7000"}));
  rig.responses->hwFecIdIs(Nox::FecToHwFecId(NoxTest::macFecId(5), 7005));
  rig.hostDel(1);
  traced();
  rig.responses->hwFecIdIs(Nox::FecToHwFecId(NoxTest::macFecId(0), 7001));
  rig.responses->hwFecIdDel(NoxTest::macFecId(0));
  EXPECT_EQ(traced(), (std::vector<std::string>{"Got stale response for FecId:8:0",
                                                "Stale response deletion for FecId:8:0"}));
  EXPECT_EQ(rig.hwIdLines(), (Lines{"label:10 hwId=7000"}));
  // A standing request loses its hardware id when the response goes.
  rig.host(1, labelTuple(10));
  rig.responses->hwFecIdIs(Nox::FecToHwFecId(NoxTest::macFecId(1), 7100));
  EXPECT_EQ(rig.hwIdLines(), (Lines{"label:10 hwId=7100"}));
  rig.responses->hwFecIdDel(NoxTest::macFecId(1));
  EXPECT_EQ(rig.hwIdLines(), Lines());
}

TEST_F(MacFecTest, RestartEmptiesTheRequestsAndRebuildsThroughTheYieldingReview) {
  rig.startReviewed();
  rig.dest(1, 5);
  rig.dest(2, 6);
  rig.label(10, 1000, destTuple(1));
  rig.label(11, 1100, destTuple(2));
  rig.host(1, labelTuple(11));
  rig.host(2, labelTuple(10));
  rig.host(3, labelTuple(10));
  Lines const before = rig.fecLines();
  ASSERT_TRUE(before.contains("objtuple label:11 fec=8:0"));

  rig.sm = nullptr;
  rig.scheduler->yieldPolicyIs(Vel::Ptr<Cog::YieldPolicy>(new Cog::WorkQuantumYield(2)));
  capture.traced();
  Trace::levelIs("NoxEvpn", 8);
  rig.start();
  EXPECT_EQ(rig.fecLines(), Lines());
  // Four tuples and three hosts, two per run: four runs half a second apart (the pacing itself
  // is the macfec-chain3-restart scenario's).
  rig.advance(1.5);
  EXPECT_TRUE(rig.sm->reviewBacklog()->taskScheduled());
  rig.advance(0.5);
  EXPECT_FALSE(rig.sm->reviewBacklog()->taskScheduled());
  std::vector<std::string> handled;
  for (auto const& text : traced()) {
    if (text.starts_with("handleLabel ") || text.starts_with("handleDest ") ||
        text.starts_with("handleL2RibHost "))
      handled.push_back(text.substr(0, text.find(' ')));
  }
  auto const firstHost = std::find(handled.begin(), handled.end(), "handleL2RibHost");
  EXPECT_EQ(std::count(firstHost, handled.end(), "handleDest"), 0);
  // Hosts come in ascending (mac, vlan), so label 11 of host 1 is the first to get a FEC again.
  EXPECT_EQ(rig.fecLines(), before);
}

// The start-up backlog waits from start-up; a host waits while its chain misses a piece, dated
// from when the piece went missing, and a request while it has no response.
TEST_F(MacFecTest, PendingListsTheBacklogIncompleteChainsAndUnansweredRequestsSinceTheyWait) {
  using Items = std::vector<Nox::PendingItem>;
  rig.programmerOn = false;
  rig.dest(1, 5);
  rig.host(1, labelTuple(10));
  rig.scheduler->advanceBy(1.0);
  rig.start();
  EXPECT_EQ(rig.sm->pending(),
            (Items{{"macfec", "dest:1", "start-up backlog", 1.0},
                   {"macfec", "00:00:00:00:00:01 10", "start-up backlog", 1.0}}));
  rig.advance(0.5);
  Nox::PendingItem const unanswered{"macfec", "fec 8:0", "no response for label:10", 1.5};
  EXPECT_EQ(
      rig.sm->pending(),
      (Items{{"macfec", "00:00:00:00:00:01 10", "chain of label:10 incomplete", 1.5}, unanswered}));
  rig.advance(1.0);
  rig.label(10, 1000, destTuple(1));
  EXPECT_EQ(rig.sm->pending(), Items{unanswered});
  rig.program();
  EXPECT_EQ(rig.sm->pending(), Items{});
  rig.destDel(1);
  EXPECT_EQ(rig.sm->pending(),
            (Items{{"macfec", "00:00:00:00:00:01 10", "chain of label:10 incomplete", 2.5}}));
}

// The chain length's own range error is shown by the macfec-maxchain-range scenario.
TEST_F(MacFecTest, LoadBalanceOfMoreNextsThanAFecHoldsIsARangeError) {
  rig.startReviewed();
  L2Rib::LoadBalance big;
  for (uint64_t d = 1; d <= 17; ++d) {
    rig.dest(d, d);
    big.nextAdd(destTuple(d));
  }
  rig.lbs->loadBalanceIs(L2Rib::LoadBalanceId(1), big);
  EXPECT_THROW(rig.host(1, lbTuple(1)), Vel::RangeException);
}

using MacFecDeathTest = MacFecTest;

TEST_F(MacFecDeathTest, StructuralImpossibilitiesStopTheAgent) {
  rig.startReviewed();
  rig.label(10, 1000, labelTuple(11));
  EXPECT_DEATH(rig.host(1, labelTuple(10)),
               "label.next\\(\\).tableType\\(\\) != L2Rib::tableTypeLabel_");
  EXPECT_DEATH(rig.host(2, destTuple(1)), "0");
  L2Rib::Dest const port = L2Rib::Dest::intf(L2Rib::DestId(3), Gantry::IntfId("Ethernet1"));
  EXPECT_DEATH(rig.dests->destIs(L2Rib::DestId(3), port),
               "dest.destType\\(\\) == L2Rib::destTypeTunnel_");
}

}  // namespace
