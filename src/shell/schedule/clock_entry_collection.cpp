#include "shell/schedule/clock_entry_collection.h"

#include <algorithm>

#include "core/errors.h"

namespace clockcomm::shell {

ClockEntryCollection::~ClockEntryCollection() { SetEnabled(false); }

void ClockEntryCollection::Add(ClockEntry entry) {
  std::lock_guard lock(mutex_);
  entries_.push_back(std::move(entry));
}

ClockEntry ClockEntryCollection::Item(size_t index) const {
  std::lock_guard lock(mutex_);
  if (index >= entries_.size()) {
    throw core::IndexOutOfRangeException("ClockEntryCollection has no item " +
                                         std::to_string(index) + " (Count is " +
                                         std::to_string(entries_.size()) + ").");
  }
  return entries_[index];
}

size_t ClockEntryCollection::Count() const {
  std::lock_guard lock(mutex_);
  return entries_.size();
}

void ClockEntryCollection::Remove(const ClockEntry& entry) {
  std::lock_guard lock(mutex_);
  auto it = std::find_if(entries_.begin(), entries_.end(),
                         [&](const ClockEntry& e) { return e.UniqueID() == entry.UniqueID(); });
  if (it == entries_.end()) {
    throw core::ItemNotFoundException("ClockEntryCollection does not hold " + entry.ToString() +
                                      ".");
  }
  entries_.erase(it);
}

void ClockEntryCollection::RemoveAll() {
  std::lock_guard lock(mutex_);
  entries_.clear();
}

bool ClockEntryCollection::Contains(const ClockEntry& entry) const {
  std::lock_guard lock(mutex_);
  return std::any_of(entries_.begin(), entries_.end(),
                     [&](const ClockEntry& e) { return e.UniqueID() == entry.UniqueID(); });
}

std::vector<ClockEntry> ClockEntryCollection::Entries() const {
  std::lock_guard lock(mutex_);
  return entries_;
}

void ClockEntryCollection::Load(PollRowSource& source, ClockLine line) {
  std::vector<ClockEntry> loaded;
  for (const PollRow& row : source.ReadPollRows()) {
    loaded.push_back(ClockEntry::FromPollRow(row, line));
  }
  std::lock_guard lock(mutex_);
  entries_ = std::move(loaded);
  source_ = &source;
  line_ = line;
}

void ClockEntryCollection::Refresh() {
  PollRowSource* source;
  ClockLine line;
  {
    std::lock_guard lock(mutex_);
    source = source_;
    line = line_;
  }
  if (source == nullptr) {
    throw core::InvalidOperationException("ClockEntryCollection.Refresh needs a Load first.");
  }
  Load(*source, line);
}

void ClockEntryCollection::SetTimeHit(TimeHitHandler handler) {
  std::lock_guard lock(mutex_);
  time_hit_ = std::move(handler);
}

bool ClockEntryCollection::Enabled() const { return timer_.joinable(); }

void ClockEntryCollection::SetEnabled(bool enabled) {
  if (enabled == Enabled()) return;
  if (enabled) {
    timer_stop_.Reset();
    {
      std::lock_guard lock(mutex_);
      ticks_ = 0;
    }
    timer_ = std::thread([this] { RunTimer(); });
  } else {
    timer_stop_.Request();
    timer_.join();
  }
}

uint64_t ClockEntryCollection::TickCount() const {
  std::lock_guard lock(mutex_);
  return ticks_;
}

bool ClockEntryCollection::WaitForTicks(uint64_t n, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return tick_cv_.wait_for(lock, timeout, [&] { return ticks_ >= n; });
}

void ClockEntryCollection::RunTimer() {
  // The minute before the start, so that entries of the current minute fire on the first tick.
  // Minutes up to `handled` have fired. The wait below ends only once the wall time has passed
  // it, so a clock set back (the repeated hour of daylight-saving time) fires nothing twice, and
  // a clock that jumps forward fires the minutes it skipped.
  core::DateTime handled = clock_.Now().TruncatedToMinute().AddMinutes(-1);
  for (;;) {
    const core::DateTime minute = clock_.Now().TruncatedToMinute();
    if (minute > handled) {
      Tick(handled, minute);
      handled = minute;
    }
    {
      std::lock_guard lock(mutex_);
      ++ticks_;
    }
    tick_cv_.notify_all();
    if (!clock_.WaitUntil(handled.AddMinutes(1), timer_stop_)) return;
  }
}

void ClockEntryCollection::Tick(const core::DateTime& after, const core::DateTime& upto) {
  std::vector<ClockEntry> hits;
  TimeHitHandler handler;
  {
    std::lock_guard lock(mutex_);
    handler = time_hit_;
    for (const ClockEntry& entry : entries_) {
      if (!entry.Active() || !entry.TimeOfDay()) continue;
      // The latest occurrence of the entry's minute at or before upto.
      core::DateTime occurrence(upto.GetDate(), entry.TimeOfDay()->WithoutSeconds());
      if (occurrence > upto) occurrence = occurrence.AddDays(-1);
      if (occurrence > after) hits.push_back(entry);
    }
  }
  if (!handler) return;
  for (const ClockEntry& entry : hits) handler(entry);
}

}  // namespace clockcomm::shell
