#pragma once

// What a number allocator hands out and how long a released number rests before it is handed out
// again: a range of numbers, how many rested numbers one request may return to the free pool, and
// the resting time. The rest keeps a number that readers elsewhere may still associate with its
// old owner (a FEC id in a hardware table) from being reused at once.

#include <cstdint>

namespace Cog {

// lowest..highest, both included.
class Range {
 public:
  Range() = default;
  Range(std::int64_t lowest, std::int64_t highest) : lowest_(lowest), highest_(highest) {}

  std::int64_t lowest() const { return lowest_; }
  std::int64_t highest() const { return highest_; }
  bool contains(std::int64_t n) const { return lowest_ <= n && n <= highest_; }

  friend bool operator==(Range const&, Range const&) = default;

 private:
  std::int64_t lowest_ = 0;
  std::int64_t highest_ = 0;
};

class NumAllocatorConfig {
 public:
  NumAllocatorConfig() = default;
  NumAllocatorConfig(Range range, std::uint64_t moveCount, double expiryTime = 0.0)
      : range_(range), moveCount_(moveCount), expiryTime_(expiryTime) {}

  Range range() const { return range_; }
  void rangeIs(Range range) { range_ = range; }
  // At most this many released numbers go back to the free pool per getNumber.
  std::uint64_t moveCount() const { return moveCount_; }
  void moveCountIs(std::uint64_t moveCount) { moveCount_ = moveCount; }
  // Seconds a released number rests before it may go back to the free pool.
  double expiryTime() const { return expiryTime_; }
  void expiryTimeIs(double seconds) { expiryTime_ = seconds; }

 private:
  Range range_;
  std::uint64_t moveCount_ = 0;
  double expiryTime_ = 0.0;
};

}  // namespace Cog
