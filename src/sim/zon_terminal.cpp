#include "sim/zon_terminal.h"

#include "comm/fd_connection.h"
#include "sim/host_inbox.h"
#include "sim/paced_writer.h"
#include "zon/packet_encoder.h"
#include "zon/protocol_char.h"

namespace clockcomm::sim {

using Kind = HostMessage::Kind;
using zon::ProtocolChar;

namespace {
const std::string kAckLine = std::string(1, ProtocolChar::kAck) + "\r\n";
const std::string kNakLine = std::string(1, ProtocolChar::kNak) + "\r\n";
const std::string kEnqLine = std::string(1, ProtocolChar::kEnq) + "\r\n";

comm::SteadyTime After(std::chrono::milliseconds wait) {
  return std::chrono::steady_clock::now() + wait;
}

// The packet with its block check changed, so that the check fails; the line still ends at the
// CR LF after it, whatever the wrong check becomes.
std::string WithBadBlockCheck(std::string packet) {
  char& check = packet[packet.size() - 3];
  check = static_cast<char>(check + 1);
  return packet;
}
}  // namespace

const char* ToString(CallOutcome outcome) {
  switch (outcome) {
    case CallOutcome::kNone:
      return "no call";
    case CallOutcome::kCompleted:
      return "completed";
    case CallOutcome::kNoAnswer:
      return "no answer";
    case CallOutcome::kNoAck:
      return "no acknowledgement";
    case CallOutcome::kTooManyNaks:
      return "too many NAKs";
    case CallOutcome::kNoEot:
      return "no EOT";
    case CallOutcome::kWentSilent:
      return "went silent";
    case CallOutcome::kDroppedLine:
      return "dropped the line";
    case CallOutcome::kLineClosed:
      return "line closed";
    case CallOutcome::kStopped:
      return "stopped";
  }
  return "?";
}

struct ZonTerminal::Call {
  Call(comm::IConnection& l, core::StopSignal* stop, const std::optional<comm::LineSettings>& pace)
      : line(l), inbox(l, stop), writer(l, pace, stop) {}
  comm::IConnection& line;
  HostInbox inbox;
  PacedWriter writer;
};

ZonTerminal::ZonTerminal(TerminalConfig config, std::vector<std::string> punches,
                         core::StopSignal* stop)
    : config_(std::move(config)), stop_(stop), punches_(std::move(punches)) {}

CallOutcome ZonTerminal::CallIn(comm::IConnection& line, LineKind kind) {
  return RunCall(line, /*poll=*/false, kind, comm::kNoDeadline);
}

CallOutcome ZonTerminal::AnswerPoll(comm::IConnection& line, LineKind kind,
                                    comm::SteadyTime first_enq_deadline) {
  return RunCall(line, /*poll=*/true, kind, first_enq_deadline);
}

CallOutcome ZonTerminal::RunCall(comm::IConnection& line, bool poll, LineKind kind,
                                 comm::SteadyTime first_deadline) {
  Call call(line, stop_, config_.pace);
  Update([&] { ++stats_.calls; });
  CallOutcome outcome;
  try {
    outcome = Handshake(call, poll, kind, first_deadline);
    if (outcome == CallOutcome::kNone) outcome = Upload(call);
  } catch (const StoppedError&) {
    outcome = CallOutcome::kStopped;
  } catch (const comm::ConnectionClosedError&) {
    outcome = CallOutcome::kLineClosed;
  } catch (const core::TimeoutException&) {
    // A write that found no room for its whole time-out: the program stopped reading.
    outcome = CallOutcome::kNoAck;
  }
  Update([&] {
    stats_.bytes_sent += call.writer.BytesWritten();
    stats_.wire_time += call.writer.WireTime();
    outcome_ = outcome;
  });
  return outcome;
}

CallOutcome ZonTerminal::Handshake(Call& call, bool poll, LineKind kind,
                                   comm::SteadyTime first_deadline) {
  if (kind == LineKind::kModem &&
      !call.inbox.WaitForLine("CONNECT", After(config_.timeouts.answer_wait))) {
    return CallOutcome::kNoAnswer;
  }
  if (!poll) {
    if (kind == LineKind::kDirect) call.writer.Write(kEnqLine);
    const auto deadline = After(config_.timeouts.answer_wait);
    while (auto m = call.inbox.Next(HostContext::kCall, deadline)) {
      if (m->kind == Kind::kEnq) return CallOutcome::kNone;
    }
    return CallOutcome::kNoAnswer;
  }

  // Poll: ENQ -> ACK CRLF; header request with our id -> ENQ CRLF; ENQ -> upload.
  enum { kWaitEnq, kWaitHeader, kWaitGo } state = kWaitEnq;
  auto deadline = first_deadline;
  while (auto m = call.inbox.Next(HostContext::kCall, deadline)) {
    if (m->kind == Kind::kEnq) {
      if (state == kWaitGo) return CallOutcome::kNone;
      call.writer.Write(kAckLine);
      state = kWaitHeader;
      deadline = After(config_.timeouts.poll_step_wait);
    } else if (m->kind == Kind::kPollHeader && state != kWaitEnq &&
               (config_.terminal_id.empty() || m->text == config_.terminal_id)) {
      // The program may repeat its header request when our answer was late; answer each.
      call.writer.Write(kEnqLine);
      if (state != kWaitGo) Update([&] { ++stats_.polls_answered; });
      state = kWaitGo;
      deadline = After(config_.timeouts.poll_step_wait);
    }
  }
  return CallOutcome::kNoAnswer;
}

bool ZonTerminal::Fire(std::optional<int>& fault, int count) {
  if (!fault || *fault != count) return false;
  fault.reset();
  return true;
}

CallOutcome ZonTerminal::Upload(Call& call) {
  std::vector<std::string> batch;
  Update([&] { batch = punches_; });
  const std::string header = zon::EncodeHeader(zon::ZonHeaderPacket(
      config_.clock_name, config_.clock_number, config_.application, config_.upload_type));
  if (auto r = SendPacket(call, header, 0); r != CallOutcome::kNone) return r;

  auto& faults = config_.faults;
  for (size_t i = 0; i <= batch.size(); ++i) {
    const int acknowledged = static_cast<int>(i);
    if (Fire(faults.silent_after, acknowledged)) return CallOutcome::kWentSilent;
    if (Fire(faults.drop_after, acknowledged)) {
      // Only a line with a descriptor can be dropped; others are just abandoned.
      if (auto* fd_line = dynamic_cast<comm::FdConnection*>(&call.line)) fd_line->Close();
      return CallOutcome::kDroppedLine;
    }
    if (i == batch.size()) break;
    auto r = SendPacket(call, zon::EncodeData(batch[i]), acknowledged + 1);
    if (r != CallOutcome::kNone) return r;
    if (i == 0 && faults.second_header) {
      faults.second_header = false;
      if (r = SendPacket(call, header, -1); r != CallOutcome::kNone) return r;
    }
  }

  if (config_.end_with_upload) {
    call.writer.Write(zon::EncodeEndOfUpload());
    return ReceiveTables(call, batch.size());
  }
  call.writer.Write(zon::EncodeEndOfTransmission());
  return AwaitEot(call, batch.size());
}

CallOutcome ZonTerminal::SendPacket(Call& call, const std::string& packet, int index) {
  for (int attempt = 0; attempt <= config_.max_resends; ++attempt) {
    const bool corrupt = Fire(config_.faults.corrupt_packet, index);
    call.writer.Write(corrupt ? WithBadBlockCheck(packet) : packet);
    Update([&] {
      ++stats_.packets_sent;
      if (attempt > 0) ++stats_.resends;
    });
    switch (AwaitReply(call, index)) {
      case Reply::kAck:
        return CallOutcome::kNone;
      case Reply::kNone:
        return CallOutcome::kNoAck;
      case Reply::kNak:
      case Reply::kLost:
        break;
    }
  }
  return CallOutcome::kTooManyNaks;
}

ZonTerminal::Reply ZonTerminal::AwaitReply(Call& call, int index) {
  auto& faults = config_.faults;
  const auto deadline = After(config_.timeouts.ack_wait);
  bool lost = false;
  while (auto m = call.inbox.Next(HostContext::kCall, deadline)) {
    // A framed control with a damaged check is noise, not an answer.
    if (!m->check_ok) continue;
    if (m->kind == Kind::kAck && index > 0 && Fire(faults.lose_ack, index)) {
      lost = true;  // never seen: the wait runs out
      continue;
    }
    if (m->kind == Kind::kNak ||
        (m->kind == Kind::kAck && index > 0 && Fire(faults.stray_nak, index))) {
      Update([&] { ++stats_.naks_received; });
      return Reply::kNak;
    }
    if (m->kind == Kind::kAck) {
      Update([&] { ++stats_.acks_received; });
      return Reply::kAck;
    }
    // Anything else (a late poll ENQ, stray end characters) is not an answer to this packet.
  }
  return lost ? Reply::kLost : Reply::kNone;
}

bool ZonTerminal::SeesEot() {
  if (!config_.faults.miss_eot) return true;
  config_.faults.miss_eot = false;
  return false;
}

void ZonTerminal::Delivered(size_t count) {
  Update([&] {
    ++stats_.eots_received;
    // Punches added during the call stay for the next one.
    punches_.erase(punches_.begin(), punches_.begin() + static_cast<std::ptrdiff_t>(
                                                            std::min(count, punches_.size())));
  });
}

CallOutcome ZonTerminal::AwaitEot(Call& call, size_t batch_size) {
  const auto deadline = After(config_.timeouts.eot_wait);
  while (auto m = call.inbox.Next(HostContext::kCall, deadline)) {
    if (m->kind == Kind::kEot && m->check_ok) {
      if (!SeesEot()) return CallOutcome::kNoEot;
      Delivered(batch_size);
      return CallOutcome::kCompleted;
    }
  }
  return CallOutcome::kNoEot;
}

CallOutcome ZonTerminal::ReceiveTables(Call& call, size_t batch_size) {
  std::string table;
  int rows_accepted = 0;
  for (;;) {
    auto m = call.inbox.Next(HostContext::kDownload, After(config_.timeouts.download_wait));
    if (!m) return CallOutcome::kNoEot;
    switch (m->kind) {
      case Kind::kDownloadStart:
        call.writer.Write(kEnqLine);
        Update([&] { tables_.clear(); });
        rows_accepted = 0;
        break;
      case Kind::kTableHeader:
        if (!m->check_ok) {
          call.writer.Write(kNakLine);
          break;
        }
        table = m->text;
        Update([&] { tables_[table].clear(); });
        call.writer.Write(kAckLine);
        break;
      case Kind::kTableRow:
        if (!m->check_ok || Fire(config_.faults.nak_row, rows_accepted + 1)) {
          Update([&] { ++stats_.row_naks_sent; });
          call.writer.Write(kNakLine);
          break;
        }
        ++rows_accepted;
        Update([&] {
          tables_[table].push_back(m->fields);
          ++stats_.rows_received;
        });
        call.writer.Write(kAckLine);
        break;
      case Kind::kEot:
        if (!m->check_ok) break;
        if (!SeesEot()) return CallOutcome::kNoEot;
        Delivered(batch_size);
        return CallOutcome::kCompleted;
      default:
        break;
    }
  }
}

std::optional<std::string> ZonTerminal::RequestHours(comm::IConnection& line, int32_t badge,
                                                     const core::DateTime& when) {
  Call call(line, stop_, config_.pace);
  try {
    call.writer.Write(zon::EncodeHoursRequest(badge, when));
    auto reply = call.inbox.ReadLine(After(config_.timeouts.hours_wait));
    if (!reply) return std::nullopt;
    // Stray end characters of an earlier call may precede the reply.
    size_t start = reply->find_first_not_of(std::string{ProtocolChar::kEot, ProtocolChar::kAck,
                                                        ProtocolChar::kNak, ProtocolChar::kEnq});
    std::string text = start == std::string::npos ? std::string() : reply->substr(start);
    Update([&] { hours_replies_.push_back(text); });
    return text;
  } catch (const StoppedError&) {
    return std::nullopt;
  } catch (const comm::ConnectionClosedError&) {
    return std::nullopt;
  }
}

void ZonTerminal::AddPunches(const std::vector<std::string>& punches) {
  Update([&] { punches_.insert(punches_.end(), punches.begin(), punches.end()); });
}

std::vector<std::string> ZonTerminal::PendingPunches() const {
  std::lock_guard lock(mutex_);
  return punches_;
}

TerminalStats ZonTerminal::Stats() const {
  std::lock_guard lock(mutex_);
  return stats_;
}

CallOutcome ZonTerminal::LastOutcome() const {
  std::lock_guard lock(mutex_);
  return outcome_;
}

std::map<std::string, Table> ZonTerminal::Tables() const {
  std::lock_guard lock(mutex_);
  return tables_;
}

std::vector<std::string> ZonTerminal::HoursReplies() const {
  std::lock_guard lock(mutex_);
  return hours_replies_;
}

}  // namespace clockcomm::sim
