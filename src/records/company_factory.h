// The company registry: every company of table Company in COMPANY3.db, found by company name or
// by clock name.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/log_sink.h"
#include "db/database.h"
#include "records/company.h"

namespace clockcomm::records {

// The registry file is missing (the callers' "Company3 database was not found.").
class CompanyRegistryNotFound : public core::Error {
 public:
  explicit CompanyRegistryNotFound(const std::string& file);
};

class CompanyFactory {
 public:
  static constexpr const char* kLoadQuery =
      "SELECT Company.[Clock Name], Company.[Company], Company.[Clock Table Updated], "
      "Company.[Directory], Company.[Current Start Date], Company.[Pay Period Type], "
      "Company.[Current Start Time], Company.CustomDays, Company.[Database] FROM Company";

  // Relative company directories are taken under the data directory.
  CompanyFactory(core::LogSink& log, std::filesystem::path data_directory)
      : log_(log), data_directory_(std::move(data_directory)) {}

  // Stores the location and loads the list, bringing an older registry to the newest shape first.
  // Throws CompanyRegistryNotFound for a missing file and db::DatabaseError for a database that
  // cannot be read (or was written by a newer program).
  void Initialize(const std::filesystem::path& database_file);
  void Refresh();
  const std::string& DatabaseName() const { return database_name_; }
  int Count() const { return static_cast<int>(companies_.size()); }

  // The company of that name (ignoring case), or an empty company.
  Company GetCompany(std::string_view name) const;
  // The first company, in load order, whose clock name matches ignoring case.
  std::optional<Company> GetCompanyByClockName(std::string_view clock_name) const;
  std::vector<Company> GetCompanyList() const { return companies_; }

 private:
  core::LogSink& log_;
  std::filesystem::path data_directory_;
  std::string database_name_;
  std::vector<Company> companies_;
};

}  // namespace clockcomm::records
