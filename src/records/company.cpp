#include "records/company.h"

#include "core/errors.h"
#include "core/text.h"
#include "db/schema.h"

namespace clockcomm::records {

void Company::Initialize(std::string name, std::optional<core::DateTime> clock_table_updated,
                         std::string clock_name, std::string directory,
                         std::optional<core::Date> current_start_date, std::string pay_period_type,
                         std::optional<core::TimeOfDay> current_start_time, int custom_days,
                         const std::filesystem::path& data_directory) {
  name_ = std::move(name);
  clock_table_updated_ = clock_table_updated.value_or(core::DateTime());
  clock_name_ = std::move(clock_name);
  directory_ = std::move(directory);
  data_directory_ = data_directory;
  pay_period_start_ = current_start_date.value_or(core::Date());
  pay_period_type_ = std::move(pay_period_type);
  time_of_day_start_ = current_start_time.value_or(core::TimeOfDay()).WithoutSeconds();
  custom_days_ = custom_days;
}

std::filesystem::path Company::DirectoryPath() const {
  std::filesystem::path dir(directory_);
  if (dir.is_relative()) return data_directory_ / dir;
  return dir;
}

std::string Company::ClockwynDatabaseFilename() const {
  if (!database_.empty()) return database_;
  return (DirectoryPath() / db::kCompanyDatabaseFile).string();
}

bool Company::IsKnownPayPeriodType(std::string_view type) {
  const std::string t = core::ToLower(type);
  return t == "weekly" || t == "biweekly" || t == "semimonthly" || t == "monthly" ||
         t == "custom" || t == "accrued custom";
}

core::Date Company::LastDayOfPeriod() const {
  const std::string type = core::ToLower(pay_period_type_);
  const core::Date& start = pay_period_start_;
  if (type == "weekly") return start.AddDays(6);
  if (type == "biweekly") return start.AddDays(13);
  if (type == "semimonthly") {
    if (start.Day() < 16) return start.AddDays(14);
    return start.FirstOfNextMonth().AddDays(start.Day() - 17);
  }
  if (type == "monthly") return start.FirstOfNextMonth().AddDays(start.Day() - 2);
  if (type == "custom" || type == "accrued custom") {
    if (custom_days_ < 1) {
      throw core::ArgumentException("Company " + name_ + ": a custom pay period needs at least " +
                                        "1 day, CustomDays is " + std::to_string(custom_days_) +
                                        ".",
                                    "CustomDays");
    }
    return start.AddDays(custom_days_ - 1);
  }
  throw core::ArgumentException(
      "Company " + name_ + ": unknown pay period type '" + pay_period_type_ +
          "' (weekly, biweekly, semimonthly, monthly, custom or accrued custom).",
      "PayPeriodType");
}

core::DateTime Company::PayPeriodEnd() const {
  return core::DateTime(LastDayOfPeriod(), core::TimeOfDay()).AddMinutes(1439);
}

core::DateTime Company::PayPeriodStartDateTime() const {
  return core::DateTime(pay_period_start_, time_of_day_start_);
}

core::DateTime Company::PayPeriodEndDateTime() const {
  return core::DateTime(LastDayOfPeriod().AddDays(1), time_of_day_start_).AddMinutes(-1);
}

void Company::ResyncPayPeriod(const core::DateTime& moment) {
  while (core::SecondsBetween(PayPeriodEnd(), moment) >= 60) {
    pay_period_start_ = PayPeriodEnd().AddMinutes(1).GetDate();
  }
}

}  // namespace clockcomm::records
