// The screen of the lines for the console: the recent screen lines, each with a sequence number,
// and the current status line. The lines write to it (beside the command line's screen); each
// open live screen waits on it for what is new, with a deadline, until the feed is stopped.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/date_time.h"
#include "terminal/screen_sink.h"

namespace clockcomm::web {

struct ScreenLine {
  uint64_t seq = 0;
  core::DateTime time;
  std::string text;  // as the line wrote it (single-byte text)
};

// What a waiting reader gets: the lines after its last one, and the status when it changed.
struct ScreenNews {
  std::vector<ScreenLine> lines;
  bool status_changed = false;
  std::string status;
  uint64_t status_version = 0;
  bool stopped = false;
};

class ScreenFeed : public terminal::ScreenSink {
 public:
  // The recent lines kept for a screen that opens (or reconnects) later.
  static constexpr size_t kBacklog = 200;

  explicit ScreenFeed(core::Clock& clock) : clock_(clock) {}

  void Line(std::string_view text) override;
  void Status(std::string_view text) override;
  void AppendStatus(std::string_view text) override;

  // Blocks until there is a line after after_seq or a status newer than status_version, the
  // deadline passes, or the feed is stopped; returns what is new (possibly nothing). Lines that
  // have left the backlog are skipped.
  ScreenNews WaitAfter(uint64_t after_seq, uint64_t status_version,
                       std::chrono::steady_clock::time_point deadline);
  // Ends every wait at once, and every later one.
  void Stop();
  bool Stopped() const;
  uint64_t LastSeq() const;

 private:
  bool HasNews(uint64_t after_seq, uint64_t status_version) const;

  core::Clock& clock_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<ScreenLine> lines_;
  uint64_t next_seq_ = 1;
  std::string status_;
  uint64_t status_version_ = 0;
  bool stopped_ = false;
};

}  // namespace clockcomm::web
