// A reader over a segment of any bytes: a real shared-memory segment is created under a name of
// this process, filled with the input, opened with the generic reader and read whole (every
// record in its text form, then the change log), and removed again. Damage must be met with
// Kelp's own exceptions: no crash, no read outside the segment, no endless wait.
//
// Input: a flags byte, a length byte, then the segment's bytes.
//   flags bit 0  write the real magic over the first word, so that mutations get past it
//   flags bit 1  write the header checksum of whatever geometry the bytes hold, likewise
//   length       the segment is at least 8 KiB + length pages long (zero-filled past the input)
// A segment whose first word is zero is left out: it is one that its writer has not finished
// creating, and the reader only waits for it and then gives up.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/kelp/Exception.h"
#include "platform/kelp/Layout.h"
#include "platform/kelp/RecordReader.h"

namespace {

using Kelp::Layout::Geometry;
using Kelp::Layout::Header;

// The writer's checksum of the geometry (FNV-1a over its bytes).
std::uint64_t checksumOf(unsigned char const* geometry) {
  std::uint64_t h = 0xcbf29ce484222325ULL;
  for (std::size_t i = 0; i < sizeof(Geometry); ++i) h = (h ^ geometry[i]) * 0x100000001b3ULL;
  return h;
}

// Removes the segment's name however the reading ends.
class ScratchSegment {
 public:
  ScratchSegment() {
    static unsigned counter = 0;
    table_ = "nox-kelp-fuzz-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    path_ = "/" + table_;
  }
  ~ScratchSegment() { unlink(); }
  void unlink() {
    if (created_) ::shm_unlink(path_.c_str());
    created_ = false;
  }
  ScratchSegment(ScratchSegment const&) = delete;
  ScratchSegment& operator=(ScratchSegment const&) = delete;

  std::string const& table() const { return table_; }

  void write(std::string const& bytes) {
    int const fd =
        ::shm_open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) fail("shm_open");
    created_ = true;
    if (::ftruncate(fd, static_cast<off_t>(bytes.size())) != 0) fail("ftruncate");
    if (::pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
      fail("pwrite");
    }
    ::close(fd);
  }

 private:
  [[noreturn]] void fail(char const* what) {
    std::perror(what);
    if (created_) ::shm_unlink(path_.c_str());
    std::exit(1);
  }

  std::string table_;
  std::string path_;
  bool created_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, std::size_t size) {
  if (size < 2) return 0;
  unsigned const flags = data[0];
  std::size_t const minBytes = Kelp::Layout::logOffset + data[1] * Kelp::Layout::pageBytes;
  std::string bytes(reinterpret_cast<char const*>(data + 2), size - 2);
  if (bytes.size() < minBytes) bytes.resize(minBytes, '\0');
  auto* raw = reinterpret_cast<unsigned char*>(bytes.data());
  if (flags & 1) {
    std::memcpy(raw + offsetof(Header, magic), &Kelp::Layout::magic, sizeof(Kelp::Word));
  }
  if (flags & 2) {
    std::uint64_t const sum = checksumOf(raw + offsetof(Header, geometry));
    std::memcpy(raw + offsetof(Header, checksum), &sum, sizeof sum);
  }
  Kelp::Word magic = 0;
  std::memcpy(&magic, raw, sizeof magic);
  if (magic == 0) return 0;

  ScratchSegment segment;
  segment.write(bytes);
  try {
    Kelp::RecordReader reader(segment.table());
    // The reader holds the segment now: without its name, a run stopped by a timeout leaves
    // nothing behind in /dev/shm.
    segment.unlink();
    std::size_t printed = 0;
    reader.forEach([&](std::string const& key, std::string const& value) {
      printed += reader.keyText(key).size() + reader.valueText(value).size();
    });
    (void)reader.status();
    reader.poll([&](Kelp::RecordReader::Event const& event) {
      if (event.kind == Kelp::RecordReader::Event::Kind::write) {
        if (auto const value = reader.value(event.key)) printed += reader.valueText(*value).size();
      }
    });
  } catch (Kelp::CorruptionException const&) {
  } catch (Kelp::OpenException const&) {
  }
  return 0;
}
