#include "records/tcd_record_override_service.h"

namespace clockcomm::records {

bool PunchTypeInList(std::string_view list, std::string_view punch_type) {
  // A whole word of the list: blanks on both sides.
  for (size_t at = list.find(punch_type); at != std::string_view::npos;
       at = list.find(punch_type, at + 1)) {
    const size_t end = at + punch_type.size();
    if (at > 0 && list[at - 1] == ' ' && end < list.size() && list[end] == ' ') return true;
  }
  return false;
}

std::optional<int32_t> TcdRecordOverrideService::OverrideDepartment(const TcdRecord& record) const {
  if (!PunchTypeInList(kPunchTypes, record.PunchType())) return record.Department();
  if (!settings_.AssignHomeDept()) return record.Department();
  if (record.Department().value_or(0) != 0) return record.Department();
  if (!employees_.Contains(record.BadgeId())) return record.Department();
  // Through the setter of a copy, so the department range rule applies.
  TcdRecord assigned = record;
  assigned.SetDepartment(employees_.GetEmployeeInfo(record.BadgeId()).HomeDepartment);
  return assigned.Department();
}

std::string TcdRecordOverrideService::OverrideJobNumber(const TcdRecord& record) const {
  if (!PunchTypeInList(kPunchTypes, record.PunchType())) return record.JobNumber();
  if (!settings_.AssignDefaultJob() || !record.JobNumber().empty()) return record.JobNumber();
  if (!employees_.Contains(record.BadgeId())) return record.JobNumber();
  TcdRecord assigned = record;
  assigned.SetJobNumber(employees_.GetEmployeeInfo(record.BadgeId()).DefaultAssignment);
  return assigned.JobNumber();
}

}  // namespace clockcomm::records
