#include "core/stop_signal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "core/errors.h"
#include "core/heartbeat.h"

namespace clockcomm::core {

StopSignal::StopSignal() : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (fd_ < 0) throw SystemError::FromErrno(errno, "eventfd");
}

StopSignal::~StopSignal() {
  if (fd_ >= 0) close(fd_);
}

void StopSignal::Request() {
  std::vector<std::function<void()>> to_call;
  {
    // Written under the lock, so that the descriptor holds a count only while requested_ is set
    // and Reset need read it only then.
    std::lock_guard lock(mutex_);
    requested_ = true;
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t n = write(fd_, &one, sizeof one);
    for (auto& [id, fn] : listeners_) to_call.push_back(fn);
  }
  cv_.notify_all();
  for (auto& fn : to_call) fn();
}

void StopSignal::Reset() {
  std::lock_guard lock(mutex_);
  if (!requested_) return;  // the common case (each packet read resets), without a system call
  requested_ = false;
  uint64_t value;
  while (read(fd_, &value, sizeof value) > 0) {
  }
}

bool StopSignal::WaitFor(std::chrono::nanoseconds timeout) {
  // Under a watchdog a long wait wakes every slice to beat for its loop.
  const auto slice = Heartbeat::WaitSlice();
  const auto start = std::chrono::steady_clock::now();
  for (;;) {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (elapsed >= timeout) break;
    {
      std::unique_lock lock(mutex_);
      if (cv_.wait_for(lock, std::min<std::chrono::nanoseconds>(timeout - elapsed, slice),
                       [this] { return requested_.load(); })) {
        break;
      }
    }
    Heartbeat::BeatThisThread();
  }
  return requested_.load();
}

int StopSignal::AddListener(std::function<void()> fn) {
  std::lock_guard lock(mutex_);
  int id = next_listener_id_++;
  listeners_[id] = std::move(fn);
  return id;
}

void StopSignal::RemoveListener(int id) {
  std::lock_guard lock(mutex_);
  listeners_.erase(id);
}

}  // namespace clockcomm::core
