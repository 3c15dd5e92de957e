// The verification of every machine against a fresh build: after a realistic run nothing is
// reported; a member written wrong straight into a machine's output is reported exactly, as an
// unexpected difference; what a failing helper leaves is reported as expected until the review
// retries it.

#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <sstream>

#include "tests/tools/noxsim/RunOutcome.h"
#include "tools/noxsim/VerifyCommands.h"

namespace Noxsim {
namespace {

constexpr char const* setup = R"(
start
fecprogrammer floodset auto on
fecprogrammer mac auto on
hwagent auto on
l2rib floodset add 100 00:00:00:00:01:00 vxlan/2/10.0.0.2
l2rib floodset add 100 00:00:00:00:01:00 mpls/3/Tunnel5/1000
evpn df set Port-Channel1 10 Tunnel5
evpn esilabel set Port-Channel1 Tunnel5 1000
lag set Port-Channel1 Ethernet1 Ethernet2
evpn dot1q set 10 100
vlan intf add 10 Port-Channel1
lfib esfilter set 6/1 Ethernet1
lfib viaset set 1 6/1
lfib route set 1000 viaset=1
l2rib dest set tunnel/1/Tunnel5
l2rib label set 10 1000 next=dest:1
l2rib host set 10 00:00:00:00:00:01 label:10
)";

class VerifyTest : public ::testing::Test {
 protected:
  void run(std::string const& text) { ASSERT_EQ(runText(sim, scripts, text), "") << err.str(); }
  std::vector<Nox::VerifyDifference> verify(std::string_view machine) {
    auto found = verifyMachines(sim, {machine});
    EXPECT_TRUE(found.has_value());
    return found.value_or(std::vector<Nox::VerifyDifference>{});
  }
  // The one difference reported, which must be unexpected: "table key: live=... fresh=...".
  std::string only(std::string_view machine) {
    auto const found = verify(machine);
    std::string text;
    for (auto const& d : found) text += Nox::verifyDifferenceText(d) + "\n";
    EXPECT_EQ(found.size(), 1u) << text;
    if (found.size() != 1u) return text;
    EXPECT_FALSE(found[0].expected) << text;
    return text.substr(found[0].machine.size() + 1, text.size() - found[0].machine.size() - 2);
  }
  void SetUp() override {
    run(setup);
    auto const found = verifyMachines(sim);
    ASSERT_TRUE(found.has_value());
    for (auto const& d : *found) ADD_FAILURE() << Nox::verifyDifferenceText(d);
  }

