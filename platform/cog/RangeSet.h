#pragma once

// A set of 64-bit numbers kept as disjoint ranges, for the number allocator's free and handed-out
// numbers: a range of four billion numbers handed out from the bottom stays a handful of ranges.
// Membership, insertion, erasure and taking the lowest member are O(log r) in the number of
// ranges; changing a range's start reuses its node instead of allocating.

#include <cstdint>
#include <map>

namespace Cog {

class RangeSet {
 public:
  bool empty() const { return ranges_.empty(); }
  std::uint64_t size() const { return size_; }
  std::size_t rangeCount() const { return ranges_.size(); }

  bool contains(std::int64_t n) const;
  // Adds lowest..highest (inclusive), none of which may be a member yet.
  void rangeIs(std::int64_t lowest, std::int64_t highest);
  // n must not be a member.
  void insert(std::int64_t n);
  // n must be a member.
  void erase(std::int64_t n);
  // Removes and returns the lowest member; the set must not be empty.
  std::int64_t lowestDel();

  template <class Fn>
  void forEachRange(Fn&& fn) const {
    for (auto const& [lowest, highest] : ranges_) fn(lowest, highest);
  }

 private:
  using Ranges = std::map<std::int64_t, std::int64_t>;  // lowest -> highest
  void lowestIs(Ranges::iterator it, std::int64_t lowest);

  Ranges ranges_;
  std::uint64_t size_ = 0;
};

}  // namespace Cog
