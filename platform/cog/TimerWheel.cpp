// The timing wheel: placement by differing digit, bit scans to find the next expiry, cascading.

#include "platform/cog/TimerWheel.h"

#include <algorithm>
#include <bit>

#include "platform/cog/Task.h"

namespace Cog {

namespace {

constexpr double ticksPerSecond = 1.0 / TimerWheel::tickSeconds;
// 2^64 as a double: products at or above it do not fit a tick number.
constexpr double tickLimit = 18446744073709551616.0;

}  // namespace

TimerWheel::TimerWheel(Vel::Ptr<Vel::Clock> clock, TaskScheduler* scheduler)
    : clock_(std::move(clock)), scheduler_(scheduler), elapsed_(tickOf(clock_->now())) {}

std::uint64_t TimerWheel::tickOf(double due) {
  double const ticks = due * ticksPerSecond;
  if (!(ticks > 0.0)) return 0;
  if (ticks >= tickLimit) return ~std::uint64_t{0};
  return static_cast<std::uint64_t>(ticks);
}

void TimerWheel::timerIs(Task& task) {
  task.state_ = Task::State::timer;
  insert(task);
  ++count_;
}

void TimerWheel::timerDel(Task& task) {
  TaskList* list = task.taskList();
  list->remove(&task);
  if (list->empty()) {
    auto const index = static_cast<std::size_t>(list - slots_);
    occupied_[index / slotsPerLevel] &= ~(std::uint64_t{1} << (index % slotsPerLevel));
  }
  task.state_ = Task::State::idle;
  --count_;
}

void TimerWheel::insert(Task& task) {
  std::uint64_t const tick = std::max(tickOf(task.due_), elapsed_);
  std::uint64_t const diff = tick ^ elapsed_;
  int const level = diff < slotsPerLevel ? 0 : (63 - std::countl_zero(diff)) / slotBits;
  auto const slot = static_cast<int>((tick >> (slotBits * level)) % slotsPerLevel);
  TaskList& list = slots_[level * slotsPerLevel + slot];
  if (tick == elapsed_ && currentSorted_) {
    insertSorted(list, task);
  } else {
    list.pushBack(&task);
  }
  occupied_[level] |= std::uint64_t{1} << slot;
}

void TimerWheel::insertSorted(TaskList& list, Task& task) {
  // New timers are usually the latest of their tick, so the search starts at the tail.
  TaskLink* pos = list.tail();
  while (pos && firesBefore(task, static_cast<Task const&>(*pos))) pos = pos->prevLink();
  list.insertAfter(pos, &task);
}

void TimerWheel::sortCurrentSlot() {
  TaskList& list = currentSlot();
  scratch_.clear();
  for (TaskLink* l = list.head(); l; l = l->nextLink()) scratch_.push_back(l);
  std::sort(scratch_.begin(), scratch_.end(), [](TaskLink const* a, TaskLink const* b) {
    return firesBefore(static_cast<Task const&>(*a), static_cast<Task const&>(*b));
  });
  list.relink(scratch_.begin(), scratch_.end());
  currentSorted_ = true;
}

bool TimerWheel::firesBefore(Task const& x, Task const& y) {
  return x.due_ < y.due_ || (x.due_ == y.due_ && x.seq_ < y.seq_);
}

std::uint64_t TimerWheel::firstSlotStart(int level) const {
  int const shift = slotBits * level;
  std::uint64_t const high =
      level + 1 < levels ? elapsed_ >> (shift + slotBits) << (shift + slotBits) : 0;
  auto const slot = static_cast<unsigned>(std::countr_zero(occupied_[level]));
  return high | (std::uint64_t{slot} << shift);
}

bool TimerWheel::advanceTowards(std::uint64_t limit) {
  for (int level = 0; level < levels; ++level) {
    if (!occupied_[level]) continue;
    std::uint64_t const start = firstSlotStart(level);
    if (start > limit) break;
    int const slot = std::countr_zero(occupied_[level]);
    elapsed_ = start;
    currentSorted_ = false;
    if (level > 0) {
      TaskList& list = slots_[level * slotsPerLevel + slot];
      occupied_[level] &= ~(std::uint64_t{1} << slot);
      for (TaskLink* l = list.detachAll(); l;) {
        TaskLink* next = l->nextLink();
        insert(static_cast<Task&>(*l));
        l = next;
      }
    }
    return true;
  }
  if (limit > elapsed_) {
    elapsed_ = limit;
    currentSorted_ = false;
  }
  return false;
}

Task* TimerWheel::expiredTimerDel(double t) {
  std::uint64_t const limit = tickOf(t);
  for (;;) {
    TaskList& current = currentSlot();
    if (!current.empty()) {
      if (!currentSorted_) sortCurrentSlot();
      auto& first = static_cast<Task&>(*current.head());
      if (first.due_ > t) return nullptr;
      timerDel(first);
      return &first;
    }
    if (!advanceTowards(limit)) return nullptr;
  }
}

std::optional<double> TimerWheel::nextExpiryBound() const {
  if (!count_) return std::nullopt;
  TaskList const& current = slots_[elapsed_ % slotsPerLevel];
  if (!current.empty()) {
    double earliest = static_cast<Task const&>(*current.head()).due_;
    for (TaskLink const* l = current.head(); l; l = l->nextLink()) {
      earliest = std::min(earliest, static_cast<Task const&>(*l).due_);
    }
    return earliest;
  }
  for (int level = 0; level < levels; ++level) {
    if (occupied_[level]) return static_cast<double>(firstSlotStart(level)) / ticksPerSecond;
  }
  return std::nullopt;
}

void TimerWheel::forEachTimer(std::function<void(Task&)> const& fn) const {
  std::vector<Task*> timers;
  timers.reserve(count_);
  for (TaskList const& list : slots_) {
    for (TaskLink* l = list.head(); l; l = l->nextLink()) timers.push_back(static_cast<Task*>(l));
  }
  std::sort(timers.begin(), timers.end(),
            [](Task const* x, Task const* y) { return firesBefore(*x, *y); });
  for (Task* task : timers) fn(*task);
}

}  // namespace Cog
