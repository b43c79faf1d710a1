#include "zon/driver/zon_driver.h"

#include <cstdio>

#include "core/errors.h"
#include "core/text.h"
#include "zon/block_check.h"
#include "zon/driver/validation_download.h"
#include "zon/hours_request_packet.h"
#include "zon/protocol_char.h"
#include "zon/punch_packet.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::zon {
namespace {

const std::string kCrLf = "\r\n";
// Text kept while waiting for a call on a direct line: only an ENQ can start something, so what
// lies before it is noise, and an ENQ whose line end never comes is dropped past this length.
constexpr size_t kMaxHostBuffer = 4096;

std::string Enq() { return std::string(1, ProtocolChar::kEnq); }

std::string TwoDecimals(double hours) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hours);
  return text;
}

}  // namespace

ZonDriver::ZonDriver(terminal::DriverContext context)
    : context_(std::move(context)),
      controller_(context_.controller),
      intake_(context_.intake),
      link_(context_.line, controller_.Clock(), controller_.EndCommLoop(),
            controller_.CallEnded()) {
  link_.SetReadTimeout(context_.settings.packet_timeout);
}

std::string ZonDriver::PortSettings() const {
  // Zon/Tranz terminals behind a modem talk to it at 1200 baud.
  const bool slow_modem = context_.settings.modem &&
                          context_.settings.terminal_type == terminal::TerminalType::kZonTranz;
  const int rate = slow_modem ? 1200 : context_.settings.overrides.SerialPortRate();
  return std::to_string(rate) + ",N,8,1";
}

void ZonDriver::ShowEvent(std::string_view screen_format, std::string_view type,
                          std::string_view des) {
  controller_.Show(screen_format);
  controller_.Event(type, des);
}

bool ZonDriver::IsMobility() const {
  return context_.settings.terminal_type == terminal::TerminalType::kMobility;
}

// Mobility wands are handed to a loader of their own, which this program does not have.
void ZonDriver::RefuseMobility() {
  ShowEvent("{0} failed to connect...", "Error",
            "Mobility terminals are not supported on this line.");
}

// ---------------------------------------------------------------------------------------------
// How a call starts

void ZonDriver::Host(terminal::CallStart start, std::string data) {
  if (start == terminal::CallStart::kConnected) {
    if (IsMobility()) {
      RefuseMobility();
      return;
    }
    link_.Clear();
    link_.PutBack(data);  // the terminal's first bytes may have come with the CONNECT line
    link_.CommPut(Enq());
    controller_.Show("ENQ Sent");
    StartCall();
    return;
  }
  host_buffer_ += data;
  while (HandleDirectInput()) {
  }
}

// A direct line: ENQ CR LF starts an upload, ENQ ... CR LF is an hours request. Returns true when
// something was taken from the buffer and more may follow.
bool ZonDriver::HandleDirectInput() {
  std::string& buffer = host_buffer_;
  const size_t enq = buffer.find(ProtocolChar::kEnq);
  if (enq == std::string::npos) {
    buffer.clear();
    return false;
  }
  buffer.erase(0, enq);
  if (buffer.compare(0, 3, Enq() + kCrLf) == 0) {
    link_.Clear();
    link_.PutBack(buffer.substr(3));
    buffer.clear();
    link_.CommPut(Enq());
    controller_.Show("{0} Connected");
    StartCall();
    return false;
  }
  const size_t end = buffer.find(kCrLf);
  if (end == std::string::npos) {
    if (buffer.size() > kMaxHostBuffer) buffer.clear();
    return false;
  }
  const std::string request = buffer.substr(1, end - 1);
  buffer.erase(0, end + 2);
  AnswerHoursRequest(request);
  return true;
}

void ZonDriver::AnswerHoursRequest(std::string_view request) {
  HoursRequestPacket packet;
  std::string reply;
  if (!packet.Parse(request)) {
    reply = "Invalid request";
  } else {
    const auto answer = context_.data.Hours(packet.BadgeNumber(), controller_.Clock().Now());
    reply = answer.valid ? answer.name + ProtocolChar::kFs + TwoDecimals(answer.today_hours) +
                               ProtocolChar::kFs + TwoDecimals(answer.period_hours)
                         : answer.invalid_reason;
  }
  controller_.Debug("",
                    "Hours request " + core::Printable(request) + ": " + core::Printable(reply));
  link_.CommPut(reply + kCrLf);
}

