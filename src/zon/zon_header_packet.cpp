#include "zon/zon_header_packet.h"

#include <fmt/format.h>

#include "core/errors.h"
#include "core/text.h"
#include "zon/protocol_char.h"

namespace clockcomm::zon {

ZonHeaderPacket::ZonHeaderPacket(std::string clock_name, int32_t clock_number,
                                 std::string application_name, std::string upload_type)
    : clock_name_(std::move(clock_name)),
      clock_number_(clock_number),
      application_name_(std::move(application_name)),
      upload_type_(std::move(upload_type)) {
  if (!IsValidUploadType(upload_type_)) {
    throw core::ArgumentException("Invalid upload type.", "UploadType");
  }
}

bool ZonHeaderPacket::IsValidUploadType(std::string_view upload_type) {
  // One letter of ".W.P.F."; a longer value such as "W.P" would also occur in it, so the length
  // is checked first.
  constexpr std::string_view kAccepted = ".W.P.F.";
  if (upload_type.size() != 1) return false;
  std::string probe = "." + std::string(upload_type) + ".";
  return kAccepted.find(probe) != std::string_view::npos;
}

std::string ZonHeaderPacket::ToString() const {
  return fmt::format("{} #{} ({}, upload {})", core::Printable(clock_name_), clock_number_,
                     core::Printable(application_name_), core::Printable(upload_type_));
}

ZonHeaderPacket ZonHeaderPacketStatic::Parse(std::string_view text) {
  constexpr size_t kFieldsNeeded = 6;
  auto fields = core::Split(text, ProtocolChar::kFs);
  if (fields.size() < kFieldsNeeded) {
    throw core::IndexOutOfRangeException(
        fmt::format("Header packet \"{}\" has {} fields; {} are needed.",
                    core::Printable(text.substr(0, 80)), fields.size(), kFieldsNeeded));
  }
  auto number = core::ParseInt(fields[4]);
  if (!number) {
    throw core::FormatException(fmt::format("Clock number \"{}\" in the header is not a number.",
                                            core::Printable(fields[4].substr(0, 40))));
  }
  return ZonHeaderPacket(fields[3], *number, fields[2], fields[5]);
}

}  // namespace clockcomm::zon
