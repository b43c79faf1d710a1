// The terminal's receiving side: bytes from the program, buffered and cut into messages, with
// waits that block on the line until a deadline or the stop signal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "comm/connection.h"
#include "core/stop_signal.h"
#include "sim/host_message.h"

namespace clockcomm::sim {

// Raised when the stop signal ends a wait.
class StoppedError : public core::Error {
 public:
  StoppedError() : Error("The simulator was told to stop.") {}
};

class HostInbox {
 public:
  HostInbox(comm::IConnection& line, const core::StopSignal* stop) : line_(line), stop_(stop) {}

  // The next message, or nothing when the deadline passes first. Throws StoppedError on stop and
  // comm::ConnectionClosedError when the line is gone.
  std::optional<HostMessage> Next(HostContext context, comm::SteadyTime deadline);
  // The next line ended by CRLF, without it; nothing when the deadline passes first.
  std::optional<std::string> ReadLine(comm::SteadyTime deadline);
  // Reads lines until one begins with the prefix (e.g. "CONNECT"). False at the deadline.
  bool WaitForLine(const std::string& prefix, comm::SteadyTime deadline);

  uint64_t SkippedBytes() const { return skipped_bytes_; }

 private:
  // Blocks until more text came (true) or the deadline passed (false).
  bool Fill(comm::SteadyTime deadline);

  comm::IConnection& line_;
  const core::StopSignal* stop_;
  std::string buffer_;
  uint64_t skipped_bytes_ = 0;
};

}  // namespace clockcomm::sim
