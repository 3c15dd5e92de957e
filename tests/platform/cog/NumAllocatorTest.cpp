// The number allocator: lowest free first, quarantine and its exact expiry, moveCount,
// exhaustion, misuse; and a property test against a plain model.

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

class NumAllocatorTest : public ::testing::Test {
 protected:
  Vel::Ptr<Cog::NumAllocator> allocator(Cog::Range range, std::uint64_t moveCount,
                                        double expiryTime) {
    Cog::NumAllocatorConfig config(range, moveCount);
    config.expiryTimeIs(expiryTime);
    status_ = new Cog::NumAllocatorStatus;
    return new Cog::NumAllocator(config, status_, clock_);
  }
  std::vector<std::int64_t> get(Cog::NumAllocator& a, int n) {
    std::vector<std::int64_t> numbers;
    for (int i = 0; i < n; ++i) numbers.push_back(a.getNumber());
    return numbers;
  }

  Vel::Ptr<Vel::VirtualClock> clock_ = new Vel::VirtualClock;
  Vel::Ptr<Cog::NumAllocatorStatus> status_;
};

using Numbers = std::vector<std::int64_t>;

TEST_F(NumAllocatorTest, HandsOutTheLowestFreeNumber) {
  auto a = allocator({10, 20}, 100, 0.0);
  EXPECT_EQ(get(*a, 3), (Numbers{10, 11, 12}));
  a->releaseNumber(11);
  EXPECT_EQ(get(*a, 2), (Numbers{11, 13}));
}

TEST_F(NumAllocatorTest, ReleasedNumberRestsUntilExactlyExpiryTime) {
  auto a = allocator({0, 0xFFFFFFFF}, 100, 10.0);
  EXPECT_EQ(get(*a, 2), (Numbers{0, 1}));
  clock_->advanceTo(1.5);
  a->releaseNumber(0);
  EXPECT_TRUE(status_->isQuarantined(0));
  clock_->advanceTo(std::nextafter(11.5, 0.0));
  EXPECT_EQ(a->getNumber(), 2);
  clock_->advanceTo(11.5);
  EXPECT_EQ(a->getNumber(), 0);
  EXPECT_EQ(status_->quarantinedCount(), 0u);
}

TEST_F(NumAllocatorTest, MoveCountLimitsHowManyRestedNumbersReturnPerRequestOldestFirst) {
  auto a = allocator({0, 9}, 2, 1.0);
  EXPECT_EQ(get(*a, 6), (Numbers{0, 1, 2, 3, 4, 5}));
  for (std::int64_t n : {4, 1, 3, 0}) a->releaseNumber(n);
  clock_->advanceTo(1.0);
  EXPECT_EQ(a->getNumber(), 1);  // 4 and 1 came back
  EXPECT_EQ(status_->quarantinedCount(), 2u);
  EXPECT_EQ(a->getNumber(), 0);  // then 3 and 0
  EXPECT_EQ(get(*a, 3), (Numbers{3, 4, 6}));
}

TEST_F(NumAllocatorTest, ExhaustedRangeGivesTheInvalidNumberUntilAReleaseHasRested) {
  auto a = allocator({5, 7}, 100, 10.0);
  EXPECT_EQ(get(*a, 4), (Numbers{5, 6, 7, Cog::NumAllocator::invalidNumber()}));
  EXPECT_EQ(Cog::NumAllocator::invalidNumber(), -1);
  a->releaseNumber(6);
  EXPECT_EQ(a->getNumber(), -1);
  clock_->advanceTo(10.0);
  EXPECT_EQ(get(*a, 2), (Numbers{6, -1}));
}

TEST_F(NumAllocatorTest, StatusTellsWhichNumbersAreFreeOutAndQuarantined) {
  auto a = allocator({0, 9}, 100, 5.0);
  get(*a, 5);
  a->releaseNumber(2);
  EXPECT_EQ(status_->outCount(), 4u);
  EXPECT_EQ(status_->freeCount(), 5u);
  EXPECT_EQ(status_->quarantinedCount(), 1u);
  EXPECT_TRUE(status_->isQuarantined(2));
  EXPECT_FALSE(status_->isQuarantined(10));
}

TEST_F(NumAllocatorTest, AllocatorOverAStartedStatusCarriesOnFromIt) {
  auto first = allocator({0, 9}, 100, 0.0);
  get(*first, 3);
  Cog::NumAllocator second(first->config(), status_, clock_);
  EXPECT_EQ(second.getNumber(), 3);
  second.releaseNumber(1);
  EXPECT_EQ(first->getNumber(), 1);
}

TEST_F(NumAllocatorTest, AllocatorMadeFromATimerWheelReadsItsClock) {
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(clock_);
  Cog::NumAllocatorConfig config({0, 9}, 100);
  config.expiryTimeIs(10.0);
  Cog::NumAllocator a(config, new Cog::NumAllocatorStatus, scheduler->timerWheel());
  EXPECT_EQ(a.getNumber(), 0);
  a.releaseNumber(0);
  scheduler->advanceTo(10.0);
  EXPECT_EQ(a.getNumber(), 0);
}

TEST_F(NumAllocatorTest, ReleasingANumberThatIsNotOutIsAProgrammingError) {
  auto a = allocator({0, 9}, 100, 0.0);
  a->getNumber();
  a->releaseNumber(0);
  EXPECT_DEATH(a->releaseNumber(0), "isOut");
  EXPECT_DEATH(a->releaseNumber(5), "isOut");
  EXPECT_DEATH(a->releaseNumber(42), "isOut");
}

#if NOX_HAVE_RAPIDCHECK

enum OpKind { getOp, releaseOp, advanceOp, opKinds };

RC_GTEST_PROP(NumAllocatorProperty, BehavesAsAPlainModel, ()) {
  auto const moveCount = *rc::gen::element<std::uint64_t>(0, 1, 2, 3, 100);
  auto const expiry = *rc::gen::element(0.0, 0.5, 1.0, 10.0);
  auto const ops = *rc::gen::container<std::vector<std::pair<int, int>>>(
      rc::gen::pair(rc::gen::inRange(0, static_cast<int>(opKinds)), rc::gen::inRange(0, 40)));

  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Cog::NumAllocatorConfig config({3, 18}, moveCount, expiry);
  Vel::Ptr<Cog::NumAllocatorStatus> status = new Cog::NumAllocatorStatus;
  Cog::NumAllocator allocator(config, status, clock);

  std::set<std::int64_t> free, out;
  std::deque<std::pair<std::int64_t, double>> quarantine;
  for (std::int64_t n = 3; n <= 18; ++n) free.insert(n);

  for (auto const& [kind, value] : ops) {
    if (kind == getOp) {
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
    } else if (kind == releaseOp && !out.empty()) {
      auto it = std::next(out.begin(), value % static_cast<int>(out.size()));
      allocator.releaseNumber(*it);
      quarantine.emplace_back(*it, clock->now());
      out.erase(it);
    } else if (kind == advanceOp) {
      clock->advanceBy(value * 0.25);
    }
    RC_ASSERT(status->outCount() == out.size());
    RC_ASSERT(status->freeCount() == free.size());
    RC_ASSERT(status->quarantinedCount() == quarantine.size());
  }
  for (std::int64_t n = 3; n <= 18; ++n) {
    RC_ASSERT(status->isFree(n) == (free.count(n) > 0));
    RC_ASSERT(status->isOut(n) == (out.count(n) > 0));
  }
}

#endif

}  // namespace
