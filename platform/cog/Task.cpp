// Tasks: the task's side of scheduling; the queues themselves belong to TaskScheduler.

#include "platform/cog/Task.h"

#include <cmath>

#include "platform/cog/TaskScheduler.h"
#include "platform/vel/Assert.h"

namespace Cog {

Task::Notifiee::~Notifiee() {
  if (notifier_) notifier_->notifiee_ = nullptr;
}

void Task::Notifiee::notifierIs(Task* task) {
  if (task) {
    task->notifieeIs(this);
  } else if (notifier_) {
    notifier_->notifieeIs(nullptr);
  }
}

Task::Task(Vel::Ptr<TaskScheduler> scheduler, TaskPriority priority, Vel::String name)
    : scheduler_(std::move(scheduler)), priority_(priority), name_(std::move(name)) {
  VEL_ASSERT(scheduler_);
  readyList_ = &scheduler_->readyListFor(priority_);
}

Task::~Task() {
  unscheduleTask();
  if (notifiee_) notifiee_->notifier_ = nullptr;
}

void Task::scheduleTask() {
  if (state_ != State::ready) scheduler_->readyIs(*this);
}

void Task::scheduleTaskDelay(double seconds) {
  VEL_ASSERT(!std::isnan(seconds));
  scheduler_->delayIs(*this, seconds > 0.0 ? seconds : 0.0);
}

void Task::unscheduleTask() {
  if (state_ != State::idle) scheduler_->unschedule(*this);
}

std::optional<double> Task::taskDue() const {
  if (state_ != State::timer) return std::nullopt;
  return due_;
}

bool Task::taskShouldYield() const { return scheduler_->shouldYield(*this); }

void Task::notifieeIs(Notifiee* notifiee) {
  if (notifiee_ == notifiee) return;
  if (notifiee_) notifiee_->notifier_ = nullptr;
  if (notifiee && notifiee->notifier_) notifiee->notifier_->notifiee_ = nullptr;
  notifiee_ = notifiee;
  if (notifiee_) notifiee_->notifier_ = this;
}

void Task::handlerIs(std::function<void()> handler) {
  handler_ = handler ? std::make_shared<std::function<void()> const>(std::move(handler)) : nullptr;
}

void Task::run() {
  if (notifiee_) notifiee_->onTaskRun();
  if (handler_) {
    auto handler = handler_;
    (*handler)();
  }
}

}  // namespace Cog
