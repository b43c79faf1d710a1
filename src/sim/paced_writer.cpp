#include "sim/paced_writer.h"

#include <algorithm>
#include <thread>

#include "sim/host_inbox.h"

namespace clockcomm::sim {

PacedWriter::PacedWriter(comm::IConnection& line, std::optional<comm::LineSettings> settings,
                         core::StopSignal* stop)
    : line_(line), settings_(settings), stop_(stop) {
  if (settings_) {
    // Start bit, data bits, parity bit and stop bits for each byte.
    int bits = 1 + settings_->data_bits + (settings_->parity == 'N' ? 0 : 1) + settings_->stop_bits;
    byte_time_ = std::chrono::nanoseconds(1'000'000'000LL * bits / settings_->baud);
  }
}

std::chrono::nanoseconds PacedWriter::WireTime() const {
  return byte_time_ * static_cast<int64_t>(bytes_written_);
}

void PacedWriter::SleepUntil(std::chrono::steady_clock::time_point deadline) {
  auto now = std::chrono::steady_clock::now();
  if (deadline <= now) return;
  if (stop_ != nullptr) {
    // Measured against the absolute deadline, so the pace never drifts with wake-up latency.
    while (now < deadline) {
      if (stop_->WaitFor(deadline - now)) throw StoppedError();
      now = std::chrono::steady_clock::now();
    }
  } else {
    std::this_thread::sleep_until(deadline);
  }
}

void PacedWriter::Write(std::string_view text) {
  if (!settings_) {
    line_.WriteText(text);
    bytes_written_ += text.size();
    return;
  }
  // The bytes of one write leave back to back, as a UART sends its buffer: a late wake-up for
  // one chunk does not push the next one later on the wire.
  wire_free_ = std::max(std::chrono::steady_clock::now(), wire_free_);
  while (!text.empty()) {
    size_t n = std::min(kChunkBytes, text.size());
    wire_free_ += byte_time_ * static_cast<int64_t>(n);
    SleepUntil(wire_free_);
    line_.WriteText(text.substr(0, n));
    bytes_written_ += n;
    text.remove_prefix(n);
  }
}

}  // namespace clockcomm::sim
