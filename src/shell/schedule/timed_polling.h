// The unattended polling cycle: read the poll list, call each selected location at its call time
// in call-time order, then read the list again for the next round, until stopped.
#pragma once

#include <optional>
#include <vector>

#include "core/clock.h"
#include "core/date_time.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"
#include "shell/schedule/clock_entry.h"
#include "shell/schedule/poll_list.h"

namespace clockcomm::shell {

inline constexpr const char* kCannotProcessRequest = "Cannot Process Request";
inline constexpr const char* kNoCallTimesMessage =
    "There are no clocks with call times. Clock entries must have call times to be AutoPolled.";

// Calls one location now and returns when that call (with its retries) is over. The outbound
// call loop implements it; it should watch the same stop signal as the cycle.
class OutboundPoller {
 public:
  virtual ~OutboundPoller() = default;
  virtual void Poll(const ClockEntry& entry) = 0;
};

enum class TimedPollingResult {
  kStopped,    // the stop signal (End, auto-end, shutdown) ended the cycle
  kNoEntries,  // the poll list has no selected location with a call time
};

class TimedPolling {
 public:
  // auto_end: the moment the cycle stops by itself, or nothing.
  TimedPolling(PollRowSource& poll_list, OutboundPoller& poller, core::LogSink& log,
               core::Clock& clock, core::StopSignal& end_comm_loop,
               std::optional<core::DateTime> auto_end = std::nullopt, ClockLine line = {});

  // Runs passes until the stop signal is requested or there is nothing to call. On leaving the
  // stop signal is cleared, ready for the next run.
  TimedPollingResult Run();
  // The cycle also ends when idle_end is requested, but only while it waits: a call in progress
  // goes on to its end (the settings are read again, then the cycle starts anew).
  void SetIdleEnd(core::StopSignal* idle_end) { idle_end_ = idle_end; }

  // One pass's entries, sorted: one per selected row with a call time, each called at the base
  // date plus its dial time, or a day later when that lies before the base time.
  static std::vector<ClockEntry> CallList(const std::vector<PollRow>& rows,
                                          const core::DateTime& base, ClockLine line = {});

 private:
  // The rows of the poll list; nothing when the stop came while waiting to retry a failed read.
  std::optional<std::vector<PollRow>> ReadRows();
  std::vector<ClockEntry> BuildPass(const std::vector<PollRow>& rows, const core::DateTime& base);
  // Calls each entry at its time. Returns the last call time, or nothing when stopped.
  std::optional<core::DateTime> RunPass(const std::vector<ClockEntry>& entries);
  void PollOne(const ClockEntry& entry);
  // Waits until the time; false when the stop signal or the idle end came first.
  bool WaitUntil(const core::DateTime& time);
  bool Ending() const;

  PollRowSource& poll_list_;
  OutboundPoller& poller_;
  core::LogSink& log_;
  core::Clock& clock_;
  core::StopSignal& end_comm_loop_;
  std::optional<core::DateTime> auto_end_;
  ClockLine line_;
  core::StopSignal* idle_end_ = nullptr;
};

}  // namespace clockcomm::shell
