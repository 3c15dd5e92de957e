// The table registry: every family of tables, and rendering in `show` order.

#include "tools/noxsim/Tables.h"

#include <algorithm>

#include "tools/noxsim/Text.h"

namespace Noxsim {

namespace {

std::vector<TableEntry> const& tableRegistry() {
  static std::vector<TableEntry> const table = [] {
    std::vector<std::vector<TableEntry>> const families = {
        floodSetTables(), agentTables(),  tunnelTables(), esiTables(),
        decapTables(),    macFecTables(), dot1qTables(),  pendingTables(),
    };
    std::vector<TableEntry> joined;
    for (auto const& family : families) joined.insert(joined.end(), family.begin(), family.end());
    return joined;
  }();
  return table;
}

}  // namespace

TableEntry const* findTable(std::string_view name) {
  for (TableEntry const& entry : tableRegistry()) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

std::string tableNames() {
  std::vector<std::string_view> names;
  for (TableEntry const& entry : tableRegistry()) names.push_back(entry.name);
  std::sort(names.begin(), names.end());
  std::string text;
  for (std::string_view name : names) text += cat(text.empty() ? "" : ", ", name);
  return text;
}

std::vector<std::string> tableText(Sim& sim, TableEntry const& table) {
  TableLines lines;
  table.print(sim, lines);
  if (table.sorted) std::sort(lines.entries.begin(), lines.entries.end());
  std::vector<std::string> text = std::move(lines.header);
  text.insert(text.end(), std::make_move_iterator(lines.entries.begin()),
              std::make_move_iterator(lines.entries.end()));
  return text;
}

}  // namespace Noxsim
