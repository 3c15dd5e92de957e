#pragma once

// The framework's one exception: a value or argument outside what a type allows (a tunnel id of
// 2^48, a null pointer given to a reactor mutator). Programming errors abort instead (Assert.h).

#include <stdexcept>
#include <string>

namespace Vel {

class RangeException : public std::out_of_range {
 public:
  explicit RangeException(std::string const& what) : std::out_of_range(what) {}
};

}  // namespace Vel
