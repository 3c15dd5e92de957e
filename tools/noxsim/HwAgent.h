#pragma once

// The emulated hardware agent. With `hwagent auto on` it programs every published flood-set
// configuration at once and reports it back, mirroring the hardware configuration into the
// hardware status in three steps:
//   1. each published configuration (in the configuration's iteration order) whose status is not
//      `programmed` gets `programmed`, overwriting a status set by hand;
//   2. statuses of configurations that are no longer published are removed (in the status's
//      order);
//   3. the status entity of each pair that has no published configuration is removed.
// Off (the default), it leaves the status to `hwstatus set/del`.
//
// The steps touch only the pairs (MAC, VLAN) whose configuration or status changed since the
// step last looked at them, so a command costs what it changes, not the size of the tables.
// That gives the same writes in the same order as walking everything: a pair nobody changed
// has nothing left to mirror. To keep the order, the agent numbers the pairs of each table in
// the table's iteration order (a pair that appears goes last, as in the table).

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/vel/OrderedMap.h"
#include "tools/noxsim/OutsideAgent.h"
#include "tools/noxsim/World.h"

namespace Noxsim {

class HwAgent : public OutsideAgent {
 public:
  using Pair = Bridging::MacVlanPair;

  explicit HwAgent(World& world);
  ~HwAgent() override;
  std::string_view name() const override { return "hwagent"; }
  bool react() override;

  bool autoOn() const { return autoOn_; }
  void autoOnIs(bool on) { autoOn_ = on; }

 private:
  class ConfigWatch;
  class PairConfigWatch;
  class StatusWatch;
  class PairStatusWatch;
  // A table's pairs numbered in its iteration order, with a watch on each pair's entity.
  template <class PairWatch>
  struct Numbered {
    uint64_t number = 0;
    std::unique_ptr<PairWatch> watch;
  };
  template <class PairWatch>
  struct PairOrder {
    Vel::OrderedMap<Pair, Numbered<PairWatch>> pairs;
    uint64_t next = 0;
  };
  // The steps, as bits of what a changed pair still awaits.
  enum Step : uint8_t { program = 1, prune = 2, remove = 4 };

  void configPairIs(Pair const& pair);
  void statusPairIs(Pair const& pair);
  // A pair's configuration or status changed: every step looks at it again.
  void pairChanged(Pair const& pair);
  // The changed pairs awaiting `step` that are still in the table, in its order; they no longer
  // await it.
  template <class PairWatch>
  std::vector<Pair> takeInOrder(Step step, PairOrder<PairWatch> const& order);

  bool markProgrammed();
  bool removeUnpublishedStatuses();
  bool removeUnconfiguredPairs();

  World& world_;
  bool autoOn_ = false;
  std::unique_ptr<ConfigWatch> configWatch_;
  std::unique_ptr<StatusWatch> statusWatch_;
  PairOrder<PairConfigWatch> configOrder_;
  PairOrder<PairStatusWatch> statusOrder_;
  // Pairs some step has yet to look at, with the steps (bits) that have.
  Vel::OrderedMap<Pair, uint8_t> changed_;
};

}  // namespace Noxsim
