#pragma once

// A call site in the facility "TraceTestOther", declared inside a namespace of the platform.

namespace Kelp {

// Traces " other facility VALUE" at level 1; returns the line of the trace.
int traceInOtherFacility(int value);

}  // namespace Kelp
