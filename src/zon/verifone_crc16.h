// CRC-16/ARC (polynomial 0x8005 bit-reflected, initial 0, no final xor), table-driven, and the
// framing check of packets that carry it: STX, covered bytes, then the CRC low byte first.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace clockcomm::zon {

class VerifoneCrc16 {
 public:
  VerifoneCrc16();

  // 0..65535; the empty text gives 0. Bytes are taken as they stand (single-byte text).
  int32_t CalculateCrc16(std::string_view text) const;
  // The last two bytes (low, high) must equal the CRC of everything between the leading byte and
  // them. Throws core::ArgumentException for a packet shorter than 3 bytes.
  bool IsValidPacket(std::string_view packet) const;
  // STX + body + ETX + CRC(body + ETX) low byte, high byte: a packet IsValidPacket accepts.
  std::string Frame(std::string_view body) const;

  const std::array<uint16_t, 256>& Table() const { return table_; }

 private:
  std::array<uint16_t, 256> table_;
};

}  // namespace clockcomm::zon
