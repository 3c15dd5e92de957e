#pragma once

// Kelp::Table<K, V>: a keyed table of fixed-size records with one writer and any number of
// readers in other processes, kept in a POSIX shared-memory segment named "/PREFIX.name"; or,
// for tables no other process reads, in process memory with the same interface.
//
// Writer side (writerNew, processNew): safeWrite, directSlot + directCommit, safeRemove,
// readyIs, notifyCollection; notifiees are called synchronously after each change.
// Reader side (readerNew): poll() takes the writer's changes from the segment's change log and
// calls the notifiees; lookups and iteration read the records live, never torn.
// Both sides: lookup (the default value when absent), count, iteration in ascending key order,
// status, corruption reports. A damaged segment raises Kelp::CorruptionException from the
// operation that meets it.
//
// K and V are trivially copyable and have no padding: their bytes are copied into the segment, so
// equal records must be equal bytes (a record with a gap gets an explicit, zeroed field for it).
// K has operator< and operator==. All calls on one table come from one thread.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <type_traits>

#include "platform/kelp/KeyIndex.h"
#include "platform/kelp/Options.h"
#include "platform/kelp/RecordRegistry.h"
#include "platform/kelp/SeqLock.h"
#include "platform/kelp/Status.h"
#include "platform/kelp/TableCore.h"
#include "platform/kelp/TableNotifiee.h"
#include "platform/vel/Assert.h"
#include "platform/vel/Name.h"
#include "platform/vel/Ptr.h"

namespace Kelp {

template <class K, class V>
class Table : public Vel::PtrInterface {
  static_assert(std::is_trivially_copyable_v<K> && std::is_trivially_copyable_v<V>);
  static_assert(std::is_default_constructible_v<K> && std::is_default_constructible_v<V>);
  static_assert(std::has_unique_object_representations_v<K>,
                "a Kelp key must have no padding: give its gaps explicit, zeroed fields");
  static_assert(std::has_unique_object_representations_v<V>,
                "a Kelp value must have no padding: give its gaps explicit, zeroed fields");

 public:
  using Ptr = Vel::Ptr<Table>;
  using PtrConst = Vel::Ptr<Table const>;
  using Notifiee = TableNotifiee<K>;
  using Key = K;
  using Value = V;
  struct Entry {
    K key;
    V value;
  };
  class Iterator;

  static Ptr writerNew(Vel::Name const& name, Options const& options = {}) {
    return Ptr(new Table(name, Mode::writer, options));
  }
  static Ptr readerNew(Vel::Name const& name, Options const& options = {}) {
    return Ptr(new Table(name, Mode::reader, options));
  }
  static Ptr processNew(Vel::Name const& name, Options const& options = {}) {
    return Ptr(new Table(name, Mode::process, options));
  }

  Vel::Name const& name() const { return name_; }
  Mode mode() const { return core_.mode(); }
  // The writer found a segment left by a dead writer and replaced it with an empty one.
  bool replacedStale() const { return core_.replacedStale(); }

  // ---- Writer side ----

  // Inserts or replaces the value of `key`, then notifies `key`.
  void safeWrite(K const& key, V const& value) {
    VEL_ASSERT(mode() != Mode::reader);
    KeyWords const k = toWords(key);
    ValueWords const v = toWords(value);
    Slot const slot = index_.find(key);
    if (slot == KeyIndex<K>::none) {
      index_.assign(key, core_.insert(k.data(), v.data()));
    } else {
      core_.replace(slot, k.data(), v.data());
    }
    notifyKey(key);
  }

  // The writer's record for `key` (its current value, or the default), to be filled in place
  // and published by directCommit. One at a time.
  V* directSlot(K const& key) {
    VEL_ASSERT(mode() != Mode::reader);
    VEL_ASSERT(!staged_);
    staged_ = true;
    stagedKey_ = key;
    stagedValue_ = lookup(key);
    return &stagedValue_;
  }

  // Publishes the record that directSlot handed out, exactly as safeWrite would.
  void directCommit(V const* slot) {
    VEL_ASSERT(staged_ && slot == &stagedValue_);
    staged_ = false;
    safeWrite(stagedKey_, stagedValue_);
  }

