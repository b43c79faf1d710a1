// An employee's hours for the terminal's hours request: today's and the pay period's, worked out
// from the punches in [Clock Data Table].
#pragma once

#include <optional>
#include <string>

#include "core/date_time.h"
#include "db/database.h"
#include "records/company.h"

namespace clockcomm::records {

class EmployeeHours {
 public:
  // Finds the employee and adds up the hours up to `now`. An unknown card, an inactive employee
  // or a database that cannot be read make the result invalid with the reason.
  void Load(db::Database& company_db, records::Company company, int badge,
            const core::DateTime& now);

  bool IsValid() const { return valid_; }
  const std::string& InvalidReason() const { return invalid_reason_; }
  const std::string& Name() const { return name_; }
  double TodayHours() const { return today_hours_; }
  double PeriodHours() const { return period_hours_; }

 private:
  bool valid_ = false;
  std::string invalid_reason_ = "Not loaded";
  std::string name_;
  double today_hours_ = 0;
  double period_hours_ = 0;
};

}  // namespace clockcomm::records
