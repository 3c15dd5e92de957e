// The number allocator's policy over its status.

#include "platform/cog/NumAllocator.h"

#include "platform/vel/Assert.h"

namespace Cog {

namespace {

Vel::Ptr<Vel::Clock> clockOf(Vel::Ptr<TimerWheel> const& timerWheel) {
  VEL_ASSERT(timerWheel);
  return timerWheel->clock();
}

}  // namespace

NumAllocator::NumAllocator(NumAllocatorConfig const& config, Vel::Ptr<NumAllocatorStatus> status,
                           Vel::Ptr<Vel::Clock> clock)
    : config_(config), status_(std::move(status)), clock_(std::move(clock)) {
  Range const range = config_.range();
  VEL_ASSERT(status_ && clock_);
  VEL_ASSERT(invalidNumber() < range.lowest() && range.lowest() <= range.highest());
  if (status_->started_) {
    VEL_ASSERT(status_->range_ == range);
    return;
  }
  status_->started_ = true;
  status_->range_ = range;
  status_->free_.rangeIs(range.lowest(), range.highest());
}

NumAllocator::NumAllocator(NumAllocatorConfig const& config, Vel::Ptr<NumAllocatorStatus> status,
                           Vel::Ptr<TimerWheel> const& timerWheel)
    : NumAllocator(config, std::move(status), clockOf(timerWheel)) {}

std::int64_t NumAllocator::getNumber() {
  moveExpired();
  NumAllocatorStatus& status = *status_;
  if (status.free_.empty()) return invalidNumber();
  std::int64_t const number = status.free_.lowestDel();
  status.out_.insert(number);
  return number;
}

void NumAllocator::releaseNumber(std::int64_t number) {
  NumAllocatorStatus& status = *status_;
  VEL_ASSERT(status.isOut(number));
  status.out_.erase(number);
  status.quarantine_.push_back({number, clock_->now()});
}

void NumAllocator::moveExpired() {
  auto& quarantine = status_->quarantine_;
  if (quarantine.empty()) return;
  double const now = clock_->now();
  for (std::uint64_t moved = 0; moved < config_.moveCount() && !quarantine.empty(); ++moved) {
    NumAllocatorStatus::Quarantined const oldest = quarantine.front();
    if (now - oldest.releaseTime < config_.expiryTime()) break;
    status_->free_.insert(oldest.number);
    quarantine.pop_front();
  }
}

}  // namespace Cog
