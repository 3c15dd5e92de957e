#include <gtest/gtest.h>

#include <random>

#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"
#include "tests/NoxEvpn/TraceCapture.h"

// What the tests read of the machine's reactors, and the reactor mutators they call to provoke
// the null-member error.
template <>
struct Vel::Internals<Nox::VlanFloodSetFilterSm> {
  using Sm = Nox::VlanFloodSetFilterSm;
  static std::size_t vlanFloodSets(Sm const& sm) { return sm.vlanFloodSets(); }
  static std::size_t floodSets(Sm const& sm, Bridging::VlanId v) {
    return sm.vlanFloodSet(v)->floodSets();
  }
  static void vlanFloodSetIsNull(Sm& sm) { sm.vlanFloodSetIs(nullptr); }
  static void floodSetIsNull(Sm& sm, Bridging::VlanId v) {
    sm.vlanFloodSet(v)->floodSetIs(nullptr);
  }
};

namespace {

using FilterInternals = Vel::Internals<Nox::VlanFloodSetFilterSm>;

using L2Rib::destTypeMpls_;
using Lines = std::set<std::string>;
using NoxTest::dest;
using NoxTest::mac;
using NoxTest::render;
using NoxTest::vlan;

class FilterTest : public ::testing::Test {
 protected:
  void start() { sm = Nox::vlanFloodSetFilterSmFactory(destTypeMpls_, in, out); }
  Vel::Ptr<L2Rib::FloodSet> floodSet(uint16_t v, uint64_t m) {
    return in->vlanFloodSetIs(vlan(v))->floodSetIs(mac(m));
  }

