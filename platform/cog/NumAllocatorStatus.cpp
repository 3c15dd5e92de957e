// Allocator status: the one query that combines the three states.

#include "platform/cog/NumAllocatorStatus.h"

namespace Cog {

bool NumAllocatorStatus::isQuarantined(std::int64_t n) const {
  return started_ && range_.contains(n) && !isFree(n) && !isOut(n);
}

}  // namespace Cog
