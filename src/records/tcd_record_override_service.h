// Gives punches that open a period of work the employee's home department and default job, when
// the site switches that on in "SettingsOverride.txt".
#pragma once

#include <optional>
#include <string>

#include "records/employee_info.h"
#include "records/parameter_override.h"
#include "records/tcd_record.h"

namespace clockcomm::records {

class ITcdRecordOverrideService {
 public:
  virtual ~ITcdRecordOverrideService() = default;
  // The department the record should carry (its own when no rule applies).
  virtual std::optional<int32_t> OverrideDepartment(const TcdRecord& record) const = 0;
  // The job number the record should carry (its own when no rule applies).
  virtual std::string OverrideJobNumber(const TcdRecord& record) const = 0;
};

class TcdRecordOverrideService : public ITcdRecordOverrideService {
 public:
  // Punch types that receive a home department or default job.
  static constexpr const char* kPunchTypes = " I PI LO BO H P V B S T X A ";

  TcdRecordOverrideService(EmployeeInfoMap employees, ParameterOverride settings)
      : employees_(std::move(employees)), settings_(std::move(settings)) {}

  // The home department when the rule applies; ArgumentException when it is out of range.
  std::optional<int32_t> OverrideDepartment(const TcdRecord& record) const override;
  // The default job when the rule applies; ArgumentException beyond 13 characters.
  std::string OverrideJobNumber(const TcdRecord& record) const override;

  const EmployeeInfoMap& Employees() const { return employees_; }
  const ParameterOverride& Settings() const { return settings_; }

 private:
  EmployeeInfoMap employees_;
  ParameterOverride settings_;
};

class NullTcdRecordOverrideService : public ITcdRecordOverrideService {
 public:
  std::optional<int32_t> OverrideDepartment(const TcdRecord& record) const override {
    return record.Department();
  }
  std::string OverrideJobNumber(const TcdRecord& record) const override {
    return record.JobNumber();
  }
};

// True when the blank-delimited list holds the punch type as a whole word.
bool PunchTypeInList(std::string_view list, std::string_view punch_type);

}  // namespace clockcomm::records
