// One line of an upload as the Zon driver takes it: the end-packet tests, the block check, and a
// checked packet read as a header or a punch. A bad packet may only raise the program's own
// errors; anything else (an uncaught exception, a crash) is a finding.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/errors.h"
#include "zon/block_check.h"
#include "zon/protocol_char.h"
#include "zon/punch_packet.h"
#include "zon/zon_header_packet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace clockcomm::zon;
  const std::string_view packet(reinterpret_cast<const char*>(data), size);
  if (IsEndOfTransmission(packet) || IsEndOfUpload(packet) || !PacketCheckOk(packet)) return 0;
  const std::string_view body = PacketBody(packet);
  try {
    if (!body.empty() && body.front() == ProtocolChar::kStx) {
      ZonHeaderPacketStatic::Parse(body);
    } else {
      ParsePunchPacket(body, 101).ToTcdString(0);
    }
  } catch (const clockcomm::core::Error&) {
  }
  return 0;
}
