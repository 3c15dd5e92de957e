#include "platform/trace/FleckExport.h"

#include <cstdio>

namespace Fleck {

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

std::string_view stem(std::string_view file) {
  auto const slash = file.find_last_of('/');
  if (slash != std::string_view::npos) file.remove_prefix(slash + 1);
  auto const dot = file.find('.');
  return dot == std::string_view::npos ? file : file.substr(0, dot);
}

std::string_view trimmed(std::string_view s) {
  auto const first = s.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  auto const last = s.find_last_not_of(' ');
  return s.substr(first, last - first + 1);
}

// Entry traces (level 8) start with the name of the function they enter.
std::string_view eventName(Message const& m) {
  std::string_view const format = trimmed(m.format);
  if (m.level == 8) {
    auto const end = format.find_first_of(" ({");
    if (end != 0) return format.substr(0, end);
  }
  return format.empty() ? std::string_view(m.file) : format;
}

void appendNumber(std::string& out, long long n) { out += std::to_string(n); }

// Microseconds with nanosecond digits, as the viewers' "ts" is read.
void appendMicros(std::string& out, std::int64_t ns) {
  char buf[48];
  auto const sign = ns < 0 ? "-" : "";
  std::uint64_t const magnitude = ns < 0 ? 0 - static_cast<std::uint64_t>(ns) : std::uint64_t(ns);
  std::snprintf(buf, sizeof buf, "%s%llu.%03llu", sign,
                static_cast<unsigned long long>(magnitude / 1000),
                static_cast<unsigned long long>(magnitude % 1000));
  out += buf;
}

void appendArgs(std::string& out, Message const& m) {
  out += "{\"message\":";
  appendJsonString(out, m.text);
  out += ",\"level\":";
  appendNumber(out, m.level);
  out += ",\"file\":";
  appendJsonString(out, m.file);
  out += ",\"line\":";
  appendNumber(out, m.line);
  for (std::size_t i = 0; i < m.args.size(); ++i) {
    out += ",\"arg";
    out += std::to_string(i);
    out += "\":";
    appendJsonString(out, m.args[i]);
  }
  out += '}';
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

std::string traceEventJson(Decoded const& decoded) {
  std::string out = "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[";
  bool first = true;
  for (auto const& m : decoded.messages) {
    out += first ? "\n" : ",\n";
    first = false;
    out += "{\"name\":";
    appendJsonString(out, eventName(m));
    out += ",\"cat\":";
    std::string category = m.facility;
    category += ',';
    category += stem(m.file);
    appendJsonString(out, category);
    out += ",\"ph\":\"i\",\"s\":\"t\",\"ts\":";
    appendMicros(out, m.wallNs);
    out += ",\"pid\":";
    out += std::to_string(decoded.pid);
    out += ",\"tid\":";
    out += std::to_string(m.thread);
    out += ",\"args\":";
    appendArgs(out, m);
    out += '}';
  }
  out += "\n]}\n";
  return out;
}

std::string jsonLines(Decoded const& decoded) {
  std::string out;
  for (auto const& m : decoded.messages) {
    out += "{\"time_ns\":";
    out += std::to_string(m.wallNs);
    out += ",\"pid\":";
    out += std::to_string(decoded.pid);
    out += ",\"thread\":";
    out += std::to_string(m.thread);
    out += ",\"facility\":";
    appendJsonString(out, m.facility);
    out += ",\"level\":";
    appendNumber(out, m.level);
    out += ",\"file\":";
    appendJsonString(out, m.file);
    out += ",\"line\":";
    appendNumber(out, m.line);
    out += ",\"message\":";
    appendJsonString(out, m.text);
    out += ",\"args\":[";
    for (std::size_t i = 0; i < m.args.size(); ++i) {
      if (i > 0) out += ',';
      appendJsonString(out, m.args[i]);
    }
    out += "]}\n";
  }
  return out;
}

}  // namespace Fleck
