// The state of the Zon/Tranz conversation that a user interface drives and observes: the two stop
// flags, the outcome of the current call, its data, and the screen. The loops run on their line's
// thread; a console only presses End and reads snapshots.
#pragma once

#include <atomic>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "core/clock.h"
#include "core/log_sink.h"
#include "core/stop_signal.h"
#include "records/company.h"
#include "records/tcd_file_writer.h"
#include "shell/call/screen_sink.h"

namespace clockcomm::shell {

// Receive states of a call.
enum class ReceiveState { kWaitingForHeader = 0, kFirstData = 1, kUploading = 2 };

// The data of the call in progress; lives from the start of a call to its end.
struct CallData {
  std::string clock_name;
  int clock_number = 0;
  std::string upload_type;
  std::optional<records::Company> company;
  std::filesystem::path file;
  std::unique_ptr<records::TcdFileWriter> writer;
  int record_count = 0;
  // Packets that passed the block check but could not be read as punches are kept here.
  std::filesystem::path reject_file;
  int rejected = 0;
};

// What a console may read at any time.
struct CallSnapshot {
  bool in_call = false;
  std::string clock_name;
  int record_count = 0;
  int calls = 0;
  int good_calls = 0;
  int punches = 0;
};

class CallController {
 public:
  CallController(core::Clock& clock, core::LogSink& log, ScreenSink& screen)
      : clock_(clock), log_(log), screen_(screen) {}

  // The End button: stops the loop and the call in progress.
  void PressEnd() {
    end_comm_loop_.Request();
    call_ended_.Request();
  }
  core::StopSignal& EndCommLoop() { return end_comm_loop_; }
  core::StopSignal& CallEnded() { return call_ended_; }

  std::atomic<bool> call_succeeded{false};
  std::atomic<bool> download_requested{false};
  std::atomic<ReceiveState> receive_state{ReceiveState::kWaitingForHeader};

  CallData& Call() { return call_; }
  // Starts a new call: flags and data reset, the call-ended flag cleared.
  void BeginCall();
  void FinishCall(bool succeeded, int punches);
  CallSnapshot Snapshot() const;
  void SetInCall(const std::string& clock_name, int record_count);

  // A screen line: "{0}" is now, "{1}"... the details. Also written to the screen log.
  void Show(std::string_view format, std::initializer_list<std::string_view> details = {});
  void Status(std::string_view text) { screen_.Status(text); }
  void AppendStatus(std::string_view text) { screen_.AppendStatus(text); }
  void Event(std::string_view type, std::string_view description) { log_.Event(type, description); }
  void Debug(std::string_view name, std::string_view message) { log_.Debug(name, message); }

  core::Clock& Clock() { return clock_; }
  core::LogSink& Log() { return log_; }

 private:
  core::Clock& clock_;
  core::LogSink& log_;
  ScreenSink& screen_;
  core::StopSignal end_comm_loop_;
  core::StopSignal call_ended_;
  CallData call_;
  mutable std::mutex snapshot_mutex_;
  CallSnapshot snapshot_;
};

}  // namespace clockcomm::shell
