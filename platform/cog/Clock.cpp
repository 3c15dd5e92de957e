// The real and virtual clocks.

#include "platform/cog/Clock.h"

#include <time.h>

namespace Vel {

double RealClock::now() const {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

void VirtualClock::advanceTo(double t) {
  if (t > now_) now_ = t;
}

}  // namespace Vel
