// A second facility for the trace tests, in a file that names itself the way assertions do.

#include "tests/platform/trace/TraceOtherFacility.h"

#include "platform/trace/Trace.h"

namespace Kelp {

NOX_TRACE_FACILITY("TraceTestOther");

namespace {
constexpr char const* velSourceFile = "TraceOtherUnit";
}

int traceInOtherFacility(int value) {
  NOX_TRACE(1, " other facility {}", value);
  return __LINE__ - 1;
}

}  // namespace Kelp
