// The emulated hardware agent's mirroring of the flood-set configuration into its status.

#include "tools/noxsim/HwAgent.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Noxsim {
namespace {

using Bridging::MacVlanPair;
using Nox::MplsDestConfig;

MacVlanPair pair(uint16_t vlan) {
  return MacVlanPair(Gantry::EthAddr::fromValue(0x100), Bridging::VlanId(vlan));
}

MplsDestConfig config(uint64_t tunnel, uint64_t hwId) {
  return MplsDestConfig(Nox::TunnelId(tunnel), Gantry::MplsLabel(1000), Nox::HwTunnelId(), hwId,
                        Gantry::IntfId(Gantry::IntfId::Kind::l2Intf, hwId));
}

// Records the status writes as "VLAN:TUNNEL" (or "VLAN:-" for a pair's entity), in order.
class StatusLog : public Nox::EvpnVlanFloodSetHwStatus::NotifieeConst {
 public:
  explicit StatusLog(Vel::Ptr<Nox::EvpnVlanFloodSetHwStatus const> const& s) : NotifieeConst(s) {
    for (auto [p, status] : s->statusColl()) watch(p);
  }
  void onStatus(MacVlanPair const& p) override {
    log.push_back(std::to_string(p.vlanId().value()) + ":-");
    watch(p);
  }
  std::vector<std::string> log;

 private:
  struct PairLog : Nox::VlanFloodSetStatus::NotifieeConst {
    PairLog(Vel::Ptr<Nox::VlanFloodSetStatus const> const& s, StatusLog* owner)
        : NotifieeConst(s), owner_(owner) {}
    void onMplsDestStatus(MplsDestConfig const& c) override {
      owner_->log.push_back(std::to_string(notifier()->key().vlanId().value()) + ":" +
                            std::to_string(c.tunnelId().value()));
    }
    StatusLog* owner_;
  };
  // A pair's entity removed and made again is a new entity: its writes must be logged too.
  void watch(MacVlanPair const& p) {
    auto const status = notifier()->status(p);
    if (!status) return;
    auto& pairLog = pairLogs_[p.vlanId().value()];
    if (pairLog) {
      pairLog->notifierIs(status);
    } else {
      pairLog = std::make_unique<PairLog>(status, this);
    }
  }

  std::map<int, std::unique_ptr<PairLog>> pairLogs_;
};

// The three steps as plain walks over every pair: what the agent must write, in the same order.
bool referenceReact(World& w) {
  bool changed = false;
  std::vector<std::pair<MacVlanPair, MplsDestConfig>> entries;
  for (auto [p, pairConfig] : w.hwConfig->configColl()) {
    for (auto [c, present] : pairConfig->mplsDestConfigColl()) entries.emplace_back(p, c);
  }
  for (auto const& [p, c] : entries) {
    auto const s = w.hwStatus->status(p);
    if (s && s->mplsDestStatusIsMemberOf(c) && s->mplsDestStatus(c) == Nox::programmed) continue;
    w.hwStatus->statusIs(p)->mplsDestStatusIs(c, Nox::programmed);
    changed = true;
  }
  auto published = [&](MacVlanPair const& p, MplsDestConfig const& c) {
    auto const pc = w.hwConfig->config(p);
    return pc && pc->mplsDestConfigIsMemberOf(c);
  };
  entries.clear();
  for (auto [p, s] : w.hwStatus->statusColl()) {
    for (auto [c, value] : s->mplsDestStatusColl()) {
      if (!published(p, c)) entries.emplace_back(p, c);
    }
  }
  for (auto const& [p, c] : entries) changed |= w.hwStatus->status(p)->mplsDestStatusDel(c);
  std::vector<MacVlanPair> pairs;
  for (auto [p, s] : w.hwStatus->statusColl()) {
    auto const pc = w.hwConfig->config(p);
    if (!pc || pc->mplsDestConfigs() == 0) pairs.push_back(p);
  }
  for (auto const& p : pairs) changed |= w.hwStatus->statusDel(p);
  return changed;
}

// Random edits of configuration and status, the same in two worlds; one mirrored by the agent,
// the other by the plain walks. Both must write the same statuses in the same order.
TEST(HwAgentWalkTest, WritesWhatWalkingEverythingWritesInTheSameOrder) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    World incremental, reference;
    HwAgent agent(incremental);
    StatusLog incrementalLog(incremental.hwStatus), referenceLog(reference.hwStatus);
    std::mt19937 random(seed);
    auto pick = [&](unsigned n) { return unsigned(random() % n); };
    bool on = false;
    for (int step = 0; step < 300; ++step) {
      MacVlanPair const p = pair(uint16_t(1 + pick(5)));
      MplsDestConfig const c = config(1 + pick(4), 1);
      auto const status = static_cast<Nox::HwProgrammingStatus>(pick(3));
      unsigned const op = pick(9);
      for (World* w : {&incremental, &reference}) {
        switch (op) {
          case 0:
          case 1:
            w->hwConfig->configIs(p)->mplsDestConfigIs(c, true);
            break;
          case 2:
            if (auto pc = w->hwConfig->config(p)) pc->mplsDestConfigDel(c);
            break;
          case 3:
            w->hwConfig->configDel(p);
            break;
          case 4:
            w->hwStatus->statusIs(p)->mplsDestStatusIs(c, status);
            break;
          case 5:
            if (auto s = w->hwStatus->status(p)) s->mplsDestStatusDel(c);
            break;
          case 6:
            w->hwStatus->statusDel(p);
            break;
          default:
            break;
        }
      }
      if (op == 7) agent.autoOnIs(on = !on);
      if (op >= 7 && on) {
        bool const agentChanged = agent.react();
        ASSERT_EQ(agentChanged, referenceReact(reference)) << "seed " << seed << " step " << step;
      }
      ASSERT_EQ(incrementalLog.log, referenceLog.log) << "seed " << seed << " step " << step;
    }
  }
}

}  // namespace
}  // namespace Noxsim
