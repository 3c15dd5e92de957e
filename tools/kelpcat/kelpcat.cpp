// kelpcat: reads Kelp shared-memory tables from outside the process that writes them.
//
//   kelpcat --list PREFIX                  the tables under PREFIX: name, record types, count,
//                                          readiness and writer
//   kelpcat TABLE                          every entry of TABLE in key order, "KEY -> VALUE"
//   kelpcat --follow [--count N] TABLE     each change as it happens, "KEY -> VALUE" or
//                                          "KEY deleted", until interrupted or N changes
//   kelpcat --metrics PREFIX               the tables' state in the Prometheus text format
//
// With --format json (before the rest) every line is one JSON object instead.
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
#include "platform/trace/JsonText.h"

namespace {

constexpr char const* usageText =
    "usage: kelpcat [--format text|json] --list PREFIX\n"
    "       kelpcat [--format text|json] TABLE\n"
    "       kelpcat [--format text|json] --follow [--count N] TABLE\n"
    "       kelpcat --metrics PREFIX\n"
    "       kelpcat --help\n"
    "Reads the Kelp shared-memory tables that another process publishes. PREFIX and TABLE are\n"
    "names of letters, digits, '.', '_' and '-' (a table is PREFIX.name). --format json prints\n"
    "one JSON object a line; --metrics prints each table's entries, readiness, writer, readers,\n"
    "growths and corruption reports for a Prometheus scrape.\n"
    "Exit status: 0 success, 1 a table missing, busy or corrupt, 2 bad arguments.\n";

bool json = false;  // --format json

std::string q(std::string_view text) { return Trace::jsonString(text); }

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

std::string statusJson(Kelp::Status const& s) {
  return "\"count\":" + std::to_string(s.count) + ",\"ready\":" + (s.ready ? "true" : "false") +
         ",\"writer_pid\":" + std::to_string(s.writerPid) +
         ",\"writer_attached\":" + (s.writerAttached ? "true" : "false") +
         ",\"writer_alive\":" + (s.writerAlive ? "true" : "false") +
         ",\"readers\":" + std::to_string(s.readersAttached) +
         ",\"generation\":" + std::to_string(s.generation) +
         ",\"corruption_reports\":" + std::to_string(s.corruptionReports);
}

void listJson(std::string const& name, Kelp::TableInfo const& info) {
  std::cout << "{\"table\":" << q(name);
  if (!info.error.empty()) {
    std::cout << ",\"error\":" << q(info.error) << "}\n";
    return;
  }
  std::cout << ",\"key_type\":" << q(info.shape.keyType)
            << ",\"value_type\":" << q(info.shape.valueType) << ',' << statusJson(info.status)
            << "}\n";
}

int list(std::string const& prefix) {
  if (!json) std::cout << "NAME\tKEY\tVALUE\tCOUNT\tREADY\tWRITER\n";
  for (std::string const& name : Kelp::tableNames(prefix)) {
    Kelp::TableInfo const info = Kelp::inspectTable(name);
    if (json) {
      listJson(name, info);
      continue;
    }
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

void printEntry(Kelp::RecordReader const& reader, std::string const& key,
                std::string const& value) {
  if (json) {
    std::cout << "{\"key\":" << q(reader.keyText(key))
              << ",\"value\":" << q(reader.valueText(value)) << "}\n";
  } else {
    std::cout << reader.keyText(key) << " -> " << reader.valueText(value) << '\n';
  }
}

int dump(std::string const& table) {
  Kelp::RecordReader reader(table);
  reader.forEach([&reader](std::string const& key, std::string const& value) {
    printEntry(reader, key, value);
  });
  return 0;
}

// Label values of the exposition format escape backslash, quote and newline.
std::string labelValue(std::string_view text) {
  std::string out;
  for (char const c : text) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out;
}

int metrics(std::string const& prefix) {
  struct Family {
    char const* name;
    char const* type;
    char const* help;
    std::uint64_t (*value)(Kelp::Status const&);
  };
  static Family const families[] = {
      {"kelp_table_entries", "gauge", "entries as the writer last published them",
       [](Kelp::Status const& s) -> std::uint64_t { return s.count; }},
      {"kelp_table_ready", "gauge", "1 when the writer has published its initial contents",
       [](Kelp::Status const& s) -> std::uint64_t { return s.ready; }},
      {"kelp_table_writer_alive", "gauge", "1 while the writer has the table open and runs",
       [](Kelp::Status const& s) -> std::uint64_t { return s.writerAttached && s.writerAlive; }},
      {"kelp_table_readers", "gauge", "live reader processes attached",
       [](Kelp::Status const& s) -> std::uint64_t { return s.readersAttached; }},
      {"kelp_table_growths_total", "counter", "growths of the segment",
       [](Kelp::Status const& s) -> std::uint64_t { return s.generation; }},
      {"kelp_table_corruption_reports_total", "counter", "corruption reports on any side",
       [](Kelp::Status const& s) -> std::uint64_t { return s.corruptionReports; }},
  };
  std::vector<std::pair<std::string, Kelp::TableInfo>> tables;
  for (std::string const& name : Kelp::tableNames(prefix))
    tables.emplace_back(name, Kelp::inspectTable(name));
  for (Family const& f : families) {
    std::cout << "# HELP " << f.name << ' ' << f.help << "\n# TYPE " << f.name << ' ' << f.type
              << '\n';
    for (auto const& [name, info] : tables) {
      if (info.error.empty()) {
        std::cout << f.name << "{table=\"" << labelValue(name) << "\"} " << f.value(info.status)
                  << '\n';
      }
    }
  }
  std::cout << "# HELP kelp_table_unreadable 1 for a table that could not be inspected\n"
               "# TYPE kelp_table_unreadable gauge\n";
  for (auto const& [name, info] : tables) {
    std::cout << "kelp_table_unreadable{table=\"" << labelValue(name) << "\"} "
              << (info.error.empty() ? 0 : 1) << '\n';
  }
  return 0;
}

int follow(std::string const& table, long long limit) {
  Kelp::RecordReader reader(table);
  if (json) {
    std::cout << "{\"event\":\"following\",\"table\":" << q(table)
              << ",\"count\":" << reader.count() << "}" << std::endl;
  } else {
    std::cout << "# following " << table << ", " << reader.count() << " entries" << std::endl;
  }
  long long changes = 0;
  auto const onEvent = [&](Kelp::RecordReader::Event const& e) {
    using Kind = Kelp::RecordReader::Event::Kind;
    if (limit >= 0 && changes >= limit) return;
    switch (e.kind) {
      case Kind::write: {
        auto const value = reader.value(e.key);
        if (json) {
          std::cout << "{\"event\":\"write\",\"key\":" << q(reader.keyText(e.key))
                    << ",\"value\":" << (value ? q(reader.valueText(*value)) : std::string("null"))
                    << "}\n";
        } else {
          std::cout << reader.keyText(e.key) << " -> "
                    << (value ? reader.valueText(*value) : std::string("(gone)")) << '\n';
        }
        ++changes;
        break;
      }
      case Kind::remove:
        if (json) {
          std::cout << "{\"event\":\"delete\",\"key\":" << q(reader.keyText(e.key)) << "}\n";
        } else {
          std::cout << reader.keyText(e.key) << " deleted\n";
        }
        ++changes;
        break;
      case Kind::collection:
        if (json) {
          std::cout << "{\"event\":\"collection\",\"count\":" << reader.count() << "}\n";
        } else {
          std::cout << "# whole table changed, " << reader.count() << " entries\n";
        }
        break;
      case Kind::status: {
        Kelp::Status const s = reader.status();
        if (json) {
          std::cout << "{\"event\":\"status\"," << statusJson(s) << "}\n";
        } else {
          std::cout << "# ready " << (s.ready ? "yes" : "no") << ", writer " << writerText(s)
                    << '\n';
        }
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
  std::vector<std::string> args(argv + 1, argv + argc);
  try {
    if (!args.empty() && args[0] == "--format") {
      if (args.size() < 2 || (args[1] != "text" && args[1] != "json")) {
        return usage("--format takes text or json");
      }
      json = args[1] == "json";
      args.erase(args.begin(), args.begin() + 2);
    }
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
    if (args[0] == "--metrics") {
      if (args.size() != 2) return usage("--metrics takes one PREFIX");
      if (badName(args[1])) return usage("bad prefix '" + args[1] + "'");
      return metrics(args[1]);
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
