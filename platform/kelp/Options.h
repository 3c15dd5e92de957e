#pragma once

// Creation parameters of a table. Only the writer's (or process table's) values count: a reader
// takes the geometry the writer created the segment with.

#include <cstdint>

namespace Kelp {

struct Options {
  // Slots the segment starts with; it doubles whenever the writer runs out, without a limit.
  std::uint32_t initialCapacity = 64;
  // Entries of the change log (rounded up to a power of two). A reader that falls further
  // behind than this resynchronises by rescanning the table.
  std::uint32_t logCapacity = 4096;
  // Reader: whether to enter this process in the segment's reader registry (kelpcat --list
  // inspects tables without counting as a reader).
  bool registerReader = true;
  // Writer: whether readers of the owner's group may map the segment (mode 0640 instead of the
  // owner-only 0600).
  bool groupReadable = false;
};

}  // namespace Kelp