  // Removes `key` and notifies it; false, and no notification, when it was absent. With
  // `removed`, the value the key had (left untouched when it was absent).
  bool safeRemove(K const& key, V* removed = nullptr) {
    VEL_ASSERT(mode() != Mode::reader);
    Slot const slot = index_.find(key);
    if (slot == KeyIndex<K>::none) return false;
    if (removed) {
      Entry entry;
      if (readEntry(key, slot, &entry)) *removed = entry.value;
    }
    KeyWords const k = toWords(key);
    core_.remove(slot, k.data());
    index_.erase(key);
    notifyKey(key);
    return true;
  }

  // Marks the initial contents published (or withdrawn); readers see it in status(). A change
  // of readiness calls onStatus() here as on the readers.
  void readyIs(bool ready) {
    VEL_ASSERT(mode() != Mode::reader);
    if (ready == core_.ready()) return;
    core_.readyIs(ready);
    notifyStatus();
  }

  // Tells every notifiee, here and in reader processes, that the whole table may have changed.
  void notifyCollection() {
    VEL_ASSERT(mode() != Mode::reader);
    core_.appendCollection();
    notifyAll();
  }

  // ---- Both sides ----

  std::optional<V> find(K const& key) const {
    Slot const slot = index_.find(key);
    Entry entry;
    if (slot == KeyIndex<K>::none || !readEntry(key, slot, &entry)) return std::nullopt;
    return entry.value;
  }
  V lookup(K const& key) const { return find(key).value_or(V{}); }
  bool isMemberOf(K const& key) const { return find(key).has_value(); }
  // On a reader, as of its last poll().
  std::size_t count() const { return index_.size(); }
  bool empty() const { return count() == 0; }

  // Ascending key order. Removing the entry an iterator stands on invalidates that iterator
  // (restart from begin()); on a reader, poll() invalidates all of them.
  Iterator begin() const { return Iterator(this, index_.begin()); }
  Iterator end() const { return Iterator(this, index_.end()); }
  Iterator lowerBound(K const& key) const { return Iterator(this, index_.lowerBound(key)); }

  // On a reader, as of its last poll(): ready once its view holds what the writer had published
  // when it became ready.
  bool ready() const { return mode() == Mode::reader ? viewReady_ : core_.ready(); }
  Status status() const {
    Status s = core_.status();
    s.ready = ready();
    return s;
  }
  bool readerFullyAttached() const { return core_.status().readersFullyAttached > 0; }

  void notifieeIs(Notifiee* n) { notifiees_.add(n); }
  void notifieeDel(Notifiee* n) { notifiees_.remove(n); }

  // Records that the owner met (and reported) a CorruptionException of this table.
  void corruptionDetected() { core_.corruptionDetected(); }
  bool corruptionReported() const { return core_.corruptionReported(); }

  // ---- Reader side ----

  // Takes up to maxChanges pending changes from the change log, bringing this reader's view up
  // to date and calling the notifiees; returns how many it took. A reader that fell further
  // behind than the log holds gets one onCollection() instead of the lost keys. A status change
  // is reported before the changes, except readiness turning true: that is reported once the
  // view holds every change made before it, so a notifiee that waits for readiness and then
  // walks the table finds the initial contents.
  std::size_t poll(std::size_t maxChanges = std::numeric_limits<std::size_t>::max()) {
    VEL_ASSERT(mode() == Mode::reader);
    VEL_ASSERT(!polling_);
    polling_ = true;
    struct Done {
      bool& flag;
      ~Done() { flag = false; }
    } done{polling_};
    pollStatus();
    std::size_t taken = 0;
    bool drained = false;
    TableCore::Change change;
    while (taken < maxChanges) {
      TableCore::Next const next = core_.nextChange(&change);
      if (next == TableCore::Next::none) {
        drained = true;
        break;
      }
      ++taken;
      if (next == TableCore::Next::overrun) {
        resync();
        notifyAll();
      } else {
        apply(change);
      }
    }
    if (readyPending_ && drained) {
      readyPending_ = false;
      viewReady_ = true;
      notifyStatus();
    }
    if (!fullyAttached_ && viewReady_) {
      core_.markFullyAttached();
      fullyAttached_ = true;
    }
    return taken;
  }

  // Waits until a change or a status change is pending: spins for spinFor, then sleeps in
  // short steps. Returns false when the timeout passed first.
  bool waitForChange(std::chrono::nanoseconds timeout,
                     std::chrono::nanoseconds spinFor = std::chrono::microseconds(50)) const {
    return core_.waitForChange(timeout, spinFor);
  }

