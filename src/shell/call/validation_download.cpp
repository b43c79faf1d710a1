#include "shell/call/validation_download.h"

#include "comm/connection.h"
#include "core/errors.h"
#include "core/text.h"
#include "shell/call/packet_checks.h"
#include "zon/protocol_char.h"

namespace clockcomm::shell {
namespace {
using zon::ProtocolChar;

// SOH or STX, the body, ETX, and the exclusive-or of everything after the leading character.
std::string Framed(char lead, const std::string& body) {
  std::string covered = body + ProtocolChar::kEtx;
  return std::string(1, lead) + covered + BlockCheckOf(covered);
}

}  // namespace

const std::vector<ValidationTable>& ValidationTables() {
  static const std::vector<ValidationTable> kTables = {
      {"LEVEL1", "SELECT [Card ID], Name FROM LEVEL1 WHERE Active <> 0 ORDER BY [Card ID]"},
      {"LEVEL2", "SELECT Code, Description FROM LEVEL2 ORDER BY Code"},
      {"LEVEL3", "SELECT Code, Description FROM LEVEL3 ORDER BY Code"},
  };
  return kTables;
}

std::string DownloadStartPacket() {
  return std::string(1, ProtocolChar::kSoh) + "DOWNLOAD" + ProtocolChar::kEtx;
}

std::string TableHeaderPacket(const std::string& table, size_t rows) {
  return Framed(ProtocolChar::kSoh, table + ProtocolChar::kFs + std::to_string(rows));
}

std::string TableRowPacket(const std::vector<std::string>& fields) {
  return Framed(ProtocolChar::kStx, core::Join(fields, std::string(1, ProtocolChar::kFs)));
}

bool ValidationTableDownload::Run(db::Database& company_db) {
  switch (Exchange(DownloadStartPacket(), ProtocolChar::kEnq)) {
    case Reply::kAck:
      break;
    case Reply::kLostCarrier:
      LostCarrier();
      return false;
    default:
      TimedOut();
      return false;
  }
  for (const auto& table : ValidationTables()) {
    if (!SendTable(company_db, table)) return false;
  }
  return true;
}

bool ValidationTableDownload::SendTable(db::Database& company_db, const ValidationTable& table) {
  const std::string name = table.name;
  std::optional<db::Recordset> rows;
  try {
    rows = company_db.Query(table.query);
  } catch (const core::SystemError& e) {
    controller_.Event("Couldn't open " + name + " table.",
                      "System error " + std::to_string(e.Number()) + ": " + e.Description());
    controller_.Show("{0} File open error - check log for details");
    return false;
  }
  controller_.Show("{0} Downloading {1} Packets ", {std::to_string(rows->RecordCount())});
  std::vector<std::string> packets;
  try {
    for (; !rows->Eof(); rows->MoveNext()) {
      std::vector<std::string> fields;
      for (size_t i = 0; i < rows->FieldCount(); ++i) fields.push_back(rows->Field(i).AsText());
      packets.push_back(TableRowPacket(fields));
    }
  } catch (const core::Error& e) {
    controller_.Event("Error reading " + name + " table.", e.what());
    controller_.Show("{0} Table read error - check log for details");
    return false;
  }
  std::vector<std::string> all = {TableHeaderPacket(name, packets.size())};
  all.insert(all.end(), packets.begin(), packets.end());
  for (const std::string& packet : all) {
    for (int attempt = 0;; ++attempt) {
      const Reply reply = Exchange(packet, ProtocolChar::kAck);
      if (reply == Reply::kAck) {
        controller_.AppendStatus(".");
        break;
      }
      if (reply == Reply::kLostCarrier) {
        LostCarrier();
        return false;
      }
      if (reply == Reply::kTimeout || attempt >= kMaxResends) {
        TimedOut();
        return false;
      }
      controller_.AppendStatus("*");
      // A refused packet goes again after the response wait.
      if (controller_.EndCommLoop().WaitFor(response_wait_)) return false;
    }
  }
  return true;
}

ValidationTableDownload::Reply ValidationTableDownload::Exchange(const std::string& packet,
                                                                 char expected) {
  try {
    if (line_.IsModem() && line_.HasModemLines() && !line_.CarrierDetect()) {
      return Reply::kLostCarrier;
    }
    line_.CommPut(packet);
    ++packets_sent_;
    line_.SetReadTimeout(response_wait_);
    const std::string reply = line_.ReadPacket();
    if (reply.empty()) return Reply::kTimeout;
    if (reply.find(expected) != std::string::npos) return Reply::kAck;
    if (reply.find(ProtocolChar::kNak) != std::string::npos) return Reply::kNak;
    return Reply::kOther;
  } catch (const core::TimeoutException&) {
    return Reply::kTimeout;
  } catch (const comm::ConnectionClosedError&) {
    return Reply::kLostCarrier;
  }
}

void ValidationTableDownload::TimedOut() {
  controller_.Show("{0} Time out in Download. D/L aborted.");
  controller_.Event("Error", "Time out in Download. D/L aborted.");
}

void ValidationTableDownload::LostCarrier() {
  controller_.Show("{0} Lost Carrier in Download. D/L aborted.");
  controller_.Event("Error", "Lost Carrier in Download. D/L aborted.");
}

}  // namespace clockcomm::shell
