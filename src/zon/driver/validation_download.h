// Sends the validation tables LEVEL1 (employees), LEVEL2 (departments) and LEVEL3 (job codes) to a
// terminal that asked for them at the end of its upload: a start handshake, then each table's
// header and rows, each packet acknowledged, a refused one sent again after the response wait.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "records/terminal_data.h"
#include "terminal/call_controller.h"
#include "zon/driver/zon_link.h"

namespace clockcomm::zon {

class ValidationTableDownload {
 public:
  // How often one packet is sent again after NAK before the download is given up.
  static constexpr int kMaxResends = 5;

  ValidationTableDownload(ZonLink& link, terminal::CallController& controller,
                          std::chrono::milliseconds response_wait)
      : link_(link), controller_(controller), response_wait_(response_wait) {}

  // Runs the whole download; false when it was abandoned (the reason is logged).
  bool Run(const std::vector<records::ValidationTableRows>& tables);
  int PacketsSent() const { return packets_sent_; }

 private:
  enum class Reply { kAck, kNak, kOther, kTimeout, kLostCarrier };
  Reply Exchange(const std::string& packet, char expected);
  bool SendTable(const records::ValidationTableRows& table);
  void TimedOut();
  void LostCarrier();

  ZonLink& link_;
  terminal::CallController& controller_;
  std::chrono::milliseconds response_wait_;
  int packets_sent_ = 0;
};

}  // namespace clockcomm::zon
