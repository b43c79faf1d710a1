// Turns SIGINT and SIGTERM into a call on a watcher thread (the End button), and SIGHUP into
// another (a re-read of the configuration; End where none is given), so that nothing but the
// flag-setting runs in response to a signal. Create it before any other thread starts.
#pragma once

#include <functional>
#include <thread>

#include "core/stop_signal.h"

namespace clockcomm::app {

class SignalWatcher {
 public:
  explicit SignalWatcher(std::function<void()> on_end, std::function<void()> on_hangup = {});
  ~SignalWatcher();
  SignalWatcher(const SignalWatcher&) = delete;
  SignalWatcher& operator=(const SignalWatcher&) = delete;

 private:
  int signal_fd_ = -1;
  core::StopSignal done_;
  std::thread thread_;
};

}  // namespace clockcomm::app
