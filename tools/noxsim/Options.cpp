// Command-line options of noxsim.

#include "tools/noxsim/Options.h"

#include <string_view>

#include "platform/kelp/Segment.h"
#include "tools/noxsim/Lexer.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

std::string usage() {
  return "usage: noxsim [--trace LEVEL] [--shm PREFIX [--shm-group] [--keep-shm]] "
         "[--metrics FILE] [--quiet] FILE...\n"
         "Runs noxsim scenario files ('-' reads standard input) against the library's machines.\n"
         "  --trace LEVEL  print library traces up to LEVEL (0-9, or off) to standard error\n"
         "  --quiet        print no `show` output (checks still run)\n"
         "  --shm PREFIX   publish the shared tables in POSIX shared memory as /PREFIX.NAME\n"
         "                 (PREFIX: letters, digits, '.', '_', '-'), readable with kelpcat\n"
         "  --shm-group    let the owner's group read the published tables (default: owner only)\n"
         "  --keep-shm     leave the published tables behind when stopped by SIGINT or SIGTERM\n"
         "  --metrics FILE write the counters to FILE at the end of the run, in the Prometheus\n"
         "                 text format (FILE is created owner-only; a symbolic link is refused)\n"
         "  --help         print this and exit\n"
         "Exit status: 0 every expect held, 1 an expect or the run failed, 2 a malformed\n"
         "scenario or command line, 134 a library assertion.\n";
}

Options parseOptions(int argc, char const* const* argv, std::string& error) {
  Options options;
  error.clear();
  for (int i = 1; i < argc; ++i) {
    std::string_view const arg = argv[i];
    bool const hasValue = i + 1 < argc;
    if (arg == "--help" || arg == "-h") {
      options.help = true;
      return options;
    } else if (arg == "--quiet") {
      options.quiet = true;
    } else if (arg == "--shm-group") {
      options.shmGroup = true;
    } else if (arg == "--keep-shm") {
      options.keepShm = true;
    } else if (arg == "--trace" && hasValue) {
      auto const level = parseTraceLevel(argv[++i]);
      if (!level) error = cat("--trace: bad level '", argv[i], "' (0-9 or off)");
      options.traceLevel = level.value_or(-1);
    } else if (arg == "--metrics" && hasValue) {
      options.metricsFile = argv[++i];
      if (options.metricsFile.empty()) error = "--metrics: empty file name";
    } else if (arg == "--shm" && hasValue) {
      options.shmPrefix = argv[++i];
      if (!Kelp::validTableName(options.shmPrefix)) {
        error = cat("--shm: bad prefix '", options.shmPrefix,
                    "' (letters, digits, '.', '_', '-'; not empty, no '..')");
      }
    } else if (arg.size() > 1 && arg.front() == '-') {
      error = cat("unknown option or missing value: ", arg);
    } else {
      options.files.emplace_back(arg);
    }
    if (!error.empty()) return options;
  }
  if (options.files.empty()) error = "no scenario file given";
  if (options.shmPrefix.empty() && (options.shmGroup || options.keepShm)) {
    error = "--shm-group and --keep-shm need --shm";
  }
  return options;
}

}  // namespace Noxsim
