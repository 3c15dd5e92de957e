// Kelp tables under load: the writer's safeWrite rate with a reader process attached, the time
// from a write to the reader process's notification, lookups on both sides, and LMDB beside
// them with one put per committed transaction (the cost of a durable shared table).
//
//   kelp_bench --benchmark_filter=.   (each case forks its own reader process)

#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/kelp/Table.h"

namespace {

using NumberTable = Kelp::Table<std::uint64_t, std::uint64_t>;

std::string benchTable(char const* what) {
  return "kelpbench" + std::to_string(getpid()) + "." + what;
}

std::uint64_t nowNs() {
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                        std::chrono::steady_clock::now().time_since_epoch())
                                        .count());
}

// Memory shared with forked reader processes: a stop flag, an acknowledgement counter and the
// latency samples.
struct Shared {
  std::atomic<int> stop{0};
  std::atomic<int> attached{0};
  std::atomic<std::uint64_t> acked{0};
  std::atomic<std::uint64_t> notifications{0};
  std::uint64_t samples[1 << 20];
};

Shared* sharedNew() {
  void* p =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return new (p) Shared;
}

// A reader process that spins on poll(); with `measure`, each notification records the time
// since the write (the value carries the writer's clock) and acknowledges it.
pid_t spawnReader(std::string const& name, Shared* shared, bool measure) {
  pid_t const pid = ::fork();
  if (pid != 0) {
    while (!shared->attached.load()) usleep(100);
    return pid;
  }
  auto reader = NumberTable::readerNew(name);
  struct Counter : Kelp::TableNotifiee<std::uint64_t> {
    NumberTable* table;
    Shared* shared;
    bool measure;
    void onKey(std::uint64_t const& key) override {
      std::uint64_t const n = shared->notifications.fetch_add(1, std::memory_order_relaxed);
      if (!measure) return;
      std::uint64_t const sent = table->lookup(key);
      shared->samples[n % (sizeof shared->samples / sizeof(std::uint64_t))] = nowNs() - sent;
      shared->acked.store(n + 1, std::memory_order_release);
    }
    void onCollection() override { shared->notifications.fetch_add(1); }
  } counter;
  counter.table = reader.ptr();
  counter.shared = shared;
  counter.measure = measure;
  reader->notifieeIs(&counter);
  shared->attached.store(1);
  while (!shared->stop.load(std::memory_order_relaxed)) reader->poll();
  ::_exit(0);
}

void stopReader(pid_t pid, Shared* shared) {
  shared->stop.store(1);
  ::waitpid(pid, nullptr, 0);
}

void BM_KelpSafeWriteReplace(benchmark::State& state) {
  auto const keys = static_cast<std::uint64_t>(state.range(0));
  bool const withReader = state.range(1) != 0;
  auto writer = NumberTable::writerNew(benchTable("replace"));
  for (std::uint64_t k = 0; k < keys; ++k) writer->safeWrite(k, 0);
  Shared* shared = sharedNew();
  pid_t const reader = withReader ? spawnReader(writer->name().str(), shared, false) : 0;
  std::uint64_t i = 0;
  for (auto _ : state) {
    writer->safeWrite(i & (keys - 1), i);
    ++i;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(i));
  if (withReader) {
    stopReader(reader, shared);
    state.counters["readerTook"] = benchmark::Counter(
        static_cast<double>(shared->notifications.load()), benchmark::Counter::kIsRate);
  }
  ::munmap(shared, sizeof(Shared));
}
BENCHMARK(BM_KelpSafeWriteReplace)
    ->ArgNames({"keys", "reader"})
    ->Args({1024, 0})
    ->Args({1024, 1})
    ->Args({65536, 1})
    ->UseRealTime();

