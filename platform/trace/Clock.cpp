// Clock readings and the time stamp text shared by the text trace and fleckcat.

#include "platform/trace/Clock.h"

#include <time.h>

#include <cstdio>

namespace Trace {

namespace {

std::int64_t clockNs(clockid_t id) {
  timespec ts;
  clock_gettime(id, &ts);
  return std::int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

}  // namespace

std::int64_t wallClockNs() { return clockNs(CLOCK_REALTIME); }

std::int64_t monotonicNs() { return clockNs(CLOCK_MONOTONIC); }

std::string timeText(std::int64_t wallNs, int fractionDigits) {
  std::int64_t seconds = wallNs / 1'000'000'000;
  std::int64_t fraction = wallNs % 1'000'000'000;
  if (fraction < 0) {
    --seconds;
    fraction += 1'000'000'000;
  }
  time_t const t = static_cast<time_t>(seconds);
  tm local;
  localtime_r(&t, &local);
  char buf[64];
  auto const n = strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &local);
  for (int d = fractionDigits; d < 9; ++d) fraction /= 10;
  std::snprintf(buf + n, sizeof buf - n, ".%0*lld", fractionDigits,
                static_cast<long long>(fraction));
  return buf;
}

}  // namespace Trace

namespace Fleck {

std::uint64_t measuredTickHz() {
  if (clockKind == ClockKind::monotonicNs) return 1'000'000'000;
  std::int64_t const start = Trace::monotonicNs();
  std::uint64_t const startTicks = ticks();
  std::int64_t now;
  do {
    now = Trace::monotonicNs();
  } while (now - start < 1'000'000);
  std::uint64_t const elapsedTicks = ticks() - startTicks;
  return static_cast<std::uint64_t>(static_cast<double>(elapsedTicks) * 1e9 /
                                    static_cast<double>(now - start));
}

}  // namespace Fleck
