#pragma once

// A trace facility is the name a group of source files traces under ("NoxEvpn", "Kelp"). Each
// facility has two levels, one for the text trace (off by default) and one for Fleck (1 by
// default), kept together in one mask word so that a call site decides with one relaxed load and
// one branch whether it has anything to do.
//
// A source file declares its facility once, at namespace scope (global or its own namespace):
//     NOX_TRACE_FACILITY("NoxEvpn");
// Every file naming the same facility shares one Facility object: a variable template keyed by
// the name, so the mask sits at an address the linker resolves and the test needs no pointer
// chase. Levels are set by name, also for facilities no loaded file has declared yet.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Trace {

inline constexpr int levelOff = -1;
inline constexpr int levelMax = 9;

// Bit i of a mask: text trace enabled at level i; bit fleckShift + i: Fleck enabled at level i.
inline constexpr int fleckShift = 16;

constexpr std::uint32_t levelsUpTo(int level) {
  return level < 0 ? 0u : (2u << std::min(level, levelMax)) - 1u;
}
constexpr std::uint32_t textBit(int level) { return 1u << level; }
constexpr std::uint32_t fleckBit(int level) { return 1u << (fleckShift + level); }

// The bits a call site at `level` tests; a level outside 0..9 does not compile.
consteval std::uint32_t callSiteBits(int level) {
  if (level < 0 || level > levelMax) throw "trace levels are 0..9";
  return textBit(level) | fleckBit(level);
}

class Facility {
 public:
  explicit Facility(char const* name);
  ~Facility();
  Facility(Facility const&) = delete;
  Facility& operator=(Facility const&) = delete;

  char const* name() const { return name_; }
  std::uint32_t mask() const { return mask_.load(std::memory_order_relaxed); }
  // Set by the level registry only.
  void maskIs(std::uint32_t mask) { mask_.store(mask, std::memory_order_relaxed); }

 private:
  char const* name_;
  std::atomic<std::uint32_t> mask_{0};
};

// A facility name as a template argument.
template <std::size_t N>
struct FacilityName {
  consteval FacilityName(char const (&s)[N]) { std::copy_n(s, N, text); }
  char text[N];
};

template <FacilityName name>
inline Facility facility{name.text};

// Text-trace level of a facility: -1 (off) or 0..9, every level up to it enabled. The name "*"
// sets every facility, the ones declared later included, and drops earlier per-name settings.
// A level outside -1..9 raises Vel::RangeException.
void levelIs(std::string_view facility, int level);
int level(std::string_view facility);

}  // namespace Trace

namespace Fleck {

// Fleck's own level per facility, with the same rules; "*" is 1 unless NOX_FLECK says otherwise.
void levelIs(std::string_view facility, int level);
int level(std::string_view facility);

}  // namespace Fleck

#define NOX_TRACE_FACILITY(name)                                                             \
  namespace {                                                                                \
  [[maybe_unused]] constexpr ::Trace::Facility* noxTraceFacility = &::Trace::facility<name>; \
  }                                                                                          \
  static_assert(true, "")
