// The printed line of a trace record.

#include "platform/trace/Record.h"

#include "platform/trace/Clock.h"

namespace Trace {

std::string lineText(Record const& record, int fractionDigits) {
  std::string line = timeText(record.wallNs, fractionDigits);
  line += ' ';
  line += record.facility;
  line += '/';
  line += std::to_string(record.level);
  line += ' ';
  line += record.file;
  line += ':';
  line += std::to_string(record.line);
  line += ' ';
  line += record.text;
  return line;
}

}  // namespace Trace
