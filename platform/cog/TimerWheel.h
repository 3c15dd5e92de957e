#pragma once

// The timers of one scheduler: a hierarchical timing wheel over the scheduler's clock, holding
// every task whose pending run is delayed. Scheduling and cancelling a timer are O(1) and allocate
// nothing (the list links live in the task). Timers fire strictly in due-time order, then in
// scheduling order, and a timer due at t fires once the clock reaches t, not a tick later.
//
// Layout: time is cut into 1 ms ticks; level k has 64 slots of 64^k ticks each, eleven levels
// covering all 64-bit tick numbers. A timer sits at the level of the highest 6-bit digit in which
// its tick differs from the wheel's current tick, so every timer of level k shares the current
// tick's higher digits and lies in a later slot: the earliest timers are always in the lowest
// occupied level's first occupied slot, found with one bit scan per level. Expiring a slot of
// level k > 0 moves its timers to lower levels; each timer moves at most ten times.
// The slot of the current tick is sorted by exact (due time, scheduling order) before it fires.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "platform/cog/Clock.h"
#include "platform/cog/Task.h"
#include "platform/cog/TaskList.h"

namespace Cog {

class TaskScheduler;

class TimerWheel : public Vel::PtrInterface {
 public:
  static constexpr double tickSeconds = 0.001;

  Vel::Ptr<Vel::Clock> const& clock() const { return clock_; }
  double now() const { return clock_->now(); }
  // The scheduler that owns this wheel; null once that scheduler is gone.
  TaskScheduler* scheduler() const { return scheduler_; }

  std::size_t timerCount() const { return count_; }
  // A time no later than the earliest pending due time; empty when no timer is pending.
  std::optional<double> nextExpiryBound() const;
  // Calls fn for every pending timer, in the order they will fire.
  void forEachTimer(std::function<void(Task&)> const& fn) const;

 private:
  friend class TaskScheduler;
  static constexpr int levels = 11;
  static constexpr int slotsPerLevel = 64;
  static constexpr int slotBits = 6;

  TimerWheel(Vel::Ptr<Vel::Clock> clock, TaskScheduler* scheduler);

  // Arms task's timer at task.due_ (the caller has unlinked it from any list).
  void timerIs(Task& task);
  void timerDel(Task& task);
  // Removes and returns the next timer due at or before t (the earliest by due time, then
  // scheduling order), or null when none is.
  Task* expiredTimerDel(double t);

  static std::uint64_t tickOf(double due);
  static bool firesBefore(Task const& x, Task const& y);
  // First tick of the earliest occupied slot of an occupied level.
  std::uint64_t firstSlotStart(int level) const;
  void insert(Task& task);
  void insertSorted(TaskList& list, Task& task);
  TaskList& currentSlot() { return slots_[elapsed_ % slotsPerLevel]; }
  void sortCurrentSlot();
  // Moves the wheel to the start of the earliest occupied slot if that is no later than tick
  // `limit` (cascading that slot's timers down), else to `limit`. False when nothing moved.
  bool advanceTowards(std::uint64_t limit);

  Vel::Ptr<Vel::Clock> clock_;
  TaskScheduler* scheduler_;
  std::uint64_t elapsed_;                // every tick before this one has expired
  std::uint64_t occupied_[levels] = {};  // bit s of level k: slot s holds a timer
  TaskList slots_[levels * slotsPerLevel];
  std::size_t count_ = 0;
  bool currentSorted_ = false;  // the current tick's slot is in firing order
  std::vector<TaskLink*> scratch_;
};

}  // namespace Cog
