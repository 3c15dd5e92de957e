// The two yield policies.

#include "platform/cog/YieldPolicy.h"

namespace Cog {

bool TimeSliceYield::shouldYield(std::uint64_t, double runStart, Vel::Clock const& clock) const {
  return seconds_ > 0.0 && clock.now() - runStart >= seconds_;
}

bool WorkQuantumYield::shouldYield(std::uint64_t workCount, double, Vel::Clock const&) const {
  return quantum_ != 0 && workCount >= quantum_;
}

}  // namespace Cog
