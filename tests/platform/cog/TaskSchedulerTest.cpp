// The scheduler and its timers, the cases a random run rarely hits: priorities, yielding and
// resuming, timer order within one tick, exact due times near and far, ready work between timers,
// lifetimes of tasks, notifiees and the scheduler, the real-clock loop. The general order of
// timers, rescheduling (a ready run replacing a delayed one among them) and cancelling are left
// to the property test of the wheel.

#include "platform/cog/TaskScheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <string>
#include <vector>

#include "platform/cog/Task.h"
#include "platform/cog/TimerTask.h"

namespace {

using Names = std::vector<std::string>;

class TaskSchedulerTest : public ::testing::Test {
 protected:
  Vel::Ptr<Cog::Task> task(std::string const& name, Cog::TaskPriority priority = 0) {
    Vel::Ptr<Cog::Task> t = new Cog::Task(scheduler_, priority, name);
    t->handlerIs([this, name] { ran_.push_back(name); });
    return t;
  }

  Vel::Ptr<Vel::VirtualClock> clock_ = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler_ = new Cog::TaskScheduler(clock_);
  Names ran_;
};

TEST_F(TaskSchedulerTest, ReadyTasksRunOnceByPriorityThenInReadyOrder) {
  auto a = task("a", 1), b = task("b", 2), c = task("c", 1), d = task("d", 2), e = task("e", -1);
  for (auto const& t : {a, b, c, d, e, a}) t->scheduleTask();
  Names listed;
  scheduler_->forEachScheduledTask([&](Cog::Task& t, auto) { listed.push_back(t.name()); });
  EXPECT_EQ(listed, (Names{"b", "d", "a", "c", "e"}));
  EXPECT_EQ(scheduler_->runReady(), 5u);
  EXPECT_EQ(ran_, listed);
}

// A long run counts one unit at a time and, when told to yield, reschedules itself and returns.
TEST_F(TaskSchedulerTest, YieldPolicyCutsALongRunThatThenResumes) {
  std::vector<std::pair<Vel::Ptr<Cog::YieldPolicy>, std::vector<int>>> const cases{
      {new Cog::WorkQuantumYield(3), {3, 3, 1}},
      {new Cog::WorkQuantumYield(0), {7}},
      {new Cog::TimeSliceYield(0.5), {2, 2, 2, 1}}};
  for (auto const& [policy, slices] : cases) {
    scheduler_->yieldPolicyIs(policy);
    Vel::Ptr<Cog::Task> review = new Cog::Task(scheduler_, 0, "review");
    int left = 7;
    std::vector<int> done;
    review->handlerIs([&] {
      done.push_back(0);
      while (left > 0) {
        --left;
        ++done.back();
        review->taskWorkCountInc();
        clock_->advanceBy(0.25);
        if (left > 0 && review->taskShouldYield()) {
          review->scheduleTask();
          return;
        }
      }
    });
    review->scheduleTask();
    EXPECT_EQ(scheduler_->runReady(), slices.size());
    EXPECT_EQ(done, slices);
    review->taskWorkCountInc(10);
    EXPECT_FALSE(review->taskShouldYield()) << "outside its run";
  }
}

struct RecordingNotifiee : Cog::Task::Notifiee {
  void onTaskRun() override { ++runs; }
  int runs = 0;
};

TEST_F(TaskSchedulerTest, NotifieeRunsBeforeTheHandlerAndEitherMayDieFirstEvenInTheRun) {
  auto t = task("t");
  {
    RecordingNotifiee gone;
    gone.notifierIs(t.ptr());
    t->scheduleTask();
  }
  EXPECT_EQ(t->notifiee(), nullptr);
  RecordingNotifiee survivor;
  t->notifieeIs(&survivor);
  // The handler replaces itself and drops the last reference to its task: both last the run.
  std::string const name(40, 'x');
  t->handlerIs([&, name] {
    ran_.push_back("after " + std::to_string(survivor.runs));
    t->handlerIs({});
    t = nullptr;
    ran_.push_back(survivor.notifier() ? name : "task gone");
  });
  EXPECT_EQ(scheduler_->runReady(), 1u);
  EXPECT_EQ(ran_, (Names{"after 1", name}));
  EXPECT_EQ(survivor.notifier(), nullptr);
}

TEST_F(TaskSchedulerTest, TimersFireInDueOrderThenSchedulingOrderWithinOneTickWhateverThePriority) {
  auto a = task("a"), b = task("b"), c = task("c", 9), d = task("d", 9);
  a->scheduleTaskDelay(2.0007);
  b->scheduleTaskDelay(2.0001);
  c->scheduleTaskDelay(2.0004);
  d->scheduleTaskDelay(2.0001);
  scheduler_->advanceTo(2.0004);
  EXPECT_EQ(ran_, (Names{"b", "d", "c"}));
  // A timer added to the tick being fired takes its place by due time.
  auto e = task("e");
  e->scheduleTaskDelay(0.0002);
  scheduler_->advanceTo(2.001);
  EXPECT_EQ(ran_, (Names{"b", "d", "c", "e", "a"}));
}

TEST_F(TaskSchedulerTest, ReadyTasksDrainAfterEachTimerBeforeTheNextFires) {
  auto follow = task("follow", -5), second = task("second"), first = task("first");
  first->handlerIs([&] {
    ran_.push_back("first");
    follow->scheduleTask();
  });
  first->scheduleTaskDelay(1.0);
  second->scheduleTaskDelay(1.0);
  scheduler_->advanceTo(1.0);
  EXPECT_EQ(ran_, (Names{"first", "follow", "second"}));
}

TEST_F(TaskSchedulerTest, TimersFireWhenTheClockReachesTheirDueTimeNotATickLaterNearOrFar) {
  std::vector<double> dues{1e15, 1e16, 1e17,   0.05, 4e11,  70.0,  1.0005,
                           3e5,  3.0,  5000.0, 2e7,  1.5e9, 0.0625};
  std::vector<Vel::Ptr<Cog::Task>> tasks;
  for (double due : dues) {
    tasks.push_back(task(std::to_string(due)));
    tasks.back()->scheduleTaskDelay(due);
  }
  std::sort(dues.begin(), dues.end());
  for (double due : dues) {
    EXPECT_EQ(scheduler_->advanceTo(std::nextafter(due, 0.0)), 0u) << "fired before " << due;
    ASSERT_EQ(scheduler_->advanceTo(due), 1u) << "not fired at " << due;
    EXPECT_EQ(ran_.back(), std::to_string(due));
  }
}

TEST_F(TaskSchedulerTest, TimerTaskMadeFromTheWheelKeepsItsSchedulerAlive) {
  Vel::Ptr<Cog::TimerWheel> wheel = scheduler_->timerWheel();
  Vel::Ptr<Cog::Task> t = new Cog::TimerTask(wheel, 0, "t");
  scheduler_ = nullptr;
  EXPECT_EQ(wheel->scheduler(), t->scheduler().ptr());
  t = nullptr;
  EXPECT_EQ(wheel->scheduler(), nullptr);
}

TEST_F(TaskSchedulerTest, DestroyingATaskCancelsItsPendingRun) {
  auto ready = task("ready"), delayed = task("delayed"), kept = task("kept");
  ready->scheduleTask();
  delayed->scheduleTaskDelay(1.0);
  kept->scheduleTaskDelay(2.0);
  ready = nullptr;
  delayed = nullptr;
  EXPECT_EQ(scheduler_->readyCount() + scheduler_->timerCount(), 1u);
  EXPECT_EQ(scheduler_->advanceTo(5.0), 1u);
  EXPECT_EQ(ran_, (Names{"kept"}));
}

TEST(TaskSchedulerRealClock, RunLoopRunsTimersUntilStopped) {
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(new Vel::RealClock);
  std::atomic<bool> stop{false};
  Vel::Ptr<Cog::Task> stopper = new Cog::TimerTask(scheduler, 0, "stopper");
  stopper->handlerIs([&] { stop = true; });
  stopper->scheduleTaskDelay(0.002);
  scheduler->runLoop(stop);
  EXPECT_EQ(scheduler->timerCount(), 0u);
}

}  // namespace
