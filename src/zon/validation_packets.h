// The packets of the validation-table download, as the terminal reads them (the layout is
// documented in docs/zon-conversation.md).
#pragma once

#include <string>
#include <vector>

namespace clockcomm::zon {

// SOH "DOWNLOAD" ETX: the terminal answers ENQ CR LF when it is ready.
std::string DownloadStartPacket();
// SOH, the table name, FS, the row count, ETX, the block check.
std::string TableHeaderPacket(const std::string& table, size_t rows);
// STX, the fields separated by FS, ETX, the block check.
std::string TableRowPacket(const std::vector<std::string>& fields);

}  // namespace clockcomm::zon
