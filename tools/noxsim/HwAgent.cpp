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

void HwAgent::configPairIs(Pair const& pair) {
  auto const member = world_.hwConfig->config(pair);
  if (!member) {
    configOrder_.number.erase(pair);
    configOrder_.watch.erase(pair);
  } else if (configOrder_.number.emplace(pair, configOrder_.next).second) {
    ++configOrder_.next;
    configOrder_.watch[pair] = std::make_unique<PairConfigWatch>(member, this);
  }
  pairChanged(pair);
}

void HwAgent::statusPairIs(Pair const& pair) {
  auto const member = world_.hwStatus->status(pair);
  if (!member) {
    statusOrder_.number.erase(pair);
    statusOrder_.watch.erase(pair);
  } else if (statusOrder_.number.emplace(pair, statusOrder_.next).second) {
    ++statusOrder_.next;
    statusOrder_.watch[pair] = std::make_unique<PairStatusWatch>(member, this);
  }
  pairChanged(pair);
}

void HwAgent::pairChanged(Pair const& pair) {
  toProgram_.insert(pair);
  toPrune_.insert(pair);
  toRemove_.insert(pair);
}

template <class PairWatch>
std::vector<Pair> HwAgent::takeInOrder(PairSet& changed, PairOrder<PairWatch> const& order) {
  std::vector<std::pair<uint64_t, Pair>> numbered;
  for (Pair const& pair : changed) {
    auto const it = order.number.find(pair);
    if (it != order.number.end()) numbered.emplace_back(it->second, pair);
  }
  // Not clear(): that wipes every bucket, and a set once grown to every pair of a cold start
  // would cost each later step a pass over all of them.
  PairSet().swap(changed);
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
  for (Pair const& pair : takeInOrder(toProgram_, configOrder_)) {
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
  for (Pair const& pair : takeInOrder(toPrune_, statusOrder_)) {
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
  for (Pair const& pair : takeInOrder(toRemove_, statusOrder_)) {
    if (!hasPublishedConfig(world_, pair)) stale.push_back(pair);
  }
  bool changed = false;
  for (Pair const& pair : stale) {
    if (!hasPublishedConfig(world_, pair)) changed |= world_.hwStatus->statusDel(pair);
  }
  return changed;
}

}  // namespace Noxsim
