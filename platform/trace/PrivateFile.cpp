#include "platform/trace/PrivateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/vel/Exception.h"

namespace Trace {

namespace {

[[noreturn]] void refuse(std::string const& path, std::string const& why) {
  throw Vel::RangeException("cannot use " + path + ": " + why);
}

// An existing file is ours to reuse only if nobody else can reach it through another name or
// write to it once we have narrowed its mode.
void checkExisting(int fd, std::string const& path) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) refuse(path, std::strerror(errno));
  std::string why;
  if (!S_ISREG(st.st_mode))
    why = "not a regular file";
  else if (st.st_uid != ::geteuid())
    why = "owned by another user";
  else if (st.st_nlink != 1)
    why = "has other links";
  else if (::fchmod(fd, S_IRUSR | S_IWUSR) != 0)
    why = std::strerror(errno);
  if (why.empty()) return;
  ::close(fd);
  refuse(path, why);
}

}  // namespace

int openPrivateFile(std::string const& path, bool append) {
  int const access = (append ? O_WRONLY | O_APPEND : O_RDWR) | O_NOFOLLOW | O_CLOEXEC;
  for (int attempt = 0; attempt < 2; ++attempt) {
    int fd = ::open(path.c_str(), access | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (fd >= 0) return fd;
    if (errno != EEXIST) refuse(path, std::strerror(errno));
    fd = ::open(path.c_str(), access);
    if (fd >= 0) {
      checkExisting(fd, path);
      return fd;
    }
    // ELOOP: the name is a symbolic link. ENOENT: it went away between the two opens; try again.
    if (errno == ELOOP) refuse(path, "is a symbolic link");
    if (errno != ENOENT) refuse(path, std::strerror(errno));
  }
  refuse(path, "it keeps appearing and disappearing");
}

std::string privateFileDirectory() {
  for (char const* name : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
    char const* dir = std::getenv(name);
    if (dir != nullptr && *dir != '\0') return dir;
  }
  return "/tmp";
}

}  // namespace Trace
