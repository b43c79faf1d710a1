#include "terminal/call_controller.h"

#include <fmt/format.h>

#include "core/screen_message.h"
#include "core/text.h"

namespace clockcomm::terminal {

InputCounters& InputCounters::operator+=(const InputCounters& other) {
  bad_block_check += other.bad_block_check;
  bad_length += other.bad_length;
  timeouts += other.timeouts;
  unknown_packets += other.unknown_packets;
  return *this;
}

std::string InputCounters::ToString() const {
  return fmt::format("bad block check {}, bad length {}, time-out {}, unknown packet {}",
                     bad_block_check, bad_length, timeouts, unknown_packets);
}

void CallController::BeginCall() {
  call_ended_.Reset();
  std::lock_guard lock(snapshot_mutex_);
  snapshot_.in_call = true;
  snapshot_.clock_name.clear();
  snapshot_.record_count = 0;
}

void CallController::SetInCall(std::string_view clock_name, int record_count) {
  std::lock_guard lock(snapshot_mutex_);
  snapshot_.clock_name = std::string(clock_name);
  snapshot_.record_count = record_count;
}

void CallController::FinishCall(bool succeeded, int punches, const InputCounters& bad_input) {
  {
    std::lock_guard lock(snapshot_mutex_);
    snapshot_.in_call = false;
    ++snapshot_.calls;
    snapshot_.bad_input += bad_input;
    if (!snapshot_.clock_name.empty()) {
      bad_input_by_clock_[core::ToUpper(snapshot_.clock_name)] += bad_input;
    }
    if (succeeded) {
      ++snapshot_.good_calls;
      snapshot_.punches += punches;
    }
  }
  log_.Flush();  // the call's lines are in the files when the call is over
}

CallSnapshot CallController::Snapshot() const {
  std::lock_guard lock(snapshot_mutex_);
  return snapshot_;
}

std::map<std::string, InputCounters> CallController::BadInputByClock() const {
  std::lock_guard lock(snapshot_mutex_);
  return bad_input_by_clock_;
}

void CallController::Status(std::string_view text) {
  {
    std::lock_guard lock(snapshot_mutex_);
    snapshot_.status = std::string(text);
  }
  screen_.Status(text);
}

void CallController::AppendStatus(std::string_view text) {
  {
    std::lock_guard lock(snapshot_mutex_);
    snapshot_.status += text;
  }
  screen_.AppendStatus(text);
}

void CallController::Show(std::string_view format,
                          std::initializer_list<std::string_view> details) {
  Screen(core::ScreenMessage(format, clock_.Now(), details));
}

void CallController::Screen(std::string_view line) {
  if (line_name_.empty()) {
    screen_.Line(line);
    log_.Screen(line);
    return;
  }
  const std::string named = "[" + line_name_ + "] " + std::string(line);
  screen_.Line(named);
  log_.Screen(named);
}

}  // namespace clockcomm::terminal
