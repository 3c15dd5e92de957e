#pragma once

// Tables by name: the names of the tables under a prefix, and what a table's segment says about
// itself, read without registering as a reader (for listings).
//
// A table "PREFIX.name" lives in the shared-memory object "/PREFIX.name"; on Linux these are the
// files of /dev/shm, which is where the listing looks.

#include <string>
#include <vector>

#include "platform/kelp/Status.h"
#include "platform/kelp/TableCore.h"

namespace Kelp {

struct TableInfo {
  std::string name;
  RecordShape shape;
  Status status;
  std::string error;  // set when the table could not be read; the other fields are then empty
};

std::string tableName(std::string const& prefix, std::string const& name);
// Names of the tables under `prefix`, in ascending order.
std::vector<std::string> tableNames(std::string const& prefix);
TableInfo inspectTable(std::string const& name);
// Removes the name of a table (the memory lives on while mapped); for tools and test cleanup.
bool unlinkTable(std::string const& name);

}  // namespace Kelp
