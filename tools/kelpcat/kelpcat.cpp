// kelpcat: reads Kelp shared-memory tables from outside the process that writes them.
//
//   kelpcat --list PREFIX                  the tables under PREFIX: name, record types, count,
//                                          readiness and writer
//   kelpcat TABLE                          every entry of TABLE in key order, "KEY -> VALUE"
//   kelpcat --follow [--count N] TABLE     each change as it happens, "KEY -> VALUE" or
//                                          "KEY deleted", until interrupted or N changes
//
// Records print in the text form their type registered (hex for unknown types). Lines starting
// with '#' are remarks (start of a follow, readiness and writer changes, resynchronisations).
// Exit status: 0 on success, 1 when a table is missing or corrupt, 2 for bad arguments.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "platform/kelp/RecordReader.h"
#include "platform/kelp/Segment.h"
#include "platform/kelp/TableList.h"

namespace {

constexpr char const* usageText =
    "usage: kelpcat --list PREFIX\n"
    "       kelpcat TABLE\n"
    "       kelpcat --follow [--count N] TABLE\n"
    "       kelpcat --help\n"
    "Reads the Kelp shared-memory tables that another process publishes. PREFIX and TABLE are\n"
    "names of letters, digits, '.', '_' and '-' (a table is PREFIX.name).\n"
    "Exit status: 0 success, 1 a table missing, busy or corrupt, 2 bad arguments.\n";

int usage(std::string const& problem) {
  std::cerr << "kelpcat: " << problem << "\n" << usageText;
  return 2;
}

// Names are checked before anything is opened, so that a bad one is a usage error, not a missing
// table.
bool badName(std::string const& name) { return !Kelp::validTableName(name); }

std::string writerText(Kelp::Status const& s) {
  if (!s.writerAttached) return std::to_string(s.writerPid) + " (closed)";
  return std::to_string(s.writerPid) + (s.writerAlive ? " (alive)" : " (dead)");
}

int list(std::string const& prefix) {
  std::cout << "NAME\tKEY\tVALUE\tCOUNT\tREADY\tWRITER\n";
  for (std::string const& name : Kelp::tableNames(prefix)) {
    Kelp::TableInfo const info = Kelp::inspectTable(name);
    if (!info.error.empty()) {
      std::cout << name << "\t(unreadable: " << info.error << ")\n";
      continue;
    }
    std::cout << name << '\t' << info.shape.keyType << '\t' << info.shape.valueType << '\t'
              << info.status.count << '\t' << (info.status.ready ? "yes" : "no") << '\t'
              << writerText(info.status) << '\n';
  }
  return 0;
}

int dump(std::string const& table) {
  Kelp::RecordReader reader(table);
  reader.forEach([&reader](std::string const& key, std::string const& value) {
    std::cout << reader.keyText(key) << " -> " << reader.valueText(value) << '\n';
  });
  return 0;
}

int follow(std::string const& table, long long limit) {
  Kelp::RecordReader reader(table);
  std::cout << "# following " << table << ", " << reader.count() << " entries" << std::endl;
  long long changes = 0;
  auto const onEvent = [&](Kelp::RecordReader::Event const& e) {
    using Kind = Kelp::RecordReader::Event::Kind;
    if (limit >= 0 && changes >= limit) return;
    switch (e.kind) {
      case Kind::write: {
        auto const value = reader.value(e.key);
        std::cout << reader.keyText(e.key) << " -> "
                  << (value ? reader.valueText(*value) : std::string("(gone)")) << '\n';
        ++changes;
        break;
      }
      case Kind::remove:
        std::cout << reader.keyText(e.key) << " deleted\n";
        ++changes;
        break;
      case Kind::collection:
        std::cout << "# whole table changed, " << reader.count() << " entries\n";
        break;
      case Kind::status: {
        Kelp::Status const s = reader.status();
        std::cout << "# ready " << (s.ready ? "yes" : "no") << ", writer " << writerText(s) << '\n';
        break;
      }
    }
    std::cout.flush();
  };
  while (limit < 0 || changes < limit) {
    reader.poll(onEvent);
    if (limit < 0 || changes < limit) reader.waitForChange(std::chrono::milliseconds(100));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> const args(argv + 1, argv + argc);
  try {
    if (args.empty()) return usage("no table given");
    if (args[0] == "--help" || args[0] == "-h") {
      std::cout << usageText;
      return 0;
    }
    if (args[0] == "--list") {
      if (args.size() != 2) return usage("--list takes one PREFIX");
      if (badName(args[1])) return usage("bad prefix '" + args[1] + "'");
      return list(args[1]);
    }
    if (args[0] == "--follow") {
      long long limit = -1;
      std::size_t i = 1;
      if (args.size() > i && args[i] == "--count") {
        if (args.size() < i + 2) return usage("--count takes a number");
        char* end = nullptr;
        limit = std::strtoll(args[i + 1].c_str(), &end, 10);
        if (*end != '\0' || limit < 0) return usage("bad --count: " + args[i + 1]);
        i += 2;
      }
      if (args.size() != i + 1) return usage("--follow takes one TABLE");
      if (badName(args[i])) return usage("bad table name '" + args[i] + "'");
      return follow(args[i], limit);
    }
    if (args[0].starts_with("-")) return usage("unknown option " + args[0]);
    if (args.size() != 1) return usage("one TABLE at a time");
    if (badName(args[0])) return usage("bad table name '" + args[0] + "'");
    return dump(args[0]);
  } catch (std::exception const& e) {
    std::cerr << "kelpcat: " << e.what() << '\n';
    return 1;
  }
}
