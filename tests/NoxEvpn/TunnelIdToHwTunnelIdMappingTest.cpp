#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "NoxEvpn/NoxEvpn.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace {

using Nox::HwTunnelId;
using Nox::TunnelId;
using Nox::TunnelIdToHwTunnelId;

class Recorder : public Nox::TunnelIdToHwTunnelIdMapping::NotifieeConst {
 public:
  explicit Recorder(Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping const> const& m) : NotifieeConst(m) {}
  void onTunnelIdToHwTunnelId(TunnelId const& key) override { keys.push_back(key.value()); }
  std::vector<uint64_t> keys;
};

class TunnelTableTest : public ::testing::Test {
 protected:
  void SetUp() override { Trace::countersReset(); }
  uint64_t counter(char const* name) { return Trace::counterValue(name); }
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> table =
      Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
};

TEST_F(TunnelTableTest, DelAllDeletesInKeyOrderNotifyingAndCountingEachOnce) {
  Recorder r(table);
  table->tunnelIdToHwTunnelIdDelAll();
  EXPECT_TRUE(r.keys.empty());
  for (uint64_t t : {30, 10, 20}) table->tunnelIdToHwTunnelIdIs({TunnelId(t), HwTunnelId(1)});
  r.keys.clear();
  uint64_t const delsBefore = counter("tunnelIdToHwTunnelIdDel");
  table->tunnelIdToHwTunnelIdDelAll();
  EXPECT_EQ(r.keys, (std::vector<uint64_t>{10, 20, 30}));
  EXPECT_EQ(counter("tunnelIdToHwTunnelIdDel") - delsBefore, 3u);
  EXPECT_EQ(table->tunnelIdToHwTunnelIds(), 0u);
}

// The entity's own in-place path: the table publishes, the entity counts the write.
TEST_F(TunnelTableTest, CommitPublishesAValueWrittenInPlace) {
  Recorder r(table);
  TunnelIdToHwTunnelId* slot = table->tunnelIdToHwTunnelIdSlot(TunnelId(9));
  *slot = TunnelIdToHwTunnelId(TunnelId(9), HwTunnelId(90));
  table->tunnelIdToHwTunnelIdCommit(slot);
  EXPECT_EQ(table->tunnelIdToHwTunnelId(TunnelId(9)).hwTunnelId(), HwTunnelId(90));
  EXPECT_EQ(r.keys, (std::vector<uint64_t>{9}));
  EXPECT_EQ(counter("tunnelIdToHwTunnelIdIs"), 1u);
}

// A write that meets a damaged segment reports it to the table, then stops the process.
TEST(TunnelTablePublishedDeathTest, CorruptSegmentOnWriteIsFatalWithTheTableServicesText) {
  std::string const prefix = "noxtestc" + std::to_string(::getpid());
  EXPECT_DEATH(
      {
        VelKelp::publishPrefixIs(prefix);
        auto table = Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
        KelpTest::Injector(Kelp::tableName(prefix, "tunnelIdToHwTunnelId")).header().magic =
            0xdeadbeef;
        table->tunnelIdToHwTunnelIdIs({TunnelId(5), HwTunnelId(600)});
      },
      "/usr/include/Kelp/KelpMap:[0-9]+: safeWrite: Assertion `KelpMap::safeWrite\\(\\) in no "
      "man's land' failed");
  Kelp::unlinkTable(Kelp::tableName(prefix, "tunnelIdToHwTunnelId"));
}

