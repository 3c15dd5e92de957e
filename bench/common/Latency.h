#pragma once

// Single-event latency for benchmarks: a mean hides the one event that paid for a whole
// collection, so benchmarks of single events time each one and report its distribution.
//
// Events are timed in the thread's CPU time: a stall this code causes (a rebuild, a copy, page
// faults) counts, while the time another process held the core does not, so the maximum means
// something on a shared machine too. The clock read is a system call of a few hundred
// nanoseconds, so events under a few microseconds are better timed in batches.
//
//   Latency latency;
//   for (auto _ : state) {
//     auto const timing = latency.time();
//     ... one event ...
//   }
//   latency.report(state);  // p50_us, p99_us, max_us (and max_over_p50) as counters

#include <benchmark/benchmark.h>

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

  // Times its own lifetime as one event.
  class Timing {
   public:
    explicit Timing(Latency& latency) : latency_(latency), start_(Clock::now()) {}
    Timing(Timing const&) = delete;
    Timing& operator=(Timing const&) = delete;
    ~Timing() { latency_.add(Clock::now() - start_); }

   private:
    Latency& latency_;
    Clock::time_point start_;
  };

  Timing time() { return Timing(*this); }
  void add(Clock::duration d) { samples_.push_back(d.count()); }
  std::size_t size() const { return samples_.size(); }

  // The value `q` of the way up the sorted samples (0.5 the median, 1.0 the maximum), in us.
  double quantileUs(double q) {
    if (samples_.empty()) return 0.0;
    std::sort(samples_.begin(), samples_.end());
    auto const at =
        std::min(samples_.size() - 1, static_cast<std::size_t>(q * double(samples_.size())));
    return std::chrono::duration<double, std::micro>(Clock::duration(samples_[at])).count();
  }

  // p50_us, p99_us, max_us, max_over_p50, and max_at: which event (counted from 0, in the order
  // they were timed) took the longest, to tell a first-time stall from a periodic one.
  void report(benchmark::State& state) {
    if (!samples_.empty()) {
      auto const longest = std::max_element(samples_.begin(), samples_.end());
      state.counters["max_at"] = double(longest - samples_.begin());
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
};

}  // namespace Bench
