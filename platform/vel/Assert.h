#pragma once

// Assertions for programming errors. They stay on in release builds: a machine that has broken
// its own invariant must stop the agent rather than program wrong hardware.
//
// VEL_ASSERT(cond) prints the condition, the implementation file, the line and the function's
// signature, then aborts. The file is the one a file names for itself with
//   namespace { constexpr char const* velSourceFile = "NoxEvpnVlanFloodSetFilterSm"; }
// (inside the namespace its code lives in), so that messages name the unit as the project does;
// files that name nothing report their own path.

// Default for files that do not name themselves; a velSourceFile declared in the file's own
// namespace (not the global one) shadows it.
inline constexpr char const* velSourceFile = nullptr;

namespace Vel {

[[noreturn]] void assertionFailed(char const* condition, char const* file, int line,
                                  char const* function);

}  // namespace Vel

#define VEL_ASSERT(cond)                                                                      \
  ((cond) ? static_cast<void>(0)                                                              \
          : ::Vel::assertionFailed(#cond, velSourceFile ? velSourceFile : __FILE__, __LINE__, \
                                   __PRETTY_FUNCTION__))
