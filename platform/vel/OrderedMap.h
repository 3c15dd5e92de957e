#pragma once

// The storage of every keyed collection: a hash map whose iteration order is insertion order.
// A new key goes to the end; replacing a key's value keeps its place; a key deleted and added
// again goes to the end. That order makes every run reproducible whatever the hash functions.
//
// Layout: members live in one dense vector in insertion order; an open-addressing index (linear
// probing) finds them. Each index entry holds the member's 32-bit hash beside its slot number, so
// probing reads only the index and a member is touched only when its hash matches: about one
// cache miss in the index and one in the member per lookup, fewer than a node-based map, and
// iteration is a linear walk.
//
// No single change pays for the whole map when it does not grow. A removal leaves a dead member
// slot behind (so that iterators stay valid) but no mark in the index: the entries after it in
// its probe run shift back. Dead slots are reclaimed a few at a time by the insertions that
// follow, which slide live members down in order while new ones go to the end, so a map under
// steady churn keeps its storage and never copies it whole. Growth does not copy either: past
// the first sixteen, members live in chunks that never move as they grow, and an index that fills
// up is replaced by one of twice the size into which the following insertions copy the old one's
// slots a few at a time, lookups reading both meanwhile; the old one's pages then hold the next
// members rather than being unmapped while fresh ones are faulted in. A map that has shrunk far
// below its capacity gives the memory back when its reclamation ends (its index moving to a smaller
// one the same way) or when it empties.
//
// What stays valid across a change:
//
//   change                              member pointers (find, tryEmplace, firstKey)   iterators
//   replacing a value in place          valid                                          valid
//   erase (one member or the last)      invalid                                        valid
//   insertion (tryEmplace of a new key) invalid                                        invalid
//   reserve, clear                      invalid                                        invalid
//
// An insertion may grow the member vector or rebuild the index, which moves members and
// renumbers slots; whether it does depends on capacity, so every insertion counts as one. A
// removal only marks its slot dead, so iteration goes on past it (also past the current member),
// but the removed member's value is reset at once and a pointer to it would read a default.
// References yielded by iteration (for (auto [k, v] : map)) follow the member-pointer rule.
// With NOX_CHECKED_COLLECTIONS=1 every pointer and iterator checks this on use (MemberPtr.h).

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/vel/MemberPtr.h"
#include "platform/vel/Value.h"

namespace Vel {

// Spreads a key's hash over the index: integers are mixed (their std::hash is the identity),
// framework values bring their own 32-bit hash().
struct IndexHasher {
  template <class T>
  uint32_t operator()(T const& v) const {
    if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
      uint64_t x = static_cast<uint64_t>(v);
      x ^= x >> 33;
      x *= 0xff51afd7ed558ccdull;
      x ^= x >> 33;
      return static_cast<uint32_t>(x);
    } else {
      return v.hash();
    }
  }
};

// Fresh memory of its own mapping, for a large block. Faulting pages in by touching them costs
// several times what faulting them in with one call does on a virtual machine (each first touch
// is a trap the hypervisor sees), so the holders of such blocks fault them in a run of pages at a
// time, ahead of use (populatePages).
void* mapPages(std::size_t bytes);
void unmapPages(void* at, std::size_t bytes);
void populatePages(void* at, std::size_t bytes);
std::size_t pageBytes();
// Whole pages holding `bytes`.
std::size_t pagesFor(std::size_t bytes);
// What those mappings hold now, in bytes (memory accounting counts them beside the heap).
std::size_t mappedBytes();

// The addresses of a ChunkedVector's chunks. Most vectors have one chunk (most maps are small),
// so the first address is kept inline and a list is allocated only for a second: a few hundred
// thousand small maps would otherwise each allocate an 8-byte list. Not movable: the inline
// address is reached through at_.
template <class T>
class ChunkList {
 public:
  ChunkList() = default;
  ChunkList(ChunkList const&) = delete;
  ChunkList& operator=(ChunkList const&) = delete;
  ~ChunkList() { clear(); }

  bool empty() const { return count_ == 0; }
  std::size_t size() const { return count_; }
  T*& operator[](std::size_t c) { return at_[c]; }
  T* operator[](std::size_t c) const { return at_[c]; }
  T*& back() { return at_[count_ - 1]; }
  T* front() const { return at_[0]; }
  // Room for one more address, taken before the chunk it names is, so that adding it cannot fail.
  void reserveOne() {
    if (count_ < capacity_) return;
    uint32_t const capacity = 2 * capacity_;
    auto* const list = static_cast<T**>(std::malloc(capacity * sizeof(T*)));
    if (!list) throw std::bad_alloc();
    std::copy(at_, at_ + count_, list);
    if (at_ != &one_) std::free(at_);
    at_ = list;
    capacity_ = capacity;
  }
  void push_back(T* chunk) { at_[count_++] = chunk; }
  void pop_back() {
    if (--count_ == 1 && at_ != &one_) {
      one_ = at_[0];
      std::free(at_);
      at_ = &one_;
      capacity_ = 1;
    }
  }
  void clear() {
    if (at_ != &one_) std::free(at_);
    at_ = &one_;
    count_ = 0;
    capacity_ = 1;
  }

 private:
  T** at_ = &one_;
  T* one_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 1;
};

