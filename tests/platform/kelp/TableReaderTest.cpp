// Readers in other processes: what they see of a table, which notifications they get and when,
// how they recover from falling behind, and what they see of the writer's life and death.

#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

// A reader of `name` in a child process. It first sends "ready=R | CONTENTS"; then, for each
// number N the test sends, it polls until it has had N notifications (at least one poll) and
// sends "EVENTS | CONTENTS".
ChildProcess remoteReader(std::string const& name) {
  return ChildProcess([name](ChildProcess& parent) {
    auto reader = NumberTable::readerNew(name);
    Recorder rec;
    reader->notifieeIs(&rec);
    parent.send("ready=" + std::to_string(reader->ready()) + " | " + contents(*reader));
    for (std::string want; (want = parent.receive()) != "<none>";) {
      pollUntil([&] { reader->poll(); }, [&] { return rec.events.size() >= std::stoul(want); });
      parent.send(rec.take() + " | " + contents(*reader));
    }
    return 0;
  });
}

class ReaderSide : public KelpFixture {};

TEST_F(ReaderSide, ReadersAreToldOfEachChangeAfterTheyAttachAndSeeEarlierOnesByIteration) {
  auto writer = NumberTable::writerNew(table("numbers"));
  auto early = remoteReader(table("numbers"));
  ASSERT_EQ(early.receive(), "ready=0 | ");
  writer->safeWrite(1, 10);
  writer->safeWrite(2, 20);
  writer->safeWrite(1, 11);
  writer->safeWrite(1, 11);
  writer->safeRemove(2);
  writer->safeWrite(3, 30);
  early.send("6");
  EXPECT_EQ(early.receive(), "k:1 k:2 k:1 k:1 k:2 k:3 | 1=11 3=30");
  EXPECT_FALSE(writer->readerFullyAttached());
  writer->readyIs(true);
  early.send("1");
  EXPECT_EQ(early.receive(), "status | 1=11 3=30");

  auto late = remoteReader(table("numbers"));
  EXPECT_EQ(late.receive(), "ready=1 | 1=11 3=30");
  late.send("0");
  EXPECT_EQ(late.receive(), " | 1=11 3=30");
  EXPECT_EQ(writer->status().readersFullyAttached, 2u);
  // A reader process that dies is no longer counted.
  early.kill();
  late.kill();
  EXPECT_EQ(writer->status().readersAttached, 0u);
}

TEST_F(ReaderSide, ReaderBehindTheLogGetsOneCollectionNotificationAndTheCurrentContents) {
  Kelp::Options options;
  options.logCapacity = 16;
  auto writer = NumberTable::writerNew(table("numbers"), options);
  writer->safeWrite(100, 1);
  auto reader = remoteReader(table("numbers"));
  ASSERT_EQ(reader.receive(), "ready=0 | 100=1");
  for (std::uint64_t round = 0; round < 10; ++round) {
    for (std::uint64_t k = 0; k < 5; ++k) writer->safeWrite(k, round * 10 + k);
  }
  writer->safeRemove(3);
  writer->safeRemove(100);
  reader.send("1");
  EXPECT_EQ(reader.receive(), "collection | 0=90 1=91 2=92 4=94");
  // Once resynchronised, the reader follows the log again, the writer's own rescans included.
  writer->safeWrite(7, 70);
  writer->notifyCollection();
  reader.send("2");
  EXPECT_EQ(reader.receive(), "k:7 collection | 0=90 1=91 2=92 4=94 7=70");
}

TEST_F(ReaderSide, ReaderFollowsTheTableAsItGrowsPastWhatItHasMapped) {
  Kelp::Options options;
  options.initialCapacity = 1;
  auto writer = NumberTable::writerNew(table("numbers"), options);
  auto reader = remoteReader(table("numbers"));
  ASSERT_EQ(reader.receive(), "ready=0 | ");
  reader.send("3000");  // it polls while the table grows
  std::ostringstream events;
  std::ostringstream entries;
  for (std::uint64_t k = 0; k < 3000; ++k) {
    writer->safeWrite(k, k * 3);
    events << (k ? " k:" : "k:") << k;
    entries << (k ? " " : "") << k << "=" << k * 3;
  }
  EXPECT_EQ(reader.receive(), events.str() + " | " + entries.str());
  EXPECT_GT(writer->status().generation, 10u);
  EXPECT_EQ(NumberTable::readerNew(table("numbers"))->lookup(2999), 8997u);
}

