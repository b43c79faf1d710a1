#include "shell/schedule/auto_start.h"

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::shell {
namespace {

constexpr const char* kNone = "NONE";

std::string TimeText(const core::TimeOfDay& t) {
  return t.Format(t.Second() == 0 ? core::kFormatHourMinute : core::kFormatHourMinuteSecond);
}

bool IsNone(std::string_view text) {
  std::string trimmed = core::Trim(text);
  return trimmed.empty() || core::EqualsIgnoreCase(trimmed, kNone);
}

}  // namespace

AutoStartMode AutoStartModeFromSetting(int value) {
  if (value < 1 || value > 3) {
    throw core::ArgumentException(
        "Auto-start mode " + std::to_string(value) + " is not 1 (none), 2 (host) or 3 (poll).",
        "auto_start_mode");
  }
  return static_cast<AutoStartMode>(value);
}

std::string AutoStartModeName(AutoStartMode mode) {
  switch (mode) {
    case AutoStartMode::kHost:
      return "Host";
    case AutoStartMode::kPoll:
      return "Poll";
    case AutoStartMode::kNone:
      break;
  }
  return "";
}

std::string AutoStartPrefix(AutoStartMode mode) {
  if (mode == AutoStartMode::kNone) return "";
  return "(Autostart " + AutoStartModeName(mode) + ") ";
}

std::string EndAtText(std::string_view end_time) {
  if (IsNone(end_time)) return "";
  return "End at " + core::Trim(end_time);
}

std::string ModeLine(int com_port, bool modem, AutoStartMode autostarted,
                     std::string_view end_time) {
  return "Port =" + std::to_string(com_port) + " Mode = " + AutoStartPrefix(autostarted) +
         (modem ? "(modem) " : "(serial) ") + EndAtText(end_time);
}

std::optional<core::TimeOfDay> ParseSettingTime(std::string_view text, std::string_view setting) {
  if (IsNone(text)) return std::nullopt;
  std::optional<core::TimeOfDay> time = core::ParseTime(core::Trim(text));
  if (!time) {
    throw core::ArgumentException(
        std::string(setting) + " \"" + std::string(text) + "\" is neither a time of day nor NONE.",
        std::string(setting));
  }
  return time;
}

core::DateTime NextTimeOfDay(const core::TimeOfDay& time, const core::DateTime& after) {
  core::DateTime next(after.GetDate(), time);
  return next <= after ? next.AddDays(1) : next;
}

std::optional<core::DateTime> NextEndDeadline(std::string_view end_time,
                                              const core::DateTime& now) {
  const auto end = ParseSettingTime(end_time, "end_time");
  if (!end) return std::nullopt;
  return NextTimeOfDay(*end, now);
}

AutoStart::AutoStart(int mode, std::string_view begin_time, std::string_view end_time,
                     core::LogSink& log, core::Clock& clock, core::StopSignal& stop)
    : mode_(AutoStartModeFromSetting(mode)),
      begin_(ParseSettingTime(begin_time, "begin_time")),
      end_(ParseSettingTime(end_time, "end_time")),
      end_text_(end_ ? TimeText(*end_) : kNone),
      log_(log),
      clock_(clock),
      stop_(stop) {}

bool AutoStart::InWindow(const core::TimeOfDay& t) const {
  if (!begin_) return true;
  if (!end_ || *begin_ == *end_) return t >= *begin_;  // the begin time "has come" today
  if (*begin_ < *end_) return *begin_ <= t && t < *end_;
  return t >= *begin_ || t < *end_;  // a window across midnight
}

core::DateTime AutoStart::StartMoment(const core::DateTime& now) const {
  if (!begin_ || InWindow(now.GetTime())) return now;
  return NextTimeOfDay(*begin_, now);
}

std::optional<core::DateTime> AutoStart::EndDeadline(const core::DateTime& start) const {
  if (!end_) return std::nullopt;
  return NextTimeOfDay(*end_, start);
}

bool AutoStart::Run(const Runner& runner) {
  if (mode_ == AutoStartMode::kNone) return false;
  const std::string name = AutoStartModeName(mode_);
  const core::DateTime now = clock_.Now();
  const core::DateTime start = StartMoment(now);
  if (start > now) {
    log_.Screen("Waiting for Begin Time of " + TimeText(*begin_) + " to Auto-start " + name);
    if (!clock_.WaitUntil(start, stop_)) return false;
  }
  log_.Screen("Auto-starting " + name + " Mode.");
  AutoStartRun run;
  run.mode = mode_;
  run.prefix = AutoStartPrefix(mode_);
  run.end_time = end_text_;
  run.end_deadline = EndDeadline(std::max(start, clock_.Now()));
  runner(run);
  return true;
}

}  // namespace clockcomm::shell
