#pragma once

// A forked child process running a test body, with a line channel both ways, so that Kelp tests
// put writers and readers in separate processes as the agents do. The child ends with _exit and
// the body's return value; an exception in the body is sent as a line and exits with 99.

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <functional>
#include <string>

namespace KelpTest {

class LineChannel {
 public:
  LineChannel() = default;
  LineChannel(int in, int out) : in_(in), out_(out) {}

  void send(std::string const& line) const {
    std::string const text = line + "\n";
    std::size_t done = 0;
    while (done < text.size()) {
      ssize_t const n = ::write(out_, text.data() + done, text.size() - done);
      if (n <= 0) return;
      done += static_cast<std::size_t>(n);
    }
  }

  // The next line, or "<timeout>" / "<eof>".
  std::string receive(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    auto const deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      auto const nl = buffer_.find('\n');
      if (nl != std::string::npos) {
        std::string line = buffer_.substr(0, nl);
        buffer_.erase(0, nl + 1);
        return line;
      }
      auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return "<timeout>";
      pollfd p{in_, POLLIN, 0};
      if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
      char chunk[4096];
      ssize_t const n = ::read(in_, chunk, sizeof chunk);
      if (n <= 0) return "<eof>";
      buffer_.append(chunk, static_cast<std::size_t>(n));
    }
  }

 private:
  int in_ = -1;
  int out_ = -1;
  std::string buffer_;
};

class ChildProcess {
 public:
  explicit ChildProcess(std::function<int(LineChannel&)> const& body) {
    int toChild[2];
    int fromChild[2];
    if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0) std::terminate();
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(toChild[1]);
      ::close(fromChild[0]);
      LineChannel channel(toChild[0], fromChild[1]);
      int rc = 99;
      try {
        rc = body(channel);
      } catch (std::exception const& e) {
        channel.send(std::string("exception: ") + e.what());
      }
      ::_exit(rc);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    channel_ = LineChannel(fromChild[0], toChild[1]);
    fds_[0] = fromChild[0];
    fds_[1] = toChild[1];
  }
  ChildProcess(ChildProcess const&) = delete;
  ChildProcess& operator=(ChildProcess const&) = delete;
  ~ChildProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      wait();
    }
    ::close(fds_[0]);
    ::close(fds_[1]);
  }

  void send(std::string const& line) { channel_.send(line); }
  std::string receive(std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    return channel_.receive(timeout);
  }
  void kill(int signal) { ::kill(pid_, signal); }
  pid_t pid() const { return pid_; }

  // The exit status, or 128 + the signal that ended the child.
  int wait() {
    if (pid_ <= 0) return status_;
    int raw = 0;
    ::waitpid(pid_, &raw, 0);
    pid_ = 0;
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return status_;
  }

 private:
  pid_t pid_ = 0;
  int status_ = -1;
  int fds_[2] = {-1, -1};
  LineChannel channel_;
};

}  // namespace KelpTest
