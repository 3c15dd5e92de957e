#include <gtest/gtest.h>

#include <vector>

#include "platform/types/L2Rib/L2Rib.h"
#include "platform/vel/Hash.h"

namespace {

using L2Rib::Dest;
using L2Rib::DestId;

Dest parse(char const* text) {
  auto d = Dest::fromString(text);
  EXPECT_TRUE(d) << text;
  return d.value_or(Dest());
}

TEST(Dest, TextFormRoundTripsForEveryType) {
  for (char const* text :
       {"intf/1/Ethernet1", "vxlan/2/10.0.0.2", "vxlan/9/2001:db8::1", "mpls/3/Tunnel5/1000",
        "tunnel/4/Tunnel6", "none/18446744073709551615"}) {
    EXPECT_EQ(parse(text).stringValue(), text);
  }
  EXPECT_EQ(parse("mpls/1/Tunnel5/none").stringValue(), "mpls/1/Tunnel5/N/A");
  EXPECT_EQ(parse("mpls/1/Tunnel05/3").stringValue(), "mpls/1/Tunnel5/imp-null(3)");
}

// A refusal names the part that is wrong, so a user can mend a scenario line at once.
TEST(Dest, MalformedTextIsRefusedNamingTheWrongPart) {
  std::vector<std::pair<char const*, char const*>> const cases{
      {"mpls/1/Ethernet5/1000", "'Ethernet5' is not a tunnel interface (TunnelN)"},
      {"mpls/1/Tunnel5", "want mpls/ID/TunnelN/LABEL"},
      {"mpls/x/Tunnel5/1", "bad id 'x' (a 64-bit decimal number)"},
      {"mpls/1/Tunnel5/1048576", "bad label '1048576' (0-1048575 or none)"},
      {"tunnel/1/Ethernet1", "'Ethernet1' is not a tunnel interface (TunnelN)"},
      {"intf/1", "want intf/ID/INTF"},
      {"intf/1/Ethernetx", "bad interface 'Ethernetx'"},
      {"vxlan/1/10.0.0", "bad IP address '10.0.0'"},
      {"none", "want none/ID"},
      {"none/1/x", "want none/ID"},
      {"bogus/1/Ethernet1", "unknown kind 'bogus' (intf, vxlan, mpls, tunnel or none)"},
      {"", "unknown kind ''"}};
  for (auto const& [bad, reason] : cases) {
    std::string why;
    EXPECT_FALSE(Dest::fromString(bad, &why)) << bad;
    EXPECT_EQ(why.rfind(reason, 0), 0u) << bad << ": " << why;
  }
}

TEST(Dest, HashComesFromTheTypesDataOnlyAndEqualityFromIdTypeAndData) {
  // mpls: one-at-a-time over the tunnel interface's hash, then Wang's hash of the label.
  Vel::OneAtATimeHash h;
  h.addLittleEndian32(Gantry::IntfId("Tunnel5").hash());
  h.addLittleEndian32(Vel::wangHash32(1000));
  Dest const a = parse("mpls/1/Tunnel5/1000");
  EXPECT_EQ(a.hash(), h.finish());
  EXPECT_EQ(parse("mpls/2/Tunnel5/1000").hash(), a.hash());
  EXPECT_EQ(parse("none/5").hash(), 0u);
  EXPECT_EQ(parse("intf/1/Ethernet3").hash(), Gantry::IntfId("Ethernet3").hash());
  EXPECT_EQ(parse("tunnel/1/Tunnel3").hash(), Gantry::IntfId("Tunnel3").hash());
  auto addr = Gantry::IpGenAddr::fromString("10.0.0.2");
  EXPECT_EQ(parse("vxlan/1/10.0.0.2").hash(), addr->asIp6().hash());

  EXPECT_TRUE(a == parse("mpls/1/Tunnel05/1000"));
  EXPECT_FALSE(a == parse("mpls/2/Tunnel5/1000"));
  EXPECT_FALSE(a == parse("mpls/1/Tunnel5/1001"));
  EXPECT_TRUE(parse("none/5") == parse("none/5"));
  EXPECT_FALSE(parse("none/5") == parse("none/6"));
  // Same id, different types.
  EXPECT_FALSE(parse("intf/1/Ethernet1") == parse("tunnel/1/Tunnel1"));
}

TEST(Dest, BuiltFromAnIdAloneIsAnEmptyInterfaceDestination) {
  Dest d{DestId(7)};
  EXPECT_EQ(d.destType(), L2Rib::destTypeIntf_);
  EXPECT_TRUE(d.destDataIntf().intfId.empty());
  EXPECT_EQ(d.destDataMpls().label, Gantry::MplsLabel(1048576));
}

TEST(DestDeathTest, TypeAboveFourIsAProgrammingErrorInEqualityAndHash) {
  Dest bad = Dest::withType(DestId(1), L2Rib::DestType(5));
  EXPECT_DEATH((void)(bad == bad),
               "bool L2Rib::Dest::operator==\\(const L2Rib::Dest ?&\\) const: "
               "Assertion `0' failed");
  EXPECT_DEATH((void)bad.hash(), "U32 L2Rib::Dest::hash\\(\\) const: Assertion `0' failed");
}

TEST(Dest, TunnelIdOfTheTunnelInterfaceIsRangeChecked) {
  EXPECT_EQ(parse("mpls/1/Tunnel281474976710655/1").destDataMpls().tunnelId().value(),
            281474976710655ull);
  EXPECT_THROW(parse("mpls/1/Tunnel281474976710656/1").destDataMpls().tunnelId(),
               Vel::RangeException);
}

}  // namespace
