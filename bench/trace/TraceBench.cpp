// Cost of a trace call: a Fleck record with three integers beside spdlog formatting the same
// message to a null sink, a Fleck record with a text argument, and a call whose level is
// disabled in both traces.
//
//   trace_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>

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
