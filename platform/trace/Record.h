#pragma once

// One message of the text trace as sinks receive it, and the line that the standard-error and
// file sinks (and fleckcat, for Fleck records) print for it:
//     2025-11-22 19:30:01.123456 NoxEvpn/1 NoxEvpnVlanFloodSetFilterSm:212      adding dest ...
// time, facility/level, implementation file:line, one blank, then the message exactly as
// formatted (its leading blanks carry the call depth).

#include <cstdint>
#include <string>
#include <string_view>

namespace Trace {

struct Record {
  std::string_view facility;
  int level;
  std::string_view text;
  std::string_view file;
  int line;
  std::int64_t wallNs;
};

std::string lineText(Record const& record, int fractionDigits);

}  // namespace Trace