bool ZonDriver::Poll(const terminal::PollTarget& target, std::string data) {
  controller_.BeginCall();
  call_ = Call();
  link_.Clear();
  link_.PutBack(data);
  if (IsMobility()) {
    controller_.Show("Polling...");
    RefuseMobility();
    EndCall();
    return false;
  }
  if (!Enquire(Enq(), std::string(1, ProtocolChar::kAck) + kCrLf)) {
    controller_.Show("{0} Poll failed, no response");
    controller_.Event("Poll Failed, No Response to ENQ", "Location: " + target.name);
    EndCall();
    return false;
  }
  controller_.Show("ENQ Sent");
  const std::string header_request =
      std::string(1, ProtocolChar::kStx) + target.terminal_id + ProtocolChar::kEtx;
  if (!Enquire(header_request, Enq() + kCrLf)) {
    controller_.Show("{0} Polled failed, no response");
    controller_.Event("Poll Failed, No Response to HDR", "Location: " + target.name);
    EndCall();
    return false;
  }
  controller_.Show("HDR Sent");
  link_.CommPut(Enq());
  controller_.Show("{0} Connected");
  CommLoopTCB();
  return last_call_succeeded_;
}

// Sends the packet up to kPollTries times, each time waiting up to the response wait for the
// expected reply line.
bool ZonDriver::Enquire(const std::string& packet, const std::string& expected) {
  for (int attempt = 0; attempt < kPollTries; ++attempt) {
    if (controller_.EndCommLoop().Requested()) return false;
    link_.CommPut(packet);
    const auto deadline = controller_.Clock().Steady() + context_.settings.response_wait;
    std::string reply;
    while (reply.find(kCrLf) == std::string::npos && link_.WaitForInput(deadline)) {
      reply += link_.CommGet();
    }
    if (reply.find(expected) != std::string::npos) {
      link_.PutBack(reply.substr(reply.find(expected) + expected.size()));
      return true;
    }
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// One call

void ZonDriver::StartCall() {
  controller_.BeginCall();
  call_ = Call();
  CommLoopTCB();
}

void ZonDriver::CommLoopTCB() {
  auto& call_ended = controller_.CallEnded();
  overlong_before_ = link_.OverlongCount();
  link_.SetReadTimeout(context_.settings.packet_timeout);
  while (!call_ended.Requested()) {
    switch (call_.state) {
      case ReceiveState::kWaitingForHeader:
        controller_.Show("{0} Reading Header Packet");
        break;
      case ReceiveState::kFirstData:
        controller_.Show("{0} Uploading Packets ");
        call_.state = ReceiveState::kUploading;
        break;
      case ReceiveState::kUploading:
        controller_.AppendStatus(".");
        break;
    }
    std::string packet;
    try {
      packet = link_.ReadPacket();
    } catch (const core::TimeoutException&) {
      ++call_.bad_input.timeouts;
      ShowEvent("{0} Time out waiting for packet", "Error", "Time out waiting for packet.");
      break;
    } catch (const comm::ConnectionClosedError& e) {
      ShowEvent("{0} Line dropped during call", "Error", e.what());
      break;
    }
    if (call_ended.Requested() || packet.empty()) break;
    controller_.Debug("", "Packet: " + core::Printable(packet));
    if (IsEndOfTransmission(packet)) {
      controller_.Show("{0} End of transmission");
      call_.succeeded = true;
      call_.download_requested = false;
      break;
    }
    if (IsEndOfUpload(packet)) {
      controller_.Show("{0} End of upload");
      call_.succeeded = true;
      call_.download_requested = true;
      break;
    }
    if (link_.Framed() && packet.rfind("NO CARRIER", 0) == 0) {
      ShowEvent("{0} Lost carrier during call", "Error", "NO CARRIER during call.");
      break;
    }
    if (!PacketCheckOk(packet)) {
      ++call_.bad_input.bad_block_check;
      controller_.AppendStatus("*");
      link_.SendNak();
      controller_.Event("Packet resent: ", core::Printable(packet));
      continue;
    }
    if (!ParseTC20(packet)) {
      // Not stored, so not acknowledged: the call fails and the terminal keeps its punches.
      ShowEvent("{0} Couldn't store a packet; the terminal keeps its punches", "Error",
                "Couldn't store a packet of the call; it was not acknowledged.");
      break;
    }
    if (!call_ended.Requested()) link_.SendAck();
  }
  EndCall();
}

bool ZonDriver::ParseTC20(const std::string& packet) {
  if (packet.empty()) return true;
  const std::string_view body = PacketBody(packet);
  try {
    if (!body.empty() && body.front() == ProtocolChar::kStx) {
      HandleHeader(body);
    } else {
      HandleData(body);
    }
    return true;
  } catch (const records::IntakeStorageError&) {
    return false;
  } catch (const std::exception& e) {
    // Acknowledged (the terminal would otherwise send it for ever) and kept by the intake, so
    // nothing received is lost.
    ++call_.bad_input.unknown_packets;
    const auto* system = dynamic_cast<const core::SystemError*>(&e);
    controller_.Event("Error", "ParseTC20 error: " + (system ? std::to_string(system->Number()) +
                                                                   ", " + system->Description()
                                                             : std::string("0, ") + e.what()));
    try {
      intake_.Reject(body, e.what());
    } catch (const records::IntakeStorageError&) {
      return false;
    }
    return true;
  }
}

void ZonDriver::HandleHeader(std::string_view body) {
  if (intake_.RecordCount() > 0) {
    controller_.Show("{0} Duplicate Header Packet Ignored ");
    return;
  }
  const ZonHeaderPacket header = ZonHeaderPacketStatic::Parse(body);
  call_.clock_name = header.ClockName();
  call_.clock_number = header.ClockNumber();
  call_.header_seen = true;
  controller_.SetCurrentClock(call_.clock_name, call_.clock_number);
  controller_.SetInCall(call_.clock_name, 0);
  if (!intake_.IsOpen()) {
    const auto opened =
        intake_.Open({call_.clock_name, call_.clock_number, std::string(header.UploadType())});
    if (opened != records::OpenResult::kOpened) {
      controller_.EndRunOnError();
      return;
    }
  }
  controller_.Event("Start of call", "Terminal Upload Type = " + header.UploadType());
  call_.state = ReceiveState::kFirstData;
}

void ZonDriver::HandleData(std::string_view body) {
  if (!call_.header_seen) throw core::InvalidOperationException("Data packet before header.");
  intake_.Add(ParsePunchPacket(body, call_.clock_number));
  controller_.SetInCall(call_.clock_name, intake_.RecordCount());
}

void ZonDriver::EndCall() {
  // The punches reach the disk before the terminal hears that they were received.
  if (call_.succeeded && !intake_.Seal()) call_.succeeded = false;
  controller_.Event("End of call", call_.clock_name);
  const bool zon = context_.settings.terminal_type == terminal::TerminalType::kZonTranz;
  if (call_.succeeded) {
    if (zon) {
      try {
        if (!call_.download_requested) SendEndCharacters();
        controller_.Show("{0} EOT Sent");
        if (call_.download_requested) {
          controller_.CallEnded().Reset();
          RunValidationDownload();
          controller_.CallEnded().Request();
          call_.download_requested = false;
          SendEndCharacters();
          controller_.Show("{0} Final EOT Sent");
        }
      } catch (const core::Error& e) {
        controller_.Event("Error", std::string("Sending EOT: ") + e.what());
      }
    }
    controller_.Show("{0} Transfer Complete");
    if (context_.settings.modem) {
      context_.line.HangUp();
      controller_.Show("{0} Drop DTR");
    }
    if (intake_.RecordCount() > 0) controller_.Status("Sending Batch to Database...");
  }
  const int records = intake_.RecordCount();
  intake_.Finish(call_.succeeded);

  call_.bad_input.bad_length = link_.OverlongCount() - overlong_before_;
  if (call_.bad_input.bad_length > 0) {
    controller_.Event("Error", std::to_string(call_.bad_input.bad_length) +
                                   " line(s) longer than any packet were dropped.");
  }
  if (call_.bad_input.Any()) controller_.Debug("", "Bad input: " + call_.bad_input.ToString());
  ++calls_;
  last_call_succeeded_ = call_.succeeded;
  last_clock_name_ = call_.clock_name;
  controller_.FinishCall(call_.succeeded, records, call_.bad_input);
  controller_.SetCurrentClock("", 0);
}

void ZonDriver::SendEndCharacters() {
  const int quantity = context_.settings.overrides.EOTQuantity();
  const auto interval = std::chrono::duration<double>(context_.settings.overrides.EOTInterval());
  for (int i = 0; i < quantity; ++i) {
    link_.SendEot();
    controller_.Clock().Pause(std::chrono::duration_cast<std::chrono::nanoseconds>(interval),
                              controller_.EndCommLoop());
  }
}

void ZonDriver::RunValidationDownload() {
  using Status = records::ValidationTables::Status;
  const auto tables = context_.data.ValidationTablesOf(call_.clock_name);
  switch (tables.status) {
    case Status::kOk:
      break;
    case Status::kNoCompany:
      controller_.Event("System setup error", "Couldn't find clock name in the COMPANY database.");
      controller_.Show("System setup error. Couldn't find clock name in the COMPANY database.");
      return;
    case Status::kDataError:
      controller_.Event("Error", tables.error + ": Data Access Error.");
      return;
    case Status::kOpenError:
      // Nothing is sent when a table cannot be read: a terminal must not get half its tables.
      controller_.Event("Couldn't open " + tables.table + " table.", tables.error);
      controller_.Show("{0} File open error - check log for details");
      return;
    case Status::kReadError:
      controller_.Event("Error reading " + tables.table + " table.", tables.error);
      controller_.Show("{0} Table read error - check log for details");
      return;
  }
  ValidationTableDownload download(link_, controller_, context_.settings.response_wait);
  download.Run(tables.tables);
  link_.SetReadTimeout(context_.settings.packet_timeout);
}

}  // namespace clockcomm::zon
