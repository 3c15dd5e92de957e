// Files, descriptors and mappings of table segments; see Segment.h.

#include "platform/kelp/Segment.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <utility>

#include "platform/kelp/Exception.h"
#include "platform/kelp/Layout.h"

namespace Kelp {

namespace {

std::string systemError(char const* what) {
  return std::string(what) + ": " + std::strerror(errno);
}

// Descriptors that carry a writer's flock. A forked child shares the lock through its copy of
// the descriptor; closing that copy in the child leaves the lock with the parent alone, so the
// lock still dies with the parent.
constexpr std::size_t maxLockedFds = 256;
std::atomic<int> lockedFds[maxLockedFds];

void closeLockedFdsInChild() {
  for (auto& fd : lockedFds) {
    int const f = fd.exchange(-1);
    if (f >= 0) ::close(f);
  }
}

void rememberLockedFd(int fd) {
  static std::once_flag once;
  std::call_once(once, [] {
    for (auto& f : lockedFds) f.store(-1);
    pthread_atfork(nullptr, nullptr, closeLockedFdsInChild);
  });
  for (auto& f : lockedFds) {
    int expected = -1;
    if (f.compare_exchange_strong(expected, fd)) return;
  }
}

void forgetLockedFd(int fd) {
  for (auto& f : lockedFds) {
    int expected = fd;
    if (f.compare_exchange_strong(expected, -1)) return;
  }
}

Word peekWriterPid(int fd) {
  Word pid = 0;
  auto const offset = static_cast<off_t>(offsetof(Layout::Header, writerPid));
  if (::pread(fd, &pid, sizeof pid, offset) != static_cast<ssize_t>(sizeof pid)) return 0;
  return pid;
}

[[noreturn]] void refuseLiveWriter(std::string const& table, int fd) {
  Word const pid = peekWriterPid(fd);
  ::close(fd);
  throw OpenException(table, "refused: a live writer (pid " + std::to_string(pid) +
                                 ") already has the table open for writing");
}

// Names this process created and has not unlinked yet, kept where a signal handler can reach them
// without allocating or locking.
constexpr std::size_t maxCreatedNames = 256;
constexpr std::size_t maxPathBytes = 256;
struct CreatedName {
  std::atomic<bool> used{false};
  char path[maxPathBytes] = {};
};
CreatedName createdNames[maxCreatedNames];

void rememberCreatedName(std::string const& path) {
  if (path.size() >= maxPathBytes) return;
  for (auto& n : createdNames) {
    bool expected = false;
    if (!n.used.load() && n.used.compare_exchange_strong(expected, true)) {
      std::memcpy(n.path, path.c_str(), path.size() + 1);
      return;
    }
  }
}

void forgetCreatedName(std::string const& path) {
  for (auto& n : createdNames) {
    if (n.used.load() && path == n.path) {
      n.path[0] = '\0';
      n.used.store(false);
      return;
    }
  }
}

// A name that is already there is used only if it is a plain segment of ours: someone else's file
// under the name could be read, truncated or rewritten behind the writer's back.
void checkOwnSegment(std::string const& table, int fd, mode_t mode) {
  struct stat st {};
  std::string why;
  if (::fstat(fd, &st) != 0)
    why = systemError("fstat");
  else if (!S_ISREG(st.st_mode))
    why = "refused: not a plain shared-memory segment";
  else if (st.st_uid != ::geteuid())
    why = "refused: the name belongs to another user";
  else if (::fchmod(fd, mode) != 0)
    why = systemError("fchmod");
  if (why.empty()) return;
  ::close(fd);
  throw OpenException(table, why);
}

int lockOrRefuse(std::string const& table, int fd) {
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) refuseLiveWriter(table, fd);
  rememberLockedFd(fd);
  return fd;
}

}  // namespace

bool validTableName(std::string_view name) {
  if (name.empty() || name.size() > maxTableNameBytes || name.front() == '.' ||
      name.find("..") != std::string_view::npos) {
    return false;
  }
  return std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-';
  });
}

std::string segmentPath(std::string const& table) {
  std::string const name = !table.empty() && table[0] == '/' ? table.substr(1) : table;
  if (!validTableName(name)) {
    throw OpenException(table,
                        "bad table name (want PREFIX.name of letters, digits, '.', '_' "
                        "and '-', no '..', at most 200 chars)");
  }
  return "/" + name;
}

void unlinkCreatedSegments() {
  for (auto& n : createdNames) {
    if (n.used.load() && n.path[0] != '\0') ::shm_unlink(n.path);
  }
}

Segment::Segment(std::string table, int fd, Access access)
    : table_(std::move(table)), fd_(fd), access_(access), ownerPid_(::getpid()) {
  if (access_ != Access::process) path_ = segmentPath(table_);
}

Segment::Segment(Segment&& other) noexcept { *this = std::move(other); }

Segment& Segment::operator=(Segment&& other) noexcept {
  if (this == &other) return *this;
  close();
  table_ = std::move(other.table_);
  path_ = std::move(other.path_);
  fd_ = std::exchange(other.fd_, -1);
  writable_ = other.writable_;
  access_ = other.access_;
  ownerPid_ = other.ownerPid_;
  base_ = std::exchange(other.base_, nullptr);
  bytes_ = std::exchange(other.bytes_, 0);
  registry_ = std::exchange(other.registry_, nullptr);
  return *this;
}

Segment::~Segment() { close(); }

