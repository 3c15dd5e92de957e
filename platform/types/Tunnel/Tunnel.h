#pragma once

// The tunnel agent's tunnel id as this library consumes it.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/vel/Hash.h"

namespace Tunnel::TunnelTable {

// A 64-bit tunnel identifier whose upper 16 bits must be zero.
class TunnelId {
 public:
  static constexpr uint64_t minValue = 0;
  static constexpr uint64_t maxValue = (uint64_t(1) << 48) - 1;

  constexpr TunnelId() = default;
  // Raises Vel::RangeException for a value above maxValue.
  explicit TunnelId(uint64_t value);
  static constexpr TunnelId invalid() { return TunnelId(); }

  constexpr uint64_t value() const { return value_; }
  static constexpr bool traceAsNumber = true;
  // Bob Jenkins' one-at-a-time hash of the 8 bytes, least significant first. Inline: keys
  // holding a tunnel id hash it on every lookup.
  uint32_t hash() const {
    Vel::OneAtATimeHash h;
    h.addLittleEndian64(value_);
    return h.finish();
  }
  friend bool operator==(TunnelId const&, TunnelId const&) = default;
  friend auto operator<=>(TunnelId const&, TunnelId const&) = default;

 private:
  uint64_t value_ = 0;
};
std::ostream& operator<<(std::ostream& os, TunnelId const& v);
std::string valueToStrep(TunnelId const& v);

}  // namespace Tunnel::TunnelTable
