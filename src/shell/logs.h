// The program's log sink: events go to the event log (TCLOG.db), debug lines to the general or
// per-name daily debug log, screen lines to the screen log (and, when asked, to a stream).
// A log that cannot be written never ends a call or the program: the failure is reported on
// stderr and in the text logs, and the work goes on.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "core/clock.h"
#include "core/log_sink.h"
#include "core/screen_message.h"
#include "shell/event_log.h"
#include "shell/my_static.h"
#include "shell/text_logs.h"

namespace clockcomm::shell {

// Shown (stderr and screen log) when the event log cannot be opened; the program goes on.
inline constexpr const char* kEventLogUnavailable = " Could Not Access TCLOG.MDB Log File.";

// How hard an event is pushed into a locked TCLOG.db. The line waits while its event is written,
// so the whole effort is kept near one second: each try waits busy_wait for the lock, and the
// tries are spaced by backoff, doubled each time (3 x 250 ms + 100 ms + 200 ms = 1.05 s at most).
// Only a busy database is tried again; a full disk or a damaged file fails at once.
struct EventLogRetry {
  int tries = 3;
  std::chrono::milliseconds busy_wait{250};
  std::chrono::milliseconds backoff{100};
  // An event log that could not be opened is tried again on an event at most this often.
  std::chrono::seconds reopen_interval{60};
};

// Takes a copy of each event with the clock it was about (the journal, under systemd). Called on
// the thread that wrote the event; must not throw.
class EventListener {
 public:
  virtual ~EventListener() = default;
  virtual void OnEvent(std::string_view event_type, std::string_view description,
                       std::string_view clock_name, int clock_number) = 0;
};

class Logs : public core::LogSink {
 public:
  // Opens TCLOG.db under the data directory (creating it when missing) and the "Debug Logs"
  // folder. Screen lines are also written to screen_echo when it is given.
  Logs(const MyPaths& paths, core::Clock& clock, std::ostream* screen_echo = nullptr,
       EventLogRetry retry = {});

  // None of the three throws. An event that cannot be written goes to the debug log as
  // "Event log unavailable: <file>: <error>" with the event; stderr gets that once per outage
  // (the first failure, and again after the event log has worked). While the event log fails,
  // each event makes one try only, so that an outage does not hold up every event of a call.
  void Event(std::string_view event_type, std::string_view description) override;
  // A text log that cannot be written is reported on stderr once per log and kind of failure
  // (the error number), and again only after that log has been written once more.
  void Debug(std::string_view name, std::string_view message) override;
  void Screen(std::string_view message) override;

  // The clock whose call the calling thread is handling; fills ClockName and ClockNumber of the
  // event rows this thread writes. Each line runs on its own thread, so each has its own clock.
  void SetCurrentClock(std::string_view name, int number) override;
  // Writes out the text logs' buffered lines; a log that cannot be written reports on its next
  // line.
  void Flush() override { text_logs_.Flush(); }
  void ClearCurrentClock();
  // Every event from now on also goes to listener (nullptr: none). Set before the lines start.
  void SetEventListener(EventListener* listener) { event_listener_ = listener; }

  // Null while TCLOG.db has not been opened; once opened it stays.
  EventLog* GetEventLog();
  TextLogs& Text() { return text_logs_; }

 private:
  struct CurrentClock {
    std::string name;
    int number = 0;
  };
  enum class TextLog { kDebug, kNamedDebug, kScreen };

  // The event log, opened again when it could not be and the reopen interval has passed.
  EventLog* EventLogToWrite(std::string& error);
  void OpenEventLog();
  void ReportUnwrittenEvent(const std::string& error, const CurrentClock& current,
                            std::string_view event_type, std::string_view description);
  // Writes one line of a text log; reports a failure instead of throwing. False when it failed.
  bool WriteText(TextLog log, std::string_view name, std::initializer_list<std::string_view> parts);
  void ReportTextLogFailure(TextLog log, int error_number, const std::string& what);

  core::Clock& clock_;
  std::ostream* screen_echo_;
  const EventLogRetry retry_;
  const std::filesystem::path event_log_file_;
  TextLogs text_logs_;

  std::mutex event_log_mutex_;  // guards event_log_ (set once), next_reopen_ and open_error_
  std::unique_ptr<EventLog> event_log_;
  core::Clock::Monotonic next_reopen_{};
  std::string open_error_;
  std::atomic<bool> event_log_failing_{false};

  std::mutex mutex_;  // guards current_clocks_, screen_echo_ writes and text_failures_
  std::map<std::thread::id, CurrentClock> current_clocks_;
  std::set<std::pair<TextLog, int>> text_failures_;  // reported, not yet written again
  std::atomic<bool> text_failing_{false};
  std::atomic<EventListener*> event_listener_{nullptr};
};

}  // namespace clockcomm::shell
