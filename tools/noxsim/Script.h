#pragma once

// A scenario, parsed whole before anything runs: every file in turn, each line looked up in the
// command registry and parsed into the action it will run. The first malformed line stops the
// parse with "FILE:LINE: message".

#include <cstdint>
#include <deque>
#include <istream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/noxsim/Commands.h"

namespace Noxsim {

struct Step {
  Action action;
  uint32_t file;
  uint32_t line;
  bool checksError;  // an `expect error`
};

class LineReader;

class Script {
 public:
  // Longer lines are refused: no command needs them, and reading stops at the first one.
  static constexpr std::size_t maxLineBytes = std::size_t{64} * 1024;

  // Reads and parses a file ('-' is `stdinStream`). False, with the message in `error`, on a
  // file that cannot be read or a malformed line.
  bool addFile(std::string const& path, std::istream& stdinStream, std::string& error);
  // Parses `text` as the file named `name`.
  bool addText(std::string name, std::string_view text, std::string& error);

  std::deque<Step> const& steps() const { return steps_; }
  std::string const& fileName(Step const& step) const { return files_[step.file]; }

 private:
  // Parses the command on `line` (and its block, read from `reader`); false with the message
  // and the line it concerns on a malformed command.
  bool addCommand(LineReader& reader, std::string_view line,
                  std::span<std::string_view const> words, uint32_t file, std::string& error,
                  uint32_t& errorLine);

  std::vector<std::string> files_;
  // A deque: a million steps are not copied each time they outgrow their storage.
  std::deque<Step> steps_;
};

}  // namespace Noxsim
