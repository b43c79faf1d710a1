#include "zon/verifone_crc16.h"

#include <fmt/format.h>

#include "core/errors.h"
#include "zon/protocol_char.h"

namespace clockcomm::zon {

VerifoneCrc16::VerifoneCrc16() {
  constexpr uint16_t kReflectedPolynomial = 0xA001;
  for (uint32_t i = 0; i < 256; ++i) {
    uint16_t crc = static_cast<uint16_t>(i);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ kReflectedPolynomial)
                      : static_cast<uint16_t>(crc >> 1);
    }
    table_[i] = crc;
  }
}

int32_t VerifoneCrc16::CalculateCrc16(std::string_view text) const {
  uint16_t crc = 0;
  for (unsigned char b : text) {
    crc = static_cast<uint16_t>(table_[(b ^ crc) & 0xFF] ^ ((crc >> 8) & 0xFF));
  }
  return crc;
}

bool VerifoneCrc16::IsValidPacket(std::string_view packet) const {
  if (packet.size() < 3) {
    throw core::ArgumentException(
        fmt::format("A CRC packet needs at least 3 bytes; this one has {}.", packet.size()),
        "packet");
  }
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(packet[i]); };
  const int32_t received = byte(packet.size() - 1) * 256 + byte(packet.size() - 2);
  const std::string_view covered = packet.substr(1, packet.size() - 3);
  return CalculateCrc16(covered) == received;
}

std::string VerifoneCrc16::Frame(std::string_view body) const {
  std::string packet(1, ProtocolChar::kStx);
  packet.append(body);
  packet.push_back(ProtocolChar::kEtx);
  const int32_t crc = CalculateCrc16(std::string_view(packet).substr(1));
  packet.push_back(static_cast<char>(crc & 0xFF));
  packet.push_back(static_cast<char>((crc >> 8) & 0xFF));
  return packet;
}

}  // namespace clockcomm::zon