// The members' storage: chunks that never move once full, so that growing never copies what is
// there (a doubling vector copies every member, in one insertion, each time it fills, and on a
// virtual machine faulting in the fresh copy costs more than the copy). The first chunk holds 16
// members, the next ones double from 32 members up to 8,192, and are all of 8,192 after that.
// The last chunk, while it is allocated rather than mapped, grows like a vector up to its full
// size, from a quarter of it (from 4 members for the first): most maps are small (a flood set's
// eight destinations) or middling (the few hundred destinations using one tunnel), and a chunk
// as large as everything before it would leave up to half the map's memory unused. Every chunk
// but the last is full, so the vector keeps only their addresses, and where the next member
// goes: an append reads nothing but the vector itself and the slot it writes. Chunks of 64 KiB
// and more are mappings of their own whose pages are faulted in sixteen at a time as appends
// reach them, so what they do not hold yet takes no memory.
template <class T>
class ChunkedVector {
 public:
  static constexpr std::size_t firstBits = 4;
  static constexpr std::size_t firstSize = std::size_t(1) << firstBits;
  static constexpr std::size_t firstReserve = 4;
  static constexpr std::size_t chunkBits = 13;
  static constexpr std::size_t chunkSize = std::size_t(1) << chunkBits;
  // Chunk j (from 0) of the doubling ones holds the positions i with i + 16 in [16 << j,
  // 32 << j); the ten of them hold 16 + 32 + ... + 8,192 positions.
  static constexpr std::size_t doublingChunks = chunkBits - firstBits + 1;
  static constexpr std::size_t doublingHold = (std::size_t(2) << chunkBits) - firstSize;

  ChunkedVector() = default;
  ChunkedVector(ChunkedVector const&) = delete;
  ChunkedVector& operator=(ChunkedVector const&) = delete;
  ~ChunkedVector() { release(); }

  std::size_t size() const { return size_; }
  std::size_t capacity() const {
    if (chunks_.empty()) return 0;
    return held(chunks_.size() - 1) + lastCapacity_;
  }
  T& operator[](std::size_t i) { return chunks_[chunkOf(i)][offsetIn(i)]; }
  T const& operator[](std::size_t i) const { return chunks_[chunkOf(i)][offsetIn(i)]; }
  T& back() { return tail_[-1]; }
  // Where the next member goes, for a prefetch only: when the vector is full it is the end of
  // the last chunk (null before the first).
  T const* tail() const { return tail_; }
  // Position i and the end of the chunk holding it: a walk steps through a chunk by pointer and
  // looks a position up again only where the chunk ends.
  std::pair<T*, T*> run(std::size_t i) const {
    std::size_t const c = chunkOf(i);
    return {chunks_[c] + offsetIn(i), chunks_[c] + chunkCapacity(c)};
  }

  // Pages of the mapping the next append would take for a chunk of its own, or 0 when it takes
  // none. An owner holding faulted-in pages it no longer uses can offer them (adoptChunk).
  std::size_t mappingDue() const {
    if (size_ != ready_ || size_ != capacity()) return 0;
    if (size_ == std::numeric_limits<uint32_t>::max()) return 0;  // makeRoom says why
    std::size_t const c = chunks_.size();
    if (c > 0 && lastCapacity_ < fullSize(c - 1)) return 0;
    return isMapped(c) ? pagesFor(chunkBytes(c)) : 0;
  }
  // Takes as the next chunk the mappingDue() pages, faulted in, that takePages(pages) hands
  // over; they are given back by unmapping them, as a chunk's own mapping would be.
  template <class TakePages>
  void adoptChunk(TakePages&& takePages) {
    chunks_.reserveOne();
    std::size_t const c = chunks_.size();
    addChunk(static_cast<T*>(takePages(pagesFor(chunkBytes(c)))), startSize(c));
  }

  void push_back(T&& value) {
    if (size_ == ready_) makeRoom();
    ::new (static_cast<void*>(tail_)) T(std::move(value));
    ++tail_;
    ++size_;
  }
  // Drops the members from position n on, and the chunks left empty but the first (a set that
  // empties and fills again, as flood sets do, keeps its one small chunk).
  void truncate(std::size_t n) {
    if (n >= size_) return;
    for (std::size_t i = size_; i > n; --i) (*this)[i - 1].~T();
    size_ = static_cast<uint32_t>(n);
    std::size_t const keep = n == 0 ? 1 : chunkOf(n - 1) + 1;
    while (chunks_.size() > keep) {
      deallocate(chunks_.back(), chunks_.size() - 1);
      chunks_.pop_back();
      lastCapacity_ = static_cast<uint32_t>(fullSize(chunks_.size() - 1));
    }
    // The next append looks again at what is faulted in past here.
    ready_ = static_cast<uint32_t>(n);
    tail_ = n == capacity() ? chunks_.back() + lastCapacity_ : &(*this)[n];
  }
  void clear() { truncate(0); }
  void release() {
    truncate(0);
    if (!chunks_.empty()) deallocate(chunks_.front(), 0);
    chunks_.clear();
    ready_ = lastCapacity_ = 0;
    tail_ = nullptr;
  }

