// A list of daily events known by position or by key.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/date_time.h"
#include "shell/schedule/scheduled_event.h"

namespace clockcomm::shell {

class EventSchedule {
 public:
  size_t Count() const { return events_.size(); }

  // By position; throws IndexOutOfRangeException naming the index.
  ScheduledEvent& Item(size_t index);
  const ScheduledEvent& Item(size_t index) const;
  // By key; throws ItemNotFoundException naming the key.
  ScheduledEvent& Item(std::string_view key);

  // Adds the event with its next time set after `now`. Throws ArgumentException when an event
  // with the same key is already here.
  ScheduledEvent& Add(ScheduledEvent event, const core::DateTime& now);
  bool Contains(std::string_view key) const { return Find(key) != nullptr; }

  // Moves an event that has fallen due (or is about to) on to its next day: the next time after
  // the later of its NextEvent and `now`.
  void IncrementEvent(std::string_view key, const core::DateTime& now);

  // The first event (in list order) that has elapsed at `now`.
  ScheduledEvent* FirstElapsed(const core::DateTime& now);

 private:
  const ScheduledEvent* Find(std::string_view key) const;
  ScheduledEvent* Find(std::string_view key);

  std::vector<ScheduledEvent> events_;
};

}  // namespace clockcomm::shell
