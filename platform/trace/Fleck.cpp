// The Fleck writer's slow path: opening and closing the buffer, registering call sites, claiming
// blocks. All of it runs under one lock; the hot path (Fleck.h) takes none.
//
// Disk space is reserved (posix_fallocate) as the file is first filled, in steps of
// allocationStep bytes, rather than all at once: a full disk then stops Fleck with a warning
// instead of killing the process with SIGBUS on a page fault, and a short-lived process (every
// test) leaves a small file rather than a full-sized one.

#include "platform/trace/Fleck.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/trace/PrivateFile.h"
#include "platform/vel/Exception.h"

namespace Fleck {

namespace Detail {

thread_local constinit Cursor cursor{nullptr, nullptr, nullptr, 0, 0, 0};
std::atomic<std::uint64_t> generation{0};

}  // namespace Detail

namespace {

constexpr std::size_t allocationStep = std::size_t{64} * 1024;

struct Buffer {
  std::string path;
  int fd = -1;
  char* base = nullptr;
  std::size_t bytes = 0;
  FileHeader* header = nullptr;
  std::uint64_t generation = 0;
  std::uint32_t siteCount = 0;
  // Ends of the parts of the site area and of the ring reserved on disk so far.
  std::size_t sitesAllocated = 0;
  std::size_t ringAllocated = 0;
};

enum class State { lazy, open, closed };

class Writer {
 public:
  static Writer& instance() {
    static Writer* const writer = new Writer;  // never destroyed: records may come at exit
    return *writer;
  }

  void open(std::string const& path, std::size_t bytes) {
    std::lock_guard lock(mutex_);
    closeLocked(State::closed);
    openLocked(path, bytes);
  }

  void close() {
    std::lock_guard lock(mutex_);
    closeLocked(State::closed);
  }

  std::string path() {
    std::lock_guard lock(mutex_);
    return state_ == State::open ? buffer_.path : std::string();
  }

  char* reserveSlow(Trace::Site const& site, ArgType const* types, std::size_t argCount,
                    std::size_t bytes);
  static std::string defaultPathFor(pid_t pid);

  // In the child after fork(): the parent's buffer is not ours to write. A buffer on the
  // parent's default path becomes one on the child's; any other path gets ".<pid>" appended.
  void forgetAfterFork() {
    std::string base = !buffer_.path.empty() ? buffer_.path : lazyPath_;
    if (base.empty()) base = defaultPath();
    lazyPath_ =
        base == defaultPathFor(getppid()) ? std::string() : base + "." + std::to_string(getpid());
    if (buffer_.base != nullptr) ::munmap(buffer_.base, buffer_.bytes);
    if (buffer_.fd >= 0) ::close(buffer_.fd);
    buffer_ = Buffer();
    Detail::generation.store(0, std::memory_order_relaxed);
    Detail::cursor.thread = 0;  // the forking thread, the child's only one, has a new id
    state_ = State::lazy;
  }

 private:
  Writer() {
    pthread_atfork([] { Writer::instance().mutex_.lock(); },
                   [] { Writer::instance().mutex_.unlock(); },
                   [] {
                     Writer::instance().mutex_.unlock();
                     Writer::instance().forgetAfterFork();
                   });
  }

  void openLocked(std::string const& path, std::size_t bytes);
  void closeLocked(State next);
  bool allocated(std::size_t& allocatedEnd, std::size_t end, std::size_t limit);
  std::uint32_t registerSiteLocked(Trace::Site const& site, ArgType const* types,
                                   std::size_t argCount);
  bool claimBlockLocked(Detail::Cursor& c);
  void stopLocked(char const* why);
  static std::size_t defaultBytes();

