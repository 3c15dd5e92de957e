// The writer's side of a table, in shared memory and in process memory alike: what each write
// leaves in the table, what it notifies, key order, growth, and who may open a table for writing.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "platform/kelp/Exception.h"
#include "tests/platform/kelp/ChildProcess.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

class WriterSide : public KelpFixture, public ::testing::WithParamInterface<Kelp::Mode> {
 protected:
  template <class T>
  typename T::Ptr open(std::string const& name, Kelp::Options const& options = {}) {
    return GetParam() == Kelp::Mode::writer ? T::writerNew(table(name), options)
                                            : T::processNew(table(name), options);
  }
};

TEST_P(WriterSide, EveryWriteNotifiesItsKeyAndReplacingKeepsOneEntry) {
  auto t = open<NumberTable>("numbers");
  Recorder<std::uint64_t> rec;
  t->notifieeIs(&rec);
  t->safeWrite(7, 70);
  t->safeWrite(7, 70);
  t->safeWrite(7, 71);
  EXPECT_EQ(rec.joined(), "k:7 k:7 k:7");
  EXPECT_EQ(t->count(), 1u);
  EXPECT_EQ(t->lookup(7), 71u);
}

TEST_P(WriterSide, RemoveNotifiesOnlyAKeyThatWasPresent) {
  auto t = open<NumberTable>("numbers");
  t->safeWrite(1, 10);
  Recorder<std::uint64_t> rec;
  t->notifieeIs(&rec);
  std::uint64_t removed = 99;
  EXPECT_FALSE(t->safeRemove(2, &removed));
  EXPECT_EQ(removed, 99u);
  EXPECT_TRUE(t->safeRemove(1, &removed));
  EXPECT_EQ(removed, 10u);
  EXPECT_FALSE(t->safeRemove(1));
  EXPECT_EQ(rec.joined(), "k:1");
  EXPECT_TRUE(t->empty());
  EXPECT_EQ(t->lookup(1), 0u);
  EXPECT_FALSE(t->find(1).has_value());
  EXPECT_FALSE(t->isMemberOf(1));
}

TEST_P(WriterSide, IteratesCompoundKeysInAscendingFieldOrder) {
  auto t = open<PointTable>("points");
  std::vector<PointKey> keys;
  for (std::uint32_t x = 0; x < 5; ++x) {
    for (std::uint32_t y = 0; y < 5; ++y) keys.push_back({x * 1000, 4 - y});
  }
  std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
  for (auto const& k : keys) t->safeWrite(k, Wide{k.x + k.y, k.y, k.x});
  std::sort(keys.begin(), keys.end());
  std::vector<PointKey> seen;
  for (auto const& e : *t) {
    EXPECT_EQ(e.value.a, e.key.x + e.key.y);
    seen.push_back(e.key);
  }
  EXPECT_EQ(seen, keys);
  auto from = t->lowerBound(PointKey{2000, 3});
  ASSERT_NE(from, t->end());
  EXPECT_EQ(from->key, (PointKey{2000, 3}));
}

TEST_P(WriterSide, RemovingTheFirstEntryUntilEmptyNotifiesEachKeyOnce) {
  auto t = open<NumberTable>("numbers");
  for (std::uint64_t k : {5, 3, 9, 1}) t->safeWrite(k, k * 10);
  Recorder<std::uint64_t> rec;
  t->notifieeIs(&rec);
  for (auto it = t->begin(); it != t->end(); it = t->begin()) t->safeRemove(it->key);
  EXPECT_EQ(rec.joined(), "k:1 k:3 k:5 k:9");
  EXPECT_EQ(t->count(), 0u);
}

TEST_P(WriterSide, DirectCommitPublishesTheRecordFilledInPlace) {
  auto t = open<PointTable>("points");
  Recorder<PointKey> rec;
  t->notifieeIs(&rec);
  Wide* slot = t->directSlot({1, 2});
  EXPECT_EQ(slot->a, 0u);
  slot->a = 12;
  slot->c = 3;
  t->directCommit(slot);
  slot = t->directSlot({1, 2});
  EXPECT_EQ(slot->a, 12u);
  slot->b = 5;
  t->directCommit(slot);
  Wide const v = t->lookup({1, 2});
  EXPECT_EQ(v.a, 12u);
  EXPECT_EQ(v.b, 5u);
  EXPECT_EQ(v.c, 3u);
  EXPECT_EQ(rec.joined(), "k:1,2 k:1,2");
}

TEST_P(WriterSide, GrowsPastItsInitialCapacityAndReusesFreedSlots) {
  Kelp::Options options;
  options.initialCapacity = 2;
  auto t = open<NumberTable>("numbers", options);
  for (std::uint64_t k = 0; k < 1000; ++k) t->safeWrite(k, k + 1);
  for (std::uint64_t k = 0; k < 1000; k += 2) t->safeRemove(k);
  for (std::uint64_t k = 1000; k < 1500; ++k) t->safeWrite(k, k + 1);
  EXPECT_EQ(t->count(), 1000u);
  std::uint64_t previous = 0;
  for (auto const& e : *t) {
    EXPECT_TRUE(e.key % 2 == 1 || e.key >= 1000) << e.key;
    EXPECT_EQ(e.value, e.key + 1);
    EXPECT_GE(e.key, previous);
    previous = e.key;
  }
  EXPECT_GT(t->status().generation, 0u);
  EXPECT_EQ(t->status().count, 1000u);
}

