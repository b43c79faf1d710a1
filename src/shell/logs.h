// The program's log sink: events go to the event log (TCLOG.db), debug lines to the general or
// per-name daily debug log, screen lines to the screen log (and, when asked, to a stream).
#pragma once

#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>

#include "core/clock.h"
#include "core/log_sink.h"
#include "core/screen_message.h"
#include "shell/event_log.h"
#include "shell/my_static.h"
#include "shell/text_logs.h"

namespace clockcomm::shell {

// Shown (stderr and screen log) when the event log cannot be opened; the program goes on.
inline constexpr const char* kEventLogUnavailable = " Could Not Access TCLOG.MDB Log File.";

class Logs : public core::LogSink {
 public:
  // Opens TCLOG.db under the data directory (creating it when missing) and the "Debug Logs"
  // folder. Screen lines are also written to screen_echo when it is given.
  Logs(const MyPaths& paths, core::Clock& clock, std::ostream* screen_echo = nullptr);

  void Event(std::string_view event_type, std::string_view description) override;
  void Debug(std::string_view name, std::string_view message) override;
  void Screen(std::string_view message) override;

  // The clock whose call the calling thread is handling; fills ClockName and ClockNumber of the
  // event rows this thread writes. Each line runs on its own thread, so each has its own clock.
  void SetCurrentClock(std::string_view name, int number) override;
  void ClearCurrentClock();

  // Null when TCLOG.db could not be opened.
  EventLog* GetEventLog() { return event_log_.get(); }
  TextLogs& Text() { return text_logs_; }

 private:
  struct CurrentClock {
    std::string name;
    int number = 0;
  };

  core::Clock& clock_;
  std::ostream* screen_echo_;
  TextLogs text_logs_;
  std::unique_ptr<EventLog> event_log_;
  std::mutex mutex_;  // guards current_clocks_ and screen_echo_ writes
  std::map<std::thread::id, CurrentClock> current_clocks_;
};

}  // namespace clockcomm::shell
