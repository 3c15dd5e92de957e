#pragma once

// When a long task run must give the event thread back. A run counts its work with
// Task::taskWorkCountInc and asks Task::taskShouldYield between units; the scheduler answers
// through its YieldPolicy. The agent cuts runs by time (TimeSliceYield); tests and noxsim cut
// them by counted work (WorkQuantumYield), which does not depend on how fast the machine is.

#include <cstdint>

#include "platform/cog/Clock.h"

namespace Cog {

class YieldPolicy : public Vel::PtrInterface {
 public:
  // workCount: units the running task has counted in this run; runStart: the clock's time when
  // the run began.
  virtual bool shouldYield(std::uint64_t workCount, double runStart,
                           Vel::Clock const& clock) const = 0;
};

// Yield once a run has lasted `seconds`; 0 (or less) never yields.
class TimeSliceYield : public YieldPolicy {
 public:
  explicit TimeSliceYield(double seconds) : seconds_(seconds) {}
  double seconds() const { return seconds_; }
  bool shouldYield(std::uint64_t workCount, double runStart,
                   Vel::Clock const& clock) const override;

 private:
  double seconds_;
};

// Yield once a run has counted `quantum` units of work; 0 never yields.
class WorkQuantumYield : public YieldPolicy {
 public:
  explicit WorkQuantumYield(std::uint64_t quantum) : quantum_(quantum) {}
  std::uint64_t quantum() const { return quantum_; }
  bool shouldYield(std::uint64_t workCount, double runStart,
                   Vel::Clock const& clock) const override;

 private:
  std::uint64_t quantum_;
};

}  // namespace Cog
