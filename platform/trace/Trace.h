#pragma once

// The trace macros that the state machines and the platform use. One call writes to both traces:
// the leveled text trace (to the sinks of Sink.h) and Fleck, each gated by its own level of the
// file's facility.
//
//     NOX_TRACE_FACILITY("NoxEvpn");          // once per .cpp, at namespace scope
//     NOX_TRACE(1, "     adding dest {}", dest);
//     NOX_TRACE_ENTRY("  processFloodSet vlan: {} mac: {}", vlan, mac);   // level 8
//     NOX_TRACE_CHANGE("   deleting vlanFloodSet with vlan {}", vlan);    // level 1
//
// The level is a constant 0..9 and the format a string literal whose `{}` count matches the
// arguments; both are checked at compile time. Arguments are neither evaluated nor formatted
// unless one of the two traces is enabled for the level: a disabled call is one relaxed load of
// the facility's mask and a branch. The message is the format with its placeholders filled, its
// blanks kept exactly. Records name the file as the file names itself for assertions
// (velSourceFile, platform/vel/Assert.h), else by its base name.

#include <array>
#include <cstdint>
#include <type_traits>

#include "platform/trace/Clock.h"
#include "platform/trace/Facility.h"
#include "platform/trace/Fleck.h"
#include "platform/trace/Format.h"
#include "platform/trace/Sink.h"
#include "platform/trace/Site.h"
#include "platform/vel/Assert.h"

namespace Trace {

void emitText(Site const& site, ArgText const* args, std::size_t count);

// `mask` is the facility's mask as the call site read it.
template <int level, class... A>
void write(std::uint32_t mask, Site const& site, FormatString<std::type_identity_t<A>...>,
           A const&... args) {
  if ((mask & textBit(level)) && hasSinks()) {
    std::array<ArgText, sizeof...(A)> const texts{argText(args)...};
    emitText(site, texts.data(), texts.size());
  }
  if (mask & fleckBit(level)) Fleck::write(site, args...);
}

}  // namespace Trace

#define NOX_TRACE_FILE_NAME (velSourceFile ? velSourceFile : ::Trace::baseName(__FILE__))

#define NOX_TRACE(level, format, ...)                                                          \
  do {                                                                                         \
    constexpr ::std::uint32_t noxTraceBits = ::Trace::callSiteBits(level);                     \
    ::std::uint32_t const noxTraceMask = noxTraceFacility->mask();                             \
    if (noxTraceMask & noxTraceBits) [[unlikely]] {                                            \
      static constinit ::Trace::Site const noxTraceSite(noxTraceFacility, NOX_TRACE_FILE_NAME, \
                                                        __LINE__, level, format);              \
      ::Trace::write<(level)>(noxTraceMask, noxTraceSite, format __VA_OPT__(, ) __VA_ARGS__);  \
    }                                                                                          \
  } while (false)

// A handler's or worker's entry.
#define NOX_TRACE_ENTRY(...) NOX_TRACE(8, __VA_ARGS__)
// A change of the machine's outputs or state.
#define NOX_TRACE_CHANGE(...) NOX_TRACE(1, __VA_ARGS__)
