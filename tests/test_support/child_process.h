// A child process whose stdout and stderr come back through one pipe, kept as lines with the time
// each came; Pump reads several children at once, blocking in poll().
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace clockcomm::test {

using Steady = std::chrono::steady_clock;

class Child {
 public:
  struct Line {
    Steady::time_point at;
    std::string text;
  };

  // argv[0] is looked up in PATH unless it holds a slash; stdin is /dev/null.
  explicit Child(const std::vector<std::string>& argv) : started_(Steady::now()) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const int error = posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    out_ = fds[0];
    if (error != 0) {
      close(out_);
      throw std::runtime_error("posix_spawn " + argv[0] + ": " + std::strerror(error));
    }
  }
  ~Child() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    Wait();
    if (out_ >= 0) close(out_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool Reading() const { return out_ >= 0; }
  Steady::time_point Started() const { return started_; }
  const std::vector<Line>& Lines() const { return lines_; }
  void Signal(int signal_number) const { kill(pid_, signal_number); }

  // The first line at or after from that contains text.
  std::optional<size_t> Find(std::string_view text, size_t from = 0) const {
    for (size_t i = from; i < lines_.size(); ++i) {
      if (lines_[i].text.find(text) != std::string::npos) return i;
    }
    return std::nullopt;
  }
  // The last count lines, indented, for a failure message.
  std::string Tail(size_t count = 25) const {
    std::string text;
    for (size_t i = lines_.size() > count ? lines_.size() - count : 0; i < lines_.size(); ++i) {
      text += "  " + lines_[i].text + "\n";
    }
    return text;
  }
  // Reaps the process (once its pipe ended or it was killed) and returns its wait status.
  int Wait() {
    while (pid_ > 0 && waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status_;
  }

  // Blocks on the children's pipes, taking their lines, until done() holds, the deadline passes or
  // every pipe has ended. Returns done().
  static bool Pump(const std::vector<Child*>& children, Steady::time_point deadline,
                   const std::function<bool()>& done) {
    while (!done()) {
      std::vector<pollfd> fds;
      std::vector<Child*> readers;
      for (Child* child : children) {
        if (child != nullptr && child->Reading()) {
          fds.push_back({child->out_, POLLIN, 0});
          readers.push_back(child);
        }
      }
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now());
      if (fds.empty() || left.count() <= 0) return done();
      if (poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0 && errno != EINTR) {
        throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
      }
      for (size_t i = 0; i < fds.size(); ++i) {
        if (fds[i].revents != 0) readers[i]->ReadAvailable();
      }
    }
    return true;
  }
  // Reads until the pipe ends (the process closed it or died) or the deadline passes.
  bool Drain(Steady::time_point deadline) {
    return Pump({this}, deadline, [this] { return !Reading(); });
  }

 private:
  void ReadAvailable() {
    char buffer[4096];
    const ssize_t n = read(out_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) return;
    if (n <= 0) {
      if (!partial_.empty()) lines_.push_back({Steady::now(), partial_});
      close(out_);
      out_ = -1;
      return;
    }
    partial_.append(buffer, static_cast<size_t>(n));
    for (size_t end; (end = partial_.find('\n')) != std::string::npos;) {
      lines_.push_back({Steady::now(), partial_.substr(0, end)});
      partial_.erase(0, end + 1);
    }
  }

  Steady::time_point started_;
  pid_t pid_ = -1;
  int status_ = -1;
  int out_ = -1;
  std::string partial_;
  std::vector<Line> lines_;
};

}  // namespace clockcomm::test