 private:
  // Positions held by the first `chunks` chunks at their full size.
  static std::size_t held(std::size_t chunks) {
    if (chunks <= doublingChunks) return (firstSize << chunks) - firstSize;
    return doublingHold + (chunks - doublingChunks) * chunkSize;
  }
  static std::size_t chunkOf(std::size_t i) {
    if (i < doublingHold) return std::size_t(std::bit_width(i + firstSize)) - firstBits - 1;
    return doublingChunks + ((i - doublingHold) >> chunkBits);
  }
  static std::size_t offsetIn(std::size_t i) {
    if (i < doublingHold) return i + firstSize - std::bit_floor(i + firstSize);
    return (i - doublingHold) & (chunkSize - 1);
  }
  // Positions of chunk c at its full size; the last may hold fewer while it grows.
  static std::size_t fullSize(std::size_t c) { return held(c + 1) - held(c); }
  std::size_t chunkCapacity(std::size_t c) const {
    return c + 1 == chunks_.size() ? lastCapacity_ : fullSize(c);
  }
  static constexpr std::size_t mappedFrom = std::size_t(64) * 1024;
  static constexpr std::size_t populateRun = 16;  // pages
  static std::size_t chunkBytes(std::size_t c) { return fullSize(c) * sizeof(T); }
  static bool isMapped(std::size_t c) { return c > 0 && chunkBytes(c) >= mappedFrom; }
  // Chunk c's first size.
  static std::size_t startSize(std::size_t c) {
    if (isMapped(c)) return fullSize(c);
    return c == 0 ? firstReserve : fullSize(c) / 4;
  }
  static T* allocate(std::size_t c, std::size_t capacity) {
    if (isMapped(c)) return static_cast<T*>(mapPages(chunkBytes(c)));
    return std::allocator<T>().allocate(capacity);
  }
  void deallocate(T* chunk, std::size_t c) {
    if (isMapped(c)) return unmapPages(chunk, chunkBytes(c));
    std::allocator<T>().deallocate(chunk, chunkCapacity(c));
  }

  // Makes room for one more member: more of the last chunk faulted in, the last chunk grown by
  // moving its members, or a chunk added.
  void makeRoom() {
    // Members are numbered in 32 bits.
    if (size_ == std::numeric_limits<uint32_t>::max()) {
      throw std::length_error("Vel::ChunkedVector");
    }
    if (size_ == capacity()) {
      grow();
    } else if (isMapped(chunks_.size() - 1)) {
      populateFromTail();
    } else {
      ready_ = static_cast<uint32_t>(capacity());
    }
  }
  // Faults in the pages of a mapped last chunk from the one holding the tail's start, and counts
  // ready the positions that lie wholly in what is faulted in.
  void populateFromTail() {
    std::size_t const c = chunks_.size() - 1;
    auto* const base = reinterpret_cast<unsigned char*>(chunks_.back());
    std::size_t const page = pageBytes();
    std::size_t const from = (size_ - held(c)) * sizeof(T) / page * page;
    std::size_t const to = std::min(chunkBytes(c), from + populateRun * page);
    populatePages(base + from, to - from);
    ready_ = static_cast<uint32_t>(held(c) + to / sizeof(T));
  }
  void grow() {
    std::size_t const c = chunks_.size();
    if (c > 0 && lastCapacity_ < fullSize(c - 1)) {
      growLast(std::min(fullSize(c - 1), std::size_t(2) * lastCapacity_));
      return;
    }
    chunks_.reserveOne();
    std::size_t const room = startSize(c);
    addChunk(allocate(c, room), room);
    if (isMapped(c)) populateFromTail();
  }
  // After chunks_.reserveOne(), so that this cannot fail.
  void addChunk(T* chunk, std::size_t room) {
    chunks_.push_back(chunk);
    lastCapacity_ = static_cast<uint32_t>(room);
    tail_ = chunk;
    ready_ = static_cast<uint32_t>(capacity());
  }
  // Moves the last chunk's members into a larger allocation.
  void growLast(std::size_t capacity) {
    std::size_t const last = chunks_.size() - 1;
    std::size_t const count = size_ - held(last);
    T* const old = chunks_.back();
    T* const fresh = std::allocator<T>().allocate(capacity);
    for (std::size_t i = 0; i < count; ++i) {
      ::new (static_cast<void*>(fresh + i)) T(std::move(old[i]));
      old[i].~T();
    }
    std::allocator<T>().deallocate(old, lastCapacity_);
    chunks_.back() = fresh;
    lastCapacity_ = static_cast<uint32_t>(capacity);
    tail_ = fresh + count;
    ready_ = static_cast<uint32_t>(this->capacity());
  }

  T* tail_ = nullptr;
  ChunkList<T> chunks_;
  uint32_t size_ = 0;
  uint32_t ready_ = 0;         // positions usable before more must be faulted in or allocated
  uint32_t lastCapacity_ = 0;  // members the last chunk has room for, up to its full size
};

