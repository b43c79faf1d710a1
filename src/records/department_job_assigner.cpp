#include "records/department_job_assigner.h"

#include "core/text.h"
#include "db/open.h"
#include "records/parameter_override.h"
#include "records/tcd_record_override_service.h"
#include "records/tcd_record_static.h"

namespace clockcomm::records {
namespace {

constexpr const char* kLogName = "Assign Departments and Jobs";

}  // namespace

std::optional<std::string> DepartmentJobAssigner::AssignDepartmentsAndJobs(std::string_view line) {
  std::string step = "Replace dash before quote";
  try {
    // A trailing dash inside a quoted field is keypad filler, not data.
    const std::string cleaned = core::ReplaceAll(std::string(line), "-\"", "\"");
    step = "TcdRecord.Parse";
    log_.Debug(kLogName, step);
    TcdRecord record = TcdRecordStatic::Parse(clock_number_ + "," + cleaned);
    step = "Replace dash in Job";
    log_.Debug(kLogName, step);
    record.SetJobNumber(core::ReplaceAll(record.JobNumber(), "-", ""));
    // A dash in the department field was already read as the keypad's 0 by Parse, so the
    // department is a plain number here.
    ParameterOverride settings(program_folder_);
    if ((settings.AssignHomeDept() || settings.AssignDefaultJob()) &&
        PunchTypeInList(kPunchTypes, record.PunchType())) {
      step = "Reading Employee Table";
      log_.Debug(kLogName, step);
      auto db = db::Open(company_database_);
      auto rs = db->Query(
          "SELECT [Home Department], [DefaultAssignment] FROM [Employee Table] "
          "WHERE ([CARD ID] = ?);",
          {record.BadgeId()});
      if (!rs.Eof()) {
        if (settings.AssignHomeDept() && record.Department().value_or(0) == 0) {
          step = "Assigning Home Dept";
          log_.Debug(kLogName, step);
          record.SetDepartment(rs.Field("Home Department").AsOptionalInt());
        }
        if (settings.AssignDefaultJob() && record.JobNumber().empty()) {
          step = "Assigning Default Job";
          log_.Debug(kLogName, step);
          record.SetJobNumber(rs.Field("DefaultAssignment").AsText());
        }
      }
    }
    step = "Assigning Record.toTcdString to Return";
    log_.Debug(kLogName, step);
    return record.ToTcdString(0);
  } catch (const std::exception& e) {
    log_.Debug(kLogName,
               "AssignDepartmentsAndJobs Error: " + std::string(e.what()) + " Location: " + step);
    log_.Event("AssignDepartmentsAndJobs Error", std::string(e.what()) + " Location: " + step);
    return std::nullopt;
  }
}

}  // namespace clockcomm::records
