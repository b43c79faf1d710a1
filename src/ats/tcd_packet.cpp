#include "ats/tcd_packet.h"

#include <array>
#include <limits>

#include "core/errors.h"

namespace clockcomm::ats {

std::string_view TcdCode(PunchType type) {
  static constexpr std::array<std::string_view, 8> kCodes = {"I",  "O",  "SW", "C",
                                                              "LO", "LI", "BO", "BI"};
  const auto index = static_cast<size_t>(type);
  return index < kCodes.size() ? kCodes[index] : std::string_view("I");
}

records::TcdRecord ToTcdRecord(const TCDPacket& packet, int sequence_number) {
  if (packet.BadgeId < 0 || packet.BadgeId > std::numeric_limits<int32_t>::max()) {
    throw core::ArgumentException("Badge must be between 0 and 2147483647.", "BadgeId");
  }
  records::TcdRecord record(std::to_string(packet.clockId), sequence_number,
                            static_cast<int32_t>(packet.BadgeId), packet.DepartmentCode, "", "", "",
                            TcdCode(packet.PunchType), packet.Timestamp.GetDate(),
                            packet.Timestamp.GetTime(), std::nullopt, std::nullopt, std::nullopt,
                            packet.PunchClass);
  record.SetJobNumber(packet.JobCode);
  return record;
}

}  // namespace clockcomm::ats
