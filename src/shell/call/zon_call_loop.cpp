#include "shell/call/zon_call_loop.h"

#include <fstream>
#include <optional>

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"
#include "db/open.h"
#include "records/clock_file_transfer.h"
#include "records/department_job_assigner.h"
#include "records/tcd_archive.h"
#include "records/tcd_file_reader.h"
#include "records/tcd_record_static.h"
#include "shell/call/call_file.h"
#include "shell/call/employee_hours.h"
#include "shell/call/packet_checks.h"
#include "shell/call/validation_download.h"
#include "shell/history_purge.h"
#include "shell/logs.h"
#include "zon/hours_request_packet.h"
#include "zon/protocol_char.h"
#include "zon/zon_header_packet.h"

namespace clockcomm::shell {
namespace {

using zon::ProtocolChar;

// How often an outbound enquiry and header request are tried before the poll is given up.
constexpr int kPollTries = 5;
// Attempts at one location through a modem before it is reported as failed.
constexpr int kModemAttempts = 3;
// Text kept while waiting for a call on a direct line: only an ENQ can start something, so what
// lies before it is noise, and an ENQ whose line end never comes is dropped past this length.
constexpr size_t kMaxHostBuffer = 4096;
// While hosting with a schedule, the poll list is read again at least this often.
constexpr std::chrono::seconds kScheduleRecheck{60};

const std::string kCrLf = "\r\n";

std::string Enq() { return std::string(1, ProtocolChar::kEnq); }

void SetCurrentClock(core::LogSink& log, const std::string& name, int number) {
  if (auto* logs = dynamic_cast<Logs*>(&log)) {
    if (name.empty()) {
      logs->ClearCurrentClock();
    } else {
      logs->SetCurrentClock(name, number);
    }
  }
}

std::string TwoDecimals(double hours) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hours);
  return text;
}

}  // namespace

ZonLoopSettings ZonLoopSettings::From(const CommSettings& comm, std::string device) {
  ZonLoopSettings s;
  s.device = std::move(device);
  s.port_number = comm.comm_port;
  s.modem = comm.connection_type == comm::ConnectionType::kModem;
  s.terminal_type = comm.terminal_type;
  s.response_wait = std::chrono::seconds(std::max(1, comm.response_wait));
  s.modem_init = comm.modem_init.empty() ? kDefaultModemInit : comm.modem_init;
  s.end_time = comm.end_time.empty() ? "NONE" : comm.end_time;
  return s;
}

ZonCallLoop::ZonCallLoop(ZonLoopSettings settings, CallController& controller,
                         CallServices& services)
    : settings_(std::move(settings)),
      controller_(controller),
      services_(services),
      line_(settings_.modem, controller.EndCommLoop(), controller.CallEnded()) {}

ZonCallLoop::~ZonCallLoop() { line_.Close(); }

std::string ZonCallLoop::PortSettings() const {
  const bool slow_modem = settings_.modem && settings_.terminal_type == kTerminalTypeZon;
  const int rate = slow_modem ? 1200 : services_.overrides.SerialPortRate();
  return std::to_string(rate) + ",N,8,1";
}

std::string ZonCallLoop::ConnectSpeed(std::string_view connect_line) {
  std::string rest = core::Trim(connect_line.substr(std::min<size_t>(7, connect_line.size())));
  const auto end = rest.find_first_of("\r\n");
  if (end != std::string::npos) rest.erase(end);
  const int speed = static_cast<int>(core::LeadingNumber(rest));
  return speed > 0 ? std::to_string(speed) : "300";
}

void ZonCallLoop::ShowEvent(std::string_view screen_format, std::string_view type,
                            std::string_view des) {
  controller_.Show(screen_format);
  controller_.Event(type, des);
}

// ---------------------------------------------------------------------------------------------
// The port

bool ZonCallLoop::OpenPort() {
  controller_.Show("{0} Opening Com Port");
  try {
    line_.Open(settings_.device, PortSettings());
  } catch (const core::Error& e) {
    controller_.Show("Invalid Com Port");
    controller_.Show("Select valid Com Port and then restart.");
    controller_.Event("Invalid Com Port", std::string(e.what()));
    return false;
  }
  line_.SetReadTimeout(settings_.packet_timeout);
  if (settings_.modem) {
    modem_ = std::make_unique<comm::HayesModem>(line_.Connection(), settings_.response_wait,
                                                comm::WakeSet{&controller_.EndCommLoop()});
  }
  const std::string mode =
      ModeLine(settings_.port_number, settings_.modem, settings_.autostarted, settings_.end_time);
  controller_.Show("{0} {1}", {mode});
  controller_.Event("Open Comm", mode);
  return true;
}

