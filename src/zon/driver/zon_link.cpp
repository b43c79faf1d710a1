#include "zon/driver/zon_link.h"

#include <cerrno>

#include "core/errors.h"
#include "zon/protocol_char.h"

namespace clockcomm::zon {

ZonLink::ZonLink(comm::TerminalLine& line, core::Clock& clock, core::StopSignal& stop,
                 core::StopSignal& call_ended)
    : line_(line),
      stop_(stop),
      call_ended_(call_ended),
      reader_(line.Connection(), &call_ended, &clock) {}

std::string ZonLink::CommGet() {
  std::string text;
  // Text the packet reader had taken but not yet cut comes first.
  auto& buffer = reader_.Buffer();
  while (buffer.Count() > 0) text += buffer.GetPacket() + buffer.TerminationString();
  text += buffer.PendingFragment();
  buffer.Clear();
  return text + line_.Connection().Read();
}

void ZonLink::CommPut(std::string_view text) {
  auto& connection = line_.Connection();
  connection.WriteText(text);
  try {
    connection.WaitUntilSent();
  } catch (const core::SystemError& e) {
    // The far end hung up after the bytes were handed over (a terminal drops the line as soon as
    // it has its EOT); there is nothing left to wait for.
    if (e.Number() != EIO) throw;
  }
}

bool ZonLink::WaitForInput(core::Clock::Monotonic deadline) {
  if (reader_.Buffer().Count() > 0 || !reader_.Buffer().PendingFragment().empty()) return true;
  return line_.Connection().WaitForInput(deadline, comm::WakeSet{&stop_}) ==
         comm::WaitResult::kReadable;
}

void ZonLink::PutBack(std::string_view text) {
  if (!text.empty()) reader_.Buffer().Append(text);
}

void ZonLink::Clear() { reader_.Buffer().Clear(); }

std::string ZonLink::ReadPacket() {
  std::string packet = reader_.ReadPacket();
  if (packet.empty() && (stop_.Requested() || call_ended_.Requested())) return "";
  return packet + "\r\n";
}

void ZonLink::SetReadTimeout(std::chrono::milliseconds timeout) {
  reader_.SetTimeout(static_cast<int32_t>(timeout.count()));
}

// An answer to a packet is followed by reading the next one, which needs no empty output queue:
// only the EOT, after which a modem may hang up, waits until it has left.
void ZonLink::SendAck() {
  const auto& pc = ProtocolChar::Shared();
  line_.Connection().WriteText(Framed() ? pc.ACK4() : pc.ACK());
}

void ZonLink::SendNak() {
  const auto& pc = ProtocolChar::Shared();
  line_.Connection().WriteText(Framed() ? pc.NAK4() : pc.NAK());
}

void ZonLink::SendEot() {
  const auto& pc = ProtocolChar::Shared();
  CommPut(Framed() ? pc.EOT4() : pc.EOT());
}

}  // namespace clockcomm::zon
