// The check of packets on the RS-485 line. It differs from CRC-16/ARC on purpose and must stay as
// the terminals compute it: most significant bit first, constant 0xC005, and the last byte of the
// array given to GenZonCRC left out.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace clockcomm::zon {

inline constexpr uint16_t kZonCrcConstant = 0xC005;

// The check over bytes[0 .. size-2]; the last byte is never included (a one-byte array gives 0).
uint16_t GenZonCRC(std::span<const uint8_t> bytes);

// All but the last two bytes go to GenZonCRC (so the covered part ends before the third-from-last
// byte); the received value is the last two bytes, high byte first. When the computed low byte is
// ENQ the packet's first byte is replaced by "!" in the working copy before the received value is
// read; that byte is already covered, so the outcome is the plain comparison.
bool CheckZonCRC(std::string_view packet);

// Appends a filler byte (left out of the check) and the check, high byte first, to the body: a
// packet CheckZonCRC accepts.
std::string AppendZonCRC(std::string_view body, char filler);

}  // namespace clockcomm::zon