bool ZonCallLoop::OpenLine() {
  if (!OpenPort()) return false;
  if (settings_.modem && !InitModem()) {
    End();
    return false;
  }
  return true;
}

bool ZonCallLoop::InitModem() {
  controller_.Show("{0} Initializing Modem");
  controller_.Status("Initializing Modem");
  for (const std::string& command : {std::string("ATZ"), settings_.modem_init}) {
    const std::string reply = modem_->Command(command);
    if (reply.empty()) {
      controller_.Show("{0} Modem did not respond. Check for correct COM port.");
      return false;
    }
    if (reply != "OK") {
      controller_.Show("{0} Modem response error: {1}", {reply});
      return false;
    }
  }
  if (line_.HasModemLines() && line_.CarrierDetect()) {
    controller_.Show(
        " Error - Carrier Detect high after initialization! Check setup string "
        "(may need '&C1')");
    return false;
  }
  std::string status = "Waiting for next event, press End to Quit.";
  if (settings_.end_time != "NONE") status += " Auto-end at " + settings_.end_time;
  controller_.Status(status);
  return true;
}

// Between calls: DTR down and up hangs a real modem up; a modem on a line without modem lines is
// put back in command mode and hung up with ATH.
void ZonCallLoop::ResetModem() {
  if (!settings_.modem || !line_.IsOpen()) return;
  controller_.Show("{0} Reset Modem - Drop DTR");
  line_.SetDtr(false);
  controller_.Show("{0} Reset Modem - Raise DTR");
  line_.SetDtr(true);
  try {
    if (modem_online_ && !line_.HasModemLines() && modem_->Escape() == "OK") {
      modem_->Command("ATH");
    }
  } catch (const core::Error& e) {
    controller_.Debug("", std::string("Modem reset: ") + e.what());
  }
  modem_online_ = false;
  line_.CommGet();  // whatever the hang-up left behind
}

void ZonCallLoop::End() {
  if (!line_.IsOpen()) return;
  controller_.Status("Resetting && Closing Port");
  controller_.Event("Close Comm", "Port = " + std::to_string(settings_.port_number));
  if (settings_.modem && modem_) {
    controller_.Show("{0} Disabling Auto-Answer");
    // The stop that brought us here must not cut the hang-up short.
    comm::HayesModem closing(line_.Connection(), settings_.response_wait, comm::WakeSet{});
    try {
      if (modem_online_) closing.Escape();
      closing.Command("ATH");
      closing.Command(core::ReplaceAll(settings_.modem_init, "S0=1", "S0=0"));
    } catch (const core::Error& e) {
      controller_.Debug("", std::string("Closing the modem: ") + e.what());
    }
  }
  controller_.Show("{0} Closing Port");
  line_.Close();
  modem_.reset();
  modem_online_ = false;
}

// ---------------------------------------------------------------------------------------------
// Host mode

bool ZonCallLoop::CommLoop(bool once) {
  controller_.EndCommLoop().Reset();
  controller_.CallEnded().Reset();
  last_call_succeeded_ = false;
  if (!OpenLine()) return false;
  if (!settings_.modem) {
    controller_.Status("Waiting for next event, press End to Quit.");
  }
  std::string buffer;
  const int calls_before = good_calls_ + failed_calls_;
  while (!controller_.EndCommLoop().Requested()) {
    try {
      HostPass(buffer);
    } catch (const comm::ConnectionClosedError& e) {
      // The far end of the port went away; the loop waits on a line that can no longer answer.
      ShowEvent("{0} Port closed by the other end", "Error", e.what());
      break;
    } catch (const core::Error& e) {
      controller_.Event("Error", std::string("CommLoop: ") + e.what());
    }
    if (once && good_calls_ + failed_calls_ > calls_before) break;
  }
  End();
  return !once || last_call_succeeded_;
}

