// A list of daily events known by position or by key, loaded from any table of rows (the poll
// list, or a list the console sends).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/date_time.h"
#include "db/recordset.h"
#include "db/value.h"
#include "shell/schedule/scheduled_event.h"

namespace clockcomm::shell {

inline constexpr const char* kGridNothingMessage = "grid cannot be Nothing.";
inline constexpr const char* kUnsupportedIndexMessage = "Unsupported index type.";

class EventSchedule {
 public:
  size_t Count() const { return events_.size(); }

  // By position; throws IndexOutOfRangeException naming the index.
  ScheduledEvent& Item(size_t index);
  const ScheduledEvent& Item(size_t index) const;
  // By key; throws ItemNotFoundException naming the key.
  ScheduledEvent& Item(std::string_view key);
  // A grid cell as index: an integer is a position, text a key. Anything else (null, a real)
  // throws ArgumentException "Unsupported index type.".
  ScheduledEvent& Item(const db::Value& index);

  // Adds the event with its next time set after `now`. Throws ArgumentException when an event
  // with the same key is already here.
  ScheduledEvent& Add(ScheduledEvent event, const core::DateTime& now);
  // Throws ItemNotFoundException naming the key.
  void Remove(std::string_view key);
  void Clear() { events_.clear(); }
  bool Contains(std::string_view key) const { return Find(key) != nullptr; }

  // Moves an event that has fallen due (or is about to) on to its next day: the next time after
  // the later of its NextEvent and `now`.
  void IncrementEvent(std::string_view key, const core::DateTime& now);

  // The first event (in list order) that has elapsed at `now`.
  ScheduledEvent* FirstElapsed(const core::DateTime& now);

  // Replaces the events with one per row of the grid whose time cell is not empty, keyed by the
  // key cell's text. Throws ArgumentException "grid cannot be Nothing." for a null grid,
  // ItemNotFoundException for a missing column, and FormatException naming the row and text for
  // a time cell that is not a time of day; the schedule is left as it was on any error.
  void LoadFrom(const db::Recordset* grid, const core::DateTime& now,
                std::string_view key_column = "LocationID",
                std::string_view time_column = "DialTime");

 private:
  const ScheduledEvent* Find(std::string_view key) const;
  ScheduledEvent* Find(std::string_view key);

  std::vector<ScheduledEvent> events_;
};

}  // namespace clockcomm::shell
