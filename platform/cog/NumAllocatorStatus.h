#pragma once

// The state of a number allocator, kept apart from it so that it can be inspected (and shown by
// tools) as an entity of its own. Every number of the range is in exactly one of three states:
// free, out (handed out and not released) or quarantined (released, resting until it may go back
// to the free pool). A status is blank until the first allocator built over it fills it with its
// range, all free.

#include <cstddef>
#include <cstdint>
#include <deque>

#include "platform/cog/NumAllocatorConfig.h"
#include "platform/cog/RangeSet.h"
#include "platform/vel/Ptr.h"

namespace Cog {

class NumAllocatorStatus : public Vel::PtrInterface {
 public:
  struct Quarantined {
    std::int64_t number;
    double releaseTime;
  };

  bool started() const { return started_; }
  Range range() const { return range_; }

  bool isFree(std::int64_t n) const { return free_.contains(n); }
  bool isOut(std::int64_t n) const { return out_.contains(n); }
  bool isQuarantined(std::int64_t n) const;

  std::uint64_t freeCount() const { return free_.size(); }
  std::uint64_t outCount() const { return out_.size(); }
  std::size_t quarantinedCount() const { return quarantine_.size(); }

  // fn(lowest, highest) for each range of free (or out) numbers, in ascending order.
  template <class Fn>
  void forEachFreeRange(Fn&& fn) const {
    free_.forEachRange(fn);
  }
  template <class Fn>
  void forEachOutRange(Fn&& fn) const {
    out_.forEachRange(fn);
  }
  // fn(Quarantined const&) for each quarantined number, oldest release first.
  template <class Fn>
  void forEachQuarantined(Fn&& fn) const {
    for (auto const& q : quarantine_) fn(q);
  }

 private:
  friend class NumAllocator;

  bool started_ = false;
  Range range_;
  RangeSet free_;
  RangeSet out_;
  std::deque<Quarantined> quarantine_;  // in release order, so also in release-time order
};

}  // namespace Cog
