#pragma once

// A strict JSON reader for tests that check what the tools write: objects, arrays, strings
// (with every escape, \u included), numbers, true, false, null. Throws on anything else.

#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace TraceTest {

struct Json {
  enum class Kind { null, boolean, number, string, array, object } kind = Kind::null;
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
  void space() {
    while (at_ < s_.size() &&
           (s_[at_] == ' ' || s_[at_] == '\n' || s_[at_] == '\t' || s_[at_] == '\r'))
      ++at_;
  }
  bool take(char c) {
    space();
    if (at_ < s_.size() && s_[at_] == c) return ++at_, true;
    return false;
  }
  void expect(char c) {
    if (!take(c)) fail("unexpected byte");
  }
  bool word(std::string_view w) {
    if (s_.substr(at_, w.size()) != w) return false;
    at_ += w.size();
    return true;
  }
  Json value() {
    space();
    Json v;
    if (at_ >= s_.size()) fail("end of text");
    char const c = s_[at_];
    if (c == '{') {
      v.kind = Json::Kind::object;
      ++at_;
      if (take('}')) return v;
      do {
        space();
        std::string key = string();
        expect(':');
        v.object[std::move(key)] = value();
      } while (take(','));
      expect('}');
    } else if (c == '[') {
      v.kind = Json::Kind::array;
      ++at_;
      if (take(']')) return v;
      do v.array.push_back(value());
      while (take(','));
      expect(']');
    } else if (c == '"') {
      v.kind = Json::Kind::string;
      v.string = string();
    } else if (word("true") || word("false")) {
      v.kind = Json::Kind::boolean;
      v.boolean = s_[at_ - 1] == 'e' && s_[at_ - 2] == 'u';
    } else if (word("null")) {
    } else {
      v.kind = Json::Kind::number;
      v.number = number();
    }
    return v;
  }
  double number() {
    std::size_t const start = at_;
    if (at_ < s_.size() && s_[at_] == '-') ++at_;
    auto digits = [&] {
      std::size_t const from = at_;
      while (at_ < s_.size() && s_[at_] >= '0' && s_[at_] <= '9') ++at_;
      if (at_ == from) fail("digit expected");
    };
    digits();
    if (at_ < s_.size() && s_[at_] == '.') ++at_, digits();
    if (at_ < s_.size() && (s_[at_] == 'e' || s_[at_] == 'E')) {
      ++at_;
      if (at_ < s_.size() && (s_[at_] == '+' || s_[at_] == '-')) ++at_;
      digits();
    }
    return std::strtod(std::string(s_.substr(start, at_ - start)).c_str(), nullptr);
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
        continue;
      }
      if (at_ >= s_.size()) fail("unterminated escape");
      char const e = s_[at_++];
      switch (e) {
        case '"':
        case '\\':
        case '/':
          out += e;
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u':
          out += unicode();
          break;
        default:
          fail("bad escape");
      }
    }
  }
  std::string unicode() {
    if (at_ + 4 > s_.size()) fail("short \\u escape");
    unsigned code = 0;
    for (int i = 0; i < 4; ++i) {
      char const h = s_[at_++];
      code <<= 4;
      if (h >= '0' && h <= '9')
        code |= unsigned(h - '0');
      else if (h >= 'a' && h <= 'f')
        code |= unsigned(h - 'a' + 10);
      else if (h >= 'A' && h <= 'F')
        code |= unsigned(h - 'A' + 10);
      else
        fail("bad hex digit");
    }
    std::string out;
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
    return out;
  }

  std::string_view s_;
  std::size_t at_ = 0;
};

inline Json parseJson(std::string_view text) { return JsonReader(text).document(); }

}  // namespace TraceTest
