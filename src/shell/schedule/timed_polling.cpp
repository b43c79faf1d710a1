#include "shell/schedule/timed_polling.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <string>

#include "shell/schedule/auto_end_watcher.h"
#include "shell/schedule/clock_entry_comparer.h"

namespace clockcomm::shell {
namespace {

// How long to wait before reading the poll list again after the read failed (the database may
// be locked by the time-card application).
constexpr int kReadRetryMinutes = 1;

std::string HourMinute(const core::DateTime& t) { return t.Format(core::kFormatHourMinute); }

}  // namespace

TimedPolling::TimedPolling(PollRowSource& poll_list, OutboundPoller& poller, core::LogSink& log,
                           core::Clock& clock, core::StopSignal& end_comm_loop,
                           std::optional<core::DateTime> auto_end, ClockLine line)
    : poll_list_(poll_list),
      poller_(poller),
      log_(log),
      clock_(clock),
      end_comm_loop_(end_comm_loop),
      auto_end_(auto_end),
      line_(line) {}

std::vector<ClockEntry> TimedPolling::CallList(const std::vector<PollRow>& rows,
                                               const core::DateTime& base, ClockLine line) {
  std::vector<ClockEntry> entries;
  for (const PollRow& row : rows) {
    if (!row.dial_time || !row.select_to_dial) continue;
    ClockEntry entry = ClockEntry::FromPollRow(row, line);
    core::DateTime call_time(base.GetDate(), *row.dial_time);
    if (call_time < base) call_time = call_time.AddDays(1);  // Increment Call Date
    entry.SetCallTime(call_time);
    entries.push_back(std::move(entry));
  }
  std::stable_sort(entries.begin(), entries.end(), ClockEntryComparer());
  return entries;
}

TimedPollingResult TimedPolling::Run() {
  TimedPollingResult result = TimedPollingResult::kStopped;
  {
    std::unique_ptr<AutoEndWatcher> watcher;
    if (auto_end_) {
      watcher = std::make_unique<AutoEndWatcher>(clock_, *auto_end_, end_comm_loop_, log_);
    }
    core::DateTime base = clock_.Now().TruncatedToMinute();
    log_.Debug("", "Timed Polling - Base TimeStamp: " + base.Format("yyyy-mm-dd HH:nn"));
    while (!Ending()) {
      std::optional<std::vector<PollRow>> rows = ReadRows();
      if (!rows) break;
      std::vector<ClockEntry> entries = BuildPass(*rows, base);
      if (entries.empty()) {
        log_.Event(kCannotProcessRequest, kNoCallTimesMessage);
        log_.Screen(kNoCallTimesMessage);
        result = TimedPollingResult::kNoEntries;
        break;
      }
      log_.Debug("", "ClockList.Count: " + std::to_string(entries.size()));
      std::optional<core::DateTime> last = RunPass(entries);
      if (!last) break;
      base = last->AddMinutes(1);
    }
  }
  end_comm_loop_.Reset();
  return result;
}

bool TimedPolling::Ending() const {
  return end_comm_loop_.Requested() || (idle_end_ != nullptr && idle_end_->Requested());
}

bool TimedPolling::WaitUntil(const core::DateTime& time) {
  if (idle_end_ == nullptr) return clock_.WaitUntil(time, end_comm_loop_);
  // One signal for the clock's wait, raised by either of the two (shared: a request under way
  // may still call a listener just removed).
  auto either = std::make_shared<core::StopSignal>();
  const int end_listener = end_comm_loop_.AddListener([either] { either->Request(); });
  const int idle_listener = idle_end_->AddListener([either] { either->Request(); });
  const bool reached = !Ending() && clock_.WaitUntil(time, *either);
  end_comm_loop_.RemoveListener(end_listener);
  idle_end_->RemoveListener(idle_listener);
  return reached && !Ending();
}

std::optional<std::vector<PollRow>> TimedPolling::ReadRows() {
  while (!Ending()) {
    try {
      return poll_list_.ReadPollRows();
    } catch (const std::exception& e) {
      log_.Event("System error", std::string("Timed Polling could not read PollT: ") + e.what());
      log_.Screen("Timed Polling could not read the poll list; trying again in a minute.");
    }
    if (!WaitUntil(clock_.Now().AddMinutes(kReadRetryMinutes))) break;
  }
  return std::nullopt;
}

std::vector<ClockEntry> TimedPolling::BuildPass(const std::vector<PollRow>& rows,
                                                const core::DateTime& base) {
  for (const PollRow& row : rows) {
    if (row.DialTimeUnreadable()) {
      log_.Debug("", "Ignoring DialTime \"" + row.dial_time_text + "\" of " + row.location_name +
                         ": not a time of day");
    } else if (row.dial_time && row.select_to_dial) {
      log_.Debug("", "Adding ClockEntry: " + row.location_name +
                         ", Call Time: " + row.dial_time->Format(core::kFormatHourMinute));
    }
  }
  return CallList(rows, base, line_);
}

std::optional<core::DateTime> TimedPolling::RunPass(const std::vector<ClockEntry>& entries) {
  for (const ClockEntry& entry : entries) {
    const std::string waiting = "Waiting for Connect Time (" + HourMinute(entry.CallTime()) + ")";
    log_.Debug("", waiting);
    log_.Screen(waiting);
    if (!WaitUntil(entry.CallTime())) {
      const char* why = end_comm_loop_.Requested() ? "EndCommLoop set while waiting for Call Time"
                                                   : "Settings to be read again while waiting "
                                                     "for Call Time";
      log_.Debug("", why);
      log_.Screen(why);
      return std::nullopt;
    }
    PollOne(entry);
    if (Ending()) return std::nullopt;
  }
  return entries.back().CallTime();
}

void TimedPolling::PollOne(const ClockEntry& entry) {
  try {
    poller_.Poll(entry);
  } catch (const std::exception& e) {
    // One location's failure never ends the cycle: log it and go on with the next.
    log_.Event("Error", "Timed poll of " + entry.Name() + " failed: " + e.what());
    log_.Screen("Timed poll of " + entry.Name() + " failed - check log for details");
  }
}

}  // namespace clockcomm::shell
