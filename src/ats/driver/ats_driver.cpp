#include "ats/driver/ats_driver.h"

#include <charconv>

#include "ats/ats_communicator.h"
#include "ats/ats_connection.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::ats {
namespace {

// "": 1; "0".."94": that address; anything else: nothing.
std::optional<int> TerminalAddress(const std::string& id) {
  if (id.empty()) return 1;
  int value = -1;
  const auto [end, ec] = std::from_chars(id.data(), id.data() + id.size(), value);
  if (ec != std::errc() || end != id.data() + id.size() || value < 0 || value > 94) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

ATSDriver::ATSDriver(terminal::DriverContext context, PunchReader reader)
    : context_(std::move(context)),
      controller_(context_.controller),
      intake_(context_.intake),
      reader_(std::move(reader)) {}

std::string ATSDriver::PortSettings() const { return kATSLineSettings; }

void ATSDriver::Host(terminal::CallStart, std::string) {
  if (host_notice_shown_) return;
  host_notice_shown_ = true;
  controller_.Show("{0} ATS terminals do not call in; input on this line is ignored");
}

std::unique_ptr<IATSConnection> ATSDriver::MakeConnection(const terminal::PollTarget& target,
                                                          int address) {
  comm::IConnection& line = context_.line.Connection();
  core::Clock& clock = controller_.Clock();
  const core::StopSignal& stop = controller_.CallEnded();
  if (context_.settings.modem) {
    return std::make_unique<ATSModemConnection>(line, clock, stop, address, target.name,
                                                context_.line.Describe(), target.address);
  }
  if (context_.settings.lan) {
    return std::make_unique<ATSEthernetConnection>(line, clock, stop, address, target.name,
                                                   target.address);
  }
  return std::make_unique<ATSSerialConnection>(line, clock, stop, address, target.name,
                                               context_.line.Describe());
}

bool ATSDriver::Poll(const terminal::PollTarget& target, std::string data) {
  controller_.BeginCall();
  opened_ = false;
  type_ = target.terminal_type;
  if (!data.empty()) controller_.Debug("", "ATS bytes before the poll: " + core::Printable(data));
  const auto address = TerminalAddress(target.terminal_id);
  if (!address) {
    controller_.Event("Error", "ATS terminal address '" + target.terminal_id + "' of " +
                                   target.name + " is not a number from 0 to 94.");
    controller_.Show("{0} Bad terminal address for {1}", {target.name});
    EndCall(false, target.name, {});
    return false;
  }
  auto connection = MakeConnection(target, *address);
  DataSentLog sent(context_.settings.log_directory, controller_.Clock(), controller_);
  ATSCommunicator comm(*connection, *address, controller_.Clock(), controller_,
                       controller_.CallEnded(), sent);
  bool succeeded = false;
  try {
    succeeded = RunCall(comm, target, *address);
  } catch (const core::Error& e) {
    // Whatever was not acknowledged is still on the terminal.
    controller_.Event("Error", "ATS call of " + target.name + ": " + e.what());
    controller_.Show("{0} Call failed: {1}", {e.what()});
    succeeded = false;
  }
  connection->Disconnect();
  EndCall(succeeded, target.name, comm.Counters());
  return succeeded;
}

bool ATSDriver::RunCall(ATSCommunicator& comm, const terminal::PollTarget& target, int address) {
  if (!comm.Connect()) {
    controller_.Event("Error", "The line to " + target.name + " is not usable.");
    return false;
  }
  controller_.Show("Polling...");  // as the Zon conversation shows it; the line said whom
  // A terminal that did not take the first command is not asked again in this call.
  const std::string& clock_type = comm.GetClockType();
  if (clock_type.empty()) return false;
  controller_.Debug("", "ATS clock type of " + target.name + ": " + clock_type);
  if (!comm.LockATSClock()) {
    controller_.Event("Error", "Couldn't lock the ATS clock " + target.name + ".");
    return false;
  }
  if (intake_.Open({target.name, address, ""}) != records::OpenResult::kOpened) {
    controller_.EndRunOnError();
    comm.UnlockATSClock();
    return false;
  }
  opened_ = true;
  controller_.SetCurrentClock(target.name, address);
  controller_.SetInCall(target.name, 0);
  const auto store = [&](const std::string& frame) { return Store(frame, target.name); };
  while (!controller_.CallEnded().Requested()) {
    comm.Poll();
    if (comm.GetPacket(true, store).empty()) break;
  }
  const bool stored_all = !comm.StoreRefused() && !controller_.CallEnded().Requested();
  if (comm.StoreRefused()) {
    controller_.Event("Error", "Couldn't store a packet of " + target.name +
                                   "; it was refused and stays on the terminal.");
  }
  if (!comm.UnlockATSClock()) {
    controller_.Event("Error", "Couldn't unlock the ATS clock " + target.name + ".");
  }
  return stored_all;
}

bool ATSDriver::Store(const std::string& frame, const std::string& clock_name) {
  switch (ClassifyPacket(frame)) {
    case PacketKind::kKnown:
      controller_.Debug("", "ATS packet: " + core::Printable(frame));
      return true;
    case PacketKind::kUnknown:
      return KeepAside(frame, "unknown ATS packet");
    case PacketKind::kPunch:
      break;
  }
  if (!reader_) return false;
  std::optional<records::TcdRecord> record;
  try {
    // No sequence number: a packet sent again after a lost ACK (in this call or the next) must
    // be the same punch to the punch keys, and the terminal's own record number wraps at 1000.
    record = reader_(type_, frame, 0);
  } catch (const core::Error& e) {
    return KeepAside(frame, e.what());
  }
  if (!record) return KeepAside(frame, "not a punch");
  try {
    intake_.Add(std::move(*record));
  } catch (const records::IntakeStorageError&) {
    return false;
  }
  controller_.SetInCall(clock_name, intake_.RecordCount());
  // The terminal forgets the punch once acknowledged: durable first.
  return intake_.SyncReceived();
}

bool ATSDriver::KeepAside(const std::string& frame, std::string_view reason) {
  try {
    intake_.Reject(frame, reason);
  } catch (const records::IntakeStorageError&) {
    return false;
  }
  return intake_.SyncReceived();
}

void ATSDriver::EndCall(bool succeeded, const std::string& clock_name,
                        const terminal::InputCounters& counters) {
  const int punches = intake_.RecordCount();
  if (opened_) intake_.Finish(succeeded);
  opened_ = false;
  if (counters.Any()) controller_.Debug("", "Bad input: " + counters.ToString());
  ++calls_;
  last_call_succeeded_ = succeeded;
  last_clock_name_ = clock_name;
  controller_.FinishCall(succeeded, punches, counters);
  controller_.SetCurrentClock("", 0);
}

}  // namespace clockcomm::ats
