// The packets of the T4 terminals' own protocol: an 8-byte header (code, checksum, session field,
// reply id) and data. On UDP a datagram is one packet; on TCP each packet is preceded by the
// 8-byte prefix "PP", 0x82, 0x7d and the packet's length.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace clockcomm::t4::net {

// Commands, client to terminal.
namespace cmd {
inline constexpr uint16_t kOptionsRead = 11;
inline constexpr uint16_t kOptionsWrite = 12;
inline constexpr uint16_t kAttLogRead = 13;  // the legacy whole-log read
inline constexpr uint16_t kClearData = 14;
inline constexpr uint16_t kClearAttLog = 15;
inline constexpr uint16_t kGetFreeSizes = 50;
inline constexpr uint16_t kStateRead = 64;
inline constexpr uint16_t kGetPinWidth = 69;
inline constexpr uint16_t kGetTime = 201;
inline constexpr uint16_t kSetTime = 202;
inline constexpr uint16_t kRegEvent = 500;
inline constexpr uint16_t kConnect = 1000;
inline constexpr uint16_t kExit = 1001;
inline constexpr uint16_t kEnableDevice = 1002;
inline constexpr uint16_t kDisableDevice = 1003;
inline constexpr uint16_t kRefreshData = 1013;
inline constexpr uint16_t kRefreshOption = 1014;
inline constexpr uint16_t kGetVersion = 1100;
inline constexpr uint16_t kAuth = 1102;
inline constexpr uint16_t kFreeData = 1502;
inline constexpr uint16_t kPrepareBuffer = 1503;
inline constexpr uint16_t kReadBuffer = 1504;
}  // namespace cmd

// Replies and pushed packets, terminal to client.
namespace reply {
inline constexpr uint16_t kEvent = 500;  // session field: the event code
inline constexpr uint16_t kPrepareData = 1500;
inline constexpr uint16_t kData = 1501;  // session field: the packet index within a chunk
inline constexpr uint16_t kOk = 2000;
inline constexpr uint16_t kError = 2001;
inline constexpr uint16_t kUnauth = 2005;
inline constexpr uint16_t kUnknown = 65535;
}  // namespace reply

inline constexpr uint16_t kDefaultPort = 4370;
inline constexpr size_t kHeaderSize = 8;
inline constexpr size_t kTcpPrefixSize = 8;
// The terminal reads at most this much data of a request; larger requests are never sent.
inline constexpr size_t kMaxRequestData = 1024;
// The largest packet a terminal sends: a 65,536-byte DATA packet and its header.
inline constexpr size_t kMaxPacketSize = kHeaderSize + 65536;

struct T4Packet {
  uint16_t code = 0;
  uint16_t session = 0;  // the session id, or what the terminal puts in its place
  uint16_t reply_id = 0;
  std::string data;

  bool operator==(const T4Packet&) const = default;
};

// The complement of the 16-bit one's-complement sum of the bytes (little-endian words, an odd
// last byte as a word of its own). Computed over a packet whose checksum field is zero.
uint16_t Checksum(std::string_view bytes);

// The packet as sent over UDP: header with its checksum, then the data.
std::string Encode(const T4Packet& packet);
// The packet as sent over TCP: the prefix, then Encode(packet).
std::string EncodeTcp(const T4Packet& packet);
// A packet from its bytes (UDP form); nullopt when shorter than a header or the checksum is wrong.
std::optional<T4Packet> Decode(std::string_view bytes);

// "CONNECT", "READ_BUFFER", ... for a command code; the number for an unknown one.
std::string CommandName(uint16_t code);
// "ACK_OK", "ACK_ERROR", ... for a reply code; the number for an unknown one.
std::string ReplyName(uint16_t code);

}  // namespace clockcomm::t4::net
