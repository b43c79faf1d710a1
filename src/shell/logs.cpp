#include "shell/logs.h"

#include <algorithm>
#include <iostream>

#include "core/errors.h"
#include "db/database.h"
#include "db/location.h"

namespace clockcomm::shell {

Logs::Logs(const MyPaths& paths, core::Clock& clock, std::ostream* screen_echo, EventLogRetry retry)
    : clock_(clock),
      screen_echo_(screen_echo),
      retry_(retry),
      event_log_file_(paths.EventLogDatabase()),
      text_logs_(paths.DebugLogDirectory(), clock) {
  std::lock_guard lock(event_log_mutex_);
  try {
    event_log_ = EventLog::Open(event_log_file_, retry_.busy_wait);
  } catch (const std::exception& e) {
    open_error_ = e.what();
    next_reopen_ = clock_.Steady() + retry_.reopen_interval;
    event_log_failing_ = true;  // reported here; events then go to the debug log quietly
    std::cerr << kEventLogUnavailable << "\n";
    WriteText(TextLog::kScreen, {}, {kEventLogUnavailable});
    WriteText(TextLog::kDebug, {}, {kEventLogUnavailable, e.what()});
  }
}

EventLog* Logs::GetEventLog() {
  std::lock_guard lock(event_log_mutex_);
  return event_log_.get();
}

EventLog* Logs::EventLogToWrite(std::string& error) {
  std::lock_guard lock(event_log_mutex_);
  if (event_log_) return event_log_.get();
  if (clock_.Steady() >= next_reopen_) {
    try {
      event_log_ = EventLog::Open(event_log_file_, retry_.busy_wait);
      return event_log_.get();
    } catch (const std::exception& e) {
      open_error_ = e.what();
      next_reopen_ = clock_.Steady() + retry_.reopen_interval;
    }
  }
  error = open_error_;
  return nullptr;
}

void Logs::Event(std::string_view event_type, std::string_view description) {
  CurrentClock current;
  std::string error;
  try {
    {
      std::lock_guard lock(mutex_);
      auto it = current_clocks_.find(std::this_thread::get_id());
      if (it != current_clocks_.end()) current = it->second;
    }
    if (EventListener* listener = event_listener_.load()) {
      listener->OnEvent(event_type, description, current.name, current.number);
    }
    const core::DateTime now = clock_.Now();
    if (EventLog* log = EventLogToWrite(error)) {
      const int tries = event_log_failing_ ? 1 : std::max(1, retry_.tries);
      auto backoff = retry_.backoff;
      for (int attempt = 1;; ++attempt) {
        try {
          log->Write(now, current.name, current.number, event_type, description);
          if (event_log_failing_.exchange(false)) {
            const std::string back =
                "Event log available again: " + db::ShownLocation(event_log_file_.native());
            std::cerr << back + "\n";
            WriteText(TextLog::kDebug, {}, {back});
          }
          return;
        } catch (const std::exception& e) {
          error = e.what();
          const auto* db_error = dynamic_cast<const db::DatabaseError*>(&e);
          if (db_error == nullptr || !db_error->Busy() || attempt >= tries) break;
        }
        // Gives the connection that holds the lock time to finish; the budget bounds it.
        std::this_thread::sleep_until(std::chrono::steady_clock::now() + backoff);
        backoff *= 2;
      }
    }
  } catch (const std::exception& e) {
    error = e.what();
  }
  ReportUnwrittenEvent(error, current, event_type, description);
}

void Logs::ReportUnwrittenEvent(const std::string& error, const CurrentClock& current,
                                std::string_view event_type, std::string_view description) {
  try {
    const std::string report =
        "Event log unavailable: " + db::ShownLocation(event_log_file_.native()) + ": " + error;
    std::string lost = "Event not written: ";
    lost += event_type;
    lost += " - ";
    lost += description;
    if (!current.name.empty()) {
      lost += " (clock " + current.name + " " + std::to_string(current.number) + ")";
    }
    const bool first_of_outage = !event_log_failing_.exchange(true);
    const bool in_text_log = WriteText(TextLog::kDebug, {}, {report, lost});
    if (first_of_outage || !in_text_log) std::cerr << report + "\n" + lost + "\n";
  } catch (...) {  // out of memory while reporting: nothing is left to report with
  }
}

bool Logs::WriteText(TextLog log, std::string_view name,
                     std::initializer_list<std::string_view> parts) {
  try {
    switch (log) {
      case TextLog::kDebug:
        text_logs_.WriteDebug(parts);
        break;
      case TextLog::kNamedDebug:
        text_logs_.WriteNamedDebug(name, parts);
        break;
      case TextLog::kScreen:
        text_logs_.WriteScreen(parts);
        break;
    }
  } catch (const core::SystemError& e) {
    ReportTextLogFailure(log, e.Number(), e.what());
    return false;
  } catch (const std::exception& e) {
    ReportTextLogFailure(log, 0, e.what());
    return false;
  }
  if (text_failing_) {  // this log works again: its next failure is news
    try {
      std::lock_guard lock(mutex_);
      std::erase_if(text_failures_, [log](const auto& failure) { return failure.first == log; });
      text_failing_ = !text_failures_.empty();
    } catch (...) {
    }
  }
  return true;
}

void Logs::ReportTextLogFailure(TextLog log, int error_number, const std::string& what) {
  try {
    bool first = false;
    {
      std::lock_guard lock(mutex_);
      first = text_failures_.emplace(log, error_number).second;
      text_failing_ = true;
    }
    if (first) std::cerr << "Text log unavailable: " + what + "\n";
  } catch (...) {
  }
}

void Logs::Debug(std::string_view name, std::string_view message) {
  if (name.empty()) {
    WriteText(TextLog::kDebug, {}, {message});
  } else {
    WriteText(TextLog::kNamedDebug, name, {message});
  }
}

void Logs::Screen(std::string_view message) {
  WriteText(TextLog::kScreen, {}, {message});
  if (screen_echo_ != nullptr) {
    try {
      std::lock_guard lock(mutex_);
      *screen_echo_ << message << std::endl;
    } catch (...) {  // a console that went away is no reason to stop
    }
  }
}

void Logs::SetCurrentClock(std::string_view name, int number) {
  if (name.empty()) return ClearCurrentClock();
  std::lock_guard lock(mutex_);
  current_clocks_[std::this_thread::get_id()] = CurrentClock{std::string(name), number};
}

void Logs::ClearCurrentClock() {
  std::lock_guard lock(mutex_);
  current_clocks_.erase(std::this_thread::get_id());
}

}  // namespace clockcomm::shell
