#pragma once

// A task meant for delayed runs (scheduleTaskDelay), such as a machine's retry of unprogrammed
// hardware every few seconds. Every Cog::Task can be delayed; a TimerTask can in addition be made
// from the timer wheel alone, for machines that are given the wheel rather than the scheduler.

#include "platform/cog/Task.h"
#include "platform/cog/TimerWheel.h"

namespace Cog {

class TimerTask : public Task {
 public:
  TimerTask(Vel::Ptr<TaskScheduler> scheduler, TaskPriority priority, Vel::String name);
  // Runs on the wheel's scheduler, which must still exist.
  TimerTask(Vel::Ptr<TimerWheel> const& timerWheel, TaskPriority priority, Vel::String name);

 protected:
  ~TimerTask() override = default;
};

}  // namespace Cog
