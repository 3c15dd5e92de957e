// The segment protocol of a Kelp table; see TableCore.h and docs/kelp.md.

#include "platform/kelp/TableCore.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <sstream>
#include <thread>
#include <utility>

#include "platform/kelp/Exception.h"
#include "platform/kelp/SeqLock.h"
#include "platform/vel/Assert.h"

namespace Kelp {

namespace {

using SeqLock::load;
using SeqLock::store;
using std::memory_order_acquire;
using std::memory_order_release;

Word checksumOf(Layout::Geometry const& g) {
  // FNV-1a over the immutable header fields.
  auto const* p = reinterpret_cast<unsigned char const*>(&g);
  Word h = 0xcbf29ce484222325ULL;
  for (std::size_t i = 0; i < sizeof g; ++i) h = (h ^ p[i]) * 0x100000001b3ULL;
  return h;
}

std::string clipTypeName(std::string const& name) {
  return name.substr(0, Layout::typeNameBytes - 1);
}

std::string typeNameOf(char const (&field)[Layout::typeNameBytes]) {
  return std::string(field, strnlen(field, Layout::typeNameBytes));
}

Word roundUpPowerOfTwo(Word n) {
  Word p = 16;
  while (p < n) p <<= 1;
  return p;
}

std::string hex(Word w) {
  std::ostringstream os;
  os << "0x" << std::hex << w;
  return os.str();
}

bool casWord(Word& w, Word expected, Word desired) {
  return std::atomic_ref<Word>(w).compare_exchange_strong(expected, desired);
}

}  // namespace

bool processAlive(std::int64_t pid) {
  // A number that is no process id (a damaged writer pid) must not reach kill() as a negative
  // pid_t, which would probe a whole process group, or every process for -1.
  if (pid <= 0 || pid > std::numeric_limits<pid_t>::max()) return false;
  if (pid == ::getpid()) return true;
  return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

TableCore::TableCore(std::string table, Mode mode, RecordShape const& shape, Options const& options)
    : table_(std::move(table)),
      mode_(mode),
      shape_(shape),
      ownerPid_(::getpid()),
      wantRegistry_(options.registerReader) {
  shape_.keyType = clipTypeName(shape_.keyType);
  shape_.valueType = clipTypeName(shape_.valueType);
  switch (mode_) {
    case Mode::writer:
      segment_ = Segment::claim(table_, &replacedStale_, options.groupReadable ? 0640 : 0600);
      createSegment(options);
      break;
    case Mode::process:
      segment_ = Segment::anonymous(table_);
      createSegment(options);
      break;
    case Mode::reader:
      attachSegment(Segment::open(table_), true);
      break;
  }
}

TableCore::~TableCore() { close(); }

void TableCore::close() {
  if (!header_) return;
  if (ownerPid_ == ::getpid()) {
    if (mode_ == Mode::writer) {
      store(header_->writerState, Layout::writerClosed, memory_order_release);
      segment_.unlinkName();
    } else if (mode_ == Mode::reader) {
      leaveRegistry();
    }
  }
  segment_.close();
  header_ = nullptr;
}

void TableCore::createSegment(Options const& options) {
  keyWords_ = Layout::wordsFor(shape_.keyBytes);
  valueWords_ = Layout::wordsFor(shape_.valueBytes);
  slotWords_ = Layout::slotKeyWord + keyWords_ + valueWords_;
  logWords_ = Layout::logKeyWord + keyWords_;
  logCapacity_ = mode_ == Mode::process ? 0 : roundUpPowerOfTwo(options.logCapacity);
  logMask_ = logCapacity_ ? logCapacity_ - 1 : 0;
  slotsOffset_ = Layout::logOffset + Layout::roundToPage(logCapacity_ * logWords_ * sizeof(Word));
  capacity_ = std::max<Slot>(options.initialCapacity, 1);
  segment_.resize(slotsOffset_ + std::size_t{capacity_} * slotWords_ * sizeof(Word));
  bindPointers();

  Layout::Geometry& g = header_->geometry;
  g.version = Layout::version;
  g.keyBytes = static_cast<std::uint32_t>(shape_.keyBytes);
  g.valueBytes = static_cast<std::uint32_t>(shape_.valueBytes);
  g.keyWords = static_cast<std::uint32_t>(keyWords_);
  g.valueWords = static_cast<std::uint32_t>(valueWords_);
  g.slotWords = static_cast<std::uint32_t>(slotWords_);
  g.logWords = static_cast<std::uint32_t>(logWords_);
  g.logCapacity = static_cast<std::uint32_t>(logCapacity_);
  g.slotsOffset = slotsOffset_;
  g.incarnation = (static_cast<Word>(ownerPid_) << 32) ^
                  static_cast<Word>(std::chrono::steady_clock::now().time_since_epoch().count());
  std::memset(g.keyType, 0, sizeof g.keyType);
  std::memset(g.valueType, 0, sizeof g.valueType);
  shape_.keyType.copy(g.keyType, Layout::typeNameBytes - 1);
  shape_.valueType.copy(g.valueType, Layout::typeNameBytes - 1);
  header_->checksum = checksumOf(g);
  store(header_->slotCapacity, capacity_);
  store(header_->writerPid, static_cast<Word>(ownerPid_));
  store(header_->writerState, Layout::writerAttached);
  // The magic goes last: a reader that sees it sees a complete header.
  store(header_->magic, Layout::magic, memory_order_release);
  seenWriterAttached_ = seenWriterAlive_ = true;
}

bool TableCore::attachSegment(Segment&& segment, bool waitForWriter) {
  // A writer that has just created the name may not have written its header yet.
  using namespace std::chrono;
  auto const deadline = steady_clock::now() + seconds(2);
  for (;;) {
    if (segment.fileBytes() >= Layout::logOffset) {
      segment.map(Layout::pageBytes);
      auto const* h = reinterpret_cast<Layout::Header const*>(segment.base());
      if (load(h->magic, memory_order_acquire) != 0) break;
    }
    if (!waitForWriter) return false;
    if (steady_clock::now() > deadline) {
      throw OpenException(table_, "the writer never finished creating the segment");
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
  validateHeader(*reinterpret_cast<Layout::Header const*>(segment.base()));
  leaveRegistry();
  segment_ = std::move(segment);
  header_ = reinterpret_cast<Layout::Header*>(segment_.base());
  Layout::Geometry const& g = header_->geometry;
  keyWords_ = g.keyWords;
  valueWords_ = g.valueWords;
  slotWords_ = g.slotWords;
  logWords_ = g.logWords;
  logCapacity_ = g.logCapacity;
  logMask_ = logCapacity_ - 1;
  slotsOffset_ = g.slotsOffset;
  if (shape_.keyBytes == 0) {
    shape_ = RecordShape{g.keyBytes, g.valueBytes, typeNameOf(g.keyType), typeNameOf(g.valueType)};
  }
  // The capacity is checked against the file before anything is sized by the geometry, so that
  // a damaged header cannot make the reader allocate more than the file holds.
  mapCapacity(load(header_->slotCapacity, memory_order_acquire));
  changeKey_.assign(keyWords_, 0);
  segment_.mapRegistry();
  if (wantRegistry_) registerReader();
  cursor_ = loadLogHead();
  seenReady_ = load(header_->ready) != 0;
  seenWriterAttached_ = load(header_->writerState) == Layout::writerAttached;
  seenWriterAlive_ =
      seenWriterAttached_ && processAlive(static_cast<std::int64_t>(load(header_->writerPid)));
  return true;
}

void TableCore::validateHeader(Layout::Header const& header) const {
  Word const magic = load(header.magic);
  if (magic != Layout::magic) corrupt("bad magic " + hex(magic));
  Layout::Geometry const& g = header.geometry;
  if (header.checksum != checksumOf(g)) corrupt("header checksum mismatch");
  if (g.version != Layout::version) corrupt("unknown version " + std::to_string(g.version));
  bool const sane =
      g.keyWords == Layout::wordsFor(g.keyBytes) &&
      g.valueWords == Layout::wordsFor(g.valueBytes) &&
      g.slotWords == Layout::slotKeyWord + g.keyWords + g.valueWords &&
      g.logWords == Layout::logKeyWord + g.keyWords && g.logCapacity >= 16 &&
      (g.logCapacity & (g.logCapacity - 1)) == 0 &&
      g.slotsOffset ==
          Layout::logOffset + Layout::roundToPage(std::size_t{g.logCapacity} * g.logWords * 8);
  if (!sane) corrupt("impossible geometry");
  if (shape_.keyBytes == 0) return;
  if (g.keyBytes != shape_.keyBytes || g.valueBytes != shape_.valueBytes) {
    corrupt("record size mismatch: the segment holds " + std::to_string(g.keyBytes) + "+" +
            std::to_string(g.valueBytes) + " bytes, the reader expects " +
            std::to_string(shape_.keyBytes) + "+" + std::to_string(shape_.valueBytes));
  }
  if (typeNameOf(g.keyType) != shape_.keyType || typeNameOf(g.valueType) != shape_.valueType) {
    corrupt("record type mismatch: the segment holds " + typeNameOf(g.keyType) + " -> " +
            typeNameOf(g.valueType) + ", the reader expects " + shape_.keyType + " -> " +
            shape_.valueType);
  }
}

void TableCore::bindPointers() {
  header_ = reinterpret_cast<Layout::Header*>(segment_.base());
  log_ = reinterpret_cast<Word*>(segment_.base() + Layout::logOffset);
  slots_ = reinterpret_cast<Word*>(segment_.base() + slotsOffset_);
}

void TableCore::ensureMapped(Slot slot) {
  if (slot < capacity_) return;
  Word const capacity = load(header_->slotCapacity, memory_order_acquire);
  if (slot >= capacity) {
    corrupt("impossible slot index " + std::to_string(slot) + " (capacity " +
            std::to_string(capacity) + ")");
  }
  mapCapacity(capacity);
}

void TableCore::mapCapacity(Word capacity) {
  // Divided rather than multiplied: a damaged geometry (slots of 2^29 words, an offset past 2^63)
  // would wrap the product round to a size that seems to fit.
  std::size_t const fileBytes = segment_.fileBytes();
  std::size_t const slotBytes = slotWords_ * sizeof(Word);
  if (capacity == 0 || capacity > 0x80000000ULL || slotsOffset_ > fileBytes ||
      capacity > (fileBytes - slotsOffset_) / slotBytes) {
    corrupt("slot capacity " + std::to_string(capacity) + " does not fit the segment");
  }
  std::size_t const bytes = slotsOffset_ + capacity * slotBytes;
  segment_.map(bytes);
  bindPointers();
  capacity_ = static_cast<Slot>(capacity);
}

void TableCore::corrupt(std::string const& what) const { throw CorruptionException(table_, what); }

void TableCore::checkMagic() const {
  VEL_ASSERT(header_ != nullptr);  // not used after close()
  Word const magic = load(header_->magic);
  if (magic != Layout::magic) corrupt("bad magic " + hex(magic));
}

// ---- Reader status ----

unsigned TableCore::refreshStatus() {
  checkMagic();
  auto const now = std::chrono::steady_clock::now();
  bool const livenessDue = now - lastLivenessCheck_ >= livenessPeriod;
  if (livenessDue) lastLivenessCheck_ = now;
  if (livenessDue && !seenWriterAlive_ && attachReplacement()) {
    return statusChanged | segmentReplaced;
  }
  bool const ready = load(header_->ready, memory_order_acquire) != 0;
  bool const attached = load(header_->writerState) == Layout::writerAttached;
  bool alive = attached && seenWriterAlive_;
  if (attached != seenWriterAttached_ || livenessDue) {
    alive = attached && processAlive(static_cast<std::int64_t>(load(header_->writerPid)));
  }
  bool const changed =
      ready != seenReady_ || attached != seenWriterAttached_ || alive != seenWriterAlive_;
  seenReady_ = ready;
  seenWriterAttached_ = attached;
  seenWriterAlive_ = alive;
  return changed ? statusChanged : statusUnchanged;
}

bool TableCore::statusPending() const {
  return (load(header_->ready) != 0) != seenReady_ ||
         (load(header_->writerState) == Layout::writerAttached) != seenWriterAttached_;
}

bool TableCore::attachReplacement() {
  if (mode_ != Mode::reader) return false;
  try {
    Segment fresh = Segment::open(table_);
    if (fresh.inode() == segment_.inode()) return false;
    return attachSegment(std::move(fresh), false);
  } catch (OpenException const&) {
    return false;
  }
}

Layout::ReaderRegistry* TableCore::registry() const {
  // Readers map the segment read-only and the registry page a second time, writable.
  std::byte* page =
      mode_ == Mode::reader ? segment_.registry() : segment_.base() + Layout::registryOffset;
  return reinterpret_cast<Layout::ReaderRegistry*>(page);
}

Layout::ReaderRegistry const* TableCore::registryView() const {
  return reinterpret_cast<Layout::ReaderRegistry const*>(segment_.base() + Layout::registryOffset);
}

void TableCore::registerReader() {
  Layout::ReaderRegistry* reg = registry();
  if (!reg) return;
  auto const self = static_cast<Word>(::getpid());
  // Entries of readers that died without leaving are taken over. A table read by more than
  // maxTrackedReaders processes still works; the extra readers are only not counted.
  for (auto& entry : reg->readers) {
    Word const pid = load(entry.pid);
    if (pid != 0 && processAlive(static_cast<std::int64_t>(pid))) continue;
    if (!casWord(entry.pid, pid, self)) continue;
    store(entry.state, Layout::readerAttached, memory_order_release);
    registryEntry_ = &entry;
    return;
  }
}

void TableCore::markFullyAttached() {
  if (registryEntry_)
    store(registryEntry_->state, Layout::readerFullyAttached, memory_order_release);
}

void TableCore::leaveRegistry() {
  if (!registryEntry_) return;
  store(registryEntry_->state, Layout::readerAbsent);
  store(registryEntry_->pid, 0, memory_order_release);
  registryEntry_ = nullptr;
}

// ---- Both ----

bool TableCore::ready() const { return load(header_->ready, memory_order_acquire) != 0; }

Status TableCore::status() const {
  Status s;
  s.ready = ready();
  s.writerAttached = load(header_->writerState) == Layout::writerAttached;
  s.writerPid = static_cast<std::int64_t>(load(header_->writerPid));
  s.writerAlive = s.writerAttached && processAlive(s.writerPid);
  s.count = load(header_->count);
  s.generation = load(header_->generation);
  if (Layout::ReaderRegistry const* reg = registryView()) {
    s.corruptionReports = load(reg->corruptionReports);
    for (auto const& entry : reg->readers) {
      Word const pid = load(entry.pid);
      if (pid == 0 || !processAlive(static_cast<std::int64_t>(pid))) continue;
      ++s.readersAttached;
      if (load(entry.state) == Layout::readerFullyAttached) ++s.readersFullyAttached;
    }
  }
  return s;
}

void TableCore::corruptionDetected() {
  corruptionReported_ = true;
  if (Layout::ReaderRegistry* reg = registry()) {
    std::atomic_ref<Word>(reg->corruptionReports).fetch_add(1);
  }
}

}  // namespace Kelp
