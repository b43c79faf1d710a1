#include "comm/hayes_modem.h"

namespace clockcomm::comm {
namespace {

std::string_view TrimLine(std::string_view s) {
  while (!s.empty() && (s.front() == '\r' || s.front() == '\n' || s.front() == ' ')) {
    s.remove_prefix(1);
  }
  while (!s.empty() && (s.back() == '\r' || s.back() == '\n' || s.back() == ' ')) {
    s.remove_suffix(1);
  }
  return s;
}

}  // namespace

bool HayesModem::IsResultCode(std::string_view line) {
  for (std::string_view code : {"OK", "ERROR", "CONNECT", "NO CARRIER", "BUSY", "NO DIALTONE",
                                "NO DIAL TONE", "NO ANSWER", "RING"}) {
    if (line.substr(0, code.size()) == code) return true;
  }
  return false;
}

std::string HayesModem::Command(std::string_view command) {
  return Command(command, response_wait_);
}

std::string HayesModem::Command(std::string_view command, std::chrono::milliseconds wait) {
  pending_.clear();
  connection_.WriteText(std::string(command) + "\r");
  connection_.WaitUntilSent();
  return ReadResult(command, wait);
}

std::string HayesModem::Escape() {
  // The guard times are plain waits that a stop signal cuts short. What arrives before "+++" is
  // dropped; what arrives after it is kept, since the modem may answer OK as the guard time ends.
  auto quiet = [this](bool keep) {
    const auto until = clock_.Steady() + kGuardTime;
    for (;;) {
      switch (connection_.WaitForInput(until, wake_)) {
        case WaitResult::kWoken:
          return false;
        case WaitResult::kTimedOut:
          return true;
        case WaitResult::kReadable: {
          std::string text = connection_.Read();
          if (keep) pending_ += text;
          break;
        }
      }
    }
  };
  if (!quiet(false)) return "";
  pending_.clear();
  connection_.WriteText("+++");
  connection_.WaitUntilSent();
  if (!quiet(true)) return "";
  return ReadResult("+++", response_wait_);
}

std::string HayesModem::TakeLeftover() {
  std::string out;
  out.swap(pending_);
  return out;
}

std::string HayesModem::ReadResult(std::string_view echo, std::chrono::milliseconds wait) {
  const auto deadline = clock_.Steady() + wait;
  for (;;) {
    size_t end;
    while ((end = pending_.find_first_of("\r\n")) != std::string::npos) {
      std::string_view line = TrimLine(std::string_view(pending_).substr(0, end));
      std::string result(line);
      pending_.erase(0, end + 1);
      if (result.empty() || result == echo) continue;
      if (IsResultCode(result)) {
        if (!pending_.empty() && pending_.front() == '\n') pending_.erase(0, 1);
        return result;
      }
    }
    if (pending_.size() > 4096) pending_.clear();  // noise, not a modem answer
    if (connection_.WaitForInput(deadline, wake_) != WaitResult::kReadable) return "";
    pending_ += connection_.Read();
  }
}

}  // namespace clockcomm::comm
