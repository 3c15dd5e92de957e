// Ready tasks: run order, run-once, rescheduling from the handler, yield, lifetimes.

#include "platform/cog/TaskScheduler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/cog/Task.h"
#include "platform/cog/TimerTask.h"

namespace {

class TaskSchedulerTest : public ::testing::Test {
 protected:
  Vel::Ptr<Cog::Task> task(std::string const& name, Cog::TaskPriority priority = 0) {
    Vel::Ptr<Cog::Task> t = new Cog::Task(scheduler_, priority, name);
    t->handlerIs([this, name] { ran_.push_back(name); });
    return t;
  }

  Vel::Ptr<Vel::VirtualClock> clock_ = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler_ = new Cog::TaskScheduler(clock_);
  std::vector<std::string> ran_;
};

using Names = std::vector<std::string>;

TEST_F(TaskSchedulerTest, ReadyTasksRunByPriorityThenInReadyOrder) {
  auto a = task("a", 1), b = task("b", 2), c = task("c", 1), d = task("d", 2), e = task("e", -1);
  for (auto const& t : {a, b, c, d, e}) t->scheduleTask();
  Names listed;
  scheduler_->forEachScheduledTask([&](Cog::Task& t, auto) { listed.push_back(t.name()); });
  EXPECT_EQ(listed, (Names{"b", "d", "a", "c", "e"}));
  EXPECT_EQ(scheduler_->runReady(), 5u);
  EXPECT_EQ(ran_, (Names{"b", "d", "a", "c", "e"}));
  EXPECT_EQ(scheduler_->readyCount(), 0u);
}

TEST_F(TaskSchedulerTest, SchedulingAReadyTaskAgainRunsItOnceAndKeepsItsPlace) {
  auto a = task("a"), b = task("b");
  a->scheduleTask();
  b->scheduleTask();
  a->scheduleTask();
  EXPECT_TRUE(a->taskScheduled());
  EXPECT_EQ(scheduler_->runReady(), 2u);
  EXPECT_EQ(ran_, (Names{"a", "b"}));
  EXPECT_FALSE(a->taskScheduled());
  EXPECT_EQ(scheduler_->runReady(), 0u);
}

TEST_F(TaskSchedulerTest, HandlerRunsUnscheduledAndMayRescheduleItsOwnTask) {
  Vel::Ptr<Cog::Task> t = new Cog::Task(scheduler_, 0, "again");
  std::vector<bool> scheduledInRun;
  t->handlerIs([&] {
    scheduledInRun.push_back(t->taskScheduled());
    if (scheduledInRun.size() < 3) t->scheduleTask();
  });
  t->scheduleTask();
  EXPECT_EQ(scheduler_->runReady(), 3u);
  EXPECT_EQ(scheduledInRun, (std::vector<bool>{false, false, false}));
  EXPECT_FALSE(t->taskScheduled());
}

// A review over `items` units that counts one unit each and, when told to yield, reschedules
// itself at once and returns, as the machines' backlog reviews do.
class YieldingReview {
 public:
  YieldingReview(Vel::Ptr<Cog::TaskScheduler> const& scheduler, int items,
                 std::function<void()> perUnit = {})
      : task_(new Cog::Task(scheduler, 2, "review")), left_(items), perUnit_(std::move(perUnit)) {
    task_->handlerIs([this] { run(); });
  }
  Vel::Ptr<Cog::Task> const& task() const { return task_; }
  std::vector<int> const& slices() const { return slices_; }

 private:
  void run() {
    int done = 0;
    while (left_ > 0) {
      --left_;
      ++done;
      task_->taskWorkCountInc();
      if (perUnit_) perUnit_();
      if (left_ > 0 && task_->taskShouldYield()) {
        task_->scheduleTask();
        break;
      }
    }
    slices_.push_back(done);
  }

