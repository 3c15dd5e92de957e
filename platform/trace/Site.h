#pragma once

// The descriptor of one trace call site: facility, level, file, line and format. Each NOX_TRACE
// expansion owns one, a constant-initialised static, so it costs nothing until the site is first
// enabled. Fleck stores the descriptor once per buffer and records only the site's number; the
// number is cached here together with the buffer's generation, so a site meeting a new buffer
// registers again.

#include <atomic>
#include <cstdint>
#include <string_view>

#include "platform/trace/Facility.h"

namespace Trace {

class Site {
 public:
  constexpr Site(Facility const* facility, char const* file, int line, int level,
                 char const* format)
      : facility_(facility), file_(file), format_(format), line_(line), level_(level) {}
  Site(Site const&) = delete;
  Site& operator=(Site const&) = delete;

  Facility const* facility() const { return facility_; }
  char const* file() const { return file_; }
  char const* format() const { return format_; }
  int line() const { return line_; }
  int level() const { return level_; }

  // Generation of the Fleck buffer in the high half, the site's number in it in the low half.
  std::uint64_t fleckKey() const { return fleckKey_.load(std::memory_order_relaxed); }
  void fleckKeyIs(std::uint64_t key) const { fleckKey_.store(key, std::memory_order_relaxed); }

 private:
  Facility const* facility_;
  char const* file_;
  char const* format_;
  int line_;
  int level_;
  mutable std::atomic<std::uint64_t> fleckKey_{0};
};

// The last component of a path, for sites of files that do not name themselves.
constexpr char const* baseName(char const* path) {
  char const* base = path;
  for (char const* p = path; *p != '\0'; ++p) {
    if (*p == '/') base = p + 1;
  }
  return base;
}

}  // namespace Trace
