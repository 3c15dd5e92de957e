#pragma once

// A strict JSON reader for tests that check what the tools write: objects, arrays, strings
// (with every escape, \u included), numbers, true, false, null. Throws on anything else, so a
// parse is itself the check that the output is valid JSON.

#include <algorithm>
#include <charconv>
#include <map>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace TraceTest {

struct Json {
  bool boolean = false;
  double number = 0;
  std::string string;
  std::vector<Json> array;
  std::map<std::string, Json> object;

  bool has(std::string const& key) const { return object.count(key) != 0; }
  Json const& at(std::string const& key) const { return object.at(key); }
};

class JsonReader {
 public:
  explicit JsonReader(std::string_view text) : s_(text) {}
  Json document() {
    Json v = value();
    space();
    if (at_ != s_.size()) fail("trailing bytes");
    return v;
  }

 private:
  [[noreturn]] void fail(char const* what) const {
    throw std::runtime_error(std::string(what) + " at byte " + std::to_string(at_));
  }
  void space() { at_ = std::min(s_.size(), s_.find_first_not_of(" \t\r\n", at_)); }
  bool take(char c) {
    space();
    return at_ < s_.size() && s_[at_] == c && ++at_;
  }
  void expect(char c) {
    if (!take(c)) fail("unexpected byte");
  }
  bool word(std::string_view w) { return s_.substr(at_, w.size()) == w && (at_ += w.size()); }
  Json value() {
    Json v;
    if (take('{')) {
      if (take('}')) return v;
      do {
        space();
        std::string key = string();
        expect(':');
        v.object[std::move(key)] = value();
      } while (take(','));
      expect('}');
    } else if (take('[')) {
      if (take(']')) return v;
      do v.array.push_back(value());
      while (take(','));
      expect(']');
    } else if (at_ < s_.size() && s_[at_] == '"') {
      v.string = string();
    } else if (word("true")) {
      v.boolean = true;
    } else if (!word("false") && !word("null")) {
      v.number = number();
    }
    return v;
  }
  double number() {
    static std::regex const grammar(R"(-?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?)");
    std::match_results<std::string_view::const_iterator> m;
    if (!std::regex_search(s_.begin() + at_, s_.end(), m, grammar,
                           std::regex_constants::match_continuous)) {
      fail("number expected");
    }
    at_ += m.length();
    return std::stod(m.str());
  }
  std::string string() {
    if (at_ >= s_.size() || s_[at_] != '"') fail("string expected");
    ++at_;
    std::string out;
    while (true) {
      if (at_ >= s_.size()) fail("unterminated string");
      auto const c = static_cast<unsigned char>(s_[at_++]);
      if (c == '"') return out;
      if (c < 0x20) fail("raw control byte in string");
      if (c != '\\') {
        out += static_cast<char>(c);
      } else if (at_ < s_.size() && s_[at_] == 'u') {
        out += unicode();
      } else {
        std::string_view const escapes = "\"\\/bfnrt", meanings = "\"\\/\b\f\n\r\t";
        auto const e = at_ < s_.size() ? escapes.find(s_[at_++]) : std::string_view::npos;
        if (e == std::string_view::npos) fail("bad escape");
        out += meanings[e];
      }
    }
  }
  // "uXXXX", as UTF-8.
  std::string unicode() {
    unsigned code = 0;
    char const* const digits = s_.data() + at_ + 1;
    if (at_ + 5 > s_.size() || std::from_chars(digits, digits + 4, code, 16).ptr != digits + 4) {
      fail("bad \\u escape");
    }
    at_ += 5;
    auto const byte = [](unsigned b) { return static_cast<char>(b); };
    if (code < 0x80) return std::string(1, byte(code));
    if (code < 0x800) return {byte(0xC0 | (code >> 6)), byte(0x80 | (code & 0x3F))};
    return {byte(0xE0 | (code >> 12)), byte(0x80 | ((code >> 6) & 0x3F)),
            byte(0x80 | (code & 0x3F))};
  }

  std::string_view s_;
  std::size_t at_ = 0;
};

inline Json parseJson(std::string_view text) { return JsonReader(text).document(); }

}  // namespace TraceTest