// A writer entity published under a prefix of its own, and a reader entity mounting it by name in
// the same process, as another agent would.
class PublishedTunnelTable : public ::testing::Test {
 protected:
  PublishedTunnelTable() {
    VelKelp::publishPrefixIs(prefix);
    writer = Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId");
    writer->tunnelIdToHwTunnelIdIs({TunnelId(1), HwTunnelId(10)});
    reader = Nox::tunnelIdToHwTunnelIdMappingFactory("tunnelIdToHwTunnelId", VelKelp::Side::reader);
    VelKelp::publishPrefixIs("");
    Trace::countersReset();
  }
  ~PublishedTunnelTable() override {
    reader = nullptr;
    writer = nullptr;
    Kelp::unlinkTable(Kelp::tableName(prefix, "tunnelIdToHwTunnelId"));
  }
  uint64_t counter(char const* name) { return Trace::counterValue(name); }

  std::string const prefix = "noxtestr" + std::to_string(::getpid());
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> writer;
  Vel::Ptr<Nox::TunnelIdToHwTunnelIdMapping> reader;
};

TEST_F(PublishedTunnelTable, ReaderIsNotifiedOfEachChangeWhenItPollsAndCountsItsNotifications) {
  Recorder heard(reader);
  EXPECT_EQ(reader->tunnelIdToHwTunnelId(TunnelId(1)).hwTunnelId(), HwTunnelId(10));
  writer->tunnelIdToHwTunnelIdIs({TunnelId(2), HwTunnelId(20)});
  writer->tunnelIdToHwTunnelIdIs({TunnelId(1), HwTunnelId(11)});
  writer->tunnelIdToHwTunnelIdDel(TunnelId(2));
  writer->tunnelIdToHwTunnelIdDel(TunnelId(3));
  EXPECT_TRUE(heard.keys.empty());
  EXPECT_EQ(reader->tunnelIdToHwTunnelIdPoll(2), 2u);
  EXPECT_EQ(heard.keys, (std::vector<uint64_t>{2, 1}));
  EXPECT_EQ(reader->tunnelIdToHwTunnelIdPoll(), 1u);
  EXPECT_EQ(heard.keys, (std::vector<uint64_t>{2, 1, 2}));
  EXPECT_EQ(reader->tunnelIdToHwTunnelId(TunnelId(1)).hwTunnelId(), HwTunnelId(11));
  EXPECT_EQ(reader->tunnelIdToHwTunnelIds(), 1u);
  // Writes and deletes count on the writer; notifications on both sides.
  EXPECT_EQ(counter("tunnelIdToHwTunnelIdIs"), 2u);
  EXPECT_EQ(counter("tunnelIdToHwTunnelIdDel"), 2u);
  EXPECT_EQ(counter("tunnelIdToHwTunnelIdNotify"), 6u);
}

// Bytes the constructor does not write are garbage here; the segment must not see them.
TEST_F(PublishedTunnelTable, EqualEntriesAreEqualBytesInTheSegment) {
  alignas(TunnelIdToHwTunnelId) unsigned char dirty[sizeof(TunnelIdToHwTunnelId)];
  std::memset(dirty, 0xa5, sizeof dirty);
  auto const* entry = new (dirty) TunnelIdToHwTunnelId(TunnelId(1), HwTunnelId(10));
  writer->tunnelIdToHwTunnelIdIs(*entry);
  TunnelIdToHwTunnelId const clean(TunnelId(1), HwTunnelId(10));

  KelpTest::Injector segment(Kelp::tableName(prefix, "tunnelIdToHwTunnelId"));
  Kelp::Word const* slot = segment.slot(0);
  ASSERT_EQ(slot[Kelp::Layout::slotKeyWord], 1u);
  auto const* value = slot + Kelp::Layout::slotKeyWord + segment.header().geometry.keyWords;
  EXPECT_EQ(std::memcmp(value, &clean, sizeof clean), 0);
}

using PublishedTunnelTableDeathTest = PublishedTunnelTable;

TEST_F(PublishedTunnelTableDeathTest, AReaderRefusesWrites) {
  EXPECT_DEATH(reader->tunnelIdToHwTunnelIdIs({TunnelId(4), HwTunnelId(40)}),
               "Assertion `tunnelIdToHwTunnelIdWritable\\(\\)' failed");
}

}  // namespace
