// Little-endian fields of the T4 terminals' packets and records, read from and appended to byte
// strings (std::string holds bytes here, as everywhere on the wire).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace clockcomm::t4::net {

inline uint8_t GetU8(std::string_view bytes, size_t offset) {
  return static_cast<uint8_t>(bytes[offset]);
}
inline uint16_t GetU16(std::string_view bytes, size_t offset) {
  return static_cast<uint16_t>(GetU8(bytes, offset) | (GetU8(bytes, offset + 1) << 8));
}
inline uint32_t GetU32(std::string_view bytes, size_t offset) {
  return static_cast<uint32_t>(GetU16(bytes, offset)) |
         (static_cast<uint32_t>(GetU16(bytes, offset + 2)) << 16);
}

inline void PutU8(std::string& bytes, uint8_t value) { bytes.push_back(static_cast<char>(value)); }
inline void PutU16(std::string& bytes, uint16_t value) {
  PutU8(bytes, static_cast<uint8_t>(value));
  PutU8(bytes, static_cast<uint8_t>(value >> 8));
}
inline void PutU32(std::string& bytes, uint32_t value) {
  PutU16(bytes, static_cast<uint16_t>(value));
  PutU16(bytes, static_cast<uint16_t>(value >> 16));
}

// A NUL-padded text field: the bytes up to the first NUL within the field.
inline std::string GetText(std::string_view bytes, size_t offset, size_t width) {
  std::string_view field = bytes.substr(offset, width);
  return std::string(field.substr(0, field.find('\0')));
}
// Appends text cut or NUL-padded to the width.
inline void PutText(std::string& bytes, std::string_view text, size_t width) {
  text = text.substr(0, width);
  bytes.append(text);
  bytes.append(width - text.size(), '\0');
}

}  // namespace clockcomm::t4::net
