// HoursRequestPacket::Parse on anything: true with sane fields, or false with the fields untouched.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "zon/hours_request_packet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  clockcomm::zon::HoursRequestPacket packet;
  const auto before = packet.Timestamp();
  if (packet.Parse(text)) {
    const int year = packet.Timestamp().GetDate().Year();
    if (year < 1930 || year > 2029 || packet.Timestamp().GetTime().Second() != 0) abort();
  } else if (packet.BadgeNumber() != 0 || !(packet.Timestamp() == before)) {
    abort();
  }
  return 0;
}
