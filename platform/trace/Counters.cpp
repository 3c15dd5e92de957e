// The counter registry: a name-ordered map of counters that are never freed, so the pointers
// handed out stay valid.

#include "platform/trace/Counters.h"

#include <map>
#include <memory>
#include <mutex>

namespace Trace {

namespace {

struct CounterRegistry {
  static CounterRegistry& instance() {
    static CounterRegistry* const registry = new CounterRegistry;
    return *registry;
  }
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<Counter>, std::less<>> counters_;
};

}  // namespace

Counter* counterIs(std::string_view name) {
  auto& r = CounterRegistry::instance();
  std::lock_guard lock(r.mutex_);
  auto it = r.counters_.find(name);
  if (it == r.counters_.end()) {
    auto counter = std::make_unique<Counter>(std::string(name));
    it = r.counters_.emplace(std::string(name), std::move(counter)).first;
  }
  return it->second.get();
}

Counter* counter(std::string_view name) {
  auto& r = CounterRegistry::instance();
  std::lock_guard lock(r.mutex_);
  auto it = r.counters_.find(name);
  return it == r.counters_.end() ? nullptr : it->second.get();
}

std::uint64_t counterValue(std::string_view name) {
  Counter const* c = counter(name);
  return c == nullptr ? 0 : c->value();
}

std::vector<std::pair<std::string, std::uint64_t>> counters() {
  auto& r = CounterRegistry::instance();
  std::lock_guard lock(r.mutex_);
  std::vector<std::pair<std::string, std::uint64_t>> all;
  all.reserve(r.counters_.size());
  for (auto const& [name, c] : r.counters_) all.emplace_back(name, c->value());
  return all;
}

void countersReset() {
  auto& r = CounterRegistry::instance();
  std::lock_guard lock(r.mutex_);
  for (auto const& [_, c] : r.counters_) c->valueIs(0);
}

std::string metricName(std::string_view name) {
  std::string out;
  out.reserve(name.size() + 1);
  for (char const c : name) {
    bool const allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '_' || c == ':';
    out += allowed ? c : '_';
  }
  if (out.empty() || (out[0] >= '0' && out[0] <= '9')) out.insert(out.begin(), '_');
  return out;
}

std::string countersExposition(std::string_view prefix) {
  std::string out;
  for (auto const& [name, value] : counters()) {
    std::string const metric = metricName(std::string(prefix) + name) + "_total";
    out += "# HELP " + metric + " events counted by the counter " + metricName(name) + "\n";
    out += "# TYPE " + metric + " counter\n";
    out += metric + ' ' + std::to_string(value) + '\n';
  }
  return out;
}

}  // namespace Trace
