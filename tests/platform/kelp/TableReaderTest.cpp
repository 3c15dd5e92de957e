// Readers in other processes: what they see of a table, which notifications they get and when,
// how they recover from falling behind, and what they see of the writer's life.

#include <gtest/gtest.h>

#include "tests/platform/kelp/ChildProcess.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

class ReaderSide : public KelpFixture {};

TEST_F(ReaderSide, ReaderAttachedBeforeWritesGetsEveryChangeInOrder) {
  auto writer = NumberTable::writerNew(table("numbers"));
  ChildProcess child([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    Recorder<std::uint64_t> rec;
    reader->notifieeIs(&rec);
    ch.send("attached " + std::to_string(reader->count()));
    pollUntil([&] { reader->poll(); }, [&] { return rec.keyCount() >= 6; });
    ch.send(rec.joined());
    ch.send(contents(*reader));
    return 0;
  });
  ASSERT_EQ(child.receive(), "attached 0");
  writer->safeWrite(1, 10);
  writer->safeWrite(2, 20);
  writer->safeWrite(1, 11);
  writer->safeWrite(1, 11);
  writer->safeRemove(2);
  writer->safeWrite(3, 30);
  EXPECT_EQ(child.receive(), "k:1 k:2 k:1 k:1 k:2 k:3");
  EXPECT_EQ(child.receive(), "1=11 3=30");
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(ReaderSide, ReaderAttachedAfterWritesSeesThemByIterationAndIsNotNotifiedOfThem) {
  auto writer = NumberTable::writerNew(table("numbers"));
  for (std::uint64_t k : {4, 2, 8}) writer->safeWrite(k, k * 10);
  writer->safeRemove(8);
  writer->readyIs(true);
  EXPECT_FALSE(writer->readerFullyAttached());
  ChildProcess child([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    Recorder<std::uint64_t> rec;
    reader->notifieeIs(&rec);
    std::size_t const taken = reader->poll();
    ch.send(contents(*reader) + " ready=" + std::to_string(reader->ready()) +
            " taken=" + std::to_string(taken) + " events=" + rec.joined());
    ch.receive();
    return 0;
  });
  EXPECT_EQ(child.receive(), "2=20 4=40 ready=1 taken=0 events=");
  EXPECT_TRUE(writer->readerFullyAttached());
  Kelp::Status const s = writer->status();
  EXPECT_EQ(s.readersAttached, 1u);
  EXPECT_EQ(s.readersFullyAttached, 1u);
  child.send("done");
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(writer->status().readersAttached, 0u);
}

TEST_F(ReaderSide, ReaderSeesReadinessWhenTheWriterPublishesIt) {
  auto writer = NumberTable::writerNew(table("numbers"));
  ChildProcess child([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    Recorder<std::uint64_t> rec;
    reader->notifieeIs(&rec);
    ch.send(reader->ready() ? "ready" : "not ready");
    pollUntil([&] { reader->poll(); }, [&] { return reader->ready() && rec.keyCount() == 1; });
    ch.send(rec.joined());
    ch.receive();
    return 0;
  });
  ASSERT_EQ(child.receive(), "not ready");
  EXPECT_EQ(writer->status().readersAttached, 1u);
  EXPECT_FALSE(writer->readerFullyAttached());
  writer->safeWrite(1, 1);
  writer->readyIs(true);
  EXPECT_EQ(child.receive(), "status k:1");
  EXPECT_TRUE(writer->readerFullyAttached());
  child.send("done");
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(ReaderSide, ReaderBehindTheLogGetsOneCollectionNotificationAndTheCurrentContents) {
  Kelp::Options options;
  options.logCapacity = 16;
  auto writer = NumberTable::writerNew(table("numbers"), options);
  writer->safeWrite(100, 1);
  ChildProcess child([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    Recorder<std::uint64_t> rec;
    reader->notifieeIs(&rec);
    ch.send("attached");
    ch.receive();
    reader->poll();
    ch.send(rec.joined() + " | " + contents(*reader));
    rec.events.clear();
    ch.receive();
    pollUntil([&] { reader->poll(); }, [&] { return !rec.events.empty(); });
    ch.send(rec.joined() + " | " + contents(*reader));
    return 0;
  });
  ASSERT_EQ(child.receive(), "attached");
  for (std::uint64_t round = 0; round < 10; ++round) {
    for (std::uint64_t k = 0; k < 5; ++k) writer->safeWrite(k, round * 10 + k);
  }
  writer->safeRemove(3);
  writer->safeRemove(100);
  child.send("go");
  EXPECT_EQ(child.receive(), "collection | 0=90 1=91 2=92 4=94");
  writer->safeWrite(7, 70);
  child.send("go");
  EXPECT_EQ(child.receive(), "k:7 | 0=90 1=91 2=92 4=94 7=70");
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(ReaderSide, WriterCollectionNotificationReachesReaders) {
  auto writer = NumberTable::writerNew(table("numbers"));
  ChildProcess child([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    Recorder<std::uint64_t> rec;
    reader->notifieeIs(&rec);
    ch.send("attached");
    pollUntil([&] { reader->poll(); }, [&] { return rec.events.size() >= 2; });
    ch.send(rec.joined());
    return 0;
  });
  ASSERT_EQ(child.receive(), "attached");
  writer->safeWrite(1, 1);
  writer->notifyCollection();
  EXPECT_EQ(child.receive(), "k:1 collection");
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(ReaderSide, ReadersFollowGrowthWhetherAttachedBeforeOrAfterIt) {
  Kelp::Options options;
  options.initialCapacity = 4;
  auto writer = NumberTable::writerNew(table("numbers"), options);
  ChildProcess early([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    ch.send("attached");
    pollUntil([&] { reader->poll(); }, [&] { return reader->count() == 3000; });
    std::uint64_t bad = 0;
    for (auto const& e : *reader) bad += e.value != e.key * 3;
    ch.send(std::to_string(reader->count()) + " bad=" + std::to_string(bad));
    return 0;
  });
  ASSERT_EQ(early.receive(), "attached");
  for (std::uint64_t k = 0; k < 3000; ++k) writer->safeWrite(k, k * 3);
  EXPECT_EQ(early.receive(), "3000 bad=0");
  ChildProcess late([&](LineChannel& ch) {
    auto reader = NumberTable::readerNew(table("numbers"));
    ch.send(std::to_string(reader->count()) + " " + std::to_string(reader->lookup(2999)));
    return 0;
  });
  EXPECT_EQ(late.receive(), "3000 8997");
  EXPECT_EQ(early.wait(), 0);
  EXPECT_EQ(late.wait(), 0);
}

TEST_F(ReaderSide, KilledWriterIsSeenByReadersAndTheNextWriterReplacesItsSegment) {
  ChildProcess first([&](LineChannel& ch) {
    auto writer = NumberTable::writerNew(table("numbers"));
    writer->safeWrite(1, 10);
    for (std::uint64_t k = 2; k < 52; ++k) writer->safeWrite(k, 0);
    writer->readyIs(true);
    ch.send("running");
    for (std::uint64_t i = 0;; ++i) writer->safeWrite(2 + i % 50, i);
    return 0;
  });
  ASSERT_EQ(first.receive(), "running");
  auto reader = NumberTable::readerNew(table("numbers"));
  Recorder<std::uint64_t> rec;
  reader->notifieeIs(&rec);
  EXPECT_TRUE(reader->status().writerAlive);
  // Kill it in the middle of its run of writes.
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.events.size() > 100; }));
  first.kill(SIGKILL);
  first.wait();

  // The dead writer's segment still reads, and the reader learns that its writer is gone.
  rec.events.clear();
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.countOf("status") == 1; }));
  EXPECT_FALSE(reader->status().writerAlive);
  EXPECT_EQ(reader->lookup(1), 10u);
  EXPECT_EQ(reader->count(), 51u);

  auto second = NumberTable::writerNew(table("numbers"));
  EXPECT_TRUE(second->replacedStale());
  second->safeWrite(5, 50);
  second->readyIs(true);
  rec.events.clear();
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.countOf("collection") > 0; }));
  EXPECT_EQ(contents(*reader), "5=50");
  EXPECT_TRUE(reader->status().writerAlive);
  EXPECT_EQ(reader->status().writerPid, getpid());
  second->safeWrite(6, 60);
  rec.events.clear();
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.keyCount() > 0; }));
  EXPECT_EQ(rec.joined(), "k:6");
}

