// Capturing and printing the library's traces.

#include "tools/noxsim/TraceTap.h"

#include <algorithm>
#include <ostream>

#include "platform/trace/Facility.h"

namespace Noxsim {

void TraceTap::write(Trace::Record const& record) {
  if (record.facility != facility) return;
  if (record.level <= captureLevel_) captured_.emplace_back(record.text);
  if (record.level <= printLevel_) printTo_ << record.level << ' ' << record.text << '\n';
}

void TraceTap::captureLevelIs(int level) {
  captureLevel_ = level;
  applyLevel();
}

void TraceTap::printLevelIs(int level) {
  printLevel_ = level;
  applyLevel();
}

std::vector<std::string> TraceTap::take() {
  std::vector<std::string> taken;
  taken.swap(captured_);
  return taken;
}

void TraceTap::applyLevel() const {
  Trace::levelIs(facility, std::max(captureLevel_, printLevel_));
}

}  // namespace Noxsim
