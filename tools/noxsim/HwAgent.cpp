// The hardware agent's mirroring of configuration into status.
//
// Each step first takes a snapshot of what it will write, then writes it, checking again just
// before each write: writing the status notifies the machines, which may change the
// configuration meanwhile.

#include "tools/noxsim/HwAgent.h"

#include <algorithm>
#include <utility>

namespace Noxsim {

namespace {

using Nox::MplsDestConfig;
using Pair = HwAgent::Pair;

bool isPublished(World const& w, Pair const& pair, MplsDestConfig const& config) {
  auto const pairConfig = w.hwConfig->config(pair);
  return pairConfig && pairConfig->mplsDestConfigIsMemberOf(config);
}

bool hasPublishedConfig(World const& w, Pair const& pair) {
  auto const pairConfig = w.hwConfig->config(pair);
  return pairConfig && pairConfig->mplsDestConfigs() > 0;
}

bool isProgrammed(World const& w, Pair const& pair, MplsDestConfig const& config) {
  auto const status = w.hwStatus->status(pair);
  return status && status->mplsDestStatusIsMemberOf(config) &&
         status->mplsDestStatus(config) == Nox::programmed;
}

}  // namespace

class HwAgent::ConfigWatch : public Nox::EvpnVlanFloodSetHwConfig::NotifieeConst {
 public:
  ConfigWatch(Vel::Ptr<Nox::EvpnVlanFloodSetHwConfig const> const& c, HwAgent* agent)
      : NotifieeConst(c), agent_(agent) {}
  void onConfig(Pair const& pair) override { agent_->configPairIs(pair); }
  VEL_DESCRIBE("Noxsim::HwAgent::ConfigWatch", "config")

 private:
  HwAgent* agent_;
};

class HwAgent::PairConfigWatch : public Nox::VlanFloodSetConfig::NotifieeConst {
 public:
  PairConfigWatch(Vel::Ptr<Nox::VlanFloodSetConfig const> const& c, HwAgent* agent)
      : NotifieeConst(c), agent_(agent) {}
  void onMplsDestConfig(MplsDestConfig const&) override { agent_->pairChanged(notifier()->key()); }
  VEL_DESCRIBE("Noxsim::HwAgent::PairConfigWatch", "mplsDestConfig")

 private:
  HwAgent* agent_;
};

class HwAgent::StatusWatch : public Nox::EvpnVlanFloodSetHwStatus::NotifieeConst {
 public:
  StatusWatch(Vel::Ptr<Nox::EvpnVlanFloodSetHwStatus const> const& s, HwAgent* agent)
      : NotifieeConst(s), agent_(agent) {}
  void onStatus(Pair const& pair) override { agent_->statusPairIs(pair); }
  VEL_DESCRIBE("Noxsim::HwAgent::StatusWatch", "status")

 private:
  HwAgent* agent_;
};

class HwAgent::PairStatusWatch : public Nox::VlanFloodSetStatus::NotifieeConst {
 public:
  PairStatusWatch(Vel::Ptr<Nox::VlanFloodSetStatus const> const& s, HwAgent* agent)
      : NotifieeConst(s), agent_(agent) {}
  void onMplsDestStatus(MplsDestConfig const&) override { agent_->pairChanged(notifier()->key()); }
  VEL_DESCRIBE("Noxsim::HwAgent::PairStatusWatch", "mplsDestStatus")

