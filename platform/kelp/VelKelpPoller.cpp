#include "platform/kelp/VelKelpPoller.h"

namespace VelKelp {

Poller::Poller(Vel::Ptr<Cog::TaskScheduler> const& scheduler, Vel::String name,
               std::function<std::size_t(std::size_t)> poll, Config config)
    : task_(new Cog::Task(scheduler, config.priority, std::move(name))),
      poll_(std::move(poll)),
      config_(config) {
  task_->handlerIs([this] { run(); });
  task_->scheduleTask();
}

Poller::~Poller() {
  task_->unscheduleTask();
  task_->handlerIs({});
}

void Poller::run() {
  std::size_t const taken = poll_(config_.batch);
  taken_ += taken;
  task_->taskWorkCountInc(taken);
  if (taken >= config_.batch) {
    task_->scheduleTask();
  } else {
    task_->scheduleTaskDelay(config_.interval);
  }
}

}  // namespace VelKelp
