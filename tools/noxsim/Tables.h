#pragma once

// The table registry behind `show TABLE` and `expect TABLE`. A table is a printer registered by
// name ("floodset", "hwconfig", later "fec floodset") that writes one line per entry; header lines
// (the flood-set tables' `source N`) come first, entries are sorted as text, unless the table
// keeps its own order (`calls`). Families of tables live in files of their own, each with one
// function listing its entries; tableRegistry() (Tables.cpp) joins them.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Noxsim {

class Sim;

struct TableLines {
  std::vector<std::string> header;
  std::vector<std::string> entries;
};

struct TableEntry {
  std::string_view name;
  std::function<void(Sim&, TableLines&)> print;
  bool sorted = true;
};

// The table registered under `name` (words joined by one blank), or null.
TableEntry const* findTable(std::string_view name);
// Every registered table name, for messages.
std::string tableNames();
// What `show` prints for the table: header lines, then entries (sorted unless the table keeps
// its own order).
std::vector<std::string> tableText(Sim& sim, TableEntry const& table);

std::vector<TableEntry> floodSetTables();
std::vector<TableEntry> agentTables();
std::vector<TableEntry> tunnelTables();
std::vector<TableEntry> esiTables();
std::vector<TableEntry> decapTables();
std::vector<TableEntry> macFecTables();
std::vector<TableEntry> dot1qTables();
std::vector<TableEntry> pendingTables();

}  // namespace Noxsim
