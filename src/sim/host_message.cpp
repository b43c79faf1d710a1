#include "sim/host_message.h"

#include "core/text.h"
#include "zon/block_check.h"
#include "zon/protocol_char.h"

namespace clockcomm::sim {

using zon::ProtocolChar;
using Kind = HostMessage::Kind;

namespace {

std::optional<Kind> ControlKind(char c) {
  switch (c) {
    case ProtocolChar::kEnq:
      return Kind::kEnq;
    case ProtocolChar::kAck:
      return Kind::kAck;
    case ProtocolChar::kNak:
      return Kind::kNak;
    case ProtocolChar::kEot:
      return Kind::kEot;
    default:
      return std::nullopt;
  }
}

HostMessage Single(Kind kind) {
  HostMessage m;
  m.kind = kind;
  return m;
}

// STX ctl ETX check: the framed ACK4/NAK4/EOT4. Returns nothing when the front is not one.
// *incomplete is set when it could still become one.
std::optional<HostMessage> FramedControl(std::string& buffer, bool* incomplete) {
  *incomplete = false;
  if (buffer.size() < 2) {
    *incomplete = true;
    return std::nullopt;
  }
  auto kind = ControlKind(buffer[1]);
  if (!kind || *kind == Kind::kEnq) return std::nullopt;
  if (buffer.size() < 4) {
    *incomplete = buffer.size() < 3 || buffer[2] == ProtocolChar::kEtx;
    return std::nullopt;
  }
  if (buffer[2] != ProtocolChar::kEtx) return std::nullopt;
  HostMessage m = Single(*kind);
  m.framed = true;
  m.check_ok = buffer[3] == zon::BlockCheckOf(std::string_view(buffer).substr(1, 2));
  buffer.erase(0, 4);
  return m;
}

// Finds the ETX that closes a frame opened at position 0. npos while it has not come.
size_t FrameEnd(const std::string& buffer) { return buffer.find(ProtocolChar::kEtx, 1); }

HostMessage Other(std::string& buffer) {
  buffer.erase(0, 1);
  return Single(Kind::kOther);
}

}  // namespace

char DownloadBlockCheck(const std::string& frame_without_check) {
  return zon::BlockCheckOf(std::string_view(frame_without_check).substr(1));
}

std::optional<HostMessage> TakeHostMessage(std::string& buffer, HostContext context) {
  if (buffer.empty()) return std::nullopt;
  const char first = buffer[0];
  if (auto kind = ControlKind(first)) {
    buffer.erase(0, 1);
    return Single(*kind);
  }

  if (first == ProtocolChar::kStx) {
    bool incomplete = false;
    if (auto control = FramedControl(buffer, &incomplete)) return control;
    if (incomplete) return std::nullopt;
    size_t end = FrameEnd(buffer);
    const bool with_check = context == HostContext::kDownload;
    if (end == std::string::npos || (with_check && end + 1 >= buffer.size())) {
      if (buffer.size() > kMaxHostFrameLength) return Other(buffer);
      return std::nullopt;
    }
    HostMessage m;
    std::string content = buffer.substr(1, end - 1);
    if (with_check) {
      m.kind = Kind::kTableRow;
      m.check_ok = buffer[end + 1] == DownloadBlockCheck(buffer.substr(0, end + 1));
      m.fields = core::Split(content, ProtocolChar::kFs);
      buffer.erase(0, end + 2);
    } else {
      m.kind = Kind::kPollHeader;
      m.text = std::move(content);
      buffer.erase(0, end + 1);
    }
    return m;
  }

  if (first == ProtocolChar::kSoh && context == HostContext::kDownload) {
    size_t end = FrameEnd(buffer);
    if (end == std::string::npos) {
      if (buffer.size() > kMaxHostFrameLength) return Other(buffer);
      return std::nullopt;
    }
    std::string content = buffer.substr(1, end - 1);
    HostMessage m;
    if (content == "DOWNLOAD") {
      m.kind = Kind::kDownloadStart;
      buffer.erase(0, end + 1);
      return m;
    }
    if (end + 1 >= buffer.size()) return std::nullopt;  // its check has not come yet
    m.kind = Kind::kTableHeader;
    m.check_ok = buffer[end + 1] == DownloadBlockCheck(buffer.substr(0, end + 1));
    auto parts = core::Split(content, ProtocolChar::kFs);
    m.text = parts[0];
    auto count = parts.size() == 2 ? core::ParseInt(parts[1]) : std::nullopt;
    if (!count || *count < 0) m.check_ok = false;  // a header we cannot use is refused
    m.row_count = count.value_or(0);
    buffer.erase(0, end + 2);
    return m;
  }

  return Other(buffer);
}

}  // namespace clockcomm::sim