// An index's slots, zero when free. A small index is one zeroed allocation. A large one is a
// mapping of its own, so that neither taking it nor giving it back costs any one insertion the
// whole table: its pages are faulted in a few at a time before the map starts using it
// (prepareSome), and returned a few at a time once the map has done with it (releaseSome).
// On a virtual machine the first touch of a page can cost more than an insertion.
class IndexTable {
 public:
  IndexTable() = default;
  explicit IndexTable(std::size_t size);
  // Whether a table of `size` slots is a mapping of its own (asked on every insertion into a
  // large map, so answered inline).
  static bool mappedAt(std::size_t size) { return size * sizeof(uint64_t) >= mappedFrom; }
  IndexTable(IndexTable&& other) noexcept { take(other); }
  IndexTable& operator=(IndexTable&& other) noexcept {
    if (this != &other) {
      reset();
      take(other);
    }
    return *this;
  }
  IndexTable(IndexTable const&) = delete;
  IndexTable& operator=(IndexTable const&) = delete;
  ~IndexTable() { reset(); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  uint64_t& operator[](std::size_t i) { return slots_[i]; }
  uint64_t operator[](std::size_t i) const { return slots_[i]; }
  void prefetch(std::size_t i) const { __builtin_prefetch(slots_ + i); }
  void clear();

  // Faulting in: a table is ready to use once every page has been touched.
  bool prepared() const { return touched_ >= mapped_; }
  void prepareSome(std::size_t pages);
  void prepareAll() { prepareSome(mapped_); }
  // Giving back a table no longer used, from its end; it is empty once all is given back.
  void releaseSome(std::size_t pages);
  bool releasing() const { return mapped_ > 0 && size_ == 0; }
  // Stops using the table: its slots are no longer read, and its memory goes by releaseSome,
  // or to another use by takePages.
  void retire() { size_ = 0; }
  // Of a retired table, the pages not given back yet that are faulted in (from its front), and
  // the first `pages` of them handed over for another use, theirs to unmap.
  std::size_t sparePages() const { return releasing() ? touched_ : 0; }
  void* takePages(std::size_t pages);

 private:
  void take(IndexTable& other) noexcept;
  void reset() noexcept;

  // Tables of at least this many bytes get a mapping of their own.
  static constexpr std::size_t mappedFrom = std::size_t(32) * 1024;

  uint64_t* slots_ = nullptr;
  std::size_t size_ = 0;  // slots in use, 0 once retired
  uint32_t mapped_ = 0;   // pages of a mapped table still mapped, 0 for an allocated one
  uint32_t touched_ = 0;  // pages of a mapped table faulted in
};

template <class K, class V, class H = IndexHasher>
class OrderedMap {
  // Index entries: hash << 32 | (member number + 1), so that a free slot is zero. A removal from
  // an index being migrated leaves a tombstone, which names no member (see migrateSome).
  static constexpr uint64_t emptyEntry = 0;
  static constexpr uint64_t tombstone = uint64_t(1) << 32;
  static bool namesMember(uint64_t entry) { return static_cast<uint32_t>(entry) != 0; }
  static constexpr uint32_t notFound = std::numeric_limits<uint32_t>::max();
  static uint64_t entryOf(uint32_t hash, uint32_t n) { return (uint64_t(hash) << 32) | (n + 1); }
  static uint32_t memberOf(uint64_t entry) { return static_cast<uint32_t>(entry) - 1; }

  // The small fields sit between key and value, where a key of 4-byte alignment leaves no gap
  // before them: a destination keyed set member is 48 bytes rather than 52.
  struct Member {
    K key;
    uint32_t hash;
    bool live;
    V value;
  };
  // Where a key was found: an index slot (of the index in use, or of the one being emptied by a
  // migration), or, in a small map, which has no index, the member itself.
  enum class Where : uint8_t { index, oldIndex, member };
  struct Slot {
    uint32_t at;
    Where where;
    explicit operator bool() const { return at != notFound; }
  };

 public:
  // What iteration yields: for (auto [key, value] : map).
  template <class Val>
  struct MemberRef {
    K const& key;
    Val& value;
  };

  template <class Map, class Val>
  class Iterator {
   public:
    using difference_type = std::ptrdiff_t;
    using value_type = MemberRef<Val>;
    Iterator() = default;
    Iterator(Map* m, std::size_t i) : m_(m), i_(i) {
#if NOX_CHECKED_COLLECTIONS
      taken_ = m->reshapes_;
#endif
      skipDead();
    }
    MemberRef<Val> operator*() const { return {key(), value()}; }
    K const& key() const { return member().key; }
    Val& value() const { return member().value; }
    Iterator& operator++() {
      check();
      ++i_;
      ++p_;
      skipDead();
      return *this;
    }
    Iterator operator++(int) {
      Iterator old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(Iterator const& a, Iterator const& b) {
      a.check();
      b.check();
      return a.at() == b.at();
    }

   private:
    auto& member() const {
      check();
      return *p_;
    }
    void check() const {
#if NOX_CHECKED_COLLECTIONS
      if (m_ && m_->reshapes_ != taken_) staleIterator();
#endif
    }
    void skipDead() {
      for (std::size_t const size = m_->members_.size(); i_ < size; ++i_, ++p_) {
        if (p_ == runEnd_) std::tie(p_, runEnd_) = m_->members_.run(i_);
        if (p_->live) return;
      }
    }
    // Position with every end iterator equal, whatever the map's size now.
    std::size_t at() const {
      return m_ && i_ < m_->members_.size() ? i_ : std::numeric_limits<std::size_t>::max();
    }
    using MemberT = std::conditional_t<std::is_const_v<Map>, Member const, Member>;
    Map* m_ = nullptr;
    std::size_t i_ = 0;
    // Member i_ and the end of its chunk, while i_ is within the members.
    MemberT* p_ = nullptr;
    MemberT* runEnd_ = nullptr;
#if NOX_CHECKED_COLLECTIONS
    ChangeCount taken_ = 0;
#endif
  };
  using iterator = Iterator<OrderedMap, V>;
  using const_iterator = Iterator<OrderedMap const, V const>;

