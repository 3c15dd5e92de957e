#pragma once

// Decoded Fleck messages in forms other tools read:
// - the trace-event JSON that trace viewers open (one instant event per message; the event's
//   name is the traced function for entry traces and the message's format otherwise, its
//   category the facility and the source file's stem, which names the machine; the typed
//   arguments, the message, the file and line and the level go in args);
// - one JSON object a line, for scripts.

#include <string>

#include "platform/trace/FleckReader.h"

namespace Fleck {

std::string traceEventJson(Decoded const& decoded);
std::string jsonLines(Decoded const& decoded);

}  // namespace Fleck
