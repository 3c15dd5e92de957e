// Cost of a trace call: a Fleck record with three integers beside the floor any binary record
// pays (a time-stamp read and a 32-byte store into a ring), beside spdlog formatting the same
// message to a null sink, and beside spdlog's asynchronous logger handing it to its thread; a
// Fleck record with a text argument, and a call whose level is disabled in both traces.
//
//   trace_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "platform/trace/Clock.h"
#include "platform/trace/Trace.h"

NOX_TRACE_FACILITY("TraceBench");

namespace {

// Traces of this facility go to Fleck only, into a buffer of the default size that is removed
// afterwards.
class FleckOnly {
 public:
  FleckOnly() {
    Trace::levelIs("*", Trace::levelOff);
    Fleck::levelIs("*", Trace::levelOff);
    Fleck::levelIs("TraceBench", 1);
    Fleck::open(path_);
  }
  ~FleckOnly() {
    Fleck::close();
    ::unlink(path_.c_str());
  }

 private:
  std::string const path_ = "/tmp/nox-trace-bench-" + std::to_string(getpid()) + ".flk";
};

void fleckThreeIntegers(benchmark::State& state) {
  FleckOnly fleck;
  std::int64_t vlan = 10, mac = 0x0000'0000'0100, dest = 3;
  for (auto _ : state) {
    NOX_TRACE(1, "  processFloodSet vlan: {} mac: {} dest: {}", vlan, mac, dest);
    ++dest;
  }
}
BENCHMARK(fleckThreeIntegers);

// The floor: what any time-stamped binary record costs, a time-stamp read and a 32-byte store
// into a ring of the same cache footprint class.
void floorTimestampAndStore(benchmark::State& state) {
  struct Slot {
    std::uint64_t words[4];
  };
  static std::array<Slot, 1 << 12> ring;
  std::uint64_t vlan = 10, mac = 0x0000'0000'0100, dest = 3;
  std::size_t at = 0;
  for (auto _ : state) {
    Slot const slot{{Fleck::ticks(), vlan, mac, dest}};
    std::memcpy(&ring[at], &slot, sizeof slot);
    at = (at + 1) & (ring.size() - 1);
    ++dest;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(floorTimestampAndStore);

void spdlogThreeIntegersNullSink(benchmark::State& state) {
  spdlog::logger logger("bench", std::make_shared<spdlog::sinks::null_sink_st>());
  logger.set_level(spdlog::level::info);
  std::int64_t vlan = 10, mac = 0x0000'0000'0100, dest = 3;
  for (auto _ : state) {
    logger.info("  processFloodSet vlan: {} mac: {} dest: {}", vlan, mac, dest);
    ++dest;
  }
}
BENCHMARK(spdlogThreeIntegersNullSink);

// spdlog's asynchronous logger: the caller copies the message into a queue that one worker
// thread formats to a null sink; a full queue makes the caller wait.
void spdlogAsyncThreeIntegersNullSink(benchmark::State& state) {
  auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
  auto logger = std::make_shared<spdlog::async_logger>(
      "benchAsync", std::make_shared<spdlog::sinks::null_sink_mt>(), pool,
      spdlog::async_overflow_policy::block);
  logger->set_level(spdlog::level::info);
  std::int64_t vlan = 10, mac = 0x0000'0000'0100, dest = 3;
  for (auto _ : state) {
    logger->info("  processFloodSet vlan: {} mac: {} dest: {}", vlan, mac, dest);
    ++dest;
  }
}
BENCHMARK(spdlogAsyncThreeIntegersNullSink)->UseRealTime();

void fleckTextArgument(benchmark::State& state) {
  FleckOnly fleck;
  std::string const dest = "mpls/3/Tunnel5/1000";
  for (auto _ : state) NOX_TRACE(1, "     adding dest {}", dest);
}
BENCHMARK(fleckTextArgument);

void disabledTrace(benchmark::State& state) {
  Trace::levelIs("*", Trace::levelOff);
  Fleck::levelIs("*", Trace::levelOff);
  std::int64_t vlan = 10, mac = 0x0000'0000'0100, dest = 3;
  for (auto _ : state) {
    NOX_TRACE(8, "  processFloodSet vlan: {} mac: {} dest: {}", vlan, mac, dest);
    benchmark::DoNotOptimize(++dest);
  }
}
BENCHMARK(disabledTrace);

}  // namespace

BENCHMARK_MAIN();
