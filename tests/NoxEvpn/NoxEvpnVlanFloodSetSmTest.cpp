#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "NoxEvpn/NoxEvpnVlanFloodSetSm.h"
#include "tests/NoxEvpn/FloodSetTestUtil.h"
#include "tests/NoxEvpn/TraceCapture.h"

// What the tests read of the machine's own collections.
template <>
struct Vel::Internals<Nox::EvpnVlanFloodSetSm> {
  using Sm = Nox::EvpnVlanFloodSetSm;
  static auto const& tunnelToFloodSetEntry(Sm const& sm) { return sm.tunnelToFloodSetEntryColl(); }
  static auto const& hwInfoMapKeyToFloodSetEntry(Sm const& sm) {
    return sm.hwInfoMapKeyToFloodSetEntryColl();
  }
  static auto const& mplsDestHwConfig(Sm const& sm) { return sm.mplsDestHwConfigColl(); }
};

namespace {

using FloodSetInternals = Vel::Internals<Nox::EvpnVlanFloodSetSm>;

using Lines = std::set<std::string>;
using Nox::HwTunnelId;
using Nox::TunnelId;
using NoxTest::dest;
using NoxTest::mac;
using NoxTest::via;
using NoxTest::vlan;

// Hardware configuration as lines "VLAN MAC tunnel=T label=L hwTunnelId=H hwId=X l2Intf=I".
Lines render(Nox::EvpnVlanFloodSetHwConfig const& hw) {
  Lines lines;
  for (auto [pair, config] : hw.configColl()) {
    if (config->mplsDestConfigs() == 0) lines.insert(pair.macAddr().stringValue() + " empty");
    for (auto [c, flag] : config->mplsDestConfigColl()) {
      lines.insert(NoxTest::text(pair.vlanId(), " ", pair.macAddr(), " tunnel=", c.tunnelId(),
                                 " label=", c.label(), " hwTunnelId=", c.hwTunnelId(),
                                 " hwId=", c.hwIdForTunnelProgramming(), " l2Intf=", c.l2IntfId()));
    }
  }
  return lines;
}

Nox::MplsDestHwInfo hwInfo(uint64_t hwId, std::string const& l2) {
  return Nox::MplsDestHwInfo(hwId, Gantry::IntfId(l2));
}

// The machine's destinations by tunnel and by via (the keys and destinations as text), as it
// holds them or as the input makes them: each key's destinations in input order, the keys in the
// order of their first destination. A cold start holds them in that order, the order the machine
// works through them when their hardware information comes.
using Index = std::vector<std::pair<std::string, std::vector<std::string>>>;
using Indexes = std::pair<Index, Index>;

Indexes held(Nox::EvpnVlanFloodSetSm const& sm) {
  auto index = [](auto const& byKey) {
    Index out;
    for (auto [key, set] : byKey) {
      out.push_back({Vel::toStrep(key), {}});
      for (auto [d, flag] : set->vlanMacDestSetColl()) out.back().second.push_back(Vel::toStrep(d));
    }
    return out;
  };
  return {index(FloodSetInternals::tunnelToFloodSetEntry(sm)),
          index(FloodSetInternals::hwInfoMapKeyToFloodSetEntry(sm))};
}

Indexes fromInput(L2Rib::FloodSetOutput const& in) {
  Indexes out;
  auto note = [](Index& index, std::string const& key, std::string const& d) {
    auto at =
        std::find_if(index.begin(), index.end(), [&](auto const& e) { return e.first == key; });
    if (at == index.end()) at = index.insert(at, {key, {}});
    at->second.push_back(d);
  };
  for (auto [v, vfs] : in.vlanFloodSetColl()) {
    for (auto [m, fs] : vfs->floodSetColl()) {
      for (auto [d, flag] : fs->destSetColl()) {
        Nox::MplsFloodSetVia const via(d.destDataMpls().tunnelId(), d.destDataMpls().label);
        std::string const text = Vel::toStrep(Nox::VlanMacDest(v, m, d));
        note(out.first, Vel::toStrep(via.tunnelId()), text);
        note(out.second, Vel::toStrep(via), text);
      }
    }
  }
  return out;
}

// The same contents in an order of their own, for a machine that has lived through changes.
Indexes sorted(Indexes indexes) {
  for (Index* index : {&indexes.first, &indexes.second}) {
    for (auto& [key, dests] : *index) std::sort(dests.begin(), dests.end());
    std::sort(index->begin(), index->end());
  }
  return indexes;
}

class FloodSetSmTest : public ::testing::Test {
 protected:
  // The tunnel table as its writer leaves it at the end of its initialization.
  FloodSetSmTest() { tunnels->tunnelIdToHwTunnelIdReadyIs(true); }
  void start() { sm = Nox::evpnVlanFloodSetSmFactory(in, tunnels, hwInfos, hwConfig, hwStatus); }
  Vel::Ptr<L2Rib::FloodSet> floodSet(uint16_t v, uint64_t m) {
    return in->vlanFloodSetIs(vlan(v))->floodSetIs(mac(m));
  }
  std::vector<std::string> traced() { return capture.traced(); }

