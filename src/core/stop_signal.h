// A stop request that blocking waits can watch: a flag, a condition variable for threads that
// sleep, and an eventfd for threads that poll() file descriptors.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

namespace clockcomm::core {

class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  // Sets the flag and wakes every waiter at once.
  void Request();
  // Clears the flag (and drains the eventfd) so the signal can be used again.
  void Reset();
  bool Requested() const { return requested_.load(); }

  // Readable while a stop is requested; put it in a poll() set beside the line's descriptor.
  int WakeFd() const { return fd_; }

  // Blocks until a stop is requested or the timeout passes. Returns Requested().
  bool WaitFor(std::chrono::nanoseconds timeout);

  // Calls fn (from the requesting thread) when Request() is called; for waits that block on
  // something other than this signal. Returns an id for RemoveListener.
  int AddListener(std::function<void()> fn);
  void RemoveListener(int id);

 private:
  std::atomic<bool> requested_{false};
  int fd_ = -1;
  std::mutex mutex_;
  std::condition_variable cv_;
  std::map<int, std::function<void()>> listeners_;
  int next_listener_id_ = 1;
};

}  // namespace clockcomm::core
