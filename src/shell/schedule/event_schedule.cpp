#include "shell/schedule/event_schedule.h"

#include <algorithm>
#include <utility>

#include "core/errors.h"

namespace clockcomm::shell {
ScheduledEvent& EventSchedule::Item(size_t index) {
  return const_cast<ScheduledEvent&>(std::as_const(*this).Item(index));
}

const ScheduledEvent& EventSchedule::Item(size_t index) const {
  if (index >= events_.size()) {
    throw core::IndexOutOfRangeException("EventSchedule has no item " + std::to_string(index) +
                                         " (Count is " + std::to_string(events_.size()) + ").");
  }
  return events_[index];
}

ScheduledEvent& EventSchedule::Item(std::string_view key) {
  ScheduledEvent* event = Find(key);
  if (event == nullptr) {
    throw core::ItemNotFoundException("EventSchedule has no event " + std::string(key) + ".");
  }
  return *event;
}

ScheduledEvent& EventSchedule::Add(ScheduledEvent event, const core::DateTime& now) {
  if (Contains(event.Key())) {
    throw core::ArgumentException("EventSchedule already has an event " + event.Key() + ".",
                                  "event");
  }
  event.SetNextAfter(now);
  events_.push_back(std::move(event));
  return events_.back();
}

void EventSchedule::IncrementEvent(std::string_view key, const core::DateTime& now) {
  ScheduledEvent& event = Item(key);
  core::DateTime after = now;
  if (event.NextEvent() && *event.NextEvent() > after) after = *event.NextEvent();
  event.SetNextAfter(after);
}

ScheduledEvent* EventSchedule::FirstElapsed(const core::DateTime& now) {
  for (ScheduledEvent& event : events_) {
    if (event.Elapsed(now)) return &event;
  }
  return nullptr;
}

const ScheduledEvent* EventSchedule::Find(std::string_view key) const {
  for (const ScheduledEvent& event : events_) {
    if (event.Key() == key) return &event;
  }
  return nullptr;
}

ScheduledEvent* EventSchedule::Find(std::string_view key) {
  return const_cast<ScheduledEvent*>(std::as_const(*this).Find(key));
}

}  // namespace clockcomm::shell
