#include "platform/trace/JsonText.h"

#include <cstdio>

namespace Trace {

namespace {

// The length of the valid UTF-8 sequence at the start of `s`, or 0.
std::size_t utf8Length(std::string_view s) {
  auto const b = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  auto const continuation = [&](std::size_t i) { return i < s.size() && (b(i) & 0xC0) == 0x80; };
  unsigned char const c = b(0);
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) return continuation(1) ? 2 : 0;
  if (c >= 0xE0 && c <= 0xEF) {
    if (!continuation(1) || !continuation(2)) return 0;
    if (c == 0xE0 && b(1) < 0xA0) return 0;   // overlong
    if (c == 0xED && b(1) >= 0xA0) return 0;  // surrogates
    return 3;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    if (!continuation(1) || !continuation(2) || !continuation(3)) return 0;
    if (c == 0xF0 && b(1) < 0x90) return 0;
    if (c == 0xF4 && b(1) >= 0x90) return 0;
    return 4;
  }
  return 0;
}

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
  while (!text.empty()) {
    auto const c = static_cast<unsigned char>(text[0]);
    std::size_t const n = utf8Length(text);
    if (n == 0) {
      out += "\\ufffd";
      text.remove_prefix(1);
      continue;
    }
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out.append(text.substr(0, n));
    }
    text.remove_prefix(n);
  }
  out += '"';
}

std::string jsonString(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

}  // namespace Trace
