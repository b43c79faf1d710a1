// A daily event: a time of day and the next date and time it falls due.
#pragma once

#include <optional>
#include <string>

#include "core/date_time.h"

namespace clockcomm::shell {

class ScheduledEvent {
 public:
  ScheduledEvent() = default;
  ScheduledEvent(std::string key, const core::TimeOfDay& time_of_day)
      : key_(std::move(key)), time_of_day_(time_of_day) {}

  // What the event belongs to (a location's id); its name in an EventSchedule.
  const std::string& Key() const { return key_; }
  void SetKey(std::string key) { key_ = std::move(key); }

  const core::TimeOfDay& TimeOfDay() const { return time_of_day_; }
  void SetTimeOfDay(const core::TimeOfDay& time) { time_of_day_ = time; }
  // Keeps hour, minute and second of the value; its date is dropped.
  void SetTimeOfDay(const core::DateTime& value) { time_of_day_ = value.GetTime(); }

  // The next event is d's date at TimeOfDay, or the day after when that is not later than d: an
  // event set after its own moment moves to tomorrow, so it cannot fall due twice.
  void SetNextAfter(const core::DateTime& d);
  // Nothing until SetNextAfter has been called.
  const std::optional<core::DateTime>& NextEvent() const { return next_event_; }
  // True when d is at or after NextEvent. Throws InvalidOperationException before SetNextAfter.
  bool Elapsed(const core::DateTime& d) const;

  std::string ToString() const;

 private:
  std::string key_;
  core::TimeOfDay time_of_day_;
  std::optional<core::DateTime> next_event_;
};

}  // namespace clockcomm::shell
