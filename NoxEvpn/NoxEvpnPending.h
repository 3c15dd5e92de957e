#pragma once

// What a machine is waiting for, and since when, for operators asking "why is this not
// programmed yet?". Every machine answers pending() with one PendingItem per waiting item, read
// from the collections it waits in, in their own order; the time each item started waiting is
// kept beside those collections, in seconds of the machine's clock.
//
// The bookkeeping costs one map insert when an item starts waiting and one erase when it stops;
// an item that is retried and fails again keeps the time it first started waiting.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/vel/OrderedMap.h"

namespace Nox {

struct PendingItem {
  // The machine's short name (`esi`, `decap`, ...).
  std::string machine;
  // What waits, and for what, as text.
  std::string key;
  std::string reason;
  // The machine clock's time when the item started waiting.
  double since = 0.0;
  friend bool operator==(PendingItem const&, PendingItem const&) = default;
};
// "machine key: reason since T", for messages.
std::ostream& operator<<(std::ostream& os, PendingItem const& item);

// A value's stream form, for the key and reason texts.
template <class... Parts>
std::string pendingText(Parts const&... parts) {
  std::ostringstream os;
  (os << ... << parts);
  return os.str();
}

// When each waiting item started waiting, beside the machine's waiting collection. A hash map
// in the order items started waiting: settling an item costs one lookup on every pass of a
// machine, waiting or not, so it must not pay for an ordered tree; the listing, asked for by
// people, sorts (by Order) instead.
template <class Key, class Order = std::less<Key>>
class PendingSince {
 public:
  // An item already waiting keeps its time.
  void started(Key const& key, double now) { since_.tryEmplace(key, now); }
  void stopped(Key const& key) {
    if (!since_.empty()) since_.erase(key);
  }
  void settle(Key const& key, bool waiting, double now) {
    if (waiting) {
      started(key, now);
    } else {
      stopped(key);
    }
  }
  // Room for `n` waiting items at once: a machine that finds many waiting when it starts sizes
  // the map once instead of growing it through every doubling.
  void reserve(std::size_t n) { since_.reserve(n); }
  bool waiting(Key const& key) const { return since_.contains(key); }
  // 0 for an item not recorded.
  double since(Key const& key) const {
    auto const found = since_.find(key);
    return found ? *found : 0.0;
  }
  // Every waiting item with its time, in ascending key order.
  std::vector<std::pair<Key, double>> sorted() const {
    std::vector<std::pair<Key, double>> items;
    items.reserve(since_.size());
    for (auto [key, since] : since_) items.emplace_back(key, since);
    std::sort(items.begin(), items.end(),
              [](auto const& a, auto const& b) { return Order()(a.first, b.first); });
    return items;
  }
  std::size_t size() const { return since_.size(); }
  // Every waiting item with its time, in the order they started waiting.
  template <class Visit>
  void forEach(Visit visit) const {
    for (auto [key, since] : since_) visit(key, since);
  }

 private:
  Vel::OrderedMap<Key, double, Vel::IndexHasher> since_;
};

// Since when each entry of a queue has waited, for a queue that is filled at the back in batches
// (every entry of a batch queued at one time) and emptied from the front only: one record per
// batch instead of one per entry, so queueing a start-up backlog of many thousand entries costs
// nothing per entry.
class PendingBatches {
 public:
  // `added` new entries joined the back of the queue at `now`.
  void queued(std::size_t added, double now);
  // The front entry left the queue.
  void dequeued();
  // When the entry `position` places from the front was queued.
  double since(std::size_t position) const;

 private:
  struct Batch {
    std::uint64_t end;  // queued_ once the batch was in
    double since;
  };
  std::deque<Batch> batches_;
  std::uint64_t queued_ = 0;
  std::uint64_t dequeued_ = 0;
};

}  // namespace Nox
