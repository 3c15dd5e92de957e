#pragma once

// An emulated agent outside the library (the hardware agent, the FEC programmer) that reacts to
// what the machines publish. After every command noxsim lets each react in turn, then runs the
// ready tasks, until none of them changes anything.

#include <string_view>

namespace Noxsim {

class OutsideAgent {
 public:
  virtual ~OutsideAgent() = default;
  virtual std::string_view name() const = 0;
  // Brings what the agent writes up to date with what it reads; true when it wrote anything.
  virtual bool react() = 0;
};

}  // namespace Noxsim
