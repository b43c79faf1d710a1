// A terminal line over a scripted connection, for driving a family's driver without a port: the
// script is what the terminal says, what the driver writes is kept. Its controls are framed (as
// through a modem) when asked. Given a ManualClock the line runs in virtual time.
#pragma once

#include <string>
#include <vector>

#include "comm/stub_connection.h"
#include "comm/terminal_line.h"

namespace clockcomm::comm {

class StubLine : public TerminalLine {
 public:
  explicit StubLine(std::vector<std::string> script = {}, core::ManualClock* clock = nullptr,
                    bool framed_controls = false)
      : connection_(std::move(script), clock), framed_(framed_controls) {}

  void Open() override { open_ = true; }
  bool IsOpen() const override { return open_; }
  PrepareResult Prepare() override { return {}; }
  void Close() override { open_ = false; }
  IConnection& Connection() override { return connection_; }
  StubConnection& Stub() { return connection_; }
  // The next string of the script arrives as a direct line's input.
  LineEvent WaitForCall(SteadyTime deadline, const WakeSet& wake) override {
    if (connection_.WaitForInput(deadline, wake) != WaitResult::kReadable) return {};
    return {LineEvent::Kind::kInput, "", "", connection_.Read()};
  }
  LineEvent Reach(const std::string&, const WakeSet&) override {
    return {LineEvent::Kind::kConnected};
  }
  void HangUp() override {}
  void EndCall() override {}
  bool CarrierLost() const override { return false; }
  bool FramedControls() const override { return framed_; }
  void SetSpeed(const std::string&) override {}
  std::string Describe() const override { return "stub"; }

 private:
  StubConnection connection_;
  bool framed_;
  bool open_ = false;
};

}  // namespace clockcomm::comm
