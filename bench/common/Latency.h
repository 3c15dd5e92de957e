#pragma once

// Single-event latency for benchmarks: a mean hides the one event that paid for a whole
// collection, so benchmarks of single events time each one and report its distribution.
//
// Events are timed in the thread's CPU time: a stall this code causes (a rebuild, a copy, page
// faults) counts, while the time another process held the core does not, so the maximum means
// something on a shared machine too. The clock read is a system call of a few hundred
// nanoseconds, so events under a few microseconds are better timed in batches. Each event's
// page faults are counted too (outside its timed span): on a virtual machine a fault of a fresh
// page can cost more than the event, and the longest event's faults tell whether it was one.
//
//   Latency latency;
//   for (auto _ : state) {
//     auto const timing = latency.time();
//     ... one event ...
//   }
//   latency.report(state);  // p50_us, p99_us, max_us (and max_over_p50) as counters

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <time.h>

#include <algorithm>

#include <chrono>
#include <cstdint>
#include <vector>

namespace Bench {

class Latency {
 public:
  // The calling thread's CPU time.
  struct Clock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using time_point = std::chrono::time_point<Clock, duration>;
    static time_point now() {
      timespec ts{};
      ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
      return time_point(std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec));
    }
  };

  // The calling thread's page faults so far.
  static long pageFaults() {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt + usage.ru_majflt;
  }

  // Times its own lifetime as one event.
  class Timing {
   public:
    explicit Timing(Latency& latency)
        : latency_(latency), faults_(pageFaults()), start_(Clock::now()) {}
    Timing(Timing const&) = delete;
    Timing& operator=(Timing const&) = delete;
    ~Timing() {
      auto const took = Clock::now() - start_;
      latency_.add(took, pageFaults() - faults_);
    }

   private:
    Latency& latency_;
    long faults_;
    Clock::time_point start_;
  };

  Timing time() { return Timing(*this); }
  void add(Clock::duration d, long faults = 0) {
    samples_.push_back(d.count());
    faults_.push_back(faults);
  }
  std::size_t size() const { return samples_.size(); }

  // The value `q` of the way up the sorted samples (0.5 the median, 1.0 the maximum), in us.
  double quantileUs(double q) const {
    if (samples_.empty()) return 0.0;
    std::vector<Clock::rep> sorted = samples_;
    std::sort(sorted.begin(), sorted.end());
    auto const at =
        std::min(sorted.size() - 1, static_cast<std::size_t>(q * double(sorted.size())));
    return std::chrono::duration<double, std::micro>(Clock::duration(sorted[at])).count();
  }

  // p50_us, p99_us, max_us, max_over_p50; max_at: which event (counted from 0, in the order
  // they were timed) took the longest, to tell a first-time stall from a periodic one; and
  // faults_at_max, the page faults of that event.
  void report(benchmark::State& state) const {
    if (!samples_.empty()) {
      auto const longest = std::max_element(samples_.begin(), samples_.end());
      state.counters["max_at"] = double(longest - samples_.begin());
      state.counters["faults_at_max"] = double(faults_[std::size_t(longest - samples_.begin())]);
    }
    double const p50 = quantileUs(0.5);
    double const max = quantileUs(1.0);
    state.counters["p50_us"] = p50;
    state.counters["p99_us"] = quantileUs(0.99);
    state.counters["max_us"] = max;
    state.counters["max_over_p50"] = p50 > 0 ? max / p50 : 0.0;
  }

 private:
  std::vector<Clock::rep> samples_;
  std::vector<long> faults_;
};

// The machine's own floor, in every program that times single events: 100,000 events of the
// same fixed work (about 2 us), timed the same way. Whatever their maximum exceeds their median
// by is the machine (interrupts, the hypervisor), not the code; an event distribution is read
// against it.
inline void latencyFloor(benchmark::State& state) {
  Latency latency;
  for (auto _ : state) {
    for (int event = 0; event < 100000; ++event) {
      auto const timing = latency.time();
      uint64_t sum = 0;
      for (uint64_t i = 0; i < 3000; ++i) {
        sum += i * 7;
        benchmark::DoNotOptimize(sum);
      }
    }
  }
  latency.report(state);
}
BENCHMARK(latencyFloor)->Name("BM_LatencyFloor")->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace Bench
