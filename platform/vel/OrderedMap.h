#pragma once

// The storage of every keyed collection: a hash map whose iteration order is insertion order.
// A new key goes to the end; replacing a key's value keeps its place; a key deleted and added
// again goes to the end. That order makes every run reproducible whatever the hash functions.
//
// Layout: members live in one dense vector in insertion order (a removed member leaves a dead
// slot until the next rebuild); an open-addressing index finds them. Each index entry holds the
// member's 32-bit hash beside its slot number, so probing reads only the index and a member is
// touched only when its hash matches: about one cache miss in the index and one in the member
// per lookup, fewer than a node-based map, and iteration is a linear walk.
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

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

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

template <class K, class V, class H = IndexHasher>
class OrderedMap {
  // Index entries: hash << 32 | member number; two reserved values mark free slots.
  static constexpr uint64_t emptyEntry = std::numeric_limits<uint64_t>::max();
  static constexpr uint64_t deadEntry = emptyEntry - 1;
  static constexpr uint32_t notFound = std::numeric_limits<uint32_t>::max();
  static uint64_t entryOf(uint32_t hash, uint32_t n) { return (uint64_t(hash) << 32) | n; }
  static uint32_t memberOf(uint64_t entry) { return static_cast<uint32_t>(entry); }

  struct Member {
    K key;
    V value;
    uint32_t hash;
    bool live;
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
      return m_->members_[i_];
    }
    void check() const {
#if NOX_CHECKED_COLLECTIONS
      if (m_ && m_->reshapes_ != taken_) staleIterator();
#endif
    }
    void skipDead() {
      while (i_ < m_->members_.size() && !m_->members_[i_].live) ++i_;
    }
    // Position with every end iterator equal, whatever the map's size now.
    std::size_t at() const {
      return m_ && i_ < m_->members_.size() ? i_ : std::numeric_limits<std::size_t>::max();
    }
    Map* m_ = nullptr;
    std::size_t i_ = 0;
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
    if (n > members_.capacity()) members_.reserve(n);
    if (n * 4 >= index_.size() * 3) rebuild(n);
  }

  MemberPtr<V const> find(K const& k) const { return pointerTo(findRaw(k)); }
  MemberPtr<V> find(K const& k) { return pointerTo(const_cast<V*>(findRaw(k))); }
  bool contains(K const& k) const { return findRaw(k) != nullptr; }

  // Inserts k at the end, or finds it where it is. Returns the value and whether it is new.
  template <class... Args>
  std::pair<MemberPtr<V>, bool> tryEmplace(K const& k, Args&&... args) {
    uint32_t const h = H()(k);
    uint32_t const found = lookup(k, h);
    if (found != notFound) return {pointerTo(&members_[memberOf(index_[found])].value), false};
    reshaped();
    if ((used_ + 1) * 4 > index_.size() * 3) rebuild(live_ + 1);
    uint32_t const n = static_cast<uint32_t>(members_.size());
    members_.push_back(Member{k, V(std::forward<Args>(args)...), h, true});
    uint32_t slot = freeSlotFor(h);
    if (index_[slot] == emptyEntry) ++used_;
    index_[slot] = entryOf(h, n);
    ++live_;
    return {pointerTo(&members_.back().value), true};
  }

  bool erase(K const& k) {
    uint32_t const slot = lookup(k, H()(k));
    if (slot == notFound) return false;
    changed();
    Member& m = members_[memberOf(index_[slot])];
    index_[slot] = deadEntry;
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
    uint32_t const slot = lookup(k, H()(k));
    return slot == notFound ? nullptr : &members_[memberOf(index_[slot])].value;
  }
  void dropAll() {
    members_.clear();
    index_.assign(index_.size(), emptyEntry);
    used_ = live_ = head_ = 0;
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

  // The index slot holding k, or notFound.
  uint32_t lookup(K const& k, uint32_t h) const {
    if (index_.empty()) return notFound;
    std::size_t const mask = index_.size() - 1;
    for (std::size_t i = h & mask;; i = (i + 1) & mask) {
      uint64_t const e = index_[i];
      if (e == emptyEntry) return notFound;
      if (e != deadEntry && uint32_t(e >> 32) == h && members_[memberOf(e)].key == k) {
        return static_cast<uint32_t>(i);
      }
    }
  }
  uint32_t freeSlotFor(uint32_t h) const {
    std::size_t const mask = index_.size() - 1;
    std::size_t i = h & mask;
    while (index_[i] != emptyEntry && index_[i] != deadEntry) i = (i + 1) & mask;
    return static_cast<uint32_t>(i);
  }

  // Drops dead members and sizes the index for `want` members at most half full.
  void rebuild(std::size_t want) {
    std::size_t size = 8;
    while (size < want * 2) size *= 2;
    std::vector<Member> live;
    live.reserve(std::max(members_.capacity(), want));
    for (Member& m : members_) {
      if (m.live) live.push_back(std::move(m));
    }
    members_ = std::move(live);
    index_.assign(size, emptyEntry);
    for (uint32_t n = 0; n < members_.size(); ++n) {
      index_[freeSlotFor(members_[n].hash)] = entryOf(members_[n].hash, n);
    }
    used_ = live_ = members_.size();
    head_ = 0;
  }

  std::vector<Member> members_;
  std::vector<uint64_t> index_;
  std::size_t used_ = 0;  // index slots not empty (live or dead)
  std::size_t live_ = 0;
  std::size_t head_ = 0;  // first live member
#if NOX_CHECKED_COLLECTIONS
  ChangeCount changes_ = 0;
  ChangeCount reshapes_ = 0;
#endif
};

}  // namespace Vel
