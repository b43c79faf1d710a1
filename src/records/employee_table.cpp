#include "records/employee_table.h"

#include "core/text.h"
#include "records/tcd_record.h"

namespace clockcomm::records {
namespace {

// The caller's transaction, or one of our own that Commit() ends.
class WriteScope {
 public:
  explicit WriteScope(db::Database& db) {
    if (!db.InTransaction()) own_.emplace(db);
  }
  void Commit() {
    if (own_) own_->Commit();
  }

 private:
  std::optional<db::Transaction> own_;
};

}  // namespace

std::optional<std::string> ReadEmployee(std::string_view card, std::string_view home_department,
                                        std::string_view default_job, std::string_view name,
                                        Employee& out) {
  const auto number = core::ParseInt(card);
  if (!number || *number <= 0) {
    return "card \"" + std::string(card) + "\" is not a positive whole number";
  }
  out.card = *number;
  out.home_department.reset();
  if (!core::TrimView(home_department).empty()) {
    const auto dept = core::ParseInt(home_department);
    if (!dept || *dept < 0 || *dept > kMaxDepartment) {
      return "home department \"" + std::string(home_department) + "\": " + kDepartmentRangeMessage;
    }
    out.home_department = *dept;
  }
  out.default_job = core::Trim(default_job);
  if (out.default_job.size() > kMaxJobNumberLength) {
    return "default job \"" + out.default_job + "\": " + kJobNumberLengthMessage;
  }
  out.name = core::Trim(name);
  // Names and jobs travel to the terminals in packets that control characters would cut.
  if (core::HasControlCharacter(out.name) || core::HasControlCharacter(out.default_job)) {
    return "name or default job holds a control character";
  }
  return std::nullopt;
}

bool EmployeeTable::Contains(int32_t card) {
  return !db_.Query("SELECT 1 FROM [Employee Table] WHERE [Card ID] = ?", {card}).Eof();
}

bool EmployeeTable::Add(const Employee& employee) {
  WriteScope scope(db_);
  if (Contains(employee.card)) return false;
  db_.Execute(
      "INSERT INTO [Employee Table] ([Card ID], [Employee Name], [Home Department], "
      "DefaultAssignment) VALUES (?, ?, ?, ?)",
      {employee.card, employee.name, employee.home_department, employee.default_job});
  CopyToLevel1(employee.card);
  scope.Commit();
  return true;
}

void EmployeeTable::Put(const Employee& employee) {
  WriteScope scope(db_);
  db_.Execute(
      "INSERT INTO [Employee Table] ([Card ID], [Employee Name], [Home Department], "
      "DefaultAssignment) VALUES (?, ?, ?, ?) ON CONFLICT([Card ID]) DO UPDATE SET "
      "[Home Department] = excluded.[Home Department], "
      "DefaultAssignment = excluded.DefaultAssignment, "
      "[Employee Name] = CASE WHEN excluded.[Employee Name] = '' THEN [Employee Name] "
      "ELSE excluded.[Employee Name] END",
      {employee.card, employee.name, employee.home_department, employee.default_job});
  CopyToLevel1(employee.card);
  scope.Commit();
}

void EmployeeTable::CopyToLevel1(int32_t card) {
  db_.Execute(
      "INSERT INTO LEVEL1 ([Card ID], Name, Active) "
      "SELECT [Card ID], [Employee Name], Active FROM [Employee Table] WHERE [Card ID] = ? "
      "ON CONFLICT([Card ID]) DO UPDATE SET Name = excluded.Name, Active = excluded.Active",
      {card});
}

std::vector<Employee> EmployeeTable::List(int64_t offset, int64_t limit) {
  auto rs = db_.Query(
      "SELECT [Card ID], [Employee Name], [Home Department], DefaultAssignment, Active "
      "FROM [Employee Table] ORDER BY [Card ID] LIMIT ? OFFSET ?",
      {limit, offset});
  std::vector<Employee> employees;
  for (; !rs.Eof(); rs.MoveNext()) {
    employees.push_back({static_cast<int32_t>(rs.Field("Card ID").AsInt()),
                         rs.Field("Employee Name").AsText(),
                         rs.Field("Home Department").AsOptionalInt(),
                         rs.Field("DefaultAssignment").AsText(), rs.Field("Active").AsInt() != 0});
  }
  return employees;
}

int64_t EmployeeTable::Count() {
  return db_.Query("SELECT COUNT(*) FROM [Employee Table]").Field(0).AsInt();
}

}  // namespace clockcomm::records
