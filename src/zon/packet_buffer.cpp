#include "zon/packet_buffer.h"

#include "core/errors.h"

namespace clockcomm::zon {

namespace {
constexpr const char* kEmptyMessage = "The PacketBuffer is empty.";
}

PacketBuffer::PacketBuffer(size_t max_packet_length) : max_packet_length_(max_packet_length) {}

void PacketBuffer::Append(std::string_view text) {
  pending_.append(text);
  const size_t term_length = termination_.size();
  size_t start = 0;
  for (;;) {
    size_t found = pending_.find(termination_, start);
    last_index_ = found == std::string::npos ? -1 : static_cast<int32_t>(found - start);
    if (found == std::string::npos) break;
    size_t length = found - start;
    if (skipping_overlong_ || length > max_packet_length_) {
      // The rest (or the whole) of a line too long to be a packet: drop it with its terminator.
      if (!skipping_overlong_) ++overlong_count_;
      skipping_overlong_ = false;
      discarded_bytes_ += length + term_length;
    } else {
      packets_.emplace_back(pending_, start, length);
    }
    start = found + term_length;
  }
  pending_.erase(0, start);

  if (skipping_overlong_ || pending_.size() > max_packet_length_) {
    if (!skipping_overlong_) ++overlong_count_;
    skipping_overlong_ = true;
    // Keep only what could be the start of the terminator that ends the overlong line.
    size_t keep = std::min(pending_.size(), term_length - 1);
    discarded_bytes_ += pending_.size() - keep;
    pending_.erase(0, pending_.size() - keep);
  }
}

std::string PacketBuffer::GetPacket() {
  if (packets_.empty()) throw core::InvalidOperationException(kEmptyMessage);
  std::string packet = std::move(packets_.front());
  packets_.pop_front();
  return packet;
}

const std::string& PacketBuffer::PeekPacket() const {
  if (packets_.empty()) throw core::InvalidOperationException(kEmptyMessage);
  return packets_.front();
}

void PacketBuffer::Clear() {
  packets_.clear();
  pending_.clear();
  skipping_overlong_ = false;
  last_index_ = -1;
}

void PacketBuffer::SetTerminationString(std::string value) {
  if (value.empty()) {
    throw core::ArgumentException("TerminationString cannot be empty.", "TerminationString");
  }
  termination_ = std::move(value);
}

}  // namespace clockcomm::zon
