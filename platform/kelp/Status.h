#pragma once

// The control state of one table as either side sees it: readiness, the writer's presence and
// the readers attached. Readers build their "is the table usable" decision on it; the writer
// reads from it whether a reader has caught up with its published contents.

#include <cstdint>

namespace Kelp {

struct Status {
  bool ready = false;           // the writer has published its initial contents
  bool writerAttached = false;  // a writer has the segment open (it has not closed it cleanly)
  bool writerAlive = false;     // ... and its process still runs
  std::int64_t writerPid = 0;
  std::uint32_t readersAttached = 0;       // live reader processes registered on the segment
  std::uint32_t readersFullyAttached = 0;  // ... of which have caught up with a ready table
  std::uint64_t count = 0;                 // entries as the writer last published them
  std::uint64_t generation = 0;            // growths of the segment so far
  std::uint64_t corruptionReports = 0;     // corruptionDetected() calls on any side

  friend bool operator==(Status const&, Status const&) = default;
};

}  // namespace Kelp
