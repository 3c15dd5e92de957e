#pragma once

// Text of the flooding machines' (interface, VLAN) pairs and port sets, as their tables show them.

#include <string>

#include "NoxEvpn/NoxEvpn.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

// "INTF VLAN".
inline std::string intfVlanText(Nox::IntfVlanKey const& key) {
  return cat(key.intfId().name(), " ", key.vlanId().value());
}

// "PORT,PORT" in the set's order.
template <class Coll>
std::string portsText(Coll const& ports) {
  std::string text;
  for (auto [port, flag] : ports) text += cat(text.empty() ? "" : ",", port.name());
  return text;
}

}  // namespace Noxsim
