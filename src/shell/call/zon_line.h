// One serial port as the Zon/Tranz call loop uses it: the line itself, the packet reader over it,
// and the rule for the control answers (framed packets through a modem, single characters on a
// direct line).
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "comm/serial_connection.h"
#include "comm/serial_line.h"
#include "core/stop_signal.h"
#include "zon/packet_reader.h"

namespace clockcomm::shell {

class ZonLine {
 public:
  // stop wakes every wait on the line (the End button, an auto-end); call_ended also ends a
  // packet read of the current call.
  ZonLine(bool modem, core::StopSignal& stop, core::StopSignal& call_ended);

  void Open(const std::string& device, const std::string& settings);
  void Close();
  bool IsOpen() const { return line_.IsOpen(); }
  void SetSettings(const std::string& settings) { line_.SetSettings(settings); }
  bool IsModem() const { return modem_; }

  // Whatever the port has received, at once (possibly empty), including text the packet reader
  // had buffered but not yet cut.
  std::string CommGet();
  // Writes and waits until the port's output is empty.
  void CommPut(std::string_view text);
  // Blocks until input, the deadline, or a stop. True when there is input.
  bool WaitForInput(std::chrono::steady_clock::time_point deadline);
  // Hands text already taken from the port back, so the packet reader sees it first.
  void PutBack(std::string_view text);

  // The next packet with "\r\n" appended; "" when the read was ended by a stop or the call-ended
  // flag. Throws core::TimeoutException after the reader's time-out of silence.
  std::string ReadPacket();
  void SetReadTimeout(std::chrono::milliseconds timeout);

  void SendAck() { CommPut(modem_ ? ack4_ : ack_); }
  void SendNak() { CommPut(modem_ ? nak4_ : nak_); }
  void SendEot() { CommPut(modem_ ? eot4_ : eot_); }

  comm::SerialLine& Line() { return line_; }
  comm::IConnection& Connection() { return connection_; }
  zon::PacketReader& Reader() { return reader_; }
  // False on a device without modem lines (a pty): DTR and carrier are then not real.
  bool HasModemLines() const { return has_modem_lines_; }
  bool CarrierDetect() const { return line_.CarrierDetect(); }
  void SetDtr(bool on);

 private:
  bool modem_;
  core::StopSignal& stop_;
  core::StopSignal& call_ended_;
  comm::SerialLine line_;
  comm::SerialConnection connection_{line_};
  zon::PacketReader reader_;
  bool has_modem_lines_ = false;
  std::string ack_, nak_, eot_, ack4_, nak4_, eot4_;
};

}  // namespace clockcomm::shell