  std::mutex mutex_;
  State state_ = State::lazy;
  std::string lazyPath_;
  Buffer buffer_;
  std::uint64_t generations_ = 0;
};

std::string Writer::defaultPathFor(pid_t pid) {
  return Trace::privateFileDirectory() + "/nox-fleck-" + std::to_string(pid) + ".flk";
}

std::size_t Writer::defaultBytes() {
  char const* text = std::getenv("NOX_FLECK_SIZE");
  if (text == nullptr || *text == '\0') return defaultFileBytes;
  if (auto const bytes = parseFileBytes(text)) return *bytes;
  std::fprintf(stderr, "NOX_FLECK_SIZE: '%s' is not a size from 64K to 64G; using 8M\n", text);
  return defaultFileBytes;
}

void Writer::openLocked(std::string const& path, std::size_t bytes) {
  bytes &= ~(blockBytes - 1);
  if (bytes < minFileBytes) {
    throw Vel::RangeException("Fleck buffer " + path + ": " + std::to_string(bytes) +
                              " bytes is below the minimum of 64K");
  }
  std::size_t const siteBytes =
      std::clamp((bytes / 16) & ~(blockBytes - 1), minSiteBytes, maxSiteBytes);
  std::size_t const blockCount = (bytes - headerBytes - siteBytes) / blockBytes;
  auto const failed = [&](char const* what) {
    std::string const reason = std::strerror(errno);
    if (buffer_.fd >= 0) ::close(buffer_.fd);
    buffer_ = Buffer();
    return Vel::RangeException("Fleck buffer " + path + ": " + what + ": " + reason);
  };
  try {
    buffer_.fd = Trace::openPrivateFile(path);
  } catch (Vel::RangeException const& e) {
    throw Vel::RangeException(std::string("Fleck buffer: ") + e.what());
  }
  // A reused file starts over: emptied first so that no old record survives in the new buffer.
  if (::ftruncate(buffer_.fd, 0) != 0 || ::ftruncate(buffer_.fd, static_cast<off_t>(bytes)) != 0) {
    throw failed("cannot size");
  }
  errno = ::posix_fallocate(buffer_.fd, 0, headerBytes);
  if (errno != 0) throw failed("cannot reserve space");
  void* base = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, buffer_.fd, 0);
  if (base == MAP_FAILED) throw failed("cannot map");

  buffer_.path = path;
  buffer_.base = static_cast<char*>(base);
  buffer_.bytes = bytes;
  buffer_.header = static_cast<FileHeader*>(base);
  buffer_.generation = ++generations_;
  buffer_.sitesAllocated = headerBytes;
  buffer_.ringAllocated = headerBytes + siteBytes;

  FileHeader& h = *buffer_.header;
  h.version = fileVersion;
  h.clockKind = static_cast<std::uint32_t>(clockKind);
  h.fileBytes = bytes;
  h.siteOffset = headerBytes;
  h.siteBytes = siteBytes;
  h.ringOffset = headerBytes + siteBytes;
  h.blockBytes = blockBytes;
  h.blockCount = blockCount;
  h.pid = static_cast<std::uint64_t>(getpid());
  h.tickHz = measuredTickHz();
  h.anchorMonotonicNs = Trace::monotonicNs();
  h.anchorTicks = ticks();
  h.anchorWallNs = Trace::wallClockNs();
  std::atomic_thread_fence(std::memory_order_release);
  std::memcpy(h.magic, fileMagic, sizeof fileMagic);

