// Scheduled polling while hosting: every selected location of the poll list with a call time is
// due once a day at that time. The host loop asks once per pass whether one is due, and the end
// of a call marks a clock's due entries as done. Used from the host loop's thread only.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "core/clock.h"
#include "core/date_time.h"
#include "shell/schedule/clock_entry.h"
#include "shell/schedule/event_schedule.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::shell {

class HostPollSchedule {
 public:
  HostPollSchedule(PollRowSource& poll_list, core::Clock& clock, ClockLine line = {});

  // Reads the poll list again. An entry whose call time is unchanged keeps its next time; a new
  // or changed one is next due at its first call time after now.
  void Load();
  size_t Count() const { return schedule_.Count(); }

  // The first entry that has come due, moved on to its next day at once so that a call that
  // fails before the terminal names itself does not make it due again. Nothing when none is due.
  std::optional<ClockEntry> TakeDue();
  // Update today's schedule entries for this clock: entries of this clock (by location name or
  // terminal id, ignoring case) that have come due move to their next day, since the clock has
  // just delivered its punches. Returns how many moved.
  int UpdateForClock(std::string_view clock_name);
  // The earliest next call time, so that the host loop can bound its wait; nothing when empty.
  std::optional<core::DateTime> NextDue() const;
  // The next call time of one location.
  std::optional<core::DateTime> NextDueOf(int64_t location_id) const;

 private:
  PollRowSource& poll_list_;
  core::Clock& clock_;
  ClockLine line_;
  EventSchedule schedule_;
  std::map<std::string, ClockEntry> entries_;  // by event key (the LocationID)
};

}  // namespace clockcomm::shell
