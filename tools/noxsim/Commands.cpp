// The command table: every family of commands, and lookup by leading words.

#include "tools/noxsim/Commands.h"

#include <unordered_map>

namespace Noxsim {

namespace {

constexpr std::size_t maxCommandWords = 3;

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

using CommandIndex = std::unordered_map<std::string, CommandEntry, TextHash, std::equal_to<>>;

CommandIndex const& commandIndex() {
  static CommandIndex const index = [] {
    CommandIndex built;
    for (CommandEntry& entry : commandTable()) {
      std::string key(entry.words);
      built.emplace(std::move(key), std::move(entry));
    }
    return built;
  }();
  return index;
}

}  // namespace

CommandEntry const* findCommand(std::span<std::string_view const> words,
                                std::size_t& commandWords) {
  auto const& index = commandIndex();
  thread_local std::string key;
  for (std::size_t n = std::min(words.size(), maxCommandWords); n > 0; --n) {
    key.clear();
    for (std::size_t i = 0; i < n; ++i) {
      if (i) key += ' ';
      key += words[i];
    }
    auto const it = index.find(std::string_view(key));
    if (it != index.end()) {
      commandWords = n;
      return &it->second;
    }
  }
  return nullptr;
}

}  // namespace Noxsim
