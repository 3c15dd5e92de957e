#include "platform/vel/MemberPtr.h"

#if NOX_CHECKED_COLLECTIONS

#include <cstdio>
#include <cstdlib>

namespace Vel {

namespace {

[[noreturn]] void abortWith(char const* what) {
  std::fprintf(stderr, "%s\n", what);
  std::fflush(stderr);
  std::abort();
}

}  // namespace

void staleMemberPointer() { abortWith("Vel: member pointer used after its collection changed"); }

void staleIterator() { abortWith("Vel: iterator used after its collection changed"); }

}  // namespace Vel

#endif
