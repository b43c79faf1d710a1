// Cuts the TCP byte stream of a T4 terminal into packets by their length prefix. A read may end
// anywhere, inside the prefix too, and may hold several frames.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace clockcomm::t4::net {

// The stream is out of step: a prefix is due and the bytes are not one. The connection cannot be
// trusted any further and must be opened again.
class T4StreamError : public std::runtime_error {
 public:
  explicit T4StreamError(const std::string& message) : std::runtime_error(message) {}
};

class T4FrameCutter {
 public:
  void Append(std::string_view bytes);
  // The next whole packet (prefix removed), or nullopt until one has arrived. Throws
  // T4StreamError for a bad prefix or a length outside 8..kMaxPacketSize.
  std::optional<std::string> Next();
  size_t Buffered() const { return buffer_.size() - start_; }
  void Clear();

 private:
  std::string buffer_;
  size_t start_ = 0;  // bytes before it are consumed
};

}  // namespace clockcomm::t4::net