  OrderedMap() = default;
  OrderedMap(OrderedMap const&) = delete;
  OrderedMap& operator=(OrderedMap const&) = delete;

  std::size_t size() const { return live_; }
  bool empty() const { return live_ == 0; }
  void reserve(std::size_t n) {
    reshaped();
    reclaimAll();
    if (small() && n <= smallMembers) return;
    migrateAll();
    if (migration_) migration_->nextIndex = IndexTable();
    // Sized as growth would leave it, no larger: a map reserved for its final size would
    // otherwise keep an index twice that of the same map grown to it.
    if (n * 4 > index_.size() * 3) rebuildIndexOfSize(indexSizeFor(n, 3, 4));
  }
  // Member slots allocated, live or not: what the map holds in memory, in members.
  std::size_t capacity() const { return members_.capacity(); }

  MemberPtr<V const> find(K const& k) const { return pointerTo(findRaw(k)); }
  MemberPtr<V> find(K const& k) { return pointerTo(const_cast<V*>(findRaw(k))); }
  bool contains(K const& k) const { return findRaw(k) != nullptr; }
  // Starts bringing into cache the index slot where k's probe begins and the slot an insertion
  // would fill. A walk over many keys that asks this for the next few before working on them
  // takes their cache misses side by side rather than one after the other (in a large map
  // nearly every key's index slot is a miss).
  void prefetch(K const& k) const {
    if (!small()) index_.prefetch(H()(k) & (index_.size() - 1));
    __builtin_prefetch(members_.tail());
  }

  // Inserts k at the end, or finds it where it is. Returns the value and whether it is new.
  template <class... Args>
  std::pair<MemberPtr<V>, bool> tryEmplace(K const& k, Args&&... args) {
    uint32_t const h = H()(k);
    Slot const found = lookup(k, h);
    if (found) return {pointerTo(&members_[memberAt(found)].value), false};
    reshaped();
    if (small() && members_.size() == smallMembers) outgrowSmall();
    if (!small()) {
      reclaimSome();
      migrateSome();
      tendIndexes();
      if ((std::size_t(live_) + 1) * 4 > index_.size() * 3) growIndex();
      if (migration_) chunkFromRetired();
    }
    uint32_t const n = static_cast<uint32_t>(members_.size());
    members_.push_back(Member{k, h, true, V(std::forward<Args>(args)...)});
    if (!small()) index_[freeSlotFor(index_, h)] = entryOf(h, n);
    ++live_;
    return {pointerTo(&members_.back().value), true};
  }

  bool erase(K const& k) {
    Slot const slot = lookup(k, H()(k));
    if (!slot) return false;
    changed();
    Member& m = members_[memberAt(slot)];
    if (slot.where == Where::oldIndex) {
      migration_->oldIndex[slot.at] = tombstone;
    } else if (slot.where == Where::index) {
      unindex(index_, slot.at);
    }
    m.live = false;
    // Release what the value holds now (a reference, a reactor), not at the next rebuild.
    m.value = V();
    --live_;
    while (head_ < members_.size() && !members_[head_].live) ++head_;
    // Emptied: start numbering again from the front. Iterators stay valid (they are all at the
    // end now); the next insertion invalidates them anyway.
    if (live_ == 0) dropAll();
    return true;
  }

  void clear() {
    reshaped();
    dropAll();
  }

  iterator begin() { return iterator(this, head_); }
  iterator end() { return iterator(this, members_.size()); }
  const_iterator begin() const { return const_iterator(this, head_); }
  const_iterator end() const { return const_iterator(this, members_.size()); }
  // The first member in iteration order, or null.
  MemberPtr<K const> firstKey() const { return pointerTo(live_ ? &members_[head_].key : nullptr); }

  // A pointer into this map's members (or to what a member holds) as this map hands it out.
  template <class T>
  MemberPtr<T> pointerTo(T* p) const {
#if NOX_CHECKED_COLLECTIONS
    return MemberPtr<T>(p, &changes_);
#else
    return p;
#endif
  }

 private:
  V const* findRaw(K const& k) const {
    Slot const slot = lookup(k, H()(k));
    return slot ? &members_[memberAt(slot)].value : nullptr;
  }
  uint32_t memberAt(Slot slot) const {
    switch (slot.where) {
      case Where::member:
        return slot.at;
      case Where::oldIndex:
        return memberOf(migration_->oldIndex[slot.at]);
      case Where::index:
        break;
    }
    return memberOf(index_[slot.at]);
  }
  void dropAll() {
    if (members_.capacity() > keptEmpty) {
      // An emptied map gives its memory back (a collection that once held every VLAN's members
      // should not hold their space for good).
      members_.release();
      index_ = IndexTable();
    } else {
      members_.clear();
      index_.clear();
    }
    migration_.reset();
    live_ = head_ = 0;
    reclaiming_ = false;
  }
  // A change that may drop or move members, and one that also renumbers slots.
  void changed() {
#if NOX_CHECKED_COLLECTIONS
    ++changes_;
#endif
  }
  void reshaped() {
    changed();
#if NOX_CHECKED_COLLECTIONS
    ++reshapes_;
#endif
  }

