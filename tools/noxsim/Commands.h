#pragma once

// The command registry. A command is registered by its first word(s) ("l2rib floodset add",
// "start", "expect trace") with a parser that reads its words (and, for block commands, the
// lines up to `end`) and returns what to do when it runs. Families of commands live in files of
// their own, each with one function listing its entries; commandTable() (Commands.cpp)
// joins the families. Lookup takes the longest registered prefix of the line's words.

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/noxsim/Action.h"
#include "tools/noxsim/Args.h"

namespace Noxsim {

class Sim;

// One line of a block (the lines between a block command and its `end`).
struct BlockLine {
  uint32_t line;
  std::string text;  // as written, end of line removed
};

struct ParseInput {
  Args& args;
  // For a command that takes text, the rest of the line after its words: comment removed,
  // outer blanks trimmed. Empty for the others.
  std::string_view rest;
  std::span<BlockLine const> block;  // empty unless the command takes a block
  // Set by a parser whose error is on a line of the block rather than the command's own.
  uint32_t errorLine = 0;
};

struct CommandEntry {
  std::string_view words;
  std::function<Action(ParseInput&)> parse;
  bool takesBlock = false;
  // The command reads the rest of its line as text (ParseInput::rest), not as words.
  bool takesText = false;
  // `expect error`: the runner lets it follow a command that raised the range error.
  bool checksError = false;
};

// The registered command whose words are the longest prefix of `words`, or null.
CommandEntry const* findCommand(std::span<std::string_view const> words, std::size_t& commandWords);

std::vector<CommandEntry> floodSetCommands();
std::vector<CommandEntry> agentCommands();
std::vector<CommandEntry> checkCommands();
std::vector<CommandEntry> tunnelCommands();
std::vector<CommandEntry> evpnCommands();
std::vector<CommandEntry> decapCommands();
std::vector<CommandEntry> macFecCommands();
std::vector<CommandEntry> dot1qCommands();
std::vector<CommandEntry> verifyCommands();

}  // namespace Noxsim
