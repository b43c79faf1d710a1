// The line of one network terminal that connected to the LAN listener: its own controller, call
// intake and driver, so that it holds its calls at once with every other line. The conversation
// is a direct line's; the line lasts until the terminal hangs up, stays silent too long, or End.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "comm/network_line.h"
#include "records/intake/call_intake.h"
#include "records/terminal_data.h"
#include "shell/line_runner.h"
#include "terminal/call_controller.h"
#include "terminal/family.h"

namespace clockcomm::shell {

class LanCall {
 public:
  LanCall(std::unique_ptr<comm::TcpConnection> connection, const LineSettings& settings,
          const terminal::TerminalFamily& family, LineServices& services, core::LogSink& log,
          terminal::ScreenSink& screen, core::Clock& clock);

  // Serves the terminal's calls until it hangs up, has been silent for idle_close, End, or
  // between_calls (may be null) is requested while no call is in progress.
  void Run(std::chrono::milliseconds idle_close, const core::StopSignal* between_calls = nullptr);
  // End, from any thread: the call in progress stops at its next wait.
  void End() { controller_.PressEnd(); }

  int Calls() const { return driver_->Calls(); }
  int GoodCalls() const { return good_calls_; }
  // The last call succeeded and its punches are in the company database (not left pending).
  bool LastCallDelivered() const {
    return driver_->LastCallSucceeded() && intake_.LastFinish() != records::FinishResult::kPending;
  }
  // No call file could be made: the whole listener must end.
  bool RunFailed() const { return controller_.RunFailed(); }
  // The clock of the last call that ended, empty when none announced itself.
  const std::string& LastClockName() const { return driver_->LastClockName(); }
  const std::string& Peer() const { return peer_; }

 private:
  // Whatever a failed call left open is closed: its file delivered once sealed, else dropped.
  void EndCallAfterError();

  std::string peer_;
  comm::LanCallLine line_;
  terminal::CallController controller_;
  records::CallIntake intake_;
  records::TerminalData data_;
  std::unique_ptr<terminal::TerminalDriver> driver_;
  int good_calls_ = 0;
};

}  // namespace clockcomm::shell