  NoxTest::TraceCapture capture{1};
  Vel::Ptr<L2Rib::FloodSetOutput> in = L2Rib::floodSetOutputFactory();
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels =
      Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
  Vel::Ptr<Nox::HwInfoMapping> hwInfos = Nox::hwInfoMappingFactory();
  Vel::Ptr<Nox::EvpnVlanFloodSetHwConfig> hwConfig = Nox::evpnVlanFloodSetHwConfigFactory();
  Vel::Ptr<Nox::EvpnVlanFloodSetHwStatus> hwStatus = Nox::evpnVlanFloodSetHwStatusFactory();
  Vel::Ptr<Nox::EvpnVlanFloodSetSm> sm;
};

using Texts = std::vector<std::string>;

// A destination waits for its via's hardware information, then, published without one, for its
// tunnel's hardware id; an update that still lacks it keeps the time, and a destination that
// leaves the flood sets stops waiting.
TEST_F(FloodSetSmTest, PendingListsDestinationsWaitingForHwInfoOrAHwTunnelIdSinceTheyWait) {
  using Items = std::vector<Nox::PendingItem>;
  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  tunnels->tunnelIdToHwTunnelIdReadyIs(false);
  start();
  sm->clockIs(clock);
  clock->advanceTo(1.0);
  floodSet(100, 0x100)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  std::string const key = "100 00:00:00:00:01:00 mpls/1/Tunnel5/1000";
  EXPECT_EQ(sm->pending(), (Items{{"floodset", key, "no hw info for via 5/1000", 1.0}}));
  clock->advanceTo(2.0);
  hwInfos->mappingIs(via(5, 1000), hwInfo(70001, "L2Intf101"));
  Items const noTunnelId{{"floodset", key, "no hw tunnel id for tunnel 5", 2.0}};
  EXPECT_EQ(sm->pending(), noTunnelId);
  clock->advanceTo(3.0);
  hwInfos->mappingIs(via(5, 1000), hwInfo(70002, "L2Intf102"));
  EXPECT_EQ(sm->pending(), noTunnelId);
  tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(TunnelId(5), HwTunnelId(9)));
  tunnels->tunnelIdToHwTunnelIdReadyIs(true);
  EXPECT_EQ(sm->pending(), Items{});
  floodSet(100, 0x100)->destSetIs(dest("mpls/2/Tunnel6/1000"), true);
  EXPECT_EQ(sm->pending().size(), 1u);
  in->vlanFloodSetDel(vlan(100));
  EXPECT_EQ(sm->pending(), Items{});
}

// Large enough that a tunnel's and a via's destinations are many, over vias with hardware
// information and without; the via that comes late is then worked through in input order.
TEST_F(FloodSetSmTest, ColdStartKeepsInputOrderPerTunnelAndVia) {
  hwInfos->mappingIs(via(5, 1000), hwInfo(1, "L2Intf1"));
  for (uint16_t v = 1; v <= 4; ++v) {
    for (uint64_t m = 1; m <= 4; ++m) {
      for (int i = 0; i < 6; ++i) {
        std::string const text = "mpls/" + std::to_string(100 * v + 10 * m + i) + "/Tunnel" +
                                 std::to_string(5 + i % 2) + "/" + std::to_string(1000 + i % 3);
        floodSet(v, m)->destSetIs(dest(text), true);
      }
    }
  }
  start();
  EXPECT_EQ(held(*sm), fromInput(*in));
  Trace::levelIs("NoxEvpn", 8);
  traced();
  hwInfos->mappingIs(via(6, 1001), hwInfo(2, "L2Intf2"));
  Texts added;
  for (auto const& line : traced()) {
    if (line.find("addOrUpdateMplsDestHwConfig") != std::string::npos) added.push_back(line);
  }
  ASSERT_EQ(added.size(), 16u);
  EXPECT_NE(added.front().find("vlan: 1 mac: 00:00:00:00:00:01 dest: mpls/111/"), std::string::npos)
      << added.front();
  EXPECT_NE(added.back().find("vlan: 4 mac: 00:00:00:00:00:04 dest: mpls/441/"), std::string::npos)
      << added.back();
}

