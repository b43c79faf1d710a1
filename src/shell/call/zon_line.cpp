#include "shell/call/zon_line.h"

#include <cerrno>

#include "core/errors.h"
#include "zon/protocol_char.h"

namespace clockcomm::shell {

ZonLine::ZonLine(bool modem, core::StopSignal& stop, core::StopSignal& call_ended)
    : modem_(modem), stop_(stop), call_ended_(call_ended), reader_(connection_, &call_ended) {
  const auto& pc = zon::ProtocolChar::Shared();
  ack_ = pc.ACK();
  nak_ = pc.NAK();
  eot_ = pc.EOT();
  ack4_ = pc.ACK4();
  nak4_ = pc.NAK4();
  eot4_ = pc.EOT4();
}

void ZonLine::Open(const std::string& device, const std::string& settings) {
  line_.SetSettings(settings);
  line_.Open(device);
  has_modem_lines_ = line_.SetDtr(true);
  reader_.Buffer().Clear();
}

void ZonLine::Close() {
  if (line_.IsOpen()) line_.Close();
}

std::string ZonLine::CommGet() {
  std::string text;
  // Text the packet reader had taken but not yet cut comes first.
  auto& buffer = reader_.Buffer();
  while (buffer.Count() > 0) text += buffer.GetPacket() + buffer.TerminationString();
  text += buffer.PendingFragment();
  buffer.Clear();
  return text + line_.Read();
}

void ZonLine::CommPut(std::string_view text) {
  line_.Write(text);
  try {
    line_.Drain();
  } catch (const core::SystemError& e) {
    // The far end hung up after the bytes were handed over (a terminal drops the line as soon as
    // it has its EOT); there is nothing left to wait for.
    if (e.Number() != EIO) throw;
  }
}

bool ZonLine::WaitForInput(std::chrono::steady_clock::time_point deadline) {
  if (reader_.Buffer().Count() > 0 || !reader_.Buffer().PendingFragment().empty()) return true;
  return line_.WaitForInput(deadline, comm::WakeSet{&stop_}) == comm::WaitResult::kReadable;
}

void ZonLine::PutBack(std::string_view text) {
  if (!text.empty()) reader_.Buffer().Append(text);
}

std::string ZonLine::ReadPacket() {
  std::string packet = reader_.ReadPacket();
  if (packet.empty() && (stop_.Requested() || call_ended_.Requested())) return "";
  return packet + "\r\n";
}

void ZonLine::SetReadTimeout(std::chrono::milliseconds timeout) {
  reader_.SetTimeout(static_cast<int32_t>(timeout.count()));
}

void ZonLine::SetDtr(bool on) {
  if (has_modem_lines_) line_.SetDtr(on);
}

}  // namespace clockcomm::shell
