// Cuts what the program sends to a terminal into messages. The program's bytes carry no line end,
// so the cut depends on what the terminal expects: during a call STX..ETX is a poll's header
// request, during a validation-table download it is a table row followed by a block check.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace clockcomm::sim {

enum class HostContext {
  kCall,      // poll handshake, upload acknowledgements, end characters
  kDownload,  // validation tables
};

struct HostMessage {
  enum class Kind {
    kEnq,
    kAck,
    kNak,
    kEot,
    kPollHeader,     // STX terminal-id ETX
    kDownloadStart,  // SOH "DOWNLOAD" ETX
    kTableHeader,    // SOH name FS row-count ETX bcc
    kTableRow,       // STX fields (FS-separated) ETX bcc
    kOther,          // a byte that starts nothing known: skipped
  };
  Kind kind = Kind::kOther;
  bool framed = false;              // ACK4/NAK4/EOT4 rather than the single character
  bool check_ok = true;             // block check of table headers, rows and framed controls
  std::string text;                 // poll header: the terminal id; table header: the table name
  int row_count = 0;                // table header
  std::vector<std::string> fields;  // table row
};

// Download frames longer than this without their ETX are taken for noise.
inline constexpr size_t kMaxHostFrameLength = 1024;

// Takes the first complete message off the front of buffer. Returns nothing (and leaves the
// buffer alone) while the message at the front is still incomplete.
std::optional<HostMessage> TakeHostMessage(std::string& buffer, HostContext context);

// Exclusive-or of the bytes after the leading SOH/STX up to and including ETX.
char DownloadBlockCheck(const std::string& frame_without_check);

}  // namespace clockcomm::sim