  // Writer: closes cleanly (readers see the writer gone, the name disappears). Reader: detaches.
  void close() { core_.close(); }

  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = Entry const*;
    using reference = Entry const&;

    Iterator() = default;
    Entry const& operator*() const { return entry_; }
    Entry const* operator->() const { return &entry_; }
    Iterator& operator++() {
      ++it_;
      settle();
      return *this;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) { return a.it_ == b.it_; }

   private:
    friend class Table;
    Iterator(Table const* table, typename KeyIndex<K>::const_iterator it) : table_(table), it_(it) {
      settle();
    }
    // A reader's index may still name a key that the writer removed since the last poll.
    void settle() {
      while (it_ != table_->index_.end() && !table_->readEntry(it_->first, it_->second, &entry_)) {
        ++it_;
      }
    }

    Table const* table_ = nullptr;
    typename KeyIndex<K>::const_iterator it_{};
    Entry entry_{};
  };

 protected:
  ~Table() override = default;

 private:
  using Slot = TableCore::Slot;
  static constexpr std::size_t keyWords = Layout::wordsFor(sizeof(K));
  static constexpr std::size_t valueWords = Layout::wordsFor(sizeof(V));
  using KeyWords = std::array<Word, keyWords>;
  using ValueWords = std::array<Word, valueWords>;

  Table(Vel::Name const& name, Mode mode, Options const& options)
      : name_(name),
        core_(name.str(), mode,
              RecordShape{sizeof(K), sizeof(V), recordTypeName<K>(), recordTypeName<V>()},
              options) {
    if (mode == Mode::reader) {
      // Readiness first: a scan that follows it sees every record published before it.
      viewReady_ = core_.ready();
      resync();
      fullyAttached_ = viewReady_;
      if (fullyAttached_) core_.markFullyAttached();
    }
  }

  template <class T>
  static std::array<Word, Layout::wordsFor(sizeof(T))> toWords(T const& t) {
    std::array<Word, Layout::wordsFor(sizeof(T))> words{};
    std::memcpy(static_cast<void*>(words.data()), &t, sizeof(T));
    return words;
  }
  template <class T>
  static T fromWords(Word const* words) {
    T t;
    std::memcpy(static_cast<void*>(&t), words, sizeof(T));
    return t;
  }

  // A stable copy of the record in `slot`, if it still holds `key`.
  bool readEntry(K const& key, Slot slot, Entry* entry) const {
    KeyWords k;
    ValueWords v;
    if (!core_.readRecord(slot, k.data(), v.data())) return false;
    entry->key = fromWords<K>(k.data());
    if (!(entry->key == key)) return false;
    entry->value = fromWords<V>(v.data());
    return true;
  }

  void apply(TableCore::Change const& change) {
    if (change.op == Layout::logCollection) {
      notifyAll();
      return;
    }
    K const key = fromWords<K>(change.key);
    if (change.op == Layout::logInsert) index_.assign(key, change.slot);
    if (change.op == Layout::logRemove) index_.erase(key);
    notifyKey(key);
  }

  void resync() {
    index_.clear();
    core_.scan([this](Slot slot, Word const* key) { index_.assign(fromWords<K>(key), slot); });
  }

  void pollStatus() {
    unsigned const event = core_.refreshStatus();
    if (event == TableCore::statusUnchanged) return;
    bool const ready = core_.seenReady();
    if (event & TableCore::segmentReplaced) {
      viewReady_ = false;
      resync();
      fullyAttached_ = false;
      notifyAll();
    }
    readyPending_ = ready && !viewReady_;
    if (readyPending_) return;
    viewReady_ = ready;
    notifyStatus();
  }

  void notifyKey(K const& key) {
    notifiees_.visit([&key](Notifiee& n) { n.onKey(key); });
  }
  void notifyAll() {
    notifiees_.visit([](Notifiee& n) { n.onCollection(); });
  }
  void notifyStatus() {
    notifiees_.visit([](Notifiee& n) { n.onStatus(); });
  }

  Vel::Name name_;
  mutable TableCore core_;
  KeyIndex<K> index_;
  NotifieeList<Notifiee> notifiees_;
  bool polling_ = false;
  bool fullyAttached_ = false;
  bool viewReady_ = false;
  bool readyPending_ = false;
  bool staged_ = false;
  K stagedKey_{};
  V stagedValue_{};
};

}  // namespace Kelp
