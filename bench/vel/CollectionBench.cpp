// Entity collections against std::unordered_map, and against absl::flat_hash_map (an open
// hash table, the stronger peer) when the build found it, doing the same work in the same
// program: insert (with one registered notifiee on the entity; the peers notify nobody), lookup,
// erase and iteration, at 1K and 1M members.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <unordered_map>
#include <vector>

#include "bench/common/Latency.h"
#include "platform/vel/Vel.h"

#if NOX_BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

class Table : public Vel::Entity {
 public:
  class NotifieeConst : public Vel::NotifieeConstOf<Table> {
   public:
    using NotifieeConstOf::NotifieeConstOf;
    virtual void onEntry(uint64_t const&) {}
  };
  VEL_DESCRIBE("Bench::Table", "entry")
  VEL_VALUE_COLLECTION(entry, Entry, uint64_t, uint64_t)
};

class Counter : public Table::NotifieeConst {
 public:
  explicit Counter(Vel::Ptr<Table const> const& t) : NotifieeConst(t) {}
  void onEntry(uint64_t const&) override { ++calls; }
  uint64_t calls = 0;
};

// Page faults of the whole run over the items inserted: fresh memory's first touch costs more
// than an insertion on a virtual machine, so how many pages a map touches matters as much as
// its probing.
using Bench::Latency;
void reportFaults(benchmark::State& state, long since, std::size_t items) {
  state.counters["faults_per_1k"] =
      double(Latency::pageFaults() - since) * 1000 / double(state.iterations() * items);
}

std::vector<uint64_t> shuffledKeys(std::size_t n) {
  std::vector<uint64_t> keys(n);
  std::mt19937_64 rng(42);
  for (auto& k : keys) k = rng();
  return keys;
}

void BM_VelInsertWithNotify(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  long const faults = Latency::pageFaults();
  for (auto _ : state) {
    state.PauseTiming();
    Vel::Ptr<Table> t(new Table);
    Counter c(t);
    state.ResumeTiming();
    for (uint64_t k : keys) t->entryIs(k, k);
    benchmark::DoNotOptimize(c.calls);
    state.PauseTiming();
    t = nullptr;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
  reportFaults(state, faults, keys.size());
}

void BM_VelLookup(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  Vel::Ptr<Table> t(new Table);
  for (uint64_t k : keys) t->entryIs(k, k);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(t->entry(keys[i]));
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_VelEraseWithNotify(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Vel::Ptr<Table> t(new Table);
    for (uint64_t k : keys) t->entryIs(k, k);
    Counter c(t);
    state.ResumeTiming();
    for (uint64_t k : keys) t->entryDel(k);
    benchmark::DoNotOptimize(c.calls);
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
}

void BM_VelIterate(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  Vel::Ptr<Table> t(new Table);
  for (uint64_t k : keys) t->entryIs(k, k);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (auto [k, v] : t->entryColl()) sum += v;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
}

// The peers, doing the same work without notifications.
using StdMap = std::unordered_map<uint64_t, uint64_t>;
#if NOX_BENCH_ABSL
using AbslMap = absl::flat_hash_map<uint64_t, uint64_t>;
#endif

template <class Map>
void BM_PeerInsert(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  long const faults = Latency::pageFaults();
  for (auto _ : state) {
    Map m;
    for (uint64_t k : keys) m.insert_or_assign(k, k);
    benchmark::DoNotOptimize(m.size());
    state.PauseTiming();
    m = {};
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
  reportFaults(state, faults, keys.size());
}

template <class Map>
void BM_PeerLookup(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  Map m;
  for (uint64_t k : keys) m[k] = k;
  std::size_t i = 0;
  for (auto _ : state) {
    auto it = m.find(keys[i]);
    benchmark::DoNotOptimize(it == m.end() ? 0 : it->second);
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

template <class Map>
void BM_PeerErase(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Map m;
    for (uint64_t k : keys) m[k] = k;
    state.ResumeTiming();
    for (uint64_t k : keys) m.erase(k);
    benchmark::DoNotOptimize(m.size());
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
}

template <class Map>
void BM_PeerIterate(benchmark::State& state) {
  auto keys = shuffledKeys(state.range(0));
  Map m;
  for (uint64_t k : keys) m[k] = k;
  for (auto _ : state) {
    uint64_t sum = 0;
    for (auto const& [k, v] : m) sum += v;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
}

#define SIZES ->Arg(1 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond)
BENCHMARK(BM_VelInsertWithNotify) SIZES;
BENCHMARK(BM_VelLookup)->Arg(1 << 10)->Arg(1 << 20);
BENCHMARK(BM_VelEraseWithNotify) SIZES;
BENCHMARK(BM_VelIterate) SIZES;
#define PEER(Map)                                                     \
  BENCHMARK_TEMPLATE(BM_PeerInsert, Map) SIZES;                       \
  BENCHMARK_TEMPLATE(BM_PeerLookup, Map)->Arg(1 << 10)->Arg(1 << 20); \
  BENCHMARK_TEMPLATE(BM_PeerErase, Map) SIZES;                        \
  BENCHMARK_TEMPLATE(BM_PeerIterate, Map) SIZES;
PEER(StdMap)
#if NOX_BENCH_ABSL
PEER(AbslMap)
#endif

}  // namespace

BENCHMARK_MAIN();
