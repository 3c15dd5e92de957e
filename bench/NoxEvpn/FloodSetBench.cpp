// The flood-set path at data-centre scale: 4094 VLANs x 16 MACs x 8 MPLS destinations.
// - filter: one destination change end to end (input -> filter -> output notified), and a cold
//   start over the whole input;
// - floodset (over 2000 vias): cold start, one via's hardware information publishing 100 waiting
//   destinations, one hardware tunnel id change updating every destination of its tunnel.

#include <benchmark/benchmark.h>

#include "NoxEvpn/NoxEvpnVlanFloodSetFilterSm.h"
#include "NoxEvpn/NoxEvpnVlanFloodSetSm.h"
#include "bench/common/Latency.h"
#include "bench/common/Memory.h"

// How much the machine has published, and what one tunnel carries.
template <>
struct Vel::Internals<Nox::EvpnVlanFloodSetSm> {
  static std::size_t published(Nox::EvpnVlanFloodSetSm const& sm) { return sm.mplsDestHwConfigs(); }
  static std::size_t destsOf(Nox::EvpnVlanFloodSetSm const& sm, Nox::TunnelId tunnel) {
    return sm.tunnelToFloodSetEntry(tunnel)->vlanMacDestSets();
  }
};

namespace {

using Internals = Vel::Internals<Nox::EvpnVlanFloodSetSm>;

constexpr int vlans = 4094;
constexpr int macsPerVlan = 16;
constexpr int destsPerFloodSet = 8;
constexpr int vias = 2000;
constexpr int tunnels = 200;

// Destination n of the whole input: vias are shared round robin, 10 labels per tunnel.
L2Rib::Dest mplsDest(uint64_t n) {
  uint64_t const via = n % vias;
  return L2Rib::Dest::mpls(L2Rib::DestId(n + 1),
                           Gantry::IntfId(Gantry::IntfId::Kind::tunnel, 1 + via % tunnels),
                           Gantry::MplsLabel(uint32_t(1000 + via / tunnels)));
}

Vel::Ptr<L2Rib::FloodSetOutput> bigInput() {
  auto in = L2Rib::floodSetOutputFactory();
  uint64_t n = 0;
  for (int v = 1; v <= vlans; ++v) {
    auto vfs = in->vlanFloodSetIs(Bridging::VlanId(uint16_t(v)));
    for (int m = 0; m < macsPerVlan; ++m) {
      auto fs = vfs->floodSetIs(Gantry::EthAddr::fromValue(0x10000 + m));
      for (int d = 0; d < destsPerFloodSet; ++d) fs->destSetIs(mplsDest(n++), true);
    }
  }
  return in;
}

Vel::Ptr<L2Rib::FloodSetOutput> const& sharedInput() {
  static Vel::Ptr<L2Rib::FloodSetOutput> in = bigInput();
  return in;
}

class OutputCounter : public L2Rib::FloodSet::NotifieeConst {
 public:
  explicit OutputCounter(Vel::Ptr<L2Rib::FloodSet const> const& f) : NotifieeConst(f) {}
  void onDestSet(L2Rib::Dest const&) override { ++changes; }
  uint64_t changes = 0;
};

void BM_FilterColdStart(benchmark::State& state) {
  auto const& in = sharedInput();
  double bytes = 0;
  for (auto _ : state) {
    std::size_t const before = Bench::heapBytesInUse();
    auto out = L2Rib::floodSetOutputFactory();
    auto sm = Nox::vlanFloodSetFilterSmFactory(L2Rib::destTypeMpls_, in, out);
    benchmark::DoNotOptimize(out->vlanFloodSets());
    state.PauseTiming();
    bytes = double(Bench::heapBytesInUse() - before);
    sm = nullptr;
    out = nullptr;
    state.ResumeTiming();
  }
  state.counters["dests"] = double(vlans) * macsPerVlan * destsPerFloodSet;
  // The filter's output (a copy of the MPLS destinations) and its own state.
  state.counters["bytes_per_dest"] = bytes / state.counters["dests"];
}

void BM_FilterDestinationChange(benchmark::State& state) {
  auto const& in = sharedInput();
  auto out = L2Rib::floodSetOutputFactory();
  auto sm = Nox::vlanFloodSetFilterSmFactory(L2Rib::destTypeMpls_, in, out);
  auto const v = Bridging::VlanId(2000);
  auto const m = Gantry::EthAddr::fromValue(0x10007);
  auto inSet = in->vlanFloodSet(v)->floodSet(m);
  OutputCounter counter(out->vlanFloodSet(v)->floodSet(m));
  L2Rib::Dest const d = mplsDest(999999);
  for (auto _ : state) {
    inSet->destSetIs(d, true);
    inSet->destSetDel(d);
  }
  if (counter.changes != 2 * uint64_t(state.iterations())) state.SkipWithError("lost a change");
  state.SetItemsProcessed(2 * state.iterations());
}

// Single destination changes timed one by one across 50,000 different flood sets: each adds a
// destination and then removes it (two events), through the filter to its output.
void BM_FilterEventLatency(benchmark::State& state) {
  auto const& in = sharedInput();
  auto out = L2Rib::floodSetOutputFactory();
  auto sm = Nox::vlanFloodSetFilterSmFactory(L2Rib::destTypeMpls_, in, out);
  Bench::Latency latency;
  for (auto _ : state) {
    for (uint64_t n = 0; n < 50000; ++n) {
      auto const v = Bridging::VlanId(uint16_t(1 + n % vlans));
      auto const m = Gantry::EthAddr::fromValue(0x10000 + (n / vlans) % macsPerVlan);
      auto inSet = in->vlanFloodSet(v)->floodSet(m);
      L2Rib::Dest const d = mplsDest(1000000 + n);
      {
        auto const timing = latency.time();
        inSet->destSetIs(d, true);
      }
      auto const timing = latency.time();
      inSet->destSetDel(d);
    }
  }
  latency.report(state);
}

struct FloodSetWorld {
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnelTable =
      Nox::tunnelIdToHwTunnelIdMappingFactory("bench.tunnelIdToHwTunnelId");
  Vel::Ptr<Nox::HwInfoMapping> hwInfo = Nox::hwInfoMappingFactory();
  Vel::Ptr<Nox::EvpnVlanFloodSetHwConfig> hwConfig = Nox::evpnVlanFloodSetHwConfigFactory();
  Vel::Ptr<Nox::EvpnVlanFloodSetHwStatus> hwStatus = Nox::evpnVlanFloodSetHwStatusFactory();
  Vel::Ptr<Nox::EvpnVlanFloodSetSm> sm;

