// The timer wheel against a plain sorted model: random delays (within one tick and across the
// wheel's levels), ready runs, cancels, re-arming from the run and clock advances must fire every
// run at the model's time and in its order, and list what is pending as the model does.

#include "platform/cog/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/cog/TaskScheduler.h"

#if NOX_HAVE_RAPIDCHECK
#include <rapidcheck/gtest.h>
#endif

namespace {

#if NOX_HAVE_RAPIDCHECK

enum TimerOp { timerDelayOp, timerReadyOp, timerCancelOp, timerAdvanceOp, timerOps };

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
                               rc::gen::tuple(rc::gen::inRange(0, static_cast<int>(timerOps)),
                                              rc::gen::inRange(0, taskCount), genValue)));

  using Key = std::tuple<bool, double, std::uint64_t>;
  std::map<Key, int> pending;
  std::map<int, Key> keyOf;
  double now = 0.0;
  std::uint64_t order = 0;
  auto drop = [&](int i) {
    if (keyOf.count(i)) pending.erase(keyOf[i]);
    keyOf.erase(i);
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
    if (kind == timerDelayOp) {
      tasks[i]->scheduleTaskDelay(value);
      put(i, now + std::max(value, 0.0));
    } else if (kind == timerReadyOp) {
      tasks[i]->scheduleTask();
      if (!keyOf.count(i) || std::get<0>(keyOf[i])) put(i, std::nullopt);
    } else if (kind == timerCancelOp) {
      tasks[i]->unscheduleTask();
      drop(i);
    } else {
      double const t = now + value;  // a negative value would move the clock back
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
      now = std::max(now, t);
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
