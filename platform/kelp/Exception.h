#pragma once

// What a Kelp table raises. Both derive from the framework's range error, so a caller that
// guards a whole operation with Vel::RangeException also catches them.
//
// CorruptionException: the segment does not hold what its header promises (bad magic, header
// checksum, record sizes or type names that differ from the opener's, a slot or log position
// outside the segment). It is raised by the operation that meets the damage.
// OpenException: a table cannot be opened as asked (no such table, a live writer already owns
// it, a bad name, an operating-system error).

#include <string>

#include "platform/vel/Exception.h"

namespace Kelp {

class CorruptionException : public Vel::RangeException {
 public:
  CorruptionException(std::string const& table, std::string const& what)
      : Vel::RangeException("Kelp table " + table + ": corrupt segment: " + what) {}
};

class OpenException : public Vel::RangeException {
 public:
  OpenException(std::string const& table, std::string const& what)
      : Vel::RangeException("Kelp table " + table + ": " + what) {}
};

}  // namespace Kelp
