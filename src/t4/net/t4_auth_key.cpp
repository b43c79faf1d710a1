#include "t4/net/t4_auth_key.h"

#include <array>

namespace clockcomm::t4::net {
namespace {

uint32_t ReverseBits(uint32_t value) {
  uint32_t reversed = 0;
  for (int i = 0; i < 32; ++i) {
    reversed = (reversed << 1) | (value & 1);
    value >>= 1;
  }
  return reversed;
}

// The four bytes both sides compute before the salt is applied.
std::array<uint8_t, 4> KeyBytes(uint32_t key, uint16_t session) {
  const uint32_t mixed = ReverseBits(key) + session;
  static constexpr std::array<uint8_t, 4> kMask = {0x5a, 0x4b, 0x53, 0x4f};
  std::array<uint8_t, 4> x{};
  for (int i = 0; i < 4; ++i) x[i] = static_cast<uint8_t>((mixed >> (8 * i)) ^ kMask[i]);
  return {x[2], x[3], x[0], x[1]};  // the 16-bit halves swapped
}

}  // namespace

std::string AuthToken(uint32_t key, uint16_t session, uint8_t salt) {
  const auto c = KeyBytes(key, session);
  return {static_cast<char>(c[0] ^ salt), static_cast<char>(c[1] ^ salt), static_cast<char>(salt),
          static_cast<char>(c[3] ^ salt)};
}

bool AuthTokenMatches(std::string_view token, uint32_t key, uint16_t session) {
  if (token.size() != 4) return false;
  const auto salt = static_cast<uint8_t>(token[2]);
  return token == AuthToken(key, session, salt);
}

}  // namespace clockcomm::t4::net
