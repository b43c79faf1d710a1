// Writes to a line either at once or at the pace of a real serial line: each chunk is handed over
// only when the wire would have finished carrying it, so the far end sees bytes no sooner than a
// terminal at that baud rate could deliver them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "comm/connection.h"
#include "comm/line_settings.h"
#include "core/stop_signal.h"

namespace clockcomm::sim {

class PacedWriter {
 public:
  // Bytes handed over together; small enough that the far end sees a steady stream.
  static constexpr size_t kChunkBytes = 16;

  // No pacing when settings is empty.
  PacedWriter(comm::IConnection& line, std::optional<comm::LineSettings> settings,
              core::StopSignal* stop);

  // Throws StoppedError when the stop signal cuts a paced wait short.
  void Write(std::string_view text);

  // Total bytes written, and the time the wire would need for them at the pace (zero unpaced).
  uint64_t BytesWritten() const { return bytes_written_; }
  std::chrono::nanoseconds WireTime() const;

 private:
  void SleepUntil(std::chrono::steady_clock::time_point deadline);

  comm::IConnection& line_;
  std::optional<comm::LineSettings> settings_;
  core::StopSignal* stop_;
  std::chrono::nanoseconds byte_time_{0};
  // When the wire finishes the last chunk handed to it.
  std::chrono::steady_clock::time_point wire_free_{};
  uint64_t bytes_written_ = 0;
};

}  // namespace clockcomm::sim
