#include "shell/call/call_controller.h"

#include "shell/logs.h"

namespace clockcomm::shell {

void CallController::BeginCall() {
  call_succeeded = false;
  download_requested = false;
  receive_state = ReceiveState::kWaitingForHeader;
  call_ended_.Reset();
  call_ = CallData();
  std::lock_guard lock(snapshot_mutex_);
  snapshot_.in_call = true;
  snapshot_.clock_name.clear();
  snapshot_.record_count = 0;
}

void CallController::FinishCall(bool succeeded, int punches) {
  std::lock_guard lock(snapshot_mutex_);
  snapshot_.in_call = false;
  ++snapshot_.calls;
  if (succeeded) {
    ++snapshot_.good_calls;
    snapshot_.punches += punches;
  }
}

void CallController::SetInCall(const std::string& clock_name, int record_count) {
  std::lock_guard lock(snapshot_mutex_);
  snapshot_.clock_name = clock_name;
  snapshot_.record_count = record_count;
}

CallSnapshot CallController::Snapshot() const {
  std::lock_guard lock(snapshot_mutex_);
  return snapshot_;
}

void CallController::Show(std::string_view format,
                          std::initializer_list<std::string_view> details) {
  const std::string line = ScreenMessage(format, clock_.Now(), details);
  screen_.Line(line);
  log_.Screen(line);
}

}  // namespace clockcomm::shell
