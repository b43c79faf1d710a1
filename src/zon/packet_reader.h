// Reads whole packets from a connection: pulls text until the buffer holds a packet, with a
// time-out that measures silence and a Cancel that may come from any thread. Between reads it
// sleeps in the connection's wait, so an idle reader costs no CPU.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "comm/connection.h"
#include "core/clock.h"
#include "core/stop_signal.h"
#include "zon/packet_buffer.h"

namespace clockcomm::zon {

class PacketReader {
 public:
  // Silence after which ReadPacket gives up, unless told otherwise.
  static constexpr int32_t kDefaultTimeoutMs = 10000;

  // line_stop, when given, is the line's stop signal: raising it ends a ReadPacket at once, which
  // then returns an empty string as a cancelled read does.
  // clock measures the silence (the system clock when null).
  explicit PacketReader(comm::IConnection& connection, const core::StopSignal* line_stop = nullptr,
                        const core::Clock* clock = nullptr);

  // Milliseconds of silence allowed; below 1 means wait for ever.
  int32_t Timeout() const { return timeout_ms_; }
  void SetTimeout(int32_t milliseconds) { timeout_ms_ = milliseconds; }
  const std::string& TerminationString() const { return buffer_.TerminationString(); }
  void SetTerminationString(std::string value) { buffer_.SetTerminationString(std::move(value)); }

  // Ends a ReadPacket in progress at once (it returns ""). Safe from any thread. A Cancel before
  // ReadPacket starts is forgotten.
  void Cancel();
  // The next complete packet; "" when cancelled or stopped. Throws core::TimeoutException after
  // Timeout ms without any text (the partial fragment stays buffered), and whatever the connection
  // raises (ConnectionClosedError for a closed line).
  std::string ReadPacket();

  PacketBuffer& Buffer() { return buffer_; }
  const PacketBuffer& Buffer() const { return buffer_; }
  comm::IConnection& Connection() { return connection_; }

  // What this reader has seen go wrong or be cut short.
  uint64_t TimeoutCount() const { return timeout_count_; }
  uint64_t CancelledCount() const { return cancelled_count_; }

 private:
  comm::IConnection& connection_;
  const core::StopSignal* line_stop_;
  const core::Clock& clock_;
  core::StopSignal cancel_;
  PacketBuffer buffer_;
  int32_t timeout_ms_ = kDefaultTimeoutMs;
  uint64_t timeout_count_ = 0;
  uint64_t cancelled_count_ = 0;
};

}  // namespace clockcomm::zon