  Vel::Ptr<Cog::Task> task_;
  int left_;
  std::function<void()> perUnit_;
  std::vector<int> slices_;
};

TEST_F(TaskSchedulerTest, WorkQuantumCutsARunAfterNUnitsAndTheTaskResumes) {
  for (auto const& [quantum, slices] :
       {std::pair{3, std::vector<int>{3, 3, 3, 1}}, std::pair{0, std::vector<int>{10}}}) {
    scheduler_->yieldPolicyIs(new Cog::WorkQuantumYield(quantum));
    YieldingReview review(scheduler_, 10);
    review.task()->scheduleTask();
    EXPECT_EQ(scheduler_->runReady(), slices.size());
    EXPECT_EQ(review.slices(), slices) << "quantum " << quantum;
  }
}

TEST_F(TaskSchedulerTest, TimeSliceCutsARunOnceItsClockTimeIsUsed) {
  scheduler_->yieldPolicyIs(new Cog::TimeSliceYield(0.5));
  YieldingReview review(scheduler_, 7, [&] { clock_->advanceBy(0.25); });
  review.task()->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(review.slices(), (std::vector<int>{2, 2, 2, 1}));
}

TEST_F(TaskSchedulerTest, OnlyTheRunningTaskIsToldToYield) {
  scheduler_->yieldPolicyIs(new Cog::WorkQuantumYield(1));
  auto idle = task("idle"), running = task("running");
  idle->taskWorkCountInc(5);
  std::vector<bool> answers;
  running->handlerIs([&] {
    running->taskWorkCountInc();
    answers = {idle->taskShouldYield(), running->taskShouldYield()};
  });
  running->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(answers, (std::vector<bool>{false, true}));
  EXPECT_FALSE(running->taskShouldYield());
}

struct RecordingNotifiee : Cog::Task::Notifiee {
  void onTaskRun() override { ++runs; }
  int runs = 0;
};

TEST_F(TaskSchedulerTest, NotifieeRunsBeforeTheHandlerAndEitherMayDieFirst) {
  auto t = task("t");
  {
    RecordingNotifiee notifiee;
    notifiee.notifierIs(t.ptr());
    t->handlerIs([&] { ran_.push_back("handler after " + std::to_string(notifiee.runs)); });
    t->scheduleTask();
    scheduler_->runReady();
    t->scheduleTask();
  }
  EXPECT_EQ(t->notifiee(), nullptr);
  t->handlerIs({});
  EXPECT_EQ(scheduler_->runReady(), 1u);  // the notifiee that went is not called
  EXPECT_EQ(ran_, (Names{"handler after 1"}));

  RecordingNotifiee survivor;
  t->notifieeIs(&survivor);
  t = nullptr;
  EXPECT_EQ(survivor.notifier(), nullptr);
}

TEST_F(TaskSchedulerTest, DestroyingATaskCancelsItsPendingRun) {
  auto ready = task("ready"), delayed = task("delayed"), kept = task("kept");
  ready->scheduleTask();
  delayed->scheduleTaskDelay(1.0);
  kept->scheduleTaskDelay(2.0);
  ready = nullptr;
  delayed = nullptr;
  EXPECT_EQ(scheduler_->readyCount(), 0u);
  EXPECT_EQ(scheduler_->timerCount(), 1u);
  EXPECT_EQ(scheduler_->advanceTo(5.0), 1u);
  EXPECT_EQ(ran_, (Names{"kept"}));
}

// Counts its destruction, to see when the last reference went.
class CountedTask : public Cog::Task {
 public:
  CountedTask(Vel::Ptr<Cog::TaskScheduler> const& s, int& destroyed)
      : Task(s, 0, "counted"), destroyed_(destroyed) {}

 protected:
  ~CountedTask() override { ++destroyed_; }

 private:
  int& destroyed_;
};

TEST_F(TaskSchedulerTest, HandlerMayDropTheLastReferenceToItsOwnTask) {
  int destroyed = 0;
  Vel::Ptr<Cog::Task> t = new CountedTask(scheduler_, destroyed);
  t->handlerIs([&] {
    t = nullptr;
    EXPECT_EQ(destroyed, 0);  // the run still holds it
    ran_.push_back("after drop");
  });
  t->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(ran_, (Names{"after drop"}));
  EXPECT_EQ(destroyed, 1);
}

TEST_F(TaskSchedulerTest, HandlerReplacingItselfFinishesItsRun) {
  auto t = task("t");
  t->handlerIs([&, name = std::string("first")] {
    t->handlerIs([&] { ran_.push_back("second"); });
    ran_.push_back(name);  // reads the old handler's capture after it was replaced
    t->scheduleTask();
  });
  t->scheduleTask();
  scheduler_->runReady();
  EXPECT_EQ(ran_, (Names{"first", "second"}));
}

TEST_F(TaskSchedulerTest, TasksKeepTheirSchedulerAndItsWheelAlive) {
  auto t = task("t");
  Vel::Ptr<Cog::TimerWheel> wheel = scheduler_->timerWheel();
  scheduler_ = nullptr;
  ASSERT_NE(wheel->scheduler(), nullptr);
  t->scheduleTaskDelay(1.0);
  EXPECT_EQ(t->scheduler()->advanceTo(1.0), 1u);
  EXPECT_EQ(ran_, (Names{"t"}));
  t = nullptr;
  EXPECT_EQ(wheel->scheduler(), nullptr);
}

TEST(TaskSchedulerRealClock, RunLoopRunsReadyTasksAndTimersUntilStopped) {
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(new Vel::RealClock);
  std::atomic<bool> stop{false};
  std::vector<std::string> ran;
  Vel::Ptr<Cog::Task> ready = new Cog::Task(scheduler, 0, "ready");
  ready->handlerIs([&] { ran.push_back("ready"); });
  Vel::Ptr<Cog::Task> stopper = new Cog::TimerTask(scheduler, 0, "stopper");
  stopper->handlerIs([&] {
    ran.push_back("stopper");
    stop = true;
  });
  stopper->scheduleTaskDelay(0.002);
  ready->scheduleTask();
  scheduler->runLoop(stop);
  EXPECT_EQ(ran, (std::vector<std::string>{"ready", "stopper"}));
  EXPECT_EQ(scheduler->timerCount(), 0u);
}

}  // namespace
