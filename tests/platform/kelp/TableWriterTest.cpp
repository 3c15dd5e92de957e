// The writer's side of a table: what each write leaves in the table and notifies, key order,
// filling a record in place, notifiee order, and who may open a table at all. What the writer
// keeps, and how it grows, in shared and process memory alike, is checked against a map in
// TablePropertyTest.

#include <sys/stat.h>

#include "platform/kelp/Exception.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

class WriterSide : public KelpFixture {};

// TablePropertyTest checks which writes and removals notify; its random values never rewrite a
// value unchanged, and it ignores what a removal hands back.
TEST_F(WriterSide, RewritingAnUnchangedValueNotifiesAgainAndRemoveHandsBackThePresentValue) {
  auto t = NumberTable::writerNew(table("numbers"));
  Recorder rec;
  t->notifieeIs(&rec);
  t->safeWrite(7, 70);
  t->safeWrite(7, 70);
  EXPECT_EQ(rec.take(), "k:7 k:7");
  std::uint64_t removed = 99;
  EXPECT_FALSE(t->safeRemove(2, &removed));
  EXPECT_EQ(removed, 99u);
  EXPECT_TRUE(t->safeRemove(7, &removed));
  EXPECT_EQ(removed, 70u);
}

TEST_F(WriterSide, IteratesCompoundKeysInFieldOrderNotByteOrder) {
  auto t = PointTable::writerNew(table("points"));
  for (PointKey k : {PointKey{2000, 1}, {1000, 300}, {2000, 0}, {256, 7}, {1000, 2}}) {
    t->safeWrite(k, {});
  }
  std::string order;
  for (auto const& e : *t) order += keyText(e.key) + " ";
  EXPECT_EQ(order, "256,7 1000,2 1000,300 2000,0 2000,1 ");
  EXPECT_EQ(keyText(t->lowerBound({1000, 3})->key), "1000,300");
  // Removing the entry begin() stands on, then starting again, empties the table.
  for (auto it = t->begin(); it != t->end(); it = t->begin()) t->safeRemove(it->key);
  EXPECT_TRUE(t->empty());
}

TEST_F(WriterSide, DirectCommitPublishesTheRecordFilledInPlace) {
  auto t = PointTable::writerNew(table("points"));
  Recorder<PointKey> rec;
  t->notifieeIs(&rec);
  Wide* slot = t->directSlot({1, 2});
  slot->a = 12;
  t->directCommit(slot);
  slot = t->directSlot({1, 2});
  slot->b = static_cast<std::uint32_t>(slot->a) + 5;
  t->directCommit(slot);
  EXPECT_EQ(t->lookup({1, 2}), (Wide{12, 17}));
  EXPECT_EQ(rec.take(), "k:1,2 k:1,2");
}

TEST_F(WriterSide, NotifieesRunInRegistrationOrderAndMayLeaveWhileNotified) {
  auto t = NumberTable::processNew(table("numbers"));
  Recorder staying;
  struct Leaving : Kelp::TableNotifiee<std::uint64_t> {
    Leaving(NumberTable* t, Recorder<>* l) : table(t), log(l) {}
    NumberTable* table;
    Recorder<>* log;
    void onKey(std::uint64_t const&) override {
      log->events.push_back("leaving");
      table->notifieeDel(this);
    }
  } leaving(t.ptr(), &staying);
  t->notifieeIs(&leaving);
  t->notifieeIs(&staying);
  t->safeWrite(1, 1);
  t->safeWrite(2, 2);
  t->notifyCollection();
  EXPECT_EQ(staying.take(), "leaving k:1 k:2 collection");
}

