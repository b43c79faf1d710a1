#include "records/department_job_assigner.h"

#include "core/text.h"
#include "records/tcd_record_override_service.h"

namespace clockcomm::records {

bool DepartmentJobAssigner::Assign(TcdRecord& record) {
  // A dash in a job is keypad filler, not data. A job longer than a job can be is left as the
  // terminal sent it: the punch goes on whole.
  if (std::string job = core::ReplaceAll(record.JobNumber(), "-", "");
      job.size() != record.JobNumber().size() && job.size() <= kMaxJobNumberLength) {
    record.SetJobNumber(job);
  }
  const bool wanted = settings_.AssignHomeDept() || settings_.AssignDefaultJob();
  if (!wanted || company_db_ == nullptr || !PunchTypeInList(kPunchTypes, record.PunchType())) {
    return true;
  }
  try {
    auto rs = company_db_->Query(
        "SELECT [Home Department], [DefaultAssignment] FROM [Employee Table] "
        "WHERE ([CARD ID] = ?);",
        {record.BadgeId()});
    if (rs.Eof()) return true;
    if (settings_.AssignHomeDept() && record.Department().value_or(0) == 0) {
      record.SetDepartment(rs.Field("Home Department").AsOptionalInt());
    }
    if (settings_.AssignDefaultJob() && record.JobNumber().empty()) {
      record.SetJobNumber(rs.Field("DefaultAssignment").AsText());
    }
    return true;
  } catch (const std::exception& e) {
    log_.Event("AssignDepartmentsAndJobs Error",
               std::string(e.what()) + " Location: Reading Employee Table");
    return false;
  }
}

}  // namespace clockcomm::records
