// The registry of facilities and their levels. Levels are kept by name, so a level set before the
// facility's first file is loaded (NOX_TRACE at start-up, a test) applies when it registers.
// Environment: NOX_TRACE and NOX_FLECK, read once when the first facility registers, which is
// during static initialisation.

#include "platform/trace/Facility.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/trace/LevelSettings.h"
#include "platform/vel/Exception.h"

namespace Trace {

namespace {

enum Kind { textKind = 0, fleckKind = 1 };

class LevelRegistry {
 public:
  // Never destroyed: facilities of static storage may register and trace until the very end.
  static LevelRegistry& instance() {
    static LevelRegistry* const registry = new LevelRegistry;
    return *registry;
  }

  void facilityIs(Facility* f) {
    std::lock_guard lock(mutex_);
    auto& entry = entries_[f->name()];
    entry.facilities.push_back(f);
    f->maskIs(maskOf(entry));
  }

  void facilityDel(Facility* f) {
    std::lock_guard lock(mutex_);
    auto it = entries_.find(std::string_view(f->name()));
    if (it == entries_.end()) return;
    std::erase(it->second.facilities, f);
  }

  void levelIs(Kind kind, std::string_view name, int level) {
    if (level < levelOff || level > levelMax) {
      throw Vel::RangeException("trace level " + std::to_string(level) + " for " +
                                std::string(name) + " is outside -1..9");
    }
    std::lock_guard lock(mutex_);
    if (name == "*") {
      defaults_[kind] = level;
      for (auto& [_, entry] : entries_) entry.levels[kind].reset();
    } else {
      entries_[std::string(name)].levels[kind] = level;
    }
    for (auto& [_, entry] : entries_) {
      for (auto* f : entry.facilities) f->maskIs(maskOf(entry));
    }
  }

  int level(Kind kind, std::string_view name) {
    std::lock_guard lock(mutex_);
    auto it = entries_.find(name);
    return it == entries_.end() ? defaults_[kind] : levelOf(kind, it->second);
  }

 private:
  struct Entry {
    std::optional<int> levels[2];
    std::vector<Facility*> facilities;
  };

  LevelRegistry() {
    applyEnvironment(textKind, "NOX_TRACE");
    applyEnvironment(fleckKind, "NOX_FLECK");
  }

  // Called from the constructor only, before any other thread can see the registry.
  void applyEnvironment(Kind kind, char const* variable) {
    char const* value = std::getenv(variable);
    if (value == nullptr) return;
    auto const parsed = parseLevelSettings(value);
    for (auto const& error : parsed.errors)
      std::fprintf(stderr, "%s: %s\n", variable, error.c_str());
    for (auto const& s : parsed.settings) {
      if (s.facility == "*") {
        defaults_[kind] = s.level;
        for (auto& [_, entry] : entries_) entry.levels[kind].reset();
      } else {
        entries_[s.facility].levels[kind] = s.level;
      }
    }
  }

  int levelOf(Kind kind, Entry const& entry) const {
    return entry.levels[kind].value_or(defaults_[kind]);
  }
  std::uint32_t maskOf(Entry const& entry) const {
    return levelsUpTo(levelOf(textKind, entry)) | levelsUpTo(levelOf(fleckKind, entry))
                                                      << fleckShift;
  }

  std::mutex mutex_;
  int defaults_[2] = {levelOff, 1};
  std::map<std::string, Entry, std::less<>> entries_;
};

}  // namespace

Facility::Facility(char const* name) : name_(name) { LevelRegistry::instance().facilityIs(this); }

Facility::~Facility() { LevelRegistry::instance().facilityDel(this); }

void levelIs(std::string_view facility, int level) {
  LevelRegistry::instance().levelIs(textKind, facility, level);
}

int level(std::string_view facility) { return LevelRegistry::instance().level(textKind, facility); }

}  // namespace Trace

namespace Fleck {

void levelIs(std::string_view facility, int level) {
  Trace::LevelRegistry::instance().levelIs(Trace::fleckKind, facility, level);
}

int level(std::string_view facility) {
  return Trace::LevelRegistry::instance().level(Trace::fleckKind, facility);
}

}  // namespace Fleck
