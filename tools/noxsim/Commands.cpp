// The command table: every family of commands, and lookup by leading words.

#include "tools/noxsim/Commands.h"

#include <algorithm>
#include <unordered_map>

namespace Noxsim {

namespace {

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
};

std::vector<CommandEntry> commandTable() {
  std::vector<std::vector<CommandEntry>> const families = {
      floodSetCommands(), agentCommands(), checkCommands(),  tunnelCommands(),
      evpnCommands(),     decapCommands(), macFecCommands(), dot1qCommands(),
      verifyCommands(),  // every machine against a fresh build of it
  };
  std::vector<CommandEntry> table;
  for (auto const& family : families) table.insert(table.end(), family.begin(), family.end());
  return table;
}

// A registered command with its words apart, for matching against a line's.
struct IndexedCommand {
  std::vector<std::string_view> words;
  CommandEntry entry;
};

// Commands by their first word, longest first within each, so that the first whose words
// all match the line's is the longest registered prefix. A first word has at most a dozen
// commands: matching them word by word costs less than joining the line's words into keys.
using CommandIndex =
    std::unordered_map<std::string, std::vector<IndexedCommand>, TextHash, std::equal_to<>>;

CommandIndex const& commandIndex() {
  static CommandIndex const index = [] {
    CommandIndex built;
    std::vector<std::string_view> words;
    for (CommandEntry& entry : commandTable()) {
      splitWords(entry.words, words);
      built[std::string(words.front())].push_back({words, std::move(entry)});
    }
    for (auto& [first, commands] : built) {
      std::stable_sort(commands.begin(), commands.end(), [](auto const& a, auto const& b) {
        return a.words.size() > b.words.size();
      });
    }
    return built;
  }();
  return index;
}

bool startsWith(std::span<std::string_view const> line,
                std::vector<std::string_view> const& words) {
  return line.size() >= words.size() && std::equal(words.begin(), words.end(), line.begin());
}

}  // namespace

CommandEntry const* findCommand(std::span<std::string_view const> words,
                                std::size_t& commandWords) {
  if (words.empty()) return nullptr;
  auto const& index = commandIndex();
  auto const it = index.find(words.front());
  if (it == index.end()) return nullptr;
  for (IndexedCommand const& command : it->second) {
    if (!startsWith(words, command.words)) continue;
    commandWords = command.words.size();
    return &command.entry;
  }
  return nullptr;
}

}  // namespace Noxsim
