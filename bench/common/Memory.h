#pragma once

// Heap bytes in use, for benchmarks that report what a machine's state costs per member
// (bytes_per_<unit> counters): the difference across building the state.

#include <malloc.h>

#include <cstddef>

namespace Bench {

inline std::size_t heapBytesInUse() {
  struct mallinfo2 const info = ::mallinfo2();
  // Small blocks from the heap proper plus large ones mapped on their own.
  return info.uordblks + info.hblkhd;
}

}  // namespace Bench
