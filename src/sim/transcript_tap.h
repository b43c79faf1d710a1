// A tap on a line: the program opens ProgramPath() (a pty, a serial line to it) and a simulator
// talks through FarEnd(); a thread relays the bytes both ways as they come and records them as the
// turns of a transcript. Used to record conversations for the golden tests.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "comm/fd_connection.h"
#include "comm/pty_pair.h"
#include "core/stop_signal.h"
#include "sim/transcript.h"

namespace clockcomm::sim {

class TranscriptTap {
 public:
  TranscriptTap();
  ~TranscriptTap();
  TranscriptTap(const TranscriptTap&) = delete;
  TranscriptTap& operator=(const TranscriptTap&) = delete;

  const std::string& ProgramPath() const { return pty_.SlavePath(); }
  // The simulator's end (a socket); may be taken once.
  std::unique_ptr<comm::FdConnection> TakeFarEnd() { return std::move(far_end_); }
  // Records that the program showed text here (the far end waited for it before going on).
  void Sync(const std::string& text);
  // Stops relaying and returns what was recorded.
  Transcript Finish();

 private:
  void Relay();

  comm::PtyPair pty_;
  std::unique_ptr<comm::FdConnection> program_side_;  // the pty's master
  std::unique_ptr<comm::FdConnection> relay_end_;     // our end of the socket pair
  std::unique_ptr<comm::FdConnection> far_end_;
  core::StopSignal stop_;
  std::mutex mutex_;
  Transcript transcript_;
  std::thread thread_;
};

}  // namespace clockcomm::sim
