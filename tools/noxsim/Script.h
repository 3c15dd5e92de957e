#pragma once

// A scenario: every file is parsed whole before anything runs, each line looked up in the
// command registry and parsed into the action it will run; the first malformed line stops the
// parse with "FILE:LINE: message". The actions themselves are not kept: a million-line scenario's
// actions would outweigh the agent state it builds. The run parses each file again, a command at
// a time, and hands each step over as it comes. A regular file is read again from disk (and must
// be as it was when parsed); standard input, a pipe or any other file that cannot be read twice
// is kept in memory from the first reading.

#include <sys/types.h>
#include <cstdint>
#include <ctime>
#include <functional>
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

  // Takes one step as it is parsed; false stops the walk there.
  using StepTaker = std::function<bool(Step const&)>;

  // Reads and parses a file ('-' is `stdinStream`). False, with the message in `error`, on a
  // file that cannot be read or a malformed line.
  bool addFile(std::string const& path, std::istream& stdinStream, std::string& error);
  // Parses `text` as the file named `name`.
  bool addText(std::string name, std::string_view text, std::string& error);

  // Parses the steps again, in order, handing each to `take` until it returns false. False, with
  // the message in `error`, when a file cannot be read again or no longer holds what was parsed.
  bool forEachStep(StepTaker const& take, std::string& error) const;
  std::size_t stepCount() const { return stepCount_; }
  std::string const& fileName(uint32_t file) const { return sources_[file].name; }

 private:
  // What a file was when it was parsed, to tell that it is still that file when read again.
  struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
  };
  struct Source {
    std::string name;
    bool reread = false;  // a regular file, read again from disk
    FileIdentity identity;
    std::string text;  // the text itself when it is not read again
  };

  // Counts the steps of a first parse, which keeps none.
  StepTaker counter();
  bool parseSource(Source const& source, uint32_t file, StepTaker const& take,
                   std::string& error) const;
  // Parses source `file` from a descriptor open on it, a block-sized read at a time.
  bool parseFile(int fd, uint32_t file, StepTaker const& take, std::string& error) const;
  bool parseLines(LineReader& reader, uint32_t file, StepTaker const& take,
                  std::string& error) const;
  // Parses the command on `line` (and its block, read from `reader`) into `step`; false with the
  // message and the line it concerns on a malformed command.
  bool parseCommand(LineReader& reader, std::string_view line,
                    std::span<std::string_view const> words, Step& step, std::string& error,
                    uint32_t& errorLine) const;

  std::vector<Source> sources_;
  std::size_t stepCount_ = 0;
};

}  // namespace Noxsim
