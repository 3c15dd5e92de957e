#pragma once

// A process-local index from keys to slots: ordered (tables iterate in ascending key order), with
// a hash map beside it so that replacing the value of a known key costs one hash probe instead of
// a walk down the tree.
//
// Keys hash with std::hash<K> when it is defined, else by their bytes: table keys have no padding,
// so equal keys are equal bytes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_map>

namespace Kelp {

template <class K>
struct KeyHash {
  std::size_t operator()(K const& key) const {
    if constexpr (requires { std::hash<K>{}(key); }) {
      return std::hash<K>{}(key);
    } else {
      unsigned char bytes[sizeof(K)];
      std::memcpy(bytes, &key, sizeof(K));
      std::uint64_t h = 0x9E3779B97F4A7C15ULL;
      for (std::size_t i = 0; i < sizeof(K); ++i) h = (h ^ bytes[i]) * 0x100000001B3ULL;
      return static_cast<std::size_t>(h ^ (h >> 29));
    }
  }
};

template <class K>
class KeyIndex {
 public:
  using Slot = std::uint32_t;
  using Ordered = std::map<K, Slot>;
  using const_iterator = typename Ordered::const_iterator;
  static constexpr Slot none = ~Slot{0};

  Slot find(K const& key) const {
    auto const it = hashed_.find(key);
    return it == hashed_.end() ? none : it->second;
  }

  void assign(K const& key, Slot slot) {
    ordered_.insert_or_assign(key, slot);
    hashed_.insert_or_assign(key, slot);
  }

  bool erase(K const& key) {
    hashed_.erase(key);
    return ordered_.erase(key) != 0;
  }

  void clear() {
    ordered_.clear();
    hashed_.clear();
  }

  std::size_t size() const { return ordered_.size(); }
  const_iterator begin() const { return ordered_.begin(); }
  const_iterator end() const { return ordered_.end(); }
  const_iterator lowerBound(K const& key) const { return ordered_.lower_bound(key); }

 private:
  Ordered ordered_;
  std::unordered_map<K, Slot, KeyHash<K>> hashed_;
};

}  // namespace Kelp
