// The road of a durable call file into the company's data: the transfer into [Clock Data Table]
// (each punch once, by its content), then the company's daily and permanent archives, the copies
// to the duplicate folders, and the purge of old history files. Used at the end of each call and
// by the recovery sweep for files a call could not deliver.
#pragma once

#include <filesystem>
#include <string>

#include "core/clock.h"
#include "core/log_sink.h"
#include "records/company_factory.h"
#include "records/intake/call_origin.h"

namespace clockcomm::records {

struct IntakePaths {
  std::filesystem::path data_directory;     // the call files
  std::filesystem::path program_folder;     // "SettingsOverride.txt"
  std::filesystem::path registry_database;  // COMPANY3.db, for the clock-table stamp
};

struct DeliveryResult {
  bool delivered = false;
  std::string reason;  // why not: no company for the clock, a database that refused
  int inserted = 0;
  int already_present = 0;
};

class CallDelivery {
 public:
  CallDelivery(IntakePaths paths, CompanyFactory& companies, core::LogSink& log, core::Clock& clock)
      : paths_(std::move(paths)), companies_(companies), log_(log), clock_(clock) {}

  // Not delivered (with the reason, logged) when the clock has no company or the transfer
  // failed: the caller keeps the file pending and tries again later.
  DeliveryResult Deliver(const CallOrigin& origin, const std::filesystem::path& file);

  const IntakePaths& Paths() const { return paths_; }

 private:
  void Show(std::string_view format, std::initializer_list<std::string_view> details = {});
  void Archive(const Company& company, const std::filesystem::path& file);
  void CopyToDuplicateFolders(const CallOrigin& origin, const std::filesystem::path& file);

  IntakePaths paths_;
  CompanyFactory& companies_;
  core::LogSink& log_;
  core::Clock& clock_;
};

}  // namespace clockcomm::records
