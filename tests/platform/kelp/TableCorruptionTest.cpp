// Damage injected into a segment behind the table's back: each kind is raised as a
// CorruptionException, naming what was found, by the operation that meets it, on either side;
// and the owner can record that it reported it.

#include <span>

#include "platform/kelp/Exception.h"
#include "platform/kelp/RecordReader.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

using Kelp::Word;
namespace Layout = Kelp::Layout;

// Appends a log entry as the writer would, naming `slot`.
void appendEntry(Injector& injector, std::uint32_t op, Word slot) {
  Word const position = injector.header().logHead;
  Word* e = injector.logEntry(position);
  e[Layout::logOpWord] = Word{op} << 32 | slot;
  e[Layout::logSeqWord] = 2 * position + 2;
  injector.header().logHead = position + 1;
}

// Rewrites the geometry and seals it with the writer's checksum (FNV-1a over its bytes), as a
// damaged header that still passes the checksum would look.
void resealGeometry(Injector& injector, std::function<void(Layout::Geometry&)> const& change) {
  Layout::Geometry& g = injector.header().geometry;
  change(g);
  Word h = 0xcbf29ce484222325ULL;
  for (auto const c : std::span(reinterpret_cast<unsigned char const*>(&g), sizeof g)) {
    h = (h ^ c) * 0x100000001b3ULL;
  }
  injector.header().checksum = h;
}

class Corruption : public KelpFixture {
 protected:
  // A writer holding keys 1 and 2 (in slots 0 and 1), and a reader attached to it.
  void openTable(std::string const& name) {
    writer_ = NumberTable::writerNew(table(name));
    writer_->safeWrite(1, 10);
    writer_->safeWrite(2, 20);
    reader_ = NumberTable::readerNew(table(name));
  }
  NumberTable::Ptr writer_;
  NumberTable::Ptr reader_;
};

TEST_F(Corruption, BadMagicIsRaisedByEveryOperationAndItsReportsAreRecordedInTheSegment) {
  openTable("numbers");
  EXPECT_FALSE(writer_->corruptionReported());
  Injector(table("numbers")).header().magic = 0xdeadbeef;
  EXPECT_THROW(writer_->safeWrite(3, 30), Kelp::CorruptionException);
  EXPECT_THROW(writer_->safeRemove(1), Kelp::CorruptionException);
  EXPECT_THROW(reader_->poll(), Kelp::CorruptionException);
  EXPECT_THROW(reader_->lookup(1), Kelp::CorruptionException);
  writer_->corruptionDetected();
  reader_->corruptionDetected();
  EXPECT_TRUE(reader_->corruptionReported());
  EXPECT_EQ(writer_->status().corruptionReports, 2u);
}

TEST_F(Corruption, EachKindOfDamageIsRaisedByTheReaderOperationThatMeetsItNamingIt) {
  using Name = Vel::Name const&;
  struct Case {
    std::function<void(Injector&)> damage;
    std::function<void(Name)> meet;
    std::string says;
  };
  auto const poll = [this](Name) { reader_->poll(); };
  auto const open = [](Name name) { NumberTable::readerNew(name); };
  auto const misplace = [](Injector& i) {
    i.logEntry(i.header().logHead)[Layout::logSeqWord] = 2 * (i.header().logHead + 5) + 2;
  };
  std::vector<Case> const cases{
      {[](Injector& i) { i.header().magic = 0xdeadbeef; }, open, "bad magic 0xdeadbeef"},
      {[](Injector& i) { i.header().geometry.valueBytes = 16; }, open, "header checksum"},
      // Slots of 2^29 words after a log of 2^63 bytes: sizes that wrap round to 8 KiB.
      {[](Injector& i) {
         resealGeometry(i, [](Layout::Geometry& g) {
           g.keyBytes = 0xFFFFFFF0;
           g.valueBytes = g.valueWords = 0;
           g.keyWords = (1u << 29) - 2;
           g.slotWords = g.logWords = 1u << 29;
           g.logCapacity = 1u << 31;
           g.slotsOffset = Layout::logOffset + (Word{1} << 63);
         });
         i.header().slotCapacity = Word{1} << 31;
       },
       [](Name name) { Kelp::RecordReader reader(name.str()); }, "does not fit the segment"},
      {[](Injector& i) { appendEntry(i, Layout::logInsert, 0x7FFFFFF0); }, poll,
       "impossible slot index 2147483632"},
      {[](Injector& i) { appendEntry(i, 9, 0); }, poll, "unknown operation 9"},
      {misplace, poll, "out of place"},
      // Sequences of positions this far wrap: every entry would look overwritten for ever.
      {[](Injector& i) { i.header().logHead = ~Word{0}; }, open, "log head 18446744073709551615"},
      {[](Injector& i) { i.slot(0)[Layout::slotStateWord] = 7; },
       [this](Name) { reader_->lookup(1); }, "impossible state 7"},
      {[](Injector&) {},
       [](Name name) { Kelp::Table<std::uint64_t, std::uint32_t>::readerNew(name); },
       "record size mismatch"},
      {[](Injector&) {},
       [](Name name) { Kelp::Table<std::uint64_t, std::int64_t>::readerNew(name); },
       "record type mismatch"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    std::string const name = std::to_string(i);
    openTable(name);
    Injector injector(table(name));
    cases[i].damage(injector);
    EXPECT_THAT(
        [&] { cases[i].meet(table(name)); },
        ::testing::ThrowsMessage<Kelp::CorruptionException>(::testing::HasSubstr(cases[i].says)));
  }
}

TEST_F(Corruption, LogEntryOfALaterLapThanTheHeadDoesNotMakeTheReaderRescanForEver) {
  openTable("numbers");
  Kelp::RecordReader reader(table("numbers"));
  Injector injector(table("numbers"));
  Word const head = injector.header().logHead;
  injector.logEntry(head)[Layout::logSeqWord] =
      2 * (head + injector.header().geometry.logCapacity) + 2;
  EXPECT_EQ(reader.poll([](Kelp::RecordReader::Event const&) {}), 0u);
  EXPECT_EQ(reader.count(), 2u);
}

TEST_F(Corruption, WriterPidThatIsNoProcessIdIsNotALiveWriter) {
  openTable("numbers");
  // As a pid_t these are -1 and a negative process group, both of which kill() accepts.
  for (Word const pid : {Word{0xFFFFFFFF}, Word{0x80000001}}) {
    Injector(table("numbers")).header().writerPid = pid;
    EXPECT_FALSE(reader_->status().writerAlive) << pid;
  }
}

}  // namespace
}  // namespace KelpTest
