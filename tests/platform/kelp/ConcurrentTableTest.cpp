// One writer thread and several reader threads of one process on the same table, as an agent
// with a reader of its own published table has them: every record a reader copies, by lookup or
// iteration, is one whole write of the writer's, and every reader ends at the writer's final
// contents. The writer churns a small table through a short log, so readers also fall behind,
// rescan and follow growth while records change under them. These tests are the ones the tsan
// preset runs (names starting with "Concurrent").

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <latch>
#include <map>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "platform/cog/TaskScheduler.h"
#include "platform/kelp/SeqLock.h"
#include "platform/kelp/VelKelp.h"
#include "platform/kelp/VelKelpPoller.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

// Every field derives from the write number `n` and the key, so a copy mixing two writes (or a
// record and a stranger's key) shows.
struct Stamp {
  std::uint64_t n = 0;
  std::uint64_t key = 0;
  std::array<std::uint64_t, 10> derived{};  // spans cache lines, so a copy can tear between them
  friend bool operator==(Stamp const&, Stamp const&) = default;
};

Stamp stampOf(std::uint64_t key, std::uint64_t n) {
  Stamp s{n, key, {}};
  for (std::size_t i = 0; i < s.derived.size(); ++i) {
    s.derived[i] = (n + i) * 0x9E3779B97F4A7C15ULL ^ key;
  }
  return s;
}
bool whole(std::uint64_t key, Stamp const& s) { return s == stampOf(key, s.n); }

using StampTable = Kelp::Table<std::uint64_t, Stamp>;
using Contents = std::map<std::uint64_t, Stamp>;

constexpr std::uint64_t keySpace = 48;
constexpr int writes = 20000;
constexpr int readerThreads = 3;
// A small table that starts with two slots and a log of 16 entries: growth and overruns happen
// while readers read.
constexpr Kelp::Options churnOptions{.initialCapacity = 2, .logCapacity = 16};

// The writer's script: writes, direct commits, removals and whole-table notices over a few keys,
// each value a fresh stamp. Returns the contents it leaves; the caller then marks the table ready,
// which tells readers the script is over.
template <class Write, class Remove, class Collection>
Contents churn(Write&& write, Remove&& remove, Collection&& collection) {
  std::mt19937_64 rng(20261123);
  Contents expected;
  for (std::uint64_t n = 1; n <= writes; ++n) {
    std::uint64_t const key = rng() % keySpace;
    auto const roll = rng() % 16;
    if (roll < 3) {
      remove(key);
      expected.erase(key);
      continue;
    }
    if (roll == 3 && n % 8 == 0) collection();
    write(key, stampOf(key, n));
    expected[key] = stampOf(key, n);
  }
  return expected;
}

struct ReaderReport {
  std::uint64_t torn = 0;        // copies that were not one whole write
  std::uint64_t disordered = 0;  // iteration steps not in ascending key order
  std::uint64_t copies = 0;
  bool finished = false;  // saw readiness, i.e. the end of the script, before the deadline
  Contents final;
};

void check(ReaderReport const& r, Contents const& expected, int reader) {
  SCOPED_TRACE("reader " + std::to_string(reader));
  EXPECT_TRUE(r.finished);
  EXPECT_EQ(r.torn, 0u);
  EXPECT_EQ(r.disordered, 0u);
  EXPECT_GT(r.copies, 0u);
  EXPECT_EQ(r.final, expected);
}

std::chrono::steady_clock::time_point deadline() {
  return std::chrono::steady_clock::now() + std::chrono::seconds(120);
}

// One reader thread: polls, walks the table and probes keys until its view is ready, i.e. holds
// the end of the script.
void readUntilReady(StampTable& reader, ReaderReport* report) {
  auto const giveUp = deadline();
  std::uint64_t probe = 0;
  while (!report->finished && std::chrono::steady_clock::now() < giveUp) {
    reader.poll();
    report->finished = reader.ready();
    Contents seen;
    std::optional<std::uint64_t> last;
    for (auto const& e : reader) {
      ++report->copies;
      report->torn += !whole(e.key, e.value);
      report->disordered += last && !(*last < e.key);
      last = e.key;
      seen[e.key] = e.value;
    }
    for (int j = 0; j < 8; ++j, probe = (probe + 7) % keySpace) {
      auto const v = reader.find(probe);
      report->copies += v.has_value();
      report->torn += v && !whole(probe, *v);
    }
    report->final = std::move(seen);
  }
}

Contents scriptResult() {
  return churn([](std::uint64_t, Stamp const&) {}, [](std::uint64_t) {}, [] {});
}

class ConcurrentTable : public KelpFixture {};

TEST_F(ConcurrentTable, ReaderThreadsCopyOnlyWholeRecordsAndEndAtTheWritersContents) {
  Contents const expected = scriptResult();
  auto writer = StampTable::writerNew(table("stamps"), churnOptions);
  std::latch opened(readerThreads + 1);
  std::vector<ReaderReport> reports(readerThreads);
  std::vector<std::thread> threads;
  for (auto& report : reports) {
    threads.emplace_back([&, report = &report] {
      auto reader = StampTable::readerNew(table("stamps"));
      opened.arrive_and_wait();
      readUntilReady(*reader, report);
    });
  }
  threads.emplace_back([&] {
    opened.arrive_and_wait();
    churn(
        [&](std::uint64_t k, Stamp const& v) {
          if (k % 2) return writer->safeWrite(k, v);
          Stamp* const record = writer->directSlot(k);
          *record = v;
          writer->directCommit(record);
        },
        [&](std::uint64_t k) { writer->safeRemove(k); }, [&] { writer->notifyCollection(); });
    writer->readyIs(true);
  });
  for (auto& t : threads) t.join();
  for (int i = 0; i < readerThreads; ++i) check(reports[i], expected, i);
}

