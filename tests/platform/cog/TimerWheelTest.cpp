// Timers on the virtual clock: firing order, exact due times, wheel levels, rescheduling and
// cancelling; and a property test against a plain sorted model.

#include "platform/cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/cog/TaskScheduler.h"
#include "platform/cog/TimerTask.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>
#endif

namespace {

struct Fired {
  std::string name;
  double time;
  friend bool operator==(Fired const&, Fired const&) = default;
  friend std::ostream& operator<<(std::ostream& os, Fired const& f) {
    return os << f.name << "@" << f.time;
  }
};

class TimerTest : public ::testing::Test {
 protected:
  Vel::Ptr<Cog::Task> timer(std::string const& name, Cog::TaskPriority priority = 0) {
    Vel::Ptr<Cog::Task> t = new Cog::TimerTask(scheduler_, priority, name);
    t->handlerIs([this, name] { fired_.push_back({name, clock_->now()}); });
    return t;
  }
  std::vector<std::string> firedNames() const {
    std::vector<std::string> names;
    for (auto const& f : fired_) names.push_back(f.name);
    return names;
  }

  Vel::Ptr<Vel::VirtualClock> clock_ = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler_ = new Cog::TaskScheduler(clock_);
  std::vector<Fired> fired_;
};

using Names = std::vector<std::string>;

TEST(VirtualClock, StartsAtZeroAndNeverGoesBack) {
  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  EXPECT_EQ(clock->now(), 0.0);
  clock->advanceTo(2.5);
  clock->advanceTo(1.0);
  clock->advanceBy(-1.0);
  EXPECT_EQ(clock->now(), 2.5);
  clock->advanceBy(0.5);
  EXPECT_EQ(clock->now(), 3.0);
}

TEST_F(TimerTest, TimersFireInDueOrderThenSchedulingOrderWhateverTheirPriority) {
  auto a = timer("a"), b = timer("b"), c = timer("c"), d = timer("d"), e = timer("e", 9);
  a->scheduleTaskDelay(3.0);
  b->scheduleTaskDelay(1.0);
  c->scheduleTaskDelay(2.0);
  d->scheduleTaskDelay(1.0);
  e->scheduleTaskDelay(2.5);
  EXPECT_EQ(scheduler_->advanceTo(10.0), 5u);
  EXPECT_EQ(fired_,
            (std::vector<Fired>{{"b", 1.0}, {"d", 1.0}, {"c", 2.0}, {"e", 2.5}, {"a", 3.0}}));
  EXPECT_EQ(clock_->now(), 10.0);
}

TEST_F(TimerTest, ATimerDueAtTFiresWhenTheClockReachesTNotATickLater) {
  auto a = timer("a");
  a->scheduleTaskDelay(1.0005);
  EXPECT_EQ(scheduler_->advanceTo(1.0004), 0u);
  EXPECT_EQ(a->taskDue(), 1.0005);
  EXPECT_EQ(scheduler_->advanceTo(1.0005), 1u);
  EXPECT_EQ(fired_, (std::vector<Fired>{{"a", 1.0005}}));
}

TEST_F(TimerTest, TimersWithinOneTickFireInExactDueOrder) {
  auto a = timer("a"), b = timer("b"), c = timer("c"), d = timer("d");
  a->scheduleTaskDelay(2.0007);
  b->scheduleTaskDelay(2.0001);
  c->scheduleTaskDelay(2.0004);
  d->scheduleTaskDelay(2.0001);
  scheduler_->advanceTo(2.0004);
  EXPECT_EQ(firedNames(), (Names{"b", "d", "c"}));
  // A timer added to the tick being fired takes its place by due time.
  auto e = timer("e");
  e->scheduleTaskDelay(0.0002);
  scheduler_->advanceTo(2.001);
  EXPECT_EQ(firedNames(), (Names{"b", "d", "c", "e", "a"}));
}

TEST_F(TimerTest, ARunSeesTheClockAtItsDueTimeAndMayRearmWithinTheSameAdvance) {
  Vel::Ptr<Cog::Task> periodic = new Cog::TimerTask(scheduler_, 2, "periodic");
  std::vector<double> runs;
  periodic->handlerIs([&] {
    runs.push_back(clock_->now());
    periodic->scheduleTaskDelay(5.0);
  });
  periodic->scheduleTaskDelay(5.0);
  EXPECT_EQ(scheduler_->advanceTo(22.5), 4u);
  EXPECT_EQ(runs, (std::vector<double>{5.0, 10.0, 15.0, 20.0}));
  EXPECT_EQ(clock_->now(), 22.5);
  EXPECT_EQ(periodic->taskDue(), 25.0);
}

TEST_F(TimerTest, ReadyTasksDrainAfterEachTimerBeforeTheNextFires) {
  auto follow = timer("follow", -5), second = timer("second");
  Vel::Ptr<Cog::Task> first = new Cog::TimerTask(scheduler_, 0, "first");
  first->handlerIs([&] {
    fired_.push_back({"first", clock_->now()});
    follow->scheduleTask();
  });
  first->scheduleTaskDelay(1.0);
  second->scheduleTaskDelay(1.0);
  scheduler_->advanceTo(1.0);
  EXPECT_EQ(firedNames(), (Names{"first", "follow", "second"}));
}

TEST_F(TimerTest, ReschedulingAPendingTimerMovesItAndRenewsItsSchedulingOrder) {
  auto a = timer("a"), b = timer("b");
  a->scheduleTaskDelay(5.0);
  b->scheduleTaskDelay(5.0);
  a->scheduleTaskDelay(5.0);
  scheduler_->advanceTo(5.0);
  EXPECT_EQ(firedNames(), (Names{"b", "a"}));

  a->scheduleTaskDelay(100.0);
  a->scheduleTaskDelay(2.0);
  EXPECT_EQ(scheduler_->timerCount(), 1u);
  EXPECT_EQ(scheduler_->advanceTo(200.0), 1u);
  EXPECT_EQ(fired_.back(), (Fired{"a", 7.0}));
}

TEST_F(TimerTest, UnscheduleCancelsAReadyOrDelayedRun) {
  auto a = timer("a"), b = timer("b"), c = timer("c");
  a->scheduleTaskDelay(1.0);
  b->scheduleTaskDelay(2.0);
  c->scheduleTask();
  a->unscheduleTask();
  c->unscheduleTask();
  EXPECT_FALSE(a->taskScheduled() || c->taskScheduled());
  EXPECT_EQ(a->taskDue(), std::nullopt);
  EXPECT_EQ(scheduler_->advanceTo(3.0), 1u);
  EXPECT_EQ(firedNames(), (Names{"b"}));
}

TEST_F(TimerTest, ScheduleTaskOverridesAPendingDelayAndDelayOverridesReady) {
  auto a = timer("a"), b = timer("b");
  a->scheduleTaskDelay(5.0);
  a->scheduleTask();
  b->scheduleTask();
  b->scheduleTaskDelay(3.0);
  EXPECT_EQ(a->taskDue(), std::nullopt);
  EXPECT_TRUE(a->taskScheduled());
  EXPECT_EQ(scheduler_->runReady(), 1u);
  EXPECT_EQ(scheduler_->advanceTo(10.0), 1u);
  EXPECT_EQ(fired_, (std::vector<Fired>{{"a", 0.0}, {"b", 3.0}}));
}

TEST_F(TimerTest, TimersFarInTheFutureCrossWheelLevelsAndFireExactly) {
  std::vector<double> const dues{1e15, 1e16, 1e17,   0.05, 4e11,  70.0,
                                 3.0,  3e5,  5000.0, 2e7,  1.5e9, 0.0625};
  std::vector<Vel::Ptr<Cog::Task>> timers;
  for (double due : dues) {
    timers.push_back(timer(std::to_string(due)));
    timers.back()->scheduleTaskDelay(due);
  }
  std::vector<double> sorted = dues;
  std::sort(sorted.begin(), sorted.end());
  for (double due : sorted) {
    std::size_t const before = fired_.size();
    scheduler_->advanceTo(std::nextafter(due, 0.0));
    EXPECT_EQ(fired_.size(), before) << "fired before " << due;
    scheduler_->advanceTo(due);
    ASSERT_EQ(fired_.size(), before + 1) << "not fired at " << due;
    EXPECT_EQ(fired_.back(), (Fired{std::to_string(due), due}));
  }
  EXPECT_EQ(scheduler_->timerCount(), 0u);
}

TEST_F(TimerTest, TimerTaskMadeFromTheWheelRunsOnItsScheduler) {
  Vel::Ptr<Cog::TimerWheel> wheel = scheduler_->timerWheel();
  EXPECT_EQ(wheel->scheduler(), scheduler_.ptr());
  Vel::Ptr<Cog::Task> t = new Cog::TimerTask(wheel, 2, "fromWheel");
  bool ran = false;
  t->handlerIs([&] { ran = true; });
  EXPECT_EQ(t->scheduler(), scheduler_);
  t->scheduleTaskDelay(0.5);
  scheduler_->advanceTo(0.5);
  EXPECT_TRUE(ran);
}

#if NOX_HAVE_RAPIDCHECK

enum OpKind { delayOp, readyOp, cancelOp, advanceOp, opKinds };

// The model keeps every pending run in a sorted map under (delayed, due, scheduling order), so
// its first entry is always the next run: ready runs first, then timers by due time and order.
RC_GTEST_PROP(TimerWheelProperty, FiresExactlyAsASortedModelDoes, ()) {
  constexpr int taskCount = 8;
  // Delays and advances: special values, steps within a few ticks (many timers share a tick),
  // and spans reaching the wheel's higher levels.
  auto const genValue = rc::gen::weightedOneOf<double>({
      {2, rc::gen::element(0.0, 0.001, 0.0015, 1.0, 1.0, 64.0, -1.0, 1e12)},
      {4, rc::gen::map(rc::gen::inRange(0, 30), [](int x) { return x * 0.0001; })},
      {2, rc::gen::map(rc::gen::inRange(0, 100000), [](int x) { return x * 0.0001; })},
      {1, rc::gen::map(rc::gen::inRange(0, 1000000), [](int x) { return x * 37.0; })},
  });
  auto const ops =
      *rc::gen::scale(4.0, rc::gen::container<std::vector<std::tuple<int, int, double>>>(
                               rc::gen::tuple(rc::gen::inRange(0, static_cast<int>(opKinds)),
                                              rc::gen::inRange(0, taskCount), genValue)));

  using Key = std::tuple<bool, double, std::uint64_t>;
  std::map<Key, int> pending;
  std::map<int, Key> keyOf;
  double now = 0.0;
  std::uint64_t order = 0;
  auto drop = [&](int i) {
    if (auto it = keyOf.find(i); it != keyOf.end()) {
      pending.erase(it->second);
      keyOf.erase(it);
    }
  };
  auto put = [&](int i, std::optional<double> due) {
    drop(i);
    keyOf[i] = {due.has_value(), due.value_or(0.0), order++};
    pending[keyOf[i]] = i;
  };
  // Even-numbered tasks re-arm themselves from their run, three times each.
  auto rearmDelay = [](int i) { return 0.7 * (i + 1); };
  std::vector<int> rearmsLeft(taskCount, 3), modelRearmsLeft(taskCount, 3);
  std::vector<std::pair<int, double>> fired, expected;

  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(clock);
  std::vector<Vel::Ptr<Cog::Task>> tasks;
  for (int i = 0; i < taskCount; ++i) {
    tasks.push_back(new Cog::Task(scheduler, 0, std::to_string(i)));
    tasks.back()->handlerIs([&, i] {
      fired.emplace_back(i, clock->now());
      if (i % 2 == 0 && rearmsLeft[i]-- > 0) tasks[i]->scheduleTaskDelay(rearmDelay(i));
    });
  }

  for (auto const& [kind, i, value] : ops) {
    if (kind == delayOp) {
      tasks[i]->scheduleTaskDelay(value);
      put(i, now + std::max(value, 0.0));
    } else if (kind == readyOp) {
      tasks[i]->scheduleTask();
      if (!keyOf.count(i) || std::get<0>(keyOf[i])) put(i, std::nullopt);
    } else if (kind == cancelOp) {
      tasks[i]->unscheduleTask();
      drop(i);
    } else {
      double const t = now + std::abs(value);
      scheduler->advanceTo(t);
      while (!pending.empty()) {
        auto const [key, id] = *pending.begin();
        auto const [delayed, due, ignored] = key;
        if (delayed && due > t) break;
        now = std::max(now, due);
        drop(id);
        expected.emplace_back(id, now);
        if (id % 2 == 0 && modelRearmsLeft[id]-- > 0) put(id, now + rearmDelay(id));
      }
      now = t;
    }
    RC_ASSERT(clock->now() == now);
    std::vector<std::pair<std::string, std::optional<double>>> listed, modelListed;
    scheduler->forEachScheduledTask(
        [&](Cog::Task& task, std::optional<double> due) { listed.emplace_back(task.name(), due); });
    for (auto const& [key, id] : pending) {
      auto const [delayed, due, ignored] = key;
      modelListed.emplace_back(std::to_string(id), delayed ? std::optional(due) : std::nullopt);
    }
    RC_ASSERT(listed == modelListed);
  }
  RC_ASSERT(fired == expected);
}

#endif

}  // namespace
