#include "zon/rs485_crc.h"

#include <vector>

#include "zon/protocol_char.h"

namespace clockcomm::zon {

uint16_t GenZonCRC(std::span<const uint8_t> bytes) {
  uint32_t crc = 0;
  for (size_t i = 0; i + 1 < bytes.size(); ++i) {
    crc ^= static_cast<uint32_t>(bytes[i]) << 8;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x8000) ? ((crc << 1) ^ kZonCrcConstant) & 0xFFFF : (crc << 1) & 0xFFFF;
    }
  }
  return static_cast<uint16_t>(crc);
}

namespace {

uint16_t CheckOf(std::string_view text) {
  std::vector<uint8_t> bytes(text.begin(), text.end());
  return GenZonCRC(bytes);
}

}  // namespace

bool CheckZonCRC(std::string_view packet) {
  if (packet.size() < 2) return false;
  std::string copy(packet);
  const uint16_t computed = CheckOf(std::string_view(copy).substr(0, copy.size() - 2));
  if ((computed & 0xFF) == static_cast<uint8_t>(ProtocolChar::kEnq)) copy[0] = '!';
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(copy[i]); };
  const uint16_t received =
      static_cast<uint16_t>(byte(copy.size() - 2) * 256 + byte(copy.size() - 1));
  return computed == received;
}

std::string AppendZonCRC(std::string_view body, char filler) {
  std::string packet(body);
  packet.push_back(filler);
  // The check covers the body: GenZonCRC leaves out the filler as the array's last byte.
  const uint16_t crc = CheckOf(packet);
  packet.push_back(static_cast<char>(crc >> 8));
  packet.push_back(static_cast<char>(crc & 0xFF));
  return packet;
}

}  // namespace clockcomm::zon
