#include "sim/terminal_packets.h"

#include "core/errors.h"
#include "zon/protocol_char.h"

namespace clockcomm::sim {

using zon::ProtocolChar;

namespace {
constexpr std::string_view kCrLf = "\r\n";

std::string Checked(std::string body) {
  body += BlockCheck(body);
  body += kCrLf;
  return body;
}
}  // namespace

char BlockCheck(std::string_view text) {
  unsigned char check = 0;
  for (char c : text) check ^= static_cast<unsigned char>(c);
  return static_cast<char>(check);
}

std::string HeaderPacket(std::string_view application, std::string_view clock_name,
                         int32_t clock_number, std::string_view upload_type) {
  const char fs = ProtocolChar::kFs;
  std::string body(1, ProtocolChar::kStx);
  body += "1";
  body += fs;
  body += "[";
  body += fs;
  body += application;
  body += fs;
  body += clock_name;
  body += fs;
  body += std::to_string(clock_number);
  body += fs;
  body += upload_type;
  body += fs;
  body += ProtocolChar::kFf;
  return Checked(std::move(body));
}

std::string DataPacket(std::string_view punch_fields) { return Checked(std::string(punch_fields)); }

std::string EndOfTransmissionPacket() {
  return std::string("00") + ProtocolChar::kFs + ProtocolChar::kEot + std::string(kCrLf);
}

std::string EndOfUploadPacket() {
  return std::string("00") + ProtocolChar::kFs + ProtocolChar::kEnq + std::string(kCrLf);
}

std::string HoursRequestLine(int32_t badge, const core::DateTime& when) {
  return std::string(1, ProtocolChar::kEnq) + "HRS" + ProtocolChar::kFs + std::to_string(badge) +
         ProtocolChar::kFs + when.Format("yymmddHHnn") + std::string(kCrLf);
}

std::string WithBadBlockCheck(std::string packet) {
  // The check sits just before the CRLF.
  if (packet.size() < 3) throw core::ArgumentException("The packet has no block check.", "packet");
  char& check = packet[packet.size() - 3];
  // Whatever the wrong check becomes (even CR or LF), the line still ends at the CRLF after it.
  check = static_cast<char>(check ^ 0x01);
  return packet;
}

}  // namespace clockcomm::sim