  state_ = State::open;
  Detail::generation.store(buffer_.generation, std::memory_order_relaxed);
}

void Writer::closeLocked(State next) {
  Detail::generation.store(0, std::memory_order_relaxed);
  if (buffer_.base != nullptr) ::munmap(buffer_.base, buffer_.bytes);
  if (buffer_.fd >= 0) ::close(buffer_.fd);
  buffer_ = Buffer();
  state_ = next;
}

void Writer::stopLocked(char const* why) {
  std::fprintf(stderr, "Fleck buffer %s: %s; no more records\n", buffer_.path.c_str(), why);
  closeLocked(State::closed);
}

// Extends a reserved part, [.., allocatedEnd), to cover `end`, by at least a step but not past
// `limit`.
bool Writer::allocated(std::size_t& allocatedEnd, std::size_t end, std::size_t limit) {
  if (end <= allocatedEnd) return true;
  std::size_t const target = std::min(limit, std::max(end, allocatedEnd + allocationStep));
  int const rc = ::posix_fallocate(buffer_.fd, static_cast<off_t>(allocatedEnd),
                                   static_cast<off_t>(target - allocatedEnd));
  if (rc != 0) return false;
  allocatedEnd = target;
  return true;
}

std::uint32_t Writer::registerSiteLocked(Trace::Site const& site, ArgType const* types,
                                         std::size_t argCount) {
  auto const limited = [](std::string_view s) { return s.substr(0, 0xffff); };
  std::string_view const facility = limited(site.facility()->name());
  std::string_view const file = limited(site.file());
  std::string_view const format = limited(site.format());
  std::size_t const bytes =
      align8(sizeof(SiteHeader) + argCount + facility.size() + file.size() + format.size());
  FileHeader& h = *buffer_.header;
  std::uint64_t const used = std::atomic_ref<std::uint64_t>(h.siteUsed).load();
  if (argCount > 0xff || used + bytes > h.siteBytes) return 0;
  if (!allocated(buffer_.sitesAllocated, h.siteOffset + used + bytes, h.ringOffset)) {
    stopLocked("no disk space");
    return 0;
  }
  char* const p = buffer_.base + h.siteOffset + used;
  std::memset(p, 0, bytes);
  auto* s = reinterpret_cast<SiteHeader*>(p);
  s->bytes = static_cast<std::uint32_t>(bytes);
  s->id = ++buffer_.siteCount;
  s->line = static_cast<std::uint32_t>(site.line());
  s->level = static_cast<std::int8_t>(site.level());
  s->argCount = static_cast<std::uint8_t>(argCount);
  s->facilityBytes = static_cast<std::uint16_t>(facility.size());
  s->fileBytes = static_cast<std::uint16_t>(file.size());
  s->formatBytes = static_cast<std::uint16_t>(format.size());
  char* text = p + sizeof(SiteHeader);
  if (argCount > 0) std::memcpy(text, types, argCount);
  text += argCount;
  for (auto part : {facility, file, format}) {
    std::memcpy(text, part.data(), part.size());
    text += part.size();
  }
  std::atomic_ref<std::uint32_t>(s->commit).store(siteMagic, std::memory_order_release);
  std::atomic_ref<std::uint64_t>(h.siteUsed).store(used + bytes, std::memory_order_release);
  return s->id;
}

bool Writer::claimBlockLocked(Detail::Cursor& c) {
  FileHeader& h = *buffer_.header;
  std::uint64_t const claim = std::atomic_ref<std::uint64_t>(h.nextClaim).fetch_add(1) + 1;
  std::size_t const offset = h.ringOffset + (claim - 1) % h.blockCount * blockBytes;
  if (!allocated(buffer_.ringAllocated, offset + blockBytes, buffer_.bytes)) {
    stopLocked("no disk space");
    return false;
  }
  char* const block = buffer_.base + offset;
  auto* b = reinterpret_cast<BlockHeader*>(block);
  std::atomic_ref<std::uint64_t> claimWord(b->claim);
  claimWord.store(0, std::memory_order_release);
  if (c.thread == 0) c.thread = static_cast<std::uint32_t>(::syscall(SYS_gettid));
  b->thread = c.thread;
  b->reserved = 0;
  b->monotonicNs = Trace::monotonicNs();
  b->ticks = ticks();
  claimWord.store(claim, std::memory_order_release);
  c = {
      block + blockHeaderBytes, block + blockBytes, &b->claim, claim, buffer_.generation, c.thread};
  return true;
}

char* Writer::reserveSlow(Trace::Site const& site, ArgType const* types, std::size_t argCount,
                          std::size_t bytes) {
  std::lock_guard lock(mutex_);
  if (state_ == State::lazy) {
    std::string const path = lazyPath_.empty() ? defaultPath() : lazyPath_;
    try {
      openLocked(path, defaultBytes());
    } catch (Vel::RangeException const& e) {
      std::fprintf(stderr, "%s; no Fleck records\n", e.what());
      state_ = State::closed;
    }
  }
  if (state_ != State::open) return nullptr;
  FileHeader& h = *buffer_.header;
  auto const drop = [&h] {
    std::atomic_ref<std::uint64_t>(h.droppedRecords).fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  };
  if (bytes > maxRecordBytes) return drop();
  if ((site.fleckKey() >> 32) != buffer_.generation) {
    std::uint32_t const id = registerSiteLocked(site, types, argCount);
    if (state_ != State::open) return nullptr;
    if (id == 0) return drop();
    site.fleckKeyIs(buffer_.generation << 32 | id);
  }
  Detail::Cursor& c = Detail::cursor;
  if (c.generation != buffer_.generation || static_cast<std::size_t>(c.end - c.pos) < bytes ||
      std::atomic_ref<std::uint64_t>(*c.claimWord).load() != c.claim) {
    if (!claimBlockLocked(c)) return nullptr;
  }
  char* p = c.pos;
  c.pos += bytes;
  return p;
}

}  // namespace

