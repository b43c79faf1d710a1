// What a user interface drives and observes of one line, whatever terminal family is on it: the
// two stop flags, the screen, the logs, and a snapshot of the calls. The line runs on its own
// thread; a console only presses End and reads snapshots. It is also the log sink of the line's
// drivers and intake: events and debug lines go to the logs, screen lines to the screen and the
// screen log.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "core/clock.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"
#include "terminal/screen_sink.h"

namespace clockcomm::terminal {

// Bad input seen on a line, by kind; shown in the snapshot and logged at the end of each call.
struct InputCounters {
  uint64_t bad_block_check = 0;
  uint64_t bad_length = 0;
  uint64_t timeouts = 0;
  uint64_t unknown_packets = 0;

  InputCounters& operator+=(const InputCounters& other);
  bool Any() const { return bad_block_check + bad_length + timeouts + unknown_packets > 0; }
  // "bad block check 1, bad length 0, time-out 0, unknown packet 2"
  std::string ToString() const;
  friend bool operator==(const InputCounters&, const InputCounters&) = default;
};

// What a console may read at any time.
struct CallSnapshot {
  bool in_call = false;
  std::string clock_name;
  int record_count = 0;
  int calls = 0;
  int good_calls = 0;
  int punches = 0;
  InputCounters bad_input;
  std::string status;  // the line's own status line
};

class CallController : public core::LogSink {
 public:
  CallController(core::Clock& clock, core::LogSink& log, ScreenSink& screen)
      : clock_(clock), log_(log), screen_(screen) {}

  // The End button: stops the loop and the call in progress.
  void PressEnd() {
    end_comm_loop_.Request();
    call_ended_.Request();
  }
  // The run cannot go on (no call file can be made): End, and the run reports failure.
  void EndRunOnError() {
    run_failed_ = true;
    PressEnd();
  }
  bool RunFailed() const { return run_failed_; }
  core::StopSignal& EndCommLoop() { return end_comm_loop_; }
  core::StopSignal& CallEnded() { return call_ended_; }

  // A call starts: the call-ended flag is cleared and the snapshot shows it in progress.
  void BeginCall();
  void SetInCall(std::string_view clock_name, int record_count);
  // The call is over: counted, with the bad input its line saw.
  void FinishCall(bool succeeded, int punches, const InputCounters& bad_input);
  CallSnapshot Snapshot() const;
  // The bad input of the calls of each clock on this line, by upper-case clock name.
  std::map<std::string, InputCounters> BadInputByClock() const;

  // A screen line: "{0}" is now, "{1}"... the details. Also written to the screen log.
  void Show(std::string_view format, std::initializer_list<std::string_view> details = {});
  void Status(std::string_view text);
  void AppendStatus(std::string_view text);

  // core::LogSink: events and debug lines to the logs; a screen line to the screen and its log.
  void Event(std::string_view type, std::string_view description) override {
    log_.Event(type, description);
  }
  void Debug(std::string_view name, std::string_view message) override {
    log_.Debug(name, message);
  }
  void Screen(std::string_view line) override;
  void SetCurrentClock(std::string_view name, int number) override {
    log_.SetCurrentClock(name, number);
  }
  void Flush() override { log_.Flush(); }

  core::Clock& Clock() { return clock_; }
  // Where several lines share one screen, each line's screen lines start with "[name] ".
  void SetLineName(std::string name) { line_name_ = std::move(name); }

 private:
  core::Clock& clock_;
  core::LogSink& log_;
  ScreenSink& screen_;
  core::StopSignal end_comm_loop_;
  core::StopSignal call_ended_;
  std::atomic<bool> run_failed_{false};
  mutable std::mutex snapshot_mutex_;
  CallSnapshot snapshot_;
  std::map<std::string, InputCounters> bad_input_by_clock_;
  std::string line_name_;
};

}  // namespace clockcomm::terminal
