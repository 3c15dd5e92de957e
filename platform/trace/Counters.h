#pragma once

// The process's registry of named 64-bit event counters (statistics such as
// "tunnelIdToHwTunnelIdIs"). A counter is registered once by name and then incremented through
// the pointer that registration returns, which stays valid for the life of the process;
// registering a name again returns the same counter. Increments are atomic, so a statistics
// reader on another thread sees whole values.

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Trace {

class Counter {
 public:
  explicit Counter(std::string name) : name_(std::move(name)) {}
  Counter(Counter const&) = delete;
  Counter& operator=(Counter const&) = delete;

  std::string const& name() const { return name_; }
  std::uint64_t value() const { return value_.load(std::memory_order_relaxed); }
  void inc(std::uint64_t n = 1) { value_.fetch_add(n, std::memory_order_relaxed); }
  void valueIs(std::uint64_t v) { value_.store(v, std::memory_order_relaxed); }

 private:
  std::string const name_;
  std::atomic<std::uint64_t> value_{0};
};

// Registers the counter (at 0) or returns the one already registered under the name.
Counter* counterIs(std::string_view name);
// The counter registered under the name, or null.
Counter* counter(std::string_view name);
// Its value; 0 when no such counter is registered.
std::uint64_t counterValue(std::string_view name);
// Every registered counter with its value, in ascending order of name.
std::vector<std::pair<std::string, std::uint64_t>> counters();
// Sets every counter to 0; registrations and pointers stay.
void countersReset();

// Every registered counter in the Prometheus text exposition format, one sample each, named
// PREFIX + the counter's name (characters a metric name cannot hold become '_') + "_total".
std::string countersExposition(std::string_view prefix = "nox_");
// `name` as a Prometheus metric name: [a-zA-Z_:][a-zA-Z0-9_:]*.
std::string metricName(std::string_view name);

}  // namespace Trace
