#pragma once

// Where text-trace records go. Sinks are kept in one process-wide list; every enabled trace goes
// to each of them in turn, under one lock, so a sink sees whole records in order and must not
// trace itself. At start-up the list holds the standard-error sink, or a file sink when
// NOX_TRACE_FILE names a file.

#include "platform/trace/Record.h"
#include "platform/vel/Ptr.h"

namespace Trace {

class Sink : public Vel::PtrInterface {
 public:
  virtual void write(Record const& record) = 0;
};

using SinkPtr = Vel::Ptr<Sink>;

void sinkAdd(SinkPtr const& sink);
void sinkDel(SinkPtr const& sink);
void sinkDelAll();
// The standard-error sink of the start-up list, to put back after a test replaced it.
SinkPtr stderrSink();

// Hands a record to every sink; a record nobody will read is never formatted (see hasSinks).
void emit(Record const& record);
bool hasSinks();

}  // namespace Trace