TEST_F(FloodSetSmTest, HardwareTunnelIdChangeUpdatesConfigsWithoutEmptyingThePair) {
  hwInfos->mappingIs(via(6, 1000), hwInfo(1099511627776ull, "L2Intf103"));
  floodSet(101, 0x100)->destSetIs(dest("mpls/3/Tunnel6/1000"), true);
  start();
  struct PairWatch : Nox::EvpnVlanFloodSetHwConfig::NotifieeConst {
    explicit PairWatch(Vel::Ptr<Nox::EvpnVlanFloodSetHwConfig const> const& c) : NotifieeConst(c) {}
    void onConfig(Bridging::MacVlanPair const&) override { ++pairChanges; }
    int pairChanges = 0;
  } watch(hwConfig);
  tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(TunnelId(6), HwTunnelId(600)));
  EXPECT_EQ(render(*hwConfig), (Lines{"101 00:00:00:00:01:00 tunnel=6 label=1000 hwTunnelId=600 "
                                      "hwId=1099511627776 l2Intf=L2Intf103"}));
  EXPECT_EQ(watch.pairChanges, 0);
  EXPECT_EQ(hwConfig->config({mac(0x100), vlan(101)})->mplsDestConfigs(), 1u);

  // Hardware information that no destination uses (an unused id is the tunnels-direct
  // scenario's).
  traced();
  hwInfos->mappingIs(via(9, 1000), hwInfo(1, "L2Intf1"));
  EXPECT_EQ(traced(), (Texts{" hwId is not ready "}));
}

// The agent that reads the configuration may react to it at once, on the same thread: here it
// withdraws the via as soon as the updated configuration appears. The machine must end with
// nothing published and nothing recorded for the destination, not with the update it was making.
TEST_F(FloodSetSmTest, WatcherWithdrawingTheViaDuringAnUpdateLeavesNothingPublished) {
  hwInfos->mappingIs(via(5, 1000), hwInfo(1, "L2Intf1"));
  floodSet(100, 0x100)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  start();
  struct WithdrawOnUpdate : Nox::VlanFloodSetConfig::NotifieeConst {
    WithdrawOnUpdate(Vel::Ptr<Nox::VlanFloodSetConfig const> const& c, Nox::HwInfoMapping* m)
        : NotifieeConst(c), hwInfos(m) {}
    void onMplsDestConfig(Nox::MplsDestConfig const& c) override {
      if (notifier()->mplsDestConfigIsMemberOf(c) && c.hwIdForTunnelProgramming() == 2) {
        hwInfos->mappingDel(via(5, 1000));
      }
    }
    Nox::HwInfoMapping* hwInfos;
  } watch(hwConfig->config({mac(0x100), vlan(100)}), hwInfos.ptr());

  hwInfos->mappingIs(via(5, 1000), hwInfo(2, "L2Intf2"));
  EXPECT_TRUE(render(*hwConfig).empty());
  EXPECT_EQ(hwConfig->configs(), 0u);
  EXPECT_EQ(FloodSetInternals::mplsDestHwConfig(*sm).count(), 0u);

  // The destination waits for its via as any other and is published when it comes back.
  hwInfos->mappingIs(via(5, 1000), hwInfo(3, "L2Intf3"));
  EXPECT_EQ(
      render(*hwConfig),
      (Lines{"100 00:00:00:00:01:00 tunnel=5 label=1000 hwTunnelId=0 hwId=3 l2Intf=L2Intf3"}));
}

