#pragma once

// Where the platform reads time. Everything in Cog (timers, yield time slices, the number
// allocator's quarantine) asks a Vel::Clock, never the system: the agent runs on RealClock, tests
// and noxsim on VirtualClock, which moves only when told to and so makes every run reproducible.

#include "platform/vel/Ptr.h"

namespace Vel {

class Clock : public PtrInterface {
 public:
  // Seconds since an arbitrary origin; never decreases.
  virtual double now() const = 0;
};

// The monotonic system clock (CLOCK_MONOTONIC): unaffected by changes of the wall-clock time.
class RealClock : public Clock {
 public:
  double now() const override;
};

// A clock that stands still until advanced. It starts at 0.0 and never goes back: advancing to an
// earlier time, or by a negative amount, leaves it where it is.
class VirtualClock : public Clock {
 public:
  double now() const override { return now_; }
  void advanceTo(double t);
  void advanceBy(double seconds) { advanceTo(now_ + seconds); }

 private:
  double now_ = 0.0;
};

}  // namespace Vel
