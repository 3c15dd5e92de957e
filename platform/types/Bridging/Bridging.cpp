#include "platform/types/Bridging/Bridging.h"

namespace Bridging {

std::ostream& operator<<(std::ostream& os, VlanId const& v) { return os << v.value(); }
std::string valueToStrep(VlanId const& v) { return std::to_string(v.value()); }

std::ostream& operator<<(std::ostream& os, VlanIdOrNone const& v) {
  return v.isNone() ? os << "none" : os << v.value();
}
std::string valueToStrep(VlanIdOrNone const& v) {
  return v.isNone() ? "none" : std::to_string(v.value());
}

VEL_REGISTER_TYPE(MacVlanPair);

}  // namespace Bridging
