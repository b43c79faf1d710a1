// A line as the Zon/Tranz conversation uses it: the packet reader over the line's connection, and
// the rule for the control answers (framed packets through a modem, single characters on a direct
// line).
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "comm/terminal_line.h"
#include "core/clock.h"
#include "core/stop_signal.h"
#include "zon/packet_reader.h"

namespace clockcomm::zon {

class ZonLink {
 public:
  // stop wakes every wait on the line (the End button, an auto-end); call_ended also ends a
  // packet read of the current call.
  ZonLink(comm::TerminalLine& line, core::Clock& clock, core::StopSignal& stop,
          core::StopSignal& call_ended);

  // Whatever the line has received, at once (possibly empty), including text the packet reader
  // had buffered but not yet cut.
  std::string CommGet();
  // Writes and waits until the line's output is empty.
  void CommPut(std::string_view text);
  // Blocks until input, the deadline, or a stop. True when there is input.
  bool WaitForInput(core::Clock::Monotonic deadline);
  // Hands text already taken from the line back, so the packet reader sees it first.
  void PutBack(std::string_view text);
  // Forgets whatever the reader holds (a new call starts clean).
  void Clear();

  // The next packet with "\r\n" appended; "" when the read was ended by a stop or the call-ended
  // flag. Throws core::TimeoutException after the reader's time-out of silence.
  std::string ReadPacket();
  void SetReadTimeout(std::chrono::milliseconds timeout);

  void SendAck();
  void SendNak();
  void SendEot();

  // Lines the reader dropped for being longer than any packet.
  uint64_t OverlongCount() const { return reader_.Buffer().OverlongCount(); }
  bool Framed() const { return line_.FramedControls(); }
  bool CarrierLost() const { return line_.CarrierLost(); }

 private:
  comm::TerminalLine& line_;
  core::StopSignal& stop_;
  core::StopSignal& call_ended_;
  PacketReader reader_;
};

}  // namespace clockcomm::zon
