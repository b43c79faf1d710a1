#include "sim/hayes_modem.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "comm/fd_io.h"
#include "comm/pty_pair.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::sim {

using SteadyClock = std::chrono::steady_clock;
using Kind = AtCommand::Kind;

namespace {
constexpr size_t kMaxCommandLine = 255;
constexpr char kBackspace = 8;
constexpr char kDelete = 127;
}  // namespace

HayesModem::HayesModem(std::unique_ptr<comm::FdConnection> dte, ModemOptions options,
                       core::StopSignal& stop)
    : dte_(std::move(dte)), options_(options), stop_(stop) {
  Reset();
}

HayesModem::~HayesModem() {
  if (line_) line_->Close();
  if (terminal_thread_.joinable()) terminal_thread_.join();
}

void HayesModem::AddToPhoneBook(const std::string& number, LineParty party) {
  std::lock_guard lock(mutex_);
  phone_book_[DialedNumber(number)] = std::move(party);
}

void HayesModem::AddToPhoneBook(const std::string& number, ZonTerminal& terminal) {
  AddToPhoneBook(number, [&terminal](comm::FdConnection& line, bool outbound) {
    return outbound ? terminal.AnswerPoll(line, LineKind::kModem)
                    : terminal.CallIn(line, LineKind::kModem);
  });
}

const LineParty* HayesModem::Lookup(const std::string& number) const {
  std::lock_guard lock(mutex_);
  auto it = phone_book_.find(number);
  return it == phone_book_.end() ? nullptr : &it->second;
}

void HayesModem::IncomingCall(const std::string& number) {
  {
    std::lock_guard lock(mutex_);
    incoming_.push_back(DialedNumber(number));
  }
  doorbell_.Request();
}

ModemStats HayesModem::Stats() const {
  std::lock_guard lock(mutex_);
  return stats_;
}

bool HayesModem::Connected() const {
  std::lock_guard lock(mutex_);
  return connected_;
}

CallOutcome HayesModem::LastTerminalOutcome() const {
  std::lock_guard lock(mutex_);
  return last_outcome_;
}

void HayesModem::Count(int ModemStats::*field) {
  std::lock_guard lock(mutex_);
  ++(stats_.*field);
}

void HayesModem::Reset() {
  echo_ = true;
  quiet_ = false;
  verbose_ = true;
  for (int& r : registers_) r = 0;
  registers_[3] = '\r';
  registers_[4] = '\n';
  registers_[5] = kBackspace;
  registers_[12] = static_cast<int>(options_.guard_time / std::chrono::milliseconds(20));
  command_line_.clear();
}

std::chrono::milliseconds HayesModem::GuardTime() const {
  return std::chrono::milliseconds(20) * registers_[12];
}

void HayesModem::Run() {
  last_dte_byte_ = SteadyClock::now();
  while (!stop_.Requested()) {
    std::vector<pollfd> fds;
    fds.push_back({dte_->Fd(), POLLIN, 0});
    fds.push_back({stop_.WakeFd(), POLLIN, 0});
    fds.push_back({doorbell_.WakeFd(), POLLIN, 0});
    if (line_) fds.push_back({line_->Fd(), POLLIN, 0});

    comm::SteadyTime deadline = comm::kNoDeadline;
    if (escape_at_) deadline = *escape_at_;
    if (ringing_ != nullptr && next_ring_ < deadline) deadline = next_ring_;
    int n = ::poll(fds.data(), fds.size(), comm::fd_io::PollTimeoutMs(deadline));
    if (n < 0 && errno != EINTR) throw core::SystemError::FromErrno(errno, "poll in modem");
    auto now = SteadyClock::now();
    if (stop_.Requested()) break;

    if (n > 0 && fds[2].revents != 0) {
      doorbell_.Reset();
      TakeIncomingCalls(now);
    }
    if (n > 0 && fds[0].revents != 0) {
      std::string text;
      try {
        text = dte_->Read();
      } catch (const comm::ConnectionClosedError&) {
        break;  // nobody can talk to this modem any more
      }
      OnDteInput(text, now);
    }
    if (n > 0 && fds.size() > 3 && fds[3].revents != 0 && line_) OnLineInput();
    CheckEscape(now);
    RingTick(now);
    Flush();
  }
  if (line_) HangUp();
}