TEST_F(ReaderSide, KilledWriterIsSeenByReadersAndTheNextWriterReplacesItsSegment) {
  ChildProcess first([&](ChildProcess& parent) {
    auto writer = NumberTable::writerNew(table("numbers"));
    for (std::uint64_t k = 1; k < 52; ++k) writer->safeWrite(k, k * 10);
    writer->readyIs(true);
    // A child forked by the writer must not keep the writer's hold on the table once the writer
    // dies; it lives until the test closes the channel.
    if (::fork() == 0) {
      parent.send("running");
      parent.receive();
      ::_exit(0);
    }
    for (std::uint64_t i = 0;; ++i) writer->safeWrite(2 + i % 50, i);
    return 0;
  });
  ASSERT_EQ(first.receive(), "running");
  auto reader = NumberTable::readerNew(table("numbers"));
  Recorder rec;
  reader->notifieeIs(&rec);
  EXPECT_TRUE(reader->status().writerAlive);
  // Kill it in the middle of its run of writes.
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.events.size() > 100; }));
  first.kill();

  // The dead writer's segment still reads, and the reader learns that its writer is gone.
  rec.events.clear();
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.heard("status"); }));
  EXPECT_FALSE(reader->status().writerAlive);
  EXPECT_EQ(reader->lookup(1), 10u);
  EXPECT_EQ(reader->count(), 51u);

  auto second = NumberTable::writerNew(table("numbers"));
  EXPECT_TRUE(second->replacedStale());
  second->safeWrite(5, 50);
  rec.events.clear();
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.heard("collection"); }));
  EXPECT_EQ(contents(*reader), "5=50");
  EXPECT_TRUE(reader->status().writerAlive);
  second->safeWrite(6, 60);
  rec.events.clear();
  ASSERT_TRUE(pollUntil([&] { reader->poll(); }, [&] { return rec.heard("k:6"); }));
  EXPECT_EQ(rec.take(), "k:6");
}

TEST_F(ReaderSide, WaitingReaderWakesForChangesAndStatusAndKeepsTheContentsAfterACleanClose) {
  auto writer = NumberTable::writerNew(table("numbers"));
  auto reader = NumberTable::readerNew(table("numbers"));
  Recorder rec;
  reader->notifieeIs(&rec);
  EXPECT_FALSE(reader->waitForChange(std::chrono::milliseconds(2)));
  writer->safeWrite(1, 10);
  EXPECT_TRUE(reader->waitForChange(std::chrono::seconds(5)));
  EXPECT_EQ(reader->poll(), 1u);
  EXPECT_FALSE(reader->waitForChange(std::chrono::milliseconds(2)));
  writer->readyIs(true);
  EXPECT_TRUE(reader->waitForChange(std::chrono::seconds(5)));
  reader->poll();
  writer->close();
  EXPECT_TRUE(reader->waitForChange(std::chrono::seconds(5)));
  reader->poll();
  EXPECT_EQ(rec.take(), "k:1 status status");
  EXPECT_FALSE(reader->status().writerAttached);
  EXPECT_EQ(contents(*reader), "1=10");
  // The name is free again: the next writer starts afresh without finding a stale segment.
  auto next = NumberTable::writerNew(table("numbers"));
  EXPECT_FALSE(next->replacedStale());
  EXPECT_TRUE(next->empty());
}

// Readiness turning true reaches a reader only once its view holds what was written before it;
// readiness withdrawn reaches it before the changes that follow. The writer's own notifiees hear
// each change of readiness once.
TEST_F(ReaderSide, ReadinessIsReportedWhereTheReadersViewMatchesIt) {
  auto writer = NumberTable::writerNew(table("numbers"));
  auto reader = NumberTable::readerNew(table("numbers"));
  Recorder mine;
  Recorder theirs;
  writer->notifieeIs(&mine);
  reader->notifieeIs(&theirs);
  writer->safeWrite(1, 10);
  writer->safeWrite(2, 20);
  writer->readyIs(true);
  writer->readyIs(true);
  EXPECT_EQ(mine.take(), "k:1 k:2 status");
  EXPECT_EQ(reader->poll(1), 1u);
  EXPECT_EQ(theirs.take(), "k:1");
  EXPECT_FALSE(reader->ready());
  EXPECT_FALSE(reader->status().ready);
  reader->poll();
  EXPECT_EQ(theirs.take(), "k:2 status");
  EXPECT_TRUE(reader->status().ready);
  EXPECT_EQ(writer->status().readersFullyAttached, 1u);

  writer->readyIs(false);
  writer->safeRemove(1);
  reader->poll();
  EXPECT_EQ(theirs.take(), "status k:1");
  EXPECT_FALSE(reader->ready());
}

}  // namespace
}  // namespace KelpTest
