#pragma once

// The verification of noxsim's running machines, for `verify`, `expect verify` and tests that
// drive a Sim directly.

#include <optional>
#include <string_view>
#include <vector>

#include "NoxEvpn/NoxEvpnVerify.h"

namespace Noxsim {

class Sim;

// The differences of the named machines (every running one when none is named); nullopt after
// recording the failure when a named machine is not running.
std::optional<std::vector<Nox::VerifyDifference>> verifyMachines(
    Sim& sim, std::vector<std::string_view> const& names = {});
// The same with scratch tables kept in `verifier` from one call to the next.
std::optional<std::vector<Nox::VerifyDifference>> verifyMachines(
    Sim& sim, Nox::Verifier& verifier, std::vector<std::string_view> const& names = {});

}  // namespace Noxsim
