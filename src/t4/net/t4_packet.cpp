#include "t4/net/t4_packet.h"

#include <array>
#include <utility>

#include "t4/net/t4_bytes.h"

namespace clockcomm::t4::net {

uint16_t Checksum(std::string_view bytes) {
  uint32_t sum = 0;
  size_t i = 0;
  for (; i + 1 < bytes.size(); i += 2) sum += GetU16(bytes, i);
  if (i < bytes.size()) sum += GetU8(bytes, i);
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);  // end-around carry, as often as needed
  return static_cast<uint16_t>(~sum);
}

std::string Encode(const T4Packet& packet) {
  std::string bytes;
  bytes.reserve(kHeaderSize + packet.data.size());
  PutU16(bytes, packet.code);
  PutU16(bytes, 0);
  PutU16(bytes, packet.session);
  PutU16(bytes, packet.reply_id);
  bytes += packet.data;
  const uint16_t sum = Checksum(bytes);
  bytes[2] = static_cast<char>(sum & 0xFF);
  bytes[3] = static_cast<char>(sum >> 8);
  return bytes;
}

std::string EncodeTcp(const T4Packet& packet) {
  std::string bytes = "PP\x82\x7d";
  PutU32(bytes, static_cast<uint32_t>(kHeaderSize + packet.data.size()));
  return bytes + Encode(packet);
}

std::optional<T4Packet> Decode(std::string_view bytes) {
  if (bytes.size() < kHeaderSize || Checksum(bytes) != 0) return std::nullopt;
  return T4Packet{GetU16(bytes, 0), GetU16(bytes, 4), GetU16(bytes, 6),
                  std::string(bytes.substr(kHeaderSize))};
}

namespace {

std::string NameOf(uint16_t code, std::initializer_list<std::pair<uint16_t, const char*>> names) {
  for (const auto& [value, name] : names) {
    if (value == code) return name;
  }
  return std::to_string(code);
}

}  // namespace

std::string CommandName(uint16_t code) {
  return NameOf(code, {{cmd::kOptionsRead, "OPTIONS_RRQ"},
                       {cmd::kOptionsWrite, "OPTIONS_WRQ"},
                       {cmd::kAttLogRead, "ATTLOG_RRQ"},
                       {cmd::kClearData, "CLEAR_DATA"},
                       {cmd::kClearAttLog, "CLEAR_ATTLOG"},
                       {cmd::kGetFreeSizes, "GET_FREE_SIZES"},
                       {cmd::kStateRead, "STATE_RRQ"},
                       {cmd::kGetPinWidth, "GET_PINWIDTH"},
                       {cmd::kGetTime, "GET_TIME"},
                       {cmd::kSetTime, "SET_TIME"},
                       {cmd::kRegEvent, "REG_EVENT"},
                       {cmd::kConnect, "CONNECT"},
                       {cmd::kExit, "EXIT"},
                       {cmd::kEnableDevice, "ENABLEDEVICE"},
                       {cmd::kDisableDevice, "DISABLEDEVICE"},
                       {cmd::kRefreshData, "REFRESHDATA"},
                       {cmd::kRefreshOption, "REFRESHOPTION"},
                       {cmd::kGetVersion, "GET_VERSION"},
                       {cmd::kAuth, "AUTH"},
                       {cmd::kFreeData, "FREE_DATA"},
                       {cmd::kPrepareBuffer, "PREPARE_BUFFER"},
                       {cmd::kReadBuffer, "READ_BUFFER"}});
}

std::string ReplyName(uint16_t code) {
  return NameOf(code, {{reply::kEvent, "REG_EVENT"},
                       {reply::kPrepareData, "PREPARE_DATA"},
                       {reply::kData, "DATA"},
                       {reply::kOk, "ACK_OK"},
                       {reply::kError, "ACK_ERROR"},
                       {2002, "ACK_DATA"},
                       {2003, "ACK_RETRY"},
                       {2004, "ACK_REPEAT"},
                       {reply::kUnauth, "ACK_UNAUTH"},
                       {reply::kUnknown, "ACK_UNKNOWN"}});
}

}  // namespace clockcomm::t4::net
