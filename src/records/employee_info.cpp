#include "records/employee_info.h"

#include "core/errors.h"

namespace clockcomm::records {

EmployeeInfoMap EmployeeInfoMap::Load(db::Database& company_db) {
  EmployeeInfoMap map;
  auto rs = company_db.Query(
      "SELECT [Card ID], [Home Department], DefaultAssignment FROM [Employee Table]");
  for (; !rs.Eof(); rs.MoveNext()) {
    EmployeeInfo info;
    info.BadgeId = static_cast<int32_t>(rs.Field("Card ID").AsInt());
    info.HomeDepartment = rs.Field("Home Department").AsOptionalInt();
    info.DefaultAssignment = rs.Field("DefaultAssignment").AsText();
    map.Add(std::move(info));
  }
  return map;
}

const EmployeeInfo& EmployeeInfoMap::GetEmployeeInfo(int32_t badge_id) const {
  auto it = map_.find(badge_id);
  if (it == map_.end()) throw core::ItemNotFoundException();
  return it->second;
}

}  // namespace clockcomm::records
