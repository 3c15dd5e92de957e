#pragma once

// Builders of the machines' inputs in tests, and flood-set outputs read as sorted lines
// "VLAN MAC DEST flag=B type=N", plus their source, which is what the filter tests compare.
// Tables are read as sets of such lines throughout, made with text().

#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "NoxEvpn/NoxCommon.h"
#include "NoxEvpn/NoxEvpnVlanFloodSet.h"
#include "platform/types/L2Rib/L2Rib.h"

namespace NoxTest {

// Its arguments as they print, run together.
template <class... Parts>
std::string text(Parts const&... parts) {
  std::ostringstream os;
  (os << ... << parts);
  return os.str();
}

inline Gantry::EthAddr mac(uint64_t v) { return Gantry::EthAddr::fromValue(v); }
inline Bridging::VlanId vlan(uint16_t v) { return Bridging::VlanId(v); }
inline L2Rib::Dest dest(std::string const& written) { return *L2Rib::Dest::fromString(written); }
inline Nox::MplsFloodSetVia via(uint64_t tunnel, uint32_t label) {
  return Nox::MplsFloodSetVia(Nox::TunnelId(tunnel), Gantry::MplsLabel(label));
}
// A port-channel's member list.
inline Nox::NoxPortList portList(std::vector<std::string> const& ports) {
  Nox::NoxPortList list;
  for (std::string const& port : ports) list.portIs(Gantry::IntfId(port));
  return list;
}

// With `only`, the lines a filter to that destination type must publish: other types are left
// out, and so are flood sets and VLANs without a destination of that type. Without it, an empty
// flood set or VLAN shows as a line of its own, so that an output which keeps one differs.
inline std::set<std::string> render(L2Rib::FloodSetOutput const& out,
                                    std::optional<L2Rib::DestType> only = std::nullopt) {
  std::set<std::string> lines;
  lines.insert("source " + std::to_string(out.source()));
  for (auto [v, vlanFloodSet] : out.vlanFloodSetColl()) {
    if (!only && vlanFloodSet->floodSets() == 0) {
      lines.insert(std::to_string(v.value()) + " empty vlan");
    }
    for (auto [m, floodSet] : vlanFloodSet->floodSetColl()) {
      if (!only && floodSet->destSets() == 0) {
        lines.insert(std::to_string(v.value()) + " " + m.stringValue() + " empty flood set");
      }
      for (auto [d, flag] : floodSet->destSetColl()) {
        if (only && d.destType() != *only) continue;
        lines.insert(text(v, " ", m, " ", d, " flag=", flag ? "true" : "false",
                          " type=", floodSet->floodSetType()));
      }
    }
  }
  return lines;
}

}  // namespace NoxTest
