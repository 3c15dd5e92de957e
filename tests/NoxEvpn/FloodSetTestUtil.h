#pragma once

// Building and reading flood-set outputs in tests: a flood-set output rendered as sorted lines
// "VLAN MAC DEST flag=B type=N", plus source, is what every flood-set test compares.

#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/types/L2Rib/L2Rib.h"

namespace NoxTest {

inline Gantry::EthAddr mac(uint64_t v) { return Gantry::EthAddr::fromValue(v); }
inline Bridging::VlanId vlan(uint16_t v) { return Bridging::VlanId(v); }
inline L2Rib::Dest dest(std::string const& text) { return *L2Rib::Dest::fromString(text); }

inline std::set<std::string> render(L2Rib::FloodSetOutput const& out) {
  std::set<std::string> lines;
  lines.insert("source " + std::to_string(out.source()));
  for (auto [v, vlanFloodSet] : out.vlanFloodSetColl()) {
    if (vlanFloodSet->floodSets() == 0) lines.insert(std::to_string(v.value()) + " empty vlan");
    for (auto [m, floodSet] : vlanFloodSet->floodSetColl()) {
      if (floodSet->destSets() == 0) {
        lines.insert(std::to_string(v.value()) + " " + m.stringValue() + " empty flood set");
      }
      for (auto [d, flag] : floodSet->destSetColl()) {
        std::ostringstream os;
        os << v << " " << m << " " << d << " flag=" << (flag ? "true" : "false")
           << " type=" << floodSet->floodSetType();
        lines.insert(os.str());
      }
    }
  }
  return lines;
}

// The input restricted to one destination type, without flood sets or VLANs left empty.
inline std::set<std::string> renderRestricted(L2Rib::FloodSetOutput const& in,
                                              L2Rib::DestType type) {
  std::set<std::string> lines;
  lines.insert("source " + std::to_string(in.source()));
  for (auto [v, vlanFloodSet] : in.vlanFloodSetColl()) {
    for (auto [m, floodSet] : vlanFloodSet->floodSetColl()) {
      for (auto [d, flag] : floodSet->destSetColl()) {
        if (d.destType() != type) continue;
        std::ostringstream os;
        os << v << " " << m << " " << d << " flag=" << (flag ? "true" : "false")
           << " type=" << floodSet->floodSetType();
        lines.insert(os.str());
      }
    }
  }
  return lines;
}

// Runs f, which must raise the framework's range error with exactly `text`.
template <class F>
void expectRangeError(F&& f, std::string const& text) {
  try {
    f();
    ADD_FAILURE() << "no range error, expected: " << text;
  } catch (Vel::RangeException const& e) {
    EXPECT_EQ(e.what(), text);
  }
}

}  // namespace NoxTest
