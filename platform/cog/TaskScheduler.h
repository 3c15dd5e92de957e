#pragma once

// The event thread's task scheduler. It keeps the ready tasks, one queue per priority, and owns
// the timer wheel that holds the delayed ones; it runs each task's handler, one at a time.
//
// Ready tasks run by priority (a higher number first), then in the order they were made ready.
// Timers fire in due-time order, then in scheduling order; a fired timer's task becomes ready and
// every ready task is drained before the next timer fires, so work a timer's run starts finishes
// before later timers. Long runs are cut by the yield policy (YieldPolicy.h).
//
// Three ways to drive it:
//   runReady()       runs what is ready now (tests, and after each input change in noxsim);
//   advanceTo(t)     virtual clock only: moves time to t, stopping at each timer's due time so that
//                    its run sees the clock at that time;
//   runLoop(stop)    the agent's loop on a real clock: runs what is due, sleeps till the next
//   timer.
// None of them may be called from inside a task's run.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>

#include "platform/cog/Clock.h"
#include "platform/cog/Task.h"
#include "platform/cog/TaskList.h"
#include "platform/cog/TimerWheel.h"
#include "platform/cog/YieldPolicy.h"

namespace Cog {

class TaskScheduler : public Vel::PtrInterface {
 public:
  // The yield policy starts as WorkQuantumYield(0): runs are never told to yield.
  explicit TaskScheduler(Vel::Ptr<Vel::Clock> clock);

  Vel::Ptr<Vel::Clock> const& clock() const { return clock_; }
  double now() const { return clock_->now(); }
  Vel::Ptr<TimerWheel> const& timerWheel() const { return timerWheel_; }

  Vel::Ptr<YieldPolicy> const& yieldPolicy() const { return yieldPolicy_; }
  // Takes effect at once, also for a run in progress; null means never yield.
  void yieldPolicyIs(Vel::Ptr<YieldPolicy> policy);

  // The task whose handler is running, null between runs.
  Task* runningTask() const { return running_; }
  std::size_t readyCount() const { return readyCount_; }
  std::size_t timerCount() const { return timerWheel_->timerCount(); }

  // Each returns the number of task runs it made.
  std::size_t runReady();
  // Fires the timers due by the clock's current time, draining ready tasks after each.
  std::size_t runDue();
  std::size_t advanceTo(double t);
  std::size_t advanceBy(double seconds) { return advanceTo(now() + seconds); }
  // Looks at stop between runs and at least every 10 ms while idle; returns once it is true.
  void runLoop(std::atomic<bool> const& stop);

  // Every scheduled task with its due time (empty for ready tasks): the ready ones in the order
  // they will run, then the timers in the order they will fire. fn must not (un)schedule tasks.
  void forEachScheduledTask(std::function<void(Task&, std::optional<double> due)> const& fn) const;

 protected:
  ~TaskScheduler() override;

 private:
  friend class Task;

  TaskList& readyListFor(TaskPriority priority);
  void readyIs(Task& task);
  void delayIs(Task& task, double seconds);
  void unschedule(Task& task);
  bool shouldYield(Task const& task) const;
  std::size_t fireTimersUpTo(double t);
  void runTask(Task& task);

  Vel::Ptr<Vel::Clock> clock_;
  Vel::VirtualClock* virtualClock_;  // clock_ when it is virtual: advanceTo moves it
  Vel::Ptr<TimerWheel> timerWheel_;
  Vel::Ptr<YieldPolicy> yieldPolicy_;
  std::map<TaskPriority, TaskList, std::greater<>> ready_;
  std::size_t readyCount_ = 0;
  std::uint64_t nextSeq_ = 0;
  Task* running_ = nullptr;
  double runStart_ = 0.0;
};

}  // namespace Cog
