#pragma once

// The byte layout of a table segment, shared by the writer and every reader process.
//
//   page 0      Header: magic, header checksum, the immutable Geometry, then the mutable words
//               (capacity, generation, writer pid and state, readiness, log head, count), each
//               group on its own cache line so that readers polling status do not share a line
//               with the words the writer updates on every write.
//   page 1      ReaderRegistry: the only words readers write (their pid and attach state).
//   log         logCapacity change-log entries (a ring), each logWords 64-bit words.
//   slots       slotCapacity records, each slotWords 64-bit words; grows at the end.
//
// Every word that another process may read while it changes is a 64-bit word accessed through
// std::atomic_ref (see SeqLock.h); the structs below only name the offsets.

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Kelp {

using Word = std::uint64_t;

namespace Layout {

inline constexpr Word magic = 0x3170654B4C504C4BULL;  // "KLPLKep1" read as little-endian text
inline constexpr std::uint32_t version = 1;
inline constexpr std::size_t pageBytes = 4096;
inline constexpr std::size_t typeNameBytes = 64;
inline constexpr std::size_t maxTrackedReaders = 64;
inline constexpr std::size_t registryOffset = pageBytes;
inline constexpr std::size_t logOffset = 2 * pageBytes;
// A log entry for position p carries the sequence 2p+2, which must not wrap. No writer gets near
// this bound (2^62 entries take a century at one a nanosecond); a head past it is damage.
inline constexpr Word maxLogPosition = Word{1} << 62;

// Words of a slot: sequence, state, then key words and value words.
inline constexpr std::size_t slotSeqWord = 0;
inline constexpr std::size_t slotStateWord = 1;
inline constexpr std::size_t slotKeyWord = 2;
// Words of a log entry: sequence, (op << 32 | slot), then key words.
inline constexpr std::size_t logSeqWord = 0;
inline constexpr std::size_t logOpWord = 1;
inline constexpr std::size_t logKeyWord = 2;

enum SlotState : Word { slotFree = 0, slotUsed = 1 };
enum LogOp : std::uint32_t { logInsert = 1, logReplace = 2, logRemove = 3, logCollection = 4 };
enum WriterState : Word { writerAttached = 1, writerClosed = 2 };
enum ReaderState : Word { readerAbsent = 0, readerAttached = 1, readerFullyAttached = 2 };

constexpr std::size_t wordsFor(std::size_t bytes) {
  return (bytes + sizeof(Word) - 1) / sizeof(Word);
}
constexpr std::size_t roundToPage(std::size_t bytes) {
  return (bytes + pageBytes - 1) / pageBytes * pageBytes;
}

// Fixed when the segment is created; covered by the header checksum.
struct Geometry {
  std::uint32_t version;
  std::uint32_t keyBytes;
  std::uint32_t valueBytes;
  std::uint32_t keyWords;
  std::uint32_t valueWords;
  std::uint32_t slotWords;
  std::uint32_t logWords;
  std::uint32_t logCapacity;  // a power of two; 0 for a process-memory table, which has no log
  std::uint64_t slotsOffset;
  std::uint64_t incarnation;  // tells one creation of a name from the next
  char keyType[typeNameBytes];
  char valueType[typeNameBytes];
};
static_assert(std::has_unique_object_representations_v<Geometry>, "checksummed bytes");

struct Header {
  Word magic;
  Word checksum;
  Geometry geometry;
  alignas(64) Word slotCapacity;  // slots the file holds; grows, never shrinks
  Word generation;                // bumped with each growth
  Word writerPid;
  Word writerState;
  Word ready;
  alignas(64) Word logHead;  // positions written so far; readers use it only to resynchronise
  Word count;
};
static_assert(sizeof(Header) <= pageBytes);

struct ReaderEntry {
  Word pid;
  Word state;
};

struct ReaderRegistry {
  Word corruptionReports;
  ReaderEntry readers[maxTrackedReaders];
};
static_assert(sizeof(ReaderRegistry) <= pageBytes);

}  // namespace Layout
}  // namespace Kelp
