// One company of the registry: its clock, its directory and database, and its pay period.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/date_time.h"

namespace clockcomm::records {

class Company {
 public:
  Company() = default;

  // The values of one registry row. A relative directory is taken under the data directory.
  void Initialize(std::string name, std::optional<core::DateTime> clock_table_updated,
                  std::string clock_name, std::string directory,
                  std::optional<core::Date> current_start_date, std::string pay_period_type,
                  std::optional<core::TimeOfDay> current_start_time, int custom_days,
                  const std::filesystem::path& data_directory);

  int CustomPayPeriodLength() const { return custom_days_; }
  const core::TimeOfDay& TimeOfDayStart() const { return time_of_day_start_; }
  const std::string& Name() const { return name_; }
  // The zero date when the registry has no stamp.
  const core::DateTime& ClockDataTableLastUpdated() const { return clock_table_updated_; }
  // The registry's [Database] when it names one (a postgresql:// URL), else
  // <company directory>/Company.db.
  std::string ClockwynDatabaseFilename() const;
  // The registry's [Database] as stored; empty for the file in the company's directory.
  const std::string& DatabaseLocation() const { return database_; }
  void SetDatabaseLocation(std::string location) { database_ = std::move(location); }
  const std::string& DatabaseDirectory() const { return directory_; }
  // The directory as a path, relative ones resolved under the data directory.
  std::filesystem::path DirectoryPath() const;
  const std::string& ClockName() const { return clock_name_; }
  const core::Date& PayPeriodStart() const { return pay_period_start_; }
  const std::string& PayPeriodType() const { return pay_period_type_; }
  // 23:59 of the last day of the period. Throws core::ArgumentException for an unknown type.
  core::DateTime PayPeriodEnd() const;
  core::DateTime PayPeriodStartDateTime() const;
  // One minute before the next period starts: next start date at TimeOfDayStart, less 1 minute.
  core::DateTime PayPeriodEndDateTime() const;
  // An empty company (what GetCompany gives for an unknown name).
  bool IsEmpty() const { return name_.empty(); }

  // Moves the period forward until it holds the given moment (never backward).
  void ResyncPayPeriod(const core::DateTime& moment);

  // The pay period types the registry knows, in lower case.
  static bool IsKnownPayPeriodType(std::string_view type);

 private:
  core::Date LastDayOfPeriod() const;

  int custom_days_ = 0;
  core::TimeOfDay time_of_day_start_;
  std::string name_;
  core::DateTime clock_table_updated_;
  std::string directory_;
  std::string database_;
  std::filesystem::path data_directory_;
  std::string clock_name_;
  core::Date pay_period_start_;
  std::string pay_period_type_;
};

}  // namespace clockcomm::records