TEST_F(WriterSide, NotifieeThatJoinsWhileNotifiedHearsOnlyLaterChanges) {
  auto t = NumberTable::processNew(table("numbers"));
  Recorder late;
  struct Inviting : Kelp::TableNotifiee<std::uint64_t> {
    Inviting(NumberTable* t, Recorder<>* l) : table(t), late(l) {}
    NumberTable* table;
    Recorder<>* late;
    void onKey(std::uint64_t const& k) override {
      if (k == 1) table->notifieeIs(late);
      // A change made from inside the callback is a later change: the newcomer hears it.
      if (k == 2) table->safeWrite(3, 3);
    }
  } inviting(t.ptr(), &late);
  t->notifieeIs(&inviting);
  t->safeWrite(1, 1);
  EXPECT_EQ(late.take(), "");
  t->safeWrite(2, 2);
  EXPECT_EQ(late.take(), "k:3 k:2");
}

TEST_F(WriterSide, TablesThatCannotBeOpenedAsAskedAreRefused) {
  auto first = NumberTable::writerNew(table("numbers"));
  first->safeWrite(1, 10);
  ChildProcess second([&](ChildProcess&) {
    NumberTable::writerNew(table("numbers"));
    return 0;
  });
  EXPECT_THAT(second.receive(),
              ::testing::HasSubstr("live writer (pid " + std::to_string(getpid()) + ")"));
  EXPECT_EQ(second.wait(), 99);
  EXPECT_EQ(first->lookup(1), 10u);
  EXPECT_THROW(NumberTable::writerNew(Vel::Name("a/b")), Kelp::OpenException);
  EXPECT_THROW(NumberTable::readerNew(table("absent")), Kelp::OpenException);
  for (char const* bad : {"", ".hidden", "a..b", "..", "sp ace", "new\nline", "a*b"}) {
    EXPECT_FALSE(Kelp::validTableName(bad)) << bad;
    EXPECT_THROW(NumberTable::writerNew(Vel::Name(bad)), Kelp::OpenException) << bad;
  }
  EXPECT_FALSE(Kelp::validTableName(std::string(Kelp::maxTableNameBytes + 1, 'a')));
  EXPECT_TRUE(Kelp::validTableName("noxsim-1.tunnel_Id.2"));
}

mode_t segmentMode(std::string const& table) {
  struct stat st {};
  EXPECT_EQ(::stat(("/dev/shm/" + table).c_str(), &st), 0) << table;
  return st.st_mode & 07777;
}

// Nobody but the owner (and, when asked, its group) can map a table, and a name planted by
// someone else is not written through.
TEST_F(WriterSide, SegmentsAreOwnerOnlyAndPlantedNamesAreRefused) {
  auto owned = NumberTable::writerNew(table("owned"));
  EXPECT_EQ(segmentMode(table("owned")), 0600u);
  Kelp::Options group;
  group.groupReadable = true;
  auto shared = NumberTable::writerNew(table("shared"), group);
  EXPECT_EQ(segmentMode(table("shared")), 0640u);

  int const fd = ::shm_open(("/" + table("planted")).c_str(), O_RDWR | O_CREAT | O_EXCL, 0666);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::fchmod(fd, 0666), 0);
  if (::geteuid() != 0 || ::fchown(fd, 65534, 65534) != 0) {
    ::close(fd);
    GTEST_SKIP() << "planting a name of another user needs root";
  }
  ::close(fd);
  try {
    NumberTable::writerNew(table("planted"));
    ADD_FAILURE() << "a name of another user was taken";
  } catch (Kelp::OpenException const& e) {
    EXPECT_THAT(e.what(), ::testing::HasSubstr("belongs to another user"));
  }
}

// A writer stopped by a signal runs no destructor; its handler removes the names instead.
TEST_F(WriterSide, CreatedNamesCanBeRemovedFromASignalHandler) {
  auto created = NumberTable::writerNew(table("created"));
  ASSERT_EQ(Kelp::tableNames(prefix_).size(), 1u);
  Kelp::unlinkCreatedSegments();
  EXPECT_TRUE(Kelp::tableNames(prefix_).empty());
  created->safeWrite(1, 2);  // the mapping lives on
  EXPECT_EQ(created->lookup(1), 2u);
}

}  // namespace
}  // namespace KelpTest
