// The dot1q path at data-centre scale: 4094 tagged VLANs, each with 48 physical ports, half of
// them reached through 12 port-channels of 2 members, so 48 mappings per VLAN.
// - cold start: a new machine programs every mapping (196512);
// - tag change: one VLAN's new tag deletes and programs its 48 mappings.
// Both report the time per mapping programmed (`mappings` counter, as a rate inverted).

#include <benchmark/benchmark.h>

#include <string>

#include "NoxEvpn/NoxEvpnFloodingDot1qSm.h"
#include "bench/common/Latency.h"
#include "bench/common/Memory.h"
#include "platform/cog/Clock.h"

namespace {

constexpr int vlans = 4094;
constexpr int plainPorts = 24;
constexpr int lags = 12;
constexpr int portsPerLag = 2;
constexpr int mappingsPerVlan = plainPorts + lags * portsPerLag;

Gantry::IntfId ethernet(int n) { return Gantry::IntfId("Ethernet" + std::to_string(n)); }
Gantry::IntfId portChannel(int n) { return Gantry::IntfId("Port-Channel" + std::to_string(n)); }

struct Inputs {
  Inputs() {
    for (int l = 1; l <= lags; ++l) {
      Nox::NoxPortList members;
      for (int p = 0; p < portsPerLag; ++p) {
        members.portIs(ethernet(plainPorts + (l - 1) * portsPerLag + p + 1));
      }
      ncsd->lagToPortIs(portChannel(l), members);
    }
    for (int v = 1; v <= vlans; ++v) {
      Bridging::VlanId const vlan(static_cast<uint16_t>(v));
      evpn->vlanToDot1qIs(vlan, Bridging::VlanIdOrNone(vlan));
      auto const vlanConfig = config->vlanConfigIs(vlan);
      for (int p = 1; p <= plainPorts; ++p) vlanConfig->intfIs(ethernet(p), true);
      for (int l = 1; l <= lags; ++l) vlanConfig->intfIs(portChannel(l), true);
    }
  }
  Vel::Ptr<Nox::EvpnFloodingDot1qSm> start() {
    return Nox::evpnFloodingDot1qSmFactory(stub, scheduler, ncsd, config, evpn);
  }

  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<NoxHelper::EvpnFloodingSmHelperStub> stub =
      NoxHelper::evpnFloodingSmHelperStubFactory("flooding");
  Vel::Ptr<Nox::NoxCommonSmData> ncsd = Nox::noxCommonSmDataFactory("ncsd");
  Vel::Ptr<Bridging::Config> config = Bridging::configFactory();
  Vel::Ptr<Evpn::EvpnStatus> evpn = Evpn::evpnStatusFactory();
};

Inputs& sharedInputs() {
  static Inputs inputs;
  return inputs;
}

void countMappings(benchmark::State& state, uint32_t createsBefore) {
  double const mappings = sharedInputs().stub->createVlanToDot1qCount() - createsBefore;
  state.counters["mappings"] =
      benchmark::Counter(mappings, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_Dot1qColdStart(benchmark::State& state) {
  Inputs& inputs = sharedInputs();
  uint32_t const createsBefore = inputs.stub->createVlanToDot1qCount();
  double bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::size_t const heapBefore = Bench::heapBytesInUse();
    state.ResumeTiming();
    auto sm = inputs.start();
    benchmark::DoNotOptimize(sm->intfVlanDot1qs());
    state.PauseTiming();
    bytes = double(Bench::heapBytesInUse() - heapBefore);
    sm = nullptr;
    state.ResumeTiming();
  }
  double const perRun =
      double(inputs.stub->createVlanToDot1qCount() - createsBefore) / double(state.iterations());
  countMappings(state, createsBefore);
  // The machine's state, with the mappings it records as programmed.
  state.counters["bytes_per_mapping"] = bytes / perRun;
}
BENCHMARK(BM_Dot1qColdStart)->Unit(benchmark::kMillisecond);

void BM_Dot1qVlanTagChange(benchmark::State& state) {
  Inputs& inputs = sharedInputs();
  auto sm = inputs.start();
  Bridging::VlanId const vlan(2000);
  uint32_t const createsBefore = inputs.stub->createVlanToDot1qCount();
  uint16_t tag = 1;
  for (auto _ : state) {
    tag = tag == 1 ? 2 : 1;
    inputs.evpn->vlanToDot1qIs(vlan, Bridging::VlanIdOrNone(tag));
    inputs.scheduler->runReady();
  }
  countMappings(state, createsBefore);
  state.counters["mappingsPerChange"] = mappingsPerVlan;
}
BENCHMARK(BM_Dot1qVlanTagChange)->Unit(benchmark::kMicrosecond);

// Every VLAN's tag change timed on its own (48 deletes and 48 creates each), one VLAN after
// another, then every VLAN's tag back.
void BM_Dot1qEventLatency(benchmark::State& state) {
  Inputs& inputs = sharedInputs();
  auto sm = inputs.start();
  Bench::Latency latency;
  for (auto _ : state) {
    for (uint16_t tag : {uint16_t(4000), uint16_t(0)}) {
      for (int v = 1; v <= vlans; ++v) {
        Bridging::VlanId const vlan(static_cast<uint16_t>(v));
        auto const timing = latency.time();
        inputs.evpn->vlanToDot1qIs(vlan, Bridging::VlanIdOrNone(tag ? tag : vlan.value()));
        inputs.scheduler->runReady();
      }
    }
  }
  latency.report(state);
}
BENCHMARK(BM_Dot1qEventLatency)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
