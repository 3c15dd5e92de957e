// A program for the trace tests: prints the levels that its environment gave the facilities
// named on its command line, then traces at levels 3 and 4 of facility TraceProbe.

#include <cstdio>

#include "platform/trace/Trace.h"

NOX_TRACE_FACILITY("TraceProbe");

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::printf("%s text=%d fleck=%d\n", argv[i], Trace::level(argv[i]), Fleck::level(argv[i]));
  }
  NOX_TRACE(3, "   probe level {} ", 3);
  NOX_TRACE(4, "   probe level {} ", 4);
  return 0;
}
