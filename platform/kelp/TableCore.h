#pragma once

// The untyped engine behind every Kelp table: records are runs of 64-bit words, keys and values
// of the sizes the segment was created with. It owns the segment's protocol (slots under the
// sequence lock, the change log, growth, readiness, the reader registry and the corruption
// checks); the typed Kelp::Table keeps the ordered key index and the callbacks on top of it.
//
// Writer side: insert/replace/remove write one slot and append one log entry each; the caller
// remembers which slot holds which key. Reader side: nextChange() hands out the log entries in
// order, scan() rebuilds a reader's view from the slots, readRecord() copies one slot out.

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/kelp/Layout.h"
#include "platform/kelp/Options.h"
#include "platform/kelp/Segment.h"
#include "platform/kelp/Status.h"

namespace Kelp {

enum class Mode { writer, reader, process };

// What a table holds, as its segment records it. A reader given keyBytes 0 takes the shape the
// segment has (the generic reader of kelpcat).
struct RecordShape {
  std::size_t keyBytes = 0;
  std::size_t valueBytes = 0;
  std::string keyType;
  std::string valueType;
};

class TableCore {
 public:
  using Slot = std::uint32_t;

  struct Change {
    Layout::LogOp op;
    Slot slot;
    Word const* key;  // keyWords() words; valid until the next call
  };
  enum class Next { none, change, overrun };

  TableCore(std::string table, Mode mode, RecordShape const& shape, Options const& options);
  TableCore(TableCore const&) = delete;
  TableCore& operator=(TableCore const&) = delete;
  ~TableCore();
  // Writer: marks the segment closed and removes its name. Reader: leaves the registry.
  void close();

  std::string const& table() const { return table_; }
  Mode mode() const { return mode_; }
  RecordShape const& shape() const { return shape_; }
  std::size_t keyWords() const { return keyWords_; }
  std::size_t valueWords() const { return valueWords_; }
  bool replacedStale() const { return replacedStale_; }

  // Writer and process tables.
  Slot insert(Word const* key, Word const* value);
  void replace(Slot slot, Word const* key, Word const* value);
  void remove(Slot slot, Word const* key);
  void appendCollection();
  void readyIs(bool ready);

  // Readers. nextChange returns none when the log holds nothing new (yet), overrun when the
  // writer has overwritten entries this reader had not read: the reader must scan() again.
  Next nextChange(Change* change);
  // Calls visit(slot, keyWords) for every used slot and restarts the change log from the
  // position the writer had reached before the scan began (replaying later changes is harmless).
  template <class Visit>
  void scan(Visit&& visit) {
    std::vector<Word> key(keyWords_);
    Slot const end = beginScan();
    for (Slot s = 0; s < end; ++s) {
      if (readRecord(s, key.data(), nullptr)) visit(s, static_cast<Word const*>(key.data()));
    }
  }
  // Compares readiness and the writer's presence with what this reader last saw. Liveness of the
  // writer's process costs a system call and is checked once per livenessPeriod; when the writer
  // is gone and a new writer has created the name again, the reader switches to the new segment
  // (segmentReplaced: the caller must scan()).
  enum StatusEvent : unsigned { statusUnchanged = 0, statusChanged = 1, segmentReplaced = 2 };
  unsigned refreshStatus();
  // True when readiness or the writer's presence changed since refreshStatus() (cheap).
  bool statusPending() const;
  bool attachReplacement();
  void markFullyAttached();
  bool writerGone() const { return !seenWriterAlive_; }
  // Readiness as refreshStatus() last read it.
  bool seenReady() const { return seenReady_; }
  // True when the log holds an entry this reader has not taken (cheap, for spinning).
  bool changePending() const;
  // Waits until a change or a status change is pending: spins for spinFor, then sleeps in short
  // steps. Returns false when the timeout passed first.
  bool waitForChange(std::chrono::nanoseconds timeout, std::chrono::nanoseconds spinFor) const;

  // Both sides. readRecord copies a used slot (key and/or value may be null) and returns false
  // for a free one; it never returns a torn copy.
  bool readRecord(Slot slot, Word* key, Word* value);
  Status status() const;
  bool ready() const;
  void checkMagic() const;
  void corruptionDetected();
  bool corruptionReported() const { return corruptionReported_; }

  static constexpr std::chrono::milliseconds livenessPeriod{5};
  // How long a reader waits for a slot that a live writer seems to be writing.
  static constexpr std::chrono::milliseconds busySlotLimit{500};

 private:
  void createSegment(Options const& options);
  bool attachSegment(Segment&& segment, bool waitForWriter);
  void validateHeader(Layout::Header const& header) const;
  void mapCapacity(Word capacity);
  void bindPointers();
  void ensureMapped(Slot slot);
  Slot allocateSlot();
  void grow();
  void append(Layout::LogOp op, Slot slot, Word const* key);
  Word* slotAt(Slot slot) const { return slots_ + std::size_t{slot} * slotWords_; }
  Word* logAt(Word position) const { return log_ + (position & logMask_) * logWords_; }
  Slot beginScan();
  // Whether the log entry carrying sequence `seq` lies before the writer's published head.
  bool behindHead(Word seq) const;
  // The writer's log head, where a reader starts again; raises corruption for a head no writer
  // can reach, whose sequences would wrap and make every entry look overwritten.
  Word loadLogHead() const;
  void checkWritable(Slot slot, Word expectedState) const;
  Layout::ReaderRegistry* registry() const;
  Layout::ReaderRegistry const* registryView() const;
  void registerReader();
  void leaveRegistry();
  [[noreturn]] void corrupt(std::string const& what) const;

  std::string table_;
  Mode mode_;
  RecordShape shape_;
  Segment segment_;
  pid_t ownerPid_;
  bool replacedStale_ = false;
  bool wantRegistry_ = true;
  Layout::Header* header_ = nullptr;
  Word* log_ = nullptr;
  Word* slots_ = nullptr;
  std::size_t keyWords_ = 0;
  std::size_t valueWords_ = 0;
  std::size_t slotWords_ = 0;
  std::size_t logWords_ = 0;
  Word logCapacity_ = 0;
  Word logMask_ = 0;
  std::size_t slotsOffset_ = 0;
  Slot capacity_ = 0;
  // Writer
  std::vector<Slot> freeSlots_;
  Slot highWater_ = 0;
  Word head_ = 0;
  Word count_ = 0;
  // Reader
  Word cursor_ = 0;
  std::vector<Word> changeKey_;
  Layout::ReaderEntry* registryEntry_ = nullptr;
  std::chrono::steady_clock::time_point lastLivenessCheck_{};
  bool seenReady_ = false;
  bool seenWriterAttached_ = false;
  bool seenWriterAlive_ = false;
  bool corruptionReported_ = false;
};

bool processAlive(std::int64_t pid);

}  // namespace Kelp
