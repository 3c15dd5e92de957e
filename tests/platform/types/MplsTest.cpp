#include <gtest/gtest.h>

#include <vector>

#include "platform/kelp/RecordRegistry.h"
#include "platform/types/Mpls/Mpls.h"
#include "platform/vel/Exception.h"

namespace {

using Mpls::LfibViaKey;
using Mpls::LfibViaType;

Mpls::RouteKey route(uint32_t label) { return Mpls::RouteKey(Gantry::MplsLabel(label)); }

template <class T>
std::string recordText(char const* typeName, T const& value) {
  Kelp::RecordCodec const* codec = Kelp::recordCodec(typeName);
  return codec ? codec->toText(&value) : "unregistered";
}

TEST(MplsTest, LfibTablesIterateInKeyOrderAndNotifyEveryWrite) {
  auto lfib = Mpls::lfibStatusFactory("mplsTest.lfib");
  struct Watcher : Mpls::LfibStatus::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    void onEvpnEthernetSegmentFilterVia(LfibViaKey const& key) override { keys.push_back(key); }
    std::vector<LfibViaKey> keys;
  } watcher(lfib);
  Mpls::LfibEvpnEthernetSegmentFilterVia const via(Gantry::IntfId("Ethernet1"));
  for (LfibViaKey key : {LfibViaKey(LfibViaType(6), 2), LfibViaKey(LfibViaType(5), 9),
                         LfibViaKey(LfibViaType(6), 1), LfibViaKey(LfibViaType(6), 1)}) {
    lfib->evpnEthernetSegmentFilterViaIs(key, via);
  }
  EXPECT_EQ(watcher.keys.size(), 4u);
  std::vector<std::string> order;
  for (auto const& entry : lfib->evpnEthernetSegmentFilterViaColl()) {
    order.push_back(valueToStrep(entry.key));
  }
  EXPECT_EQ(order, (std::vector<std::string>{"5/9", "6/1", "6/2"}));
  EXPECT_EQ(lfib->evpnEthernetSegmentFilterVia(LfibViaKey(LfibViaType(6), 3)),
            Mpls::LfibEvpnEthernetSegmentFilterVia());
  EXPECT_TRUE(lfib->routeDel(route(5)) == false);
}

TEST(MplsTest, RecordsPrintInTheirTextFormForTableReaders) {
  Mpls::LfibViaSet set;
  set.viaKeyIs(LfibViaKey(LfibViaType(6), 1));
  set.viaKeyIs(LfibViaKey(LfibViaType(5), 18446744073709551615u));
  EXPECT_EQ(recordText("Mpls::LfibViaSet", set), "6/1 5/18446744073709551615");
  EXPECT_EQ(recordText("Mpls::RouteKey", route(3)), "imp-null(3)");
  EXPECT_EQ(recordText("Mpls::LfibRoute", Mpls::LfibRoute(Mpls::LfibViaSetKey(7))), "viaset=7");
  EXPECT_EQ(recordText("Mpls::LfibHwProgrammingReturnCode", Mpls::LfibHwProgrammingReturnCode(7)),
            "7");
  EXPECT_EQ(recordText("Mpls::LfibEvpnEthernetSegmentFilterVia",
                       Mpls::LfibEvpnEthernetSegmentFilterVia(Gantry::IntfId("Port-Channel7"))),
            "Port-Channel7");
}

TEST(MplsTest, ViaSetHoldsSixteenViasAndReadsEmptyAsMissing) {
  Mpls::LfibViaSet set;
  EXPECT_TRUE(set == Mpls::LfibViaSet());
  EXPECT_TRUE(!set.viaKey(0));
  for (uint64_t i = 0; i < Mpls::LfibViaSet::maxVias; ++i) set.viaKeyIs(LfibViaKey(LfibViaType(6), i));
  EXPECT_THROW(set.viaKeyIs(LfibViaKey(LfibViaType(6), 99)), Vel::RangeException);
  EXPECT_EQ(set.viaKey(15), LfibViaKey(LfibViaType(6), 15));
  EXPECT_TRUE(!set.viaKey(16));
}

}  // namespace
