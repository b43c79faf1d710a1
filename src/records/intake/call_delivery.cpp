#include "records/intake/call_delivery.h"

#include "core/errors.h"
#include "core/safe_path.h"
#include "core/screen_message.h"
#include "core/text.h"
#include "records/clock_file_transfer.h"
#include "records/intake/history_purge.h"
#include "records/parameter_override.h"
#include "records/tcd_archive.h"
#include "records/tcd_file_reader.h"

namespace clockcomm::records {

void CallDelivery::Show(std::string_view format, std::initializer_list<std::string_view> details) {
  log_.Screen(core::ScreenMessage(format, clock_.Now(), details));
}

DeliveryResult CallDelivery::Deliver(const CallOrigin& origin, const std::filesystem::path& file) {
  DeliveryResult result;
  const auto company = companies_.GetCompanyByClockName(origin.clock_name);
  if (!company) {
    result.reason = "clock '" + origin.clock_name + "' belongs to no company in Company3.mdb";
    Show("{0} The punches of clock {1} wait in {2}: the clock belongs to no company.",
         {origin.clock_name, file.filename().string()});
    log_.Event("Punches waiting", file.string() + ": " + result.reason);
    return result;
  }
  ClockFileTransfer transfer({paths_.program_folder, paths_.registry_database}, log_, clock_);
  TransferOptions options;
  options.mode_letter = origin.upload_type;
  // The call's file is already on the disk, so the rows go in as one transaction (all or none,
  // each with its ledger entry and punch key): one sync per call instead of one per punch.
  options.use_transactions = false;
  try {
    const TransferResult transferred = transfer.Transfer(*company, file, options);
    result.inserted = transferred.inserted;
    result.already_present = transferred.already_present;
  } catch (const core::Error& e) {
    result.reason = e.what();
    Show("{0} {1}", {e.what()});
    log_.Event("Transfer failed", e.what());
    return result;
  }
  result.delivered = true;
  if (origin.upload_type != "W") Archive(*company, file);
  CopyToDuplicateFolders(origin, file);
  PurgeHistoryFiles(paths_.data_directory, clock_, log_);
  return result;
}

// Every received line also goes to the company's daily and permanent archives.
void CallDelivery::Archive(const Company& company, const std::filesystem::path& file) {
  try {
    TcdArchiveWriter archive(company, clock_.Now().GetDate());
    TcdFileReader reader(file);
    while (reader.Read()) archive.WriteRecord(*reader.Record());
    archive.Sync();
    archive.CloseWriter();
  } catch (const core::SystemError& e) {
    log_.Event("System error " + std::to_string(e.Number()), e.Description());
    Show(kArchiveOpenScreenText);
  } catch (const core::Error& e) {
    log_.Event("Error", e.what());
  }
}

void CallDelivery::CopyToDuplicateFolders(const CallOrigin& origin,
                                          const std::filesystem::path& file) {
  const std::string templates = ParameterOverride(paths_.program_folder).DuplicateTCD();
  if (templates.empty()) return;
  const std::string file_name = file.filename().string();
  for (const std::string& item : core::Split(templates, '+')) {
    std::string folder = core::Trim(item);
    if (folder.empty()) continue;
    // The clock name comes from the terminal: it may not climb out of the folder.
    folder = core::ReplaceAll(folder, "[ClockName]", core::SafeFileName(origin.clock_name));
    folder = core::ReplaceAll(folder, "[FileName]", file_name);
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    std::filesystem::copy_file(file, std::filesystem::path(folder) / file_name,
                               std::filesystem::copy_options::overwrite_existing, ec);
    if (ec) {
      log_.Event("Error", "Couldn't copy " + file_name + " to " + folder + ": " + ec.message());
    }
  }
}

}  // namespace clockcomm::records