  Nox::MplsFloodSetVia via(uint64_t v) const {
    return Nox::MplsFloodSetVia(Nox::TunnelId(1 + v % tunnels),
                                Gantry::MplsLabel(uint32_t(1000 + v / tunnels)));
  }
  void allViasReady(uint64_t except = vias) { viasReady(except == vias ? 0 : 1, except); }
  // Every via but those in [first, first + count) has its hardware information.
  void viasReady(uint64_t count, uint64_t first = 0) {
    for (uint64_t v = 0; v < vias; ++v) {
      if (v < first || v >= first + count) viaReady(v);
    }
  }
  void viaReady(uint64_t v) {
    hwInfo->mappingIs(via(v), Nox::MplsDestHwInfo(70000 + v, Gantry::IntfId("L2Intf1")));
  }
  void start() {
    tunnelTable->tunnelIdToHwTunnelIdReadyIs(true);
    sm = Nox::evpnVlanFloodSetSmFactory(sharedInput(), tunnelTable, hwInfo, hwConfig, hwStatus);
  }
};

void BM_FloodSetColdStart(benchmark::State& state) {
  uint64_t published = 0;
  double bytes = 0;
  long faults = 0;
  sharedInput();  // built once, outside the timing
  for (auto _ : state) {
    state.PauseTiming();
    auto world = std::make_unique<FloodSetWorld>();
    world->allViasReady();
    std::size_t const heapBefore = Bench::heapBytesInUse();
    long const faultsBefore = Bench::Latency::pageFaults();
    state.ResumeTiming();
    world->start();
    published += Internals::published(*world->sm);
    state.PauseTiming();
    faults += Bench::Latency::pageFaults() - faultsBefore;
    bytes = double(Bench::heapBytesInUse() - heapBefore);
    world.reset();
    state.ResumeTiming();
  }
  state.counters["configs"] = double(published) / double(state.iterations());
  // The machine's state and the configurations it publishes.
  state.counters["bytes_per_config"] = bytes / state.counters["configs"];
  state.counters["faults_per_1k"] = 1000.0 * double(faults) / double(published);
  state.counters["per_config"] = benchmark::Counter(
      double(published), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// One via's hardware information arrives: its waiting destinations (4094*16*8/2000, about 262)
// are published; then it leaves again. Reported per published configuration.
void BM_FloodSetHwInfoArrival(benchmark::State& state) {
  FloodSetWorld world;
  uint64_t const lateVia = 7;
  world.allViasReady(lateVia);
  world.start();
  std::size_t const before = Internals::published(*world.sm);
  uint64_t published = 0;
  for (auto _ : state) {
    world.hwInfo->mappingIs(world.via(lateVia), Nox::MplsDestHwInfo(5, Gantry::IntfId("L2Intf5")));
    published += Internals::published(*world.sm) - before;
    world.hwInfo->mappingDel(world.via(lateVia));
  }
  state.counters["per_config"] = benchmark::Counter(
      double(published), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["configs"] = double(published) / double(state.iterations());
}

// One tunnel's hardware id changes: every destination of the tunnel (about 2600) is updated.
void BM_FloodSetHwTunnelIdChange(benchmark::State& state) {
  FloodSetWorld world;
  world.allViasReady();
  world.start();
  Nox::TunnelId const tunnel(3);
  uint64_t const updated = Internals::destsOf(*world.sm, tunnel);
  uint32_t hw = 1;
  for (auto _ : state) {
    world.tunnelTable->tunnelIdToHwTunnelIdIs({tunnel, Nox::HwTunnelId(++hw)});
  }
  state.counters["per_config"] =
      benchmark::Counter(double(updated) * double(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["configs"] = double(updated);
}

// Each single event after a cold start, timed one by one: 200 late vias arrive, each publishing
// its 262 waiting destinations, and then leave again, in turn. A stall (a collection rebuilt or
// copied whole) shows as a maximum far above the median.
void BM_FloodSetHwInfoLatency(benchmark::State& state) {
  constexpr uint64_t late = 200;
  Bench::Latency latency;
  for (auto _ : state) {
    state.PauseTiming();
    auto world = std::make_unique<FloodSetWorld>();
    world->viasReady(late);
    world->start();
    state.ResumeTiming();
    for (uint64_t v = 0; v < late; ++v) {
      auto const timing = latency.time();
      world->viaReady(v);
    }
    for (uint64_t v = 0; v < late; ++v) {
      auto const timing = latency.time();
      world->hwInfo->mappingDel(world->via(v));
    }
    state.PauseTiming();
    world.reset();
    state.ResumeTiming();
  }
  latency.report(state);
}

BENCHMARK(BM_FilterColdStart)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FilterDestinationChange);
BENCHMARK(BM_FilterEventLatency)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_FloodSetColdStart)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_FloodSetHwInfoArrival)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FloodSetHwTunnelIdChange)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FloodSetHwInfoLatency)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
