// ZonHeaderPacketStatic::Parse on anything: it returns a header or raises one of its three errors.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "core/errors.h"
#include "zon/zon_header_packet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    auto header = clockcomm::zon::ZonHeaderPacketStatic::Parse(text);
    if (!clockcomm::zon::ZonHeaderPacket::IsValidUploadType(header.UploadType())) abort();
  } catch (const clockcomm::core::IndexOutOfRangeException&) {
  } catch (const clockcomm::core::FormatException&) {
  } catch (const clockcomm::core::ArgumentException&) {
  }
  return 0;
}
