#include "shell/logs.h"

#include <iostream>

namespace clockcomm::shell {

std::string ScreenMessage(std::string_view format, const core::DateTime& now,
                          std::initializer_list<std::string_view> details) {
  std::string out;
  out.reserve(format.size() + 32);
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] == '{') {
      size_t close = format.find('}', i);
      if (close != std::string_view::npos && close > i + 1) {
        std::string_view number = format.substr(i + 1, close - i - 1);
        if (number.size() <= 3 &&
            number.find_first_not_of("0123456789") == std::string_view::npos) {
          size_t index = std::stoul(std::string(number));
          if (index == 0) {
            out += now.Format("yyyy-mm-dd HH:nn:ss");
            i = close;
            continue;
          }
          if (index <= details.size()) {
            out += *(details.begin() + (index - 1));
            i = close;
            continue;
          }
        }
      }
    }
    out += format[i];
  }
  return out;
}

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

void Logs::SetCurrentClock(std::string name, int number) {
  std::lock_guard lock(mutex_);
  current_clocks_[std::this_thread::get_id()] = CurrentClock{std::move(name), number};
}

void Logs::ClearCurrentClock() {
  std::lock_guard lock(mutex_);
  current_clocks_.erase(std::this_thread::get_id());
}

}  // namespace clockcomm::shell
