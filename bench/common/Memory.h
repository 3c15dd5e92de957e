#pragma once

// Memory in use, for benchmarks that report what a machine's state costs per member
// (bytes_per_<unit> counters): the difference across building the state. The heap's blocks, and
// the large blocks collections map for themselves.

#include <malloc.h>

#include <cstddef>

#include "platform/vel/OrderedMap.h"

namespace Bench {

inline std::size_t heapBytesInUse() {
  struct mallinfo2 const info = ::mallinfo2();
  // Small blocks from the heap proper plus large ones mapped on their own.
  return info.uordblks + info.hblkhd + Vel::mappedBytes();
}

}  // namespace Bench
