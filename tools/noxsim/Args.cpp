// Typed access to a command's words, with the first error kept for the message.

#include "tools/noxsim/Args.h"

#include <algorithm>

#include "tools/noxsim/Text.h"

namespace Noxsim {

Args::Args(std::string_view command, std::span<std::string_view const> words)
    : command_(command), positional_(words) {
  // Positional words are the leading ones; a command's words live as long as its parse.
  std::size_t positionalCount = words.size();
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::string_view const w = words[i];
    auto const eq = w.find('=');
    if (eq == std::string_view::npos || eq == 0) {
      if (!options_.empty()) fail(cat("'", w, "' comes after key=value words"));
      continue;
    }
    positionalCount = std::min(positionalCount, i);
    std::string_view const key = w.substr(0, eq);
    if (option(key)) fail(cat(key, "= given twice"));
    options_.emplace_back(key, w.substr(eq + 1));
  }
  positional_ = words.first(positionalCount);
  optionRead_.assign(options_.size(), false);
}

bool Args::countIs(std::size_t min, std::size_t max) {
  std::size_t const n = positional_.size();
  if (n >= min && n <= max) return true;
  std::string want = cat(min);
  if (max != min) want += max == SIZE_MAX ? std::string(" or more") : cat(" to ", max);
  return fail(cat("takes ", want, max == 1 ? " word" : " words", ", got ", n));
}

bool Args::optionsDone() {
  for (std::size_t i = 0; i < options_.size(); ++i) {
    if (!optionRead_[i]) return fail(cat("unknown option '", options_[i].first, "='"));
  }
  return ok();
}

bool Args::fail(std::string message) {
  if (error_.empty()) error_ = std::move(message);
  return false;
}

template <class T>
T Args::check(std::optional<T> const& value, std::string_view word, std::string_view what,
              std::string_view form) {
  if (value) return *value;
  fail(form.empty() ? cat("bad ", what, " '", word, "'")
                    : cat("bad ", what, " '", word, "' (", form, ")"));
  return T();
}

uint64_t Args::number(std::size_t i, uint64_t max) {
  // The range's text is made only for the message.
  auto const value = parseUnsigned(word(i), max);
  if (value) return *value;
  return check(value, word(i), "number",
               max == UINT64_MAX ? std::string("decimal") : cat("0-", max));
}

Bridging::VlanId Args::vlan(std::size_t i) {
  return check(parseVlan(word(i)), word(i), "VLAN", "1-4094");
}

Gantry::EthAddr Args::mac(std::size_t i) {
  return check(parseMac(word(i)), word(i), "MAC", "six lower-case hex pairs joined by ':'");
}

Gantry::IntfId Args::intf(std::size_t i) {
  return check(parseIntf(word(i)), word(i), "interface",
               "EthernetN, Port-ChannelN, TunnelN or L2IntfN");
}

Gantry::MplsLabel Args::label(std::size_t i) {
  return check(parseLabel(word(i)), word(i), "label", "0-1048575 or none");
}

L2Rib::Dest Args::dest(std::size_t i) {
  std::string why;
  if (auto const dest = L2Rib::Dest::fromString(word(i), &why)) return *dest;
  fail(cat("bad destination '", word(i), "': ", why));
  return L2Rib::Dest();
}

ConfigText Args::config(std::size_t i) {
  return check(parseConfig(word(i)), word(i), "configuration",
               "TUNNELID/LABEL/HWTUNNELID/HWID/L2INTF");
}

Nox::HwProgrammingStatus Args::status(std::size_t i) {
  return check(parseStatus(word(i)), word(i), "status",
               "programmed, notProgrammed, invalidHwId or a number");
}

bool Args::onOff(std::size_t i) {
  return check(parseOnOff(word(i)), word(i), "switch", "on or off");
}

std::optional<std::string_view> Args::option(std::string_view key) {
  for (std::size_t i = 0; i < options_.size(); ++i) {
    if (options_[i].first != key) continue;
    if (i < optionRead_.size()) optionRead_[i] = true;
    return options_[i].second;
  }
  return std::nullopt;
}

bool Args::boolOption(std::string_view key, bool fallback) {
  auto const text = option(key);
  if (!text) return fallback;
  return check(parseBool(*text), *text, cat(key, "= value"), "true or false");
}

}  // namespace Noxsim
