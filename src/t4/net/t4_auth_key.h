// The token that proves the communication key after a terminal answers CONNECT with ACK_UNAUTH:
// four bytes computed from the key and the session id, one of them a salt byte of the client's
// choosing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace clockcomm::t4::net {

inline constexpr uint8_t kAuthSalt = 0x32;

std::string AuthToken(uint32_t key, uint16_t session, uint8_t salt = kAuthSalt);
// The terminal's side: true when the token proves the key for the session, whatever the salt.
bool AuthTokenMatches(std::string_view token, uint32_t key, uint16_t session);

}  // namespace clockcomm::t4::net