// While its writer rebuilds the tunnel table the machine neither reads it nor follows it, and
// keeps what it published; once the table is ready again every tunnel in use is looked at.
TEST_F(FloodSetSmTest, TunnelTableIsUsedOnlyWhileReady) {
  tunnels->tunnelIdToHwTunnelIdReadyIs(false);
  tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(TunnelId(6), HwTunnelId(600)));
  hwInfos->mappingIs(via(6, 1000), hwInfo(1, "L2Intf1"));
  floodSet(101, 0x100)->destSetIs(dest("mpls/3/Tunnel6/1000"), true);
  start();
  tunnels->tunnelIdToHwTunnelIdIs(Nox::TunnelIdToHwTunnelId(TunnelId(6), HwTunnelId(601)));
  auto config = [](unsigned hwTunnelId) {
    return Lines{"101 00:00:00:00:01:00 tunnel=6 label=1000 hwTunnelId=" +
                 std::to_string(hwTunnelId) + " hwId=1 l2Intf=L2Intf1"};
  };
  EXPECT_EQ(render(*hwConfig), config(0));
  tunnels->tunnelIdToHwTunnelIdReadyIs(true);
  EXPECT_EQ(render(*hwConfig), config(601));

  tunnels->tunnelIdToHwTunnelIdReadyIs(false);
  tunnels->tunnelIdToHwTunnelIdDelAll();
  EXPECT_EQ(render(*hwConfig), config(601));
  tunnels->tunnelIdToHwTunnelIdReadyIs(true);
  EXPECT_EQ(render(*hwConfig), config(0));
}

// Status is only traced; anything but `programmed`, invalidHwId too, reads as not programmed.
TEST_F(FloodSetSmTest, RenotifiedUnchangedDestinationWritesNothingAndStatusIsOnlyTraced) {
  hwInfos->mappingIs(via(5, 3), hwInfo(7, "L2Intf7"));
  auto fs = floodSet(10, 1);
  fs->destSetIs(dest("mpls/1/Tunnel5/3"), true);
  start();
  traced();
  fs->destSetIs(dest("mpls/1/Tunnel5/3"), false);  // a flag change notifies the destination
  EXPECT_EQ(traced(),
            (Texts{"   add entry to internal mappings",
                   "   no change in hardware config, skip Value('Nox::MplsDestConfig', ** "
                   "{'tunnelId': 5, 'label': imp-null(3), 'hwTunnelId': 0, "
                   "'hwIdForTunnelProgramming': 7, 'l2IntfId': L2Intf7})"}));
  auto config = *hwConfig->config({mac(1), vlan(10)})->mplsDestConfigColl().firstKey();
  hwStatus->statusIs({mac(1), vlan(10)})->mplsDestStatusIs(config, Nox::invalidHwId);
  EXPECT_EQ(traced(), (Texts{"  config is not programmed in hardware"}));
}

TEST_F(FloodSetSmTest, StartupRemovesConfigurationsLeftByAnEarlierInstance) {
  hwConfig->configIs({mac(9), vlan(9)})
      ->mplsDestConfigIs(Nox::MplsDestConfig(TunnelId(1), Gantry::MplsLabel(1), HwTunnelId(), 1,
                                             Gantry::IntfId("L2Intf1")),
                         true);
  hwInfos->mappingIs(via(5, 1000), hwInfo(1, "L2Intf1"));
  floodSet(10, 1)->destSetIs(dest("mpls/1/Tunnel5/1000"), true);
  start();
  EXPECT_EQ(render(*hwConfig),
            (Lines{"10 00:00:00:00:00:01 tunnel=5 label=1000 hwTunnelId=0 hwId=1 l2Intf=L2Intf1"}));
}

TEST_F(FloodSetSmTest, NonMplsDestinationIsAProgrammingError) {
  start();
  EXPECT_DEATH(floodSet(10, 1)->destSetIs(dest("intf/1/Ethernet1"), true),
               "src-includes/NoxEvpn/NoxEvpnVlanFloodSetSm:[0-9]+: .*processMplsDest.*"
               "Assertion `dest.destType\\(\\) == L2Rib::destTypeMpls_' failed");
}