void HayesModem::OnDteInput(const std::string& text, SteadyClock::time_point now) {
  std::string to_line;
  for (char c : text) {
    if (escape_at_) {
      escape_at_.reset();  // "+++" followed by anything is data, not an escape
      pluses_ = 0;
    }
    if (c == '+') {
      if (pluses_ > 0 || now - last_dte_byte_ >= GuardTime()) ++pluses_;
      if (pluses_ == 3) {
        escape_at_ = now + GuardTime();
        pluses_ = 0;
      }
    } else {
      pluses_ = 0;
    }
    last_dte_byte_ = now;
    if (mode_ == Mode::kOnline) {
      to_line += c;
    } else {
      OnCommandByte(c);
    }
  }
  if (!to_line.empty() && line_) {
    try {
      line_->WriteText(to_line);
    } catch (const comm::ConnectionClosedError&) {
      CarrierLost();
    }
  }
}

void HayesModem::OnCommandByte(char c) {
  if (echo_) Send(std::string(1, c));
  if (c == static_cast<char>(registers_[3])) {
    std::string line = std::move(command_line_);
    command_line_.clear();
    Execute(std::move(line));
  } else if (c == '\n') {
    // line feeds after CR are not part of a command
  } else if (c == kBackspace || c == kDelete) {
    if (!command_line_.empty()) command_line_.pop_back();
  } else if (command_line_.size() < kMaxCommandLine) {
    command_line_ += c;
  }
}

void HayesModem::Execute(std::string line) {
  // Anything before "AT" (line noise, an escape typed in command mode) is not part of it.
  std::string upper = core::ToUpper(line);
  size_t at = upper.find("AT");
  if (at == std::string::npos) return;
  Count(&ModemStats::commands);
  auto commands = ParseAtCommands(std::string_view(line).substr(at + 2));
  if (!commands) {
    Result(ResultCode::kError);
    return;
  }
  std::optional<ResultCode> final_code;
  for (const auto& command : *commands) {
    bool stop_line = false;
    if (auto code = Apply(command, &stop_line)) final_code = code;
    if (stop_line) break;
  }
  Result(final_code.value_or(ResultCode::kOk));
}

std::optional<ResultCode> HayesModem::Apply(const AtCommand& command, bool* stop_line) {
  switch (command.kind) {
    case Kind::kReset:
      if (line_) HangUp();
      Reset();
      return std::nullopt;
    case Kind::kEcho:
      echo_ = command.value != 0;
      return std::nullopt;
    case Kind::kQuiet:
      quiet_ = command.value == 1;
      return std::nullopt;
    case Kind::kVerbose:
      verbose_ = command.value != 0;
      return std::nullopt;
    case Kind::kSetRegister:
      registers_[command.register_number] = command.value;
      return std::nullopt;
    case Kind::kQueryRegister: {
      char text[8];
      std::snprintf(text, sizeof text, "%03d", registers_[command.register_number]);
      Send(verbose_ ? "\r\n" + std::string(text) + "\r\n" : std::string(text) + "\r");
      return std::nullopt;
    }
    case Kind::kDial:
      *stop_line = true;
      if (line_) return ResultCode::kError;
      return Dial(command.text);
    case Kind::kHangUp:
      if (line_) HangUp();
      if (ringing_ != nullptr) {
        ringing_ = nullptr;
        Count(&ModemStats::missed_calls);
      }
      return std::nullopt;
    case Kind::kAnswer:
      *stop_line = true;
      if (ringing_ == nullptr || line_) return ResultCode::kNoCarrier;
      Connect(*ringing_, /*outbound=*/false);
      return ResultCode::kConnect;
    case Kind::kOnline:
      *stop_line = true;
      if (!line_ || mode_ != Mode::kOnlineCommand) return ResultCode::kNoCarrier;
      mode_ = Mode::kOnline;
      return ResultCode::kConnect;
    case Kind::kOther:
      return std::nullopt;
  }
  return std::nullopt;
}

void HayesModem::CheckEscape(SteadyClock::time_point now) {
  if (!escape_at_ || now < *escape_at_) return;
  escape_at_.reset();
  if (mode_ == Mode::kOnline) {
    mode_ = Mode::kOnlineCommand;
    command_line_.clear();
    Count(&ModemStats::escapes);
    Result(ResultCode::kOk);
  } else if (core::Trim(command_line_) == "+++") {
    // Already in command mode: the escape is answered all the same, so a caller's reset
    // sequence works whatever state the modem was in.
    command_line_.clear();
    Count(&ModemStats::escapes);
    Result(ResultCode::kOk);
  }
}

void HayesModem::Send(const std::string& text) { pending_out_ += text; }

void HayesModem::Flush() {
  if (pending_out_.empty()) return;
  std::string out = std::move(pending_out_);
  pending_out_.clear();
  dte_->WriteText(out);
}

void HayesModem::Result(ResultCode code) {
  if (quiet_) return;
  Send(FormatResult(code, verbose_, code == ResultCode::kConnect ? options_.speed : std::nullopt));
}

}  // namespace clockcomm::sim
