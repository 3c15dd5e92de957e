// Parser of the level settings carried by NOX_TRACE and NOX_FLECK.

#include "platform/trace/LevelSettings.h"

#include "platform/trace/Facility.h"

namespace Trace {

namespace {

std::string_view trimmed(std::string_view s) {
  auto const first = s.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == ':' || c == '-';
}

bool isFacilityName(std::string_view name) {
  if (name == "*") return true;
  return !name.empty() && std::all_of(name.begin(), name.end(), isNameChar);
}

// The level of "N", "off" or "-1"; levelOff - 1 when it is none of these.
int parsedLevel(std::string_view text) {
  if (text == "off" || text == "-1") return levelOff;
  if (text.size() == 1 && text[0] >= '0' && text[0] <= '9') return text[0] - '0';
  return levelOff - 1;
}

}  // namespace

LevelSettings parseLevelSettings(std::string_view text) {
  LevelSettings parsed;
  while (!text.empty()) {
    auto const comma = text.find(',');
    auto const entry = trimmed(text.substr(0, comma));
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    if (entry.empty()) continue;
    std::string quoted(1, '\'');
    quoted.append(entry).append("': ");
    auto const slash = entry.rfind('/');
    if (slash == std::string_view::npos) {
      parsed.errors.push_back(quoted + "expected FACILITY/LEVEL");
      continue;
    }
    auto const name = entry.substr(0, slash);
    if (!isFacilityName(name)) {
      parsed.errors.push_back(quoted + "bad facility name");
      continue;
    }
    int const level = parsedLevel(entry.substr(slash + 1));
    if (level < levelOff) {
      parsed.errors.push_back(quoted + "level must be 0-9 or off");
      continue;
    }
    parsed.settings.push_back({std::string(name), level});
  }
  return parsed;
}

}  // namespace Trace
