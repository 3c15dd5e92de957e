// Damage injected into a segment behind the table's back: each kind is raised as a
// CorruptionException by the operation that meets it, on either side, and the owner can record
// that it reported it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>

#include "platform/kelp/Exception.h"
#include "platform/kelp/Layout.h"
#include "platform/kelp/Segment.h"
#include "tests/platform/kelp/KelpTestSupport.h"

namespace KelpTest {
namespace {

// A writable mapping of a whole segment, as a stray process would have it.
class Injector {
 public:
  explicit Injector(std::string const& table) {
    int const fd = ::shm_open(Kelp::segmentPath(table).c_str(), O_RDWR, 0);
    struct stat st {};
    ::fstat(fd, &st);
    bytes_ = static_cast<std::size_t>(st.st_size);
    base_ =
        static_cast<std::byte*>(::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    ::close(fd);
  }
  ~Injector() { ::munmap(base_, bytes_); }
  Kelp::Layout::Header& header() { return *reinterpret_cast<Kelp::Layout::Header*>(base_); }
  Kelp::Word* logEntry(Kelp::Word position) {
    auto const& g = header().geometry;
    return reinterpret_cast<Kelp::Word*>(base_ + Kelp::Layout::logOffset) +
           (position % g.logCapacity) * g.logWords;
  }
  Kelp::Word* slot(std::size_t index) {
    auto const& g = header().geometry;
    return reinterpret_cast<Kelp::Word*>(base_ + g.slotsOffset) + index * g.slotWords;
  }
  // Appends a log entry as the writer would, naming `slot`.
  void appendEntry(Kelp::Layout::LogOp op, Kelp::Word slot, Kelp::Word key) {
    Kelp::Word const position = header().logHead;
    Kelp::Word* e = logEntry(position);
    e[Kelp::Layout::logOpWord] = Kelp::Word{op} << 32 | slot;
    e[Kelp::Layout::logKeyWord] = key;
    e[Kelp::Layout::logSeqWord] = 2 * position + 2;
    header().logHead = position + 1;
  }

 private:
  std::byte* base_ = nullptr;
  std::size_t bytes_ = 0;
};

class Corruption : public KelpFixture {
 protected:
  void SetUp() override {
    writer_ = NumberTable::writerNew(table("numbers"));
    writer_->safeWrite(1, 10);
    writer_->safeWrite(2, 20);
    reader_ = NumberTable::readerNew(table("numbers"));
  }
  NumberTable::Ptr writer_;
  NumberTable::Ptr reader_;
};

TEST_F(Corruption, BadMagicIsRaisedByWritesLookupsPollsAndOpens) {
  Injector(table("numbers")).header().magic = 0xdeadbeef;
  EXPECT_THROW(writer_->safeWrite(3, 30), Kelp::CorruptionException);
  EXPECT_THROW(writer_->safeRemove(1), Kelp::CorruptionException);
  EXPECT_THROW(reader_->poll(), Kelp::CorruptionException);
  EXPECT_THROW(reader_->lookup(1), Kelp::CorruptionException);
  try {
    NumberTable::readerNew(table("numbers"));
    ADD_FAILURE() << "opened a segment with a bad magic";
  } catch (Kelp::CorruptionException const& e) {
    EXPECT_NE(std::string(e.what()).find("bad magic 0xdeadbeef"), std::string::npos) << e.what();
  }
  // What was written before the damage stays as it was.
  EXPECT_EQ(writer_->count(), 2u);
}

TEST_F(Corruption, ImpossibleSlotIndexInTheLogIsRaisedByPoll) {
  Injector(table("numbers")).appendEntry(Kelp::Layout::logInsert, 0x7FFFFFF0, 9);
  try {
    reader_->poll();
    ADD_FAILURE() << "poll accepted an impossible slot";
  } catch (Kelp::CorruptionException const& e) {
    EXPECT_NE(std::string(e.what()).find("impossible slot index 2147483632"), std::string::npos)
        << e.what();
  }
}

TEST_F(Corruption, UnknownLogOperationAndMisplacedLogEntryAreRaised) {
  {
    Injector injector(table("numbers"));
    injector.appendEntry(static_cast<Kelp::Layout::LogOp>(9), 0, 9);
  }
  EXPECT_THROW(reader_->poll(), Kelp::CorruptionException);
  auto other = NumberTable::readerNew(table("numbers"));
  Injector injector(table("numbers"));
  Kelp::Word const head = injector.header().logHead;
  injector.logEntry(head)[Kelp::Layout::logSeqWord] = 2 * (head + 5) + 2;
  EXPECT_THROW(other->poll(), Kelp::CorruptionException);
}

TEST_F(Corruption, ImpossibleSlotStateIsRaisedByLookup) {
  Injector(table("numbers")).slot(0)[Kelp::Layout::slotStateWord] = 7;
  EXPECT_THROW(reader_->lookup(1), Kelp::CorruptionException);
  // The writer meets it when it next writes that slot.
  EXPECT_THROW(writer_->safeWrite(1, 11), Kelp::CorruptionException);
}

TEST_F(Corruption, DamagedHeaderFailsItsChecksumAtOpen) {
  Injector(table("numbers")).header().geometry.valueBytes = 16;
  try {
    NumberTable::readerNew(table("numbers"));
    ADD_FAILURE() << "opened a segment with a damaged header";
  } catch (Kelp::CorruptionException const& e) {
    EXPECT_NE(std::string(e.what()).find("header checksum"), std::string::npos) << e.what();
  }
}

TEST_F(Corruption, ReaderOfOtherRecordSizesIsRefused) {
  using Narrow = Kelp::Table<std::uint64_t, std::uint32_t>;
  try {
    Narrow::readerNew(table("numbers"));
    ADD_FAILURE() << "opened with the wrong record size";
  } catch (Kelp::CorruptionException const& e) {
    EXPECT_NE(std::string(e.what()).find("record size mismatch"), std::string::npos) << e.what();
  }
  using Renamed = Kelp::Table<std::uint64_t, std::int64_t>;
  EXPECT_THROW(Renamed::readerNew(table("numbers")), Kelp::CorruptionException);
}

TEST_F(Corruption, ReportedCorruptionIsRecordedOnTheTableAndInTheSegment) {
  EXPECT_FALSE(writer_->corruptionReported());
  writer_->corruptionDetected();
  reader_->corruptionDetected();
  EXPECT_TRUE(writer_->corruptionReported());
  EXPECT_TRUE(reader_->corruptionReported());
  EXPECT_EQ(writer_->status().corruptionReports, 2u);
}

}  // namespace
}  // namespace KelpTest
