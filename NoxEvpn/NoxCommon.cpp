#include "NoxEvpn/NoxCommon.h"

#include <algorithm>
#include <iostream>

#include "platform/vel/Assert.h"

namespace Nox {

namespace {
constexpr char const* velSourceFile = "NoxCommon";
}  // namespace

void NoxBaseHelper::noxAssert(Vel::String const& message) const {
  std::cerr << message << std::endl;
  VEL_ASSERT(0);
  __builtin_unreachable();
}

NoxPortList::NoxPortList(std::initializer_list<Gantry::IntfId> ports) {
  for (Gantry::IntfId const& port : ports) portIs(port);
}

bool NoxPortList::portIsMemberOf(Gantry::IntfId const& port) const {
  return std::find(ports_.begin(), ports_.end(), port) != ports_.end();
}

void NoxPortList::portIs(Gantry::IntfId const& port) {
  if (!portIsMemberOf(port)) ports_.push_back(port);
}

void NoxPortList::portDel(Gantry::IntfId const& port) { std::erase(ports_, port); }

bool operator==(NoxPortList const& a, NoxPortList const& b) {
  if (a.ports() != b.ports()) return false;
  return std::all_of(a.ports_.begin(), a.ports_.end(),
                     [&b](Gantry::IntfId const& port) { return b.portIsMemberOf(port); });
}

std::ostream& operator<<(std::ostream& os, NoxPortList const& v) {
  os << "Nox::NoxPortList(";
  char const* separator = "";
  for (Gantry::IntfId const& port : v.portColl()) {
    os << separator << port;
    separator = ", ";
  }
  return os << ")";
}

Vel::Ptr<NoxCommonSmData> noxCommonSmDataFactory(Vel::Name name) {
  return Vel::validPtr(Vel::Ptr<NoxCommonSmData>(new NoxCommonSmData(std::move(name))));
}

bool isLag(Gantry::IntfId const& intfId) {
  return intfId.kind() == Gantry::IntfId::Kind::portChannel;
}

VEL_REGISTER_TYPE(NoxCommonSmData);

}  // namespace Nox
