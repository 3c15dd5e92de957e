// Timer tasks: a task made from a scheduler or from the scheduler's timer wheel.

#include "platform/cog/TimerTask.h"

#include "platform/cog/TaskScheduler.h"
#include "platform/vel/Assert.h"

namespace Cog {

namespace {

Vel::Ptr<TaskScheduler> schedulerOf(Vel::Ptr<TimerWheel> const& timerWheel) {
  VEL_ASSERT(timerWheel && timerWheel->scheduler());
  return timerWheel->scheduler();
}

}  // namespace

TimerTask::TimerTask(Vel::Ptr<TaskScheduler> scheduler, TaskPriority priority, Vel::String name)
    : Task(std::move(scheduler), priority, std::move(name)) {}

TimerTask::TimerTask(Vel::Ptr<TimerWheel> const& timerWheel, TaskPriority priority,
                     Vel::String name)
    : Task(schedulerOf(timerWheel), priority, std::move(name)) {}

}  // namespace Cog