// One pass: a scheduled poll that has come due, or the next thing the port delivers.
void ZonCallLoop::HostPass(std::string& buffer) {
  auto deadline = comm::kNoDeadline;
  if (services_.schedule != nullptr) {
    services_.schedule->Load();  // the poll list may have changed since the last pass
    if (auto due = services_.schedule->TakeDue()) {
      Poll(*due);
      return;
    }
    // Wake for the next call time, and at least once a minute to see a changed poll list.
    int64_t seconds = kScheduleRecheck.count();
    if (auto next = services_.schedule->NextDue()) {
      seconds = std::min(seconds, core::SecondsBetween(controller_.Clock().Now(), *next));
    }
    deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(std::max<int64_t>(0, seconds));
  }
  if (!line_.WaitForInput(deadline)) return;
  buffer += line_.CommGet();
  if (settings_.modem) {
    size_t end;
    while ((end = buffer.find(kCrLf)) != std::string::npos) {
      const std::string line = buffer.substr(0, end);
      buffer.erase(0, end + 2);
      if (line.empty()) continue;  // the leading CR LF of a result code
      if (HandleModemLine(line, buffer)) buffer.clear();
    }
    if (buffer.size() > kMaxHostBuffer) buffer.clear();
    return;
  }
  while (HandleDirectInput(buffer)) {
  }
}

