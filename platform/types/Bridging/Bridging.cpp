#include "platform/types/Bridging/Bridging.h"

namespace Bridging {

std::ostream& operator<<(std::ostream& os, VlanId const& v) { return os << v.value(); }
std::string valueToStrep(VlanId const& v) { return std::to_string(v.value()); }

std::ostream& operator<<(std::ostream& os, VlanIdOrNone const& v) { return os << v.value(); }
std::string valueToStrep(VlanIdOrNone const& v) { return std::to_string(v.value()); }

Vel::Ptr<Config> configFactory() { return Vel::validPtr(Vel::Ptr<Config>(new Config)); }

VEL_REGISTER_TYPE(MacVlanPair);
VEL_REGISTER_TYPE(VlanConfig);
VEL_REGISTER_TYPE(Config);

}  // namespace Bridging
