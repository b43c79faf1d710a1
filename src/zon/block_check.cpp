#include "zon/block_check.h"

#include "zon/protocol_char.h"

namespace clockcomm::zon {
namespace {
using zon::ProtocolChar;

bool HasEndPacket(std::string_view packet, char control) {
  const std::string marker = std::string("00") + ProtocolChar::kFs + control + "\r\n";
  return packet.find(marker) != std::string_view::npos;
}
}  // namespace

bool IsEndOfTransmission(std::string_view packet) {
  return HasEndPacket(packet, ProtocolChar::kEot);
}

bool IsEndOfUpload(std::string_view packet) { return HasEndPacket(packet, ProtocolChar::kEnq); }

char BlockCheckOf(std::string_view text) {
  unsigned char x = 0;
  for (unsigned char c : text) x ^= c;
  return static_cast<char>(x);
}

bool PacketCheckOk(std::string_view packet) {
  if (packet.size() < 3 || packet.substr(packet.size() - 2) != "\r\n") return false;
  return BlockCheckOf(packet.substr(0, packet.size() - 3)) == packet[packet.size() - 3];
}

std::string_view PacketBody(std::string_view packet) {
  return packet.size() < 3 ? std::string_view{} : packet.substr(0, packet.size() - 3);
}

}  // namespace clockcomm::zon
