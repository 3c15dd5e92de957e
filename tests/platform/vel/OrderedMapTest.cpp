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

}  // namespace
