#include <gtest/gtest.h>

#include <random>

#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"
#include "tests/NoxEvpn/TraceCapture.h"

namespace {

using L2Rib::destTypeMpls_;
using NoxTest::dest;
using NoxTest::mac;
using NoxTest::render;
using NoxTest::vlan;

// The exact texts of each change path, with the entry traces that lead to them.
class FilterTraceTest : public ::testing::Test {
 protected:
  void start() { sm = Nox::vlanFloodSetFilterSmFactory(destTypeMpls_, in, out); }
  Vel::Ptr<L2Rib::FloodSet> floodSet(uint16_t v, uint64_t m) {
    return in->vlanFloodSetIs(vlan(v))->floodSetIs(mac(m));
  }
  std::vector<std::string> traced() { return capture.traced(); }

  NoxTest::TraceCapture capture{8};
  Vel::Ptr<L2Rib::FloodSetOutput> in = L2Rib::floodSetOutputFactory();
  Vel::Ptr<L2Rib::FloodSetOutput> out = L2Rib::floodSetOutputFactory();
  Vel::Ptr<Nox::VlanFloodSetFilterSm> sm;
};

using Texts = std::vector<std::string>;

TEST_F(FilterTraceTest, AddingAndRemovingADestinationTracesEveryStep) {
  start();
  EXPECT_EQ(traced(), (Texts{"handleInitialized "}));
  floodSet(10, 1)->destSetIs(dest("mpls/3/Tunnel5/1000"), true);
  EXPECT_EQ(traced(), (Texts{"handleVlanFloodSet vlan: 10", " processVlanFloodSet vlan: 10",
                             "handleFloodSet vlan: 10 mac: 00:00:00:00:00:01",
                             "  processFloodSet vlan: 10 mac: 00:00:00:00:00:01",
                             "handleDestSet vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "   processDest vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "    isDestPresent vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "    addDest vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "     adding dest mpls/3/Tunnel5/1000"}));
  floodSet(10, 1)->destSetIs(dest("intf/4/Ethernet1"), true);
  EXPECT_EQ(traced(), (Texts{"handleDestSet vlan: 10 mac: 00:00:00:00:00:01 dest: 4",
                             "   processDest vlan: 10 mac: 00:00:00:00:00:01 dest: 4"}));
  floodSet(10, 1)->destSetDel(dest("mpls/3/Tunnel5/1000"));
  EXPECT_EQ(traced(), (Texts{"handleDestSet vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "   processDest vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "    isDestPresent vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "    deleteDest vlan: 10 mac: 00:00:00:00:00:01 dest: 3",
                             "     deleting dest mpls/3/Tunnel5/1000",
                             "     deleting floodSet with vlan 10 and mac 00:00:00:00:00:01",
                             "     deleting vlanFloodSet with vlan 10"}));
}

TEST_F(FilterTraceTest, RemovingMacAndVlanTraceTheirDeletions) {
  floodSet(10, 1)->destSetIs(dest("mpls/3/Tunnel5/1000"), true);
  floodSet(10, 2)->destSetIs(dest("mpls/4/Tunnel5/1000"), true);
  start();
  traced();
  in->vlanFloodSet(vlan(10))->floodSetDel(mac(1));
  EXPECT_EQ(traced(), (Texts{"handleFloodSet vlan: 10 mac: 00:00:00:00:00:01",
                             "  processFloodSet vlan: 10 mac: 00:00:00:00:00:01",
                             "   deleting floodSet with vlan 10 and mac 00:00:00:00:00:01"}));
  in->vlanFloodSetDel(vlan(10));
  EXPECT_EQ(traced(), (Texts{"handleVlanFloodSet vlan: 10", " processVlanFloodSet vlan: 10",
                             "  deleting vlanFloodSet with vlan: 10"}));
  in->sourceIs(3);
  EXPECT_EQ(traced(), (Texts{"handleSource source: 3"}));
}

// Random runs of every kind of input change; after each step the output must equal the input
// restricted to MPLS destinations, and a machine built over the final input must agree.
TEST(FilterProperty, OutputIsAlwaysTheInputRestrictedToItsType) {
  std::vector<std::string> const pool = {
      "mpls/1/Tunnel5/1000", "mpls/2/Tunnel5/1000", "mpls/3/Tunnel6/none", "mpls/4/Tunnel7/3",
      "intf/5/Ethernet1",    "vxlan/6/10.0.0.1",    "tunnel/7/Tunnel5",    "none/8"};
  for (unsigned seed = 1; seed <= 25; ++seed) {
    std::mt19937 rng(seed);
    auto pick = [&rng](unsigned n) { return static_cast<unsigned>(rng() % n); };
    auto in = L2Rib::floodSetOutputFactory();
    auto out = L2Rib::floodSetOutputFactory();
    auto sm = Nox::vlanFloodSetFilterSmFactory(destTypeMpls_, in, out);
    for (int step = 0; step < 400; ++step) {
      auto v = vlan(static_cast<uint16_t>(1 + pick(3)));
      auto m = mac(1 + pick(3));
      switch (pick(8)) {
        case 0:
        case 1:
        case 2:
          in->vlanFloodSetIs(v)->floodSetIs(m)->destSetIs(dest(pool[pick(8)]), pick(2));
          break;
        case 3:
        case 4:
          if (auto vs = in->vlanFloodSet(v); vs && vs->floodSet(m)) {
            vs->floodSet(m)->destSetDel(dest(pool[pick(8)]));
          }
          break;
        case 5:
          in->vlanFloodSetIs(v)->floodSetIs(m)->floodSetTypeIs(L2Rib::FloodSetType{pick(3)});
          break;
        case 6:
          if (auto vs = in->vlanFloodSet(v)) vs->floodSetDel(m);
          if (pick(4) == 0) in->vlanFloodSetDel(v);
          break;
        case 7:
          in->sourceIs(pick(4));
          break;
      }
      ASSERT_EQ(render(*out), render(*in, destTypeMpls_)) << "seed " << seed << " step " << step;
    }
    auto fresh = L2Rib::floodSetOutputFactory();
    auto rebuilt = Nox::vlanFloodSetFilterSmFactory(destTypeMpls_, in, fresh);
    ASSERT_EQ(render(*fresh), render(*out)) << "seed " << seed;
  }
}

}  // namespace
