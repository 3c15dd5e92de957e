#pragma once

// Captures the machines' trace messages for the life of a test: `traced()` hands back what
// was traced since the last call.

#include <string>
#include <vector>

#include "platform/trace/CaptureSink.h"
#include "platform/trace/Trace.h"

namespace NoxTest {

class TraceCapture {
 public:
  explicit TraceCapture(int level) {
    Trace::sinkDelAll();
    Trace::sinkAdd(capture_);
    Trace::levelIs("NoxEvpn", level);
  }
  ~TraceCapture() {
    Trace::levelIs("NoxEvpn", -1);
    Trace::sinkDelAll();
  }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;

  std::vector<std::string> traced() {
    auto texts = capture_->texts();
    capture_->clear();
    return texts;
  }

 private:
  Vel::Ptr<Trace::CaptureSink> capture_ = Trace::captureSinkFactory();
};

}  // namespace NoxTest
