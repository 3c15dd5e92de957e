#include "platform/trace/FleckExport.h"

#include <cstdio>

#include "platform/trace/JsonText.h"

namespace Fleck {

namespace {

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

// The level and the source line a message was traced from.
void appendWhere(std::string& out, Message const& m) {
  out += ",\"level\":";
  appendNumber(out, m.level);
  out += ",\"file\":";
  Trace::appendJsonString(out, m.file);
  out += ",\"line\":";
  appendNumber(out, m.line);
}

void appendArgs(std::string& out, Message const& m) {
  out += "{\"message\":";
  Trace::appendJsonString(out, m.text);
  appendWhere(out, m);
  for (std::size_t i = 0; i < m.args.size(); ++i) {
    out += ",\"arg";
    out += std::to_string(i);
    out += "\":";
    Trace::appendJsonString(out, m.args[i]);
  }
  out += '}';
}

}  // namespace

std::string traceEventJson(Decoded const& decoded) {
  std::string out = "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[";
  bool first = true;
  for (auto const& m : decoded.messages) {
    out += first ? "\n" : ",\n";
    first = false;
    out += "{\"name\":";
    Trace::appendJsonString(out, eventName(m));
    out += ",\"cat\":";
    std::string category = m.facility;
    category += ',';
    category += stem(m.file);
    Trace::appendJsonString(out, category);
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
    Trace::appendJsonString(out, m.facility);
    appendWhere(out, m);
    out += ",\"message\":";
    Trace::appendJsonString(out, m.text);
    out += ",\"args\":[";
    for (std::size_t i = 0; i < m.args.size(); ++i) {
      if (i > 0) out += ',';
      Trace::appendJsonString(out, m.args[i]);
    }
    out += "]}\n";
  }
  return out;
}

}  // namespace Fleck
