#include "shell/schedule/host_poll_schedule.h"

#include "core/text.h"

namespace clockcomm::shell {

HostPollSchedule::HostPollSchedule(PollRowSource& poll_list, core::Clock& clock, ClockLine line)
    : poll_list_(poll_list), clock_(clock), line_(line) {}

void HostPollSchedule::Load() {
  const std::vector<PollRow> rows = poll_list_.ReadPollRows();
  const core::DateTime now = clock_.Now();
  EventSchedule loaded;
  std::map<std::string, ClockEntry> entries;
  for (const PollRow& row : rows) {
    if (!row.dial_time || !row.select_to_dial) continue;
    const std::string key = std::to_string(row.location_id);
    ScheduledEvent& event = loaded.Add(ScheduledEvent(key, *row.dial_time), now);
    if (schedule_.Contains(key)) {
      const ScheduledEvent& old = schedule_.Item(std::string_view(key));
      if (old.TimeOfDay() == *row.dial_time && old.NextEvent()) {
        // Keep the old next time, whether it is still ahead or already due and not yet taken.
        event.SetNextAfter(old.NextEvent()->AddSeconds(-1));
      }
    }
    entries.emplace(key, ClockEntry::FromPollRow(row, line_));
  }
  schedule_ = std::move(loaded);
  entries_ = std::move(entries);
}

std::optional<ClockEntry> HostPollSchedule::TakeDue() {
  const core::DateTime now = clock_.Now();
  ScheduledEvent* event = schedule_.FirstElapsed(now);
  if (event == nullptr) return std::nullopt;
  ClockEntry entry = entries_.at(event->Key());
  entry.SetCallTime(*event->NextEvent());
  schedule_.IncrementEvent(event->Key(), now);
  return entry;
}

int HostPollSchedule::UpdateForClock(std::string_view clock_name) {
  if (core::Trim(clock_name).empty()) return 0;
  const core::DateTime now = clock_.Now();
  int moved = 0;
  for (const auto& [key, entry] : entries_) {
    const bool same_clock = core::EqualsIgnoreCase(entry.Name(), clock_name) ||
                            core::EqualsIgnoreCase(entry.TerminalId(), clock_name);
    if (!same_clock || !schedule_.Item(std::string_view(key)).Elapsed(now)) continue;
    schedule_.IncrementEvent(key, now);
    ++moved;
  }
  return moved;
}

std::optional<core::DateTime> HostPollSchedule::NextDue() const {
  std::optional<core::DateTime> earliest;
  for (size_t i = 0; i < schedule_.Count(); ++i) {
    const auto& next = schedule_.Item(i).NextEvent();
    if (next && (!earliest || *next < *earliest)) earliest = next;
  }
  return earliest;
}

std::optional<core::DateTime> HostPollSchedule::NextDueOf(int64_t location_id) const {
  const std::string key = std::to_string(location_id);
  for (size_t i = 0; i < schedule_.Count(); ++i) {
    if (schedule_.Item(i).Key() == key) return schedule_.Item(i).NextEvent();
  }
  return std::nullopt;
}

}  // namespace clockcomm::shell
