// Reading scenario files into steps.

#include "tools/noxsim/Script.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/noxsim/Text.h"

namespace Noxsim {

// Walks the lines of a text, numbering them from 1.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : text_(text) {}
  bool next(std::string_view& line) {
    if (pos_ >= text_.size()) return false;
    auto const end = text_.find('\n', pos_);
    std::size_t const stop = end == std::string_view::npos ? text_.size() : end;
    line = text_.substr(pos_, stop - pos_);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    pos_ = stop + 1;
    ++number_;
    return true;
  }
  uint32_t number() const { return number_; }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
  uint32_t number_ = 0;
};

namespace {

// Words of one line, with the blanks between them, as written.
std::string_view wordsText(std::span<std::string_view const> words) {
  return std::string_view(words.front().data(), words.back().end() - words.front().begin());
}

// The lines of a block up to its `end`; false when the text ends first.
bool readBlock(LineReader& reader, std::vector<BlockLine>& block) {
  std::string_view line;
  while (reader.next(line)) {
    if (trimBlanks(stripComment(line)) == "end") return true;
    block.push_back({reader.number(), std::string(line)});
  }
  return false;
}

// Collects a scenario's bytes, refusing a line longer than maxLineBytes as soon as it is seen,
// so that an endless stream without newlines (a device, a runaway generator) cannot grow the
// text without bound.
class TextCollector {
 public:
  explicit TextCollector(std::string& text) : text_(text) {}
  bool add(char const* data, std::size_t n) {
    char const* const end = data + n;
    for (char const* at = data; at < end;) {
      auto const* const newline =
          static_cast<char const*>(std::memchr(at, '\n', std::size_t(end - at)));
      lineBytes_ += std::size_t((newline ? newline : end) - at);
      if (lineBytes_ > Script::maxLineBytes) return false;
      if (!newline) break;
      ++line_;
      lineBytes_ = 0;
      at = newline + 1;
    }
    text_.append(data, n);
    return true;
  }
  // The number of the line being collected.
  uint32_t line() const { return line_; }

 private:
  std::string& text_;
  uint32_t line_ = 1;
  std::size_t lineBytes_ = 0;
};

std::string tooLong(std::string const& name, uint32_t line) {
  return cat(name, ":", line, ": line longer than ", Script::maxLineBytes, " bytes");
}

bool readStream(std::istream& in, std::string const& name, std::string& text, std::string& error) {
  TextCollector collector(text);
  char buffer[1 << 16];
  while (in) {
    in.read(buffer, sizeof buffer);
    if (!collector.add(buffer, static_cast<std::size_t>(in.gcount()))) {
      return error = tooLong(name, collector.line()), false;
    }
  }
  if (in.bad()) return error = cat("cannot read ", name), false;
  return true;
}

// A file is read through its descriptor so that a directory or a read error is told apart from
// an empty file.
bool readFile(std::string const& path, std::string& text, std::string& error) {
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  auto const fail = [&](std::string message) {
    if (fd >= 0) ::close(fd);
    error = std::move(message);
    return false;
  };
  if (fd < 0) return fail(cat("cannot read ", path, ": ", std::strerror(errno)));
  struct stat st {};
  if (::fstat(fd, &st) != 0) return fail(cat("cannot read ", path, ": ", std::strerror(errno)));
  if (S_ISDIR(st.st_mode)) return fail(cat("cannot read ", path, ": ", std::strerror(EISDIR)));
  // A regular file's size is known: one allocation instead of a doubling string, whose every
  // growth copies what was read and faults in fresh pages.
  if (S_ISREG(st.st_mode) && st.st_size > 0) text.reserve(std::size_t(st.st_size));
  TextCollector collector(text);
  char buffer[1 << 16];
  for (;;) {
    ssize_t const n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return fail(cat("cannot read ", path, ": ", std::strerror(errno)));
    if (n == 0) break;
    if (!collector.add(buffer, static_cast<std::size_t>(n))) {
      return fail(tooLong(path, collector.line()));
    }
  }
  ::close(fd);
  return true;
}

}  // namespace

bool Script::addFile(std::string const& path, std::istream& stdinStream, std::string& error) {
  std::string text;
  bool const read =
      path == "-" ? readStream(stdinStream, path, text, error) : readFile(path, text, error);
  return read && addText(path, text, error);
}

bool Script::addText(std::string name, std::string_view text, std::string& error) {
  uint32_t const file = uint32_t(files_.size());
  files_.push_back(std::move(name));
  LineReader reader(text);
  std::string_view line;
  std::vector<std::string_view> words;
  while (reader.next(line)) {
    splitWords(line, words);
    if (words.empty()) continue;
    std::string message;
    uint32_t errorLine = reader.number();
    if (!addCommand(reader, line, words, file, message, errorLine)) {
      error = cat(files_[file], ":", errorLine, ": ", message);
      return false;
    }
  }
  return true;
}

bool Script::addCommand(LineReader& reader, std::string_view line,
                        std::span<std::string_view const> words, uint32_t file, std::string& error,
                        uint32_t& errorLine) {
  uint32_t const lineNumber = reader.number();
  std::size_t commandWords = 0;
  CommandEntry const* entry = findCommand(words, commandWords);
  if (!entry) {
    error = cat("unknown command '", wordsText(words.first(std::min<std::size_t>(words.size(), 3))),
                "'");
    return false;
  }
  std::string_view const command = wordsText(words.first(commandWords));
  std::vector<BlockLine> block;
  if (entry->takesBlock && !readBlock(reader, block)) {
    error = cat(trimBlanks(stripComment(line)), ": missing 'end'");
    return false;
  }

  Args args(command, entry->takesText ? words.subspan(words.size()) : words.subspan(commandWords));
  std::string_view const rest =
      trimBlanks(stripComment(line).substr(std::size_t(command.end() - line.begin())));
  ParseInput input{args, rest, block};
  Action action = args.ok() ? entry->parse(input) : Action();
  if (args.ok()) args.optionsDone();
  if (!args.ok() || !action) {
    error = cat(command, ": ", args.error());
    if (input.errorLine) errorLine = input.errorLine;
    return false;
  }
  steps_.push_back({std::move(action), file, lineNumber, entry->checksError});
  return true;
}

}  // namespace Noxsim
