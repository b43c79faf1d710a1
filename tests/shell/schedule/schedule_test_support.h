// Fakes shared by the scheduling tests: a log that keeps its lines and a poll list in memory that
// can change while a loop reads it.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/date_time.h"
#include "core/errors.h"
#include "core/log_sink.h"
#include "shell/schedule/poll_list.h"

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

// Each line as "event: type / text", "debug[name]: text" or "screen: text".
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
    if (std::exchange(fail_next_, false)) throw core::Error("database is locked");
    return rows_;
  }
  void Add(PollRow row) {
    std::lock_guard lock(mutex_);
    rows_.push_back(std::move(row));
  }
  void FailNextRead() { fail_next_ = true; }  // before the loop starts

 private:
  std::mutex mutex_;
  std::vector<PollRow> rows_;
  bool fail_next_ = false;
};

}  // namespace clockcomm::shell::testing