// The entity path: the writer's collection on one thread, and on each reader thread a reader
// collection whose hooks run from a Poller on that thread's own scheduler, as an agent's event
// loop runs them.
TEST_F(ConcurrentTable, PollersOnReaderThreadsDeliverWholeRecordsAndEndAtTheWritersContents) {
  Contents const expected = scriptResult();
  VelKelp::publishPrefixIs(prefix_, churnOptions);
  using Coll = VelKelp::Collection<std::uint64_t, Stamp>;
  std::atomic<std::uint64_t> writerKeys{0};
  Coll writer(
      "stamps", VelKelp::Side::writer,
      {[&](std::uint64_t const&) { writerKeys.fetch_add(1, std::memory_order_relaxed); }, {}, {}},
      {});
  std::latch opened(readerThreads + 1);
  std::vector<ReaderReport> reports(readerThreads);
  std::vector<std::thread> threads;
  for (auto& report : reports) {
    threads.emplace_back([&, report = &report] {
      Vel::Ptr<Cog::TaskScheduler> scheduler = new Cog::TaskScheduler(new Vel::RealClock);
      std::atomic<bool> stop{false};
      Coll* coll = nullptr;
      // Each notified key is looked up at once: its value is the writer's latest, whole.
      auto onKey = [&](std::uint64_t const& k) {
        auto const v = coll->table().find(k);
        report->copies += v.has_value();
        report->torn += v && !whole(k, *v);
      };
      // A reader that fell behind hears of the whole table once: it walks it, as agents do.
      auto walk = [&] {
        Contents seen;
        for (auto const& e : *coll) {
          ++report->copies;
          report->torn += !whole(e.key, e.value);
          seen[e.key] = e.value;
        }
        return seen;
      };
      auto onStatus = [&] {
        if (!coll->table().ready()) return;
        report->finished = true;
        report->final = walk();
        stop.store(true, std::memory_order_release);
      };
      Coll reader("stamps", VelKelp::Side::reader, {}, {onKey, walk, onStatus});
      coll = &reader;
      VelKelp::Poller poller(scheduler, "stampsPoller",
                             [&](std::size_t most) { return reader.poll(most); },
                             {.interval = 0.0002, .batch = 8});
      opened.arrive_and_wait();
      std::thread watchdog([&] {
        auto const giveUp = deadline();
        while (!stop.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < giveUp) {
          std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        stop.store(true, std::memory_order_release);
      });
      scheduler->runLoop(stop);
      watchdog.join();
    });
  }
  threads.emplace_back([&] {
    opened.arrive_and_wait();
    churn([&](std::uint64_t k, Stamp const& v) { writer.table().safeWrite(k, v); },
          [&](std::uint64_t k) { writer.table().safeRemove(k); },
          [&] { writer.table().notifyCollection(); });
    writer.table().readyIs(true);
  });
  for (auto& t : threads) t.join();
  VelKelp::publishPrefixIs("");
  for (int i = 0; i < readerThreads; ++i) check(reports[i], expected, i);
  EXPECT_GT(writerKeys.load(), 0u);
}

// The sequence lock itself, with writer and readers on the very same words (the tables above map
// a segment once per table, so a race checker sees no shared addresses there): every accepted copy
// is one whole write, and readers end at the last one.
TEST(ConcurrentSeqLock, AcceptedCopiesAreWholeWritesWhileTheWriterRewrites) {
  constexpr std::size_t words = 24;
  constexpr Kelp::Word last = 100000;
  auto const recordOf = [](Kelp::Word n) {
    std::array<Kelp::Word, words> r{};
    for (std::size_t i = 0; i < words; ++i) r[i] = n * (2 * i + 1) + i;
    return r;
  };
  alignas(64) Kelp::Word seq = 0;
  std::array<Kelp::Word, words> shared = recordOf(0);
  std::vector<std::uint64_t> torn(readerThreads), accepted(readerThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < readerThreads; ++i) {
    threads.emplace_back([&, i] {
      for (Kelp::Word n = 0; n != last;) {
        std::array<Kelp::Word, words> copy{};
        Kelp::Word seen = 0;
        if (!Kelp::SeqLock::tryRead(
                seq, &seen, [&] { Kelp::SeqLock::copyOut(copy.data(), shared.data(), words); })) {
          Kelp::SeqLock::pause();
          continue;
        }
        ++accepted[i];
        n = copy[0];
        torn[i] += copy != recordOf(n);
      }
    });
  }
  threads.emplace_back([&] {
    for (Kelp::Word n = 1; n <= last; ++n) {
      auto const r = recordOf(n);
      Kelp::SeqLock::writeBegin(seq);
      Kelp::SeqLock::copyIn(shared.data(), r.data(), words);
      Kelp::SeqLock::writeEnd(seq);
    }
  });
  for (auto& t : threads) t.join();
  for (int i = 0; i < readerThreads; ++i) {
    EXPECT_EQ(torn[i], 0u) << "reader " << i;
    EXPECT_GT(accepted[i], 0u) << "reader " << i;
  }
}

}  // namespace
}  // namespace KelpTest
