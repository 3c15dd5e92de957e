// The text side of a trace call: formatting and handing the record to the sinks.

#include "platform/trace/Trace.h"

namespace Trace {

void emitText(Site const& site, ArgText const* args, std::size_t count) {
  std::string const text = formatText(site.format(), args, count);
  emit({site.facility()->name(), site.level(), text, site.file(), site.line(), wallClockNs()});
}

}  // namespace Trace