 private:
  HwAgent* agent_;
};

HwAgent::HwAgent(World& world)
    : world_(world),
      configWatch_(new ConfigWatch(world.hwConfig, this)),
      statusWatch_(new StatusWatch(world.hwStatus, this)) {
  for (auto [pair, config] : world.hwConfig->configColl()) configPairIs(pair);
  for (auto [pair, status] : world.hwStatus->statusColl()) statusPairIs(pair);
}

HwAgent::~HwAgent() = default;

namespace {

// Numbers a pair that appears in a table (it goes last, as in the table) and watches its entity;
// forgets a pair that left it.
template <class Watch, class Order, class Member>
void follow(Order& order, Pair const& pair, Member const& member, HwAgent* agent) {
  if (!member) {
    order.pairs.erase(pair);
    return;
  }
  auto [numbered, added] = order.pairs.tryEmplace(pair);
  if (!added) return;
  numbered->number = order.next++;
  numbered->watch = std::make_unique<Watch>(member, agent);
}

}  // namespace

void HwAgent::configPairIs(Pair const& pair) {
  follow<PairConfigWatch>(configOrder_, pair, world_.hwConfig->config(pair), this);
  pairChanged(pair);
}

void HwAgent::statusPairIs(Pair const& pair) {
  follow<PairStatusWatch>(statusOrder_, pair, world_.hwStatus->status(pair), this);
  pairChanged(pair);
}

void HwAgent::pairChanged(Pair const& pair) {
  *changed_.tryEmplace(pair, uint8_t(0)).first |= program | prune | remove;
}

template <class PairWatch>
std::vector<Pair> HwAgent::takeInOrder(Step step, PairOrder<PairWatch> const& order) {
  std::vector<std::pair<uint64_t, Pair>> numbered;
  for (auto at = changed_.begin(); at != changed_.end(); ++at) {
    uint8_t& awaits = at.value();
    if (!(awaits & step)) continue;
    Pair const pair = at.key();
    if (auto const known = order.pairs.find(pair)) numbered.emplace_back(known->number, pair);
    awaits &= uint8_t(~step);
    // Removal keeps the iteration going; emptied, the map gives its memory back.
    if (awaits == 0) changed_.erase(pair);
  }
  std::sort(numbered.begin(), numbered.end(),
            [](auto const& a, auto const& b) { return a.first < b.first; });
  std::vector<Pair> pairs;
  pairs.reserve(numbered.size());
  for (auto const& [number, pair] : numbered) pairs.push_back(pair);
  return pairs;
}

bool HwAgent::react() {
  if (!autoOn_) return false;
  bool changed = markProgrammed();
  changed |= removeUnpublishedStatuses();
  changed |= removeUnconfiguredPairs();
  return changed;
}

bool HwAgent::markProgrammed() {
  std::vector<std::pair<Pair, MplsDestConfig>> unprogrammed;
  for (Pair const& pair : takeInOrder(program, configOrder_)) {
    for (auto [config, present] : world_.hwConfig->config(pair)->mplsDestConfigColl()) {
      if (!isProgrammed(world_, pair, config)) unprogrammed.emplace_back(pair, config);
    }
  }
  bool changed = false;
  for (auto const& [pair, config] : unprogrammed) {
    if (!isPublished(world_, pair, config)) continue;
    world_.hwStatus->statusIs(pair)->mplsDestStatusIs(config, Nox::programmed);
    changed = true;
  }
  return changed;
}

bool HwAgent::removeUnpublishedStatuses() {
  std::vector<std::pair<Pair, MplsDestConfig>> stale;
  for (Pair const& pair : takeInOrder(prune, statusOrder_)) {
    for (auto [config, value] : world_.hwStatus->status(pair)->mplsDestStatusColl()) {
      if (!isPublished(world_, pair, config)) stale.emplace_back(pair, config);
    }
  }
  bool changed = false;
  for (auto const& [pair, config] : stale) {
    auto const status = world_.hwStatus->status(pair);
    if (status && !isPublished(world_, pair, config)) changed |= status->mplsDestStatusDel(config);
  }
  return changed;
}

bool HwAgent::removeUnconfiguredPairs() {
  std::vector<Pair> stale;
  for (Pair const& pair : takeInOrder(remove, statusOrder_)) {
    if (!hasPublishedConfig(world_, pair)) stale.push_back(pair);
  }
  bool changed = false;
  for (Pair const& pair : stale) {
    if (!hasPublishedConfig(world_, pair)) changed |= world_.hwStatus->statusDel(pair);
  }
  return changed;
}

}  // namespace Noxsim
