#include "records/intake/call_state.h"

#include "core/durable_file.h"
#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::records {
namespace {

constexpr const char* kReceivingSuffix = ".receiving";
constexpr const char* kPendingSuffix = ".pending";

const char* Suffix(CallState state) {
  return state == CallState::kReceiving ? kReceivingSuffix : kPendingSuffix;
}

// Values are written on one line each; a line end inside one would split it.
std::string OneLine(std::string text) {
  for (char& c : text) {
    if (c == '\r' || c == '\n') c = ' ';
  }
  return text;
}

}  // namespace

std::filesystem::path StateMarker(const std::filesystem::path& call_file, CallState state) {
  std::filesystem::path marker = call_file;
  marker += Suffix(state);
  return marker;
}

std::optional<std::pair<std::filesystem::path, CallState>> MarkedFile(
    const std::filesystem::path& marker) {
  const std::string name = marker.string();
  for (CallState state : {CallState::kReceiving, CallState::kPending}) {
    const std::string suffix = Suffix(state);
    if (name.size() > suffix.size() && name.ends_with(suffix)) {
      return std::make_pair(std::filesystem::path(name.substr(0, name.size() - suffix.size())),
                            state);
    }
  }
  return std::nullopt;
}

std::filesystem::path SetAsidePath(const std::filesystem::path& call_file) {
  std::filesystem::path aside = call_file;
  aside += ".INC";
  return aside;
}

void WriteCallState(const std::filesystem::path& call_file, const CallStateRecord& record) {
  core::WriteFileAtomically(StateMarker(call_file, record.state),
                            "clock=" + OneLine(record.origin.clock_name) + "\n" +
                                "number=" + std::to_string(record.origin.clock_number) + "\n" +
                                "upload=" + OneLine(record.origin.upload_type) + "\n" +
                                "reason=" + OneLine(record.reason) + "\n");
}

std::optional<CallStateRecord> ReadCallState(const std::filesystem::path& call_file,
                                             CallState state) {
  const auto marker = StateMarker(call_file, state);
  std::error_code ec;
  if (!std::filesystem::exists(marker, ec)) return std::nullopt;
  CallStateRecord record;
  record.state = state;
  try {
    for (const std::string& line : core::Split(core::ReadWholeFile(marker), '\n')) {
      const auto eq = line.find('=');
      if (eq == std::string::npos) continue;
      const std::string key = line.substr(0, eq);
      const std::string value = line.substr(eq + 1);
      if (key == "clock") record.origin.clock_name = value;
      if (key == "number")
        record.origin.clock_number = static_cast<int>(core::LeadingNumber(value));
      if (key == "upload") record.origin.upload_type = value;
      if (key == "reason") record.reason = value;
    }
  } catch (const core::SystemError& e) {
    record.reason = e.what();
  }
  return record;
}

void ClearCallState(const std::filesystem::path& call_file) {
  std::error_code ec;
  bool removed = false;
  for (CallState state : {CallState::kReceiving, CallState::kPending}) {
    removed = std::filesystem::remove(StateMarker(call_file, state), ec) || removed;
  }
  if (removed) core::SyncDirectory(call_file.parent_path());
}

}  // namespace clockcomm::records