// A direct line: ENQ CR LF starts an upload, ENQ ... CR LF is an hours request. Returns true when
// something was taken from the buffer.
bool ZonCallLoop::HandleDirectInput(std::string& buffer) {
  const size_t enq = buffer.find(ProtocolChar::kEnq);
  if (enq == std::string::npos) {
    buffer.clear();
    return false;
  }
  buffer.erase(0, enq);
  if (buffer.compare(0, 3, Enq() + kCrLf) == 0) {
    line_.PutBack(buffer.substr(3));
    buffer.clear();
    line_.CommPut(Enq());
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

// A line from the modem while waiting for a call. True when the call it started has ended.
bool ZonCallLoop::HandleModemLine(const std::string& line, std::string& rest) {
  if (line.rfind("RING", 0) == 0) {
    controller_.Show("{0} Ring Detected");
    controller_.Status("Terminal is ready to send batch.");
    return false;
  }
  if (line.rfind("CONNECT", 0) == 0) {
    const std::string speed = ConnectSpeed(line);
    modem_online_ = true;
    line_.SetSettings(speed + ",N,8,1");
    controller_.Show("{0} CONNECT {0}");
    controller_.Status("Terminal is Connected at " + speed);
    if (settings_.terminal_type == kTerminalTypeMobility) {
      ShowEvent("{0} failed to connect...", "Error",
                "Mobility terminals are not supported on this line.");
      ResetModem();
      return true;
    }
    line_.PutBack(rest);  // the terminal's first bytes may have come with the CONNECT line
    rest.clear();
    line_.CommPut(Enq());
    controller_.Show("ENQ Sent");
    StartCall();
    return true;
  }
  if (line.rfind("NO CARRIER", 0) == 0) {
    controller_.Show("{0} Incoming Call Failed: {1}", {line});
    controller_.Show("{0} Resetting modem. Pleas wait");
    controller_.Status("<*> Not Connected <*>");
    controller_.Event("Inbound Call Failed", line);
    controller_.BeginCall();
    EndCall();
    controller_.Show("{0} Mode reset completed");
    return true;
  }
  return false;
}

void ZonCallLoop::AnswerHoursRequest(std::string_view request) {
  zon::HoursRequestPacket packet;
  std::string reply;
  if (!packet.Parse(request)) {
    reply = "Invalid request";
  } else {
    reply = "Badge " + std::to_string(packet.BadgeNumber()) + " not found";
    const core::DateTime now = controller_.Clock().Now();
    // The request names no clock: the first company whose employee table has the badge answers.
    for (const auto& company : services_.companies->GetCompanyList()) {
      try {
        auto db = db::Open(company.ClockwynDatabaseFilename());
        EmployeeHours hours;
        hours.Load(*db, company, packet.BadgeNumber(), now);
        if (!hours.IsValid()) {
          if (hours.InvalidReason().find("not found") == std::string::npos) {
            reply = hours.InvalidReason();
            break;
          }
          continue;
        }
        reply = hours.Name() + ProtocolChar::kFs + TwoDecimals(hours.TodayHours()) +
                ProtocolChar::kFs + TwoDecimals(hours.PeriodHours());
        break;
      } catch (const core::Error& e) {
        controller_.Event("Error", "Hours request: " + std::string(e.what()));
        reply = "Hours not available";
      }
    }
  }
  controller_.Debug("",
                    "Hours request " + core::Printable(request) + ": " + core::Printable(reply));
  line_.CommPut(reply + kCrLf);
}

// ---------------------------------------------------------------------------------------------
// Outbound mode

bool ZonCallLoop::OutBoundTCB(const std::vector<PollRow>& locations) {
  controller_.EndCommLoop().Reset();
  if (!line_.IsOpen() && !OpenLine()) return false;
  bool all_good = true;
  for (const PollRow& location : locations) {
    if (controller_.EndCommLoop().Requested()) break;
    all_good = PollWithRetries(location) && all_good;
  }
  End();
  return all_good;
}

void ZonCallLoop::Poll(const ClockEntry& entry) {
  PollRow row;
  row.location_id = entry.LocationId();
  row.location_name = entry.Name();
  row.location_phone = entry.Address();
  row.terminal_id = entry.TerminalId();
  if (!line_.IsOpen() && !OpenLine()) return;
  PollWithRetries(row);
}

// Through a modem a location is tried until three attempts have failed; a direct line once.
bool ZonCallLoop::PollWithRetries(const PollRow& location) {
  const int attempts = settings_.modem ? kModemAttempts : 1;
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    if (controller_.EndCommLoop().Requested()) return false;
    if (PollLocation(location, attempt)) return true;
  }
  if (settings_.modem && !controller_.EndCommLoop().Requested()) {
    controller_.Show("{0} Failed to complete transfer with {0}");
    controller_.Event("Failed to complete transfer", "Location: " + location.location_name);
  }
  return false;
}

// One attempt at one location: dial (modem), enquiry, header request, then the call.
bool ZonCallLoop::PollLocation(const PollRow& location, int attempt) {
  controller_.Status(attempt > 1 ? "Attempt #" + std::to_string(attempt) : "");
  controller_.BeginCall();
  if (settings_.modem) {
    controller_.Status("Dialing next entry...");
    controller_.Show("{0} Dialing {1} {2}", {location.location_name, location.location_phone});
    const std::string reply =
        modem_->Command("ATDT" + location.location_phone, comm::HayesModem::kDialTimeout);
    if (reply.rfind("CONNECT", 0) != 0) {
      controller_.Show("{0} Call failed: {1}", {reply.empty() ? "no answer" : reply});
      controller_.Show("{0} Resetting modem. Please wait");
      controller_.Status("<*> Not Connected <*>");
      controller_.Event("Outbound Call Failed", location.location_name + ": " + reply);
      EndCall();
      controller_.Show("{0} Modem reset completed");
      return false;
    }
    const std::string speed = ConnectSpeed(reply);
    modem_online_ = true;
    line_.SetSettings(speed + ",N,8,1");
    controller_.Show("{0} CONNECT {1}", {speed});
    controller_.Status("Terminal is Connected at " + speed);
    line_.PutBack(modem_->TakeLeftover());
  } else {
    controller_.Status("Polling next entry...");
    controller_.Show("{0} Polling {1} {2}", {location.location_name, location.location_phone});
  }
  if (settings_.terminal_type == kTerminalTypeMobility) {
    controller_.Show("Polling...");
    ShowEvent("{0} failed to connect...", "Error",
              "Mobility terminals are not supported on this line.");
    EndCall();
    return false;
  }
  if (!Enquire(Enq(), std::string(1, ProtocolChar::kAck) + kCrLf)) {
    controller_.Show("{0} Poll failed, no response");
    controller_.Event("Poll Failed, No Response to ENQ", "Location: " + location.location_name);
    EndCall();
    return false;
  }
  controller_.Show("ENQ Sent");
  const std::string header_request =
      std::string(1, ProtocolChar::kStx) + location.terminal_id + ProtocolChar::kEtx;
  if (!Enquire(header_request, Enq() + kCrLf)) {
    controller_.Show("{0} Polled failed, no response");
    controller_.Event("Poll Failed, No Response to HDR", "Location: " + location.location_name);
    EndCall();
    return false;
  }
  controller_.Show("HDR Sent");
  line_.CommPut(Enq());
  controller_.Show("{0} Connected");
  CommLoopTCB();
  return last_call_succeeded_;
}

// Sends the packet up to kPollTries times, each time waiting up to the response wait for the
// expected reply line.
bool ZonCallLoop::Enquire(const std::string& packet, const std::string& expected) {
  for (int attempt = 0; attempt < kPollTries; ++attempt) {
    if (controller_.EndCommLoop().Requested()) return false;
    line_.CommPut(packet);
    const auto deadline = std::chrono::steady_clock::now() + settings_.response_wait;
    std::string reply;
    while (reply.find(kCrLf) == std::string::npos && line_.WaitForInput(deadline)) {
      reply += line_.CommGet();
    }
    if (reply.find(expected) != std::string::npos) {
      line_.PutBack(reply.substr(reply.find(expected) + expected.size()));
      return true;
    }
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// One call

void ZonCallLoop::StartCall() {
  controller_.BeginCall();
  CommLoopTCB();
}

void ZonCallLoop::CommLoopTCB() {
  auto& call_ended = controller_.CallEnded();
  line_.SetReadTimeout(settings_.packet_timeout);
  while (!call_ended.Requested()) {
    switch (controller_.receive_state.load()) {
      case ReceiveState::kWaitingForHeader:
        controller_.Show("{0} Reading Header Packet");
        break;
      case ReceiveState::kFirstData:
        controller_.Show("{0} Uploading Packets ");
        controller_.receive_state = ReceiveState::kUploading;
        break;
      case ReceiveState::kUploading:
        controller_.AppendStatus(".");
        break;
    }
    std::string packet;
    try {
      packet = line_.ReadPacket();
    } catch (const core::TimeoutException&) {
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
      controller_.call_succeeded = true;
      controller_.download_requested = false;
      break;
    }
    if (IsEndOfUpload(packet)) {
      controller_.Show("{0} End of upload");
      controller_.call_succeeded = true;
      controller_.download_requested = true;
      break;
    }
    if (settings_.modem && packet.rfind("NO CARRIER", 0) == 0) {
      ShowEvent("{0} Lost carrier during call", "Error", "NO CARRIER during call.");
      break;
    }
    if (!PacketCheckOk(packet)) {
      controller_.AppendStatus("*");
      line_.SendNak();
      controller_.Event("Packet resent: ", core::Printable(packet));
      continue;
    }
    ParseTC20(packet);
    if (!call_ended.Requested()) line_.SendAck();
  }
  EndCall();
}

void ZonCallLoop::ParseTC20(const std::string& packet) {
  if (packet.empty()) return;
  const std::string_view body = PacketBody(packet);
  try {
    if (!body.empty() && body.front() == ProtocolChar::kStx) {
      HandleHeader(body);
    } else {
      HandleData(body);
    }
  } catch (const core::SystemError& e) {
    controller_.Event("Error",
                      "ParseTC20 error: " + std::to_string(e.Number()) + ", " + e.Description());
    KeepRejectedPacket(body, e.what());
  } catch (const std::exception& e) {
    controller_.Event("Error", std::string("ParseTC20 error: 0, ") + e.what());
    KeepRejectedPacket(body, e.what());
  }
}

void ZonCallLoop::HandleHeader(std::string_view body) {
  CallData& call = controller_.Call();
  if (call.record_count > 0) {
    controller_.Show("{0} Duplicate Header Packet Ignored ");
    return;
  }
  const zon::ZonHeaderPacket header = zon::ZonHeaderPacketStatic::Parse(body);
  call.clock_name = header.ClockName();
  call.clock_number = header.ClockNumber();
  call.upload_type = header.UploadType();
  SetCurrentClock(controller_.Log(), call.clock_name, call.clock_number);
  controller_.SetInCall(call.clock_name, 0);
  call.company = services_.companies->GetCompanyByClockName(call.clock_name);
  if (!call.company) {
    controller_.Event("System setup error",
                      "Clock name '" + call.clock_name + "' was not found in Company3.mdb");
  }
  if (call.writer == nullptr && !OpenFile()) return;
  controller_.Event("Start of call", "Terminal Upload Type = " + call.upload_type);
  controller_.receive_state = ReceiveState::kFirstData;
}

void ZonCallLoop::HandleData(std::string_view body) {
  CallData& call = controller_.Call();
  if (call.writer == nullptr) throw core::InvalidOperationException("Data packet before header.");
  const std::string clock_number = std::to_string(call.clock_number);
  std::optional<std::string> line;
  if (call.company) {
    records::DepartmentJobAssigner assigner(clock_number, call.company->ClockwynDatabaseFilename(),
                                            services_.paths.ProgramDirectory(), controller_.Log());
    line = assigner.AssignDepartmentsAndJobs(body);
  }
  // Without the assignment (no company, or its database could not be read) the line is kept as
  // the terminal sent it; the transfer applies the same assignment again.
  const auto record =
      records::TcdRecordStatic::Parse(line ? *line : clock_number + "," + std::string(body));
  call.writer->WriteRecord(record);
  ++call.record_count;
  controller_.SetInCall(call.clock_name, call.record_count);
}

// A packet that passed its block check but is not a punch is acknowledged (the terminal would
// otherwise send it for ever) and kept beside the call's file as "<call>.BAD", so nothing received
// is lost. (The transfer's own ".REJ" holds the lines of the call file it could not read.)
void ZonCallLoop::KeepRejectedPacket(std::string_view body, std::string_view reason) {
  CallData& call = controller_.Call();
  if (call.reject_file.empty()) {
    call.reject_file = call.file.empty()
                           ? services_.paths.DataDirectory() / "NOHEADER.BAD"
                           : std::filesystem::path(call.file).replace_extension(".BAD");
  }
  std::ofstream out(call.reject_file, std::ios::app | std::ios::binary);
  out << body << "\t" << reason << "\r\n";
  out.flush();
  ++call.rejected;
  if (!out) controller_.Event("Error", "Couldn't write " + call.reject_file.string());
}

bool ZonCallLoop::OpenFile() {
  CallData& call = controller_.Call();
  const auto folder = services_.paths.DataDirectory();
  try {
    auto file = ClaimCallFile(folder, controller_.Clock().Now().GetDate(), call.upload_type);
    if (!file) {
      controller_.Event("System error", kAllCallFilesUsed);
      controller_.Show(std::string("{0} System error, ") + kAllCallFilesUsed);
      controller_.PressEnd();
      return false;
    }
    call.file = *file;
    call.writer = std::make_unique<records::TcdFileWriter>(*file, true);
  } catch (const core::SystemError& e) {
    controller_.Event("System error " + std::to_string(e.Number()) + ": " + e.Description(),
                      "Couldn't open dot file.");
    controller_.Show("{0} File open error - check log for details");
    controller_.PressEnd();
    return false;
  }
  controller_.Show("{0} File opened is: {1}", {call.file.string()});
  return true;
}

void ZonCallLoop::EndCall() {
  CallData& call = controller_.Call();
  // The file reaches the disk before the terminal hears that its punches were received.
  if (call.writer) {
    try {
      call.writer->Sync();
      call.writer->CloseWriter();
      if (!call.reject_file.empty()) core::SyncFile(call.reject_file);
      core::SyncDirectory(call.file.parent_path());
    } catch (const core::SystemError& e) {
      controller_.Event("System error " + std::to_string(e.Number()) + ": " + e.Description(),
                        "Couldn't write the call's file " + call.file.string());
      controller_.call_succeeded = false;
    }
    call.writer.reset();
  }
  controller_.Event("End of call", call.clock_name);
  const bool succeeded = controller_.call_succeeded;
  if (succeeded) {
    if (settings_.terminal_type == kTerminalTypeZon) {
      try {
        if (!controller_.download_requested) SendEndCharacters();
        controller_.Show("{0} EOT Sent");
        if (controller_.download_requested) {
          controller_.CallEnded().Reset();
          RunValidationDownload();
          controller_.CallEnded().Request();
          controller_.download_requested = false;
          SendEndCharacters();
          controller_.Show("{0} Final EOT Sent");
        }
      } catch (const core::Error& e) {
        controller_.Event("Error", std::string("Sending EOT: ") + e.what());
      }
    }
    controller_.Show("{0} Transfer Complete");
    if (settings_.modem) {
      line_.SetDtr(false);
      controller_.Show("{0} Drop DTR");
    }
  } else {
    // The terminal keeps its punches when it hears no EOT: they come again on the next call.
    std::error_code ec;
    if (!call.file.empty()) std::filesystem::remove(call.file, ec);
    if (!call.reject_file.empty() && call.reject_file != call.file) {
      std::filesystem::remove(call.reject_file, ec);
    }
    controller_.Show("{0} Upload Incomplete");
  }
  if (succeeded && call.record_count > 0) {
    TransferCallFile();
  } else if (call.record_count == 0) {
    controller_.Show("{0} No records in batch.");
    controller_.Event("No records in batch.", call.clock_name);
  }
  if (services_.schedule != nullptr && !call.clock_name.empty()) {
    services_.schedule->UpdateForClock(call.clock_name);
  }
  ResetModem();
  last_call_succeeded_ = succeeded;
  (succeeded ? good_calls_ : failed_calls_)++;
  controller_.FinishCall(succeeded, call.record_count);
  SetCurrentClock(controller_.Log(), "", 0);
  call.clock_name.clear();
}

void ZonCallLoop::SendEndCharacters() {
  const int quantity = services_.overrides.EOTQuantity();
  const auto interval = std::chrono::duration<double>(services_.overrides.EOTInterval());
  for (int i = 0; i < quantity; ++i) {
    line_.SendEot();
    controller_.EndCommLoop().WaitFor(
        std::chrono::duration_cast<std::chrono::nanoseconds>(interval));
  }
}

void ZonCallLoop::RunValidationDownload() {
  CallData& call = controller_.Call();
  auto company = services_.companies->GetCompanyByClockName(call.clock_name);
  if (!company) {
    controller_.Event("System setup error", "Couldn't find clock name in the COMPANY database.");
    controller_.Show("System setup error. Couldn't find clock name in the COMPANY database.");
    return;
  }
  std::unique_ptr<db::Database> company_db;
  try {
    company_db = db::Open(company->ClockwynDatabaseFilename());
  } catch (const core::SystemError& e) {
    controller_.Event("Error", "System error " + std::to_string(e.Number()) + " " +
                                   e.Description() + ": Data Access Error.");
    return;
  }
  ValidationTableDownload download(line_, controller_, settings_.response_wait);
  download.Run(*company_db);
  line_.SetReadTimeout(settings_.packet_timeout);
}

void ZonCallLoop::TransferCallFile() {
  CallData& call = controller_.Call();
  auto& clock = controller_.Clock();
  // Every received line also goes to the company's daily and permanent archives.
  if (call.company) {
    try {
      records::TcdArchiveWriter archive(*call.company, clock.Now().GetDate());
      records::TcdFileReader reader(call.file);
      while (reader.Read()) archive.WriteRecord(*reader.Record());
      archive.Sync();
      archive.CloseWriter();
    } catch (const core::SystemError& e) {
      controller_.Event("System error " + std::to_string(e.Number()), e.Description());
      controller_.Show(records::kArchiveOpenScreenText);
    } catch (const core::Error& e) {
      controller_.Event("Error", e.what());
    }
  }
  controller_.Status("Sending Batch to Database...");
  records::ClockFileTransfer transfer(
      {services_.paths.ProgramDirectory(), services_.paths.CompanyRegistryDatabase()},
      controller_.Log(), clock);
  records::TransferOptions options;
  options.mode_letter = call.upload_type;
  // The call's file is already on the disk, so the rows go in as one transaction (all or none,
  // each with its ledger entry): one sync per call instead of one per punch.
  options.use_transactions = false;
  try {
    transfer.Transfer(call.company.value_or(records::Company()), call.file, options);
  } catch (const core::Error& e) {
    controller_.Show("{0} {1}", {e.what()});
    controller_.Event("Transfer failed", e.what());
  }
  CopyToDuplicateFolders();
  PurgeHistoryFiles(services_.paths.DataDirectory(), clock, controller_.Log());
}

void ZonCallLoop::CopyToDuplicateFolders() {
  const std::string templates = services_.overrides.DuplicateTCD();
  if (templates.empty()) return;
  const CallData& call = controller_.Call();
  const std::string file_name = call.file.filename().string();
  for (const std::string& item : core::Split(templates, '+')) {
    std::string folder = core::Trim(item);
    if (folder.empty()) continue;
    folder = core::ReplaceAll(folder, "[ClockName]", call.clock_name);
    folder = core::ReplaceAll(folder, "[FileName]", file_name);
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    std::filesystem::copy_file(call.file, std::filesystem::path(folder) / file_name,
                               std::filesystem::copy_options::overwrite_existing, ec);
    if (ec)
      controller_.Event("Error",
                        "Couldn't copy " + file_name + " to " + folder + ": " + ec.message());
  }
}

}  // namespace clockcomm::shell
