// The whole MPLS flooding path cold-started over a full layer-2 RIB: 4094 VLANs x 16 MACs x
// 8 MPLS destinations over 2000 vias, then filter, flood-set FEC and flood-set machines started
// in one simulated agent with the emulated FEC programmer and hardware agent on, until every
// destination is configured and reported programmed. The time is per destination. Then single
// events through the same path, timed one by one.

#include <benchmark/benchmark.h>

#include <sstream>

#include "bench/common/Latency.h"
#include "bench/common/Memory.h"
#include "tools/noxsim/FecProgrammer.h"
#include "tools/noxsim/HwAgent.h"
#include "tools/noxsim/Machines.h"
#include "tools/noxsim/Sim.h"

namespace {

constexpr int vlans = 4094;
constexpr int macsPerVlan = 16;
constexpr int destsPerFloodSet = 8;
constexpr int vias = 2000;
constexpr int tunnels = 200;
constexpr double dests = double(vlans) * macsPerVlan * destsPerFloodSet;

L2Rib::Dest mplsDest(uint64_t n) {
  uint64_t const via = n % vias;
  return L2Rib::Dest::mpls(L2Rib::DestId(n + 1),
                           Gantry::IntfId(Gantry::IntfId::Kind::tunnel, 1 + via % tunnels),
                           Gantry::MplsLabel(uint32_t(1000 + via / tunnels)));
}

void fill(Noxsim::World& w) {
  for (int t = 1; t <= tunnels; ++t) {
    w.tunnels->tunnelIdToHwTunnelIdIs(
        Nox::TunnelIdToHwTunnelId(Nox::TunnelId(uint64_t(t)), Nox::HwTunnelId(500 + t)));
  }
  uint64_t n = 0;
  for (int v = 1; v <= vlans; ++v) {
    auto vfs = w.l2ribFloodSets->vlanFloodSetIs(Bridging::VlanId(uint16_t(v)));
    for (int m = 0; m < macsPerVlan; ++m) {
      auto fs = vfs->floodSetIs(Gantry::EthAddr::fromValue(0x10000 + m));
      for (int d = 0; d < destsPerFloodSet; ++d) fs->destSetIs(mplsDest(n++), true);
    }
  }
}

std::size_t floodSetProgrammer() {
  auto const& table = Noxsim::fecProgrammerTable();
  return std::size_t(Noxsim::fecProgrammerWiring("floodset") - table.data());
}

std::vector<int> pathMachines() {
  std::vector<int> machines;
  for (auto name : {"filter", "floodset-fec", "floodset"}) {
    machines.push_back(Noxsim::machineIndex(name));
  }
  return machines;
}

// A simulated agent over the full layer-2 RIB with both emulated agents answering, not started.
std::unique_ptr<Noxsim::Sim> filledSim(std::ostream& out, std::ostream& err) {
  auto sim = std::make_unique<Noxsim::Sim>(out, err, true);
  fill(sim->world());
  sim->hwAgent().autoOnIs(true);
  sim->fecProgrammer(floodSetProgrammer()).autoOnIs(true);
  return sim;
}

bool settledWhole(Noxsim::Sim& sim) {
  return !sim.failed() && sim.world().hwStatus->statuss() == std::size_t(vlans) * macsPerVlan;
}

void BM_MplsFloodPathColdStart(benchmark::State& state) {
  std::vector<int> const machines = pathMachines();
  double bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::ostringstream out;
    std::ostringstream err;
    auto sim = filledSim(out, err);
    std::size_t const heapBefore = Bench::heapBytesInUse();
    state.ResumeTiming();
    sim->start(machines);
    sim->settle();
    state.PauseTiming();
    bytes = double(Bench::heapBytesInUse() - heapBefore);
    if (!settledWhole(*sim)) state.SkipWithError("the path did not settle");
    sim.reset();
    state.ResumeTiming();
  }
  state.counters["perDest"] =
      benchmark::Counter(dests * double(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  // Every machine's state on the path, what they publish, and the emulated agents' tables.
  state.counters["bytes_per_dest"] = bytes / double(dests);
}

// After the cold start: a destination over a via of its own joins a flood set (each event
// another VLAN's), and is carried through the whole path (a FEC requested and answered, the
// configuration published and reported programmed) before the next; then each leaves again,
// its FEC released once the hardware shows it unprogrammed.
void BM_MplsFloodPathEventLatency(benchmark::State& state) {
  std::ostringstream out;
  std::ostringstream err;
  auto sim = filledSim(out, err);
  sim->start(pathMachines());
  sim->settle();
  if (!settledWhole(*sim)) state.SkipWithError("the path did not settle");
  auto& floodSets = *sim->world().l2ribFloodSets;
  auto floodSetOf = [&floodSets](int e) {
    return floodSets.vlanFloodSet(Bridging::VlanId(uint16_t(1 + e % vlans)))
        ->floodSet(Gantry::EthAddr::fromValue(0x10000));
  };
  constexpr int events = 2000;
  auto newDest = [](int e) {
    return L2Rib::Dest::mpls(
        L2Rib::DestId(uint64_t(dests) + uint64_t(e) + 1),
        Gantry::IntfId(Gantry::IntfId::Kind::tunnel, 1 + uint32_t(e) % tunnels),
        Gantry::MplsLabel(uint32_t(100000 + e)));
  };
  Bench::Latency latency;
  for (auto _ : state) {
    for (int e = 0; e < events; ++e) {
      auto const timing = latency.time();
      floodSetOf(e)->destSetIs(newDest(e), true);
      sim->settle();
    }
    for (int e = 0; e < events; ++e) {
      auto const timing = latency.time();
      floodSetOf(e)->destSetDel(newDest(e));
      sim->settle();
    }
  }
  if (sim->failed()) state.SkipWithError("the path failed");
  latency.report(state);
}

}  // namespace

BENCHMARK(BM_MplsFloodPathColdStart)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_MplsFloodPathEventLatency)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_MAIN();
