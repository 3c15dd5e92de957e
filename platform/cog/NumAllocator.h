#pragma once

// Hands out numbers of a range (FEC ids) and takes them back. getNumber first returns to the free
// pool up to moveCount released numbers that have rested at least expiryTime seconds
// (now - releaseTime >= expiryTime, oldest release first), then hands out the lowest free number,
// or invalidNumber() when none is free. releaseNumber(n) quarantines n; it is not handed out again
// before it has rested. Handing out the lowest number keeps the numbers in use dense and the
// allocator's outcome independent of how its callers are ordered in time.
//
// Releasing a number that is not out (never handed out, or already released) is a programming
// error and stops the process.
//
// Time comes from the given clock, or from the clock of the given timer wheel, so a virtual clock
// makes the allocator deterministic. Both calls are O(log n) in the number of free and out ranges.

#include <cstdint>
#include <type_traits>
#include <utility>

#include "platform/cog/Clock.h"
#include "platform/cog/NumAllocatorConfig.h"
#include "platform/cog/NumAllocatorStatus.h"
#include "platform/cog/TimerWheel.h"

namespace Cog {

class NumAllocator : public Vel::PtrInterface {
 public:
  static constexpr std::int64_t invalidNumber() { return -1; }

  // A blank status is filled with the config's range, all free; a status already started (by an
  // allocator before this one) is carried on and must have the same range.
  NumAllocator(NumAllocatorConfig const& config, Vel::Ptr<NumAllocatorStatus> status,
               Vel::Ptr<Vel::Clock> clock);
  NumAllocator(NumAllocatorConfig const& config, Vel::Ptr<NumAllocatorStatus> status,
               Vel::Ptr<TimerWheel> const& timerWheel);
  // A pointer to a particular clock (VirtualClock) would convert to either of the above.
  template <class C, class = std::enable_if_t<std::is_base_of_v<Vel::Clock, C>>>
  NumAllocator(NumAllocatorConfig const& config, Vel::Ptr<NumAllocatorStatus> status,
               Vel::Ptr<C> const& clock)
      : NumAllocator(config, std::move(status), Vel::Ptr<Vel::Clock>(clock)) {}

  std::int64_t getNumber();
  void releaseNumber(std::int64_t number);

  NumAllocatorConfig const& config() const { return config_; }
  Vel::Ptr<NumAllocatorStatus> const& status() const { return status_; }
  Vel::Ptr<Vel::Clock> const& clock() const { return clock_; }

 private:
  void moveExpired();

  NumAllocatorConfig config_;
  Vel::Ptr<NumAllocatorStatus> status_;
  Vel::Ptr<Vel::Clock> clock_;
};

}  // namespace Cog
