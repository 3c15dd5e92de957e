#pragma once

// Layout of a Fleck file, shared by the writer (Fleck.cpp) and the decoder (FleckReader.cpp).
// Everything a decoder needs lives in the file, so it can be read after its writer crashed.
//
//   [0, 4096)                 FileHeader
//   [siteOffset, +siteBytes)  call-site descriptors (SiteHeader + text), appended, 8-aligned
//   [ringOffset, ...)         blockCount blocks of blockBytes, used round-robin
//
// A thread claims a whole block (claim number n, counting from 1, goes to block (n-1) mod
// blockCount) and fills it with records alone, so the hot path takes no lock and no atomic
// read-modify-write. Claiming a block invalidates what it held: wrap-around drops the oldest block.
// A record is committed by storing its first word last, carrying the record's length and the
// low half of its block's claim number; a torn record (its writer died before that store) leaves
// a first word of an older claim or zero, which ends the block for a decoder. Order: claim
// numbers order one thread's blocks, position orders records in a block; threads are merged
// by time stamp.

#include <cstddef>
#include <cstdint>

namespace Fleck {

inline constexpr char fileMagic[8] = {'N', 'O', 'X', 'F', 'L', 'E', 'C', 'K'};
inline constexpr std::uint32_t fileVersion = 1;
inline constexpr std::size_t headerBytes = 4096;
inline constexpr std::size_t blockBytes = 4096;
inline constexpr std::size_t minFileBytes = std::size_t{64} * 1024;
inline constexpr std::size_t maxSiteBytes = std::size_t{256} * 1024;
inline constexpr std::size_t minSiteBytes = std::size_t{16} * 1024;

struct FileHeader {
  char magic[8];  // written last when the file is created
  std::uint32_t version;
  std::uint32_t clockKind;  // Fleck::ClockKind
  std::uint64_t fileBytes;
  std::uint64_t siteOffset;
  std::uint64_t siteBytes;
  std::uint64_t ringOffset;
  std::uint64_t blockBytes;
  std::uint64_t blockCount;
  std::uint64_t pid;
  std::uint64_t tickHz;
  // One reading of the three clocks, taken together at creation.
  std::int64_t anchorWallNs;
  std::int64_t anchorMonotonicNs;
  std::uint64_t anchorTicks;
  alignas(64) std::uint64_t nextClaim;  // claims handed out so far
  alignas(64) std::uint64_t siteUsed;   // bytes of the site area in use
  std::uint64_t droppedRecords;         // records lost for want of space or site room
};
static_assert(sizeof(FileHeader) <= headerBytes);

// Each block starts with this; records follow.
struct BlockHeader {
  std::uint64_t claim;  // 0 while being (re)claimed
  std::uint32_t thread;
  std::uint32_t reserved;
  std::uint64_t ticks;  // the block's own clock anchor
  std::int64_t monotonicNs;
};
inline constexpr std::size_t blockHeaderBytes = sizeof(BlockHeader);

// A record: commit word (length | claim << 32), ticks, site number; then the arguments:
// numbers as 8 raw bytes, texts as a 32-bit length and their bytes; zero padding to 8 bytes.
struct RecordHeader {
  std::uint64_t commit;
  std::uint64_t ticks;
  std::uint32_t site;
  std::uint32_t reserved;
};
inline constexpr std::size_t recordHeaderBytes = sizeof(RecordHeader);
inline constexpr std::size_t maxRecordBytes = blockBytes - blockHeaderBytes;

enum class ArgType : std::uint8_t { int64 = 1, uint64 = 2, boolean = 3, float64 = 4, text = 5 };

// A call-site descriptor, followed by argCount ArgType bytes and the facility, file and format
// texts, zero padding to 8 bytes. `commit` is siteMagic once the descriptor is whole.
struct SiteHeader {
  std::uint32_t commit;
  std::uint32_t bytes;
  std::uint32_t id;  // 1, 2, ... in order of the area
  std::uint32_t line;
  std::int8_t level;
  std::uint8_t argCount;
  std::uint16_t facilityBytes;
  std::uint16_t fileBytes;
  std::uint16_t formatBytes;
};
inline constexpr std::uint32_t siteMagic = 0x45544953;  // "SITE"

constexpr std::size_t align8(std::size_t n) { return (n + 7) & ~std::size_t(7); }

}  // namespace Fleck
