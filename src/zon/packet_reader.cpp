#include "zon/packet_reader.h"

#include <chrono>

#include "core/errors.h"

namespace clockcomm::zon {

PacketReader::PacketReader(comm::IConnection& connection, const core::StopSignal* line_stop)
    : connection_(connection), line_stop_(line_stop) {}

void PacketReader::Cancel() { cancel_.Request(); }

std::string PacketReader::ReadPacket() {
  using Clock = std::chrono::steady_clock;
  cancel_.Reset();
  const comm::WakeSet wake{&cancel_, line_stop_};
  auto last_text = Clock::now();

  while (buffer_.Count() == 0 && !wake.AnyRequested()) {
    std::string text = connection_.Read();
    if (!text.empty()) {
      buffer_.Append(text);
      last_text = Clock::now();
      continue;
    }
    comm::SteadyTime deadline = comm::kNoDeadline;
    if (timeout_ms_ >= 1) {
      // "More than Timeout ms" in whole milliseconds: the first instant that counts is +1 ms.
      deadline = last_text + std::chrono::milliseconds(timeout_ms_ + 1LL);
      if (Clock::now() >= deadline) {
        ++timeout_count_;
        throw core::TimeoutException();
      }
    }
    connection_.WaitForInput(deadline, wake);
  }

  if (buffer_.Count() > 0) return buffer_.GetPacket();
  ++cancelled_count_;
  return {};
}

}  // namespace clockcomm::zon
