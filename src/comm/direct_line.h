// A serial port wired straight to terminals: the call starts with the terminal's first bytes.
#pragma once

#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "comm/terminal_line.h"

namespace clockcomm::comm {

class DirectLine : public TerminalLine {
 public:
  explicit DirectLine(LineOptions options) : options_(std::move(options)) {}
  ~DirectLine() override { Close(); }

  void Open() override;
  bool IsOpen() const override { return line_.IsOpen(); }
  PrepareResult Prepare() override { return {}; }
  void Close() override { line_.Close(); }
  IConnection& Connection() override { return connection_; }
  LineEvent WaitForCall(SteadyTime deadline, const WakeSet& wake) override;
  LineEvent Reach(const std::string&, const WakeSet&) override {
    return {LineEvent::Kind::kConnected};
  }
  void HangUp() override {}
  void EndCall() override {}
  bool CarrierLost() const override { return false; }
  bool FramedControls() const override { return false; }
  void SetSpeed(const std::string& port_settings) override { line_.SetSettings(port_settings); }
  std::string Describe() const override { return options_.device; }

 private:
  LineOptions options_;
  SerialLine line_;
  SerialConnection connection_{line_};
};

}  // namespace clockcomm::comm
