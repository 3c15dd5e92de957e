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

// Walks the lines of a text, numbering them from 1: a text in memory, or a file read a block at a
// time, whose lines stay valid only until the next one is read.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : text_(text) {}
  explicit LineReader(int fd) : fd_(fd) {}

  bool next(std::string_view& line) {
    if (fd_ >= 0 ? !nextFromFile(line) : !nextFromText(line)) return false;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    ++number_;
    return true;
  }
  // The number of the last line read.
  uint32_t number() const { return number_; }
  // Why a file's reading stopped before its end: a line longer than Script::maxLineBytes, or the
  // errno of a failed read.
  bool tooLong() const { return tooLong_; }
  int readErrno() const { return readErrno_; }

 private:
  bool nextFromText(std::string_view& line) {
    if (pos_ >= text_.size()) return false;
    auto const end = text_.find('\n', pos_);
    std::size_t const stop = end == std::string_view::npos ? text_.size() : end;
    line = text_.substr(pos_, stop - pos_);
    pos_ = stop + 1;
    return true;
  }

  bool nextFromFile(std::string_view& line) {
    for (;;) {
      std::string_view const unread = std::string_view(buffer_).substr(pos_);
      auto const end = unread.find('\n');
      std::size_t const length = end == std::string_view::npos ? unread.size() : end;
      if (length > Script::maxLineBytes) return tooLong_ = true, false;
      if (end != std::string_view::npos || (atEnd_ && !unread.empty())) {
        line = unread.substr(0, length);
        pos_ += std::min(length + 1, unread.size());
        return true;
      }
      if (atEnd_ || !readMore()) return false;
    }
  }

  // Moves the unread bytes to the front and appends what one read gives.
  bool readMore() {
    buffer_.erase(0, pos_);
    pos_ = 0;
    std::size_t const had = buffer_.size();
    buffer_.resize(had + readBytes);
    for (;;) {
      ssize_t const n = ::read(fd_, buffer_.data() + had, readBytes);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) readErrno_ = errno;
      buffer_.resize(had + std::size_t(std::max<ssize_t>(n, 0)));
      atEnd_ = n <= 0;
      return n >= 0;
    }
  }

  static constexpr std::size_t readBytes = std::size_t{1} << 16;
  std::string_view text_;
  int fd_ = -1;
  std::string buffer_;
  bool atEnd_ = false;
  bool tooLong_ = false;
  int readErrno_ = 0;
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

