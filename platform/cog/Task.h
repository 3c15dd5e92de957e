#pragma once

// A unit of deferred work on the event thread: the review of a machine's unprogrammed keys, the
// drain of a backlog. A task has at most one pending run, either ready now or due at a time; the
// scheduler runs ready tasks by priority, then in the order they were made ready.
//
// The run handler is a notifiee (a machine's nested VelReviewUnprogrammed) or a plain function.
// The task is unscheduled just before its handler is called, so the handler may schedule it again,
// which is how a long review that was told to yield continues later.
//
// Lifetime: a task is always held through Vel::Ptr and holds its scheduler. Destroying it cancels
// its pending run; a run holds a reference, so a handler may drop the last outside reference to its
// own task. A notifiee and its task may die in either order: whichever goes first unlinks itself
// from the other.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/cog/TaskList.h"
#include "platform/vel/Name.h"
#include "platform/vel/Ptr.h"

namespace Cog {

class TaskScheduler;

// A higher number runs first.
using TaskPriority = std::int32_t;

class Task : public Vel::PtrInterface, private TaskLink {
 public:
  class Notifiee {
   public:
    Notifiee() = default;
    Notifiee(Notifiee const&) = delete;
    Notifiee& operator=(Notifiee const&) = delete;
    virtual ~Notifiee();

    virtual void onTaskRun() = 0;
    // The task this notifiee is registered with, null when none.
    Task* notifier() const { return notifier_; }
    // Registers with task (null: with none), as task->notifieeIs(this) does.
    void notifierIs(Task* task);

   private:
    friend class Task;
    Task* notifier_ = nullptr;
  };

  Task(Vel::Ptr<TaskScheduler> scheduler, TaskPriority priority, Vel::String name);

  // Makes the task ready now, replacing a delayed run if one was pending; a task already ready
  // keeps its place in the queue.
  void scheduleTask();
  // Sets the one pending run to now + seconds (a negative delay counts as 0), replacing a ready
  // or delayed run.
  void scheduleTaskDelay(double seconds);
  void unscheduleTask();
  bool taskScheduled() const { return state_ != State::idle; }
  // Due time of a delayed run; empty when the task is ready now or not scheduled.
  std::optional<double> taskDue() const;

  // Whether the current run should stop and reschedule itself; false outside the task's run.
  bool taskShouldYield() const;
  void taskWorkCountInc(std::uint64_t n = 1) { workCount_ += n; }
  // Units counted in the current (or last) run.
  std::uint64_t taskWorkCount() const { return workCount_; }

  Vel::String const& name() const { return name_; }
  TaskPriority priority() const { return priority_; }
  Vel::Ptr<TaskScheduler> const& scheduler() const { return scheduler_; }

  Notifiee* notifiee() const { return notifiee_; }
  // Registers the run handler (null removes it). A notifiee serves one task at a time.
  void notifieeIs(Notifiee* notifiee);
  // A plain run handler, called after the notifiee when both are set; empty removes it.
  void handlerIs(std::function<void()> handler);

 protected:
  ~Task() override;

 private:
  friend class TaskScheduler;
  friend class TimerWheel;
  enum class State : std::uint8_t { idle, ready, timer };

  void run();

  Vel::Ptr<TaskScheduler> scheduler_;
  TaskList* readyList_;
  TaskPriority priority_;
  State state_ = State::idle;
  Vel::String name_;
  Notifiee* notifiee_ = nullptr;
  // Shared so that a handler replacing itself while it runs stays alive to the end of its run.
  std::shared_ptr<std::function<void()> const> handler_;
  double due_ = 0.0;
  std::uint64_t seq_ = 0;  // scheduling order, ties between equal due times
  std::uint64_t workCount_ = 0;
};

}  // namespace Cog