TEST_P(WriterSide, NotifieesRunInRegistrationOrderAndMayLeaveWhileNotified) {
  auto t = open<NumberTable>("numbers");
  std::vector<std::string> calls;
  struct Leaving : Kelp::TableNotifiee<std::uint64_t> {
    NumberTable* table;
    std::vector<std::string>* calls;
    void onKey(std::uint64_t const&) override {
      calls->push_back("leaving");
      table->notifieeDel(this);
    }
  } leaving;
  leaving.table = t.ptr();
  leaving.calls = &calls;
  struct Staying : Kelp::TableNotifiee<std::uint64_t> {
    std::vector<std::string>* calls;
    void onKey(std::uint64_t const&) override { calls->push_back("staying"); }
    void onCollection() override { calls->push_back("collection"); }
  } staying;
  staying.calls = &calls;
  t->notifieeIs(&leaving);
  t->notifieeIs(&staying);
  t->safeWrite(1, 1);
  t->safeWrite(2, 2);
  t->notifyCollection();
  EXPECT_EQ(calls, (std::vector<std::string>{"leaving", "staying", "staying", "collection"}));
}

INSTANTIATE_TEST_SUITE_P(SharedAndProcessMemory, WriterSide,
                         ::testing::Values(Kelp::Mode::writer, Kelp::Mode::process),
                         [](auto const& info) {
                           return info.param == Kelp::Mode::writer ? "Shared" : "Process";
                         });

class WriterOwnership : public KelpFixture {};

TEST_F(WriterOwnership, SecondWriterOfALiveTableIsRefusedInAnyProcess) {
  auto first = NumberTable::writerNew(table("numbers"));
  first->safeWrite(1, 10);
  try {
    NumberTable::writerNew(table("numbers"));
    ADD_FAILURE() << "second writer accepted";
  } catch (Kelp::OpenException const& e) {
    EXPECT_NE(std::string(e.what()).find("live writer (pid " + std::to_string(getpid())),
              std::string::npos)
        << e.what();
  }
  ChildProcess child([&](LineChannel& ch) {
    try {
      NumberTable::writerNew(table("numbers"));
      ch.send("accepted");
    } catch (Kelp::OpenException const&) {
      ch.send("refused");
    }
    return 0;
  });
  EXPECT_EQ(child.receive(), "refused");
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(first->lookup(1), 10u);
}

TEST_F(WriterOwnership, CleanCloseRemovesTheNameAndFreesItForTheNextWriter) {
  auto first = NumberTable::writerNew(table("numbers"));
  first->safeWrite(1, 10);
  EXPECT_EQ(Kelp::tableNames(prefix()), std::vector<std::string>{table("numbers")});
  first->close();
  EXPECT_TRUE(Kelp::tableNames(prefix()).empty());
  auto second = NumberTable::writerNew(table("numbers"));
  EXPECT_FALSE(second->replacedStale());
  EXPECT_TRUE(second->empty());
}

TEST_F(WriterOwnership, ForkedChildDoesNotKeepItsParentsWriterLock) {
  // The writer lives in a child that forks a grandchild; once the child is killed, the
  // grandchild's inherited descriptor must not keep the table locked. The grandchild lives until
  // the test closes the gate.
  int gate[2];
  ASSERT_EQ(::pipe(gate), 0);
  int started[2];
  ASSERT_EQ(::pipe(started), 0);
  ChildProcess writer([&](LineChannel& ch) {
    auto t = NumberTable::writerNew(table("numbers"));
    t->safeWrite(1, 10);
    if (::fork() == 0) {
      // Running here means the fork handlers have run: say so before the writer is killed.
      char c = 's';
      if (::write(started[1], &c, 1) != 1) ::_exit(1);
      ::close(gate[1]);
      while (::read(gate[0], &c, 1) > 0) {
      }
      ::_exit(0);
    }
    char c;
    if (::read(started[0], &c, 1) != 1) return 1;
    ch.send("ready");
    ::pause();
    return 0;
  });
  ASSERT_EQ(writer.receive(), "ready");
  writer.kill(SIGKILL);
  writer.wait();
  auto next = NumberTable::writerNew(table("numbers"));
  EXPECT_TRUE(next->replacedStale());
  ::close(gate[0]);
  ::close(gate[1]);
  ::close(started[0]);
  ::close(started[1]);
}

TEST_F(WriterOwnership, BadTableNamesAreRefused) {
  EXPECT_THROW(NumberTable::writerNew(Vel::Name("a/b")), Kelp::OpenException);
  EXPECT_THROW(NumberTable::writerNew(Vel::Name("")), Kelp::OpenException);
  EXPECT_THROW(NumberTable::readerNew(table("absent")), Kelp::OpenException);
}

}  // namespace
}  // namespace KelpTest