  Vel::Ptr<L2Rib::FloodSetOutput> in = L2Rib::floodSetOutputFactory();
  Vel::Ptr<L2Rib::FloodSetOutput> out = L2Rib::floodSetOutputFactory();
  Vel::Ptr<Nox::VlanFloodSetFilterSm> sm;
};

TEST_F(FilterTest, OnlyMatchingDestinationsPassAndOtherTypesCreateNoOutput) {
  start();
  auto fs = floodSet(10, 1);
  fs->destSetIs(dest("intf/1/Ethernet1"), true);
  fs->destSetIs(dest("vxlan/2/10.0.0.2"), true);
  fs->destSetIs(dest("tunnel/4/Tunnel6"), true);
  fs->destSetIs(dest("none/5"), true);
  floodSet(20, 2)->destSetIs(dest("intf/6/Ethernet2"), true);
  EXPECT_EQ(out->vlanFloodSets(), 0u);
  fs->destSetIs(dest("mpls/3/Tunnel5/1000"), false);
  EXPECT_EQ(render(*out),
            (Lines{"source 0", "10 00:00:00:00:00:01 mpls/3/Tunnel5/1000 flag=false type=0"}));
}

TEST_F(FilterTest, LosingTheLastMatchingDestinationRemovesFloodSetAndEmptyVlan) {
  start();
  auto fs = floodSet(10, 1);
  fs->destSetIs(dest("intf/1/Ethernet1"), true);
  fs->destSetIs(dest("mpls/3/Tunnel5/1000"), true);
  auto other = floodSet(10, 2);
  other->destSetIs(dest("mpls/4/Tunnel5/1001"), true);
  fs->destSetDel(dest("mpls/3/Tunnel5/1000"));
  EXPECT_EQ(render(*out),
            (Lines{"source 0", "10 00:00:00:00:00:02 mpls/4/Tunnel5/1001 flag=true type=0"}));
  other->destSetDel(dest("mpls/4/Tunnel5/1001"));
  EXPECT_EQ(out->vlanFloodSets(), 0u);
}

TEST_F(FilterTest, RemovingMacsAndVlansRemovesTheirOutput) {
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  floodSet(10, 2)->destSetIs(dest("mpls/2/Tunnel5/1000"), true);
  floodSet(20, 1)->destSetIs(dest("mpls/3/Tunnel5/1000"), true);
  in->vlanFloodSet(vlan(10))->floodSetDel(mac(1));
  EXPECT_EQ(render(*out),
            (Lines{"source 0", "10 00:00:00:00:00:02 mpls/2/Tunnel5/1000 flag=true type=0",
                   "20 00:00:00:00:00:01 mpls/3/Tunnel5/1000 flag=true type=0"}));
  in->vlanFloodSet(vlan(10))->floodSetDel(mac(2));
  EXPECT_FALSE(out->vlanFloodSetIsMemberOf(vlan(10)));
  in->vlanFloodSetDel(vlan(20));
  EXPECT_EQ(out->vlanFloodSets(), 0u);
  // Reactors follow the input: the emptied VLAN 10 is still there, VLAN 20 is gone.
  EXPECT_EQ(FilterInternals::vlanFloodSets(*sm), 1u);
  EXPECT_EQ(FilterInternals::floodSets(*sm, vlan(10)), 0u);
}

TEST_F(FilterTest, SourceFlagAndTypeFollowTheInput) {
  in->sourceIs(7);
  auto fs = floodSet(10, 1);
  fs->floodSetTypeIs(L2Rib::FloodSetType{1});
  fs->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  start();
  EXPECT_EQ(out->source(), 7u);
  in->sourceIs(8);
  fs->destSetIs(dest("mpls/1/Tunnel5/1000"), false);
  fs->floodSetTypeIs(L2Rib::FloodSetType{2});
  EXPECT_EQ(render(*out),
            (Lines{"source 8", "10 00:00:00:00:00:01 mpls/1/Tunnel5/1000 flag=false type=2"}));
}

TEST_F(FilterTest, StoppedMachineLeavesItsOutputAndARestartOnlyAdds) {
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  sm = nullptr;
  floodSet(10, 1)->destSetDel(dest("mpls/1/Tunnel5/1000"));
  floodSet(10, 2)->destSetIs(dest("mpls/2/Tunnel6/1000"), true);
  EXPECT_EQ(out->vlanFloodSet(vlan(10))->floodSets(), 1u);
  start();
  EXPECT_EQ(render(*out),
            (Lines{"source 0", "10 00:00:00:00:00:01 mpls/1/Tunnel5/1000 flag=true type=0",
                   "10 00:00:00:00:00:02 mpls/2/Tunnel6/1000 flag=true type=0"}));
}

TEST_F(FilterTest, NullReactorMembersRaiseTheRangeErrorAndChangeNothing) {
  start();
  floodSet(10, 1);
  NoxTest::expectRangeError([&] { FilterInternals::vlanFloodSetIsNull(*sm); },
                            "null _vlanFloodSet parameter to mutator for "
                            "Nox::VlanFloodSetFilterSm::vlanFloodSet not allowed\"");
  NoxTest::expectRangeError([&] { FilterInternals::floodSetIsNull(*sm, vlan(10)); },
                            "null _floodSet parameter to mutator for "
                            "Nox::VlanFloodSetFilterSm::VelVlanFloodSet::floodSet not allowed\"");
  EXPECT_EQ(FilterInternals::vlanFloodSets(*sm), 1u);
  EXPECT_EQ(FilterInternals::floodSets(*sm, vlan(10)), 1u);
}

// The exact texts of each change path, with the entry traces that lead to them.
class FilterTraceTest : public FilterTest {
 protected:
  std::vector<std::string> traced() { return capture.traced(); }
  NoxTest::TraceCapture capture{8};
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

TEST_F(FilterTraceTest, ChangeTracesAreLevelOneAndEntryTracesLevelEight) {
  Trace::levelIs("NoxEvpn", 1);
  start();
  floodSet(10, 1)->destSetIs(dest("mpls/3/Tunnel5/1000"), true);
  EXPECT_EQ(traced(), (Texts{"     adding dest mpls/3/Tunnel5/1000"}));
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
      ASSERT_EQ(render(*out), NoxTest::renderRestricted(*in, destTypeMpls_))
          << "seed " << seed << " step " << step;
    }
    auto fresh = L2Rib::floodSetOutputFactory();
    auto rebuilt = Nox::vlanFloodSetFilterSmFactory(destTypeMpls_, in, fresh);
    ASSERT_EQ(render(*fresh), render(*out)) << "seed " << seed;
  }
}

}  // namespace