Segment Segment::claim(std::string const& table, bool* replacedStale, mode_t mode) {
  std::string const path = segmentPath(table);
  *replacedStale = false;
  // The name is remembered as soon as it is ours, with termination signals held off in between,
  // so that a handler that removes the process's names never misses this one.
  sigset_t terminating, previous;
  sigemptyset(&terminating);
  sigaddset(&terminating, SIGINT);
  sigaddset(&terminating, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &terminating, &previous);
  int fd = ::shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  bool const created = fd >= 0;
  int const openErrno = errno;
  if (created) rememberCreatedName(path);
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  errno = openErrno;
  if (!created && errno == EEXIST) {
    fd = ::shm_open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd >= 0) checkOwnSegment(table, fd, mode);
  }
  if (fd < 0) throw OpenException(table, systemError("shm_open"));
  lockOrRefuse(table, fd);
  if (!created) rememberCreatedName(path);
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size == 0) {
    Segment s(table, fd, Access::writer);
    s.writable_ = true;
    return s;
  }
  // A segment nobody holds the lock of was left by a dead writer. Readers may still map it, so
  // it is not reused in place: the name gets a new file and the old one lives on, unlinked,
  // until its last reader lets go.
  *replacedStale = true;
  ::shm_unlink(path.c_str());
  forgetLockedFd(fd);
  ::close(fd);
  fd = ::shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (fd < 0) forgetCreatedName(path);
  if (fd < 0 && errno == EEXIST) {
    throw OpenException(table, "refused: another writer claimed the table first");
  }
  if (fd < 0) throw OpenException(table, systemError("shm_open"));
  lockOrRefuse(table, fd);
  Segment s(table, fd, Access::writer);
  s.writable_ = true;
  return s;
}

Segment Segment::open(std::string const& table) {
  std::string const path = segmentPath(table);
  bool writable = true;
  int fd = ::shm_open(path.c_str(), O_RDWR | O_CLOEXEC, 0);
  if (fd < 0 && errno == EACCES) {
    writable = false;
    fd = ::shm_open(path.c_str(), O_RDONLY | O_CLOEXEC, 0);
  }
  if (fd < 0 && errno == ENOENT) throw OpenException(table, "no such table");
  if (fd < 0) throw OpenException(table, systemError("shm_open"));
  Segment s(table, fd, Access::reader);
  s.writable_ = writable;
  return s;
}

Segment Segment::anonymous(std::string const& table) { return Segment(table, -1, Access::process); }

void Segment::resize(std::size_t bytes) {
  if (bytes <= bytes_) return;
  if (access_ == Access::process) {
#ifdef MREMAP_MAYMOVE
    // Where the kernel can move a mapping, the table keeps its pages: a copy would fault in
    // every page of the new mapping within the one insertion that grows the table.
    if (base_) {
      void* p = ::mremap(base_, bytes_, bytes, MREMAP_MAYMOVE);
      if (p == MAP_FAILED) throw OpenException(table_, systemError("mremap"));
      base_ = static_cast<std::byte*>(p);
      bytes_ = bytes;
      return;
    }
#endif
    void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw OpenException(table_, systemError("mmap"));
    if (base_) std::memcpy(p, base_, bytes_);
    unmap();
    base_ = static_cast<std::byte*>(p);
    bytes_ = bytes;
    return;
  }
  if (::ftruncate(fd_, static_cast<off_t>(bytes)) != 0) {
    throw OpenException(table_, systemError("ftruncate"));
  }
  map(bytes);
}

void Segment::map(std::size_t bytes) {
  int const prot = access_ == Access::writer ? PROT_READ | PROT_WRITE : PROT_READ;
  void* p = ::mmap(nullptr, bytes, prot, MAP_SHARED, fd_, 0);
  if (p == MAP_FAILED) throw OpenException(table_, systemError("mmap"));
#ifdef MADV_DONTFORK
  // A mapping holds the file, and with it the writer's lock: a forked child must not inherit it.
  if (access_ == Access::writer) ::madvise(p, bytes, MADV_DONTFORK);
#endif
  unmap();
  base_ = static_cast<std::byte*>(p);
  bytes_ = bytes;
}

void Segment::mapRegistry() {
  if (!writable_ || registry_) return;
  void* p = ::mmap(nullptr, Layout::pageBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_,
                   static_cast<off_t>(Layout::registryOffset));
  if (p != MAP_FAILED) registry_ = static_cast<std::byte*>(p);
}

void Segment::unlinkName() {
  if (access_ != Access::writer || ownerPid_ != ::getpid()) return;
  ::shm_unlink(path_.c_str());
  forgetCreatedName(path_);
}

std::size_t Segment::fileBytes() const {
  if (access_ == Access::process) return bytes_;
  struct stat st {};
  if (::fstat(fd_, &st) != 0) return 0;
  return static_cast<std::size_t>(st.st_size);
}

ino_t Segment::inode() const {
  struct stat st {};
  if (fd_ < 0 || ::fstat(fd_, &st) != 0) return 0;
  return st.st_ino;
}

void Segment::unmap() {
  // A forked child has no writer mapping; the address range may hold something else of its own.
  bool const inherited = access_ == Access::writer && ownerPid_ != ::getpid();
  if (base_ && !inherited) ::munmap(base_, bytes_);
  base_ = nullptr;
  bytes_ = 0;
}

void Segment::close() {
  unmap();
  if (registry_) ::munmap(registry_, Layout::pageBytes);
  registry_ = nullptr;
  // A forked child that inherited this object closed its copy of a writer's descriptor already
  // (and the number may since name another file of the child's).
  if (fd_ >= 0 && ownerPid_ == ::getpid()) {
    if (access_ == Access::writer) forgetLockedFd(fd_);
    ::close(fd_);
  }
  fd_ = -1;
}

}  // namespace Kelp
