#include "sim/host_inbox.h"

namespace clockcomm::sim {

bool HostInbox::Fill(comm::SteadyTime deadline) {
  const comm::WakeSet wake{stop_};
  for (;;) {
    if (wake.AnyRequested()) throw StoppedError();
    std::string text = line_.Read();
    if (!text.empty()) {
      buffer_ += text;
      return true;
    }
    auto result = line_.WaitForInput(deadline, wake);
    if (result == comm::WaitResult::kTimedOut) return false;
    if (result == comm::WaitResult::kWoken) throw StoppedError();
  }
}

std::optional<HostMessage> HostInbox::Next(HostContext context, comm::SteadyTime deadline) {
  for (;;) {
    while (auto message = TakeHostMessage(buffer_, context)) {
      if (message->kind != HostMessage::Kind::kOther) return message;
      ++skipped_bytes_;
    }
    if (!Fill(deadline)) return std::nullopt;
  }
}

std::optional<std::string> HostInbox::ReadLine(comm::SteadyTime deadline) {
  for (;;) {
    size_t end = buffer_.find("\r\n");
    if (end != std::string::npos) {
      std::string line = buffer_.substr(0, end);
      buffer_.erase(0, end + 2);
      return line;
    }
    if (!Fill(deadline)) return std::nullopt;
  }
}

bool HostInbox::WaitForLine(const std::string& prefix, comm::SteadyTime deadline) {
  while (auto line = ReadLine(deadline)) {
    if (line->starts_with(prefix)) return true;
    skipped_bytes_ += line->size() + 2;
  }
  return false;
}

}  // namespace clockcomm::sim
