// Stops a running loop at its auto-end time: a thread that sleeps in Clock::WaitUntil until the
// deadline and then requests the loop's stop signal (as the End button does).
#pragma once

#include <atomic>
#include <thread>

#include "core/clock.h"
#include "core/date_time.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"

namespace clockcomm::shell {

class AutoEndWatcher {
 public:
  AutoEndWatcher(core::Clock& clock, const core::DateTime& end, core::StopSignal& end_comm_loop,
                 core::LogSink& log);
  // Cancels the watch if the deadline has not come, and joins the thread.
  ~AutoEndWatcher();
  AutoEndWatcher(const AutoEndWatcher&) = delete;
  AutoEndWatcher& operator=(const AutoEndWatcher&) = delete;

  // True once the deadline was reached and the stop requested.
  bool Fired() const { return fired_.load(); }

 private:
  std::atomic<bool> fired_{false};
  core::StopSignal cancel_;
  std::thread thread_;
};

}  // namespace clockcomm::shell
