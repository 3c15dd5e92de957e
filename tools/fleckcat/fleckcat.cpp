// fleckcat [--format text|chrome|json] FILE: prints the messages of a Fleck buffer, oldest
// first, one line each (TIME FACILITY/LEVEL FILE:LINE MESSAGE), or as trace-event JSON for a
// trace viewer, or as one JSON object a line.
// Records that do not decode (torn by a crash of the writer) are left out and counted on
// standard error. Exit status: 0, or 1 with "FILE: reason" when FILE is not a readable Fleck
// buffer, 2 on a usage error.

#include <cstdio>
#include <string>

#include "platform/trace/FleckExport.h"
#include "platform/trace/FleckReader.h"

namespace {
constexpr char const* usageText =
    "usage: fleckcat [--format text|chrome|json] FILE\n"
    "       fleckcat --help\n"
    "Prints the messages of a Fleck trace buffer, oldest first.\n"
    "  text    one a line: TIME FACILITY/LEVEL FILE:LINE MESSAGE (the default)\n"
    "  chrome  trace-event JSON, for the Perfetto UI or chrome://tracing\n"
    "  json    one JSON object a line\n"
    "Exit status: 0, 1 when FILE is not a readable Fleck buffer, 2 on a usage error.\n";

enum class Format { text, chrome, json };

bool parseFormat(std::string const& name, Format& format) {
  if (name == "text")
    format = Format::text;
  else if (name == "chrome")
    format = Format::chrome;
  else if (name == "json")
    format = Format::json;
  else
    return false;
  return true;
}

std::string rendered(Fleck::Decoded const& decoded, Format format) {
  if (format == Format::chrome) return Fleck::traceEventJson(decoded);
  if (format == Format::json) return Fleck::jsonLines(decoded);
  std::string out;
  for (auto const& m : decoded.messages) {
    out += Fleck::messageLine(m);
    out += '\n';
  }
  return out;
}

int usageError() {
  std::fputs(usageText, stderr);
  return 2;
}
}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
    std::fputs(usageText, stdout);
    return 0;
  }
  Format format = Format::text;
  int at = 1;
  if (at < argc && std::string(argv[at]) == "--format") {
    if (at + 1 >= argc || !parseFormat(argv[at + 1], format)) return usageError();
    at += 2;
  }
  if (argc - at != 1 || argv[at][0] == '-') return usageError();
  std::string const path = argv[at];
  Fleck::Decoded decoded;
  std::string error;
  if (!Fleck::decodeFile(path, decoded, error)) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
    return 1;
  }
  std::string const out = rendered(decoded, format);
  std::fwrite(out.data(), 1, out.size(), stdout);
  if (decoded.skippedRecords > 0) {
    std::fprintf(stderr, "%s: %zu record(s) skipped, not decodable\n", path.c_str(),
                 decoded.skippedRecords);
  }
  if (decoded.droppedRecords > 0) {
    std::fprintf(stderr, "%s: %llu record(s) dropped by the writer\n", path.c_str(),
                 static_cast<unsigned long long>(decoded.droppedRecords));
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
