// Sends the validation tables LEVEL1 (employees), LEVEL2 (departments) and LEVEL3 (job codes) of
// the company database to a terminal that asked for them at the end of its upload.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "db/database.h"
#include "shell/call/call_controller.h"
#include "shell/call/zon_line.h"

namespace clockcomm::shell {

// What a download sends of one table: its name and the query giving the fields of each row.
struct ValidationTable {
  const char* name;
  const char* query;
};

// LEVEL1 only where "Active"; the fields of each row in the order the terminal reads them.
const std::vector<ValidationTable>& ValidationTables();

// The packets of the download (the layout is documented in docs/zon-conversation.md).
std::string DownloadStartPacket();
std::string TableHeaderPacket(const std::string& table, size_t rows);
std::string TableRowPacket(const std::vector<std::string>& fields);

class ValidationTableDownload {
 public:
  // How often one packet is sent again after NAK before the download is given up.
  static constexpr int kMaxResends = 5;

  ValidationTableDownload(ZonLine& line, CallController& controller,
                          std::chrono::milliseconds response_wait)
      : line_(line), controller_(controller), response_wait_(response_wait) {}

  // Runs the whole download; false when it was abandoned (the reason is logged).
  bool Run(db::Database& company_db);
  int PacketsSent() const { return packets_sent_; }

 private:
  enum class Reply { kAck, kNak, kOther, kTimeout, kLostCarrier };
  Reply Exchange(const std::string& packet, char expected);
  bool SendTable(db::Database& company_db, const ValidationTable& table);
  void TimedOut();
  void LostCarrier();

  ZonLine& line_;
  CallController& controller_;
  std::chrono::milliseconds response_wait_;
  int packets_sent_ = 0;
};

}  // namespace clockcomm::shell
