#pragma once

// Clocks of the traces. The text trace stamps lines with the wall clock. Fleck stamps records
// with a tick counter that costs a few nanoseconds: the x86 time-stamp counter (invariant on the
// processors the agent runs on), elsewhere CLOCK_MONOTONIC in nanoseconds. The buffer's header
// keeps the tick rate and an anchor reading of all three clocks, so a decoder turns ticks into
// wall-clock time.

#include <cstdint>
#include <string>

namespace Trace {

std::int64_t wallClockNs();
std::int64_t monotonicNs();

// "YYYY-MM-DD HH:MM:SS" in local time, then a point and `fractionDigits` digits (1..9).
std::string timeText(std::int64_t wallNs, int fractionDigits);

}  // namespace Trace

namespace Fleck {

enum class ClockKind : std::uint32_t { monotonicNs = 0, tsc = 1 };

#if defined(__x86_64__) || defined(__i386__)
inline constexpr ClockKind clockKind = ClockKind::tsc;
inline std::uint64_t ticks() { return __builtin_ia32_rdtsc(); }
#else
inline constexpr ClockKind clockKind = ClockKind::monotonicNs;
inline std::uint64_t ticks() { return static_cast<std::uint64_t>(Trace::monotonicNs()); }
#endif

// Ticks per second, measured against CLOCK_MONOTONIC over about a millisecond.
std::uint64_t measuredTickHz();

}  // namespace Fleck
