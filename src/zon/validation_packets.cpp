#include "zon/validation_packets.h"

#include "core/text.h"
#include "zon/block_check.h"
#include "zon/protocol_char.h"

namespace clockcomm::zon {
namespace {

// The lead character, the body, ETX, and the exclusive-or of everything after the lead.
std::string Framed(char lead, const std::string& body) {
  std::string covered = body + ProtocolChar::kEtx;
  return std::string(1, lead) + covered + BlockCheckOf(covered);
}

}  // namespace

std::string DownloadStartPacket() {
  return std::string(1, ProtocolChar::kSoh) + "DOWNLOAD" + ProtocolChar::kEtx;
}

std::string TableHeaderPacket(const std::string& table, size_t rows) {
  return Framed(ProtocolChar::kSoh, table + ProtocolChar::kFs + std::to_string(rows));
}

std::string TableRowPacket(const std::vector<std::string>& fields) {
  return Framed(ProtocolChar::kStx, core::Join(fields, std::string(1, ProtocolChar::kFs)));
}

}  // namespace clockcomm::zon
