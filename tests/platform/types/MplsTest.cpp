#include <gtest/gtest.h>

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
  for (uint64_t i = 0; i < Mpls::LfibViaSet::maxVias; ++i)
    set.viaKeyIs(LfibViaKey(LfibViaType(6), i));
  EXPECT_THROW(set.viaKeyIs(LfibViaKey(LfibViaType(6), 99)), Vel::RangeException);
  EXPECT_EQ(set.viaKey(15), LfibViaKey(LfibViaType(6), 15));
  EXPECT_TRUE(!set.viaKey(16));
}

}  // namespace
