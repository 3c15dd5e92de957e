// Pending items and the batches of a queue's waiting times.

#include "NoxEvpn/NoxEvpnPending.h"

#include <algorithm>
#include <ostream>

namespace Nox {

std::ostream& operator<<(std::ostream& os, PendingItem const& item) {
  return os << item.machine << " " << item.key << ": " << item.reason << " since " << item.since;
}

void PendingBatches::queued(std::size_t added, double now) {
  if (added == 0) return;
  queued_ += added;
  if (!batches_.empty() && batches_.back().since == now) {
    batches_.back().end = queued_;
    return;
  }
  batches_.push_back(Batch{queued_, now});
}

void PendingBatches::dequeued() {
  if (dequeued_ == queued_) return;
  ++dequeued_;
  while (!batches_.empty() && batches_.front().end <= dequeued_) batches_.pop_front();
}

double PendingBatches::since(std::size_t position) const {
  std::uint64_t const index = dequeued_ + position;
  auto const it = std::upper_bound(batches_.begin(), batches_.end(), index,
                                   [](std::uint64_t i, Batch const& b) { return i < b.end; });
  return it == batches_.end() ? 0.0 : it->since;
}

}  // namespace Nox
