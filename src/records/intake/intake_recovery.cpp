#include "records/intake/intake_recovery.h"

#include <algorithm>
#include <chrono>

#include "core/errors.h"
#include "core/file_lock.h"
#include "records/intake/call_intake.h"
#include "records/intake/call_state.h"

namespace clockcomm::records {
namespace {

// The call files with a state marker, each once, in name order.
std::vector<std::pair<std::filesystem::path, CallState>> MarkedFiles(
    const std::filesystem::path& folder) {
  std::vector<std::pair<std::filesystem::path, CallState>> out;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    if (auto marked = MarkedFile(entry.path())) out.push_back(*marked);
  }
  std::sort(out.begin(), out.end());
  // A file with both markers is pending: it was sealed just before the process died.
  out.erase(std::unique(out.begin(), out.end(),
                        [](const auto& a, const auto& b) { return a.first == b.first; }),
            out.end());
  return out;
}

// Long enough that no live process is still between creating its call file and locking it.
constexpr auto kLeftoverAge = std::chrono::minutes(10);

bool OlderThan(const std::filesystem::path& file, std::filesystem::file_time_type::duration age) {
  std::error_code ec;
  const auto written = std::filesystem::last_write_time(file, ec);
  return !ec && std::filesystem::file_time_type::clock::now() - written > age;
}

// A process killed while opening a call leaves an empty call file without a state marker, or a
// marker's temporary; nothing was received into either.
bool IsOpeningLeftover(const std::filesystem::path& file) {
  const std::string name = file.filename().string();
  if (name.ends_with(".receiving.tmp") || name.ends_with(".pending.tmp")) return true;
  const std::string extension = file.extension().string();
  std::error_code ec;
  return (extension == ".TCD" || extension == ".WHO") && file.stem().string().size() == 8 &&
         std::filesystem::file_size(file, ec) == 0 && !ec &&
         !std::filesystem::exists(StateMarker(file, CallState::kReceiving), ec) &&
         !std::filesystem::exists(StateMarker(file, CallState::kPending), ec);
}

std::string Describe(const CallStateRecord& record) {
  std::string text = "clock " + record.origin.clock_name;
  if (!record.reason.empty()) text += ": " + record.reason;
  return text;
}

}  // namespace

SweepResult IntakeRecovery::Sweep() {
  SweepResult result;
  for (const auto& [file, state] : MarkedFiles(delivery_.Paths().data_directory)) {
    std::error_code ec;
    if (!std::filesystem::exists(file, ec)) {
      log_.Event("Error", "The call file " + file.string() + " of a state marker is missing.");
      ClearCallState(file);
      continue;
    }
    auto lock = core::FileLock::TryLock(file);
    if (!lock) continue;  // a live call holds it
    try {
      if (auto pending = ReadCallState(file, CallState::kPending)) {
        const DeliveryResult delivered = delivery_.Deliver(pending->origin, file);
        if (delivered.delivered) {
          ClearCallState(file);
          ++result.delivered;
          result.rows += delivered.inserted;
          log_.Event("Recovered call file",
                     file.string() + " of clock " + pending->origin.clock_name + ": " +
                         std::to_string(delivered.inserted) + " row(s) went in, " +
                         std::to_string(delivered.already_present) + " were there already");
        } else {
          pending->reason = delivered.reason;
          WriteCallState(file, *pending);
          ++result.still_pending;
        }
        continue;
      }
      // Receiving, and nobody holds it: its process died before the terminal was told.
      std::filesystem::rename(file, SetAsidePath(file));
      const auto receiving = ReadCallState(file, CallState::kReceiving);
      ClearCallState(file);
      ++result.set_aside;
      log_.Event("Incomplete call set aside",
                 SetAsidePath(file).string() + " (" +
                     (receiving ? Describe(*receiving) : std::string("clock unknown")) +
                     "): the call never completed, so the terminal kept these punches and sends "
                     "them again; the file is never transferred.");
    } catch (const std::exception& e) {
      log_.Event("Error", "Recovery of " + file.string() + ": " + e.what());
    }
  }
  RemoveOpeningLeftovers();
  return result;
}

void IntakeRecovery::RemoveOpeningLeftovers() {
  const auto now = clock_.Steady();
  if (next_leftover_scan_ && now < *next_leftover_scan_) return;
  next_leftover_scan_ = now + kLeftoverAge;
  std::error_code ec;
  for (const auto& entry :
       std::filesystem::directory_iterator(delivery_.Paths().data_directory, ec)) {
    const std::filesystem::path& file = entry.path();
    if (!IsOpeningLeftover(file) || !OlderThan(file, kLeftoverAge)) continue;
    const std::string name = file.string();
    const std::filesystem::path call_file =
        name.ends_with(".tmp") ? MarkedFile(name.substr(0, name.size() - 4))->first : file;
    if (std::filesystem::exists(call_file, ec) && !core::FileLock::TryLock(call_file)) continue;
    if (std::filesystem::remove(file, ec)) {
      log_.Event("Empty call file removed",
                 file.string() +
                     ": left by a call whose process died while opening it; nothing "
                     "had been received.");
    }
  }
}

std::vector<WaitingFile> IntakeRecovery::Waiting() const {
  std::vector<WaitingFile> out;
  const auto& folder = delivery_.Paths().data_directory;
  for (const auto& [file, state] : MarkedFiles(folder)) {
    const auto record = ReadCallState(file, CallState::kPending)
                            ? ReadCallState(file, CallState::kPending)
                            : ReadCallState(file, CallState::kReceiving);
    const bool pending = record && record->state == CallState::kPending;
    out.push_back(
        {file, pending ? "pending" : "receiving", record ? Describe(*record) : std::string()});
  }
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.ends_with(".INC")) {
      out.push_back({entry.path(), "set aside",
                     "a call that never completed; the terminal kept these punches"});
    } else if (name.ends_with(".BAD")) {
      out.push_back({entry.path(), "kept packets",
                     name == kNoHeaderRejectFile ? "packets of calls without a usable header"
                                                 : "packets of a call that were no punches"});
    } else if (name.ends_with(".REJ")) {
      out.push_back({entry.path(), "bad lines", "lines the transfer could not read"});
    }
  }
  std::sort(out.begin(), out.end(),
            [](const WaitingFile& a, const WaitingFile& b) { return a.file < b.file; });
  return out;
}

}  // namespace clockcomm::records
