// Running tasks: the ready queues, timer firing and the three driving loops.

#include "platform/cog/TaskScheduler.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/vel/Assert.h"

namespace Cog {

namespace {

// The longest runLoop sleeps before it looks at its stop flag again.
constexpr double maxSleepSeconds = 0.01;

}  // namespace

TaskScheduler::TaskScheduler(Vel::Ptr<Vel::Clock> clock)
    : clock_(std::move(clock)),
      virtualClock_(dynamic_cast<Vel::VirtualClock*>(clock_.ptr())),
      yieldPolicy_(new WorkQuantumYield(0)) {
  VEL_ASSERT(clock_);
  timerWheel_ = new TimerWheel(clock_, this);
}

TaskScheduler::~TaskScheduler() { timerWheel_->scheduler_ = nullptr; }

void TaskScheduler::yieldPolicyIs(Vel::Ptr<YieldPolicy> policy) {
  yieldPolicy_ = policy ? std::move(policy) : Vel::Ptr<YieldPolicy>(new WorkQuantumYield(0));
}

TaskList& TaskScheduler::readyListFor(TaskPriority priority) {
  return ready_.try_emplace(priority).first->second;
}

void TaskScheduler::readyIs(Task& task) {
  unschedule(task);
  task.readyList_->pushBack(&task);
  task.state_ = Task::State::ready;
  task.seq_ = nextSeq_++;
  ++readyCount_;
}

void TaskScheduler::delayIs(Task& task, double seconds) {
  unschedule(task);
  task.due_ = now() + seconds;
  task.seq_ = nextSeq_++;
  timerWheel_->timerIs(task);
}

void TaskScheduler::unschedule(Task& task) {
  if (task.state_ == Task::State::ready) {
    task.readyList_->remove(&task);
    task.state_ = Task::State::idle;
    --readyCount_;
  } else if (task.state_ == Task::State::timer) {
    timerWheel_->timerDel(task);
  }
}

bool TaskScheduler::shouldYield(Task const& task) const {
  return running_ == &task && yieldPolicy_->shouldYield(task.workCount_, runStart_, *clock_);
}

void TaskScheduler::runTask(Task& task) {
  // The run keeps the task alive: its handler may drop the last outside reference to it.
  Vel::Ptr<Task> const keep(&task);
  unschedule(task);
  task.workCount_ = 0;
  runStart_ = now();
  running_ = &task;
  struct EndRun {
    Task*& running;
    ~EndRun() { running = nullptr; }
  } const endRun{running_};
  task.run();
}

std::size_t TaskScheduler::runReady() {
  VEL_ASSERT(!running_);
  std::size_t runs = 0;
  while (readyCount_) {
    auto it = std::find_if(ready_.begin(), ready_.end(),
                           [](auto const& entry) { return !entry.second.empty(); });
    runTask(static_cast<Task&>(*it->second.head()));
    ++runs;
  }
  return runs;
}

std::size_t TaskScheduler::fireTimersUpTo(double t) {
  std::size_t runs = runReady();
  while (Task* task = timerWheel_->expiredTimerDel(t)) {
    if (virtualClock_) virtualClock_->advanceTo(task->due_);
    readyIs(*task);
    runs += runReady();
  }
  return runs;
}

std::size_t TaskScheduler::runDue() {
  VEL_ASSERT(!running_);
  return fireTimersUpTo(now());
}

std::size_t TaskScheduler::advanceTo(double t) {
  VEL_ASSERT(virtualClock_);
  VEL_ASSERT(!running_);
  std::size_t const runs = fireTimersUpTo(t);
  virtualClock_->advanceTo(t);
  return runs;
}

void TaskScheduler::runLoop(std::atomic<bool> const& stop) {
  VEL_ASSERT(!running_);
  while (!stop.load(std::memory_order_acquire)) {
    runDue();
    double wait = maxSleepSeconds;
    if (auto const next = timerWheel_->nextExpiryBound()) wait = std::min(wait, *next - now());
    if (wait > 0.0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
  }
}

void TaskScheduler::forEachScheduledTask(
    std::function<void(Task&, std::optional<double>)> const& fn) const {
  for (auto const& [priority, list] : ready_) {
    for (TaskLink* l = list.head(); l; l = l->nextLink()) fn(static_cast<Task&>(*l), std::nullopt);
  }
  timerWheel_->forEachTimer([&fn](Task& task) { fn(task, task.due_); });
}

}  // namespace Cog
