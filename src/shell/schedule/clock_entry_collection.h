// The locations with their call times, and a timer that reports each entry when its time of day
// comes round. The timer is a thread that sleeps in Clock::WaitUntil until the next minute.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "core/clock.h"
#include "core/stop_signal.h"
#include "shell/schedule/clock_entry.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::shell {

class ClockEntryCollection {
 public:
  using TimeHitHandler = std::function<void(const ClockEntry&)>;

  explicit ClockEntryCollection(core::Clock& clock) : clock_(clock) {}
  ~ClockEntryCollection();
  ClockEntryCollection(const ClockEntryCollection&) = delete;
  ClockEntryCollection& operator=(const ClockEntryCollection&) = delete;

  void Add(ClockEntry entry);
  // A copy of the entry at index. Throws IndexOutOfRangeException naming the index.
  ClockEntry Item(size_t index) const;
  size_t Count() const;
  // Entries are known by UniqueID. Remove throws ItemNotFoundException when it is not here.
  void Remove(const ClockEntry& entry);
  void RemoveAll();
  bool Contains(const ClockEntry& entry) const;
  // A copy of every entry, in the order added; for iteration while the timer runs.
  std::vector<ClockEntry> Entries() const;

  // Replaces the entries with one per row of the source (rows without a call time included);
  // the source is kept for Refresh.
  void Load(PollRowSource& source, ClockLine line = {});
  // Reads the source given to Load again. Throws InvalidOperationException before any Load.
  void Refresh();

  // Called on the timer's thread, once for each active entry whose time of day is reached.
  void SetTimeHit(TimeHitHandler handler);
  // Starting the timer counts the current minute as reached; stopping joins the thread.
  bool Enabled() const;
  void SetEnabled(bool enabled);

  // Minutes the timer has handled since it was started; lets a caller see that it has caught up.
  uint64_t TickCount() const;
  bool WaitForTicks(uint64_t n, std::chrono::milliseconds timeout) const;

 private:
  void RunTimer();
  // Fires the entries whose time lies in (after, upto]; each at most once.
  void Tick(const core::DateTime& after, const core::DateTime& upto);

  core::Clock& clock_;
  mutable std::mutex mutex_;
  mutable std::condition_variable tick_cv_;
  std::vector<ClockEntry> entries_;
  PollRowSource* source_ = nullptr;
  ClockLine line_;
  TimeHitHandler time_hit_;
  uint64_t ticks_ = 0;

  core::StopSignal timer_stop_;
  std::thread timer_;
};

}  // namespace clockcomm::shell
