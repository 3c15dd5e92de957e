// Line-per-record sinks on standard error and on files.

#include "platform/trace/FileSink.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/trace/PrivateFile.h"

namespace Trace {

FileSink::~FileSink() {
  if (owned_) ::close(fd_);
}

void FileSink::write(Record const& record) {
  std::string line = lineText(record, 6);
  line += '\n';
  char const* p = line.data();
  std::size_t left = line.size();
  while (left > 0) {
    auto const n = ::write(fd_, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // a trace that cannot be written is dropped, never fatal
    p += n;
    left -= static_cast<std::size_t>(n);
  }
}

Vel::Ptr<FileSink> fileSinkFactory(Vel::Name const& path) {
  int const fd = openPrivateFile(path.str(), true);
  return Vel::Ptr<FileSink>(new FileSink(fd, true));
}

Vel::Ptr<FileSink> stderrFileSinkFactory() {
  return Vel::Ptr<FileSink>(new FileSink(STDERR_FILENO, false));
}

}  // namespace Trace
