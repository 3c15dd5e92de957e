// Listing and inspecting tables by name; see TableList.h.

#include "platform/kelp/TableList.h"

#include <dirent.h>
#include <sys/mman.h>

#include <algorithm>
#include <exception>

#include "platform/kelp/Segment.h"

namespace Kelp {

namespace {
constexpr char const* shmDirectory = "/dev/shm";
}

std::string tableName(std::string const& prefix, std::string const& name) {
  return prefix + "." + name;
}

std::vector<std::string> tableNames(std::string const& prefix) {
  std::vector<std::string> names;
  std::string const start = prefix + ".";
  DIR* dir = ::opendir(shmDirectory);
  if (!dir) return names;
  while (dirent const* e = ::readdir(dir)) {
    std::string const name = e->d_name;
    if (name.size() > start.size() && name.compare(0, start.size(), start) == 0) {
      names.push_back(name);
    }
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

TableInfo inspectTable(std::string const& name) {
  TableInfo info;
  info.name = name;
  try {
    Options options;
    options.registerReader = false;
    TableCore core(name, Mode::reader, RecordShape{}, options);
    info.shape = core.shape();
    info.status = core.status();
  } catch (std::exception const& e) {
    info.error = e.what();
  }
  return info;
}

bool unlinkTable(std::string const& name) { return ::shm_unlink(segmentPath(name).c_str()) == 0; }

}  // namespace Kelp
