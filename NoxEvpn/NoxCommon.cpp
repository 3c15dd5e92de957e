#include "NoxEvpn/NoxCommon.h"

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

}  // namespace Nox
