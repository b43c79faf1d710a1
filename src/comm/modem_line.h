// A Hayes modem on a serial port: initialised with the site's string (auto-answer on), it reports
// RING, CONNECT and NO CARRIER while waiting, dials out, hangs up between calls, and turns
// auto-answer off when the line closes.
#pragma once

#include "comm/hayes_modem.h"
#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "comm/terminal_line.h"

namespace clockcomm::comm {

class ModemLine : public TerminalLine {
 public:
  ModemLine(LineOptions options, const core::Clock& clock);
  ~ModemLine() override;

  void Open() override;
  bool IsOpen() const override { return line_.IsOpen(); }
  PrepareResult Prepare() override;
  void Close() override;
  IConnection& Connection() override { return connection_; }
  LineEvent WaitForCall(SteadyTime deadline, const WakeSet& wake) override;
  LineEvent Reach(const std::string& address, const WakeSet& wake) override;
  void HangUp() override;
  void EndCall() override;
  bool CarrierLost() const override;
  bool FramedControls() const override { return true; }
  void SetSpeed(const std::string& port_settings) override { line_.SetSettings(port_settings); }
  std::string Describe() const override { return options_.device; }

 private:
  LineEvent Connected(const std::string& result, std::string data);

  LineOptions options_;
  const core::Clock& clock_;
  SerialLine line_;
  SerialConnection connection_{line_};
  bool has_modem_lines_ = false;
  // A connection is up: the modem is in data mode until it is hung up.
  bool online_ = false;
  // Result lines not yet complete while waiting for a call.
  std::string pending_;
};

}  // namespace clockcomm::comm