// A descriptor closed when it goes out of scope.
class FileDescriptor {
 public:
  explicit FileDescriptor(std::string const& path)
      : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(FileDescriptor const&) = delete;
  FileDescriptor& operator=(FileDescriptor const&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

std::string cannotRead(std::string const& path, int error) {
  return cat("cannot read ", path, ": ", std::strerror(error));
}

// The rest of a file that is not read twice, whole.
bool readAll(int fd, std::string const& path, std::string& text, std::string& error) {
  TextCollector collector(text);
  char buffer[1 << 16];
  for (;;) {
    ssize_t const n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return error = cannotRead(path, errno), false;
    if (n == 0) return true;
    if (!collector.add(buffer, static_cast<std::size_t>(n))) {
      return error = tooLong(path, collector.line()), false;
    }
  }
}

bool sameTime(timespec const& a, timespec const& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

// A file is read through its descriptor so that a directory or a read error is told apart from
// an empty file.
bool Script::addFile(std::string const& path, std::istream& stdinStream, std::string& error) {
  Source source;
  source.name = path;
  if (path == "-") {
    if (!readStream(stdinStream, path, source.text, error)) return false;
  } else {
    FileDescriptor const fd(path);
    struct stat st {};
    if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0) return error = cannotRead(path, errno), false;
    if (S_ISDIR(st.st_mode)) return error = cannotRead(path, EISDIR), false;
    source.reread = S_ISREG(st.st_mode);
    source.identity = {st.st_dev, st.st_ino, st.st_size, st.st_mtim};
    if (source.reread) {
      sources_.push_back(std::move(source));
      return parseFile(fd.get(), uint32_t(sources_.size() - 1), counter(), error);
    }
    if (!readAll(fd.get(), path, source.text, error)) return false;
  }
  sources_.push_back(std::move(source));
  return parseSource(sources_.back(), uint32_t(sources_.size() - 1), counter(), error);
}

bool Script::addText(std::string name, std::string_view text, std::string& error) {
  sources_.push_back({std::move(name), false, {}, std::string(text)});
  return parseSource(sources_.back(), uint32_t(sources_.size() - 1), counter(), error);
}

Script::StepTaker Script::counter() {
  return [this](Step const&) { return ++stepCount_, true; };
}

bool Script::forEachStep(StepTaker const& take, std::string& error) const {
  bool more = true;
  auto const takeWhileWanted = [&](Step const& step) { return more = take(step); };
  for (uint32_t file = 0; more && file < sources_.size(); ++file) {
    if (!parseSource(sources_[file], file, takeWhileWanted, error)) return false;
  }
  return true;
}

bool Script::parseSource(Source const& source, uint32_t file, StepTaker const& take,
                         std::string& error) const {
  if (!source.reread) {
    LineReader reader(source.text);
    return parseLines(reader, file, take, error);
  }
  FileDescriptor const fd(source.name);
  struct stat st {};
  if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0)
    return error = cannotRead(source.name, errno), false;
  FileIdentity const& was = source.identity;
  if (st.st_dev != was.device || st.st_ino != was.inode || st.st_size != was.size ||
      !sameTime(st.st_mtim, was.modified)) {
    return error = cat(source.name, ": changed since it was parsed"), false;
  }
  return parseFile(fd.get(), file, take, error);
}

bool Script::parseFile(int fd, uint32_t file, StepTaker const& take, std::string& error) const {
  // A line cut short by a read that failed, or by the length limit, may also have made a block
  // look unended: the reading's own failure is the one told.
  std::string const& name = sources_[file].name;
  LineReader reader(fd);
  bool const parsed = parseLines(reader, file, take, error);
  if (reader.tooLong()) return error = tooLong(name, reader.number() + 1), false;
  if (reader.readErrno()) return error = cannotRead(name, reader.readErrno()), false;
  return parsed;
}

bool Script::parseLines(LineReader& reader, uint32_t file, StepTaker const& take,
                        std::string& error) const {
  std::string_view line;
  std::vector<std::string_view> words;
  while (reader.next(line)) {
    splitWords(line, words);
    if (words.empty()) continue;
    std::string message;
    uint32_t errorLine = reader.number();
    Step step{{}, file, reader.number(), false};
    if (!parseCommand(reader, line, words, step, message, errorLine)) {
      error = cat(sources_[file].name, ":", errorLine, ": ", message);
      return false;
    }
    if (!take(step)) return true;
  }
  return true;
}

bool Script::parseCommand(LineReader& reader, std::string_view line,
                          std::span<std::string_view const> words, Step& step, std::string& error,
                          uint32_t& errorLine) const {
  std::size_t commandWords = 0;
  CommandEntry const* entry = findCommand(words, commandWords);
  if (!entry) {
    error = cat("unknown command '", wordsText(words.first(std::min<std::size_t>(words.size(), 3))),
                "'");
    return false;
  }
  // Reading a block moves a file's reader past this line, whose text goes with it: the line and
  // its words are taken from a copy.
  std::string heldLine;
  std::vector<std::string_view> heldWords;
  std::vector<BlockLine> block;
  if (entry->takesBlock) {
    heldLine = line;
    line = heldLine;
    splitWords(line, heldWords);
    words = heldWords;
    if (!readBlock(reader, block)) {
      error = cat(trimBlanks(stripComment(line)), ": missing 'end'");
      return false;
    }
  }
  std::string_view const command = wordsText(words.first(commandWords));

  Args args(command, entry->takesText ? words.subspan(words.size()) : words.subspan(commandWords));
  std::string_view const rest =
      entry->takesText
          ? trimBlanks(stripComment(line).substr(std::size_t(command.end() - line.begin())))
          : std::string_view();
  ParseInput input{args, rest, block};
  Action action = args.ok() ? entry->parse(input) : Action();
  if (args.ok()) args.optionsDone();
  if (!args.ok() || !action) {
    error = cat(command, ": ", args.error());
    if (input.errorLine) errorLine = input.errorLine;
    return false;
  }
  step.action = std::move(action);
  step.checksError = entry->checksError;
  return true;
}

}  // namespace Noxsim
