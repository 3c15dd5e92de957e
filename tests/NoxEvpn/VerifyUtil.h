#pragma once

// Property tests ask the verification after every step: a difference it does not expect fails
// the property with the difference's text.

#include <rapidcheck.h>

#include "NoxEvpn/NoxEvpnVerify.h"

namespace NoxTest {

inline void requireVerified(std::vector<Nox::VerifyDifference> const& differences) {
  for (auto const& d : differences) {
    if (!d.expected) RC_FAIL(Nox::verifyDifferenceText(d));
  }
}

}  // namespace NoxTest
