#include "zon/packet_reader.h"

#include <chrono>

#include "core/errors.h"

namespace clockcomm::zon {

namespace {
const core::Clock& SystemClockInstance() {
  static const core::SystemClock clock;
  return clock;
}
}  // namespace

PacketReader::PacketReader(comm::IConnection& connection, const core::StopSignal* line_stop,
                           const core::Clock* clock)
    : connection_(connection),
      line_stop_(line_stop),
      clock_(clock != nullptr ? *clock : SystemClockInstance()) {}

void PacketReader::Cancel() { cancel_.Request(); }

std::string PacketReader::ReadPacket() {
  cancel_.Reset();
  const comm::WakeSet wake{&cancel_, line_stop_};
  auto last_text = clock_.Steady();

  // A read takes all the line holds, so with nothing cut yet the next step is to wait (which
  // returns at once when bytes are there).
  bool drained = true;
  while (buffer_.Count() == 0 && !wake.AnyRequested()) {
    if (!drained) {
      std::string text = connection_.Read();
      if (!text.empty()) {
        buffer_.Append(text);
        last_text = clock_.Steady();
        drained = true;
        continue;
      }
    }
    drained = false;
    comm::SteadyTime deadline = comm::kNoDeadline;
    if (timeout_ms_ >= 1) {
      // "More than Timeout ms" in whole milliseconds: the first instant that counts is +1 ms.
      deadline = last_text + std::chrono::milliseconds(timeout_ms_ + 1LL);
    }
    // The connection tells when the deadline has passed: it measures the time it waits in.
    if (connection_.WaitForInput(deadline, wake) == comm::WaitResult::kTimedOut) {
      ++timeout_count_;
      throw core::TimeoutException();
    }
  }

  if (buffer_.Count() > 0) return buffer_.GetPacket();
  ++cancelled_count_;
  return {};
}

}  // namespace clockcomm::zon