TEST_F(ReaderSide, WriterClosingCleanlyIsSeenByReadersWhoKeepTheLastContents) {
  auto writer = NumberTable::writerNew(table("numbers"));
  writer->safeWrite(1, 10);
  writer->readyIs(true);
  auto reader = NumberTable::readerNew(table("numbers"));
  Recorder<std::uint64_t> rec;
  reader->notifieeIs(&rec);
  writer->close();
  reader->poll();
  EXPECT_EQ(rec.joined(), "status");
  EXPECT_FALSE(reader->status().writerAttached);
  EXPECT_EQ(contents(*reader), "1=10");
}

TEST_F(ReaderSide, WaitForChangeReturnsOnceAChangeIsPendingAndTimesOutOtherwise) {
  auto writer = NumberTable::writerNew(table("numbers"));
  auto reader = NumberTable::readerNew(table("numbers"));
  EXPECT_FALSE(reader->waitForChange(std::chrono::milliseconds(2)));
  writer->safeWrite(1, 10);
  EXPECT_TRUE(reader->waitForChange(std::chrono::seconds(5)));
  EXPECT_EQ(reader->poll(), 1u);
  EXPECT_FALSE(reader->waitForChange(std::chrono::milliseconds(2)));
  writer->readyIs(true);
  EXPECT_TRUE(reader->waitForChange(std::chrono::seconds(5)));
}

}  // namespace
}  // namespace KelpTest
