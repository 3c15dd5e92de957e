// Text forms of scenario values.

#include "tools/noxsim/Lexer.h"

#include <charconv>
#include <cmath>
#include <sstream>

namespace Noxsim {

namespace {

// Every character of a word is above the space, bar stray control characters: one compare
// settles nearly every character of a line.
bool isBlank(char c) {
  constexpr uint64_t blanks = (uint64_t{1} << ' ') | (uint64_t{1} << '\t') | (uint64_t{1} << '\r');
  auto const u = static_cast<unsigned char>(c);
  return u <= ' ' && ((blanks >> u) & 1) != 0;
}

}  // namespace

std::string_view stripComment(std::string_view line) {
  auto const hash = line.find('#');
  return hash == std::string_view::npos ? line : line.substr(0, hash);
}

std::string_view trimBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

void splitWords(std::string_view line, std::vector<std::string_view>& words) {
  words.clear();
  line = stripComment(line);
  char const* at = line.data();
  char const* const end = at + line.size();
  for (;;) {
    while (at != end && isBlank(*at)) ++at;
    if (at == end) return;
    char const* const start = at;
    while (at != end && !isBlank(*at)) ++at;
    words.emplace_back(start, std::size_t(at - start));
  }
}

std::optional<uint64_t> parseUnsigned(std::string_view text, uint64_t max) {
  uint64_t v = 0;
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || v > max) {
    return std::nullopt;
  }
  return v;
}

std::optional<Bridging::VlanId> parseVlan(std::string_view text) {
  auto const v = parseUnsigned(text, Bridging::VlanId::maxValue);
  if (!v || *v < Bridging::VlanId::minValue) return std::nullopt;
  return Bridging::VlanId(uint16_t(*v));
}

std::optional<Gantry::EthAddr> parseMac(std::string_view text) {
  for (char const c : text) {
    if (c >= 'A' && c <= 'F') return std::nullopt;
  }
  return Gantry::EthAddr::fromString(text);
}

std::optional<Gantry::IntfId> parseIntf(std::string_view text) {
  auto const intf = Gantry::IntfId::fromName(text);
  if (!intf || intf->empty()) return std::nullopt;
  return intf;
}

std::optional<Gantry::MplsLabel> parseLabel(std::string_view text) {
  if (text == "none") return Gantry::MplsLabel();
  auto const v = parseUnsigned(text, Gantry::MplsLabel::maxLabel);
  if (!v) return std::nullopt;
  return Gantry::MplsLabel(uint32_t(*v));
}

std::optional<L2Rib::Dest> parseDest(std::string_view text) {
  return L2Rib::Dest::fromString(text);
}

std::optional<Kelp::Fib::FecId> parseFecId(std::string_view text) {
  auto const colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  auto const adj = parseUnsigned(text.substr(0, colon), 255);
  auto const number = parseUnsigned(text.substr(colon + 1), Kelp::Fib::FecId::maxNumber);
  if (!adj || !number) return std::nullopt;
  return Kelp::Fib::FecId(uint8_t(*adj), *number);
}

std::optional<bool> parseBool(std::string_view text) {
  if (text == "true") return true;
  if (text == "false") return false;
  return std::nullopt;
}

std::optional<Nox::HwProgrammingStatus> parseStatus(std::string_view text) {
  if (auto const named = Nox::hwProgrammingStatusFromName(text)) return named;
  auto const v = parseUnsigned(text, UINT32_MAX);
  if (!v) return std::nullopt;
  return static_cast<Nox::HwProgrammingStatus>(*v);
}

std::optional<double> parseSeconds(std::string_view text) {
  double v = 0;
  auto const [end, ec] =
      std::from_chars(text.data(), text.data() + text.size(), v, std::chars_format::fixed);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || !std::isfinite(v) ||
      v < 0 || text.front() == '-') {
    return std::nullopt;
  }
  return v;
}

std::optional<int> parseTraceLevel(std::string_view text) {
  if (text == "off") return -1;
  auto const v = parseUnsigned(text, 9);
  if (!v) return std::nullopt;
  return int(*v);
}

std::optional<bool> parseOnOff(std::string_view text) {
  if (text == "on") return true;
  if (text == "off") return false;
  return std::nullopt;
}

Nox::MplsDestConfig ConfigText::config() const {
  return Nox::MplsDestConfig(Nox::TunnelId(tunnelId), label, hwTunnelId, hwId, l2Intf);
}

std::optional<ConfigText> parseConfig(std::string_view text) {
  std::string_view parts[5];
  for (std::size_t i = 0; i < 5; ++i) {
    auto const slash = text.find('/');
    if ((slash == std::string_view::npos) != (i == 4)) return std::nullopt;
    parts[i] = text.substr(0, slash);
    if (i < 4) text.remove_prefix(slash + 1);
  }
  auto const tunnelId = parseUnsigned(parts[0]);
  auto const label = parseLabel(parts[1]);
  auto const hwTunnelId = parseUnsigned(parts[2], UINT32_MAX);
  auto const hwId = parseUnsigned(parts[3]);
  auto const l2Intf = parts[4].empty() ? std::optional(Gantry::IntfId()) : parseIntf(parts[4]);
  if (!tunnelId || !label || !hwTunnelId || !hwId || !l2Intf) return std::nullopt;
  return ConfigText{*tunnelId, *label, Nox::HwTunnelId(uint32_t(*hwTunnelId)), *hwId, *l2Intf};
}

std::string secondsText(double seconds) {
  std::ostringstream os;
  os << seconds;
  return os.str();
}

}  // namespace Noxsim
