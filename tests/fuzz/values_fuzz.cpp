// The text forms of scenario values, on any bytes: every parser answers without crashing, and a
// value that parses prints in a form that parses back to the same value.
//
// The whole input is offered to every parser, then each '/'-, ':'- and blank-free piece of it is
// too, so that a mutation of one field of a destination also reaches the field's own parser.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vel/Exception.h"
#include "tools/noxsim/Lexer.h"

namespace {

using namespace Noxsim;

[[noreturn]] void roundTripBroken(char const* what, std::string_view input,
                                  std::string const& printed) {
  std::fprintf(stderr, "%s: '%.*s' prints as '%s', which does not parse back to it\n", what,
               int(input.size()), input.data(), printed.c_str());
  std::abort();
}

// The label as a scenario writes it (its own stringValue names reserved labels: "imp-null(3)").
std::string labelText(Gantry::MplsLabel label) {
  return label.value() == Gantry::MplsLabel::noLabel ? "none" : std::to_string(label.value());
}

// A destination as a scenario writes it: as it prints, but with the label written as a number.
std::string destText(L2Rib::Dest const& dest) {
  if (dest.destType() != L2Rib::destTypeMpls_) return dest.stringValue();
  return "mpls/" + std::to_string(dest.destId().value()) + "/" +
         dest.destDataMpls().tunnelIntfId.name() + "/" + labelText(dest.destDataMpls().label);
}

std::string configText(ConfigText const& c) {
  return std::to_string(c.tunnelId) + "/" + labelText(c.label) + "/" +
         std::to_string(c.hwTunnelId.value()) + "/" + std::to_string(c.hwId) + "/" +
         c.l2Intf.name();
}

bool sameConfig(ConfigText const& a, ConfigText const& b) {
  return a.tunnelId == b.tunnelId && a.label == b.label && a.hwTunnelId == b.hwTunnelId &&
         a.hwId == b.hwId && a.l2Intf == b.l2Intf;
}

void parseAll(std::string_view text) {
  if (auto const vlan = parseVlan(text)) {
    std::string const printed = std::to_string(vlan->value());
    if (parseVlan(printed) != vlan) roundTripBroken("VLAN", text, printed);
  }
  if (auto const mac = parseMac(text)) {
    std::string const printed = mac->stringValue();
    if (parseMac(printed) != mac) roundTripBroken("MAC", text, printed);
  }
  if (auto const intf = parseIntf(text)) {
    std::string const printed = intf->name();
    if (parseIntf(printed) != intf) roundTripBroken("interface", text, printed);
  }
  if (auto const label = parseLabel(text)) {
    std::string const printed = labelText(*label);
    if (parseLabel(printed) != label) roundTripBroken("label", text, printed);
  }
  if (auto const fecId = parseFecId(text)) {
    std::string const printed = valueToStrep(*fecId);
    if (parseFecId(printed) != fecId) roundTripBroken("FEC id", text, printed);
  }
  if (auto const dest = parseDest(text)) {
    std::string const printed = destText(*dest);
    auto const again = parseDest(printed);
    if (!again || !(*again == *dest)) roundTripBroken("destination", text, printed);
  }
  if (auto const config = parseConfig(text)) {
    std::string const printed = configText(*config);
    auto const again = parseConfig(printed);
    if (!again || !sameConfig(*again, *config)) roundTripBroken("config", text, printed);
    // Building it may refuse the tunnel id, and only with the framework's range error.
    try {
      (void)config->config();
    } catch (Vel::RangeException const&) {
    }
  }
  (void)parseUnsigned(text);
  (void)parseBool(text);
  (void)parseStatus(text);
  (void)parseTraceLevel(text);
  (void)parseOnOff(text);
  (void)parseSeconds(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  parseAll(text);
  std::vector<std::string_view> words;
  splitWords(text, words);
  for (std::string_view word : words) {
    parseAll(word);
    for (std::size_t start = 0; start <= word.size();) {
      std::size_t const end = word.find_first_of("/:", start);
      std::size_t const stop = end == std::string_view::npos ? word.size() : end;
      parseAll(word.substr(start, stop - start));
      start = stop + 1;
    }
  }
  return 0;
}
