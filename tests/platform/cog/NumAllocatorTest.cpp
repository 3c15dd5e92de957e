// The number allocator: the boundaries a random run rarely hits (a rest ending exactly at
// expiryTime, exhaustion, the moveCount limit), a status shared between allocators, misuse; and a
// property test against a plain model for the rest.

#include "platform/cog/NumAllocator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <set>
#include <vector>

#include "platform/cog/TaskScheduler.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>
#endif

namespace {

using Numbers = std::vector<std::int64_t>;

class NumAllocatorTest : public ::testing::Test {
 protected:
  Vel::Ptr<Cog::NumAllocator> allocator(Cog::Range range, std::uint64_t moveCount,
                                        double expiryTime) {
    return new Cog::NumAllocator({range, moveCount, expiryTime}, status_, clock_);
  }
  static Numbers get(Cog::NumAllocator& a, int n) {
    Numbers numbers;
    for (int i = 0; i < n; ++i) numbers.push_back(a.getNumber());
    return numbers;
  }

  Vel::Ptr<Vel::VirtualClock> clock_ = new Vel::VirtualClock;
  Vel::Ptr<Cog::NumAllocatorStatus> status_ = new Cog::NumAllocatorStatus;
};

TEST_F(NumAllocatorTest, ReleasedNumberRestsUntilExactlyExpiryTimeEvenInAnExhaustedRange) {
  auto a = allocator({5, 7}, 100, 10.0);
  EXPECT_EQ(get(*a, 4), (Numbers{5, 6, 7, Cog::NumAllocator::invalidNumber()}));
  clock_->advanceTo(1.5);
  a->releaseNumber(6);
  EXPECT_TRUE(status_->isQuarantined(6));
  clock_->advanceTo(std::nextafter(11.5, 0.0));
  EXPECT_EQ(a->getNumber(), -1);
  clock_->advanceTo(11.5);
  EXPECT_EQ(get(*a, 2), (Numbers{6, -1}));
}

TEST_F(NumAllocatorTest, MoveCountLimitsHowManyRestedNumbersReturnPerRequestOldestFirst) {
  auto a = allocator({0, 9}, 2, 1.0);
  EXPECT_EQ(get(*a, 6), (Numbers{0, 1, 2, 3, 4, 5}));
  for (std::int64_t n : {4, 1, 3, 0}) a->releaseNumber(n);
  clock_->advanceTo(1.0);
  EXPECT_EQ(a->getNumber(), 1);  // 4 and 1 came back
  EXPECT_EQ(a->getNumber(), 0);  // then 3 and 0
  EXPECT_EQ(get(*a, 3), (Numbers{3, 4, 6}));
}

TEST_F(NumAllocatorTest, AllocatorOverAStartedStatusCarriesOnWithTheWheelsClock) {
  auto first = allocator({0, 9}, 100, 10.0);
  get(*first, 3);
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(clock_);
  Cog::NumAllocator second(first->config(), status_, scheduler->timerWheel());
  EXPECT_EQ(second.getNumber(), 3);
  second.releaseNumber(1);
  scheduler->advanceTo(10.0);
  EXPECT_EQ(first->getNumber(), 1);
}

TEST_F(NumAllocatorTest, ReleasingANumberThatIsNotOutIsAProgrammingError) {
  auto a = allocator({0, 9}, 100, 0.0);
  a->releaseNumber(a->getNumber());
  EXPECT_DEATH(a->releaseNumber(0), "isOut");
  EXPECT_DEATH(a->releaseNumber(5), "isOut");
}

#if NOX_HAVE_RAPIDCHECK

enum AllocatorOp { allocGetOp, allocReleaseOp, allocAdvanceOp, allocatorOps };

RC_GTEST_PROP(NumAllocatorProperty, BehavesAsAPlainModel, ()) {
  auto const moveCount = *rc::gen::element<std::uint64_t>(0, 1, 2, 3, 100);
  auto const expiry = *rc::gen::element(0.0, 0.5, 1.0, 10.0);
  auto const ops = *rc::gen::container<std::vector<std::pair<int, int>>>(
      rc::gen::pair(rc::gen::inRange(0, static_cast<int>(allocatorOps)), rc::gen::inRange(0, 40)));

  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Vel::Ptr<Cog::NumAllocatorStatus> status = new Cog::NumAllocatorStatus;
  Cog::NumAllocator allocator({{3, 18}, moveCount, expiry}, status, clock);

  std::set<std::int64_t> free, out;
  std::deque<std::pair<std::int64_t, double>> quarantine;
  for (std::int64_t n = 3; n <= 18; ++n) free.insert(n);

  for (auto const& [kind, value] : ops) {
    if (kind == allocGetOp) {
      for (std::uint64_t moved = 0; moved < moveCount && !quarantine.empty(); ++moved) {
        if (clock->now() - quarantine.front().second < expiry) break;
        free.insert(quarantine.front().first);
        quarantine.pop_front();
      }
      std::int64_t expected = -1;
      if (!free.empty()) {
        expected = *free.begin();
        free.erase(free.begin());
        out.insert(expected);
      }
      RC_ASSERT(allocator.getNumber() == expected);
    } else if (kind == allocReleaseOp && !out.empty()) {
      auto it = std::next(out.begin(), value % static_cast<int>(out.size()));
      allocator.releaseNumber(*it);
      quarantine.emplace_back(*it, clock->now());
      out.erase(it);
    } else if (kind == allocAdvanceOp) {
      clock->advanceBy(value * 0.25);
    }
    RC_ASSERT(status->outCount() == out.size());
    RC_ASSERT(status->freeCount() == free.size());
    RC_ASSERT(status->quarantinedCount() == quarantine.size());
  }
}

#endif

}  // namespace