  // Where k is, if it is.
  Slot lookup(K const& k, uint32_t h) const {
    if (small()) return {scan(k, h), Where::member};
    uint32_t const at = probe(index_, k, h);
    if (at != notFound || !migrating()) return {at, Where::index};
    return {probeOld(k, h), Where::oldIndex};
  }
  // Small maps. Most maps hold a handful of members (a flood set's destinations, a pair's
  // configurations), and there are hundreds of thousands of them: up to smallMembers member
  // slots a map has no index, and a key is found by comparing hashes along its members, which
  // sit in a cache line or a few. That spares each such map an index allocation of its own
  // (64 bytes and the allocator's header) and the allocation's cost. When the slots are all
  // taken, the dead ones are squeezed out, or, if none is dead, the map is indexed.
  static constexpr std::size_t smallMembers = 8;
  bool small() const { return index_.empty(); }
  uint32_t scan(K const& k, uint32_t h) const {
    for (std::size_t i = head_, size = members_.size(); i < size; ++i) {
      Member const& m = members_[i];
      if (m.hash == h && m.live && m.key == k) return static_cast<uint32_t>(i);
    }
    return notFound;
  }
  void outgrowSmall() {
    if (live_ < members_.size()) {
      reclaimAll();
    } else {
      rebuildIndex(std::size_t(live_) + 1);
    }
  }
  // The slot of `table` holding k, or notFound.
  uint32_t probe(IndexTable const& table, K const& k, uint32_t h) const {
    if (table.empty()) return notFound;
    std::size_t const mask = table.size() - 1;
    for (std::size_t i = h & mask;; i = (i + 1) & mask) {
      uint64_t const e = table[i];
      if (e == emptyEntry) return notFound;
      if (uint32_t(e >> 32) == h && members_[memberOf(e)].key == k) {
        return static_cast<uint32_t>(i);
      }
    }
  }
  // The slot of the index being migrated holding k, or notFound. Slots behind the migration's
  // walk are copied already: what they name is in the new index, or gone.
  uint32_t probeOld(K const& k, uint32_t h) const {
    IndexTable const& old = migration_->oldIndex;
    std::size_t const mask = old.size() - 1;
    for (std::size_t i = h & mask;; i = (i + 1) & mask) {
      uint64_t const e = old[i];
      if (e == emptyEntry) return notFound;
      if (i >= migration_->slot && uint32_t(e >> 32) == h && namesMember(e) &&
          members_[memberOf(e)].key == k) {
        return static_cast<uint32_t>(i);
      }
    }
  }
  static std::size_t freeSlotFor(IndexTable const& table, uint32_t h) {
    std::size_t const mask = table.size() - 1;
    std::size_t i = h & mask;
    while (table[i] != emptyEntry) i = (i + 1) & mask;
    return i;
  }
  // Empties an index slot, shifting back the entries after it in its probe run that may move
  // (those whose home slot is not between the hole and themselves), so lookups never need a
  // mark for removed entries and the index never fills with them.
  static void unindex(IndexTable& table, std::size_t hole) {
    std::size_t const mask = table.size() - 1;
    table[hole] = emptyEntry;
    for (std::size_t j = (hole + 1) & mask; table[j] != emptyEntry; j = (j + 1) & mask) {
      std::size_t const home = uint32_t(table[j] >> 32) & mask;
      bool const staysPut = hole <= j ? (hole < home && home <= j) : (hole < home || home <= j);
      if (staysPut) continue;
      table[hole] = table[j];
      table[j] = emptyEntry;
      hole = j;
    }
  }
  // The slot of `table` naming member number n, whose hash is h, at or past slot `from`; or
  // notFound.
  static uint32_t slotOfMember(IndexTable const& table, uint32_t h, uint32_t n,
                               std::size_t from = 0) {
    std::size_t const mask = table.size() - 1;
    uint64_t const entry = entryOf(h, n);
    for (std::size_t i = h & mask; table[i] != emptyEntry; i = (i + 1) & mask) {
      if (table[i] == entry && i >= from) return static_cast<uint32_t>(i);
    }
    return notFound;
  }
  // The index entry naming live member number n: in the new index, or else in the part of the
  // one being migrated that the walk has not reached.
  uint64_t& entryNaming(uint32_t h, uint32_t n) {
    uint32_t const at = slotOfMember(index_, h, n);
    if (at != notFound) return index_[at];
    IndexTable& old = migration_->oldIndex;
    return old[slotOfMember(old, h, n, migration_->slot)];
  }
  // The smallest index that holds `members` at most full/outOf full. An index grows past three
  // quarters full and is built or shrunk to at most half full.
  static std::size_t indexSizeFor(std::size_t members, std::size_t full = 1,
                                  std::size_t outOf = 2) {
    std::size_t size = 8;
    while (size * full < members * outOf) size *= 2;
    return size;
  }
  // Sizes the index for `want` members at most half full, in one go, from the entries alone
  // (each carries its hash), so members are not read; a small map's from its members.
  void rebuildIndex(std::size_t want) { rebuildIndexOfSize(indexSizeFor(want)); }
  void rebuildIndexOfSize(std::size_t size) {
    IndexTable old(size);
    std::swap(old, index_);
    // Used at once, so faulted in at once (cheaper than page by page as lookups reach it).
    index_.prepareAll();
    std::size_t const mask = index_.size() - 1;
    if (old.empty()) {
      for (std::size_t n = head_; n < members_.size(); ++n) {
        Member const& m = members_[n];
        if (m.live) index_[freeSlotFor(index_, m.hash)] = entryOf(m.hash, uint32_t(n));
      }
      return;
    }
    for (std::size_t s = 0; s < old.size(); ++s) {
      uint64_t const e = old[s];
      if (e == emptyEntry) continue;
      std::size_t i = uint32_t(e >> 32) & mask;
      while (index_[i] != emptyEntry) i = (i + 1) & mask;
      index_[i] = e;
    }
  }

