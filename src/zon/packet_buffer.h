// Cuts a character stream into packets at a termination string (default carriage return and line
// feed). A line longer than MaxPacketLength is refused whole: its bytes are dropped up to and
// including its terminator and counted, so a terminal that never ends a line cannot grow the
// buffer without bound.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace clockcomm::zon {

class PacketBuffer {
 public:
  // Longest packet accepted, terminator not counted. Zon packets are well under 100 bytes; this
  // leaves room for any terminal's longest line while bounding what one caller can hold.
  static constexpr size_t kDefaultMaxPacketLength = 4096;

  explicit PacketBuffer(size_t max_packet_length = kDefaultMaxPacketLength);

  int Count() const { return static_cast<int>(packets_.size()); }
  // Adds received text; zero or more packets become complete.
  void Append(std::string_view text);
  // The oldest complete packet, without its terminator. Throws core::InvalidOperationException
  // "The PacketBuffer is empty." when none is complete.
  std::string GetPacket();
  const std::string& PeekPacket() const;
  // Empties the queue and the pending fragment; the terminator and the counts stay.
  void Clear();

  const std::string& TerminationString() const { return termination_; }
  // Takes effect at the next Append. Throws core::ArgumentException for an empty value.
  void SetTerminationString(std::string value);

  size_t MaxPacketLength() const { return max_packet_length_; }
  // Text after the last terminator (while an overlong line is being skipped, only the few bytes
  // that may start its terminator).
  const std::string& PendingFragment() const { return pending_; }
  // Position of the terminator found by the last scan, -1 when none.
  int32_t LastTerminatorIndex() const { return last_index_; }

  // Bad input seen: overlong lines refused, and the bytes they held (terminators included).
  uint64_t OverlongCount() const { return overlong_count_; }
  uint64_t DiscardedBytes() const { return discarded_bytes_; }

 private:
  std::deque<std::string> packets_;
  std::string pending_;
  std::string termination_ = "\r\n";
  int32_t last_index_ = -1;
  size_t max_packet_length_;
  bool skipping_overlong_ = false;
  uint64_t overlong_count_ = 0;
  uint64_t discarded_bytes_ = 0;
};

}  // namespace clockcomm::zon
