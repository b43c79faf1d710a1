#include "shell/logs.h"

#include <iostream>

namespace clockcomm::shell {

Logs::Logs(const MyPaths& paths, core::Clock& clock, std::ostream* screen_echo)
    : clock_(clock), screen_echo_(screen_echo), text_logs_(paths.DebugLogDirectory(), clock) {
  try {
    event_log_ = EventLog::Open(paths.EventLogDatabase());
  } catch (const std::exception& e) {
    std::cerr << kEventLogUnavailable << "\n";
    try {
      text_logs_.WriteScreen({kEventLogUnavailable});
      text_logs_.WriteDebug({kEventLogUnavailable, e.what()});
    } catch (const std::exception&) {  // the text logs are unreachable too; stderr has it
    }
  }
}

void Logs::Event(std::string_view event_type, std::string_view description) {
  if (!event_log_) return;
  CurrentClock current;
  {
    std::lock_guard lock(mutex_);
    auto it = current_clocks_.find(std::this_thread::get_id());
    if (it != current_clocks_.end()) current = it->second;
  }
  event_log_->Write(clock_.Now(), current.name, current.number, event_type, description);
}

void Logs::Debug(std::string_view name, std::string_view message) {
  if (name.empty()) {
    text_logs_.WriteDebug({message});
  } else {
    text_logs_.WriteNamedDebug(name, {message});
  }
}

void Logs::Screen(std::string_view message) {
  text_logs_.WriteScreen({message});
  if (screen_echo_ != nullptr) {
    std::lock_guard lock(mutex_);
    *screen_echo_ << message << std::endl;
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
