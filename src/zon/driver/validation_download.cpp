#include "zon/driver/validation_download.h"

#include "comm/connection.h"
#include "core/errors.h"
#include "zon/protocol_char.h"
#include "zon/validation_packets.h"

namespace clockcomm::zon {
bool ValidationTableDownload::Run(const std::vector<records::ValidationTableRows>& tables) {
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
  for (const auto& table : tables) {
    if (!SendTable(table)) return false;
  }
  return true;
}

bool ValidationTableDownload::SendTable(const records::ValidationTableRows& table) {
  controller_.Show("{0} Downloading {1} Packets ", {std::to_string(table.rows.size())});
  std::vector<std::string> all = {TableHeaderPacket(table.name, table.rows.size())};
  for (const auto& fields : table.rows) all.push_back(TableRowPacket(fields));
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
      if (!controller_.Clock().Pause(response_wait_, controller_.EndCommLoop())) return false;
    }
  }
  return true;
}

ValidationTableDownload::Reply ValidationTableDownload::Exchange(const std::string& packet,
                                                                 char expected) {
  try {
    if (link_.CarrierLost()) return Reply::kLostCarrier;
    link_.CommPut(packet);
    ++packets_sent_;
    link_.SetReadTimeout(response_wait_);
    const std::string reply = link_.ReadPacket();
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

}  // namespace clockcomm::zon
