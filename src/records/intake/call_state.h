// The state of a call file, kept beside it so that nothing a terminal was told it delivered can be
// forgotten by a process that dies: "<file>.receiving" while the call runs (the file is locked by
// the process receiving it), "<file>.pending" from the moment the punches are durable until their
// rows are committed. Each marker names the clock, the upload type and, once a delivery failed,
// why. A file without a marker is done with; "<file>.INC" holds the punches of a call that never
// completed (the terminal kept them), set aside and never transferred.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "records/intake/call_origin.h"

namespace clockcomm::records {

enum class CallState { kReceiving, kPending };

struct CallStateRecord {
  CallState state = CallState::kReceiving;
  CallOrigin origin;
  std::string reason;  // why a pending file is still waiting; empty at first
};

std::filesystem::path StateMarker(const std::filesystem::path& call_file, CallState state);
// The call file a marker belongs to, or nothing for another name.
std::optional<std::pair<std::filesystem::path, CallState>> MarkedFile(
    const std::filesystem::path& marker);
// Where the file of a call that never completed is set aside.
std::filesystem::path SetAsidePath(const std::filesystem::path& call_file);

// Writes the marker durably (replacing one of the same state). Throws core::SystemError.
void WriteCallState(const std::filesystem::path& call_file, const CallStateRecord& record);
// Reads a marker; nothing when it is missing. A marker that cannot be read gives its state with
// an empty origin.
std::optional<CallStateRecord> ReadCallState(const std::filesystem::path& call_file,
                                             CallState state);
// Removes both markers of the file and syncs the folder.
void ClearCallState(const std::filesystem::path& call_file);

}  // namespace clockcomm::records
