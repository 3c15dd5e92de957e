// fleckcat FILE: prints the messages of a Fleck buffer, oldest first, one line each:
//     TIME FACILITY/LEVEL FILE:LINE MESSAGE
// Records that do not decode (torn by a crash of the writer) are left out and counted on
// standard error. Exit status: 0, or 1 with "FILE: reason" when FILE is not a readable Fleck
// buffer, 2 on a usage error.

#include <cstdio>
#include <string>

#include "platform/trace/FleckReader.h"

namespace {
constexpr char const* usageText =
    "usage: fleckcat FILE\n"
    "       fleckcat --help\n"
    "Prints the messages of a Fleck trace buffer, oldest first, one a line:\n"
    "TIME FACILITY/LEVEL FILE:LINE MESSAGE. Exit status: 0, 1 when FILE is not a readable\n"
    "Fleck buffer, 2 on a usage error.\n";
}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
    std::fputs(usageText, stdout);
    return 0;
  }
  if (argc != 2 || argv[1][0] == '-') {
    std::fputs(usageText, stderr);
    return 2;
  }
  std::string const path = argv[1];
  Fleck::Decoded decoded;
  std::string error;
  if (!Fleck::decodeFile(path, decoded, error)) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
    return 1;
  }
  for (auto const& m : decoded.messages) {
    std::string line = Fleck::messageLine(m);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
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
