// Starting host or poll mode by itself: at once, or at the configured begin time, and with the
// moment the run must end. The mode's loop is handed in as a function.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/clock.h"
#include "core/date_time.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"

namespace clockcomm::shell {

// The stored auto-start setting.
enum class AutoStartMode { kNone = 1, kHost = 2, kPoll = 3 };

// Throws ArgumentException naming the value when it is not 1, 2 or 3.
AutoStartMode AutoStartModeFromSetting(int value);
// "Host" or "Poll"; empty for kNone.
std::string AutoStartModeName(AutoStartMode mode);
// "(Autostart Host) " or "(Autostart Poll) "; empty for kNone.
std::string AutoStartPrefix(AutoStartMode mode);
// "End at " + the end time, or empty when the end time is "NONE".
std::string EndAtText(std::string_view end_time);
// The host loop's mode line: "Port =1 Mode = (Autostart Host) (serial) End at 17:00".
std::string ModeLine(int com_port, bool modem, AutoStartMode autostarted,
                     std::string_view end_time);

// A begin or end time setting: "NONE" (or empty) gives nothing. Throws ArgumentException naming
// the setting for any other text that is not a time of day.
std::optional<core::TimeOfDay> ParseSettingTime(std::string_view text, std::string_view setting);

// The first moment after `after` that the clock shows the time of day.
core::DateTime NextTimeOfDay(const core::TimeOfDay& time, const core::DateTime& after);
// The next moment the clock shows the end time setting after now; nothing for "NONE".
std::optional<core::DateTime> NextEndDeadline(std::string_view end_time, const core::DateTime& now);

// What the started loop is told.
struct AutoStartRun {
  AutoStartMode mode = AutoStartMode::kNone;
  std::string prefix;                          // for the mode line
  std::string end_time;                        // "NONE" or the time as configured
  std::optional<core::DateTime> end_deadline;  // the loop must stop here (AutoEndWatcher)
};

class AutoStart {
 public:
  using Runner = std::function<void(const AutoStartRun&)>;

  // mode is the stored setting (1 none, 2 host, 3 poll); begin_time and end_time "NONE" or a time.
  // Throws ArgumentException for a bad setting.
  AutoStart(int mode, std::string_view begin_time, std::string_view end_time, core::LogSink& log,
            core::Clock& clock, core::StopSignal& stop);

  AutoStartMode Mode() const { return mode_; }

  // When the run starts if the program starts at `now`: now, when there is no begin time or
  // `now` lies inside the begin-end window; otherwise the next begin time.
  core::DateTime StartMoment(const core::DateTime& now) const;
  // The first end time after the start; nothing without an end time.
  std::optional<core::DateTime> EndDeadline(const core::DateTime& start) const;

  // Waits for the begin time (stoppable) and then calls the runner once. Returns false when no
  // mode is set or the stop came first.
  bool Run(const Runner& runner);

 private:
  bool InWindow(const core::TimeOfDay& t) const;

  AutoStartMode mode_;
  std::optional<core::TimeOfDay> begin_;
  std::optional<core::TimeOfDay> end_;
  std::string end_text_;
  core::LogSink& log_;
  core::Clock& clock_;
  core::StopSignal& stop_;
};

}  // namespace clockcomm::shell
