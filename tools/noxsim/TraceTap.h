#pragma once

// The trace sink of the simulated agent. It serves two readers with their own levels: the
// scenario's `trace LEVEL` (messages captured for `expect trace`) and the command line's
// `--trace LEVEL` (messages printed to standard error as `LEVEL TEXT`). The library's facility
// is enabled up to the higher of the two, so a disabled trace costs the library nothing.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "platform/trace/Sink.h"

namespace Noxsim {

class TraceTap : public Trace::Sink {
 public:
  static constexpr std::string_view facility = "NoxEvpn";

  explicit TraceTap(std::ostream& printTo) : printTo_(printTo) {}
  void write(Trace::Record const& record) override;

  int captureLevel() const { return captureLevel_; }
  void captureLevelIs(int level);
  int printLevel() const { return printLevel_; }
  void printLevelIs(int level);

  // Messages captured since the last take.
  std::vector<std::string> take();

 private:
  void applyLevel() const;

  std::ostream& printTo_;
  int captureLevel_ = -1;
  int printLevel_ = -1;
  std::vector<std::string> captured_;
};

}  // namespace Noxsim
