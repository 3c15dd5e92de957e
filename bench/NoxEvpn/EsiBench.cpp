// The ESI flooding machine at data-centre scale: 64 ethernet segments, each a port-channel of
// 4 ports, with a remote designated forwarder on every one of 4094 VLANs (about a million ESI
// data to program):
// - cold start over the whole input;
// - a designated-forwarder move of one segment on all its VLANs;
// - one port joining a port-channel.
// Each reports its time per ESI data programmed.

#include <benchmark/benchmark.h>

#include <memory>

#include "NoxEvpn/NoxEvpnFloodingEsiSm.h"
#include "bench/common/Latency.h"
#include "bench/common/Memory.h"
#include "platform/cog/Clock.h"

namespace {

constexpr int segments = 64;
constexpr int portsPerLag = 4;
constexpr int vlans = 4094;
constexpr int teps = 16;

Gantry::IntfId lag(int s) { return Gantry::IntfId(Gantry::IntfId::Kind::portChannel, 1 + s); }
Gantry::IntfId port(int s, int p) {
  return Gantry::IntfId(Gantry::IntfId::Kind::ethernet, 1 + s * 8 + p);
}
Gantry::IntfId tep(int t) { return Gantry::IntfId(Gantry::IntfId::Kind::tunnel, 1 + t); }

struct EsiBenchWorld {
  EsiBenchWorld() {
    for (int s = 0; s < segments; ++s) {
      Nox::NoxPortList members;
      for (int p = 0; p < portsPerLag; ++p) members.portIs(port(s, p));
      ncsd->lagToPortIs(lag(s), members);
      auto segment = evpn->segmentStatusIs(lag(s));
      for (int t = 0; t < teps; ++t) {
        segment->remoteEsiLabelIs(
            tep(t), Evpn::EncapTypeLabel(Evpn::EncapType::mpls, Gantry::MplsLabel(1000 + t)));
      }
      for (int v = 1; v <= vlans; ++v) {
        segment->designatedForwarderTepIs(Bridging::VlanId(uint16_t(v)), tep((s + v) % teps));
      }
    }
  }
  Vel::Ptr<Nox::EvpnFloodingEsiSm> start() {
    return Nox::evpnFloodingEsiSmFactory(helper, scheduler, ncsd, evpn, tunnels);
  }
  uint32_t programmed() const { return helper->createEsiDataCount(); }

  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> helper =
      NoxHelper::evpnFloodingSmHelperStubFactory("flooding");
  Vel::Ptr<Nox::NoxCommonSmData> ncsd = Nox::noxCommonSmDataFactory("ncsd");
  Vel::Ptr<Evpn::EvpnStatus> evpn = Evpn::evpnStatusFactory();
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> tunnels =
      Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
};

// One world with a running machine for the incremental benchmarks.
struct Running {
  EsiBenchWorld world;
  Vel::Ptr<Nox::EvpnFloodingEsiSm> sm = world.start();
};
Running& running() {
  static Running r;
  return r;
}

void reportPerEsiData(benchmark::State& state, uint64_t programmed) {
  state.counters["esi_data"] = double(programmed) / double(state.iterations());
  state.counters["per_esi_data"] = benchmark::Counter(
      double(programmed), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_EsiColdStart(benchmark::State& state) {
  uint64_t programmed = 0;
  double bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto world = std::make_unique<EsiBenchWorld>();
    std::size_t const heapBefore = Bench::heapBytesInUse();
    state.ResumeTiming();
    auto sm = world->start();
    programmed += world->programmed();
    state.PauseTiming();
    bytes = double(Bench::heapBytesInUse() - heapBefore);
    sm = nullptr;
    world.reset();
    state.ResumeTiming();
  }
  reportPerEsiData(state, programmed);
  // The machine's state and what it programs (the recording stub's record included).
  state.counters["bytes_per_esi_data"] = bytes / state.counters["esi_data"];
}

// Every VLAN of segment 0 moves to the next tep, and back on the next iteration. Where the
// VLANs stand outlives a run, so that a run after an odd one does not start with a move to
// where they are already.
void BM_EsiDesignatedForwarderMove(benchmark::State& state) {
  Running& r = running();
  auto segment = r.world.evpn->segmentStatusIs(lag(0));
  uint64_t programmed = 0;
  static int shift = 0;
  for (auto _ : state) {
    shift = 1 - shift;
    uint32_t const before = r.world.programmed();
    for (int v = 1; v <= vlans; ++v) {
      segment->designatedForwarderTepIs(Bridging::VlanId(uint16_t(v)), tep((v + shift) % teps));
    }
    programmed += r.world.programmed() - before;
  }
  reportPerEsiData(state, programmed);
}

// Out of line so that a profiler can count the join alone (callgrind --toggle-collect).
[[gnu::noinline]] void lagMembersAre(Running& r, Nox::NoxPortList const& members) {
  r.world.ncsd->lagToPortIs(lag(1), members);
}

// A fifth port joins port-channel 1 (programmed on all its VLANs); it leaves untimed.
void BM_EsiPortJoinsPortChannel(benchmark::State& state) {
  Running& r = running();
  Nox::NoxPortList four;
  for (int p = 0; p < portsPerLag; ++p) four.portIs(port(1, p));
  Nox::NoxPortList five = four;
  five.portIs(port(1, portsPerLag));
  uint64_t programmed = 0;
  for (auto _ : state) {
    uint32_t const before = r.world.programmed();
    lagMembersAre(r, five);
    programmed += r.world.programmed() - before;
    state.PauseTiming();
    r.world.ncsd->lagToPortIs(lag(1), four);
    state.ResumeTiming();
  }
  reportPerEsiData(state, programmed);
}

// Single designated-forwarder moves timed one by one: each VLAN of segments 2 to 9 in turn
// moves to another tep (4 ESI data each), 32,752 events on the running machine.
void BM_EsiEventLatency(benchmark::State& state) {
  Running& r = running();
  Bench::Latency latency;
  static int shift = 0;
  for (auto _ : state) {
    shift = 1 - shift;
    for (int s = 2; s < 10; ++s) {
      auto segment = r.world.evpn->segmentStatusIs(lag(s));
      for (int v = 1; v <= vlans; ++v) {
        Gantry::IntfId const to = tep((s + v + 1 + shift) % teps);
        auto const timing = latency.time();
        segment->designatedForwarderTepIs(Bridging::VlanId(uint16_t(v)), to);
      }
    }
  }
  latency.report(state);
}

}  // namespace

BENCHMARK(BM_EsiColdStart)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_EsiDesignatedForwarderMove)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EsiPortJoinsPortChannel)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EsiEventLatency)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_MAIN();