  // Index migration. A full index is not rebuilt in one insertion: a new index twice the size
  // takes the following insertions, and each insertion also copies a few of the old index's
  // slots into it, walking the old index in order, as a rebuild would but sixteen slots at a
  // time. Walking slots rather than members keeps the copying sequential: consecutive slots of
  // the old index land in two runs of the new one, so a step touches a few cache lines instead
  // of two random ones per member. Meanwhile lookups read the new index, then the old one past
  // the walk; a removal from the old one leaves a tombstone there (shifting entries back could
  // carry one already copied past the walk, and it would be copied twice), and reclamation
  // renames a member in whichever index names it. The walk ends within an eighth of the old
  // index's size in insertions, long before the new index is three quarters full.
  //
  // A new index that is a mapping of its own is made ready beforehand: every sixteenth insertion
  // faults in sixteen pages of it (a page an insertion, 512 slots, in one call rather than
  // sixteen faults), starting twice as many insertions before three quarters full as that
  // takes, so that it is ready by then and is not held long before it is used (a map that
  // stops growing short of three quarters, as a tunnel's few hundred destinations do, would
  // hold it for good). A smaller one is allocated zeroed when it is needed. A map shrunk far below
  // its index prepares a smaller one the same way and migrates to it when it is ready, walking
  // proportionally more slots an insertion. The old index, once walked, becomes the members'
  // next chunks (chunkFromRetired) as far as they will grow into it before the index is next
  // full, and the rest is given back a page an insertion (returning a page costs about as much
  // as faulting one in).
  static constexpr std::size_t migrateLooks = 16;
  static constexpr std::size_t migrateAbove = 1024;  // smaller indexes are rebuilt at once
  static constexpr std::size_t preparePages = 1;
  // Pages faulted in together: a call every this many insertions.
  static constexpr std::size_t prepareEvery = 16;
  static constexpr std::size_t releasePages = 1;
  // What a migration needs besides the index in use. Only a large map ever migrates, so it is
  // kept out of line, made when first needed: most maps are small (a flood set's destinations),
  // and a few hundred thousand of them would each carry three empty tables inline.
  struct Migration {
    IndexTable oldIndex;              // while migrating, the index being emptied
    IndexTable nextIndex;             // the index being made ready for the next migration
    IndexTable retired;               // a migrated index being given back or reused
    std::size_t slot = 0;             // the next slot of oldIndex the migration copies
    std::size_t step = migrateLooks;  // slots copied an insertion
  };
  bool migrating() const { return migration_ && !migration_->oldIndex.empty(); }
  Migration& migration() {
    if (!migration_) migration_ = std::make_unique<Migration>();
    return *migration_;
  }
  void tendIndexes() {
    bool const nextMapped = IndexTable::mappedAt(2 * index_.size());
    if (!migration_ && !nextMapped) return;
    Migration& m = migration();
    std::size_t const spare = m.retired.sparePages();
    if (spare > 0 && spare > membersWillMap()) m.retired.releaseSome(releasePages);
    if (!m.oldIndex.empty()) return;
    if (m.nextIndex.empty() && nextMapped && nextIndexDue()) {
      m.nextIndex = IndexTable(2 * index_.size());
    }
    if (m.nextIndex.empty()) return;
    if (members_.size() % prepareEvery == 0) m.nextIndex.prepareSome(prepareEvery * preparePages);
    bool const shrinking = m.nextIndex.size() < index_.size();
    if (shrinking && m.nextIndex.prepared()) {
      // Unless the map grew back meanwhile.
      if ((std::size_t(live_) + 1) * 4 <= m.nextIndex.size() * 3) {
        startMigration();
      } else {
        m.nextIndex = IndexTable();
      }
    }
  }
  // Whether the insertions left before the index is three quarters full are no more than twice
  // those that making the next one ready takes.
  bool nextIndexDue() const {
    std::size_t const full = index_.size() * 3 / 4;
    std::size_t const left = full > live_ ? full - live_ : 0;
    std::size_t const pages = 2 * index_.size() * sizeof(uint64_t) / pageBytes();
    std::size_t const calls = pages / (prepareEvery * preparePages) + 1;
    return left <= 2 * prepareEvery * calls;
  }
  // The members' next chunk, when it is a mapping of its own, is carved from the retired index
  // if that still has the pages: they are faulted in already, and would otherwise be unmapped
  // a page an insertion while the chunk faulted in as many fresh ones.
  void chunkFromRetired() {
    std::size_t const pages = members_.mappingDue();
    IndexTable& retired = migration_->retired;
    if (pages == 0 || retired.sparePages() < pages) return;
    members_.adoptChunk([&retired](std::size_t n) { return retired.takePages(n); });
  }
  // Pages the members will map before the index is next three quarters full, if every
  // insertion until then appends: a retired index keeps that many for them and gives back the
  // rest, a page an insertion.
  std::size_t membersWillMap() const {
    std::size_t const full = index_.size() * 3 / 4;
    std::size_t const appends = full > live_ ? full - live_ : 0;
    std::size_t const slots = members_.size() + appends;
    std::size_t const capacity = members_.capacity();
    return slots > capacity ? pagesFor((slots - capacity) * sizeof(Member)) : 0;
  }
  void growIndex() {
    migrateAll();
    if (index_.size() < migrateAbove) {
      if (migration_) migration_->nextIndex = IndexTable();
      rebuildIndex(std::size_t(live_) + 1);
      return;
    }
    Migration& m = migration();
    if (m.nextIndex.size() != 2 * index_.size()) m.nextIndex = IndexTable(2 * index_.size());
    m.nextIndex.prepareAll();
    startMigration();
  }
  void startMigration() {
    Migration& m = *migration_;
    m.oldIndex = std::move(index_);
    index_ = std::move(m.nextIndex);
    m.slot = 0;
    m.step = std::max(migrateLooks, migrateLooks * m.oldIndex.size() / index_.size());
  }
  void migrateSome() {
    if (migrating()) migrateSteps(migration_->step);
  }
  void migrateAll() {
    if (migrating()) migrateSteps(migration_->oldIndex.size());
  }
  void migrateSteps(std::size_t looks) {
    Migration& m = *migration_;
    std::size_t const end = std::min(m.oldIndex.size(), m.slot + looks);
    for (; m.slot < end; ++m.slot) {
      uint64_t const e = m.oldIndex[m.slot];
      if (namesMember(e)) index_[freeSlotFor(index_, uint32_t(e >> 32))] = e;
    }
    if (m.slot < m.oldIndex.size()) return;
    m.retired = std::move(m.oldIndex);
    m.retired.retire();
  }