void BM_KelpInsertRemove(benchmark::State& state) {
  auto writer = NumberTable::writerNew(benchTable("insert"));
  for (std::uint64_t k = 0; k < 1024; ++k) writer->safeWrite(k * 2, 0);
  std::uint64_t i = 0;
  for (auto _ : state) {
    std::uint64_t const k = (i & 1023) * 2 + 1;
    writer->safeWrite(k, i);
    writer->safeRemove(k);
    ++i;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(2 * i));
}
BENCHMARK(BM_KelpInsertRemove);

// One write at a time, each waiting for the spinning reader process to be notified of it.
void BM_KelpWriteToReaderLatency(benchmark::State& state) {
  auto writer = NumberTable::writerNew(benchTable("latency"));
  writer->safeWrite(1, nowNs());
  Shared* shared = sharedNew();
  pid_t const reader = spawnReader(writer->name().str(), shared, true);
  std::uint64_t n = 0;
  for (auto _ : state) {
    writer->safeWrite(1 + (n & 63), nowNs());
    ++n;
    while (shared->acked.load(std::memory_order_acquire) < n) Kelp::SeqLock::pause();
  }
  std::size_t const kept = std::min<std::size_t>(n, sizeof shared->samples / sizeof(std::uint64_t));
  std::vector<std::uint64_t> samples(shared->samples, shared->samples + kept);
  std::sort(samples.begin(), samples.end());
  if (!samples.empty()) {
    state.counters["median_ns"] = static_cast<double>(samples[samples.size() / 2]);
    state.counters["p99_ns"] = static_cast<double>(samples[samples.size() * 99 / 100]);
    state.counters["max_ns"] = static_cast<double>(samples.back());
  }
  stopReader(reader, shared);
  ::munmap(shared, sizeof(Shared));
}
BENCHMARK(BM_KelpWriteToReaderLatency)->Iterations(200000)->UseRealTime();

void BM_KelpLookup(benchmark::State& state) {
  bool const onReader = state.range(0) != 0;
  auto writer = NumberTable::writerNew(benchTable("lookup"));
  for (std::uint64_t k = 0; k < 4096; ++k) writer->safeWrite(k, k);
  auto reader = NumberTable::readerNew(writer->name());
  NumberTable const& table = onReader ? *reader : *writer;
  std::uint64_t i = 0;
  std::uint64_t sum = 0;
  for (auto _ : state) {
    sum += table.lookup((i * 2654435761U) & 4095);
    ++i;
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(static_cast<std::int64_t>(i));
}
BENCHMARK(BM_KelpLookup)->ArgName("reader")->Arg(0)->Arg(1);

// LMDB in /dev/shm, so that neither side pays for a disk; one put per committed transaction.
void BM_LmdbPutPerCommit(benchmark::State& state) {
  bool const noSync = state.range(0) != 0;
  std::filesystem::path const dir = "/dev/shm/kelpbench-lmdb-" + std::to_string(getpid());
  std::filesystem::create_directories(dir);
  MDB_env* env = nullptr;
  mdb_env_create(&env);
  mdb_env_set_mapsize(env, std::size_t{1} << 28);
  mdb_env_open(env, dir.c_str(), noSync ? MDB_NOSYNC | MDB_NOMETASYNC : 0, 0644);
  MDB_dbi dbi = 0;
  MDB_txn* txn = nullptr;
  mdb_txn_begin(env, nullptr, 0, &txn);
  mdb_dbi_open(txn, nullptr, MDB_INTEGERKEY, &dbi);
  mdb_txn_commit(txn);
  std::uint64_t i = 0;
  for (auto _ : state) {
    std::uint64_t key = i & 1023;
    std::uint64_t value = i;
    MDB_val k{sizeof key, &key};
    MDB_val v{sizeof value, &value};
    mdb_txn_begin(env, nullptr, 0, &txn);
    if (mdb_put(txn, dbi, &k, &v, 0) != 0) state.SkipWithError("mdb_put failed");
    mdb_txn_commit(txn);
    ++i;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(i));
  mdb_env_close(env);
  std::filesystem::remove_all(dir);
}
BENCHMARK(BM_LmdbPutPerCommit)->ArgName("nosync")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
