// Costs of the task library under load: timers with a million others pending, and the number
// allocator with a million numbers out.

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "platform/cog/NumAllocator.h"
#include "platform/cog/TaskScheduler.h"
#include "platform/cog/TimerTask.h"

namespace {

constexpr int pendingTimers = 1'000'000;
constexpr int numbersOut = 1'000'000;

// Delays spread over an hour with millisecond-and-finer parts, so timers fill every low level
// of the wheel.
std::vector<double> randomDelays(std::size_t n, double span, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> delay(0.0, span);
  std::vector<double> delays(n);
  for (double& d : delays) d = delay(rng);
  return delays;
}

struct LoadedScheduler {
  explicit LoadedScheduler(int pending) {
    for (double d : randomDelays(static_cast<std::size_t>(pending), 3600.0, 1)) {
      tasks.push_back(new Cog::TimerTask(scheduler, 2, "pending"));
      tasks.back()->scheduleTaskDelay(d);
    }
  }
  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(clock);
  std::vector<Vel::Ptr<Cog::Task>> tasks;
};

// One iteration: arm a timer, then cancel it, with a million others pending.
void BM_TimerScheduleCancel(benchmark::State& state) {
  LoadedScheduler loaded(pendingTimers);
  std::vector<Vel::Ptr<Cog::Task>> own;
  for (int i = 0; i < 1024; ++i) own.push_back(new Cog::TimerTask(loaded.scheduler, 2, "own"));
  auto const delays = randomDelays(1 << 16, 3600.0, 2);
  std::size_t i = 0;
  for (auto _ : state) {
    Cog::Task& task = *own[i % own.size()];
    task.scheduleTaskDelay(delays[i % delays.size()]);
    task.unscheduleTask();
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerScheduleCancel);

// One iteration: move one of the million pending timers to a new due time.
void BM_TimerReschedulePending(benchmark::State& state) {
  LoadedScheduler loaded(pendingTimers);
  auto const delays = randomDelays(1 << 16, 3600.0, 3);
  std::mt19937 rng(4);
  std::vector<std::uint32_t> picks(1 << 16);
  for (auto& p : picks) p = static_cast<std::uint32_t>(rng() % pendingTimers);
  std::size_t i = 0;
  for (auto _ : state) {
    loaded.tasks[picks[i % picks.size()]]->scheduleTaskDelay(delays[i % delays.size()]);
    ++i;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TimerReschedulePending);

// Per fired timer: advancing the virtual clock through an hour of timers, each run counted.
void BM_TimerFire(benchmark::State& state) {
  std::int64_t fired = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto loaded = std::make_unique<LoadedScheduler>(static_cast<int>(state.range(0)));
    for (auto& t : loaded->tasks) t->handlerIs([&fired] { ++fired; });
    state.ResumeTiming();
    loaded->scheduler->advanceTo(3600.0);
    state.PauseTiming();
    loaded.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(fired);
}
BENCHMARK(BM_TimerFire)
    ->Arg(10'000)
    ->Arg(pendingTimers)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

struct LoadedAllocator {
  explicit LoadedAllocator(double expiryTime) {
    Cog::NumAllocatorConfig config({0, 0xFFFFFFFF}, 100, expiryTime);
    allocator = new Cog::NumAllocator(config, new Cog::NumAllocatorStatus, clock);
    for (int i = 0; i < numbersOut; ++i) out.push_back(allocator->getNumber());
  }
  Vel::Ptr<Vel::VirtualClock> clock = new Vel::VirtualClock;
  Vel::Ptr<Cog::NumAllocator> allocator;
  std::vector<std::int64_t> out;
};

std::vector<std::uint32_t> randomPicks(std::uint32_t bound) {
  std::mt19937 rng(5);
  std::vector<std::uint32_t> picks(1 << 16);
  for (auto& p : picks) p = static_cast<std::uint32_t>(rng() % bound);
  return picks;
}

// One iteration: release a random number of the million out, then get one (no quarantine, so the
// released number comes straight back as the lowest free one).
void BM_NumAllocatorReleaseGet(benchmark::State& state) {
  LoadedAllocator loaded(0.0);
  auto const picks = randomPicks(numbersOut);
  std::size_t i = 0;
  for (auto _ : state) {
    // Numbers 0 to 999999 stay out: each released number is the next one handed out.
    loaded.allocator->releaseNumber(picks[i++ % picks.size()]);
    benchmark::DoNotOptimize(loaded.allocator->getNumber());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NumAllocatorReleaseGet);

// The same with a one-second quarantine on a clock moving 1 ms per iteration: about a thousand
// numbers rest at any time, the out set is fragmented and each get moves a rested number back.
void BM_NumAllocatorReleaseGetQuarantined(benchmark::State& state) {
  LoadedAllocator loaded(1.0);
  auto const picks = randomPicks(numbersOut);
  std::size_t i = 0;
  for (auto _ : state) {
    loaded.clock->advanceBy(0.001);
    std::int64_t& slot = loaded.out[picks[i++ % picks.size()]];
    loaded.allocator->releaseNumber(slot);
    slot = loaded.allocator->getNumber();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NumAllocatorReleaseGetQuarantined);

}  // namespace

BENCHMARK_MAIN();
