#pragma once

// A unified diff of two line lists, as `diff -u` writes it, for the message of an `expect` that
// does not hold.

#include <string>
#include <string_view>
#include <vector>

namespace Noxsim {

// Empty when the lists are equal. `fromName` and `toName` head the diff (--- and +++).
std::string unifiedDiff(std::vector<std::string> const& from, std::vector<std::string> const& to,
                        std::string_view fromName, std::string_view toName);

}  // namespace Noxsim
