// Substitution of trace arguments into their format, shared by the text trace and the Fleck
// decoder so that both print exactly the same message.

#include "platform/trace/Format.h"

#include <cstdio>

namespace Trace {

void appendNumber(std::string& out, std::int64_t v) {
  char buf[24];
  auto const r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, r.ptr);
}

void appendNumber(std::string& out, std::uint64_t v) {
  char buf[24];
  auto const r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, r.ptr);
}

void appendBool(std::string& out, bool v) { out += v ? '1' : '0'; }

void appendDouble(std::string& out, double v) {
  std::ostringstream os;
  os << v;
  out += std::move(os).str();
}

std::string formatText(std::string_view format, ArgText const* args, std::size_t count) {
  std::string out;
  out.reserve(format.size() + 16 * count);
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    char const c = format[i];
    if ((c == '{' || c == '}') && i + 1 < format.size()) {
      if (c == '{' && format[i + 1] == '}') {
        if (next < count) args[next].append(out, args[next].value);
        ++next;
        ++i;
        continue;
      }
      if (format[i + 1] == c) ++i;
    }
    out += c;
  }
  return out;
}

}  // namespace Trace
