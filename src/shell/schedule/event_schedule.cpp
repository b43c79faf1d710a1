#include "shell/schedule/event_schedule.h"

#include <algorithm>
#include <utility>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::shell {
namespace {

size_t ColumnIndex(const db::Recordset& grid, std::string_view name) {
  const auto& columns = grid.Columns();
  for (size_t i = 0; i < columns.size(); ++i) {
    if (core::EqualsIgnoreCase(columns[i], name)) return i;
  }
  throw core::ItemNotFoundException("The schedule grid has no column " + std::string(name) + ".");
}

}  // namespace

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

ScheduledEvent& EventSchedule::Item(const db::Value& index) {
  if (index.IsInteger()) {
    if (index.AsInt() < 0) {
      throw core::IndexOutOfRangeException("EventSchedule has no item " +
                                           std::to_string(index.AsInt()) + ".");
    }
    return Item(static_cast<size_t>(index.AsInt()));
  }
  if (index.IsText()) return Item(std::string_view(index.AsText()));
  throw core::ArgumentException(kUnsupportedIndexMessage, "index");
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

void EventSchedule::Remove(std::string_view key) {
  auto it = std::find_if(events_.begin(), events_.end(),
                         [&](const ScheduledEvent& e) { return e.Key() == key; });
  if (it == events_.end()) {
    throw core::ItemNotFoundException("EventSchedule has no event " + std::string(key) + ".");
  }
  events_.erase(it);
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

void EventSchedule::LoadFrom(const db::Recordset* grid, const core::DateTime& now,
                             std::string_view key_column, std::string_view time_column) {
  if (grid == nullptr) throw core::ArgumentException(kGridNothingMessage, "grid");
  const size_t key_index = ColumnIndex(*grid, key_column);
  const size_t time_index = ColumnIndex(*grid, time_column);
  EventSchedule loaded;
  size_t row_number = 0;
  for (const auto& row : grid->Rows()) {
    ++row_number;
    const std::string text = core::Trim(row.at(time_index).AsText());
    if (text.empty()) continue;
    std::optional<core::TimeOfDay> time = core::ParseTime(text);
    if (!time) {
      throw core::FormatException("Row " + std::to_string(row_number) +
                                  " of the schedule grid: " + std::string(time_column) + " \"" +
                                  text + "\" is not a time of day.");
    }
    loaded.Add(ScheduledEvent(row.at(key_index).AsText(), *time), now);
  }
  events_ = std::move(loaded.events_);
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
