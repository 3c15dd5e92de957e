#pragma once

// Fleck: the process's binary trace ring buffer, a memory-mapped file (layout in FleckFormat.h)
// that outlives a crash of the process and that fleckcat decodes. Records are written on the hot
// path with their arguments in typed form: numbers, booleans and doubles raw, everything else as
// its text; the call site's descriptor is stored once.
//
// The buffer opens itself at the first record, on NOX_FLECK_FILE or else
// $TMPDIR/nox-fleck-<pid>.flk (/tmp without TMPDIR), of NOX_FLECK_SIZE bytes (a number with an
// optional K, M or G; 8M by default). If it cannot be created, a warning goes to standard error
// and records are dropped. A child process after fork() opens its own buffer at its first record.

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "platform/trace/Clock.h"
#include "platform/trace/FleckFormat.h"
#include "platform/trace/Format.h"
#include "platform/trace/Site.h"

namespace Fleck {

inline constexpr std::size_t defaultFileBytes = std::size_t(8) << 20;

// Creates the file (or empties one of ours, see platform/trace/PrivateFile.h) and makes it the
// process's buffer, closing the one before. The size is rounded down to 4 KiB;
// Vel::RangeException when it is below 64 KiB or the file cannot be created and mapped.
void open(std::string const& path, std::size_t bytes = defaultFileBytes);
// Closes the buffer; records are dropped until the next open(). No other thread may be writing
// a record meanwhile: the mapping goes away.
void close();
// The file of the open buffer; empty when none is open.
std::string path();
// Where the buffer opens itself.
std::string defaultPath();
// A buffer size as NOX_FLECK_SIZE writes it: a decimal number of bytes with an optional K, M or
// G suffix, at least 64K and at most 64G; nothing for any other text.
std::optional<std::size_t> parseFileBytes(std::string_view text);

namespace Detail {

// The block a thread is filling.
struct Cursor {
  char* pos;
  char* end;
  std::uint64_t* claimWord;  // the block's claim, which changes when another thread takes it over
  std::uint64_t claim;
  std::uint64_t generation;
  std::uint32_t thread;  // the thread's id, looked up at its first block
};

extern thread_local constinit Cursor cursor;
// Non-zero while a buffer is open; different for every buffer this process opens.
extern std::atomic<std::uint64_t> generation;

// Places a record of `bytes` bytes: registers the site, opens the buffer or claims a block as
// needed. Null when the record is dropped.
char* reserveSlow(Trace::Site const& site, ArgType const* types, std::size_t argCount,
                  std::size_t bytes);

inline char* reserve(Trace::Site const& site, ArgType const* types, std::size_t argCount,
                     std::size_t bytes) {
  Cursor& c = cursor;
  if ((site.fleckKey() >> 32) == c.generation &&
      c.generation == generation.load(std::memory_order_relaxed) &&
      static_cast<std::size_t>(c.end - c.pos) >= bytes &&
      std::atomic_ref<std::uint64_t>(*c.claimWord).load(std::memory_order_relaxed) == c.claim)
      [[likely]] {
    char* p = c.pos;
    c.pos += bytes;
    return p;
  }
  return reserveSlow(site, types, argCount, bytes);
}

// Stamps the record and publishes it by storing its first word.
inline void commit(char* p, std::size_t bytes, Trace::Site const& site) {
  auto* h = reinterpret_cast<RecordHeader*>(p);
  h->ticks = ticks();
  h->site = static_cast<std::uint32_t>(site.fleckKey());
  h->reserved = 0;
  std::atomic_ref<std::uint64_t>(h->commit).store(cursor.claim << 32 | bytes,
                                                  std::memory_order_release);
}

template <class T>
constexpr ArgType argType() {
  if constexpr (std::same_as<T, bool>)
    return ArgType::boolean;
  else if constexpr (Trace::NumberType<T> && std::is_signed_v<T>)
    return ArgType::int64;
  else if constexpr (Trace::NumberType<T> || Trace::NumberLike<T>)
    return ArgType::uint64;
  else if constexpr (std::same_as<T, double> || std::same_as<T, float>)
    return ArgType::float64;
  else
    return ArgType::text;
}

template <class T>
std::uint64_t rawBits(T const& v) {
  if constexpr (argType<T>() == ArgType::float64)
    return std::bit_cast<std::uint64_t>(double(v));
  else if constexpr (argType<T>() == ArgType::int64)
    return std::uint64_t(std::int64_t(v));
  else if constexpr (Trace::NumberLike<T>)
    return static_cast<std::uint64_t>(v.value());
  else
    return static_cast<std::uint64_t>(v);
}

struct Arg {
  std::uint64_t raw;
  std::string_view text;
};

template <class T>
Arg arg(T const& v, std::string& owned) {
  if constexpr (argType<T>() != ArgType::text) {
    return {rawBits(v), {}};
  } else if constexpr (std::same_as<T, char const*> || std::same_as<T, char*>) {
    return {0, v == nullptr ? std::string_view("(null)") : std::string_view(v)};
  } else if constexpr (Trace::TextType<T>) {
    return {0, std::string_view(v)};
  } else {
    Trace::appendText(owned, v);
    return {0, owned};
  }
}

// Writes a record with text arguments, shortening texts that would not fit in a block.
void writeRecord(Trace::Site const& site, ArgType const* types, Arg const* args, std::size_t count);

}  // namespace Detail

template <class... A>
void write(Trace::Site const& site, A const&... args) {
  static constexpr std::array<ArgType, sizeof...(A)> types{Detail::argType<A>()...};
  if constexpr (((Detail::argType<A>() != ArgType::text) && ...)) {
    constexpr std::size_t bytes = recordHeaderBytes + 8 * sizeof...(A);
    static_assert(bytes <= maxRecordBytes, "too many trace arguments");
    char* p = Detail::reserve(site, types.data(), types.size(), bytes);
    if (p == nullptr) return;
    if constexpr (sizeof...(A) > 0) {
      std::array<std::uint64_t, sizeof...(A)> const words{Detail::rawBits(args)...};
      std::memcpy(p + recordHeaderBytes, words.data(), sizeof words);
    }
    Detail::commit(p, bytes, site);
  } else {
    std::array<std::string, sizeof...(A)> owned;
    std::size_t i = 0;
    std::array<Detail::Arg, sizeof...(A)> const refs{Detail::arg(args, owned[i++])...};
    Detail::writeRecord(site, types.data(), refs.data(), refs.size());
  }
}

}  // namespace Fleck
