// Fakes shared by the scheduling tests: a log that keeps its lines, a poll list in memory that
// can change while a loop reads it, and a poller that records who was called and when.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/clock.h"
#include "core/date_time.h"
#include "core/log_sink.h"
#include "shell/schedule/poll_list.h"
#include "shell/schedule/timed_polling.h"

namespace clockcomm::shell::testing {

inline core::DateTime At(int y, int mo, int d, int h, int mi, int s = 0) {
  return *core::DateTime::FromParts(y, mo, d, h, mi, s);
}
inline core::TimeOfDay Hm(int h, int m, int s = 0) { return *core::TimeOfDay::FromHms(h, m, s); }

inline PollRow Row(int64_t id, std::string name, std::optional<core::TimeOfDay> dial,
                   bool selected = true, std::string phone = "") {
  PollRow row;
  row.location_id = id;
  row.location_name = std::move(name);
  row.location_phone = phone.empty() ? "555-01" + std::to_string(id) : std::move(phone);
  row.dial_time = dial;
  if (dial) row.dial_time_text = dial->Format(core::kFormatHourMinute);
  row.select_to_dial = selected;
  row.terminal_id = "T" + std::to_string(id);
  return row;
}

class RecordingLog : public core::LogSink {
 public:
  void Event(std::string_view type, std::string_view text) override {
    Add("event: " + std::string(type) + " / " + std::string(text));
  }
  void Debug(std::string_view name, std::string_view text) override {
    Add("debug" + (name.empty() ? "" : "[" + std::string(name) + "]") + ": " + std::string(text));
  }
  void Screen(std::string_view text) override { Add("screen: " + std::string(text)); }

  std::vector<std::string> Lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  bool Has(const std::string& line) const { return std::ranges::count(Lines(), line) > 0; }
  // The lines that start with prefix, in order.
  std::vector<std::string> Matching(const std::string& prefix) const {
    std::vector<std::string> out;
    for (const auto& l : Lines()) {
      if (l.starts_with(prefix)) out.push_back(l);
    }
    return out;
  }

 private:
  void Add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
  }
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// Reads fail once with "database is locked" after FailNextRead.
class MemoryPollList : public PollRowSource {
 public:
  explicit MemoryPollList(std::vector<PollRow> rows = {}) : rows_(std::move(rows)) {}
  std::vector<PollRow> ReadPollRows() override {
    std::lock_guard lock(mutex_);
    ++reads_;
    if (std::exchange(fail_next_, false)) throw core::Error("database is locked");
    return rows_;
  }
  void Add(PollRow row) {
    std::lock_guard lock(mutex_);
    rows_.push_back(std::move(row));
  }
  void FailNextRead() { fail_next_ = true; }  // before the loop starts
  int Reads() const {
    std::lock_guard lock(mutex_);
    return reads_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<PollRow> rows_;
  int reads_ = 0;
  bool fail_next_ = false;
};

struct PollRecord {
  std::string name;
  core::DateTime call_time;  // the entry's call time
  core::DateTime polled_at;  // the clock when the poll began
  friend bool operator==(const PollRecord&, const PollRecord&) = default;
  friend std::ostream& operator<<(std::ostream& os, const PollRecord& r) {
    return os << r.name << " due " << r.call_time.ToString() << " polled "
              << r.polled_at.ToString();
  }
};

// Throws "line is dead" for the entry named in throw_for, after recording it.
class RecordingPoller : public OutboundPoller {
 public:
  explicit RecordingPoller(core::Clock& clock) : clock_(clock) {}
  void Poll(const ClockEntry& entry) override {
    {
      std::lock_guard lock(mutex_);
      polls_.push_back({entry.Name(), entry.CallTime(), clock_.Now()});
    }
    cv_.notify_all();
    if (entry.Name() == throw_for) throw core::Error("line is dead");
  }
  std::vector<PollRecord> Polls() const {
    std::lock_guard lock(mutex_);
    return polls_;
  }
  // Blocks (in real time, bounded) until n polls have been made.
  bool WaitForPolls(size_t n) const {
    std::unique_lock lock(mutex_);
    return cv_.wait_for(lock, std::chrono::seconds(5), [&] { return polls_.size() >= n; });
  }
  std::string throw_for;

 private:
  core::Clock& clock_;
  mutable std::mutex mutex_;
  mutable std::condition_variable cv_;
  std::vector<PollRecord> polls_;
};

}  // namespace clockcomm::shell::testing
