#include "platform/types/Tunnel/Tunnel.h"

#include "platform/vel/Exception.h"

namespace Tunnel::TunnelTable {

TunnelId::TunnelId(uint64_t value) : value_(value) {
  if (value > maxValue) {
    throw Vel::RangeException(
        "TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed");
  }
}

std::ostream& operator<<(std::ostream& os, TunnelId const& v) { return os << v.value(); }
std::string valueToStrep(TunnelId const& v) { return std::to_string(v.value()); }

}  // namespace Tunnel::TunnelTable