  std::deque<Script> scripts;
  std::ostringstream out, err;
  Sim sim{out, err, true};
  World& w = sim.world();
};

TEST_F(VerifyTest, AWrongMemberWrittenIntoAnOutputIsReportedExactly) {
  auto const vlan = Bridging::VlanId(100);
  auto const mac = Gantry::EthAddr::fromValue(0x100);
  Bridging::MacVlanPair const pair(mac, vlan);
  auto const dest = *L2Rib::Dest::fromString("mpls/3/Tunnel5/1000");
  Nox::MplsFloodSetVia const via(Nox::TunnelId(5), Gantry::MplsLabel(1000));

  w.filteredFloodSets->vlanFloodSet(vlan)->floodSet(mac)->destSetIs(dest, false);
  EXPECT_EQ(only("filter"),
            "floodset-filtered 100 00:00:00:00:01:00 mpls/3/Tunnel5/1000: "
            "live=flag=false type=0 fresh=flag=true type=0");
  w.filteredFloodSets->vlanFloodSet(vlan)->floodSet(mac)->destSetIs(dest, true);

  auto const config = (*w.hwConfig->config(pair)->mplsDestConfigColl().begin()).key;
  Nox::MplsDestConfig const wrong(config.tunnelId(), config.label(), config.hwTunnelId(),
                                  config.hwIdForTunnelProgramming() + 1, config.l2IntfId());
  w.hwConfig->config(pair)->mplsDestConfigDel(config);
  w.hwConfig->config(pair)->mplsDestConfigIs(wrong, true);
  EXPECT_EQ(only("floodset"),
            "hwconfig 100 00:00:00:00:01:00 tunnel=5 label=1000: live=hwTunnelId=1 hwId=100001 "
            "l2Intf=L2Intf0 fresh=hwTunnelId=1 hwId=100000 l2Intf=L2Intf0");

  w.hwInfo->mappingIs(via, Nox::MplsDestHwInfo(42, Gantry::IntfId()));
  EXPECT_EQ(only("floodset-fec"),
            "hwinfo tunnel=5 label=1000: live=hwId=42 l2Intf= fresh=hwId=100000 l2Intf=L2Intf0");

  L2Rib::ObjTuple const tuple(10, L2Rib::tableTypeLabel_);
  uint64_t const hwId = w.objTupleHwIds->hwId(tuple);
  w.objTupleHwIds->hwIdIs(tuple, hwId + 1);
  EXPECT_EQ(only("macfec"), "objtuple-hwid tuple label:10: live=" + std::to_string(hwId + 1) +
                                " fresh=" + std::to_string(hwId));

  w.tunnels->tunnelIdToHwTunnelIdDel(Nox::TunnelId(5));
  EXPECT_EQ(only("esi"), "tunnels 5: live=- fresh=mapped");

  w.lfibHwStatus->unprogrammedRouteIs(Mpls::RouteKey(Gantry::MplsLabel(1000)),
                                      Mpls::LfibHwProgrammingReturnCode(2));
  EXPECT_EQ(only("decap"), "lfib-hwstatus 1000: live=2 fresh=-");
}

// Two live FECs for one via: FEC ids are compared by what they ask for, and each must name one.
TEST_F(VerifyTest, AFecIdGivenTwiceIsReported) {
  Nox::FecId const fecId = (*w.macFecRequest->fecColl().begin()).key;
  L2Rib::ObjTuple const other(11, L2Rib::tableTypeLabel_);
  w.macFecRequest->objTupleToFecIdIs(Nox::ObjTupleAndFecId(other, fecId));
  auto const found = verify("macfec");
  bool conflict = false;
  for (auto const& d : found) conflict |= d.table == "fec-id" && !d.expected;
  EXPECT_TRUE(conflict);
}

// A helper that fails leaves ports unprogrammed: expected until the review retries them.
TEST_F(VerifyTest, WhatAFailingHelperLeftIsExpectedUntilTheReviewRetries) {
  run("helper flooding set createVlanToDot1qRc=invalidHwId\n"
      "helper flooding set createEsiDataRc=notProgrammed\n"
      "lag set Port-Channel1 Ethernet1 Ethernet2 Ethernet3\n");
  for (std::string_view machine : {"dot1q", "esi"}) {
    auto const found = verify(machine);
    ASSERT_FALSE(found.empty()) << machine;
    for (auto const& d : found) {
      EXPECT_TRUE(d.expected) << Nox::verifyDifferenceText(d);
      EXPECT_EQ(d.key, "Port-Channel1 10 Ethernet3") << Nox::verifyDifferenceText(d);
    }
  }
  run("helper flooding set createVlanToDot1qRc=programmed\n"
      "helper flooding set createEsiDataRc=programmed\n"
      "advance 10\n"
      "expect verify\n");
  EXPECT_TRUE(verify("dot1q").empty());
  EXPECT_TRUE(verify("esi").empty());
}

// The decap machine sees routes only through the backlog and keeps nothing of a refusal above 3:
// each way its port maps may stand for another LFIB than the current one is expected, and only
// on the routes concerned.
TEST_F(VerifyTest, DecapPortMapsOfAnotherLfibStateAreExpectedOnTheirRoutesOnly) {
  run("helper decap set createEsiPortMapRc=7\n"
      "lfib esfilter set 6/2 Ethernet2\n"
      "lfib viaset set 2 6/2\n"
      "lfib route set 1002 viaset=2\n"
      "helper decap set createEsiPortMapRc=0\n"
      "lfib esfilter set 6/3 Ethernet3\n"
      "lfib viaset set 3 6/3\n"
      "lfib route set 1003 viaset=3\n"
      "lfib viaset set 3 5/1 6/3\n"
      "lfib esfilter set 6/4 Ethernet4\n"
      "lfib viaset set 4 6/4\n"
      "lfib route set 1004 viaset=4\n"
      "lfib route set 999 viaset=4\n");
  // Behind the backlog's back: the route's filter via moves to another interface.
  w.lfib->evpnEthernetSegmentFilterViaIs(
      Mpls::LfibViaKey(Mpls::lfibViaTypeEvpnEthernetSegmentFilter, 1),
      Mpls::LfibEvpnEthernetSegmentFilterVia(Gantry::IntfId("Ethernet5")));
  std::set<std::string> keys;
  for (auto const& d : verify("decap")) {
    EXPECT_TRUE(d.expected) << Nox::verifyDifferenceText(d);
    keys.insert(d.table + " " + d.key +
                (d.reason.find("code above 3") != std::string::npos ? " refused"
                 : d.reason.find("skipped") != std::string::npos    ? " skipped"
                 : d.reason.find("changed") != std::string::npos    ? " changed"
                 : d.reason.find("first one") != std::string::npos  ? " order"
                                                                    : " other"));
  }
  EXPECT_EQ(keys, (std::set<std::string>{"port-map 1002 refused", "port-map 1003 skipped",
                                         "port-map 1000 changed", "port-map 1004 order",
                                         "lfib-hwstatus 1004 order", "port-map 999 other",
                                         "lfib-hwstatus 999 other"}));
  run("restart decap\n");
  for (auto const& d : verify("decap")) {
    EXPECT_TRUE(d.expected) << Nox::verifyDifferenceText(d);
  }
}

TEST_F(VerifyTest, NamingAStoppedMachineFails) {
  run("stop esi\n");
  EXPECT_FALSE(verifyMachines(sim, {"esi"}).has_value());
  EXPECT_TRUE(sim.failed());
}

}  // namespace
}  // namespace Noxsim