void open(std::string const& path, std::size_t bytes) { Writer::instance().open(path, bytes); }

void close() { Writer::instance().close(); }

std::string path() { return Writer::instance().path(); }

std::optional<std::size_t> parseFileBytes(std::string_view text) {
  std::uint64_t n = 0;
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || end == text.data()) return std::nullopt;
  std::string_view const suffix(end, static_cast<std::size_t>(text.data() + text.size() - end));
  unsigned shift = 0;
  if (suffix == "K")
    shift = 10;
  else if (suffix == "M")
    shift = 20;
  else if (suffix == "G")
    shift = 30;
  else if (!suffix.empty())
    return std::nullopt;
  constexpr std::uint64_t maxBytes = std::uint64_t(64) << 30;
  if (n > (maxBytes >> shift)) return std::nullopt;
  n <<= shift;
  if (n < minFileBytes) return std::nullopt;
  return static_cast<std::size_t>(n);
}

std::string defaultPath() {
  char const* path = std::getenv("NOX_FLECK_FILE");
  return path != nullptr && *path != '\0' ? path : Writer::defaultPathFor(getpid());
}

namespace Detail {

char* reserveSlow(Trace::Site const& site, ArgType const* types, std::size_t argCount,
                  std::size_t bytes) {
  return Writer::instance().reserveSlow(site, types, argCount, bytes);
}

void writeRecord(Trace::Site const& site, ArgType const* types, Arg const* args,
                 std::size_t count) {
  std::size_t fixed = recordHeaderBytes;
  for (std::size_t i = 0; i < count; ++i) fixed += types[i] == ArgType::text ? 4 : 8;
  if (fixed > maxRecordBytes) fixed = maxRecordBytes + 1;  // dropped by reserve
  // Texts take what room is left, in order; the same rule sizes and writes them.
  std::size_t room = maxRecordBytes - std::min(fixed, maxRecordBytes);
  std::size_t textBytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (types[i] != ArgType::text) continue;
    std::size_t const n = std::min(args[i].text.size(), room);
    textBytes += n;
    room -= n;
  }
  std::size_t const used = fixed + textBytes;
  std::size_t const bytes = align8(used);
  char* const p = reserve(site, types, count, bytes);
  if (p == nullptr) return;
  char* out = p + recordHeaderBytes;
  room = maxRecordBytes - fixed;
  for (std::size_t i = 0; i < count; ++i) {
    if (types[i] != ArgType::text) {
      std::memcpy(out, &args[i].raw, 8);
      out += 8;
      continue;
    }
    auto const n = static_cast<std::uint32_t>(std::min(args[i].text.size(), room));
    room -= n;
    std::memcpy(out, &n, 4);
    std::memcpy(out + 4, args[i].text.data(), n);
    out += 4 + n;
  }
  std::memset(out, 0, bytes - used);
  commit(p, bytes, site);
}

}  // namespace Detail

}  // namespace Fleck
