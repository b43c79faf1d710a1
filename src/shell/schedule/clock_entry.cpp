#include "shell/schedule/clock_entry.h"

#include <atomic>

namespace clockcomm::shell {
namespace {
std::atomic<uint64_t> next_unique_id{1};
}  // namespace

ClockEntry::ClockEntry(ClockLine line) : unique_id_(next_unique_id++), line_(line) {}

ClockEntry ClockEntry::FromPollRow(const PollRow& row, ClockLine line) {
  if (row.terminal_type) line.clock_type = *row.terminal_type;
  ClockEntry entry(line);
  entry.name_ = row.location_name;
  entry.address_ = row.location_phone;
  entry.time_of_day_ = row.dial_time;
  if (row.dial_time) entry.call_time_ = core::DateTime(core::Date(), *row.dial_time);
  entry.location_id_ = row.location_id;
  entry.active_ = row.select_to_dial;
  entry.group_key_ = row.location_phone;
  entry.terminal_id_ = row.terminal_id;
  return entry;
}

std::string ClockEntry::ToString() const {
  std::string text = name_ + " (" + std::to_string(location_id_) + ", " + address_ + ")";
  if (time_of_day_) text += " at " + time_of_day_->Format(core::kFormatHourMinute);
  return text;
}

}  // namespace clockcomm::shell
