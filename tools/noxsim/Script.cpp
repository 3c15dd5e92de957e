// Reading scenario files into steps.

#include "tools/noxsim/Script.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

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

bool readAll(std::istream& in, std::string& text) {
  std::ostringstream buffer;
  buffer << in.rdbuf();
  text = buffer.str();
  return !in.bad();
}

}  // namespace

bool Script::addFile(std::string const& path, std::istream& stdinStream, std::string& error) {
  std::string text;
  if (path == "-") {
    if (!readAll(stdinStream, text)) return error = "-: cannot read standard input", false;
  } else {
    std::ifstream file(path, std::ios::binary);
    if (!file || !readAll(file, text)) {
      return error = cat(path, ": cannot read: ", std::strerror(errno)), false;
    }
  }
  return addText(path, text, error);
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
