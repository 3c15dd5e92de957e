#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "platform/vel/OrderedMap.h"

namespace {

// The model: members in insertion order, a re-added key at the end.
struct Model {
  std::vector<std::pair<int, int>> members;
  auto find(int k) {
    return std::find_if(members.begin(), members.end(), [k](auto& m) { return m.first == k; });
  }
};

// Long random runs of insert/replace/erase across rebuilds, checked after every step against the
// model: iteration order, lookups, size and first key.
TEST(OrderedMap, RandomOperationsKeepInsertionOrderAndLookupsAcrossRebuilds) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 rng(seed);
    int const keyRange = seed % 2 ? 16 : 600;
    Vel::OrderedMap<int, int> map;
    Model model;
    for (int step = 0; step < 3000; ++step) {
      int const k = static_cast<int>(rng() % keyRange);
      int const v = static_cast<int>(rng() % 1000);
      if (rng() % 3) {
        auto [stored, inserted] = map.tryEmplace(k, v);
        auto it = model.find(k);
        ASSERT_EQ(inserted, it == model.members.end());
        if (inserted) {
          model.members.emplace_back(k, v);
        } else {
          *stored = v;
          it->second = v;
        }
      } else {
        auto it = model.find(k);
        ASSERT_EQ(map.erase(k), it != model.members.end());
        if (it != model.members.end()) model.members.erase(it);
      }
      ASSERT_EQ(map.size(), model.members.size());
      std::vector<std::pair<int, int>> seen;
      for (auto [key, value] : map) seen.emplace_back(key, value);
      ASSERT_EQ(seen, model.members) << "seed " << seed << " step " << step;
      ASSERT_EQ(map.firstKey() ? *map.firstKey() : -1,
                model.members.empty() ? -1 : model.members.front().first);
      int const probe = static_cast<int>(rng() % keyRange);
      auto it = model.find(probe);
      auto const found = map.find(probe);
      ASSERT_EQ(found ? *found : -1, it == model.members.end() ? -1 : it->second);
    }
  }
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

}  // namespace
