#pragma once

// What the Kelp tests share: record types, a recording notifiee, a fixture that gives each test
// its own table prefix and removes whatever tables it left behind, a way to damage a segment, and
// forked child processes with a line channel to the test, so that writers and readers live in
// separate processes as the agents have them.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <compare>
#include <cstdint>
#include <exception>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/kelp/Layout.h"
#include "platform/kelp/Segment.h"
#include "platform/kelp/Table.h"
#include "platform/kelp/TableList.h"

namespace KelpTest {

// A compound key ordered by (x, y).
struct PointKey {
  std::uint32_t x = 0;
  std::uint32_t y = 0;
  friend auto operator<=>(PointKey const&, PointKey const&) = default;
};

struct Wide {
  std::uint64_t a = 0;
  std::uint32_t b = 0;
  std::uint32_t c = 0;
  friend bool operator==(Wide const&, Wide const&) = default;
};

using NumberTable = Kelp::Table<std::uint64_t, std::uint64_t>;
using PointTable = Kelp::Table<PointKey, Wide>;

inline std::string keyText(std::uint64_t k) { return std::to_string(k); }
inline std::string keyText(PointKey const& k) {
  return std::to_string(k.x) + "," + std::to_string(k.y);
}

// Records every callback as text: "k:KEY", "collection", "status".
template <class K = std::uint64_t>
class Recorder : public Kelp::TableNotifiee<K> {
 public:
  void onKey(K const& key) override { events.push_back("k:" + keyText(key)); }
  void onCollection() override { events.push_back("collection"); }
  void onStatus() override { events.push_back("status"); }

  // The events so far, space-separated; forgets them.
  std::string take() {
    std::string s;
    for (auto const& e : events) s += (s.empty() ? "" : " ") + e;
    events.clear();
    return s;
  }

  bool heard(std::string const& event) const { return std::ranges::count(events, event) > 0; }

  std::vector<std::string> events;
};

// "k=v k=v" in the table's iteration order.
inline std::string contents(NumberTable const& table) {
  std::ostringstream os;
  for (auto const& e : table) os << (os.tellp() > 0 ? " " : "") << e.key << "=" << e.value;
  return os.str();
}

// Polls at least once, and until `done` holds or a few seconds pass; returns whether it held.
inline bool pollUntil(std::function<void()> const& poll, std::function<bool()> const& done) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (poll(); !done(); poll()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    usleep(200);
  }
  return true;
}

class KelpFixture : public ::testing::Test {
 protected:
  KelpFixture() {
    static int serial = 0;
    prefix_ = "kelptest" + std::to_string(::getpid()) + "_" + std::to_string(++serial);
  }
  ~KelpFixture() override {
    for (auto const& name : Kelp::tableNames(prefix_)) Kelp::unlinkTable(name);
  }
  std::string table(std::string const& name) const { return Kelp::tableName(prefix_, name); }

  std::string prefix_;
};

// A writable mapping of a whole segment, as a stray process would have it.
class Injector {
 public:
  explicit Injector(std::string const& table) {
    int const fd = ::shm_open(Kelp::segmentPath(table).c_str(), O_RDWR, 0);
    bytes_ = static_cast<std::size_t>(::lseek(fd, 0, SEEK_END));
    base_ =
        static_cast<std::byte*>(::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    ::close(fd);
  }
  ~Injector() { ::munmap(base_, bytes_); }
  Kelp::Layout::Header& header() { return *reinterpret_cast<Kelp::Layout::Header*>(base_); }
  Kelp::Word* logEntry(Kelp::Word position) {
    auto const& g = header().geometry;
    return reinterpret_cast<Kelp::Word*>(base_ + Kelp::Layout::logOffset) +
           (position % g.logCapacity) * g.logWords;
  }
  Kelp::Word* slot(std::size_t index) {
    auto const& g = header().geometry;
    return reinterpret_cast<Kelp::Word*>(base_ + g.slotsOffset) + index * g.slotWords;
  }

 private:
  std::byte* base_ = nullptr;
  std::size_t bytes_ = 0;
};

// A forked child running `body`, and the test's line channel to it. The body gets this same
// object, whose channel in the child leads back to the test. The child ends with _exit and the
// body's return value, or sends an exception's message as a line and exits with 99; it is killed,
// if still running, when this goes.
class ChildProcess {
 public:
  explicit ChildProcess(std::function<int(ChildProcess&)> const& body) {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) std::terminate();
    pid_ = ::fork();
    fd_ = fds[pid_ == 0 ? 1 : 0];
    ::close(fds[pid_ == 0 ? 0 : 1]);
    if (pid_ != 0) return;
    int rc = 99;
    try {
      rc = body(*this);
    } catch (std::exception const& e) {
      send(std::string("exception: ") + e.what());
    }
    ::_exit(rc);
  }
  ChildProcess(ChildProcess const&) = delete;
  ~ChildProcess() {
    if (pid_ > 0) kill();
    ::close(fd_);
  }

  // A blocking write to a stream socket takes the whole line.
  void send(std::string const& line) const {
    std::string const text = line + "\n";
    if (::write(fd_, text.data(), text.size()) < 0) return;
  }

  // The next line; "<none>" once the other side has closed, or after 20 s of silence.
  std::string receive() {
    std::size_t nl;
    while ((nl = buffer_.find('\n')) == std::string::npos) {
      pollfd p{fd_, POLLIN, 0};
      char chunk[4096];
      ssize_t n = 0;
      if (::poll(&p, 1, 20000) <= 0 || (n = ::read(fd_, chunk, sizeof chunk)) <= 0) return "<none>";
      buffer_.append(chunk, static_cast<std::size_t>(n));
    }
    std::string line = buffer_.substr(0, nl);
    buffer_.erase(0, nl + 1);
    return line;
  }

  int fd() const { return fd_; }

  void kill() {
    ::kill(pid_, SIGKILL);
    wait();
  }

  // The exit status, or 128 + the signal that ended the child. Once only.
  int wait() {
    int raw = 0;
    ::waitpid(std::exchange(pid_, 0), &raw, 0);
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  }

 private:
  pid_t pid_ = 0;
  int fd_ = -1;
  std::string buffer_;
};

}  // namespace KelpTest
