#pragma once

// What the hardware helpers and the common machine data share: a named, reference-counted
// entity that can stop the process with a message when it is used in a way that can only be a
// programming error.

#include "platform/vel/Entity.h"
#include "platform/vel/Name.h"

namespace Nox {

class NoxBaseHelper : public Vel::Entity {
 public:
  explicit NoxBaseHelper(Vel::Name name) : name_(std::move(name)) {}
  Vel::Name const& name() const { return name_; }

  // Writes message and an end of line to standard error, then fails the assertion "0".
  [[noreturn]] void noxAssert(Vel::String const& message) const;

  VEL_DESCRIBE("Nox::NoxBaseHelper", "name")

 private:
  Vel::Name name_;
};

}  // namespace Nox
