// Command-line options of noxsim.

#include "tools/noxsim/Options.h"

#include <string_view>

#include "tools/noxsim/Lexer.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

std::string usage() {
  return "usage: noxsim [--trace LEVEL] [--shm PREFIX] [--quiet] FILE...   ('-' reads standard "
         "input)\n";
}

Options parseOptions(int argc, char const* const* argv, std::string& error) {
  Options options;
  error.clear();
  for (int i = 1; i < argc; ++i) {
    std::string_view const arg = argv[i];
    bool const hasValue = i + 1 < argc;
    if (arg == "--quiet") {
      options.quiet = true;
    } else if (arg == "--trace" && hasValue) {
      auto const level = parseTraceLevel(argv[++i]);
      if (!level) error = cat("--trace: bad level '", argv[i], "' (0-9 or off)");
      options.traceLevel = level.value_or(-1);
    } else if (arg == "--shm" && hasValue) {
      options.shmPrefix = argv[++i];
    } else if (arg.size() > 1 && arg.front() == '-') {
      error = cat("unknown option or missing value: ", arg);
    } else {
      options.files.emplace_back(arg);
    }
    if (!error.empty()) return options;
  }
  if (options.files.empty()) error = "no scenario file given";
  return options;
}

}  // namespace Noxsim
