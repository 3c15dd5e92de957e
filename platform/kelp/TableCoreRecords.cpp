// Records and changes of a Kelp table: the writer's slot writes and log appends, and the
// reader's side of both (the change log in order, stable copies of slots); see docs/kelp.md.

#include <sched.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/kelp/Exception.h"
#include "platform/kelp/SeqLock.h"
#include "platform/kelp/TableCore.h"

namespace Kelp {

namespace {
using SeqLock::load;
using SeqLock::store;
using std::memory_order_acquire;
using std::memory_order_release;
}  // namespace

// ---- Writer ----

void TableCore::checkWritable(Slot slot, Word expectedState) const {
  Word const* w = slotAt(slot);
  Word const seq = load(w[Layout::slotSeqWord]);
  Word const state = load(w[Layout::slotStateWord]);
  // Only this writer changes slots, so anything else than a settled slot in the state the
  // writer left it in was written by someone else.
  if ((seq & 1) || state != expectedState) {
    corrupt("slot " + std::to_string(slot) + " changed behind the writer (sequence " +
            std::to_string(seq) + ", state " + std::to_string(state) + ")");
  }
}

TableCore::Slot TableCore::allocateSlot() {
  if (!freeSlots_.empty()) {
    Slot const s = freeSlots_.back();
    freeSlots_.pop_back();
    return s;
  }
  if (highWater_ == capacity_) grow();
  return highWater_++;
}

void TableCore::grow() {
  if (capacity_ >= 0x80000000U) throw OpenException(table_, "table full (2^31 slots)");
  Slot const capacity = capacity_ * 2;
  segment_.resize(slotsOffset_ + std::size_t{capacity} * slotWords_ * sizeof(Word));
  bindPointers();
  capacity_ = capacity;
  // The file is longer before readers learn the new capacity, and they learn it before any log
  // entry that names a new slot.
  store(header_->slotCapacity, capacity_, memory_order_release);
  store(header_->generation, load(header_->generation) + 1, memory_order_release);
}

TableCore::Slot TableCore::insert(Word const* key, Word const* value) {
  checkMagic();
  Slot const slot = allocateSlot();
  checkWritable(slot, Layout::slotFree);
  Word* w = slotAt(slot);
  SeqLock::writeBegin(w[Layout::slotSeqWord]);
  store(w[Layout::slotStateWord], Layout::slotUsed);
  SeqLock::copyIn(w + Layout::slotKeyWord, key, keyWords_);
  SeqLock::copyIn(w + Layout::slotKeyWord + keyWords_, value, valueWords_);
  SeqLock::writeEnd(w[Layout::slotSeqWord]);
  append(Layout::logInsert, slot, key);
  store(header_->count, ++count_);
  return slot;
}

void TableCore::replace(Slot slot, Word const* key, Word const* value) {
  checkMagic();
  checkWritable(slot, Layout::slotUsed);
  Word* w = slotAt(slot);
  SeqLock::writeBegin(w[Layout::slotSeqWord]);
  SeqLock::copyIn(w + Layout::slotKeyWord + keyWords_, value, valueWords_);
  SeqLock::writeEnd(w[Layout::slotSeqWord]);
  append(Layout::logReplace, slot, key);
}

void TableCore::remove(Slot slot, Word const* key) {
  checkMagic();
  checkWritable(slot, Layout::slotUsed);
  Word* w = slotAt(slot);
  SeqLock::writeBegin(w[Layout::slotSeqWord]);
  store(w[Layout::slotStateWord], Layout::slotFree);
  SeqLock::writeEnd(w[Layout::slotSeqWord]);
  freeSlots_.push_back(slot);
  append(Layout::logRemove, slot, key);
  store(header_->count, --count_);
}

void TableCore::appendCollection() {
  checkMagic();
  std::vector<Word> const noKey(keyWords_, 0);
  append(Layout::logCollection, 0, noKey.data());
}

void TableCore::append(Layout::LogOp op, Slot slot, Word const* key) {
  if (!logCapacity_) return;
  Word const position = head_++;
  Word* e = logAt(position);
  // A complete entry for position p carries the sequence 2p+2, one being written 2p+1: a reader
  // tells from the sequence alone whether the entry is not yet written, ready or overwritten.
  store(e[Layout::logSeqWord], 2 * position + 1);
  std::atomic_thread_fence(memory_order_release);
  store(e[Layout::logOpWord], Word{op} << 32 | slot);
  SeqLock::copyIn(e + Layout::logKeyWord, key, keyWords_);
  store(e[Layout::logSeqWord], 2 * position + 2, memory_order_release);
  store(header_->logHead, head_, memory_order_release);
}

void TableCore::readyIs(bool ready) {
  checkMagic();
  store(header_->ready, ready ? 1 : 0, memory_order_release);
}

// ---- Reader ----

bool TableCore::changePending() const {
  if (!logCapacity_) return false;
  return load(logAt(cursor_)[Layout::logSeqWord], memory_order_acquire) > 2 * cursor_ + 1;
}

bool TableCore::waitForChange(std::chrono::nanoseconds timeout,
                              std::chrono::nanoseconds spinFor) const {
  using Clock = std::chrono::steady_clock;
  auto const start = Clock::now();
  for (unsigned i = 0;; ++i) {
    if (changePending() || statusPending()) return true;
    if ((i & 63) != 0) {
      SeqLock::pause();
      continue;
    }
    auto const waited = Clock::now() - start;
    if (waited >= timeout) return false;
    if (waited >= spinFor) std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

bool TableCore::behindHead(Word seq) const {
  // An overrun makes the reader rescan and start again from the head; an entry that claims a
  // position the head has not passed would make it do so for ever. A writer publishes the head
  // right after each entry, so such an entry is the head's to catch up with (taken as nothing
  // new until it has), or damage that never goes away (then nothing is ever new).
  Word const entryPosition = (seq - 1) / 2;
  return entryPosition < load(header_->logHead, memory_order_acquire);
}

Word TableCore::loadLogHead() const {
  Word const head = load(header_->logHead, memory_order_acquire);
  if (head > Layout::maxLogPosition) corrupt("log head " + std::to_string(head) + " is impossible");
  return head;
}

TableCore::Next TableCore::nextChange(Change* change) {
  if (!logCapacity_) return Next::none;
  checkMagic();
  Word const position = cursor_;
  Word const* e = logAt(position);
  Word const ready = 2 * position + 2;
  Word opWord = 0;
  Word seq = 0;
  bool const stable = SeqLock::tryRead(e[Layout::logSeqWord], &seq, [&] {
    opWord = load(e[Layout::logOpWord]);
    SeqLock::copyOut(changeKey_.data(), e + Layout::logKeyWord, keyWords_);
  });
  if (!stable) {
    Word const now = load(e[Layout::logSeqWord], memory_order_acquire);
    // Odd: the writer is writing this entry now, or overwriting it with a later one.
    return now <= ready || !behindHead(now) ? Next::none : Next::overrun;
  }
  if (seq < ready) {
    bool const older = seq == 0 || ((seq - 2) / 2 & logMask_) == (position & logMask_);
    if (!older) corrupt("log entry " + std::to_string(position & logMask_) + " out of place");
    return Next::none;
  }
  if (seq > ready) {
    if (((seq - 2) / 2 & logMask_) != (position & logMask_)) {
      corrupt("log entry " + std::to_string(position & logMask_) + " out of place");
    }
    return behindHead(seq) ? Next::overrun : Next::none;
  }
  auto const op = static_cast<std::uint32_t>(opWord >> 32);
  auto const slot = static_cast<Slot>(opWord & 0xFFFFFFFFULL);
  if (op < Layout::logInsert || op > Layout::logCollection) {
    corrupt("log entry with unknown operation " + std::to_string(op));
  }
  if (op != Layout::logCollection) ensureMapped(slot);
  cursor_ = position + 1;
  *change = Change{static_cast<Layout::LogOp>(op), slot, changeKey_.data()};
  return Next::change;
}

TableCore::Slot TableCore::beginScan() {
  checkMagic();
  if (mode_ != Mode::reader) return highWater_;
  cursor_ = loadLogHead();
  Word const capacity = load(header_->slotCapacity, memory_order_acquire);
  if (capacity > capacity_) mapCapacity(capacity);
  return capacity_;
}

bool TableCore::readRecord(Slot slot, Word* key, Word* value) {
  checkMagic();
  ensureMapped(slot);
  Word const* w = slotAt(slot);
  Word state = 0;
  Word seq = 0;
  auto copy = [&] {
    state = load(w[Layout::slotStateWord]);
    if (key) SeqLock::copyOut(key, w + Layout::slotKeyWord, keyWords_);
    if (value) SeqLock::copyOut(value, w + Layout::slotKeyWord + keyWords_, valueWords_);
  };
  std::chrono::steady_clock::time_point giveUp{};
  for (unsigned tries = 1; !SeqLock::tryRead(w[Layout::slotSeqWord], &seq, copy); ++tries) {
    // A writer killed in the middle of a write leaves the slot odd for ever. A live writer
    // finishes a record in well under a microsecond, so one that seems to take longer than
    // busySlotLimit is not writing at all: the sequence word was damaged.
    if (tries % 1024 == 0) {
      if (!processAlive(static_cast<std::int64_t>(load(header_->writerPid)))) return false;
      auto const now = std::chrono::steady_clock::now();
      if (giveUp == std::chrono::steady_clock::time_point{}) giveUp = now + busySlotLimit;
      if (now > giveUp) {
        corrupt("slot " + std::to_string(slot) +
                " stays busy while its writer lives: table busy "
                "or corrupt");
      }
      ::sched_yield();
    }
    SeqLock::pause();
  }
  if (state > Layout::slotUsed) {
    corrupt("slot " + std::to_string(slot) + " has impossible state " + std::to_string(state));
  }
  return state == Layout::slotUsed;
}

}  // namespace Kelp
