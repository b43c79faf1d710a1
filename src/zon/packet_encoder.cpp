#include "zon/packet_encoder.h"

#include "zon/block_check.h"
#include "zon/protocol_char.h"

namespace clockcomm::zon {
namespace {
constexpr std::string_view kCrLf = "\r\n";
}  // namespace

std::string WithBlockCheck(std::string_view body) {
  std::string packet(body);
  packet += BlockCheckOf(body);
  packet += kCrLf;
  return packet;
}

std::string EncodeHeader(const ZonHeaderPacket& header) {
  const char fs = ProtocolChar::kFs;
  std::string body(1, ProtocolChar::kStx);
  for (const std::string& field :
       {std::string("1"), std::string("["), header.ApplicationName(), header.ClockName(),
        std::to_string(header.ClockNumber()), header.UploadType()}) {
    body += field;
    body += fs;
  }
  body += ProtocolChar::kFf;
  return WithBlockCheck(body);
}

std::string EncodeData(std::string_view punch_fields) { return WithBlockCheck(punch_fields); }

std::string EncodeEndOfTransmission() {
  return std::string("00") + ProtocolChar::kFs + ProtocolChar::kEot + std::string(kCrLf);
}

std::string EncodeEndOfUpload() {
  return std::string("00") + ProtocolChar::kFs + ProtocolChar::kEnq + std::string(kCrLf);
}

std::string EncodeHoursRequest(int32_t badge, const core::DateTime& when) {
  return std::string(1, ProtocolChar::kEnq) + "HRS" + ProtocolChar::kFs + std::to_string(badge) +
         ProtocolChar::kFs + when.Format("yymmddHHnn") + std::string(kCrLf);
}

}  // namespace clockcomm::zon