// Random interleavings of flood-set changes, hardware information and hardware tunnel ids.
// After every step: the output is exactly the configuration of every input destination whose
// via has hardware information, the internal mappings hold exactly the input's destinations,
// and mplsDestHwConfig agrees with the output. A machine built over the final inputs agrees.
class FloodSetSmProperty : public FloodSetSmTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(FloodSetSmProperty, InvariantsHoldAfterEveryStep) {
  std::mt19937 rng(GetParam());
  auto pick = [&rng](unsigned n) { return static_cast<unsigned>(rng() % n); };
  start();
  // Destination i uses tunnel 1 + i % 3 and label 100 + i: no two share a via.
  auto destOf = [](unsigned i) {
    return L2Rib::Dest::mpls(L2Rib::DestId(i),
                             Gantry::IntfId(Gantry::IntfId::Kind::tunnel, 1 + i % 3),
                             Gantry::MplsLabel(100 + i));
  };
  auto expected = [&] {
    Lines lines;
    for (auto [v, vfs] : in->vlanFloodSetColl()) {
      for (auto [m, fs] : vfs->floodSetColl()) {
        for (auto [d, flag] : fs->destSetColl()) {
          Nox::MplsFloodSetVia const key(d.destDataMpls().tunnelId(), d.destDataMpls().label);
          if (!hwInfos->mappingIsMemberOf(key)) continue;
          auto info = hwInfos->mapping(key);
          lines.insert(NoxTest::text(
              v, " ", m, " tunnel=", key.tunnelId(), " label=", key.label(),
              " hwTunnelId=", tunnels->tunnelIdToHwTunnelId(key.tunnelId()).hwTunnelId(),
              " hwId=", info.hwIdForTunnelProgramming(), " l2Intf=", info.l2IntfId()));
        }
      }
    }
    return lines;
  };
  for (int step = 0; step < 500; ++step) {
    auto v = vlan(static_cast<uint16_t>(1 + pick(3)));
    auto m = mac(1 + pick(3));
    unsigned const i = pick(9);
    switch (pick(9)) {
      case 0:
      case 1:
      case 2:
        in->vlanFloodSetIs(v)->floodSetIs(m)->destSetIs(destOf(i), pick(2));
        break;
      case 3:
        if (auto vfs = in->vlanFloodSet(v); vfs && vfs->floodSet(m))
          vfs->floodSet(m)->destSetDel(destOf(i));
        break;
      case 4:
        if (auto vfs = in->vlanFloodSet(v)) vfs->floodSetDel(m);
        if (pick(3) == 0) in->vlanFloodSetDel(v);
        break;
      case 5:
      case 6:
        hwInfos->mappingIs(Nox::MplsFloodSetVia(TunnelId(1 + i % 3), Gantry::MplsLabel(100 + i)),
                           hwInfo(pick(3), "L2Intf" + std::to_string(pick(3))));
        break;
      case 7:
        hwInfos->mappingDel(Nox::MplsFloodSetVia(TunnelId(1 + i % 3), Gantry::MplsLabel(100 + i)));
        break;
      case 8:
        if (pick(3)) {
          tunnels->tunnelIdToHwTunnelIdIs({TunnelId(1 + pick(3)), HwTunnelId(pick(4))});
        } else {
          tunnels->tunnelIdToHwTunnelIdDel(TunnelId(1 + pick(3)));
        }
        break;
    }
    ASSERT_EQ(render(*hwConfig), expected()) << "step " << step;
    // The internal mappings hold exactly the input's destinations, and no entry left empty.
    ASSERT_EQ(sorted(held(*sm)), sorted(fromInput(*in))) << "step " << step;
    std::size_t published = 0;
    for (auto [d, config] : FloodSetInternals::mplsDestHwConfig(*sm)) {
      auto pairConfig = hwConfig->config(d.pair());
      ASSERT_TRUE(pairConfig && pairConfig->mplsDestConfigIsMemberOf(config)) << "step " << step;
      ++published;
    }
    ASSERT_EQ(published, render(*hwConfig).size());
  }
  auto fresh = Nox::evpnVlanFloodSetHwConfigFactory();
  auto rebuilt = Nox::evpnVlanFloodSetSmFactory(in, tunnels, hwInfos, fresh, hwStatus);
  EXPECT_EQ(render(*fresh), render(*hwConfig));
  EXPECT_EQ(held(*rebuilt), fromInput(*in));
}

INSTANTIATE_TEST_SUITE_P(Seeds, FloodSetSmProperty, ::testing::Range(1u, 21u));

}  // namespace
