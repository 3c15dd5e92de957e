// The process-wide list of text-trace sinks.

#include "platform/trace/Sink.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "platform/trace/FileSink.h"
#include "platform/vel/Exception.h"

namespace Trace {

namespace {

class SinkList {
 public:
  // Never destroyed, so that traces written during static destruction still find their sinks.
  static SinkList& instance() {
    static SinkList* const list = new SinkList;
    return *list;
  }

  std::mutex mutex_;
  std::vector<SinkPtr> sinks_;
  std::atomic<std::size_t> count_{0};
  SinkPtr stderr_ = stderrFileSinkFactory();

 private:
  SinkList() {
    char const* path = std::getenv("NOX_TRACE_FILE");
    if (path != nullptr && *path != '\0') {
      try {
        sinks_.emplace_back(fileSinkFactory(path));
      } catch (Vel::RangeException const& e) {
        std::fprintf(stderr, "NOX_TRACE_FILE: %s; tracing to standard error\n", e.what());
      }
    }
    if (sinks_.empty()) sinks_.push_back(stderr_);
    count_ = sinks_.size();
  }
};

}  // namespace

void sinkAdd(SinkPtr const& sink) {
  auto& list = SinkList::instance();
  std::lock_guard lock(list.mutex_);
  list.sinks_.push_back(sink);
  list.count_ = list.sinks_.size();
}

void sinkDel(SinkPtr const& sink) {
  auto& list = SinkList::instance();
  std::lock_guard lock(list.mutex_);
  std::erase(list.sinks_, sink);
  list.count_ = list.sinks_.size();
}

void sinkDelAll() {
  auto& list = SinkList::instance();
  std::lock_guard lock(list.mutex_);
  list.sinks_.clear();
  list.count_ = 0;
}

SinkPtr stderrSink() {
  auto& list = SinkList::instance();
  std::lock_guard lock(list.mutex_);
  return list.stderr_;
}

bool hasSinks() { return SinkList::instance().count_.load(std::memory_order_relaxed) != 0; }

void emit(Record const& record) {
  auto& list = SinkList::instance();
  std::lock_guard lock(list.mutex_);
  for (auto const& sink : list.sinks_) sink->write(record);
}

}  // namespace Trace
