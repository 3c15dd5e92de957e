#pragma once

// The lexical layer of noxsim's scenario format: one command a line, `#` to the end of the line
// is a comment, words separated by blanks, and the text forms of the values that commands take.
// Every parser returns nothing for text outside the value's lexical range (VLAN 0, a MAC in
// upper case, label 1048576 written as a number); values that only the framework's own types
// reject, such as a tunnel id of 2^48, are lexically valid and fail when the command runs.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "NoxEvpn/NoxEvpn.h"
#include "NoxEvpn/NoxEvpnVlanFloodSet.h"
#include "platform/types/Bridging/Bridging.h"
#include "platform/types/Fib/Fib.h"
#include "platform/types/Gantry/Gantry.h"
#include "platform/types/L2Rib/L2Rib.h"

namespace Noxsim {

// The line without its comment.
std::string_view stripComment(std::string_view line);
std::string_view trimBlanks(std::string_view text);
// The blank-separated words of a line, comment removed; `words` is reused to save allocations.
void splitWords(std::string_view line, std::vector<std::string_view>& words);

// Decimal digits only (no sign), at most `max`.
std::optional<uint64_t> parseUnsigned(std::string_view text, uint64_t max = UINT64_MAX);
std::optional<Bridging::VlanId> parseVlan(std::string_view text);
// Six lower-case hex pairs joined by ':'.
std::optional<Gantry::EthAddr> parseMac(std::string_view text);
// Any interface name (EthernetN, Port-ChannelN, TunnelN, L2IntfN); never the empty id.
std::optional<Gantry::IntfId> parseIntf(std::string_view text);
// 0..1048575, or `none` for the no-label value.
std::optional<Gantry::MplsLabel> parseLabel(std::string_view text);
std::optional<L2Rib::Dest> parseDest(std::string_view text);
// ADJ:NUM, the adjacency type 0..255 and a 56-bit number.
std::optional<Kelp::Fib::FecId> parseFecId(std::string_view text);
std::optional<bool> parseBool(std::string_view text);
// `programmed`, `notProgrammed`, `invalidHwId`, or a 32-bit number.
std::optional<Nox::HwProgrammingStatus> parseStatus(std::string_view text);
// A non-negative decimal number of seconds.
std::optional<double> parseSeconds(std::string_view text);
// A trace level 0..9, or `off` (-1).
std::optional<int> parseTraceLevel(std::string_view text);
// `on` or `off`.
std::optional<bool> parseOnOff(std::string_view text);

// One destination configuration as written, TUNNELID/LABEL/HWTUNNELID/HWID/L2INTF (L2INTF may
// be empty). The tunnel id stays a plain number until the command runs, because only the
// framework's tunnel-id type may reject it.
struct ConfigText {
  uint64_t tunnelId = 0;
  Gantry::MplsLabel label;
  Nox::HwTunnelId hwTunnelId;
  uint64_t hwId = 0;
  Gantry::IntfId l2Intf;

  // Raises Vel::RangeException for a tunnel id of 2^48 or more.
  Nox::MplsDestConfig config() const;
};
std::optional<ConfigText> parseConfig(std::string_view text);

// How seconds print: as a C++ output stream prints a double by default (0, 2.5, 10).
std::string secondsText(double seconds);

}  // namespace Noxsim
