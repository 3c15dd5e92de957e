// The ESI filtering decap machine at scale: 100,000 LFIB routes with filter vias over 4,000
// interfaces (25 routes share each interface, so one programs it and 24 wait as conflicts).
// - drain: all 100,000 route keys in the backlog at once, handled by a new machine;
// - via-set change: the via set of 1,000 routes gets a new first via, the LFIB owner puts the
//   1,000 keys in the backlog, and the machine handles them.

#include <benchmark/benchmark.h>

#include "bench/common/Latency.h"
#include "bench/common/Memory.h"
#include "tests/NoxEvpn/DecapTestUtil.h"

namespace {

constexpr uint32_t routes = 100000;
constexpr uint32_t interfaces = 4000;
constexpr uint32_t sharedRoutes = 1000;
constexpr uint64_t sharedViaSet = interfaces + 1;
constexpr uint32_t firstLabel = 16;

// Routes [0, routes - sharedRoutes) use via set (n % interfaces) + 1, whose one via filters on
// Ethernet(n % interfaces + 1); the last sharedRoutes use the shared via set, which filters on
// one of two interfaces of their own.
void buildLfib(NoxTest::DecapWorld& w) {
  for (uint32_t i = 0; i < interfaces; ++i) {
    w.filter(i, ("Ethernet" + std::to_string(i + 1)).c_str());
    w.viaSet(i + 1, {NoxTest::filterVia(i)});
  }
  w.filter(interfaces, "Port-Channel1");
  w.filter(interfaces + 1, "Port-Channel2");
  w.viaSet(sharedViaSet, {NoxTest::filterVia(interfaces)});
  for (uint32_t n = 0; n < routes; ++n) {
    bool const shared = n >= routes - sharedRoutes;
    w.route(firstLabel + n, shared ? sharedViaSet : n % interfaces + 1);
  }
}

void fillBacklog(NoxTest::DecapWorld& w, uint32_t from, uint32_t count) {
  for (uint32_t n = from; n < from + count; ++n) w.touch(firstLabel + n);
}

void BM_DecapBacklogDrain(benchmark::State& state) {
  NoxTest::DecapWorld w;
  buildLfib(w);
  double bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    w.hwStatus->unprogrammedRouteDelAll();
    fillBacklog(w, 0, routes);
    std::size_t const heapBefore = Bench::heapBytesInUse();
    auto sm = w.start();
    state.ResumeTiming();
    w.scheduler->runReady();
    state.PauseTiming();
    bytes = double(Bench::heapBytesInUse() - heapBefore);
    benchmark::DoNotOptimize(sm->routeEsiFilterVias());
    sm = nullptr;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * routes);
  // The machine's state and what it writes for the routes it drains.
  state.counters["bytes_per_route"] = bytes / double(routes);
}
BENCHMARK(BM_DecapBacklogDrain)->Unit(benchmark::kMillisecond);

void BM_DecapViaSetChange(benchmark::State& state) {
  NoxTest::DecapWorld w;
  buildLfib(w);
  fillBacklog(w, 0, routes);
  auto sm = w.start();
  w.scheduler->runReady();
  uint64_t firstVia = interfaces;
  for (auto _ : state) {
    firstVia = firstVia == interfaces ? interfaces + 1 : interfaces;
    w.viaSet(sharedViaSet, {NoxTest::filterVia(firstVia)});
    fillBacklog(w, routes - sharedRoutes, sharedRoutes);
    w.scheduler->runReady();
  }
  benchmark::DoNotOptimize(sm->routeEsiFilterVias());
  state.SetItemsProcessed(state.iterations() * sharedRoutes);
}
BENCHMARK(BM_DecapViaSetChange)->Unit(benchmark::kMicrosecond);

// Single routes changing after the drain: 5,000 routes each given the next interface's via set
// and put in the backlog alone, each handled and timed on its own.
void BM_DecapEventLatency(benchmark::State& state) {
  NoxTest::DecapWorld w;
  buildLfib(w);
  fillBacklog(w, 0, routes);
  auto sm = w.start();
  w.scheduler->runReady();
  Bench::Latency latency;
  for (auto _ : state) {
    for (uint32_t n = 0; n < 5000; ++n) {
      w.route(firstLabel + n, (n + 1) % interfaces + 1);
      auto const timing = latency.time();
      fillBacklog(w, n, 1);
      w.scheduler->runReady();
    }
  }
  benchmark::DoNotOptimize(sm->routeEsiFilterVias());
  latency.report(state);
}
BENCHMARK(BM_DecapEventLatency)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
