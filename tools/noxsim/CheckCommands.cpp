// Showing and checking: `show TABLE`, `expect TABLE ... end`, `expect trace ... end` and
// `expect error TEXT`.

#include <algorithm>
#include <ostream>

#include "tools/noxsim/Commands.h"
#include "tools/noxsim/Diff.h"
#include "tools/noxsim/Sim.h"
#include "tools/noxsim/Tables.h"
#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

TableEntry const* tableArg(Args& a) {
  if (!a.countIs(1, 3)) return nullptr;
  std::string name;
  for (std::string_view w : a.positional()) name += cat(name.empty() ? "" : " ", w);
  TableEntry const* table = findTable(name);
  if (!table) a.fail(cat("unknown table '", name, "' (tables: ", tableNames(), ")"));
  return table;
}

Action parseShow(ParseInput& in) {
  TableEntry const* table = tableArg(in.args);
  if (!table) return {};
  return [table](Sim& sim) {
    std::vector<std::string> const lines = tableText(sim, *table);
    if (sim.quiet()) return;
    for (std::string const& line : lines) sim.out() << line << '\n';
  };
}

Action parseExpectTable(ParseInput& in) {
  TableEntry const* table = tableArg(in.args);
  if (!table) return {};
  std::vector<std::string> expected;
  for (BlockLine const& line : in.block) {
    std::string_view const text = trimBlanks(stripComment(line.text));
    if (!text.empty()) expected.emplace_back(text);
  }
  return [table, expected = std::move(expected)](Sim& sim) {
    std::vector<std::string> const actual = tableText(sim, *table);
    if (actual == expected) return;
    std::string message = cat("expect ", table->name, ": the table differs");
    auto sortedExpected = expected;
    std::sort(sortedExpected.begin(), sortedExpected.end());
    auto sortedActual = actual;
    std::sort(sortedActual.begin(), sortedActual.end());
    if (table->sorted && sortedExpected == sortedActual) {
      message += " only in order (write the lines in the order `show` prints them)";
    }
    sim.fail(cat(message, "\n", unifiedDiff(expected, actual, "expected", "actual")));
  };
}

// Each expected message is written after a `|`, which marks where the message starts.
Action parseExpectTrace(ParseInput& in) {
  if (!in.args.countIs(0)) return {};
  std::vector<std::string> expected;
  for (BlockLine const& line : in.block) {
    std::string_view const text = trimBlanks(line.text);
    if (text.empty() || text.front() == '#') continue;
    auto const bar = line.text.find('|');
    if (bar == std::string::npos) {
      in.errorLine = line.line;
      in.args.fail("a message is written after a '|' that marks where it starts");
      return {};
    }
    std::string message = line.text.substr(bar + 1);
    if (!message.empty() && message.back() == '\r') message.pop_back();
    expected.push_back(std::move(message));
  }
  return [expected = std::move(expected)](Sim& sim) {
    std::vector<std::string> const traced = sim.traceTap().take();
    std::size_t next = 0;
    for (std::string const& message : traced) {
      if (next < expected.size() && message == expected[next]) ++next;
    }
    if (next == expected.size()) return;
    auto marked = [](std::vector<std::string> const& lines) {
      std::vector<std::string> out;
      out.reserve(lines.size());
      for (std::string const& line : lines) out.push_back(cat("|", line));
      return out;
    };
    sim.fail(cat("expect trace: message ", next + 1, " of ", expected.size(),
                 " was not traced in this order: |", expected[next], "\n",
                 unifiedDiff(marked(expected), marked(traced), "expected", "traced")));
  };
}

Action parseExpectError(ParseInput& in) {
  std::string text(in.rest);
  return [text](Sim& sim) {
    auto const& error = sim.pendingError();
    if (!error) return sim.fail("expect error: the previous command raised no error");
    if (error->find(text) == std::string::npos) {
      sim.fail(cat("expect error: '", text, "' is not in the error: ", *error));
    }
    sim.pendingErrorIs(std::nullopt);
  };
}

}  // namespace

std::vector<CommandEntry> checkCommands() {
  return {
      {.words = "show", .parse = parseShow},
      {.words = "expect", .parse = parseExpectTable, .takesBlock = true},
      {.words = "expect trace", .parse = parseExpectTrace, .takesBlock = true},
      {.words = "expect error", .parse = parseExpectError, .takesText = true, .checksError = true},
  };
}

}  // namespace Noxsim
