#include <gtest/gtest.h>

#include <sstream>

#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/Tunnel/Tunnel.h"
#include "platform/vel/Exception.h"

namespace {

using Gantry::EthAddr;
using Gantry::IntfId;
using Gantry::MplsLabel;
using Tunnel::TunnelTable::TunnelId;

template <class T>
std::string streamed(T const& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(IntfId, NamesRoundTripNormalisedKindsAreToldAndOrderIsByKindThenNumber) {
  EXPECT_EQ(IntfId("Ethernet01").name(), "Ethernet1");
  EXPECT_EQ(IntfId("Port-Channel7").name(), "Port-Channel7");
  EXPECT_EQ(IntfId("Tunnel72057594037927935").number(), IntfId::maxNumber);
  EXPECT_EQ(IntfId("L2Intf3").kind(), IntfId::Kind::l2Intf);
  EXPECT_EQ(streamed(IntfId()), "");
  EXPECT_TRUE(IntfId("").empty());
  EXPECT_NE(IntfId("Ethernet5"), IntfId("Tunnel5"));
  EXPECT_LT(IntfId("Ethernet9"), IntfId("Ethernet10"));
  EXPECT_LT(IntfId("Ethernet10"), IntfId("Port-Channel1"));
  EXPECT_EQ(IntfId("Ethernet3").hash(), IntfId("Ethernet03").hash());
}

TEST(IntfId, BadNamesAreRefused) {
  for (char const* bad : {"Ethernet", "Ethernet1x", "Eth1", "Tunnel72057594037927936", "-1"}) {
    EXPECT_FALSE(IntfId::fromName(bad)) << bad;
    EXPECT_THROW(IntfId{std::string_view(bad)}, Vel::RangeException) << bad;
  }
}

TEST(EthAddr, ParsesPrintsAndOrdersAsA48BitNumber) {
  auto mac = EthAddr::fromString("00:1A:02:03:04:ff");
  ASSERT_TRUE(mac);
  EXPECT_EQ(mac->stringValue(), "00:1a:02:03:04:ff");
  EXPECT_EQ(mac->value(), 0x001a020304ffull);
  EXPECT_LT(EthAddr::fromValue(0x0000ffffffff), EthAddr::fromValue(0x010000000000));
  for (char const* bad :
       {"00:00:00:00:00", "00:00:00:00:00:0g", "00-00-00-00-00-00", "0000:00:00:00:00:00", ""}) {
    EXPECT_FALSE(EthAddr::fromString(bad)) << bad;
  }
}

TEST(MplsLabel, ReservedAndSpecialValuesPrintByName) {
  EXPECT_EQ(MplsLabel(0).stringValue(), "exp-null-v4(0)");
  EXPECT_EQ(streamed(MplsLabel(3)), "imp-null(3)");
  EXPECT_EQ(MplsLabel(4).stringValue(), "4");
  EXPECT_EQ(MplsLabel().stringValue(), "N/A");
  EXPECT_EQ(MplsLabel(1048577).stringValue(), "(any)");
  EXPECT_EQ(MplsLabel(8388608).stringValue(), "(lu-withdraw)");
  EXPECT_EQ(MplsLabel(1048575).stringValue(), "1048575");
  EXPECT_EQ(MplsLabel(3).hash(), 0x3882835cu);  // Wang's integer hash of the value
}

TEST(TunnelId, AcceptsFortyEightBitsAndRefusesMore) {
  EXPECT_EQ(TunnelId(281474976710655ull).value(), 281474976710655ull);
  try {
    TunnelId id(281474976710656ull);
    FAIL() << "accepted " << id;
  } catch (Vel::RangeException const& e) {
    EXPECT_STREQ(e.what(),
                 "TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed");
  }
  EXPECT_EQ(TunnelId::invalid(), TunnelId(0));
  EXPECT_EQ(TunnelId(5).hash(), 0xa89e5615u);  // one-at-a-time over the 8 little-endian bytes
  EXPECT_EQ(streamed(TunnelId(42)), "42");
}

TEST(IpGenAddr, ParsesBothFamiliesAndHashesItsBytesAsIpv6) {
  auto v4 = Gantry::IpGenAddr::fromString("10.0.0.2");
  auto v6 = Gantry::IpGenAddr::fromString("2001:db8:0::1");
  ASSERT_TRUE(v4 && v6);
  EXPECT_EQ(v4->stringValue(), "10.0.0.2");
  EXPECT_EQ(v6->stringValue(), "2001:db8::1");
  EXPECT_EQ(v4->hash(), Gantry::Ip6Addr(v4->bytes()).hash());
  EXPECT_NE(v4->hash(), v6->hash());
  EXPECT_FALSE(Gantry::IpGenAddr::fromString("10.0.0.256"));
}

TEST(MacVlanPair, OrdersByMacThenVlanAndPrintsItsFields) {
  Bridging::MacVlanPair a(EthAddr::fromValue(1), Bridging::VlanId(20));
  Bridging::MacVlanPair b(EthAddr::fromValue(2), Bridging::VlanId(10));
  Bridging::MacVlanPair c(EthAddr::fromValue(2), Bridging::VlanId(11));
  EXPECT_LT(a, b);
  EXPECT_LT(b, c);
  EXPECT_EQ(b, Bridging::MacVlanPair(EthAddr::fromValue(2), Bridging::VlanId(10)));
  EXPECT_EQ(streamed(a),
            "Value('Bridging::MacVlanPair', ** {'macAddr': 00:00:00:00:00:01, 'vlanId': 20})");
  EXPECT_EQ(streamed(Bridging::VlanIdOrNone()), "0");
}

}  // namespace
