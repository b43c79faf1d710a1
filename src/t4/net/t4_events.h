// The attendance event a terminal pushes to a registered client (event code 1). Its layout goes by
// the payload length: 10/12/14 bytes on numeric terminals, 32/36/37 and more on colour-screen
// ones; a payload made of whole 52-byte parts holds one event per part.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "t4/net/t4_time_code.h"

namespace clockcomm::t4::net {

// Event codes in the session field of an event packet, and the registration mask bits.
inline constexpr uint16_t kEventAttLog = 1;

struct T4AttEvent {
  std::string user_id;  // the text, or the number in decimal
  uint8_t verify = 0;
  uint8_t state = 0;  // raw: bit 7 may mark a rejected punch, 255 no state
  T4Time time;
  uint32_t work_code = 0;

  bool operator==(const T4AttEvent&) const = default;
};

// The payload lengths a terminal is known to send.
inline constexpr size_t kEventLengths[] = {10, 12, 14, 32, 36, 37, 52};

// The events of a payload; empty for a length no terminal is known to send.
std::vector<T4AttEvent> DecodeAttEvents(std::string_view payload);
// One event in one of kEventLengths (52: one part; the bytes past the known fields are zero).
std::string EncodeAttEvent(const T4AttEvent& event, size_t payload_length);

}  // namespace clockcomm::t4::net
