#pragma once

// A sink that appends each record as one line (Record.h) to a file descriptor, with one write(2)
// per line so that lines of several processes appending to one file do not interleave and a
// crash loses no written line.

#include "platform/trace/Sink.h"
#include "platform/vel/Name.h"

namespace Trace {

class FileSink : public Sink {
 public:
  void write(Record const& record) override;
  int fd() const { return fd_; }

 protected:
  friend Vel::Ptr<FileSink> fileSinkFactory(Vel::Name const& path);
  friend Vel::Ptr<FileSink> stderrFileSinkFactory();
  FileSink(int fd, bool owned) : fd_(fd), owned_(owned) {}
  ~FileSink() override;

 private:
  int fd_;
  bool owned_;
};

// Opens (creating or appending to) the file; Vel::RangeException when it cannot be opened.
Vel::Ptr<FileSink> fileSinkFactory(Vel::Name const& path);
// A sink on standard error (not closed when it goes).
Vel::Ptr<FileSink> stderrFileSinkFactory();

}  // namespace Trace
