// In-memory sink.

#include "platform/trace/CaptureSink.h"

namespace Trace {

void CaptureSink::write(Record const& record) {
  std::lock_guard lock(mutex_);
  records_.push_back({std::string(record.facility), record.level, std::string(record.text),
                      std::string(record.file), record.line});
}

std::vector<CapturedRecord> CaptureSink::records() const {
  std::lock_guard lock(mutex_);
  return records_;
}

std::vector<std::string> CaptureSink::texts() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  texts.reserve(records_.size());
  for (auto const& r : records_) texts.push_back(r.text);
  return texts;
}

void CaptureSink::clear() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

Vel::Ptr<CaptureSink> captureSinkFactory() { return Vel::Ptr<CaptureSink>(new CaptureSink); }

}  // namespace Trace
