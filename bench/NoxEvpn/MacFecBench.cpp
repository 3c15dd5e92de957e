// The MAC-address FEC path at data-centre scale: 288,000 hosts over 2,000 labels over 500 tunnel
// destinations, with chain length 2 (one flattened FEC per label) and 3 (the same chains, with
// the levels linked by FEC id):
// - cold start: the machine built over full tables, through the start-up review;
// - host moves: 10,000 hosts each moved to another label.

#include <benchmark/benchmark.h>

#include "NoxEvpn/NoxMacAddrFecRequestSm.h"
#include "bench/common/Latency.h"
#include "bench/common/Memory.h"
#include "platform/cog/Clock.h"

namespace {

constexpr uint64_t hosts = 288000;
constexpr uint64_t labels = 2000;
constexpr uint64_t dests = 500;
constexpr uint64_t moves = 10000;

Bridging::MacVlanPair hostKey(uint64_t n) {
  return {Gantry::EthAddr::fromValue(0x100000 + n), Bridging::VlanId(uint16_t(1 + n % 4094))};
}

L2Rib::ObjTuple labelOf(uint64_t n) { return {1 + n % labels, L2Rib::tableTypeLabel_}; }

struct Rib {
  Rib() {
    for (uint64_t d = 1; d <= dests; ++d) {
      L2Rib::DestId const id(d);
      dest->destIs(id, L2Rib::Dest::tunnel(id, Gantry::IntfId(Gantry::IntfId::Kind::tunnel, d)));
    }
    for (uint64_t l = 1; l <= labels; ++l) {
      L2Rib::Label const value(Gantry::MplsLabel(uint32_t(1000 + l)),
                               {1 + l % dests, L2Rib::tableTypeDest_});
      label->labelIs(L2Rib::LabelId(l), L2Rib::LabelAndSource(value));
    }
    for (uint64_t h = 0; h < hosts; ++h) host->hostIs(hostKey(h), L2Rib::HostAndSource(labelOf(h)));
  }
  Vel::Ptr<L2Rib::LabelOutput> label = L2Rib::labelOutputFactory("benchLabel");
  Vel::Ptr<L2Rib::LoadBalanceOutput> lb = L2Rib::loadBalanceOutputFactory("benchLb");
  Vel::Ptr<L2Rib::DestOutput> dest = L2Rib::destOutputFactory("benchDest");
  Vel::Ptr<L2Rib::HostOutput> host = L2Rib::hostOutputFactory("benchHost");
};

Rib& sharedRib() {
  static Rib rib;
  return rib;
}

struct Agent {
  explicit Agent(uint32_t chainLength) {
    Rib& rib = sharedRib();
    sm = Nox::noxMacAddrFecRequestSmFactory(rib.label, rib.lb, rib.dest, response, rib.host,
                                            request, hwIds, scheduler->timerWheel(), scheduler);
    sm->maxChainLengthIs(chainLength);
    scheduler->advanceBy(sm->reviewInterval());
  }
  Vel::Ptr<Vel::VirtualClock> clock{new Vel::VirtualClock};
  Vel::Ptr<Cog::TaskScheduler> scheduler{new Cog::TaskScheduler(clock)};
  Vel::Ptr<Nox::FecIdToHwFecIdResponse> response = Nox::fecIdToHwFecIdResponseFactory("resp");
  Vel::Ptr<Nox::FecIdToHwFecIdRequest> request = Nox::fecIdToHwFecIdRequestFactory("req");
  Vel::Ptr<Nox::ObjTupleToHwId> hwIds = Nox::objTupleToHwIdFactory("hwIds");
  Vel::Ptr<Nox::NoxMacAddrFecRequestSm> sm;
};

void BM_MacFecColdStart(benchmark::State& state) {
  sharedRib();
  double bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::size_t const heapBefore = Bench::heapBytesInUse();
    state.ResumeTiming();
    Agent agent(uint32_t(state.range(0)));
    benchmark::DoNotOptimize(agent.request->fecs());
    state.PauseTiming();
    bytes = double(Bench::heapBytesInUse() - heapBefore);
    agent.sm = nullptr;
    state.ResumeTiming();
  }
  state.counters["hosts"] = double(hosts);
  // The machine's state and the FEC requests and hardware ids it writes.
  state.counters["bytes_per_host"] = bytes / double(hosts);
}
BENCHMARK(BM_MacFecColdStart)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_MacFecHostMoves(benchmark::State& state) {
  Rib& rib = sharedRib();
  Agent agent(uint32_t(state.range(0)));
  uint64_t shift = 1;
  for (auto _ : state) {
    for (uint64_t h = 0; h < moves; ++h) {
      rib.host->hostIs(hostKey(h), L2Rib::HostAndSource(labelOf(h + shift)));
    }
    ++shift;
  }
  for (uint64_t h = 0; h < moves; ++h) {
    rib.host->hostIs(hostKey(h), L2Rib::HostAndSource(labelOf(h)));
  }
  state.counters["moves"] = double(moves);
}
BENCHMARK(BM_MacFecHostMoves)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond)->Iterations(3);

// Each host move timed on its own, over 20,000 different hosts after a cold start, and a label
// moved to another destination (taking its 144 hosts' FECs along) as the heavier event.
void BM_MacFecEventLatency(benchmark::State& state) {
  Rib& rib = sharedRib();
  constexpr uint64_t timedMoves = 20000;
  Bench::Latency latency;
  for (auto _ : state) {
    Agent agent(uint32_t(state.range(0)));
    for (uint64_t h = 0; h < timedMoves; ++h) {
      auto const timing = latency.time();
      rib.host->hostIs(hostKey(h), L2Rib::HostAndSource(labelOf(h + 1)));
    }
    state.PauseTiming();
    for (uint64_t h = 0; h < timedMoves; ++h) {
      rib.host->hostIs(hostKey(h), L2Rib::HostAndSource(labelOf(h)));
    }
    agent.sm = nullptr;
    state.ResumeTiming();
  }
  latency.report(state);
}
BENCHMARK(BM_MacFecEventLatency)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
BENCHMARK_MAIN();
