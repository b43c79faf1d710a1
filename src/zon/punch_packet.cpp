#include "zon/punch_packet.h"

#include <string>

#include "core/text.h"
#include "records/tcd_record_static.h"

namespace clockcomm::zon {

records::TcdRecord ParsePunchPacket(std::string_view body, int clock_number) {
  const std::string cleaned = core::ReplaceAll(std::string(body), "-\"", "\"");
  return records::TcdRecordStatic::Parse(std::to_string(clock_number) + "," + cleaned);
}

}  // namespace clockcomm::zon
