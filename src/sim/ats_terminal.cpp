#include "sim/ats_terminal.h"

#include "ats/ats_frame.h"
#include "comm/fd_connection.h"
#include "sim/host_inbox.h"

namespace clockcomm::sim {

namespace {

constexpr int kProgramAddress = 1;
// The unknown packet the fault puts before the punches.
constexpr std::string_view kUnknownPacket = "ZZ0001";
// The "what are you" command, and the E-Series answer to it.
constexpr std::string_view kStatusCommand = "S00\x1E";
constexpr std::string_view kStatusPacket = "SR00";
constexpr std::string_view kLock = "O00";
constexpr std::string_view kUnlock = "O10";

bool Fire(std::optional<int>& fault, int count) {
  if (!fault || *fault != count) return false;
  fault.reset();
  return true;
}

std::string WithBadLrc(std::string frame) {
  frame[frame.size() - 2] ^= 1;  // the second LRC character
  return frame;
}

}  // namespace

ATSTerminal::ATSTerminal(ATSTerminalConfig config, std::vector<ats::TCDPacket> punches,
                         core::StopSignal* stop)
    : config_(std::move(config)), model_(ats::ModelOf(config_.series)), stop_(stop) {
  if (config_.faults.unknown_packet) store_.push_back({std::string(kUnknownPacket), std::nullopt});
  int record = 1;
  for (auto& p : punches) {
    store_.push_back({ats::BuildPunchPacket(model_, record++, p), p});
  }
}

std::vector<ats::TCDPacket> ATSTerminal::PendingPunches() const {
  std::lock_guard lock(mutex_);
  std::vector<ats::TCDPacket> pending;
  for (const auto& s : store_) {
    if (s.punch) pending.push_back(*s.punch);
  }
  return pending;
}

ATSTerminalStats ATSTerminal::Stats() const {
  std::lock_guard lock(mutex_);
  return stats_;
}

bool ATSTerminal::Locked() const {
  std::lock_guard lock(mutex_);
  return locked_;
}

ServeOutcome ATSTerminal::Serve(comm::IConnection& line, bool until_unlocked) {
  std::string buffer;
  try {
    for (;;) {
      switch (Handle(line, buffer)) {
        case Step::kDropped:
          return ServeOutcome::kDropped;
        case Step::kUnlocked:
          if (until_unlocked) return ServeOutcome::kUnlocked;
          break;
        case Step::kGoOn:
        case Step::kDeaf:
          break;
      }
      if (line.WaitForInput(comm::kNoDeadline, {stop_}) == comm::WaitResult::kWoken) {
        return ServeOutcome::kStopped;
      }
      buffer += line.Read();
    }
  } catch (const comm::ConnectionClosedError&) {
    return ServeOutcome::kClosed;
  } catch (const StoppedError&) {
    return ServeOutcome::kStopped;
  }
}

ServeOutcome ATSTerminal::ServeTcp(comm::TcpListener& listener, bool once) {
  for (;;) {
    auto connection = listener.Accept(comm::kNoDeadline, {stop_});
    if (!connection) return ServeOutcome::kStopped;
    const ServeOutcome outcome = Serve(*connection, once);
    if (outcome == ServeOutcome::kStopped || once) return outcome;
  }
}

// Cuts every whole frame at the front of the buffer and answers it; stops at an unlock (so the
// caller can leave) or a dropped line.
ATSTerminal::Step ATSTerminal::Handle(comm::IConnection& line, std::string& buffer) {
  const char self = ats::AddressChar(config_.address);
  Step step = Step::kGoOn;
  while (!buffer.empty() && step == Step::kGoOn) {
    const char first = buffer[0];
    if (first == ats::kEnq) {
      if (buffer.size() < 5) break;
      const bool ours = buffer[2] == self && buffer[4] == ats::kEot;
      const char letter = buffer[3];
      buffer.erase(0, 5);
      if (ours) step = OnEnquiry(line, letter);
      if (step == Step::kDeaf) {
        buffer.clear();
        step = Step::kGoOn;
      }
      continue;
    }
    if (first != ats::kSoh) {
      buffer.erase(0, 1);  // noise between frames
      continue;
    }
    if (buffer.size() < 5) break;
    if (buffer[3] == ats::kAck || buffer[3] == ats::kNak) {
      const bool ours = buffer[2] == self && buffer[4] == ats::kEot;
      const bool ack = buffer[3] == ats::kAck;
      buffer.erase(0, 5);
      // A refused packet is sent again at once, as the program reads on for it.
      if (ours && OnReply(ack)) step = SendOldest(line);
      continue;
    }
    const int length = ats::CheckDataFrame(buffer);
    if (length == 0) break;
    if (length > 0) {
      const std::string frame = buffer.substr(0, static_cast<size_t>(length));
      buffer.erase(0, static_cast<size_t>(length));
      if (frame[2] == self) step = OnCommand(line, frame, true);
      continue;
    }
    // A broken frame: one whose layout holds but whose LRC is wrong is refused; anything else
    // is noise to skip up to the next frame.
    const size_t etx = buffer.find(ats::kEtx);
    if (etx != std::string::npos && etx + 4 <= buffer.size() && buffer[3] == ats::kStx &&
        buffer[etx + 3] == ats::kEot) {
      const std::string frame = buffer.substr(0, etx + 4);
      buffer.erase(0, etx + 4);
      if (frame[2] == self) step = OnCommand(line, frame, false);
      continue;
    }
    buffer.erase(0, 1);
  }
  return step;
}

ATSTerminal::Step ATSTerminal::OnEnquiry(comm::IConnection& line, char letter) {
  if (letter == ats::kStatusEnquiry) {
    bool ready = true;
    {
      std::lock_guard lock(mutex_);
      ++stats_.probes;
      if (config_.faults.not_ready > 0) {
        --config_.faults.not_ready;
        ready = false;
      }
    }
    line.WriteText(ats::ReplyFrame(config_.address, kProgramAddress, ready));
    return Step::kGoOn;
  }
  if (letter == ats::kPollEnquiry) return SendOldest(line);
  return Step::kGoOn;
}

ATSTerminal::Step ATSTerminal::OnCommand(comm::IConnection& line, std::string_view frame,
                                         bool good) {
  bool refuse = !good;
  {
    std::lock_guard lock(mutex_);
    ++stats_.commands;
    if (good && config_.faults.nak_commands > 0) {
      --config_.faults.nak_commands;
      refuse = true;
    }
  }
  if (refuse) {
    line.WriteText(ats::ReplyFrame(config_.address, kProgramAddress, false));
    return Step::kGoOn;
  }
  // The command runs from frame position 9 to the ETX. Its effect comes before the ACK, so that
  // an ACK always means "done".
  const std::string_view command =
      frame.substr(ats::kTypeOffset, frame.find(ats::kEtx) - ats::kTypeOffset);
  Step step = Step::kGoOn;
  if (command == kLock || command == kUnlock) {
    std::lock_guard lock(mutex_);
    locked_ = command == kLock;
    if (!locked_) step = Step::kUnlocked;
  }
  line.WriteText(ats::ReplyFrame(config_.address, kProgramAddress, true));
  if (command == kStatusCommand) {
    if (model_.status_answer_is_eot) {
      line.WriteText(std::string(1, ats::kEot));
    } else {
      // Not a punch: its ACK must not make the terminal forget the packet last sent.
      {
        std::lock_guard lock(mutex_);
        awaiting_reply_ = false;
      }
      line.WriteText(ats::CommandFrame(config_.address, config_.address, kStatusPacket));
    }
  }
  return step;
}

bool ATSTerminal::OnReply(bool ack) {
  std::lock_guard lock(mutex_);
  if (!ack) {
    ++stats_.naks;
    const bool resend = awaiting_reply_ && !store_.empty();
    awaiting_reply_ = false;
    return resend;
  }
  if (!awaiting_reply_ || store_.empty()) return false;  // an ACK of nothing we sent
  store_.pop_front();
  ++stats_.acks;
  awaiting_reply_ = false;
  sent_since_reply_ = 0;
  return false;
}

ATSTerminal::Step ATSTerminal::SendOldest(comm::IConnection& line) {
  std::string frame;
  int sent = 0;
  {
    std::lock_guard lock(mutex_);
    ++stats_.polls;
    if (store_.empty()) {
      ++stats_.eots_sent;
      awaiting_reply_ = false;
    } else {
      frame = ats::CommandFrame(config_.address, config_.address, store_.front().packet);
      sent = ++stats_.packets_sent;
      if (sent_since_reply_++ > 0) ++stats_.resends;
      awaiting_reply_ = true;
      if (Fire(config_.faults.bad_lrc, sent)) frame = WithBadLrc(frame);
    }
  }
  if (frame.empty()) {
    line.WriteText(std::string(1, ats::kEot));
    return Step::kGoOn;
  }
  line.WriteText(frame);
  if (Fire(config_.faults.drop_after, sent)) {
    // Only a line with a descriptor can be dropped; others are just abandoned.
    if (auto* fd_line = dynamic_cast<comm::FdConnection*>(&line)) fd_line->Close();
    return Step::kDropped;
  }
  if (Fire(config_.faults.silent_after, sent)) {
    if (!StayDeaf(line, std::chrono::steady_clock::now() + config_.silence)) {
      throw StoppedError();
    }
    return Step::kDeaf;
  }
  return Step::kGoOn;
}

bool ATSTerminal::StayDeaf(comm::IConnection& line, comm::SteadyTime until) {
  for (;;) {
    switch (line.WaitForInput(until, {stop_})) {
      case comm::WaitResult::kWoken:
        return false;
      case comm::WaitResult::kTimedOut:
        return true;
      case comm::WaitResult::kReadable:
        line.Read();
        break;
    }
  }
}

std::vector<ats::TCDPacket> GenerateATSPunches(ats::Series series, int count, const core::Date& day,
                                               int address) {
  const ats::AtsModel& model = ats::ModelOf(series);
  std::vector<ats::TCDPacket> punches;
  for (int i = 0; i < count; ++i) {
    ats::TCDPacket p;
    p.PunchType = model.kinds[static_cast<size_t>(i) % model.kinds.size()].type;
    // Minutes wrap past a day, but the badges keep every punch distinct.
    const int minute = (6 * 60 + i) % (24 * 60);
    p.Timestamp = core::DateTime(day, *core::TimeOfDay::FromHms(minute / 60, minute % 60));
    p.clockId = address;
    p.BadgeId = 1001 + i;
    if (i % 3 == 2) p.DepartmentCode = 100 + i;
    if (i % 4 == 3) p.JobCode = "J" + std::to_string(i);
    punches.push_back(p);
  }
  return punches;
}

}  // namespace clockcomm::sim