  // Reclamation of dead member slots. It starts once dead slots outnumber half the live members,
  // and each insertion then looks at a few slots, sliding the live ones down over the dead ones
  // in order; it overtakes the insertions (which append one member each) and ends at the end of
  // the vector, which it cuts to the live members.
  static constexpr std::size_t reclaimLooks = 32;
  static constexpr std::size_t keptEmpty = 1024;  // member slots an emptied map may keep
  void reclaimSome() {
    std::size_t const dead = members_.size() - live_;
    if (!reclaiming_) {
      if (dead < 64 || dead * 2 < live_) return;
      reclaiming_ = true;
      reclaimFrom_ = reclaimTo_ = 0;
    }
    reclaimSteps(reclaimLooks);
  }
  void reclaimAll() {
    if (members_.size() == live_) return;
    if (!reclaiming_) {
      reclaiming_ = true;
      reclaimFrom_ = reclaimTo_ = 0;
    }
    reclaimSteps(std::numeric_limits<std::size_t>::max());
  }
  void reclaimSteps(std::size_t looks) {
    for (; looks > 0 && reclaimFrom_ < members_.size(); --looks, ++reclaimFrom_) {
      Member& m = members_[reclaimFrom_];
      if (!m.live) continue;
      if (reclaimFrom_ != reclaimTo_) {
        if (!small()) {
          entryNaming(m.hash, uint32_t(reclaimFrom_)) = entryOf(m.hash, uint32_t(reclaimTo_));
        }
        // Field by field: the slot left behind is dead, and its value is reset at once, as a
        // removal's is.
        Member& to = members_[reclaimTo_];
        to.key = std::move(m.key);
        to.value = std::move(m.value);
        to.hash = m.hash;
        to.live = true;
        m.live = false;
        m.value = V();
        head_ = std::min(head_, reclaimTo_);
      }
      ++reclaimTo_;
    }
    if (reclaimFrom_ < members_.size()) return;
    // Every live member is now in [0, reclaimTo_) (with the holes of removals made behind the
    // reclamation, head_ among them), so the rest goes.
    reclaiming_ = false;
    members_.truncate(reclaimTo_);
    giveBackMemory();
  }
  // After a reclamation the chunks past the live members are gone already; an index sixteen
  // times too large migrates to one of its size.
  void giveBackMemory() {
    if (!migrating() && index_.size() > 2 * keptEmpty && std::size_t(live_) * 16 <= index_.size()) {
      migration().nextIndex = IndexTable(indexSizeFor(live_));
    }
  }

  // Member numbers are 32 bits (an index entry holds one beside the hash), so are the counts.
  ChunkedVector<Member> members_;
  IndexTable index_;  // while migrating, the new index
  std::unique_ptr<Migration> migration_;
  uint32_t live_ = 0;
  uint32_t head_ = 0;         // first live member
  uint32_t reclaimFrom_ = 0;  // next member slot to look at
  uint32_t reclaimTo_ = 0;    // where the next live member goes
  bool reclaiming_ = false;
#if NOX_CHECKED_COLLECTIONS
  ChangeCount changes_ = 0;
  ChangeCount reshapes_ = 0;
#endif
};

}  // namespace Vel
