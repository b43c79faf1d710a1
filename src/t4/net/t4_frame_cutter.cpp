#include "t4/net/t4_frame_cutter.h"

#include "t4/net/t4_bytes.h"
#include "t4/net/t4_packet.h"

namespace clockcomm::t4::net {

void T4FrameCutter::Append(std::string_view bytes) {
  if (start_ > 0 && start_ == buffer_.size()) Clear();
  buffer_.append(bytes);
}

std::optional<std::string> T4FrameCutter::Next() {
  const std::string_view rest = std::string_view(buffer_).substr(start_);
  // A partial prefix is checked as far as it goes, so a stream out of step fails early.
  static constexpr std::string_view kMagic("PP\x82\x7d", 4);
  if (rest.substr(0, 4) != kMagic.substr(0, std::min<size_t>(4, rest.size()))) {
    throw T4StreamError("the stream is out of step: no frame prefix where one is due");
  }
  if (rest.size() < kTcpPrefixSize) return std::nullopt;
  const uint32_t length = GetU32(rest, 4);
  if (length < kHeaderSize || length > kMaxPacketSize) {
    throw T4StreamError("a frame announces " + std::to_string(length) + " bytes");
  }
  if (rest.size() < kTcpPrefixSize + length) return std::nullopt;
  std::string packet(rest.substr(kTcpPrefixSize, length));
  start_ += kTcpPrefixSize + length;
  // Keep the buffer from growing without bound across a long download.
  if (start_ > 1 << 20) {
    buffer_.erase(0, start_);
    start_ = 0;
  }
  return packet;
}

void T4FrameCutter::Clear() {
  buffer_.clear();
  start_ = 0;
}

}  // namespace clockcomm::t4::net
