#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "platform/vel/OrderedMap.h"

namespace {

// The model: members in insertion order, a re-added key at the end.
class Model {
 public:
  int* find(int k) {
    auto const at = orderOf_.find(k);
    return at == orderOf_.end() ? nullptr : &byOrder_[at->second].second;
  }
  void add(int k, int v) {
    orderOf_[k] = next_;
    byOrder_[next_++] = {k, v};
  }
  bool erase(int k) {
    auto const at = orderOf_.find(k);
    if (at == orderOf_.end()) return false;
    byOrder_.erase(at->second);
    orderOf_.erase(at);
    return true;
  }
  std::size_t size() const { return orderOf_.size(); }
  int firstKey() const { return byOrder_.empty() ? -1 : byOrder_.begin()->second.first; }
  std::vector<std::pair<int, int>> members() const {
    std::vector<std::pair<int, int>> all;
    for (auto const& [order, member] : byOrder_) all.push_back(member);
    return all;
  }

 private:
  std::map<uint64_t, std::pair<int, int>> byOrder_;
  std::unordered_map<int, uint64_t> orderOf_;
  uint64_t next_ = 0;
};

// A long random run of insert/replace/erase on a map with hasher H, checked against the model:
// iteration order, lookups, size and first key. A large key range grows and shrinks through
// index migrations (phases that mostly insert, then erase down to a few members and churn),
// with lookups and erasures landing in both indexes while one is under way, and reservations
// on the way.
template <class H>
void checkAgainstTheModel(unsigned seed, int keyRange, int steps, int phase) {
  std::mt19937 rng(seed);
  bool const large = keyRange > 1000;
  Vel::OrderedMap<int, int, H> map;
  Model model;
  for (int step = 0; step < steps; ++step) {
    int k = static_cast<int>(rng() % keyRange);
    int const v = static_cast<int>(rng() % 1000);
    bool insert = rng() % 3 != 0;
    if (large && (step / phase) % 2 == 1) {
      // Shrinking: the oldest members go until few are left, then the map churns.
      if (model.size() > 150) k = model.firstKey();
      insert = model.size() <= 150 && rng() % 2 == 0;
    }
    if (insert) {
      auto [stored, inserted] = map.tryEmplace(k, v);
      int* const modelled = model.find(k);
      ASSERT_EQ(inserted, modelled == nullptr);
      if (inserted) {
        model.add(k, v);
      } else {
        *stored = v;
        *modelled = v;
      }
    } else {
      ASSERT_EQ(map.erase(k), model.erase(k));
    }
    // Now and then room for more than the map holds, or less, whatever state it is in.
    if (step % 211 == 0) {
      long const room = long(map.size()) + long(rng() % 4000) - 1000;
      map.reserve(std::size_t(std::max(room, 0L)));
    }
    ASSERT_EQ(map.size(), model.size());
    if (!large || step % 97 == 0 || step == steps - 1) {
      std::vector<std::pair<int, int>> seen;
      for (auto [key, value] : map) seen.emplace_back(key, value);
      ASSERT_EQ(seen, model.members()) << "seed " << seed << " step " << step;
    }
    ASSERT_EQ(map.firstKey() ? *map.firstKey() : -1, model.firstKey());
    int const probe = static_cast<int>(rng() % keyRange);
    int const* const modelled = model.find(probe);
    auto const found = map.find(probe);
    ASSERT_EQ(found ? *found : -1, modelled ? *modelled : -1)
        << "seed " << seed << " step " << step;
  }
}

// The smallest key range keeps the map around the size where it has no index, so it squeezes
// out dead members and gains an index over and over; the middle ones rebuild a small index
// often; the large one migrates.
TEST(OrderedMap, RandomOperationsKeepInsertionOrderAndLookupsAcrossRebuilds) {
  for (unsigned seed = 1; seed <= 32; ++seed) {
    int const keyRange = std::vector<int>{10, 16, 600, 6000}[seed % 4];
    checkAgainstTheModel<Vel::IndexHasher>(seed, keyRange, keyRange > 1000 ? 40000 : 3000, 5000);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

// Every home slot among the last 64 of the index, whatever its size, and keys in fours sharing
// a hash: one long probe run that wraps from the end of the index to its start, where the
// migration's walk begins, so removals, copies and renumbering all meet the wrap.
struct WrappingHasher {
  uint32_t operator()(int k) const { return 0xffffffffu - (Vel::IndexHasher()(k / 4) % 64); }
};

TEST(OrderedMap, ProbeRunsWrappingTheIndexSurviveMigrationsAndReclamation) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    checkAgainstTheModel<WrappingHasher>(seed, 2000, 12000, 2500);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

// The index grows by copying a few slots an insertion; removals made meanwhile start a
// reclamation that renumbers members whose entries are still in the old index, ahead of the
// copying or behind it. Every key must stay found, in order, through both.
TEST(OrderedMap, ReclamationRenumbersMembersDuringAnIndexMigration) {
  Vel::OrderedMap<int, int> map;
  // 3,072 members fill an index of 4,096 to three quarters: the next insertion starts a
  // migration that its successors carry on sixteen slots at a time.
  int next = 0;
  for (; next <= 3072; ++next) map.tryEmplace(next, next);
  for (int k = 0; k < 2000; ++k) map.erase(k);
  for (int i = 0; i < 200; ++i, ++next) {
    map.tryEmplace(next, next);
    int expected = 2000;
    for (auto [key, value] : map) ASSERT_EQ(key, expected++) << "after " << i << " insertions";
    ASSERT_EQ(expected, next + 1);
    for (int k = 0; k <= next; ++k) ASSERT_EQ(map.contains(k), k >= 2000) << k;
  }
}

// Hashes chosen so that the index's layout is known: ordinary keys at consecutive home slots
// from 100, and a few keys whose home is the last slot, so that their probe run wraps to the
// first slots.
struct PlacingHasher {
  static constexpr int wrapping = 1000000;
  uint32_t operator()(int k) const { return k >= wrapping ? 0xffffffffu : uint32_t(k + 100); }
};

// During a migration the walk copies the first slots early; the wrapped run's head, at the last
// slot, is copied last. Removing that head must not bring an entry already copied back ahead of
// the walk (it would be copied twice, and a later removal would leave the key findable).
TEST(OrderedMap, RemovalAheadOfTheMigrationKeepsEveryEntryCopiedOnce) {
  Vel::OrderedMap<int, int, PlacingHasher> map;
  int const wrap = PlacingHasher::wrapping;
  for (int k = 0; k < 4; ++k) map.tryEmplace(wrap + k, k);  // slots 4095, 0, 1, 2
  int next = 0;
  // 3,072 members fill the index of 4,096 to three quarters; the next insertion starts the
  // migration and the one after copies slots 0 to 15.
  for (; map.size() < 3074; ++next) map.tryEmplace(next, next);
  ASSERT_TRUE(map.erase(wrap));
  ASSERT_TRUE(map.erase(wrap + 1));
  for (int i = 0; i < 1000; ++i, ++next) map.tryEmplace(next, next);  // the walk ends
  EXPECT_FALSE(map.contains(wrap));
  EXPECT_FALSE(map.contains(wrap + 1));
  ASSERT_TRUE(map.erase(wrap + 2));
  EXPECT_FALSE(map.contains(wrap + 2));
  EXPECT_EQ(*map.find(wrap + 3), 3);
  EXPECT_EQ(map.size(), std::size_t(next) + 1);
}

TEST(OrderedMap, IterationSurvivesRemovalOfTheCurrentAndLaterMembers) {
  Vel::OrderedMap<int, int> map;
  for (int k = 0; k < 10; ++k) map.tryEmplace(k, k);
  std::vector<int> seen;
  for (auto it = map.begin(); it != map.end(); ++it) {
    seen.push_back(it.key());
    map.erase(it.key());
    map.erase(it.key() + 1);
  }
  EXPECT_EQ(seen, (std::vector<int>{0, 2, 4, 6, 8}));
  EXPECT_TRUE(map.empty());
}

// Churn at a steady size (a member removed, a new one added) must reclaim the dead slots as it
// goes rather than grow the storage until a rebuild copies it whole; removing most members gives
// the memory back once insertions resume, and emptying gives it back at once. Order and lookups
// stay right across the reclamation.
TEST(OrderedMap, ChurnKeepsItsStorageAndShrinkingGivesMemoryBack) {
  constexpr int n = 20000;
  Vel::OrderedMap<int, int> map;
  for (int k = 0; k < n; ++k) map.tryEmplace(k, k);
  std::size_t const grown = map.capacity();
  for (int k = n; k < 5 * n; ++k) {
    map.erase(k - n);
    map.tryEmplace(k, k);
  }
  EXPECT_LE(map.capacity(), 2 * grown);
  int expected = 4 * n;
  for (auto [key, value] : map) ASSERT_EQ(key, expected++);
  EXPECT_EQ(expected, 5 * n);
  for (int k = 4 * n; k < 5 * n - 100; ++k) map.erase(k);
  for (int k = 0; k < 1000; ++k) map.tryEmplace(-1 - k, k);
  EXPECT_LT(map.capacity(), grown / 4);
  ASSERT_EQ(map.size(), 1100u);
  expected = 5 * n - 100;
  auto it = map.begin();
  for (; expected < 5 * n; ++it) ASSERT_EQ(it.key(), expected++);
  EXPECT_EQ(it.key(), -1);
  EXPECT_EQ(*map.find(-1000), 999);
  for (int k = 5 * n - 100; k < 5 * n; ++k) map.erase(k);
  for (int k = 0; k < 1000; ++k) map.erase(-1 - k);
  EXPECT_LE(map.capacity(), 1024u);
}

// A large map's later member chunks are carved out of the indexes it has outgrown. Members
// stored there must not overlap the index in use (every lookup still answers), and shrinking,
// growing again and emptying must give back every page the map mapped, exactly once.
TEST(OrderedMap, OutgrownIndexesHoldLaterMembersAndEveryPageComesBack) {
  std::size_t const before = Vel::mappedBytes();
  {
    Vel::OrderedMap<uint64_t, uint64_t> map;
    constexpr uint64_t n = 600000;
    for (uint64_t k = 0; k < n; ++k) map.tryEmplace(k * 7919, k);
    for (uint64_t k = 0; k < n; k += 997) ASSERT_EQ(*map.find(k * 7919), k) << "key " << k;
    EXPECT_GT(Vel::mappedBytes(), before);
    for (uint64_t k = 0; k < n - 1000; ++k) map.erase(k * 7919);
    for (uint64_t k = n; k < n + 300000; ++k) map.tryEmplace(k * 7919, k);
    ASSERT_EQ(map.size(), 301000u);
    for (uint64_t k = n - 1000; k < n + 300000; k += 101) {
      ASSERT_EQ(*map.find(k * 7919), k) << "key " << k;
    }
    map.clear();
    EXPECT_EQ(Vel::mappedBytes(), before);
    for (uint64_t k = 0; k < n; ++k) map.tryEmplace(k, k);
  }
  EXPECT_EQ(Vel::mappedBytes(), before);
}

// A map of a few hundred members (the destinations using one tunnel) holds little more room than
// it uses: the last chunk grows as the members come instead of being as large as all before it.
// (Values and order through the moves of a growing chunk are the random runs'.)
TEST(OrderedMap, MiddlingMapsHoldLittleMoreThanTheirMembers) {
  Vel::OrderedMap<int, int> map;
  for (int k = 0; k < 4000; ++k) {
    map.tryEmplace(k, -k);
    ASSERT_LE(map.capacity(), std::max<std::size_t>(16, std::size_t(k + 1) * 3 / 2))
        << "at " << k + 1 << " members";
  }
}

// Values that own something: each member holds one reference to a shared token, so the token's
// count tells how many values are alive. Moves of the first chunk as it grows, chunks added and
// dropped (some of them mapped on their own), reclamation sliding members down, and clearing must
// neither lose a value without releasing it nor release one twice. (Order and lookups through
// the same moves are the random runs'.)
TEST(OrderedMap, EveryValueIsReleasedOnceThroughGrowthReclamationAndClear) {
  auto const token = std::make_shared<int>(0);
  Vel::OrderedMap<int, std::shared_ptr<int>> map;
  auto const heldByMap = [&] { return std::size_t(token.use_count() - 1); };
  for (int k = 0; k < 12000; ++k) map.tryEmplace(k, token);
  ASSERT_EQ(heldByMap(), 12000u);
  for (int k = 0; k < 11000; ++k) map.erase(k);
  EXPECT_EQ(heldByMap(), 1000u);
  for (int k = 12000; k < 15000; ++k) map.tryEmplace(k, token);
  EXPECT_EQ(heldByMap(), 4000u);
  map.clear();
  EXPECT_EQ(heldByMap(), 0u);
  // A map of a few members squeezes out its dead ones when its slots run out.
  for (int k = 0; k < 8; ++k) map.tryEmplace(k, token);
  for (int k = 0; k < 8; k += 2) map.erase(k);
  EXPECT_EQ(heldByMap(), 4u);
  for (int k = 8; k < 12; ++k) map.tryEmplace(k, token);
  EXPECT_EQ(heldByMap(), 8u);
}

}  // namespace
