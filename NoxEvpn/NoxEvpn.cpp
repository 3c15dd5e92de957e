#include "NoxEvpn/NoxEvpn.h"

#include "platform/vel/Exception.h"

namespace Nox {

std::ostream& operator<<(std::ostream& os, HwTunnelId const& v) { return os << v.value(); }
std::string valueToStrep(HwTunnelId const& v) { return std::to_string(v.value()); }

namespace {
constexpr char const* statusNames[] = {"programmed", "notProgrammed", "invalidHwId"};
}  // namespace

HwProgrammingStatus HwProgrammingStatusInstance(unsigned value) {
  return static_cast<HwProgrammingStatus>(value);
}

std::optional<HwProgrammingStatus> hwProgrammingStatusFromName(std::string_view name) {
  for (unsigned i = 0; i < std::size(statusNames); ++i) {
    if (name == statusNames[i]) return static_cast<HwProgrammingStatus>(i);
  }
  return std::nullopt;
}

HwProgrammingStatus HwProgrammingStatusInstance(Vel::String const& name) {
  auto value = hwProgrammingStatusFromName(name);
  if (!value) throw Vel::RangeException("invalid Nox::HwProgrammingStatus name '" + name + "'");
  return *value;
}

Vel::String stringValue(HwProgrammingStatus value) {
  return value < std::size(statusNames) ? statusNames[value] : std::to_string(unsigned(value));
}

std::ostream& operator<<(std::ostream& os, HwProgrammingStatus value) {
  return os << stringValue(value);
}
std::string valueToStrep(HwProgrammingStatus value) { return stringValue(value); }

Vel::TypeInfo const& hwProgrammingStatusTypeInfo() {
  static Vel::TypeInfo const info("Nox::HwProgrammingStatus",
                                  {statusNames[0], statusNames[1], statusNames[2]});
  return info;
}

namespace {
[[maybe_unused]] bool const statusRegistered =
    Vel::TypeRegistry::add(hwProgrammingStatusTypeInfo());
}  // namespace

VEL_REGISTER_TYPE(IntfVlanKey);
VEL_REGISTER_TYPE(IntfTunnelKey);
VEL_REGISTER_TYPE(IntfVlanTunnelKey);
VEL_REGISTER_TYPE(TunnelIdToHwTunnelId);
VEL_REGISTER_TYPE(IntfVlanSet);
VEL_REGISTER_TYPE(VlanIntfSet);
VEL_REGISTER_TYPE(TunnelIntfVlanSet);
VEL_REGISTER_TYPE(IntfTunnelVlanSet);
VEL_REGISTER_TYPE(IntfVlanStatus);

}  // namespace Nox
