#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "comm/fd_io.h"
#include "comm/pty_pair.h"
#include "core/errors.h"
#include "core/text.h"
#include "sim/hayes_modem.h"

// The telephone side of the modem: dialling, connecting to a party, ringing, hanging up.
namespace clockcomm::sim {

using SteadyClock = std::chrono::steady_clock;

ResultCode HayesModem::Dial(const std::string& number) {
  if (number.empty()) return ResultCode::kError;
  Count(&ModemStats::dials);
  const LineParty* terminal = Lookup(number);
  ResultCode failure = ResultCode::kNoCarrier;
  if (options_.no_dialtone) {
    failure = ResultCode::kNoDialtone;
  } else if (++dials_seen_ <= options_.fail_dials) {
    failure = options_.fail_code;
  } else if (terminal != nullptr) {
    Connect(*terminal, /*outbound=*/true);
    return ResultCode::kConnect;
  }
  Count(&ModemStats::failed_dials);
  return failure;
}

void HayesModem::Connect(const LineParty& party, bool outbound) {
  ringing_ = nullptr;
  rings_ = 0;
  // The line is a pty pair of its own: a hang-up on either end shows on the other at once.
  auto pair = comm::PtyPair::Open(/*hold_slave_open=*/true);
  int slave = ::open(pair.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave < 0) throw core::SystemError::FromErrno(errno, "open " + pair.SlavePath());
  auto end = std::make_unique<comm::FdConnection>(slave, "line of " + pair.SlavePath());
  pair.ReleaseSlave();
  line_ = pair.TakeMaster();
  line_->WriteText(FormatResult(ResultCode::kConnect, true, options_.speed));

  mode_ = Mode::kOnline;
  last_dte_byte_ = SteadyClock::now();  // the escape's guard time counts from the connect
  pluses_ = 0;
  escape_at_.reset();
  {
    std::lock_guard lock(mutex_);
    ++stats_.connects;
    connected_ = true;
  }
  terminal_thread_ = std::thread([this, &party, end = std::move(end), outbound]() {
    const CallOutcome outcome = party(*end, outbound);
    {
      std::lock_guard lock(mutex_);
      last_outcome_ = outcome;
    }
    // A terminal keeps the line after its call until the program hangs up.
    const comm::WakeSet wake{&stop_};
    try {
      while (end->IsOpen() &&
             end->WaitForInput(comm::kNoDeadline, wake) != comm::WaitResult::kWoken) {
        end->Read();
      }
    } catch (const comm::ConnectionClosedError&) {
    }
  });
}

void HayesModem::EndLine() {
  line_->Close();
  line_.reset();
  if (terminal_thread_.joinable()) terminal_thread_.join();
  mode_ = Mode::kCommand;
  escape_at_.reset();
  pluses_ = 0;
  std::lock_guard lock(mutex_);
  connected_ = false;
}

void HayesModem::HangUp() {
  EndLine();
  Count(&ModemStats::hang_ups);
}

void HayesModem::CarrierLost() {
  EndLine();
  Count(&ModemStats::carrier_losses);
  command_line_.clear();
  Result(ResultCode::kNoCarrier);
}

void HayesModem::OnLineInput() {
  std::string text;
  try {
    text = line_->Read();
  } catch (const comm::ConnectionClosedError&) {
    CarrierLost();
    return;
  }
  // In online command mode the far end's bytes are dropped, as the modem has no DTE to give
  // them to.
  if (mode_ == Mode::kOnline) Send(text);
}

void HayesModem::TakeIncomingCalls(SteadyClock::time_point now) {
  std::deque<std::string> numbers;
  {
    std::lock_guard lock(mutex_);
    numbers.swap(incoming_);
  }
  for (const auto& number : numbers) {
    const LineParty* terminal = Lookup(number);
    if (terminal == nullptr || line_ || ringing_ != nullptr) {
      Count(&ModemStats::missed_calls);
      continue;
    }
    ringing_ = terminal;
    rings_ = 0;
    next_ring_ = now;
  }
}

void HayesModem::RingTick(SteadyClock::time_point now) {
  if (ringing_ == nullptr || now < next_ring_) return;
  ++rings_;
  Count(&ModemStats::rings);
  Result(ResultCode::kRing);
  if (registers_[0] > 0 && rings_ >= registers_[0]) {
    Connect(*ringing_, /*outbound=*/false);
    Result(ResultCode::kConnect);
  } else if (rings_ >= options_.max_rings) {
    ringing_ = nullptr;
    Count(&ModemStats::missed_calls);
  } else {
    next_ring_ = now + options_.ring_interval;
  }
}

}  // namespace clockcomm::sim
