#pragma once

// Record types, a recording notifiee and a fixture that gives each test its own table prefix
// and removes whatever tables it left behind.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/kelp/Table.h"
#include "platform/kelp/TableList.h"

namespace KelpTest {

// A compound key ordered by (x, y).
struct PointKey {
  std::uint32_t x = 0;
  std::uint32_t y = 0;
  friend auto operator<=>(PointKey const&, PointKey const&) = default;
};

// A key with padding bytes: it cannot be hashed by its bytes, so its tables use the tree alone.
struct PaddedKey {
  std::uint64_t id = 0;
  std::uint32_t type = 0;
  friend bool operator==(PaddedKey const& a, PaddedKey const& b) {
    return a.id == b.id && a.type == b.type;
  }
  friend bool operator<(PaddedKey const& a, PaddedKey const& b) {
    return a.id != b.id ? a.id < b.id : a.type < b.type;
  }
};

struct Wide {
  std::uint64_t a = 0;
  std::uint32_t b = 0;
  std::uint32_t c = 0;
};

using NumberTable = Kelp::Table<std::uint64_t, std::uint64_t>;
using PointTable = Kelp::Table<PointKey, Wide>;

// Records every callback as text: "k:KEY", "collection", "status".
template <class K>
class Recorder : public Kelp::TableNotifiee<K> {
 public:
  void onKey(K const& key) override { events.push_back("k:" + text(key)); }
  void onCollection() override { events.push_back("collection"); }
  void onStatus() override { events.push_back("status"); }

  std::size_t keyCount() const {
    std::size_t n = 0;
    for (auto const& e : events) n += e.starts_with("k:");
    return n;
  }
  std::size_t countOf(std::string const& what) const {
    std::size_t n = 0;
    for (auto const& e : events) n += e == what;
    return n;
  }
  std::string joined() const {
    std::string s;
    for (auto const& e : events) s += (s.empty() ? "" : " ") + e;
    return s;
  }

  std::vector<std::string> events;

 private:
  static std::string text(K const& key) {
    if constexpr (std::is_integral_v<K>) {
      return std::to_string(key);
    } else if constexpr (std::is_same_v<K, PaddedKey>) {
      return std::to_string(key.id) + "," + std::to_string(key.type);
    } else {
      return std::to_string(key.x) + "," + std::to_string(key.y);
    }
  }
};

// "k=v k=v" in the table's iteration order.
inline std::string contents(NumberTable const& table) {
  std::ostringstream os;
  for (auto const& e : table) os << (os.tellp() > 0 ? " " : "") << e.key << "=" << e.value;
  return os.str();
}

// Polls until `done` holds or a few seconds pass; returns whether it held.
inline bool pollUntil(std::function<void()> const& poll, std::function<bool()> const& done) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    poll();
    if (!done()) usleep(200);
  }
  return true;
}

class KelpFixture : public ::testing::Test {
 protected:
  KelpFixture() {
    static int serial = 0;
    prefix_ = "kelptest" + std::to_string(::getpid()) + "_" + std::to_string(++serial);
  }
  ~KelpFixture() override {
    for (auto const& name : Kelp::tableNames(prefix_)) Kelp::unlinkTable(name);
  }
  std::string table(std::string const& name) const { return Kelp::tableName(prefix_, name); }
  std::string const& prefix() const { return prefix_; }

 private:
  std::string prefix_;
};

}  // namespace KelpTest
