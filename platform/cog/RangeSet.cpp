// Range sets: merging on insertion, splitting on erasure.

#include "platform/cog/RangeSet.h"

#include <iterator>

#include "platform/vel/Assert.h"

namespace Cog {

bool RangeSet::contains(std::int64_t n) const {
  auto it = ranges_.upper_bound(n);
  if (it == ranges_.begin()) return false;
  return n <= std::prev(it)->second;
}

void RangeSet::rangeIs(std::int64_t lowest, std::int64_t highest) {
  VEL_ASSERT(lowest <= highest);
  ranges_.emplace(lowest, highest);
  size_ += static_cast<std::uint64_t>(highest - lowest) + 1;
}

void RangeSet::insert(std::int64_t n) {
  auto next = ranges_.upper_bound(n);
  bool const joinsNext = next != ranges_.end() && next->first - 1 == n;
  auto prev = next;
  bool const joinsPrev = next != ranges_.begin() && (--prev)->second + 1 == n;
  if (joinsPrev && joinsNext) {
    prev->second = next->second;
    ranges_.erase(next);
  } else if (joinsPrev) {
    prev->second = n;
  } else if (joinsNext) {
    lowestIs(next, n);
  } else {
    ranges_.emplace_hint(next, n, n);
  }
  ++size_;
}

void RangeSet::erase(std::int64_t n) {
  auto it = std::prev(ranges_.upper_bound(n));
  auto const [lowest, highest] = *it;
  if (lowest == highest) {
    ranges_.erase(it);
  } else if (n == lowest) {
    lowestIs(it, n + 1);
  } else {
    it->second = n - 1;
    if (n != highest) ranges_.emplace_hint(std::next(it), n + 1, highest);
  }
  --size_;
}

std::int64_t RangeSet::lowestDel() {
  VEL_ASSERT(!ranges_.empty());
  auto it = ranges_.begin();
  std::int64_t const n = it->first;
  if (it->second == n) {
    ranges_.erase(it);
  } else {
    lowestIs(it, n + 1);
  }
  --size_;
  return n;
}

void RangeSet::lowestIs(Ranges::iterator it, std::int64_t lowest) {
  auto hint = std::next(it);
  auto node = ranges_.extract(it);
  node.key() = lowest;
  ranges_.insert(hint, std::move(node));
}

}  // namespace Cog
