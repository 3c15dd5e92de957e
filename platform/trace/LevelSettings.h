#pragma once

// The text form of level settings, as NOX_TRACE and NOX_FLECK carry them:
//     NoxEvpn/8,Kelp/1        facility NoxEvpn at level 8, Kelp at level 1
//     */1,NoxEvpn/8           every facility at 1, then NoxEvpn at 8
//     NoxEvpn/off             NoxEvpn off (same as NoxEvpn/-1)
// Entries are separated by commas and applied left to right; blanks around an entry and empty
// entries are ignored. A facility name is `*` or letters, digits and `_ . : -`.
// A malformed entry is reported and skipped; the others still apply.

#include <string>
#include <string_view>
#include <vector>

namespace Trace {

struct LevelSetting {
  std::string facility;
  int level;
  friend bool operator==(LevelSetting const&, LevelSetting const&) = default;
};

struct LevelSettings {
  std::vector<LevelSetting> settings;
  std::vector<std::string> errors;  // one line per malformed entry, quoting it
};

LevelSettings parseLevelSettings(std::string_view text);

}  // namespace Trace
