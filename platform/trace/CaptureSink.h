#pragma once

// A sink that keeps every record in memory, for tests and for noxsim's `expect trace`.

#include <mutex>
#include <string>
#include <vector>

#include "platform/trace/Sink.h"

namespace Trace {

struct CapturedRecord {
  std::string facility;
  int level;
  std::string text;
  std::string file;
  int line;
};

class CaptureSink : public Sink {
 public:
  void write(Record const& record) override;

  std::vector<CapturedRecord> records() const;
  // The messages alone, in order.
  std::vector<std::string> texts() const;
  void clear();

 private:
  friend Vel::Ptr<CaptureSink> captureSinkFactory();
  CaptureSink() = default;

  mutable std::mutex mutex_;
  std::vector<CapturedRecord> records_;
};

Vel::Ptr<CaptureSink> captureSinkFactory();

}  // namespace Trace
