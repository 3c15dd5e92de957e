#pragma once

// Decoder of Fleck files (FleckFormat.h), for fleckcat and tests. It reads a snapshot of the file,
// so it works on the buffer of a live process as on one left by a crash: a block that changes
// while it is read, a torn record or a record that does not decode against its call site is
// skipped, never printed wrongly.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Fleck {

struct Message {
  std::int64_t wallNs;
  std::uint32_t thread;
  std::string facility;
  int level;
  std::string file;
  int line;
  std::string text;
  std::vector<std::string> args;  // each typed argument as the text shows it, in order
  std::string format;             // the call site's format, "{}" where an argument goes
};

struct Decoded {
  std::vector<Message> messages;     // oldest first; one thread's messages in the order written
  std::size_t skippedRecords = 0;    // committed records that did not decode
  std::uint64_t droppedRecords = 0;  // records the writer could not place
  std::uint64_t pid = 0;             // of the process that wrote the buffer
};

// False, with the reason in `error`, when the bytes are not a Fleck buffer.
bool decode(std::string_view bytes, Decoded& out, std::string& error);
bool decodeFile(std::string const& path, Decoded& out, std::string& error);

// The line fleckcat prints: as the text trace's (Record.h), with nanoseconds.
std::string messageLine(Message const& message);

}  // namespace Fleck
